// CVQThreadCtrl: starts, names, prioritises, joins and ends threads.
//   Units    stack sizes in bytes; priorities are the platform's, 1 to 63 for ordinary threads; time-outs in
//            milliseconds on the monotonic clock.
//   Errors   as stated for each function; errno says why, save for `join`. Nothing is logged.
//   Threads  any thread, for any thread of the process. A thread that ends another one leaves what that one held
//            locked: end threads this way only when the process goes on without what they touched.
//   Kept     join-zero-waits: a time-out of 0 waits without limit, like a negative one.
//            thread-priority-unchecked: `setPriority` gives the old priority even when the new one is refused.
#pragma once

#include <VQExport.h>

class VQ_EXPORT CVQThreadCtrl {
public:
    static constexpr int DEFAULTSTACKSIZE = 32768;
    static constexpr int DEFAULTPRIORITY = 10;
    static constexpr int INHERITPRIORITY = -1;
    static constexpr int PRIORITY_LOWEST = 1;
    static constexpr int PRIORITY_BELOW_NORMAL = 6;
    static constexpr int PRIORITY_NORMAL = 10;
    static constexpr int PRIORITY_ABOVE_NORMAL = 30;
    static constexpr int PRIORITY_HIGHEST = 63;

    /// The body of a thread. It must live until `run` has returned.
    class IRunnable {
    public:
        IRunnable() = default;
        IRunnable(const IRunnable&) = default;
        IRunnable& operator=(const IRunnable&) = default;
        virtual ~IRunnable() = default;
        virtual void run() = 0;
    };

    /// Returns the id of a new thread that runs `runnable`, 0 on failure. The thread inherits the caller's
    /// priority; another one than INHERITPRIORITY is set once it has started. A thread that is not `detached` must
    /// be joined.
    static int startThread(IRunnable& runnable, bool detached = false, int priority = INHERITPRIORITY,
                           int stackSize = DEFAULTSTACKSIZE);

    /// Waits for the end of a thread: 0 when it ended, -2 when `timeoutMs` passed, -1 on any other failure (no such
    /// thread, a detached one, oneself, joined by another). A `timeoutMs` below 1 waits without limit.
    static int join(int tid, int timeoutMs = 0);

    /// The thread's present priority, -1 on failure. A `tid` of 0 is the caller, here and below.
    static int getPriority(int tid);
    /// The previous priority, -1 when there is no such thread.
    static int setPriority(int tid, int priority);

    /// What tools show. The platform sets the longest name.
    static bool setThreadName(int tid, const char* name);

    /// Ends another thread at once, wherever it is: no destructor runs, what it locked stays locked. -1 on failure.
    /// As on the platform, a `tid` of -1 is all threads, and so ends the process: mind what an id is that is none.
    static int terminate(int tid);
    /// Ends the calling thread in the same way. Not for signal handlers: on the host the process aborts where the handler
    /// has interrupted one of the kernel's calls at work.
    [[noreturn]] static void terminate();

    static int getCurrentThreadId();
};
