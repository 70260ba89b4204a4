#include <pthread.h>

#include "Look.h"
#include "ThreadState.h"

#include <errno.h>
#include <sys/neutrino.h>

// A waiter remembers the number of the last signal while it still holds the mutex, and sleeps only while that is
// the last one: no signal that it could know of by what the mutex guards is lost. Who was woken only takes the mutex
// again: the condition may be gone by then.

namespace host {
namespace {

// The words have other meanings here than in a mutex.
unsigned* signalsOf(_sync* condition) {
    return &condition->__owner;
}

constexpr unsigned kShared = __NTO_SYNC_SHARED;
constexpr unsigned kMonotonic = 0x40000000;
constexpr unsigned kSleepers = 0x20000000;  // somebody may sleep
constexpr unsigned kIdle = 0x10000000;      // the last signal woke nobody

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
int sleepUntilSignal(_sync* condition, unsigned attributes, unsigned last, Deadline deadline) {
    // Set after the signals were read: who takes the flag away counts a signal between that and waking all.
    const unsigned flags = loadAttributes(condition);
    if ((flags & kSleepers) == 0)
        __atomic_fetch_or(&condition->__count, kSleepers, __ATOMIC_SEQ_CST);
    if ((flags & kIdle) != 0)
        __atomic_fetch_and(&condition->__count, ~kIdle, __ATOMIC_RELAXED);
    const Sharing sharing = sharingOf(attributes);
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
    const unsigned attributes = loadAttributes(condition);
    const unsigned last = __atomic_load_n(signalsOf(condition), __ATOMIC_ACQUIRE);
    if (const int result = pthread_mutex_unlock(mutex); result != 0)
        return result;
    int result = 0;
    if (deadline.isImmediate())
        result = isLast(condition, last) ? ETIMEDOUT : 0;
    else
        result = sleepUntilSignal(condition, attributes, last, deadline);
    // The time-out was for the condition. Only one that a signal handler armed meanwhile can end this wait.
    while (pthread_mutex_lock(mutex) == ETIMEDOUT) {
    }
    return result;
}

void countSignal(_sync* condition) {
    __atomic_fetch_add(signalsOf(condition), 1u, __ATOMIC_SEQ_CST);
}

/// Takes the flag away, so that the next signals need not ask the kernel. Who has set it since, and sleeps, is woken.
void forgetSleepers(_sync* condition, Sharing sharing) {
    __atomic_fetch_and(&condition->__count, ~(kSleepers | kIdle), __ATOMIC_SEQ_CST);
    countSignal(condition);
    futexWake(signalsOf(condition), INT_MAX, sharing);
}

int signal(_sync* condition, int waiters) {
    dropTimeout();
    countSignal(condition);
    const unsigned attributes = loadAttributes(condition);
    if ((attributes & kSleepers) == 0 || futexWake(signalsOf(condition), waiters, sharingOf(attributes)) != 0)
        return 0;
    // Once may be a waiter on its way to sleep. Twice is a condition that nobody waits for.
    if ((attributes & kIdle) == 0)
        __atomic_fetch_or(&condition->__count, kIdle, __ATOMIC_RELAXED);
    else
        forgetSleepers(condition, sharingOf(attributes));
    return 0;
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
