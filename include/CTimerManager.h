// CTimerManager, CTimer: kernel timers whose expiry becomes a virtual call in the thread that drives the manager.
//   Use      class CBlink : public CTimer { using CTimer::CTimer; void onTimeout() override { ... } };
//            CTimerManager manager(100);  CBlink blink(manager);  blink.start(500, /*singleShot*/ false);
//            while (isRunning) manager.performWork();
//   Units    milliseconds of the monotonic clock.
//   Shape    the manager is the list of its timers, the time-out and the ids of a channel and a connection to it;
//            no virtual table. A timer is a virtual table, the kernel timer's id, its manager, the list's link and
//            one byte. Table: both destructors, onTimeout.
//   Pulses   each expiry of a timer queues one pulse (code 0, priority 63) that carries the timer's address. A
//            pulse of a timer that was stopped or destroyed meanwhile is dropped.
//   Errors   a kernel call that fails ends the process through VQError::fatalError, except that a receive may be
//            interrupted. A manager outlives its timers: destroying one that has some is an assertion; they
//            are let go, and can be destroyed, but not be started, afterwards.
//   Threads  the one that drives the manager, for everything. It may construct, destroy, start and stop timers in
//            onTimeout, the one that is being called included. Handlers may not throw.
//   Kept     timer-restart-stale: a timer that is started again while a pulse of its former start waits is called
//            for that pulse, too, and so early.
//            timer-stays-active: a single-shot timer counts as active after it fired, until it is stopped.
//            timer-zero-never: start(0, ...) says true, and the timer never fires.
#pragma once

#include <TVQIntrusiveSlist.h>
#include <VQExport.h>

class CTimer;

class VQ_EXPORT CTimerManager {
public:
    /// `workTimeoutMs`: how long one performWork() waits for a pulse; negative: without limit; 0 becomes 1.
    explicit CTimerManager(int workTimeoutMs);
    ~CTimerManager();
    CTimerManager(const CTimerManager&) = delete;
    CTimerManager& operator=(const CTimerManager&) = delete;

    /// Waits for one pulse and calls its timer. False when no timer was called: the wait ended without a pulse, or
    /// the pulse was stale.
    bool performWork();

    // For CTimer, which is in the list from its construction to its destruction. A timer that is in the list already
    // ends the process, as the list says.
    void registerTimer(CTimer& timer);
    void unregisterTimer(CTimer& timer);

private:
    friend class CTimerBase;

    TVQIntrusiveSlist<CTimer, VQIntrusive::TVQSlistBaseHookAccessor<CTimer>> mTimers;
    int mWorkTimeoutMs;
    int mChannel;
    int mConnection;
};

/// A kernel timer that sends its own address to a manager.
class VQ_EXPORT CTimerBase {
public:
    explicit CTimerBase(CTimerManager& manager) : mManager(&manager) { create(); }
    virtual ~CTimerBase() { destroy(); }
    CTimerBase(const CTimerBase&) = delete;
    CTimerBase& operator=(const CTimerBase&) = delete;

    /// Arms the kernel timer, whatever it was before. True.
    bool doStart(unsigned int timeMs, bool singleShot);
    void doStop();

private:
    friend class CTimer;
    friend class CTimerManager;

    void create();
    void destroy();

    int mTimer = -1;
    CTimerManager* mManager;  // null when it has gone before its timer
};

/// One kernel timer of a CTimerManager: derive from it and write onTimeout().
class VQ_EXPORT CTimer : public CTimerBase, public VQIntrusive::SVQSlistBaseHook {
public:
    explicit CTimer(CTimerManager& manager) : CTimerBase(manager) { manager.registerTimer(*this); }
    ~CTimer() override { leave(); }

    /// Called by performWork() for a pulse of this timer.
    virtual void onTimeout() = 0;

    /// Fires `timeMs` from now, and with `singleShot` false then every `timeMs`, without drift: an expiry that
    /// performWork() did not take in time is made up for. A timer that is active starts anew. False without a
    /// manager.
    bool start(unsigned int timeMs, bool singleShot);
    void stop();

    void handleTimeout() { onTimeout(); }

private:
    friend class CTimerManager;

    void leave();

    unsigned char mIsActive = 0;
};
