// Concerns: construction and capacities; sharing and who owns a block; equality, order, hash; searching; taking
// parts.
#include "StringInternals.h"

#include <CVQAsserter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <type_traits>
#include <unordered_set>

namespace {

using namespace strings;
using testing::IsEmpty;

// ---- construction

TEST(CVQString, IsOnePointerThatAnEmptyStringSharesWithAllOthers) {
    EXPECT_EQ(sizeof(void*), sizeof(CVQString));
    const CVQString one, other("");
    EXPECT_EQ(&CVQString::nullData, &blockOf(one));
    EXPECT_EQ(&CVQString::nullData, &blockOf(other));
    EXPECT_EQ(&CVQString::nullData, &blockOf(CVQString::null));
    EXPECT_TRUE(CVQString::null.isEmpty());
    EXPECT_STREQ("", CVQString::null.c_str());
}

TEST(CVQString, LaysItsBlockOutAsHeaderSentinelTextTerminator) {
    const CVQString text("abc");
    const auto* const block = reinterpret_cast<const unsigned char*>(&blockOf(text));
    const unsigned char expected[] = {1, 0, 0, 0, 3, 0, 0, 0, 3, 0, 0, 0, 3, 0, 0, 0, 0, 'a', 'b', 'c', 0};
    EXPECT_EQ(0, std::memcmp(expected, block, sizeof expected));
    EXPECT_EQ(static_cast<const void*>(block + 17), text.c_str());
}

TEST(CVQString, KeepsTheSharedEmptyBlockUntouchedAndUncounted) {
    {
        CVQString a, b(a), c;
        c = b;
        std::vector<CVQString> many(100, a);
        many[50].append("x");
        CVQString moved(std::move(b));
        moved.trim();
        moved.truncate(0);
    }
    const SVQStringData& shared = CVQString::nullData;
    EXPECT_EQ(2u, shared.mReferences);
    EXPECT_EQ(0u, shared.mCapacity);
    EXPECT_EQ(0u, shared.mByteLength);
    EXPECT_EQ(0u, shared.mCharacterCount);
    EXPECT_EQ('\0', shared.mSentinel);
    EXPECT_EQ('\0', *shared.text());
    EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(&shared) % 8);
}

TEST(CVQString, TakesANullTextForTheEmptyString) {
    const char* const nothing = nullptr;
    EXPECT_TRUE(CVQString(nothing).isEmpty());
    EXPECT_TRUE(CVQString(nothing, 5).isEmpty());
}

TEST(CVQString, CountsBytesAndCharacters) {
    const CVQString text("\xC3\xA4\xE2\x82\xAC");
    EXPECT_EQ(5u, text.getByteLength());
    EXPECT_EQ(2u, text.getCharacterCount());
    EXPECT_EQ(5u, text.getCapacity());
    EXPECT_EQ(0x20AC, text[1]);
    EXPECT_EQ(0xE4, text[0]);
}

TEST(CVQString, Kept_TheReportOfInvalidTextHasItsOddWording) {  // string-invalid-message
    Reports reports;
    const CVQString text("\x61\xC3");
    EXPECT_EQ("a", bytesOf(text));
    EXPECT_EQ(1u, text.getCharacterCount());
    EXPECT_EQ(2u, text.getCapacity());  // the room for what came
    EXPECT_EQ(Reports::invalidText(), reports.lines());
}

TEST(CVQString, TakesAtMostTheGivenBytesAndStopsAtAZeroByte) {
    Reports reports;
    EXPECT_EQ("abc", bytesOf(CVQString("abcdef", 3)));
    EXPECT_EQ("ab", bytesOf(CVQString("ab\0def", 6)));
    EXPECT_EQ("", bytesOf(CVQString("abc", 0)));
    EXPECT_EQ("abc", bytesOf(CVQString("abc", std::numeric_limits<std::size_t>::max())));
    EXPECT_THAT(reports.lines(), IsEmpty());
    EXPECT_EQ("a", bytesOf(CVQString("a\xE2\x82\xAC", 3)));  // cut inside a character
    EXPECT_EQ(Reports::invalidText(), reports.lines());
}

TEST(CVQString, HasRoomForAGivenCapacity) {
    const CVQString text(100u);
    EXPECT_TRUE(text.isEmpty());
    EXPECT_EQ(100u, text.getCapacity());
    EXPECT_EQ(1u, ownersOf(text));
    EXPECT_STREQ("", text.c_str());
    const CVQString none(text.getByteLength());
    EXPECT_NE(&CVQString::nullData, &blockOf(none));
}

TEST(CVQString, RefusesACapacityThatOverflowsTheBlock) {
    Reports reports;
    const CVQString text(kFirstInvalid);
    EXPECT_EQ(&CVQString::nullData, &blockOf(text));
    EXPECT_EQ(Reports::assertion(202, "CVQString::ctor: Capacity -20 not valid!"), reports.lines());
}

TEST(CVQString, RefusesACapacityOf4GiBAndMoreInsteadOfCuttingIt) {
    Reports reports;
    const CVQString text(0x100000010ULL), other(-1LL);
    EXPECT_EQ(0u, text.getCapacity());
    EXPECT_EQ(0u, other.getCapacity());
    EXPECT_EQ(Reports::assertion(202, "CVQString::ctor: Capacity -1 not valid!", 2), reports.lines());
    EXPECT_EQ(16u, CVQString(16ULL).getCapacity());
}

TEST(CVQString, IsNotMadeFromANumberByAccident) {
    EXPECT_FALSE((std::is_convertible_v<unsigned, CVQString>));
    EXPECT_FALSE((std::is_convertible_v<unsigned long long, CVQString>));
    EXPECT_TRUE((std::is_convertible_v<const char*, CVQString>));
}

// ---- sharing

TEST(CVQString, SharesItsBlockWithACopyUntilOneIsChanged) {
    CVQString first("text");
    CVQString copy(first);
    EXPECT_EQ(&blockOf(first), &blockOf(copy));
    EXPECT_EQ(2u, ownersOf(first));
    copy.append("!");
    EXPECT_EQ("text", bytesOf(first));
    EXPECT_EQ("text!", bytesOf(copy));
    EXPECT_EQ(1u, ownersOf(first));
    EXPECT_EQ(1u, ownersOf(copy));
}

TEST(CVQString, ReleasesItsOwnBlockWhenItIsAssignedAnother) {
    CVQString text("old"), other("new");
    const CVQString keeper(text);
    text = other;
    EXPECT_EQ(1u, ownersOf(keeper));
    EXPECT_EQ(2u, ownersOf(other));
    text = *&text;
    EXPECT_EQ(2u, ownersOf(other));
    other = text;  // the same block already
    EXPECT_EQ(2u, ownersOf(other));
    text = CVQString();
    EXPECT_EQ(1u, ownersOf(other));
}

TEST(CVQString, LeavesAMovedStringEmptyAndUsable) {
    CVQString source("moved");
    const SVQStringData* const block = &blockOf(source);
    CVQString target(std::move(source));
    EXPECT_EQ(block, &blockOf(target));
    EXPECT_EQ(1u, ownersOf(target));
    EXPECT_TRUE(source.isEmpty());
    source.append("again");
    EXPECT_EQ("again", bytesOf(source));

    CVQString assigned("gone");
    assigned = std::move(target);
    EXPECT_EQ(block, &blockOf(assigned));
    EXPECT_TRUE(target.isEmpty());
    CVQString& same = assigned;
    assigned = std::move(same);
    EXPECT_EQ("moved", bytesOf(assigned));
}

TEST(CVQString, IsMovedWithoutThrowing) {
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<CVQString>);
    EXPECT_TRUE(std::is_nothrow_move_assignable_v<CVQString>);
    EXPECT_TRUE(std::is_nothrow_copy_constructible_v<CVQString>);
}

TEST(CVQString, AddsAnOwnerWhereTheCapacitySufficesAndCopiesWhereNot) {
    Inner text(CVQString("abc"));
    text.addReference(false, 3);
    EXPECT_EQ(2u, ownersOf(text));
    text.removeReference();
    EXPECT_EQ(1u, ownersOf(text));
    text.addReference(true, 2);  // owned and large enough already
    EXPECT_EQ(3u, text.getCapacity());
    text.addReference(false, 10);
    EXPECT_EQ(10u, text.getCapacity());
    EXPECT_EQ("abc", bytesOf(text));
    const CVQString copy(text);
    text.addReference(true, 2);
    EXPECT_EQ(2u, text.getCapacity());
    EXPECT_EQ("ab", bytesOf(text));  // as far as it fits
    EXPECT_EQ(2u, text.getCharacterCount());
    EXPECT_EQ("abc", bytesOf(copy));
}

TEST(CVQString, AssertsWhenABlockWithoutOwnersIsDropped) {
    Reports reports;
    Inner text(CVQString("abc"));
    SVQStringData& block = blockOf(text);
    block.mReferences = 0;
    text.removeReference();
    EXPECT_EQ(0u, block.mReferences);
    EXPECT_EQ("abc", bytesOf(text));  // and nothing else happens
    EXPECT_EQ((Reports::Lines{{2, "CVQString:1314: ASSERTION failed"},
                              {1, "ASSERTION \"???\" failed in CVQString 1314"}}),
              reports.lines());
    block.mReferences = 1;
}

TEST(CVQString, DropsANullPointerInSilence) {
    Reports reports;
    {
        alignas(CVQString) unsigned char zeros[sizeof(CVQString)] = {};
        reinterpret_cast<CVQString*>(zeros)->~CVQString();
    }
    EXPECT_THAT(reports.lines(), IsEmpty());
}

// ---- comparing

TEST(CVQString, EqualsWhatHasTheSameCharacters) {
    const CVQString text("text");
    EXPECT_TRUE(text == CVQString(text));
    EXPECT_TRUE(text == CVQString("text"));
    EXPECT_TRUE(text == "text");
    EXPECT_TRUE("text" == text);
    EXPECT_FALSE(text == CVQString("texts"));
    EXPECT_FALSE(text == CVQString("tex"));
    EXPECT_FALSE(text == CVQString("teyt"));
    EXPECT_TRUE(text != CVQString("Text"));
    EXPECT_FALSE(text != CVQString("text"));
    EXPECT_TRUE(CVQString() == CVQString(10u));
    EXPECT_FALSE(CVQString("\xC3\xA4") == CVQString("ab"));
}

TEST(CVQString, DiffersWhereTheNumberOfCharactersDiffers) {
    // The same bytes, counted as one character and as two.
    EXPECT_FALSE(CVQString("\xC3\xC3") == unchecked("\xC3\xC3"));
}

TEST(CVQString, IsOrderedByItsBytes) {
    EXPECT_TRUE(CVQString("a") < CVQString("b"));
    EXPECT_TRUE(CVQString("a") < CVQString("aa"));
    EXPECT_TRUE(CVQString() < CVQString("a"));
    EXPECT_FALSE(CVQString("a") < CVQString("a"));
    EXPECT_TRUE(CVQString("Z") < CVQString("a"));
    EXPECT_TRUE(CVQString("z") < CVQString("\xC3\xA4"));  // unsigned bytes
    EXPECT_FALSE(CVQString("\xC3\xA4") < CVQString("z"));
}

TEST(CVQString, IsOrderedSoThatWhatIsEquivalentIsEqual) {
    const CVQString some[] = {CVQString("\xC3\xC3"),
                              unchecked("\xC3\xC3"),
                              unchecked(std::string("a\0b", 3)),
                              CVQString("a"),
                              unchecked(std::string("a\0c", 3)),
                              CVQString("b"),
                              CVQString()};
    for (const CVQString& left : some)
        for (const CVQString& right : some) {
            EXPECT_EQ(left == right, !(left < right) && !(right < left));
            EXPECT_FALSE(left < right && right < left);
            EXPECT_EQ(left < right, left.compare(right) < 0);
            EXPECT_EQ(right<left, left.compare(right)> 0);
        }
}

TEST(CVQString, ComparesAlikeFromEachPlaceUpToTheFirstDifference) {
    const auto signOf = [](int order) { return (order > 0) - (order < 0); };
    std::mt19937 random(1);
    int same = 0;
    for (int round = 0; round < 3000; ++round) {
        // Few bytes, so that texts often begin alike; now and then a zero byte and some with their top bit set.
        const auto randomBytes = [&random](std::size_t count) {
            std::string bytes(count, '\0');
            for (char& byte : bytes) {
                const bool mayBeZero = random() % 16 == 0;
                byte = "aaaaab\xC3\xFF"[random() % (mayBeZero ? 9 : 8)];
            }
            return bytes;
        };
        const std::string common = randomBytes(random() % 40);
        const CVQString left = unchecked(common + randomBytes(random() % 12));
        const CVQString right = unchecked(common + randomBytes(random() % 12));

        std::size_t difference = 0;
        while (left.c_str()[difference] == right.c_str()[difference] && left.c_str()[difference] != '\0')
            ++difference;
        for (std::size_t from = 0; from <= difference; ++from) {
            std::size_t alike = from;
            ASSERT_EQ(signOf(left.compare(right)), signOf(left.compareFrom(right, alike)))
                << bytesOf(left) << ' ' << bytesOf(right) << ' ' << from;
            ASSERT_EQ(difference, alike);
        }
        same += left.compare(right) == 0;
    }
    EXPECT_LT(20, same);
}

TEST(CVQString, Kept_ZeroBytesEndComparingSearchingAndStepping) {  // string-zero-bytes
    const CVQString one = unchecked(std::string("a\0b", 3));
    const CVQString other = unchecked(std::string("a\0c", 3));
    EXPECT_TRUE(one == other);
    EXPECT_FALSE(one < other);
    EXPECT_FALSE(one == CVQString("a"));  // another number of characters
    EXPECT_TRUE(one.find("a") == one.begin());
    EXPECT_TRUE(one.find("b") == one.end());
    EXPECT_EQ(1u, offsetOf(one, at(one, 5)));
    EXPECT_EQ(0, one[2]);
    EXPECT_NE(getHashValueForString(one), getHashValueForString(other));
    EXPECT_TRUE(one.findString(one.end(), "a", false) == one.end());
    EXPECT_TRUE(one.findString(one.end(), "b", false) != one.end());
}

TEST(CVQString, HashesItsBytesByFives) {
    EXPECT_EQ(583u, getHashValueForString("ab"));
    EXPECT_EQ(0u, getHashValueForString(CVQString()));
    EXPECT_EQ(97u, getHashValueForString("a"));
    std::string text;
    unsigned expected = 0;
    for (int i = 0; i < 40; ++i) {
        EXPECT_EQ(expected, getHashValueForString(unchecked(text))) << i;
        text += static_cast<char>(i * 37 + 1);
        expected = 5 * expected + static_cast<unsigned>(static_cast<signed char>(i * 37 + 1));
    }
}

TEST(CVQString, Kept_BytesEnterTheHashSigned) {  // string-signed-hash
    EXPECT_EQ(5u * static_cast<unsigned>(-61) + static_cast<unsigned>(-92), getHashValueForString("\xC3\xA4"));
}

// ---- searching

TEST(CVQString, FindsTheFirstPlaceOfAPattern) {
    const CVQString text("one two one \xC3\xA4 three");
    EXPECT_EQ(0u, offsetOf(text, text.find("one")));
    EXPECT_EQ(4u, offsetOf(text, text.find("two")));
    EXPECT_EQ(12u, offsetOf(text, text.find("\xC3\xA4")));
    EXPECT_EQ(15u, offsetOf(text, text.find("three")));
    EXPECT_TRUE(text.find("four") == text.end());
    EXPECT_TRUE(text.find("threex") == text.end());
    EXPECT_TRUE(text.find(text) == text.begin());
}

TEST(CVQString, FindsNoEmptyPatternAndNothingInAnEmptyText) {
    const CVQString text("text");
    EXPECT_TRUE(text.find("") == text.end());
    EXPECT_TRUE(text.find(unchecked(std::string("\0a", 2))) == text.end());
    EXPECT_TRUE(text.find(unchecked("\x80")) == text.end());  // no characters
    const CVQString empty;
    EXPECT_TRUE(empty.find("a") == empty.end());
    EXPECT_TRUE(empty.findString(empty.end(), "a", false) == empty.end());
}

TEST(CVQString, FindsFromAPositionOn) {
    const CVQString text("abcabc");
    EXPECT_EQ(3u, offsetOf(text, text.find("abc", at(text, 1))));
    EXPECT_EQ(3u, offsetOf(text, text.find("abc", at(text, 3))));
    EXPECT_TRUE(text.find("abc", at(text, 4)) == text.end());
    EXPECT_TRUE(text.find("abc", text.end()) == text.end());
}

TEST(CVQString, FindsBackwardFromAPositionAndFromTheEnd) {
    const CVQString text("abc\xC3\xA4"
                         "abc");
    EXPECT_EQ(5u, offsetOf(text, text.findString(text.end(), "abc", false)));
    EXPECT_EQ(5u, offsetOf(text, text.findString(at(text, 4), "abc", false)));
    EXPECT_EQ(0u, offsetOf(text, text.findString(at(text, 3), "abc", false)));
    EXPECT_EQ(3u, offsetOf(text, text.findString(text.end(), "\xC3\xA4", false)));
    EXPECT_TRUE(text.findString(text.end(), "abd", false) == text.end());
    EXPECT_TRUE(text.findString(at(text, 2), "\xC3\xA4", false) == text.end());
}

TEST(CVQString, FindsNothingFromOutsideTheText) {
    const CVQString text("text"), other("text");
    auto before = text.begin();
    --before;
    EXPECT_TRUE(text.find("t", before) == text.end());
    EXPECT_TRUE(text.find("t", other.begin()) == text.end());
    EXPECT_TRUE(text.findString(other.begin(), "t", false) == text.end());
    EXPECT_TRUE(text.find("t", CVQString::const_iterator()) == text.end());
}

// ---- parts

TEST(CVQString, TakesCharactersFromTheLeft) {
    const CVQString text("\xC3\xA4\xE2\x82\xAC"
                         "b");
    EXPECT_EQ("", bytesOf(text.getLeft(0)));
    EXPECT_EQ("\xC3\xA4", bytesOf(text.getLeft(1)));
    EXPECT_EQ("\xC3\xA4\xE2\x82\xAC", bytesOf(text.getLeft(2)));
    EXPECT_EQ(5u, text.getLeft(2).getCapacity());
    EXPECT_EQ(2u, text.getLeft(2).getCharacterCount());
    EXPECT_EQ(bytesOf(text), bytesOf(text.getLeft(100)));
    EXPECT_EQ(bytesOf(text), bytesOf(text.getLeft(~std::size_t{0})));
    if (sizeof(std::size_t) > sizeof(unsigned)) {
        EXPECT_EQ(bytesOf(text), bytesOf(text.getLeft(~std::size_t{0} / 0xFFFFFFFFu)));  // 2^32 + 1, not 1
    }
    EXPECT_EQ("", bytesOf(CVQString().getLeft(3)));
}

TEST(CVQString, TakesCharactersFromTheRight) {
    const CVQString two("x\xC3\xA4");
    EXPECT_EQ("x\xC3\xA4", bytesOf(two.getRight(2)));
    EXPECT_EQ(3u, two.getRight(2).getByteLength());
    EXPECT_EQ("\xC3\xA4", bytesOf(two.getRight(1)));
    EXPECT_EQ(1u, two.getRight(1).getCharacterCount());
    EXPECT_EQ("", bytesOf(two.getRight(0)));
    EXPECT_EQ("x\xC3\xA4", bytesOf(two.getRight(9)));
    EXPECT_EQ("cd", bytesOf(CVQString("abcd").getRight(2)));
    EXPECT_EQ("", bytesOf(CVQString().getRight(3)));
}

TEST(CVQString, TakesCharactersFromTheMiddle) {
    const CVQString text("a\xC3\xA4\xE2\x82\xAC"
                         "b");
    EXPECT_EQ("\xC3\xA4\xE2\x82\xAC", bytesOf(text.getMid(at(text, 1), 2)));
    EXPECT_EQ(2u, text.getMid(at(text, 1), 2).getCharacterCount());
    EXPECT_EQ("\xE2\x82\xAC"
              "b",
              bytesOf(text.getMid(at(text, 2), 100)));
    EXPECT_EQ("", bytesOf(text.getMid(text.end(), 1)));
    EXPECT_EQ("", bytesOf(text.getMid(text.begin(), 0)));
    EXPECT_EQ("", bytesOf(CVQString().getMid(CVQString().begin(), 1)));
}

TEST(CVQString, CutsAtAPosition) {
    const CVQString text("a\xC3\xA4\xE2\x82\xAC"
                         "b");
    EXPECT_EQ("a\xC3\xA4", bytesOf(text.getLeft(at(text, 2))));
    EXPECT_EQ(2u, text.getLeft(at(text, 2)).getCharacterCount());
    EXPECT_EQ("\xE2\x82\xAC"
              "b",
              bytesOf(text.getRight(at(text, 2))));
    EXPECT_EQ(2u, text.getRight(at(text, 2)).getCharacterCount());
    EXPECT_EQ("", bytesOf(text.getLeft(text.begin())));
    EXPECT_EQ(bytesOf(text), bytesOf(text.getLeft(text.end())));
    EXPECT_EQ("", bytesOf(text.getRight(text.end())));
    EXPECT_EQ(bytesOf(text), bytesOf(text.getRight(text.begin())));
}

TEST(CVQString, YieldsNothingForAPositionOutsideTheText) {
    const CVQString text("text"), other("other");
    auto before = text.begin();
    --before;
    for (const auto& position : {before, other.begin(), other.end(), CVQString::const_iterator()}) {
        EXPECT_TRUE(text.getLeft(position).isEmpty());
        EXPECT_TRUE(text.getRight(position).isEmpty());
        EXPECT_TRUE(text.getMid(position, 3).isEmpty());
    }
}

TEST(CVQString, ConcatenatesIntoANewString) {
    const CVQString left("left"), right("right");
    const CVQString sum = left + right;
    EXPECT_EQ("leftright", bytesOf(sum));
    EXPECT_EQ(9u, sum.getCapacity());
    EXPECT_EQ("left", bytesOf(left));
    EXPECT_EQ(&blockOf(left), &blockOf(left + CVQString()));
    EXPECT_EQ("leftleft", bytesOf(left + left));
}

}  // namespace
