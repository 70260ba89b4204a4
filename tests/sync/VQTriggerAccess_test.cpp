// VQTriggerAccess. Concerns: never counts past one; each wait's result; signals of the system; reports.
#include <VQTriggerAccess.h>

#include <VQOperatingSystem.h>

#include "LockTesting.h"
#include "host/SignalStorm.h"
#include "support/AssertionLog.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>

namespace {

using VQOperatingSystem::getMonotonicTime;

class VQTriggerAccessTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(VQTriggerAccess::create(mTrigger)); }
    void TearDown() override { EXPECT_EQ(0, VQTriggerAccess::destroy(mTrigger)); }
    VQOSTypes::TRIGGER_HANDLE mTrigger = VQOSTypes::sInvalidTriggerHandle;
};

}  // namespace

TEST_F(VQTriggerAccessTest, NeverCountsPastOne) {
    EXPECT_EQ(0, VQTriggerAccess::tryWait(mTrigger));
    EXPECT_TRUE(VQTriggerAccess::signal(mTrigger));
    EXPECT_TRUE(VQTriggerAccess::signal(mTrigger));
    EXPECT_EQ(1, VQTriggerAccess::tryWait(mTrigger));
    EXPECT_EQ(0, VQTriggerAccess::tryWait(mTrigger));
}

TEST_F(VQTriggerAccessTest, EachWaitTakesTheSignal) {
    VQTriggerAccess::signal(mTrigger);
    EXPECT_TRUE(VQTriggerAccess::wait(mTrigger));
    EXPECT_EQ(0, VQTriggerAccess::tryWait(mTrigger));
    VQTriggerAccess::signal(mTrigger);
    EXPECT_TRUE(VQTriggerAccess::wait(mTrigger, 1000));
    EXPECT_EQ(0, VQTriggerAccess::tryWait(mTrigger));
}

TEST_F(VQTriggerAccessTest, AWaitExpiresNotEarlyAndWithoutReport) {
    support::AssertionLog log;
    const unsigned long long begin = getMonotonicTime();
    EXPECT_FALSE(VQTriggerAccess::wait(mTrigger, 20));
    EXPECT_EQ(ETIMEDOUT, errno);
    EXPECT_GE(getMonotonicTime() - begin, 20000000ULL);
}

TEST_F(VQTriggerAccessTest, Kept_ATimeoutOfMinusOneHasPassed) {  // trigger-minus-one-has-passed
    support::AssertionLog log;
    for (int i = 0; i < 5000; ++i) {
        for (const int timeoutMs : {-1, 0, INT_MIN}) {
            ASSERT_FALSE(VQTriggerAccess::wait(mTrigger, timeoutMs));
            ASSERT_EQ(ETIMEDOUT, errno);
        }
    }
    VQTriggerAccess::signal(mTrigger);
    EXPECT_TRUE(VQTriggerAccess::wait(mTrigger, -1));
}

TEST_F(VQTriggerAccessTest, WakesAThread) {
    for (const bool timed : {false, true}) {
        std::thread waiter(
            [&] { EXPECT_TRUE(timed ? VQTriggerAccess::wait(mTrigger, 60000) : VQTriggerAccess::wait(mTrigger)); });
        std::this_thread::sleep_for(locktest::milliseconds(5));
        EXPECT_TRUE(VQTriggerAccess::signal(mTrigger));
        waiter.join();
    }
}

TEST_F(VQTriggerAccessTest, AnUnlimitedWaitOutlastsCaughtSignals) {
    std::thread signaller([&] {
        std::this_thread::sleep_for(locktest::milliseconds(30));
        VQTriggerAccess::signal(mTrigger);
    });
    {
        const SignalStorm storm([](int) {});
        EXPECT_TRUE(VQTriggerAccess::wait(mTrigger));
    }
    signaller.join();
}

TEST_F(VQTriggerAccessTest, Kept_ACaughtSignalInATimedWaitIsAnAssertion) {  // trigger-signal-asserts
    support::AssertionLog log;
    {
        const SignalStorm storm([](int) {});
        EXPECT_FALSE(VQTriggerAccess::wait(mTrigger, 60000));
        EXPECT_EQ(EINTR, errno);
    }
    EXPECT_EQ(std::vector<std::string>{"VQTriggerAccessQNX:119"}, log.takeSites());
}
