// CVQFix16 beside the numbers in CVQFix16_peers.cpp.
#include "Bench.h"
#include "CVQFix16_workload.h"

#include <CVQFix16.h>

namespace {

CVQFix16 make(int raw) {
    return CVQFix16::fromRaw(raw);
}

MARLIX_BENCH("CVQFix16_Multiply", "ours", 16384) {
    bench::check(bench::isNear((CVQFix16(-1.5) * CVQFix16(2.25)).getRaw(), -3.375), "a product");
    bench::operateOnPairs(state, make, [](CVQFix16 a, CVQFix16 b) { return a * b; });
}

MARLIX_BENCH("CVQFix16_Divide", "ours", 16384) {
    bench::check(bench::isNear((CVQFix16(-4.5) / CVQFix16(2.25)).getRaw(), -2), "a quotient");
    bench::operateOnPairs(state, make, [](CVQFix16 a, CVQFix16 b) { return a / b; });
}

MARLIX_BENCH("CVQFix16_SquareRoot", "ours", 16384) {
    bench::check(bench::isNear(CVQFix16::sqrt(CVQFix16(2)).getRaw(), 1.41421356), "a root");
    bench::operateOnRoots(state, make, [](CVQFix16 x) { return CVQFix16::sqrt(x); });
}

MARLIX_BENCH("CVQFix16_Sine", "ours", 64, 16384) {
    bench::check(bench::isNear(CVQFix16::sin(CVQFix16(1)).getRaw(), 0.84147098), "a sine");
    bench::operateOnAngles(state, make, [](CVQFix16 x) { return CVQFix16::sin(x); });
}

MARLIX_BENCH("CVQFix16_Tangent", "ours", 16384) {
    bench::check(bench::isNear(CVQFix16::tan(CVQFix16(0.5)).getRaw(), 0.54630249), "a tangent");
    bench::operateOnSharpAngles(state, make, [](CVQFix16 x) { return CVQFix16::tan(x); });
}

}  // namespace
