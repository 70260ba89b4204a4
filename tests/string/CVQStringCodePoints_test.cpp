// Concerns: every code point and unit; zeros, surrogates and what is no code point; what becomes of the old text
// and of its buffer; odd ranges.
#include "PlainConversions.h"
#include "StringInternals.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace strings;
using testing::IsEmpty;

Reports::Lines assertionAt(unsigned line) {
    const std::string number = std::to_string(line);
    return {{2, "CVQString:" + number + ": ASSERTION failed"},
            {1, "ASSERTION \"???\" failed in CVQString " + number}};
}

TEST(CVQStringCodePoints, EveryUnitIsACharacter) {
    std::vector<unsigned short> units;
    std::string expected;
    for (unsigned unit = 0; unit <= 0xFFFF; ++unit) {
        units.push_back(static_cast<unsigned short>(unit));
        expected += plain::utf8Of(unit);
    }
    CVQString text;
    text.fromUCS2Sequence(units.data(), units.size());
    EXPECT_EQ(expected, bytesOf(text));
    EXPECT_EQ(0x10000u, text.getCharacterCount());
    EXPECT_EQ(expected.size(), text.getCapacity());
}

TEST(CVQStringCodePoints, EveryCodePointIsACharacter) {
    std::vector<unsigned> codes;
    std::string expected;
    for (unsigned code = 0; code <= 0x10FFFF; ++code) {
        codes.push_back(code);
        expected += plain::utf8Of(code);
    }
    Reports reports;
    CVQString text;
    text.fromUCS4Sequence(codes.data(), codes.size());
    EXPECT_TRUE(expected == bytesOf(text));
    EXPECT_EQ(0x110000u, text.getCharacterCount());
    EXPECT_EQ(expected.size(), text.getCapacity());
    const CVQString range(codes.data(), codes.data() + codes.size());
    EXPECT_TRUE(bytesOf(text) == bytesOf(range));
    EXPECT_EQ(text.getCharacterCount(), range.getCharacterCount());
    EXPECT_THAT(reports.lines(), IsEmpty());
}

TEST(CVQStringCodePoints, UnitsAreNotPaired) {
    const unsigned short units[] = {0xD83D, 0xDE00};
    CVQString text;
    text.fromUCS2Sequence(units, 2);
    EXPECT_EQ("\xED\xA0\xBD\xED\xB8\x80", bytesOf(text));
    EXPECT_EQ(2u, text.getCharacterCount());
}

TEST(CVQStringCodePoints, ZerosAreCharacters) {
    const unsigned short units[] = {'a', 0, 0x20AC, 0};
    CVQString text;
    text.fromUCS2Sequence(units, 4);
    EXPECT_EQ(std::string("a\0\xE2\x82\xAC\0", 6), bytesOf(text));
    EXPECT_EQ(4u, text.getCharacterCount());
    const unsigned codes[] = {0, 'b', 0};
    text.fromUCS4Sequence(codes, 3);
    EXPECT_EQ(std::string("\0b\0", 3), bytesOf(text));
    text.fromWCharSequence(codes, codes + 2);
    EXPECT_EQ(std::string("\0b", 2), bytesOf(text));
}

TEST(CVQStringCodePoints, AZeroEndsWhatTheConstructorReads) {
    const unsigned codes[] = {'a', 0xE4, 0x20AC, 0x1F600, 0, 'z'};
    EXPECT_EQ("a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", bytesOf(CVQString(codes)));
    EXPECT_EQ(4u, CVQString(codes).getCharacterCount());
    EXPECT_EQ(10u, CVQString(codes).getCapacity());
    EXPECT_TRUE(CVQString(codes + 4).isEmpty());
    EXPECT_TRUE(CVQString(static_cast<const unsigned*>(nullptr)).isEmpty());
}

TEST(CVQStringCodePoints, TheOldTextIsReplaced) {
    const unsigned short units[] = {'x', 0x20AC, 'y'};
    CVQString text("an old and longer text");
    const char* const place = text.c_str();
    text.fromUCS2Sequence(units, 3);
    EXPECT_EQ("x\xE2\x82\xACy", bytesOf(text));
    EXPECT_EQ(3u, text.getCharacterCount());
    EXPECT_EQ(place, text.c_str());  // its own buffer had the room
    EXPECT_EQ(22u, text.getCapacity());
    EXPECT_EQ('\0', text.c_str()[5]);

    CVQString small("ab");
    small.fromUCS2Sequence(units, 3);
    EXPECT_EQ("x\xE2\x82\xACy", bytesOf(small));
    EXPECT_EQ(5u, small.getCapacity());
}

TEST(CVQStringCodePoints, OtherOwnersKeepTheOldText) {
    const unsigned codes[] = {'x', 0x1F600};
    CVQString text("shared by two");
    const CVQString copy(text);
    text.fromUCS4Sequence(codes, 2);
    EXPECT_EQ("x\xF0\x9F\x98\x80", bytesOf(text));
    EXPECT_EQ(5u, text.getCapacity());
    EXPECT_EQ("shared by two", bytesOf(copy));
    EXPECT_EQ(1u, ownersOf(copy));
}

TEST(CVQStringCodePoints, NothingMakesTheTextEmpty) {
    Reports reports;
    const unsigned code = 'x';
    const unsigned short unit = 'x';
    CVQString text("before");
    text.fromUCS4Sequence(&code, 0);
    EXPECT_TRUE(text.isEmpty());
    EXPECT_EQ(6u, text.getCapacity());
    text = "before";
    text.fromUCS2Sequence(&unit, 0);
    EXPECT_TRUE(text.isEmpty());
    text = "before";
    text.fromWCharSequence(&code, &code);
    EXPECT_TRUE(text.isEmpty());
    text.fromWCharSequence(nullptr, nullptr);
    text.fromUCS4Sequence(nullptr, 0);
    text.fromUCS2Sequence(nullptr, 0);
    CVQString shared("before");
    const CVQString copy(shared);
    shared.fromUCS2Sequence(&unit, 0);
    EXPECT_TRUE(shared.isEmpty());
    EXPECT_EQ("before", bytesOf(copy));
    EXPECT_TRUE(CVQString(&code, &code).isEmpty());
    EXPECT_EQ(0u, CVQString::nullData.mByteLength);
    EXPECT_THAT(reports.lines(), IsEmpty());
}

TEST(CVQStringCodePoints, WhatIsNoCodePointIsReportedOnceAndReplaced) {
    Reports reports;
    const unsigned codes[] = {'a', 0x110000, 0x10FFFF, 0xFFFFFFFF, 'b'};
    const std::string expected = "a\xEF\xBF\xBD\xF4\x8F\xBF\xBF\xEF\xBF\xBD"
                                 "b";
    CVQString text;
    text.fromUCS4Sequence(codes, 5);
    EXPECT_EQ(expected, bytesOf(text));
    EXPECT_EQ(5u, text.getCharacterCount());
    EXPECT_EQ(assertionAt(1602), reports.lines());
}

TEST(CVQStringCodePoints, WhatIsNoCodePointInARangeIsReportedOnceAndReplaced) {
    Reports reports;
    const unsigned codes[] = {0x80000000, 0x110000, 0};
    EXPECT_EQ("\xEF\xBF\xBD\xEF\xBF\xBD", bytesOf(CVQString(codes)));
    EXPECT_EQ(assertionAt(1349), reports.lines());
}

TEST(CVQStringCodePoints, NullWithACountIsReportedAndMakesTheTextEmpty) {
    Reports reports;
    CVQString text("before");
    text.fromUCS4Sequence(nullptr, 3);
    EXPECT_TRUE(text.isEmpty());
    EXPECT_EQ(assertionAt(1602), reports.lines());
}

TEST(CVQStringCodePoints, NullUnitsAreNone) {
    Reports reports;
    CVQString text("before");
    text.fromUCS2Sequence(nullptr, 3);
    EXPECT_TRUE(text.isEmpty());
    EXPECT_THAT(reports.lines(), IsEmpty());
}

TEST(CVQStringCodePoints, ARangeThatEndsBeforeItBeginsIsReportedAndMakesTheTextEmpty) {
    Reports reports;
    const unsigned codes[] = {'a', 'b'};
    CVQString text("before");
    text.fromWCharSequence(codes + 1, codes);
    EXPECT_TRUE(text.isEmpty());
    EXPECT_EQ(assertionAt(1349), reports.lines());
}

TEST(CVQStringCodePoints, ARangeWithoutABeginningIsReportedAndMakesTheTextEmpty) {
    Reports reports;
    const unsigned codes[] = {'a', 'b'};
    CVQString text("before");
    text.fromWCharSequence(nullptr, codes);
    EXPECT_TRUE(text.isEmpty());
    EXPECT_EQ(assertionAt(1349), reports.lines());
}

}  // namespace
