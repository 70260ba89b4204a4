// What one would pick instead of the library's timers.
#include "CLogicalTimerManager_workload.h"

#include <limits>
#include <sys/timerfd.h>
#include <unistd.h>

#if BENCH_LIBUV
#include <uv.h>
#endif

namespace {

#if BENCH_LIBUV
/// With `isExact` a start counts from when it is made, as ours does; otherwise from when the loop last looked.
template <bool isExact>
class UvTimers {
public:
    explicit UvTimers(std::size_t count) : mTimers(count) {
        uv_loop_init(&mLoop);
        for (uv_timer_t& timer : mTimers) {
            uv_timer_init(&mLoop, &timer);
            timer.data = this;
        }
    }
    ~UvTimers() {
        for (uv_timer_t& timer : mTimers)
            uv_close(reinterpret_cast<uv_handle_t*>(&timer), nullptr);
        uv_run(&mLoop, UV_RUN_DEFAULT);
        uv_loop_close(&mLoop);
    }
    UvTimers(const UvTimers&) = delete;
    UvTimers& operator=(const UvTimers&) = delete;

    void start(std::size_t i, unsigned ms) {
        if (isExact)
            uv_update_time(&mLoop);
        uv_timer_start(
            &mTimers[i], [](uv_timer_t* timer) { ++static_cast<UvTimers*>(timer->data)->fired; }, ms, 0);
    }
    void stop(std::size_t i) { uv_timer_stop(&mTimers[i]); }
    void update() {
        if (!isExact)
            uv_update_time(&mLoop);
    }
    void run() { uv_run(&mLoop, UV_RUN_ONCE); }
    void fire() { uv_run(&mLoop, UV_RUN_NOWAIT); }

    std::size_t fired = 0;

private:
    uv_loop_t mLoop;
    std::vector<uv_timer_t> mTimers;
};

MARLIX_BENCH("CLogicalTimer_StartStop", "libuv", 100, 10000) {
    bench::startAndStop<UvTimers<false>>(state);
}
MARLIX_BENCH("CLogicalTimer_StartStop", "libuv, exact starts", 100, 10000) {
    bench::startAndStop<UvTimers<true>>(state);
}
MARLIX_BENCH_MANUAL("CLogicalTimer_StartStopFire", "libuv", 100, 10000) {
    bench::startStopAndFire<UvTimers<false>>(state);
}
MARLIX_BENCH_MANUAL("CLogicalTimer_StartStopFire", "libuv, exact starts", 100, 10000) {
    bench::startStopAndFire<UvTimers<true>>(state);
}
MARLIX_BENCH_FEW("CLogicalTimer_StartStopFireAwake", "libuv", 100, 10000) {
    bench::startStopAndFireAwake<UvTimers<false>>(state);
}
MARLIX_BENCH_FEW("CLogicalTimer_StartStopFireAwake", "libuv, exact starts", 100, 10000) {
    bench::startStopAndFireAwake<UvTimers<true>>(state);
}
MARLIX_BENCH_MANUAL("CLogicalTimer_FireAll", "libuv", 100, 10000) {
    bench::fireAll<UvTimers<false>>(state);
}
MARLIX_BENCH_MANUAL("CLogicalTimer_Distance", "libuv", 100) {
    bench::meanDistance<UvTimers<false>>(state);
}
#endif

/// Nothing but the sleeps that timers need which fire when they are due.
class Sleeps {
public:
    explicit Sleeps(std::size_t count) : mDue(count, kNever) {}

    void start(std::size_t i, unsigned ms) { mDue[i] = bench::monotonicNow() + ms * 1000000LL; }
    void stop(std::size_t i) { mDue[i] = kNever; }
    void update() {}
    void run() {
        const long long first = *std::min_element(mDue.begin(), mDue.end());
        const timespec until = {static_cast<time_t>(first / 1000000000), static_cast<long>(first % 1000000000)};
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
        const long long now = bench::monotonicNow();
        for (long long& due : mDue)
            if (due <= now) {
                due = kNever;
                ++fired;
            }
    }

    std::size_t fired = 0;

private:
    static constexpr long long kNever = std::numeric_limits<long long>::max();
    std::vector<long long> mDue;
};
MARLIX_BENCH_MANUAL("CLogicalTimer_StartStopFire", "floor: a sleep for each due time", 100) {
    bench::startStopAndFire<Sleeps>(state);
}
MARLIX_BENCH_MANUAL("CLogicalTimer_Distance", "floor: a sleep for each due time", 100) {
    bench::meanDistance<Sleeps>(state);
}

void lateness(benchmark::State& state, long long allowanceNs) {
    const int descriptor = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    bench::lateness(state, allowanceNs, [&](long long due) {
        const itimerspec setting = {{0, 0},
                                    {static_cast<time_t>(due / 1000000000), static_cast<long>(due % 1000000000)}};
        timerfd_settime(descriptor, TFD_TIMER_ABSTIME, &setting, nullptr);
        unsigned long long expiries = 0;
        bench::check(read(descriptor, &expiries, sizeof expiries) == sizeof expiries, "an expiry");
    });
    close(descriptor);
}
MARLIX_BENCH_MANUAL("CTimer_Lateness", "floor: timerfd", 1) {
    lateness(state, 0);
}
MARLIX_BENCH_MANUAL("CTimer_Lateness", "timerfd + 10 us", 1) {
    lateness(state, 10000);
}

}  // namespace
