// Concerns: both clocks, absolute; no wake-up is lost, no wait returns without the mutex; signals; armed time-outs;
// processes; what may be destroyed when.
#include "HeldElsewhere.h"
#include "MessageTesting.h"
#include "OnProcessor.h"
#include "SignalStorm.h"

#include "support/ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <new>
#include <random>
#include <sys/mman.h>
#include <sys/neutrino.h>
#include <sys/wait.h>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::chrono_literals;

void initialise(_sync& condition, clockid_t clock, int sharing) {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, clock);
    pthread_condattr_setpshared(&attributes, sharing);
    ASSERT_EQ(0, pthread_cond_init(&condition, &attributes));
    pthread_condattr_destroy(&attributes);
}

void armCondition(uint64_t ns, int states = _NTO_TIMEOUT_CONDVAR) {
    ASSERT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, states, nullptr, &ns, nullptr));
}

class Condition : public testing::TestWithParam<std::tuple<clockid_t, int>> {
protected:
    void SetUp() override {
        initialise(mCondition, clock(), std::get<1>(GetParam()));
        pthread_mutex_lock(&mMutex);
    }
    /// EPERM when a wait returned without the mutex.
    void TearDown() override {
        EXPECT_EQ(0, pthread_mutex_unlock(&mMutex));
        EXPECT_EQ(0, pthread_cond_destroy(&mCondition));
    }
    static clockid_t clock() { return std::get<0>(GetParam()); }

    _sync mMutex = {};
    _sync mCondition;
};

TEST_P(Condition, WaitsUntilItsDeadlineAndNotLess) {
    for (const uint64_t wait : {uint64_t{1}, kMs, 20 * kMs + 1}) {
        const uint64_t deadline = host::nowNs(clock()) + wait;
        const timespec until = timeAt(deadline);
        EXPECT_EQ(ETIMEDOUT, pthread_cond_timedwait(&mCondition, &mMutex, &until));
        EXPECT_GE(host::nowNs(clock()), deadline);
    }
}

TEST_P(Condition, ADeadlineInThePastIsOver) {
    for (const timespec past : {timespec{0, 0}, timespec{-5, 0}, timespec{1, 999999999}})
        EXPECT_EQ(ETIMEDOUT, pthread_cond_timedwait(&mCondition, &mMutex, &past));
}

TEST_P(Condition, RefusesBadNanoseconds) {
    for (const long nanoseconds : {-1L, 1000000000L}) {
        const timespec bad = {0, nanoseconds};
        EXPECT_EQ(EINVAL, pthread_cond_timedwait(&mCondition, &mMutex, &bad));
    }
}

TEST_P(Condition, RefusesWhoDoesNotHoldTheMutex) {
    _sync other = {};
    EXPECT_EQ(EPERM, pthread_cond_wait(&mCondition, &other));
    const timespec past = {0, 0};
    EXPECT_EQ(EPERM, pthread_cond_timedwait(&mCondition, &other, &past));
}

TEST_P(Condition, CenturiesAreNoTimeInThePast) {
    const timespec centuries = {std::numeric_limits<time_t>::max(), 0};
    bool isSet = false;
    std::thread signaller([&] {
        pthread_mutex_lock(&mMutex);
        isSet = true;
        pthread_cond_signal(&mCondition);
        pthread_mutex_unlock(&mMutex);
    });
    while (!isSet)
        ASSERT_EQ(0, pthread_cond_timedwait(&mCondition, &mMutex, &centuries));
    pthread_mutex_unlock(&mMutex);
    signaller.join();
    pthread_mutex_lock(&mMutex);
}

// Two threads hand a turn to each other; a single lost wake-up stops both.
TEST_P(Condition, LosesNoWakeUp) {
    constexpr int kTurns = 40000;
    int turn = 0;
    const auto play = [&](int me) {
        pthread_mutex_lock(&mMutex);
        for (int i = 0; i < kTurns; ++i) {
            while (turn % 2 != me)
                ASSERT_EQ(0, pthread_cond_wait(&mCondition, &mMutex));
            ++turn;
            if (i % 2 == 0) {
                pthread_cond_signal(&mCondition);
                pthread_mutex_unlock(&mMutex);
            } else {
                pthread_mutex_unlock(&mMutex);
                pthread_cond_signal(&mCondition);
            }
            pthread_mutex_lock(&mMutex);
        }
        pthread_mutex_unlock(&mMutex);
    };
    std::thread other(play, 1);
    pthread_mutex_unlock(&mMutex);
    play(0);
    other.join();
    pthread_mutex_lock(&mMutex);
    EXPECT_EQ(2 * kTurns, turn);
}

// Between two processors a waiter first looks for the signal, for a moment. Here that comes at all times around the end
// of its look; again, a single lost one stops both.
TEST_P(Condition, LosesNoWakeUpThatComesAsALookEnds) {
    constexpr int kTurns = 4000;
    int turn = 0;
    const auto play = [&](int me) {
        const OnProcessor here(me);
        std::minstd_rand random(static_cast<unsigned>(me) + 1);
        for (int i = 0; i < kTurns; ++i) {
            pthread_mutex_lock(&mMutex);
            while (turn % 2 != me)
                ASSERT_EQ(0, pthread_cond_wait(&mCondition, &mMutex));
            pthread_mutex_unlock(&mMutex);
            const uint64_t pause = i % 100 < 50 ? 0 : random() % 100000;
            for (const uint64_t begin = monotonicNs(); monotonicNs() - begin < pause;) {
            }
            pthread_mutex_lock(&mMutex);
            ++turn;
            pthread_mutex_unlock(&mMutex);
            pthread_cond_signal(&mCondition);
        }
    };
    pthread_mutex_unlock(&mMutex);
    std::thread one(play, 0), other(play, 1);
    one.join();
    other.join();
    pthread_mutex_lock(&mMutex);
    EXPECT_EQ(2 * kTurns, turn);
}

TEST_P(Condition, LooksNoLongerThanToItsDeadline) {
    pthread_mutex_unlock(&mMutex);
    const auto waitOn = [&](int processor, uint64_t wait) {
        std::thread([&] {
            const OnProcessor here(processor);
            pthread_mutex_lock(&mMutex);
            const uint64_t deadline = host::nowNs(clock()) + wait;
            const timespec until = timeAt(deadline);
            EXPECT_EQ(ETIMEDOUT, pthread_cond_timedwait(&mCondition, &mMutex, &until));
            EXPECT_GE(host::nowNs(clock()), deadline);
            pthread_mutex_unlock(&mMutex);
        }).join();
    };
    for (int i = 0; i < 20; ++i)
        waitOn(i % 2, static_cast<uint64_t>(i) * 5000);
    pthread_mutex_lock(&mMutex);
}

INSTANTIATE_TEST_SUITE_P(, Condition,
                         testing::Combine(testing::Values(CLOCK_MONOTONIC, CLOCK_REALTIME),
                                          testing::Values(PTHREAD_PROCESS_PRIVATE, PTHREAD_PROCESS_SHARED)));

TEST(ConditionOfZeros, IsPrivateAndOnTheRealTimeClock) {
    _sync condition = {}, mutex = {};
    pthread_mutex_lock(&mutex);
    const uint64_t deadline = host::nowNs(CLOCK_REALTIME) + 5 * kMs;
    const timespec until = timeAt(deadline);
    EXPECT_EQ(ETIMEDOUT, pthread_cond_timedwait(&condition, &mutex, &until));
    EXPECT_GE(host::nowNs(CLOCK_REALTIME), deadline);
    EXPECT_EQ(0, pthread_cond_init(&condition, nullptr));
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
}

TEST(ConditionOfMany, EverySignalIsForOneWaiterAtLeast) {
    constexpr int kWaiters = 4, kTickets = 20000;
    _sync condition = {}, mutex = {};
    int tickets = 0, taken = 0;
    std::vector<std::thread> waiters;
    for (int i = 0; i < kWaiters; ++i)
        waiters.emplace_back([&] {
            for (int n = 0; n < kTickets / kWaiters; ++n) {
                pthread_mutex_lock(&mutex);
                while (tickets == 0)
                    pthread_cond_wait(&condition, &mutex);
                --tickets;
                ++taken;
                pthread_mutex_unlock(&mutex);
            }
        });
    for (int i = 0; i < kTickets; ++i) {
        pthread_mutex_lock(&mutex);
        ++tickets;
        pthread_mutex_unlock(&mutex);
        if (i % 16 == 0)
            pthread_cond_broadcast(&condition);
        else
            pthread_cond_signal(&condition);
    }
    for (std::thread& waiter : waiters)
        waiter.join();
    EXPECT_EQ(kTickets, taken);
}

TEST(ConditionAndTimeouts, AnArmedOneEndsAWaitWithTheMutexHeld) {
    _sync condition = {}, mutex = {};
    pthread_mutex_lock(&mutex);
    for (const int states : {_NTO_TIMEOUT_CONDVAR, _NTO_TIMEOUT_CONDVAR | _NTO_TIMEOUT_MUTEX}) {
        const uint64_t begin = monotonicNs();
        armCondition(10 * kMs, states);
        EXPECT_EQ(ETIMEDOUT, pthread_cond_wait(&condition, &mutex));
        EXPECT_GE(monotonicNs() - begin, 10 * kMs);
        armCondition(0, states);
        EXPECT_EQ(ETIMEDOUT, pthread_cond_wait(&condition, &mutex));
    }
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
}

TEST(ConditionAndTimeouts, TheEarlierOfTwoEndsATimedWait) {
    _sync condition = {}, mutex = {};
    initialise(condition, CLOCK_MONOTONIC, PTHREAD_PROCESS_PRIVATE);
    pthread_mutex_lock(&mutex);
    const timespec far = timeAt(monotonicNs() + 3600 * host::kNsPerSecond);
    armCondition(5 * kMs);
    EXPECT_EQ(ETIMEDOUT, pthread_cond_timedwait(&condition, &mutex, &far));
    armCondition(3600 * host::kNsPerSecond);
    const timespec near = timeAt(monotonicNs() + 5 * kMs);
    EXPECT_EQ(ETIMEDOUT, pthread_cond_timedwait(&condition, &mutex, &near));
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
}

// The mutex is held by another thread when the time is over: the wait lasts until the mutex is there.
TEST(ConditionAndTimeouts, ATimeoutDoesNotCutTheWayBackToTheMutex) {
    _sync condition = {}, mutex = {};
    pthread_mutex_lock(&mutex);
    std::atomic<bool> isHeld{false}, mayGo{false};
    std::thread holder([&] {
        pthread_mutex_lock(&mutex);
        isHeld = true;
        while (!mayGo)
            std::this_thread::sleep_for(1ms);
        pthread_mutex_unlock(&mutex);
    });
    std::thread releaser([&] {
        while (!isHeld)
            std::this_thread::yield();
        std::this_thread::sleep_for(40ms);
        mayGo = true;
    });
    armCondition(10 * kMs, _NTO_TIMEOUT_CONDVAR | _NTO_TIMEOUT_MUTEX);
    EXPECT_EQ(ETIMEDOUT, pthread_cond_wait(&condition, &mutex));
    EXPECT_TRUE(mayGo || !isHeld);
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
    holder.join();
    releaser.join();
}

TEST(ConditionAndTimeouts, AllCallsConsumeAnArmedOne) {
    _sync condition = {}, mutex = {};
    void (*const kCalls[])(_sync*) = {
        [](_sync* c) { pthread_cond_signal(c); },
        [](_sync* c) { pthread_cond_broadcast(c); },
        [](_sync* c) { pthread_cond_destroy(c); },
        [](_sync* c) { pthread_cond_init(c, nullptr); },
    };
    for (const auto call : kCalls) {
        armCondition(0, _NTO_TIMEOUT_MUTEX);
        call(&condition);
        HeldElsewhere held(mutex, 10ms);
        EXPECT_EQ(0, pthread_mutex_lock(&mutex));
        pthread_mutex_unlock(&mutex);
    }
}

TEST(ConditionAndTimeouts, ARefusedWaitConsumesAnArmedOne) {
    _sync condition = {}, mutex = {}, other = {};
    const timespec noTime = {0, -1};
    const std::function<int()> refusedWaits[] = {
        [&] { return pthread_cond_wait(&condition, &other); },
        [&] { return pthread_cond_timedwait(&condition, &mutex, &noTime); },
    };
    for (const auto& wait : refusedWaits) {
        bool isSet = false;
        pthread_mutex_lock(&mutex);
        armCondition(0);
        EXPECT_NE(0, wait());
        const auto signaller = whenAllSleep([&] {
            pthread_mutex_lock(&mutex);
            isSet = true;
            pthread_cond_signal(&condition);
            pthread_mutex_unlock(&mutex);
        });
        int result = 0;
        while (result == 0 && !isSet)
            result = pthread_cond_wait(&condition, &mutex);
        EXPECT_EQ(0, result);
        pthread_mutex_unlock(&mutex);
    }
}

TEST(ConditionAndSignals, CaughtOnesNeitherEndNorShortenAWait) {
    _sync condition = {}, mutex = {};
    initialise(condition, CLOCK_MONOTONIC, PTHREAD_PROCESS_PRIVATE);
    pthread_mutex_lock(&mutex);
    static std::atomic<int> caught;
    caught = 0;
    const SignalStorm storm([](int) { ++caught; });
    const uint64_t deadline = monotonicNs() + 50 * kMs;
    const timespec until = timeAt(deadline);
    EXPECT_EQ(ETIMEDOUT, pthread_cond_timedwait(&condition, &mutex, &until));
    EXPECT_GE(monotonicNs(), deadline);
    EXPECT_GT(caught, 0);
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
}

TEST(ConditionLifetime, DoesNotEndWhileThreadsWait) {
    _sync condition = {}, mutex = {};
    bool isSet = false;
    std::thread waiter([&] {
        pthread_mutex_lock(&mutex);
        while (!isSet)
            pthread_cond_wait(&condition, &mutex);
        pthread_mutex_unlock(&mutex);
    });
    while (__atomic_load_n(&condition.__count, __ATOMIC_RELAXED) == 0)
        std::this_thread::yield();
    EXPECT_EQ(EBUSY, pthread_cond_destroy(&condition));
    pthread_mutex_lock(&mutex);
    isSet = true;
    pthread_mutex_unlock(&mutex);
    pthread_cond_signal(&condition);
    waiter.join();
    EXPECT_EQ(0, pthread_cond_destroy(&condition));
}

/// Conditions that a thread each sleeps on.
class SleptOn {
public:
    static constexpr int kCount = 10;

    SleptOn() {
        for (_sync& condition : mConditions)
            mWaiters.emplace_back([this, &condition] {
                pthread_mutex_lock(&mMutex);
                while (!mIsOver)
                    pthread_cond_wait(&condition, &mMutex);
                pthread_mutex_unlock(&mMutex);
            });
        for (const _sync& condition : mConditions)
            while (__atomic_load_n(&condition.__count, __ATOMIC_RELAXED) == 0)
                std::this_thread::yield();
        pthread_mutex_lock(&mMutex);  // as soon as all have given it up
        pthread_mutex_unlock(&mMutex);
    }
    ~SleptOn() {
        pthread_mutex_lock(&mMutex);
        mIsOver = true;
        pthread_mutex_unlock(&mMutex);
        for (_sync& condition : mConditions)
            pthread_cond_broadcast(&condition);
        for (std::thread& waiter : mWaiters)
            waiter.join();
    }
    SleptOn(const SleptOn&) = delete;
    SleptOn& operator=(const SleptOn&) = delete;

    /// How long it takes to find that none of them can be destroyed.
    std::chrono::nanoseconds tryToDestroyAll() {
        const uint64_t begin = monotonicNs();
        for (_sync& condition : mConditions)
            EXPECT_EQ(EBUSY, pthread_cond_destroy(&condition));
        return std::chrono::nanoseconds(monotonicNs() - begin);
    }

private:
    _sync mConditions[kCount] = {};
    _sync mMutex = {};
    bool mIsOver = false;
    std::vector<std::thread> mWaiters;
};

// As static objects of a service that ends have them.
TEST(ConditionLifetime, SleepersAreNotWaitedFor) {
    SleptOn some;
    EXPECT_LT(some.tryToDestroyAll(), SleptOn::kCount / 2 * 1s);
}

TEST(ConditionLifetime, AForkedChildDoesNotWaitForItsParentsThreadsAgainAndAgain) {
    SleptOn some;
    const auto result = support::runInChild([&] {
        EXPECT_LT(some.tryToDestroyAll(), SleptOn::kCount / 2 * 1s);
        _exit(testing::Test::HasFailure() ? support::kExpectationFailed : 0);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

// Who was woken leaves the condition before that is destroyed: its memory may be given back.
TEST(ConditionLifetime, EndsRightAfterABroadcast) {
    for (int round = 0; round < 200; ++round) {
        _sync mutex = {};
        auto condition = std::make_unique<_sync>();
        int waiting = 0;
        bool isSet = false;
        std::vector<std::thread> waiters;
        for (int i = 0; i < 2; ++i)
            waiters.emplace_back([&, c = condition.get()] {
                pthread_mutex_lock(&mutex);
                ++waiting;
                while (!isSet)
                    pthread_cond_wait(c, &mutex);
                pthread_mutex_unlock(&mutex);
            });
        for (bool allWait = false; !allWait;) {
            pthread_mutex_lock(&mutex);
            allWait = waiting == 2;
            if (allWait) {
                isSet = true;
                pthread_cond_broadcast(condition.get());
                pthread_cond_destroy(condition.get());
                condition.reset();
            }
            pthread_mutex_unlock(&mutex);
        }
        for (std::thread& waiter : waiters)
            waiter.join();
    }
}

// ---- waiters that look for the signal before they sleep

bool isLookedAt(const _sync& condition) {
    constexpr unsigned kLooks = 0x20000000;
    return (__atomic_load_n(&condition.__count, __ATOMIC_RELAXED) & kLooks) != 0;
}

/// Signals from another processor than the waiter's, until the waiter looks, without the mutex, when `halt` halts it.
template <class Halt, class GoOn>
void haltInALook(_sync& condition, _sync& mutex, Halt halt, GoOn goOn) {
    const OnProcessor here(0);
    for (;;) {
        pthread_cond_signal(&condition);
        for (int i = 0; i < 10000 && !isLookedAt(condition); ++i) {
        }
        halt();
        if (isLookedAt(condition) && ownerOf(mutex) == 0)
            return;
        goOn();
    }
}

/// A thread that waits on a condition until the end of the scope, and can be halted.
class Waiter {
public:
    explicit Waiter(_sync& condition, _sync& mutex) : mCondition(condition), mMutex(mutex) {
        signal(SIGUSR1, [](int) {
            isHalted = true;
            while (mayNotGo) {
            }
            isHalted = false;
        });
        mThread = std::thread([this] {
            const OnProcessor here(1);
            pthread_mutex_lock(&mMutex);
            while (!mIsOver)
                pthread_cond_wait(&mCondition, &mMutex);
            pthread_mutex_unlock(&mMutex);
        });
    }
    ~Waiter() {
        goOn();
        pthread_mutex_lock(&mMutex);
        mIsOver = true;
        pthread_mutex_unlock(&mMutex);
        pthread_cond_signal(&mCondition);
        mThread.join();
        signal(SIGUSR1, SIG_DFL);
    }
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;

    void halt() {
        mayNotGo = true;
        pthread_kill(mThread.native_handle(), SIGUSR1);
        while (!isHalted) {
        }
    }
    void goOn() {
        mayNotGo = false;
        while (isHalted) {
        }
    }

private:
    static inline std::atomic<bool> isHalted, mayNotGo;
    _sync& mCondition;
    _sync& mMutex;
    bool mIsOver = false;
    std::thread mThread;
};

// The child inherits the condition while a thread of the parent looks for its signal, which is not there any more.
TEST(ConditionLook, OfTheParentTakesNoSignalFromItsChild) {
    if (!canStartThreadsInChildren() || !hasTwoProcessors())
        GTEST_SKIP() << "needs threads in a child, and two processors";
    _sync condition = {}, mutex = {};
    Waiter waiter(condition, mutex);
    haltInALook(
        condition, mutex, [&] { waiter.halt(); }, [&] { waiter.goOn(); });
    support::ChildProcess child([&] {
        std::atomic<bool> isWaiting{false};
        bool isSet = false;
        std::thread own([&] {
            pthread_mutex_lock(&mutex);
            isWaiting = true;
            while (!isSet)
                pthread_cond_wait(&condition, &mutex);
            pthread_mutex_unlock(&mutex);
        });
        while (!isWaiting)
            std::this_thread::yield();
        pthread_mutex_lock(&mutex);
        isSet = true;
        pthread_mutex_unlock(&mutex);
        std::this_thread::sleep_for(5ms);  // it sleeps
        pthread_cond_signal(&condition);
        own.join();
    });
    const auto result = child.finish();
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

struct ConditionSegment {
    _sync mutex, condition;
    int turn;
    std::atomic<int> waiting;
};

class ConditionProcess : public testing::Test {
protected:
    void SetUp() override {
        mSegment =
            new (mmap(nullptr, sizeof(ConditionSegment), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
                ConditionSegment{};
        initialise(mSegment->condition, CLOCK_MONOTONIC, PTHREAD_PROCESS_SHARED);
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
        ASSERT_EQ(0, pthread_mutex_init(&mSegment->mutex, &attributes));
        pthread_mutexattr_destroy(&attributes);
    }
    void TearDown() override { munmap(mSegment, sizeof(ConditionSegment)); }

    void play(int me, int turns) {
        pthread_mutex_lock(&mSegment->mutex);
        for (int i = 0; i < turns; ++i) {
            while (mSegment->turn % 2 != me)
                ASSERT_EQ(0, pthread_cond_wait(&mSegment->condition, &mSegment->mutex));
            ++mSegment->turn;
            pthread_cond_signal(&mSegment->condition);
        }
        pthread_mutex_unlock(&mSegment->mutex);
    }

    ConditionSegment* mSegment = nullptr;
};

TEST_F(ConditionProcess, LosesNoWakeUp) {
    constexpr int kTurns = 20000;
    support::ChildProcess child([this] { play(1, kTurns); });
    play(0, kTurns);
    const auto result = child.finish();
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(2 * kTurns, mSegment->turn);
}

TEST_F(ConditionProcess, SurvivesAWaiterThatIsKilled) {
    ConditionSegment& segment = *mSegment;
    const auto wait = [&segment] {
        pthread_mutex_lock(&segment.mutex);
        ++segment.waiting;
        while (segment.turn == 0)
            pthread_cond_wait(&segment.condition, &segment.mutex);
        pthread_mutex_unlock(&segment.mutex);
    };
    const auto waitForWaiters = [&segment](int waiters) {
        while (segment.waiting != waiters)
            std::this_thread::sleep_for(1ms);
        std::this_thread::sleep_for(10ms);
    };
    support::ChildProcess victim(wait);
    waitForWaiters(1);
    victim.send(SIGKILL);
    victim.finish();
    support::ChildProcess other(wait);
    waitForWaiters(2);
    pthread_mutex_lock(&segment.mutex);
    segment.turn = 1;
    pthread_cond_signal(&segment.condition);
    pthread_mutex_unlock(&segment.mutex);
    const auto result = other.finish();
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(EBUSY, pthread_cond_destroy(&segment.condition));  // for all it knows
}

TEST_F(ConditionProcess, OneThatIsKilledAsItLooksTakesNoSignalWithIt) {
    if (!hasTwoProcessors())
        GTEST_SKIP() << "needs two processors";
    ConditionSegment& segment = *mSegment;
    const auto wait = [&segment] {
        const OnProcessor here(1);
        pthread_mutex_lock(&segment.mutex);
        ++segment.waiting;
        while (segment.turn == 0)
            pthread_cond_wait(&segment.condition, &segment.mutex);
        pthread_mutex_unlock(&segment.mutex);
    };
    support::ChildProcess victim(wait);
    const auto halt = [&] {
        siginfo_t stopped;
        victim.send(SIGSTOP);
        ASSERT_EQ(0, waitid(P_PID, static_cast<id_t>(victim.pid()), &stopped, WSTOPPED));
    };
    haltInALook(segment.condition, segment.mutex, halt, [&] { victim.send(SIGCONT); });
    victim.send(SIGKILL);
    victim.finish();
    const int waiting = segment.waiting;
    support::ChildProcess other(wait);
    while (segment.waiting == waiting)
        std::this_thread::sleep_for(1ms);
    pthread_mutex_lock(&segment.mutex);
    segment.turn = 1;
    pthread_mutex_unlock(&segment.mutex);
    const uint64_t signalled = monotonicNs();
    pthread_cond_signal(&segment.condition);
    const auto result = other.finish();
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_LT(monotonicNs() - signalled, 500 * kMs) << "it looked by itself, after a second";
}

}  // namespace
