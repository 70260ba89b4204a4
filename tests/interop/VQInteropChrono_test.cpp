// VQInteropChrono: both ways and back; rounding, on both sides of zero; the ends of every range, in every unit; numbers
// that are none; random values beside std::chrono's own conversions.
#include <VQInteropChrono.h>

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cstdint>
#include <limits>
#include <random>
#include <ratio>

using namespace std::chrono;
using namespace VQInterop;

namespace {

constexpr long long kLowest = std::numeric_limits<long long>::min();
constexpr long long kHighest = std::numeric_limits<long long>::max();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();

using Days = duration<int, std::ratio<86400>>;
using LongHours = duration<long long, std::ratio<3600>>;
using Picoseconds = duration<long long, std::pico>;
using Thirds = duration<int, std::ratio<1, 3>>;

CVQDateAndTime dateOf(unsigned long long micros) {
    CVQDateAndTime date;
    date.setMicroseconds(micros);
    return date;
}

long long microsOf(const CVQTimeSpan& span) {
    return static_cast<long long>(span.getMicroseconds());
}

template <class Duration>
unsigned long long microsOfDateAt(const Duration& sinceEpoch) {
    return fromTimePoint(time_point<system_clock, Duration>(sinceEpoch)).getMicroseconds();
}

/// A clock that shows what it is told.
struct StoodClock {
    using duration = std::chrono::nanoseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<StoodClock>;
    static time_point now() { return time_point(sNow); }
    inline static nanoseconds sNow{0};
};

// All but `now` is known while compiling.
static_assert(toTimeoutMs(1500us) == 2);
static_assert(toDuration(fromDuration(-90s)) == -90s);

}  // namespace

TEST(VQInteropChrono, DatesGoBothWaysByTheMicrosecond) {
    for (const unsigned long long micros :
         {0ull, 1ull, 1236434709'123456ull, 32535215999'999999ull, static_cast<unsigned long long>(kHighest)})
        EXPECT_EQ(micros, fromTimePoint(toTimePoint(dateOf(micros))).getMicroseconds());
    EXPECT_EQ(1236434709, system_clock::to_time_t(time_point_cast<seconds>(
                              toTimePoint(CVQDateAndTime({2009, 3, 7}, {14, 5, 9, 0}, 0)))));
}

TEST(VQInteropChrono, ADateIsTheMicrosecondThatATimePointLiesIn) {
    EXPECT_EQ(0u, microsOfDateAt(999ns));
    EXPECT_EQ(1u, microsOfDateAt(1000ns));
    EXPECT_EQ(1u, microsOfDateAt(1999ns));
    EXPECT_EQ(86'400'000'000u, microsOfDateAt(Days(1)));
    EXPECT_EQ(1'500'000u, microsOfDateAt(duration<double>(1.5)));
}

TEST(VQInteropChrono, TimesBefore1970AreIts1stOfJanuary) {
    EXPECT_EQ(0u, microsOfDateAt(-1ns));
    EXPECT_EQ(0u, microsOfDateAt(-1us));
    EXPECT_EQ(0u, microsOfDateAt(nanoseconds::min()));
    EXPECT_EQ(0u, microsOfDateAt(microseconds::min()));
    EXPECT_EQ(0u, microsOfDateAt(LongHours::min()));
    EXPECT_EQ(0u, microsOfDateAt(duration<double>(-kInfinity)));
}

TEST(VQInteropChrono, DatesEndWhereTheOtherSideDoes) {
    EXPECT_EQ(static_cast<unsigned long long>(kHighest), microsOfDateAt(LongHours::max()));
    EXPECT_EQ(static_cast<unsigned long long>(kHighest), microsOfDateAt(duration<double>(1e30)));
    EXPECT_EQ(TimePoint::max(), toTimePoint(dateOf(~0ull)));
    EXPECT_EQ(TimePoint::max(), toTimePoint(dateOf(1ull << 63)));
    EXPECT_EQ(TimePoint::max(), toTimePoint(dateOf((1ull << 63) - 1)));
    EXPECT_EQ(TimePoint::max() - 1us, toTimePoint(dateOf((1ull << 63) - 2)));
}

TEST(VQInteropChrono, NowIsNow) {
    const auto before = time_point_cast<microseconds>(system_clock::now());
    const TimePoint now = toTimePoint(fromTimePoint(system_clock::now()));
    EXPECT_LE(before, now);
    EXPECT_LE(now, system_clock::now());
}

TEST(VQInteropChrono, SpansGoBothWaysOnBothSidesOfZero) {
    for (const long long micros : {0ll, 1ll, -1ll, 86'400'000'000ll, -93'784'000'005ll, kHighest, kLowest})
        EXPECT_EQ(micros, microsOf(fromDuration(toDuration(CVQTimeSpan(static_cast<unsigned long long>(micros))))));
    CVQTimeSpan::Span parts;
    fromDuration(-(26h + 3min + 4s + 5us)).getSpan(parts);
    EXPECT_EQ(CVQTimeSpan::Span(true, 1, 2, 3, 4, 5), parts);
    EXPECT_EQ(-1us, toDuration(CVQTimeSpan::Span(true, 0, 0, 0, 0, 1)));
}

TEST(VQInteropChrono, SpansAreCutTowardsZero) {
    EXPECT_EQ(1, microsOf(fromDuration(1999ns)));
    EXPECT_EQ(-1, microsOf(fromDuration(-1999ns)));
    EXPECT_EQ(0, microsOf(fromDuration(Picoseconds(-999'999))));
    EXPECT_EQ(-1, microsOf(fromDuration(duration<double, std::micro>(-1.9))));
    EXPECT_EQ(333'333, microsOf(fromDuration(Thirds(1))));
    EXPECT_EQ(-666'666, microsOf(fromDuration(Thirds(-2))));
}

TEST(VQInteropChrono, SpansEndWhereTheirBitsDo) {
    const struct {
        int line;
        CVQTimeSpan span;
        long long micros;
    } rows[] = {
        {__LINE__, fromDuration(LongHours::max()), kHighest},
        {__LINE__, fromDuration(LongHours::min()), kLowest},
        {__LINE__, fromDuration(LongHours(2'562'047'788)), 9'223'372'036'800'000'000},
        {__LINE__, fromDuration(LongHours(2'562'047'789)), kHighest},
        {__LINE__, fromDuration(LongHours(-2'562'047'789)), kLowest},
        {__LINE__, fromDuration(nanoseconds::min()), kLowest / 1000},
        {__LINE__, fromDuration(duration<std::uint64_t, std::micro>(~0ull)), kHighest},
        {__LINE__, fromDuration(duration<std::uint64_t, std::nano>(~0ull)), 18'446'744'073'709'551},
        {__LINE__, fromDuration(duration<std::int8_t, std::milli>(-128)), -128'000},
        {__LINE__, fromDuration(duration<double>(kInfinity)), kHighest},
        {__LINE__, fromDuration(duration<double>(-kInfinity)), kLowest},
        {__LINE__, fromDuration(duration<float>(1e30f)), kHighest},
        {__LINE__, fromDuration(duration<double, std::micro>(9223372036854775808.0)), kHighest},
        {__LINE__, fromDuration(duration<double, std::micro>(9223372036854774784.0)), 9223372036854774784},
        {__LINE__, fromDuration(duration<double, std::micro>(-9223372036854775808.0)), kLowest},
        {__LINE__, fromDuration(duration<double>(kNoNumber)), 0},
        {__LINE__, fromDuration(duration<long double>(0.5L)), 500'000},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(row.micros, microsOf(row.span));
    }
}

TEST(VQInteropChrono, TimeoutsAreNeverShorter) {
    const struct {
        int line;
        int timeoutMs;
        int expected;
    } rows[] = {
        {__LINE__, toTimeoutMs(0ns), 0},
        {__LINE__, toTimeoutMs(1ns), 1},
        {__LINE__, toTimeoutMs(999'999ns), 1},
        {__LINE__, toTimeoutMs(1ms), 1},
        {__LINE__, toTimeoutMs(1'000'001ns), 2},
        {__LINE__, toTimeoutMs(Picoseconds(1)), 1},
        {__LINE__, toTimeoutMs(2s), 2000},
        {__LINE__, toTimeoutMs(Thirds(1)), 334},
        {__LINE__, toTimeoutMs(duration<double>(0.1)), 100},
        {__LINE__, toTimeoutMs(duration<double>(1e-12)), 1},
        {__LINE__, toTimeoutMs(duration<float>(0.25f)), 250},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(row.expected, row.timeoutMs);
    }
}

TEST(VQInteropChrono, TimeoutsThatAreOverAreZeroAndNeverWithoutLimit) {
    EXPECT_EQ(0, toTimeoutMs(-1ns));
    EXPECT_EQ(0, toTimeoutMs(-1ms));
    EXPECT_EQ(0, toTimeoutMs(hours::min()));
    EXPECT_EQ(0, toTimeoutMs(nanoseconds::min()));
    EXPECT_EQ(0, toTimeoutMs(duration<double>(-kInfinity)));
    EXPECT_EQ(0, toTimeoutMs(duration<double>(kNoNumber)));
}

TEST(VQInteropChrono, TimeoutsEndAtTheLargestInt) {
    EXPECT_EQ(INT_MAX, toTimeoutMs(milliseconds(INT_MAX)));
    EXPECT_EQ(INT_MAX - 1, toTimeoutMs(milliseconds(INT_MAX - 1)));
    EXPECT_EQ(INT_MAX, toTimeoutMs(milliseconds(INT_MAX) - 1ns));
    EXPECT_EQ(INT_MAX, toTimeoutMs(milliseconds(1ll << 31)));
    EXPECT_EQ(INT_MAX, toTimeoutMs(milliseconds::max()));
    EXPECT_EQ(INT_MAX, toTimeoutMs(nanoseconds::max()));
    EXPECT_EQ(INT_MAX, toTimeoutMs(LongHours::max()));
    EXPECT_EQ(INT_MAX, toTimeoutMs(duration<double>(kInfinity)));
}

TEST(VQInteropChrono, ADeadlineIsTheTimeThatIsLeft) {
    StoodClock::sNow = 10s + 1us;
    using Point = StoodClock::time_point;
    EXPECT_EQ(5000, toTimeoutMs(Point(15s + 1us)));
    EXPECT_EQ(5000, toTimeoutMs(Point(15s)));
    EXPECT_EQ(5001, toTimeoutMs(Point(15s + 2us)));
    EXPECT_EQ(1, toTimeoutMs(Point(10s + 2us)));
    EXPECT_EQ(0, toTimeoutMs(Point(10s + 1us)));
    EXPECT_EQ(0, toTimeoutMs(Point(-10s)));
    EXPECT_EQ(1, toTimeoutMs(Point(10s + 1us + 1ns)));
}

TEST(VQInteropChrono, DeadlinesAtTheEndsOfTheirClockAreForEverOrOver) {
    using HourPoint = time_point<StoodClock, LongHours>;
    for (const nanoseconds now : {nanoseconds::min(), -1ns, 0ns, 1ns, nanoseconds::max()}) {
        StoodClock::sNow = now;
        const int forEver = now == nanoseconds::max() ? 0 : INT_MAX;  // unless the clock has come to its end
        EXPECT_EQ(forEver, toTimeoutMs(HourPoint::max()));
        EXPECT_EQ(forEver, toTimeoutMs(StoodClock::time_point::max()));
        EXPECT_EQ(0, toTimeoutMs(HourPoint::min()));
        EXPECT_EQ(0, toTimeoutMs(StoodClock::time_point::min()));
    }
    EXPECT_EQ(0, toTimeoutMs(steady_clock::now()));
    EXPECT_EQ(INT_MAX, toTimeoutMs(steady_clock::time_point::max()));
}

TEST(VQInteropChrono, AgreesWithStdWhereverThatDoesNotOverflow) {
    std::mt19937_64 random(20090307);
    for (int i = 0; i < 100'000; ++i) {
        const int shift = static_cast<int>(random() % 64);
        const nanoseconds ns(static_cast<long long>(random()) >> shift);
        ASSERT_EQ(duration_cast<microseconds>(ns), toDuration(fromDuration(ns))) << ns.count();
        const long long ms = ceil<milliseconds>(ns).count();
        ASSERT_EQ(std::clamp(ms, 0ll, static_cast<long long>(INT_MAX)), toTimeoutMs(ns)) << ns.count();
        const long long micros = floor<microseconds>(ns).count();
        ASSERT_EQ(static_cast<unsigned long long>(std::max(0ll, micros)), microsOfDateAt(ns)) << ns.count();
    }
}
