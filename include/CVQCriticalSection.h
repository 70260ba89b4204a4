// CVQCriticalSection: the cheapest lock: not recursive, private to the process, without a time-out.
//   Shape    exactly one `_sync` (two 32-bit words), so that it fits into other objects and into a `TVQOptional`.
//   Errors   construction and destruction log a refusal at critical severity and go on; nothing asserts. `lock` and
//            `unlock` return the platform's error number, 0 for success, and log nothing.
//   Threads  any thread. A free section is taken and released without a kernel call. A thread that locks it twice
//            waits for itself for ever.
#pragma once

#include <VQExport.h>

#include <pthread.h>

class VQ_EXPORT CVQCriticalSection {
public:
    CVQCriticalSection();
    ~CVQCriticalSection();
    CVQCriticalSection(const CVQCriticalSection&) = delete;
    CVQCriticalSection& operator=(const CVQCriticalSection&) = delete;

    int lock() { return pthread_mutex_lock(&mSync); }
    int unlock() { return pthread_mutex_unlock(&mSync); }

private:
    _sync mSync = {};  // unlocked, also when the platform refuses to make it
};

static_assert(sizeof(CVQCriticalSection) == 8 && alignof(CVQCriticalSection) == 4,
              "owners reserve two 32-bit words for a critical section");
