// VQMutexAccess::create on a platform that refuses: each step's report, and that the steps after it are still taken.
// CVQMutex: what it asks for. CVQCriticalSection: the reports of what it is refused.
// The units are compiled here a second time, under other names and against calls that fail on demand.
#include "support/ChildProcess.h"
#include "support/ScopedEnvironment.h"
#include "support/SlogCapture.h"

#include <CVQAsserter.h>
#include <VQSyslog.h>
#include <sync/MonotonicDeadline.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <pthread.h>
#include <string>
#include <vector>

namespace refusing {

std::string sCalls;
int sInit, sRecursive, sShared, sMutex, sDestroy;

int attrInit(pthread_mutexattr_t* attributes) {
    sCalls += "attr ";
    return sInit != 0 ? sInit : pthread_mutexattr_init(attributes);
}
int setRecursive(pthread_mutexattr_t* attributes, int value) {
    if (sInit != 0) {
        static const pthread_mutexattr_t kZeros = {};
        sCalls += std::memcmp(attributes, &kZeros, sizeof kZeros) == 0 ? "zeros " : "whatever lay there ";
    }
    sCalls += "recursive=" + std::to_string(value) + ' ';
    return sRecursive;
}
int setShared(pthread_mutexattr_t*, int value) {
    sCalls += "shared=" + std::to_string(value) + ' ';
    return sShared;
}
int mutexInit(_sync* mutex, const pthread_mutexattr_t* attributes) {
    sCalls += attributes != nullptr ? "mutex " : "mutex by default ";
    *mutex = {};
    return sMutex;
}
int mutexLock(_sync*) {
    sCalls += "lock ";
    return EINVAL;  // ignored
}
int mutexDestroy(_sync*) {
    return sDestroy;
}
int attrDestroy(pthread_mutexattr_t* attributes) {
    sCalls += "end";
    return sInit != 0 ? sInit : pthread_mutexattr_destroy(attributes);
}

/// Leaves no zeros where the next call has its local objects.
[[gnu::noinline]] void soilTheStack() {
    volatile unsigned char dirt[4096];
    for (volatile unsigned char& byte : dirt) {
        byte = 0xDD;
    }
}

}  // namespace refusing

#define VQMutexAccess VQMutexAccessOnARefusingPlatform
#define CVQMutex CVQMutexOnARefusingPlatform
#define CVQCriticalSection CVQCriticalSectionOnARefusingPlatform
#define pthread_mutexattr_init refusing::attrInit
#define pthread_mutexattr_setrecursive refusing::setRecursive
#define pthread_mutexattr_setpshared refusing::setShared
#define pthread_mutex_init refusing::mutexInit
#define pthread_mutex_lock refusing::mutexLock
#define pthread_mutex_destroy refusing::mutexDestroy
#define pthread_mutexattr_destroy refusing::attrDestroy
#include "sync/CVQCriticalSectionQNX.cpp"
#include "sync/CVQMutex.cpp"
#include "sync/VQMutexAccessQNX.cpp"

namespace {

class VQMutexAccessRefused : public testing::Test {
protected:
    void SetUp() override {
        refusing::sCalls.clear();
        refusing::sInit = refusing::sRecursive = refusing::sShared = refusing::sMutex = refusing::sDestroy = 0;
    }

    /// What the library logged, without the prefix that names the process.
    std::vector<std::string> texts() {
        std::vector<std::string> texts;
        for (const support::LoggedRecord& record : mLog.records()) {
            texts.push_back(std::to_string(record.severity) + record.text.substr(record.text.find(':') + 1));
        }
        return texts;
    }

    _sync mMutex = {};
    support::SlogCapture mLog;
    support::ScopedEnvironment mDirectory{"VQ_ASSERTION_BACKTRACE_DIR", "/nowhere"};
    support::ScopedEnvironment mAbort{"VQ_ENABLE_ABORT_ON_ASSERTION", std::nullopt};
};

using testing::ElementsAre;
using testing::IsEmpty;

}  // namespace

TEST_F(VQMutexAccessRefused, NothingIsLoggedWhenAllStepsSucceed) {
    VQMutexAccess::create(mMutex, /*unlocked*/ true, /*shared*/ true, /*recursive*/ true);
    EXPECT_EQ("attr recursive=2 shared=1 mutex end", refusing::sCalls);
    EXPECT_THAT(texts(), IsEmpty());

    refusing::sCalls.clear();
    VQMutexAccess::create(mMutex, /*unlocked*/ false, /*shared*/ false, /*recursive*/ false);
    EXPECT_EQ("attr recursive=0 shared=0 mutex lock end", refusing::sCalls);
    EXPECT_THAT(texts(), IsEmpty());
}

TEST_F(VQMutexAccessRefused, Kept_TheAttributeObjectsRefusalSaysTpthread) {  // id: log-tpthread
    refusing::sInit = 12;
    VQMutexAccess::create(mMutex, /*unlocked*/ true, /*shared*/ false, /*recursive*/ false);
    EXPECT_THAT(texts(), ElementsAre("1 Failed tpthread_mutexattr_init: error=12"));
    EXPECT_EQ("attr zeros recursive=0 shared=0 mutex end", refusing::sCalls);
}

TEST_F(VQMutexAccessRefused, TheStepsAfterARefusedAttributeObjectSeeZeros) {
    refusing::sInit = 12;
    refusing::soilTheStack();
    VQMutexAccess::create(mMutex, /*unlocked*/ true, /*shared*/ true, /*recursive*/ true);
    EXPECT_EQ("attr zeros recursive=2 shared=1 mutex end", refusing::sCalls);
}

TEST_F(VQMutexAccessRefused, ARefusedRecursionIsLoggedWithTheFlag) {
    refusing::sRecursive = 22;
    VQMutexAccess::create(mMutex, /*unlocked*/ true, /*shared*/ false, /*recursive*/ true);
    VQMutexAccess::create(mMutex, /*unlocked*/ true, /*shared*/ false, /*recursive*/ false);
    EXPECT_THAT(texts(), ElementsAre("1 Failed pthread_mutexattr_setrecursive: error=22 Recursive: 1",
                                     "1 Failed pthread_mutexattr_setrecursive: error=22 Recursive: 0"));
    EXPECT_EQ("attr recursive=2 shared=0 mutex endattr recursive=0 shared=0 mutex end", refusing::sCalls);
}

TEST_F(VQMutexAccessRefused, ARefusedSharingIsLoggedWithTheFlag) {
    refusing::sShared = 22;
    VQMutexAccess::create(mMutex, /*unlocked*/ true, /*shared*/ true, /*recursive*/ false);
    VQMutexAccess::create(mMutex, /*unlocked*/ true, /*shared*/ false, /*recursive*/ false);
    EXPECT_THAT(texts(), ElementsAre("1 Failed pthread_mutexattr_setpshared: error=22 shareable: 1",
                                     "1 Failed pthread_mutexattr_setpshared: error=22 shareable: 0"));
}

TEST_F(VQMutexAccessRefused, ARefusedMutexIsAnAssertionAfterWhichTheStepsGoOn) {
    refusing::sMutex = 11;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    VQMutexAccess::create(mMutex, /*unlocked*/ false, /*shared*/ false, /*recursive*/ false);
    EXPECT_EQ("\nVQMutexAccessQNX:76: ASSERTION failed\n", testing::internal::GetCapturedStderr());
    testing::internal::GetCapturedStdout();  // that the backtrace has no directory
    EXPECT_THAT(texts(),
                ElementsAre("1 Failed to create mutex: error=11", "2 VQMutexAccessQNX:76: ASSERTION failed",
                            "1 ASSERTION \"???\" failed in VQMutexAccessQNX 76"));
    EXPECT_EQ("attr recursive=0 shared=0 mutex lock end", refusing::sCalls);
}

TEST_F(VQMutexAccessRefused, EveryRefusalOfOneCreationIsLogged) {
    refusing::sInit = 1;
    refusing::sRecursive = 2;
    refusing::sShared = 3;
    refusing::sMutex = 4;
    const support::ChildResult r = support::runInChild(
        [this] { VQMutexAccess::create(mMutex, /*unlocked*/ true, /*shared*/ true, /*recursive*/ true); });
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_THAT(texts(), ElementsAre("1 Failed tpthread_mutexattr_init: error=1",
                                     "1 Failed pthread_mutexattr_setrecursive: error=2 Recursive: 1",
                                     "1 Failed pthread_mutexattr_setpshared: error=3 shareable: 1",
                                     "1 Failed to create mutex: error=4", "2 VQMutexAccessQNX:76: ASSERTION failed",
                                     "1 ASSERTION \"???\" failed in VQMutexAccessQNX 76"));
}

TEST_F(VQMutexAccessRefused, AMutexThatCannotBeDestroyedIsAnAssertion) {
    refusing::sDestroy = 16;
    const support::ChildResult r = support::runInChild([this] { VQMutexAccess::destroy(mMutex); });
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_EQ("\nVQMutexAccessQNX:102: ASSERTION failed\n", r.err);
    EXPECT_THAT(texts(),
                ElementsAre("1 Failed to destroy mutex: error=16", "2 VQMutexAccessQNX:102: ASSERTION failed",
                            "1 ASSERTION \"???\" failed in VQMutexAccessQNX 102"));
}

TEST_F(VQMutexAccessRefused, TheAbortVariableEndsTheProcessAtTheAssertion) {
    refusing::sMutex = 11;
    support::ChildOptions options;
    options.environment = {{"VQ_ENABLE_ABORT_ON_ASSERTION", ""}};
    const support::ChildResult r = support::runInChild(
        [this] { VQMutexAccess::create(mMutex, /*unlocked*/ true, /*shared*/ false, /*recursive*/ false); },
        options);
    EXPECT_TRUE(r.killedBy(SIGABRT)) << r;
}

using CVQMutexRefused = VQMutexAccessRefused;

TEST_F(CVQMutexRefused, AsksForAMutexOfItsOwnProcessLockedAndRecursiveAsTold) {
    const struct {
        int line;
        bool unlocked;
        CVQMutex::RecursionMode mode;
        const char* calls;
    } kRows[] = {
        {__LINE__, true, CVQMutex::RECURSIVE, "attr recursive=2 shared=0 mutex end"},
        {__LINE__, true, CVQMutex::NON_RECURSIVE, "attr recursive=0 shared=0 mutex end"},
        {__LINE__, false, CVQMutex::RECURSIVE, "attr recursive=2 shared=0 mutex lock end"},
        {__LINE__, false, CVQMutex::NON_RECURSIVE, "attr recursive=0 shared=0 mutex lock end"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        refusing::sCalls.clear();
        const CVQMutex mutex(row.unlocked, row.mode);
        EXPECT_EQ(row.calls, refusing::sCalls);
    }
    EXPECT_THAT(texts(), IsEmpty());
}

using CVQCriticalSectionRefused = VQMutexAccessRefused;

TEST_F(CVQCriticalSectionRefused, OneThatCannotBeCreatedOrDestroyedIsLoggedAndIsNoAssertion) {
    testing::internal::CaptureStderr();
    std::optional<CVQCriticalSection> section(std::in_place);
    EXPECT_EQ("mutex by default ", refusing::sCalls);
    section.reset();
    EXPECT_THAT(texts(), IsEmpty());

    refusing::sMutex = 11;
    section.emplace();
    EXPECT_THAT(texts(), ElementsAre("1 Failed to create CVQCriticalSection: error=11"));
    EXPECT_EQ(EINVAL, section->lock());  // what the platform makes of it
    refusing::sDestroy = 16;
    section.reset();
    EXPECT_THAT(texts(), ElementsAre("1 Failed to create CVQCriticalSection: error=11",
                                     "1 Failed to destroy CVQCriticalSection: error=16"));
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
}
