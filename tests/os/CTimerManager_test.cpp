// CTimerManager, CTimer, CTimerBase: pulses become calls; stale ones do not; kernel failures end the process.
#include <CTimerManager.h>

#include "OnTheClock.h"

#include "host/SignalStorm.h"
#include "support/AssertionLog.h"
#include "support/ChildProcess.h"
#include "support/VirtualSlot.h"

#include <VQOperatingSystem.h>

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <sys/neutrino.h>
#include <thread>
#include <typeinfo>
#include <vector>

namespace {

class CCountingKernelTimer : public CTimer {
public:
    using CTimer::CTimer;

    void onTimeout() override {
        ++calls;
        if (onCall)
            onCall();
    }

    int calls = 0;
    std::function<void()> onCall;
};

int roundsUntilIdle(CTimerManager& manager) {
    int count = 0;
    while (manager.performWork())
        ++count;
    return count;
}

}  // namespace

TEST(CTimerManager, ASingleShotFiresOnceAndNotEarly) {
    CTimerManager manager(20);
    CCountingKernelTimer timer(manager);
    const auto begin = now();
    EXPECT_TRUE(timer.start(30, /*singleShot*/ true));
    while (!manager.performWork()) {
    }
    EXPECT_GE(now() - begin, 30 * kMs);
    EXPECT_EQ(1, timer.calls);
    EXPECT_FALSE(manager.performWork());
    EXPECT_EQ(1, timer.calls);
}

TEST(CTimerManager, APeriodicTimerFiresOncePerPeriodWithoutDrift) {
    CTimerManager manager(100);
    CCountingKernelTimer timer(manager);
    const auto begin = now();
    timer.start(10, /*singleShot*/ false);
    for (unsigned i = 1; i <= 10; ++i) {
        ASSERT_TRUE(manager.performWork());
        EXPECT_GE(now() - begin, i * 10 * kMs);
    }
    EXPECT_EQ(10, timer.calls);
    sleepMs(35);
    timer.stop();
    EXPECT_FALSE(manager.performWork());
    EXPECT_EQ(10, timer.calls) << "three pulses were stale";
}

TEST(CTimerManager, ExpiriesThatWereNotTakenInTimeAreMadeUpFor) {
    CTimerManager manager(1);
    CCountingKernelTimer timer(manager);
    timer.start(10, /*singleShot*/ false);
    sleepMs(45);
    EXPECT_GE(roundsUntilIdle(manager), 4);
}

TEST(CTimerManager, EachRoundTakesOnePulse) {
    CTimerManager manager(1);
    CCountingKernelTimer one(manager), other(manager);
    one.start(1, true);
    other.start(1, true);
    sleepMs(5);
    EXPECT_TRUE(manager.performWork());
    EXPECT_EQ(1, one.calls + other.calls);
    EXPECT_TRUE(manager.performWork());
    EXPECT_EQ(1, one.calls);
    EXPECT_EQ(1, other.calls);
    EXPECT_FALSE(manager.performWork());
}

TEST(CTimerManager, ATimerThatIsStoppedAfterItsPulseWasQueuedIsNotCalled) {
    CTimerManager manager(1);
    CCountingKernelTimer timer(manager);
    timer.start(1, true);
    sleepMs(3);
    timer.stop();
    timer.stop();
    EXPECT_FALSE(manager.performWork());
    EXPECT_EQ(0, timer.calls);
}

TEST(CTimerManager, ThePulseOfADestroyedTimerIsDropped) {
    CTimerManager manager(1);
    auto timer = std::make_unique<CCountingKernelTimer>(manager);
    CCountingKernelTimer other(manager);
    timer->start(1, true);
    sleepMs(3);
    timer.reset();
    EXPECT_FALSE(manager.performWork());
    EXPECT_EQ(0, other.calls);
}

TEST(CTimerManager, Kept_ARestartIsCalledForThePulseOfTheFormerStart) {
    CTimerManager manager(1);
    CCountingKernelTimer timer(manager);
    timer.start(1, true);
    sleepMs(3);
    const auto begin = now();
    timer.start(5000, true);
    EXPECT_TRUE(manager.performWork());
    EXPECT_LT(now() - begin, 5000 * kMs);
    EXPECT_EQ(1, timer.calls);
}

TEST(CTimerManager, Kept_ASingleShotTimerStaysActiveAfterItFired) {
    CTimerManager manager(1);
    CCountingKernelTimer timer(manager);
    timer.start(1, true);
    sleepMs(3);
    EXPECT_TRUE(manager.performWork());
    EXPECT_TRUE(timer.doStart(1, true));  // below start(), which would set the mark itself
    sleepMs(3);
    EXPECT_TRUE(manager.performWork());
    timer.stop();
    EXPECT_TRUE(timer.doStart(1, true));
    sleepMs(3);
    EXPECT_FALSE(manager.performWork()) << "not any more";
}

TEST(CTimerManager, Kept_ATimeOfZeroNeverComes) {
    CTimerManager manager(110);
    CCountingKernelTimer timer(manager);
    EXPECT_TRUE(timer.start(0, false));
    EXPECT_FALSE(manager.performWork());
    EXPECT_TRUE(timer.start(100, true));
    EXPECT_TRUE(timer.start(0, true)) << "it disarms, too";
    EXPECT_FALSE(manager.performWork());
    EXPECT_EQ(0, timer.calls);
}

TEST(CTimerManager, Kept_AStartWithATimeOfZeroIsCalledForThePulseOfTheFormerStart) {
    CTimerManager manager(1);
    CCountingKernelTimer timer(manager);
    timer.start(1, true);
    sleepMs(3);
    EXPECT_TRUE(timer.start(0, true));
    EXPECT_TRUE(manager.performWork()) << "it is active, though the kernel timer is not";
    EXPECT_EQ(1, timer.calls);
    EXPECT_FALSE(manager.performWork());
}

TEST(CTimerManager, TimesOfMoreThanFourSecondsAreNotCut) {
    CTimerManager manager(10);
    CCountingKernelTimer timer(manager);
    timer.start(4296, false);  // 2^32 ns and 1 ms
    EXPECT_FALSE(manager.performWork());
    timer.start(0xffffffff, false);
    EXPECT_FALSE(manager.performWork());
}

TEST(CTimerManager, ARoundWithoutAPulseEndsAfterItsTimeOut) {
    for (const int timeoutMs : {50, 0}) {
        CTimerManager manager(timeoutMs);
        const auto begin = now();
        EXPECT_FALSE(manager.performWork());
        EXPECT_GE(now() - begin, (timeoutMs == 0 ? 1u : 50u) * kMs);
    }
}

TEST(CTimerManager, SignalsEndRoundsEarlyAndLoseNoExpiry) {
    CTimerManager manager(1000);
    CCountingKernelTimer timer(manager);
    const auto begin = now();
    timer.start(5, false);
    int called = 0;
    int idle = 0;
    {
        const SignalStorm storm([](int) {});
        while (called < 10) {
            if (manager.performWork())
                ++called;
            else
                ++idle;
        }
    }
    EXPECT_GE(now() - begin, 50 * kMs);
    EXPECT_EQ(10, timer.calls);
    EXPECT_GT(idle, 0) << "interrupted rounds";
}

TEST(CTimerManager, ANegativeTimeOutWaitsForAPulse) {
    CTimerManager manager(-5);
    CCountingKernelTimer timer(manager);
    timer.start(20, true);
    EXPECT_TRUE(manager.performWork());
}

TEST(CTimerManager, HandlersMayStartStopMakeAndDestroyTimers) {
    CTimerManager manager(50);
    auto own = std::make_unique<CCountingKernelTimer>(manager);
    auto other = std::make_unique<CCountingKernelTimer>(manager);
    std::unique_ptr<CCountingKernelTimer> made;
    own->onCall = [&] {
        other.reset();
        made = std::make_unique<CCountingKernelTimer>(manager);
        made->start(1, true);
        made->onCall = [&] { made->start(1, true); };
        const auto keepAlive = own->onCall;
        own.reset();
    };
    other->start(10000, true);
    own->start(1, true);
    EXPECT_TRUE(manager.performWork());
    EXPECT_EQ(nullptr, own);
    EXPECT_TRUE(manager.performWork());
    EXPECT_TRUE(manager.performWork());
    EXPECT_EQ(2, made->calls);
}

TEST(CTimerManager, ManyTimersFireEachInItsTurn) {
    constexpr int kTimers = 200;
    CTimerManager manager(50);
    std::vector<std::unique_ptr<CCountingKernelTimer>> timers;
    std::vector<int> order;
    for (int i = 0; i < kTimers; ++i) {
        timers.push_back(std::make_unique<CCountingKernelTimer>(manager));
        timers.back()->onCall = [&order, i] { order.push_back(i); };
    }
    for (int i = 0; i < kTimers; ++i)
        timers[static_cast<std::size_t>(i * 7 % kTimers)]->start(static_cast<unsigned>(1 + i / 20), true);
    while (order.size() < kTimers)
        manager.performWork();
    for (int i = 0; i < kTimers; ++i)
        EXPECT_EQ(i * 7 % kTimers, order[static_cast<std::size_t>(i)]);
}

TEST(CTimerManager, AManagerThatIsDestroyedBeforeItsTimersIsAnAssertionAndLetsThemGo) {
    support::AssertionLog log;
    auto manager = std::make_unique<CTimerManager>(1);
    CCountingKernelTimer idle(*manager), running(*manager);
    running.start(1, false);
    manager.reset();
    const std::string what = "ASSERTION \"Cannot delete timer manager since timers are still available\" failed";
    EXPECT_EQ(std::vector<std::string>({"CTimerManagerQNX:66: " + what, what + " in CTimerManagerQNX 66"}),
              log.takeSites());
    EXPECT_FALSE(idle.start(1, true));
    running.stop();
}

TEST(CTimerManager, ATimerThatIsNotRegisteredCannotBeUnregisteredNorARegisteredOneRegistered) {
    for (const bool isTwice : {false, true}) {
        support::SlogCapture log;
        const auto result = support::runInChild([isTwice] {
            CTimerManager manager(1), other(1);
            CCountingKernelTimer timer(manager);
            if (isTwice)
                manager.registerTimer(timer);
            else
                other.unregisterTimer(timer);
        });
        EXPECT_TRUE(result.exitedWith(EXIT_FAILURE)) << result;
        const auto texts = log.texts();
        ASSERT_FALSE(texts.empty());
        EXPECT_EQ("pid " + std::to_string(result.pid) + ": invalid iterator position", texts[0]);
    }
}

TEST(CTimerManager, AManagerWithTimersIsAnAssertionThatMayAbort) {
    const auto end = [] {
        auto manager = std::make_unique<CTimerManager>(1);
        CCountingKernelTimer timer(*manager);
        timer.start(1, false);
        manager.reset();
    };
    support::ChildOptions options;
    options.environment = {{"VQ_ENABLE_ABORT_ON_ASSERTION", ""}};
    auto result = support::runInChild(end, options);
    EXPECT_TRUE(result.killedBy(SIGABRT)) << result;
    EXPECT_EQ("\nCTimerManagerQNX:66: ASSERTION \"Cannot delete timer manager since timers are still available\" "
              "failed\n",
              result.err);
    options.environment = {{"VQ_ENABLE_ABORT_ON_ASSERTION", std::nullopt}, {"VQ_ASSERTION_BACKTRACE_MAX", "-1"}};
    result = support::runInChild(end, options);
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(CTimerManager, ATimerWithoutItsKernelTimerEndsTheProcess) {
    const auto dying = [](const std::function<void(CTimerManager&, CCountingKernelTimer&)>& body) {
        return support::runInChild([&] {
            CTimerManager manager(1);
            CCountingKernelTimer timer(manager);
            timer.start(5, true);
            for (int id = 0; id < 16; ++id)
                TimerDestroy(id);
            body(manager, timer);
        });
    };
    auto result = dying([](CTimerManager&, CCountingKernelTimer& timer) { timer.doStart(1, true); });
    EXPECT_TRUE(result.killedBy(SIGABRT)) << "Cannot start timer: " << result;
    result = dying([](CTimerManager&, CCountingKernelTimer& timer) { timer.stop(); });
    EXPECT_TRUE(result.killedBy(SIGABRT)) << "Cannot stop timer: " << result;
}

TEST(CTimerManager, AForkedChildCannotUseItsParentsManager) {
    CTimerManager manager(1);
    support::SlogCapture log;
    const auto result = support::runInChild([&] { manager.performWork(); });
    EXPECT_TRUE(result.killedBy(SIGABRT)) << result;
    ASSERT_EQ(1u, log.records().size());
    EXPECT_EQ("pid " + std::to_string(result.pid) + ": MsgReceivePulse failed - aborting process",
              log.records()[0].text);
    EXPECT_FALSE(manager.performWork());
}

TEST(CTimerManager, SlotsAndTypesAreTheInterfaces) {
    EXPECT_EQ(2, support::slotOf(&CTimer::onTimeout));
    CTimerManager manager(1);
    CCountingKernelTimer timer(manager);
    CTimerBase& base = timer;
    EXPECT_EQ(typeid(CCountingKernelTimer), typeid(base));
    EXPECT_EQ(&timer, dynamic_cast<CCountingKernelTimer*>(&base));
}
