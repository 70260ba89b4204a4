// PlainCalendar: the conversions of CVQDateAndTime in their plain form, one division and one table search a step.
// Day numbers travel and are stored, so that the library's own, faster form must agree with this one everywhere.
#pragma once

#include <CVQDateAndTime.h>

namespace plain {

using SVQDate = CVQDateAndTime::SVQDate;

inline const unsigned short* monthTable(unsigned short year) {
    static constexpr unsigned short kNormal[13] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365};
    static constexpr unsigned short kLeap[13] = {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366};
    if (year % 400 == 0) {
        return kLeap;
    }
    if (year % 100 == 0) {
        return kNormal;
    }
    return year % 4 == 0 ? kLeap : kNormal;
}

/// For months 1 to 13.
inline unsigned daysFromDate(const SVQDate& date) {
    const auto offset = static_cast<unsigned short>(date.year - 1970);
    const unsigned rest = offset % 400U;
    unsigned days = offset / 400U * 146'097U;
    days += rest / 100U * 36'524U;
    days += rest % 100U / 4U * 1'461U;
    days += 365U * (offset % 4U);
    if (offset % 4U == 3U) {
        days += 1U;
    }
    return days + monthTable(date.year)[date.month - 1] + date.day - 1U;
}

/// A search that finds no month stops behind the last one.
inline SVQDate dateFromDays(unsigned dayNumber) {
    const unsigned cycles400 = dayNumber / 146'097U;
    const unsigned rest400 = dayNumber % 146'097U;
    const unsigned cycles100 = rest400 / 36'524U;
    const unsigned rest100 = rest400 % 36'524U;
    const unsigned cycles4 = rest100 / 1'461U;
    const unsigned rest4 = rest100 % 1'461U;

    unsigned year = rest4 / 365U;
    unsigned adjustment = 0;
    if (year >= 3U) {
        year = (rest4 - 1U) / 365U;
        if (year >= 3U) {
            adjustment = 1U;
        }
    }
    const unsigned dayOfYear = rest4 - adjustment - 365U * year;

    SVQDate date;
    date.year = static_cast<unsigned short>(cycles400 * 400U + 1970U + cycles100 * 100U + cycles4 * 4U + year);
    const unsigned short* table = monthTable(date.year);
    unsigned month = 1;
    while (month <= 12 && dayOfYear >= table[month]) {
        ++month;
    }
    date.month = static_cast<unsigned char>(month);
    date.day = static_cast<unsigned char>(dayOfYear + 1U - table[month - 1U]);
    return date;
}

}  // namespace plain
