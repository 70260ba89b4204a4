// Turns: work that threads do by turns. Times are those that passed, from the first turn to the last, of one turn.
#pragma once

#include "Bench.h"
#include "Locks.h"

#include <chrono>
#include <thread>
#include <vector>

namespace bench {

/// `body` runs `turns` turns; one of them is what is reported.
template <class Body>
void timeTurns(benchmark::State& state, unsigned turns, Body body) {
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        body();
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(taken.count() / turns);
    }
}

/// `body` in `threads` other threads, each as often as there are iterations.
template <class Body>
class Others {
public:
    Others(const benchmark::State& state, unsigned threads, Body body) {
        for (unsigned i = 0; i < threads; ++i)
            mThreads.emplace_back([body, iterations = state.max_iterations] {
                for (benchmark::IterationCount n = 0; n < iterations; ++n)
                    body();
            });
    }
    ~Others() {
        for (std::thread& thread : mThreads)
            thread.join();
    }
    Others(const Others&) = delete;
    Others& operator=(const Others&) = delete;

private:
    std::vector<std::thread> mThreads;
};

/// Where two threads take turns. Left to the scheduler that changes from run to run, and the time with it tenfold.
enum class Place { ONE_CPU, TWO_CPUS };

struct Processors {
    int mine, other;
};

/// False, and `state` says why, where there is only one.
inline bool findProcessors(benchmark::State& state, Place place, Processors& processors) {
    const std::vector<int> two = twoProcessors();
    if (two.empty()) {
        state.SkipWithError("needs two processors");
        return false;
    }
    processors = {two[0], place == Place::ONE_CPU ? two[0] : two[1]};
    return true;
}

/// Two semaphores hand a turn to another thread and back. `Semaphore` starts at 0 and has post() and wait().
template <class Semaphore>
void pingPong(benchmark::State& state, Place place) {
    Processors processors;
    if (!findProcessors(state, place, processors))
        return;
    constexpr unsigned kTurns = 2000;
    Semaphore ping, pong;
    const Others others(state, 1, [&] {
        const Pinned pinned(processors.other);
        for (unsigned i = 0; i < kTurns; ++i) {
            ping.wait();
            pong.post();
        }
    });
    const Pinned pinned(processors.mine);
    timeTurns(state, kTurns, [&] {
        for (unsigned i = 0; i < kTurns; ++i) {
            ping.post();
            pong.wait();
        }
    });
}

/// A mutex and a condition do the same. `Condition` has lock(), unlock(), wait() and signal().
template <class Condition>
void conditionPingPong(benchmark::State& state, Place place) {
    Processors processors;
    if (!findProcessors(state, place, processors))
        return;
    constexpr unsigned kTurns = 2000;
    Condition condition;
    int whose = 0;
    const auto play = [&](int me) {
        for (unsigned i = 0; i < kTurns; ++i) {
            condition.lock();
            while (whose != me)
                condition.wait();
            whose = 1 - me;
            condition.unlock();
            condition.signal();
        }
    };
    const Others others(state, 1, [&] {
        const Pinned pinned(processors.other);
        play(1);
    });
    const Pinned pinned(processors.mine);
    timeTurns(state, kTurns, [&] { play(0); });
}

/// `startAndJoin` starts a thread that does nothing, and joins it, on one processor.
template <class StartAndJoin>
void threads(benchmark::State& state, StartAndJoin startAndJoin) {
    Processors processors;
    if (!findProcessors(state, Place::ONE_CPU, processors))
        return;
    constexpr unsigned kTurns = 200;
    const Pinned pinned(processors.mine);
    timeTurns(state, kTurns, [&] {
        for (unsigned i = 0; i < kTurns; ++i)
            startAndJoin();
    });
}

/// As many threads as the benchmark's size go through rounds. `Barrier` takes their number and has wait().
template <class Barrier>
void barrierRounds(benchmark::State& state) {
    constexpr unsigned kRounds = 1000;
    const unsigned threads = static_cast<unsigned>(state.range(0));
    Barrier barrier(threads);
    const auto rounds = [&] {
        for (unsigned i = 0; i < kRounds; ++i)
            barrier.wait();
    };
    const Others others(state, threads - 1, rounds);
    timeTurns(state, kRounds, rounds);
}

}  // namespace bench
