// Concerns: the canonical form, against a plain twin too; the root test and what it does to the text; leaf and branch;
// joining and its limit; validity in characters; comparison; the stream form, cut anywhere; texts with zero bytes.
#include <CVQPath.h>

#include "PathOf.h"
#include "PlainPath.h"
#include "string/MemoryStream.h"
#include "support/SlogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

using testing::IsEmpty;

std::string bytesOf(const CVQString& text) {
    return {text.c_str(), text.getByteLength()};
}
std::string bytesOf(const CVQPath& path) {
    return bytesOf(path.getString());
}
CVQString stringOf(const std::string& text) {
    return CVQString(text.c_str(), text.size());
}
std::string canonical(const std::string& text) {
    return bytesOf(CVQPath::canonify(stringOf(text)));
}

/// A string from bytes that include zeros, which only a stream can bring in.
CVQString received(const std::string& bytes) {
    const strings::MemoryStream stream(strings::lengthOf(static_cast<unsigned>(bytes.size())) + bytes);
    CVQString text;
    stream >> text;
    return text;
}

TEST(CVQPath, JoiningTwoPathsOf600CharactersGivesTheEmptyPath) {
    const CVQPath half = pathOf(std::string(600, 'a'));
    const CVQPath joined = half / half;
    EXPECT_EQ("", bytesOf(joined));
    EXPECT_FALSE(joined.isValid());
}

TEST(CVQPath, TheCanonicalFormHasSingleSeparatorsAndNoneAtItsEnd) {
    EXPECT_EQ("/a/b", canonical("//a///b/"));
    EXPECT_EQ("/", canonical("/"));
    EXPECT_EQ("/", canonical("//"));
    EXPECT_EQ("/", canonical("/////"));
    EXPECT_EQ("", canonical(""));
    EXPECT_EQ("a", canonical("a/"));
    EXPECT_EQ("a", canonical("a////"));
    EXPECT_EQ("a/b", canonical("a//b"));
    EXPECT_EQ("/./../a", canonical("/.//..//a/"));
    EXPECT_EQ("\xC3\xA4/\xC3\xB6", canonical("\xC3\xA4//\xC3\xB6/"));
    EXPECT_EQ("a\\\\b", canonical("a\\\\b"));
}

TEST(CVQPath, TheRootIsASlashOrADrive) {
    const struct {
        int line;
        const char* text;
        bool isRoot;
    } kRows[] = {
        {__LINE__, "/", true},          {__LINE__, "///", true},   {__LINE__, "C:", true},
        {__LINE__, "z:", true},         {__LINE__, "C:/", true},   {__LINE__, "C:///", true},
        {__LINE__, "/a", false},        {__LINE__, "", false},     {__LINE__, "C", false},
        {__LINE__, "1:", false},        {__LINE__, ":C", false},   {__LINE__, "::", false},
        {__LINE__, "[:", false},        {__LINE__, "`:", false},   {__LINE__, "@:", false},
        {__LINE__, "{:", false},        {__LINE__, "A:", true},    {__LINE__, "Z:", true},
        {__LINE__, "a:", true},         {__LINE__, "C:/a", false}, {__LINE__, "CC:", false},
        {__LINE__, "\xC3\xA4:", false}, {__LINE__, "C/", false},   {__LINE__, "C/:", false},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(row.isRoot, CVQPath(row.text).isRoot());
    }
}

TEST(CVQPath, Kept_TheThirdCharacterOfADriveMayBeAny) {
    EXPECT_TRUE(CVQPath("C:x").isRoot());
    EXPECT_TRUE(CVQPath("C:\xE2\x82\xAC").isRoot());
    EXPECT_FALSE(CVQPath("C:xy").isRoot());
}

TEST(CVQPath, Kept_TheRootTestReplacesTheTextOfAConstPath) {
    const CVQPath path("//a///b/");
    EXPECT_FALSE(path.isRoot());
    EXPECT_EQ("/a/b", bytesOf(path));
    const CVQPath other("x//");
    other.doCanonify();
    EXPECT_EQ("x", bytesOf(other));
}

TEST(CVQPath, CanonifyReplacesItsTextAndNotThatOfCopies) {
    CVQPath path("a//b/");
    const CVQPath copy(path);
    path.canonify();
    EXPECT_EQ("a/b", bytesOf(path));
    EXPECT_EQ("a//b/", bytesOf(copy));
}

TEST(CVQPath, ACanonicalTextIsSharedAndNotCopied) {
    const CVQString text("/a/b");
    EXPECT_EQ(text.c_str(), CVQPath::canonify(text).c_str());
    const CVQPath path(text);
    EXPECT_FALSE(path.isRoot());
    EXPECT_EQ(text.c_str(), path.getString().c_str());
}

TEST(CVQPath, LeafAndBranchPartAtTheLastSeparator) {
    const struct {
        int line;
        const char* text;
        const char* leaf;
        const char* branch;
    } kRows[] = {
        {__LINE__, "/a/b", "b", "/a"},
        {__LINE__, "/a", "a", "/"},
        {__LINE__, "a", "a", ""},
        {__LINE__, "a/b", "b", "a"},
        {__LINE__, "/", "", "/"},
        {__LINE__, "", "", ""},
        {__LINE__, "/a/b/c", "c", "/a/b"},
        {__LINE__, "//", "", "/"},
        {__LINE__, "///", "", "/"},
        {__LINE__, "C:/a", "a", "C:"},
        {__LINE__, "C:", "C:", ""},
        {__LINE__, "./a", "a", "."},
        {__LINE__, "a/\xC3\xA4", "\xC3\xA4", "a"},
        {__LINE__, "\xC3\xA4/b", "b", "\xC3\xA4"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(row.leaf, bytesOf(CVQPath(row.text).getLeaf()));
        EXPECT_EQ(row.branch, bytesOf(CVQPath(row.text).getBranch()));
    }
}

TEST(CVQPath, Kept_SeparatorsAtTheEndBelongToTheLeafAndTheBranchKeepsAllButOne) {
    const struct {
        int line;
        const char* text;
        const char* leaf;
        const char* branch;
    } kRows[] = {
        {__LINE__, "/a/b/", "b/", "/a"},   {__LINE__, "/a/b///", "b///", "/a"}, {__LINE__, "a/", "a/", ""},
        {__LINE__, "/a///b", "b", "/a//"}, {__LINE__, "//a", "a", "/"},         {__LINE__, "///a", "a", "//"},
        {__LINE__, "/a//", "a//", "/"},    {__LINE__, "a//", "a//", ""},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(row.leaf, bytesOf(CVQPath(row.text).getLeaf()));
        EXPECT_EQ(row.branch, bytesOf(CVQPath(row.text).getBranch()));
    }
}

TEST(CVQPath, ValidityCountsCharacters) {
    EXPECT_FALSE(CVQPath().isValid());
    EXPECT_TRUE(CVQPath("a").isValid());
    EXPECT_TRUE(pathOf(std::string(1023, 'a')).isValid());
    EXPECT_FALSE(pathOf(std::string(1024, 'a')).isValid());
    std::string wide;
    for (int i = 0; i < 1023; ++i)
        wide += "\xE2\x82\xAC";
    EXPECT_TRUE(pathOf(wide).isValid());
    EXPECT_FALSE(pathOf(wide + 'a').isValid());
}

TEST(CVQPath, AnInvalidPathHasNeitherLeafNorBranch) {
    const CVQPath longPath = pathOf("/a/" + std::string(1021, 'b'));
    EXPECT_EQ("", bytesOf(longPath.getLeaf()));
    EXPECT_EQ("", bytesOf(longPath.getBranch()));
    const CVQPath longest = pathOf("/a/" + std::string(1020, 'b'));
    EXPECT_EQ(std::string(1020, 'b'), bytesOf(longest.getLeaf()));
    EXPECT_EQ("/a", bytesOf(longest.getBranch()));
}

TEST(CVQPath, JoiningPutsOneSeparatorBetweenAndKeepsThoseThatAreThere) {
    EXPECT_EQ("a/b", bytesOf(CVQPath("a") / CVQPath("b")));
    EXPECT_EQ("a/b", bytesOf(CVQPath("a") / "b"));
    EXPECT_EQ("a//b", bytesOf(CVQPath("a/") / "b"));
    EXPECT_EQ("a///b", bytesOf(CVQPath("a/") / CVQPath("/b")));
    EXPECT_EQ("/", bytesOf(CVQPath() / CVQPath()));
    EXPECT_EQ("/b", bytesOf(CVQPath() / "b"));
    EXPECT_EQ("a/", bytesOf(CVQPath("a") / ""));
    EXPECT_EQ("%s/%n", bytesOf(CVQPath("%s") / "%n"));

    CVQPath path("a");
    EXPECT_EQ(&path, &(path /= "b"));
    EXPECT_EQ(&path, &(path /= CVQPath("c")));
    EXPECT_EQ("a/b/c", bytesOf(path));
    EXPECT_EQ("a/b/c/a/b/c", bytesOf(path /= path));
    EXPECT_EQ("a/b/c/a/b/c/c/a/b/c", bytesOf(path /= path.getString().c_str() + 4));
}

TEST(CVQPath, JoiningTakesNullForTheEmptyText) {
    EXPECT_EQ("a/", bytesOf(CVQPath("a") / static_cast<const char*>(nullptr)));
    CVQPath path;
    path /= static_cast<const char*>(nullptr);
    EXPECT_EQ("/", bytesOf(path));
}

TEST(CVQPath, AJoinedPathHasAtMost1023Bytes) {
    const std::string half(511, 'a');
    EXPECT_EQ(half + '/' + half, bytesOf(pathOf(half) / half.c_str()));
    EXPECT_EQ(half + '/' + half, bytesOf(pathOf(half) / pathOf(half)));
    EXPECT_EQ("", bytesOf(pathOf(half) / (half + 'b').c_str()));
    EXPECT_EQ("", bytesOf(pathOf(half + 'b') / pathOf(half)));
    CVQPath path = pathOf(half);
    path /= (half + 'b').c_str();
    EXPECT_EQ("", bytesOf(path));

    std::string wide;  // 400 characters, 1200 bytes
    for (int i = 0; i < 400; ++i)
        wide += "\xE2\x82\xAC";
    EXPECT_EQ("", bytesOf(pathOf(wide) / "a"));
}

TEST(CVQPath, JoiningCutsInvalidTextAsAStringDoes) {
    support::SlogCapture log;
    EXPECT_EQ("a/b", bytesOf(CVQPath("a") / "b\xFF"
                                            "c"));
    EXPECT_EQ(1U, log.records().size());
}

TEST(CVQPath, TextsAreHeldAsTheyAre) {
    EXPECT_EQ("a//b/", bytesOf(CVQPath("a//b/")));
    EXPECT_EQ("a\\b", bytesOf(CVQPath(CVQString("a\\b")).getOSSpecific()));
    EXPECT_EQ("", bytesOf(CVQPath(static_cast<const char*>(nullptr))));
    CVQPath path;
    path = CVQString("x//");
    EXPECT_EQ("x//", bytesOf(path));
    path = CVQPath("y//");
    EXPECT_EQ("y//", bytesOf(path));
    path = "z//";
    EXPECT_EQ("z//", bytesOf(path));
    CVQPath& self = path;
    path = self;
    EXPECT_EQ("z//", bytesOf(path));
}

TEST(CVQPath, PathsAreEqualWhenTheirCanonicalFormsAre) {
    const CVQPath path("/a//b/");
    EXPECT_TRUE(path == CVQPath("/a/b"));
    EXPECT_FALSE(path != CVQPath("//a/b//"));
    EXPECT_TRUE(path != CVQPath("a/b"));
    EXPECT_FALSE(path == CVQPath("/a/b/."));
    EXPECT_TRUE(CVQPath() == CVQPath(""));
    EXPECT_FALSE(CVQPath() == CVQPath("/"));
    EXPECT_TRUE("/a/b" == path);
    EXPECT_TRUE(path == "/a/b/");
    EXPECT_EQ("/a//b/", bytesOf(path)) << "comparing leaves the texts alone";
}

TEST(CVQPath, ConvertSeparatorsReplacesEachBackslashInPlace) {
    char text[] = "\\a\\\\b/c\\";
    CVQPath::convertSeparators(text);
    EXPECT_STREQ("/a//b/c/", text);
    char empty[] = "\0\\";
    CVQPath::convertSeparators(empty);
    EXPECT_EQ('\\', empty[1]);
    CVQPath::convertSeparators(nullptr);
}

TEST(CVQPath, TheSimulationRootIsIgnored) {
    CVQPath::setSimulationRoot("/elsewhere");
    EXPECT_STREQ("/a", CVQPath("/a").getOSSpecific().c_str());
    CVQPath::setSimulationRoot(nullptr);
}

TEST(CVQPath, TheStreamFormIsThatOfTheText) {
    strings::MemoryStream stream;
    static_cast<IVQOStream&>(stream) << CVQPath("/\xC3\xA4//");
    const std::string bytes("\5\0\0\0/\xC3\xA4//", 9);
    EXPECT_EQ(bytes, stream.bytes);
    for (std::size_t length = 0; length <= bytes.size(); ++length) {
        const strings::MemoryStream source(bytes.substr(0, length));
        CVQPath path("old");
        EXPECT_EQ(&source, &(source >> path));
        CVQString text("old");
        strings::MemoryStream(bytes.substr(0, length)) >> text;
        EXPECT_EQ(bytesOf(text), bytesOf(path)) << length;
        EXPECT_EQ(length == bytes.size() ? "/\xC3\xA4//" : "", bytesOf(path)) << length;
    }
}

TEST(CVQPath, ZeroBytesStayInTextsAndEndThemWhereTheyAreJoined) {
    const std::string bytes("//a\0b//c/", 9);
    const CVQPath path(received(bytes));
    EXPECT_EQ(bytes, bytesOf(path));
    EXPECT_EQ(std::string("/a\0b/c", 6), bytesOf(CVQPath::canonify(path.getString())));
    EXPECT_EQ("c/", bytesOf(path.getLeaf()));
    EXPECT_EQ(std::string("//a\0b/", 6), bytesOf(path.getBranch()));
    EXPECT_EQ("//a/d", bytesOf(path / "d"));
    EXPECT_EQ("d///a", bytesOf(CVQPath("d") / path));
}

TEST(CVQPath, AgreesWithThePlainRulesOnAllShortTexts) {
    const char kCharacters[] = {'/', 'a', ':', '\x80'};  // the last stands for a character of two bytes
    for (int length = 0; length <= 7; ++length) {
        for (int number = 0; number < 1 << (2 * length); ++number) {
            std::string text;
            for (int i = 0; i < length; ++i) {
                const char character = kCharacters[number >> (2 * i) & 3];
                text += character == '\x80' ? "\xC3\xA4" : std::string(1, character);
            }
            ASSERT_EQ(plain::canonical(text), canonical(text)) << text;
            ASSERT_EQ(canonical(text), canonical(canonical(text))) << text;

            const CVQPath path = pathOf(text);
            const std::string leaf = bytesOf(path.getLeaf());
            const std::string branch = bytesOf(path.getBranch());
            ASSERT_EQ(text.empty() ? "" : plain::leafOf(text), leaf) << text;
            ASSERT_EQ(text.empty() ? "" : plain::branchOf(text), branch) << text;
            ASSERT_EQ(text.substr(text.size() - leaf.size()), leaf) << text;
            ASSERT_NE('/', leaf[0]) << text;
            ASSERT_EQ(text.substr(0, branch.size()), branch) << text;
            const std::string between = text.substr(branch.size(), text.size() - leaf.size() - branch.size());
            ASSERT_EQ(std::string(between.size(), '/'), between) << text;
            ASSERT_EQ(std::string::npos, leaf.substr(0, leaf.find_last_not_of('/') + 1).find('/')) << text;
        }
    }
}

TEST(CVQPath, LongTextsHaveACanonicalFormToo) {
    std::string text;
    std::string expected;
    for (int i = 0; i < 100000; ++i) {
        text += "a//";
        expected += "a/";
    }
    expected.pop_back();
    EXPECT_EQ(expected, canonical(text));
}

}  // namespace
