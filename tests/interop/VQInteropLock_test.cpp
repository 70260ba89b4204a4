// VQInteropLock: std's guards over each kind of lock; exclusion; time-outs that never end early, by clocks that are set;
// locks and unlocks that are refused.
#include <VQInteropLock.h>

#include "support/AssertionLog.h"
#include "support/ChildProcess.h"
#include "sync/LockTesting.h"

#include <CVQBinarySemaphore.h>
#include <CVQCountingSemaphore.h>
#include <CVQMutex.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <thread>
#include <type_traits>

using namespace std::chrono_literals;
using namespace locktest;
using testing::ElementsAre;
using testing::HasSubstr;
using VQInterop::TVQLockable;

namespace {

template <class Lock>
bool isHeld(Lock& lock) {
    return !inAnotherThread([&lock] {
        TVQLockable lockable(lock);
        const bool taken = lockable.try_lock();
        if (taken) {
            lockable.unlock();
        }
        return taken;
    });
}

struct SMutex : CVQMutex {
    SMutex() : CVQMutex(/*unlocked*/ true, NON_RECURSIVE) {}
};
struct SRecursive : CVQMutex {
    SRecursive() : CVQMutex(/*unlocked*/ true, RECURSIVE) {}
};
struct SRaw : _sync {
    SRaw() { VQMutexAccess::create(*this, /*unlocked*/ true, /*shared*/ true, /*recursive*/ false); }
    ~SRaw() { VQMutexAccess::destroy(*this); }
};
struct SBinary : CVQBinarySemaphore {
    SBinary() : CVQBinarySemaphore(/*available*/ true) {}
};
struct SCounting : CVQCountingSemaphore {
    SCounting() : CVQCountingSemaphore(1, 1) {}
};
struct SHandle : VQOSTypes::SEMHANDLE {
    SHandle() : SEMHANDLE(VQOSTypes::sInvalidSemHandle) { VQSemaphoreAccess::create(*this, 1, 1, false); }
    ~SHandle() { VQSemaphoreAccess::destroy(*this); }
};

// The lock as its users have it: a class of the library, not one of this file.
CVQMutex& lockOf(CVQMutex& lock) {
    return lock;
}
_sync& lockOf(SRaw& lock) {
    return lock;
}
CVQBinarySemaphore& lockOf(CVQBinarySemaphore& lock) {
    return lock;
}
CVQCountingSemaphore& lockOf(CVQCountingSemaphore& lock) {
    return lock;
}
VQOSTypes::SEMHANDLE& lockOf(SHandle& lock) {
    return lock;
}

/// A clock that runs at a tenth of the speed.
struct SlowClock {
    using duration = std::chrono::nanoseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<SlowClock>;
    static time_point now() { return time_point(std::chrono::steady_clock::now().time_since_epoch() / 10); }
};

template <class Lock>
class VQInteropLockKinds : public testing::Test {};
using Kinds = testing::Types<SMutex, SRecursive, SRaw, SBinary, SCounting, SHandle>;
TYPED_TEST_SUITE(VQInteropLockKinds, Kinds);

}  // namespace

TYPED_TEST(VQInteropLockKinds, AGuardHoldsTheLockForItsScope) {
    TypeParam owner;
    auto& lock = lockOf(owner);
    {
        TVQLockable lockable(lock);
        const std::lock_guard guard(lockable);
        EXPECT_TRUE(isHeld(lock));
    }
    EXPECT_FALSE(isHeld(lock));
}

TYPED_TEST(VQInteropLockKinds, AUniqueLockGivesAndTakes) {
    TypeParam owner;
    auto& lock = lockOf(owner);
    TVQLockable lockable(lock);
    std::unique_lock guard(lockable, std::defer_lock);
    EXPECT_FALSE(isHeld(lock));
    EXPECT_TRUE(guard.try_lock());
    EXPECT_TRUE(isHeld(lock));
    guard.unlock();
    EXPECT_FALSE(isHeld(lock));
    EXPECT_TRUE(guard.try_lock_for(1ms));
    guard.unlock();
    EXPECT_TRUE(guard.try_lock_until(std::chrono::system_clock::now() - 1h));  // free: no time is needed
    EXPECT_TRUE(guard.owns_lock());
}

TYPED_TEST(VQInteropLockKinds, WaitsForALockThatIsHeldAtLeastAsLongAsAsked) {
    TypeParam owner;
    auto& lock = lockOf(owner);
    TVQLockable lockable(lock);
    const CHolder holder([&] { lockable.lock(); }, [&] { lockable.unlock(); });
    std::unique_lock guard(lockable, std::defer_lock);
    EXPECT_FALSE(guard.try_lock());
    EXPECT_GE(durationOf([&] { EXPECT_FALSE(guard.try_lock_for(19'000'001ns)); }), 20ms);
    const auto deadline = Clock::now() + 20ms;
    EXPECT_FALSE(guard.try_lock_until(deadline));
    EXPECT_GE(Clock::now(), deadline);
    EXPECT_FALSE(guard.try_lock_for(-1h));
    EXPECT_FALSE(guard.try_lock_until(std::chrono::system_clock::time_point::min()));
    EXPECT_FALSE(guard.owns_lock());
}

TYPED_TEST(VQInteropLockKinds, GetsALockThatBecomesFreeWhileItWaits) {
    TypeParam owner;
    auto& lock = lockOf(owner);
    TVQLockable lockable(lock);
    const auto afterItsHolder = [&](auto wait) {
        std::thread holder;
        {
            const std::lock_guard guard(lockable);
            holder = std::thread([&] {
                EXPECT_TRUE(wait());
                lockable.unlock();
            });
            std::this_thread::sleep_for(5ms);
        }
        holder.join();
    };
    afterItsHolder([&] { return lockable.try_lock_for(1min); });
    afterItsHolder([&] { return lockable.try_lock_for(std::chrono::hours::max()); });
    afterItsHolder([&] { return lockable.try_lock_for(std::chrono::duration<double>(1e300)); });
    afterItsHolder([&] { return lockable.try_lock_until(Clock::time_point::max()); });
    afterItsHolder([&] { return lockable.try_lock_until(std::chrono::system_clock::now() + 24h * 365); });
    afterItsHolder([&] { return (lockable.lock(), true); });
}

TYPED_TEST(VQInteropLockKinds, GuardsExcludeEachOther) {
    TypeParam owner;
    auto& lock = lockOf(owner);
    TVQLockable lockable(lock);
    EXPECT_EQ(kCountingThreads * kCountingRounds, countTogether(
                                                      [&](int round) {
                                                          if (round % 3 == 0) {
                                                              lockable.lock();
                                                          } else if (round % 3 == 1) {
                                                              while (!lockable.try_lock_for(1h)) {
                                                              }
                                                          } else {
                                                              while (!lockable.try_lock()) {
                                                                  std::this_thread::yield();
                                                              }
                                                          }
                                                      },
                                                      [&] { lockable.unlock(); }));
}

TEST(VQInteropLock, WaitsByTheClockOfTheDeadline) {
    CVQMutex mutex(/*unlocked*/ true, CVQMutex::NON_RECURSIVE);
    TVQLockable lockable(mutex);
    const CHolder holder(mutex);
    const auto deadline = SlowClock::now() + 3ms;  // ten times as much of the clock that is waited by
    EXPECT_FALSE(lockable.try_lock_until(deadline));
    EXPECT_GE(SlowClock::now(), deadline);
}

TEST(VQInteropLock, ACriticalSectionHasGuardsButNoTimeouts) {
    CVQCriticalSection section;
    TVQLockable lockable(section);
    EXPECT_EQ(kCountingThreads * kCountingRounds,
              countTogether([&](int) { lockable.lock(); }, [&] { lockable.unlock(); }));
    const std::lock_guard guard(lockable);
    CVQCriticalSection other;
    TVQLockable otherLockable(other);
    std::unique_lock unique(otherLockable);
    EXPECT_TRUE(unique.owns_lock());
}

TEST(VQInteropLock, SeveralLocksAreTakenTogetherInAnyOrder) {
    CVQMutex mutex(/*unlocked*/ true, CVQMutex::NON_RECURSIVE);
    CVQBinarySemaphore semaphore(/*available*/ true);
    TVQLockable first(mutex);
    TVQLockable second(semaphore);
    long count = 0;
    const auto take = [&](auto& one, auto& other) {
        for (int round = 0; round < 1000; ++round) {
            const std::scoped_lock both(one, other);
            ++count;
        }
    };
    std::thread there([&] { take(first, second); });
    std::thread back([&] { take(second, first); });
    there.join();
    back.join();
    EXPECT_EQ(2000, count);
    EXPECT_FALSE(isHeld(mutex));
}

TEST(VQInteropLock, ARecursiveMutexIsTakenAgainByItsHolder) {
    CVQMutex mutex(/*unlocked*/ true, CVQMutex::RECURSIVE);
    TVQLockable lockable(mutex);
    const std::lock_guard outer(lockable);
    {
        const std::lock_guard inner(lockable);
        const std::unique_lock third(lockable, 1ms);
        EXPECT_TRUE(third.owns_lock());
    }
    EXPECT_TRUE(isHeld(mutex));
}

TEST(VQInteropLock, AConditionOfStdWaitsWithIt) {
    CVQMutex mutex(/*unlocked*/ true, CVQMutex::NON_RECURSIVE);
    TVQLockable lockable(mutex);
    std::condition_variable_any condition;
    bool isReady = false;
    std::thread other([&] {
        const std::lock_guard guard(lockable);
        isReady = true;
        condition.notify_one();
    });
    std::unique_lock guard(lockable);
    EXPECT_TRUE(condition.wait_for(guard, 1min, [&] { return isReady; }));
    guard.unlock();
    other.join();
}

TEST(VQInteropLock, ALockThatRefusesEndsTheProcess) {
    const auto result = support::runInChild([] {
        VQOSTypes::SEMHANDLE handle = VQOSTypes::sInvalidSemHandle;
        TVQLockable lockable(handle);
        const std::lock_guard guard(lockable);
        std::puts("holds nothing");
    });
    EXPECT_FALSE(result.exitedWith(0)) << result;
    EXPECT_EQ("", result.out);
    EXPECT_THAT(result.err, HasSubstr("VQInteropLock:1: FATAL ERROR \"lock refused\" occured"));
}

TEST(VQInteropLock, AttemptsAtALockThatRefusesFailAtOnce) {
    VQOSTypes::SEMHANDLE handle = VQOSTypes::sInvalidSemHandle;
    TVQLockable lockable(handle);
    const auto took = durationOf([&] {
        EXPECT_FALSE(lockable.try_lock());
        EXPECT_FALSE(lockable.try_lock_for(1min));
        EXPECT_FALSE(lockable.try_lock_for(std::chrono::hours::max()));
        EXPECT_FALSE(lockable.try_lock_until(std::chrono::system_clock::now() + 1min));
    });
    EXPECT_LT(took, 30s);
}

TEST(VQInteropLock, AnUnlockThatIsRefusedIsAnAssertion) {
    support::AssertionLog log;
    CVQMutex mutex(/*unlocked*/ true, CVQMutex::NON_RECURSIVE);
    TVQLockable lockable(mutex);
    lockable.unlock();  // nobody holds it
    EXPECT_THAT(log.takeSites(), ElementsAre("VQInteropLock:2"));
}
