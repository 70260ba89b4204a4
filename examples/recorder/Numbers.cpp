#include "Numbers.h"

#include <cstddef>
#include <cstdio>

std::string grouped(unsigned long long number) {
    std::string digits = std::to_string(number);
    for (std::size_t at = digits.size(); at > 3;) {
        at -= 3;
        digits.insert(at, 1, ',');
    }
    return digits;
}

std::string withUnit(unsigned long long bytes) {
    constexpr const char* kUnits[] = {"KiB", "MiB", "GiB"};
    if (bytes < 1024)
        return std::to_string(bytes) + " B";
    double value = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    for (; value >= 1024 && unit < 2; ++unit)
        value /= 1024;
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %s", value, kUnits[unit]);
    return text;
}
