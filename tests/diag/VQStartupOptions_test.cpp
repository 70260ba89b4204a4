// VQStartupOptions: the two switches in all their spellings, before main and in it; the command line as one text.
#include <VQStartupOptions.h>

#include "MemoryTesting.h"
#include "support/ChildProcess.h"

#include <CVQString.h>

#include <gtest/gtest.h>

#include <process.h>
#include <string>
#include <vector>

using namespace memorytest;

namespace {

std::string outputFor(const std::vector<std::string>& arguments) {
    const support::ChildResult r = support::runProgram(MARLIX_STARTUP_PROGRAM, arguments);
    EXPECT_TRUE(r.exitedWith(0)) << r;
    return r.out;
}

}  // namespace

TEST(VQStartupOptions, WithoutSwitchesBreakIsEnabledAndNothingIsTraced) {
    EXPECT_EQ("1 0 []", outputFor({}));
}

TEST(VQStartupOptions, NoBreakClearsTheBreakOption) {
    EXPECT_EQ("0 0 [--nobreak]", outputFor({"--nobreak"}));
    EXPECT_EQ("1 0 [--nobreaks]", outputFor({"--nobreaks"}));
    EXPECT_EQ("1 0 [-nobreak]", outputFor({"-nobreak"}));
    EXPECT_EQ("0 0 [a b --nobreak c]", outputFor({"a", "b", "--nobreak", "c"}));
}

TEST(VQStartupOptions, MemoryTraceTakesTheNumbers0And1) {
    const struct {
        const char* argument;
        int level;
    } kRows[] = {
        {"--memtrace=0", 0},   {"--memtrace=1", 1},  {"--memtrace=2", 0},  {"--memtrace=", 0},
        {"--memtrace=x", 0},   {"--memtrace=1x", 1}, {"--memtrace= 1", 1}, {"--memtrace=+1", 1},
        {"--memtrace=-1", 0},  {"--memtrace=01", 1}, {"--memtrace=11", 0}, {"--memtrace=4294967297", 0},
        {"--memtrace", 0},     {"-memtrace=1", 0},   {"x--memtrace=1", 0}, {"--memtrace=99999999999999999999", 0},
        {"--memtrace=0x1", 0}, {"--Memtrace=1", 0},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ("1 " + std::to_string(row.level) + " [" + row.argument + "]", outputFor({row.argument}));
    }
}

TEST(VQStartupOptions, TheLastValidTraceLevelCounts) {
    EXPECT_EQ("1 0 [--memtrace=1 --memtrace=0]", outputFor({"--memtrace=1", "--memtrace=0"}));
    EXPECT_EQ("1 1 [--memtrace=1 --memtrace=7]", outputFor({"--memtrace=1", "--memtrace=7"}));
    EXPECT_EQ("0 1 [--nobreak --memtrace=1]", outputFor({"--nobreak", "--memtrace=1"}));
}

TEST(VQStartupOptions, TheFirstAllocationsMayCompete) {
    EXPECT_EQ("800 0", outputFor({"race", "--memtrace=1"}));
    EXPECT_EQ("0 0", outputFor({"race", "--memtrace=2"}));
}

TEST(VQStartupOptions, TheCommandLineIsJoinedWithOneBlank) {
    EXPECT_EQ("1 0 [-v --level=3 /out file]", outputFor({"-v", "--level=3", "/out", "file"}));
    EXPECT_EQ("1 0 [one]", outputFor({"one"}));
    EXPECT_EQ("1 0 [ a  b]", outputFor({"", "a", "", "b"}));
}

TEST(VQStartupOptions, TheCommandLineFollowsTheArgumentsAsTheyAreNow) {
    const support::ChildResult r = support::runInChild([] {
        const bool breakEnabled = VQStartupOptions::isBreakEnabled();
        const int level = VQStartupOptions::getMemoryTraceLevel();
        char program[] = "program";
        char first[] = "--nobreak";
        char second[] = "--memtrace=1";
        char* arguments[] = {program, first, second, nullptr, first};
        _argv = arguments;
        _argc = 3;
        EXPECT_STREQ("--nobreak --memtrace=1", VQStartupOptions::getCommandLine().c_str());
        _argc = 2;
        EXPECT_STREQ("--nobreak", VQStartupOptions::getCommandLine().c_str());
        _argc = 5;
        EXPECT_STREQ("--nobreak --memtrace=1", VQStartupOptions::getCommandLine().c_str());
        for (const int count : {1, 0, -1}) {
            _argc = count;
            EXPECT_STREQ("", VQStartupOptions::getCommandLine().c_str());
        }
        _argc = 3;
        _argv = nullptr;
        EXPECT_STREQ("", VQStartupOptions::getCommandLine().c_str());
        EXPECT_EQ(breakEnabled, VQStartupOptions::isBreakEnabled());
        EXPECT_EQ(level, VQStartupOptions::getMemoryTraceLevel());
    });
    EXPECT_TRUE(r.exitedWith(0)) << r;
}

TEST(TVQStartupCaller, RunsItsFunctionOnceAndKeepsTheResult) {
    static int calls = 0;
    const TVQStartupCaller<int (*)()> caller([] { return ++calls * 42; });
    EXPECT_EQ(42, caller.getResult());
    EXPECT_EQ(42, caller.getResult());
    EXPECT_EQ(1, calls);
    const auto twice = [] { return std::string("text"); };
    EXPECT_EQ("text", TVQStartupCaller<decltype(twice)>(twice).getResult());
}
