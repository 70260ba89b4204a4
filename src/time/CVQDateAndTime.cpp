#include <CVQDateAndTime.h>

#include <CVQString.h>
#include <IVQIStream.h>
#include <IVQOStream.h>
#include <VQSyslog.h>

#include <cstring>

const unsigned long long CVQDateAndTime::msMicrosIn1Day;
const unsigned long long CVQDateAndTime::msSecondsIn1Year;

namespace {

constexpr unsigned long long kMicrosPerSecond = 1'000'000;
constexpr unsigned long long kMicrosPerHour = 3600 * kMicrosPerSecond;

constexpr unsigned kBaseYear = 1970;
constexpr unsigned kLastYear = 3000;

// Kept: date-cycles-1970. Cycles start at 1970, and a century has 36,524 days, the one with a leap year more too.
constexpr unsigned kDaysIn400Years = 146'097;
constexpr unsigned kDaysIn100Years = 36'524;
constexpr unsigned kDaysIn4Years = 1'461;

constexpr unsigned short kDaysFromStart[2][13] = {
    {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365},
    {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366},
};
constexpr unsigned kMonthAfterLast = 13;

constexpr bool isLeap(unsigned year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 16 == 0);
}

constexpr unsigned yearsFromBase(unsigned short year) {
    return static_cast<unsigned short>(year - kBaseYear);
}

constexpr unsigned long long shiftedByHours(unsigned long long micros, int hours) {
    return micros + static_cast<unsigned long long>(hours) * kMicrosPerHour;
}

constexpr unsigned long long sumOfTime(unsigned long long hours, const CVQDateAndTime::SVQTime& time) {
    return hours * kMicrosPerHour + (time.minute * 60U + time.second) * kMicrosPerSecond + time.microsecond;
}

// The day of the week by the true Gregorian calendar; months and days out of range run on, as in `mktime`.
unsigned gregorianDayOfWeek(const CVQDateAndTime::SVQDate& date) {
    // Years start in March here, so that the leap day comes last. 400 years more change no weekday and keep the
    // counts positive.
    const unsigned months = (date.year + 400U) * 12 + date.month - 3;
    const unsigned year = months / 12;
    const unsigned daysBeforeMonth = (153 * (months % 12) + 2) / 5;
    const unsigned days = 365 * year + year / 4 - year / 100 + year / 400 + daysBeforeMonth + date.day;
    return (days + 2) % 7;
}

struct STwoDigits {
    constexpr STwoDigits() : digits() {
        for (unsigned value = 0; value != 100; ++value) {
            digits[value][0] = static_cast<char>('0' + value / 10);
            digits[value][1] = static_cast<char>('0' + value % 10);
        }
    }
    char digits[100][2];
};
constexpr STwoDigits kTwoDigits;

// The digits of `value`, which has no more than three, but at least two; returns where the text goes on.
char* writeTwoDigits(char* to, unsigned value) {
    if (VQ_UNLIKELY(value >= 100)) {
        *to++ = static_cast<char>('0' + value / 100);
        value %= 100;
    }
    std::memcpy(to, kTwoDigits.digits[value], 2);
    return to + 2;
}

char* writeYear(char* to, unsigned year) {
    if (VQ_LIKELY(year >= 1000)) {
        to = writeTwoDigits(to, year / 100);
        return writeTwoDigits(to, year % 100);
    }
    if (year >= 10) {
        return writeTwoDigits(to, year);
    }
    *to = static_cast<char>('0' + year);
    return to + 1;
}

char* writeDate(char* to, const CVQDateAndTime::SVQDate& date) {
    to = writeYear(to, date.year);
    *to++ = '-';
    to = writeTwoDigits(to, date.month);
    *to++ = '-';
    return writeTwoDigits(to, date.day);
}

char* writeTime(char* to, const CVQDateAndTime::SVQTime& time) {
    to = writeTwoDigits(to, time.hour);
    *to++ = ':';
    to = writeTwoDigits(to, time.minute);
    *to++ = ':';
    return writeTwoDigits(to, time.second);
}

constexpr std::size_t kTextSize = sizeof "65535-255-255 255:255:255";

CVQString toText(const char* begin, const char* end) {
    return CVQString(begin, static_cast<std::size_t>(end - begin));
}

}  // namespace

CVQString CVQDateAndTime::SVQDate::toString() const {
    char text[kTextSize];
    return toText(text, writeDate(text, *this));
}

CVQString CVQDateAndTime::SVQTime::toString() const {
    char text[kTextSize];
    return toText(text, writeTime(text, *this));
}

CVQDateAndTime::CVQDateAndTime(unsigned long long value, bool isSeconds, int hourOffset)
    : mValue(shiftedByHours(isSeconds ? value * kMicrosPerSecond : value, hourOffset)) {
}

CVQDateAndTime::CVQDateAndTime(const SVQDate& date, const SVQTime& time, int hourOffset) {
    setDateAndTime(date, time, hourOffset);
}

// Kept: date-seconds-32. The count of seconds wraps in 2106, and a time that `mktime` rejects is the last second.
CVQDateAndTime::CVQDateAndTime(std::tm time, int hourOffset)
    : CVQDateAndTime(static_cast<unsigned int>(std::mktime(&time)), /*isSeconds*/ true, hourOffset) {
}

CVQDateAndTime CVQDateAndTime::now(int hourOffset) {
    // Kept: date-seconds-32.
    return CVQDateAndTime(static_cast<unsigned int>(std::time(nullptr)), /*isSeconds*/ true, hourOffset);
}

void CVQDateAndTime::setMicrosecondsFromUnixBaseTime(unsigned long long micros) {
    // Kept: date-base-1971. Senders that use this entry point count from a year later.
    mValue = micros + msSecondsIn1Year * kMicrosPerSecond;
    if (VQ_UNLIKELY(mValue < micros)) {
        VQSyslog::logMsg(0, VQSyslog::ERROR, "An overflow in the date time calculation has occured");
    }
}

void CVQDateAndTime::getDate(SVQDate& date) const {
    getDateFromDays(static_cast<unsigned int>(mValue / msMicrosIn1Day), date);
}

void CVQDateAndTime::getTime(SVQTime& time, int hourOffset) const {
    // Kept: date-offset-after-day.
    getTimeFromMicros(mValue % msMicrosIn1Day, time, hourOffset);
}

void CVQDateAndTime::getDateAndTime(SVQDate& date, SVQTime& time, int hourOffset) const {
    const unsigned long long shifted = shiftedByHours(mValue, hourOffset);
    getDateFromDays(static_cast<unsigned int>(shifted / msMicrosIn1Day), date);
    getTimeFromMicros(shifted % msMicrosIn1Day, time, 0);
}

void CVQDateAndTime::setDate(const SVQDate& date) {
    mValue = mValue % msMicrosIn1Day + getDaysFromDate(date) * msMicrosIn1Day;
}

void CVQDateAndTime::setDate(unsigned short year, unsigned char month, unsigned char day) {
    setDate(SVQDate(year, month, day));
}

void CVQDateAndTime::setTime(const SVQTime& time, int hourOffset) {
    SVQTime shifted(time);
    // Kept: date-offset-8-bit.
    shifted.hour = static_cast<unsigned char>(time.hour + static_cast<unsigned>(hourOffset));
    mValue = mValue - mValue % msMicrosIn1Day + getMicrosFromTime(shifted, 0);
}

void CVQDateAndTime::setTime(unsigned char hour, unsigned char minute, unsigned char second,
                             unsigned int microsecond) {
    setTime(SVQTime(hour, minute, second, microsecond), 0);
}

void CVQDateAndTime::setDateAndTime(const SVQDate& date, const SVQTime& time, int hourOffset) {
    mValue = getDaysFromDate(date) * msMicrosIn1Day + getMicroSecFromTime(time, hourOffset);
}

void CVQDateAndTime::setDateAndTime(unsigned short year, unsigned char month, unsigned char day, unsigned char hour,
                                    unsigned char minute, unsigned char second, unsigned int microsecond) {
    setDateAndTime(SVQDate(year, month, day), SVQTime(hour, minute, second, microsecond), 0);
}

CVQString CVQDateAndTime::toString() const {
    SVQDate date;
    SVQTime time;
    getDateAndTime(date, time, 0);

    char text[kTextSize];
    char* end = writeDate(text, date);
    *end++ = ' ';
    return toText(text, writeTime(end, time));
}

bool CVQDateAndTime::isLeapYear(unsigned short year) {
    return isLeap(year);
}

const unsigned short* CVQDateAndTime::getDaysFromStart(unsigned short year) {
    return kDaysFromStart[isLeap(year) ? 1 : 0];
}

unsigned int CVQDateAndTime::getDaysFromDate(const SVQDate& date) {
    const unsigned years = yearsFromBase(date.year);
    const unsigned yearOfCentury = years % 100;
    // Kept: date-twin-days. Every third of four years has 366 days, whichever century it is in.
    const unsigned daysOfYears = years / 400 * kDaysIn400Years + years % 400 / 100 * kDaysIn100Years +
                                 (yearOfCentury * kDaysIn4Years + 1) / 4;

    const unsigned month = date.month == 0 ? 1 : date.month > kMonthAfterLast ? kMonthAfterLast : date.month;
    return daysOfYears + getDaysFromStart(date.year)[month - 1] + date.day - 1;
}

void CVQDateAndTime::getDateFromDays(unsigned int dayNumber, SVQDate& date) {
    const unsigned dayOf400Years = dayNumber % kDaysIn400Years;
    const unsigned quarterDays = dayOf400Years % kDaysIn100Years * 4 + 2;
    const unsigned dayOfYear = quarterDays % kDaysIn4Years / 4;
    date.year = static_cast<unsigned short>(kBaseYear + dayNumber / kDaysIn400Years * 400 +
                                            dayOf400Years / kDaysIn100Years * 100 + quarterDays / kDaysIn4Years);

    // A month starts no later than its number times 32 days, and less than a month earlier: the guess is right or
    // one too small. Kept: date-month-13. The 366th day of a year of 365 is found behind the last month.
    const unsigned short* daysBefore = getDaysFromStart(date.year);
    const unsigned guess = dayOfYear / 32;
    const unsigned month = guess + (dayOfYear >= daysBefore[guess + 1] ? 1 : 0);
    date.month = static_cast<unsigned char>(month + 1);
    date.day = static_cast<unsigned char>(dayOfYear + 1 - daysBefore[month]);
}

unsigned int CVQDateAndTime::getDayOfWeek(unsigned int dayNumber) {
    return (dayNumber + 4) % 7;
}

unsigned int CVQDateAndTime::getDayOfWeek(const SVQDate& date) {
    // Kept: date-weekday-local. The cleared flag says standard time, which need not be the one that is in force.
    std::tm time = {};
    time.tm_mday = date.day;
    time.tm_mon = date.month - 1;
    time.tm_year = date.year - 1900;
    time.tm_wday = -1;
    std::mktime(&time);
    // Left alone where the platform's count of seconds is too narrow for the date.
    return time.tm_wday < 0 ? gregorianDayOfWeek(date) : static_cast<unsigned int>(time.tm_wday);
}

unsigned long long CVQDateAndTime::getMicroSecFromTime(const SVQTime& time, int hourOffset) {
    // Kept: date-two-sums. The sum of hours is cut to 32 bits, here a signed number and below an unsigned one.
    const unsigned hours = time.hour + static_cast<unsigned>(hourOffset);
    return sumOfTime(static_cast<unsigned long long>(static_cast<int>(hours)), time);
}

unsigned long long CVQDateAndTime::getMicrosFromTime(const SVQTime& time, int hourOffset) {
    const unsigned hours = time.hour + static_cast<unsigned>(hourOffset);
    return sumOfTime(hours, time);
}

void CVQDateAndTime::getTimeFromMicros(unsigned long long micros, SVQTime& time, int hourOffset) {
    const unsigned long long shifted = shiftedByHours(micros, hourOffset);
    time.microsecond = static_cast<unsigned int>(shifted % kMicrosPerSecond);
    const auto seconds = static_cast<unsigned int>(shifted / kMicrosPerSecond);
    time.hour = static_cast<unsigned char>(seconds / 3600);
    time.minute = static_cast<unsigned char>(seconds % 3600 / 60);
    time.second = static_cast<unsigned char>(seconds % 60);
}

bool CVQDateAndTime::isDateValid(const SVQDate& date) {
    if (yearsFromBase(date.year) > kLastYear - kBaseYear || date.month == 0 || date.month > 12 || date.day == 0) {
        return false;
    }
    const unsigned short* daysBefore = getDaysFromStart(date.year);
    return date.day <= daysBefore[date.month] - daysBefore[date.month - 1];
}

bool CVQDateAndTime::isTimeValid(const SVQTime& time) {
    return time.hour <= 23 && time.minute <= 59 && time.second <= 59 && time.microsecond <= 999'999;
}

IVQOStream& operator<<(IVQOStream& stream, const CVQDateAndTime& dateAndTime) {
    return stream << dateAndTime.getMicroseconds();
}

const IVQIStream& operator>>(const IVQIStream& stream, CVQDateAndTime& dateAndTime) {
    unsigned long long micros = dateAndTime.getMicroseconds();
    stream >> micros;
    dateAndTime.setMicroseconds(micros);
    return stream;
}
