// VQInteropFormat: this library's values in {fmt} and in std::format, whichever is there when this header is compiled;
// with neither it declares nothing.
//
//   Shape    texts and paths as their bytes; dates, spans and versions as VQInteropText says; fixed-point numbers as
//            the same `double`.
//   Formats  those of a string ("{:>20}", "{:.3}"), for numbers those of a double ("{:.2f}"). Widths count as the
//            formatting library counts those of UTF-8 text.
//   Errors   those of the formatting library.
//   State    tested with {fmt}; untried with std::format, which the compilers at hand do not have.
//   Threads  as the values.
#pragma once

#include <CVQFix16.h>
#include <VQInteropStringView.h>
#include <VQInteropText.h>

#if __has_include(<fmt/format.h>)
#include <fmt/format.h>
#endif
#if __has_include(<version>)
#include <version>
#endif
#if defined(__cpp_lib_format)
#include <format>
#endif

namespace VQPrivate {

/// `Base` formats strings of either library.
template <class T, class Base>
struct TVQTextFormatter : Base {
    template <class Context>
    auto format(const T& value, Context& context) const {
        return Base::format(VQInterop::toStringView(VQInterop::toText(value)), context);
    }
};

/// `Base` formats double.
template <class Base>
struct TVQFix16Formatter : Base {
    template <class Context>
    auto format(const CVQFix16& number, Context& context) const {
        return Base::format(number.toDouble(), context);
    }
};

}  // namespace VQPrivate

#if __has_include(<fmt/format.h>)
namespace VQPrivate {
template <class T>
using TVQFmtFormatter = TVQTextFormatter<T, fmt::formatter<fmt::string_view>>;
}  // namespace VQPrivate

template <>
struct fmt::formatter<CVQString> : VQPrivate::TVQFmtFormatter<CVQString> {};
template <>
struct fmt::formatter<CVQPath> : VQPrivate::TVQFmtFormatter<CVQPath> {};
template <>
struct fmt::formatter<CVQDateAndTime::SVQDate> : VQPrivate::TVQFmtFormatter<CVQDateAndTime::SVQDate> {};
template <>
struct fmt::formatter<CVQDateAndTime::SVQTime> : VQPrivate::TVQFmtFormatter<CVQDateAndTime::SVQTime> {};
template <>
struct fmt::formatter<CVQDateAndTime> : VQPrivate::TVQFmtFormatter<CVQDateAndTime> {};
template <>
struct fmt::formatter<CVQTimeSpan::Span> : VQPrivate::TVQFmtFormatter<CVQTimeSpan::Span> {};
template <>
struct fmt::formatter<CVQTimeSpan> : VQPrivate::TVQFmtFormatter<CVQTimeSpan> {};
template <>
struct fmt::formatter<CVQVersion> : VQPrivate::TVQFmtFormatter<CVQVersion> {};
template <>
struct fmt::formatter<CVQFix16> : VQPrivate::TVQFix16Formatter<fmt::formatter<double>> {};
#endif

#if defined(__cpp_lib_format)
namespace VQPrivate {
template <class T>
using TVQStdFormatter = TVQTextFormatter<T, std::formatter<std::string_view>>;
}  // namespace VQPrivate

template <>
struct std::formatter<CVQString> : VQPrivate::TVQStdFormatter<CVQString> {};
template <>
struct std::formatter<CVQPath> : VQPrivate::TVQStdFormatter<CVQPath> {};
template <>
struct std::formatter<CVQDateAndTime::SVQDate> : VQPrivate::TVQStdFormatter<CVQDateAndTime::SVQDate> {};
template <>
struct std::formatter<CVQDateAndTime::SVQTime> : VQPrivate::TVQStdFormatter<CVQDateAndTime::SVQTime> {};
template <>
struct std::formatter<CVQDateAndTime> : VQPrivate::TVQStdFormatter<CVQDateAndTime> {};
template <>
struct std::formatter<CVQTimeSpan::Span> : VQPrivate::TVQStdFormatter<CVQTimeSpan::Span> {};
template <>
struct std::formatter<CVQTimeSpan> : VQPrivate::TVQStdFormatter<CVQTimeSpan> {};
template <>
struct std::formatter<CVQVersion> : VQPrivate::TVQStdFormatter<CVQVersion> {};
template <>
struct std::formatter<CVQFix16> : VQPrivate::TVQFix16Formatter<std::formatter<double>> {};
#endif
