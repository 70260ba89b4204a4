// Concerns: what a tool's help and its manual page say of the same things.
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <string>

namespace {

using support::ChildResult;
using support::readFile;
using support::runProgram;
using testing::HasSubstr;

struct Tool {
    const char* name;
    const char* program;
};

constexpr Tool kTools[] = {{"btview", BTVIEW}, {"shmview", SHMVIEW}, {"slogview", SLOGVIEW}};

std::string pageOf(const std::string& name) {
    const std::string page = readFile(SOURCE_DIR "/tools/" + name + '/' + name + ".1");
    return std::regex_replace(page, std::regex(R"(\\-)"), "-");
}

std::set<std::string> optionsIn(const std::string& text) {
    const std::regex word(R"((?:^|[\s\[])(--?[a-z][a-z0-9-]*))");
    std::set<std::string> options;
    for (auto found = std::sregex_iterator(text.begin(), text.end(), word); found != std::sregex_iterator();
         ++found)
        options.insert((*found)[1]);
    return options;
}

TEST(Manual, HasTheOptionsOfTheHelpAndNoOthers) {
    for (const Tool& tool : kTools) {
        SCOPED_TRACE(tool.name);
        const ChildResult help = runProgram(tool.program, {"--help"});
        EXPECT_TRUE(help.exitedWith(0)) << help;
        const std::set<std::string> options = optionsIn(help.out);
        EXPECT_THAT(options, testing::IsSupersetOf({"-h", "--help"}));
        EXPECT_EQ(options, optionsIn(pageOf(tool.name)));
        EXPECT_EQ(help.out, runProgram(tool.program, {"-h"}).out);
    }
}

TEST(Manual, TellsTheExitStatusAsTheHelpDoes) {
    for (const Tool& tool : kTools) {
        SCOPED_TRACE(tool.name);
        EXPECT_THAT(runProgram(tool.program, {"--help"}).out, HasSubstr("\nExit status: "));
        EXPECT_THAT(pageOf(tool.name), HasSubstr("\n.SH EXIT STATUS\n"));
    }
}

TEST(Manual, NamesTheVariableThatTurnsColoursOff) {
    for (const char* const name : {"btview", "slogview"}) {
        const std::string page = pageOf(name);
        const std::size_t environment = page.find("\n.SH ENVIRONMENT\n");
        ASSERT_NE(std::string::npos, environment) << name;
        EXPECT_THAT(page.substr(environment), HasSubstr("\nNO_COLOR\n")) << name;
    }
}

}  // namespace
