#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace {

using namespace support;

TEST(hello, IsTheProgramInTheReadme) {
    const std::string readme = readFile(SOURCE_DIR "/README.md");
    const std::string program = readFile(SOURCE_DIR "/examples/hello/main.cpp");
    EXPECT_NE(std::string::npos, readme.find("```cpp\n" + program + "```\n"));
}

TEST(hello, SaysWhatItReceived) {
    const ChildResult r = runProgram(HELLO);
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_EQ("1: Grüße, Welt! 12 characters, 14 bytes\n", r.out);
    EXPECT_EQ("", r.err);
}

}  // namespace
