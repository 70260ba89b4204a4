// CVQThreadCtrl. Concerns: start, with what priority, stack and id; join and its time-outs; ends by force; names.
#include <CVQThreadCtrl.h>

#include <CVQAsserter.h>
#include <VQOperatingSystem.h>

#include "OnTheClock.h"

#include "host/SignalStorm.h"
#include "support/ChildProcess.h"
#include "support/Sanitizers.h"
#include "support/SlogCapture.h"
#include "support/VirtualSlot.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <string>
#include <sys/neutrino.h>
#include <thread>
#include <typeinfo>
#include <unistd.h>
#include <vector>

namespace {

using VQOperatingSystem::getMonotonicTime;

class CBody : public CVQThreadCtrl::IRunnable {
public:
    explicit CBody(std::function<void()> body) : mBody(std::move(body)) {}
    void run() override { mBody(); }

private:
    std::function<void()> mBody;
};

/// Runs until told to end.
class CRunner : public CVQThreadCtrl::IRunnable {
public:
    void run() override {
        seenId = CVQThreadCtrl::getCurrentThreadId();
        while (!mayEnd) {
            VQOperatingSystem::sleepMs(1);
        }
        hasLeft = true;
    }
    std::atomic<int> seenId{0};
    std::atomic<bool> mayEnd{false};
    std::atomic<bool> hasLeft{false};
};

}  // namespace

TEST(CVQThreadCtrl, ConstantsAreThePlatforms) {
    EXPECT_EQ(32768, CVQThreadCtrl::DEFAULTSTACKSIZE);
    EXPECT_EQ(10, CVQThreadCtrl::DEFAULTPRIORITY);
    EXPECT_EQ(-1, CVQThreadCtrl::INHERITPRIORITY);
    EXPECT_EQ(1, CVQThreadCtrl::PRIORITY_LOWEST);
    EXPECT_EQ(6, CVQThreadCtrl::PRIORITY_BELOW_NORMAL);
    EXPECT_EQ(10, CVQThreadCtrl::PRIORITY_NORMAL);
    EXPECT_EQ(30, CVQThreadCtrl::PRIORITY_ABOVE_NORMAL);
    EXPECT_EQ(63, CVQThreadCtrl::PRIORITY_HIGHEST);
}

TEST(CVQThreadCtrl, RunsARunnable) {
    CRunner runner;
    const int tid = CVQThreadCtrl::startThread(runner, false, CVQThreadCtrl::INHERITPRIORITY, 32768);
    ASSERT_GT(tid, 0);
    runner.mayEnd = true;
    EXPECT_EQ(0, CVQThreadCtrl::join(tid, 0));
    EXPECT_TRUE(runner.hasLeft);
    EXPECT_EQ(tid, runner.seenId);
    EXPECT_NE(tid, CVQThreadCtrl::getCurrentThreadId());
}

TEST(CVQThreadCtrl, RunnablesHaveTheirSlotAndTypeInformationOfTheirOwn) {
    EXPECT_EQ(2, support::slotOf(&CVQThreadCtrl::IRunnable::run));
    CRunner runner;
    CVQThreadCtrl::IRunnable& runnable = runner;
    EXPECT_EQ(typeid(CRunner), typeid(runnable));
    EXPECT_EQ(nullptr, dynamic_cast<CBody*>(&runnable));
}

TEST(CVQThreadCtrl, Kept_AJoinWithZeroWaitsForTheEnd) {  // join-zero-waits
    for (const int timeoutMs : {0, -1, INT_MIN}) {
        std::atomic<bool> hasEnded{false};
        CBody body([&] {
            VQOperatingSystem::sleepMs(30);
            hasEnded = true;
        });
        const int tid = CVQThreadCtrl::startThread(body);
        EXPECT_EQ(0, CVQThreadCtrl::join(tid, timeoutMs));
        EXPECT_TRUE(hasEnded);
    }
}

TEST(CVQThreadCtrl, AJoinTimesOutAndCanBeDoneAgain) {
    CRunner runner;
    const int tid = CVQThreadCtrl::startThread(runner);
    const unsigned long long begin = getMonotonicTime();
    EXPECT_EQ(-2, CVQThreadCtrl::join(tid, 100));
    EXPECT_GE(getMonotonicTime() - begin, 100 * kMs);
    runner.mayEnd = true;
    EXPECT_EQ(0, CVQThreadCtrl::join(tid, INT_MAX));
}

TEST(CVQThreadCtrl, AJoinOfWhatCannotBeJoinedFails) {
    EXPECT_EQ(-1, CVQThreadCtrl::join(CVQThreadCtrl::getCurrentThreadId(), 0));
    EXPECT_EQ(-1, CVQThreadCtrl::join(INT_MAX, 100));
    EXPECT_EQ(-1, CVQThreadCtrl::join(0, 0));
    CRunner runner;
    const int tid = CVQThreadCtrl::startThread(runner, /*detached*/ true);
    EXPECT_EQ(-1, CVQThreadCtrl::join(tid, 0));
    runner.mayEnd = true;
    while (!runner.hasLeft) {
        std::this_thread::yield();
    }
}

TEST(CVQThreadCtrl, AThreadHasThePriorityItIsStartedWith) {
    const struct {
        int line, given, found;
    } kRows[] = {
        {__LINE__, CVQThreadCtrl::INHERITPRIORITY, 10},
        {__LINE__, CVQThreadCtrl::PRIORITY_HIGHEST, 63},
        {__LINE__, CVQThreadCtrl::PRIORITY_LOWEST, 1},
        {__LINE__, 0, 10},  // refused, and not checked
        {__LINE__, 64, 10},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        CRunner runner;
        const int tid = CVQThreadCtrl::startThread(runner, false, row.given);
        EXPECT_EQ(row.found, CVQThreadCtrl::getPriority(tid));
        runner.mayEnd = true;
        EXPECT_EQ(0, CVQThreadCtrl::join(tid));
    }
}

TEST(CVQThreadCtrl, AThreadInheritsThePriorityOfItsCreator) {
    int found = 0;
    CBody inner([&] { found = CVQThreadCtrl::getPriority(0); });
    CBody outer([&] { CVQThreadCtrl::join(CVQThreadCtrl::startThread(inner)); });
    CVQThreadCtrl::join(CVQThreadCtrl::startThread(outer, false, 21));
    // The creator's priority may have been set before or after it created the inner thread.
    EXPECT_TRUE(found == 21 || found == 10) << found;
    CBody setsItself([&] {
        CVQThreadCtrl::setPriority(0, 22);
        CVQThreadCtrl::join(CVQThreadCtrl::startThread(inner));
    });
    CVQThreadCtrl::join(CVQThreadCtrl::startThread(setsItself));
    EXPECT_EQ(22, found);
}

TEST(CVQThreadCtrl, Kept_SettingAPriorityGivesTheOldOneEvenIfItIsRefused) {  // thread-priority-unchecked
    CRunner runner;
    const int tid = CVQThreadCtrl::startThread(runner);
    EXPECT_EQ(10, CVQThreadCtrl::setPriority(tid, 20));
    EXPECT_EQ(20, CVQThreadCtrl::setPriority(tid, 99));
    EXPECT_EQ(20, CVQThreadCtrl::getPriority(tid));
    EXPECT_EQ(-1, CVQThreadCtrl::setPriority(INT_MAX, 20));
    EXPECT_EQ(-1, CVQThreadCtrl::getPriority(INT_MAX));
    runner.mayEnd = true;
    CVQThreadCtrl::join(tid);
}

TEST(CVQThreadCtrl, SettingAPriorityKeepsThePolicy) {
    CRunner runner;
    const int tid = CVQThreadCtrl::startThread(runner);
    for (const int policy : {SCHED_FIFO, SCHED_OTHER, SCHED_RR}) {
        sched_param param = {};
        param.sched_priority = 11;
        EXPECT_NE(-1, SchedSet(0, tid, policy, &param));
        EXPECT_EQ(11, CVQThreadCtrl::setPriority(tid, 12));
        EXPECT_EQ(policy, SchedGet(0, tid, &param));
        EXPECT_EQ(12, param.sched_priority);
    }
    runner.mayEnd = true;
    CVQThreadCtrl::join(tid);
}

TEST(CVQThreadCtrl, AStackThatCannotBeHadIsAFailure) {
    CRunner runner;
    EXPECT_EQ(0, CVQThreadCtrl::startThread(runner, false, CVQThreadCtrl::INHERITPRIORITY, -1));
    EXPECT_NE(0, VQOperatingSystem::getLastError());
}

TEST(CVQThreadCtrl, AStackHoldsWhatItWasAskedFor) {
    bool isFilled = false;
    CBody body([&] {
        volatile char block[900000];
        for (std::size_t i = 0; i < sizeof block; i += 512) {
            block[i] = 1;
        }
        isFilled = block[512] == 1;
    });
    ASSERT_EQ(0, CVQThreadCtrl::join(CVQThreadCtrl::startThread(body, false, -1, 1 << 20)));
    EXPECT_TRUE(isFilled);
}

TEST(CVQThreadCtrl, NamesThreads) {
    CRunner runner;
    const int tid = CVQThreadCtrl::startThread(runner);
    EXPECT_TRUE(CVQThreadCtrl::setThreadName(tid, "worker"));
    EXPECT_TRUE(CVQThreadCtrl::setThreadName(tid, std::string(100, 'n').c_str()));
    EXPECT_FALSE(CVQThreadCtrl::setThreadName(tid, std::string(101, 'n').c_str()));
    EXPECT_FALSE(CVQThreadCtrl::setThreadName(INT_MAX, "nobody"));
    runner.mayEnd = true;
    CVQThreadCtrl::join(tid);
}

TEST(CVQThreadCtrl, EndsAnotherThread) {
    NEEDS_THREADS_THAT_VANISH();
    CRunner runner;
    const int tid = CVQThreadCtrl::startThread(runner);
    EXPECT_NE(-1, CVQThreadCtrl::terminate(tid));
    EXPECT_EQ(0, CVQThreadCtrl::join(tid, 60000));
    EXPECT_FALSE(runner.hasLeft);
    EXPECT_EQ(-1, CVQThreadCtrl::terminate(tid));
}

TEST(CVQThreadCtrl, ForgetsAThreadWithItsJoin) {
    CBody body([] {});
    for (int i = 0; i < 1000; ++i) {
        const int tid = CVQThreadCtrl::startThread(body);
        ASSERT_EQ(0, CVQThreadCtrl::join(tid, 60000));
        ASSERT_EQ(-1, CVQThreadCtrl::terminate(tid)) << i;
        ASSERT_EQ(ESRCH, errno);
    }
}

TEST(CVQThreadCtrl, EndsTheCallingThread) {
    NEEDS_THREADS_THAT_VANISH();
    std::atomic<int> steps{0};
    CBody body([&] {
        ++steps;
        CVQThreadCtrl::terminate();
        ++steps;
    });
    EXPECT_EQ(0, CVQThreadCtrl::join(CVQThreadCtrl::startThread(body), 0));
    EXPECT_EQ(1, steps);
}

TEST(CVQThreadCtrl, EndingTheOnlyThreadEndsTheProcess) {
    NEEDS_THREADS_THAT_VANISH();
    const auto result = support::runInChild([] { CVQThreadCtrl::terminate(); });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(CVQThreadCtrl, TheProcessGoesOnWithoutItsFirstThread) {
    NEEDS_THREADS_THAT_VANISH();
    const auto result = support::runInChild([] {
        static CBody body([] {
            VQOperatingSystem::sleepMs(20);
            _exit(16);
        });
        CVQThreadCtrl::startThread(body, true);
        CVQThreadCtrl::terminate();
    });
    EXPECT_TRUE(result.exitedWith(16)) << result;
}

TEST(CVQThreadCtrl, ThreadsOfTheStandardLibraryMayCallEverything) {
    std::thread([] {
        EXPECT_EQ(10, CVQThreadCtrl::getPriority(0));
        EXPECT_EQ(10, CVQThreadCtrl::setPriority(CVQThreadCtrl::getCurrentThreadId(), 30));
        EXPECT_EQ(30, CVQThreadCtrl::getPriority(CVQThreadCtrl::getCurrentThreadId()));
        EXPECT_TRUE(CVQThreadCtrl::setThreadName(0, "std"));
        CRunner runner;
        const int tid = CVQThreadCtrl::startThread(runner);
        EXPECT_EQ(30, CVQThreadCtrl::getPriority(tid));
        EXPECT_EQ(-2, CVQThreadCtrl::join(tid, 5));
        runner.mayEnd = true;
        EXPECT_EQ(0, CVQThreadCtrl::join(tid));
    }).join();
}

TEST(CVQThreadCtrl, StartsAndJoinsManyAtOnce) {
    std::atomic<int> ran{0};
    std::vector<std::thread> starters;
    for (int i = 0; i < 4; ++i) {
        starters.emplace_back([&] {
            CBody body([&] { ++ran; });
            for (int n = 0; n < 250; ++n) {
                const int tid = CVQThreadCtrl::startThread(body, false, n % 2 == 0 ? 20 : -1);
                ASSERT_GT(tid, 0);
                ASSERT_EQ(0, CVQThreadCtrl::join(tid, n % 3 == 0 ? 60000 : 0));
            }
        });
    }
    for (std::thread& starter : starters) {
        starter.join();
    }
    EXPECT_EQ(1000, ran);
}

TEST(CVQThreadCtrl, SignalsDoNotShortenAJoin) {
    const SignalStorm storm([](int) {});
    CRunner runner;
    const int tid = CVQThreadCtrl::startThread(runner);
    const unsigned long long begin = getMonotonicTime();
    EXPECT_EQ(-2, CVQThreadCtrl::join(tid, 50));
    EXPECT_GE(getMonotonicTime() - begin, 50 * kMs);
    runner.mayEnd = true;
    EXPECT_EQ(0, CVQThreadCtrl::join(tid));
    std::atomic<bool> hasEnded{false};
    CBody body([&] {
        VQOperatingSystem::sleepMs(30);
        hasEnded = true;
    });
    EXPECT_EQ(0, CVQThreadCtrl::join(CVQThreadCtrl::startThread(body)));
    EXPECT_TRUE(hasEnded);
}

TEST(CVQThreadCtrl, IdsThatNeverWereAreErrors) {
    for (const int tid : {INT_MAX, 0x3fffffff, -2, INT_MIN}) {
        SCOPED_TRACE(tid);
        EXPECT_EQ(-1, CVQThreadCtrl::join(tid));
        EXPECT_EQ(-1, CVQThreadCtrl::join(tid, 100));
        EXPECT_EQ(-1, CVQThreadCtrl::getPriority(tid));
        EXPECT_EQ(-1, CVQThreadCtrl::setPriority(tid, 20));
        EXPECT_FALSE(CVQThreadCtrl::setThreadName(tid, "nobody"));
        EXPECT_EQ(-1, CVQThreadCtrl::terminate(tid));
        EXPECT_EQ(ESRCH, errno);
    }
    EXPECT_EQ(-1, CVQThreadCtrl::join(-1));
    EXPECT_EQ(-1, CVQThreadCtrl::getPriority(-1));
    EXPECT_EQ(-1, CVQThreadCtrl::setPriority(-1, 20));
}

TEST(CVQThreadCtrl, AThreadOfAnotherProcessIsNone) {
    support::ChildProcess other([] { pause(); });
    EXPECT_EQ(-1, CVQThreadCtrl::join(other.pid(), 100));
    EXPECT_EQ(-1, CVQThreadCtrl::getPriority(other.pid()));
    EXPECT_EQ(-1, CVQThreadCtrl::setPriority(other.pid(), 20));
    EXPECT_FALSE(CVQThreadCtrl::setThreadName(other.pid(), "mine"));
    EXPECT_EQ(-1, CVQThreadCtrl::terminate(other.pid()));
    other.send(SIGTERM);
    const auto result = other.finish();
    EXPECT_TRUE(result.killedBy(SIGTERM)) << result;
}

TEST(CVQThreadCtrl, EndingTheIdZeroEndsTheCallerAndMinusOneAllThreads) {
    NEEDS_THREADS_THAT_VANISH();
    int before = 0, after = 0;
    CBody body([&] {
        ++before;
        CVQThreadCtrl::terminate(0);
        ++after;
    });
    EXPECT_EQ(0, CVQThreadCtrl::join(CVQThreadCtrl::startThread(body), 60000));
    EXPECT_EQ(1, before);
    EXPECT_EQ(0, after);
    NEEDS_THREADS_AFTER_FORK();
    const auto result = support::runInChild([] {
        static CRunner runner;
        CVQThreadCtrl::startThread(runner, true);
        CVQThreadCtrl::terminate(-1);
        _exit(16);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(CVQThreadCtrl, AThreadMayEndItselfInASignalHandler) {
    NEEDS_THREADS_THAT_VANISH();
    struct sigaction action = {};
    action.sa_handler = [](int) { CVQThreadCtrl::terminate(); };
    sigaction(SIGUSR1, &action, nullptr);
    CRunner runner;
    const int tid = CVQThreadCtrl::startThread(runner);
    while (runner.seenId == 0) {
        std::this_thread::yield();
    }
    ASSERT_EQ(0, tgkill(getpid(), tid, SIGUSR1));
    EXPECT_EQ(0, CVQThreadCtrl::join(tid, 60000));
    EXPECT_FALSE(runner.hasLeft);
}

TEST(CVQThreadCtrl, AFatalErrorInAThreadOrAHandlerEndsTheProcess) {
    NEEDS_THREADS_AFTER_FORK();
    support::SlogCapture log;
    const auto inThread = support::runInChild([] {
        static CBody body([] { doCheapFatalError(77, "Unit"); });
        CVQThreadCtrl::join(CVQThreadCtrl::startThread(body));
    });
    EXPECT_TRUE(inThread.exitedWith(EXIT_FAILURE)) << inThread;
    EXPECT_EQ("\nUnit:77: FATAL ERROR occured\n", inThread.err);
    const auto inHandler = support::runInChild([] {
        signal(SIGUSR1, [](int) { doCheapFatalError(78, "Unit"); });
        static CBody body([] { raise(SIGUSR1); });
        CVQThreadCtrl::join(CVQThreadCtrl::startThread(body));
    });
    EXPECT_TRUE(inHandler.exitedWith(EXIT_FAILURE)) << inHandler;
    EXPECT_EQ("\nUnit:78: FATAL ERROR occured\n", inHandler.err);
}

TEST(CVQThreadCtrl, TheProcessMayExitWhileThreadsRunAndOneJoins) {
    NEEDS_THREADS_AFTER_FORK();
    const auto result = support::runInChild([] {
        // Never destroyed: they run while `exit` destroys what is static.
        static CRunner& runner = *new CRunner;
        static const int tid = CVQThreadCtrl::startThread(runner);
        static CBody& joins = *new CBody([] { CVQThreadCtrl::join(tid); });
        static CBody& exits = *new CBody([] { std::exit(23); });
        CVQThreadCtrl::startThread(joins);
        CVQThreadCtrl::join(CVQThreadCtrl::startThread(exits));
    });
    EXPECT_TRUE(result.exitedWith(23)) << result;
}

TEST(CVQThreadCtrl, AForkedChildKnowsNoThreadOfItsParent) {
    CRunner runner;
    const int tid = CVQThreadCtrl::startThread(runner);
    const auto result = support::runInChild([tid] {
        EXPECT_EQ(-1, CVQThreadCtrl::join(tid, 100));
        EXPECT_EQ(-1, CVQThreadCtrl::terminate(tid));
        EXPECT_EQ(-1, CVQThreadCtrl::setPriority(tid, 20));
        EXPECT_EQ(getpid(), CVQThreadCtrl::getCurrentThreadId());
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(10, CVQThreadCtrl::getPriority(tid));
    runner.mayEnd = true;
    EXPECT_EQ(0, CVQThreadCtrl::join(tid));
}
