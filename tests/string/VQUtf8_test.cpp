// Concerns: each pass against the rule written plainly: all lengths, alignments and limits, valid, irregular,
// mutated and random bytes, errors at every place, zero bytes, the ends of pages; all three vector types of this
// machine.
#include "PlainText.h"

#include "string/VQUtf8Vectors.h"

#if defined(__x86_64__)
#include "string/VQUtf8AVX2.h"
#endif

#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace {

using VQUtf8::SPasses;

struct Processor {
    const char* name;
    const SPasses* passes;
};

void PrintTo(const Processor& processor, std::ostream* stream) {
    *stream << processor.name;
}

std::vector<Processor> processors() {
    std::vector<Processor> all{{"OfWords", &VQUtf8::kPassesOver<VQUtf8::SVectorWord>}};
#if defined(__x86_64__)
    all.push_back({"Of16Bytes", &VQUtf8::kPassesOver<VQUtf8::SVector16>});
    if (__builtin_cpu_supports("avx2"))
        all.push_back({"Of32Bytes", &VQUtf8::kPassesAVX2});
#endif
    return all;
}

class VQUtf8Passes : public testing::TestWithParam<Processor> {
protected:
    const SPasses& passes() const { return *GetParam().passes; }

    // In a heap block of just this size, so that the address sanitizer sees every byte too many.
    void expectMeasured(const std::string& text, std::size_t characters = plain::kAll) const {
        const std::unique_ptr<char[]> block(new char[text.size() + 1]);
        std::memcpy(block.get(), text.data(), text.size());
        expectMeasuredAt(block.get(), text, characters);
    }

    void expectMeasuredAt(const char* place, const std::string& text, std::size_t characters = plain::kAll) const {
        const plain::Extent expected = plain::measure(text, 0, characters);
        const VQUtf8::SExtent found = passes().measure(place, text.size(), characters);
        ASSERT_EQ(expected.bytes, found.bytes) << testing::PrintToString(text) << " characters " << characters;
        ASSERT_EQ(expected.characters, found.characters) << testing::PrintToString(text);
    }

    void expectFound(const std::string& text, const std::string& pattern, std::size_t from = 0) const {
        plain::Text haystack;
        haystack.bytes = text;
        plain::Text needle;
        needle.bytes = pattern;
        needle.characters = 1;
        const std::unique_ptr<char[]> block(new char[text.size() + 1]);
        std::memcpy(block.get(), text.data(), text.size());
        const char* const end = block.get() + text.size();
        const char* const found = passes().find(block.get() + from, end, pattern.data(), pattern.size());
        const std::size_t expected = haystack.find(needle, from);
        ASSERT_EQ(expected, found != nullptr ? static_cast<std::size_t>(found - block.get()) : text.size())
            << testing::PrintToString(text) << " pattern " << testing::PrintToString(pattern);
    }

    std::mt19937 random{20090307};

    std::size_t below(std::size_t bound) { return random() % bound; }

    std::string character() {
        static const char* const kCharacters[] = {"a", "z",  " ", "ä",  "ß",
                                                  "é", "天", "€", "地", "\xF0\x9F\x98\x80"};
        return kCharacters[below(10)];
    }

    /// Well-formed text of exactly `bytes` bytes; `ascii` in ten characters are ASCII at least.
    std::string text(std::size_t bytes, std::size_t ascii) {
        std::string made;
        while (made.size() < bytes) {
            const std::string next = below(10) < ascii ? "x" : character();
            made += made.size() + next.size() <= bytes ? next : "x";
        }
        return made;
    }

    char oddByte() {
        static const unsigned char kBytes[] = {0x00, 0x41, 0x7F, 0x80, 0x9F, 0xBF, 0xC0, 0xC3, 0xDF, 0xE0, 0xE2,
                                               0xEF, 0xF0, 0xF4, 0xF7, 0xF8, 0xFB, 0xFC, 0xFD, 0xFE, 0xFF};
        return static_cast<char>(kBytes[below(sizeof kBytes)]);
    }
};

INSTANTIATE_TEST_SUITE_P(Vectors, VQUtf8Passes, testing::ValuesIn(processors()),
                         [](const auto& vector) { return std::string(vector.param.name); });

TEST_P(VQUtf8Passes, MeasuresWellFormedTextOfEveryLength) {
    for (std::size_t bytes = 0; bytes <= 400; ++bytes)
        for (const std::size_t ascii : {0, 5, 9, 10})
            ASSERT_NO_FATAL_FAILURE(expectMeasured(text(bytes, ascii)));
}

TEST_P(VQUtf8Passes, MeasuresFromEveryAlignment) {
    for (std::size_t skew = 0; skew < 64; ++skew)
        for (std::size_t bytes = 0; bytes <= 200; bytes += 1 + below(3)) {
            const std::string made = text(bytes, below(11));
            const std::string buffer = std::string(skew, '\xE2') + made + "\x80\x80\x80";
            ASSERT_NO_FATAL_FAILURE(expectMeasuredAt(buffer.data() + skew, made));
        }
}

TEST_P(VQUtf8Passes, StopsAfterEveryNumberOfCharacters) {
    for (const std::size_t ascii : {0, 6, 10}) {
        const std::string made = text(300, ascii);
        for (std::size_t characters = 0; characters <= 301; ++characters)
            ASSERT_NO_FATAL_FAILURE(expectMeasured(made, characters));
    }
}

TEST_P(VQUtf8Passes, FindsAnErrorAtEveryPlace) {
    for (const std::size_t bytes : {1, 7, 20, 33, 64, 70, 129, 200})
        for (const std::size_t ascii : {0, 7, 10}) {
            const std::string made = text(bytes, ascii);
            for (std::size_t at = 0; at < bytes; ++at)
                for (const unsigned char odd : {0x00, 0x41, 0x80, 0xBF, 0xC3, 0xE2, 0xF0, 0xF8, 0xFC, 0xFE, 0xFF}) {
                    std::string mutated = made;
                    mutated[at] = static_cast<char>(odd);
                    ASSERT_NO_FATAL_FAILURE(expectMeasured(mutated));
                }
        }
}

TEST_P(VQUtf8Passes, FindsATextThatEndsInsideACharacterAtEveryPlace) {
    const std::string made = text(200, 1);
    for (std::size_t bytes = 0; bytes <= made.size(); ++bytes)
        ASSERT_NO_FATAL_FAILURE(expectMeasured(made.substr(0, bytes)));
}

TEST_P(VQUtf8Passes, MeasuresEveryCharacterOfTheLenientRule) {
    // Each lead byte with following bytes that all have their top bit set, but are not all of the form 10xxxxxx.
    for (unsigned lead = 0; lead < 256; ++lead)
        for (const unsigned char follower : {0x80, 0xBF, 0xC3, 0xE2, 0xF0, 0xFF, 0x7F})
            for (const std::size_t before : {0, 1, 3, 30, 61, 62, 63, 64, 100})
                for (const std::size_t followers : {0, 1, 2, 3, 5, 6}) {
                    std::string made = std::string(before, 'a') + static_cast<char>(lead);
                    made += std::string(followers, static_cast<char>(follower)) + std::string(40, 'b');
                    ASSERT_NO_FATAL_FAILURE(expectMeasured(made));
                }
}

TEST_P(VQUtf8Passes, MeasuresIrregularCharactersAmongRegularOnes) {
    // Valid under the lenient rule throughout: nothing may be cut.
    static const char* const kIrregular[] = {
        "\xC3\xC3",         "\xC3\xFF",         "\xE2\xC3\xA4",         "\xE2\xF0\xF0",
        "\xF0\xE2\x82\xAC", "\xF0\xC3\xA4\xC3", "\xF8\x80\x80\x80\x80", "\xFC\xFE\xFE\xFE\xFE\xFE"};
    for (int round = 0; round < 4000; ++round) {
        std::string made;
        const std::size_t bytes = 1 + below(300);
        while (made.size() < bytes)
            made += below(12) == 0 ? kIrregular[below(8)] : character();
        ASSERT_EQ(made.size(), plain::measure(made, 0, plain::kAll).bytes);
        ASSERT_NO_FATAL_FAILURE(expectMeasured(made));
        ASSERT_NO_FATAL_FAILURE(expectMeasured(made, below(made.size())));
    }
}

TEST_P(VQUtf8Passes, MeasuresRandomAndMutatedBytes) {
    for (int round = 0; round < 20000; ++round) {
        std::string made = text(below(260), below(11));
        for (std::size_t mutations = below(4); mutations > 0 && !made.empty(); --mutations)
            made[below(made.size())] = oddByte();
        ASSERT_NO_FATAL_FAILURE(expectMeasured(made));
    }
    for (int round = 0; round < 20000; ++round) {
        std::string made(below(140), '\0');
        for (char& byte : made)
            byte = round % 2 == 0 ? static_cast<char>(random()) : oddByte();
        ASSERT_NO_FATAL_FAILURE(expectMeasured(made));
    }
}

TEST_P(VQUtf8Passes, FindsTheEndOfAsciiOfEveryLengthAndAlignment) {
    for (std::size_t skew = 0; skew < 64; ++skew)
        for (std::size_t bytes = 0; bytes <= 200; ++bytes)
            for (const char stop : {'\0', '\x80', '\xFF', '\x01'}) {
                alignas(64) char buffer[400];
                std::memset(buffer, skew % 2 == 0 ? '\0' : '\xE4',
                            sizeof buffer);  // what lies around does not count
                std::memset(buffer + skew, 'a', bytes);
                buffer[skew + bytes] = stop;
                buffer[skew + bytes + 1] = '\0';
                const std::size_t expected = bytes + (stop == '\x01' ? 1 : 0);
                ASSERT_EQ(expected, passes().asciiPrefix(buffer + skew, plain::kAll)) << skew << " " << bytes;
                const std::size_t limit = below(bytes + 3);
                ASSERT_EQ(std::min(expected, limit), passes().asciiPrefix(buffer + skew, limit));
            }
}

TEST_P(VQUtf8Passes, FindsEveryStopAmongAscii) {
    const std::string made(300, 'a');
    for (unsigned stop = 0; stop < 256; ++stop)
        for (std::size_t at = 0; at < 300; at += 1 + below(9)) {
            std::string text = made;
            text[at] = static_cast<char>(stop);
            ASSERT_EQ(stop == 0 || stop >= 0x80 ? at : 300, passes().asciiPrefix(text.c_str(), plain::kAll));
        }
}

TEST_P(VQUtf8Passes, TouchesNoPageThatHoldsNothingOfTheText) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    auto* const area = static_cast<char*>(mmap(nullptr, 3 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(MAP_FAILED, static_cast<void*>(area));
    char* const first = area + page;
    char* const behind = first + page;
    ASSERT_EQ(0, mprotect(first, page, PROT_READ | PROT_WRITE));
    for (std::size_t bytes = 0; bytes <= 200; ++bytes) {
        for (char* const place : {first, behind - bytes}) {
            const std::string made = text(bytes, bytes % 2 == 0 ? 10 : 5);
            std::memcpy(place, made.data(), bytes);
            ASSERT_NO_FATAL_FAILURE(expectMeasuredAt(place, made));
            std::size_t ascii = 0;
            while (ascii < bytes && static_cast<unsigned char>(made[ascii] - 1) < 127)
                ++ascii;
            ASSERT_EQ(ascii, passes().asciiPrefix(place, bytes));
            ASSERT_EQ(nullptr, passes().find(place, place + bytes, "!!", 2));
        }
        if (bytes > 0) {
            std::memset(behind - bytes, 'a', bytes);
            behind[-1] = '\0';
            ASSERT_EQ(bytes - 1, passes().asciiPrefix(behind - bytes, plain::kAll));
        }
    }
    munmap(area, 3 * page);
}

TEST_P(VQUtf8Passes, FindsAPatternAtEveryPlace) {
    for (const std::size_t length : {1, 2, 3, 5, 16, 33, 70})
        for (std::size_t at = 0; at <= 150; ++at) {
            const std::string pattern = length == 1 ? "p" : "p" + std::string(length - 2, 'q') + "r";
            std::string haystack(150, 'a');
            haystack.insert(at, pattern);
            ASSERT_NO_FATAL_FAILURE(expectFound(haystack, pattern));
            haystack.resize(at + length);
            ASSERT_NO_FATAL_FAILURE(expectFound(haystack, pattern));  // fits to the byte
            haystack.pop_back();
            ASSERT_NO_FATAL_FAILURE(expectFound(haystack, pattern));  // does not fit
        }
}

TEST_P(VQUtf8Passes, SearchEndsAtAZeroByteAtEveryPlace) {
    for (std::size_t at = 0; at <= 120; ++at)
        for (const std::size_t zero : {std::size_t{0}, at / 2, at, at + 1, at + 2, at + 3, at + 40}) {
            std::string haystack(200, 'a');
            haystack.replace(at, 3, "pqr");
            haystack[zero] = '\0';
            ASSERT_NO_FATAL_FAILURE(expectFound(haystack, "pqr"));
            ASSERT_NO_FATAL_FAILURE(expectFound(haystack, std::string("p\0r", 3)));
        }
}

TEST_P(VQUtf8Passes, SearchesFewLettersLikeThePlainRule) {
    // Two letters and a zero byte now and then: first and last bytes of the pattern match nearly everywhere.
    for (int round = 0; round < 30000; ++round) {
        std::string haystack(below(150), 'a');
        for (char& byte : haystack)
            byte = below(60) == 0 ? '\0' : below(2) == 0 ? 'a' : 'b';
        std::string pattern(1 + below(9), 'a');
        for (char& byte : pattern)
            byte = below(3) == 0 ? 'b' : 'a';
        if (pattern.size() > 2 && below(20) == 0)
            pattern[1] = '\0';
        ASSERT_NO_FATAL_FAILURE(expectFound(haystack, pattern, below(haystack.size() + 1)));
    }
}

TEST_P(VQUtf8Passes, SearchesTextsOfManyBytesLikeThePlainRule) {
    for (int round = 0; round < 5000; ++round) {
        const std::string haystack = text(below(300), below(8));
        const std::string pattern = below(2) == 0 ? character() + character() : text(1 + below(6), 3);
        ASSERT_NO_FATAL_FAILURE(expectFound(haystack, pattern));
    }
}

TEST(VQUtf8, LeadBytesAreThoseThatTheTableHasALengthFor) {
    for (int value = 0; value < 256; ++value)
        EXPECT_EQ(VQUtf8::kSequenceLength[value] != VQUtf8::kNoLead, VQUtf8::isLead(static_cast<char>(value)))
            << value;
}

TEST(VQUtf8Reach, EndsAtTheFirstZeroByteOrAtTheLimit) {
    const std::string text = "ascii \xC3\xA4 and more";
    for (std::size_t limit = 0; limit < text.size() + 3; ++limit) {
        const VQUtf8::SReach reach = VQUtf8::reach(text.c_str(), limit);
        EXPECT_EQ(std::min(limit, text.size()), reach.bytes);
        EXPECT_EQ(std::min<std::size_t>(limit, 6), reach.asciiBytes);
    }
    EXPECT_EQ(text.size(), VQUtf8::reach(text.c_str(), VQUtf8::kAll).bytes);
}

}  // namespace
