// Concerns: the bytes kept; what is cut off, and what the cut tells; refused formats; the caller's buffer.
#include "StringInternals.h"

#include <cstdarg>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace strings;
using testing::IsEmpty;

bool doFormat(CVQString& text, char* scratch, std::size_t size, const char* format, ...) VQ_PRINTF(4, 5);
bool doFormat(CVQString& text, char* scratch, std::size_t size, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const bool whole = text.doFormat(scratch, size, format, arguments);
    va_end(arguments);
    return whole;
}

TEST(CVQString, FormatsLikePrintf) {
    CVQString text("before");
    EXPECT_TRUE(text.format("%s=%d (%5.2f) %c%%", "value", -42, 3.14159, 'x'));
    EXPECT_EQ("value=-42 ( 3.14) x%", bytesOf(text));
    EXPECT_EQ(20u, text.getCapacity());
    EXPECT_EQ(20u, text.getCharacterCount());
    EXPECT_TRUE(text.format("%s", "\xC3\xA4\xE2\x82\xAC"));
    EXPECT_EQ(2u, text.getCharacterCount());
    EXPECT_EQ(20u, text.getCapacity());  // an owned buffer with room stays
}

TEST(CVQString, FormatsWithoutTouchingItsCopies) {
    CVQString text("before");
    const CVQString copy(text);
    EXPECT_TRUE(text.format("%s and after", text.c_str()));
    EXPECT_EQ("before and after", bytesOf(text));
    EXPECT_EQ("before", bytesOf(copy));
    EXPECT_TRUE(text.format("<%s>", text.c_str()));
    EXPECT_EQ("<before and after>", bytesOf(text));
}

TEST(CVQString, Kept_FormatKeeps256Bytes) {  // string-format-256
    const std::string longText = std::string(200, 'a') + std::string(100, 'b');
    CVQString text;
    EXPECT_FALSE(text.format("%s", longText.c_str()));
    EXPECT_EQ(longText.substr(0, 256), bytesOf(text));
    EXPECT_EQ(256u, text.getCapacity());
    EXPECT_TRUE(text.format("%s", longText.substr(0, 256).c_str()));
    EXPECT_EQ(256u, text.getByteLength());
    EXPECT_FALSE(text.format("%s", longText.substr(0, 257).c_str()));
    EXPECT_EQ(256u, text.getByteLength());
}

TEST(CVQString, FormatsNoPartOfACharacter) {
    Reports reports;
    const std::string longText = std::string(255, 'a') + "\xC3\xA4" + std::string(43, 'b');
    CVQString text;
    EXPECT_FALSE(text.format("%s", longText.c_str()));
    EXPECT_EQ(std::string(255, 'a'), bytesOf(text));
    EXPECT_EQ(256u, text.getCapacity());
    EXPECT_EQ(Reports::invalidText(), reports.lines());
}

TEST(CVQString, CutsInvalidBytesOutOfWhatItFormats) {
    Reports reports;
    CVQString text;
    EXPECT_TRUE(text.format("ab%scd", "\xFF"));
    EXPECT_EQ("ab", bytesOf(text));
    EXPECT_EQ(5u, text.getCapacity());
    EXPECT_EQ(Reports::invalidText(), reports.lines());
}

TEST(CVQString, FormatsNothingIntoAnEmptyText) {
    CVQString text("text");
    EXPECT_TRUE(text.format("%s", ""));
    EXPECT_TRUE(text.isEmpty());
    EXPECT_EQ(0u, text.getCharacterCount());
}

TEST(CVQString, IsEmptyAfterAFormatThatIsNullOrRefused) {
    Reports reports;
    CVQString text("text");
    // Through pointers, as a compiler that sees a null format refuses it.
    bool (CVQString::*const format)(const char*, ...) = &CVQString::format;
    bool (CVQString::*const strprintf)(char*, std::size_t, const char*, ...) = &CVQString::strprintf;
    EXPECT_FALSE((text.*format)(nullptr));
    EXPECT_TRUE(text.isEmpty());
    text = "text";
    EXPECT_FALSE(text.format("%ls", L"\xD800"));  // a wide character that no byte sequence stands for
    EXPECT_TRUE(text.isEmpty());
    text = "text";
    char buffer[4];
    EXPECT_FALSE((text.*strprintf)(buffer, sizeof buffer, nullptr));
    EXPECT_TRUE(text.isEmpty());
    EXPECT_THAT(reports.lines(), IsEmpty());
}

TEST(CVQString, FormatsThroughTheCallersBuffer) {
    CVQString text;
    char buffer[8];
    EXPECT_TRUE(text.strprintf(buffer, sizeof buffer, "%s/%s", "abc", "def"));
    EXPECT_EQ("abc/def", bytesOf(text));
    EXPECT_STREQ("abc/def", buffer);
    EXPECT_FALSE(text.strprintf(buffer, sizeof buffer, "%s/%s", "abcd", "efg"));
    EXPECT_EQ("abcd/ef", bytesOf(text));
    EXPECT_FALSE(doFormat(text, buffer, 3, "%d", 12345));
    EXPECT_EQ("12", bytesOf(text));
    EXPECT_TRUE(doFormat(text, buffer, 1, "%s", ""));
    EXPECT_FALSE(doFormat(text, buffer, 1, "%d", 1));
    EXPECT_EQ("", bytesOf(text));
}

TEST(CVQString, FormatsNothingWithoutABuffer) {
    CVQString text("text");
    char buffer[4] = "xyz";
    EXPECT_FALSE(doFormat(text, buffer, 0, "%d", 1));
    EXPECT_TRUE(text.isEmpty());
    EXPECT_STREQ("xyz", buffer);
    text = "text";
    EXPECT_FALSE(doFormat(text, nullptr, 10, "%d", 1));
    EXPECT_TRUE(text.isEmpty());
}

TEST(CVQString, FormatsLongTextsThroughALargeBuffer) {
    const std::string longText(5000, 'x');
    std::vector<char> buffer(6000);
    CVQString text;
    EXPECT_TRUE(text.strprintf(buffer.data(), buffer.size(), "%s", longText.c_str()));
    EXPECT_EQ(longText, bytesOf(text));
}

TEST(CVQString, KeepsAZeroByteThatAFormatWrites) {
    CVQString text;
    EXPECT_TRUE(text.format("a%cb", '\0'));
    EXPECT_EQ(std::string("a\0b", 3), bytesOf(text));
    EXPECT_EQ(3u, text.getCharacterCount());
}

}  // namespace
