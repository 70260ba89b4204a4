// Work that many timers of one thread do. `Timers` is made with a number of timers and has start(i, milliseconds)
// and stop(i) for single shots, update(), which tells a library that keeps the time what it is, and run(), which
// waits until some are due and fires them: how many. Each counts what it fired in `fired`.
#pragma once

#include "Bench.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <map>
#include <memory>
#include <random>
#include <vector>

namespace bench {

inline double threadSeconds() {
    timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// Nanoseconds of the monotonic clock.
inline long long monotonicNow() {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * 1000000000LL + time.tv_nsec;
}

/// The same numbers for all contenders.
inline std::vector<unsigned> randomNumbers(std::size_t count, unsigned below, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<unsigned> numbers(count);
    for (unsigned& number : numbers)
        number = random() % below;
    return numbers;
}

/// As many timers as the benchmark's size are running, and one after the other, at random, is stopped and started.
template <class Timers>
void startAndStop(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    const auto which = randomNumbers(4096, static_cast<unsigned>(count), 1);
    const auto times = randomNumbers(4096, 1000000, 2);
    Timers timers(count);
    for (std::size_t i = 0; i < count; ++i)
        timers.start(i, 3600000 + times[i % 4096]);
    std::size_t next = 0;
    for (auto _ : state) {
        const std::size_t i = next++ % 4096;
        timers.stop(which[i]);
        timers.start(which[i], 3600000 + times[i]);
    }
    check(timers.fired == 0, "no timer is due");
}

/// The timers are started at random times of up to 20 ms, and every third is stopped again: how many are left.
template <class Timers>
std::size_t startSome(Timers& timers, const std::vector<unsigned>& times) {
    timers.fired = 0;
    timers.update();
    for (std::size_t i = 0; i < times.size(); ++i)
        timers.start(i, 1 + times[i]);
    for (std::size_t i = 0; i < times.size(); i += 3)
        timers.stop(i);
    return times.size() - (times.size() + 2) / 3;
}

/// Some timers are started, some of them stopped, and the others fire, while the thread sleeps in between. Reports the
/// processor time for one of them, which is that of the sleeps for the most part.
template <class Timers>
void startStopAndFire(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    const auto times = randomNumbers(count, 20, 3);
    Timers timers(count);
    for (auto _ : state) {
        const double begin = threadSeconds();
        const std::size_t left = startSome(timers, times);
        while (timers.fired < left)
            timers.run();
        state.SetIterationTime((threadSeconds() - begin) / static_cast<double>(count));
        check(timers.fired == left, "each timer that was not stopped fired once");
    }
}

/// The same without the sleeps: the thread stays awake until some timers are due for half a millisecond, which is not
/// counted, and then has them fired. Reports the time for one of them, the middle one of some rounds, so that the
/// moments in which another process had the processor do not count.
template <class Timers>
void startStopAndFireAwake(benchmark::State& state) {
    constexpr std::size_t kRounds = 21;
    const auto count = static_cast<std::size_t>(state.range(0));
    const auto times = randomNumbers(count, 20, 3);
    std::map<unsigned, std::size_t> due;
    for (std::size_t i = 0; i < count; ++i)
        if (i % 3 != 0)
            ++due[1 + times[i]];
    Timers timers(count);
    const auto round = [&] {
        const long long begin = monotonicNow();
        const std::size_t left = startSome(timers, times);
        const long long started = monotonicNow();
        long long took = started - begin;
        std::size_t total = 0;
        for (const auto& [ms, fresh] : due) {
            long long now;
            while ((now = monotonicNow()) < started + ms * 1000000LL + 500000) {
            }
            for (total += fresh; timers.fired < total;)
                timers.fire();
            took += monotonicNow() - now;
        }
        check(timers.fired == left, "each timer that was not stopped fired once");
        return took;
    };
    for (auto _ : state) {
        std::vector<long long> rounds(kRounds);
        std::generate(rounds.begin(), rounds.end(), round);
        std::nth_element(rounds.begin(), rounds.begin() + kRounds / 2, rounds.end());
        state.SetIterationTime(static_cast<double>(rounds[kRounds / 2]) * 1e-9 / static_cast<double>(count));
    }
}

/// All timers are due at once. Reports the processor time to fire one of them.
template <class Timers>
void fireAll(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    Timers timers(count);
    for (auto _ : state) {
        timers.fired = 0;
        timers.update();
        for (std::size_t i = 0; i < count; ++i)
            timers.start(i, 1 + i % 2);
        const timespec pause = {0, 10000000};
        nanosleep(&pause, nullptr);
        const double begin = threadSeconds();
        while (timers.fired < count)
            timers.run();
        state.SetIterationTime((threadSeconds() - begin) / static_cast<double>(count));
    }
}

/// The timers are started at random times of up to 20 ms, and fire in their order. Reports how early or late they are,
/// on average.
template <class Timers>
void meanDistance(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    const auto times = randomNumbers(count, 20, 3);
    Timers timers(count);
    for (auto _ : state) {
        timers.fired = 0;
        timers.update();
        std::vector<long long> due;
        for (std::size_t i = 0; i < count; ++i) {
            due.push_back(monotonicNow() + (1 + times[i]) * 1000000LL);
            timers.start(i, 1 + times[i]);
        }
        std::sort(due.begin(), due.end());
        long long distance = 0;
        for (std::size_t next = 0; next < count;) {
            timers.run();
            for (const long long now = monotonicNow(); next < timers.fired; ++next)
                distance += std::abs(now - due[next]);
        }
        state.SetIterationTime(static_cast<double>(distance) * 1e-9 / static_cast<double>(count));
    }
}

constexpr int kLatenessSamples = 100;

/// How late a timer of 1 ms is, the median of some; `allowanceNs` is added. `waitUntil(due)` is measured.
template <class WaitUntil>
void lateness(benchmark::State& state, long long allowanceNs, WaitUntil waitUntil) {
    for (auto _ : state) {
        std::vector<long long> late;
        for (int i = 0; i < kLatenessSamples; ++i) {
            const long long due = monotonicNow() + 1000000;
            waitUntil(due);
            late.push_back(monotonicNow() - due);
        }
        std::nth_element(late.begin(), late.begin() + kLatenessSamples / 2, late.end());
        check(late[kLatenessSamples / 2] >= 0, "not early");
        state.SetIterationTime(static_cast<double>(late[kLatenessSamples / 2] + allowanceNs) * 1e-9);
    }
}

}  // namespace bench
