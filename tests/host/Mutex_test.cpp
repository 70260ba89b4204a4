// Concerns: results of every call on a free mutex, one's own and another's; attributes; time-outs and their exactness;
// signals; contention; recursion; all-zero storage; system calls. Processes: MutexProcess_test.cpp.
#include "HeldElsewhere.h"
#include "SignalStorm.h"
#include "support/Sanitizers.h"

#include "support/ChildProcess.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <gtest/gtest.h>
#include <linux/seccomp.h>
#include <random>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

#include <sys/neutrino.h>

namespace {

using namespace std::chrono_literals;

constexpr unsigned kOwnerId = 0x3FFFFFFF;

class Attributes {
public:
    Attributes() { pthread_mutexattr_init(&mRaw); }
    ~Attributes() { pthread_mutexattr_destroy(&mRaw); }
    pthread_mutexattr_t* operator&() { return &mRaw; }

private:
    pthread_mutexattr_t mRaw;
};

void makeRecursive(_sync& mutex) {
    Attributes attributes;
    ASSERT_EQ(0, pthread_mutexattr_setrecursive(&attributes, PTHREAD_RECURSIVE_ENABLE));
    ASSERT_EQ(0, pthread_mutex_init(&mutex, &attributes));
}

void makeShared(_sync& mutex) {
    Attributes attributes;
    ASSERT_EQ(0, pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED));
    ASSERT_EQ(0, pthread_mutex_init(&mutex, &attributes));
}

template <class Call>
auto elsewhere(Call call) {
    return std::async(std::launch::async, call).get();
}

_sync untouched;  // never initialised

TEST(Mutex, AllZeroIsFreePrivateAndNotRecursive) {
    EXPECT_EQ(0, pthread_mutex_lock(&untouched));
    EXPECT_EQ(EBUSY, pthread_mutex_trylock(&untouched));
    EXPECT_EQ(0, pthread_mutex_unlock(&untouched));
    EXPECT_EQ(0u, untouched.__count);
    EXPECT_EQ(0u, ownerOf(untouched));
}

TEST(Mutex, AllZeroMayBeDestroyed) {
    _sync mutex = {};
    EXPECT_EQ(0, pthread_mutex_destroy(&mutex));
}

TEST(Mutex, InitOverwritesWhateverTheStorageHeld) {
    _sync mutex = {0xFFFFFFFF, 0xFFFFFFFF};
    EXPECT_EQ(0, pthread_mutex_init(&mutex, nullptr));
    EXPECT_EQ(0u, mutex.__count);
    EXPECT_EQ(0u, ownerOf(mutex));
}

TEST(Mutex, OwnerWordNamesTheHolder) {
    _sync mutex = {};
    pthread_mutex_lock(&mutex);
    EXPECT_EQ(static_cast<unsigned>(gettid()), ownerOf(mutex));
    pthread_mutex_unlock(&mutex);
    EXPECT_EQ(0u, ownerOf(mutex));
}

TEST(Mutex, LivesBesideTheMutexOfTheCLibrary) {
    pthread_mutex_t plain = PTHREAD_MUTEX_INITIALIZER;
    _sync mutex = {};
    EXPECT_EQ(0, pthread_mutex_lock(&plain));
    EXPECT_EQ(0, pthread_mutex_lock(&mutex));
    EXPECT_EQ(0, pthread_mutex_unlock(&plain));
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
    EXPECT_EQ(0, pthread_mutex_destroy(&plain));
    EXPECT_EQ(0, pthread_mutex_destroy(&mutex));
}

TEST(Mutex, DestroyOfALockedOneIsBusyAndChangesNothing) {
    _sync mutex = {};
    pthread_mutex_lock(&mutex);
    EXPECT_EQ(EBUSY, pthread_mutex_destroy(&mutex));
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
    EXPECT_EQ(0, pthread_mutex_destroy(&mutex));
}

TEST(Mutex, DestroyOfOneLockedElsewhereIsBusy) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    EXPECT_EQ(EBUSY, pthread_mutex_destroy(&mutex));
}

TEST(Mutex, UnlockOfAFreeOneIsRefused) {
    _sync mutex = {};
    EXPECT_EQ(EPERM, pthread_mutex_unlock(&mutex));
    EXPECT_EQ(0u, ownerOf(mutex));
}

TEST(Mutex, UnlockByAThreadThatHasNotLockedAnythingYetIsRefused) {
    _sync mutex = {};
    EXPECT_EQ(EPERM, elsewhere([&] { return pthread_mutex_unlock(&mutex); }));
    EXPECT_EQ(0u, ownerOf(mutex));
}

TEST(Mutex, UnlockByAnotherThanTheHolderIsRefused) {
    _sync mutex = {};
    pthread_mutex_lock(&mutex);
    EXPECT_EQ(EPERM, elsewhere([&] { return pthread_mutex_unlock(&mutex); }));
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
}

TEST(Mutex, TrylockTakesAFreeOneAndIsBusyOtherwise) {
    _sync mutex = {};
    EXPECT_EQ(0, pthread_mutex_trylock(&mutex));
    EXPECT_EQ(EBUSY, pthread_mutex_trylock(&mutex));
    EXPECT_EQ(EBUSY, elsewhere([&] { return pthread_mutex_trylock(&mutex); }));
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
}

TEST(Mutex, LockWaitsForTheHolder) {
    _sync mutex = {};
    HeldElsewhere held(mutex, 50ms);
    EXPECT_EQ(0, pthread_mutex_lock(&mutex));
    EXPECT_GE(monotonicNs(), held.releasedAtNs);
    EXPECT_NE(0u, held.releasedAtNs);
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
}

TEST(Mutex, KernelHalvesDoTheWholeOfIt) {
    _sync mutex = {};
    EXPECT_EQ(EPERM, SyncMutexUnlock_r(&mutex));
    EXPECT_EQ(0, SyncMutexLock_r(&mutex));
    EXPECT_EQ(static_cast<unsigned>(gettid()), ownerOf(mutex));
    EXPECT_EQ(0, SyncMutexUnlock_r(&mutex));
    HeldElsewhere held(mutex, 20ms);
    EXPECT_EQ(0, SyncMutexLock_r(&mutex));
    EXPECT_NE(0u, held.releasedAtNs);
    EXPECT_EQ(0, SyncMutexUnlock_r(&mutex));
}

TEST(Mutex, NoCallTouchesErrno) {
    _sync mutex = {};
    HeldElsewhere held(mutex, 30ms);
    const timespec soon = timeAt(monotonicNs() + 5 * kMs);
    errno = 4711;
    EXPECT_EQ(EBUSY, pthread_mutex_trylock(&mutex));
    EXPECT_EQ(EPERM, pthread_mutex_unlock(&mutex));
    EXPECT_EQ(EBUSY, pthread_mutex_destroy(&mutex));
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_timedlock_monotonic(&mutex, &soon));
    EXPECT_EQ(0, pthread_mutex_lock(&mutex));
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
    EXPECT_EQ(4711, errno);
}

// Attributes

TEST(MutexAttributes, RecursionTakesItsTwoValuesOnly) {
    Attributes attributes;
    EXPECT_EQ(0, PTHREAD_RECURSIVE_DISABLE);
    EXPECT_EQ(2, PTHREAD_RECURSIVE_ENABLE);
    EXPECT_EQ(0, pthread_mutexattr_setrecursive(&attributes, PTHREAD_RECURSIVE_ENABLE));
    for (const int value : {1, 3, -1, INT_MAX, INT_MIN})
        EXPECT_EQ(EINVAL, pthread_mutexattr_setrecursive(&attributes, value)) << value;
    int type = -1;
    pthread_mutexattr_gettype(&attributes, &type);
    EXPECT_EQ(PTHREAD_MUTEX_RECURSIVE, type);
    EXPECT_EQ(0, pthread_mutexattr_setrecursive(&attributes, PTHREAD_RECURSIVE_DISABLE));
    pthread_mutexattr_gettype(&attributes, &type);
    EXPECT_EQ(PTHREAD_MUTEX_NORMAL, type);
}

TEST(MutexAttributes, DefaultIsNotRecursive) {
    Attributes attributes;
    _sync mutex;
    ASSERT_EQ(0, pthread_mutex_init(&mutex, &attributes));
    EXPECT_EQ(0u, mutex.__count);
}

TEST(MutexAttributes, WhatTheHostCannotHonourIsRefused) {
    _sync mutex = {};
    Attributes robust;
    pthread_mutexattr_setrobust(&robust, PTHREAD_MUTEX_ROBUST);
    EXPECT_EQ(ENOTSUP, pthread_mutex_init(&mutex, &robust));
    Attributes ceiling;
    pthread_mutexattr_setprotocol(&ceiling, PTHREAD_PRIO_PROTECT);
    EXPECT_EQ(ENOTSUP, pthread_mutex_init(&mutex, &ceiling));
}

TEST(MutexAttributes, ErrorCheckingMutexTellsItsHolderOfTheDeadlock) {
    Attributes attributes;
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
    _sync mutex;
    ASSERT_EQ(0, pthread_mutex_init(&mutex, &attributes));
    EXPECT_EQ(0, pthread_mutex_lock(&mutex));
    EXPECT_EQ(EDEADLK, pthread_mutex_lock(&mutex));
    EXPECT_EQ(EBUSY, pthread_mutex_trylock(&mutex));
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
}

// Locked again by the holder

TEST(MutexRelock, TimesOutWhenNotRecursive) {
    _sync mutex = {};
    pthread_mutex_lock(&mutex);
    const uint64_t deadline = monotonicNs() + 20 * kMs;
    const timespec limit = timeAt(deadline);
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_timedlock_monotonic(&mutex, &limit));
    EXPECT_GE(monotonicNs(), deadline);
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
    EXPECT_EQ(0u, ownerOf(mutex));
}

TEST(MutexRelock, BlocksForGoodWhenNotRecursive) {
    support::ChildOptions options;
    options.deadline = 300ms;
    const auto result = support::runInChild(
        [] {
            _sync mutex = {};
            pthread_mutex_lock(&mutex);
            pthread_mutex_lock(&mutex);
        },
        options);
    EXPECT_TRUE(result.timedOut) << result;
}

TEST(MutexRelock, CountsWhenRecursive) {
    _sync mutex;
    makeRecursive(mutex);
    EXPECT_EQ(0, pthread_mutex_lock(&mutex));
    EXPECT_EQ(0, pthread_mutex_lock(&mutex));
    EXPECT_EQ(0, pthread_mutex_trylock(&mutex));
    const timespec past = {0, 0};
    EXPECT_EQ(0, pthread_mutex_timedlock_monotonic(&mutex, &past));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
        EXPECT_EQ(EBUSY, elsewhere([&] { return pthread_mutex_trylock(&mutex); })) << i;
    }
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
    EXPECT_EQ(EPERM, pthread_mutex_unlock(&mutex));
    EXPECT_EQ(0, elsewhere([&] { return pthread_mutex_lock(&mutex) + pthread_mutex_unlock(&mutex); }));
    EXPECT_EQ(0, pthread_mutex_destroy(&mutex));
}

TEST(MutexRelock, KeepsItsCountWhileOthersWait) {
    _sync mutex;
    makeRecursive(mutex);
    pthread_mutex_lock(&mutex);
    std::atomic<bool> taken{false};
    std::thread waiter([&] {
        EXPECT_EQ(0, pthread_mutex_lock(&mutex));
        taken = true;
        EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
    });
    for (int i = 0; i < 20; ++i) {
        pthread_mutex_lock(&mutex);
        pthread_mutex_lock(&mutex);
        std::this_thread::sleep_for(1ms);
        pthread_mutex_unlock(&mutex);
        pthread_mutex_unlock(&mutex);
        EXPECT_FALSE(taken);
        EXPECT_EQ(static_cast<unsigned>(gettid()), ownerOf(mutex) & kOwnerId);
    }
    pthread_mutex_unlock(&mutex);
    waiter.join();
    EXPECT_TRUE(taken);
    EXPECT_EQ(0u, ownerOf(mutex));
}

TEST(MutexRelock, RefusesToCountFurtherThanItCan) {
    _sync mutex;
    makeRecursive(mutex);
    pthread_mutex_lock(&mutex);
    pthread_mutex_lock(&mutex);
    constexpr unsigned kDepthMax = 0x00FFFFFF;
    mutex.__count += kDepthMax - 2;  // as if locked that often in between
    EXPECT_EQ(0, pthread_mutex_lock(&mutex));
    EXPECT_EQ(EAGAIN, pthread_mutex_lock(&mutex));
    EXPECT_EQ(EAGAIN, pthread_mutex_trylock(&mutex));
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
    EXPECT_EQ(0, pthread_mutex_lock(&mutex));
    EXPECT_EQ(EAGAIN, pthread_mutex_lock(&mutex));
}

// Time-outs

TEST(MutexTimedLock, TakesAFreeOneWhateverTheTimeSays) {
    _sync mutex = {};
    for (const timespec time : {timespec{0, 0}, timespec{-1, 0}, timespec{0, -1}, timespec{0, 1000000000},
                                timespec{0, LONG_MIN}, timespec{LONG_MAX, LONG_MAX}}) {
        EXPECT_EQ(0, pthread_mutex_timedlock_monotonic(&mutex, &time)) << time.tv_sec << ' ' << time.tv_nsec;
        EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
    }
}

TEST(MutexTimedLock, RefusesBadNanosecondsWhenItWouldWait) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    const time_t later = timeAt(monotonicNs()).tv_sec + 3600;
    for (const timespec time : {timespec{later, -1}, timespec{later, 1000000000}, timespec{later, LONG_MIN},
                                timespec{later, LONG_MAX}, timespec{0, -1}, timespec{-1, 1000000000}})
        EXPECT_EQ(EINVAL, pthread_mutex_timedlock_monotonic(&mutex, &time)) << time.tv_sec << ' ' << time.tv_nsec;
}

TEST(MutexTimedLock, TimesOutAtOnceWhenTheTimeHasPassed) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    for (const timespec time :
         {timespec{0, 0}, timespec{0, 1}, timespec{-1, 999999999}, timespec{LONG_MIN, 0}, timeAt(monotonicNs())})
        EXPECT_EQ(ETIMEDOUT, pthread_mutex_timedlock_monotonic(&mutex, &time)) << time.tv_sec;
}

TEST(MutexTimedLock, WaitsWithoutLimitForATimeBeyondTheRange) {
    _sync mutex = {};
    HeldElsewhere held(mutex, 20ms);
    const timespec never = {LONG_MAX, 999999999};
    EXPECT_EQ(0, pthread_mutex_timedlock_monotonic(&mutex, &never));
    EXPECT_NE(0u, held.releasedAtNs);
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
}

TEST(MutexTimedLock, TakesTheMutexWhenItIsReleasedInTime) {
    _sync mutex = {};
    HeldElsewhere held(mutex, 20ms);
    const timespec limit = timeAt(monotonicNs() + 30000 * kMs);
    EXPECT_EQ(0, pthread_mutex_timedlock_monotonic(&mutex, &limit));
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
}

TEST(MutexTimedLock, IsNeverEarly) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    std::mt19937 random(1);
    std::uniform_int_distribution<uint64_t> wait(1, 3 * kMs);
    for (int i = 0; i < 100; ++i) {
        const uint64_t deadline = monotonicNs() + wait(random);
        const timespec limit = timeAt(deadline);
        ASSERT_EQ(ETIMEDOUT, pthread_mutex_timedlock_monotonic(&mutex, &limit));
        ASSERT_GE(monotonicNs(), deadline);
    }
}

// Signals

std::atomic<int> signalCount{0};

void countSignal(int) {
    ++signalCount;
}

TEST(MutexSignals, DoNotEndAWait) {
    _sync mutex = {};
    HeldElsewhere held(mutex, 150ms);
    {
        signalCount = 0;
        SignalStorm storm(countSignal);
        EXPECT_EQ(0, pthread_mutex_lock(&mutex));
        EXPECT_NE(0u, held.releasedAtNs);
    }
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
    EXPECT_GT(signalCount, 5);
}

TEST(MutexSignals, DoNotMoveTheDeadline) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    signalCount = 0;
    SignalStorm storm(countSignal);
    const uint64_t deadline = monotonicNs() + 100 * kMs;
    const timespec limit = timeAt(deadline);
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_timedlock_monotonic(&mutex, &limit));
    EXPECT_GE(monotonicNs(), deadline);
    EXPECT_GT(signalCount, 5);
}

// A handler may lock and unlock a recursive mutex whose second lock it interrupted: counted, but not yet flagged.
TEST(MutexSignals, MayNestAnywhereInANestedLock) {
    _sync mutex;
    makeRecursive(mutex);
    pthread_mutex_lock(&mutex);
    ++mutex.__count;
    EXPECT_EQ(0, pthread_mutex_lock(&mutex));
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
    EXPECT_EQ(static_cast<unsigned>(gettid()), ownerOf(mutex) & kOwnerId);
}

TEST(MutexSignals, DoNotUpsetTheCountOfARecursiveMutex) {
    static _sync mutex;
    makeRecursive(mutex);
    signalCount = 0;
    SignalStorm storm([](int signal) {
        pthread_mutex_lock(&mutex);
        pthread_mutex_lock(&mutex);
        pthread_mutex_unlock(&mutex);
        pthread_mutex_unlock(&mutex);
        countSignal(signal);
    });
    while (signalCount < 300) {
        ASSERT_EQ(0, pthread_mutex_lock(&mutex));
        ASSERT_EQ(0, pthread_mutex_lock(&mutex));
        ASSERT_EQ(0, pthread_mutex_unlock(&mutex));
        ASSERT_EQ(0, pthread_mutex_unlock(&mutex));
    }
    EXPECT_EQ(0u, ownerOf(mutex));
}

// Contention

TEST(MutexContention, LosesNoIncrementInAMillionTurns) {
    _sync mutex = {};
    long counter = 0;  // plain: a race detector sees whether the mutex orders the accesses
    constexpr int kThreads = 4;
    constexpr int kTurns = 250000;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&] {
            for (int turn = 0; turn < kTurns; ++turn) {
                pthread_mutex_lock(&mutex);
                ++counter;
                pthread_mutex_unlock(&mutex);
            }
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(1000000, counter);
    EXPECT_EQ(0u, ownerOf(mutex));
}

// Plain waiters would sleep for ever if a waiter that gives up swallowed the wake-up meant for them.
TEST(MutexContention, WaitersThatGiveUpCostNobodyAWakeUp) {
    _sync mutex = {};
    std::atomic<bool> stop{false};
    long counter = 0;
    long expected = 0;
    std::atomic<long> taken{0};
    std::vector<std::thread> threads;
    for (unsigned seed = 0; seed < 3; ++seed)
        threads.emplace_back([&, seed] {
            std::mt19937 random(seed);
            while (!stop) {
                const timespec limit = timeAt(monotonicNs() + random() % 100000);
                if (pthread_mutex_timedlock_monotonic(&mutex, &limit) == 0) {
                    ++counter;
                    ++taken;
                    pthread_mutex_unlock(&mutex);
                }
            }
        });
    for (int i = 0; i < 3; ++i)
        threads.emplace_back([&] {
            for (int turn = 0; turn < 2000; ++turn) {
                pthread_mutex_lock(&mutex);
                ++counter;
                ++taken;
                if (turn % 16 == 0)
                    std::this_thread::sleep_for(50us);  // long enough for the others to fall asleep
                pthread_mutex_unlock(&mutex);
            }
        });
    for (int i = 3; i < 6; ++i)
        threads[i].join();
    stop = true;
    for (int i = 0; i < 3; ++i)
        threads[i].join();
    expected = taken;
    EXPECT_EQ(expected, counter);
    EXPECT_EQ(0u, ownerOf(mutex));
}

TEST(MutexContention, EveryWaiterGetsItsTurn) {
    _sync mutex = {};
    std::atomic<int> served{0};
    std::vector<std::thread> threads;
    {
        HeldElsewhere held(mutex);
        for (int i = 0; i < 20; ++i)
            threads.emplace_back([&] {
                pthread_mutex_lock(&mutex);
                ++served;
                pthread_mutex_unlock(&mutex);
            });
        std::this_thread::sleep_for(20ms);
        EXPECT_EQ(0, served);
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(20, served);
}

// The last to unlock must not touch the mutex once another may have freed it.
TEST(MutexContention, MayBeFreedByWhoeverLocksItLast) {
    for (int round = 0; round < 500; ++round) {
        auto* const mutex = new _sync();
        pthread_mutex_lock(mutex);
        std::thread last([mutex] {
            pthread_mutex_lock(mutex);
            pthread_mutex_unlock(mutex);
            delete mutex;
        });
        if (round % 2 == 0)
            std::this_thread::sleep_for(50us);
        pthread_mutex_unlock(mutex);
        last.join();
    }
}

TEST(MutexContention, SharedMutexWakesWaitersThatSeeItAtAnotherAddress) {
    const int memory = memfd_create("mutex", MFD_CLOEXEC);
    ASSERT_EQ(0, ftruncate(memory, sizeof(_sync)));
    const auto map = [memory] {
        return static_cast<_sync*>(mmap(nullptr, sizeof(_sync), PROT_READ | PROT_WRITE, MAP_SHARED, memory, 0));
    };
    _sync* const here = map();
    _sync* const there = map();
    close(memory);
    ASSERT_NE(here, there);
    makeShared(*here);
    {
        HeldElsewhere held(*there, 30ms);
        EXPECT_EQ(0, pthread_mutex_lock(here));
        EXPECT_NE(0u, held.releasedAtNs);
    }
    EXPECT_EQ(0, pthread_mutex_unlock(there));
    munmap(here, sizeof(_sync));
    munmap(there, sizeof(_sync));
}

// System calls. In the strict mode a thread that makes any but read, write and exit is killed.

template <class Body>
bool survivesWithoutSystemCalls(Body body) {
    const auto result = support::runInChild([&body] {
        std::atomic<pid_t> thread{0};
        std::thread([&] {
            _sync first = {};
            pthread_mutex_lock(&first);  // the thread learns its id
            pthread_mutex_unlock(&first);
            thread = static_cast<pid_t>(syscall(SYS_gettid));
            prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT);
            body();
            static_cast<void>(!write(STDOUT_FILENO, "done", 4));
            syscall(SYS_exit, 0);
        }).detach();
        // A sanitizer's join would wait for an end that it is told of.
        while (thread == 0 || syscall(SYS_tgkill, getpid(), thread.load(), 0) == 0)
            std::this_thread::sleep_for(1ms);
        _exit(0);
    });
    return result.out == "done";
}

class MutexSystemCalls : public testing::Test {
protected:
    void SetUp() override {
        if (support::kIsThreadSanitized)
            GTEST_SKIP() << "the thread sanitizer asks for memory now and then";
        if (support::isEmulated())
            GTEST_SKIP() << "the emulator itself makes system calls";
    }
};

TEST_F(MutexSystemCalls, AreCountedByThisTest) {
    EXPECT_TRUE(survivesWithoutSystemCalls([] {}));
    EXPECT_FALSE(survivesWithoutSystemCalls([] {
        _sync mutex = {0, 1};
        const timespec soon = timeAt(monotonicNs() + kMs);
        pthread_mutex_timedlock_monotonic(&mutex, &soon);
    }));
}

TEST_F(MutexSystemCalls, AreNotMadeWithoutContention) {
    EXPECT_TRUE(survivesWithoutSystemCalls([] {
        _sync mutex = {};
        const timespec past = {0, 0};
        for (int i = 0; i < 1000; ++i) {
            pthread_mutex_lock(&mutex);
            pthread_mutex_trylock(&mutex);
            pthread_mutex_unlock(&mutex);
            pthread_mutex_timedlock_monotonic(&mutex, &past);
            pthread_mutex_unlock(&mutex);
        }
        pthread_mutex_init(&mutex, nullptr);
        pthread_mutex_destroy(&mutex);
    }));
}

TEST_F(MutexSystemCalls, AreNotMadeByNestedLocks) {
    _sync mutex;
    makeRecursive(mutex);
    EXPECT_TRUE(survivesWithoutSystemCalls([&mutex] {
        for (int i = 0; i < 100; ++i) {
            pthread_mutex_lock(&mutex);
            pthread_mutex_lock(&mutex);
            pthread_mutex_unlock(&mutex);
            pthread_mutex_unlock(&mutex);
        }
    }));
}

TEST_F(MutexSystemCalls, AreNotMadeByAProcessWithOneThread) {
    if (support::kIsThreadSanitized)
        GTEST_SKIP() << "the sanitizer has a thread of its own, which does not end with the one that is killed";
    const auto result = support::runInChild([] {
        _sync mutex = {};
        pthread_mutex_lock(&mutex);
        pthread_mutex_unlock(&mutex);
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT);
        for (int i = 0; i < 1000; ++i) {
            pthread_mutex_lock(&mutex);
            pthread_mutex_unlock(&mutex);
        }
        static_cast<void>(!write(STDOUT_FILENO, "done", 4));
        syscall(SYS_exit, 0);
    });
    EXPECT_EQ("done", result.out) << result;
}

}  // namespace
