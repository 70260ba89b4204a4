// VQMutexAccess::create on a platform that refuses: each step's report, and that the steps after it are still taken.
// The unit is compiled here a second time, under another name and against calls that fail on demand.
#include "support/ChildProcess.h"
#include "support/ScopedEnvironment.h"
#include "support/SlogCapture.h"

#include <CVQAsserter.h>
#include <VQSyslog.h>
#include <sync/MonotonicDeadline.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <pthread.h>
#include <string>
#include <vector>

namespace refusing {

std::string sCalls;
int sInit, sRecursive, sShared, sMutex, sDestroy;

int attrInit(pthread_mutexattr_t* attributes) {
    sCalls += "attr ";
    pthread_mutexattr_init(attributes);
    return sInit;
}
int setRecursive(pthread_mutexattr_t*, int value) {
    sCalls += "recursive=" + std::to_string(value) + ' ';
    return sRecursive;
}
int setShared(pthread_mutexattr_t*, int value) {
    sCalls += "shared=" + std::to_string(value) + ' ';
    return sShared;
}
int mutexInit(_sync* mutex, const pthread_mutexattr_t*) {
    sCalls += "mutex ";
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
    return pthread_mutexattr_destroy(attributes);
}

}  // namespace refusing

#define VQMutexAccess VQMutexAccessOnARefusingPlatform
#define pthread_mutexattr_init refusing::attrInit
#define pthread_mutexattr_setrecursive refusing::setRecursive
#define pthread_mutexattr_setpshared refusing::setShared
#define pthread_mutex_init refusing::mutexInit
#define pthread_mutex_lock refusing::mutexLock
#define pthread_mutex_destroy refusing::mutexDestroy
#define pthread_mutexattr_destroy refusing::attrDestroy
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
    EXPECT_EQ("attr recursive=0 shared=0 mutex end", refusing::sCalls);
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
