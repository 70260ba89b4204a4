// FutexLock: a lock within one process that errno and the C library know nothing of.
#pragma once

#include "Futex.h"

#include <errno.h>

namespace host {

class FutexLock {
public:
    /// Waits until the deadline at most. True with the lock.
    bool lock(Deadline deadline = Deadline::never()) {
        unsigned state = FREE;
        if (__atomic_compare_exchange_n(&mState, &state, unsigned(HELD), false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED))
            return true;
        while (__atomic_exchange_n(&mState, unsigned(AWAITED), __ATOMIC_ACQUIRE) != FREE)
            if (futexWait(&mState, AWAITED, Sharing::PRIVATE, deadline) == ETIMEDOUT)
                return false;
        return true;
    }
    void unlock() {
        if (__atomic_exchange_n(&mState, unsigned(FREE), __ATOMIC_RELEASE) == AWAITED)
            futexWake(&mState, 1, Sharing::PRIVATE);
    }
    /// For the only thread of a forked child.
    void forget() { mState = FREE; }

private:
    enum State : unsigned { FREE, HELD, AWAITED };
    unsigned mState = FREE;
};

}  // namespace host
