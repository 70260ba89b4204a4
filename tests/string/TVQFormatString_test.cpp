// Concerns: what is kept of a text at each length; refused formats; the helper behind it.
#include "support/AssertionLog.h"

#include <TVQFormatString.h>

#include <cstdarg>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace {

int doVsnprintf(char* buffer, int size, const char* format, ...) VQ_PRINTF(3, 4);
int doVsnprintf(char* buffer, int size, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const int result = VQFormatStringHelper::doVsnprintf(buffer, size, format, arguments);
    va_end(arguments);
    return result;
}

TEST(TVQFormatString, Holds255CharactersOfALongText) {
    for (const std::size_t length : {254, 255, 256, 257, 300}) {
        const std::string text(length, 'x');
        const TVQFormatString<256> formatted("%s", text.c_str());
        EXPECT_EQ(text.substr(0, 255), formatted.c_str());
        EXPECT_EQ(256u, sizeof formatted);
    }
}

TEST(TVQFormatString, FormatsLikePrintf) {
    const TVQFormatString<32> formatted("%s=%d (%5.2f)", "value", -42, 3.14159);
    EXPECT_STREQ("value=-42 ( 3.14)", formatted.c_str());
    const char* const text = formatted;
    EXPECT_EQ(formatted.c_str(), text);
}

TEST(TVQFormatString, KeepsWhatFitsOfEveryLength) {
    for (std::size_t length = 0; length < 12; ++length) {
        const std::string text(length, 'y');
        EXPECT_EQ(text.substr(0, 7), TVQFormatString<8>("%s", text.c_str()).c_str());
    }
    EXPECT_STREQ("", TVQFormatString<1>("%s", "text").c_str());
}

TEST(TVQFormatString, ANullFormatGivesTheEmptyText) {
    const char* const format = nullptr;
    EXPECT_STREQ("", TVQFormatString<16>(format).c_str());
}

TEST(TVQFormatString, ARefusedFormatGivesTheEmptyText) {
    // No byte sequence stands for this wide character.
    const wchar_t wide[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
    EXPECT_STREQ("", TVQFormatString<16>("text %ls", wide).c_str());
}

TEST(VQFormatStringHelper, ReturnsWhatTheSystemsFormattingDoes) {
    char buffer[8];
    EXPECT_EQ(5, doVsnprintf(buffer, sizeof buffer, "%s", "12345"));
    EXPECT_STREQ("12345", buffer);
    EXPECT_EQ(8, doVsnprintf(buffer, sizeof buffer, "%s", "12345678"));
    EXPECT_STREQ("1234567", buffer);
    EXPECT_EQ(7, doVsnprintf(buffer, sizeof buffer, "%s", "12345678901234567890"));
    EXPECT_STREQ("1234567", buffer);
    EXPECT_EQ(0, doVsnprintf(buffer, 0, "%s", "text"));
}

TEST(VQFormatStringHelper, ReportsANullBuffer) {
    support::AssertionLog log;
    EXPECT_EQ(0, doVsnprintf(nullptr, 8, "%s", "text"));
    EXPECT_EQ(std::vector<std::string>{"VQOperatingSystemQNX:334"}, log.takeSites());
}

}  // namespace
