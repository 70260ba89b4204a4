// CVQDateAndTime: a point in time, with a calendar view and an 8-byte serialised form.
//
//   Units    microseconds since 1970-01-01 00:00:00 in an unsigned 64-bit count; every day has 86,400 seconds.
//            There is no time zone: a shift is an explicit number of whole hours, which may be negative. Summer
//            time and leap seconds are unknown here.
//   Shape    one unsigned 64-bit word. A stream carries exactly its 8 bytes, in the host's byte order. `SVQDate`
//            (year, month, day) and `SVQTime` (hour, minute, second, microsecond) are plain records of 4 and 8
//            bytes. All three are copied freely.
//   Errors   none, but for one logged overflow (setMicrosecondsFromUnixBaseTime). Nothing is validated: sums wrap
//            modulo 2^64, fields are cut to their width, and a date that is none has whatever day number the
//            arithmetic gives. Ask isDateValid and isTimeValid. Any 8 bytes from a stream are a value that every
//            operation here takes.
//   Threads  plain value: one thread at a time. The static functions are pure, except that getDayOfWeek(date)
//            and the constructor from std::tm call the platform's `mktime`, and `now` calls `time`.
//   Kept     date-cycles-1970: day numbers count 400-, 100- and 4-year cycles from 1970, and a century always has
//            36,524 days. Up to 2069-12-31 they are the true count of days; later they may be one lower. Stored and
//            transmitted values hold such day numbers.
//            date-twin-days: the day number of December 31st of 2069, 2169, ... 2969 converts to January 1st. It is
//            that day's number too, but in 2369 and 2769 the one before it. Every other date up to 3000-12-31
//            converts back to itself.
//            date-month-13: seven day numbers below that of 3000-12-31 (47846, 84370, 120894, 193943, 230467,
//            266991 and 340040) would be the 366th day of a year of 365. They convert to the first of a month 13,
//            which isDateValid rejects.
//            date-base-1971: setMicrosecondsFromUnixBaseTime shifts by 365 days, and its overflow message says
//            "occured".
//            date-offset-after-day: getTime adds its offset to the time of day, so that hour 25 comes out, and
//            before midnight a time without meaning.
//            date-offset-8-bit: setTime adds its offset to an 8-bit hour.
//            date-two-sums: getMicroSecFromTime reads hour + offset as signed, getMicrosFromTime as unsigned.
//            date-seconds-32: `now` and the constructor from std::tm keep 32 bits of seconds; a time that `mktime`
//            rejects is the last of them.
//            date-weekday-local: getDayOfWeek(date) asks for midnight in local standard time. Where clocks go back
//            from it in winter (Ireland), that is in the day before (docs/kept.md).
#pragma once

#include <CVQTimeSpan.h>
#include <VQExport.h>

#include <ctime>

class CVQString;
class IVQIStream;
class IVQOStream;

class VQ_EXPORT CVQDateAndTime {
public:
    static const unsigned long long msMicrosIn1Day = 86'400'000'000ULL;
    static const unsigned long long msSecondsIn1Year = 31'536'000ULL;  ///< in 365 days

    /// A calendar date. Nothing is checked when it is stored.
    struct VQ_EXPORT SVQDate {
        unsigned short year = 1970;  ///< in full, 1970 to 3000 when valid
        unsigned char month = 1;     ///< 1 to 12
        unsigned char day = 1;       ///< 1 to 31

        constexpr SVQDate() = default;
        constexpr SVQDate(unsigned short fullYear, unsigned char monthOfYear, unsigned char dayOfMonth)
            : year(fullYear), month(monthOfYear), day(dayOfMonth) {}

        constexpr bool operator==(const SVQDate& other) const {
            return year == other.year && month == other.month && day == other.day;
        }
        constexpr bool operator!=(const SVQDate& other) const { return !(*this == other); }

        bool isLeapYear() const { return CVQDateAndTime::isLeapYear(year); }
        bool isValid() const { return isDateValid(*this); }

        /// "2009-03-07".
        CVQString toString() const;
    };

    /// A time of day. Nothing is checked when it is stored.
    struct VQ_EXPORT SVQTime {
        unsigned char hour = 0;        ///< 0 to 23 when valid
        unsigned char minute = 0;      ///< 0 to 59
        unsigned char second = 0;      ///< 0 to 59
        unsigned int microsecond = 0;  ///< 0 to 999,999

        constexpr SVQTime() = default;
        constexpr SVQTime(unsigned char hourOfDay, unsigned char minuteOfHour, unsigned char secondOfMinute,
                          unsigned int microsecondOfSecond)
            : hour(hourOfDay), minute(minuteOfHour), second(secondOfMinute), microsecond(microsecondOfSecond) {}

        constexpr bool operator==(const SVQTime& other) const {
            return hour == other.hour && minute == other.minute && second == other.second &&
                   microsecond == other.microsecond;
        }
        constexpr bool operator!=(const SVQTime& other) const { return !(*this == other); }

        bool isValid() const { return isTimeValid(*this); }

        /// "14:05:09"; microseconds are not shown.
        CVQString toString() const;
    };

    /// 1970-01-01 00:00:00.
    constexpr CVQDateAndTime() = default;
    /// `value` counts seconds or, without the flag, microseconds.
    CVQDateAndTime(unsigned long long value, bool isSeconds, int hourOffset);
    CVQDateAndTime(const SVQDate& date, const SVQTime& time, int hourOffset);
    /// `time` is read as the platform's local time, out-of-range fields and all. Kept: date-seconds-32.
    CVQDateAndTime(std::tm time, int hourOffset);

    /// The system clock, in whole seconds. Kept: date-seconds-32.
    static CVQDateAndTime now(int hourOffset);

    void setMicroseconds(unsigned long long micros) { mValue = micros; }
    unsigned long long getMicroseconds() const { return mValue; }

    void setMicrosecondsFromUnixBaseTimeNew(unsigned long long micros) { mValue = micros; }
    /// The older entry point: stores `micros` and 365 days, modulo 2^64; a sum that wraps is stored and logged.
    /// Kept: date-base-1971.
    void setMicrosecondsFromUnixBaseTime(unsigned long long micros);
    unsigned long long getMicrosecondsForUnixBaseTime() const { return mValue; }
    unsigned long long getSecondsForUnixBaseTime() const { return mValue / 1'000'000; }

    /// Modulo 2^64: a negative span moves the time back.
    void addTimeSpan(const CVQTimeSpan& span) { mValue += span.getMicroseconds(); }
    void subTimeSpan(const CVQTimeSpan& span) { mValue -= span.getMicroseconds(); }
    /// From `other` to this; negative when `other` is later.
    CVQTimeSpan subTimeStamp(const CVQDateAndTime& other) const { return CVQTimeSpan(mValue - other.mValue); }

    /// -1, 0 or 1.
    int compareTo(const CVQDateAndTime& other) const {
        return (mValue > other.mValue ? 1 : 0) - (mValue < other.mValue ? 1 : 0);
    }

    void getDate(SVQDate& date) const;
    /// The offset is added to the time of day alone. Kept: date-offset-after-day.
    void getTime(SVQTime& time, int hourOffset) const;
    /// The offset is added first, so that it moves the date as well.
    void getDateAndTime(SVQDate& date, SVQTime& time, int hourOffset) const;

    /// Keeps the time of day.
    void setDate(const SVQDate& date);
    void setDate(unsigned short year, unsigned char month, unsigned char day);
    /// Keeps the day. Kept: date-offset-8-bit.
    void setTime(const SVQTime& time, int hourOffset);
    void setTime(unsigned char hour, unsigned char minute, unsigned char second, unsigned int microsecond);
    void setDateAndTime(const SVQDate& date, const SVQTime& time, int hourOffset);
    void setDateAndTime(unsigned short year, unsigned char month, unsigned char day, unsigned char hour,
                        unsigned char minute, unsigned char second, unsigned int microsecond);

    /// "2009-03-07 14:05:09".
    CVQString toString() const;

    /// By the Gregorian rule.
    static bool isLeapYear(unsigned short year);
    /// A table of 13 entries: entry m is the number of days of the year before month m + 1.
    static const unsigned short* getDaysFromStart(unsigned short year);

    /// The day number of a date; 1970-01-01 is 0. A month outside 1 to 13 counts as the nearer of these two, month
    /// 13 as the time after the year's last day. Kept: date-cycles-1970, date-twin-days.
    static unsigned int getDaysFromDate(const SVQDate& date);
    /// The inverse; of the year 16 bits are kept. Kept: date-month-13.
    static void getDateFromDays(unsigned int dayNumber, SVQDate& date);

    /// 0 is Sunday. Follows the day numbers, one-day deviations included.
    static unsigned int getDayOfWeek(unsigned int dayNumber);
    /// 0 is Sunday. Asks the platform's `mktime`, and where that cannot tell, the true Gregorian calendar.
    /// Kept: date-weekday-local.
    static unsigned int getDayOfWeek(const SVQDate& date);

    /// Microseconds since midnight, modulo 2^64. Kept: date-two-sums.
    static unsigned long long getMicroSecFromTime(const SVQTime& time, int hourOffset);
    static unsigned long long getMicrosFromTime(const SVQTime& time, int hourOffset);
    /// Modulo 2^64, then whole seconds are cut to 32 bits. Hours are not reduced to a day, but cut to 8 bits.
    static void getTimeFromMicros(unsigned long long micros, SVQTime& time, int hourOffset);

    /// A day that exists, from 1970-01-01 to 3000-12-31.
    static bool isDateValid(const SVQDate& date);
    static bool isTimeValid(const SVQTime& time);

private:
    unsigned long long mValue = 0;
};

/// 8 bytes: the microseconds.
VQ_EXPORT IVQOStream& operator<<(IVQOStream& stream, const CVQDateAndTime& dateAndTime);
/// Bytes that do not come leave those of the old value. A byte stream that ends within the 8 bytes fills up with
/// zeros; one that has ended before leaves the value alone.
VQ_EXPORT const IVQIStream& operator>>(const IVQIStream& stream, CVQDateAndTime& dateAndTime);
