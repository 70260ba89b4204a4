// VQInteropFormat: each value's text through {fmt}; widths, precisions; wrong formats; beside {fmt}'s own ranges.
#include <VQInteropFormat.h>

#include <fmt/ranges.h>  // would take a text for a range of its characters
#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace std::string_literals;

TEST(VQInteropFormat, FormatsEachValueAsItsText) {
    EXPECT_EQ("Grüße", fmt::format("{}", CVQString("Grüße")));
    EXPECT_EQ("", fmt::format("{}", CVQString()));
    EXPECT_EQ("a\0b"s, fmt::format("{}", VQInterop::fromStringView("a\0b"s)));
    EXPECT_EQ("/usr/lib", fmt::format("{}", CVQPath("/usr/lib")));
    EXPECT_EQ("2009-03-07", fmt::format("{}", CVQDateAndTime::SVQDate(2009, 3, 7)));
    EXPECT_EQ("14:05:09", fmt::format("{}", CVQDateAndTime::SVQTime(14, 5, 9, 1)));
    EXPECT_EQ("1970-01-01 00:00:00", fmt::format("{}", CVQDateAndTime()));
    EXPECT_EQ("-1 d 02:03:04.000005", fmt::format("{}", CVQTimeSpan::Span(true, 1, 2, 3, 4, 5)));
    EXPECT_EQ("-00:00:00.000001", fmt::format("{}", CVQTimeSpan(~0ull)));
    EXPECT_EQ("1.2.3", fmt::format("{}", CVQVersion(1, 2, 3)));
    EXPECT_EQ("-2.25", fmt::format("{}", CVQFix16(-2.25)));
}

TEST(VQInteropFormat, TakesTheFormatsOfStringsAndNumbers) {
    EXPECT_EQ("[  Grüße]", fmt::format("[{:>7}]", CVQString("Grüße")));
    EXPECT_EQ("[Gr*****]", fmt::format("[{:*<7.2}]", CVQString("Grüße")));
    EXPECT_EQ("[ 2009-03-07 ]", fmt::format("[{:^12}]", CVQDateAndTime::SVQDate(2009, 3, 7)));
    EXPECT_EQ("+1.500 [  0.25]", fmt::format("{:+.3f} [{:6}]", CVQFix16(1.5), CVQFix16(0.25)));
    EXPECT_EQ("1.52587890625e-05", fmt::format("{}", CVQFix16::fromRaw(1)));
}

TEST(VQInteropFormat, RefusesFormatsThatAreNone) {
    EXPECT_THROW((void)fmt::format(fmt::runtime("{:d}"), CVQString("x")), fmt::format_error);
    EXPECT_THROW((void)fmt::format(fmt::runtime("{:x}"), CVQFix16(1)), fmt::format_error);
    EXPECT_THROW((void)fmt::format(fmt::runtime("{:.3f}"), CVQDateAndTime()), fmt::format_error);
}

TEST(VQInteropFormat, FormatsValuesInOtherValues) {
    const std::vector<CVQVersion> versions = {{1, 0, 0}, {1, 2, 3}};
    EXPECT_EQ("1.0.0, 1.2.3", fmt::format("{}", fmt::join(versions, ", ")));
}
