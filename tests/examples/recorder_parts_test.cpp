// Concerns: the pipe's streams under partial transfers and at their end; what the reading half refuses; lines of
// every kind of text; numbers as people read them.
#include "CPipeStream.h"
#include "CTextSource.h"
#include "Numbers.h"
#include "recording.h"
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <CVQByteStream.h>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/time.h>
#include <unistd.h>

namespace {

using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;

struct Pipe {
    Pipe() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(0, pipe(ends));
        read = ends[0];
        write = ends[1];
    }
    int read;
    int write;
};

CVQByteStream blockOf(std::initializer_list<unsigned> sequences) {
    CVQByteStream block;
    for (const unsigned sequence : sequences)
        block << SRecord{sequence, 5, CVQString("text")};
    return block;
}

/// What the reading half makes of these blocks; they fit into the pipe.
STotals readBlocks(std::initializer_list<CVQByteStream> blocks) {
    const Pipe ends;
    {
        CPipeOStream out(ends.write);
        for (const CVQByteStream& block : blocks)
            out << block;
    }
    const CPipeIStream in(ends.read);
    return readRecords(in);
}

TEST(CPipeStream, CarriesValuesAsTheLibraryWritesThem) {
    const Pipe ends;
    {
        CPipeOStream out(ends.write);
        out << 7U << CVQString("ab");
        EXPECT_FALSE(out.isBroken());
    }
    unsigned char bytes[16];
    ASSERT_EQ(10, read(ends.read, bytes, sizeof bytes));
    const unsigned char expected[] = {7, 0, 0, 0, 2, 0, 0, 0, 'a', 'b'};
    EXPECT_TRUE(std::equal(std::begin(expected), std::end(expected), bytes));
    close(ends.read);
}

TEST(CPipeStream, CompletesTransfersThatArePartialAndInterrupted) {
    const ChildResult r = runInChild([] {
        // A signal every millisecond, into both processes' transfers of more than a pipe holds.
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, nullptr);
        const Pipe ends;
        const std::string sent(3000000, 'x');
        const pid_t writer = fork();
        const itimerval often{{0, 1000}, {0, 1000}};
        setitimer(ITIMER_REAL, &often, nullptr);
        if (writer == 0) {
            close(ends.read);
            CPipeOStream out(ends.write);
            _exit(out.write(sent.data(), static_cast<unsigned>(sent.size())) == sent.size() ? 0 : 1);
        }
        close(ends.write);
        const CPipeIStream in(ends.read);
        std::string got(sent.size(), ' ');
        usleep(3000);
        EXPECT_EQ(sent.size(), in.read(got.data(), static_cast<unsigned>(got.size())));
        EXPECT_EQ(sent, got);
        EXPECT_FALSE(in.isBroken());
        EXPECT_EQ(0u, in.read(got.data(), 1));
        EXPECT_TRUE(in.isBroken());
    });
    EXPECT_TRUE(r.exitedWith(0)) << r;
}

TEST(CPipeStream, IsBrokenWhenNobodyReads) {
    const ChildResult r = runInChild([] {
        std::signal(SIGPIPE, SIG_IGN);
        const Pipe ends;
        close(ends.read);
        CPipeOStream out(ends.write);
        EXPECT_EQ(0u, out.write("x", 1));
        EXPECT_TRUE(out.isBroken());
        EXPECT_EQ(0u, out.write("x", 1));
        EXPECT_FALSE(out.waitToWrite(0));
    });
    EXPECT_TRUE(r.exitedWith(0)) << r;
}

TEST(CPipeStream, WaitsUntilItCan) {
    const Pipe ends;
    CPipeOStream out(ends.write);
    CPipeIStream in(ends.read);
    EXPECT_TRUE(out.waitToWrite(0));
    EXPECT_FALSE(in.waitToRead(0));
    out << 1U;
    EXPECT_TRUE(in.waitToRead(-1));
}

TEST(readRecords, CountsWhatCame) {
    const STotals totals = readBlocks({blockOf({0, 1}), blockOf({2}), CVQByteStream()});
    EXPECT_STREQ("", totals.problem.c_str());
    EXPECT_EQ(3u, totals.records);
    EXPECT_EQ(3u * (4 + 8 + 4 + 4), totals.bytes);
}

TEST(readRecords, NoticesAMissingRecord) {
    EXPECT_STREQ("record 2 came where record 1 was due",
                 readBlocks({blockOf({0, 2}), CVQByteStream()}).problem.c_str());
}

TEST(readRecords, NoticesARepeatedRecord) {
    EXPECT_STREQ("record 0 came where record 1 was due",
                 readBlocks({blockOf({0}), blockOf({0}), CVQByteStream()}).problem.c_str());
}

TEST(readRecords, NoticesEveryTruncation) {
    const CVQByteStream whole = blockOf({0});
    for (unsigned length = 1; length < whole.getLength(); ++length) {
        SCOPED_TRACE(length);
        CVQByteStream cut;
        cut.write(whole.getData(), length);
        EXPECT_STREQ("record 0 is cut off at the end of its block",
                     readBlocks({cut, CVQByteStream()}).problem.c_str());
    }
}

TEST(readRecords, NoticesAMissingEnd) {
    EXPECT_STREQ("the records ended without their end mark, after number 1",
                 readBlocks({blockOf({0})}).problem.c_str());
    EXPECT_STREQ("the records ended without their end mark, after number 0", readBlocks({}).problem.c_str());
}

TEST(readRecords, TheChecksumKnowsTextsAndTheirOrder) {
    const auto checksumOf = [](std::initializer_list<const char*> texts) {
        STotals totals;
        for (const char* text : texts)
            totals.count(SRecord{0, 0, CVQString(text)});
        return totals.checksum;
    };
    EXPECT_EQ(checksumOf({"a", "b"}), checksumOf({"a", "b"}));
    EXPECT_NE(checksumOf({"a", "b"}), checksumOf({"b", "a"}));
    EXPECT_NE(checksumOf({"a", "b"}), checksumOf({"ab"}));
    EXPECT_NE(checksumOf({""}), checksumOf({"", ""}));
    EXPECT_NE(checksumOf({}), checksumOf({"a"}));
}

class CTextSourceTest : public testing::Test {
protected:
    std::vector<std::string> lines(const std::string& text) const {
        CTextSource source(mFolder.write("text", text));
        std::vector<std::string> all;
        for (CTextSource::SLine line{}; source.getNextLine(line);)
            all.emplace_back(line.text, line.length);
        EXPECT_EQ(text.size(), source.getBytesRead());
        EXPECT_EQ(text.size(), source.getSize());
        return all;
    }

    std::string problem(const std::string& text) const {
        try {
            lines(text);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    }

    TemporaryFolder mFolder;
};

TEST_F(CTextSourceTest, DeliversLinesWithoutTheirEnds) {
    EXPECT_THAT(lines(""), ElementsAre());
    EXPECT_THAT(lines("\n"), ElementsAre(""));
    EXPECT_THAT(lines("\n\n"), ElementsAre("", ""));
    EXPECT_THAT(lines("a"), ElementsAre("a"));
    EXPECT_THAT(lines("a\n"), ElementsAre("a"));
    EXPECT_THAT(lines("a\nb"), ElementsAre("a", "b"));
    EXPECT_THAT(lines("a\r\nb\r\n\r\n"), ElementsAre("a", "b", ""));
    EXPECT_THAT(lines("a\rb\r\r\nc\r"), ElementsAre("a\rb\r", "c\r")) << "only CR LF is an end";
}

TEST_F(CTextSourceTest, DeliversLinesOfEveryLengthAroundItsBuffer) {
    std::vector<std::string> expected;
    std::string text;
    for (std::size_t length = (1 << 17) - 3; length < (1 << 17) + 3; ++length) {
        expected.emplace_back(length, static_cast<char>('a' + length % 26));
        text += expected.back() + "\n";
    }
    expected.emplace_back(1 << 20, 'z');
    text += expected.back();
    EXPECT_EQ(expected, lines(text));
}

TEST_F(CTextSourceTest, TellsTextsFromOtherData) {
    const std::string words(100, 'w');
    EXPECT_EQ("", problem(words + "\t\f\r\n\b\033[1m")) << "what terminals and printers are told is text";
    EXPECT_EQ("", problem(std::string(200, '\xE4'))) << "so is Latin-1";
    EXPECT_EQ("", problem("\x01"));
    const std::string noText = mFolder / "text" + ": this is no text, it holds binary data";
    EXPECT_EQ(noText, problem(words + '\0'));
    EXPECT_EQ(noText, problem(std::string("\xFF\xFEh\0i\0", 6))) << "UTF-16";
    EXPECT_EQ(noText, problem(words + std::string(10, '\x02')));
    EXPECT_EQ("", problem(words + std::string(5, '\x02')));
}

TEST(Numbers, AreGrouped) {
    EXPECT_EQ("0", grouped(0));
    EXPECT_EQ("999", grouped(999));
    EXPECT_EQ("1,000", grouped(1000));
    EXPECT_EQ("123,456", grouped(123456));
    EXPECT_EQ("1,234,567", grouped(1234567));
    EXPECT_EQ("18,446,744,073,709,551,615", grouped(~0ULL));
}

TEST(Numbers, HaveUnits) {
    EXPECT_EQ("0 B", withUnit(0));
    EXPECT_EQ("1023 B", withUnit(1023));
    EXPECT_EQ("1.0 KiB", withUnit(1024));
    EXPECT_EQ("1.5 MiB", withUnit(1572864));
    EXPECT_EQ("4.0 GiB", withUnit(4ULL << 30));
    EXPECT_EQ("2048.0 GiB", withUnit(2ULL << 40));
}

}  // namespace
