// CVQMutex: the object is its mutex; initial state, both kinds of recursion, time-outs, many threads, and use before
// main and while the process exits.
#include <CVQMutex.h>

#include <VQMutexAccess.h>

#include "LockTesting.h"
#include "support/ChildProcess.h"
#include "support/SlogCapture.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <type_traits>
#include <vector>

using namespace locktest;

static_assert(sizeof(CVQMutex) == 8 && alignof(CVQMutex) == 4);
static_assert(std::is_convertible_v<CVQMutex&, _sync&>);
static_assert(!std::is_copy_constructible_v<CVQMutex> && !std::is_copy_assignable_v<CVQMutex>);

namespace {

bool isHeld(CVQMutex& mutex) {
    return !inAnotherThread([&mutex] { return mutex.lock(0) && mutex.unlock() == 0; });
}

struct SMutexBeforeMain {
    SMutexBeforeMain() : heldThen(isHeld(mutex)) { mutex.unlock(); }
    ~SMutexBeforeMain() {
        if (isToldAtEnd) {
            const bool locked = mutex.lock(0);
            std::printf("%d %d", locked, isHeld(mutex));
            mutex.unlock();
        }
    }

    CVQMutex mutex{/*unlocked*/ false, CVQMutex::RECURSIVE};
    bool heldThen;
    bool isToldAtEnd = false;
};
SMutexBeforeMain sMutexBeforeMain;

}  // namespace

TEST(CVQMutex, Kept_RecursiveIsZero) {  // id: mutex-recursive-is-zero
    EXPECT_EQ(0, CVQMutex::RECURSIVE);
    EXPECT_EQ(1, CVQMutex::NON_RECURSIVE);
}

TEST(CVQMutex, IsFreeOrHeldByTheConstructingThread) {
    for (const auto mode : {CVQMutex::RECURSIVE, CVQMutex::NON_RECURSIVE}) {
        CVQMutex unlocked(/*unlocked*/ true, mode);
        EXPECT_FALSE(isHeld(unlocked));
        CVQMutex locked(/*unlocked*/ false, mode);
        EXPECT_TRUE(isHeld(locked));
        EXPECT_EQ(0, locked.unlock());
        EXPECT_FALSE(isHeld(locked));
    }
}

TEST(CVQMutex, ARecursiveOneIsUnlockedAsOftenAsItWasLocked) {
    CVQMutex mutex(/*unlocked*/ false, CVQMutex::RECURSIVE);
    EXPECT_TRUE(mutex.lock());
    EXPECT_TRUE(mutex.lock(0));
    EXPECT_TRUE(mutex.lock(5));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(0, mutex.unlock());
        EXPECT_TRUE(isHeld(mutex));
    }
    EXPECT_EQ(0, mutex.unlock());
    EXPECT_FALSE(isHeld(mutex));
    EXPECT_EQ(EPERM, mutex.unlock());
}

TEST(CVQMutex, ANonRecursiveOneIsNotLockedTwice) {
    CVQMutex mutex(/*unlocked*/ true, CVQMutex::NON_RECURSIVE);
    EXPECT_TRUE(mutex.lock());
    EXPECT_FALSE(mutex.lock(0));
    EXPECT_GE(durationOf([&] { EXPECT_FALSE(mutex.lock(30)); }), milliseconds(30));
    EXPECT_EQ(0, mutex.unlock());
}

TEST(CVQMutex, PassesWhereARawMutexIsAskedFor) {
    CVQMutex mutex(/*unlocked*/ true, CVQMutex::NON_RECURSIVE);
    EXPECT_TRUE(VQMutexAccess::lock(mutex, 0));
    EXPECT_TRUE(isHeld(mutex));
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
}

TEST(CVQMutex, ManyThreadsExcludeEachOther) {
    for (const auto mode : {CVQMutex::RECURSIVE, CVQMutex::NON_RECURSIVE}) {
        CVQMutex mutex(/*unlocked*/ true, mode);
        EXPECT_EQ(kCountingThreads * kCountingRounds,
                  countTogether([&](int) { mutex.lock(); }, [&] { mutex.unlock(); }));
    }
}

TEST(CVQMutex, OneThatIsHeldAtItsEndIsAnAssertion) {
    support::SlogCapture log;
    support::ChildOptions options;
    options.environment = {{"VQ_ASSERTION_BACKTRACE_DIR", "/nowhere"},
                           {"VQ_ENABLE_ABORT_ON_ASSERTION", std::nullopt}};
    const support::ChildResult r =
        support::runInChild([] { const CVQMutex mutex(/*unlocked*/ false, CVQMutex::NON_RECURSIVE); }, options);
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_EQ("\nVQMutexAccessQNX:102: ASSERTION failed\n", r.err);
}

TEST(CVQMutex, AStaticOneServesBeforeMainAndWhileTheProcessExits) {
    EXPECT_TRUE(sMutexBeforeMain.heldThen);
    EXPECT_FALSE(isHeld(sMutexBeforeMain.mutex));
    const support::ChildResult r = support::runInChild([] {
        sMutexBeforeMain.isToldAtEnd = true;
        std::exit(0);
    });
    EXPECT_EQ("1 1", r.out) << r;
}
