// VQInteropText: the small values of this library as text, in the form that VQInteropStream inserts and
// VQInteropFormat formats.
//
//   Shape    a date, a time of day and a point in time as their `toString`. A span as "-1 d 02:03:04.000005": the days
//            only when there are some, the microseconds only when they are not 0. A version as "1.2.3".
//   Errors   none. Fields that are out of range are written as they are: 90 minutes as "00:90:00".
//   Threads  as the values.
#pragma once

#include <CVQDateAndTime.h>
#include <CVQPath.h>
#include <CVQString.h>
#include <CVQTimeSpan.h>
#include <CVQVersion.h>
#include <TVQFormatString.h>

/// What stands between the types of this library and those of std: conversions, locks that fit the guards, text.
namespace VQInterop {

inline const CVQString& toText(const CVQString& text VQ_LIFETIMEBOUND) noexcept {
    return text;
}

inline const CVQString& toText(const CVQPath& path VQ_LIFETIMEBOUND) noexcept {
    return path.getString();
}

inline CVQString toText(const CVQDateAndTime::SVQDate& date) {
    return date.toString();
}

inline CVQString toText(const CVQDateAndTime::SVQTime& time) {
    return time.toString();
}

inline CVQString toText(const CVQDateAndTime& dateAndTime) {
    return dateAndTime.toString();
}

inline CVQString toText(const CVQTimeSpan::Span& span) {
    CVQString text(span.negative ? "-" : "");
    if (span.days != 0) {
        text.append(TVQFormatString<16>("%u d ", span.days));
    }
    text.append(TVQFormatString<16>("%02u:%02u:%02u", unsigned{span.hours}, unsigned{span.minutes},
                                    unsigned{span.seconds}));
    if (span.microseconds != 0) {
        text.append(TVQFormatString<16>(".%06u", span.microseconds));
    }
    return text;
}

/// Below zero where the span is: as `getSpan`, and not as its getters, sees it.
inline CVQString toText(const CVQTimeSpan& span) {
    CVQTimeSpan::Span parts;
    span.getSpan(parts);
    return toText(parts);
}

inline CVQString toText(const CVQVersion& version) {
    return CVQString(TVQFormatString<24>("%u.%u.%u", unsigned{version.getMajor()}, unsigned{version.getMinor()},
                                         unsigned{version.getRevision()}));
}

}  // namespace VQInterop
