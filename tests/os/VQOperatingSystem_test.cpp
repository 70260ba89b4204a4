// VQOperatingSystem: the last error of each thread, and the ids.
#include <VQOperatingSystem.h>

#include "support/ChildProcess.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <unistd.h>

TEST(VQOperatingSystem, TheLastErrorIsErrno) {
    errno = EACCES;
    EXPECT_EQ(VQOperatingSystem::getLastError(), EACCES);
    VQOperatingSystem::setLastError(ETIMEDOUT);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_EQ(VQOperatingSystem::getLastError(), ETIMEDOUT);
}

TEST(VQOperatingSystem, EachThreadHasALastErrorOfItsOwn) {
    std::atomic<int> step{0};
    std::thread other([&step] {
        VQOperatingSystem::setLastError(EBADF);
        step = 1;
        while (step == 1) {
            std::this_thread::yield();
        }
        EXPECT_EQ(VQOperatingSystem::getLastError(), EBADF);
    });
    while (step == 0) {
        std::this_thread::yield();
    }
    VQOperatingSystem::setLastError(EACCES);
    step = 2;
    other.join();
    EXPECT_EQ(VQOperatingSystem::getLastError(), EACCES);
}

TEST(VQOperatingSystem, TellsTheProcessId) {
    EXPECT_EQ(VQOperatingSystem::getCurrentPID(), getpid());
    const auto result = support::runInChild([] { EXPECT_EQ(VQOperatingSystem::getCurrentPID(), getpid()); });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(VQOperatingSystem, TellsTheKernelsThreadId) {
    // The first thread's id is the process's; every other thread has one of its own.
    EXPECT_EQ(VQOperatingSystem::getCurrentTID(), gettid());
    int other = 0;
    std::thread([&other] {
        other = VQOperatingSystem::getCurrentTID();
        EXPECT_EQ(other, gettid());
    }).join();
    EXPECT_NE(other, VQOperatingSystem::getCurrentTID());
}

TEST(VQOperatingSystem, TheThreadIdIsRightInAForkedChild) {
    const int parent = VQOperatingSystem::getCurrentTID();
    const auto result = support::runInChild([parent] {
        EXPECT_EQ(VQOperatingSystem::getCurrentTID(), getpid());
        EXPECT_NE(VQOperatingSystem::getCurrentTID(), parent);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}
