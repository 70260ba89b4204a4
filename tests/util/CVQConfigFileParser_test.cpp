// Concerns: sections, comments, escapes and trimming, each to the byte; pieces of long lines; registering; what stops
// the parser; files that cannot be opened or read; interruptions, descriptors, callbacks that use the parser. Against
// plain rules on random files, at every place in the buffer.
#include <CVQConfigFileParser.h>

#include "PlainConfigFile.h"
#include "file/CallScript.h"
#include "file/Descriptors.h"
#include "string/MemoryStream.h"
#include "support/SlogCapture.h"
#include "support/TemporaryFolder.h"
#include "support/VirtualSlot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <random>
#include <set>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <type_traits>
#include <typeinfo>
#include <unistd.h>
#include <vector>

namespace {

using plain::Collector;
using plain::Lines;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

static_assert(!std::has_virtual_destructor_v<CVQConfigFileParser::ICallback>);
static_assert(std::is_same_v<unsigned short, decltype(CVQConfigFileParser::SSectionInfo::sectionId)>);

/// Parses files of given bytes; nothing may be logged, and no descriptor may be left.
class CVQConfigFileParserTest : public testing::Test {
protected:
    ~CVQConfigFileParserTest() override {
        EXPECT_EQ(mBefore, files::openDescriptors());
        EXPECT_THAT(mLog.texts(), IsEmpty());
    }

    bool parse(CVQConfigFileParser& parser, const std::string& bytes) {
        return parser.parse(folder.write("file", bytes).c_str());
    }
    /// What a section "s", id 1, holds.
    Lines linesOf(const std::string& bytes) {
        Collector collector;
        CVQConfigFileParser parser;
        EXPECT_TRUE(parser.addSectionCallback("s", 1, &collector));
        EXPECT_TRUE(parse(parser, bytes));
        return collector.lines;
    }
    /// What becomes of one line in a section.
    std::string lineOf(const std::string& line) {
        const Lines lines = linesOf("[s]\n" + line + "\n");
        EXPECT_GE(1U, lines.size());
        return lines.empty() ? "(none)" : lines[0].second;
    }

    const support::TemporaryFolder folder;

private:
    support::SlogCapture mLog;
    const std::set<int> mBefore = files::openDescriptors();
};

TEST_F(CVQConfigFileParserTest, ALineKeepsItsLeadingBlanksAndLosesCommentAndTrailingOnes) {
    EXPECT_EQ("  key = value", lineOf("  key = value   # note"));
    EXPECT_EQ("\tkey\t= value", lineOf("\tkey\t= value \t\r\v\f"));
    EXPECT_EQ("key", lineOf("key#"));
    EXPECT_EQ("key", lineOf("key\x01\x1F"));
    EXPECT_EQ("key\x7F", lineOf("key\x7F"));
    EXPECT_EQ("key!", lineOf("key!"));
}

TEST_F(CVQConfigFileParserTest, AnEscapedMarkIsACharacter) {
    EXPECT_EQ("a#b", lineOf("a\\#b # c"));
    EXPECT_EQ("a#b#c", lineOf("a\\#b\\#c#d\\#e"));
    EXPECT_EQ("#", lineOf("\\#"));
    EXPECT_EQ("#x", lineOf("\\#x"));
    EXPECT_EQ("x#", lineOf("x\\#"));
    EXPECT_EQ("x#", lineOf("x\\# # y"));
    EXPECT_EQ("\\#", lineOf("\\\\#"));
    EXPECT_EQ("\\#", lineOf("\\\\# # c"));
    EXPECT_EQ("a\\", lineOf("a\\ # b"));
    EXPECT_EQ("a\\b\\", lineOf("a\\b\\"));
}

TEST_F(CVQConfigFileParserTest, Kept_TheCharacterBehindAnEscapedMarkStartsNoComment) {
    EXPECT_EQ("x##y", lineOf("x\\##y"));
    EXPECT_EQ("x##", lineOf("x\\##"));
    EXPECT_EQ("x##", lineOf("x\\###y"));
    EXPECT_EQ("x### y", lineOf("x\\#\\## y # z"));
    EXPECT_EQ("###", lineOf("\\##\\#"));
}

TEST_F(CVQConfigFileParserTest, CommentsAndBlankLinesAreNotPassedOn) {
    EXPECT_THAT(linesOf("[s]\n# comment\n#\n   \n\t\n\n  # comment\n\x80\xFF\n"), IsEmpty());
}

TEST_F(CVQConfigFileParserTest, Kept_BytesFrom0x80OnAreTrimmedAtTheEnd) {
    EXPECT_EQ("caf", lineOf("caf\xC3\xA9"));
    EXPECT_EQ("caf", lineOf("caf \xC3\xA9 \xE2\x82\xAC  # note"));
    EXPECT_EQ("caf\xC3\xA9s", lineOf("caf\xC3\xA9s"));
    EXPECT_EQ("(none)", lineOf("\xC3\xA9\xC3\xA9"));
    EXPECT_EQ("\xFF\xFEx", lineOf("\xFF\xFEx"));
}

TEST_F(CVQConfigFileParserTest, Kept_ALineEndsAtItsFirstZeroByte) {
    EXPECT_EQ("a", lineOf(std::string("a \0b # c", 8)));
    EXPECT_EQ("(none)", lineOf(std::string("\0a", 2)));
    EXPECT_THAT(linesOf(std::string("[s]\0x\na\n[s\0]\nb\n", 16)), ElementsAre(Pair(1, "a")));
}

TEST_F(CVQConfigFileParserTest, ASectionIsOpenedByItsNameToTheByte) {
    Collector net, blanks;
    CVQConfigFileParser parser;
    parser.addSectionCallback("net", 1, &net);
    parser.addSectionCallback(" net ", 2, &blanks);
    EXPECT_TRUE(parse(parser, "lost\n"
                              "[net] followed by ] other text\na\n"
                              "[ net ]\nb\n"
                              "[net]\nc\n [net]\nd\n x[ net ]\n"
                              "[Net]\nlost\n"
                              "[net ]\nlost\n"
                              "[net]#\ne\n"
                              "[ne#t]\nlost\n"
                              "[net\\]\nlost\n"
                              "[[net]]\nlost\n"
                              "[]\nlost\n"
                              "[ net ]\n[net] trailing\xC3\xA9\nf"));
    EXPECT_THAT(net.lines, ElementsAre(Pair(1, "a"), Pair(1, "c"), Pair(1, " [net]"), Pair(1, "d"),
                                       Pair(1, " x[ net ]"), Pair(1, "e"), Pair(1, "f")));
    EXPECT_THAT(blanks.lines, ElementsAre(Pair(2, "b")));
}

TEST_F(CVQConfigFileParserTest, ASectionMayHaveAnEmptyNameOrAMark) {
    Collector empty, marked, bracket;
    CVQConfigFileParser parser;
    parser.addSectionCallback("", 1, &empty);
    parser.addSectionCallback("a#b", 2, &marked);
    parser.addSectionCallback("[x", 3, &bracket);
    EXPECT_TRUE(parse(parser, "[]\na\n[a\\#b]\nb\n[[x]\nc\n"));
    EXPECT_THAT(empty.lines, ElementsAre(Pair(1, "a")));
    EXPECT_THAT(marked.lines, ElementsAre(Pair(2, "b")));
    EXPECT_THAT(bracket.lines, ElementsAre(Pair(3, "c")));
}

TEST_F(CVQConfigFileParserTest, ABracketWithoutItsPartnerEndsTheSection) {
    EXPECT_THAT(linesOf("[s]\na\n[s\nb\nc\n[\nd\n[s]\ne\n[s # ]\nf\n"), ElementsAre(Pair(1, "a"), Pair(1, "e")));
}

TEST_F(CVQConfigFileParserTest, ANameThatIsNoValidTextMatchesNothingAndIsNotReported) {
    EXPECT_THAT(linesOf("[s\xFF]\na\n[s\xFF"
                        "x]\nb\n[\xC3(]\nc\n[s]\nd\n"),
                ElementsAre(Pair(1, "d")));
}

TEST_F(CVQConfigFileParserTest, NamesWithZeroBytesMatchNothing) {
    const strings::MemoryStream stream(std::string("\3\0\0\0s\0x", 7));
    CVQString name;
    stream >> name;
    Collector hidden, plainName;
    CVQConfigFileParser parser;
    EXPECT_TRUE(parser.addSectionCallback(name, 1, &hidden));
    EXPECT_TRUE(parser.addSectionCallback("s", 2, &plainName));
    EXPECT_TRUE(parse(parser, "[s]\na\n"));
    EXPECT_THAT(hidden.lines, IsEmpty());
    EXPECT_THAT(plainName.lines, ElementsAre(Pair(2, "a")));
}

TEST_F(CVQConfigFileParserTest, LongLinesArriveInPiecesOf1023) {
    std::string line(1500, 'x');
    Lines lines = linesOf("[s]\n" + line + "\ny\n");
    EXPECT_THAT(lines, ElementsAre(Pair(1, std::string(1023, 'x')), Pair(1, std::string(477, 'x')), Pair(1, "y")));

    line[1022] = line[1021] = ' ';
    line[1499] = '\t';
    lines = linesOf("[s]\n" + line + "\n");
    EXPECT_THAT(lines, ElementsAre(Pair(1, std::string(1021, 'x')), Pair(1, std::string(476, 'x'))));

    for (const std::size_t length : {1021U, 1022U, 1023U, 1024U, 2045U, 2046U, 2047U}) {
        lines = linesOf("[s]\n" + std::string(length, 'x') + "\ny\n");
        std::string all;
        for (const auto& piece : lines) {
            EXPECT_GE(1023U, piece.second.size()) << length;
            all += piece.second;
        }
        EXPECT_EQ(std::string(length, 'x') + 'y', all) << length;
        EXPECT_EQ((length + 1022) / 1023 + 1, lines.size()) << length;
    }
}

TEST_F(CVQConfigFileParserTest, EachPieceIsALineOfItsOwn) {
    Collector s, t;
    CVQConfigFileParser parser;
    parser.addSectionCallback("s", 1, &s);
    parser.addSectionCallback("t", 2, &t);
    EXPECT_TRUE(parse(parser, "[s]\n" + std::string(1022, 'a') + "\\" + "#b\n"  // the escape is cut apart
                                  + std::string(1023, ' ') + "c # " + std::string(1019, 'd') + "e\n" + "#" +
                                  std::string(1022, 'f') + "[t] g\nh\n"));
    EXPECT_THAT(s.lines, ElementsAre(Pair(1, std::string(1022, 'a') + "\\"), Pair(1, "c"), Pair(1, "e")));
    EXPECT_THAT(t.lines, ElementsAre(Pair(2, "h")));
}

TEST_F(CVQConfigFileParserTest, TheLastLineNeedsNoEnd) {
    EXPECT_THAT(linesOf("[s]\na\nb"), ElementsAre(Pair(1, "a"), Pair(1, "b")));
    EXPECT_THAT(linesOf("[s]\nb # c"), ElementsAre(Pair(1, "b")));
    EXPECT_THAT(linesOf("[s]"), IsEmpty());
    EXPECT_THAT(linesOf(""), IsEmpty());
    EXPECT_THAT(linesOf("[s]\r\na\r\n"), ElementsAre(Pair(1, "a")));
}

TEST_F(CVQConfigFileParserTest, TheFirstRegistrationOfANameStays) {
    Collector first, second;
    CVQConfigFileParser parser;
    EXPECT_TRUE(parser.addSectionCallback("s", 7, &first));
    EXPECT_FALSE(parser.addSectionCallback("s", 8, &second));
    EXPECT_TRUE(parser.addSectionCallback("S", 9, &second));
    EXPECT_TRUE(parse(parser, "[s]\na\n[S]\nb\n"));
    EXPECT_THAT(first.lines, ElementsAre(Pair(7, "a")));
    EXPECT_THAT(second.lines, ElementsAre(Pair(9, "b")));
}

TEST_F(CVQConfigFileParserTest, ASectionWithoutCallbackIsSkippedAndKeepsItsName) {
    Collector collector;
    CVQConfigFileParser parser;
    EXPECT_TRUE(parser.addSectionCallback("s", 1, nullptr));
    EXPECT_FALSE(parser.addSectionCallback("s", 1, &collector));
    EXPECT_TRUE(parser.addSectionCallback("t", 65535, &collector));
    EXPECT_TRUE(parse(parser, "[s]\na\n[t]\nb\n"));
    EXPECT_THAT(collector.lines, ElementsAre(Pair(65535, "b")));
}

TEST_F(CVQConfigFileParserTest, FindsEachOfManySections) {
    constexpr unsigned kSections = 1000;
    Collector collector;
    CVQConfigFileParser parser;
    std::string bytes;
    Lines expected;
    for (unsigned i = 0; i < kSections; ++i) {
        const std::string name = "section" + std::to_string(i * 7919 % kSections);
        EXPECT_TRUE(parser.addSectionCallback(name.c_str(), static_cast<unsigned short>(i), &collector));
        bytes += '[' + name + "]\n" + name + "\n[" + name + "x]\nlost\n";
        expected.emplace_back(i, name);
    }
    EXPECT_TRUE(parse(parser, bytes));
    EXPECT_EQ(expected, collector.lines);
}

TEST_F(CVQConfigFileParserTest, ACallbackStopsTheParser) {
    Collector first(1), other;
    CVQConfigFileParser parser;
    parser.addSectionCallback("s", 1, &first);
    parser.addSectionCallback("t", 2, &other);
    EXPECT_TRUE(parse(parser, "[s]\na\nb\n[t]\nc\n"));
    EXPECT_THAT(first.lines, ElementsAre(Pair(1, "a")));
    EXPECT_THAT(other.lines, IsEmpty());
}

TEST_F(CVQConfigFileParserTest, OnlyAFileThatCannotBeOpenedIsAFailure) {
    CVQConfigFileParser parser;
    EXPECT_FALSE(parser.parse((folder / "none").c_str()));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_FALSE(parser.parse(""));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_TRUE(parser.parse(folder.path().c_str()));  // a directory can be opened, but not read
    EXPECT_TRUE(parser.parse("/dev/null"));
    doubles::CallScript script("open", [](int) { return EMFILE; });
    EXPECT_FALSE(parser.parse("/dev/null"));
    EXPECT_EQ(EMFILE, errno);
}

TEST_F(CVQConfigFileParserTest, AReadErrorEndsTheParserAndLosesTheLineThatItCutsOff) {
    const std::string line(5000, 'x');
    Collector collector;
    CVQConfigFileParser parser;
    parser.addSectionCallback("s", 1, &collector);
    const std::string path = folder.write("file", "[s]\n" + line + "\n" + line + "\n" + line + "\n");
    doubles::CallScript script("read", [](int nth) { return nth == 2 ? EIO : 0; });
    EXPECT_TRUE(parser.parse(path.c_str()));
    EXPECT_EQ(2, script.calls());
    ASSERT_FALSE(collector.lines.empty());
    for (const auto& piece : collector.lines)
        EXPECT_TRUE(piece.second.size() == 1023 || piece.second.size() == 5000 % 1023) << piece.second.size();
}

TEST_F(CVQConfigFileParserTest, OpensReadsAndClosesAgainAfterInterruptions) {
    Collector collector;
    CVQConfigFileParser parser;
    parser.addSectionCallback("s", 1, &collector);
    const std::string path = folder.write("file", "[s]\na\n");
    for (const char* const call : {"open", "read", "close"}) {
        doubles::CallScript script(call, [](int nth) { return nth <= 3 ? EINTR : 0; });
        EXPECT_TRUE(parser.parse(path.c_str())) << call;
        EXPECT_LE(4, script.calls()) << call;
    }
    EXPECT_THAT(collector.lines, ElementsAre(Pair(1, "a"), Pair(1, "a"), Pair(1, "a")));
}

/// Does what it is told to with each line.
template <class Do>
class Doing final : public CVQConfigFileParser::ICallback {
public:
    explicit Doing(Do what) : mWhat(what) {}
    bool processConfigFileEntry(unsigned short, const char* line) override {
        mWhat(line);
        return true;
    }

private:
    Do mWhat;
};

TEST_F(CVQConfigFileParserTest, AChildDoesNotInheritTheFile) {
    const std::set<int> before = files::openDescriptors();
    std::vector<bool> closed;
    Doing callback([&](const char*) {
        for (const int descriptor : files::openDescriptors()) {
            if (before.count(descriptor) == 0)
                closed.push_back(files::isClosedOnExec(descriptor));
        }
    });
    CVQConfigFileParser parser;
    parser.addSectionCallback("s", 1, &callback);
    EXPECT_TRUE(parse(parser, "[s]\na\n"));
    EXPECT_THAT(closed, ElementsAre(true));
}

TEST_F(CVQConfigFileParserTest, ACallbackMayUseItsParser) {
    Collector collector;
    CVQConfigFileParser parser;
    const std::string included = folder.write("included", "[t0]\nfrom the other file\n");
    int number = 0;
    Doing callback([&](const char* line) {
        for (int i = 0; i < 50; ++i, ++number) {
            const std::string name =
                (number % 2 == 0 ? "a" : "u") + std::to_string(number);  // around the current one
            parser.addSectionCallback(name.c_str(), 2, &collector);
        }
        parser.addSectionCallback("t0", 3, &collector);
        if (line == std::string("include")) {
            EXPECT_TRUE(parser.parse(included.c_str()));
        }
    });
    parser.addSectionCallback("s", 1, &callback);
    EXPECT_TRUE(parse(parser, "[s]\nfirst\ninclude\n[t0]\nlast\n"));
    EXPECT_THAT(collector.lines, ElementsAre(Pair(3, "from the other file"), Pair(3, "last")));
}

TEST_F(CVQConfigFileParserTest, ReadsLinesAsTheyArrive) {
    const std::string path = folder / "fifo";
    ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
    Collector collector(3);
    CVQConfigFileParser parser;
    parser.addSectionCallback("s", 1, &collector);
    int descriptor = -1;
    std::thread writer([&] {
        descriptor = open(path.c_str(), O_WRONLY | O_CLOEXEC);
        for (const char* const part : {"[", "s]\na", "b\n", "\nc", "d\ne\n"})
            EXPECT_LT(0, write(descriptor, part, std::strlen(part)));
        // Stays open: the parser must not wait for an end after its callback has enough.
    });
    EXPECT_TRUE(parser.parse(path.c_str()));
    writer.join();
    close(descriptor);
    EXPECT_THAT(collector.lines, ElementsAre(Pair(1, "ab"), Pair(1, "cd"), Pair(1, "e")));
}

TEST_F(CVQConfigFileParserTest, TheCallbackHasOneVirtualOperation) {
    EXPECT_EQ(0, support::slotOf(&CVQConfigFileParser::ICallback::processConfigFileEntry));
    Collector collector;
    const CVQConfigFileParser::ICallback& callback = collector;
    EXPECT_EQ(typeid(Collector), typeid(callback));
}

TEST_F(CVQConfigFileParserTest, AgreesWithThePlainRulesOnRandomFiles) {
    std::mt19937 random(1);
    const std::map<std::string, unsigned> sections = {{"s", 1},  {"t", 2},  {"", 3},
                                                      {" s", 4}, {"s#", 5}, {"\xC3\xA4", 6}};
    const char* const kWords[] = {"[s]", "[t]", "[]", "[ s]", "[s\\#]",   "[\xC3\xA4]", "[",    "]",
                                  "#",   "\\#", "\\", "\n",   "\n",       "\n",         " ",    "\t",
                                  "\r",  "x",   "y",  "key=", "\xC3\xA9", "\xFF",       "text", "[x]"};
    for (int round = 0; round < 400; ++round) {
        const unsigned longShare = random() % 20;
        std::string bytes;
        for (unsigned i = random() % 600; i > 0; --i) {
            const unsigned kind = random() % 200;
            if (kind < longShare)
                bytes += std::string(random() % 1100, "x #\\"[random() % 4]);
            else if (kind == 199)
                bytes += '\0';
            else
                bytes += kWords[random() % std::size(kWords)];
        }
        const std::size_t most = random() % 4 == 0 ? 1 + random() % 50 : ~std::size_t(0);
        Collector collector(most);
        CVQConfigFileParser parser;
        for (const auto& section : sections)
            parser.addSectionCallback(section.first.c_str(), static_cast<unsigned short>(section.second),
                                      &collector);
        const std::string path = folder.write("file", bytes);
        ASSERT_TRUE(parser.parse(path.c_str()));
        ASSERT_EQ(plain::linesOf(path.c_str(), sections, most), collector.lines) << "round " << round;
    }
}

}  // namespace
