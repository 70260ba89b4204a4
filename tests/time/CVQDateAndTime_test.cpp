// CVQDateAndTime: the calendar on every day from 1970 to 3000 and on every kind of number beyond, both times of
// day, hour offsets, wrap-around, texts, the overflow message and the 8 bytes.
#include <CVQDateAndTime.h>

#include <CVQByteStream.h>
#include <CVQString.h>

#include "support/ScopedEnvironment.h"
#include "support/SlogCapture.h"
#include "time/PlainCalendar.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <random>
#include <set>
#include <string>
#include <type_traits>
#include <unistd.h>
#include <vector>

using SVQDate = CVQDateAndTime::SVQDate;
using SVQTime = CVQDateAndTime::SVQTime;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

static_assert(std::is_trivially_copyable_v<CVQDateAndTime> && sizeof(CVQDateAndTime) == 8);
static_assert(std::is_trivially_copyable_v<SVQDate> && sizeof(SVQDate) == 4);
static_assert(offsetof(SVQDate, year) == 0 && offsetof(SVQDate, month) == 2 && offsetof(SVQDate, day) == 3);
static_assert(std::is_trivially_copyable_v<SVQTime> && sizeof(SVQTime) == 8);
static_assert(offsetof(SVQTime, hour) == 0 && offsetof(SVQTime, minute) == 1 && offsetof(SVQTime, second) == 2 &&
              offsetof(SVQTime, microsecond) == 4);
static_assert(CVQDateAndTime::msMicrosIn1Day == 86'400'000'000 && CVQDateAndTime::msSecondsIn1Year == 31'536'000);

namespace {

using Micros = unsigned long long;

constexpr Micros kSecond = 1'000'000;
constexpr Micros kHour = 3600 * kSecond;
constexpr Micros kDay = 24 * kHour;
constexpr Micros kLastTime = ~0ULL;
constexpr unsigned kLastDay = 376'563;  // 3000-12-31

CVQDateAndTime at(Micros micros) {
    return CVQDateAndTime(micros, /*isSeconds*/ false, 0);
}

CVQDateAndTime at(const SVQDate& date, const SVQTime& time = SVQTime()) {
    return CVQDateAndTime(date, time, 0);
}

SVQDate dateOf(unsigned dayNumber) {
    SVQDate date(9, 9, 9);  // every field must be overwritten
    CVQDateAndTime::getDateFromDays(dayNumber, date);
    return date;
}

SVQTime timeOf(Micros micros, int hourOffset = 0) {
    SVQTime time(9, 9, 9, 9);
    CVQDateAndTime::getTimeFromMicros(micros, time, hourOffset);
    return time;
}

unsigned daysOf(const SVQDate& date) {
    return CVQDateAndTime::getDaysFromDate(date);
}

std::string textOf(const CVQDateAndTime& value) {
    return value.toString().c_str();
}

/// The true calendar, one day after the other, which knows nothing of cycles.
class DayWalk {
public:
    const SVQDate& date() const { return mDate; }
    unsigned dayOfWeek() const { return mDayOfWeek; }
    unsigned trueDayNumber() const { return mNumber; }
    bool isWithin3000() const { return mDate.year <= 3000; }

    void step() {
        ++mNumber;
        mDayOfWeek = mDayOfWeek == 6 ? 0 : mDayOfWeek + 1;
        if (mDate.day != lastOfMonth()) {
            ++mDate.day;
            return;
        }
        mDate.day = 1;
        if (mDate.month != 12) {
            ++mDate.month;
            return;
        }
        mDate.month = 1;
        ++mDate.year;
    }

    unsigned lastOfMonth() const {
        switch (mDate.month) {
        case 4:
        case 6:
        case 9:
        case 11:
            return 30;
        case 2:
            return mDate.year % 400 == 0 || (mDate.year % 4 == 0 && mDate.year % 100 != 0) ? 29 : 28;
        default:
            return 31;
        }
    }

private:
    SVQDate mDate{1970, 1, 1};
    unsigned mDayOfWeek = 4;  // a Thursday
    unsigned mNumber = 0;
};

/// Delivers the first bytes of 01 02 03 04 05 06 07 08, and no more.
class ShortStream : public IVQIStream {
public:
    explicit ShortStream(unsigned length) : mLength(length) {}
    bool waitToRead(int) override { return true; }
    void ready() override {}

private:
    unsigned doRead(void* destination, unsigned count) const override {
        const unsigned length = count < mLength ? count : mLength;
        std::memcpy(destination, "\x01\x02\x03\x04\x05\x06\x07\x08", length);
        return length;
    }

    unsigned mLength;
};

}  // namespace

static void PrintTo(const SVQDate& date, std::ostream* out) {
    *out << date.toString().c_str();
}

static void PrintTo(const SVQTime& time, std::ostream* out) {
    *out << time.toString().c_str() << " and " << time.microsecond << " us";
}

TEST(CVQDateAndTime, ItsConstantsAreObjectsOfTheLibrary) {
    // Read through pointers that the compiler cannot see through: the library must have them as data.
    const Micros* volatile microsInADay = &CVQDateAndTime::msMicrosIn1Day;
    const Micros* volatile secondsInAYear = &CVQDateAndTime::msSecondsIn1Year;
    EXPECT_EQ(*microsInADay, 86'400'000'000U);
    EXPECT_EQ(*secondsInAYear, 31'536'000U);
}

TEST(CVQDateAndTime, StartsAt1970) {
    EXPECT_EQ(CVQDateAndTime().getMicroseconds(), 0U);
    EXPECT_EQ(textOf(CVQDateAndTime()), "1970-01-01 00:00:00");
    EXPECT_EQ(SVQDate(), SVQDate(1970, 1, 1));
    EXPECT_EQ(SVQTime(), SVQTime(0, 0, 0, 0));
}

TEST(CVQDateAndTime, RecordsStoreWhateverTheyAreGiven) {
    const SVQDate date(65535, 255, 254);
    EXPECT_EQ(date.year, 65535);
    EXPECT_EQ(date.month, 255);
    EXPECT_EQ(date.day, 254);
    const SVQTime time(255, 254, 253, UINT_MAX);
    EXPECT_EQ(time.hour, 255);
    EXPECT_EQ(time.minute, 254);
    EXPECT_EQ(time.second, 253);
    EXPECT_EQ(time.microsecond, UINT_MAX);
}

TEST(CVQDateAndTime, RecordsAreEqualInAllTheirFields) {
    const SVQDate date(2009, 3, 7);
    EXPECT_TRUE(date == SVQDate(2009, 3, 7));
    for (const SVQDate& other : {SVQDate(2010, 3, 7), SVQDate(2009, 4, 7), SVQDate(2009, 3, 8)}) {
        EXPECT_FALSE(date == other);
        EXPECT_TRUE(date != other);
    }
    const SVQTime time(1, 2, 3, 4);
    EXPECT_TRUE(time == SVQTime(1, 2, 3, 4));
    for (const SVQTime& other :
         {SVQTime(9, 2, 3, 4), SVQTime(1, 9, 3, 4), SVQTime(1, 2, 9, 4), SVQTime(1, 2, 3, 9)}) {
        EXPECT_FALSE(time == other);
        EXPECT_TRUE(time != other);
    }
}

TEST(CVQDateAndTime, IsBuiltFromMicrosecondsOrSeconds) {
    EXPECT_EQ(CVQDateAndTime(5, /*isSeconds*/ false, 0).getMicroseconds(), 5U);
    EXPECT_EQ(CVQDateAndTime(5, /*isSeconds*/ true, 0).getMicroseconds(), 5 * kSecond);
    EXPECT_EQ(CVQDateAndTime(5, /*isSeconds*/ true, 2).getMicroseconds(), 5 * kSecond + 2 * kHour);
    EXPECT_EQ(CVQDateAndTime(2 * kHour, /*isSeconds*/ false, -2).getMicroseconds(), 0U);
    // 2^64 / 10^6 seconds and one more.
    EXPECT_EQ(CVQDateAndTime(18'446'744'073'710, /*isSeconds*/ true, 0).getMicroseconds(), 448'384U);
}

TEST(CVQDateAndTime, HourOffsetsWrapWithoutAReport) {
    support::SlogCapture log;
    EXPECT_EQ(CVQDateAndTime(5, true, -1).getMicroseconds(), 0 - 3'595'000'000ULL);
    EXPECT_EQ(CVQDateAndTime(kLastTime, false, 1).getMicroseconds(), kHour - 1);
    EXPECT_EQ(CVQDateAndTime(0, false, INT_MAX).getMicroseconds(), 2'147'483'647 * kHour);
    EXPECT_EQ(CVQDateAndTime(0, false, INT_MIN).getMicroseconds(), 0 - 2'147'483'648 * kHour);
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST(CVQDateAndTime, IsBuiltFromADateAndATime) {
    EXPECT_EQ(textOf(CVQDateAndTime(SVQDate(2009, 3, 7), SVQTime(14, 5, 9, 0), 0)), "2009-03-07 14:05:09");
    EXPECT_EQ(textOf(CVQDateAndTime(SVQDate(2009, 3, 7), SVQTime(23, 30, 0, 0), 2)), "2009-03-08 01:30:00");
    EXPECT_EQ(textOf(CVQDateAndTime(SVQDate(2009, 3, 1), SVQTime(0, 30, 0, 0), -1)), "2009-02-28 23:30:00");
    EXPECT_EQ(CVQDateAndTime(SVQDate(), SVQTime(0, 0, 0, 7), -1).getMicroseconds(), 7 - kHour);
}

TEST(CVQDateAndTime, ReadsABrokenDownTimeAsLocal) {
    const support::ScopedEnvironment zone("TZ", "HERE-2");  // two hours before UTC
    std::tm local = {};
    local.tm_year = 109;
    local.tm_mon = 2;
    local.tm_mday = 7;
    local.tm_hour = 14;
    EXPECT_EQ(textOf(CVQDateAndTime(local, 0)), "2009-03-07 12:00:00");
    EXPECT_EQ(textOf(CVQDateAndTime(local, 2)), "2009-03-07 14:00:00");
    EXPECT_EQ(textOf(CVQDateAndTime(local, -24)), "2009-03-06 12:00:00");

    local.tm_mday = 38;  // runs on into April
    local.tm_sec = 61;
    EXPECT_EQ(textOf(CVQDateAndTime(local, 0)), "2009-04-07 12:01:01");
}

TEST(CVQDateAndTime, NowIsTheSystemClockInWholeSeconds) {
    const auto before = static_cast<Micros>(std::time(nullptr));
    const Micros now = CVQDateAndTime::now(0).getMicroseconds();
    const Micros shifted = CVQDateAndTime::now(-3).getMicroseconds();
    const auto after = static_cast<Micros>(std::time(nullptr));
    EXPECT_EQ(now % kSecond, 0U);
    EXPECT_GE(now, before * kSecond);
    EXPECT_LE(now, after * kSecond);
    EXPECT_GE(shifted, before * kSecond - 3 * kHour);
    EXPECT_LE(shifted, after * kSecond - 3 * kHour);
}

TEST(CVQDateAndTime, GivesItsRawValueUnderAllItsNames) {
    CVQDateAndTime value;
    value.setMicroseconds(1'999'999);
    EXPECT_EQ(value.getMicroseconds(), 1'999'999U);
    EXPECT_EQ(value.getMicrosecondsForUnixBaseTime(), 1'999'999U);
    EXPECT_EQ(value.getSecondsForUnixBaseTime(), 1U);
    value.setMicrosecondsFromUnixBaseTimeNew(kLastTime);
    EXPECT_EQ(value.getMicroseconds(), kLastTime);
    EXPECT_EQ(value.getSecondsForUnixBaseTime(), 18'446'744'073'709U);
}

TEST(CVQDateAndTime, Kept_TheOlderBaseTimeLies365DaysLater) {  // id: date-base-1971
    CVQDateAndTime value;
    value.setMicrosecondsFromUnixBaseTime(0);
    EXPECT_EQ(value.getMicroseconds(), 31'536'000'000'000U);
    EXPECT_EQ(textOf(value), "1971-01-01 00:00:00");
}

TEST(CVQDateAndTime, Kept_AnOverflowOfTheOlderBaseTimeIsStoredAndLoggedOnce) {  // id: date-base-1971
    support::SlogCapture log;
    CVQDateAndTime value;
    constexpr Micros kShift = 31'536'000'000'000;

    value.setMicrosecondsFromUnixBaseTime(kLastTime - kShift);  // the last that fits
    EXPECT_EQ(value.getMicroseconds(), kLastTime);
    EXPECT_THAT(log.records(), IsEmpty());

    value.setMicrosecondsFromUnixBaseTime(kLastTime - kShift + 1);
    EXPECT_EQ(value.getMicroseconds(), 0U);
    value.setMicrosecondsFromUnixBaseTime(kLastTime);
    EXPECT_EQ(value.getMicroseconds(), 31'535'999'999'999U);

    const std::string line =
        "pid " + std::to_string(getpid()) + ": An overflow in the date time calculation has occured";
    EXPECT_THAT(log.texts(), ElementsAre(line, line));
    EXPECT_EQ(log.records().at(0).severity, 2);
    EXPECT_EQ(log.records().at(0).opcode(), 10'000U);
}

TEST(CVQDateAndTime, AddsAndSubtractsSpansModulo64Bits) {
    CVQDateAndTime value = at(SVQDate(2000, 2, 28), SVQTime(23, 0, 0, 0));
    CVQTimeSpan span;
    span.setHours(25);
    value.addTimeSpan(span);
    EXPECT_EQ(textOf(value), "2000-03-01 00:00:00");
    value.subTimeSpan(span);
    EXPECT_EQ(textOf(value), "2000-02-28 23:00:00");

    span.setHours(-23);
    value.addTimeSpan(span);
    EXPECT_EQ(textOf(value), "2000-02-28 00:00:00");
    value.subTimeSpan(span);
    EXPECT_EQ(textOf(value), "2000-02-28 23:00:00");

    value = at(1);
    value.subTimeSpan(CVQTimeSpan(2));
    EXPECT_EQ(value.getMicroseconds(), kLastTime);
    value.addTimeSpan(CVQTimeSpan(3));
    EXPECT_EQ(value.getMicroseconds(), 2U);
}

TEST(CVQDateAndTime, TheDifferenceOfTwoInstantsHasASign) {
    CVQTimeSpan::Span parts;
    at(kDay + 1).subTimeStamp(at(0)).getSpan(parts);
    EXPECT_TRUE(parts == CVQTimeSpan::Span(false, 1, 0, 0, 0, 1));
    at(0).subTimeStamp(at(kDay + 1)).getSpan(parts);
    EXPECT_TRUE(parts == CVQTimeSpan::Span(true, 1, 0, 0, 0, 1));
    EXPECT_EQ(at(0).subTimeStamp(at(kLastTime)).getMicroseconds(), 1U);
}

TEST(CVQDateAndTime, ComparesToMinusOneZeroOrOne) {
    EXPECT_EQ(at(7).compareTo(at(7)), 0);
    EXPECT_EQ(at(7).compareTo(at(7'000'000'000'000)), -1);
    EXPECT_EQ(at(7'000'000'000'000).compareTo(at(7)), 1);
    EXPECT_EQ(at(kLastTime).compareTo(at(0)), 1);
    EXPECT_EQ(at(0).compareTo(at(kLastTime)), -1);
}

TEST(CVQDateAndTime, AssignsToItself) {
    CVQDateAndTime value = at(5);
    CVQDateAndTime& same = value;
    value = same;
    EXPECT_EQ(value.getMicroseconds(), 5U);
}

TEST(CVQDateAndTime, KnowsGregorianLeapYears) {
    for (unsigned year = 0; year <= 65535; ++year) {
        const bool isLeap = year % 400 == 0 || (year % 4 == 0 && year % 100 != 0);
        ASSERT_EQ(CVQDateAndTime::isLeapYear(static_cast<unsigned short>(year)), isLeap) << year;
        ASSERT_EQ(SVQDate(static_cast<unsigned short>(year), 1, 1).isLeapYear(), isLeap) << year;
    }
}

TEST(CVQDateAndTime, OffersAMonthTableForEachKindOfYear) {
    const std::vector<unsigned short> normal = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365};
    const std::vector<unsigned short> leap = {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366};
    const auto table = [](unsigned short year) {
        const unsigned short* entries = CVQDateAndTime::getDaysFromStart(year);
        return std::vector<unsigned short>(entries, entries + 13);
    };
    EXPECT_EQ(table(1970), normal);
    EXPECT_EQ(table(2100), normal);
    EXPECT_EQ(table(1972), leap);
    EXPECT_EQ(table(2000), leap);
}

TEST(CVQDateAndTime, NumbersOfKnownDays) {
    const struct {
        int line;
        SVQDate date;
        unsigned number;
    } rows[] = {
        {__LINE__, SVQDate(1970, 1, 1), 0},       {__LINE__, SVQDate(1970, 12, 31), 364},
        {__LINE__, SVQDate(1972, 2, 29), 789},    {__LINE__, SVQDate(1972, 12, 31), 1095},
        {__LINE__, SVQDate(2000, 2, 29), 11'016}, {__LINE__, SVQDate(2069, 12, 30), 36'523},
        {__LINE__, SVQDate(2070, 1, 1), 36'524},  {__LINE__, SVQDate(2100, 3, 1), 47'540},
        {__LINE__, SVQDate(2370, 1, 1), 146'097}, {__LINE__, SVQDate(3000, 12, 31), kLastDay},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(daysOf(row.date), row.number);
        EXPECT_EQ(dateOf(row.number), row.date);
    }
}

TEST(CVQDateAndTime, DayNumbersAreTheTrueCountUpTo2069) {
    DayWalk walk;
    for (; walk.date().year < 2070; walk.step()) {
        ASSERT_EQ(daysOf(walk.date()), walk.trueDayNumber()) << walk.date().toString().c_str();
    }
    EXPECT_EQ(walk.trueDayNumber(), 36'525U);
}

TEST(CVQDateAndTime, Kept_LaterDayNumbersMayBeOneLowerThanTheTrueCount) {  // id: date-cycles-1970
    DayWalk walk;
    for (; walk.isWithin3000(); walk.step()) {
        const unsigned number = daysOf(walk.date());
        ASSERT_EQ(number, plain::daysFromDate(walk.date())) << walk.date().toString().c_str();
        ASSERT_TRUE(number == walk.trueDayNumber() || number + 1 == walk.trueDayNumber())
            << walk.date().toString().c_str();
    }
    EXPECT_EQ(walk.trueDayNumber() - 1, kLastDay + 1);  // the last day itself is one lower
    EXPECT_EQ(daysOf(SVQDate(2100, 3, 1)), 47'540U);    // 47,541 true days
}

TEST(CVQDateAndTime, Kept_TenLastDaysOfAYearConvertBackToTheNextDay) {  // id: date-twin-days
    std::set<unsigned> yearsOfTwins;
    for (DayWalk walk; walk.isWithin3000(); walk.step()) {
        const SVQDate back = dateOf(daysOf(walk.date()));
        if (back == walk.date()) {
            continue;
        }
        ASSERT_EQ(walk.date(), SVQDate(walk.date().year, 12, 31));
        ASSERT_EQ(back, SVQDate(static_cast<unsigned short>(walk.date().year + 1), 1, 1));
        yearsOfTwins.insert(walk.date().year);
    }
    EXPECT_THAT(yearsOfTwins, ElementsAre(2069, 2169, 2269, 2369, 2469, 2569, 2669, 2769, 2869, 2969));
    EXPECT_EQ(daysOf(SVQDate(2069, 12, 31)), 36'524U);
    EXPECT_EQ(daysOf(SVQDate(2070, 1, 1)), 36'524U);
    EXPECT_EQ(dateOf(36'524), SVQDate(2070, 1, 1));

    // Where a cycle of 400 years ends, the two days have a number each; both convert to the later one.
    std::set<unsigned> yearsOfTwoNumbers;
    for (const unsigned year : yearsOfTwins) {
        const unsigned lastDay = daysOf(SVQDate(static_cast<unsigned short>(year), 12, 31));
        const unsigned nextDay = daysOf(SVQDate(static_cast<unsigned short>(year + 1), 1, 1));
        if (lastDay != nextDay) {
            EXPECT_EQ(lastDay + 1, nextDay) << year;
            EXPECT_EQ(dateOf(lastDay), dateOf(nextDay)) << year;
            yearsOfTwoNumbers.insert(year);
        }
    }
    EXPECT_THAT(yearsOfTwoNumbers, ElementsAre(2369, 2769));
    EXPECT_EQ(daysOf(SVQDate(2369, 12, 31)), 146'096U);
}

TEST(CVQDateAndTime, Kept_SevenDayNumbersAreTheFirstOfAMonth13) {  // id: date-month-13
    std::vector<unsigned> numbers;
    for (unsigned number = 0; number <= kLastDay; ++number) {
        const SVQDate date = dateOf(number);
        ASSERT_EQ(date, plain::dateFromDays(number)) << number;
        if (!date.isValid()) {
            EXPECT_EQ(date.month, 13) << number;
            EXPECT_EQ(date.day, 1) << number;
            EXPECT_FALSE(date.isLeapYear()) << number;
            EXPECT_EQ(daysOf(date), number);
            numbers.push_back(number);
        }
    }
    EXPECT_THAT(numbers, ElementsAre(47'846, 84'370, 120'894, 193'943, 230'467, 266'991, 340'040));
    EXPECT_EQ(textOf(at(47'846 * kDay)), "2100-13-01 00:00:00");
}

TEST(CVQDateAndTime, EveryDayNumberConvertsAsThePlainAlgorithmSays) {
    // All numbers of two cycles of 400 years beyond 3000, all that a value can hold at its end, and a prime stride
    // through the 32 bits that the function takes.
    const auto compare = [](unsigned first, unsigned count, unsigned stride) {
        for (unsigned i = 0; i != count; ++i) {
            const unsigned number = first + i * stride;
            if (dateOf(number) != plain::dateFromDays(number)) {
                return number;
            }
        }
        return 0U;
    };
    EXPECT_EQ(compare(kLastDay, 2 * 146'097, 1), 0U);
    EXPECT_EQ(compare(213'503'982 - 200'000, 200'001, 1), 0U);
    EXPECT_EQ(compare(UINT_MAX - 200'000, 200'001, 1), 0U);
    EXPECT_EQ(compare(0, 430'000, 9'973), 0U);
}

TEST(CVQDateAndTime, EveryYearIsNumberedAsThePlainAlgorithmSays) {
    for (unsigned year = 0; year <= 65535; ++year) {
        for (unsigned month = 1; month <= 13; month += year % 100 < 3 ? 1 : 6) {
            for (const unsigned day : {0U, 1U, 31U, 255U}) {
                const SVQDate date(static_cast<unsigned short>(year), static_cast<unsigned char>(month),
                                   static_cast<unsigned char>(day));
                ASSERT_EQ(daysOf(date), plain::daysFromDate(date)) << date.toString().c_str();
            }
        }
    }
}

TEST(CVQDateAndTime, MonthsThatAreNoneStayInsideTheTable) {
    EXPECT_EQ(daysOf(SVQDate(2000, 0, 5)), daysOf(SVQDate(2000, 1, 5)));
    for (unsigned month = 13; month <= 255; ++month) {
        EXPECT_EQ(daysOf(SVQDate(2000, static_cast<unsigned char>(month), 1)), daysOf(SVQDate(2001, 1, 1)));
    }
    EXPECT_EQ(daysOf(SVQDate(1970, 1, 0)), UINT_MAX);
}

TEST(CVQDateAndTime, DayNumbersHaveADayOfTheWeek) {
    EXPECT_EQ(CVQDateAndTime::getDayOfWeek(0U), 4U);
    EXPECT_EQ(CVQDateAndTime::getDayOfWeek(3U), 0U);
    for (unsigned number = 1; number <= kLastDay; ++number) {
        ASSERT_EQ(CVQDateAndTime::getDayOfWeek(number), (CVQDateAndTime::getDayOfWeek(number - 1) + 1) % 7);
    }
}

TEST(CVQDateAndTime, DatesHaveTheTrueDayOfTheWeek) {
    const support::ScopedEnvironment zone("TZ", "UTC0");
    for (DayWalk walk; walk.isWithin3000(); walk.step()) {
        ASSERT_EQ(CVQDateAndTime::getDayOfWeek(walk.date()), walk.dayOfWeek()) << walk.date().toString().c_str();
    }
}

TEST(CVQDateAndTime, DatesOutsideTheCalendarHaveADayOfTheWeekAsTheyRunOn) {
    const support::ScopedEnvironment zone("TZ", "UTC0");
    const auto dayOfWeek = [](unsigned short year, unsigned char month, unsigned char day) {
        return CVQDateAndTime::getDayOfWeek(SVQDate(year, month, day));
    };
    EXPECT_EQ(dayOfWeek(2000, 13, 1), dayOfWeek(2001, 1, 1));
    EXPECT_EQ(dayOfWeek(2000, 0, 31), dayOfWeek(1999, 12, 31));
    EXPECT_EQ(dayOfWeek(2000, 3, 0), dayOfWeek(2000, 2, 29));
    EXPECT_EQ(dayOfWeek(2000, 255, 255), dayOfWeek(2021, 11, 10));
    EXPECT_EQ(dayOfWeek(2100, 13, 1), 6U);    // a Saturday
    EXPECT_EQ(dayOfWeek(1900, 1, 1), 1U);     // a Monday
    EXPECT_EQ(dayOfWeek(0, 0, 0), 2U);        // November 30th of the year before 0: a Tuesday, as 1999-11-30
    EXPECT_EQ(dayOfWeek(65535, 12, 31), 2U);  // 159 times 400 years after 1935-12-31, a Tuesday
}

TEST(CVQDateAndTime, Kept_FromDayNumbersTheDayOfTheWeekMayBeOneEarly) {  // id: date-cycles-1970
    const support::ScopedEnvironment zone("TZ", "UTC0");
    const SVQDate date(2070, 1, 1);
    EXPECT_EQ(CVQDateAndTime::getDayOfWeek(daysOf(date)), 2U);
    EXPECT_EQ(CVQDateAndTime::getDayOfWeek(date), 3U);
}

TEST(CVQDateAndTime, Kept_TheDayOfTheWeekIsThatOfMidnightInLocalStandardTime) {  // id: date-weekday-local
    const support::ScopedEnvironment zone("TZ", "IST-1GMT0,M10.5.0,M3.5.0/1");   // standard time is that of summer
    EXPECT_EQ(CVQDateAndTime::getDayOfWeek(SVQDate(2009, 7, 1)), 3U);            // a Wednesday
    EXPECT_EQ(CVQDateAndTime::getDayOfWeek(SVQDate(2009, 1, 1)), 3U);            // a Thursday, the 31st at 23:00
}

TEST(CVQDateAndTime, TheUsualSummerTimeLeavesTheDayOfTheWeekAlone) {
    for (const char* name :
         {"UTC0", "CET-1CEST,M3.5.0,M10.5.0/3", "EST5EDT,M3.2.0,M11.1.0", "BRT3BRST,M10.3.0/0,M2.3.0/0"}) {
        const support::ScopedEnvironment zone("TZ", name);
        for (unsigned number = 0; number <= 24'000; ++number) {  // to 2035
            ASSERT_EQ(CVQDateAndTime::getDayOfWeek(dateOf(number)), (number + 4) % 7) << name << ' ' << number;
        }
    }
}

TEST(CVQDateAndTime, SplitsATimeOfDay) {
    const struct {
        int line;
        Micros micros;
        SVQTime time;
    } rows[] = {
        {__LINE__, 0, SVQTime(0, 0, 0, 0)},
        {__LINE__, 999'999, SVQTime(0, 0, 0, 999'999)},
        {__LINE__, 1'000'000, SVQTime(0, 0, 1, 0)},
        {__LINE__, 59'999'999, SVQTime(0, 0, 59, 999'999)},
        {__LINE__, 60'000'000, SVQTime(0, 1, 0, 0)},
        {__LINE__, 3'599'999'999, SVQTime(0, 59, 59, 999'999)},
        {__LINE__, 3'600'000'000, SVQTime(1, 0, 0, 0)},
        {__LINE__, 86'399'999'999, SVQTime(23, 59, 59, 999'999)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(timeOf(row.micros), row.time);
        EXPECT_EQ(CVQDateAndTime::getMicrosFromTime(row.time, 0), row.micros);
        EXPECT_EQ(CVQDateAndTime::getMicroSecFromTime(row.time, 0), row.micros);
    }
}

TEST(CVQDateAndTime, HoursOfATimeAreNotReducedToADayButCutTo8Bits) {
    EXPECT_EQ(timeOf(kDay), SVQTime(24, 0, 0, 0));
    EXPECT_EQ(timeOf(255 * kHour), SVQTime(255, 0, 0, 0));
    EXPECT_EQ(timeOf(256 * kHour), SVQTime(0, 0, 0, 0));
    EXPECT_EQ(timeOf(4'294'967'296 * kSecond + 3), SVQTime(0, 0, 0, 3));  // seconds are cut to 32 bits
    EXPECT_EQ(timeOf(0, -1), SVQTime(236, 4, 45, 551'616));
    for (const int hours : {0, 1, -1, 23, -23, 1000, -1000, INT_MAX, INT_MIN}) {
        for (const Micros micros : {Micros(0), kDay - 1, kLastTime}) {
            // Modulo 2^64, seconds modulo 2^32, hours modulo 2^8, each taken on its own.
            const Micros shifted = hours < 0 ? micros - static_cast<Micros>(-static_cast<long long>(hours)) * kHour
                                             : micros + static_cast<Micros>(hours) * kHour;
            const Micros seconds = shifted / kSecond % 4'294'967'296;
            const SVQTime expected(
                static_cast<unsigned char>(seconds / 3600 % 256), static_cast<unsigned char>(seconds / 60 % 60),
                static_cast<unsigned char>(seconds % 60), static_cast<unsigned>(shifted % kSecond));
            EXPECT_EQ(timeOf(micros, hours), expected) << micros << " and " << hours;
        }
    }
}

TEST(CVQDateAndTime, Kept_TheTwoSumsOfATimeDifferBelowMidnight) {  // id: date-two-sums
    const SVQTime time(1, 2, 3, 4);
    const Micros rest = 2 * 60 * kSecond + 3 * kSecond + 4;
    EXPECT_EQ(CVQDateAndTime::getMicroSecFromTime(time, 5), 6 * kHour + rest);
    EXPECT_EQ(CVQDateAndTime::getMicrosFromTime(time, 5), 6 * kHour + rest);
    EXPECT_EQ(CVQDateAndTime::getMicroSecFromTime(time, -2), rest - kHour);
    EXPECT_EQ(CVQDateAndTime::getMicrosFromTime(time, -2), rest + 4'294'967'295 * kHour);
    // 255 hours more than the largest number wrap to the other end of 32 bits.
    const SVQTime late(255, 0, 0, 0);
    EXPECT_EQ(CVQDateAndTime::getMicroSecFromTime(late, INT_MAX), 0 - (2'147'483'648 - 254) * kHour);
    EXPECT_EQ(CVQDateAndTime::getMicrosFromTime(late, INT_MAX), (2'147'483'648 + 254) * kHour);
    EXPECT_EQ(CVQDateAndTime::getMicroSecFromTime(late, INT_MIN), 0 - (2'147'483'648 - 255) * kHour);
    EXPECT_EQ(CVQDateAndTime::getMicrosFromTime(late, INT_MIN), (2'147'483'648 + 255) * kHour);
}

TEST(CVQDateAndTime, TimesOutOfRangeAreSummedAsTheyAre) {
    EXPECT_EQ(CVQDateAndTime::getMicrosFromTime(SVQTime(255, 255, 255, UINT_MAX), 0),
              255 * kHour + 255 * 60 * kSecond + 255 * kSecond + UINT_MAX);
}

TEST(CVQDateAndTime, GivesItsDateWithoutAnOffset) {
    SVQDate date;
    at(SVQDate(2009, 3, 7), SVQTime(23, 59, 59, 999'999)).getDate(date);
    EXPECT_EQ(date, SVQDate(2009, 3, 7));
    at(kLastTime).getDate(date);
    EXPECT_EQ(date, plain::dateFromDays(213'503'982));
}

TEST(CVQDateAndTime, Kept_GetTimeAddsItsOffsetAfterTheDay) {  // id: date-offset-after-day
    const CVQDateAndTime value = at(SVQDate(2009, 3, 7), SVQTime(23, 30, 0, 5));
    SVQTime time;
    value.getTime(time, 0);
    EXPECT_EQ(time, SVQTime(23, 30, 0, 5));
    value.getTime(time, 2);
    EXPECT_EQ(time, SVQTime(25, 30, 0, 5));
    value.getTime(time, -24);  // wraps: -1,800 s modulo 2^64 microseconds, seconds cut to 32 bits
    EXPECT_EQ(time, timeOf(kLastTime - 30 * 60 * kSecond + 6));
    at(kDay).getTime(time, -1);
    EXPECT_EQ(time, SVQTime(236, 4, 45, 551'616));
}

TEST(CVQDateAndTime, GetDateAndTimeAddsItsOffsetBeforeTheDay) {
    const CVQDateAndTime value = at(SVQDate(2009, 2, 28), SVQTime(23, 30, 0, 5));
    SVQDate date;
    SVQTime time;
    value.getDateAndTime(date, time, 2);
    EXPECT_EQ(date, SVQDate(2009, 3, 1));
    EXPECT_EQ(time, SVQTime(1, 30, 0, 5));
    value.getDateAndTime(date, time, -24);
    EXPECT_EQ(date, SVQDate(2009, 2, 27));
    EXPECT_EQ(time, SVQTime(23, 30, 0, 5));
    at(0).getDateAndTime(date, time, -1);
    EXPECT_EQ(date, plain::dateFromDays(213'503'982));
    EXPECT_EQ(time, timeOf((0 - kHour) % kDay));
}

TEST(CVQDateAndTime, SettingADateKeepsTheTimeOfDay) {
    CVQDateAndTime value = at(SVQDate(1999, 7, 1), SVQTime(13, 0, 0, 9));
    value.setDate(2000, 2, 29);
    EXPECT_EQ(value.getMicroseconds(), 11'016 * kDay + 13 * kHour + 9);
    value.setDate(SVQDate(3000, 12, 31));
    EXPECT_EQ(value.getMicroseconds(), kLastDay * kDay + 13 * kHour + 9);
    value.setDate(1970, 1, 0);  // day number 2^32 - 1
    EXPECT_EQ(value.getMicroseconds(), UINT_MAX * kDay + 13 * kHour + 9);
}

TEST(CVQDateAndTime, SettingATimeKeepsTheDay) {
    for (const Micros micros : {Micros(0), kDay - 1, 11'016 * kDay + 5, kLastDay * kDay + kHour}) {
        CVQDateAndTime value = at(micros);
        value.setTime(23, 0, 0, 0);
        EXPECT_EQ(value.getMicroseconds(), micros / kDay * kDay + 23 * kHour);
        value.setTime(SVQTime(1, 2, 3, 4), 3);
        EXPECT_EQ(value.getMicroseconds(), micros / kDay * kDay + 4 * kHour + 123 * kSecond + 4);
    }
}

TEST(CVQDateAndTime, Kept_SetTimeAddsItsOffsetToAnHourOf8Bits) {  // id: date-offset-8-bit
    CVQDateAndTime value = at(kDay);
    const SVQTime time(23, 0, 0, 0);
    value.setTime(time, 2);
    EXPECT_EQ(value.getMicroseconds(), kDay + 25 * kHour);
    EXPECT_EQ(time, SVQTime(23, 0, 0, 0));
    value = at(kDay);
    value.setTime(SVQTime(1, 0, 0, 0), -2);
    EXPECT_EQ(value.getMicroseconds(), kDay + 255 * kHour);
    value = at(kDay);
    value.setTime(SVQTime(1, 0, 0, 0), INT_MAX);
    EXPECT_EQ(value.getMicroseconds(), kDay);
}

TEST(CVQDateAndTime, SetsDateAndTimeAtOnce) {
    CVQDateAndTime value = at(kLastTime);
    value.setDateAndTime(2009, 3, 7, 14, 5, 9, 11);
    EXPECT_EQ(value.getMicroseconds(), 14'310 * kDay + 14 * kHour + 5 * 60 * kSecond + 9 * kSecond + 11);
    value.setDateAndTime(SVQDate(2009, 3, 7), SVQTime(0, 30, 0, 0), -1);
    EXPECT_EQ(textOf(value), "2009-03-06 23:30:00");
}

TEST(CVQDateAndTime, AcceptsExactlyTheDaysThatExistFrom1970To3000) {
    DayWalk walk;
    for (unsigned year = 1900; year <= 3100; ++year) {
        for (unsigned month = 0; month <= 14; ++month) {
            for (unsigned day = 0; day <= 33; ++day) {
                const SVQDate date(static_cast<unsigned short>(year), static_cast<unsigned char>(month),
                                   static_cast<unsigned char>(day));
                const bool exists = walk.isWithin3000() && date == walk.date();
                ASSERT_EQ(date.isValid(), exists) << date.toString().c_str();
                if (exists) {
                    walk.step();
                }
            }
        }
    }
    EXPECT_FALSE(walk.isWithin3000());
    EXPECT_FALSE(SVQDate(0, 1, 1).isValid());
    EXPECT_FALSE(SVQDate(65535, 12, 31).isValid());
    EXPECT_FALSE(SVQDate(2000, 255, 1).isValid());
    EXPECT_FALSE(SVQDate(2000, 1, 255).isValid());
}

TEST(CVQDateAndTime, AcceptsTimesWithinADay) {
    EXPECT_TRUE(SVQTime(0, 0, 0, 0).isValid());
    EXPECT_TRUE(SVQTime(23, 59, 59, 999'999).isValid());
    EXPECT_FALSE(SVQTime(24, 0, 0, 0).isValid());
    EXPECT_FALSE(SVQTime(0, 60, 0, 0).isValid());
    EXPECT_FALSE(SVQTime(0, 0, 60, 0).isValid());
    EXPECT_FALSE(SVQTime(0, 0, 0, 1'000'000).isValid());
    EXPECT_FALSE(CVQDateAndTime::isTimeValid(SVQTime(255, 255, 255, UINT_MAX)));
}

TEST(CVQDateAndTime, FormatsEveryDayAsPrintfDoes) {
    char expected[32];
    for (DayWalk walk; walk.isWithin3000(); walk.step()) {
        const SVQDate& date = walk.date();
        std::snprintf(expected, sizeof expected, "%d-%02d-%02d", date.year, date.month, date.day);
        ASSERT_STREQ(date.toString().c_str(), expected);
    }
}

TEST(CVQDateAndTime, FormatsEveryFieldThatARecordCanHold) {
    char expected[48];
    std::mt19937 random(7);
    for (unsigned year = 0; year <= 65535; ++year) {
        const SVQDate date(static_cast<unsigned short>(year), static_cast<unsigned char>(random()),
                           static_cast<unsigned char>(random()));
        std::snprintf(expected, sizeof expected, "%d-%02d-%02d", date.year, date.month, date.day);
        ASSERT_STREQ(date.toString().c_str(), expected);

        const SVQTime time(static_cast<unsigned char>(random()), static_cast<unsigned char>(random()),
                           static_cast<unsigned char>(random()), static_cast<unsigned>(random()));
        std::snprintf(expected, sizeof expected, "%02d:%02d:%02d", time.hour, time.minute, time.second);
        ASSERT_STREQ(time.toString().c_str(), expected);
    }
    EXPECT_STREQ(SVQDate(65535, 255, 255).toString().c_str(), "65535-255-255");
    EXPECT_STREQ(SVQTime(255, 255, 255, 0).toString().c_str(), "255:255:255");
}

TEST(CVQDateAndTime, FormatsAnyValueAsItsDateAndItsTime) {
    EXPECT_EQ(textOf(at(86'399'999'999)), "1970-01-01 23:59:59");
    std::mt19937_64 random(11);
    char expected[64];
    for (int i = 0; i != 20'000; ++i) {
        const Micros micros = random() >> (random() % 64);
        const SVQDate date = plain::dateFromDays(static_cast<unsigned>(micros / kDay));
        const auto seconds = static_cast<unsigned>(micros % kDay / kSecond);
        std::snprintf(expected, sizeof expected, "%d-%02d-%02d %02u:%02u:%02u", date.year, date.month, date.day,
                      seconds / 3600, seconds / 60 % 60, seconds % 60);
        ASSERT_EQ(textOf(at(micros)), expected) << micros;
    }
}

TEST(CVQDateAndTime, ItsTextNeedsExactlyItsLength) {
    const CVQString text = at(0).toString();
    EXPECT_EQ(text.getByteLength(), 19U);
    EXPECT_EQ(text.getCharacterCount(), 19U);
    EXPECT_EQ(text.getCapacity(), 19U);
}

TEST(CVQDateAndTime, TravelsAsEightBytes) {
    const unsigned char bytes[8] = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};  // low byte first
    CVQByteStream stream;
    stream << at(0xEFCDAB8967452301);
    ASSERT_EQ(stream.getLength(), 8U);
    unsigned char written[8] = {};
    EXPECT_EQ(stream.read(written, 8), 8U);
    EXPECT_EQ(std::memcmp(written, bytes, 8), 0);

    stream.write(bytes, 8);
    CVQDateAndTime value;
    stream >> value;
    EXPECT_EQ(value.getMicroseconds(), 0xEFCDAB8967452301);

    CVQDateAndTime first;
    CVQDateAndTime second;
    stream << at(1) << at(kLastTime);
    stream >> first >> second;
    EXPECT_EQ(first.compareTo(at(1)), 0);
    EXPECT_EQ(second.compareTo(at(kLastTime)), 0);
}

TEST(CVQDateAndTime, BytesThatDoNotComeLeaveTheOldValuesInPlace) {
    for (unsigned length = 0; length <= 8; ++length) {
        CVQDateAndTime value = at(0x1111111111111111);
        ShortStream(length) >> value;
        const Micros read = length == 0 ? 0 : kLastTime >> (64 - 8 * length);
        EXPECT_EQ(value.getMicroseconds(), (0x0807060504030201 & read) | (0x1111111111111111 & ~read)) << length;
    }
}

TEST(CVQDateAndTime, AByteStreamFillsUpWithZeros) {
    CVQByteStream stream;
    stream.write("\x01\x02\x03", 3);
    CVQDateAndTime value = at(0x1111111111111111);
    stream >> value;
    EXPECT_EQ(value.getMicroseconds(), 0x030201U);
    EXPECT_TRUE(stream.isEndOfData());
    value = at(0x1111111111111111);
    stream >> value;
    EXPECT_EQ(value.getMicroseconds(), 0x1111111111111111U);
}

TEST(CVQDateAndTime, Kept_SecondsOfThePlatformAreCutTo32Bits) {  // id: date-seconds-32
    const support::ScopedEnvironment zone("TZ", "UTC0");
    std::tm local = {};
    local.tm_year = 69;
    local.tm_mon = 11;
    local.tm_mday = 31;
    EXPECT_EQ(CVQDateAndTime(local, 0).getMicroseconds(), (4'294'967'296 - 86'400) * kSecond);

    local.tm_year = 206;  // 2106-02-07 06:28:17, a second more than 32 bits hold
    local.tm_mon = 1;
    local.tm_mday = 7;
    local.tm_hour = 6;
    local.tm_min = 28;
    local.tm_sec = 17;
    // A platform whose seconds have 32 bits rejects that time with -1.
    const Micros expected = sizeof(std::time_t) > 4 ? 1 : UINT_MAX;
    EXPECT_EQ(CVQDateAndTime(local, 0).getMicroseconds(), expected * kSecond);

    local.tm_year = INT_MAX;
    local.tm_mon = 12;  // in the year after, which no platform's record can hold
    EXPECT_EQ(CVQDateAndTime(local, 0).getMicroseconds(), UINT_MAX * kSecond);
    EXPECT_EQ(CVQDateAndTime(local, 1).getMicroseconds(), UINT_MAX * kSecond + kHour);
}
