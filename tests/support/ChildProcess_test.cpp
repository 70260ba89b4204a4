// Concerns: how a child ended; both outputs whole, whatever their size; environment, folder, input; hangs;
// nothing of the parent's twice; programs; terminals; processes left behind.
#include "support/ChildProcess.h"
#include "support/ScopedEnvironment.h"
#include "support/TemporaryFolder.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <unistd.h>

namespace {

using namespace support;
using testing::HasSubstr;

void writeAll(int descriptor, const std::string& bytes) {
    for (std::size_t sent = 0; sent < bytes.size();) {
        const ssize_t n = write(descriptor, bytes.data() + sent, bytes.size() - sent);
        ASSERT_GT(n, 0);
        sent += static_cast<std::size_t>(n);
    }
}

std::string readAll(int descriptor) {
    std::string bytes;
    char block[4096];
    for (ssize_t n; (n = read(descriptor, block, sizeof block)) > 0;)
        bytes.append(block, static_cast<std::size_t>(n));
    return bytes;
}

TEST(ChildProcess, ABodyThatReturnsExitsWithZero) {
    const ChildResult r = runInChild([] {});
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_FALSE(r.signalled);
    EXPECT_FALSE(r.timedOut);
    EXPECT_GT(r.pid, 0);
    EXPECT_NE(r.pid, getpid());
}

TEST(ChildProcess, ExitStatusComesBack) {
    EXPECT_TRUE(runInChild([] { std::exit(41); }).exitedWith(41));
    EXPECT_TRUE(runInChild([] { std::_Exit(42); }).exitedWith(42));
}

TEST(ChildProcess, ASignalComesBack) {
    const ChildResult r = runInChild([] { std::abort(); });
    EXPECT_TRUE(r.killedBy(SIGABRT)) << r;
    EXPECT_FALSE(r.exited);
    EXPECT_EQ(-1, r.exitCode);
    EXPECT_TRUE(runInChild([] { raise(SIGKILL); }).killedBy(SIGKILL));
}

TEST(ChildProcess, ExitRunsHandlersButReturningDoesNot) {
    EXPECT_EQ("bye", runInChild([] {
                         std::atexit([] { writeAll(STDOUT_FILENO, "bye"); });
                         std::exit(0);
                     }).out);
    EXPECT_EQ("", runInChild([] { std::atexit([] { writeAll(STDOUT_FILENO, "bye"); }); }).out);
}

TEST(ChildProcess, OutputAndErrorsAreToldApart) {
    const ChildResult r = runInChild([] {
        std::printf("to out");
        std::fprintf(stderr, "to err");
    });
    EXPECT_EQ("to out", r.out);
    EXPECT_EQ("to err", r.err);
}

TEST(ChildProcess, WhatTheParentHadBufferedComesOutOnce) {
    const ChildResult r = runInChild([] {
        std::printf("outer,");  // stays in this process's buffer until the fork below
        const ChildResult inner = runInChild([] {
            std::printf("inner");
            std::exit(0);
        });
        std::printf("%s", inner.out.c_str());
    });
    EXPECT_EQ("outer,inner", r.out);
}

TEST(ChildProcess, LargeOutputsOnBothSidesDoNotBlockIt) {
    constexpr std::size_t kSize = 3 << 20;
    const ChildResult r = runInChild([] {
        writeAll(STDERR_FILENO, std::string(kSize, 'e'));
        writeAll(STDOUT_FILENO, std::string(kSize, 'o'));
    });
    EXPECT_TRUE(r.exitedWith(0));
    EXPECT_EQ(std::string(kSize, 'o'), r.out);
    EXPECT_EQ(std::string(kSize, 'e'), r.err);
}

TEST(ChildProcess, AHangingChildIsKilledAndReported) {
    ChildOptions options;
    options.deadline = std::chrono::milliseconds(100);
    const ChildResult r = runInChild(
        [] {
            writeAll(STDOUT_FILENO, "before");
            for (;;)
                pause();
        },
        options);
    EXPECT_TRUE(r.timedOut);
    EXPECT_TRUE(r.signalled);
    EXPECT_FALSE(r.killedBy(SIGKILL)) << "a killed hang must not pass for a wanted signal";
    EXPECT_EQ("before", r.out);
}

TEST(ChildProcess, AHangWithClosedOutputsIsKilledToo) {
    ChildOptions options;
    options.deadline = std::chrono::milliseconds(100);
    EXPECT_TRUE(runInChild(
                    [] {
                        close(STDOUT_FILENO);
                        close(STDERR_FILENO);
                        for (;;)
                            pause();
                    },
                    options)
                    .timedOut);
}

TEST(ChildProcess, AFailedExpectationInTheChildIsSeenInItsStatus) {
    const ChildResult r = runInChild([] { EXPECT_EQ(1, 2) << "in the child"; });
    EXPECT_TRUE(r.exitedWith(kExpectationFailed));
    EXPECT_THAT(r.out, HasSubstr("in the child"));
    EXPECT_FALSE(HasFailure());
}

TEST(ChildProcess, AnExceptionEndsTheChildAndNotTheTest) {
    EXPECT_TRUE(runInChild([] { throw std::runtime_error("thrown"); }).killedBy(SIGABRT));
}

TEST(ChildProcess, TheEnvironmentIsChangedInTheChildOnly) {
    const ScopedEnvironment set("MARLIX_TEST_SET", "outer");
    const ScopedEnvironment removed("MARLIX_TEST_REMOVED", "outer");
    ChildOptions options;
    options.environment = {{"MARLIX_TEST_SET", "inner"}, {"MARLIX_TEST_REMOVED", std::nullopt}};
    const ChildResult r = runInChild(
        [] {
            std::printf("%s,%s", std::getenv("MARLIX_TEST_SET"),
                        std::getenv("MARLIX_TEST_REMOVED") ? "there" : "gone");
        },
        options);
    EXPECT_EQ("inner,gone", r.out);
    EXPECT_STREQ("outer", std::getenv("MARLIX_TEST_SET"));
    EXPECT_STREQ("outer", std::getenv("MARLIX_TEST_REMOVED"));
}

TEST(ChildProcess, InputArrivesWholeAndEnds) {
    ChildOptions options;
    options.input = std::string(2 << 20, 'i') + "end";
    const ChildResult r = runInChild([] { writeAll(STDOUT_FILENO, readAll(STDIN_FILENO)); }, options);
    EXPECT_EQ(options.input, r.out);
}

TEST(ChildProcess, AChildThatLeavesItsInputUnreadHarmsNobody) {
    ChildOptions options;
    options.input = std::string(2 << 20, 'i');
    EXPECT_TRUE(runInChild([] {}, options).exitedWith(0));
}

TEST(ChildProcess, WithoutInputTheChildReadsAnEnd) {
    EXPECT_EQ("0", runInChild([] { std::printf("%zu", readAll(STDIN_FILENO).size()); }).out);
}

TEST(ChildProcess, TheFolderIsTheOneAskedFor) {
    const TemporaryFolder folder;
    ChildOptions options;
    options.folder = folder.path();
    runInChild([] { std::fclose(std::fopen("made", "w")); }, options);
    EXPECT_THAT(folder.list(), testing::ElementsAre("made"));
    options.folder = folder / "missing";
    EXPECT_TRUE(runInChild([] {}, options).exitedWith(kCannotStart));
}

TEST(ChildProcess, AProgramRunsWithItsArguments) {
    const ChildResult r = ChildProcess({"/bin/sh", "-c", "echo $1; echo $2 >&2; exit 5", "sh", "a b", ""}).finish();
    EXPECT_TRUE(r.exitedWith(5)) << r;
    EXPECT_EQ("a b\n", r.out);
    EXPECT_EQ("\n", r.err);
}

TEST(ChildProcess, AProgramThatIsNotThereIsReported) {
    const ChildResult r = ChildProcess(std::vector<std::string>{"/nowhere/program"}).finish();
    EXPECT_TRUE(r.exitedWith(kCannotStart));
    EXPECT_EQ("cannot start /nowhere/program: No such file or directory\n", r.err);
}

TEST(ChildProcess, AProgramOfThisBuildRunsUnderItsEmulator) {
    const ChildResult r = runProgram("/proc/self/exe", {"--gtest_list_tests", "--gtest_filter=ChildProcess.*"});
    if (isEmulated())
        GTEST_SKIP() << "/proc/self/exe names the emulator here";
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_THAT(r.out, HasSubstr("AProgramOfThisBuildRunsUnderItsEmulator"));
}

TEST(ChildProcess, ATerminalIsOneAndHasASize) {
    ChildOptions options;
    options.output = Output::Terminal;
    const ChildResult r = runInChild(
        [] {
            std::printf("%d%d%d\n", isatty(STDIN_FILENO), isatty(STDOUT_FILENO), isatty(STDERR_FILENO));
            std::fflush(stdout);
            std::fprintf(stderr, "err");
        },
        options);
    EXPECT_EQ("011\nerr", r.out) << "bytes as written, both in one place";
    EXPECT_EQ("", r.err);
}

TEST(ChildProcess, OutputCanBeWaitedForWhileItRuns) {
    ChildProcess child([] {
        signal(SIGTERM, [](int) {
            writeAll(STDOUT_FILENO, "stopped");
            _exit(3);
        });
        writeAll(STDOUT_FILENO, "ready\n");
        writeAll(STDERR_FILENO, "warned\n");
        for (;;)
            pause();
    });
    ASSERT_TRUE(child.waitForOut("ready\n"));
    ASSERT_TRUE(child.waitForErr("warned\n"));
    child.send(SIGTERM);
    const ChildResult r = child.finish();
    EXPECT_TRUE(r.exitedWith(3)) << r;
    EXPECT_EQ("ready\nstopped", r.out);
}

TEST(ChildProcess, WaitingForWhatNeverComesEndsWithTheChild) {
    ChildProcess child([] { writeAll(STDOUT_FILENO, "something else"); });
    EXPECT_FALSE(child.waitForOut("ready"));
    EXPECT_TRUE(child.finish().exitedWith(0));
}

TEST(ChildProcess, FinishingTwiceGivesTheSameResult) {
    ChildProcess child([] { std::exit(6); });
    EXPECT_TRUE(child.finish().exitedWith(6));
    EXPECT_TRUE(child.finish().exitedWith(6));
}

TEST(ChildProcess, ADroppedChildIsKilledAndNotLeftAsAZombie) {
    pid_t pid;
    {
        ChildProcess child([] {
            for (;;)
                pause();
        });
        pid = child.pid();
    }
    EXPECT_EQ(-1, kill(pid, 0));
    EXPECT_EQ(ESRCH, errno);
}

TEST(ChildProcess, WhatAChildLeavesBehindHoldsNobodyUpAndIsKilled) {
    const ChildResult r = runInChild([] {
        const pid_t left = fork();
        if (left == 0)
            for (;;)
                pause();  // holds the output pipes open
        std::printf("%d", left);
    });
    EXPECT_TRUE(r.exitedWith(0)) << r;
    const pid_t left = std::atoi(r.out.c_str());
    ASSERT_GT(left, 0);
    // Its new parent may take a moment to bury it; a zombie is dead enough.
    for (int i = 0; i < 100 && kill(left, 0) == 0; ++i) {
        if (readFile("/proc/" + r.out + "/stat").find(") Z ") != std::string::npos)
            break;
        usleep(10000);
    }
    EXPECT_TRUE(kill(left, 0) != 0 || readFile("/proc/" + r.out + "/stat").find(") Z ") != std::string::npos);
}

TEST(ScopedEnvironment, PutsBackWhatWasThere) {
    setenv("MARLIX_TEST_SCOPED", "before", 1);
    {
        const ScopedEnvironment scoped("MARLIX_TEST_SCOPED", "within");
        EXPECT_STREQ("within", std::getenv("MARLIX_TEST_SCOPED"));
        const ScopedEnvironment removed("MARLIX_TEST_SCOPED", std::nullopt);
        EXPECT_EQ(nullptr, std::getenv("MARLIX_TEST_SCOPED"));
    }
    EXPECT_STREQ("before", std::getenv("MARLIX_TEST_SCOPED"));
    unsetenv("MARLIX_TEST_SCOPED");
    { const ScopedEnvironment scoped("MARLIX_TEST_SCOPED", "within"); }
    EXPECT_EQ(nullptr, std::getenv("MARLIX_TEST_SCOPED"));
}

}  // namespace
