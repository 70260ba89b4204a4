// VQInteropStringView: both ways and back for every kind of text; what is cut off; sharing and lifetimes.
#include <VQInteropStringView.h>

#include "support/AssertionLog.h"

#include <CVQByteStream.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>

using namespace std::string_literals;
using namespace std::string_view_literals;
using testing::Contains;
using testing::HasSubstr;
using VQInterop::fromStringView;
using VQInterop::toStringView;

namespace {

/// A text with zero bytes, the way by which such a text comes about.
CVQString received(std::string_view bytes) {
    CVQByteStream stream;
    stream << static_cast<unsigned>(bytes.size());
    stream.write(bytes.data(), static_cast<unsigned>(bytes.size()));
    CVQString text;
    stream >> text;
    return text;
}

}  // namespace

TEST(VQInteropStringView, BothWaysGiveTheSameTextAgain) {
    for (const std::string& text :
         {""s, "a"s, "Grüße, Welt"s, "漢字"s, "\xF0\x9F\x98\x80"s, "a\0b"s, "\0"s, "\0\0x"s,
          std::string(100000, 'x'), "\xED\xA0\x80"s, "\xC0\x80"s, "\t\n\x7F"s}) {
        const CVQString converted = fromStringView(text);
        EXPECT_EQ(text, toStringView(converted));
        EXPECT_EQ(text.size(), converted.getByteLength());
        EXPECT_EQ(text, toStringView(fromStringView(toStringView(converted))));
    }
}

TEST(VQInteropStringView, CountsCharactersAsTheTextDoes) {
    EXPECT_EQ(5u, fromStringView("Grüße").getCharacterCount());
    EXPECT_EQ(3u, fromStringView("a\0b"sv).getCharacterCount());
    EXPECT_TRUE(fromStringView("Grüße") == CVQString("Grüße"));
}

TEST(VQInteropStringView, ATextWithZeroBytesFromAStreamIsTheSameText) {
    const CVQString text = received("a\0b\0"sv);
    EXPECT_EQ("a\0b\0"sv, toStringView(text));
    EXPECT_TRUE(fromStringView("a\0b\0"sv) == text);
}

TEST(VQInteropStringView, AViewWithoutBytesIsTheEmptyStringWithoutABlock) {
    for (const std::string_view view : {std::string_view(), ""sv, "abc"sv.substr(3)}) {
        const CVQString text = fromStringView(view);
        EXPECT_TRUE(text.isEmpty());
        EXPECT_EQ(CVQString::null.c_str(), text.c_str());
    }
    EXPECT_EQ(""sv, toStringView(CVQString()));
    EXPECT_NE(nullptr, toStringView(CVQString()).data());
}

TEST(VQInteropStringView, TakesPartsOfALongerTextAndNoMore) {
    const char text[] = {'a', 'b', 'c', 'd'};  // with no zero byte behind it
    EXPECT_EQ("bc"sv, toStringView(fromStringView({text + 1, 2})));
    EXPECT_EQ("abcd"sv, toStringView(fromStringView({text, 4})));
}

TEST(VQInteropStringView, TheBlockHasTheTextsOwnCapacity) {
    EXPECT_EQ(7u, fromStringView("Grüße").getCapacity());
}

TEST(VQInteropStringView, CutsOffWhatIsNoUtf8AndLogsIt) {
    const struct {
        int line;
        std::string_view bytes;
        std::string_view kept;
    } rows[] = {
        {__LINE__,
         "abc\xFF"
         "def"sv,
         "abc"sv},
        {__LINE__, "\x80"sv, ""sv},
        {__LINE__, "ab\xC3"sv, "ab"sv},
        {__LINE__, "\xE6\xBC"sv, ""sv},
        {__LINE__, "a\0\xFE z"sv, "a\0"sv},
        {__LINE__, "ok\xC3 x"sv, "ok"sv},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        support::SlogCapture log;
        const CVQString text = fromStringView(row.bytes);
        EXPECT_EQ(row.kept, toStringView(text));
        EXPECT_EQ(1u, log.records().size());
        EXPECT_EQ(row.kept, toStringView(fromStringView(toStringView(text))));
        EXPECT_EQ(1u, log.records().size());
    }
}

TEST(VQInteropStringView, AViewThatNoStringCanHoldIsAnAssertionAndTheEmptyString) {
    if constexpr (sizeof(std::size_t) > 4) {
        support::AssertionLog log;
        // Refused by its length alone: no byte of it is looked at.
        const std::string_view huge("", static_cast<std::size_t>(0xFFFFFFFFull));
        EXPECT_TRUE(fromStringView(huge).isEmpty());
        EXPECT_THAT(log.takeSites(), Contains(HasSubstr("CVQString:1263: ASSERTION")));
    }
}

TEST(VQInteropStringView, LooksAtTheTextWithoutOwningIt) {
    const CVQString text("shared");
    const CVQString copy(text);
    EXPECT_EQ(text.c_str(), toStringView(text).data());
    EXPECT_EQ(toStringView(copy).data(), toStringView(text).data());
}
