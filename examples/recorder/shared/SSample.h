// SSample: what one series was at one time.
//   Units    the time in microseconds since 1970; the value in thousandths of the series' unit.
//   Shape    as a stream: the time (8 bytes), the series' name and its unit (each a length of 4 bytes and the bytes), the
//            kind (1), the value (8, two's complement).
#pragma once

#include <CVQByteStream.h>
#include <CVQDateAndTime.h>
#include <CVQString.h>

struct SSample {
    enum EKind : char {
        GAUGE = 'g',   // the value is what is of interest
        COUNTER = 'c'  // it counts up; how fast is of interest, in the unit per second
    };
    static constexpr unsigned kLongestText = 64;  // bytes of a name or a unit
    static constexpr unsigned kLargestSize = 8 + 2 * (4 + kLongestText) + 1 + 8;

    CVQDateAndTime time;
    CVQString series;
    CVQString unit;
    char kind = GAUGE;
    long long thousandths = 0;
};

/// A text that may be a name or a unit: some visible characters, no blanks around or between them.
bool isSampleText(const CVQString& text);

IVQOStream& operator<<(IVQOStream& stream, const SSample& sample);
/// Takes the next sample. False when the bytes there are none.
bool readSample(const CVQByteStream& stream, SSample& sample);
