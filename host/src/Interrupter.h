// Interrupter: ends a system call that waits beyond a deadline, of whatever kind it is.
//   A timer sends the calling thread a signal with an empty handler: at the deadline, and then every millisecond,
//   since the first one may come before the thread has entered the call.
#pragma once

#include "Deadline.h"
#include "ErrnoKeeper.h"

#include <limits.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

namespace host {

class Interrupter {
public:
    explicit Interrupter(Deadline deadline) {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(number(), &action, nullptr);
        sigset_t own;
        sigemptyset(&own);
        sigaddset(&own, number());
        pthread_sigmask(SIG_UNBLOCK, &own, &mMask);
        struct sigevent event = {};
        event.sigev_notify = SIGEV_THREAD_ID;
        event.sigev_signo = number();
        event._sigev_un._tid = gettid();
        mHasTimer = timer_create(CLOCK_MONOTONIC, &event, &mTimer) == 0;
        if (mHasTimer)
            start(deadline);
    }
    ~Interrupter() {
        const ErrnoKeeper keeper;
        if (mHasTimer)
            timer_delete(mTimer);
        pthread_sigmask(SIG_SETMASK, &mMask, nullptr);
    }
    Interrupter(const Interrupter&) = delete;
    Interrupter& operator=(const Interrupter&) = delete;

    /// False, with the reason in errno, when the kernel grants no timer.
    bool isThere() const { return mHasTimer; }

private:
    // Among those that an emulator passes on.
    static int number() { return SIGRTMAX - 5; }

    void start(Deadline deadline) const {
        const uint64_t ns = deadline.isImmediate() ? 1 : deadline.ns;  // 0 would stop the timer
        const uint64_t seconds = ns / kNsPerSecond;
        struct itimerspec times = {};
        times.it_value.tv_sec = static_cast<time_t>(seconds < LONG_MAX ? seconds : LONG_MAX);
        times.it_value.tv_nsec = static_cast<long>(ns % kNsPerSecond);
        times.it_interval.tv_nsec = 1000000;
        timer_settime(mTimer, TIMER_ABSTIME, &times, nullptr);
    }

    sigset_t mMask;
    timer_t mTimer;
    bool mHasTimer;
};

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
