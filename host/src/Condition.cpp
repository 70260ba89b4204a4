#include <pthread.h>

#include "Look.h"
#include "ThreadState.h"

#include <errno.h>
#include <sys/neutrino.h>

// A waiter remembers the number of the last signal while it still holds the mutex, and sleeps only while that is
// the last one: no signal that it could know of by what the mutex guards is lost. It counts itself in before it
// gives the mutex up, and out, as the last thing that it does to the condition, before it takes the mutex again.

namespace host {
namespace {

// The words have other meanings here than in a mutex.
unsigned* signalsOf(_sync* condition) {
    return &condition->__owner;
}

constexpr unsigned kShared = __NTO_SYNC_SHARED;
constexpr unsigned kMonotonic = 0x40000000;
constexpr unsigned kWaiters = 0x0FFFFFFF;  // how many threads are in a wait

unsigned loadAttributes(const _sync* condition) {
    return __atomic_load_n(&condition->__count, __ATOMIC_SEQ_CST);
}

Sharing sharingOf(unsigned attributes) {
    return (attributes & kShared) != 0 ? Sharing::SHARED : Sharing::PRIVATE;
}

bool isLast(_sync* condition, unsigned signal) {
    return __atomic_load_n(signalsOf(condition), __ATOMIC_ACQUIRE) == signal;
}

/// Sleeps until there is a signal after `last`. 0 or ETIMEDOUT.
int sleepUntilSignal(_sync* condition, Sharing sharing, unsigned last, Deadline deadline) {
    for (;;) {
        const Deadline wakeUp = nextLook(deadline, sharing);
        switch (futexWait(signalsOf(condition), last, sharing, wakeUp)) {
        case EINTR:
            continue;  // a caught signal; whether the condition has one, too, the next sleep finds out
        case ETIMEDOUT:
            // A signal that came with the expiry counts. A look ends the wait as well: the caller sees for itself.
            return wakeUp.ns == deadline.ns && isLast(condition, last) ? ETIMEDOUT : 0;
        default:
            return 0;
        }
    }
}

int wait(_sync* condition, _sync* mutex, Deadline deadline) {
    const unsigned last = __atomic_load_n(signalsOf(condition), __ATOMIC_ACQUIRE);
    const unsigned attributes = __atomic_fetch_add(&condition->__count, 1u, __ATOMIC_SEQ_CST);
    const int refused = pthread_mutex_unlock(mutex);
    const int result = refused != 0 ? refused : sleepUntilSignal(condition, sharingOf(attributes), last, deadline);
    __atomic_fetch_sub(&condition->__count, 1u, __ATOMIC_RELEASE);
    // The time-out was for the condition. Only one that a signal handler armed meanwhile can refuse the mutex.
    while (refused == 0 && pthread_mutex_lock(mutex) == ETIMEDOUT) {
    }
    return result;
}

int signal(_sync* condition, int waiters) {
    dropTimeout();
    __atomic_fetch_add(signalsOf(condition), 1u, __ATOMIC_SEQ_CST);
    const unsigned attributes = loadAttributes(condition);
    if ((attributes & kWaiters) != 0)
        futexWake(signalsOf(condition), waiters, sharingOf(attributes));
    return 0;
}

/// True when all who wait have left. Those who were woken do so soon; the others are not to be waited for.
bool isLeft(const _sync* condition) {
    constexpr uint64_t kPatienceNs = kNsPerSecond;
    const uint64_t end = nowNs(CLOCK_MONOTONIC) + kPatienceNs;
    while ((__atomic_load_n(&condition->__count, __ATOMIC_ACQUIRE) & kWaiters) != 0) {
        if (nowNs(CLOCK_MONOTONIC) >= end)
            return false;
        const timespec moment = {0, 20000};
        clock_nanosleep(CLOCK_MONOTONIC, 0, &moment, nullptr);
    }
    return true;
}

}  // namespace
}  // namespace host

using namespace host;

int pthread_cond_init(_sync* condition, const pthread_condattr_t* attributes) noexcept {
    dropTimeout();
    int sharing = PTHREAD_PROCESS_PRIVATE;
    clockid_t clock = CLOCK_REALTIME;
    if (attributes != nullptr && (pthread_condattr_getpshared(attributes, &sharing) != 0 ||
                                  pthread_condattr_getclock(attributes, &clock) != 0))
        return EINVAL;
    const unsigned words =
        (sharing == PTHREAD_PROCESS_SHARED ? kShared : 0) | (clock == CLOCK_MONOTONIC ? kMonotonic : 0);
    __atomic_store_n(&condition->__count, words, __ATOMIC_RELAXED);
    __atomic_store_n(signalsOf(condition), 0u, __ATOMIC_RELAXED);
    return 0;
}

int pthread_cond_destroy(_sync* condition) noexcept {
    dropTimeout();
    if ((loadAttributes(condition) & kWaiters) != 0 && !isLeft(condition))
        return EBUSY;
    __atomic_store_n(&condition->__count, 0u, __ATOMIC_RELAXED);
    return 0;
}

int pthread_cond_wait(_sync* condition, _sync* mutex) noexcept {
    return wait(condition, mutex, takeTimeout(_NTO_TIMEOUT_CONDVAR));
}

int pthread_cond_timedwait(_sync* condition, _sync* mutex, const timespec* deadline) noexcept {
    const Deadline armed = takeTimeout(_NTO_TIMEOUT_CONDVAR);
    if (!hasValidNanoseconds(*deadline))
        return EINVAL;
    const bool isMonotonic = (loadAttributes(condition) & kMonotonic) != 0;
    const Deadline own = monotonic(isMonotonic ? CLOCK_MONOTONIC : CLOCK_REALTIME, Deadline::at(*deadline));
    return wait(condition, mutex, own.ns < armed.ns ? own : armed);
}

int pthread_cond_signal(_sync* condition) noexcept {
    return signal(condition, 1);
}

int pthread_cond_broadcast(_sync* condition) noexcept {
    return signal(condition, INT_MAX);
}
