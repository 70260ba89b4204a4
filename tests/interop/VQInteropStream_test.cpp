// VQInteropStream: each value's text; zero bytes; width, fill and the stream's other settings; a stream that fails.
#include <VQInteropStream.h>

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <string>

using namespace std::string_literals;
using Span = CVQTimeSpan::Span;

namespace {

template <class T>
std::string shown(const T& value) {
    std::ostringstream stream;
    stream << value;
    return stream.str();
}

}  // namespace

TEST(VQInteropStream, InsertsTextsWithAllTheirBytes) {
    EXPECT_EQ("Grüße", shown(CVQString("Grüße")));
    EXPECT_EQ("", shown(CVQString()));
    EXPECT_EQ("a\0b"s, shown(VQInterop::fromStringView("a\0b"s)));
    EXPECT_EQ("/usr//lib/", shown(CVQPath("/usr//lib/")));
}

TEST(VQInteropStream, InsertsDatesAndTimes) {
    EXPECT_EQ("2009-03-07", shown(CVQDateAndTime::SVQDate(2009, 3, 7)));
    EXPECT_EQ("14:05:09", shown(CVQDateAndTime::SVQTime(14, 5, 9, 999999)));
    EXPECT_EQ("2009-03-07 14:05:09", shown(CVQDateAndTime({2009, 3, 7}, {14, 5, 9, 0}, 0)));
    EXPECT_EQ("1970-01-01 00:00:00", shown(CVQDateAndTime()));
    CVQDateAndTime last;
    last.setMicroseconds(~0ull);
    EXPECT_EQ(last.toString().c_str(), shown(last));
}

TEST(VQInteropStream, InsertsSpansWithTheirSign) {
    const struct {
        int line;
        Span span;
        const char* shown;
    } rows[] = {
        {__LINE__, Span(), "00:00:00"},
        {__LINE__, Span(true, 0, 0, 0, 0, 0), "-00:00:00"},
        {__LINE__, Span(false, 0, 2, 3, 4, 5), "02:03:04.000005"},
        {__LINE__, Span(true, 1, 2, 3, 4, 0), "-1 d 02:03:04"},
        {__LINE__, Span(false, 4294967295u, 23, 59, 59, 999999), "4294967295 d 23:59:59.999999"},
        {__LINE__, Span(true, 4294967295u, 255, 255, 255, 4294967295u), "-4294967295 d 255:255:255.4294967295"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(row.shown, shown(row.span));
    }
    EXPECT_EQ("1 d 02:00:00", shown(CVQTimeSpan(93'600'000'000ull)));
    EXPECT_EQ("-00:00:00.000001", shown(CVQTimeSpan(~0ull)));
    EXPECT_EQ("106751991 d 04:00:54.775807", shown(CVQTimeSpan(0x7FFFFFFFFFFFFFFFull)));
    EXPECT_EQ("-106751991 d 04:00:54.775808", shown(CVQTimeSpan(0x8000000000000000ull)));
}

TEST(VQInteropStream, InsertsVersions) {
    EXPECT_EQ("1.2.3", shown(CVQVersion(1, 2, 3)));
    EXPECT_EQ("65535.65535.65535", shown(CVQVersion(65535, 65535, 65535)));
}

TEST(VQInteropStream, InsertsNumbersAsTheStreamIsSet) {
    std::ostringstream stream;
    stream << CVQFix16(1.5) << ' ' << std::fixed << std::setprecision(3) << CVQFix16(-2.25) << ' ' << std::showpos
           << CVQFix16(1) << ' ' << std::setprecision(16) << CVQFix16::fromRaw(1);
    EXPECT_EQ("1.5 -2.250 +1.000 +0.0000152587890625", stream.str());
}

TEST(VQInteropStream, PadsTheValueAsAWhole) {
    std::ostringstream stream;
    stream << std::setfill('.') << std::setw(8) << CVQString("text") << '|' << std::left << std::setw(14)
           << CVQDateAndTime::SVQDate(2009, 3, 7) << '|' << std::right << std::setw(6) << CVQFix16(0.5) << '|'
           << std::setw(6) << CVQString("ü");  // two bytes
    EXPECT_EQ("....text|2009-03-07....|...0.5|....ü", stream.str());
}

TEST(VQInteropStream, PlainTextsGoTheirOwnWay) {
    std::ostringstream stream;
    stream << "chars "
           << "std"s << ' ' << 1;
    EXPECT_EQ("chars std 1", stream.str());
}

TEST(VQInteropStream, AStreamThatFailedTakesNothing) {
    std::ostringstream stream;
    stream.setstate(std::ios::badbit);
    stream << CVQString("lost") << CVQDateAndTime() << CVQFix16(1);
    EXPECT_EQ("", stream.str());
    EXPECT_TRUE(stream.bad());
}
