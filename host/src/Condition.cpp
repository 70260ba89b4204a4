#include <pthread.h>

#include "Ending.h"
#include "Look.h"
#include "Spin.h"
#include "ThreadState.h"

#include <errno.h>
#include <sys/neutrino.h>

// A waiter remembers the number of the last signal while it still holds the mutex, and sleeps only while that is
// the last one: no signal that it could know of by what the mutex guards is lost. It counts itself in before it
// gives the mutex up, and out, as the last thing that it does to the condition, before it takes the mutex again.
//
// A waiter whose signaller seems to run on another processor looks for the signal for a moment before it sleeps. Only
// the first one does: one signal is not to call many. While it is the only one, and of the signaller's own process, a
// signal costs no system call.

namespace host {
namespace {

// The words have other meanings here than in a mutex.
unsigned* signalsOf(_sync* condition) {
    return &condition->__owner;
}

constexpr unsigned kShared = __NTO_SYNC_SHARED;
constexpr unsigned kMonotonic = 0x40000000;
constexpr unsigned kLooks = 0x20000000;       // a waiter that does not sleep, and needs no wake-up
constexpr unsigned kLastUser = 0x1F000000;    // the processor of who waited or signalled last,
constexpr unsigned kUserBefore = 0x00F80000;  // and the last other one before; 0 is none
constexpr unsigned kWaiters = 0x0007FFFF;     // how many threads are in a wait

constexpr unsigned unitOf(unsigned field) {
    return field & -field;
}

__thread Spinner spinner __attribute__((tls_model("initial-exec")));

unsigned loadState(const _sync* condition) {
    return __atomic_load_n(&condition->__count, __ATOMIC_SEQ_CST);
}

bool changeState(_sync* condition, unsigned& expected, unsigned desired) {
    return __atomic_compare_exchange_n(&condition->__count, &expected, desired, /*weak*/ false, __ATOMIC_SEQ_CST,
                                       __ATOMIC_SEQ_CST);
}

Sharing sharingOf(unsigned state) {
    return (state & kShared) != 0 ? Sharing::SHARED : Sharing::PRIVATE;
}

/// The calling thread's processor. From the 32nd on, they share a number with others, and nobody looks for those.
unsigned here() {
    return thisProcessor() % 31 + 1;
}

unsigned lastUser(unsigned state) {
    return (state & kLastUser) / unitOf(kLastUser);
}

unsigned otherUser(unsigned state, unsigned user) {
    return lastUser(state) != user ? lastUser(state) : (state & kUserBefore) / unitOf(kUserBefore);
}

unsigned usedBy(unsigned user, unsigned state) {
    if (lastUser(state) == user)
        return state;
    return (state & ~(kLastUser | kUserBefore)) | user * unitOf(kLastUser) | lastUser(state) * unitOf(kUserBefore);
}

bool isLast(_sync* condition, unsigned signal) {
    return __atomic_load_n(signalsOf(condition), __ATOMIC_ACQUIRE) == signal;
}

struct Waiter {
    _sync* condition;  // may be gone once the waiter is counted out
    Sharing sharing;
    unsigned mine;  // in the count word: 1, and kLooks while it looks for the signal; 0 when it is counted out
};

void countOut(Waiter& self) {
    const unsigned mine = self.mine;
    self.mine = 0;
    __atomic_fetch_sub(&self.condition->__count, mine, __ATOMIC_RELEASE);
}

/// For a waiter that ends, on its way back to the mutex, too: another one gets a signal that may have been its own.
void leaveToOthers(void* waiter) {
    Waiter& self = *static_cast<Waiter*>(waiter);
    if (self.mine != 0)
        countOut(self);
    futexWake(signalsOf(self.condition), 1, self.sharing);
}

/// Sleeps until there is a signal after `last`. 0 or ETIMEDOUT.
int sleepUntilSignal(const Waiter& self, unsigned last, Deadline deadline, Unfinished& waiting) {
    unsigned* const signals = signalsOf(self.condition);
    for (;;) {
        const Deadline wakeUp = nextLook(deadline, self.sharing);
        switch (waiting.during([&] { return futexWait(signals, last, self.sharing, wakeUp); })) {
        case EINTR:
            continue;  // a caught signal; whether the condition has one, too, the next sleep finds out
        case ETIMEDOUT:
            // A signal that came with the expiry counts. A look ends the wait as well: the caller sees for itself.
            return wakeUp.ns == deadline.ns && isLast(self.condition, last) ? ETIMEDOUT : 0;
        default:
            return 0;
        }
    }
}

/// Counts the caller in. What it is in the count word: 1, with kLooks if a look for the signal is worth it.
unsigned enter(_sync* condition) {
    const unsigned user = here();
    unsigned state = loadState(condition);
    const bool isWorthALook = (state & kLooks) == 0 && otherUser(state, user) != 0 && spinner.isPromising();
    unsigned mine;
    do
        mine = isWorthALook && (state & kLooks) == 0 ? kLooks + 1 : 1;
    while (!changeState(condition, state, usedBy(user, state) + mine));
    return mine;
}

/// True when the signal after `last` came while the caller looked for it. Who looked in vain is about to sleep, and
/// others look again when the condition has been used elsewhere.
bool looksAndSees(Waiter& self, unsigned last, Deadline deadline, Unfinished& waiting) {
    if ((self.mine & kLooks) == 0)
        return false;
    if (waiting.during([&] { return spinner.look(deadline, [&] { return !isLast(self.condition, last); }); }))
        return true;
    __atomic_fetch_and(&self.condition->__count, ~(kLooks | kUserBefore), __ATOMIC_SEQ_CST);
    self.mine = 1;
    return false;
}

/// The wait itself, without the mutex; `refused` when it could not be given up.
int waitWithout(_sync* mutex, Waiter& self, Deadline deadline, int& refused, Unfinished& waiting) {
    const unsigned last = __atomic_load_n(signalsOf(self.condition), __ATOMIC_ACQUIRE);
    self.mine = enter(self.condition);
    refused = pthread_mutex_unlock(mutex);
    int result = refused;
    if (refused == 0 && !looksAndSees(self, last, deadline, waiting))
        result = sleepUntilSignal(self, last, deadline, waiting);
    countOut(self);
    return result;
}

int wait(_sync* condition, _sync* mutex, Deadline deadline) {
    int refused;
    Waiter self = {condition, sharingOf(loadState(condition)), 0};
    Unfinished waiting(leaveToOthers, &self);
    const int result = waitWithout(mutex, self, deadline, refused, waiting);
    // The time-out was for the condition. Only one that a signal handler armed meanwhile can refuse the mutex.
    while (refused == 0 && waiting.during([&] { return pthread_mutex_lock(mutex); }) == ETIMEDOUT) {
    }
    return result;
}

int signal(_sync* condition, int waiters) {
    dropTimeout();
    __atomic_fetch_add(signalsOf(condition), 1u, __ATOMIC_SEQ_CST);
    unsigned state = loadState(condition);
    if ((state & kWaiters) == 0)
        return 0;
    const unsigned user = here();
    while (lastUser(state) != user && !changeState(condition, state, usedBy(user, state))) {
    }
    // An only waiter that looks sees the signal, at the latest when it goes to sleep. In shared memory one cannot be
    // sure of it: who was killed while it looked is counted for ever.
    if ((state & (kShared | kLooks | kWaiters)) != kLooks + 1)
        futexWake(signalsOf(condition), waiters, sharingOf(state));
    return 0;
}

// Somebody was waited for who does not leave: in a forked child, the threads that it has not got.
bool hasWaitedInVain = false;

/// True when all who wait have left. Those who were woken do so soon; the others are not to be waited for: each that
/// sleeps, and once in a process whoever is neither awake nor asleep.
bool isLeft(_sync* condition) {
    constexpr uint64_t kPatienceNs = kNsPerSecond;
    const uint64_t end = load(hasWaitedInVain) ? 0 : nowNs(CLOCK_MONOTONIC) + kPatienceNs;
    for (;;) {
        const unsigned state = __atomic_load_n(&condition->__count, __ATOMIC_ACQUIRE);
        const unsigned waiters = state & kWaiters;
        if (waiters == 0)
            return true;
        if (futexSleepers(signalsOf(condition), sharingOf(state)) >= waiters)
            return false;
        if (nowNs(CLOCK_MONOTONIC) >= end) {
            __atomic_store_n(&hasWaitedInVain, true, __ATOMIC_RELAXED);
            return false;
        }
        const timespec moment = {0, 20000};
        clock_nanosleep(CLOCK_MONOTONIC, 0, &moment, nullptr);
    }
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
    if ((loadState(condition) & kWaiters) != 0 && !isLeft(condition))
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
    const bool isMonotonic = (loadState(condition) & kMonotonic) != 0;
    const Deadline own = monotonic(isMonotonic ? CLOCK_MONOTONIC : CLOCK_REALTIME, Deadline::at(*deadline));
    return wait(condition, mutex, own.ns < armed.ns ? own : armed);
}

int pthread_cond_signal(_sync* condition) noexcept {
    return signal(condition, 1);
}

int pthread_cond_broadcast(_sync* condition) noexcept {
    return signal(condition, INT_MAX);
}
