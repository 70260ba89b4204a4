// CVQMutex: owns one mutex of its process, recursive or not.
//   Units    time-outs in milliseconds on the monotonic clock.
//   Shape    exactly one `_sync`: the object is the mutex, and passes wherever a `_sync&` is asked for.
//   Errors   as `VQMutexAccess` reports them.
//   Threads  any thread. Never shared between processes.
//   Kept     mutex-recursive-is-zero: `RECURSIVE` is 0, since callers pass the number (docs/kept.md).
#pragma once

#include <VQExport.h>

#include <pthread.h>

class VQ_EXPORT CVQMutex : public _sync {
public:
    /// Whether the holder may lock again.
    enum RecursionMode {
        RECURSIVE = 0,  ///< Kept: mutex-recursive-is-zero. Callers pass the number.
        NON_RECURSIVE = 1,
    };

    /// Unless `unlocked`, the constructing thread holds the mutex and has to unlock it.
    CVQMutex(bool unlocked, RecursionMode mode);
    ~CVQMutex();
    CVQMutex(const CVQMutex&) = delete;
    CVQMutex& operator=(const CVQMutex&) = delete;

    /// As `VQMutexAccess::lock`: -1 waits without limit, 0 tries once.
    bool lock(int timeoutMs = -1);
    /// Returns the platform's error number, 0 for success.
    int unlock() { return pthread_mutex_unlock(this); }
};

static_assert(sizeof(CVQMutex) == sizeof(_sync), "a CVQMutex is its mutex and nothing else");
