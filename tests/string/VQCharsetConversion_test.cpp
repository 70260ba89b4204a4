// Concerns: the tables; both directions of ISO 8859 for all bytes, code points, output sizes; what is lost on
// purpose; UTF-16 within its room, refused without a trace, appended; odd arguments; sharing; limits of 32 bits;
// use before main.
#include "PlainConversions.h"
#include "StringInternals.h"

#include <VQCharsetConversion.h>

#include <array>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <random>
#include <sys/mman.h>
#include <unistd.h>

namespace {

using namespace strings;
using plain::kPart1;
using plain::kPart15;
using plain::Part;
using testing::ElementsAre;
using testing::IsEmpty;

CVQString from8859(Part part, const std::string& bytes) {
    return part == kPart1 ? VQConvertFrom8859_1(bytes.data(), bytes.size())
                          : VQConvertFrom8859_15(bytes.data(), bytes.size());
}

struct Converted {
    unsigned characters;
    std::string out;
    bool operator==(const Converted& other) const { return characters == other.characters && out == other.out; }
};

void PrintTo(const Converted& converted, std::ostream* stream) {
    *stream << converted.characters << " " << testing::PrintToString(converted.out);
}

/// All of the output, which stands in a block of just its size.
Converted to8859(Part part, const CVQString& text, std::size_t outSize, char replacement = '?') {
    const std::unique_ptr<char[]> out(new char[outSize]);
    std::memset(out.get(), '#', outSize);
    const unsigned characters = part == kPart1 ? VQConvertTo8859_1(text, out.get(), outSize, replacement)
                                               : VQConvertTo8859_15(text, out.get(), outSize, replacement);
    return {characters, std::string(out.get(), outSize)};
}

/// The same by the plain rules.
Converted plain8859(Part part, const CVQString& text, std::size_t outSize, char replacement = '?') {
    plain::Text source;
    source.bytes = bytesOf(text);
    source.characters = text.getCharacterCount();
    const auto converted = plain::to8859(part, source, outSize, replacement);
    return {converted.second, converted.first + std::string(outSize - converted.first.size(), '#')};
}

struct Utf16 {
    bool converted;
    unsigned count;
    plain::Units units;  ///< the whole room
};

Utf16 toUtf16(const CVQString& text, unsigned room) {
    Utf16 result{false, room, plain::Units(room + 1, 0xABCD)};
    result.converted = convertUTF8ToUTF16(text, result.units.data(), result.count);
    EXPECT_EQ(0xABCD, result.units.back());
    result.units.pop_back();
    return result;
}

bool appendUtf16(CVQString& text, const plain::Units& units) {
    return convertUTF16ToUTF8(units.data(), text, units.size());
}

/// Kept from before main on.
const CVQString kFromLatinBeforeMain = VQConvertFrom8859_15("\xA4 and \xE4", 7);
const Utf16 kToUtf16BeforeMain = toUtf16(kFromLatinBeforeMain, 8);

// ---- what the edges are

TEST(VQCharsetConversion, TheEuroSignHasAByteInPart15Only) {
    EXPECT_EQ("\xE2\x82\xAC", bytesOf(VQConvertFrom8859_15("\xA4", 1)));
    EXPECT_EQ("\xC2\xA4", bytesOf(VQConvertFrom8859_1("\xA4", 1)));
    EXPECT_EQ((Converted{1, std::string("\xA4\0#", 3)}), to8859(kPart15, CVQString("\xE2\x82\xAC"), 3));
    EXPECT_EQ((Converted{1, std::string("?\0#", 3)}), to8859(kPart1, CVQString("\xE2\x82\xAC"), 3));
}

TEST(VQCharsetConversion, Kept_AFullOutputLosesItsLastCharacter) {  // charset-last-character
    EXPECT_EQ((Converted{5, std::string("abcd\0", 5)}), to8859(kPart1, CVQString("abcde"), 5));
    EXPECT_EQ((Converted{5, std::string("abcde\0", 6)}), to8859(kPart1, CVQString("abcde"), 6));
    EXPECT_EQ((Converted{4, std::string("abc\0", 4)}), to8859(kPart1, CVQString("abcde"), 4));
    EXPECT_EQ((Converted{1, std::string("\0", 1)}), to8859(kPart1, CVQString("abcde"), 1));
}

TEST(VQCharsetConversion, TheEmptyStringIsOneZeroUnit) {
    const Utf16 result = toUtf16(CVQString(), 1);
    EXPECT_TRUE(result.converted);
    EXPECT_EQ(1u, result.count);
    EXPECT_THAT(result.units, ElementsAre(0));
}

TEST(VQCharsetConversion, ACharacterAboveThePlaneIsAPairOfUnits) {
    const Utf16 result = toUtf16(CVQString("\xF0\x9F\x98\x80"), 3);
    EXPECT_TRUE(result.converted);
    EXPECT_EQ(3u, result.count);
    EXPECT_THAT(result.units, ElementsAre(0xD83D, 0xDE00, 0));
}

TEST(VQCharsetConversion, AHighSurrogateAtTheEndIsRefused) {
    CVQString text("before");
    EXPECT_FALSE(appendUtf16(text, {0xD800}));
    EXPECT_EQ("before", bytesOf(text));
}

TEST(VQCharsetConversion, WorksBeforeMain) {
    EXPECT_EQ("\xE2\x82\xAC and \xC3\xA4", bytesOf(kFromLatinBeforeMain));
    EXPECT_TRUE(kToUtf16BeforeMain.converted);
    EXPECT_THAT(kToUtf16BeforeMain.units, ElementsAre(0x20AC, ' ', 'a', 'n', 'd', ' ', 0xE4, 0));
}

// ---- tables

TEST(VQConvTable, HoldsTheFormOfEveryByte) {
    for (const Part part : {kPart1, kPart15}) {
        const SVQConvTable& table = part == kPart1 ? sConvTable8859_1 : sConvTable8859_15;
        for (unsigned byte = 0; byte < 256; ++byte) {
            const std::string form = plain::utf8Of(plain::codeOf8859(part, byte));
            std::string padded = form;
            padded.resize(3);
            EXPECT_EQ(form.size(), table.mEntries[byte].mByteCount);
            EXPECT_EQ(0, std::memcmp(table.mEntries[byte].mBytes, padded.data(), 3)) << byte;
        }
    }
}

TEST(VQConvTable, HasTheEightDifferencesOfPart15) {
    const struct {
        unsigned char byte;
        const char* form;
    } kRows[] = {{0xA4, "\xE2\x82\xAC"}, {0xA6, "\xC5\xA0"}, {0xA8, "\xC5\xA1"}, {0xB4, "\xC5\xBD"},
                 {0xB8, "\xC5\xBE"},     {0xBC, "\xC5\x92"}, {0xBD, "\xC5\x93"}, {0xBE, "\xC5\xB8"}};
    for (const auto& row : kRows)
        EXPECT_STREQ(row.form, VQConvertFrom8859_15(reinterpret_cast<const char*>(&row.byte), 1).c_str());
    unsigned different = 0;
    for (unsigned byte = 0; byte < 256; ++byte)
        different += std::memcmp(&sConvTable8859_1.mEntries[byte], &sConvTable8859_15.mEntries[byte], 4) != 0;
    EXPECT_EQ(8u, different);
}

TEST(VQConvTable, IsInvertedByTheReverseTable) {
    EXPECT_EQ(127, sReverseConvTable8859_1.mLastOneByteIndex);
    EXPECT_EQ(255, sReverseConvTable8859_1.mLastTwoByteIndex);
    EXPECT_EQ(127, sReverseConvTable8859_15.mLastOneByteIndex);
    EXPECT_EQ(254, sReverseConvTable8859_15.mLastTwoByteIndex);
    for (const Part part : {kPart1, kPart15}) {
        const SVQConvTable& table = part == kPart1 ? sConvTable8859_1 : sConvTable8859_15;
        const SVQReverseConvTable& reverse = part == kPart1 ? sReverseConvTable8859_1 : sReverseConvTable8859_15;
        for (unsigned i = 0; i < 256; ++i) {
            const auto& entry = reverse.mEntries[i];
            EXPECT_EQ(0, std::memcmp(entry.mBytes, table.mEntries[entry.mByte].mBytes, 3)) << i;
            if (i > 0) {
                const auto& before = reverse.mEntries[i - 1];
                EXPECT_LT(std::memcmp(before.mBytes, entry.mBytes, 3), 0) << i;
            }
        }
    }
    const unsigned char last[] = {0xE2, 0x82, 0xAC, 0xA4};
    EXPECT_EQ(0, std::memcmp(&sReverseConvTable8859_15.mEntries[255], last, 4));
}

// ---- from ISO 8859

TEST(VQCharsetConversion, MakesAStringOfEveryByteInExactlyTheCapacityOfItsForms) {
    for (const Part part : {kPart1, kPart15})
        for (std::size_t count = 0; count <= 300; ++count) {
            std::string bytes;
            for (std::size_t i = 0; i < count; ++i)
                bytes += plain::byteOf(static_cast<unsigned>(i * (count % 2 == 0 ? 1 : 7) + count));
            std::size_t capacity = 0;
            const plain::Text expected = plain::from8859(part, bytes, capacity);
            const std::unique_ptr<char[]> block(new char[count]);
            std::memcpy(block.get(), bytes.data(), count);
            const CVQString text =
                part == kPart1 ? VQConvertFrom8859_1(block.get(), count) : VQConvertFrom8859_15(block.get(), count);
            ASSERT_EQ(expected.bytes, bytesOf(text)) << count;
            ASSERT_EQ(expected.characters, text.getCharacterCount());
            ASSERT_EQ(capacity, text.getCapacity());
            ASSERT_EQ('\0', text.c_str()[text.getByteLength()]);
        }
}

TEST(VQCharsetConversion, MakesAStringOfLongTextsOfEveryKind) {
    std::mt19937 random{20110614};
    const auto below = [&](unsigned bound) { return static_cast<unsigned>(random() % bound); };
    for (const Part part : {kPart1, kPart15})
        for (int round = 0; round < 2000; ++round) {
            std::string bytes;
            while (bytes.size() < 400) {
                const unsigned lowest = std::array<unsigned, 4>{1, 0xC0, 0xA0, 0}[below(4)];
                const unsigned bound = lowest == 1 ? 0x7F : 256 - lowest;
                for (unsigned run = below(lowest == 1 ? 100 : 20); run > 0; --run)
                    bytes += plain::byteOf(lowest + below(bound));
            }
            std::size_t capacity = 0;
            const plain::Text expected = plain::from8859(part, bytes, capacity);
            const CVQString text = from8859(part, bytes);
            ASSERT_EQ(expected.bytes, bytesOf(text));
            ASSERT_EQ(expected.characters, text.getCharacterCount());
            ASSERT_EQ(capacity, text.getCapacity());
        }
}

TEST(VQCharsetConversion, Kept_ZeroBytesAreDroppedAndCountForTheCapacity) {  // charset-zero-bytes
    for (const Part part : {kPart1, kPart15}) {
        const CVQString text = from8859(part, std::string("\0a\0\xE4\0\0bcdefghijk\0", 17));
        EXPECT_EQ("a\xC3\xA4"
                  "bcdefghijk",
                  bytesOf(text));
        EXPECT_EQ(12u, text.getCharacterCount());
        EXPECT_EQ(18u, text.getCapacity());
        const CVQString zeros = from8859(part, std::string(20, '\0'));
        EXPECT_TRUE(zeros.isEmpty());
        EXPECT_EQ(20u, zeros.getCapacity());
    }
}

TEST(VQCharsetConversion, NoBytesMakeAnEmptyStringWithABufferOfItsOwn) {
    for (const CVQString& text : {VQConvertFrom8859_1("text", 0), VQConvertFrom8859_15(nullptr, 0),
                                  VQConvertFrom8859_1(nullptr, 5), convertStringToUTF8(nullptr, "text", 4)}) {
        EXPECT_TRUE(text.isEmpty());
        EXPECT_EQ(0u, text.getCapacity());
        EXPECT_NE(CVQString::nullData.text(), text.c_str());
    }
}

TEST(VQCharsetConversion, TakesTheCallersTableAsItIs) {
    SVQConvTable table = sConvTable8859_15;
    table.mEntries[std::size_t{'a'}] = {3, {0xE5, 0xA4, 0xA9}};
    table.mEntries[std::size_t{'b'}] = {0, {'x', 0, 0}};
    table.mEntries[std::size_t{'c'}] = {9, {0xE2, 0x82, 0xAC}};  // a form has three bytes at most
    table.mEntries[0] = {1, {'0', 0, 0}};
    const CVQString text = convertStringToUTF8(&table, "abc\0abcabcabcd", 14);
    const std::string one = "\xE5\xA4\xA9\xE2\x82\xAC";
    EXPECT_EQ(one + "0" + one + one + one + "d", bytesOf(text));
    EXPECT_EQ(10u, text.getCharacterCount());
    EXPECT_EQ(text.getByteLength(), text.getCapacity());
}

TEST(VQCharsetConversion, DoesNotValidateTheCallersForms) {
    Reports reports;
    SVQConvTable table = sConvTable8859_1;
    table.mEntries[std::size_t{'a'}] = {1, {0xFF, 0, 0}};
    table.mEntries[std::size_t{'b'}] = {2, {0xC3, '(', 0}};
    const CVQString text = convertStringToUTF8(&table, "abc", 3);
    EXPECT_EQ("\xFF\xC3(c", bytesOf(text));
    EXPECT_EQ(3u, text.getCharacterCount());
    EXPECT_THAT(reports.lines(), IsEmpty());
}

TEST(VQCharsetConversion, WhatNoStringCanHoldGivesTheEmptyString) {
    if (!kCountsBillions)
        GTEST_SKIP() << "no such text here, or not in the time of a test";
    // The same 16 MiB all over: euro signs, of three bytes each.
    constexpr std::size_t kPiece = std::size_t{1} << 24;
    constexpr std::size_t kSigns = 4294967277u / 3;  // 2^32 - 19 bytes
    constexpr std::size_t kPieces = kSigns / kPiece + 1;
    const int file = memfd_create("text", MFD_CLOEXEC);
    ASSERT_EQ(0, ftruncate(file, kPiece));
    auto* const area = static_cast<char*>(mmap(nullptr, kPieces * kPiece, PROT_READ | PROT_WRITE,
                                               MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    ASSERT_NE(MAP_FAILED, static_cast<void*>(area));
    for (std::size_t i = 0; i < kPieces; ++i)
        ASSERT_NE(MAP_FAILED,
                  mmap(area + i * kPiece, kPiece, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0));
    std::memset(area, '\xA4', kPiece);

    Reports reports;
    const CVQString text = VQConvertFrom8859_15(area, kSigns);
    EXPECT_TRUE(text.isEmpty());
    EXPECT_EQ(CVQString::nullData.text(), text.c_str());
    EXPECT_EQ(Reports::assertion(202, "CVQString::ctor: Capacity -19 not valid!"), reports.lines());
    munmap(area, kPieces * kPiece);
    close(file);
}

// ---- to ISO 8859

TEST(VQCharsetConversion, ConvertsOrReplacesEveryCodePointOfThePlane) {
    std::string bytes;
    for (unsigned code = 1; code <= 0xFFFF; ++code)
        bytes += plain::utf8Of(code);
    const CVQString text(bytes.c_str());
    for (const Part part : {kPart1, kPart15}) {
        std::string expected(0x10000, '?');
        for (unsigned byte = 1; byte < 256; ++byte)
            expected[plain::codeOf8859(part, byte) - 1] = plain::byteOf(byte);
        expected.back() = '\0';
        const Converted converted = to8859(part, text, expected.size());
        EXPECT_EQ(0xFFFFu, converted.characters);
        EXPECT_TRUE(expected == converted.out);
    }
}

TEST(VQCharsetConversion, ReplacesEveryCodePointAboveThePlane) {
    std::string bytes;
    for (unsigned code = 0x10000; code <= 0x10FFFF; ++code)
        bytes += plain::utf8Of(code) + '+';  // goes with the fourth byte
    const CVQString text(bytes.c_str());
    ASSERT_EQ(0x200000u, text.getCharacterCount());
    for (const Part part : {kPart1, kPart15}) {
        const Converted converted = to8859(part, text, 0x200001);
        EXPECT_EQ(0x200000u, converted.characters);
        EXPECT_TRUE(std::string(0x200000, '?') + '\0' == converted.out);
    }
}

TEST(VQCharsetConversion, FillsOutputsOfEverySize) {
    const char* const kTexts[] = {
        "plain ASCII, longer than two words of the machine",
        "Stra\xC3\x9F"
        "e und Gr\xC3\xB6\xC3\x9F"
        "e, 5 \xE2\x82\xAC",
        "\xE7\xB3\xBB\xE7\xBB\x9F 42",
        "\xC3\xA4\xC3\xB6\xC3\xBC\xC5\xA0\xC5\xB8",
        "\xF0\x9F\x98\x80 and \xF0\x9F\x98\x80\xF0\x9F\x98\x80\xC3\xA4!",
    };
    for (const Part part : {kPart1, kPart15})
        for (const char* const bytes : kTexts) {
            const CVQString text(bytes);
            for (std::size_t size = 1; size <= text.getByteLength() + 3; ++size)
                ASSERT_EQ(plain8859(part, text, size), to8859(part, text, size)) << bytes << size;
        }
}

TEST(VQCharsetConversion, WritesNothingWithoutAnOutput) {
    char out = '#';
    EXPECT_EQ(0u, VQConvertTo8859_1(CVQString("text"), &out, 0, '?'));
    EXPECT_EQ('#', out);
    EXPECT_EQ(0u, VQConvertTo8859_15(CVQString("text"), nullptr, 10, '?'));
}

TEST(VQCharsetConversion, TheEmptyTextIsAZeroByte) {
    for (std::size_t size = 1; size <= 3; ++size)
        EXPECT_EQ((Converted{0, std::string("\0##", size)}), to8859(kPart15, CVQString(), size));
}

TEST(VQCharsetConversion, AnyByteMayReplace) {
    EXPECT_EQ((Converted{3, std::string("a\xFF"
                                        "b\0",
                                        4)}),
              to8859(kPart1,
                     CVQString("a\xE2\x82\xAC"
                               "b"),
                     4, '\xFF'));
    EXPECT_EQ((Converted{3, std::string("a\0b\0", 4)}), to8859(kPart1,
                                                               CVQString("a\xE2\x82\xAC"
                                                                         "b"),
                                                               4, '\0'));
}

TEST(VQCharsetConversion, Kept_OfFourBytesTheLastIsLeftOver) {  // charset-four-bytes
    const std::string face = "\xF0\x9F\x98\x80";
    EXPECT_EQ((Converted{1, std::string("?\0#", 3)}), to8859(kPart1, CVQString(face.c_str()), 3));
    // The fourth byte takes the next one along, and the number of characters ends the text early.
    EXPECT_EQ((Converted{4, std::string("??bc\0", 5)}), to8859(kPart1, CVQString((face + "abc").c_str()), 5));
    EXPECT_EQ((Converted{3, std::string("???\0", 4)}), to8859(kPart15, CVQString((face + face + "a").c_str()), 4));
    EXPECT_EQ((Converted{3, std::string("???\0", 4)}), to8859(kPart1, CVQString((face + "\xC3\xA4z").c_str()), 4));
}

TEST(VQCharsetConversion, EndsWithTheTextWhateverItsBytesAnnounce) {
    // Lenient characters of which three bytes are taken at a time reach the end before all are counted.
    const std::string kTexts[] = {"\xF0\x80\x80\xE2"
                                  "a\xF0\x80\x80\xE2"
                                  "bc",
                                  "\xF0\x80\x80\xE2", "\xE2\xC3\xC3\xE2\xC3\xC3", "\xFC\x80\x80\x80\x80\xE2xyz",
                                  "\xF8\xF0\xF0\xF0\xF0\xC3\xC3"};
    for (const std::string& bytes : kTexts) {
        const CVQString text(bytes.c_str());
        ASSERT_EQ(bytes, bytesOf(text));
        for (const Part part : {kPart1, kPart15})
            for (std::size_t size = 1; size < 16; ++size)
                EXPECT_EQ(plain8859(part, text, size), to8859(part, text, size));
    }
    for (const char* const bytes : {"\xC3", "\xE2", "\xE2\x82", "\x80", "\xFF", "a\xC3", "\xF0\x9F\x98"})
        EXPECT_EQ(plain8859(kPart15, unchecked(bytes), 9), to8859(kPart15, unchecked(bytes), 9));
}

TEST(VQCharsetConversion, ZeroBytesWithinATextAreCharacters) {
    const std::string bytes("a\0\xC3\xA4\0 and more of it\0", 21);
    const CVQString text = unchecked(bytes);
    for (std::size_t size = 1; size < 25; ++size)
        EXPECT_EQ(plain8859(kPart1, text, size), to8859(kPart1, text, size));
}

TEST(VQCharsetConversion, TakesTheCallersReverseTableAsItIs) {
    SVQReverseConvTable table = sReverseConvTable8859_15;
    table.mEntries[std::size_t{'a'}].mByte = '1';
    table.mEntries[128].mByte = '2';  // C2 80
    table.mEntries[254].mByte = '3';  // C5 BE
    table.mEntries[255] = {{0xE5, 0xA4, 0xA9}, '4'};
    char out[8];
    EXPECT_EQ(7u, convertUTF8ToString(table,
                                      CVQString("ba\xC2\x80\xC5\xBE\xE5\xA4\xA9\xE2\x82\xAC"
                                                "b"),
                                      out, sizeof out, '?'));
    EXPECT_STREQ("b1234?b", out);

    table.mLastTwoByteIndex = table.mLastOneByteIndex;  // no form of two bytes
    EXPECT_EQ(2u, convertUTF8ToString(table, CVQString("\xC2\x80\xE5\xA4\xA9"), out, sizeof out, '?'));
    EXPECT_STREQ("?4", out);
    table.mLastTwoByteIndex = 0;
    EXPECT_EQ(1u, convertUTF8ToString(table, CVQString("\xC5\xBE"), out, sizeof out, '?'));
    EXPECT_STREQ("?", out);
    table.mLastTwoByteIndex = 128;  // a single one
    EXPECT_EQ(3u, convertUTF8ToString(table, CVQString("\xC2\x80\xC2\x81\xC3\x80"), out, sizeof out, '?'));
    EXPECT_STREQ("2??", out);
}

TEST(VQCharsetConversion, RoundTripsAllBytesButZero) {
    std::string bytes;
    for (unsigned byte = 1; byte < 256; ++byte)
        bytes += plain::byteOf(byte);
    for (const Part part : {kPart1, kPart15}) {
        const Converted back = to8859(part, from8859(part, bytes), 256);
        EXPECT_EQ(255u, back.characters);
        EXPECT_EQ(bytes + '\0', back.out);
    }
}

// ---- to UTF-16

TEST(VQCharsetConversion, NeedsRoomForEveryUnitAndTheZero) {
    const CVQString text("a\xC3\xA4\xF0\x9F\x98\x80");
    for (unsigned room = 0; room <= 7; ++room) {
        const Utf16 result = toUtf16(text, room);
        EXPECT_EQ(room >= 5, result.converted) << room;
        plain::Units expected(room, 0xABCD);
        if (room >= 5) {
            const plain::Units units{'a', 0xE4, 0xD83D, 0xDE00, 0};
            std::copy(units.begin(), units.end(), expected.begin());
        }
        EXPECT_EQ(expected, result.units) << room;  // refused without a trace
        EXPECT_EQ(room >= 5 ? 5u : room, result.count);
    }
}

TEST(VQCharsetConversion, RefusesTextThatIsNotWellFormed) {
    const char* const kTexts[] = {
        "\xC0\x80",         "\xC1\xBF",         "\xE0\x80\x80",         "\xE0\x9F\xBF",
        "\xED\xA0\x80",     "\xED\xBF\xBF",     "\xF0\x80\x80\x80",     "\xF0\x8F\xBF\xBF",
        "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xF8\x80\x80\x80\x80", "\xFC\x80\x80\x80\x80\x80",
        "\xC3\xC3",         "\xE2\xC3\xA4",     "\xF1\x80\x80\xC0"};
    for (const char* const bytes : kTexts)
        for (const std::size_t before : {0, 40})
            for (const std::size_t behind : {0, 40}) {
                const std::string all = std::string(before, 'a') + bytes + std::string(behind, 'b');
                const CVQString text(all.c_str());
                ASSERT_EQ(all, bytesOf(text));  // the string's own rule is more lenient
                const Utf16 result = toUtf16(text, 100);
                EXPECT_FALSE(result.converted) << testing::PrintToString(all);
                EXPECT_EQ(100u, result.count);
                EXPECT_EQ(plain::Units(100, 0xABCD), result.units);
            }
    for (const char* const bytes : {"\x80", "\xC3", "\xE2\x82", "\xF0\x9F\x98", "\xFF", "a\xF0"})
        EXPECT_FALSE(toUtf16(unchecked(bytes), 10).converted);
}

TEST(VQCharsetConversion, AcceptsTheBoundsOfWhatIsWellFormed) {
    const Utf16 result = toUtf16(CVQString("\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF"
                                           "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"),
                                 12);
    EXPECT_TRUE(result.converted);
    EXPECT_THAT(result.units,
                ElementsAre(0x7F, 0x80, 0x7FF, 0x800, 0xD7FF, 0xE000, 0xFFFF, 0xD800, 0xDC00, 0xDBFF, 0xDFFF, 0));
}

TEST(VQCharsetConversion, RefusesANullOutput) {
    unsigned count = 10;
    EXPECT_FALSE(convertUTF8ToUTF16(CVQString("text"), nullptr, count));
    EXPECT_EQ(10u, count);
}

TEST(VQCharsetConversion, ZeroBytesWithinATextBecomeUnits) {
    const Utf16 result = toUtf16(unchecked(std::string("a\0b", 3)), 4);
    EXPECT_TRUE(result.converted);
    EXPECT_THAT(result.units, ElementsAre('a', 0, 'b', 0));
}

// ---- from UTF-16

TEST(VQCharsetConversion, RefusesNullUnitsAndTakesNone) {
    CVQString text("before");
    EXPECT_FALSE(convertUTF16ToUTF8(nullptr, text, 0));
    EXPECT_FALSE(convertUTF16ToUTF8(nullptr, text, 3));
    const unsigned short unit = 'x';
    EXPECT_TRUE(convertUTF16ToUTF8(&unit, text, 0));
    EXPECT_EQ("before", bytesOf(text));
    CVQString empty;
    EXPECT_TRUE(convertUTF16ToUTF8(&unit, empty, 0));
    EXPECT_EQ(CVQString::nullData.text(), empty.c_str());
}

TEST(VQCharsetConversion, Kept_Utf16IsAppended) {  // utf16-appends
    CVQString text("before ");
    EXPECT_TRUE(appendUtf16(text, {'a', 0xE4, 0x20AC, 0xD83D, 0xDE00}));
    EXPECT_EQ("before a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", bytesOf(text));
    EXPECT_EQ(11u, text.getCharacterCount());
    EXPECT_EQ(17u, text.getCapacity());
    EXPECT_TRUE(appendUtf16(text, {'!'}));
    EXPECT_EQ(12u, text.getCharacterCount());
    EXPECT_EQ(18u, text.getCapacity());
}

TEST(VQCharsetConversion, AppendingLeavesTheOtherOwnersAlone) {
    CVQString text("before");
    text.reserve(100);
    const CVQString copy(text);
    EXPECT_TRUE(appendUtf16(text, {'x'}));
    EXPECT_EQ("before", bytesOf(copy));
    EXPECT_EQ("beforex", bytesOf(text));
    EXPECT_EQ(1u, ownersOf(copy));
    EXPECT_EQ(7u, text.getCapacity());
    CVQString roomy("before");
    roomy.reserve(100);
    const char* const place = roomy.c_str();
    EXPECT_TRUE(appendUtf16(roomy, {'x'}));
    EXPECT_EQ(place, roomy.c_str());
    EXPECT_EQ(100u, roomy.getCapacity());
}

TEST(VQCharsetConversion, Kept_LoneSurrogatesComeInButDoNotGoOut) {  // utf16-lone-surrogates
    Reports reports;
    CVQString text;
    EXPECT_TRUE(appendUtf16(text, {0xDC00, 'a', 0xD800, 'b', 0xDBFF, 0xD800, 0xDC01, 0xDFFF}));
    EXPECT_EQ("\xED\xB0\x80"
              "a\xED\xA0\x80"
              "b\xED\xAF\xBF\xF0\x90\x80\x81\xED\xBF\xBF",
              bytesOf(text));
    EXPECT_EQ(7u, text.getCharacterCount());
    EXPECT_FALSE(toUtf16(text, 20).converted);
    EXPECT_THAT(reports.lines(), IsEmpty());
}

TEST(VQCharsetConversion, WhatStandsBeforeAHighSurrogateAtTheEndIsAppended) {
    CVQString text("before ");
    EXPECT_FALSE(appendUtf16(text, {'a', 0xD83D, 0xDE00, 0xD800}));
    EXPECT_EQ("before a\xF0\x9F\x98\x80", bytesOf(text));
    EXPECT_FALSE(appendUtf16(text, {0xD800, 0xDBFF}));
    EXPECT_EQ("before a\xF0\x9F\x98\x80\xED\xA0\x80", bytesOf(text));
}

TEST(VQCharsetConversion, Kept_ZeroUnitsAreDropped) {  // charset-zero-bytes
    CVQString text("before");
    EXPECT_TRUE(appendUtf16(text, {0, 'a', 0, 0, 0x20AC, 0}));
    EXPECT_EQ("beforea\xE2\x82\xAC", bytesOf(text));
    EXPECT_EQ(8u, text.getCharacterCount());
    EXPECT_EQ(10u, text.getCapacity());
    const CVQString copy(text);
    EXPECT_TRUE(appendUtf16(text, {0, 0}));
    EXPECT_EQ(2u, ownersOf(copy));  // nothing was appended, so the buffer is still shared
}

TEST(VQCharsetConversion, RoundTripsEveryCodePointThroughUtf16) {
    std::string bytes;
    for (unsigned code = 1; code <= 0x10FFFF; ++code)
        if (code < 0xD800 || code >= 0xE000)
            bytes += plain::utf8Of(code);
    constexpr unsigned kInThePlane = 0xFFFF - 0x800;
    constexpr unsigned kAbove = 0x100000;
    const CVQString text(bytes.c_str());
    const Utf16 result = toUtf16(text, kInThePlane + 2 * kAbove + 1);
    ASSERT_TRUE(result.converted);
    EXPECT_EQ(result.units.size(), result.count);
    plain::Units expected;
    ASSERT_TRUE(plain::utf16Of(bytes + '\0', expected));
    EXPECT_TRUE(expected == result.units);
    CVQString back;
    EXPECT_TRUE(convertUTF16ToUTF8(result.units.data(), back, result.count));
    EXPECT_TRUE(bytes == bytesOf(back));
    EXPECT_EQ(kInThePlane + kAbove, back.getCharacterCount());
}

TEST(VQCharsetConversion, LongAsciiFromUtf16TakesTheRoomThatItNeedsWhateverFollows) {
    const auto withTail = [](std::size_t ascii, const plain::Units& tail) {
        plain::Units units;
        for (std::size_t i = 0; i < ascii; ++i)
            units.push_back(static_cast<unsigned short>('!' + i % 90));
        units.insert(units.end(), tail.begin(), tail.end());
        return units;
    };
    const plain::Units kTails[] = {{},
                                   {0},
                                   {0, 0},
                                   {0xE4},
                                   {0x20AC, 'a', 0},
                                   {0xD83D, 0xDE00},
                                   {0xD83D},
                                   {0, 'a', 0, 0xE4},
                                   {0xDC00, 0},
                                   plain::Units(9000, 0x4E00),
                                   plain::Units(9000, 0)};
    for (const std::size_t ascii : {1, 31, 4095, 4096, 4097, 8191, 8192, 8193, 20000})
        for (const plain::Units& tail : kTails) {
            const plain::Units units = withTail(ascii, tail);
            plain::Text added{};
            const bool whole = plain::appendUtf16(units, added);
            const std::size_t total = 6 + added.bytes.size();
            for (const std::size_t room : {std::size_t{6}, total - 1, total, total + 1, total + 5000})
                for (const bool shared : {false, true}) {
                    CVQString text("before");
                    text.reserve(room);
                    const std::size_t roomBefore = text.getCapacity();
                    const CVQString other = shared ? text : CVQString();
                    ASSERT_EQ(whole, appendUtf16(text, units));
                    ASSERT_TRUE("before" + added.bytes == bytesOf(text)) << ascii << ' ' << tail.size();
                    ASSERT_EQ(6 + added.characters, text.getCharacterCount());
                    const bool moved = added.characters != 0 && (shared || roomBefore < total);
                    ASSERT_EQ(moved ? total : roomBefore, text.getCapacity()) << ascii << ' ' << tail.size();
                    ASSERT_EQ(shared ? "before" : "", bytesOf(other));
                }
        }
}

TEST(VQCharsetConversion, RefusesATextThatWouldBeTooLong) {
    Reports reports;
    CVQString text("0123456789");
    SVQStringData& block = blockOf(text);
    block.mByteLength = 0xFFFFFFFD;
    EXPECT_FALSE(appendUtf16(text, {'a', 'b'}));
    block.mByteLength = 10;
    EXPECT_EQ("0123456789", bytesOf(text));
    EXPECT_EQ(Reports::assertion(1263, "CVQString::addReference: Capacity -1 not valid!"), reports.lines());
}

}  // namespace
