// <sys/neutrino.h>: the kernel calls.
//   Errors   X() returns -1 and sets errno; X_r() returns the error number (0: EOK) and leaves errno alone.
//   Threads  any thread; an armed time-out belongs to the thread that armed it.
#pragma once

#include <pthread.h>
#include <stdint.h>
#include <sys/siginfo.h>
#include <time.h>

#ifndef EOK
#define EOK 0
#endif

// States that a time-out may cover.
#define _NTO_TIMEOUT_SEND 0x00000010
#define _NTO_TIMEOUT_RECEIVE 0x00000020
#define _NTO_TIMEOUT_REPLY 0x00000040
#define _NTO_TIMEOUT_SIGSUSPEND 0x00000400
#define _NTO_TIMEOUT_SIGWAITINFO 0x00000800
#define _NTO_TIMEOUT_NANOSLEEP 0x00001000
#define _NTO_TIMEOUT_MUTEX 0x00002000
#define _NTO_TIMEOUT_CONDVAR 0x00004000
#define _NTO_TIMEOUT_JOIN 0x00008000
#define _NTO_TIMEOUT_INTR 0x00010000
#define _NTO_TIMEOUT_SEM 0x00020000

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/// Arms a time-out for the calling thread's next kernel call, which consumes it, whether it blocks in one of the
/// states of `flags` or not. `ntime` counts nanoseconds from now, or with TIMER_ABSTIME in `flags` from the zero of
/// the clock `id` (CLOCK_MONOTONIC or CLOCK_REALTIME); null means: do not block. Above INT64_MAX there is no limit.
/// No state in `flags` disarms. `notify` is null or SIGEV_UNBLOCK; the host has no other event here (ENOTSUP).
/// `otime` is left alone: it speaks of sleeping, which is not among the covered calls yet.
int TimerTimeout(clockid_t id, int flags, const struct sigevent* notify, const uint64_t* ntime, uint64_t* otime);
int TimerTimeout_r(clockid_t id, int flags, const struct sigevent* notify, const uint64_t* ntime, uint64_t* otime);

/// The kernel's halves of locking and unlocking, entered when the words alone do not settle it. Both may be called
/// for a mutex in any state and then do the whole of it.
int SyncMutexLock_r(struct _sync* mutex);
int SyncMutexUnlock_r(struct _sync* mutex);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
