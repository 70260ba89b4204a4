// Concerns: what is listed of an object; which are marked as left; removing, and what is refused; wrong arguments.
#include <CVQReferencedSharedMemory.h>

#include "shm/SharedName.h"
#include "support/ChildProcess.h"

#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using shmtest::SharedName;
using support::runProgram;
using testing::EndsWith;
using testing::MatchesRegex;
using testing::StartsWith;

/// The line of an object; empty when it is not listed.
std::string lineOf(const std::string& name) {
    const std::string out = runProgram(SHMVIEW).out;
    const std::size_t end = out.find(' ' + name + '\n');
    if (end == std::string::npos)
        return "";
    const std::size_t begin = out.rfind('\n', end) + 1;
    return out.substr(begin, end - begin);
}

class shmview : public testing::Test {
protected:
    SharedName mName;
};

TEST_F(shmview, ListsSizeCountProcessesAndAge) {
    const auto handle = CVQReferencedSharedMemory::create(mName, 100);
    EXPECT_THAT(lineOf(mName.text()), MatchesRegex(" +104 +1 +1 +[0-9]+s +"));
}

TEST_F(shmview, MarksWhatAKilledProcessLeft) {
    support::ChildProcess user([&] {
        const auto handle = CVQReferencedSharedMemory::create(mName, 100);
        raise(SIGKILL);
    });
    EXPECT_TRUE(user.finish().killedBy(SIGKILL));
    EXPECT_THAT(lineOf(mName.text()), MatchesRegex(" +104 +1 +0 +[0-9]+s +left"));
    EXPECT_TRUE(runProgram(SHMVIEW, {"--remove", mName.text()}).exitedWith(0));
    EXPECT_FALSE(mName.exists());
    EXPECT_EQ("", lineOf(mName.text()));
}

TEST_F(shmview, ObjectsWithoutACountAreListedToo) {
    mName.make(3);
    EXPECT_THAT(lineOf(mName.text()), MatchesRegex(" +3 +- +0 +[0-9]+s +"));
}

TEST_F(shmview, RemovesWhatIsInUseOnlyWhenForced) {
    const auto handle = CVQReferencedSharedMemory::create(mName, 100);
    const auto refused = runProgram(SHMVIEW, {"--remove", mName.text()});
    EXPECT_TRUE(refused.exitedWith(1));
    EXPECT_EQ("shmview: " + mName.text() + ": in use (remove it with --force)\n", refused.err);
    EXPECT_TRUE(mName.exists());
    EXPECT_TRUE(runProgram(SHMVIEW, {"--remove", "--force", mName.text()}).exitedWith(0));
    EXPECT_FALSE(mName.exists());
}

TEST_F(shmview, SaysWhatIsWrong) {
    const auto missing = runProgram(SHMVIEW, {"--remove", mName.text().substr(1)});
    EXPECT_TRUE(missing.exitedWith(1));
    EXPECT_EQ("shmview: " + mName.text() + ": No such file or directory\n", missing.err);
    const struct {
        int line;
        std::vector<std::string> arguments;
        std::string message;
    } rows[] = {
        {__LINE__, {"--remove"}, "shmview: remove which object?\n"},
        {__LINE__, {"--remove", "--force"}, "shmview: remove which object?\n"},
        {__LINE__, {"--force"}, "shmview: --force goes with --remove\n"},
        {__LINE__, {"--force", "a"}, "shmview: --force goes with --remove\n"},
        {__LINE__, {"list"}, "shmview: 'list' is one word too many\n"},
        {__LINE__, {"a", "b"}, "shmview: 'a' is one word too many\n"},
        {__LINE__, {"--remove", "a", "b\x1b"}, "shmview: 'b?' is one word too many\n"},
        {__LINE__, {"--remove", "--all", "a"}, "unrecognized option '--all'\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const auto wrong = runProgram(SHMVIEW, row.arguments);
        EXPECT_TRUE(wrong.exitedWith(2)) << wrong;
        EXPECT_THAT(wrong.err, EndsWith(row.message + "Try 'shmview --help'.\n"));
        EXPECT_EQ("", wrong.out);
    }
}

TEST_F(shmview, TakesOptionsInAnyOrder) {
    const std::string name = mName.text();
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"--force", "--remove", name}, {"--remove", name, "--force"}}) {
        const auto handle = CVQReferencedSharedMemory::create(mName, 100);
        const auto removed = runProgram(SHMVIEW, words);
        EXPECT_TRUE(removed.exitedWith(0)) << removed;
        EXPECT_FALSE(mName.exists());
    }
}

TEST_F(shmview, HelpIsOnStandardOutput) {
    for (const char* const option : {"--help", "-h"}) {
        const auto help = runProgram(SHMVIEW, {option});
        EXPECT_TRUE(help.exitedWith(0)) << help;
        EXPECT_THAT(help.out, StartsWith("Usage: shmview\n"));
        EXPECT_EQ("", help.err);
    }
}

TEST_F(shmview, ShowsNoControlCharactersOfNames) {
    const std::string name = mName.text() + "\x1b[2J";
    const int descriptor = shm_open(name.c_str(), O_RDWR | O_CREAT, 0600);
    ASSERT_NE(-1, descriptor);
    close(descriptor);
    EXPECT_NE("", lineOf(mName.text() + "?[2J"));
    shm_unlink(name.c_str());
}

}  // namespace
