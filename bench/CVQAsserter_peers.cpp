// Checks that hold, as other libraries write them.
#include "Bench.h"

#undef NDEBUG
#include <cassert>

#if BENCH_ABSEIL
#include <absl/base/internal/raw_logging.h>
#endif
#if BENCH_GLIB
#include <glib.h>
#endif

namespace {

MARLIX_BENCH("CVQAsserter_CheckHolds", "assert", 1) {
    int limit = 2;
    for (auto _ : state) {
        benchmark::DoNotOptimize(limit);
        assert(limit == 2);
    }
}

#if BENCH_GLIB
MARLIX_BENCH("CVQAsserter_CheckHolds", "g_assert", 1) {
    int limit = 2;
    for (auto _ : state) {
        benchmark::DoNotOptimize(limit);
        g_assert(limit == 2);
    }
}
#endif

#if BENCH_ABSEIL
MARLIX_BENCH("CVQAsserter_CheckHolds", "ABSL_RAW_CHECK", 1) {
    int limit = 2;
    for (auto _ : state) {
        benchmark::DoNotOptimize(limit);
        ABSL_RAW_CHECK(limit == 2, "limit");
    }
}
#endif

MARLIX_BENCH("CVQAsserter_Expected", "floor: one plain increment", 1) {
    unsigned count = 0;
    for (auto _ : state) {
        ++count;
        benchmark::DoNotOptimize(count);
    }
}

}  // namespace
