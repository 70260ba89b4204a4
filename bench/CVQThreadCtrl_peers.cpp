// What one would write instead of CVQThreadCtrl and the clock of VQOperatingSystem.
#include "Turns.h"

#include <ctime>
#include <pthread.h>

namespace {

MARLIX_BENCH_MANUAL("CVQThreadCtrl_StartJoin", "pthread_create, pthread_join", 1) {
    bench::threads(state, [] {
        pthread_t thread;
        pthread_create(
            &thread, nullptr, [](void*) -> void* { return nullptr; }, nullptr);
        bench::check(pthread_join(thread, nullptr) == 0, "joined");
    });
}
MARLIX_BENCH_MANUAL("CVQThreadCtrl_StartJoin", "std::thread", 1) {
    bench::threads(state, [] { std::thread([] {}).join(); });
}

// As nanoseconds in 64 bits, which is what ours gives.
MARLIX_BENCH("VQOperatingSystem_MonotonicTime", "clock_gettime", 1) {
    for (auto _ : state) {
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        benchmark::DoNotOptimize(static_cast<unsigned long long>(now.tv_sec) * 1000000000ULL +
                                 static_cast<unsigned long long>(now.tv_nsec));
    }
}

}  // namespace
