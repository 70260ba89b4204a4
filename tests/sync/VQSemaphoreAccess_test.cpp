// VQSemaphoreAccess, CVQBinarySemaphore, CVQCountingSemaphore.
// Concerns: the counts and their bounds; the three kinds of time-out and the errors they leave; many threads;
// processes, some of them killed; signals; reports.
#include <VQSemaphoreAccess.h>

#include <CVQBinarySemaphore.h>
#include <CVQCountingSemaphore.h>
#include <CVQThreadCtrl.h>
#include <VQOperatingSystem.h>

#include "LockTesting.h"
#include "host/SignalStorm.h"
#include "support/AssertionLog.h"
#include "support/ChildProcess.h"
#include "support/Sanitizers.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sys/mman.h>
#include <sys/neutrino.h>

namespace {

using locktest::CHolder;
using locktest::durationOf;
using locktest::milliseconds;
using VQOperatingSystem::getLastError;
using VQOSTypes::SEMHANDLE;

bool isAllZero(const SEMHANDLE& handle) {
    const auto* words = reinterpret_cast<const unsigned char*>(&handle);
    for (std::size_t i = 0; i < sizeof handle; ++i) {
        if (words[i] != 0) {
            return false;
        }
    }
    return true;
}

/// The units that can be taken without waiting.
template <class Semaphore>
int drain(Semaphore& semaphore) {
    int units = 0;
    while (semaphore.lock(0)) {
        ++units;
    }
    return units;
}

/// `T`, built in memory that forked children share.
template <class T>
class CShared {
public:
    template <class... Arguments>
    explicit CShared(Arguments... arguments)
        : mObject(new (mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
                      T(arguments...)) {}
    ~CShared() {
        mObject->~T();
        munmap(mObject, sizeof(T));
    }
    CShared(const CShared&) = delete;
    CShared& operator=(const CShared&) = delete;
    T* operator->() const { return mObject; }
    T& operator*() const { return *mObject; }

private:
    T* mObject;
};

struct SHandle {
    SEMHANDLE handle = VQOSTypes::sInvalidSemHandle;
    SHandle(int initialCount, int maxCount, bool shared = false) {
        VQSemaphoreAccess::create(handle, initialCount, maxCount, shared);
    }
    ~SHandle() { VQSemaphoreAccess::destroy(handle); }
};

/// The number of takers that sleep, while others may be changing it.
unsigned waitersOf(SEMHANDLE& handle) {
    pthread_mutex_lock(&handle.mutex);
    const unsigned waiters = handle.waiters;
    pthread_mutex_unlock(&handle.mutex);
    return waiters;
}

void waitForWaiters(SEMHANDLE& handle, unsigned waiters) {
    while (waitersOf(handle) != waiters) {
        std::this_thread::sleep_for(milliseconds(1));
    }
}

/// One that is used before main, and while the process exits.
struct SSemaphoreBeforeMain {
    SSemaphoreBeforeMain() : hadItsUnitOnly(semaphore.lock(0) && !semaphore.lock(5)) { semaphore.unlock(); }
    ~SSemaphoreBeforeMain() {
        if (isToldAtEnd) {
            std::printf("%d", semaphore.lock(0) && !semaphore.lock(5) && semaphore.unlock() == 0);
        }
    }
    CVQBinarySemaphore semaphore{true};
    bool hadItsUnitOnly;
    bool isToldAtEnd = false;
};
SSemaphoreBeforeMain sSemaphoreBeforeMain;

}  // namespace

TEST(CVQBinarySemaphore, AStaticOneServesBeforeMainAndWhileTheProcessExits) {
    EXPECT_TRUE(sSemaphoreBeforeMain.hadItsUnitOnly);
    const auto result = support::runInChild([] {
        sSemaphoreBeforeMain.isToldAtEnd = true;
        std::exit(0);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ("1", result.out);
}

TEST(CVQBinarySemaphore, DropsTheSecondPost) {
    CVQBinarySemaphore semaphore(true);
    EXPECT_EQ(0, semaphore.unlock());
    EXPECT_EQ(0, semaphore.unlock());
    EXPECT_TRUE(semaphore.lock(0));
    EXPECT_EQ(0, getLastError());
    EXPECT_FALSE(semaphore.lock(0));
    EXPECT_EQ(EAGAIN, getLastError());
}

TEST(CVQBinarySemaphore, StartsWithoutItsUnitWhenToldSo) {
    CVQBinarySemaphore semaphore(false);
    EXPECT_EQ(0, drain(semaphore));
    semaphore.unlock();
    EXPECT_EQ(1, drain(semaphore));
}

TEST(CVQCountingSemaphore, StartsWithinItsBounds) {
    const struct {
        int line, initial, max, units;
    } kRows[] = {
        {__LINE__, 5, 3, 3}, {__LINE__, -2, 3, 0},      {__LINE__, 3, 3, 3},       {__LINE__, 0, 3, 0},
        {__LINE__, 1, 3, 1}, {__LINE__, INT_MIN, 1, 0}, {__LINE__, INT_MAX, 2, 2},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        CVQCountingSemaphore semaphore(row.initial, row.max);
        EXPECT_EQ(row.units, drain(semaphore));
    }
}

TEST(CVQCountingSemaphore, Kept_DropsPostsBeyondItsBound) {  // semaphore-drops-posts
    CVQCountingSemaphore semaphore(0, 3);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(0, semaphore.unlock());
    }
    EXPECT_EQ(3, drain(semaphore));
}

TEST(CVQCountingSemaphore, HasTheLargestBound) {
    CVQCountingSemaphore semaphore(INT_MAX, INT_MAX);
    EXPECT_EQ(0, semaphore.unlock());
    EXPECT_TRUE(semaphore.lock(0));
}

TEST(VQSemaphoreAccess, HandleHasItsFieldsInOrder) {
    const SHandle semaphore(2, 7);
    const auto* words = reinterpret_cast<const unsigned*>(&semaphore.handle);
    EXPECT_EQ(1u, words[0]);
    EXPECT_EQ(&semaphore.handle.mutex.__count, words + 1);
    EXPECT_EQ(&semaphore.handle.condition.__count, words + 3);
    EXPECT_EQ(2u, words[5]);
    EXPECT_EQ(7u, words[6]);
    EXPECT_EQ(0u, words[7]);
}

TEST(VQSemaphoreAccess, DestroyingLeavesAnInvalidHandle) {
    SEMHANDLE handle = VQOSTypes::sInvalidSemHandle;
    EXPECT_TRUE(isAllZero(handle));
    VQSemaphoreAccess::create(handle, 1, 1, /*shared*/ true);
    EXPECT_EQ(1u, handle.valid);
    VQSemaphoreAccess::destroy(handle);
    EXPECT_EQ(0u, handle.valid | handle.count | handle.maxCount | handle.waiters);
    support::AssertionLog log;
    VQSemaphoreAccess::destroy(handle);  // harmless
    EXPECT_TRUE(log.takeSites().empty());
}

TEST(VQSemaphoreAccess, InvalidHandlesRefuseEverything) {
    SEMHANDLE handle = VQOSTypes::sInvalidSemHandle;
    for (const int timeoutMs : {-1, 0, 10, -7}) {
        EXPECT_FALSE(VQSemaphoreAccess::lock(handle, timeoutMs));
        EXPECT_EQ(EINVAL, getLastError());
    }
    EXPECT_EQ(EINVAL, VQSemaphoreAccess::unlock(handle));
}

TEST(VQSemaphoreAccess, ABoundOfZeroOrLessIsAnAssertionAndNothingElse) {
    support::AssertionLog log;
    for (const int maxCount : {0, -1, INT_MIN}) {
        SEMHANDLE handle = VQOSTypes::sInvalidSemHandle;
        VQSemaphoreAccess::create(handle, 1, maxCount, /*shared*/ false);
        EXPECT_EQ(std::vector<std::string>{"VQSemaphoreAccessQNX:140"}, log.takeSites());
        EXPECT_TRUE(isAllZero(handle));
        std::memset(static_cast<void*>(&handle), 0xA5, sizeof handle);
        VQSemaphoreAccess::create(handle, 1, maxCount, /*shared*/ false);
        EXPECT_EQ(std::vector<std::string>{"VQSemaphoreAccessQNX:140"}, log.takeSites());
        EXPECT_FALSE(VQSemaphoreAccess::lock(handle, 0));
        EXPECT_EQ(EINVAL, getLastError());
    }
}

TEST(VQSemaphoreAccess, ADestroyedOneThatIsHeldIsReported) {
    support::AssertionLog log;
    SEMHANDLE handle = VQOSTypes::sInvalidSemHandle;
    VQSemaphoreAccess::create(handle, 0, 1, /*shared*/ false);
    pthread_mutex_lock(&handle.mutex);
    VQSemaphoreAccess::destroy(handle);
    EXPECT_EQ(std::vector<std::string>{"Failed to destroy semaphore: error=" + std::to_string(EBUSY)},
              log.takeSites());
    EXPECT_EQ(0u, handle.valid);
}

TEST(VQSemaphoreAccess, Kept_NegativeTimeoutsTryOnce) {  // semaphore-negative-tries-once
    SHandle semaphore(1, 1);
    for (const int timeoutMs : {-2, INT_MIN}) {
        EXPECT_TRUE(VQSemaphoreAccess::lock(semaphore.handle, timeoutMs));
        EXPECT_EQ(0, getLastError());
        EXPECT_FALSE(VQSemaphoreAccess::lock(semaphore.handle, timeoutMs));
        EXPECT_EQ(EAGAIN, getLastError());
        VQSemaphoreAccess::unlock(semaphore.handle);
    }
}

TEST(VQSemaphoreAccess, TryingSaysBusyWhileTheMutexIsHeld) {
    SHandle semaphore(1, 1);
    const CHolder holder(semaphore.handle.mutex);
    EXPECT_FALSE(VQSemaphoreAccess::lock(semaphore.handle, 0));
    EXPECT_EQ(EBUSY, getLastError());
}

TEST(VQSemaphoreAccess, ATimedLockExpiresNotEarly) {
    SHandle semaphore(0, 1);
    for (const int timeoutMs : {1, 30}) {
        const unsigned long long begin = VQOperatingSystem::getMonotonicTime();
        EXPECT_FALSE(VQSemaphoreAccess::lock(semaphore.handle, timeoutMs));
        EXPECT_EQ(ETIMEDOUT, getLastError());
        EXPECT_GE(VQOperatingSystem::getMonotonicTime() - begin, static_cast<unsigned>(timeoutMs) * 1000000ULL);
        EXPECT_EQ(0u, semaphore.handle.waiters);
    }
    VQSemaphoreAccess::unlock(semaphore.handle);
    EXPECT_TRUE(VQSemaphoreAccess::lock(semaphore.handle, 30));
    EXPECT_EQ(0, getLastError());
}

TEST(VQSemaphoreAccess, ATimedLockAlsoBoundsTheWaitForTheMutex) {
    SHandle semaphore(1, 1);
    const CHolder holder(semaphore.handle.mutex);
    EXPECT_GE(durationOf([&] { EXPECT_FALSE(VQSemaphoreAccess::lock(semaphore.handle, 20)); }), milliseconds(20));
    EXPECT_EQ(ETIMEDOUT, getLastError());
}

TEST(VQSemaphoreAccess, TheLongestTimeoutIsNotInThePast) {
    SHandle semaphore(0, 1);
    std::thread poster([&] {
        waitForWaiters(semaphore.handle, 1);
        VQSemaphoreAccess::unlock(semaphore.handle);
    });
    EXPECT_TRUE(VQSemaphoreAccess::lock(semaphore.handle, INT_MAX));
    poster.join();
}

TEST(VQSemaphoreAccess, APostWakesOneTaker) {
    SHandle semaphore(0, 5);
    std::atomic<int> taken{0};
    std::vector<std::thread> takers;
    for (int i = 0; i < 3; ++i) {
        takers.emplace_back([&, i] {
            EXPECT_TRUE(VQSemaphoreAccess::lock(semaphore.handle, i == 0 ? -1 : 60000));
            ++taken;
        });
    }
    waitForWaiters(semaphore.handle, 3);
    for (int posts = 1; posts <= 3; ++posts) {
        EXPECT_EQ(0, VQSemaphoreAccess::unlock(semaphore.handle));
        while (taken < posts) {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(milliseconds(5));
        EXPECT_EQ(posts, taken);
    }
    for (std::thread& taker : takers) {
        taker.join();
    }
    EXPECT_EQ(0u, semaphore.handle.count);
}

TEST(VQSemaphoreAccess, KeepsAMutualExclusion) {
    CVQBinarySemaphore semaphore(true);
    const long count = locktest::countTogether(
        [&](int round) {
            while (!semaphore.lock(round % 3 == 0 ? -1 : round % 3 == 1 ? 1000 : 0)) {
                std::this_thread::yield();
            }
        },
        [&] { semaphore.unlock(); });
    EXPECT_EQ(static_cast<long>(locktest::kCountingThreads) * locktest::kCountingRounds, count);
}

TEST(VQSemaphoreAccess, NoUnitIsLostOrMadeUp) {
    constexpr int kUnits = 20000;
    CVQCountingSemaphore semaphore(0, kUnits);
    std::atomic<int> taken{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kUnits / 4; ++i) {
                EXPECT_TRUE(semaphore.lock(t < 2 ? -1 : 60000));
                ++taken;
            }
        });
    }
    for (int t = 0; t < 2; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < kUnits / 2; ++i) {
                EXPECT_EQ(0, semaphore.unlock());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(kUnits, taken);
    EXPECT_EQ(0, drain(semaphore));
}

TEST(VQSemaphoreAccess, SignalsNeitherEndNorShortenAWait) {
    SHandle semaphore(0, 1);
    static std::atomic<int> caught;
    caught = 0;
    const SignalStorm storm([](int) { ++caught; });
    const unsigned long long begin = VQOperatingSystem::getMonotonicTime();
    EXPECT_FALSE(VQSemaphoreAccess::lock(semaphore.handle, 50));
    EXPECT_EQ(ETIMEDOUT, getLastError());
    EXPECT_GE(VQOperatingSystem::getMonotonicTime() - begin, 50000000ULL);
    EXPECT_GT(caught, 0);
    std::thread poster([&] {
        waitForWaiters(semaphore.handle, 1);
        std::this_thread::sleep_for(milliseconds(20));
        VQSemaphoreAccess::unlock(semaphore.handle);
    });
    EXPECT_TRUE(VQSemaphoreAccess::lock(semaphore.handle, -1));
    EXPECT_EQ(0, getLastError());
    poster.join();
}

TEST(VQSemaphoreAccess, ServesProcesses) {
    constexpr int kRounds = 5000;
    CShared<CVQBinarySemaphore> ping(false, true);
    CShared<CVQCountingSemaphore> pong(0, 1, true);
    support::ChildProcess child([&] {
        for (int i = 0; i < kRounds; ++i) {
            EXPECT_TRUE(ping->lock(i % 2 == 0 ? -1 : 60000));
            EXPECT_EQ(0, pong->unlock());
        }
    });
    for (int i = 0; i < kRounds; ++i) {
        EXPECT_EQ(0, ping->unlock());
        ASSERT_TRUE(pong->lock(60000));
    }
    const auto result = child.finish();
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(VQSemaphoreAccess, ATakerThatIsKilledAsItSleepsDoesNotDisturbTheOthers) {
    CShared<SHandle> semaphore(0, 5, true);
    support::ChildProcess victim([&] { VQSemaphoreAccess::lock(semaphore->handle, -1); });
    waitForWaiters(semaphore->handle, 1);
    std::this_thread::sleep_for(milliseconds(10));
    victim.send(SIGKILL);
    victim.finish();
    support::ChildProcess taker([&] { EXPECT_TRUE(VQSemaphoreAccess::lock(semaphore->handle, 10000)); });
    waitForWaiters(semaphore->handle, 2);
    EXPECT_EQ(0, VQSemaphoreAccess::unlock(semaphore->handle));
    const auto result = taker.finish();
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_FALSE(VQSemaphoreAccess::lock(semaphore->handle, 0));
}

// The state that a taker leaves which is killed right after its wake-up: a unit, and the others asleep.
TEST(VQSemaphoreAccess, TakersFindAUnitWhoseTakerWasKilledAsItWoke) {
    CShared<SHandle> semaphore(0, 5, true);
    support::ChildProcess taker([&] { EXPECT_TRUE(VQSemaphoreAccess::lock(semaphore->handle, -1)); });
    waitForWaiters(semaphore->handle, 1);
    pthread_mutex_lock(&semaphore->handle.mutex);
    semaphore->handle.count = 1;
    pthread_mutex_unlock(&semaphore->handle.mutex);
    const auto result = taker.finish();
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(VQSemaphoreAccess, ATakerThatIsStoppedBeyondItsDeadlineFindsItPassed) {
    CShared<SHandle> semaphore(0, 5, true);
    CShared<std::atomic<bool>> hasExpired(false);
    support::ChildProcess taker([&] {
        EXPECT_FALSE(VQSemaphoreAccess::lock(semaphore->handle, 100));
        EXPECT_EQ(ETIMEDOUT, getLastError());
        *hasExpired = true;
        EXPECT_TRUE(VQSemaphoreAccess::lock(semaphore->handle, -1));
    });
    waitForWaiters(semaphore->handle, 1);
    taker.send(SIGSTOP);
    std::this_thread::sleep_for(milliseconds(120));
    taker.send(SIGCONT);
    while (!*hasExpired) {
        std::this_thread::yield();
    }
    EXPECT_EQ(0, VQSemaphoreAccess::unlock(semaphore->handle));
    const auto result = taker.finish();
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(VQSemaphoreAccess, NoUnitIsLostWhileTakersAreStoppedAndGoOn) {
    constexpr int kUnits = 3000;
    CShared<CVQCountingSemaphore> units(0, kUnits, true), room(8, 8, true);
    support::ChildProcess taker([&] {
        for (int i = 0; i < kUnits; ++i) {
            ASSERT_TRUE(units->lock(i % 2 == 0 ? -1 : 60000));
            ASSERT_EQ(0, room->unlock());
        }
    });
    for (int i = 0; i < kUnits; ++i) {
        if (i % 100 == 0) {
            taker.send(SIGSTOP);
            std::this_thread::sleep_for(std::chrono::microseconds(i));
            taker.send(SIGCONT);
        }
        ASSERT_TRUE(room->lock(10000));
        ASSERT_EQ(0, units->unlock());
    }
    const auto result = taker.finish();
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(0, drain(*units));
    EXPECT_EQ(8, drain(*room));
}

// The child's copy counts takers who exist in the parent only.
TEST(VQSemaphoreAccess, AForkedChildGoesOnWithItsOwnCopy) {
    SHandle semaphore(0, 2);
    std::thread taker([&] { EXPECT_TRUE(VQSemaphoreAccess::lock(semaphore.handle, -1)); });
    waitForWaiters(semaphore.handle, 1);
    const auto result = support::runInChild([&] {
        EXPECT_EQ(0, VQSemaphoreAccess::unlock(semaphore.handle));
        EXPECT_TRUE(VQSemaphoreAccess::lock(semaphore.handle, -1));
        EXPECT_FALSE(VQSemaphoreAccess::lock(semaphore.handle, 5));
        EXPECT_EQ(ETIMEDOUT, getLastError());
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(1u, waitersOf(semaphore.handle));
    EXPECT_EQ(0, VQSemaphoreAccess::unlock(semaphore.handle));
    taker.join();
}

TEST(VQSemaphoreAccess, ATakerThatIsEndedAsItSleepsDoesNotDisturbTheOthers) {
    NEEDS_THREADS_THAT_VANISH();
    struct CTaker : CVQThreadCtrl::IRunnable {
        explicit CTaker(SEMHANDLE& handle) : mHandle(handle) {}
        void run() override { VQSemaphoreAccess::lock(mHandle, -1); }
        SEMHANDLE& mHandle;
    };
    SEMHANDLE handle = VQOSTypes::sInvalidSemHandle;
    VQSemaphoreAccess::create(handle, 0, 5, /*shared*/ false);
    CTaker taker(handle);
    const int victim = CVQThreadCtrl::startThread(taker);
    waitForWaiters(handle, 1);
    std::this_thread::sleep_for(milliseconds(10));
    EXPECT_NE(-1, CVQThreadCtrl::terminate(victim));
    EXPECT_EQ(0, CVQThreadCtrl::join(victim));
    const int other = CVQThreadCtrl::startThread(taker);
    waitForWaiters(handle, 2);  // the victim is counted for ever
    EXPECT_EQ(0, VQSemaphoreAccess::unlock(handle));
    EXPECT_EQ(0, CVQThreadCtrl::join(other));
    EXPECT_EQ(0, VQSemaphoreAccess::unlock(handle));
    EXPECT_TRUE(VQSemaphoreAccess::lock(handle, 0));
    // Not destroyed: that would wait a while for the victim.
}

TEST(VQSemaphoreAccess, AProcessMayExitWhileAThreadSleepsInAStaticOne) {
    NEEDS_THREADS_AFTER_FORK();
    const auto result = support::runInChild([] {
        static CVQBinarySemaphore semaphore(false);
        static std::atomic<bool> isEntered{false};
        std::thread([] {
            isEntered = true;
            semaphore.lock();
        }).detach();
        while (!isEntered) {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(milliseconds(10));
        std::exit(21);
    });
    EXPECT_TRUE(result.exitedWith(21)) << result;
}
