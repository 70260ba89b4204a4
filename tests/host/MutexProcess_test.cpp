// Concerns: exclusion and wake-ups between processes; recursion; who may unlock; what a fork renews.
#include "HeldElsewhere.h"

#include "support/ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <new>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

/// Memory that forked processes share, with a mutex in it.
struct MutexSegment {
    _sync mutex;
    long counter;
    std::atomic<int> steps;
};

class MutexProcess : public testing::Test {
protected:
    void SetUp() override { make(PTHREAD_RECURSIVE_DISABLE); }
    void TearDown() override { munmap(mSegment, sizeof(MutexSegment)); }

    void make(int recursive) {
        if (mSegment == nullptr)
            mSegment =
                new (mmap(nullptr, sizeof(MutexSegment), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
                    MutexSegment{};
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
        pthread_mutexattr_setrecursive(&attributes, recursive);
        ASSERT_EQ(0, pthread_mutex_init(&mSegment->mutex, &attributes));
        pthread_mutexattr_destroy(&attributes);
    }

    /// The child waits until `steps` has come so far; what it means is the test's.
    static void waitForStep(const MutexSegment& segment, int step) {
        while (segment.steps < step)
            std::this_thread::sleep_for(100us);
    }

    MutexSegment* mSegment = nullptr;
};

TEST_F(MutexProcess, ExcludesEachOther) {
    constexpr int kTurns = 200000;
    MutexSegment& segment = *mSegment;
    const auto count = [&segment] {
        for (int i = 0; i < kTurns; ++i) {
            pthread_mutex_lock(&segment.mutex);
            ++segment.counter;
            pthread_mutex_unlock(&segment.mutex);
        }
    };
    support::ChildProcess one(count);
    support::ChildProcess two(count);
    count();
    EXPECT_TRUE(one.finish().exitedWith(0));
    EXPECT_TRUE(two.finish().exitedWith(0));
    EXPECT_EQ(3 * kTurns, segment.counter);
}

TEST_F(MutexProcess, WakesAWaiterOfAnotherProcess) {
    MutexSegment& segment = *mSegment;
    pthread_mutex_lock(&segment.mutex);
    support::ChildProcess child([&segment] {
        segment.steps = 1;
        EXPECT_EQ(0, pthread_mutex_lock(&segment.mutex));
        EXPECT_EQ(2, segment.steps);
        EXPECT_EQ(0, pthread_mutex_unlock(&segment.mutex));
    });
    waitForStep(segment, 1);
    std::this_thread::sleep_for(30ms);  // by now the child sleeps
    EXPECT_NE(0u, ownerOf(segment.mutex) & 0x80000000);
    segment.steps = 2;
    pthread_mutex_unlock(&segment.mutex);
    const auto result = child.finish();
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST_F(MutexProcess, TimesOutInAnotherProcess) {
    MutexSegment& segment = *mSegment;
    pthread_mutex_lock(&segment.mutex);
    const auto result = support::runInChild([&segment] {
        const uint64_t deadline = monotonicNs() + 10 * kMs;
        const timespec limit = timeAt(deadline);
        EXPECT_EQ(ETIMEDOUT, pthread_mutex_timedlock_monotonic(&segment.mutex, &limit));
        EXPECT_GE(monotonicNs(), deadline);
        EXPECT_EQ(EBUSY, pthread_mutex_trylock(&segment.mutex));
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(0, pthread_mutex_unlock(&segment.mutex));
}

TEST_F(MutexProcess, IsNotTheChildsWhenTheParentHoldsIt) {
    MutexSegment& segment = *mSegment;
    pthread_mutex_lock(&segment.mutex);
    const auto result = support::runInChild([&segment] {
        EXPECT_EQ(EPERM, pthread_mutex_unlock(&segment.mutex));
        EXPECT_EQ(EBUSY, pthread_mutex_trylock(&segment.mutex));
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(0, pthread_mutex_unlock(&segment.mutex));
}

TEST_F(MutexProcess, ForkedChildLocksUnderItsOwnId) {
    MutexSegment& segment = *mSegment;
    const auto result = support::runInChild([&segment] {
        EXPECT_EQ(0, pthread_mutex_lock(&segment.mutex));
        EXPECT_EQ(static_cast<unsigned>(gettid()), ownerOf(segment.mutex));
        EXPECT_EQ(0, pthread_mutex_unlock(&segment.mutex));
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST_F(MutexProcess, GrandchildLocksUnderItsOwnIdToo) {
    const auto result = support::runInChild([this] {
        pthread_mutex_lock(&mSegment->mutex);
        pthread_mutex_unlock(&mSegment->mutex);
        const pid_t grandchild = fork();
        if (grandchild == 0) {
            pthread_mutex_lock(&mSegment->mutex);
            _exit(ownerOf(mSegment->mutex) == static_cast<unsigned>(getpid()) ? 0 : 1);
        }
        int status = -1;
        waitpid(grandchild, &status, 0);
        EXPECT_EQ(0, status);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST_F(MutexProcess, CountsRecursionPerProcess) {
    make(PTHREAD_RECURSIVE_ENABLE);
    MutexSegment& segment = *mSegment;
    pthread_mutex_lock(&segment.mutex);
    pthread_mutex_lock(&segment.mutex);
    support::ChildProcess child([&segment] {
        EXPECT_EQ(EBUSY, pthread_mutex_trylock(&segment.mutex));
        segment.steps = 1;
        EXPECT_EQ(0, pthread_mutex_lock(&segment.mutex));
        EXPECT_EQ(0, pthread_mutex_lock(&segment.mutex));
        EXPECT_EQ(0, pthread_mutex_unlock(&segment.mutex));
        EXPECT_EQ(0, pthread_mutex_unlock(&segment.mutex));
    });
    waitForStep(segment, 1);
    EXPECT_EQ(0, pthread_mutex_unlock(&segment.mutex));
    EXPECT_EQ(0, pthread_mutex_unlock(&segment.mutex));
    const auto result = child.finish();
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(0, pthread_mutex_trylock(&segment.mutex));
}

TEST_F(MutexProcess, StaysLockedWhenItsHolderDies) {
    MutexSegment& segment = *mSegment;
    support::ChildProcess child([&segment] {
        pthread_mutex_lock(&segment.mutex);
        segment.steps = 1;
        pause();
    });
    waitForStep(segment, 1);
    child.send(SIGKILL);
    EXPECT_TRUE(child.finish().killedBy(SIGKILL));
    EXPECT_EQ(EBUSY, pthread_mutex_trylock(&segment.mutex));
    const timespec soon = timeAt(monotonicNs() + 10 * kMs);
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_timedlock_monotonic(&segment.mutex, &soon));
}

TEST_F(MutexProcess, WaiterThatIsKilledDoesNotDisturbTheOthers) {
    MutexSegment& segment = *mSegment;
    pthread_mutex_lock(&segment.mutex);
    support::ChildProcess waiter([&segment] {
        segment.steps = 1;
        pthread_mutex_lock(&segment.mutex);
    });
    waitForStep(segment, 1);
    std::this_thread::sleep_for(20ms);
    waiter.send(SIGKILL);
    waiter.finish();
    EXPECT_EQ(0, pthread_mutex_unlock(&segment.mutex));
    EXPECT_EQ(0, pthread_mutex_lock(&segment.mutex));
    EXPECT_EQ(0, pthread_mutex_unlock(&segment.mutex));
    EXPECT_EQ(0u, ownerOf(segment.mutex));
}

// The state that such a process leaves: the mutex free, the flag of the waiters gone, and they still asleep.
TEST_F(MutexProcess, WaitersFindAMutexWhoseNextHolderWasKilledAsItWoke) {
    MutexSegment& segment = *mSegment;
    pthread_mutex_lock(&segment.mutex);
    support::ChildProcess waiter([&segment] {
        segment.steps = 1;
        EXPECT_EQ(0, pthread_mutex_lock(&segment.mutex));
        EXPECT_EQ(0, pthread_mutex_unlock(&segment.mutex));
    });
    waitForStep(segment, 1);
    while ((ownerOf(segment.mutex) & 0x80000000) == 0)
        std::this_thread::sleep_for(1ms);
    std::this_thread::sleep_for(20ms);  // by now the child sleeps
    __atomic_store_n(&segment.mutex.__owner, 0u, __ATOMIC_RELEASE);
    const auto result = waiter.finish();
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

// A wait that outlasts its own looks still ends at its deadline and not before.
TEST_F(MutexProcess, LooksDoNotMoveTheDeadline) {
    MutexSegment& segment = *mSegment;
    pthread_mutex_lock(&segment.mutex);
    const auto result = support::runInChild([&segment] {
        const uint64_t deadline = monotonicNs() + 1200 * kMs;
        const timespec limit = timeAt(deadline);
        EXPECT_EQ(ETIMEDOUT, pthread_mutex_timedlock_monotonic(&segment.mutex, &limit));
        EXPECT_GE(monotonicNs(), deadline);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(0, pthread_mutex_unlock(&segment.mutex));
}

}  // namespace
