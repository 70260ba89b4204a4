// CVQTimeSpan: a duration.
//
//   Units    microseconds in 64 bits. Getters give totals, truncated: 1 day 2 hours has getHours() == 26. Setters
//            replace the whole value: setHours(1) after setDays(1) leaves one hour.
//   Shape    one unsigned 64-bit word; a negative span is its two's complement. `Span` is the same duration in
//            parts, with its sign as a flag. Both are copied freely.
//   Errors   none. Products wrap modulo 2^64; Span fields that are out of range are summed as they are, so that
//            90 minutes count as 5,400 seconds.
//   Threads  plain value: one thread at a time.
//   Kept     timespan-unsigned: getters and compareTo read the value as unsigned, so that a negative span is a very
//            large count in every unit and compares larger than every positive one. Only getSpan sees the sign.
//            timespan-negative-zero: a Span of zero with its flag set differs from one without (docs/kept.md).
#pragma once

#include <VQExport.h>

class VQ_EXPORT CVQTimeSpan {
public:
    /// A duration in parts. Nothing is checked when it is stored; ask isValid.
    struct VQ_EXPORT Span {
        bool negative = false;          ///< a span before zero
        unsigned char hours = 0;        ///< 0 to 23 when valid
        unsigned char minutes = 0;      ///< 0 to 59
        unsigned char seconds = 0;      ///< 0 to 59
        unsigned int days = 0;          ///< unbounded
        unsigned int microseconds = 0;  ///< 0 to 999,999

        constexpr Span() = default;
        constexpr Span(bool isNegative, unsigned int wholeDays, unsigned char hour, unsigned char minute,
                       unsigned char second, unsigned int microsecond)
            : negative(isNegative), hours(hour), minutes(minute), seconds(second), days(wholeDays),
              microseconds(microsecond) {}

        /// Equal in all six fields. Kept: timespan-negative-zero.
        constexpr bool operator==(const Span& other) const {
            // Kept: timespan-negative-zero. The flag counts like any other field, whatever the others hold.
            return negative == other.negative && hours == other.hours && minutes == other.minutes &&
                   seconds == other.seconds && days == other.days && microseconds == other.microseconds;
        }
        constexpr bool operator!=(const Span& other) const { return !(*this == other); }

        constexpr bool isValid() const { return isSpanValid(*this); }
    };

    constexpr CVQTimeSpan() = default;
    /// A negative number of microseconds is passed as its two's complement.
    explicit constexpr CVQTimeSpan(unsigned long long micros) : mValue(micros) {}
    constexpr CVQTimeSpan(const Span& span) : mValue(static_cast<unsigned long long>(getMicrosFromSpan(span))) {}

    constexpr void setDays(int days) { setProduct(days, kMicrosPerDay); }
    constexpr void setHours(long long hours) { setProduct(hours, kMicrosPerHour); }
    constexpr void setMinutes(long long minutes) { setProduct(minutes, kMicrosPerMinute); }
    constexpr void setSeconds(long long seconds) { setProduct(seconds, kMicrosPerSecond); }
    constexpr void setMicroseconds(unsigned long long micros) { mValue = micros; }

    // Kept: timespan-unsigned. Stored limits are compared with these very large counts.
    constexpr unsigned long long getDays() const { return mValue / kMicrosPerDay; }
    constexpr unsigned long long getHours() const { return mValue / kMicrosPerHour; }
    constexpr unsigned long long getMinutes() const { return mValue / kMicrosPerMinute; }
    constexpr unsigned long long getSeconds() const { return mValue / kMicrosPerSecond; }
    constexpr unsigned long long getMicroseconds() const { return mValue; }

    /// -1, 0 or 1. Kept: timespan-unsigned.
    constexpr int compareTo(const CVQTimeSpan& other) const {
        return (mValue > other.mValue ? 1 : 0) - (mValue < other.mValue ? 1 : 0);
    }

    void getSpan(Span& span) const { getSpanFromMicros(static_cast<long long>(mValue), span); }
    constexpr void setSpan(const Span& span) { *this = CVQTimeSpan(span); }

    static void getSpanFromMicros(long long micros, Span& span);

    /// Modulo 2^64: a Span of more than about 106 million days wraps.
    static constexpr long long getMicrosFromSpan(const Span& span) {
        const unsigned int secondsOfDay = span.hours * 3600U + span.minutes * 60U + span.seconds;
        const unsigned long long micros =
            span.days * kMicrosPerDay + secondsOfDay * kMicrosPerSecond + span.microseconds;
        return static_cast<long long>(span.negative ? 0 - micros : micros);
    }

    /// Hours, minutes, seconds and microseconds are in range; days and the flag are always valid.
    static constexpr bool isSpanValid(const Span& span) {
        return span.hours <= 23 && span.minutes <= 59 && span.seconds <= 59 && span.microseconds <= 999'999;
    }

private:
    static constexpr unsigned long long kMicrosPerSecond = 1'000'000;
    static constexpr unsigned long long kMicrosPerMinute = 60 * kMicrosPerSecond;
    static constexpr unsigned long long kMicrosPerHour = 60 * kMicrosPerMinute;
    static constexpr unsigned long long kMicrosPerDay = 24 * kMicrosPerHour;

    constexpr void setProduct(long long count, unsigned long long unit) {
        mValue = static_cast<unsigned long long>(count) * unit;
    }

    unsigned long long mValue = 0;
};
