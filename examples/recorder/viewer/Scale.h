// SScale: the values between which a course is drawn, in round steps.
#pragma once

#include <TVQVector.h>

struct SScale {
    double low = 0;
    double high = 1;
    double step = 0.5;

    /// One that has room for all the values: down to 0, unless they are all far from it. Its steps are wide enough to be
    /// told apart by three digits.
    static SScale of(const TVQVector<double>& values);

    /// 0 for the lowest, 1 for the highest value.
    double place(double value) const;
    int getStepCount() const;
};
