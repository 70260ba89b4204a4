// VQOperatingSystem: clocks, sleeping, kernel time-outs; SVQKernelTimer; CVQOSUtility.
#include <VQOperatingSystem.h>

#include <CVQMutex.h>
#include <CVQOSUtility.h>
#include <SVQKernelTimer.h>

#include "OnTheClock.h"

#include "host/SignalStorm.h"
#include "support/AssertionLog.h"
#include "support/ChildProcess.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <sys/neutrino.h>
#include <thread>
#include <time.h>

using namespace VQOperatingSystem;

namespace {

constexpr unsigned long long kNoTimeLimit = ~0ULL;

unsigned long long nowOf(clockid_t clock) {
    timespec now;
    clock_gettime(clock, &now);
    return static_cast<unsigned long long>(now.tv_sec) * 1000000000ULL +
           static_cast<unsigned long long>(now.tv_nsec);
}

/// A mutex that another thread holds for 20 ms.
class CHeldMutex {
public:
    CHeldMutex() {
        while (!mIsHeld) {
            std::this_thread::yield();
        }
    }
    ~CHeldMutex() { mHolder.join(); }
    CHeldMutex(const CHeldMutex&) = delete;
    CHeldMutex& operator=(const CHeldMutex&) = delete;

    /// The platform's result of a lock, which is released again.
    int lock() {
        const int result = pthread_mutex_lock(&mMutex);
        if (result == 0) {
            mMutex.unlock();
        }
        return result;
    }

private:
    CVQMutex mMutex{/*unlocked*/ true, CVQMutex::NON_RECURSIVE};
    std::atomic<bool> mIsHeld{false};
    std::thread mHolder{[this] {
        mMutex.lock();
        mIsHeld = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        mMutex.unlock();
    }};
};

/// The first questions for the bias in this process, by four threads at once, before any test.
struct SFirstCalls {
    SFirstCalls() {
        std::atomic<int> ready{0};
        std::thread threads[4];
        for (int i = 0; i < 4; ++i) {
            threads[i] = std::thread([this, i, &ready] {
                ++ready;
                while (ready != 4) {
                }
                biases[i] = getMonotonicBias();
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        after = getMonotonicTime();
    }

    const unsigned long long before = getMonotonicTime();
    unsigned long long biases[4];
    unsigned long long after;
};
const SFirstCalls sFirstCalls;

}  // namespace

TEST(VQOperatingSystemTime, TheRealTimeIsInMilliseconds) {
    const auto before = static_cast<unsigned>(nowOf(CLOCK_REALTIME) / kMs);
    const unsigned now = getRealTimeMs();
    EXPECT_LT(now - before, 1000u);
}

TEST(VQOperatingSystemTime, MonotonicClocksAgree) {
    for (int i = 0; i < 1000; ++i) {
        const unsigned long long times[] = {nowOf(CLOCK_MONOTONIC), getSysPageTime(),
                                            getClockValue(CLOCK_MONOTONIC), getMonotonicTime(),
                                            nowOf(CLOCK_MONOTONIC)};
        for (int k = 1; k < 5; ++k) {
            ASSERT_LE(times[k - 1], times[k]) << k;
        }
    }
}

TEST(VQOperatingSystemTime, EachThreadReadsATimeOfItsOwn) {
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([] {
            unsigned long long last = 0;
            for (int n = 0; n < 50000; ++n) {
                const unsigned long long now = getSysPageTime();
                ASSERT_LE(last, now);
                last = now;
            }
        });
    }
    for (std::thread& reader : readers) {
        reader.join();
    }
}

TEST(VQOperatingSystemTime, OtherClocksAreAskedOfTheKernel) {
    const unsigned long long before = nowOf(CLOCK_REALTIME);
    const unsigned long long now = getClockValue(CLOCK_REALTIME);
    EXPECT_LE(before, now);
    EXPECT_LE(now, nowOf(CLOCK_REALTIME));
    EXPECT_NE(0u, getClockValue(CLOCK_PROCESS_CPUTIME_ID));
}

TEST(VQOperatingSystemTime, AClockThatCannotBeReadIsZero) {
    EXPECT_EQ(0u, getClockValue(4711));
    EXPECT_EQ(EINVAL, getLastError());
}

TEST(VQOperatingSystemTime, StoresTheMonotonicTimeAndLeavesErrno) {
    unsigned long long stored = 0;
    setLastError(EACCES);
    const unsigned long long now = getMonotonicTime(&stored);
    EXPECT_EQ(now, stored);
    EXPECT_EQ(EACCES, getLastError());
}

TEST(VQOperatingSystemTime, TheBiasIsTheTimeOfTheFirstCall) {
    EXPECT_LE(sFirstCalls.before, sFirstCalls.biases[0]);
    EXPECT_LE(sFirstCalls.biases[0], sFirstCalls.after);
    unsigned long long again = 0;
    EXPECT_EQ(sFirstCalls.biases[0], getMonotonicBias(&again));
    EXPECT_EQ(sFirstCalls.biases[0], again);
}

TEST(VQOperatingSystemTime, ThreadsThatAskFirstAtOnceAreToldTheSameBias) {
    for (const unsigned long long bias : sFirstCalls.biases) {
        EXPECT_EQ(sFirstCalls.biases[0], bias);
    }
}

TEST(VQOperatingSystemTime, TheDifferenceToAFutureTimeIsAnAssertionAndZero) {
    support::AssertionLog log;
    EXPECT_EQ(0u, timeDiffMonotonic(getMonotonicTime() + 3600000 * kMs));
    EXPECT_EQ(std::vector<std::string>{"VQOperatingSystem:47"}, log.takeSites());
    EXPECT_EQ(0u, timeDiffMonotonic(kNoTimeLimit));
    EXPECT_EQ(std::vector<std::string>{"VQOperatingSystem:47"}, log.takeSites());
    const unsigned long long then = getMonotonicTime();
    sleepMs(2);
    EXPECT_GE(timeDiffMonotonic(then), 2 * kMs);
}

TEST(VQOperatingSystemTime, Sleeps) {
    const unsigned long long begin = getMonotonicTime();
    sleepMs(0);
    EXPECT_LT(timeDiffMonotonic(begin), 1000 * kMs);
    const unsigned long long again = getMonotonicTime();
    sleepMs(15);
    EXPECT_GE(timeDiffMonotonic(again), 15 * kMs);
}

TEST(VQOperatingSystemTime, ManySignalsDoNotChangeTheLengthOfASleep) {
    const SignalStorm storm([](int) {});
    for (const unsigned ms : {1u, 150u}) {
        const unsigned long long begin = getMonotonicTime();
        sleepMs(ms);
        const unsigned long long slept = timeDiffMonotonic(begin);
        EXPECT_GE(slept, ms * kMs);
        EXPECT_LT(slept, 3000 * kMs);  // each ms took 30 where remainders were added up
    }
}

TEST(VQOperatingSystemTime, AKernelTimeoutDoesNotShortenASleep) {
    const unsigned long long begin = getMonotonicTime();
    EXPECT_TRUE(setKernelTimeout(calculateKernelTimeout(1), _NTO_TIMEOUT_NANOSLEEP));
    sleepMs(10);
    EXPECT_GE(timeDiffMonotonic(begin), 10 * kMs);
}

TEST(VQOperatingSystemTime, DeadlinesCountFromNow) {
    EXPECT_EQ(kNoTimeLimit, calculateKernelTimeout(-1));
    EXPECT_EQ(kNoTimeLimit, calculateKernelTimeout(INT_MIN));
    for (const int timeoutMs : {0, 1, 1500, INT_MAX}) {
        const unsigned long long before = getMonotonicTime();
        const unsigned long long deadline = calculateKernelTimeout(timeoutMs);
        const unsigned long long wait = static_cast<unsigned>(timeoutMs) * kMs;
        EXPECT_LE(before + wait, deadline);
        EXPECT_LE(deadline, getMonotonicTime() + wait);
    }
}

TEST(VQOperatingSystemTime, AKernelTimeoutCoversTheNextWaitOnly) {
    CHeldMutex held;
    EXPECT_TRUE(setKernelTimeout(calculateKernelTimeout(1), _NTO_TIMEOUT_MUTEX));
    EXPECT_EQ(ETIMEDOUT, held.lock());
    EXPECT_EQ(0, held.lock());
}

TEST(VQOperatingSystemTime, AKernelTimeoutIsForItsStatesOnly) {
    CHeldMutex held;
    EXPECT_TRUE(setKernelTimeout(calculateKernelTimeout(1), _NTO_TIMEOUT_JOIN | _NTO_TIMEOUT_SEND));
    EXPECT_EQ(0, held.lock());
}

TEST(VQOperatingSystemTime, AKernelTimeoutCanBeTakenBack) {
    CHeldMutex held;
    EXPECT_TRUE(setKernelTimeout(calculateKernelTimeout(1), _NTO_TIMEOUT_MUTEX));
    EXPECT_TRUE(resetKernelTimeout());
    EXPECT_EQ(0, held.lock());
}

TEST(VQOperatingSystemTime, ARelativeKernelTimerCountsFromItsArming) {
    CHeldMutex held;
    EXPECT_TRUE(setKernelTimer(kMs, _NTO_TIMEOUT_MUTEX));
    EXPECT_EQ(ETIMEDOUT, held.lock());
}

TEST(VQOperatingSystemTime, NoLimitIsNone) {
    CHeldMutex held;
    EXPECT_TRUE(setKernelTimeout(calculateKernelTimeout(-1), _NTO_TIMEOUT_MUTEX));
    EXPECT_EQ(0, held.lock());
}

TEST(SVQKernelTimer, TellsWhenItsDeadlineHasPassed) {
    SVQKernelTimer timer(20);
    setLastError(EACCES);
    EXPECT_FALSE(timer.timeoutOccurred());
    sleepMs(20);
    setLastError(EACCES);
    EXPECT_TRUE(timer.timeoutOccurred());
    EXPECT_EQ(EACCES, getLastError());
    EXPECT_TRUE(SVQKernelTimer(0).timeoutOccurred());
    EXPECT_FALSE(SVQKernelTimer(-1).timeoutOccurred());
    EXPECT_EQ(kNoTimeLimit, SVQKernelTimer(-1).mDeadline);
}

TEST(SVQKernelTimer, ArmsForSendAndReply) {
    CHeldMutex held;
    SVQKernelTimer timer(1);
    EXPECT_TRUE(timer.start());
    EXPECT_EQ(0, held.lock());
}

TEST(SVQKernelTimer, LimitsASendAndItsReply) {
    const int chid = ChannelCreate(0);
    const int coid = ConnectAttach(0, 0, chid, _NTO_SIDE_CHANNEL, 0);
    char message = 'm';
    SVQKernelTimer unreceived(1);
    EXPECT_TRUE(unreceived.start());
    EXPECT_EQ(-1, MsgSend(coid, &message, 1, nullptr, 0));
    EXPECT_EQ(ETIMEDOUT, getLastError());
    std::atomic<bool> isReceived{false};
    std::thread receiver([&] {
        char received;
        EXPECT_GT(MsgReceive(chid, &received, 1, nullptr), 0);
        isReceived = true;
    });
    do {  // until the receiver was in time
        SVQKernelTimer unreplied(50);
        EXPECT_TRUE(unreplied.start());
        EXPECT_EQ(-1, MsgSend(coid, &message, 1, nullptr, 0));
        EXPECT_EQ(ETIMEDOUT, getLastError());
    } while (!isReceived);
    receiver.join();
    ConnectDetach(coid);
    ChannelDestroy(chid);
}

TEST(SVQKernelTimer, WithoutADeadlineDoesNotStart) {
    SVQKernelTimer timer(1);
    timer.mDeadline = 0;
    setLastError(0);
    EXPECT_FALSE(timer.start());
    EXPECT_EQ(ETIMEDOUT, getLastError());
}

TEST(CVQOSUtility, TurnsATimeoutIntoAWallClockTime) {
    for (const int timeoutMs : {INT_MIN, -1, 0, 1, 999, 1000, 1500, INT_MAX}) {
        const unsigned long long wait = timeoutMs < 0 ? 0 : static_cast<unsigned>(timeoutMs) * kMs;
        for (int i = 0; i < 200; ++i) {
            const unsigned long long before = nowOf(CLOCK_REALTIME);
            timespec out;
            EXPECT_EQ(&out, &CVQOSUtility::translateToOSTimeout(timeoutMs, out));
            ASSERT_GE(out.tv_nsec, 0);
            ASSERT_LE(out.tv_nsec, 999999999);
            const unsigned long long found = static_cast<unsigned long long>(out.tv_sec) * 1000000000ULL +
                                             static_cast<unsigned long long>(out.tv_nsec);
            ASSERT_LE(before + wait, found);
            ASSERT_LE(found, nowOf(CLOCK_REALTIME) + wait);
        }
    }
}
