// VQSemaphoreAccess, VQConditionVariableAccess, CVQWaitCondition and VQTriggerAccess on a platform that refuses: each
// step's report, what is undone, and which error is left. The units are compiled here a second time, under other
// names and against calls that fail on demand.
#include "support/AssertionLog.h"
#include "support/ChildProcess.h"
#include "support/SlogCapture.h"

#include <CVQAsserter.h>
#include <CVQWaitCondition.h>
#include <VQConditionVariableAccess.h>
#include <VQError.h>
#include <VQOSTypes.h>
#include <VQOperatingSystem.h>
#include <VQSyslog.h>
#include <sync/MonotonicDeadline.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <map>
#include <pthread.h>
#include <semaphore.h>
#include <string>
#include <sys/neutrino.h>
#include <vector>

namespace balking {

std::string sCalls;
std::map<std::string, int> sRefused;  // what each call gives

int answer(const char* call) {
    sCalls += std::string(sCalls.empty() ? "" : " ") + call;
    const auto found = sRefused.find(call);
    return found == sRefused.end() ? 0 : found->second;
}

int mutexAttrInit(pthread_mutexattr_t* attributes) {
    pthread_mutexattr_init(attributes);
    return answer("mutexattr");
}
int condAttrInit(pthread_condattr_t* attributes) {
    pthread_condattr_init(attributes);
    return answer("condattr");
}
int sShared = PTHREAD_PROCESS_SHARED;  // what the attributes are to be set to
int mutexAttrShared(pthread_mutexattr_t*, int shared) {
    EXPECT_EQ(sShared, shared);
    return answer("mutexshared");
}
int condAttrShared(pthread_condattr_t*, int shared) {
    EXPECT_EQ(sShared, shared);
    return answer("condshared");
}
int condAttrClock(pthread_condattr_t*, clockid_t clock) {
    EXPECT_EQ(CLOCK_MONOTONIC, clock);
    return answer("clock");
}
int mutexInit(_sync*, const pthread_mutexattr_t*) {
    return answer("mutex");
}
int condInit(_sync*, const pthread_condattr_t*) {
    return answer("cond");
}
int mutexAttrDestroy(pthread_mutexattr_t* attributes) {
    pthread_mutexattr_destroy(attributes);
    return answer("~mutexattr");
}
int condAttrDestroy(pthread_condattr_t* attributes) {
    pthread_condattr_destroy(attributes);
    errno = EIO;  // must not be what the caller finds
    return answer("~condattr");
}
int mutexDestroy(_sync*) {
    return answer("~mutex");
}
int condDestroy(_sync*) {
    return answer("~cond");
}
int mutexLock(_sync*) {
    return answer("lock");
}
int mutexTrylock(_sync*) {
    return answer("trylock");
}
int mutexUnlock(_sync*) {
    return answer("unlock");
}
int condWait(_sync*, _sync*) {
    const int error = answer("wait");
    if (const auto next = sRefused.find("wait after"); error == 0 && next != sRefused.end()) {
        sRefused["wait"] = next->second;
    }
    return error;
}
int condSignal(_sync*) {
    return answer("signal");
}
int semGetvalue(sem_t*, int* value) {
    *value = 0;
    return answer("getvalue");
}
int semPost(sem_t*) {
    return answer("post");
}
int semTrywait(sem_t*) {
    const int error = answer("trywait");
    errno = error;
    sRefused["trywait"] = error == EINTR ? sRefused["trywait after"] : error;
    return error == 0 ? 0 : -1;
}

bool arm(unsigned long long deadline, int flags) {
    EXPECT_EQ(12345u, deadline);
    const int error = answer(flags == 0x2000 ? "arm2000" : flags == 0x6000 ? "arm6000" : "armOther");
    errno = error;
    return error == 0;
}
bool disarm() {
    return answer("disarm") == 0;
}
unsigned long long deadline(int) {
    return answer("deadline") == 0 ? 12345 : 0;
}

}  // namespace balking

namespace VQOperatingSystemThatBalks {
constexpr auto setKernelTimeout = &balking::arm;
constexpr auto resetKernelTimeout = &balking::disarm;
constexpr auto calculateKernelTimeout = &balking::deadline;
constexpr auto setLastError = &VQOperatingSystem::setLastError;
constexpr auto getLastError = &VQOperatingSystem::getLastError;
}  // namespace VQOperatingSystemThatBalks

#include <VQTriggerAccess.h>

#define VQSemaphoreAccess VQSemaphoreAccessThatBalks
#include <VQSemaphoreAccess.h>
namespace VQConditionVariableAccessThatBalks {
bool create(_sync& condition);
bool wait(_sync& condition, _sync& mutex, int timeoutMs);
}  // namespace VQConditionVariableAccessThatBalks
namespace VQTriggerAccessThatBalks {
bool create(VQOSTypes::TRIGGER_HANDLE& trigger);
int destroy(VQOSTypes::TRIGGER_HANDLE& trigger);
bool signal(VQOSTypes::TRIGGER_HANDLE& trigger);
bool wait(VQOSTypes::TRIGGER_HANDLE& trigger);
bool wait(VQOSTypes::TRIGGER_HANDLE& trigger, int timeoutMs);
int tryWait(VQOSTypes::TRIGGER_HANDLE& trigger);
}  // namespace VQTriggerAccessThatBalks

#define VQOperatingSystem VQOperatingSystemThatBalks
#define VQConditionVariableAccess VQConditionVariableAccessThatBalks
#define VQTriggerAccess VQTriggerAccessThatBalks
#define pthread_mutexattr_init balking::mutexAttrInit
#define pthread_condattr_init balking::condAttrInit
#define pthread_mutexattr_setpshared balking::mutexAttrShared
#define pthread_condattr_setpshared balking::condAttrShared
#define pthread_condattr_setclock balking::condAttrClock
#define pthread_mutex_init balking::mutexInit
#define pthread_cond_init balking::condInit
#define pthread_mutexattr_destroy balking::mutexAttrDestroy
#define pthread_condattr_destroy balking::condAttrDestroy
#define pthread_mutex_destroy balking::mutexDestroy
#define pthread_cond_destroy balking::condDestroy
#define pthread_mutex_lock balking::mutexLock
#define pthread_mutex_trylock balking::mutexTrylock
#define pthread_mutex_unlock balking::mutexUnlock
#define pthread_cond_wait balking::condWait
#define pthread_cond_signal balking::condSignal
#define sem_getvalue balking::semGetvalue
#define sem_post balking::semPost
#define sem_trywait balking::semTrywait
#include "sync/VQSemaphoreAccessQNX.cpp"
#define kUnit kTriggerUnit
#include "sync/VQTriggerAccessQNX.cpp"
#undef kUnit
#include "sync/VQConditionVariableAccessQNX.cpp"

#define CVQWaitCondition CVQWaitConditionThatBalks
class CVQWaitConditionThatBalks : public _sync {
public:
    CVQWaitConditionThatBalks();
    ~CVQWaitConditionThatBalks();
};
#include "sync/CVQWaitCondition.cpp"
#undef CVQWaitCondition

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Strings = std::vector<std::string>;

class SemaphoreRefused : public testing::Test {
protected:
    void SetUp() override { reset(); }

    static void reset() {
        balking::sCalls.clear();
        balking::sRefused.clear();
    }

    /// The calls that creation makes when `call` is refused, and what is reported.
    Strings create(const char* call, int error) {
        reset();
        balking::sRefused[call] = error;
        mHandle = VQOSTypes::sInvalidSemHandle;
        VQSemaphoreAccess::create(mHandle, 1, 2, /*shared*/ true);
        EXPECT_EQ(0u, mHandle.valid);
        return mLog.takeSites();
    }

    void makeValid(unsigned count, unsigned maxCount, unsigned waiters = 0) {
        reset();
        mHandle = VQOSTypes::sInvalidSemHandle;
        mHandle.valid = 1;
        mHandle.count = count;
        mHandle.maxCount = maxCount;
        mHandle.waiters = waiters;
        errno = EIO;
    }

    VQOSTypes::SEMHANDLE mHandle;
    support::AssertionLog mLog;
};

}  // namespace

TEST_F(SemaphoreRefused, NothingIsReportedWhenAllStepsSucceed) {
    mHandle = VQOSTypes::sInvalidSemHandle;
    VQSemaphoreAccess::create(mHandle, 1, 2, /*shared*/ true);
    EXPECT_EQ("mutexattr condattr mutexshared condshared mutex cond ~mutexattr ~condattr", balking::sCalls);
    EXPECT_EQ(1u, mHandle.valid);
    balking::sShared = PTHREAD_PROCESS_PRIVATE;
    std::memset(static_cast<void*>(&mHandle), 0xA5, sizeof mHandle);
    VQSemaphoreAccess::create(mHandle, 1, 2, /*shared*/ false);
    balking::sShared = PTHREAD_PROCESS_SHARED;
    EXPECT_EQ(1u, mHandle.valid);
    EXPECT_EQ(1u, mHandle.count);
    EXPECT_EQ(2u, mHandle.maxCount);
    EXPECT_EQ(0u, mHandle.waiters);
}

TEST_F(SemaphoreRefused, RefusedAttributesAreReportedAndEndTheCreation) {
    const Strings expected{"Failed initializing mutex/condition attributes.", "VQSemaphoreAccessQNX:140"};
    EXPECT_EQ(expected, create("mutexattr", 12));
    EXPECT_EQ("mutexattr condattr ~condattr", balking::sCalls);
    EXPECT_EQ(expected, create("condattr", 12));
    EXPECT_EQ("mutexattr condattr ~mutexattr", balking::sCalls);
    EXPECT_EQ(expected, create("mutexshared", 22));
    EXPECT_EQ("mutexattr condattr mutexshared ~mutexattr ~condattr", balking::sCalls);
    EXPECT_EQ(expected, create("condshared", 22));
    EXPECT_EQ("mutexattr condattr mutexshared condshared ~mutexattr ~condattr", balking::sCalls);
}

TEST_F(SemaphoreRefused, ARefusedMutexOrConditionIsReportedWithItsError) {
    EXPECT_EQ((Strings{"Failed to create mutex: error=11", "VQSemaphoreAccessQNX:140"}), create("mutex", 11));
    EXPECT_EQ("mutexattr condattr mutexshared condshared mutex ~mutexattr ~condattr", balking::sCalls);
    EXPECT_EQ((Strings{"Failed to create condition variable: error=11", "VQSemaphoreAccessQNX:140"}),
              create("cond", 11));
    EXPECT_EQ("mutexattr condattr mutexshared condshared mutex cond ~mutex ~mutexattr ~condattr", balking::sCalls);
}

TEST_F(SemaphoreRefused, DestroyingIgnoresTheConditionAndReportsTheMutex) {
    makeValid(1, 1);
    balking::sRefused["~cond"] = 16;
    VQSemaphoreAccess::destroy(mHandle);
    EXPECT_THAT(mLog.takeSites(), IsEmpty());
    balking::sRefused["~mutex"] = 16;
    VQSemaphoreAccess::destroy(mHandle);
    EXPECT_THAT(mLog.takeSites(), ElementsAre("Failed to destroy semaphore: error=16"));
}

TEST_F(SemaphoreRefused, APostGivesTheResultOfTheLastCall) {
    makeValid(0, 1);
    balking::sRefused["lock"] = 5;
    EXPECT_EQ(5, VQSemaphoreAccess::unlock(mHandle));
    makeValid(0, 1);
    balking::sRefused["unlock"] = 1;
    EXPECT_EQ(1, VQSemaphoreAccess::unlock(mHandle));
    EXPECT_EQ(1, VQSemaphoreAccess::unlock(mHandle));  // beyond the bound
    EXPECT_EQ(1u, mHandle.count);
    makeValid(0, 1, 1);
    balking::sRefused["unlock"] = 1;
    balking::sRefused["signal"] = 7;
    EXPECT_EQ(7, VQSemaphoreAccess::unlock(mHandle));
    EXPECT_EQ("lock unlock signal", balking::sCalls);
}

TEST_F(SemaphoreRefused, Kept_AnUnlimitedWaitThatFailsLocksTheMutexOnceMore) {  // semaphore-locks-again
    makeValid(0, 1);
    balking::sRefused["wait"] = 22;
    EXPECT_FALSE(VQSemaphoreAccess::lock(mHandle, -1));
    EXPECT_EQ(22, errno);
    EXPECT_EQ("lock wait lock", balking::sCalls);
    EXPECT_EQ(0u, mHandle.waiters);
}

TEST_F(SemaphoreRefused, AnUnlimitedLockLeavesTheErrorOfItsMutex) {
    makeValid(1, 1);
    balking::sRefused["lock"] = 5;
    EXPECT_FALSE(VQSemaphoreAccess::lock(mHandle, -1));
    EXPECT_EQ(5, errno);
    makeValid(1, 1);
    balking::sRefused["unlock"] = 1;
    EXPECT_FALSE(VQSemaphoreAccess::lock(mHandle, -1));
    EXPECT_EQ(1, errno);
}

TEST_F(SemaphoreRefused, ASingleAttemptLeavesTheErrorOfItsMutex) {
    makeValid(1, 1);
    balking::sRefused["trylock"] = EBUSY;
    EXPECT_FALSE(VQSemaphoreAccess::lock(mHandle, 0));
    EXPECT_EQ(EBUSY, errno);
    for (const unsigned count : {0u, 1u}) {
        makeValid(count, 1);
        balking::sRefused["unlock"] = 1;
        EXPECT_FALSE(VQSemaphoreAccess::lock(mHandle, 0));
        EXPECT_EQ(1, errno);
        EXPECT_EQ(0u, mHandle.count);
    }
}

TEST_F(SemaphoreRefused, ATimedLockArmsBeforeEachWait) {
    makeValid(0, 1);
    balking::sRefused["wait"] = ETIMEDOUT;
    EXPECT_FALSE(VQSemaphoreAccess::lock(mHandle, 10));
    EXPECT_EQ(ETIMEDOUT, errno);
    EXPECT_EQ("deadline arm2000 lock arm6000 wait unlock", balking::sCalls);
    EXPECT_EQ(0u, mHandle.waiters);
}

TEST_F(SemaphoreRefused, ATimedLockThatIsWokenInVainWaitsOnToItsDeadline) {
    makeValid(0, 1);
    balking::sRefused["wait after"] = ETIMEDOUT;
    EXPECT_FALSE(VQSemaphoreAccess::lock(mHandle, 10));
    EXPECT_EQ(ETIMEDOUT, errno);
    EXPECT_EQ("deadline arm2000 lock arm6000 wait arm6000 wait unlock", balking::sCalls);
    EXPECT_EQ(0u, mHandle.waiters);
}

TEST_F(SemaphoreRefused, ATimedLockThatDoesNotBlockDisarms) {
    makeValid(1, 1);
    EXPECT_TRUE(VQSemaphoreAccess::lock(mHandle, 10));
    EXPECT_EQ(0, errno);
    EXPECT_EQ("deadline arm2000 lock unlock disarm", balking::sCalls);
}

TEST_F(SemaphoreRefused, ATimedLockWithoutATimeoutFailsForItsReason) {
    makeValid(1, 1);
    balking::sRefused["arm2000"] = 22;
    EXPECT_FALSE(VQSemaphoreAccess::lock(mHandle, 10));
    EXPECT_EQ(22, errno);
    EXPECT_EQ("deadline arm2000", balking::sCalls);
    makeValid(0, 1);
    balking::sRefused["arm6000"] = 22;
    EXPECT_FALSE(VQSemaphoreAccess::lock(mHandle, 10));
    EXPECT_EQ(22, errno);
    EXPECT_EQ("deadline arm2000 lock arm6000 unlock disarm", balking::sCalls);
    EXPECT_EQ(0u, mHandle.waiters);
}

TEST_F(SemaphoreRefused, ATimedLockGoesOnWithoutADeadlineWhenThereIsNoReason) {
    makeValid(1, 1);
    balking::sRefused["deadline"] = 1;
    EXPECT_TRUE(VQSemaphoreAccess::lock(mHandle, 10));
    EXPECT_EQ("deadline lock unlock disarm", balking::sCalls);
}

TEST_F(SemaphoreRefused, ATimedLockLeavesTheErrorThatCounts) {
    const struct {
        int line, lock, wait, unlock, found;
    } kRows[] = {
        {__LINE__, 5, 0, 0, 5},           {__LINE__, ETIMEDOUT, 0, 0, ETIMEDOUT},
        {__LINE__, 0, ETIMEDOUT, 1, 1},  // the unlock's, when the wait only expired
        {__LINE__, 0, EINVAL, 1, EINVAL}, {__LINE__, 0, EINVAL, 0, EINVAL},
        {__LINE__, 0, EPERM, 0, EPERM},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        makeValid(0, 1);
        balking::sRefused = {{"lock", row.lock}, {"wait", row.wait}, {"unlock", row.unlock}};
        EXPECT_FALSE(VQSemaphoreAccess::lock(mHandle, 10));
        EXPECT_EQ(row.found, errno);
        EXPECT_EQ(row.found != ETIMEDOUT, balking::sCalls.find("disarm") != std::string::npos);
    }
    makeValid(1, 1);
    balking::sRefused["unlock"] = 1;
    EXPECT_FALSE(VQSemaphoreAccess::lock(mHandle, 10));
    EXPECT_EQ(1, errno);
}

TEST_F(SemaphoreRefused, AConditionTellsWhichStepWasRefused) {
    _sync condition = {};
    const struct {
        const char* call;
        const char* calls;
    } kRows[] = {
        {"condattr", "condattr"},
        {"clock", "condattr clock ~condattr"},
        {"cond", "condattr clock cond ~condattr"},
    };
    for (const auto& row : kRows) {
        reset();
        balking::sRefused[row.call] = 12;
        EXPECT_FALSE(VQConditionVariableAccess::create(condition));
        EXPECT_EQ(12, errno);
        EXPECT_EQ(row.calls, balking::sCalls);
    }
    reset();
    errno = EACCES;
    EXPECT_TRUE(VQConditionVariableAccess::create(condition));
    EXPECT_EQ(EACCES, errno);
    EXPECT_EQ("condattr clock cond ~condattr", balking::sCalls);
}

TEST_F(SemaphoreRefused, AWaitConditionThatCannotBeCreatedEndsTheProcess) {
    const auto result = support::runInChild([] {
        balking::sRefused["cond"] = ENOMEM;
        const CVQWaitConditionThatBalks condition;
    });
    EXPECT_TRUE(result.killedBy(SIGABRT)) << result;
    EXPECT_THAT(mLog.takeSites(),
                ElementsAre("cannot create wait condition (operating system error " + std::to_string(ENOMEM) +
                            ", Cannot allocate memory) - aborting process"));
}

TEST_F(SemaphoreRefused, AWaitConditionThatCannotBeDestroyedIsReported) {
    support::SlogCapture log;
    {
        const CVQWaitConditionThatBalks condition;
        balking::sRefused["~cond"] = EBUSY;
    }
    const std::vector<support::LoggedRecord> records = log.records();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ(2, records[0].severity);
    EXPECT_NE(std::string::npos, records[0].text.find("cannot destroy wait condition (operating system error " +
                                                      std::to_string(EBUSY)));
}

TEST_F(SemaphoreRefused, ATriggerPassesRefusalsOn) {
    VQOSTypes::TRIGGER_HANDLE trigger = VQOSTypes::sInvalidTriggerHandle;
    balking::sRefused["getvalue"] = -1;
    EXPECT_FALSE(VQTriggerAccess::signal(trigger));
    EXPECT_EQ("getvalue", balking::sCalls);
    reset();
    balking::sRefused["post"] = -1;
    EXPECT_FALSE(VQTriggerAccess::signal(trigger));
    reset();
    balking::sRefused["trywait"] = EIO;
    EXPECT_EQ(-1, VQTriggerAccess::tryWait(trigger));
    reset();
    balking::sRefused = {{"trywait", EINTR}, {"trywait after", EAGAIN}};
    EXPECT_EQ(0, VQTriggerAccess::tryWait(trigger));
    EXPECT_EQ("trywait trywait", balking::sCalls);
    reset();
    balking::sRefused = {{"trywait", EINTR}, {"trywait after", 0}};
    EXPECT_EQ(1, VQTriggerAccess::tryWait(trigger));
}
