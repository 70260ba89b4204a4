// Concerns: the functions, files and lines of a real assertion's backtrace, inlined and in a shared library; objects that
// moved, are gone, stripped or others than those that ran; another processor's; files that are none, cut or hostile;
// colour; wrong command lines.
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdio>
#include <elf.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iomanip>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace support;
using testing::AllOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

using Words = std::vector<std::string>;

/// Where the C library of an emulated program lies.
constexpr char kArmFolder[] = "/usr/arm-linux-gnueabihf";

std::string leafOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

std::string folderOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

/// "FILE:LINE" of the line of a source that has "// line: NAME".
std::string placeOf(const std::string& source, const std::string& name) {
    std::ifstream file(source);
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        if (line.find("// line: " + name) != std::string::npos)
            return leafOf(source) + ':' + std::to_string(number);
    }
    ADD_FAILURE() << name << " is not in " << source;
    return "";
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    const std::size_t at = text.find(from);
    EXPECT_NE(std::string::npos, at) << from;
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

class btview : public testing::Test {
protected:
    /// The file that the program's assertion has left.
    std::string assertedFile() const {
        ChildOptions options;
        options.environment = {{"VQ_ASSERTION_BACKTRACE_DIR", mFolder.path()},
                               {"VQ_ASSERTION_BACKTRACE_MAX", std::nullopt},
                               {"VQ_ENABLE_ABORT_ON_ASSERTION", std::nullopt}};
        const ChildResult result = runProgram(ASSERTS, {}, options);
        EXPECT_TRUE(result.exitedWith(0)) << result;
        for (const std::string& name : mFolder.list())
            if (name.find(".ass") != std::string::npos)
                return mFolder / name;
        ADD_FAILURE() << "no file";
        return "";
    }

    ChildResult run(const Words& arguments) const {
        ChildOptions options = mOptions;
        options.environment.push_back({"NO_COLOR", std::nullopt});
        return ChildProcess(command(arguments), options).finish();
    }

    static Words command(Words arguments) {
        if (isEmulated())
            arguments.insert(arguments.begin(), {"--dir", kArmFolder});
        return commandFor(BTVIEW, arguments);
    }

    std::string write(const std::string& text) const { return mFolder.write("file", text); }

    TemporaryFolder mFolder;
    ChildOptions mOptions;
};

TEST_F(btview, NamesFunctionFileAndLineOfARealAssertion) {
    const ChildResult r = run({assertedFile()});
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_EQ("", r.err);
    EXPECT_THAT(r.out, StartsWith("ASSERTION \"???\" failed in Asserts 77\nTID: "));
    const auto line = [](const std::string& function, const std::string& source, const std::string& mark) {
        return "#[0-9]+ +[0-9A-F]+ " + function + " at [^\n]*" + placeOf(source, mark);
    };
    EXPECT_THAT(r.out,
                ContainsRegex(line("deep::inlinedAssertion\\(\\)", ASSERTS_SOURCE, "inlinedAssertion") +
                              " inlined\n" + line("deep::assertsHere\\(\\)", ASSERTS_SOURCE, "assertsHere") +
                              " in asserts\n" + line("throughTheLibrary", ASSERTS_LIB_SOURCE, "throughTheLibrary") +
                              " in libasserts_lib.so\n" + line("main", ASSERTS_SOURCE, "main") + " in asserts\n"));
    EXPECT_THAT(r.out, ContainsRegex("do(Cheap)?Assert[^\n]* in libsys_marlix\\.so"));
}

TEST_F(btview, ShowsEveryBacktraceOfAFileOrTheLast) {
    const std::string one = readFile(assertedFile());
    const std::string both = write(one + replaced(one, "Asserts 77", "Asserts 78"));
    const ChildResult all = run({both});
    EXPECT_TRUE(all.exitedWith(0)) << all;
    EXPECT_THAT(all.out, StartsWith("ASSERTION \"???\" failed in Asserts 77\n"));
    EXPECT_THAT(all.out, HasSubstr("\n\nASSERTION \"???\" failed in Asserts 78\n"));
    EXPECT_THAT(run({"--last", both}).out, StartsWith("ASSERTION \"???\" failed in Asserts 78\n"));
    mOptions.input = one;
    EXPECT_EQ(run({"-l", both, "-"}).out, run({"-l", both}).out + run({"-"}).out);
}

TEST_F(btview, FindsObjectsThatMoved) {
    const std::string moved =
        write(replaced(readFile(assertedFile()), ' ' + std::string(ASSERTS) + '\n', " /nowhere/at/all/asserts\n"));
    const ChildResult lost = run({moved});
    EXPECT_TRUE(lost.exitedWith(1)) << lost;
    EXPECT_EQ("btview: /nowhere/at/all/asserts: not found; --dir says where to look\n", lost.err);
    EXPECT_THAT(lost.out, AllOf(HasSubstr("throughTheLibrary at "), ContainsRegex(" \\?\\? in asserts\n")));

    const ChildResult byName = run({"--dir", folderOf(ASSERTS), moved});
    EXPECT_TRUE(byName.exitedWith(0)) << byName;
    EXPECT_THAT(byName.out, HasSubstr("deep::assertsHere() at "));

    const std::string root = mFolder.path();
    EXPECT_EQ(0, std::system(("mkdir -p " + root + "/nowhere/at/all && cp " + ASSERTS + ' ' + root +
                              "/nowhere/at/all/asserts")
                                 .c_str()));
    EXPECT_EQ(byName.out, run({"-d", "/nowhere", "-d", root, moved}).out);
}

TEST_F(btview, FindsObjectsWhoseNamesGaveWay) {
    const std::string cut =
        write(replaced(readFile(assertedFile()), ' ' + std::string(ASSERTS) + '\n', " ut/of/a/path/asserts\n"));
    EXPECT_TRUE(run({cut}).exitedWith(1));
    const ChildResult found = run({"--dir", folderOf(ASSERTS), cut});
    EXPECT_TRUE(found.exitedWith(0)) << found;
    EXPECT_THAT(found.out, HasSubstr("deep::assertsHere() at "));
}

TEST_F(btview, RefusesObjectsThatAreNotThoseThatRan) {
    // The library in the program's place.
    const std::string swapped = write(replaced(readFile(assertedFile()), ' ' + std::string(ASSERTS) + '\n',
                                               ' ' + std::string(ASSERTS_LIB) + '\n'));
    const ChildResult r = run({swapped});
    EXPECT_TRUE(r.exitedWith(1)) << r;
    EXPECT_THAT(
        r.err, StartsWith("btview: " + std::string(ASSERTS_LIB) + ": not the object that ran, whose code lay at "));
    EXPECT_EQ(std::string::npos, r.out.find("deep::")) << r;
    // The right one is found behind the wrong one.
    const ChildResult other = run({"--dir", folderOf(BTVIEW), "--dir", folderOf(ASSERTS), swapped});
    EXPECT_THAT(other.err, HasSubstr("not the object that ran"));
}

TEST_F(btview, TellsOfStrippedObjectsWhatTheyExport) {
    const std::string folder = mFolder.path();
    const auto strip = [&](const std::string& path) {
        return std::string(STRIP) + " -o " + folder + '/' + leafOf(path) + ' ' + path;
    };
    ASSERT_EQ(0, std::system((strip(ASSERTS) + " && " + strip(ASSERTS_LIB)).c_str()));
    const ChildResult r = run({"--dir", folder, assertedFile()});
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_EQ("", r.err);
    EXPECT_THAT(r.out, ContainsRegex("[0-9A-F] throughTheLibrary in libasserts_lib\\.so\n"));  // without a line
    EXPECT_EQ(std::string::npos, r.out.find("deep::")) << r;
}

TEST_F(btview, SaysWhichFilesAreMissingOrNone) {
    const struct {
        int line;
        std::string file;
        std::string problem;
    } rows[] = {
        {__LINE__, mFolder / "missing", "No such file or directory"},
        {__LINE__, mFolder.path(), "Is a directory"},
        {__LINE__, mFolder.write("empty", ""), "no backtrace in it"},
        {__LINE__, mFolder.write("other", "a text\n[QNX backtrace] INFO - and no more\n"), "no backtrace in it"},
        {__LINE__, mFolder.write("binary", std::string(1000, '\0')), "no backtrace in it"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const ChildResult r = run({row.file});
        EXPECT_TRUE(r.exitedWith(1)) << r;
        EXPECT_EQ("btview: " + row.file + ": " + row.problem + '\n', r.err);
        EXPECT_EQ("", r.out);
    }
    // One that is there is shown all the same.
    const ChildResult both = run({mFolder / "missing", assertedFile()});
    EXPECT_TRUE(both.exitedWith(1));
    EXPECT_THAT(both.out, HasSubstr("deep::assertsHere()"));
}

TEST_F(btview, ShowsWhatThereIsOfACutFile) {
    const std::string whole = readFile(assertedFile());
    const std::size_t map = whole.find("\n\n", whole.find("MAP file\n\n\n") + 12);
    const std::string file = write(whole.substr(0, map));
    const ChildResult withoutMap = run({file});
    EXPECT_TRUE(withoutMap.exitedWith(1)) << withoutMap;
    EXPECT_EQ("btview: " + file + ": a backtrace without its map: nobody knows where its objects lay\n",
              withoutMap.err);
    EXPECT_THAT(withoutMap.out, ContainsRegex("#0 +[0-9A-F]+ \\?\\? in no object of the map\n"));
    write(whole.substr(0, whole.find("MAP file\n") + 9));
    const ChildResult withoutAddresses = run({file});
    EXPECT_TRUE(withoutAddresses.exitedWith(1));
    EXPECT_EQ("btview: " + file + ": a backtrace without addresses\n", withoutAddresses.err);
}

TEST_F(btview, TakesTheMapFromTheCommandLine) {
    const std::string whole = readFile(assertedFile());
    const auto displacementOf = [&](const std::string& path) {
        const std::size_t end = whole.find(' ' + path + '\n');
        std::istringstream line(whole.substr(whole.rfind('\n', end) + 1));
        unsigned long long start = 0, size = 0, offset = 0;
        line >> std::hex >> start >> size >> offset;
        std::ostringstream text;
        text << path << "@0x" << std::hex << start - offset;
        return text.str();
    };
    const std::string file = write(whole.substr(0, whole.find("\n\n", whole.find("MAP file\n\n\n") + 12)) +
                                   "\n\na map of another layout\n");
    const ChildResult r = run({"--load", displacementOf(ASSERTS), "--load", displacementOf(ASSERTS_LIB), file});
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_EQ("", r.err);
    EXPECT_THAT(r.out, AllOf(HasSubstr("deep::assertsHere() at "), HasSubstr("throughTheLibrary at "),
                             HasSubstr(" ?? in no object of the map\n")));
    const ChildResult none = run({"--load", file + "@0", file});
    EXPECT_TRUE(none.exitedWith(1));
    EXPECT_EQ("btview: " + file + ": no object file that can be read\n", none.err);
}

TEST_F(btview, SurvivesFilesCutAnywhere) {
    std::string whole = readFile(assertedFile());
    for (std::size_t at = 0; (at = whole.find(" /", at)) != std::string::npos; ++at)
        whole.insert(at + 1, "/nowhere");  // nothing to be asked for lines
    for (std::size_t length = 0; length < whole.size(); length += 131) {
        const ChildResult r = run({write(whole.substr(0, length))});
        EXPECT_TRUE(r.exitedWith(1)) << length << ' ' << r;
    }
}

TEST_F(btview, TextsCannotSteerTheTerminal) {
    const ChildResult r = run({write("[QNX backtrace] INFO - a\033[31mb\nc\n\nTID: 1\a\n"
                                     "data below is the actual callstack created with QNX libbacktrace.so\n"
                                     "usable for analysis with proper project MAP file\n\n\n0000000000001005 \n\n"
                                     "0000000000001000 0000000000000100 0000000000001000 /no\033where/x\n\n\n")});
    EXPECT_EQ("a\\x1b[31mb\\nc\nTID: 1\\x07\n#0  0000000000001005 ?? in x\n", r.out) << r;
    EXPECT_EQ("btview: /no\\x1bwhere/x: not found; --dir says where to look\n", r.err);
}

TEST_F(btview, KnowsNoObjectForAddressesBesideTheMap) {
    const ChildResult r = run({write("[QNX backtrace] INFO - m\n\nTID: 1\n"
                                     "data below is the actual callstack created with QNX libbacktrace.so\n"
                                     "usable for analysis with proper project MAP file\n\n\n"
                                     "00000000 00001000 00001101 FFFFFFFF \n\n"
                                     "00001000 00000100 00000000 \n"
                                     "FFFFFF00 00000100 00000000 linux-vdso.so.1\n\n\n")});
    EXPECT_EQ("m\nTID: 1\n"
              "#0  00000000 ?? in no object of the map\n"
              "#1  00001000 ?? in no object of the map\n"
              "#2  00001101 ?? in no object of the map\n"
              "#3  FFFFFFFF ?? in linux-vdso.so.1\n",
              r.out)
        << r;
}

TEST_F(btview, SaysThatTheProgramHadNoNameYet) {
    const ChildResult r =
        run({write(replaced(readFile(assertedFile()), ' ' + std::string(ASSERTS) + '\n', " \n"))});
    EXPECT_TRUE(r.exitedWith(1)) << r;
    EXPECT_EQ("btview: the program had no name yet, so that it cannot be looked for\n", r.err);
    EXPECT_THAT(r.out, HasSubstr(" ?? in the program\n"));
}

/// Of the other word size, too: the C library that cross-compiled programs use, where it is installed.
TEST_F(btview, ReadsObjectsOfAnotherProcessor) {
    const std::string library = std::string(kArmFolder) + "/lib/libc.so.6";
    std::ifstream file(library, std::ios::binary);
    Elf32_Ehdr header{};
    if (!file.read(reinterpret_cast<char*>(&header), sizeof header))
        GTEST_SKIP() << "there is no " << library;
    Elf32_Phdr code{};
    for (file.seekg(header.e_phoff); (code.p_type != PT_LOAD || (code.p_flags & PF_X) == 0) && file;)
        file.read(reinterpret_cast<char*>(&code), sizeof code);
    ASSERT_TRUE(file);
    std::FILE* const names = popen(("arm-linux-gnueabihf-nm -D " + library + " | grep ' [TW] abort'").c_str(), "r");
    unsigned abortAt = 0;
    ASSERT_EQ(1, std::fscanf(names, "%x", &abortAt));
    pclose(names);
    std::ostringstream text;
    text << std::hex << std::uppercase << std::setfill('0');
    const unsigned start = 0xB6000000U;
    text << "[QNX backtrace] INFO - m\n\nTID: 1\n"
            "data below is the actual callstack created with QNX libbacktrace.so\n"
            "usable for analysis with proper project MAP file\n\n\n"
         << std::setw(8) << (abortAt & ~1U) + 9 - code.p_vaddr + start << " \n\n"
         << std::setw(8) << start << ' ' << std::setw(8) << code.p_memsz << ' ' << std::setw(8) << code.p_vaddr
         << " /lib/libc.so.6\n\n\n";
    const ChildResult r = run({"--dir", kArmFolder, write(text.str())});
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_THAT(r.out, ContainsRegex(" abort[^\n]* in libc\\.so\\.6\n"));
}

TEST_F(btview, SaysThatNothingCanReadAnObject) {
    const ChildResult r = run({"--addr2line", "/nowhere/addr2line", assertedFile()});
    EXPECT_TRUE(r.exitedWith(1)) << r;
    EXPECT_THAT(r.err, HasSubstr("/libasserts_lib.so: none of these could read it: /nowhere/addr2line\n"));
    EXPECT_THAT(r.out, ContainsRegex("#0 +[0-9A-F]+ \\?\\? in libsys_marlix"));
    // A program that answers something else is none, either.
    EXPECT_TRUE(run({"--addr2line", "echo", assertedFile()}).exitedWith(1));
}

TEST_F(btview, ShowsColourOnATerminalOnly) {
    const std::string file = assertedFile();
    EXPECT_THAT(run({file}).out, Not(HasSubstr("\033")));
    EXPECT_THAT(run({"--color", "always", file}).out, HasSubstr("\033[33mdeep::assertsHere()\033[m at \033[32m"));
    mOptions.output = Output::Terminal;
    EXPECT_THAT(run({file}).out, HasSubstr("\033[33mdeep::assertsHere()\033[m"));
    EXPECT_THAT(run({"--color", "never", file}).out, Not(HasSubstr("\033[33m")));
}

TEST_F(btview, ExplainsItself) {
    const ChildResult help = run({"--help"});
    EXPECT_TRUE(help.exitedWith(0));
    EXPECT_THAT(help.out, StartsWith("Usage: btview "));
    for (const Words& words : {Words{}, Words{"--color", "pink", "x"}, Words{"--unknown"}, Words{"--dir"},
                               Words{"--last"}, Words{"--load", "x", "y"}, Words{"--load", "x@", "y"},
                               Words{"--load", "x@0z", "y"}, Words{"--load", "@10", "y"}}) {
        const ChildResult wrong = run(words);
        EXPECT_TRUE(wrong.exitedWith(2)) << wrong;
        EXPECT_THAT(wrong.err, EndsWith("Try 'btview --help'.\n"));
        EXPECT_EQ("", wrong.out);
    }
}

TEST_F(btview, AFullDiskOnTheWayOutIsAFailure) {
    std::string line;
    for (const std::string& word : command({assertedFile()}))
        line += word + ' ';
    EXPECT_TRUE(ChildProcess({"/bin/sh", "-c", line}).finish().exitedWith(0));
    EXPECT_TRUE(ChildProcess({"/bin/sh", "-c", line + "> /dev/full"}).finish().exitedWith(1));
}

}  // namespace
