// Logical timers, and the lateness of timers, beside those in CLogicalTimerManager_peers.cpp.
#include "CLogicalTimerManager_workload.h"

#include <CLogicalTimerManager.h>
#include <CTimerManager.h>

namespace {

template <bool threadSafe>
class Timers {
public:
    explicit Timers(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i)
            mTimers.push_back(std::make_unique<CTimer>(mManager, fired));
    }

    void start(std::size_t i, unsigned ms) { mTimers[i]->start(ms, /*singleShot*/ true); }
    void stop(std::size_t i) { mTimers[i]->stop(); }
    void update() {}
    void run() { mManager.performWork(); }
    void fire() { mManager.performWork(); }

    std::size_t fired = 0;

private:
    class CTimer : public CLogicalTimer {
    public:
        CTimer(CLogicalTimerManager& manager, std::size_t& fired) : CLogicalTimer(manager), mFired(fired) {}
        void onTimeout() override { ++mFired; }

    private:
        std::size_t& mFired;
    };

    CLogicalTimerManager mManager{10000, threadSafe};
    std::vector<std::unique_ptr<CTimer>> mTimers;
};

MARLIX_BENCH("CLogicalTimer_StartStop", "ours", 100, 10000) {
    bench::startAndStop<Timers<false>>(state);
}
MARLIX_BENCH("CLogicalTimer_StartStop", "ours, thread-safe", 100, 10000) {
    bench::startAndStop<Timers<true>>(state);
}
MARLIX_BENCH_MANUAL("CLogicalTimer_StartStopFire", "ours", 100, 10000) {
    bench::startStopAndFire<Timers<false>>(state);
}
MARLIX_BENCH_MANUAL("CLogicalTimer_StartStopFire", "ours, thread-safe", 100, 10000) {
    bench::startStopAndFire<Timers<true>>(state);
}
MARLIX_BENCH_FEW("CLogicalTimer_StartStopFireAwake", "ours", 100, 10000) {
    bench::startStopAndFireAwake<Timers<false>>(state);
}
MARLIX_BENCH_MANUAL("CLogicalTimer_FireAll", "ours", 100, 10000) {
    bench::fireAll<Timers<false>>(state);
}

MARLIX_BENCH_MANUAL("CLogicalTimer_Distance", "ours", 100) {
    bench::meanDistance<Timers<false>>(state);
}

class COnce : public CTimer {
public:
    using CTimer::CTimer;
    void onTimeout() override {}
};

MARLIX_BENCH_MANUAL("CTimer_Lateness", "ours", 1) {
    CTimerManager manager(10000);
    COnce timer(manager);
    bench::lateness(state, 0, [&](long long) {
        timer.start(1, /*singleShot*/ true);
        while (!manager.performWork()) {
        }
    });
}

}  // namespace
