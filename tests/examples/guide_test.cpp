// Concerns: the guide shows each program as it is built here, and what it prints, and the outside project that
// `dev consumer` builds; its table of variables and switches is complete.
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>
#include <set>

namespace {

using namespace support;
using testing::HasSubstr;

std::string page(const std::string& name) {
    return readFile(SOURCE_DIR "/docs/guide/" + name + ".md");
}

std::string block(const std::string& language, const std::string& content) {
    return "```" + language + "\n" + content + "```\n";
}

class Guide : public testing::TestWithParam<const char*> {};

TEST_P(Guide, ShowsTheProgramAndWhatItPrints) {
    const std::string room = GetParam();
    const std::string shown = page(room);
    EXPECT_THAT(shown, HasSubstr(block("cpp", readFile(SOURCE_DIR "/examples/guide/" + room + ".cpp"))));

    const TemporaryFolder folder;
    ChildOptions options;
    options.folder = folder.path();
    options.environment = {{"VQ_ASSERTION_BACKTRACE_DIR", folder.path()}};
    std::vector<std::string> arguments;
    if (room == "util") {
        const std::string file = SOURCE_DIR "/examples/guide/util.conf";
        EXPECT_THAT(shown, HasSubstr(block("text", readFile(file))));
        arguments = {file};
    }
    const ChildResult r = runProgram(GUIDE_PROGRAMS + room, arguments, options);
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_THAT(shown, HasSubstr("prints\n\n" + block("text", r.out)));
}

INSTANTIATE_TEST_SUITE_P(Rooms, Guide,
                         testing::Values("container", "diag", "file", "os", "shm", "stream", "string", "sync",
                                         "time", "util"),
                         [](const testing::TestParamInfo<const char*>& room) { return room.param; });

TEST(GuideDiag, ShowsTheLinesOfTheLog) {
    const TemporaryFolder folder;
    ChildOptions options;
    options.environment = {{"VQ_ASSERTION_BACKTRACE_DIR", folder.path()}};
    const ChildResult r = runProgram(GUIDE_PROGRAMS "diag", {}, options);
    EXPECT_EQ("\nCHeating:41: ASSERTION \"limit in range\" failed\n", r.err);
    EXPECT_THAT(page("diag"), HasSubstr("pid 4711: CHeating:41: ASSERTION \"limit in range\" failed\n"));
    EXPECT_THAT(page("diagnosis"), HasSubstr(block("text", "CHeating:41: ASSERTION \"limit in range\" failed\n")));
}

TEST(GuideStart, ShowsTheServiceThatTheOutsideProjectsBuild) {
    EXPECT_THAT(page("getting-started"),
                HasSubstr(block("cmake", readFile(SOURCE_DIR "/examples/guide/start/CMakeLists.txt"))));
    EXPECT_THAT(page("getting-started"),
                HasSubstr(block("cpp", readFile(SOURCE_DIR "/examples/guide/start/main.cpp"))));
}

/// Adds what the first group of `pattern` matches in the text.
void addNames(std::set<std::string>& names, const std::string& text, const std::string& pattern) {
    const std::regex expression(pattern);
    for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end; ++match) {
        names.insert((*match)[1]);
    }
}

/// The same for the files below `folder`, of the source tree, with that extension.
void addNamesIn(std::set<std::string>& names, const std::string& folder, const std::string& extension,
                const std::string& pattern) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(SOURCE_DIR "/" + folder)) {
        if (entry.path().extension() == extension) {
            addNames(names, readFile(entry.path()), pattern);
        }
    }
}

TEST(GuideSettings, NamesEveryVariableThatIsRead) {
    std::set<std::string> names;
    for (const char* const folder : {"src", "host/src", "tools", "examples"}) {
        addNamesIn(names, folder, ".cpp", "getenv\\(\"([A-Z_]+)\"");
        addNamesIn(names, folder, ".h", "getenv\\(\"([A-Z_]+)\"");
    }
    // Names that are constants.
    addNamesIn(names, "src", ".cpp", "\"(VQ_[A-Z_]+)\"");
    addNamesIn(names, "host/src", ".cpp", "\"(NTO_[A-Z_]+)\"");
    EXPECT_THAT(names, testing::IsSupersetOf({"NTO_SLOG", "NO_COLOR", "VQ_ENABLE_ABORT_ON_ASSERTION"}));

    const std::string shown = page("settings");
    for (const std::string& name : names) {
        EXPECT_NE(std::string::npos, shown.find('`' + name + '`')) << name;
    }
}

TEST(GuideSettings, NamesEveryOptionOfTheBuild) {
    std::set<std::string> names;
    const char* const pattern = "(?:option\\(|set\\()(MARLIX_[A-Z_]+) [^\n]*(?:CACHE|ON\\)|OFF\\)|LEVEL\\})";
    for (const char* const folder : {"cmake", "src", "host", "tools", "bench", "examples", "fuzz", "tests"}) {
        addNamesIn(names, folder, ".cmake", pattern);
        addNamesIn(names, folder, ".txt", pattern);
    }
    addNames(names, readFile(SOURCE_DIR "/CMakeLists.txt"), pattern);
    EXPECT_THAT(names, testing::IsSupersetOf({"MARLIX_BUILD_TESTS", "MARLIX_SANITIZE", "MARLIX_GOOGLETEST_DIR"}));

    const std::string shown = page("settings");
    for (const std::string& name : names) {
        EXPECT_NE(std::string::npos, shown.find('`' + name + '`')) << name;
    }
}

}  // namespace
