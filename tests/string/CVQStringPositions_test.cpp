// Concerns: the lenient rule and what it lets through; decoding; stepping in both directions and over the ends;
// distances; stray bytes, positions inside characters and in other strings; nothing is ever read outside a block.
#include "StringInternals.h"

#include <climits>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>

namespace {

using namespace strings;
using Position = CVQString::const_iterator;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<int> codesOf(const CVQString& text) {
    return std::vector<int>(text.begin(), text.end());
}

TEST(CVQString, DecodesCharactersOfOneToSixBytes) {
    const CVQString text("\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF7\xBF\xBF\xBF"
                         "\xF8\x88\x80\x80\x80\xFD\xBF\xBF\xBF\xBF\xBF");
    EXPECT_THAT(codesOf(text),
                ElementsAre(0x7F, 0x80, 0x7FF, 0x800, 0xFFFF, 0x10000, 0x1FFFFF, 0x200000, 0x7FFFFFFF));
    EXPECT_EQ(9u, text.getCharacterCount());
}

TEST(CVQString, Kept_FollowingBytesNeedOnlyTheirTopBit) {  // string-lenient-utf8
    Reports reports;
    const CVQString lenient("\xC3\xC3\xE2\xF0\xFF"
                            "a");
    EXPECT_EQ(6u, lenient.getByteLength());
    EXPECT_EQ(3u, lenient.getCharacterCount());
    const CVQString overlong("\xC0\x80\xE0\x80\xAF"), surrogate("\xED\xA0\x80");
    EXPECT_EQ(2u, overlong.getCharacterCount());
    EXPECT_EQ(0, overlong[0]);
    EXPECT_EQ(0x2F, overlong[1]);
    EXPECT_EQ(0xD800, surrogate[0]);
    EXPECT_THAT(reports.lines(), IsEmpty());
    // Iterators know a following byte by its top bits and stop once more.
    EXPECT_EQ(1u, offsetOf(lenient, at(lenient, 1)));
    EXPECT_EQ(0xC3 % 32 * 64 + 0xC3 % 64, lenient[0]);
}

TEST(CVQString, CutsBeforeEveryKindOfInvalidByte) {
    for (const char* const invalid : {"ok\x80", "ok\xBF", "ok\xFE", "ok\xFF", "ok\xC3",
                                      "ok\xC3"
                                      "a",
                                      "ok\xE2\x82",
                                      "ok\xE2\x82"
                                      "a",
                                      "ok\xF0\x9F\x98", "ok\xFD\xBF\xBF\xBF\xBF", "ok\xC3\x7F"}) {
        Reports reports;
        const CVQString text((std::string(invalid) + "").c_str());
        EXPECT_EQ("ok", bytesOf(text));
        EXPECT_EQ(2u, text.getCharacterCount());
        EXPECT_EQ(Reports::invalidText(), reports.lines());
    }
}

TEST(CVQString, Kept_AStrayByteDecodesToANegativeNumber) {  // string-signed-byte
    const CVQString text = unchecked("\x80\xBF\xFE\xFF");
    EXPECT_EQ(-128, *text.begin());
    EXPECT_EQ(-2, *Position(at(text, 1)));
    EXPECT_EQ(-1, *Position(at(text, 2)));
    EXPECT_EQ(0u, text.getCharacterCount());  // lead bytes
}

TEST(CVQString, DecodesACharacterThatTheTextCutsShort) {
    const CVQString three = unchecked("ab\xE2"), four = unchecked("\xF0\x9F"), six = unchecked("\xFD");
    EXPECT_EQ(0x2000, three[2]);
    EXPECT_EQ(0x1F000, four[0]);
    EXPECT_EQ(0x40000000, six[0]);
    // Full to the last byte of its block: the address sanitizer would see a step too far.
    EXPECT_EQ(six.getByteLength(), six.getCapacity());
}

TEST(CVQString, StepsOverWholeCharacters) {
    const CVQString text("a\xC3\xA4\xE2\x82\xAC");
    Position position = text.begin();
    EXPECT_EQ('a', *position);
    EXPECT_EQ(0xE4, *++position);
    EXPECT_EQ(0xE4, *position++);
    EXPECT_EQ(0x20AC, *position);
    EXPECT_EQ(0xE4, *--position);
    EXPECT_EQ(0xE4, *position--);
    EXPECT_EQ('a', *position);
    position += 2;
    EXPECT_EQ(0x20AC, *position);
    position -= 1;
    EXPECT_EQ(0xE4, *position);
    position += -1;
    EXPECT_TRUE(position == text.begin());
    EXPECT_TRUE(position != text.end());
    EXPECT_EQ(text.c_str(), position.getPosition());
}

TEST(CVQString, StepsNoFurtherThanToTheEnds) {
    const CVQString text("a\xC3\xA4");
    Position position = text.begin();
    position += INT_MAX;
    EXPECT_TRUE(position == text.end());
    EXPECT_EQ(0, *position);
    ++position;
    EXPECT_TRUE(position == text.end());
    position += INT_MIN;
    EXPECT_EQ(text.c_str() - 1, position.getPosition());
    position = text.end();
    position -= INT_MAX;
    EXPECT_EQ(text.c_str() - 1, position.getPosition());
    position = text.begin();
    position -= INT_MIN;
    EXPECT_TRUE(position == text.end());
}

TEST(CVQString, StaysOnTheZeroByteBeforeTheText) {
    for (const CVQString& text : {CVQString("abcdefg"), CVQString(), CVQString(8u), CVQString("\xE2\x82\xAC")}) {
        Position position = text.begin();
        --position;
        EXPECT_EQ(text.c_str() - 1, position.getPosition());
        EXPECT_EQ(0, *position);
        for (int i = 0; i < 40; ++i)
            --position;
        EXPECT_EQ(text.c_str() - 1, position.getPosition());
        ++position;
        EXPECT_EQ(text.c_str() - 1, position.getPosition());
    }
}

TEST(CVQString, StepsBackFromTheEndOfATextOfEveryLength) {
    for (std::size_t length = 0; length < 40; ++length) {
        const CVQString text(std::string(length, 'x').c_str());
        Position position = text.end();
        for (std::size_t left = length; left > 0; --left)
            EXPECT_EQ(left - 1, offsetOf(text, --position));
        EXPECT_TRUE(position == text.begin());
    }
}

TEST(CVQString, StepsBackOverZeroBytesOrStaysAtThem) {
    for (std::size_t length = 1; length < 40; ++length) {
        const CVQString text = unchecked(std::string(length, 'x') + std::string(2, '\0'));
        Position position = text.end();
        for (std::size_t expected = length + 2; expected != 0;) {
            const std::size_t before = offsetOf(text, position);
            const std::size_t after = offsetOf(text, --position);
            if (after == before) {
                EXPECT_GT(before, length) << length;  // at the second zero byte or behind it
                break;
            }
            EXPECT_EQ(--expected, after) << length;
        }
    }
}

TEST(CVQString, StepsOnPlainPointersToo) {
    const CVQString text("a\xC3\xA4"
                         "b");
    const char* place = text.c_str();
    Position::incrementSteps(&place, 2);
    EXPECT_EQ(text.c_str() + 3, place);
    Position::incrementSteps(&place, -1);
    EXPECT_EQ(text.c_str() + 1, place);
    Position::incrementSteps(&place, 0);
    EXPECT_EQ(text.c_str() + 1, place);
}

TEST(CVQString, CountsDistancesInCharacters) {
    const CVQString text("a\xC3\xA4\xE2\x82\xAC");
    EXPECT_EQ(3, text.end() - text.begin());
    EXPECT_EQ(-3, text.begin() - text.end());
    EXPECT_EQ(0, text.begin() - text.begin());
    EXPECT_EQ(1, at(text, 2) - at(text, 1));
    EXPECT_EQ(3, std::distance(text.begin(), text.end()));
}

TEST(CVQString, CountsDistancesWithinOneTextEvenBetweenTwo) {
    const CVQString one("abcd"), other("efghijkl");
    const int forth = other.begin() - one.begin();
    EXPECT_TRUE(forth == 4 || forth == -8) << forth;
    Position before = one.begin();
    --before;
    EXPECT_EQ(0, one.end() - before);
    EXPECT_EQ(0, Position() - Position());
}

TEST(CVQString, WalksLikeAnyRange) {
    std::vector<int> codes;
    for (const int code : CVQString("a\xC3\xA4"))
        codes.push_back(code);
    EXPECT_THAT(codes, ElementsAre('a', 0xE4));
    EXPECT_EQ(0, *Position());
}

TEST(CVQString, IndexesCharacters) {
    const CVQString mixed("a\xC3\xA4\xE2\x82\xAC"
                          "b"),
        ascii("abc");
    EXPECT_EQ('a', mixed[0]);
    EXPECT_EQ(0xE4, mixed[1]);
    EXPECT_EQ(0x20AC, mixed[2]);
    EXPECT_EQ('b', mixed[3]);
    EXPECT_EQ('c', ascii[2]);
}

TEST(CVQString, YieldsZeroForAnIndexPastTheEnd) {
    for (const CVQString& text : {CVQString("abc"), CVQString("\xC3\xA4"), CVQString()})
        for (const std::size_t index :
             {std::size_t{3}, std::size_t{4}, std::size_t{1000}, std::size_t{INT_MAX}, ~std::size_t{0}})
            EXPECT_EQ(0, text[index]);
}

TEST(CVQString, IndexesNoFurtherThanToAZeroByte) {
    const CVQString ascii = unchecked(std::string("ab\0d", 4)), mixed = unchecked(std::string("\xC3\xA4\0d", 4));
    EXPECT_EQ('b', ascii[1]);
    EXPECT_EQ(0, ascii[2]);
    EXPECT_EQ(0, ascii[3]);
    EXPECT_EQ(0xE4, mixed[0]);
    EXPECT_EQ(0, mixed[2]);
}

TEST(CVQString, TakesAPositionInsideACharacterForNone) {
    CVQString text("a\xE2\x82\xAC"
                   "b");
    const char* const place = text.c_str() + 2;  // where a position from before a change may come to stand
    Position inside = positionOn(place);
    const CVQString before(text);
    EXPECT_TRUE(text.getLeft(inside).isEmpty());
    EXPECT_TRUE(text.getRight(inside).isEmpty());
    EXPECT_TRUE(text.getMid(inside, 1).isEmpty());
    text.insert(inside, "x").remove(inside, 1).replace(inside, 1, "x").replace(inside, 0, "x").truncate(inside);
    EXPECT_EQ(bytesOf(before), bytesOf(text));
    EXPECT_EQ(place, inside.getPosition());
}

TEST(CVQString, CountsLeadBytesWhereNothingIsValidated) {
    Inner text;
    text.internalAppend("a\xC3\xA4\xE2\x82\xAC", 6);
    EXPECT_EQ(3u, text.getCharacterCount());
    text.internalAppend("\xE2", 1);
    text.internalAppend("\x82\xAC", 2);
    EXPECT_EQ(4u, text.getCharacterCount());
    EXPECT_EQ(9u, text.getByteLength());
    EXPECT_EQ(9u, text.getCapacity());
    text.internalAppend("", 0);
    EXPECT_EQ(9u, text.getByteLength());
    text.internalAppend(text.c_str(), text.getByteLength());
    EXPECT_EQ(18u, text.getByteLength());
    EXPECT_EQ(8u, text.getCharacterCount());
}

TEST(CVQString, CountsTheBytesThatStartACharacterByTheirRangesAlone) {
    for (int value = 0; value < 256; ++value) {
        const bool isLead = value < 0x80 || (value >= 0xC0 && value <= 0xFD);
        EXPECT_EQ(isLead ? 1u : 0u, unchecked(std::string(1, static_cast<char>(value))).getCharacterCount())
            << value;
    }
}

TEST(CVQString, ValidatesBytesThatLieInPlaceAlready) {
    Reports reports;
    Inner text(CVQString(8u));
    char* const place = blockOf(text).text();
    std::memcpy(place, "ab\xC3\xA4\xE2\x82", 6);
    text.charConstruct(place, 6, 0);
    EXPECT_EQ("ab\xC3\xA4", bytesOf(text));
    EXPECT_EQ(3u, text.getCharacterCount());
    text.charConstruct("cd", 2, 4);
    EXPECT_EQ("ab\xC3\xA4"
              "cd",
              bytesOf(text));
    EXPECT_EQ(5u, text.getCharacterCount());
    EXPECT_EQ(Reports::invalidText(), reports.lines());
}

}  // namespace
