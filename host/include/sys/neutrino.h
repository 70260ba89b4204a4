// <sys/neutrino.h>: the kernel calls.
//   Errors   X() returns -1 and sets errno; X_r() returns the error number (0: EOK) and leaves errno alone.
//   Threads  any thread; an armed time-out belongs to the thread that armed it.
#pragma once

#include <pthread.h>
#include <sched.h>
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
/// `otime` is left alone.
int TimerTimeout(clockid_t id, int flags, const struct sigevent* notify, const uint64_t* ntime, uint64_t* otime);
int TimerTimeout_r(clockid_t id, int flags, const struct sigevent* notify, const uint64_t* ntime, uint64_t* otime);

/// The kernel's halves of locking and unlocking, entered when the words alone do not settle it. Both may be called
/// for a mutex in any state and then do the whole of it.
int SyncMutexLock_r(struct _sync* mutex);
int SyncMutexUnlock_r(struct _sync* mutex);

// Threads. An id is the kernel's. `pid` is 0 or this process's id: others cannot be reached (ESRCH).

struct _thread_attr {
    int __flags;                 // PTHREAD_CREATE_JOINABLE or PTHREAD_CREATE_DETACHED
    size_t __stacksize;          // bytes; the host gives a quarter of a megabyte at least
    struct sched_param __param;  // not used: a thread inherits its creator's priority
};

/// Starts a thread that runs `function` and ends with what that returns. The result is its id, -1 and errno (EAGAIN,
/// ENOMEM, EINVAL) otherwise. It inherits the creator's signal mask and recorded priority.
int ThreadCreate(pid_t pid, void* (*function)(void*), void* argument, const struct _thread_attr* attributes);

/// Waits for the end of a thread that ThreadCreate started. ETIMEDOUT under an armed JOIN time-out; ESRCH no such
/// thread, EINVAL a detached one or one that was not started by ThreadCreate, EDEADLK oneself, EBUSY joined by
/// another thread. An ended thread is joined at once. `status` may be null.
int ThreadJoin_r(int tid, void** status);

/// Ends a thread at once: 0 the caller, -1 all and with them the process. No destructor and no handler runs; what
/// the thread had locked stays locked. It happens when the thread next may take a signal. `status` goes to who
/// joins it. `priority` means nothing here. ESRCH: no such thread; EAGAIN: the user has as many signals waiting, and
/// timers, as the limit allows, and the thread goes on.
int ThreadDestroy(int tid, int priority, void* status);

/// Priorities are recorded, and are given to the kernel as a nice value where that could be taken back: a thread has
/// 10 at first, or its creator's. SchedGet gives the policy, -1 and errno ESRCH for no such thread.
int SchedGet(pid_t pid, int tid, struct sched_param* parameters);
/// `policy` SCHED_NOCHANGE keeps the policy. EINVAL for a priority outside 1 to 63 or an unknown policy, ESRCH for no
/// such thread, ENOMEM.
int SchedSet(pid_t pid, int tid, int policy, const struct sched_param* parameters);

#define SCHED_NOCHANGE (-1)

// Clocks and signals.

/// Reads a clock in nanoseconds into `old`, and then sets it to `*set`. Both may be null.
int ClockTime(clockid_t id, const uint64_t* set, uint64_t* old);

/// The processor-time clock of a thread of this process, or of a whole process (`tid` 0); `pid` 0 is this one. -1 and
/// errno ESRCH for no such thread or process, and for a thread of another process.
int ClockId(pid_t pid, int tid);

/// The mask of the calling thread, `tid` 0 or its own id; others cannot be reached (ESRCH). `set` may be null.
int SignalProcmask(pid_t pid, int tid, int how, const sigset_t* set, sigset_t* old);
int SignalProcmask_r(pid_t pid, int tid, int how, const sigset_t* set, sigset_t* old);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

#include <host/Messages.h>
#include <host/Timers.h>
