// Concerns: every change alone; capacities; shared and unshared buffers; positions before, behind and at the ends;
// a string as its own argument; sums that no string may reach.
#include "StringInternals.h"

#include <CVQAsserter.h>

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

namespace {

using namespace strings;
using testing::IsEmpty;

const char* const kTooLong = "CVQString::addReference: Capacity %d not valid!";

std::string tooLong(unsigned capacity) {
    char text[100];
    std::snprintf(text, sizeof text, kTooLong, static_cast<int>(capacity));
    return text;
}

// ---- append

TEST(CVQString, AppendsAndGrowsToJustWhatItNeeds) {
    CVQString text("ab");
    text.append("cd");
    EXPECT_EQ("abcd", bytesOf(text));
    EXPECT_EQ(4u, text.getCapacity());
    text.append("efgh", 2);
    EXPECT_EQ("abcdef", bytesOf(text));
    EXPECT_EQ(6u, text.getCapacity());
    text.append(CVQString("\xC3\xA4"));
    EXPECT_EQ(8u, text.getCapacity());
    EXPECT_EQ(7u, text.getCharacterCount());
    text.append("1").append("2");
    EXPECT_EQ("abcdef\xC3\xA4"
              "12",
              bytesOf(text));
}

// The block of a long text is lengthened where nobody shares it.
TEST(CVQString, GrowsALongTextToJustWhatItNeeds) {
    std::mt19937 random(7);
    CVQString text("ab");
    std::string expected = "ab";
    std::size_t capacity = 2;
    for (int step = 0; step < 400; ++step) {
        const bool shared = step % 8 == 0;
        const CVQString copy = shared ? text : CVQString();
        const std::string before = expected;
        const unsigned length = random() % 20 + 1;
        switch (random() % 4) {
        case 0:
            text.append(std::string(length, 'x').c_str());
            expected.append(length, 'x');
            break;
        case 1:
            text.append(CVQString(std::string(length, 'y').c_str()));
            expected.append(length, 'y');
            break;
        case 2: {
            const std::size_t at = std::min<std::size_t>(length, expected.size());
            text.append(text.c_str() + expected.size() - at);
            expected += expected.substr(expected.size() - at);
            break;
        }
        default:
            text.reserve(capacity + length);
            capacity += length;
        }
        if (shared ? before != expected : capacity < expected.size()) {
            capacity = expected.size();
        }
        ASSERT_EQ(expected, bytesOf(text)) << step;
        ASSERT_EQ(capacity, text.getCapacity()) << step;
        ASSERT_EQ(expected.size(), text.getCharacterCount()) << step;
        ASSERT_EQ(1u, ownersOf(text));
        if (shared) {
            ASSERT_EQ(before, bytesOf(copy)) << step;
        }
    }
    EXPECT_LT(2000u, expected.size());
}

TEST(CVQString, AppendsNothingForNullZeroBytesAndEmptyTexts) {
    CVQString text("ab");
    const SVQStringData* const block = &blockOf(text);
    const CVQString copy(text);
    const char* const nothing = nullptr;
    text.append(nothing).append(nothing, 3).append("").append("x", 0).append("\0x", 2).append(CVQString());
    text.append(unchecked("\x80"));  // no characters
    EXPECT_EQ(block, &blockOf(text));
    EXPECT_EQ(2u, ownersOf(copy));
}

TEST(CVQString, AppendsIntoReservedRoomWithoutMoving) {
    CVQString text("ab");
    text.reserve(10);
    const char* const place = text.c_str();
    text.append("cdef").append(CVQString("gh"));
    EXPECT_EQ(place, text.c_str());
    EXPECT_EQ(10u, text.getCapacity());
    EXPECT_EQ("abcdefgh", bytesOf(text));
}

TEST(CVQString, AppendsTheValidPartAndMakesRoomForAll) {
    Reports reports;
    CVQString text("ab");
    text.append("c\xFF"
                "d");
    EXPECT_EQ("abc", bytesOf(text));
    EXPECT_EQ(5u, text.getCapacity());
    EXPECT_EQ(Reports::invalidText(), reports.lines());
    text.append("\xA4");  // what would complete a character does not, from outside
    EXPECT_EQ("abc", bytesOf(text));
}

TEST(CVQString, AppendsItselfAndItsParts) {
    for (const unsigned room : {0u, 100u}) {
        CVQString text("ab\xC3\xA4"
                       "cd");
        text.reserve(room);
        text.append(text);
        EXPECT_EQ("ab\xC3\xA4"
                  "cdab\xC3\xA4"
                  "cd",
                  bytesOf(text));
        EXPECT_EQ(10u, text.getCharacterCount());
        text.append(text.c_str());
        EXPECT_EQ(24u, text.getByteLength());
        text.append(text.c_str() + 20);
        EXPECT_EQ("\xC3\xA4"
                  "cd\xC3\xA4"
                  "cd",
                  bytesOf(text).substr(20));
        text.append(text.c_str(), 2);
        EXPECT_EQ("ab", bytesOf(text).substr(28));
        text.append(text.c_str() + text.getByteLength());
        EXPECT_EQ(30u, text.getByteLength());
        EXPECT_EQ(room, room == 0 ? 0 : text.getCapacity());
        const CVQString copy(text);
        text.append(text.c_str(), 4).append(copy);
        EXPECT_EQ(64u, text.getByteLength());
        EXPECT_EQ(30u, copy.getByteLength());
    }
}

// ---- insert, remove, replace

TEST(CVQString, InsertsAtAPosition) {
    CVQString text("a\xC3\xA4"
                   "b");
    auto position = at(text, 2);
    text.insert(position, "\xE2\x82\xAC!");
    EXPECT_EQ("a\xC3\xA4\xE2\x82\xAC!b", bytesOf(text));
    EXPECT_EQ(5u, text.getCharacterCount());
    EXPECT_EQ(8u, text.getCapacity());
    EXPECT_EQ(3u, offsetOf(text, position));  // at the first byte of what was inserted
    position = text.end();
    text.insert(position, ".");
    EXPECT_EQ('.', *position);
    position = text.begin();
    text.insert(position, "");
    EXPECT_TRUE(position == text.begin());
    CVQString empty;
    position = empty.begin();
    empty.insert(position, "x");
    EXPECT_EQ("x", bytesOf(empty));
    EXPECT_TRUE(position == empty.begin());
}

TEST(CVQString, RemovesCharactersAtAPosition) {
    CVQString text("a\xC3\xA4\xE2\x82\xAC"
                   "b");
    auto position = at(text, 1);
    text.remove(position, 2);
    EXPECT_EQ("ab", bytesOf(text));
    EXPECT_EQ(2u, text.getCharacterCount());
    EXPECT_EQ(1u, offsetOf(text, position));
    EXPECT_EQ(7u, text.getCapacity());
    text.remove(position, 100);
    EXPECT_EQ("a", bytesOf(text));
    EXPECT_TRUE(position == text.end());
    text.remove(position, 1);
    EXPECT_EQ("a", bytesOf(text));
    position = text.begin();
    text.remove(position, 0);
    EXPECT_EQ("a", bytesOf(text));
    text.remove(position, 1);
    EXPECT_EQ("", bytesOf(text));
    EXPECT_EQ(0u, text.getCharacterCount());
}

TEST(CVQString, RemovesFromACopyAlone) {
    const CVQString original("abcdef");
    CVQString text(original);
    auto position = at(text, 1);
    text.remove(position, 3);
    EXPECT_EQ("aef", bytesOf(text));
    EXPECT_EQ(3u, text.getCapacity());  // exact, where a buffer had to be made
    EXPECT_EQ(1u, offsetOf(text, position));
    EXPECT_EQ("abcdef", bytesOf(original));
}

TEST(CVQString, ReplacesCharactersAtAPosition) {
    CVQString text("one two three");
    auto position = at(text, 4);
    text.replace(position, 3, "2");
    EXPECT_EQ("one 2 three", bytesOf(text));
    EXPECT_EQ(13u, text.getCapacity());
    EXPECT_EQ(4u, offsetOf(text, position));
    text.replace(position, 1, "\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC");
    EXPECT_EQ("one \xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC three", bytesOf(text));
    EXPECT_EQ(13u, text.getCharacterCount());
    EXPECT_EQ(19u, text.getCapacity());
    EXPECT_EQ(0x20AC, *position);
    text.replace(position, 100, "end");
    EXPECT_EQ("one end", bytesOf(text));
    text.replace(position, 0, "the ");  // an insertion
    EXPECT_EQ("one the end", bytesOf(text));
    text.replace(position, 4, "");
    EXPECT_EQ("one end", bytesOf(text));
    position = text.end();
    text.replace(position, 1, "x");
    EXPECT_EQ("one end", bytesOf(text));
    text.replace(position, 0, "x");
    EXPECT_EQ("one endx", bytesOf(text));
}

TEST(CVQString, ReplacesInACopyAlone) {
    const CVQString original("abcdef");
    CVQString text(original);
    auto position = at(text, 4);
    text.replace(position, 1, "xyz");
    EXPECT_EQ("abcdxyzf", bytesOf(text));
    EXPECT_EQ(8u, text.getCapacity());
    EXPECT_EQ("abcdef", bytesOf(original));
    EXPECT_EQ(1u, ownersOf(original));
}

TEST(CVQString, ChangesNothingAtPositionsOutsideTheText) {
    CVQString text("text");
    const CVQString other("other");
    auto before = text.begin();
    --before;
    for (auto position : {before, other.begin(), other.end(), CVQString::const_iterator()}) {
        const auto kept = position;
        text.insert(position, "x").remove(position, 1).replace(position, 1, "x").replace(position, 0, "x");
        text.truncate(position);
        EXPECT_TRUE(kept == position);
    }
    EXPECT_EQ("text", bytesOf(text));
    EXPECT_EQ("other", bytesOf(other));
}

TEST(CVQString, TakesItselfAsItsOwnReplacement) {
    for (const unsigned room : {0u, 50u}) {
        CVQString text("abc");
        text.reserve(room);
        auto position = at(text, 1);
        text.insert(position, text);
        EXPECT_EQ("aabcbc", bytesOf(text));
        EXPECT_EQ(1u, offsetOf(text, position));
        text.replace(position, 4, text);
        EXPECT_EQ("aaabcbcc", bytesOf(text));
        EXPECT_EQ(8u, text.getCharacterCount());
        EXPECT_EQ(room == 0 ? 8 : room, text.getCapacity());
        const CVQString copy(text);
        position = text.end();
        text.insert(position, copy);
        EXPECT_EQ("aaabcbccaaabcbcc", bytesOf(text));
        EXPECT_EQ("aaabcbcc", bytesOf(copy));
    }
}

// ---- replaceAll, replaceArg

TEST(CVQString, ReplacesEveryPlaceOfAPattern) {
    CVQString text("a-b-c--");
    text.replaceAll("-", "+++");
    EXPECT_EQ("a+++b+++c++++++", bytesOf(text));
    EXPECT_EQ(15u, text.getCharacterCount());
    EXPECT_EQ(15u, text.getCapacity());
    text.replaceAll("+++", "\xC3\xA4");
    EXPECT_EQ("a\xC3\xA4"
              "b\xC3\xA4"
              "c\xC3\xA4\xC3\xA4",
              bytesOf(text));
    EXPECT_EQ(7u, text.getCharacterCount());
    EXPECT_EQ(15u, text.getCapacity());
    text.replaceAll("\xC3\xA4", "");
    EXPECT_EQ("abc", bytesOf(text));
    text.replaceAll("abc", "");
    EXPECT_TRUE(text.isEmpty());
    EXPECT_EQ(0u, text.getCharacterCount());
}

TEST(CVQString, SearchesNoReplacementTextAgain) {
    CVQString text("aaa");
    text.replaceAll("a", "aa");
    EXPECT_EQ("aaaaaa", bytesOf(text));
    text.replaceAll("aa", "a");
    EXPECT_EQ("aaa", bytesOf(text));
    text.replaceAll("aa", "ba");
    EXPECT_EQ("baa", bytesOf(text));
}

TEST(CVQString, ReplacesNothingForAnEmptyPatternOrNoPlace) {
    CVQString text("text");
    const CVQString copy(text);
    text.replaceAll("", "x").replaceAll("y", "x").replaceAll("texts", "x");
    EXPECT_EQ(&blockOf(copy), &blockOf(text));
}

TEST(CVQString, LeavesTheCapacityThatSingleReplacementsWouldLeave) {
    const CVQString original("a-b-c");
    CVQString shared(original), roomy(original), grown(original);
    shared.replaceAll("-", "");
    EXPECT_EQ(4u, shared.getCapacity());  // the first replacement made the buffer
    roomy.reserve(40);
    roomy.replaceAll("-", "--");
    EXPECT_EQ(40u, roomy.getCapacity());
    grown.replaceAll("-", "--");
    EXPECT_EQ(7u, grown.getCapacity());
    EXPECT_EQ("a-b-c", bytesOf(original));
}

TEST(CVQString, TakesItselfAsPatternAndReplacement) {
    CVQString text("ab");
    text.replaceAll(text, text);
    EXPECT_EQ("ab", bytesOf(text));
    text.replaceAll("a", text);
    EXPECT_EQ("abb", bytesOf(text));
    text.replaceAll(text, "x");
    EXPECT_EQ("x", bytesOf(text));
    text.replaceAll(CVQString(text), text);
    EXPECT_EQ("x", bytesOf(text));
}

TEST(CVQString, FillsPlaceholdersInAscendingOrder) {
    CVQString text("%2 %1");
    text.replaceArg("x");
    EXPECT_EQ("%2 x", bytesOf(text));
    text.replaceArg("y");
    EXPECT_EQ("y x", bytesOf(text));
    text.replaceArg("z");
    EXPECT_EQ("y x", bytesOf(text));
}

TEST(CVQString, FillsTheFirstOfEqualPlaceholders) {
    CVQString text("100% %3%% %0 %0%");
    text.replaceArg("\xC3\xA4").replaceArg("b");
    EXPECT_EQ("100% %3%% \xC3\xA4 b%", bytesOf(text));
    EXPECT_EQ(14u, text.getCharacterCount());
    text.replaceArg("");
    EXPECT_EQ("100% %% \xC3\xA4 b%", bytesOf(text));
    CVQString plain("100% and %x %");
    plain.replaceArg("no");
    EXPECT_EQ("100% and %x %", bytesOf(plain));
}

TEST(CVQString, FillsAPlaceholderWithItselfAndWithOneMore) {
    CVQString text("<%1>");
    text.replaceArg(text);
    EXPECT_EQ("<<%1>>", bytesOf(text));
    const CVQString copy(text);
    text.replaceArg(copy);
    EXPECT_EQ("<<<<%1>>>>", bytesOf(text));
    EXPECT_EQ("<<%1>>", bytesOf(copy));
}

// ---- truncate, trim, clear, reserve, swap

TEST(CVQString, TruncatesToCharacters) {
    CVQString text("a\xC3\xA4\xE2\x82\xAC"
                   "b");
    const CVQString copy(text);
    text.truncate(4).truncate(100);
    EXPECT_EQ(&blockOf(copy), &blockOf(text));
    text.truncate(2);
    EXPECT_EQ("a\xC3\xA4", bytesOf(text));
    EXPECT_EQ(2u, text.getCharacterCount());
    EXPECT_EQ(3u, text.getCapacity());
    EXPECT_EQ(7u, copy.getByteLength());
    text.truncate(1);
    EXPECT_EQ("a", bytesOf(text));
    EXPECT_EQ(3u, text.getCapacity());  // an owned buffer keeps it
    text.truncate(0);
    EXPECT_TRUE(text.isEmpty());
    EXPECT_EQ(0u, text.getCharacterCount());
}

TEST(CVQString, TruncatesAtAPosition) {
    CVQString text("a\xC3\xA4\xE2\x82\xAC"
                   "b");
    text.truncate(text.end());
    EXPECT_EQ(7u, text.getByteLength());
    text.truncate(at(text, 3));
    EXPECT_EQ("a\xC3\xA4\xE2\x82\xAC", bytesOf(text));
    EXPECT_EQ(3u, text.getCharacterCount());
    text.truncate(text.begin());
    EXPECT_TRUE(text.isEmpty());
}

TEST(CVQString, EmptiesEvenATextWithoutCharacters) {
    CVQString text = unchecked("\x80\x80");
    EXPECT_EQ(0u, text.getCharacterCount());
    text.truncate(0);
    EXPECT_EQ(0u, text.getByteLength());
}

TEST(CVQString, TrimsWhiteSpaceAtBothEnds) {
    CVQString text("\t x \n");
    text.trim();
    EXPECT_EQ("x", bytesOf(text));
    EXPECT_EQ(1u, text.getCharacterCount());
    EXPECT_EQ(5u, text.getCapacity());
    const CVQString copy("\v\f\r a \xC3\xA4\xC2\xA0 b\t");
    CVQString trimmed(copy);
    trimmed.trim();
    EXPECT_EQ("a \xC3\xA4\xC2\xA0 b", bytesOf(trimmed));
    EXPECT_EQ(8u, trimmed.getCapacity());
    EXPECT_EQ(6u, trimmed.getCharacterCount());
    EXPECT_EQ("\v\f\r a \xC3\xA4\xC2\xA0 b\t", bytesOf(copy));
    CVQString roomy("  x ");
    roomy.reserve(20);
    const CVQString other(roomy);
    EXPECT_EQ("x", bytesOf(roomy.trim()));
    EXPECT_EQ(17u, roomy.getCapacity());  // less by what was removed
}

TEST(CVQString, TrimsOneEndAndAllAndNothing) {
    CVQString left("  a"), right("a  "), all(" \t\n"), nothing("a b"),
        other("\x08"
              "a\x1F");
    const CVQString copy(nothing);
    EXPECT_EQ("a", bytesOf(left.trim()));
    EXPECT_EQ("a", bytesOf(right.trim()));
    EXPECT_EQ("", bytesOf(all.trim()));
    EXPECT_EQ(0u, all.getCharacterCount());
    EXPECT_EQ(&blockOf(copy), &blockOf(nothing.trim()));
    EXPECT_EQ("\x08"
              "a\x1F",
              bytesOf(other.trim()));
    CVQString empty;
    EXPECT_EQ(&CVQString::nullData, &blockOf(empty.trim()));
}

TEST(CVQString, ClearsAndKeepsItsCapacity) {
    CVQString text("text");
    const SVQStringData* const block = &blockOf(text);
    text.clear();
    EXPECT_EQ(block, &blockOf(text));
    EXPECT_TRUE(text.isEmpty());
    EXPECT_EQ(4u, text.getCapacity());
    EXPECT_STREQ("", text.c_str());
    CVQString shared("shared");
    const CVQString copy(shared);
    shared.clear();
    EXPECT_TRUE(shared.isEmpty());
    EXPECT_EQ(6u, shared.getCapacity());
    EXPECT_EQ("shared", bytesOf(copy));
    EXPECT_EQ(1u, ownersOf(copy));
}

TEST(CVQString, ReservesRoom) {
    CVQString text("text");
    text.reserve(4);
    EXPECT_EQ(4u, text.getCapacity());
    text.reserve(10);
    EXPECT_EQ(10u, text.getCapacity());
    EXPECT_EQ("text", bytesOf(text));
    const CVQString copy(text);
    text.reserve(7);
    EXPECT_EQ(&blockOf(copy), &blockOf(text));  // there is room: still shared
    text.reserve(11);
    EXPECT_EQ(1u, ownersOf(copy));
    CVQString empty;
    empty.reserve(0);
    EXPECT_EQ(&CVQString::nullData, &blockOf(empty));
}

TEST(CVQString, SwapsBuffersThatNobodyElseHolds) {
    CVQString one("one"), other("other!");
    const SVQStringData *const first = &blockOf(one), *const second = &blockOf(other);
    one.swap(other);
    EXPECT_EQ(second, &blockOf(one));
    EXPECT_EQ(first, &blockOf(other));
    const CVQString third(one);
    one.swap(other);
    EXPECT_EQ("one", bytesOf(one));
    EXPECT_EQ("other!", bytesOf(other));
    EXPECT_EQ(6u, other.getCapacity());
    EXPECT_EQ(1u, ownersOf(third));
    EXPECT_NE(&blockOf(third), &blockOf(other));
}

TEST(CVQString, SwapsASharedBufferForOneOfItsOwnCapacity) {
    CVQString roomy("text"), other("other");
    roomy.reserve(20);
    other.reserve(30);
    const CVQString copy(roomy), otherCopy(other);
    roomy.swap(other);
    EXPECT_EQ("text", bytesOf(other));
    EXPECT_EQ(20u, other.getCapacity());
    EXPECT_EQ("other", bytesOf(roomy));
    EXPECT_EQ(30u, roomy.getCapacity());
    EXPECT_EQ(1u, ownersOf(copy));
    EXPECT_EQ(1u, ownersOf(otherCopy));
}

TEST(CVQString, SwapsWithItselfAndWithItsCopy) {
    CVQString text("text");
    text.swap(text);
    EXPECT_EQ("text", bytesOf(text));
    CVQString copy(text);
    text.swap(copy);
    EXPECT_EQ("text", bytesOf(text));
    EXPECT_EQ("text", bytesOf(copy));
    EXPECT_EQ(1u, ownersOf(text));
    EXPECT_EQ(1u, ownersOf(copy));
}

TEST(CVQString, Kept_ClearAndSwapGiveAnEmptyStringItsOwnBlock) {  // string-own-empty
    CVQString cleared, one, other("x");
    cleared.clear();
    one.swap(other);
    EXPECT_NE(&CVQString::nullData, &blockOf(cleared));
    EXPECT_NE(&CVQString::nullData, &blockOf(other));
    EXPECT_EQ(1u, ownersOf(cleared));
    EXPECT_EQ(1u, ownersOf(other));
    EXPECT_EQ(0u, other.getCapacity());
    EXPECT_EQ("x", bytesOf(one));
}

// ---- sums that no string may reach

TEST(CVQString, StaysAsItWasWhereASumOverflows) {
    CVQString text("ab");
    const CVQString more("0123456789abcdefghi");
    SVQStringData& block = blockOf(text);
    block.mByteLength = 0xFFFFFFF0u;  // no machine that runs this holds such a text
    auto begin = text.begin();
    for (int round = 0; round < 4; ++round) {
        Reports reports;
        switch (round) {
        case 0:
            text.append("0123456789abcdefghi");
            break;
        case 1:
            text.append(more);
            break;
        case 2:
            text.insert(begin, more);
            break;
        case 3:
            static_cast<Inner&>(text).internalAppend("0123456789abcdefghi", 19);
            break;
        }
        EXPECT_EQ(Reports::assertion(1263, tooLong(0xFFFFFFFFu)), reports.lines()) << round;
        EXPECT_EQ(&block, &blockOf(text));
        EXPECT_EQ(0xFFFFFFF0u, block.mByteLength);
        EXPECT_EQ(2u, block.mCapacity);
        EXPECT_EQ(2u, block.mCharacterCount);
    }
    block.mByteLength = 2;
}

TEST(CVQString, StaysAsItWasWhereReplacementsOverflow) {
    Reports reports;
    CVQString text(std::string(5000, 'a').c_str());
    const CVQString copy(text), large(std::string(1000000, 'b').c_str());
    text.replaceAll("a", large);
    EXPECT_EQ(&blockOf(copy), &blockOf(text));
    EXPECT_EQ(Reports::assertion(1263, tooLong(0xFFFFFFFFu)), reports.lines());
}

TEST(CVQString, ReservesNothingThatDoesNotFit32Bits) {
    if (sizeof(std::size_t) == sizeof(unsigned))
        GTEST_SKIP() << "no such number here";
    Reports reports;
    CVQString text("text");
    text.reserve(~std::size_t{0});
    text.reserve(~std::size_t{0} / 0xFFFFFFFFu);  // 2^32 + 1
    EXPECT_EQ(4u, text.getCapacity());
    EXPECT_EQ(Reports::assertion(1263, tooLong(0xFFFFFFFFu), 2), reports.lines());
}

}  // namespace
