// Concerns: splitting, with and without empty tokens, at any delimiter, into a vector that holds the arguments; the
// case of every character of the plane, in texts of every length, in place or not, shared or not; tables of
// callers.
#include "PlainConversions.h"
#include "StringInternals.h"

#include <TVQVector.h>
#include <VQStringUtilities.h>

#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <random>

namespace {

using namespace strings;
using testing::ElementsAre;
using testing::IsEmpty;
using VQStringUtilities::SVQCaseMappingTable;
using VQStringUtilities::TVQCaseMappings;

std::vector<std::string> bytesOfAll(const TVQVector<CVQString>& strings) {
    std::vector<std::string> all;
    for (const CVQString& one : strings)
        all.push_back(bytesOf(one));
    return all;
}

std::vector<std::string> split(const CVQString& text, const CVQString& delimiters, bool skipEmpty) {
    TVQVector<CVQString> out;
    out.push_back(CVQString("goes"));
    VQStringUtilities::split(out, text, delimiters, skipEmpty);
    for (const CVQString& token : out) {
        EXPECT_EQ(plain::measure(bytesOf(token), 0, plain::kAll).characters, token.getCharacterCount());
        EXPECT_EQ(token.getByteLength(), token.getCapacity());
    }
    return bytesOfAll(out);
}

std::string upper(const CVQString& text) {
    CVQString mapped(text);
    VQStringUtilities::toUpper(mapped);
    return bytesOf(mapped);
}

std::string lower(const CVQString& text) {
    CVQString mapped(text);
    VQStringUtilities::toLower(mapped);
    return bytesOf(mapped);
}

// ---- what the edges are

TEST(VQStringUtilities, EmptyTokensAreKeptOrSkipped) {
    EXPECT_THAT(split("a,,b", ",", false), ElementsAre("a", "", "b"));
    EXPECT_THAT(split("a,,b", ",", true), ElementsAre("a", "b"));
    EXPECT_THAT(split("a,b,", ",", false), ElementsAre("a", "b", ""));
    EXPECT_THAT(split("a,b,", ",", true), ElementsAre("a", "b"));
}

TEST(VQStringUtilities, MapsUmlautsSharpSAndNothingElse) {
    EXPECT_EQ("\xC3\x84", upper("\xC3\xA4"));
    EXPECT_EQ("SS", upper("\xC3\x9F"));
    EXPECT_EQ("\xC3\xA4", lower("\xC3\x84"));
    for (const char* const text : {"0123456789 @[`{", "\xE5\xA4\xA9\xE5\x9C\xB0", "\xF0\x9F\x98\x80"}) {
        EXPECT_EQ(text, upper(text));
        EXPECT_EQ(text, lower(text));
    }
}

// ---- splitting

TEST(VQStringUtilities, AnEmptyTextIsOneEmptyTokenOrNone) {
    EXPECT_THAT(split("", ",", false), ElementsAre(""));
    EXPECT_THAT(split("", ",", true), IsEmpty());
    EXPECT_THAT(split("", "", false), ElementsAre(""));
    EXPECT_THAT(split(",,,", ",", true), IsEmpty());
    EXPECT_THAT(split(",,,", ",", false), ElementsAre("", "", "", ""));
}

TEST(VQStringUtilities, WithoutDelimitersTheTextIsOneToken) {
    EXPECT_THAT(split("a,b", "", false), ElementsAre("a,b"));
    EXPECT_THAT(split("a,b", ";", true), ElementsAre("a,b"));
}

TEST(VQStringUtilities, SplitsAtAnyOfTheDelimiters) {
    EXPECT_THAT(split("a,b;c d", " ;,", false), ElementsAre("a", "b", "c", "d"));
    EXPECT_THAT(split("a\xE2\x82\xAC"
                      "b\xC3\xA4"
                      "c\xF0\x9F\x98\x80"
                      "d\xE2\x82\xAD",
                      "\xC3\xA4\xF0\x9F\x98\x80\xE2\x82\xAC", false),
                ElementsAre("a", "b", "c", "d\xE2\x82\xAD"));
}

TEST(VQStringUtilities, DelimitersAreComparedAsCodePoints) {
    EXPECT_THAT(split("a\xC0\xAC"
                      "b",
                      ",", false),
                ElementsAre("a", "b"));  // an overlong comma
    EXPECT_THAT(split("a,b", "\xE0\x80\xAC", false), ElementsAre("a", "b"));
    EXPECT_THAT(split("\xC3\xA4", "\xA4", false), ElementsAre("\xC3\xA4"));
}

TEST(VQStringUtilities, ZeroBytesDoNotEndTheText) {
    const CVQString text = unchecked(std::string("a\0b,c\0", 6));
    EXPECT_THAT(split(text, ",", false), ElementsAre(std::string("a\0b", 3), std::string("c\0", 2)));
    EXPECT_THAT(split(text, unchecked(std::string(1, '\0')), false), ElementsAre("a", "b,c", ""));
}

TEST(VQStringUtilities, SplitsTextThatIsCutOrStartsInsideACharacter) {
    for (const char* const bytes : {"\x80,a", "a,\xC3", "\xE2\x82,\xAC", "\xFF,\xFE", "\xF0\x9F,\x98\x80"}) {
        TVQVector<CVQString> out;
        VQStringUtilities::split(out, unchecked(bytes), ",", false);
        EXPECT_EQ(plain::split(bytes, ",", false), bytesOfAll(out)) << testing::PrintToString(bytes);
    }
}

TEST(VQStringUtilities, TheVectorMayHoldTheArguments) {
    TVQVector<CVQString> out;
    out.push_back(CVQString("a,b;c"));
    out.push_back(CVQString(";,"));
    VQStringUtilities::split(out, out[0], out[1], false);
    EXPECT_THAT(bytesOfAll(out), ElementsAre("a", "b", "c"));
}

TEST(VQStringUtilities, TheVectorReleasesItsStringsAndKeepsItsBlock) {
    const CVQString shared("shared");
    TVQVector<CVQString> out(10);
    out.push_back(shared);
    VQStringUtilities::split(out, CVQString("a b c"), CVQString(" "), false);
    EXPECT_EQ(1u, ownersOf(shared));
    EXPECT_THAT(bytesOfAll(out), ElementsAre("a", "b", "c"));
    EXPECT_EQ(10, out.capacity());
}

TEST(VQStringUtilities, SplitsRandomTextsLikeThePlainRule) {
    std::mt19937 random{20120401};
    static const char* const kPieces[] = {",", ";", "a", "bc", "\xC3\xA4", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", " "};
    const auto some = [&](std::size_t most) {
        std::string text;
        for (std::size_t count = random() % (most + 1); count > 0; --count)
            text += kPieces[random() % std::size(kPieces)];
        return text;
    };
    for (int round = 0; round < 3000; ++round) {
        const std::string text = some(20), delimiters = some(3);
        for (const bool skipEmpty : {false, true})
            ASSERT_EQ(plain::split(text, delimiters, skipEmpty),
                      split(CVQString(text.c_str()), CVQString(delimiters.c_str()), skipEmpty))
                << text << " at " << delimiters;
    }
}

// ---- case

TEST(VQStringUtilities, TheTablesHaveTheirStatedSizes) {
    const SVQCaseMappingTable& up = VQStringUtilities::sToUpperCaseMappingTable;
    EXPECT_EQ(386u, up.mPlane.mSingleCount);
    EXPECT_EQ(28u, up.mPlane.mRangeCount);
    EXPECT_EQ(102u, up.mPlane.mMultiCount);
    const SVQCaseMappingTable& down = VQStringUtilities::sToLowerCaseMappingTable;
    EXPECT_EQ(380u, down.mPlane.mSingleCount);
    EXPECT_EQ(31u, down.mPlane.mRangeCount);
    EXPECT_EQ(1u, down.mPlane.mMultiCount);
    for (const SVQCaseMappingTable* const table : {&up, &down})
        EXPECT_EQ(0u, table->mAbove.mSingleCount + table->mAbove.mRangeCount + table->mAbove.mMultiCount);
}

TEST(VQStringUtilities, TheTablesHoldTheStatedMappings) {
    const TVQCaseMappings<unsigned short>& up = VQStringUtilities::sToUpperCaseMappingTable.mPlane;
    EXPECT_EQ('a', up.mRanges[0].mFirst);
    EXPECT_EQ(26, up.mRanges[0].mLength);
    EXPECT_EQ('A', up.mRanges[0].mFirstMapped);
    EXPECT_EQ(0xB5, up.mSingles[0].mCode);
    EXPECT_EQ(0x39C, up.mSingles[0].mMapped);
    EXPECT_EQ(0xFF, up.mSingles[1].mCode);
    EXPECT_EQ(0x178, up.mSingles[1].mMapped);
}

TEST(VQStringUtilities, TheTablesAreSorted) {
    for (const SVQCaseMappingTable* const table :
         {&VQStringUtilities::sToUpperCaseMappingTable, &VQStringUtilities::sToLowerCaseMappingTable}) {
        const TVQCaseMappings<unsigned short>& plane = table->mPlane;
        for (unsigned i = 1; i < plane.mSingleCount; ++i)
            EXPECT_LT(plane.mSingles[i - 1].mCode, plane.mSingles[i].mCode);
        for (unsigned i = 1; i < plane.mRangeCount; ++i)
            EXPECT_LE(plane.mRanges[i - 1].mFirst + plane.mRanges[i - 1].mLength, plane.mRanges[i].mFirst);
        for (unsigned i = 1; i < plane.mMultiCount; ++i)
            EXPECT_LT(plane.mMultis[i - 1].mCode, plane.mMultis[i].mCode);
    }
}

/// (first, length, first mapped) of each run as long as it goes.
using Runs = std::vector<std::array<unsigned, 3>>;

Runs longestRuns(const std::map<unsigned, unsigned>& mapped) {
    Runs runs;
    for (const auto& [code, to] : mapped) {
        if (!runs.empty() && code == runs.back()[0] + runs.back()[1] && to == runs.back()[2] + runs.back()[1])
            ++runs.back()[1];
        else
            runs.push_back({code, 1, to});
    }
    return runs;
}

TEST(VQStringUtilities, RangesAreTheLongestRunsAndTheRestIsSingle) {
    for (const SVQCaseMappingTable* const table :
         {&VQStringUtilities::sToUpperCaseMappingTable, &VQStringUtilities::sToLowerCaseMappingTable}) {
        const TVQCaseMappings<unsigned short>& plane = table->mPlane;
        Runs expectedRanges, expectedSingles;
        const plain::CaseMappings& oracle =
            table == &VQStringUtilities::sToUpperCaseMappingTable ? plain::upperCase() : plain::lowerCase();
        std::map<unsigned, unsigned> toOne;
        for (const auto& [code, mapped] : oracle)
            if (mapped.size() == 1)
                toOne[code] = mapped[0];
        for (const auto& run : longestRuns(toOne))
            (run[1] > 1 ? expectedRanges : expectedSingles).push_back(run);
        Runs ranges, singles;
        for (unsigned i = 0; i < plane.mRangeCount; ++i)
            ranges.push_back({plane.mRanges[i].mFirst, plane.mRanges[i].mLength, plane.mRanges[i].mFirstMapped});
        for (unsigned i = 0; i < plane.mSingleCount; ++i)
            singles.push_back({plane.mSingles[i].mCode, 1, plane.mSingles[i].mMapped});
        EXPECT_EQ(expectedRanges, ranges);
        EXPECT_EQ(expectedSingles, singles);
    }
}

TEST(VQStringUtilities, OneCharacterBecomesTwoOrThree) {
    const TVQCaseMappings<unsigned short>& up = VQStringUtilities::sToUpperCaseMappingTable.mPlane;
    std::map<unsigned, unsigned> ofCount;
    for (unsigned i = 0; i < up.mMultiCount; ++i)
        ++ofCount[up.mMultis[i].mCount];
    EXPECT_EQ((std::map<unsigned, unsigned>{{2, 86}, {3, 16}}), ofCount);
    EXPECT_EQ(0xDF, up.mMultis[0].mCode);
    EXPECT_THAT(std::vector<unsigned short>(up.mMultis[0].mMapped, up.mMultis[0].mMapped + 2),
                ElementsAre('S', 'S'));
    const TVQCaseMappings<unsigned short>::SMulti& dotted =
        VQStringUtilities::sToLowerCaseMappingTable.mPlane.mMultis[0];
    EXPECT_EQ(0x130, dotted.mCode);
    ASSERT_EQ(2, dotted.mCount);
    EXPECT_THAT(std::vector<unsigned short>(dotted.mMapped, dotted.mMapped + 2), ElementsAre('i', 0x307));
}

TEST(VQStringUtilities, MapsEveryCharacterOfThePlaneLikeTheOracle) {
    ASSERT_EQ(755u, plain::upperCase().size());
    ASSERT_EQ(672u, plain::lowerCase().size());
    for (unsigned code = 0; code <= 0xFFFF; ++code) {
        const std::string bytes = plain::utf8Of(code);
        const CVQString text = unchecked(bytes);
        ASSERT_EQ(plain::mapCase(bytes, plain::upperCase()).bytes, upper(text)) << std::hex << code;
        ASSERT_EQ(plain::mapCase(bytes, plain::lowerCase()).bytes, lower(text)) << std::hex << code;
    }
}

TEST(VQStringUtilities, MapsNothingAboveThePlane) {
    // Some letters there have a case, too, but not here: U+10400 is one.
    std::string bytes;
    for (unsigned code = 0x10000; code <= 0x10FFFF; ++code)
        bytes += plain::utf8Of(code);
    const CVQString text(bytes.c_str());
    CVQString mapped(text);
    VQStringUtilities::toUpper(mapped);
    VQStringUtilities::toLower(mapped);
    EXPECT_EQ(text.c_str(), mapped.c_str());
    EXPECT_TRUE(bytes == bytesOf(text));
}

TEST(VQStringUtilities, ACopyOfTheTablesMapsEveryCharacterAlike) {
    const SVQCaseMappingTable up = VQStringUtilities::sToUpperCaseMappingTable;
    const SVQCaseMappingTable down = VQStringUtilities::sToLowerCaseMappingTable;
    for (unsigned code = 0; code <= 0xFFFF; ++code) {
        const CVQString text = unchecked("x" + plain::utf8Of(code) + "Y");
        CVQString mapped(text);
        VQStringUtilities::doCaseMapping(mapped, up);
        ASSERT_EQ(upper(text), bytesOf(mapped)) << std::hex << code;
        mapped = text;
        VQStringUtilities::doCaseMapping(mapped, down);
        ASSERT_EQ(lower(text), bytesOf(mapped)) << std::hex << code;
    }
}

TEST(VQStringUtilities, MapsEveryAsciiCharacterAtEveryPlace) {
    for (std::size_t at = 0; at < 20; ++at)
        for (unsigned code = 0; code < 0x80; ++code) {
            std::string bytes = "Some Text, of 20 By.";
            bytes[at] = static_cast<char>(code);
            ASSERT_EQ(plain::mapCase(bytes, plain::upperCase()).bytes, upper(unchecked(bytes)));
            ASSERT_EQ(plain::mapCase(bytes, plain::lowerCase()).bytes, lower(unchecked(bytes)));
        }
}

TEST(VQStringUtilities, CountsTheCharactersThatCameOut) {
    CVQString text("Stra\xC3\x9F"
                   "e \xC5\x89 \xCE\x90");  // sharp s, n after an apostrophe, iota with two marks
    VQStringUtilities::toUpper(text);
    EXPECT_EQ("STRASSE \xCA\xBCN \xCE\x99\xCC\x88\xCC\x81", bytesOf(text));
    EXPECT_EQ(14u, text.getCharacterCount());
    CVQString dotted("\xC4\xB0");
    VQStringUtilities::toLower(dotted);
    EXPECT_EQ("i\xCC\x87", bytesOf(dotted));
    EXPECT_EQ(2u, dotted.getCharacterCount());
}

TEST(VQStringUtilities, LeavesABufferAloneInWhichNothingChanges) {
    const CVQString original("NOTHING TO DO \xC3\x84");
    CVQString text(original);
    VQStringUtilities::toUpper(text);
    EXPECT_EQ(original.c_str(), text.c_str());
    EXPECT_EQ(2u, ownersOf(original));
    CVQString empty;
    VQStringUtilities::toLower(empty);
    EXPECT_EQ(CVQString::nullData.text(), empty.c_str());
}

TEST(VQStringUtilities, MapsABufferOfItsOwnInPlace) {
    CVQString text("in place \xC3\xA4 \xC3\x9F");
    text.reserve(100);
    const char* const place = text.c_str();
    VQStringUtilities::toUpper(text);
    EXPECT_EQ(place, text.c_str());
    EXPECT_EQ("IN PLACE \xC3\x84 SS", bytesOf(text));
    EXPECT_EQ(100u, text.getCapacity());
}

TEST(VQStringUtilities, OtherOwnersKeepTheirText) {
    const CVQString original("shared \xC3\xA4");
    CVQString text(original);
    VQStringUtilities::toUpper(text);
    EXPECT_EQ("SHARED \xC3\x84", bytesOf(text));
    EXPECT_EQ("shared \xC3\xA4", bytesOf(original));
    EXPECT_EQ(1u, ownersOf(original));
    EXPECT_EQ(9u, text.getCapacity());
}

TEST(VQStringUtilities, ATextThatGrowsGetsExactlyWhatItNeeds) {
    CVQString text("\xCE\x90\xCE\x90");
    VQStringUtilities::toUpper(text);
    EXPECT_EQ(12u, text.getByteLength());
    EXPECT_EQ(12u, text.getCapacity());
    // With the room, but where what comes out would reach what has not gone in yet.
    CVQString roomy("\xCE\x90 and behind");
    roomy.reserve(50);
    VQStringUtilities::toUpper(roomy);
    EXPECT_EQ("\xCE\x99\xCC\x88\xCC\x81 AND BEHIND", bytesOf(roomy));
    EXPECT_EQ(50u, roomy.getCapacity());
}

TEST(VQStringUtilities, ATextThatShrinksAndGrowsAgainStaysInPlace) {
    CVQString text("\xC4\xB1\xC4\xB1\xC5\x89 \xC5\xBF");  // dotless i twice, then one byte more, long s
    const char* const place = text.c_str();
    VQStringUtilities::toUpper(text);
    EXPECT_EQ("II\xCA\xBCN S", bytesOf(text));
    EXPECT_EQ(place, text.c_str());
    EXPECT_EQ(6u, text.getCharacterCount());
}

TEST(VQStringUtilities, ASharedTextThatShrinksKeepsCountOfItsCharacters) {
    const CVQString original("\xC4\xB1 and \xC5\xBF, both one byte in capitals");
    for (const bool own : {true, false}) {
        const SVQCaseMappingTable copy = VQStringUtilities::sToUpperCaseMappingTable;
        CVQString text(original);
        VQStringUtilities::doCaseMapping(text, own ? VQStringUtilities::sToUpperCaseMappingTable : copy);
        EXPECT_EQ("I AND S, BOTH ONE BYTE IN CAPITALS", bytesOf(text));
        EXPECT_EQ(34u, text.getCharacterCount());
        EXPECT_EQ(1u, ownersOf(original));
        EXPECT_EQ(36u, original.getByteLength());
    }
}

TEST(VQStringUtilities, LeavesWhatIsNoCharacterAsItIs) {
    for (const std::string bytes : {"a\xE4z", "\xC3", "\x80\x80z", "a\xFF", "\xE2\x82z", "\xF0\x9F\x98z"}) {
        EXPECT_EQ(plain::mapCase(bytes, plain::upperCase()).bytes, upper(unchecked(bytes)));
        EXPECT_EQ(plain::mapCase(bytes, plain::lowerCase()).bytes, lower(unchecked(bytes)));
    }
    EXPECT_EQ(std::string("A\0B", 3), upper(unchecked(std::string("a\0b", 3))));
    EXPECT_EQ("A", upper("\xC1\xA1"));  // an overlong a is an a
    // A character whose second byte looks like the first of another.
    EXPECT_EQ("\xE1\xBB\x8ET", upper("\xE1\xFB\x8Ft"));
    for (std::size_t before = 0; before < 70; ++before)
        for (const char* const bytes : {"\xE1\xFB\x8Ft", "\xE1\xFB\x8F", "\xC3\xE1z", "\xE2\xC3\xA4\xC3\xA4"}) {
            const std::string all = std::string(before, 'a') + bytes;
            ASSERT_EQ(plain::mapCase(all, plain::upperCase()).bytes, upper(unchecked(all))) << before;
        }
}

TEST(VQStringUtilities, MapsRandomTextsLikeThePlainRule) {
    std::mt19937 random{20120402};
    static const unsigned kBases[] = {0x20, 0x61, 0xE0, 0x100, 0x180, 0x370, 0x400, 0x530, 0x1E00, 0x1F00, 0xFB00};
    for (int round = 0; round < 20000; ++round) {
        std::string bytes;
        for (std::size_t characters = random() % 40; characters > 0; --characters)
            bytes += plain::utf8Of(kBases[random() % (round % 3 == 0 ? 3 : std::size(kBases))] + random() % 0x60);
        const CVQString text = unchecked(bytes);
        CVQString own(text.c_str(), text.getByteLength());
        if (round % 2 == 0)
            own.reserve(bytes.size() + random() % 40);
        const plain::Text expected = plain::mapCase(bytes, round % 4 < 2 ? plain::upperCase() : plain::lowerCase());
        round % 4 < 2 ? VQStringUtilities::toUpper(own) : VQStringUtilities::toLower(own);
        ASSERT_EQ(expected.bytes, bytesOf(own));
        ASSERT_EQ(expected.characters, own.getCharacterCount());
        ASSERT_EQ(expected.bytes, round % 4 < 2 ? upper(text) : lower(text));
    }
}

TEST(VQStringUtilities, SearchesTheCallersTableInItsOrder) {
    const TVQCaseMappings<unsigned short>::SSingle singles[] = {{'a', 0xE4}, {'c', 0x20AC}};
    const TVQCaseMappings<unsigned short>::SRange ranges[] = {{'a', 4, '1'}, {'x', 3, 0xFFFF}};
    const unsigned short codes[] = {'d', 'o', 'g', 0};
    const TVQCaseMappings<unsigned short>::SMulti multis[] = {{'c', 1, codes}, {'e', 3, codes}, {'f', 0, nullptr}};
    const TVQCaseMappings<unsigned>::SSingle singlesAbove[] = {{0x10000, 'Z'}, {0x1F600, 0x1F601}};
    const TVQCaseMappings<unsigned>::SRange rangesAbove[] = {{0x10FFFE, 2, 0x10FFFF}};
    const unsigned codesAbove[] = {0x1F600, 'x'};
    const TVQCaseMappings<unsigned>::SMulti multisAbove[] = {{0x1F602, 2, codesAbove}};
    const SVQCaseMappingTable table{{2, singles, 2, ranges, 3, multis},
                                    {2, singlesAbove, 1, rangesAbove, 1, multisAbove}};
    const struct {
        const char* text;
        std::string mapped;
    } kRows[] = {
        {"a", "\xC3\xA4"},          // a single one, before the range
        {"b", "2"},                 // a range
        {"c", "\xE2\x82\xAC"},      // before the range and the multi
        {"d", "4"},                 // the range's end
        {"e", "dog"},               // many
        {"f", ""},                  // none
        {"g", "g"},                 // behind all
        {"x", "\xEF\xBF\xBF"},      // the plane's end,
        {"z", "\x01"},              // and beyond it: codes have 16 bits
        {"\xF0\x90\x80\x80", "Z"},  // above the plane
        {"\xF0\x9F\x98\x80", "\xF0\x9F\x98\x81"},
        {"\xF0\x9F\x98\x82", "\xF0\x9F\x98\x80x"},
        {"\xF4\x8F\xBF\xBE", "\xF4\x8F\xBF\xBF"},
        {"\xF4\x8F\xBF\xBF", "\xEF\xBF\xBD"},  // to what is no code point
        {"\xF0\x9F\x98\x83", "\xF0\x9F\x98\x83"},
    };
    std::string all, allMapped;
    for (const auto& row : kRows) {
        CVQString text(row.text);
        VQStringUtilities::doCaseMapping(text, table);
        EXPECT_EQ(row.mapped, bytesOf(text)) << row.text;
        all += row.text;
        allMapped += row.mapped;
    }
    CVQString text(all.c_str());
    VQStringUtilities::doCaseMapping(text, table);
    EXPECT_EQ(allMapped, bytesOf(text));
    CVQString gone("fff");
    VQStringUtilities::doCaseMapping(gone, table);
    EXPECT_TRUE(gone.isEmpty());
    EXPECT_EQ(0u, gone.getCharacterCount());
}

TEST(VQStringUtilities, ATextThatWouldBecomeTooLongStaysAsItIs) {
    if (!kCountsBillions)
        GTEST_SKIP() << "no such text here, or not in the time of a test";
    const std::vector<unsigned> codes(1u << 20, 0x1F600);
    const TVQCaseMappings<unsigned>::SMulti multi{0x10000, 1u << 20, codes.data()};
    const SVQCaseMappingTable table{{}, {0, nullptr, 0, nullptr, 1, &multi}};
    std::string bytes("before");
    for (unsigned i = 0; i < 1u << 10; ++i)
        bytes += "\xF0\x90\x80\x80";
    Reports reports;
    const CVQString original(bytes.c_str());
    CVQString text(original);
    VQStringUtilities::doCaseMapping(text, table);
    EXPECT_EQ(bytes, bytesOf(text));
    EXPECT_EQ(6u + 1024u, text.getCharacterCount());
    EXPECT_EQ(2u, ownersOf(original));
    EXPECT_EQ(Reports::assertion(1263, "CVQString::addReference: Capacity -1 not valid!"), reports.lines());
}

TEST(VQStringUtilities, AnEmptyTableChangesNothing) {
    const SVQCaseMappingTable table{};
    CVQString text("Text \xC3\xA4");
    const char* const place = text.c_str();
    VQStringUtilities::doCaseMapping(text, table);
    EXPECT_EQ("Text \xC3\xA4", bytesOf(text));
    EXPECT_EQ(place, text.c_str());
}

}  // namespace
