#include "viewer/Scale.h"

#include <algorithm>
#include <cmath>

namespace {

/// 1, 2 or 5 times a power of ten, and not below `least`.
double roundUp(double least) {
    const double power = std::pow(10, std::floor(std::log10(least)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (factor * power >= least * 0.999) {
            return factor * power;
        }
    }
    return 10 * power;
}

}  // namespace

SScale SScale::of(const TVQVector<double>& values) {
    constexpr double kSteps = 4;
    double low = HUGE_VAL;
    double high = -HUGE_VAL;
    for (const double value : values) {
        if (!std::isnan(value)) {
            low = std::min(low, value);
            high = std::max(high, value);
        }
    }
    const double largest = std::max(std::fabs(low), std::fabs(high));
    if (low > high || largest == 0) {
        return {};
    }
    if (low > 0 && low < 0.8 * high) {
        low = 0;
    }
    const double thirdDigit = std::pow(10, std::floor(std::log10(largest)) - 2);
    const double step = roundUp(std::max((high - low) / kSteps, thirdDigit));
    SScale scale = {std::floor(low / step) * step, std::ceil(high / step) * step, step};
    scale.high = std::max(scale.high, scale.low + step);
    return scale;
}

double SScale::place(double value) const {
    return std::clamp((value - low) / (high - low), 0.0, 1.0);
}

int SScale::getStepCount() const {
    return static_cast<int>(std::lround((high - low) / step));
}
