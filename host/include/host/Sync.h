// Sync: the synchronisation object of Neutrino and the pthread calls on it. Host only; include <pthread.h>.
//   Shape    two 32-bit words. All zero is an unlocked mutex, private to the process and not recursive.
//   Mutex    owner word: 0 when free, else the holder's thread id with two flags, "threads wait" and "locked more
//            than once". Count word: the attributes and how often a recursive mutex was locked again. Hence locking
//            a free mutex and unlocking one that nobody waits for are one compare-exchange of the owner word each.
//   Calls    overloads of the C library's names: the argument chooses. Never cast a _sync to pthread_mutex_t, which
//            is longer.
//   Errors   the error number is the result; errno is left alone.
//            lock, timed lock: ETIMEDOUT; EINVAL for bad nanoseconds, only when the call would have to wait; EAGAIN
//            when a recursive mutex cannot count further. A caught signal never ends a wait. trylock: EBUSY.
//            unlock: EPERM when the caller is not the holder. destroy: EBUSY when locked.
//            A mutex that is not recursive and locked again by its holder blocks (EDEADLK if made error-checking).
//   Condition  one word counts the signals, the other has the attributes and counts those who wait. All zero is a
//            condition private to the process, on CLOCK_REALTIME. A wait releases the mutex, which the caller holds
//            once, and holds it again on return, whatever the result: 0, ETIMEDOUT, EPERM when it is not the
//            caller's, EINVAL for bad nanoseconds. It may return 0 without a signal. A waiter that expects its signal
//            from another processor looks for it for up to 50 us before it sleeps. destroy lets those who were woken
//            leave, so that it may follow the signal; EBUSY when threads sleep, or when somebody does not leave in a
//            second, which a process waits for once: killed waiters, and those of a forked child's parent, never do.
//            At most 524,287 threads wait, killed ones included.
//   Threads  any thread; any process that maps it when made with PTHREAD_PROCESS_SHARED. No priority inheritance;
//            what a dead holder left locked stays locked.
#pragma once

#include <stdint.h>
#include <sys/single_threaded.h>
#include <time.h>

#define PTHREAD_RECURSIVE_DISABLE 0
#define PTHREAD_RECURSIVE_ENABLE 2

struct _sync {
    unsigned __count;
    unsigned __owner;
};

#ifdef __cplusplus

static_assert(sizeof(_sync) == 8 && alignof(_sync) == 4, "the size that Neutrino's objects have everywhere");

#pragma GCC visibility push(default)
extern "C" {
int SyncMutexLock_r(_sync* mutex);
int SyncMutexUnlock_r(_sync* mutex);

/// The calling thread's owner value, or 0 while the thread must take the long way: it has not locked anything yet,
/// it was forked, or a time-out is armed, which the next call has to consume. So the short way pays for none of this.
extern __thread unsigned __nto_owner __attribute__((tls_model("initial-exec")));
}
#pragma GCC visibility pop

#define __NTO_SYNC_SHARED 0x80000000u  // in the count word

/// Replaces the owner word `expected` by `desired`. While the process has one thread nobody can come in between,
/// save the other processes that share the mutex: then plain loads and stores do.
inline bool __nto_change_owner(_sync* mutex, unsigned expected, unsigned desired, int order) noexcept {
    if (__libc_single_threaded && (__atomic_load_n(&mutex->__count, __ATOMIC_RELAXED) & __NTO_SYNC_SHARED) == 0) {
        if (__atomic_load_n(&mutex->__owner, __ATOMIC_RELAXED) != expected)
            return false;
        __atomic_store_n(&mutex->__owner, desired, __ATOMIC_RELAXED);
        return true;
    }
    return __atomic_compare_exchange_n(&mutex->__owner, &expected, desired, /*weak*/ false, order,
                                       __ATOMIC_RELAXED);
}

/// Locks a free mutex; false for any reason to take the long way.
inline bool __nto_take(_sync* mutex) noexcept {
    const unsigned self = __nto_owner;
    return self != 0 && __nto_change_owner(mutex, 0, self, __ATOMIC_ACQUIRE);
}

/// Unlocks a mutex that the caller holds once and nobody waits for; false for any reason to take the long way.
inline bool __nto_give(_sync* mutex) noexcept {
    const unsigned self = __nto_owner;
    return self != 0 && __nto_change_owner(mutex, self, 0, __ATOMIC_RELEASE);
}

extern "C++" {  // also where an application includes <pthread.h> in a block of C declarations

#pragma GCC visibility push(default)
int pthread_mutex_init(_sync* mutex, const pthread_mutexattr_t* attributes) noexcept;
int pthread_mutex_destroy(_sync* mutex) noexcept;
int pthread_mutex_timedlock_monotonic(_sync* mutex, const timespec* deadline) noexcept;
int __nto_mutex_trylock(_sync* mutex) noexcept;

int pthread_cond_init(_sync* condition, const pthread_condattr_t* attributes) noexcept;
int pthread_cond_destroy(_sync* condition) noexcept;
int pthread_cond_wait(_sync* condition, _sync* mutex) noexcept;
/// `deadline`: on the clock of the attributes, CLOCK_REALTIME by default.
int pthread_cond_timedwait(_sync* condition, _sync* mutex, const timespec* deadline) noexcept;
int pthread_cond_signal(_sync* condition) noexcept;
int pthread_cond_broadcast(_sync* condition) noexcept;

/// Names the thread with the id `tid`, 0 for the caller; null takes the name away. E2BIG above 100 bytes, ESRCH for no
/// such thread, or what opening its entry in /proc says; of a longer name than 15 bytes Linux keeps the first 15.
int pthread_setname_np(int tid, const char* name) noexcept;
#pragma GCC visibility pop

inline int pthread_mutex_lock(_sync* mutex) noexcept {
    return __nto_take(mutex) ? 0 : SyncMutexLock_r(mutex);
}

inline int pthread_mutex_trylock(_sync* mutex) noexcept {
    return __nto_take(mutex) ? 0 : __nto_mutex_trylock(mutex);
}

inline int pthread_mutex_unlock(_sync* mutex) noexcept {
    return __nto_give(mutex) ? 0 : SyncMutexUnlock_r(mutex);
}

}  // extern "C++"

#endif

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/// `value`: PTHREAD_RECURSIVE_DISABLE or PTHREAD_RECURSIVE_ENABLE, else EINVAL.
int pthread_mutexattr_setrecursive(pthread_mutexattr_t* attributes, int value);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
