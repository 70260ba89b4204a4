// Concerns: clocks, absolute and relative, immediate, unlimited; covered and not; one call only, of whatever kind;
// threads, children and handlers; refusals.
#include "HeldElsewhere.h"

#include "support/ChildProcess.h"

#include <backtrace.h>
#include <cerrno>
#include <csignal>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/neutrino.h>
#include <sys/slog.h>
#include <sys/trace.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

void armMutex(uint64_t relativeNs) {
    ASSERT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, _NTO_TIMEOUT_MUTEX, nullptr, &relativeNs, nullptr));
}

void armImmediate(int states = _NTO_TIMEOUT_MUTEX) {
    ASSERT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, states, nullptr, nullptr, nullptr));
}

/// True when a lock of a mutex held elsewhere waits for its release: no time-out is armed for it.
bool lockWaits() {
    _sync mutex = {};
    HeldElsewhere held(mutex, 20ms);
    const int result = pthread_mutex_lock(&mutex);
    if (result == 0)
        pthread_mutex_unlock(&mutex);
    return result == 0 && held.releasedAtNs != 0;
}

TEST(TimerTimeout, EndsAWaitForAMutexAndIsNotEarly) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    for (const uint64_t wait : {kMs, 7 * kMs, 20 * kMs + 1}) {
        const uint64_t begin = monotonicNs();
        armMutex(wait);
        EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
        EXPECT_GE(monotonicNs() - begin, wait);
    }
}

TEST(TimerTimeout, EndsTheKernelsHalfOfALockToo) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    armMutex(kMs);
    EXPECT_EQ(ETIMEDOUT, SyncMutexLock_r(&mutex));
}

TEST(TimerTimeout, CountsFromTheClocksZeroWhenAbsolute) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    const uint64_t deadline = monotonicNs() + 10 * kMs;
    ASSERT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, _NTO_TIMEOUT_MUTEX | TIMER_ABSTIME, nullptr, &deadline, nullptr));
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
    EXPECT_GE(monotonicNs(), deadline);
}

TEST(TimerTimeout, CountsRelativeTimesFromTheMomentOfArming) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    armMutex(30 * kMs);
    const uint64_t armedAt = monotonicNs();
    std::this_thread::sleep_for(40ms);
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
    EXPECT_GE(monotonicNs() - armedAt, 40 * kMs);
}

TEST(TimerTimeout, KnowsTheRealTimeClock) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    const uint64_t begin = monotonicNs();
    const uint64_t deadline = host::nowNs(CLOCK_REALTIME) + 10 * kMs;
    ASSERT_EQ(0, TimerTimeout(CLOCK_REALTIME, _NTO_TIMEOUT_MUTEX | TIMER_ABSTIME, nullptr, &deadline, nullptr));
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
    EXPECT_GE(monotonicNs() - begin, 9 * kMs);  // two clocks were read
    const uint64_t wait = 5 * kMs;
    const uint64_t again = monotonicNs();
    ASSERT_EQ(0, TimerTimeout(CLOCK_REALTIME, _NTO_TIMEOUT_MUTEX, nullptr, &wait, nullptr));
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
    EXPECT_GE(monotonicNs() - again, wait);
}

TEST(TimerTimeout, WithoutATimeMeansDoNotBlock) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    armImmediate();
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
}

TEST(TimerTimeout, OfZeroOrInThePastMeansDoNotBlock) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    armMutex(0);
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
    for (const clockid_t clock : {CLOCK_MONOTONIC, CLOCK_REALTIME})
        for (const uint64_t past : {uint64_t{0}, uint64_t{1}, host::nowNs(clock)}) {
            ASSERT_EQ(0, TimerTimeout(clock, _NTO_TIMEOUT_MUTEX | TIMER_ABSTIME, nullptr, &past, nullptr));
            EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex)) << clock << ' ' << past;
        }
}

TEST(TimerTimeout, LetsAFreeMutexBeTakenWhateverTheTimeSays) {
    _sync mutex = {};
    armImmediate();
    EXPECT_EQ(0, pthread_mutex_lock(&mutex));
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
}

TEST(TimerTimeout, AboveTheSignedRangeIsWithoutLimit) {
    for (const uint64_t time : {UINT64_MAX, uint64_t{INT64_MAX} + 1})
        for (const int absolute : {0, TIMER_ABSTIME}) {
            ASSERT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, _NTO_TIMEOUT_MUTEX | absolute, nullptr, &time, nullptr));
            EXPECT_TRUE(lockWaits()) << time;
        }
}

TEST(TimerTimeout, OfCenturiesIsNoTimeInThePast) {
    const uint64_t centuries = INT64_MAX;
    armMutex(centuries);
    EXPECT_TRUE(lockWaits());
    ASSERT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, _NTO_TIMEOUT_MUTEX | TIMER_ABSTIME, nullptr, &centuries, nullptr));
    EXPECT_TRUE(lockWaits());
}

TEST(TimerTimeout, WithoutStatesCancels) {
    const uint64_t zero = 0;
    armImmediate();
    EXPECT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, 0, nullptr, &zero, nullptr));
    EXPECT_TRUE(lockWaits());
    armImmediate();
    EXPECT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, TIMER_ABSTIME, nullptr, nullptr, nullptr));
    EXPECT_TRUE(lockWaits());
}

TEST(TimerTimeout, ReplacesTheOneBefore) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    armMutex(3600 * host::kNsPerSecond);
    armMutex(kMs);
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
}

TEST(TimerTimeout, ForOtherStatesDoesNotConcernAMutex) {
    for (const int state : {_NTO_TIMEOUT_SEND, _NTO_TIMEOUT_RECEIVE, _NTO_TIMEOUT_REPLY, _NTO_TIMEOUT_SIGSUSPEND,
                            _NTO_TIMEOUT_SIGWAITINFO, _NTO_TIMEOUT_NANOSLEEP, _NTO_TIMEOUT_CONDVAR,
                            _NTO_TIMEOUT_JOIN, _NTO_TIMEOUT_INTR, _NTO_TIMEOUT_SEM}) {
        armImmediate(state);
        EXPECT_TRUE(lockWaits()) << state;
    }
}

TEST(TimerTimeout, MayCoverSeveralStates) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    armImmediate(_NTO_TIMEOUT_SEM | _NTO_TIMEOUT_MUTEX | _NTO_TIMEOUT_CONDVAR);
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
}

TEST(TimerTimeout, StatesHaveTheNumbersOfThePlatform) {
    EXPECT_EQ(0x10, _NTO_TIMEOUT_SEND);
    EXPECT_EQ(0x20, _NTO_TIMEOUT_RECEIVE);
    EXPECT_EQ(0x40, _NTO_TIMEOUT_REPLY);
    EXPECT_EQ(0x1000, _NTO_TIMEOUT_NANOSLEEP);
    EXPECT_EQ(0x2000, _NTO_TIMEOUT_MUTEX);
    EXPECT_EQ(0x4000, _NTO_TIMEOUT_CONDVAR);
    EXPECT_EQ(0x8000, _NTO_TIMEOUT_JOIN);
    EXPECT_EQ(0x20000, _NTO_TIMEOUT_SEM);
}

TEST(TimerTimeout, IsGoneAfterTheCallThatItEnded) {
    _sync mutex = {};
    {
        HeldElsewhere held(mutex);
        armImmediate();
        EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
    }
    EXPECT_TRUE(lockWaits());
}

// Every call, covered or not, blocking or not, consumes the time-out.

struct Consumer {
    const char* name;
    std::function<void()> call;
};

_sync freeMutex;
_sync ownMutex;

class TimerTimeoutConsumer : public testing::TestWithParam<Consumer> {};

TEST_P(TimerTimeoutConsumer, LeavesNothingForTheNextCall) {
    pthread_mutex_lock(&ownMutex);
    armImmediate();
    GetParam().call();
    EXPECT_TRUE(lockWaits());
    pthread_mutex_unlock(&ownMutex);
}

const Consumer kConsumers[] = {
    {"lock",
     [] {
         EXPECT_EQ(0, pthread_mutex_lock(&freeMutex));
         freeMutex = {};
     }},
    {"trylock",
     [] {
         EXPECT_EQ(0, pthread_mutex_trylock(&freeMutex));
         freeMutex = {};
     }},
    {"trylockOfAHeldOne", [] { EXPECT_EQ(EBUSY, pthread_mutex_trylock(&ownMutex)); }},
    {"timedlock",
     [] {
         const timespec past = {0, 0};
         EXPECT_EQ(0, pthread_mutex_timedlock_monotonic(&freeMutex, &past));
         freeMutex = {};
     }},
    {"timedlockThatExpires",
     [] {
         const timespec past = {0, 0};
         EXPECT_EQ(ETIMEDOUT, pthread_mutex_timedlock_monotonic(&ownMutex, &past));
     }},
    {"unlock", [] { EXPECT_EQ(0, pthread_mutex_unlock(&ownMutex)); }},
    {"unlockThatIsRefused", [] { EXPECT_EQ(EPERM, pthread_mutex_unlock(&freeMutex)); }},
    {"init", [] { EXPECT_EQ(0, pthread_mutex_init(&freeMutex, nullptr)); }},
    {"destroy", [] { EXPECT_EQ(0, pthread_mutex_destroy(&freeMutex)); }},
    {"slogf", [] { slogf(1, _SLOG_INFO, "text"); }},
    {"slogi", [] { slogi(1, _SLOG_INFO, 0); }},
    {"slogb", [] { slogb(1, _SLOG_INFO, nullptr, -1); }},
    {"TraceEvent", [] { TraceEvent(_NTO_TRACE_INSERTSUSEREVENT, 1, 2, 3); }},
    {"bt_init_accessor",
     [] {
         bt_accessor_t accessor;
         bt_init_accessor(&accessor, BT_SELF);
     }},
    {"bt_get_backtrace",
     [] {
         bt_addr_t address;
         bt_get_backtrace(&bt_acc_self, &address, 1);
     }},
    {"bt_load_memmap",
     [] {
         bt_memmap_t map;
         bt_load_memmap(&bt_acc_self, &map);
     }},
    {"TimerTimeoutThatIsRefused",
     [] { EXPECT_EQ(-1, TimerTimeout(12345, _NTO_TIMEOUT_MUTEX, nullptr, nullptr, nullptr)); }},
};

INSTANTIATE_TEST_SUITE_P(, TimerTimeoutConsumer, testing::ValuesIn(kConsumers),
                         [](const auto& consumer) { return std::string(consumer.param.name); });

TEST(TimerTimeout, IsReplacedByTheOwnTimeOfATimedLock) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    armImmediate();
    const uint64_t deadline = monotonicNs() + 10 * kMs;
    const timespec limit = timeAt(deadline);
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_timedlock_monotonic(&mutex, &limit));
    EXPECT_GE(monotonicNs(), deadline);
}

TEST(TimerTimeout, IsTheArmingThreadsAlone) {
    armImmediate();
    EXPECT_TRUE(std::async(std::launch::async, [] { return lockWaits(); }).get());
    _sync mutex = {0, 1};  // held by nobody here: pid 1
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
}

TEST(TimerTimeout, IsNotInheritedByAForkedChild) {
    armImmediate();
    const auto result = support::runInChild([] { EXPECT_TRUE(lockWaits()); });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(TimerTimeout, StaysArmedInTheParentOfAFork) {
    _sync mutex = {0, 1};
    armImmediate();
    if (const pid_t child = fork(); child == 0)
        _exit(0);
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
}

TEST(TimerTimeout, IsConsumedByACallInASignalHandler) {
    struct sigaction action = {};
    action.sa_handler = [](int) { slogf(1, _SLOG_INFO, "from a handler"); };
    sigaction(SIGUSR1, &action, nullptr);
    armImmediate();
    raise(SIGUSR1);
    EXPECT_TRUE(lockWaits());
}

TEST(TimerTimeout, TakesTheEventThatUnblocks) {
    struct sigevent event;
    SIGEV_UNBLOCK_INIT(&event);
    _sync mutex = {0, 1};
    EXPECT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, _NTO_TIMEOUT_MUTEX, &event, nullptr, nullptr));
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
}

TEST(TimerTimeout, RefusesOtherEventsAndSaysSo) {
    struct sigevent event = {};
    event.sigev_notify = SIGEV_SIGNAL;
    testing::internal::CaptureStderr();
    EXPECT_EQ(-1, TimerTimeout(CLOCK_MONOTONIC, _NTO_TIMEOUT_MUTEX, &event, nullptr, nullptr));
    EXPECT_EQ(ENOTSUP, errno);
    EXPECT_EQ("neutrino host: TimerTimeout with an event other than SIGEV_UNBLOCK is not supported on Linux\n",
              testing::internal::GetCapturedStderr());
    EXPECT_TRUE(lockWaits());
}

TEST(TimerTimeout, RefusesOtherClocks) {
    errno = 0;
    EXPECT_EQ(-1, TimerTimeout(CLOCK_PROCESS_CPUTIME_ID, _NTO_TIMEOUT_MUTEX, nullptr, nullptr, nullptr));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_TRUE(lockWaits());
}

TEST(TimerTimeout, FormWithoutErrnoReturnsTheNumber) {
    errno = 4711;
    EXPECT_EQ(EINVAL, TimerTimeout_r(CLOCK_PROCESS_CPUTIME_ID, 0, nullptr, nullptr, nullptr));
    EXPECT_EQ(EOK, TimerTimeout_r(CLOCK_MONOTONIC, _NTO_TIMEOUT_MUTEX, nullptr, nullptr, nullptr));
    EXPECT_EQ(4711, errno);
    _sync mutex = {0, 1};
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
}

}  // namespace
