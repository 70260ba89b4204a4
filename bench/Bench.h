// Bench: how the benchmark programs register their work.
//   Names    BM_<Unit>_<Operation>/<contender>/<size>. The library's own contender is "ours", or starts so; one that
//            starts with "floor" is what the hardware, the kernel or the C library allows at best.
//   Threads  a process of ours has threads, so each program starts one before it measures: until then glibc leaves out
//            the atomic instructions of its mutexes, and libstdc++ and the library those of their counts. What is named
//            "...Alone" is measured before that.
//   Result   each body checks its result once before its timed loop; a wrong one ends the program, so that nothing
//            wrong is ever timed.
#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <sys/single_threaded.h>
#include <thread>

namespace bench {

inline void check(bool right, const char* what) {
    if (!right) {
        std::fprintf(stderr, "wrong result: %s\n", what);
        std::exit(EXIT_FAILURE);
    }
}

/// The size that a benchmark was registered with.
inline std::size_t sizeOf(const benchmark::State& state) {
    return static_cast<std::size_t>(state.range(0));
}

inline void becomeMultiThreaded() {
    if (__libc_single_threaded)
        std::thread([] {}).join();
    check(!__libc_single_threaded, "the process counts as multi-threaded");
}

template <void (*body)(benchmark::State&)>
void runWithThreads(benchmark::State& state) {
    becomeMultiThreaded();
    body(state);
}

template <void (*body)(benchmark::State&)>
void runAlone(benchmark::State& state) {
    if (__libc_single_threaded)
        body(state);
    else
        state.SkipWithError("another benchmark of this run has started a thread: select this one alone");
}

}  // namespace bench

/// MARLIX_BENCH("Unit_Operation", "contender", sizes...) { body that uses `state` }
#define MARLIX_BENCH(operation, contender, ...)                                                                    \
    MARLIX_BENCH_1(__COUNTER__, runWithThreads, operation, contender, ->ArgsProduct({{__VA_ARGS__}}))

/// The same in a process that never had a second thread; `operation` ends in "Alone".
#define MARLIX_BENCH_ALONE(operation, contender, ...)                                                              \
    MARLIX_BENCH_1(__COUNTER__, runAlone, operation, contender, ->ArgsProduct({{__VA_ARGS__}}))

/// The same for a body that runs much work in one iteration and says what one piece of it took, with
/// state.SetIterationTime. The number of iterations is fixed, as it cannot be derived from that.
#define MARLIX_BENCH_MANUAL(operation, contender, ...)                                                             \
    MARLIX_BENCH_1(__COUNTER__, runWithThreads, operation,                                                         \
                   contender, ->ArgsProduct({{__VA_ARGS__}})->UseManualTime()->Iterations(20))

/// The same for a body that needs long by itself.
#define MARLIX_BENCH_FEW(operation, contender, ...)                                                                \
    MARLIX_BENCH_1(__COUNTER__, runWithThreads, operation,                                                         \
                   contender, ->ArgsProduct({{__VA_ARGS__}})->UseManualTime()->Iterations(3))

#define MARLIX_BENCH_1(id, run, operation, contender, options)                                                     \
    MARLIX_BENCH_2(id, run, operation, contender, options)
#define MARLIX_BENCH_2(id, run, operation, contender, options)                                                     \
    static void body_##id(benchmark::State&);                                                                      \
    [[maybe_unused]] static const auto* const registered_##id =                                                    \
        benchmark::RegisterBenchmark("BM_" operation "/" contender, bench::run<body_##id>) options;                \
    static void body_##id([[maybe_unused]] benchmark::State& state)
