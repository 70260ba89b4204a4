// Concerns: each pass against the rules written plainly: every code point, every row of the table of well-formed
// sequences from inside and outside, all lengths and alignments, kinds of characters in every mixture, nothing
// written but the result; all builds for this machine.
#include "PlainConversions.h"

#include "string/VQUtf16Passes.h"
#include "string/VQUtf8Vectors.h"

#if defined(__x86_64__)
#include "string/VQUtf16AVX2.h"
#endif

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <random>
#include <string>

namespace {

using VQUtf16::SPasses;

struct Build {
    const char* name;
    const SPasses* passes;
};

void PrintTo(const Build& build, std::ostream* stream) {
    *stream << build.name;
}

std::vector<Build> builds() {
    std::vector<Build> all{{"OfWords", &VQUtf16::kPassesOver<VQUtf8::SVectorWord>}};
#if defined(__x86_64__)
    all.push_back({"Of16Bytes", &VQUtf16::kPassesOver<VQUtf8::SVector16>});
    if (__builtin_cpu_supports("avx2"))
        all.push_back({"Of32Bytes", &VQUtf16::kPassesAVX2});
#endif
    return all;
}

class VQUtf16Passes : public testing::TestWithParam<Build> {
protected:
    const SPasses& passes() const { return *GetParam().passes; }

    // Both blocks have just the size needed, so that the address sanitizer sees every byte too many.
    void expectUnits(const std::string& text) const {
        const std::unique_ptr<char[]> block(new char[text.size() + 1]);
        std::memcpy(block.get(), text.data(), text.size());
        plain::Units expected;
        if (!plain::utf16Of(text, expected)) {
            ASSERT_EQ(VQUtf16::kMalformed, passes().measure(block.get(), text.size()))
                << testing::PrintToString(text);
            return;
        }
        ASSERT_EQ(expected.size(), passes().measure(block.get(), text.size())) << testing::PrintToString(text);
        const std::unique_ptr<unsigned short[]> out(new unsigned short[expected.size() + 1]);
        out[expected.size()] = 0xABCD;
        passes().fromUtf8(block.get(), text.size(), out.get(), expected.size());
        ASSERT_EQ(expected, plain::Units(out.get(), out.get() + expected.size())) << testing::PrintToString(text);
        ASSERT_EQ(0xABCD, out[expected.size()]);
    }

    // What it leaves at the end is less than its longest step.
    void expectAscii(const plain::Units& units) const {
        const auto isOther = [](unsigned short unit) { return unit == 0 || unit >= 0x80; };
        const auto other = std::find_if(units.begin(), units.end(), isOther);
        const std::string expected(units.begin(), other);
        std::string out(units.size() + 1, '#');
        const std::size_t written = passes().toAscii(units.data(), units.size(), out.data());
        ASSERT_LE(written, expected.size()) << testing::PrintToString(units);
        ASSERT_LT(expected.size() - written, 32U) << testing::PrintToString(units);
        ASSERT_EQ(expected.substr(0, written), out.substr(0, written));
        ASSERT_EQ('#', out.back());
    }

    // Without the last unit where that is a high surrogate: whoever calls the passes has dealt with it.
    void expectBytes(plain::Units units) const {
        plain::Text expected;
        if (!plain::appendUtf16(units, expected))
            units.pop_back();
        const std::unique_ptr<unsigned short[]> block(new unsigned short[units.size() + 1]);
        std::copy(units.begin(), units.end(), block.get());
        const VQUtf16::SUtf8Extent extent = passes().measureUtf8(block.get(), units.size());
        ASSERT_EQ(expected.bytes.size(), extent.bytes) << testing::PrintToString(units);
        ASSERT_EQ(expected.characters, extent.characters) << testing::PrintToString(units);
        const std::unique_ptr<char[]> out(new char[expected.bytes.size() + 1]);
        out[expected.bytes.size()] = '#';
        passes().toUtf8(block.get(), units.size(), out.get(), expected.bytes.size());
        ASSERT_EQ(expected.bytes, std::string(out.get(), expected.bytes.size())) << testing::PrintToString(units);
        ASSERT_EQ('#', out[expected.bytes.size()]);
        expectAscii(units);
    }

    std::mt19937 random{20110613};

    std::size_t below(std::size_t bound) { return random() % bound; }

    /// A code point of one of four kinds, by the bytes it takes; no surrogate.
    unsigned code(std::size_t kind) {
        switch (kind) {
        case 0:
            return static_cast<unsigned>(1 + below(0x7F));
        case 1:
            return static_cast<unsigned>(0x80 + below(0x780));
        case 2: {
            const auto one = static_cast<unsigned>(0x800 + below(0xF000));
            return one >= 0xD800 ? one + 0x800 : one;
        }
        default:
            return static_cast<unsigned>(0x10000 + below(0x100000));
        }
    }

    /// `kinds` has a bit for each kind that may come; runs of one kind are long now and then.
    std::string text(std::size_t characters, unsigned kinds) {
        std::string made;
        while (characters > 0) {
            std::size_t kind = below(4);
            while ((kinds >> kind & 1) == 0)
                kind = (kind + 1) % 4;
            for (std::size_t run = below(8) == 0 ? 40 : 1 + below(3); run > 0 && characters > 0;
                 --run, --characters)
                made += plain::utf8Of(code(kind));
        }
        return made;
    }

    static plain::Units unitsOf(const std::string& text) {
        plain::Units units;
        EXPECT_TRUE(plain::utf16Of(text, units));
        return units;
    }
};

INSTANTIATE_TEST_SUITE_P(Builds, VQUtf16Passes, testing::ValuesIn(builds()),
                         [](const auto& build) { return std::string(build.param.name); });

TEST_P(VQUtf16Passes, ConvertEveryCodePointToUtf16) {
    for (unsigned first = 0; first < 0x110000; first += 64) {
        if (first >= 0xD800 && first < 0xE000)
            continue;
        std::string text(first / 64 % 33, 'a');
        for (unsigned one = first; one < first + 64; ++one)
            text += plain::utf8Of(one);
        ASSERT_NO_FATAL_FAILURE(expectUnits(text)) << first;
    }
}

TEST_P(VQUtf16Passes, ConvertEveryCodePointFromUtf16) {
    for (unsigned first = 0; first < 0x110000; first += 64) {
        plain::Units units(first / 64 % 33, 'a');
        for (unsigned one = first; one < first + 64; ++one) {
            if (one > 0xFFFF)
                units.push_back(static_cast<unsigned short>(0xD7C0 + one / 0x400));
            units.push_back(static_cast<unsigned short>(one > 0xFFFF ? 0xDC00 + one % 0x400 : one));
        }
        units.push_back('z');
        ASSERT_NO_FATAL_FAILURE(expectBytes(units)) << first;
    }
}

TEST_P(VQUtf16Passes, TellEveryPairOfBytes) {
    for (unsigned first = 0; first < 256; ++first)
        for (unsigned second = 0; second < 256; ++second)
            for (const std::size_t before : {0, 3, 40}) {
                const std::string pair{plain::byteOf(first), plain::byteOf(second)};
                ASSERT_NO_FATAL_FAILURE(expectUnits(std::string(before, 'a') + pair + std::string(before, 'b')));
            }
}

TEST_P(VQUtf16Passes, TellEverySequenceOfThreeAndFourByTheBoundsOfItsBytes) {
    static const unsigned char kBounds[] = {0x00, 0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0,
                                            0xC2, 0xDF, 0xE0, 0xED, 0xEF, 0xF0, 0xF4, 0xF5, 0xFF};
    for (unsigned first = 0xE0; first < 256; ++first)
        for (const unsigned char second : kBounds)
            for (const unsigned char third : kBounds)
                for (const unsigned char fourth : kBounds) {
                    const std::string sequence{plain::byteOf(first), plain::byteOf(second), plain::byteOf(third),
                                               plain::byteOf(fourth)};
                    for (const std::size_t before : {0, 31}) {
                        const std::string text = std::string(before, 'a') + sequence + std::string(before, 'b');
                        ASSERT_NO_FATAL_FAILURE(expectUnits(text));
                    }
                }
}

TEST_P(VQUtf16Passes, TellATextThatEndsInsideACharacterAtEveryPlace) {
    for (const unsigned kinds : {2u, 4u, 8u, 15u}) {
        const std::string made = text(90, kinds);
        for (std::size_t bytes = 0; bytes <= made.size(); ++bytes)
            ASSERT_NO_FATAL_FAILURE(expectUnits(made.substr(0, bytes)));
    }
}

TEST_P(VQUtf16Passes, TellAnErrorAtEveryPlace) {
    for (const unsigned kinds : {1u, 3u, 5u, 8u, 15u}) {
        const std::string made = text(60, kinds);
        for (std::size_t at = 0; at < made.size(); ++at)
            for (const unsigned char odd : {0x41, 0x80, 0xBF, 0xC1, 0xC3, 0xE0, 0xED, 0xF0, 0xF4, 0xF5, 0xFF}) {
                std::string mutated = made;
                mutated[at] = static_cast<char>(odd);
                ASSERT_NO_FATAL_FAILURE(expectUnits(mutated));
            }
    }
}

TEST_P(VQUtf16Passes, ConvertTextsOfEveryLengthAndMixture) {
    for (unsigned kinds = 1; kinds < 16; ++kinds)
        for (std::size_t characters = 0; characters <= 150; ++characters) {
            const std::string made = text(characters, kinds);
            ASSERT_NO_FATAL_FAILURE(expectUnits(made));
            ASSERT_NO_FATAL_FAILURE(expectBytes(unitsOf(made)));
        }
}

TEST_P(VQUtf16Passes, ConvertLongTextsOfEveryMixture) {
    for (unsigned kinds = 1; kinds < 16; ++kinds)
        for (int round = 0; round < 40; ++round) {
            const std::string made = text(300 + below(2000), kinds);
            ASSERT_NO_FATAL_FAILURE(expectUnits(made));
            ASSERT_NO_FATAL_FAILURE(expectBytes(unitsOf(made)));
        }
}

TEST_P(VQUtf16Passes, ConvertZeroBytesToUnits) {
    for (std::size_t at = 0; at <= 70; ++at) {
        std::string made = text(70, 3);
        made.insert(at, 1, '\0');
        ASSERT_NO_FATAL_FAILURE(expectUnits(made));
    }
}

TEST_P(VQUtf16Passes, LeaveZeroUnitsOutAtEveryPlace) {
    for (const unsigned kinds : {1u, 2u, 4u, 8u, 15u})
        for (std::size_t at = 0; at <= 80; ++at) {
            plain::Units units = unitsOf(text(80, kinds));
            units.insert(units.begin() + static_cast<std::ptrdiff_t>(at), below(3), 0);
            ASSERT_NO_FATAL_FAILURE(expectBytes(units));
        }
}

TEST_P(VQUtf16Passes, KeepLoneSurrogatesAtEveryPlace) {
    for (const unsigned kinds : {1u, 2u, 4u, 8u, 15u})
        for (std::size_t at = 0; at <= 80; ++at)
            for (const unsigned short lone : {0xD800, 0xDBFF, 0xDC00, 0xDFFF}) {
                plain::Units units = unitsOf(text(80, kinds));
                units.insert(units.begin() + static_cast<std::ptrdiff_t>(at), lone);
                ASSERT_NO_FATAL_FAILURE(expectBytes(units));
            }
}

TEST_P(VQUtf16Passes, ConvertRandomUnits) {
    static const unsigned short kOdd[] = {0,      0x41,   0x7F,   0x80,   0x7FF,  0x800,  0x7FFF, 0x8000,
                                          0xD7FF, 0xD800, 0xDBFF, 0xDC00, 0xDFFF, 0xE000, 0xFFFF};
    for (int round = 0; round < 20000; ++round) {
        plain::Units units(below(140));
        for (unsigned short& unit : units)
            unit = round % 2 == 0 ? static_cast<unsigned short>(random()) : kOdd[below(std::size(kOdd))];
        ASSERT_NO_FATAL_FAILURE(expectBytes(units));
    }
}

TEST_P(VQUtf16Passes, TellRandomAndMutatedBytes) {
    for (int round = 0; round < 20000; ++round) {
        std::string made = text(below(200), 1 + static_cast<unsigned>(below(15)));
        for (std::size_t mutations = below(3); mutations > 0 && !made.empty(); --mutations)
            made[below(made.size())] = static_cast<char>(random());
        ASSERT_NO_FATAL_FAILURE(expectUnits(made));
    }
}

TEST_P(VQUtf16Passes, ConvertLatinUpToAStepThatIsNotPureOrHasNoRoom) {
    if (passes().latinSteps == nullptr)
        GTEST_SKIP() << "made byte by byte here";
    constexpr std::size_t kStep = VQUtf16::kLatinStep;
    for (int round = 0; round < 20000; ++round) {
        const std::size_t first = 0x80 + below(0x80);
        const auto others = round % 2 == 0
                                ? VQUtf16::SOtherBytes{0, 0}
                                : VQUtf16::SOtherBytes{static_cast<unsigned char>(first),
                                                       static_cast<unsigned char>(first + below(256 - first))};
        const auto isPure = [&](unsigned byte) { return byte != 0 && (byte < others.first || byte > others.last); };
        const std::size_t count = below(200);
        const std::unique_ptr<char[]> block(new char[count + 1]);
        for (std::size_t i = 0; i < count; ++i) {
            // Mostly ASCII, or mostly not; seldom what ends a run.
            unsigned byte = static_cast<unsigned>(below(4) < first % 4 ? below(128) : below(256));
            for (int tries = 0; tries < 2 && !isPure(byte); ++tries)
                byte = static_cast<unsigned>(below(256));
            block[i] = plain::byteOf(byte);
        }
        const std::size_t room = below(2) == 0 ? 2 * count : below(2 * count + 1);
        const std::unique_ptr<char[]> text(new char[room + 1]);
        text[room] = '#';
        char* out = text.get();
        const std::size_t passed = passes().latinSteps(block.get(), count, out, text.get() + room, others);

        ASSERT_EQ(0u, passed % kStep);
        ASSERT_LE(passed, count);
        std::string expected;
        for (std::size_t i = 0; i < passed; ++i) {
            ASSERT_TRUE(isPure(VQUtf16::asByte(block[i])));
            expected += plain::utf8Of(VQUtf16::asByte(block[i]));
        }
        ASSERT_EQ(expected, std::string(text.get(), out));
        ASSERT_EQ('#', text[room]);
        const bool isStopped = count - passed < kStep || room - expected.size() < 2 * kStep ||
                               !std::all_of(block.get() + passed, block.get() + passed + kStep,
                                            [&](char byte) { return isPure(VQUtf16::asByte(byte)); });
        ASSERT_TRUE(isStopped) << passed << " of " << count;
    }
}

}  // namespace
