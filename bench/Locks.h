// Locks: uncontended and contended use of one lock type. `Lock` is anything with lock() and unlock().
#pragma once

#include "Bench.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <pthread.h>
#include <sched.h>
#include <thread>
#include <vector>

namespace bench {

template <class Lock>
void uncontended(benchmark::State& state) {
    Lock lock;
    for (auto _ : state) {
        lock.lock();
        benchmark::ClobberMemory();
        lock.unlock();
    }
}

/// A chain of dependent multiplications: time that no clock call and no cache miss makes up.
inline std::uint64_t chain(std::uint64_t value, unsigned steps) {
    for (unsigned i = 0; i < steps; ++i) {
        value = value * 6364136223846793005u + 1442695040888963407u;
        benchmark::DoNotOptimize(value);
    }
    return value;
}

/// The steps that take 50 ns on this processor when nothing disturbs it: the shortest of many short runs tells.
inline unsigned stepsOf50ns() {
    static const unsigned steps = [] {
        constexpr unsigned kSteps = 20000;
        double shortest = 1e9;
        for (int run = 0; run < 200; ++run) {
            const auto start = std::chrono::steady_clock::now();
            benchmark::DoNotOptimize(chain(1, kSteps));
            const std::chrono::duration<double, std::nano> taken = std::chrono::steady_clock::now() - start;
            shortest = std::min(shortest, taken.count());
        }
        return static_cast<unsigned>(50.0 * kSteps / shortest + 0.5);
    }();
    return steps;
}

constexpr unsigned kSections = 20000;

/// The processors that this process may use; empty where two threads cannot run at once.
inline std::vector<int> twoProcessors() {
    cpu_set_t allowed;
    std::vector<int> found;
    if (sched_getaffinity(0, sizeof allowed, &allowed) == 0)
        for (int cpu = 0; cpu < CPU_SETSIZE && found.size() < 2; ++cpu)
            if (CPU_ISSET(cpu, &allowed))
                found.push_back(cpu);
    return found.size() == 2 ? found : std::vector<int>{};
}

/// Pins the calling thread while it lives.
class Pinned {
public:
    explicit Pinned(int processor) {
        sched_getaffinity(0, sizeof mBefore, &mBefore);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(static_cast<std::size_t>(processor), &one);
        check(sched_setaffinity(0, sizeof one, &one) == 0, "sched_setaffinity");
    }
    Pinned(const Pinned&) = delete;
    Pinned& operator=(const Pinned&) = delete;
    ~Pinned() { sched_setaffinity(0, sizeof mBefore, &mBefore); }

private:
    cpu_set_t mBefore;
};

/// What two threads share in a contended run, each group on cache lines of its own.
template <class Lock>
struct Contest {
    alignas(128) Lock lock;
    alignas(128) std::uint64_t value = 1;
    unsigned entered = 0;
    unsigned handovers = 0;
    int last = -1;
    alignas(128) std::atomic<unsigned> round{0};
    alignas(128) std::atomic<unsigned> finished{0};

    void sections(int me, unsigned inside, unsigned outside) {
        std::uint64_t own = 1;
        for (unsigned i = 0; i < kSections / 2; ++i) {
            lock.lock();
            value = chain(value, inside);
            ++entered;
            handovers += last != me;
            last = me;
            lock.unlock();
            own = chain(own, outside);
        }
    }
};

/// Two threads, each on its own processor, share 20,000 sections with 50 ns of work inside, and `timesOutside` as much
/// outside. Timed from the moment when both are let go to the moment when both are done; reported per section.
/// `handovers` is the share of sections whose predecessor ran in the other thread: a lock that lets its owner come back
/// again and again looks fast and starves the other, so the two figures are to be read together.
template <class Lock>
void contended(benchmark::State& state, unsigned timesOutside) {
    const std::vector<int> processors = twoProcessors();
    if (processors.empty()) {
        state.SkipWithError("needs two processors");
        return;
    }
    constexpr unsigned kEnd = ~0u;
    const unsigned steps = stepsOf50ns();
    Contest<Lock> contest;
    std::thread other([&] {
        const Pinned pinned(processors[1]);
        for (unsigned next = 1;; ++next) {
            unsigned round = 0;
            while ((round = contest.round.load()) != next)
                if (round == kEnd)
                    return;
            contest.sections(1, steps, timesOutside * steps);
            contest.finished.store(next);
        }
    });
    const Pinned pinned(processors[0]);
    unsigned round = 0;
    for (auto _ : state) {
        ++round;
        const auto start = std::chrono::steady_clock::now();
        contest.round.store(round);
        contest.sections(0, steps, timesOutside * steps);
        while (contest.finished.load() != round) {
        }
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(taken.count() / kSections);
    }
    contest.round.store(kEnd);
    other.join();
    check(contest.entered == round * kSections, "every section entered once");
    state.counters["handovers"] = double(contest.handovers) / (double(round) * kSections);
    state.counters["steps"] = steps;
}

/// The same sections one after the other in one thread, without a lock: no lock can be faster.
inline void workAlone(benchmark::State& state) {
    const unsigned steps = stepsOf50ns();
    std::uint64_t value = 1;
    for (auto _ : state)
        value = chain(value, steps);
    state.counters["steps"] = steps;
}

}  // namespace bench
