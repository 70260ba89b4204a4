// Threads and the monotonic clock beside those in CVQThreadCtrl_peers.cpp.
#include "Turns.h"

#include <CVQThreadCtrl.h>
#include <VQOperatingSystem.h>

namespace {

MARLIX_BENCH_MANUAL("CVQThreadCtrl_StartJoin", "ours", 1) {
    struct CNothing : CVQThreadCtrl::IRunnable {
        void run() override {}
    } nothing;
    bench::threads(state,
                   [&] { bench::check(CVQThreadCtrl::join(CVQThreadCtrl::startThread(nothing)) == 0, "joined"); });
}

MARLIX_BENCH("VQOperatingSystem_MonotonicTime", "ours", 1) {
    for (auto _ : state)
        benchmark::DoNotOptimize(VQOperatingSystem::getClockValue(CLOCK_MONOTONIC));
}

}  // namespace
