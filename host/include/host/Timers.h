// Timers: Neutrino's timers, which send pulses. Host only; include <sys/neutrino.h>.
//   Shape    a timer belongs to the process and sends on one of its connections, which leads to a channel of the
//            same process. Each expiry is one pulse, also when nobody receives; a pulse that is queued stays,
//            whatever happens to its timer.
//   Units    nanoseconds, 64 bits.
//   Errors   -1 and errno.
//   Threads  any thread, but not a signal handler. A forked child has no timers.
#pragma once

#include <signal.h>
#include <stdint.h>
#include <time.h>

struct _itimer {
    uint64_t nsec;           // until the first expiry, or when it is
    uint64_t interval_nsec;  // between the following ones; 0: there are none
};

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/// The timer's id; it is disarmed. The clock is CLOCK_MONOTONIC or CLOCK_REALTIME (else EINVAL), the event a
/// SIGEV_PULSE with a priority of 1 to 63 (EINVAL) on a connection that is there (EBADF) and leads to this process;
/// the host has no other (ENOTSUP). EAGAIN when memory is short.
int TimerCreate(clockid_t clock, const struct sigevent* event);

/// Sets the timer to expire `set->nsec` from now, or with TIMER_ABSTIME in `flags` at that time of its clock, at
/// once when it has passed; 0 disarms. Then it expires every `interval_nsec`, a microsecond at least, counted from
/// the first time. What was set before is stored in `old`, unless that is null: the time left, 0 when disarmed, and
/// the interval. EINVAL for an unknown id.
int TimerSettime(int id, int flags, const struct _itimer* set, struct _itimer* old);

/// EINVAL for an unknown id.
int TimerDestroy(int id);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
