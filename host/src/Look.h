// Look: waiters in shared memory do not trust that they are woken.
#pragma once

#include "Futex.h"

namespace host {

/// How long a waiter sleeps at most before it looks at a shared object itself: a process that was killed between its
/// wake-up and what it was woken for has left the next waiter asleep, and a hostile one may have the kernel wake nobody.
constexpr uint64_t kLookAfterNs = kNsPerSecond;

inline Deadline nextLook(Deadline deadline, Sharing sharing) {
    if (sharing == Sharing::PRIVATE)
        return deadline;
    const Deadline look = {nowNs(CLOCK_MONOTONIC_COARSE) + kLookAfterNs};
    return look.ns < deadline.ns ? look : deadline;
}

}  // namespace host
