// TVQVector_workload: what every growable array does here. An array type says how in a few words: `Array`, `Element`,
// make(i), push(array, element), insert(array, at, element), erase(array, at), sizeOf(array).
#pragma once

#include "Bench.h"

#include <cstddef>
#include <cstdint>
#include <numeric>

namespace bench {

constexpr int kMiddle = 10000;
constexpr int kMany = 1000000;

template <class Kind>
void pushMany(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    const typename Kind::Element element = Kind::make(7);
    for (auto _ : state) {
        typename Kind::Array array;
        for (int i = 0; i < count; ++i)
            Kind::push(array, element);
        benchmark::DoNotOptimize(&array);
        check(static_cast<int>(Kind::sizeOf(array)) == count, "number of pushed elements");
    }
}

template <class Kind>
void makeOfSize(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    for (auto _ : state) {
        typename Kind::Array array;
        array.resize(count);
        benchmark::DoNotOptimize(&array);
        check(static_cast<int>(Kind::sizeOf(array)) == count, "size");
    }
}

/// One element in and out again in the middle of `size`.
template <class Kind>
void insertAndErase(benchmark::State& state) {
    const int size = static_cast<int>(state.range(0));
    typename Kind::Array array;
    for (int i = 0; i < size; ++i)
        Kind::push(array, Kind::make(i));
    const typename Kind::Element element = Kind::make(-1);
    for (auto _ : state) {
        Kind::insert(array, size / 2, element);
        Kind::erase(array, size / 2);
        benchmark::ClobberMemory();
    }
    check(static_cast<int>(Kind::sizeOf(array)) == size, "size after insert and erase");
}

template <class Array>
void fillWithSquares(Array& array, int count) {
    for (int i = 0; i < count; ++i)
        array.push_back(static_cast<int>(static_cast<std::uint32_t>(i) * static_cast<std::uint32_t>(i) % 1000));
}

/// The index type is that of the array's own size.
template <class Array>
void sumByIndex(benchmark::State& state) {
    Array array;
    fillWithSquares(array, static_cast<int>(state.range(0)));
    for (auto _ : state) {
        const Array& constant = array;
        int sum = 0;
        for (decltype(constant.size()) i = 0; i < constant.size(); ++i)
            sum += constant[i];
        benchmark::DoNotOptimize(sum);
        benchmark::ClobberMemory();
    }
}

template <class Array>
void sumByRange(benchmark::State& state) {
    Array array;
    fillWithSquares(array, static_cast<int>(state.range(0)));
    for (auto _ : state) {
        const Array& constant = array;
        int sum = 0;
        for (const int number : constant)
            sum += number;
        benchmark::DoNotOptimize(sum);
        benchmark::ClobberMemory();
    }
}

/// The members of the standard's arrays.
template <class ArrayType>
struct StandardArray {
    using Array = ArrayType;
    using Element = typename Array::value_type;
    static Element make(int number) { return Element(number); }
    static void push(Array& array, const Element& element) { array.push_back(element); }
    static void insert(Array& array, int at, const Element& element) { array.insert(array.begin() + at, element); }
    static void erase(Array& array, int at) { array.erase(array.begin() + at); }
    static std::size_t sizeOf(const Array& array) { return static_cast<std::size_t>(array.size()); }
};

/// The text of an element; 19 characters and more, as a name with a number has.
inline const char* elementText() {
    return "channel/seven/level";
}

template <class ArrayType>
struct StandardTexts : StandardArray<ArrayType> {
    using Element = typename ArrayType::value_type;
    static Element make(int /*number*/) { return Element(elementText()); }
};

}  // namespace bench

#define MARLIX_BENCH_INTS(contender, Kind)                                                                         \
    MARLIX_BENCH("TVQVector_PushInts", contender, bench::kMany) {                                                  \
        bench::pushMany<Kind>(state);                                                                              \
    }                                                                                                              \
    MARLIX_BENCH("TVQVector_ResizeInts", contender, 1000) {                                                        \
        bench::makeOfSize<Kind>(state);                                                                            \
    }                                                                                                              \
    MARLIX_BENCH("TVQVector_InsertEraseInts", contender, bench::kMiddle) {                                         \
        bench::insertAndErase<Kind>(state);                                                                        \
    }                                                                                                              \
    MARLIX_BENCH("TVQVector_SumByIndex", contender, bench::kMany) {                                                \
        bench::sumByIndex<Kind::Array>(state);                                                                     \
    }                                                                                                              \
    MARLIX_BENCH("TVQVector_SumByRange", contender, bench::kMany) {                                                \
        bench::sumByRange<Kind::Array>(state);                                                                     \
    }

#define MARLIX_BENCH_TEXTS(contender, Kind)                                                                        \
    MARLIX_BENCH("TVQVector_PushTexts", contender, bench::kMany) {                                                 \
        bench::pushMany<Kind>(state);                                                                              \
    }                                                                                                              \
    MARLIX_BENCH("TVQVector_InsertEraseTexts", contender, bench::kMiddle) {                                        \
        bench::insertAndErase<Kind>(state);                                                                        \
    }
