// Concerns: growth to the byte; insertion of texts, truth values, strings and formats, plain, padded and escaped;
// what the width is applied to; copies; null and refused arguments; texts of its own; sizes that cannot be had;
// random insertions beside a std::string.
#include "stream/Streams.h"
#include "support/ChildProcess.h"

#include <CVQOTextStream.h>
#include <CVQString.h>

#include <climits>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <type_traits>
#include <utility>

namespace {

using Stream = CVQOTextStream;

std::string textOf(const Stream& stream) {
    return stream.c_str();
}

void words(Stream& stream) {
    stream.setFlags(stream.getFlags() | Stream::BOOL_AS_WORD);
}
void xml(Stream& stream) {
    stream.setFlags(stream.getFlags() | Stream::XML_ESCAPE);
}
template <unsigned width>
void wide(Stream& stream) {
    stream.setWidth(width);
}

// The edge cases

TEST(CVQOTextStream, GrowsTo128AndThenDoubles) {
    Stream stream(0);
    EXPECT_EQ(0u, stream.getCapacity());
    stream << "short";
    EXPECT_EQ(128u, stream.getCapacity());
    stream << std::string(200, 'x').c_str();
    EXPECT_EQ(256u, stream.getCapacity());
    EXPECT_EQ("short" + std::string(200, 'x'), textOf(stream));
}

TEST(CVQOTextStream, EscapesWhatXmlReserves) {
    Stream stream(0);
    stream.setFlags(2);
    stream << "a<b&\"";
    EXPECT_EQ("a&lt;b&amp;&quot;", textOf(stream));
    EXPECT_EQ(17u, stream.getLength());
}

TEST(CVQOTextStream, AlignsOneItemToTheRight) {
    Stream stream(0);
    stream.setWidth(5);
    stream << "ab";
    EXPECT_EQ("   ab", textOf(stream));
    EXPECT_EQ(0u, stream.getWidth());
    stream << "cd";
    EXPECT_EQ("   abcd", textOf(stream));
}

TEST(CVQOTextStream, WritesTruthValuesAsDigitsOrAsWords) {
    Stream stream(0);
    stream << true << false;
    EXPECT_EQ("10", textOf(stream));
    stream.setFlags(Stream::BOOL_AS_WORD);
    stream << true << false;
    EXPECT_EQ("10truefalse", textOf(stream));
}

// Each stated behaviour

TEST(CVQOTextStream, StartsEmptyWithTheBlockThatItIsGiven) {
    const Stream empty(0);
    EXPECT_EQ(0u, empty.getLength());
    EXPECT_EQ(0u, empty.getCapacity());
    EXPECT_EQ(0u, empty.getFlags());
    EXPECT_EQ(0u, empty.getWidth());
    const Stream filled(7);
    EXPECT_EQ(7u, filled.getCapacity());
    EXPECT_EQ(0u, filled.getLength());
    EXPECT_EQ(1u, Stream::BOOL_AS_WORD);
    EXPECT_EQ(2u, Stream::XML_ESCAPE);
}

TEST(CVQOTextStream, KeepsAByteFreeForTheTerminator) {
    Stream stream(8);
    stream.write("1234567", 7);
    EXPECT_EQ(8u, stream.getCapacity());
    stream.write("8", 1);
    EXPECT_EQ(16u, stream.getCapacity());
    Stream other(8);
    other.checkSpare(7);
    EXPECT_EQ(8u, other.getCapacity());
    other.checkSpare(8);
    EXPECT_EQ(16u, other.getCapacity());
    other.checkSpare(100);
    EXPECT_EQ(128u, other.getCapacity());
    Stream none(0);
    none.checkSpare(127);
    EXPECT_EQ(128u, none.getCapacity());
    none.checkSpare(128);
    EXPECT_EQ(256u, none.getCapacity());
}

TEST(CVQOTextStream, WritesBytesAsTheyAreAndNothingForNullOrNone) {
    Stream stream(0);
    stream.write(nullptr, 5);
    stream.write("abc", 0);
    EXPECT_EQ(0u, stream.getCapacity());
    stream.write("a\0b<", 4);
    EXPECT_EQ(std::string("a\0b<", 4), std::string(stream.c_str(), stream.getLength()));
}

TEST(CVQOTextStream, TerminatesOnDemand) {
    const Stream empty(0);
    EXPECT_STREQ("", empty.c_str());
    EXPECT_EQ(128u, empty.getCapacity());
    Stream full(4);
    full.write("abc", 3);
    EXPECT_STREQ("abc", full.c_str());
    EXPECT_EQ(4u, full.getCapacity());
    EXPECT_EQ(3u, full.getLength());
    full << "d";
    full.resize(5);
    Stream brimful(full);
    EXPECT_STREQ("abcd", brimful.c_str());
    EXPECT_EQ(5u, brimful.getCapacity());
}

TEST(CVQOTextStream, ResizesToExactlyWhatItIsTold) {
    Stream stream(0);
    stream << "abcdef";
    stream.resize(10);
    EXPECT_EQ(10u, stream.getCapacity());
    EXPECT_EQ("abcdef", textOf(stream));
    stream.resize(7);
    EXPECT_EQ(7u, stream.getCapacity());
    stream.resize(5);
    EXPECT_EQ(7u, stream.getCapacity());
    stream.resize(1000);
    EXPECT_EQ(1000u, stream.getCapacity());
    EXPECT_EQ("abcdef", textOf(stream));
    stream.resize(0);
    EXPECT_EQ(0u, stream.getCapacity());
    EXPECT_EQ(0u, stream.getLength());
    stream << "again";
    EXPECT_EQ("again", textOf(stream));
}

TEST(CVQOTextStream, Kept_ResizingToJustTheLengthDoesNothing) {  // id: textstream-resize-same
    Stream stream(0);
    stream << "abcdef";
    stream.resize(6);
    EXPECT_EQ(128u, stream.getCapacity());
}

TEST(CVQOTextStream, TrimsToTheTextAndItsTerminator) {
    Stream stream(50);
    stream.trim();
    EXPECT_EQ(0u, stream.getCapacity());
    stream << "abc";
    stream.trim();
    EXPECT_EQ(4u, stream.getCapacity());
    stream.trim();
    EXPECT_EQ(4u, stream.getCapacity());
    EXPECT_STREQ("abc", stream.c_str());
    EXPECT_EQ(4u, stream.getCapacity());
    Stream oneMore(5);
    oneMore << "abc";
    oneMore.trim();
    EXPECT_EQ(4u, oneMore.getCapacity());
}

TEST(CVQOTextStream, Kept_ACopyStartsWithoutWidthAnAssignmentTakesIt) {  // id: textstream-copy-drops-width
    Stream stream(40);
    stream << "abc" << words << xml << wide<6>;
    const Stream copy(stream);
    EXPECT_EQ("abc", textOf(copy));
    EXPECT_EQ(40u, copy.getCapacity());
    EXPECT_EQ(3u, copy.getFlags());
    EXPECT_EQ(0u, copy.getWidth());
    Stream assigned(3);
    assigned << "old";
    assigned = stream;
    EXPECT_EQ("abc", textOf(assigned));
    EXPECT_EQ(40u, assigned.getCapacity());
    EXPECT_EQ(3u, assigned.getFlags());
    EXPECT_EQ(6u, assigned.getWidth());
    stream << "x";
    EXPECT_EQ("abc", textOf(copy));
    const Stream& itself = assigned;
    assigned = itself;
    EXPECT_EQ("abc", textOf(assigned));
    assigned = Stream(0);
    EXPECT_EQ(0u, assigned.getCapacity());
}

TEST(CVQOTextStream, InsertsStringsWithTheirZeroBytes) {
    Stream stream(0);
    stream << CVQString("häßlich") << CVQString();
    EXPECT_EQ("häßlich", textOf(stream));
    CVQString arrived;
    Source({3, 0, 0, 0, 'a', 0, '<'}) >> arrived;
    Stream whole(0);
    whole << arrived;
    EXPECT_EQ(std::string("a\0<", 3), std::string(whole.c_str(), whole.getLength()));
    Stream escaped(0);
    escaped << xml << arrived;
    EXPECT_EQ("a", std::string(escaped.c_str(), escaped.getLength())) << "escaped up to the zero byte";
}

TEST(CVQOTextStream, Kept_StringsIgnoreTheWidthAndLeaveIt) {  // id: textstream-string-ignores-width
    Stream stream(0);
    stream << wide<5> << CVQString("ab") << "c";
    EXPECT_EQ("ab    c", textOf(stream));
}

TEST(CVQOTextStream, Kept_EscapedTextsIgnoreTheWidthAndLeaveIt) {  // id: textstream-xml-ignores-width
    Stream stream(0);
    stream << xml << wide<5> << "<" << CVQString(">") << words << true;
    EXPECT_EQ("&lt;&gt;true", textOf(stream));
    EXPECT_EQ(5u, stream.getWidth());
    stream.streamWrite("%c", '<');
    EXPECT_EQ("&lt;&gt;true    <", textOf(stream)) << "formatted output is padded, and never escaped";
}

TEST(CVQOTextStream, EscapesEveryByteOfATextAsXmlAsks) {
    std::string all, expected;
    for (int c = 1; c < 256; ++c) {
        all += static_cast<char>(c);
        expected += c == '"'    ? "&quot;"
                    : c == '\'' ? "&apos;"
                    : c == '&'  ? "&amp;"
                    : c == '<'  ? "&lt;"
                    : c == '>'  ? "&gt;"
                                : std::string(1, static_cast<char>(c));
    }
    Stream stream(0);
    stream << xml << all.c_str();
    EXPECT_EQ(expected, textOf(stream));
    Stream strings(0);
    strings << xml << CVQString("a & b");
    EXPECT_EQ("a &amp; b", textOf(strings));
    Stream specials(0);
    specials << xml << "''''''''''''''''''''''''''''''''''''''''"
             << "";
    EXPECT_EQ(40u * 6, specials.getLength());
    EXPECT_EQ(256u, specials.getCapacity());
}

TEST(CVQOTextStream, PadsWordsAndDigitsOfTruthValues) {
    Stream stream(0);
    stream << wide<3> << true << words << wide<7> << false;
    EXPECT_EQ("  1  false", textOf(stream));
}

TEST(CVQOTextStream, CallsManipulatorsAndIgnoresNull) {
    Stream stream(0);
    stream << Stream::Manipulator(nullptr) << words << true;
    EXPECT_EQ("true", textOf(stream));
    const char* none = nullptr;
    stream << wide<9> << none;
    EXPECT_EQ("true", textOf(stream));
    EXPECT_EQ(9u, stream.getWidth()) << "no item, no padding";
}

TEST(CVQOTextStream, FormatsStraightIntoItsBlock) {
    Stream stream(0);
    stream.streamWrite("%d %s %5.2f|%-4u|%x%%", -7, "text", 3.14159, 42u, 255u);
    EXPECT_EQ("-7 text  3.14|42  |ff%", textOf(stream));
    EXPECT_EQ(128u, stream.getCapacity());
    Stream small(8);
    small.streamWrite("%s", "1");
    EXPECT_EQ(64u, small.getCapacity()) << "room for 32 bytes is made first";
}

TEST(CVQOTextStream, FormatsAsTheCLibraryDoesToTheByte) {
    const auto expectSame = [](auto&&... arguments) {
        char expected[512];
        void (Stream::*const unchecked)(const char*, ...) = &Stream::streamWrite;
        int (*const uncheckedPrint)(char*, std::size_t, const char*, ...) = &std::snprintf;
        const int length = uncheckedPrint(expected, sizeof expected, arguments...);
        Stream stream(0);
        stream << "before";
        (stream.*unchecked)(arguments...);
        EXPECT_EQ("before" + std::string(expected, static_cast<std::size_t>(length)),
                  std::string(stream.c_str(), stream.getLength()));
        EXPECT_EQ(length + 7 > 128 ? 256u : 128u, stream.getCapacity());
    };
    for (const int number : {0, 1, -1, 9, 10, -10, 99, 100, 123456789, INT_MAX, -INT_MAX, INT_MIN}) {
        expectSame("%d", number);
        expectSame("%u", static_cast<unsigned>(number));
        expectSame("<%d|%u>%%", number, static_cast<unsigned>(number));
        expectSame("%d %i", number, number);
        expectSame("%d%5d%-5d%+d", number, number, number, number);
    }
    const char* const none = nullptr;
    expectSame("");
    expectSame("plain");
    expectSame("%%");
    expectSame("%s%s", "a", "");
    expectSame("%s and %s", "text", none);
    expectSame("%d %s %5.2f %s", 5, "text", 2.5, "behind");
    expectSame("%s%c%s", "a", '\0', "b");
    expectSame("%s %llu %p", std::string(150, 'x').c_str(), ~0ULL, static_cast<const void*>(&none));
    expectSame("%2$s %1$s", "first", "second");
    expectSame("%.3s|%10s|%hhd|%lx", "truncated", "wide", 300, 255L);
}

TEST(CVQOTextStream, FormatsAgainWhenAnItemDoesNotFit) {
    for (std::size_t before = 0; before < 40; ++before) {
        for (const std::size_t length : {31u, 32u, 33u, 95u, 127u, 128u, 1000u}) {
            Stream stream(0);
            stream.write(std::string(before, '.').c_str(), before);
            stream.streamWrite("%s!%d", std::string(length, 'x').c_str(), 5);
            ASSERT_EQ(std::string(before, '.') + std::string(length, 'x') + "!5", textOf(stream));
        }
    }
}

TEST(CVQOTextStream, AppliesTheWidthToAWholeFormattedItem) {
    Stream stream(0);
    stream.setWidth(8);
    stream.streamWrite("%d-%d", 1, 2);
    stream.streamWrite("%d", 3);
    EXPECT_EQ("     1-23", textOf(stream));
    stream.setWidth(2);
    stream << "longer";
    EXPECT_EQ("     1-23longer", textOf(stream));
    stream.setWidth(300);
    stream << std::string(200, 'y').c_str();
    EXPECT_EQ("     1-23longer" + std::string(100, ' ') + std::string(200, 'y'), textOf(stream));
    EXPECT_EQ(0u, stream.getWidth());
    stream.setWidth(4);
    stream.streamWrite("a%cb", '\0');
    EXPECT_EQ("   a", textOf(stream).substr(315)) << "a padded item ends at its first zero byte";
}

TEST(CVQOTextStream, Kept_AWidthOf2To31AndMoreAlignsToTheLeft) {  // id: textstream-negative-width
    Stream stream(0);
    stream.setWidth(static_cast<unsigned>(-5));
    stream << "ab";
    stream << "|";
    EXPECT_EQ("ab   |", textOf(stream));
}

// Misuse and hostile use

TEST(CVQOTextStream, InsertsNothingThatCannotBeFormatted) {
    Stream stream(0);
    void (Stream::*const unchecked)(const char*, ...) = &Stream::streamWrite;
    stream.setWidth(3);
    (stream.*unchecked)(nullptr);
    EXPECT_EQ(3u, stream.getWidth());
    EXPECT_EQ(0u, stream.getCapacity());
    stream.setWidth(0);
    std::setlocale(LC_CTYPE, "C");
    const wchar_t unheard[] = {0x10FFFF, 0};
    stream << "a";
    stream.streamWrite("%ls", unheard);
    EXPECT_EQ("a", textOf(stream));
    stream.setWidth(4);
    stream.streamWrite("%ls", unheard);
    EXPECT_EQ("a", textOf(stream));
    EXPECT_EQ(0u, stream.getWidth()) << "an item all the same";
    stream.setWidth(static_cast<unsigned>(INT_MIN));
    stream << "b";
    stream << "c";
    EXPECT_EQ("ac", textOf(stream));
}

TEST(CVQOTextStream, TakesTextsOfItsOwn) {
    for (const bool escapes : {false, true}) {
        Stream stream(0);
        stream << "0123456789&";
        std::string expected = textOf(stream);
        stream.setFlags(escapes ? 2u : 0u);
        for (int i = 0; i < 8; ++i) {
            std::string piece = expected;
            for (std::size_t at = 0; escapes && (at = piece.find('&', at)) != std::string::npos; ++at)
                piece.replace(at, 1, "&amp;");
            expected += piece;
            stream << stream.c_str();
            ASSERT_EQ(expected, textOf(stream));
        }
        stream.setFlags(0);
        stream.write(stream.c_str() + 5, 100);
        expected += expected.substr(5, 100);
        ASSERT_EQ(expected, textOf(stream));
        const std::size_t width = expected.size() + 3;
        stream.setWidth(static_cast<unsigned>(width));
        stream << stream.c_str();
        ASSERT_EQ(expected + "   " + expected, textOf(stream));
    }
}

TEST(CVQOTextStream, EndsTheProcessForWhatCannotBeHad) {
    support::ChildOptions options;
    options.environment = {{"NTO_SLOG", "/nonexistent"}, {"VQ_ASSERTION_BACKTRACE_DIR", "/nonexistent"}};
    const auto ask = [](std::size_t count) {
        Stream stream(0);
        stream << "abc";
        stream.checkSpare(count);
    };
    // At the same time, as the end of a process for want of memory takes a while.
    support::ChildProcess beyondAll([&] { ask(~std::size_t{0}); }, options);
    support::ChildProcess beyondHalf([&] { ask(~std::size_t{0} / 2); }, options);
    for (support::ChildProcess* child : {&beyondAll, &beyondHalf}) {
        const support::ChildResult result = child->finish();
        EXPECT_FALSE(result.exitedWith(0)) << result;
        EXPECT_FALSE(result.timedOut);
        EXPECT_FALSE(result.killedBy(SIGSEGV)) << result;
    }
}

template <class T, class = void>
struct Inserts : std::false_type {};
template <class T>
struct Inserts<T, std::void_t<decltype(std::declval<Stream&>() << std::declval<T>())>> : std::true_type {};

TEST(CVQOTextStream, DoesNotTakeNumbersForTruthValues) {
    EXPECT_TRUE(Inserts<bool>::value);
    EXPECT_TRUE(Inserts<const char*>::value);
    EXPECT_TRUE(Inserts<char*>::value);
    EXPECT_FALSE(Inserts<int>::value);
    EXPECT_FALSE(Inserts<unsigned long>::value);
    EXPECT_FALSE(Inserts<char>::value);
    EXPECT_FALSE(Inserts<double>::value);
}

TEST(CVQOTextStream, AgreesWithAPlainStringAfterRandomInsertions) {
    std::mt19937 random{31};
    const auto below = [&](std::size_t limit) { return random() % limit; };
    for (int round = 0; round < 200; ++round) {
        Stream stream(below(20));
        std::string expected;
        for (int step = 0; step < 60; ++step) {
            const std::string text(below(60), static_cast<char>('a' + below(26)));
            switch (below(7)) {
            case 0:
                stream << text.c_str();
                expected += text;
                break;
            case 1:
                stream.write(text.data(), text.size());
                expected += text;
                break;
            case 2: {
                const int number = static_cast<int>(random());
                stream.streamWrite("%d%s", number, text.c_str());
                expected += std::to_string(number) + text;
                break;
            }
            case 3: {
                const std::size_t width = below(80);
                stream.setWidth(static_cast<unsigned>(width));
                stream << text.c_str();
                expected += std::string(width > text.size() ? width - text.size() : 0, ' ') + text;
                break;
            }
            case 4:
                stream.trim();
                break;
            case 5:
                stream.resize(1 + below(500));
                break;
            default:
                stream = Stream(stream);
                break;
            }
            ASSERT_EQ(expected.size(), stream.getLength());
            ASSERT_EQ(expected, textOf(stream));
        }
    }
}

}  // namespace
