// Interrupter: ends a system call that waits beyond a deadline, of whatever kind it is.
//   A timer sends the calling thread a signal with an empty handler: at the deadline, and then every millisecond,
//   since the first one may come before the thread has entered the call. A thread makes its timer with the first
//   such call and keeps it to its end; a forked child makes its own.
//   A handler of another signal may make such a call within such a call. The outer deadline is set again then.
#pragma once

#include "Deadline.h"
#include "Errno.h"

#include <errno.h>
#include <time.h>

namespace host {

class Interrupter {
public:
    explicit Interrupter(Deadline deadline);
    ~Interrupter();
    Interrupter(const Interrupter&) = delete;
    Interrupter& operator=(const Interrupter&) = delete;

    /// False, with the reason in errno, when the kernel grants no timer.
    bool isThere() const { return mHasTimer; }

private:
    const bool mHasTimer;
    bool mWasBlocked;
    const Deadline mOuter;
};

/// For a thread that ends without its destructors.
void deleteOwnTimer();

/// Makes a system call that a signal ends with -1 and EINTR. After the deadline that is ETIMEDOUT.
template <class Call>
auto callUntil(Deadline deadline, Call call) -> decltype(call()) {
    const Interrupter interrupter(deadline);
    if (!interrupter.isThere())
        return -1;
    const auto result = call();
    if (result == -1 && errno == EINTR && nowNs(CLOCK_MONOTONIC) >= deadline.ns)
        errno = ETIMEDOUT;
    return result;
}

}  // namespace host
