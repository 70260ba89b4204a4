// VQOperatingSystem: the last error of each thread, the ids, and bounded formatting.
#include <VQOperatingSystem.h>

#include "support/AssertionLog.h"
#include "support/ChildProcess.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <string>
#include <thread>
#include <unistd.h>

namespace {

int format(char* buffer, int size, const char* text, ...) VQ_PRINTF(3, 4);
int format(char* buffer, int size, const char* text, ...) {
    std::va_list arguments;
    va_start(arguments, text);
    const int result = VQOperatingSystem::vsnprintf(buffer, size, text, arguments);
    va_end(arguments);
    return result;
}

}  // namespace

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

TEST(VQOperatingSystem, FormatsWithinTheSize) {
    char buffer[8];
    for (int length = 0; length <= 20; ++length) {
        const std::string text(static_cast<std::size_t>(length), 'x');
        const int result = format(buffer, sizeof buffer, "%s", text.c_str());
        EXPECT_EQ(length > 8 ? 7 : length, result);
        EXPECT_EQ(text.substr(0, 7), buffer);
    }
}

TEST(VQOperatingSystem, Kept_ATextOfExactlyTheSizeIsNotCountedAsCut) {  // vsnprintf-equal-size
    char buffer[8];
    EXPECT_EQ(8, format(buffer, sizeof buffer, "%s", "12345678"));
    EXPECT_STREQ("1234567", buffer);
    EXPECT_EQ(7, format(buffer, sizeof buffer, "%s", "123456789"));
    EXPECT_STREQ("1234567", buffer);
}

TEST(VQOperatingSystem, FormatsNothingIntoNothing) {
    char byte = '#';
    EXPECT_EQ(0, format(&byte, 0, "%s", "text"));
    EXPECT_EQ(0, format(&byte, -1, "%s", "text"));
    EXPECT_EQ('#', byte);
    EXPECT_EQ(0, format(nullptr, 0, "%s", "text"));
    EXPECT_EQ(1, format(&byte, 1, "%c", 'x'));
    EXPECT_EQ('\0', byte);
}

TEST(VQOperatingSystem, ReportsANullBufferWithASize) {
    support::AssertionLog log;
    for (const int size : {8, 1, -1, INT_MIN}) {
        EXPECT_EQ(0, format(nullptr, size, "%s", "text"));
        EXPECT_EQ(std::vector<std::string>{"VQOperatingSystemQNX:334"}, log.takeSites()) << size;
    }
}
