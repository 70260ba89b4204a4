// CVQPerformanceCheck: the states and their reports, what is accumulated, the three clocks, translate.
#include <CVQPerformanceCheck.h>

#include "support/AssertionLog.h"

#include <VQOperatingSystem.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <ctime>
#include <future>
#include <new>
#include <thread>
#include <unistd.h>

namespace {

constexpr unsigned long long kMs = 1000000;

using Sites = std::vector<std::string>;

void sleepMs(int ms) {
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

/// Keeps the processor busy until the calling thread has used that much of it.
void work(unsigned long long ns) {
    CVQPerformanceCheck check(0);
    const auto begin = check.getThreadTime();
    while (check.getThreadTime() - begin < ns) {
    }
}

std::string at(int line) {
    return "CVQPerformanceCheck:" + std::to_string(line);
}

/// One of the 32-bit fields, by its place.
int& field(CVQPerformanceCheck& check, int place) {
    return reinterpret_cast<int*>(&check)[place];
}

}  // namespace

TEST(CVQPerformanceCheck, MeasuresRealTime) {
    CVQPerformanceCheck check;
    check.start();
    sleepMs(5);
    const auto taken = check.stop();
    EXPECT_GE(taken, 5 * kMs);
    EXPECT_LT(taken, 5000 * kMs);
}

TEST(CVQPerformanceCheck, RealTimeIsThatOfTheSystemPage) {
    const auto before = VQOperatingSystem::getSysPageTime();
    const auto found = CVQPerformanceCheck::getRealTime();
    EXPECT_GE(found, before);
    EXPECT_LE(found, VQOperatingSystem::getSysPageTime());
}

TEST(CVQPerformanceCheck, CountsTheRunningPeriodsOnly) {
    CVQPerformanceCheck check;
    const auto begin = CVQPerformanceCheck::getRealTime();
    check.start();
    sleepMs(5);
    check.pause();
    const auto paused = CVQPerformanceCheck::getRealTime();
    sleepMs(30);
    const auto resumed = CVQPerformanceCheck::getRealTime();
    check.resume();
    sleepMs(5);
    const auto taken = check.stop();
    const auto running = CVQPerformanceCheck::getRealTime() - begin - (resumed - paused);
    EXPECT_GE(taken, 10 * kMs);
    EXPECT_LE(taken, running);
}

TEST(CVQPerformanceCheck, AStoppedStopwatchMayGoOnOrStartAnew) {
    support::AssertionLog log;
    CVQPerformanceCheck check;
    check.start();
    sleepMs(5);
    const auto first = check.stop();
    check.resume();
    sleepMs(5);
    const auto both = check.stop();
    EXPECT_GE(both, first + 5 * kMs);
    check.start();
    EXPECT_LT(check.stop(), both);
}

TEST(CVQPerformanceCheck, Kept_StopAfterPauseCountsThePausedTimeAsWell) {
    support::AssertionLog log;
    CVQPerformanceCheck check;
    check.start();
    sleepMs(5);
    check.pause();
    sleepMs(20);
    EXPECT_GE(check.stop(), 5 * kMs + 25 * kMs);
}

TEST(CVQPerformanceCheck, Kept_ANewStopwatchMayBePausedAndAddsTheClocksReading) {
    support::AssertionLog log;
    CVQPerformanceCheck check;
    const auto before = CVQPerformanceCheck::getRealTime();
    check.pause();
    EXPECT_EQ(Sites(), log.takeSites());
    check.pause();
    EXPECT_EQ(Sites{at(154)}, log.takeSites());
    EXPECT_GE(check.stop(), 3 * before) << "still carried out";
}

TEST(CVQPerformanceCheck, EachOperationReportsTheStatesItIsNotFor) {
    using Operation = void (*)(CVQPerformanceCheck&);
    const struct {
        Operation run;
        unsigned allowed;  // a bit for each state
        int line;
        int after;
    } kRows[] = {
        {[](CVQPerformanceCheck& check) { check.start(); }, 0b10001, 123, 1},
        {[](CVQPerformanceCheck& check) { check.pause(); }, 0b01011, 154, 2},
        {[](CVQPerformanceCheck& check) { check.resume(); }, 0b10101, 186, 3},
        {[](CVQPerformanceCheck& check) { check.stop(); }, 0b01110, 216, 4},
    };
    support::AssertionLog log;
    for (const auto& row : kRows) {
        for (int state = 0; state <= 4; ++state) {
            SCOPED_TRACE(testing::Message() << row.line << " in state " << state);
            CVQPerformanceCheck check;
            field(check, 3) = state;
            row.run(check);
            EXPECT_EQ((row.allowed >> state & 1) != 0 ? Sites() : Sites{at(row.line)}, log.takeSites());
            EXPECT_EQ(row.after, field(check, 3)) << "carried out all the same";
        }
    }
}

TEST(CVQPerformanceCheck, AnUnknownModeReadsAsZeroAndIsReported) {
    support::AssertionLog log;
    CVQPerformanceCheck check;
    field(check, 2) = 3;
    check.start();
    EXPECT_EQ(Sites{at(142)}, log.takeSites());
    check.pause();
    EXPECT_EQ(Sites{at(173)}, log.takeSites());
    check.resume();
    EXPECT_EQ(Sites{at(204)}, log.takeSites());
    EXPECT_EQ(0u, check.stop());
    EXPECT_EQ(Sites{at(235)}, log.takeSites());
}

TEST(CVQPerformanceCheck, ThreadTimeIsTheProcessorTimeOfOneThread) {
    CVQPerformanceCheck check(0);
    check.start();
    sleepMs(30);
    EXPECT_LT(check.stop(), 25 * kMs) << "sleeping takes none";
    check.start();
    work(10 * kMs);
    EXPECT_GE(check.stop(), 10 * kMs);
}

TEST(CVQPerformanceCheck, AnotherThreadsTimeCanBeMeasured) {
    std::promise<int> id;
    std::promise<void> mayWork, isDone, mayGo;
    std::thread other([&] {
        id.set_value(VQOperatingSystem::getCurrentTID());
        mayWork.get_future().wait();
        work(10 * kMs);
        isDone.set_value();
        mayGo.get_future().wait();
    });
    CVQPerformanceCheck check(id.get_future().get());
    check.start();
    mayWork.set_value();
    isDone.get_future().wait();
    EXPECT_GE(check.stop(), 10 * kMs);
    mayGo.set_value();
    other.join();
}

TEST(CVQPerformanceCheck, ProcessTimeIsThatOfAllThreads) {
    for (CVQPerformanceCheck check : {CVQPerformanceCheck(0, true), CVQPerformanceCheck(getpid(), false)}) {
        check.start();
        std::thread other([] { work(10 * kMs); });
        work(10 * kMs);
        other.join();
        EXPECT_GE(check.stop(), 20 * kMs);
    }
}

TEST(CVQPerformanceCheck, AStopwatchForRealTimeHasTheWallClockAsItsOther) {
    support::AssertionLog log;
    const CVQPerformanceCheck check;
    const auto before = VQOperatingSystem::getClockValue(CLOCK_REALTIME);
    const auto first = check.getThreadTime();
    const auto second = check.getProcessTime();
    EXPECT_LE(before, first);
    EXPECT_LE(first, second);
    EXPECT_LE(second, VQOperatingSystem::getClockValue(CLOCK_REALTIME));
}

TEST(CVQPerformanceCheck, RefusedClocksAreReportedAndReadAsZero) {
    support::AssertionLog log;
    CVQPerformanceCheck thread(0x0fffffff);
    EXPECT_EQ(Sites{"CVQPerformanceCheckQNX:46"}, log.takeSites());
    EXPECT_EQ(0u, thread.getThreadTime());
    EXPECT_EQ(Sites{"CVQPerformanceCheckQNX:68"}, log.takeSites());
    thread.start();
    EXPECT_EQ(0u, thread.stop());
    EXPECT_EQ(Sites(2, "CVQPerformanceCheckQNX:68"), log.takeSites());

    for (const int pid : {0x0fffffff, -1, -2}) {  // -1 is what a process that could not be started has
        CVQPerformanceCheck process(pid, false);
        EXPECT_EQ(Sites{"CVQPerformanceCheckQNX:55"}, log.takeSites()) << pid;
        EXPECT_EQ(0u, process.getProcessTime());
        EXPECT_EQ(Sites{"CVQPerformanceCheckQNX:79"}, log.takeSites());
        process.start();
        EXPECT_EQ(0u, process.stop());
        EXPECT_EQ(Sites(2, "CVQPerformanceCheckQNX:79"), log.takeSites());
    }
}

TEST(CVQPerformanceCheck, TheClockOfAThreadThatHasEndedIsReportedAndReadsAsZero) {
    support::AssertionLog log;
    std::promise<int> id;
    std::promise<void> mayGo;
    std::thread other([&] {
        id.set_value(VQOperatingSystem::getCurrentTID());
        mayGo.get_future().wait();
    });
    CVQPerformanceCheck check(id.get_future().get());
    EXPECT_EQ(Sites(), log.takeSites());
    mayGo.set_value();
    other.join();
    while (check.getThreadTime() != 0) {
        std::this_thread::yield();  // the kernel forgets it a moment after the join
    }
    EXPECT_EQ(Sites{"CVQPerformanceCheckQNX:68"}, log.takeSites());
}

TEST(CVQPerformanceCheck, TheDestructorZeroesTheFields) {
    alignas(CVQPerformanceCheck) unsigned char memory[sizeof(CVQPerformanceCheck)];
    std::memset(memory, 0, sizeof memory);
    auto* const check = new (memory) CVQPerformanceCheck(0, true);
    check->start();
    check->stop();
    check->~CVQPerformanceCheck();
    const unsigned char* volatile bytes = memory;
    for (std::size_t i = 0; i < sizeof memory; ++i)
        EXPECT_EQ(0, bytes[i]) << i;
}

TEST(CVQPerformanceCheck, TranslatesIntoFourUnits) {
    const struct {
        unsigned long long ns;
        unsigned seconds, milliseconds, microseconds, nanoseconds;
    } kRows[] = {
        {0, 0, 0, 0, 0},
        {1234567891, 1, 234, 567, 891},
        {999, 0, 0, 0, 999},
        {1000, 0, 0, 1, 0},
        {999999999, 0, 999, 999, 999},
        {1000000000, 1, 0, 0, 0},
        {4294967295999999999ULL, 4294967295u, 999, 999, 999},
        {4294967296000000000ULL, 0, 0, 0, 0},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.ns);
        const SVQPerformanceTime time = CVQPerformanceCheck::translate(row.ns);
        EXPECT_EQ(row.seconds, time.seconds);
        EXPECT_EQ(row.milliseconds, time.milliseconds);
        EXPECT_EQ(row.microseconds, time.microseconds);
        EXPECT_EQ(row.nanoseconds, time.nanoseconds);
    }
}
