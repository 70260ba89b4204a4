#include "viewer/Numbers.h"

#include <CVQDateAndTime.h>
#include <CVQTimeSpan.h>
#include <cmath>

namespace {

/// Scales `value` down to below 1000, or to as little as there are prefixes for.
const char* takePrefix(double& value) {
    constexpr const char* kPrefixes[] = {"", "k", "M", "G", "T", "P"};
    const char* const* prefix = kPrefixes;
    // What would be rounded to 1000 has the next prefix.
    while (std::fabs(value) >= 999.5 && prefix != kPrefixes + 5) {
        value /= 1000;
        ++prefix;
    }
    return *prefix;
}

CVQString threeDigits(double value) {
    const double size = std::fabs(value);
    const int decimals = size < 0.005 || size >= 99.95 ? 0 : size >= 9.995 ? 1 : 2;
    CVQString text;
    text.format("%.*f", decimals, size < 0.005 ? 0 : value);
    return text;
}

CVQDateAndTime at(unsigned long long micros) {
    CVQDateAndTime time;
    time.setMicroseconds(micros);
    return time;
}

}  // namespace

CVQString shortNumber(double value) {
    const char* const prefix = takePrefix(value);
    return threeDigits(value) + prefix;
}

CVQString withUnit(double value, const CVQString& unit) {
    const bool isSymbol = unit.c_str()[0] == 'B';  // which takes the prefix to itself
    if (unit == CVQString("%")) {
        return threeDigits(value) + " %";
    }
    const char* const prefix = takePrefix(value);
    return threeDigits(value) + (isSymbol ? " " : "") + prefix + (isSymbol ? "" : " ") + unit;
}

CVQString timeOfDay(unsigned long long micros) {
    CVQDateAndTime::SVQTime time;
    at(micros).getTime(time, 0);
    CVQString text;
    text.format("%02d:%02d:%02d.%u", time.hour, time.minute, time.second, time.microsecond / 100000);
    return text;
}

CVQString dateAndTime(unsigned long long micros) {
    return at(micros).toString();
}

CVQString duration(unsigned long long micros) {
    const CVQTimeSpan span(micros);
    const unsigned long long seconds = span.getSeconds();
    CVQString text;
    if (seconds < 60) {
        text.format("%.1f s", static_cast<double>(micros) / 1e6);
    } else if (seconds < 3600) {
        text.format("%llu min %llu s", seconds / 60, seconds % 60);
    } else if (seconds < 86400) {
        text.format("%llu h %llu min", seconds / 3600, seconds / 60 % 60);
    } else {
        text.format("%llu d %llu h", seconds / 86400, seconds / 3600 % 24);
    }
    return text;
}

CVQString counted(unsigned long long count, const char* noun) {
    CVQString text;
    text.format("%llu %s%s", count, noun, count == 1 ? "" : "s");
    return text;
}
