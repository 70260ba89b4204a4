#include "Mutex.h"

#include "Ending.h"
#include "Look.h"
#include "Spin.h"
#include "ThreadState.h"

#include <errno.h>
#include <sched.h>
#include <sys/neutrino.h>

namespace host {
namespace {

// Owner word: thread ids have at most 30 bits.
constexpr unsigned kWaiters = 0x80000000;
constexpr unsigned kNested = 0x40000000;
constexpr unsigned kId = kNested - 1;

// Count word. Only the holder changes it, and only the depth; others read the attributes.
constexpr unsigned kShared = __NTO_SYNC_SHARED;
constexpr unsigned kRecursive = 0x40000000;
constexpr unsigned kErrorChecking = 0x20000000;
constexpr unsigned kDepth = 0x00FFFFFF;

unsigned loadCount(const _sync* mutex) {
    return __atomic_load_n(&mutex->__count, __ATOMIC_RELAXED);
}

void storeCount(_sync* mutex, unsigned count) {
    __atomic_store_n(&mutex->__count, count, __ATOMIC_RELAXED);
}

unsigned loadOwner(const _sync* mutex) {
    return __atomic_load_n(&mutex->__owner, __ATOMIC_RELAXED);
}

/// Replaces the owner word `expected`; else `expected` becomes what it is.
bool changeOwner(_sync* mutex, unsigned& expected, unsigned desired) {
    return __atomic_compare_exchange_n(&mutex->__owner, &expected, desired, /*weak*/ false, __ATOMIC_ACQUIRE,
                                       __ATOMIC_RELAXED);
}

Sharing sharingOf(unsigned count) {
    return (count & kShared) != 0 ? Sharing::SHARED : Sharing::PRIVATE;
}

/// 0 when the caller now holds the mutex; EBUSY when it would have to wait, EDEADLK when for itself and the mutex
/// checks for that, EAGAIN when it holds a recursive one too often.
int take(_sync* mutex, unsigned self) {
    unsigned owner = 0;
    if (changeOwner(mutex, owner, self))
        return 0;
    if ((owner & kId) != self)
        return EBUSY;
    const unsigned count = loadCount(mutex);
    if ((count & kRecursive) == 0)
        return (count & kErrorChecking) != 0 ? EDEADLK : EBUSY;
    if ((count & kDepth) == kDepth)
        return EAGAIN;
    // In this order, and by the flag that was seen: a handler that interrupts here may lock and unlock once more.
    storeCount(mutex, count + 1);
    if ((owner & kNested) == 0)
        __atomic_fetch_or(&mutex->__owner, kNested, __ATOMIC_RELAXED);
    return 0;
}

/// How often a held mutex is looked at before the thread sleeps: a microsecond or two, which short critical sections
/// end within and which costs less than sleeping and waking. With one processor the holder does not run meanwhile.
unsigned pollCount() {
    static unsigned count = 0;  // 0: not known yet; two threads may find it out at once and agree
    unsigned known = __atomic_load_n(&count, __ATOMIC_RELAXED);
    if (known == 0) {
        const ErrnoKeeper keeper;
        cpu_set_t processors;
        const bool single =
            sched_getaffinity(0, sizeof(processors), &processors) == 0 && CPU_COUNT(&processors) == 1;
        known = single ? 1 : 100;
        __atomic_store_n(&count, known, __ATOMIC_RELAXED);
    }
    return known;
}

/// Takes the mutex when it becomes free soon; else `owner` is what its word was last, not 0.
bool pollAndTake(_sync* mutex, unsigned mine, unsigned& owner) {
    for (unsigned polls = pollCount();;) {
        owner = loadOwner(mutex);
        if (owner == 0 && changeOwner(mutex, owner, mine))
            return true;
        if (--polls == 0)
            return false;
        pauseProcessor();
    }
}

void wakeOne(_sync* mutex, Sharing sharing) {
    futexWake(&mutex->__owner, 1, sharing);
}

/// 0 or ETIMEDOUT.
int wait(_sync* mutex, unsigned self, Deadline deadline) {
    const Sharing sharing = sharingOf(loadCount(mutex));
    unsigned mine = self;
    for (;;) {
        unsigned owner;
        if (pollAndTake(mutex, mine, owner))
            return 0;
        if ((owner & kWaiters) == 0 && !changeOwner(mutex, owner, owner | kWaiters))
            continue;
        const Deadline wakeUp = nextLook(deadline, sharing);
        if (futexWait(&mutex->__owner, owner | kWaiters, sharing, wakeUp) == ETIMEDOUT && wakeUp.ns == deadline.ns)
            return ETIMEDOUT;
        // Others may still sleep. Whoever slept itself takes the mutex with the flag, and its unlock wakes the next.
        mine = self | kWaiters;
    }
}

/// For a waiter that ends: it may have been woken to take the mutex.
void wakeNext(void* mutex) {
    _sync* const left = static_cast<_sync*>(mutex);
    wakeOne(left, sharingOf(loadCount(left)));
}

/// 0 or ETIMEDOUT.
int waitAndTake(_sync* mutex, unsigned self, Deadline deadline) {
    if (deadline.isImmediate())
        return ETIMEDOUT;
    Unfinished waiting(wakeNext, mutex);
    return waiting.during([&] { return wait(mutex, self, deadline); });
}

int lock(_sync* mutex, Deadline deadline) {
    const unsigned self = threadId();
    const int result = take(mutex, self);
    return result == EBUSY ? waitAndTake(mutex, self, deadline) : result;
}

int unlock(_sync* mutex) {
    const unsigned owner = loadOwner(mutex);
    if ((owner & kId) != threadId())
        return EPERM;
    const unsigned count = loadCount(mutex);
    if ((owner & kNested) != 0) {
        storeCount(mutex, count - 1);
        if ((count & kDepth) == 1)
            __atomic_fetch_and(&mutex->__owner, ~kNested, __ATOMIC_RELAXED);
        return 0;
    }
    const EndsLater untilWoken;
    // From here on the mutex may be gone: another thread may lock it, unlock it and free its memory.
    if ((__atomic_exchange_n(&mutex->__owner, 0u, __ATOMIC_RELEASE) & kWaiters) != 0)
        wakeOne(mutex, sharingOf(count));
    return 0;
}

/// Finds the attribute bits of a new mutex; ENOTSUP for attributes that the host cannot honour.
int attributesOf(const pthread_mutexattr_t* attributes, unsigned& count) {
    count = 0;
    if (attributes == nullptr)
        return 0;
    int type = 0, sharing = 0, robust = 0, protocol = 0;
    if (pthread_mutexattr_gettype(attributes, &type) != 0 ||
        pthread_mutexattr_getpshared(attributes, &sharing) != 0 ||
        pthread_mutexattr_getrobust(attributes, &robust) != 0 ||
        pthread_mutexattr_getprotocol(attributes, &protocol) != 0)
        return EINVAL;
    if (robust != PTHREAD_MUTEX_STALLED || protocol == PTHREAD_PRIO_PROTECT)
        return ENOTSUP;
    count = (sharing == PTHREAD_PROCESS_SHARED ? kShared : 0) | (type == PTHREAD_MUTEX_RECURSIVE ? kRecursive : 0) |
            (type == PTHREAD_MUTEX_ERRORCHECK ? kErrorChecking : 0);
    return 0;
}

}  // namespace

bool isOwn(const _sync* mutex) {
    return (loadOwner(mutex) & kId) == threadId();
}

bool makeUnlockLong(_sync* mutex) {
    if (!isOwn(mutex))
        return false;
    __atomic_fetch_or(&mutex->__owner, kWaiters, __ATOMIC_RELAXED);
    return true;
}

}  // namespace host

using namespace host;

int SyncMutexLock_r(_sync* mutex) {
    return lock(mutex, takeTimeout(_NTO_TIMEOUT_MUTEX));
}

int SyncMutexUnlock_r(_sync* mutex) {
    dropTimeout();
    return unlock(mutex);
}

int pthread_mutex_init(_sync* mutex, const pthread_mutexattr_t* attributes) noexcept {
    dropTimeout();
    unsigned count;
    const int result = attributesOf(attributes, count);
    if (result != 0)
        return result;
    storeCount(mutex, count);
    __atomic_store_n(&mutex->__owner, 0u, __ATOMIC_RELAXED);
    return 0;
}

int pthread_mutex_destroy(_sync* mutex) noexcept {
    dropTimeout();
    if (loadOwner(mutex) != 0)
        return EBUSY;
    storeCount(mutex, 0);
    return 0;
}

int pthread_mutex_timedlock_monotonic(_sync* mutex, const timespec* deadline) noexcept {
    dropTimeout();
    const unsigned self = threadId();
    const int result = take(mutex, self);
    if (result != EBUSY)
        return result;
    return hasValidNanoseconds(*deadline) ? waitAndTake(mutex, self, Deadline::at(*deadline)) : EINVAL;
}

int __nto_mutex_trylock(_sync* mutex) noexcept {
    dropTimeout();
    const int result = take(mutex, threadId());
    return result == EDEADLK ? EBUSY : result;
}

int pthread_mutexattr_setrecursive(pthread_mutexattr_t* attributes, int value) {
    switch (value) {
    case PTHREAD_RECURSIVE_DISABLE:
        return pthread_mutexattr_settype(attributes, PTHREAD_MUTEX_NORMAL);
    case PTHREAD_RECURSIVE_ENABLE:
        return pthread_mutexattr_settype(attributes, PTHREAD_MUTEX_RECURSIVE);
    }
    return EINVAL;
}
