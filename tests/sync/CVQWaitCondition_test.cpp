// VQConditionVariableAccess, CVQWaitCondition.
// Concerns: results and errno of each kind of time-out; who is woken; the mutex is held on return; signals; reports.
#include <CVQWaitCondition.h>

#include <CVQMutex.h>
#include <VQConditionVariableAccess.h>
#include <VQOSTypes.h>
#include <VQOperatingSystem.h>

#include "LockTesting.h"

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

TEST(CVQWaitCondition, IsOneSyncOnTheMonotonicClock) {
    static_assert(sizeof(CVQWaitCondition) == 8);
    _sync condition = VQOSTypes::sInvalidCondVarHandle;
    EXPECT_TRUE(VQConditionVariableAccess::create(condition));
    EXPECT_EQ(0, pthread_cond_destroy(&condition));
}
