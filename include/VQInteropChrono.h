// VQInteropChrono: std::chrono in and out of dates, spans and millisecond time-outs.
//
//   Units    dates and spans are microseconds of 64 bits, time-outs milliseconds in an int. Durations come in any
//            unit, as whole or as floating-point numbers, of which one that is no number counts as 0.
//   Rounding a date is the microsecond that the time point lies in (downwards), a span is cut towards zero like
//            std::chrono::duration_cast, a time-out is rounded up: it never ends early.
//   Range    what does not fit becomes the nearest value that does; nothing overflows. So a time point before 1970 is
//            1970-01-01, a date after the year 294246 (2^63 microseconds) the last time point, and a time-out above
//            2^31 - 1 ms (24.8 days) just that long, the one case in which it ends early. A time-out that is over is
//            0. It is never below, as -1 is without limit in most functions, and long past in a few.
//   Errors   none.
//   Threads  plain values: any thread.
#pragma once

#include <CVQDateAndTime.h>
#include <CVQTimeSpan.h>

#include <chrono>
#include <limits>
#include <ratio>
#include <type_traits>

namespace VQPrivate {

enum class ERounding { TOWARDS_ZERO, DOWN, UP };

constexpr long long kLowestCount = std::numeric_limits<long long>::min();
constexpr long long kHighestCount = std::numeric_limits<long long>::max();

/// value * Ratio, at the nearer end of the range when it lies outside.
template <class Ratio, class Number>
constexpr long long saturatedProduct(Number value, ERounding rounding) noexcept {
    if constexpr (std::is_floating_point_v<Number>) {
        constexpr double kEnd = 9223372036854775808.0;
        using Wide = std::common_type_t<Number, double>;
        const Wide product =
            static_cast<Wide>(value) * static_cast<Wide>(Ratio::num) / static_cast<Wide>(Ratio::den);
        if (!(product > -kEnd)) {
            return product <= -kEnd ? kLowestCount : 0;
        }
        if (product >= kEnd) {
            return kHighestCount;
        }
        const auto whole = static_cast<long long>(product);
        const auto back = static_cast<Wide>(whole);
        const bool isCut = rounding == ERounding::UP ? back < product : back > product;
        return rounding == ERounding::TOWARDS_ZERO || !isCut ? whole : whole + (rounding == ERounding::UP ? 1 : -1);
    } else {
        static_assert(std::is_integral_v<Number> && sizeof(Number) <= sizeof(long long));
        using Magnitude = unsigned long long;
        constexpr Magnitude kNum = Ratio::num, kDen = Ratio::den;
        static_assert(kNum <= std::numeric_limits<Magnitude>::max() / kDen, "a unit that no clock counts in");

        bool isNegative = false;
        if constexpr (std::is_signed_v<Number>) {
            isNegative = value < 0;
        }
        const auto bits = static_cast<Magnitude>(value);
        const Magnitude magnitude = isNegative ? 0 - bits : bits;
        const Magnitude rest = magnitude % kDen * kNum;
        const bool isCut = rest % kDen != 0;
        const bool isRaised = isCut && rounding == (isNegative ? ERounding::DOWN : ERounding::UP);
        Magnitude result = 0;
        bool overflows = __builtin_mul_overflow(magnitude / kDen, kNum, &result);
        overflows |= __builtin_add_overflow(result, rest / kDen + (isRaised ? 1 : 0), &result);
        const Magnitude limit = static_cast<Magnitude>(kHighestCount) + (isNegative ? 1 : 0);
        if (overflows || result > limit) {
            return isNegative ? kLowestCount : kHighestCount;
        }
        return static_cast<long long>(isNegative ? 0 - result : result);
    }
}

/// How many `Unit`s the duration has.
template <class Unit, class Rep, class Period>
constexpr long long saturatedCount(const std::chrono::duration<Rep, Period>& duration,
                                   ERounding rounding) noexcept {
    static_assert(std::is_arithmetic_v<Rep>, "durations of plain numbers only");
    return saturatedProduct<std::ratio_divide<Period, typename Unit::period>>(duration.count(), rounding);
}

}  // namespace VQPrivate

namespace VQInterop {

/// What a date becomes: exactly its microseconds.
using TimePoint = std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>;

inline TimePoint toTimePoint(const CVQDateAndTime& dateAndTime) noexcept {
    const unsigned long long micros = dateAndTime.getMicroseconds();
    const auto last = static_cast<unsigned long long>(VQPrivate::kHighestCount);
    return TimePoint(std::chrono::microseconds(micros < last ? micros : last));
}

template <class Duration>
CVQDateAndTime fromTimePoint(const std::chrono::time_point<std::chrono::system_clock, Duration>& time) noexcept {
    const long long micros =
        VQPrivate::saturatedCount<std::chrono::microseconds>(time.time_since_epoch(), VQPrivate::ERounding::DOWN);
    CVQDateAndTime result;
    result.setMicroseconds(micros < 0 ? 0 : static_cast<unsigned long long>(micros));
    return result;
}

/// Below zero where the span is: as `getSpan`, and not as its getters, sees it.
constexpr std::chrono::microseconds toDuration(const CVQTimeSpan& span) noexcept {
    return std::chrono::microseconds(static_cast<long long>(span.getMicroseconds()));
}

template <class Rep, class Period>
constexpr CVQTimeSpan fromDuration(const std::chrono::duration<Rep, Period>& duration) noexcept {
    return CVQTimeSpan(static_cast<unsigned long long>(
        VQPrivate::saturatedCount<std::chrono::microseconds>(duration, VQPrivate::ERounding::TOWARDS_ZERO)));
}

/// The time-out that lasts at least as long.
template <class Rep, class Period>
constexpr int toTimeoutMs(const std::chrono::duration<Rep, Period>& duration) noexcept {
    const long long ms = VQPrivate::saturatedCount<std::chrono::milliseconds>(duration, VQPrivate::ERounding::UP);
    constexpr int kLongest = std::numeric_limits<int>::max();
    return ms <= 0 ? 0 : ms >= kLongest ? kLongest : static_cast<int>(ms);
}

/// The time-out that lasts from now to the deadline. What sets the clock meanwhile does not move it.
template <class Clock, class Duration>
int toTimeoutMs(const std::chrono::time_point<Clock, Duration>& deadline) {
    using Unit = std::chrono::nanoseconds;
    const long long now =
        VQPrivate::saturatedCount<Unit>(Clock::now().time_since_epoch(), VQPrivate::ERounding::DOWN);
    const long long then = VQPrivate::saturatedCount<Unit>(deadline.time_since_epoch(), VQPrivate::ERounding::UP);
    long long left = 0;
    if (__builtin_sub_overflow(then, now, &left)) {
        left = then < now ? VQPrivate::kLowestCount : VQPrivate::kHighestCount;
    }
    return toTimeoutMs(std::chrono::duration<long long, std::nano>(left));
}

}  // namespace VQInterop
