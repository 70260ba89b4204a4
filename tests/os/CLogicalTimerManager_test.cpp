// CLogicalTimerManager and CLogicalTimer on the real clock: lateness, threads, signals, ends of processes.
// CLogicalTimerOrder_test.cpp has the rounds' rules.
#include <CLogicalTimerManager.h>

#include "OnTheClock.h"

#include "host/SignalStorm.h"
#include "support/AssertionLog.h"
#include "support/ChildProcess.h"
#include "support/Sanitizers.h"
#include "support/VirtualSlot.h"

#include <VQError.h>
#include <VQOperatingSystem.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <random>
#include <sys/neutrino.h>
#include <thread>
#include <typeinfo>
#include <vector>

namespace {

class CCountingLogicalTimer : public CLogicalTimer {
public:
    using CLogicalTimer::CLogicalTimer;

    void onTimeout() override {
        ++calls;
        if (onCall)
            onCall();
    }

    std::atomic<int> calls{0};
    std::function<void()> onCall;
};

}  // namespace

TEST(CLogicalTimerManager, ASingleShotFiresOnceAndNotEarly) {
    CLogicalTimerManager manager(20, /*threadSafe*/ false);
    CCountingLogicalTimer timer(manager);
    const auto begin = now();
    EXPECT_TRUE(timer.start(30, /*singleShot*/ true));
    int count = 0;
    while (count == 0)
        count = manager.performWork();
    EXPECT_GE(now() - begin, 30 * kMs);
    EXPECT_EQ(1, count);
    EXPECT_EQ(1, timer.calls);
    EXPECT_EQ(0, manager.performWork());
}

TEST(CLogicalTimerManager, APeriodicTimerThatWasKeptWaitingCatchesUpByOneCallARound) {
    CLogicalTimerManager manager(1, false);
    CCountingLogicalTimer timer(manager);
    const auto begin = now();
    timer.start(20, /*singleShot*/ false);
    sleepMs(70);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(1, manager.performWork());
    for (unsigned i = 4; i <= 6; ++i) {
        while (manager.performWork() == 0) {
        }
        EXPECT_GE(now() - begin, i * 20 * kMs);
    }
}

TEST(CLogicalTimerManager, EqualStartsFireInTheirOrder) {
    CLogicalTimerManager manager(50, false);
    std::vector<int> order;
    CCountingLogicalTimer one(manager), two(manager), three(manager);
    one.onCall = [&] { order.push_back(1); };
    two.onCall = [&] { order.push_back(2); };
    three.onCall = [&] { order.push_back(3); };
    two.start(5, true);
    one.start(5, true);
    three.start(5, true);
    int count = 0;
    while (count < 3)
        count += manager.performWork();
    EXPECT_EQ(std::vector<int>({2, 1, 3}), order);
}

TEST(CLogicalTimerManager, ARoundWithoutATimerEndsAfterItsTimeOut) {
    for (const int timeoutMs : {30, 0}) {
        CLogicalTimerManager manager(timeoutMs, true);
        CCountingLogicalTimer timer(manager);
        timer.start(3600000, true);
        const auto begin = now();
        EXPECT_EQ(0, manager.performWork());
        EXPECT_GE(now() - begin, (timeoutMs == 0 ? 1u : 30u) * kMs);
        timer.stop();
    }
}

TEST(CLogicalTimerManager, StartsByOtherThreadsWakeTheRound) {
    CLogicalTimerManager manager(20000, true);
    CCountingLogicalTimer timer(manager);
    for (int i = 0; i < 20; ++i) {
        std::thread other([&] {
            sleepMs(i % 3);
            timer.start(1, true);
        });
        EXPECT_EQ(1, manager.performWork());
        other.join();
    }
    EXPECT_EQ(20, timer.calls);
}

TEST(CLogicalTimerManager, AStopByAnotherThreadIsObeyed) {
    CLogicalTimerManager manager(30, true);
    CCountingLogicalTimer timer(manager);
    timer.start(10, false);
    std::thread other([&] { timer.stop(); });
    other.join();
    EXPECT_EQ(0, manager.performWork());
    EXPECT_EQ(0, timer.calls);
}

TEST(CLogicalTimerManager, HandlersOfAThreadSafeManagerRunUnderItsLock) {
    CLogicalTimerManager manager(20000, true);
    CCountingLogicalTimer timer(manager), other(manager);
    std::atomic<bool> isRunning{false}, hasStarted{false};
    std::thread starter([&] {
        while (!isRunning) {
        }
        other.start(1, true);
        hasStarted = true;
    });
    timer.onCall = [&] {
        isRunning = true;
        sleepMs(20);
        EXPECT_FALSE(hasStarted);
    };
    timer.start(1, true);
    EXPECT_EQ(1, manager.performWork());
    starter.join();
    EXPECT_EQ(1, manager.performWork());
    EXPECT_EQ(1, other.calls);
}

TEST(CLogicalTimerManager, AStopByAnotherThreadReturnsAfterTheHandler) {
    CLogicalTimerManager manager(20000, true);
    CCountingLogicalTimer timer(manager);
    std::atomic<bool> isRunning{false}, hasStopped{false};
    std::thread stopper([&] {
        while (!isRunning) {
        }
        timer.stop();
        hasStopped = true;
    });
    timer.onCall = [&] {
        isRunning = true;
        sleepMs(20);
        EXPECT_FALSE(hasStopped);
    };
    timer.start(1, false);
    EXPECT_EQ(1, manager.performWork());
    stopper.join();
    EXPECT_EQ(1, timer.calls);
}

TEST(CLogicalTimerManager, TenThousandTimersAreStartedAndStoppedByOtherThreadsAndTheCountsAddUp) {
    constexpr std::size_t kTimers = 10000;
    constexpr unsigned kThreads = 3;
    const int kStarts = support::roundsHere(20000);
    CLogicalTimerManager manager(1, true);
    std::vector<std::unique_ptr<CCountingLogicalTimer>> timers;
    for (std::size_t i = 0; i < kTimers; ++i)
        timers.push_back(std::make_unique<CCountingLogicalTimer>(manager));
    std::atomic<unsigned> running{kThreads};
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            std::mt19937 random(t);
            for (int i = 0; i < kStarts; ++i) {
                CCountingLogicalTimer& timer = *timers[random() % kTimers];
                if (random() % 4 == 0)
                    timer.stop();
                else
                    timer.start(1 + random() % 50, random() % 8 != 0);
            }
            --running;
        });
    int count = 0;
    while (running != 0)
        count += manager.performWork();
    for (std::thread& thread : threads)
        thread.join();
    for (const auto& timer : timers)
        timer->stop();
    EXPECT_EQ(0, manager.performWork() + manager.performWork());

    // Each is due once more, whatever it went through.
    int sum = 0;
    for (const auto& timer : timers)
        sum += timer->calls;
    EXPECT_EQ(count, sum);
    for (const auto& timer : timers) {
        timer->calls = 0;
        timer->start(1 + static_cast<unsigned>(sum++ % 20), true);
    }
    for (std::size_t left = kTimers; left > 0;)
        left -= static_cast<std::size_t>(manager.performWork());
    for (const auto& timer : timers)
        EXPECT_EQ(1, timer->calls);
}

TEST(CLogicalTimerManager, SignalsInterruptRoundsAndLoseNothing) {
    CLogicalTimerManager manager(50, false);
    std::vector<std::unique_ptr<CCountingLogicalTimer>> timers;
    const auto begin = now();
    for (unsigned i = 0; i < 10; ++i) {
        timers.push_back(std::make_unique<CCountingLogicalTimer>(manager));
        timers.back()->start(3 + i, false);
    }
    int count = 0;
    int idle = 0;
    {
        const SignalStorm storm([](int) {});
        while (now() - begin < 200 * kMs) {
            const int called = manager.performWork();
            count += called;
            idle += called == 0 ? 1 : 0;
        }
    }
    EXPECT_GT(idle, 0) << "interrupted rounds";
    for (const auto& timer : timers)
        timer->stop();
    int sum = 0;
    const auto passed = now() - begin;
    for (unsigned i = 0; i < 10; ++i) {
        const int calls = timers[i]->calls;
        sum += calls;
        EXPECT_LE(static_cast<unsigned>(calls), passed / ((3 + i) * kMs));
        EXPECT_GE(calls, 5);
    }
    EXPECT_EQ(count, sum);
}

TEST(CLogicalTimerManager, ManyManagersDoNotMeet) {
    CLogicalTimerManager one(20, false), other(1, false);
    CCountingLogicalTimer timer(one), otherTimer(other);
    timer.start(2, true);
    EXPECT_EQ(0, other.performWork());
    EXPECT_EQ(0, other.performWork());
    EXPECT_EQ(1, one.performWork());
}

TEST(CLogicalTimerManager, ATimerStopsWhenItIsDestroyed) {
    CLogicalTimerManager manager(5, true);
    {
        CCountingLogicalTimer timer(manager);
        timer.start(1, false);
    }
    sleepMs(3);
    EXPECT_EQ(0, manager.performWork());
}

TEST(CLogicalTimerManager, AManagerWithTimersIsAnAssertionThatMayAbort) {
    const auto end = [] {
        auto manager = std::make_unique<CLogicalTimerManager>(1, true);
        CCountingLogicalTimer timer(*manager);
        timer.start(1, false);
        manager.reset();
    };
    support::ChildOptions options;
    options.environment = {{"VQ_ENABLE_ABORT_ON_ASSERTION", ""}};
    auto result = support::runInChild(end, options);
    EXPECT_TRUE(result.killedBy(SIGABRT)) << result;
    EXPECT_EQ("\nCLogicalTimerManager:85: ASSERTION \"Cannot delete timer manager since timers are still active\" "
              "failed\n",
              result.err);
    options.environment = {{"VQ_ENABLE_ABORT_ON_ASSERTION", std::nullopt}, {"VQ_ASSERTION_BACKTRACE_MAX", "-1"}};
    result = support::runInChild(end, options);
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(CLogicalTimerManager, AForkedChildCannotUseItsParentsManager) {
    CLogicalTimerManager manager(1, false);
    CCountingLogicalTimer timer(manager);
    support::SlogCapture log;
    const auto result = support::runInChild([&] { manager.performWork(); });
    EXPECT_TRUE(result.killedBy(SIGABRT)) << result;
    ASSERT_EQ(1u, log.records().size());
    EXPECT_EQ("pid " + std::to_string(result.pid) + ": MsgReceivePulse failed - aborting process",
              log.records()[0].text);
    timer.start(1, true);
    sleepMs(2);
    EXPECT_EQ(1, manager.performWork());
}

TEST(CLogicalTimerManager, HandlersMayEndTheProcess) {
    for (const bool isFatal : {false, true}) {
        const auto result = support::runInChild([&] {
            CLogicalTimerManager manager(50, true);
            CCountingLogicalTimer timer(manager), other(manager);
            other.start(1000, false);
            timer.onCall = [&] {
                if (isFatal)
                    VQError::fatalError(0, "in a handler");
                VQError::criticalError(0, "in a handler");
            };
            timer.start(1, true);
            manager.performWork();
        });
        if (isFatal)
            EXPECT_TRUE(result.killedBy(SIGABRT)) << result;
        else
            EXPECT_TRUE(result.exitedWith(EXIT_FAILURE)) << result;
    }
}

TEST(CLogicalTimerManager, AManagerMayLiveInStaticMemoryUntilTheProcessEnds) {
    const auto result = support::runInChild([] {
        static CLogicalTimerManager manager(50, true);
        static CCountingLogicalTimer timer(manager);
        timer.start(1, false);
        EXPECT_EQ(1, manager.performWork());
        std::exit(3);
    });
    EXPECT_TRUE(result.exitedWith(3)) << result;
    EXPECT_EQ("", result.err);
}

TEST(CLogicalTimerManager, AThreadThatIsDestroyedInItsRoundLeavesTheProcessAlive) {
    NEEDS_THREADS_THAT_VANISH();
    CLogicalTimerManager manager(60000, false);
    const int tid = ThreadCreate(
        0,
        [](void* driven) -> void* {
            static_cast<CLogicalTimerManager*>(driven)->performWork();
            return nullptr;
        },
        &manager, nullptr);
    ASSERT_GT(tid, 0);
    sleepMs(5);
    EXPECT_NE(-1, ThreadDestroy(tid, -1, nullptr));
    EXPECT_EQ(EOK, ThreadJoin_r(tid, nullptr));
    CCountingLogicalTimer timer(manager);
    timer.start(1, true);
    EXPECT_EQ(1, manager.performWork());
}

TEST(CLogicalTimerManager, SlotsAndTypesAreTheInterfaces) {
    EXPECT_EQ(2, support::slotOf(&CLogicalTimer::onTimeout));
    CLogicalTimerManager manager(1, false);
    CCountingLogicalTimer timer(manager);
    CLogicalTimer& base = timer;
    EXPECT_EQ(typeid(CCountingLogicalTimer), typeid(base));
    EXPECT_EQ(&timer, dynamic_cast<CCountingLogicalTimer*>(&base));
}
