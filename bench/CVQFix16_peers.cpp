// The numbers that one would pick instead of CVQFix16: another fixed-point library, and plain `double` where there is
// floating point in hardware. libfixmath keeps the last sines it computed in a table that no two threads may share; of
// 64 angles it finds each there, of 16,384 hardly any.
#include "Bench.h"
#include "CVQFix16_workload.h"

#include <cmath>

#if BENCH_FIXMATH
#include <libfixmath/fixmath.h>
#endif

namespace {

double makeDouble(int raw) {
    return double(raw) / bench::kOne;
}

MARLIX_BENCH("CVQFix16_Multiply", "double", 16384) {
    bench::operateOnPairs(state, makeDouble, [](double a, double b) { return a * b; });
}
MARLIX_BENCH("CVQFix16_Divide", "double", 16384) {
    bench::operateOnPairs(state, makeDouble, [](double a, double b) { return a / b; });
}
MARLIX_BENCH("CVQFix16_SquareRoot", "double", 16384) {
    bench::operateOnRoots(state, makeDouble, [](double x) { return std::sqrt(x); });
}
MARLIX_BENCH("CVQFix16_Sine", "double", 64, 16384) {
    bench::operateOnAngles(state, makeDouble, [](double x) { return std::sin(x); });
}
MARLIX_BENCH("CVQFix16_Tangent", "double", 16384) {
    bench::operateOnSharpAngles(state, makeDouble, [](double x) { return std::tan(x); });
}

#if BENCH_FIXMATH
fix16_t makeFixmath(int raw) {
    return raw;
}

MARLIX_BENCH("CVQFix16_Multiply", "libfixmath", 16384) {
    bench::check(bench::isNear(fix16_mul(fix16_from_dbl(-1.5), fix16_from_dbl(2.25)), -3.375), "a product");
    bench::operateOnPairs(state, makeFixmath, [](fix16_t a, fix16_t b) { return fix16_mul(a, b); });
}
MARLIX_BENCH("CVQFix16_Divide", "libfixmath", 16384) {
    bench::check(bench::isNear(fix16_div(fix16_from_dbl(-4.5), fix16_from_dbl(2.25)), -2), "a quotient");
    bench::operateOnPairs(state, makeFixmath, [](fix16_t a, fix16_t b) { return fix16_div(a, b); });
}
MARLIX_BENCH("CVQFix16_SquareRoot", "libfixmath", 16384) {
    bench::check(bench::isNear(fix16_sqrt(fix16_from_int(2)), 1.41421356), "a root");
    bench::operateOnRoots(state, makeFixmath, [](fix16_t x) { return fix16_sqrt(x); });
}
MARLIX_BENCH("CVQFix16_Sine", "libfixmath", 64, 16384) {
    bench::check(bench::isNear(fix16_sin(fix16_one), 0.84147098), "a sine");
    bench::operateOnAngles(state, makeFixmath, [](fix16_t x) { return fix16_sin(x); });
}
MARLIX_BENCH("CVQFix16_Tangent", "libfixmath", 16384) {
    bench::check(bench::isNear(fix16_tan(fix16_from_dbl(0.5)), 0.54630249), "a tangent");
    bench::operateOnSharpAngles(state, makeFixmath, [](fix16_t x) { return fix16_tan(x); });
}
#endif

}  // namespace
