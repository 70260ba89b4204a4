// Concerns: before every constructor, of this program, of other libraries, with the static library; the environment.
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <process.h>
#include <string>

extern "C" {
extern int earlyArgc;
extern char** earlyArgv;
extern const char* earlyProgram;
extern const char* earlyLastArgument;
extern const char* earlyEnd;
extern const char* earlyEnvironment;
}

namespace {

/// The arguments as the kernel knows them. The test framework takes its own out of _argv.
std::vector<std::string> kernelArguments() {
    std::vector<std::string> arguments;
    const std::string line = support::readFile("/proc/self/cmdline");
    for (std::size_t begin = 0; begin < line.size(); begin = line.find('\0', begin) + 1)
        arguments.emplace_back(line.c_str() + begin);
    return arguments;
}

struct SeenByStaticObject {
    int argc = _argc;
    std::string program = _argv[0];
    std::string last = _argv[_argc - 1];
    const char* end = _argv[_argc];
} const atStart;

TEST(Arguments, AreThereWhenStaticObjectsOfTheProgramAreBuilt) {
    const auto arguments = kernelArguments();
    EXPECT_EQ(static_cast<int>(arguments.size()), atStart.argc);
    EXPECT_EQ(arguments.front(), atStart.program);
    EXPECT_EQ(arguments.back(), atStart.last);
    EXPECT_EQ(nullptr, atStart.end);
}

TEST(Arguments, AreThereWhenALibraryIsStartedThatDoesNotNeedThisOne) {
    const auto arguments = kernelArguments();
    EXPECT_EQ(static_cast<int>(arguments.size()), earlyArgc);
    ASSERT_NE(nullptr, earlyProgram);
    EXPECT_EQ(arguments.front(), earlyProgram);
    EXPECT_EQ(arguments.back(), earlyLastArgument);
    EXPECT_EQ(nullptr, earlyEnd);
}

TEST(Arguments, AreTheArrayOfMain) {
    EXPECT_EQ(earlyArgv, _argv);
    EXPECT_EQ(earlyArgc, _argc);
}

TEST(Arguments, CostNobodyTheEnvironment) {
    ASSERT_NE(nullptr, earlyEnvironment);
    EXPECT_STREQ(std::getenv("PATH"), earlyEnvironment);
}

TEST(Arguments, AreThereInAProgramLinkedStatically) {
    const auto result = support::runProgram(HOST_STATIC_PROBE, {"one", "--memtrace=last"});
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_THAT(result.out, testing::StartsWith("3 --memtrace=last 1 0 0 "));
}

}  // namespace
