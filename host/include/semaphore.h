// <semaphore.h>: the C library's semaphores, with the name that Neutrino has for a wait on the monotonic clock.
//   Errors   -1 and errno: ETIMEDOUT, EINTR after a caught signal, EINVAL for bad nanoseconds, only when the call
//            would have to wait.
//   Host     the C library's own object. An armed kernel time-out ends none of its waits.
#pragma once
#pragma GCC system_header  // for the line below, which no standard knows

#include_next <semaphore.h>
#include <time.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/// Waits until `deadline`, a time of CLOCK_MONOTONIC. A unit that is there is taken whatever the time says.
int sem_timedwait_monotonic(sem_t* semaphore, const struct timespec* deadline);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
