// CVQCriticalSection: excludes, hands results through, never locks twice, reports what the platform refuses without
// an assertion; alone and in an optional with its guard.
#include <CVQCriticalSection.h>

#include <CVQOptionalLock.h>

#include "LockTesting.h"
#include "host/SignalStorm.h"
#include "support/ChildProcess.h"
#include "support/SlogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <time.h>
#include <type_traits>

using namespace locktest;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(sizeof(CVQCriticalSection) == 8 && alignof(CVQCriticalSection) == 4);
static_assert(!std::is_copy_constructible_v<CVQCriticalSection>);
static_assert(sizeof(CVQOptionalLock) == sizeof(void*));

namespace {

using Optional = TVQOptional<CVQCriticalSection, 8u, 4u>;
const VQPrivate::TVQInplaceFactory_0 kFactory;

/// The mutex in a section: it has no other call that gives up.
_sync& mutexOf(CVQCriticalSection& section) {
    return reinterpret_cast<_sync&>(section);
}

bool isHeld(CVQCriticalSection& section) {
    return !inAnotherThread([&section] {
        const bool taken = pthread_mutex_trylock(&mutexOf(section)) == 0;
        if (taken) {
            section.unlock();
        }
        return taken;
    });
}

}  // namespace

TEST(CVQCriticalSection, LocksAndUnlocks) {
    CVQCriticalSection section;
    EXPECT_FALSE(isHeld(section));
    EXPECT_EQ(0, section.lock());
    EXPECT_TRUE(isHeld(section));
    EXPECT_EQ(0, section.unlock());
    EXPECT_FALSE(isHeld(section));
}

TEST(CVQCriticalSection, GivesThePlatformsResultAndLogsNothing) {
    support::SlogCapture log;
    CVQCriticalSection section;
    EXPECT_EQ(EPERM, section.unlock());
    {
        const CHolder holder([&] { section.lock(); }, [&] { section.unlock(); });
        EXPECT_EQ(EPERM, section.unlock());
    }
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST(CVQCriticalSection, IsNotRecursive) {
    CVQCriticalSection section;
    section.lock();
    EXPECT_EQ(EBUSY, pthread_mutex_trylock(&mutexOf(section)));
    timespec deadline;
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += deadline.tv_nsec >= 970000000 ? 1 : 0;
    deadline.tv_nsec = (deadline.tv_nsec + 30000000) % 1000000000;
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_timedlock_monotonic(&mutexOf(section), &deadline));
    EXPECT_EQ(0, section.unlock());
}

TEST(CVQCriticalSection, ManyThreadsExcludeEachOther) {
    CVQCriticalSection section;
    EXPECT_EQ(kCountingThreads * kCountingRounds,
              countTogether([&](int) { section.lock(); }, [&] { section.unlock(); }));
}

TEST(CVQCriticalSection, SignalsDoNotEndAWaitForTheLock) {
    static std::atomic<int> caught{0};
    CVQCriticalSection section;
    std::atomic<bool> isHeld{false};
    std::atomic<bool> isLetGo{false};
    std::thread holder([&] {
        section.lock();
        isHeld = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        isLetGo = true;
        section.unlock();
    });
    while (!isHeld)
        std::this_thread::yield();
    {
        const SignalStorm storm([](int) { ++caught; });
        EXPECT_EQ(0, section.lock());
    }
    EXPECT_TRUE(isLetGo);
    EXPECT_EQ(0, section.unlock());
    EXPECT_GT(caught, 0);
    holder.join();
}

TEST(CVQCriticalSection, OneThatIsHeldAtItsEndIsLoggedAndNothingElse) {
    support::SlogCapture log;
    const support::ChildResult r = support::runInChild([] {
        CVQCriticalSection section;
        section.lock();
    });
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_EQ("", r.err);
    ASSERT_EQ(1u, log.records().size());
    EXPECT_EQ("pid " + std::to_string(r.pid) +
                  ": Failed to destroy CVQCriticalSection: error=" + std::to_string(EBUSY),
              log.records()[0].text);
    EXPECT_EQ(1, log.records()[0].severity);
    EXPECT_EQ(10000u, log.records()[0].opcode());
}

TEST(CVQOptionalLock, LocksTheSectionForTheLengthOfItsScope) {
    Optional section;
    section.reset(kFactory);
    {
        const CVQOptionalLock lock(section);
        EXPECT_TRUE(isHeld(*section.get()));
    }
    EXPECT_FALSE(isHeld(*section.get()));
}

TEST(CVQOptionalLock, DoesNothingWithoutASection) {
    Optional section;
    {
        const CVQOptionalLock lock(section);
        const CVQOptionalLock another(section);
        // Unlocking is decided at the beginning of the scope.
        section.reset(kFactory);
        EXPECT_FALSE(isHeld(*section.get()));
        section.get()->lock();
    }
    EXPECT_TRUE(isHeld(*section.get()));
    section.get()->unlock();
}

TEST(CVQOptionalLock, GuardsExcludeEachOther) {
    Optional section;
    section.reset(kFactory);
    thread_local std::optional<CVQOptionalLock> guard;
    EXPECT_EQ(kCountingThreads * kCountingRounds,
              countTogether([&](int) { guard.emplace(section); }, [] { guard.reset(); }));
}

TEST(CVQOptionalLock, ResetMakesAFreeSectionOfAHeldOneAndReportsIt) {
    support::SlogCapture log;
    Optional section;
    section.reset(kFactory);
    section.get()->lock();
    section.reset(kFactory);
    EXPECT_FALSE(isHeld(*section.get()));
    EXPECT_EQ(1u, log.texts().size());
}
