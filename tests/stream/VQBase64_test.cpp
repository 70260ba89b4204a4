// Concerns: known texts; destinations of every size, to the byte; padding, cut-off texts, line breaks, characters
// from outside; misuse; each pass of this machine against one character at a time: every character in every place,
// all lengths; the ends of pages; use before main.
#include "stream/PlainBase64.h"
#include "stream/Streams.h"
#include "stream/VQBase64Plain.h"
#include "support/AssertionLog.h"

#if defined(__x86_64__)
#include "stream/VQBase64AVX2.h"
#endif

#include <VQBase64.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <random>
#include <sys/mman.h>
#include <unistd.h>

namespace {

using plain::Bytes;
using support::AssertionLog;
using testing::ElementsAre;

constexpr char kFill = '#';
constexpr unsigned char kFillByte = 0xEE;

/// All of a destination of `size` bytes; each buffer is a heap block of just its size.
std::string encoded(const Bytes& source, std::size_t size) {
    const std::unique_ptr<unsigned char[]> block(new unsigned char[source.size() + 1]);
    std::copy(source.begin(), source.end(), block.get());
    const std::unique_ptr<char[]> destination(new char[size + 1]);
    std::fill_n(destination.get(), size + 1, kFill);
    VQBase64::encode(block.get(), source.size(), destination.get(), size);
    EXPECT_EQ(kFill, destination[size]) << "a byte behind the destination";
    return std::string(destination.get(), size);
}

/// The whole text, in a destination that has room for it and more.
std::string textOf(const Bytes& source) {
    return encoded(source, (source.size() + 2) / 3 * 4 + 1).c_str();
}

plain::Decoded decoded(const std::string& text, std::size_t size) {
    const std::unique_ptr<char[]> block(new char[text.size() + 1]);
    std::copy_n(text.c_str(), text.size() + 1, block.get());
    const std::unique_ptr<unsigned char[]> destination(new unsigned char[size]);
    std::fill_n(destination.get(), size, kFillByte);
    const unsigned count = VQBase64::decode(block.get(), destination.get(), size);
    return {count, Bytes(destination.get(), destination.get() + size)};
}

/// The bytes that count, from a destination that has room for more.
std::string bytesIn(const std::string& text) {
    const plain::Decoded result = decoded(text, text.size() + 8);
    return std::string(result.destination.begin(),
                       result.destination.begin() + static_cast<std::ptrdiff_t>(result.count));
}

// The edge cases

TEST(VQBase64, EncodesWithATerminatorOnlyWhereThereIsRoom) {
    EXPECT_EQ(std::string("TWE=\0", 5), encoded(bytesOf("Ma"), 5));
    EXPECT_EQ("TWE=", encoded(bytesOf("Ma"), 4));
}

TEST(VQBase64, CalculatesTheLengthFromTheCharactersBeforeThePadding) {
    EXPECT_EQ(2u, VQBase64::calcDecodeLength("TWE="));
    EXPECT_EQ(3u, VQBase64::calcDecodeLength("TWFu"));
}

TEST(VQBase64, DecodesToTheBytesBeforeThePaddingOrTheDestinationsEnd) {
    EXPECT_EQ("Ma", bytesIn("TWE="));
    const plain::Decoded cut = decoded("TWFu", 2);
    EXPECT_EQ(2u, cut.count);
    EXPECT_THAT(cut.destination, ElementsAre('M', 'a'));
}

// Each stated behaviour

// The test vectors of RFC 4648, section 10.
const struct {
    const char* bytes;
    const char* text;
} kVectors[] = {{"", ""},
                {"f", "Zg=="},
                {"fo", "Zm8="},
                {"foo", "Zm9v"},
                {"foob", "Zm9vYg=="},
                {"fooba", "Zm9vYmE="},
                {"foobar", "Zm9vYmFy"}};

TEST(VQBase64, PassesTheVectorsOfTheRfcInBothDirections) {
    for (const auto& row : kVectors) {
        EXPECT_EQ(row.text, textOf(bytesOf(row.bytes)));
        EXPECT_EQ(row.bytes, bytesIn(row.text));
        EXPECT_EQ(std::strlen(row.bytes), VQBase64::calcDecodeLength(row.text));
    }
}

TEST(VQBase64, WritesEveryValueAsItsCharacter) {
    Bytes bytes;
    for (unsigned value = 0; value < 64; value += 4) {
        bytes.push_back(static_cast<unsigned char>(value << 2 | (value + 1) >> 4));
        bytes.push_back(static_cast<unsigned char>((value + 1) << 4 | (value + 2) >> 2));
        bytes.push_back(static_cast<unsigned char>((value + 2) << 6 | (value + 3)));
    }
    EXPECT_EQ(plain::kAlphabet, textOf(bytes));
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), bytesIn(plain::kAlphabet));
}

TEST(VQBase64, EncodesNothingAsATerminator) {
    EXPECT_EQ(std::string("\0##", 3), encoded({}, 3));
    EXPECT_EQ("", encoded({}, 0));
    EXPECT_EQ("", encoded({1, 2, 3}, 0));
}

TEST(VQBase64, Kept_WhatDoesNotFitIsCutOffEvenWithinAGroup) {  // id: base64-cut-silently
    EXPECT_EQ("Zm9", encoded(bytesOf("foobar"), 3));
    EXPECT_EQ("Zm9vY", encoded(bytesOf("foobar"), 5));
    EXPECT_EQ("Zg=", encoded(bytesOf("f"), 3));
}

TEST(VQBase64, Kept_TheTerminatorIsWrittenOnlyWhereThereIsRoom) {  // id: base64-terminator-if-room
    EXPECT_EQ("Zm9vYmFy", encoded(bytesOf("foobar"), 8));
    EXPECT_EQ(std::string("Zm9vYmFy\0#", 10), encoded(bytesOf("foobar"), 10));
}

TEST(VQBase64, EncodesAnyBytesIntoDestinationsOfAnySize) {
    std::mt19937 random{4648};
    for (std::size_t length = 0; length <= 130; ++length) {
        Bytes source(length);
        for (unsigned char& byte : source)
            byte = static_cast<unsigned char>(random());
        for (std::size_t size = 0; size <= length / 3 * 4 + 8; size += size < length ? 7 : 1)
            ASSERT_EQ(plain::encode(source, size, kFill), encoded(source, size)) << length << ' ' << size;
    }
}

TEST(VQBase64, Kept_TheLengthIsCalculatedModulo2To32) {  // id: base64-length-29-bits
    EXPECT_EQ(0u, VQBase64::calcDecodeLength(""));
    EXPECT_EQ(0u, VQBase64::calcDecodeLength("T"));
    EXPECT_EQ(1u, VQBase64::calcDecodeLength("TW"));
    EXPECT_EQ(2u, VQBase64::calcDecodeLength("TWF"));
    EXPECT_EQ(3u, VQBase64::calcDecodeLength("TWFu"));
    // A text of so many characters that three times their number has the bit that is dropped: 2^31 + 2.
    constexpr std::size_t kLength = 715827884;
    void* const pages =
        mmap(nullptr, kLength + 1, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (pages == MAP_FAILED || sizeof(void*) == 4)
        GTEST_SKIP() << "no room for a text of 700 MB";
    // Most of it is the same few pages: the file behind them is short.
    constexpr std::size_t kPiece = 1 << 20;
    const std::string piece(kPiece, 'A');
    const int file = memfd_create("text", 0);
    ASSERT_EQ(static_cast<ssize_t>(kPiece), ::write(file, piece.data(), kPiece));
    auto* const text = static_cast<char*>(pages);
    for (std::size_t at = 0; at + kPiece <= kLength; at += kPiece)
        ASSERT_NE(MAP_FAILED, mmap(text + at, kPiece, PROT_READ, MAP_PRIVATE | MAP_FIXED, file, 0));
    std::fill(text + kLength / kPiece * kPiece, text + kLength, 'A');
    EXPECT_EQ((3u * 715827884u >> 2) & 0x1FFFFFFFu, VQBase64::calcDecodeLength(text));
    EXPECT_EQ(1u, VQBase64::calcDecodeLength(text)) << "not 2^29 + 1";
    close(file);
    munmap(pages, kLength + 1);
}

TEST(VQBase64, Kept_AllEqualSignsAtTheEndArePadding) {  // id: base64-all-padding
    EXPECT_EQ(3u, VQBase64::calcDecodeLength("TWFu===="));
    EXPECT_EQ(0u, VQBase64::calcDecodeLength("======"));
    EXPECT_EQ(3u, VQBase64::calcDecodeLength("T=Fu"));
}

TEST(VQBase64, DecodesAnEmptyTextToAZeroByteThatDoesNotCount) {
    const plain::Decoded result = decoded("", 3);
    EXPECT_EQ(0u, result.count);
    EXPECT_THAT(result.destination, ElementsAre(0, kFillByte, kFillByte));
}

TEST(VQBase64, SkipsLineBreaksBehindGroupsOnly) {
    EXPECT_EQ("ManMan", bytesIn("TWFu\r\nTWFu"));
    EXPECT_EQ("ManMan", bytesIn("TWFu\n\n\r\r\nTWFu"));
    EXPECT_EQ("ManMan", bytesIn("TWFu\nTWFu\n"));
    EXPECT_EQ("ManL", bytesIn("TWFuT\nWFu"));  // within a group it is a character from outside
    EXPECT_EQ(std::string(1, '\0'), bytesIn("\r\nTWFu"));
    EXPECT_EQ("Man", bytesIn("TWFu\r\n\r\n"));
}

TEST(VQBase64, StopsAtTheTextsEndWhereLineBreaksHideThatNoGroupIsLeft) {
    for (std::size_t groups = 1; groups <= 40; ++groups) {
        for (const std::string lineBreak : {"\n", "\r\n", "\r\r\n", "\n\n\n\n"}) {
            std::string text, bytes;
            for (std::size_t i = 0; i < groups; ++i) {
                text += "TWFu" + lineBreak;
                bytes += "Man";
            }
            ASSERT_EQ(bytes, bytesIn(text)) << groups;
        }
    }
}

TEST(VQBase64, EndsWhereTheTextCutsAGroupOff) {
    EXPECT_EQ("ManMa", bytesIn("TWFuTWF"));
    EXPECT_EQ("ManM", bytesIn("TWFuTW"));
    EXPECT_EQ("Man\x4C", bytesIn("TWFuT"));
}

TEST(VQBase64, EndsWhereASecondThirdOrFourthCharacterIsFromOutside) {
    EXPECT_EQ("M", bytesIn("TQ=="));
    EXPECT_EQ("L", bytesIn("T*FuTWFu"));
    EXPECT_EQ("M", bytesIn("TW*uTWFu"));
    EXPECT_EQ("Ma", bytesIn("TWF*TWFu"));
    EXPECT_EQ("Ma", bytesIn("TWE=TWFu"));
    EXPECT_EQ("Ma", bytesIn("TWF\xC3TWFu"));
}

TEST(VQBase64, Kept_AFirstCharacterFromOutsideIsAZero) {  // id: base64-first-character
    EXPECT_EQ(bytesIn("AWFuTWFu"), bytesIn("=WFuTWFu"));
    EXPECT_EQ(bytesIn("TWFuAWFu"), bytesIn("TWFu-WFu"));
    EXPECT_EQ("Man\001an", bytesIn("TWFu\x80WFu"));
}

TEST(VQBase64, Kept_AFullDestinationEndsTheOutputBeforeThePaddingUnlessItsThirdByteFilledIt) {
    // id: base64-full-before-padding
    EXPECT_EQ(1u, decoded("TQ==", 1).count);
    EXPECT_EQ(2u, decoded("TQ==", 2).count);
    EXPECT_EQ(1u, decoded("TQ==", 3).count);
    EXPECT_EQ(2u, decoded("TWE=", 3).count);
    EXPECT_EQ(5u, decoded("TWFuTQ==", 5).count);
    EXPECT_EQ(4u, decoded("TWFuTQ==", 6).count);
    EXPECT_THAT(decoded("TR==", 3).destination, ElementsAre('M', 0x10, 0));
}

TEST(VQBase64, DecodesMutatedTextsIntoDestinationsOfAnySize) {
    std::mt19937 random{1987};
    const auto below = [&](std::size_t limit) { return random() % limit; };
    const std::string kStrange = std::string("=\r\n \x01\x7F\x80\xFF-_*") + "AZaz09+/";
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        const std::size_t groups = below(60);
        for (std::size_t i = 0; i < groups; ++i) {
            for (int j = 0; j < 4; ++j)
                text += plain::kAlphabet[below(64)];
            if (below(12) == 0)
                text += below(2) == 0 ? "\r\n" : "\n";
        }
        for (std::size_t mutations = below(4); mutations > 0 && !text.empty(); --mutations)
            text[below(text.size())] = kStrange[below(kStrange.size())];
        text.resize(text.size() - below(std::min<std::size_t>(text.size(), 4) + 1));
        const std::size_t size = 1 + below(text.size() + 4);
        const plain::Decoded expected = plain::decode(text, size, kFillByte);
        const plain::Decoded found = decoded(text, size);
        ASSERT_EQ(expected.count, found.count) << testing::PrintToString(text) << ' ' << size;
        ASSERT_EQ(expected.destination, found.destination) << testing::PrintToString(text) << ' ' << size;
    }
}

TEST(VQBase64, DecodesWhatItEncodedWithAndWithoutLines) {
    std::mt19937 random{76};
    for (std::size_t length = 0; length < 1000; length += 1 + length / 50) {
        std::string bytes(length, '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(random());
        const std::string text = textOf(bytesOf(bytes));
        ASSERT_EQ(length, VQBase64::calcDecodeLength(text.c_str()));
        ASSERT_EQ(bytes, bytesIn(text));
        for (const std::size_t width : {4u, 64u, 76u}) {
            std::string lines;
            for (std::size_t at = 0; at < text.size(); at += width)
                lines += text.substr(at, width) + "\r\n";
            ASSERT_EQ(bytes, bytesIn(lines)) << width;
        }
    }
}

// Misuse

TEST(VQBase64, ReportsNullPointersAndHasNoEffect) {
    AssertionLog log;
    char characters[] = "####";
    unsigned char bytes[] = {kFillByte, kFillByte};
    VQBase64::encode(nullptr, 3, characters, sizeof characters);
    EXPECT_THAT(log.takeSites(), ElementsAre("VQBase64:25"));
    VQBase64::encode(bytes, 2, nullptr, 5);
    EXPECT_THAT(log.takeSites(), ElementsAre("VQBase64:25"));
    VQBase64::encode(nullptr, 0, nullptr, 0);
    EXPECT_THAT(log.takeSites(), ElementsAre("VQBase64:25"));
    EXPECT_STREQ("####", characters);

    EXPECT_EQ(0u, VQBase64::decode(nullptr, bytes, sizeof bytes));
    EXPECT_THAT(log.takeSites(), ElementsAre("VQBase64:78"));
    EXPECT_EQ(0u, VQBase64::decode("TWFu", nullptr, 3));
    EXPECT_THAT(log.takeSites(), ElementsAre("VQBase64:78"));
    EXPECT_EQ(0u, VQBase64::decode("TWFu", bytes, 0));
    EXPECT_THAT(log.takeSites(), ElementsAre("VQBase64:78"));
    EXPECT_THAT(bytes, ElementsAre(kFillByte, kFillByte));

    EXPECT_EQ(0u, VQBase64::calcDecodeLength(nullptr));
    EXPECT_THAT(log.takeSites(), ElementsAre("VQBase64:135"));
}

TEST(VQBase64, RefusesADestinationOfMoreThan32Bits) {
    if (sizeof(std::size_t) == 4)
        GTEST_SKIP() << "no such size here";
    AssertionLog log;
    unsigned char byte = kFillByte;
    EXPECT_EQ(0u, VQBase64::decode("TWFu", &byte, static_cast<std::size_t>(0x100000001ULL)));
    EXPECT_THAT(log.takeSites(), ElementsAre("VQBase64:78"));
    EXPECT_EQ(kFillByte, byte);
}

const std::string sTextBeforeMain = textOf(Bytes(300, 'm'));

TEST(VQBase64, WorksBeforeMain) {
    EXPECT_EQ(std::string(plain::encode(Bytes(300, 'm'), 400, kFill)), sTextBeforeMain);
}

// Each pass that this machine can run

struct Base64Passes {
    const char* name;
    const VQBase64::SPasses* passes;
    std::size_t mayLeave;  // groups
};

void PrintTo(const Base64Passes& passes, std::ostream* stream) {
    *stream << passes.name;
}

constexpr VQBase64::SPasses kPassesPlain{&VQBase64::encodeGroups, &VQBase64::decodeGroups};

std::vector<Base64Passes> allBase64Passes() {
    std::vector<Base64Passes> all{{"Plain", &kPassesPlain, 0}};
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx2") != 0)
        all.push_back({"Of32Bytes", &VQBase64::kPassesAVX2, 9});
#endif
    return all;
}

class VQBase64Passes : public testing::TestWithParam<Base64Passes> {
protected:
    /// Holds what the pass took against the plain text, and that it took nearly all and touched nothing else.
    void expectEncoded(const Bytes& source) {
        const std::size_t groups = source.size() / 3;
        const std::unique_ptr<unsigned char[]> block(new unsigned char[groups * 3]);
        std::copy_n(source.begin(), groups * 3, block.get());
        std::string text(groups * 4, kFill);
        const std::size_t done = GetParam().passes->encode(block.get(), groups, text.data());
        ASSERT_GE(done + GetParam().mayLeave, groups);
        std::string expected =
            plain::encode(Bytes(source.begin(), source.begin() + std::ptrdiff_t(done * 3)), done * 4, kFill);
        expected.resize(groups * 4, kFill);
        ASSERT_EQ(expected, text);
    }

    void expectDecoded(const std::string& text, std::size_t mayLeave) {
        const std::size_t groups = text.size() / 4;
        const std::unique_ptr<char[]> block(new char[groups * 4]);
        std::copy_n(text.begin(), groups * 4, block.get());
        Bytes bytes(groups * 3, kFillByte);
        const std::size_t done = GetParam().passes->decode(block.get(), groups, bytes.data());
        std::size_t good = 0;  // groups
        while (good < groups && text.substr(good * 4, 4).find_first_not_of(plain::kAlphabet) == std::string::npos)
            ++good;
        ASSERT_LE(done, good) << text;
        ASSERT_GE(done + mayLeave, good) << text;
        Bytes expected;
        if (done != 0)
            expected = plain::decode(text.substr(0, done * 4), done * 3, kFillByte).destination;
        expected.resize(groups * 3, kFillByte);
        ASSERT_EQ(expected, bytes) << text;
    }

    std::mt19937 random{2045};
};

TEST_P(VQBase64Passes, EncodeAllNumbersOfGroups) {
    for (std::size_t groups = 0; groups < 200; ++groups) {
        Bytes source(groups * 3);
        for (unsigned char& byte : source)
            byte = static_cast<unsigned char>(random());
        expectEncoded(source);
    }
}

TEST_P(VQBase64Passes, EncodeEveryValueInEveryPlace) {
    for (unsigned place = 0; place < 32; ++place) {
        for (unsigned value = 0; value < 64; ++value) {
            Bytes source(60, static_cast<unsigned char>(random()));
            std::string text = plain::encode(source, 80, kFill);
            text[place] = plain::kAlphabet[value];
            expectEncoded(plain::decode(text, 60, 0).destination);
        }
    }
}

TEST_P(VQBase64Passes, DecodeEveryCharacterInEveryPlace) {
    for (unsigned place = 0; place < 40; ++place) {
        for (unsigned character = 0; character < 256; ++character) {
            std::string text(80, plain::kAlphabet[random() % 64]);
            text[place] = static_cast<char>(character);
            expectDecoded(text, GetParam().mayLeave);
        }
    }
}

TEST_P(VQBase64Passes, DecodeAllNumbersOfGroups) {
    for (std::size_t groups = 0; groups < 200; ++groups) {
        std::string text(groups * 4, ' ');
        for (char& character : text)
            character = plain::kAlphabet[random() % 64];
        expectDecoded(text, GetParam().mayLeave);
    }
}

INSTANTIATE_TEST_SUITE_P(OnThisMachine, VQBase64Passes, testing::ValuesIn(allBase64Passes()),
                         [](const auto& tested) { return tested.param.name; });

}  // namespace
