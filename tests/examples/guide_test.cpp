// Concerns: the guide shows each program as it is built here, and what it prints, and the outside project that
// `dev consumer` builds; its table of variables and switches is complete.
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>

namespace {

using namespace support;
using testing::HasSubstr;

std::string page(const std::string& name) {
    return readFile(SOURCE_DIR "/docs/guide/" + name + ".md");
}

std::string codeBlock(const std::string& language, const std::string& content) {
    return "```" + language + "\n" + content + "```\n";
}

class Guide : public testing::TestWithParam<const char*> {};

TEST_P(Guide, ShowsTheProgramAndWhatItPrints) {
    const std::string room = GetParam();
    const std::string shown = page(room);
    EXPECT_THAT(shown, HasSubstr(codeBlock("cpp", readFile(SOURCE_DIR "/examples/guide/" + room + ".cpp"))));

    const TemporaryFolder folder;
    ChildOptions options;
    options.folder = folder.path();
    options.environment = {{"VQ_ASSERTION_BACKTRACE_DIR", folder.path()}};
    std::vector<std::string> arguments;
    if (room == "util") {
        const std::string file = SOURCE_DIR "/examples/guide/util.conf";
        EXPECT_THAT(shown, HasSubstr(codeBlock("text", readFile(file))));
        arguments = {file};
    }
    const ChildResult r = runProgram(GUIDE_PROGRAMS + room, arguments, options);
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_THAT(shown, HasSubstr("prints\n\n" + codeBlock("text", r.out)));
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
    EXPECT_THAT(page("diagnosis"),
                HasSubstr(codeBlock("text", "CHeating:41: ASSERTION \"limit in range\" failed\n")));
}

TEST(GuideStart, ShowsTheServiceThatTheOutsideProjectsBuild) {
    EXPECT_THAT(page("getting-started"),
                HasSubstr(codeBlock("cmake", readFile(SOURCE_DIR "/examples/guide/start/CMakeLists.txt"))));
    EXPECT_THAT(page("getting-started"),
                HasSubstr(codeBlock("cpp", readFile(SOURCE_DIR "/examples/guide/start/main.cpp"))));
}

/// A name in a line of source: it begins with `begin`, right behind `opening`, and `rest` stands behind it in its line.
struct SPattern {
    std::string opening;
    std::string begin;
    std::string rest;
};

void addNames(std::set<std::string>& names, const std::string& text, const SPattern& pattern) {
    const std::string start = pattern.opening + pattern.begin;
    for (std::size_t at = text.find(start); at != std::string::npos; at = text.find(start, at + 1)) {
        const std::size_t begin = at + pattern.opening.size();
        const std::size_t end = text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ_", begin);
        const std::string behind = text.substr(end, text.find('\n', end) - end);
        if (end > begin && behind.find(pattern.rest) != std::string::npos) {
            names.insert(text.substr(begin, end - begin));
        }
    }
}

/// The same for the files below `folder`, of the source tree, with one of the extensions.
void addNamesIn(std::set<std::string>& names, const std::string& folder, const std::set<std::string>& extensions,
                const SPattern& pattern) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(SOURCE_DIR "/" + folder)) {
        if (extensions.count(entry.path().extension()) != 0) {
            addNames(names, readFile(entry.path()), pattern);
        }
    }
}

TEST(GuideSettings, NamesEveryVariableThatIsRead) {
    std::set<std::string> names;
    for (const char* const folder : {"src", "host/src", "tools", "examples"}) {
        addNamesIn(names, folder, {".cpp", ".h"}, {"getenv(\"", "", "\")"});
    }
    addNamesIn(names, "bench", {".h", ".cpp"}, {"getenv(\"", "", "\")"});
    addNamesIn(names, "tests/host", {".cpp"}, {"getenv(\"", "KILL_", "\")"});
    addNamesIn(names, "tests/os", {".cpp"}, {"getenv(\"", "", "\")"});
    addNamesIn(names, "tests/sync", {".cpp"}, {"roundsOf(\"", "", "\","});
    addNamesIn(names, "cmake", {".cmake"}, {"$ENV{", "", "}"});
    // Names that are constants.
    addNamesIn(names, "src", {".cpp"}, {"\"", "VQ_", "\";"});
    addNamesIn(names, "host/src", {".cpp"}, {"\"", "NTO_", "\";"});
    EXPECT_THAT(names, testing::IsSupersetOf({"ENABLE_RAMWATCH", "NO_COLOR", "NTO_SLOG",
                                              "VQ_ASSERTION_BACKTRACE_MAX", "VQ_ENABLE_ABORT_ON_ASSERTION"}));

    const std::string shown = page("settings");
    for (const std::string& name : names) {
        EXPECT_NE(std::string::npos, shown.find('`' + name + '`')) << name;
    }
}

TEST(GuideSettings, NamesEveryOptionOfTheBuild) {
    const SPattern patterns[] = {{"option(", "MARLIX_", ""}, {"set(", "MARLIX_", " CACHE "}};
    std::set<std::string> names;
    for (const SPattern& pattern : patterns) {
        addNames(names, readFile(SOURCE_DIR "/CMakeLists.txt"), pattern);
        for (const char* const folder : {"cmake", "src", "host", "tools", "bench", "examples", "fuzz", "tests"}) {
            addNamesIn(names, folder, {".cmake", ".txt"}, pattern);
        }
    }
    EXPECT_THAT(names, testing::IsSupersetOf({"MARLIX_BUILD_TESTS", "MARLIX_SANITIZE", "MARLIX_GOOGLETEST_DIR"}));

    const std::string shown = page("settings");
    for (const std::string& name : names) {
        EXPECT_NE(std::string::npos, shown.find('`' + name + '`')) << name;
    }
}

}  // namespace
