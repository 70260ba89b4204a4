// CVQPerformanceCheck: a stopwatch over real time, the processor time of a thread or that of a process.
//   Units    nanoseconds, 64 bits unsigned.
//   Shape    process id, thread id, mode, state; start stamp, accumulated time; the platform's clock id.
//   Errors   an operation in a state that it is not made for, a clock that is refused or cannot be read, and a mode
//            that is none are assertions. The operation is carried out all the same; such a clock reads as 0.
//   Threads  one thread at a time.
//   Kept     check-pause-new: a new stopwatch may be paused, which adds the clock's reading as it is.
//            check-stop-paused: stop() after pause() counts the time since the last start or resume once more, so
//            the paused time as well; resume before stopping.
#pragma once

#include <VQExport.h>

/// A duration in parts.
struct SVQPerformanceTime {
    unsigned int seconds;
    unsigned int milliseconds;  // 0 to 999, as those below
    unsigned int microseconds;
    unsigned int nanoseconds;
};

class VQ_EXPORT CVQPerformanceCheck {
public:
    /// Real time.
    CVQPerformanceCheck();
    /// Processor time of a thread of this process; 0 is the calling one.
    explicit CVQPerformanceCheck(int threadId);
    /// Processor time of a process; the calling one when `current`.
    CVQPerformanceCheck(int processId, bool current);
    ~CVQPerformanceCheck();

    void start();
    void pause();
    void resume();
    /// The time accumulated.
    unsigned long long stop();

    // Readings of the clocks. The latter two ask the clock that the stopwatch was made with; one for real time has
    // the number 0 there, which is the wall clock.
    static unsigned long long getRealTime();
    unsigned long long getThreadTime() const;
    unsigned long long getProcessTime() const;

    static SVQPerformanceTime translate(unsigned long long nanoseconds);

    /// Obtains the clock of the mode; done by the constructors.
    void init();

private:
    enum eMode : int { REAL_TIME = 0, THREAD_TIME = 1, PROCESS_TIME = 2 };
    enum eState : int { NEW = 0, STARTED = 1, PAUSED = 2, RESUMED = 3, STOPPED = 4 };

    unsigned long long now(unsigned lineUnknownMode) const;
    void expectState(eState one, eState other, eState third, unsigned line) const;

    int mProcessId = 0;
    int mThreadId = 0;
    eMode mMode = REAL_TIME;
    eState mState = NEW;
    unsigned long long mStart = 0;
    unsigned long long mAccumulated = 0;
    int mClock = 0;
};
