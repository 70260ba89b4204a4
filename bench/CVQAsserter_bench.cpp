// A check that holds, and an assertion that is expected and therefore only counted.
#include "Bench.h"

#include <CVQAsserter.h>

namespace {

MARLIX_BENCH("CVQAsserter_CheckHolds", "ours", 1) {
    int limit = 2;
    for (auto _ : state) {
        benchmark::DoNotOptimize(limit);
        if (limit != 2)
            doCheapAssert(12, "Bench");
    }
}

MARLIX_BENCH("CVQAsserter_Expected", "ours", 1) {
    CVQAsserter::setOccuredAssertions(0);
    CVQAsserter::setExpectedAssertions(~0u);
    for (auto _ : state)
        doCheapAssert(25, "Bench");
    bench::check(CVQAsserter::getOccuredAssertions() == static_cast<unsigned>(state.iterations()), "count");
}

}  // namespace
