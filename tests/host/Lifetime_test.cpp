// Concerns: every call before main, in whatever order of static objects, and after exit began.
#include "HeldElsewhere.h"

#include "support/ChildProcess.h"
#include "support/SlogCapture.h"

#include <backtrace.h>
#include <cerrno>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/neutrino.h>
#include <sys/slog.h>
#include <unistd.h>

namespace {

_sync sharedByStatics;

/// Uses the calls as early as a program can: before the ordinary constructors of its own static objects.
struct Early {
    int locked = -1;
    bool ownsIt = false;
    int relocked = -1;
    int unlocked = -1;
    int armed = -1;
    int depth = -1;
    int objects = -1;
};
Early early;

__attribute__((constructor(102))) void useEarly() {
    early.locked = pthread_mutex_lock(&sharedByStatics);
    early.ownsIt = ownerOf(sharedByStatics) == static_cast<unsigned>(gettid());
    early.armed = TimerTimeout(CLOCK_MONOTONIC, _NTO_TIMEOUT_MUTEX, nullptr, nullptr, nullptr);
    early.relocked = pthread_mutex_lock(&sharedByStatics);
    early.unlocked = pthread_mutex_unlock(&sharedByStatics);
    bt_addr_t addresses[10];
    early.depth = bt_get_backtrace(&bt_acc_self, addresses, 10);
    bt_memmap_t map;
    bt_load_memmap(&bt_acc_self, &map);
    early.objects = map.count;
}

TEST(Lifetime, CallsWorkBeforeMain) {
    EXPECT_EQ(0, early.locked);
    EXPECT_TRUE(early.ownsIt);
    EXPECT_EQ(0, early.armed);
    EXPECT_EQ(ETIMEDOUT, early.relocked);
    EXPECT_EQ(0, early.unlocked);
    EXPECT_GE(early.depth, 1);
    EXPECT_GE(early.objects, 3);
}

struct LogsAtTheEnd {
    ~LogsAtTheEnd() {
        if (active) {
            pthread_mutex_lock(&sharedByStatics);
            slogf(1, _SLOG_INFO, "destructor");
            pthread_mutex_unlock(&sharedByStatics);
        }
    }
    bool active = false;
};
LogsAtTheEnd logsAtTheEnd;

__attribute__((destructor(102))) void logLast() {
    if (logsAtTheEnd.active) {
        pthread_mutex_lock(&sharedByStatics);
        slogf(1, _SLOG_INFO, "last destructor");
        pthread_mutex_unlock(&sharedByStatics);
    }
}

TEST(Lifetime, CallsWorkAfterExitBegan) {
    support::SlogCapture log;
    const auto result = support::runInChild([] {
        logsAtTheEnd.active = true;
        std::atexit([] { slogf(1, _SLOG_INFO, "exit handler"); });
        std::exit(3);
    });
    EXPECT_TRUE(result.exitedWith(3)) << result;
    EXPECT_THAT(log.texts(), testing::ElementsAre("exit handler", "destructor", "last destructor"));
}

TEST(Lifetime, FreshProgramLogsUnderItsOwnIds) {
    support::SlogCapture log;
    char program[4096] = {};
    ASSERT_GT(readlink("/proc/self/exe", program, sizeof(program) - 1), 0);
    const auto result = support::runProgram(program, {"--gtest_filter=LifetimeProbe.Logs"});
    EXPECT_TRUE(result.exitedWith(0)) << result;
    const auto records = log.records();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ(result.pid, records[0].pid);
    EXPECT_EQ(result.pid, records[0].tid);
}

TEST(LifetimeProbe, Logs) {
    slogf(1, _SLOG_INFO, "x");
}

}  // namespace
