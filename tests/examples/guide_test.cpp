// Concerns: the guide shows each program as it is built here, and what it prints, and the outside project that
// `dev consumer` builds.
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

}  // namespace
