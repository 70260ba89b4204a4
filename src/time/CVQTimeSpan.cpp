#include <CVQTimeSpan.h>

void CVQTimeSpan::getSpanFromMicros(long long micros, Span& span) {
    span.negative = micros < 0;
    // Negated as unsigned: the most negative count is 2^63 microseconds before zero.
    const unsigned long long bits = static_cast<unsigned long long>(micros);
    const unsigned long long magnitude = span.negative ? 0 - bits : bits;

    const unsigned long long wholeSeconds = magnitude / kMicrosPerSecond;
    span.microseconds = static_cast<unsigned int>(magnitude % kMicrosPerSecond);

    constexpr unsigned long long kSecondsPerDay = kMicrosPerDay / kMicrosPerSecond;
    const auto secondsOfDay = static_cast<unsigned int>(wholeSeconds % kSecondsPerDay);
    span.days = static_cast<unsigned int>(wholeSeconds / kSecondsPerDay);
    span.hours = static_cast<unsigned char>(secondsOfDay / 3600);
    span.minutes = static_cast<unsigned char>(secondsOfDay % 3600 / 60);
    span.seconds = static_cast<unsigned char>(secondsOfDay % 60);
}
