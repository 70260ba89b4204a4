// CVQFix16_workload: the numbers that every fixed-point library gets, as raw values of 16 fraction bits.
#pragma once

#include "Bench.h"

#include <random>
#include <vector>

namespace bench {

constexpr int kOne = 65536;

/// `count` numbers of [low, high) steps, in no order.
inline std::vector<int> raws(std::size_t count, int low, int high) {
    std::mt19937 random(16);
    std::vector<int> result;
    for (std::size_t i = 0; i < count; ++i)
        result.push_back(low + int(random() % unsigned(high - low)));
    return result;
}

/// Calls `operate(a, b)` on numbers of up to 100.0 that a product and a quotient can hold, as `Number(raw)`.
template <class Make, class Operate>
void operateOnPairs(benchmark::State& state, Make make, Operate operate) {
    std::vector<decltype(make(0))> first;
    std::vector<decltype(make(0))> second;
    for (const int raw : raws(std::size_t(state.range(0)), -100 * kOne, 100 * kOne))
        first.push_back(make(raw));
    for (const int raw : raws(std::size_t(state.range(0)), kOne / 8, 100 * kOne))
        second.push_back(make(raw));
    std::size_t next = 0;
    for (auto _ : state) {
        auto result = operate(first[next], second[next]);
        benchmark::DoNotOptimize(result);
        next = next + 1 == first.size() ? 0 : next + 1;
    }
}

/// Calls `operate(a)` on numbers of [low, high) steps.
template <class Make, class Operate>
void operateOnEach(benchmark::State& state, int low, int high, Make make, Operate operate) {
    std::vector<decltype(make(0))> numbers;
    for (const int raw : raws(std::size_t(state.range(0)), low, high))
        numbers.push_back(make(raw));
    std::size_t next = 0;
    for (auto _ : state) {
        auto result = operate(numbers[next]);
        benchmark::DoNotOptimize(result);
        next = next + 1 == numbers.size() ? 0 : next + 1;
    }
}

/// All roots that there are; all angles of ten turns.
template <class Make, class Operate>
void operateOnRoots(benchmark::State& state, Make make, Operate operate) {
    operateOnEach(state, 0, 32761 * kOne, make, operate);
}
template <class Make, class Operate>
void operateOnAngles(benchmark::State& state, Make make, Operate operate) {
    operateOnEach(state, -31 * kOne, 31 * kOne, make, operate);
}

/// Below a quarter turn, where a tangent has a value.
template <class Make, class Operate>
void operateOnSharpAngles(benchmark::State& state, Make make, Operate operate) {
    operateOnEach(state, -kOne * 3 / 2, kOne * 3 / 2, make, operate);
}

/// Two steps either way: the libraries cut and round differently.
inline bool isNear(int raw, double value) {
    return raw >= value * kOne - 2 && raw <= value * kOne + 2;
}

}  // namespace bench
