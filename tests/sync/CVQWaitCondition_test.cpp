// VQConditionVariableAccess, CVQWaitCondition.
// Concerns: results and errno of each kind of time-out; who is woken; the mutex is held on return; signals; reports.
#include <CVQWaitCondition.h>

#include <CVQMutex.h>
#include <VQConditionVariableAccess.h>
#include <VQOSTypes.h>
#include <VQOperatingSystem.h>

#include "LockTesting.h"
#include "host/SignalStorm.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>

namespace {

using locktest::milliseconds;
using VQOperatingSystem::getMonotonicTime;

class CVQWaitConditionTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(mMutex.lock()); }
    /// Fails when the wait returned without the mutex.
    void TearDown() override { EXPECT_EQ(0, mMutex.unlock()); }

    CVQMutex mMutex{/*unlocked*/ true, CVQMutex::NON_RECURSIVE};
    CVQWaitCondition mCondition;
};

}  // namespace

TEST_F(CVQWaitConditionTest, Kept_AnExpiryIsTrueWithErrno) {  // condition-expiry-is-true
    const unsigned long long begin = getMonotonicTime();
    EXPECT_TRUE(VQConditionVariableAccess::wait(mCondition, mMutex, 200));
    EXPECT_EQ(ETIMEDOUT, errno);
    EXPECT_GE(getMonotonicTime() - begin, 200000000ULL);
}

TEST_F(CVQWaitConditionTest, Kept_ATimeoutOfZeroThatFindsNothingIsFalse) {  // condition-expiry-is-true
    EXPECT_FALSE(VQConditionVariableAccess::wait(mCondition, mMutex, 0));
    EXPECT_EQ(ETIMEDOUT, errno);
}

TEST_F(CVQWaitConditionTest, OtherNegativeTimeoutsHavePassedAtAnyTimeOfTheSecond) {
    for (int i = 0; i < 2000; ++i) {
        for (const int timeoutMs : {-2, -999, -1000, INT_MIN}) {
            ASSERT_TRUE(mCondition.wait(mMutex, timeoutMs));
            ASSERT_EQ(ETIMEDOUT, errno);
        }
    }
}

TEST_F(CVQWaitConditionTest, ASignalIsTrueWithoutErrno) {
    for (const int timeoutMs : {-1, 60000, INT_MAX}) {
        bool isSet = false;
        std::thread signaller([&] {
            mMutex.lock();
            isSet = true;
            EXPECT_EQ(0, mCondition.signal());
            mMutex.unlock();
        });
        errno = EACCES;
        while (!isSet) {
            EXPECT_TRUE(mCondition.wait(mMutex, timeoutMs));
            EXPECT_EQ(0, errno);
        }
        mMutex.unlock();
        signaller.join();
        mMutex.lock();
    }
}

TEST_F(CVQWaitConditionTest, ASignalWithoutWaitersIsForgotten) {
    EXPECT_EQ(0, mCondition.signal());
    EXPECT_EQ(0, mCondition.broadcast());
    EXPECT_TRUE(mCondition.wait(mMutex, 5));
    EXPECT_EQ(ETIMEDOUT, errno);
}

TEST_F(CVQWaitConditionTest, ReleasesTheMutexWhileItWaits) {
    bool entered = false;
    std::thread other([&] {
        mMutex.lock();
        entered = true;
        mCondition.signal();
        mMutex.unlock();
    });
    while (!entered) {
        mCondition.wait(mMutex);
    }
    mMutex.unlock();
    other.join();
    mMutex.lock();
}

TEST_F(CVQWaitConditionTest, AWaitWithoutTheMutexIsRefused) {
    mMutex.unlock();
    for (const int timeoutMs : {-1, 0, 10}) {
        EXPECT_FALSE(mCondition.wait(mMutex, timeoutMs));
        EXPECT_EQ(EPERM, errno);
    }
    mMutex.lock();
}

TEST_F(CVQWaitConditionTest, SignalsWakeOneAndBroadcastsAll) {
    constexpr int kThreads = 5;
    int waiting = 0, tickets = 0, served = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            mMutex.lock();
            ++waiting;
            while (tickets == 0) {
                mCondition.wait(mMutex);
            }
            --tickets;
            ++served;
            mMutex.unlock();
        });
    }
    const auto waitUntil = [&](const int& value, int wanted) {
        while (value != wanted) {
            mMutex.unlock();
            std::this_thread::sleep_for(milliseconds(1));
            mMutex.lock();
        }
    };
    waitUntil(waiting, kThreads);
    for (int i = 1; i <= 2; ++i) {
        tickets = 1;
        mCondition.signal();
        waitUntil(served, i);
    }
    tickets = kThreads - 2;
    mCondition.broadcast();
    waitUntil(served, kThreads);
    mMutex.unlock();
    for (std::thread& thread : threads) {
        thread.join();
    }
    mMutex.lock();
}

TEST_F(CVQWaitConditionTest, CaughtSignalsNeitherEndNorShortenAWait) {
    static std::atomic<int> caught;
    caught = 0;
    const SignalStorm storm([](int) { ++caught; });
    for (const int timeoutMs : {1, 40}) {
        const unsigned long long begin = getMonotonicTime();
        EXPECT_TRUE(mCondition.wait(mMutex, timeoutMs));
        EXPECT_EQ(ETIMEDOUT, errno);
        EXPECT_GE(getMonotonicTime() - begin, static_cast<unsigned>(timeoutMs) * 1000000ULL);
    }
    EXPECT_GT(caught, 0);
    for (const int timeoutMs : {-1, 60000}) {
        bool isSet = false;
        std::thread signaller([&] {
            std::this_thread::sleep_for(milliseconds(20));
            mMutex.lock();
            isSet = true;
            mMutex.unlock();
            mCondition.signal();
        });
        while (!isSet) {
            EXPECT_TRUE(mCondition.wait(mMutex, timeoutMs));
            EXPECT_EQ(0, errno);
        }
        mMutex.unlock();
        signaller.join();
        mMutex.lock();
    }
}

// Threads take what another one lays down, two pieces at most: it and they sleep all the time, and a single lost
// wake-up stops them for good. A bystander, whose waits expire, passes on what wakes it. CONDITION_SIGNALS=1000000
// lays down as many, by hand.
TEST_F(CVQWaitConditionTest, NoWakeUpIsLost) {
    const unsigned pieces = locktest::roundsOf("CONDITION_SIGNALS", 8000);
    CVQWaitCondition& laidDown = mCondition;
    CVQWaitCondition takenUp;
    unsigned lying = 0, taken = 0;
    const auto take = [&] {
        for (mMutex.lock(); taken < pieces; mMutex.lock()) {
            if (lying == 0) {
                laidDown.wait(mMutex);
                mMutex.unlock();
                continue;
            }
            --lying;
            const bool wasLast = ++taken == pieces;
            mMutex.unlock();
            takenUp.signal();
            if (wasLast) {
                laidDown.broadcast();
            }
        }
        mMutex.unlock();
    };
    const auto standBy = [&] {
        mMutex.lock();
        while (taken < pieces) {
            EXPECT_TRUE(laidDown.wait(mMutex, 1));
            if (errno == 0) {
                laidDown.signal();
            }
        }
        mMutex.unlock();
    };
    std::vector<std::thread> threads;
    threads.emplace_back(take);
    threads.emplace_back(take);
    threads.emplace_back(standBy);
    for (unsigned i = 0; i < pieces; ++i) {
        while (lying == 2) {
            takenUp.wait(mMutex);
        }
        ++lying;
        mMutex.unlock();
        laidDown.signal();
        mMutex.lock();
    }
    mMutex.unlock();
    for (std::thread& thread : threads) {
        thread.join();
    }
    mMutex.lock();
    EXPECT_EQ(pieces, taken);
    EXPECT_EQ(0u, lying);
}

TEST(CVQWaitCondition, IsOneSyncOnTheMonotonicClock) {
    static_assert(sizeof(CVQWaitCondition) == 8);
    _sync condition = VQOSTypes::sInvalidCondVarHandle;
    EXPECT_TRUE(VQConditionVariableAccess::create(condition));
    EXPECT_EQ(0, pthread_cond_destroy(&condition));
}
