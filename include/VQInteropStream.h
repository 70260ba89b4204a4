// VQInteropStream: insertion of this library's values into std::ostream.
//
//   Shape    texts and paths as their bytes, zero bytes too; dates, spans and versions as VQInteropText says;
//            fixed-point numbers as the same `double`, by the stream's precision and flags.
//   Width    the stream's width, fill and adjustment apply to the value as a whole, and count bytes, as they do for
//            std::string.
//   Errors   those of the stream.
//   Threads  one thread at a time for the stream, and as the values.
#pragma once

#include <CVQFix16.h>
#include <VQInteropStringView.h>
#include <VQInteropText.h>

#include <ostream>

inline std::ostream& operator<<(std::ostream& stream, const CVQString& text) {
    return stream << VQInterop::toStringView(text);
}

inline std::ostream& operator<<(std::ostream& stream, const CVQPath& path) {
    return stream << path.getString();
}

inline std::ostream& operator<<(std::ostream& stream, const CVQDateAndTime::SVQDate& date) {
    return stream << VQInterop::toText(date);
}

inline std::ostream& operator<<(std::ostream& stream, const CVQDateAndTime::SVQTime& time) {
    return stream << VQInterop::toText(time);
}

inline std::ostream& operator<<(std::ostream& stream, const CVQDateAndTime& dateAndTime) {
    return stream << VQInterop::toText(dateAndTime);
}

inline std::ostream& operator<<(std::ostream& stream, const CVQTimeSpan::Span& span) {
    return stream << VQInterop::toText(span);
}

inline std::ostream& operator<<(std::ostream& stream, const CVQTimeSpan& span) {
    return stream << VQInterop::toText(span);
}

inline std::ostream& operator<<(std::ostream& stream, const CVQVersion& version) {
    return stream << VQInterop::toText(version);
}

inline std::ostream& operator<<(std::ostream& stream, const CVQFix16& number) {
    return stream << number.toDouble();
}
