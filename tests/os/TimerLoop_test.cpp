// Both timer managers under load, and counts that add up: ten thousand logical timers that other threads start and stop,
// and kernel timers whose every expiry is a call. The test lasts a second; TIMER_LOOP_SECONDS makes it last longer.
#include <CLogicalTimerManager.h>
#include <CTimerManager.h>

#include "OnTheClock.h"

#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <iostream>
#include <memory>
#include <random>
#include <thread>
#include <vector>

namespace {

unsigned long long lengthOfLoop() {
    const char* const seconds = std::getenv("TIMER_LOOP_SECONDS");
    return (seconds != nullptr ? std::strtoull(seconds, nullptr, 10) : 1) * 1000 * kMs;
}

class CLogical : public CLogicalTimer {
public:
    using CLogicalTimer::CLogicalTimer;
    void onTimeout() override { ++calls; }

    std::atomic<unsigned long> calls{0};
};

/// What one thread knows of a timer that it alone starts and stops.
struct SLedger {
    std::unique_ptr<CLogical> timer;
    unsigned long callsAtStart = 0;
    unsigned long long startedAt = 0;  // a moment before; 0: it is stopped
    unsigned ms = 0;
    bool singleShot = true;
};

class COwner {
public:
    COwner(CLogicalTimerManager& manager, std::size_t timers, unsigned seed) : mLedgers(timers), mRandom(seed) {
        for (SLedger& ledger : mLedgers)
            ledger.timer = std::make_unique<CLogical>(manager);
    }

    void step() {
        SLedger& ledger = mLedgers[mRandom() % mLedgers.size()];
        stop(ledger);
        if (mRandom() % 4 != 0)
            start(ledger, 1 + mRandom() % 200, mRandom() % 8 != 0);
    }

    void stopAll() {
        for (SLedger& ledger : mLedgers)
            stop(ledger);
    }

    /// Each single-shot timer fires once more.
    void startAll() {
        for (SLedger& ledger : mLedgers)
            start(ledger, 1 + mRandom() % 50, /*singleShot*/ true);
    }
    unsigned long countNotFired() const {
        unsigned long count = 0;
        for (const SLedger& ledger : mLedgers)
            count += ledger.timer->calls == ledger.callsAtStart ? 1 : 0;
        return count;
    }

    unsigned long starts = 0, stops = 0, calls = 0, early = 0, twice = 0;

private:
    void start(SLedger& ledger, unsigned ms, bool singleShot) {
        ledger.callsAtStart = ledger.timer->calls;
        ledger.startedAt = now();
        ledger.ms = ms;
        ledger.singleShot = singleShot;
        ledger.timer->start(ms, singleShot);
        ++starts;
    }

    void stop(SLedger& ledger) {
        if (ledger.startedAt == 0)
            return;
        ledger.timer->stop();
        ++stops;
        // Handlers run under the manager's lock, so no call comes after.
        const unsigned long fired = ledger.timer->calls - ledger.callsAtStart;
        const unsigned long long periods = (now() - ledger.startedAt) / (ledger.ms * kMs);
        calls += fired;
        early += fired > periods ? 1 : 0;
        twice += ledger.singleShot && fired > 1 ? 1 : 0;
        ledger.startedAt = 0;
    }

    std::vector<SLedger> mLedgers;
    std::mt19937 mRandom;
};

class CPeriodic : public CTimer {
public:
    using CTimer::CTimer;
    void onTimeout() override { ++calls; }

    unsigned long long calls = 0;
};

}  // namespace

TEST(TimerLoop, LogicalTimersFireOnceForEachStartAndNeverEarly) {
    constexpr std::size_t kTimers = 10000, kThreads = 3;
    CLogicalTimerManager manager(20, /*threadSafe*/ true);
    std::vector<std::unique_ptr<COwner>> owners;
    for (unsigned i = 0; i < kThreads; ++i)
        owners.push_back(std::make_unique<COwner>(manager, kTimers / kThreads, i));
    std::atomic<std::size_t> running{kThreads};
    const unsigned long long end = now() + lengthOfLoop();
    std::vector<std::thread> threads;
    for (const auto& owner : owners)
        threads.emplace_back([&] {
            while (now() < end) {
                for (int i = 0; i < 20; ++i)
                    owner->step();
                std::this_thread::sleep_for(std::chrono::microseconds(100));
            }
            --running;
        });
    unsigned long rounds = 0, called = 0;
    const auto work = [&] {
        ++rounds;
        called += static_cast<unsigned long>(manager.performWork());
    };
    while (running != 0)
        work();
    for (std::thread& thread : threads)
        thread.join();
    for (const auto& owner : owners)
        owner->stopAll();
    work();

    unsigned long starts = 0, stops = 0, calls = 0;
    for (const auto& owner : owners) {
        EXPECT_EQ(0u, owner->early);
        EXPECT_EQ(0u, owner->twice);
        starts += owner->starts;
        stops += owner->stops;
        calls += owner->calls;
        owner->startAll();
    }
    std::cout << starts << " starts, " << stops << " stops, " << rounds << " rounds, " << called << " calls\n";
    EXPECT_EQ(starts, stops);
    EXPECT_EQ(called, calls);
    const unsigned long long deadline = now() + 20000 * kMs;
    const auto left = [&] {
        return owners[0]->countNotFired() + owners[1]->countNotFired() + owners[2]->countNotFired();
    };
    while (left() != 0 && now() < deadline)
        work();
    EXPECT_EQ(0u, left());
    EXPECT_EQ(0, manager.performWork());
    EXPECT_EQ(calls + kTimers / kThreads * kThreads, called);
}

TEST(TimerLoop, KernelTimersLoseNoExpiry) {
    constexpr unsigned kTimers = 50;
    CTimerManager manager(10);
    std::vector<std::unique_ptr<CPeriodic>> timers;
    std::vector<unsigned long long> before, after;  // the moments around each start
    for (unsigned i = 0; i < kTimers; ++i) {
        timers.push_back(std::make_unique<CPeriodic>(manager));
        before.push_back(now());
        timers.back()->start(1 + i, /*singleShot*/ false);
        after.push_back(now());
    }
    const unsigned long long end = now() + lengthOfLoop();
    unsigned long long rounds = 0, called = 0;
    const auto work = [&] {
        ++rounds;
        const bool isCalled = manager.performWork();
        called += isCalled ? 1 : 0;
        return isCalled;
    };
    while (now() < end)
        work();
    // All that expired up to here is made up for, though more may.
    const unsigned long long last = now();
    for (unsigned i = 0; i < kTimers; ++i) {
        const unsigned long long periodNs = (1 + i) * kMs;
        while (timers[i]->calls < (last - after[i]) / periodNs && work()) {
        }
        EXPECT_GE(timers[i]->calls, (last - after[i]) / periodNs);
        EXPECT_LE(timers[i]->calls, (now() - before[i]) / periodNs);
    }
    unsigned long long sum = 0;
    for (const auto& timer : timers)
        sum += timer->calls;
    std::cout << rounds << " rounds, " << called << " calls\n";
    EXPECT_EQ(called, sum);
}
