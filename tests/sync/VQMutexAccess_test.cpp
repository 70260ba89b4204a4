// VQMutexAccess: the attributes of a new mutex, waiting without limit, trying once, time-outs on both sides of zero,
// signals, many threads, several processes, and the reports of refused calls.
#include <VQMutexAccess.h>

#include "LockTesting.h"
#include "support/ChildProcess.h"
#include "support/ScopedEnvironment.h"
#include "support/SlogCapture.h"

#include <CVQAsserter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using namespace locktest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

void createPlain(_sync& mutex) {
    VQMutexAccess::create(mutex, /*unlocked*/ true, /*shared*/ false, /*recursive*/ false);
}

bool isHeld(_sync& mutex) {
    const bool taken = inAnotherThread([&mutex] {
        const bool locked = VQMutexAccess::lock(mutex, 0);
        if (locked) {
            pthread_mutex_unlock(&mutex);
        }
        return locked;
    });
    return !taken;
}

/// Memory that forked children have in common with this process.
template <class T>
T& shared() {
    void* const place =
        mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, /*fd*/ -1, /*offset*/ 0);
    return *new (place) T{};
}

class CSignalStorm {
public:
    explicit CSignalStorm(pthread_t target)
        : mThread([this, target] {
              while (!mStop) {
                  pthread_kill(target, SIGUSR1);
                  std::this_thread::sleep_for(std::chrono::microseconds(200));
              }
          }) {}
    ~CSignalStorm() {
        mStop = true;
        mThread.join();
    }
    CSignalStorm(const CSignalStorm&) = delete;
    CSignalStorm& operator=(const CSignalStorm&) = delete;

    static void install() {
        struct sigaction action = {};
        action.sa_handler = [](int) { ++sCaught; };  // without SA_RESTART
        sigaction(SIGUSR1, &action, nullptr);
    }

    static inline std::atomic<int> sCaught{0};

private:
    std::atomic<bool> mStop{false};
    std::thread mThread;
};

}  // namespace

TEST(VQMutexAccess, CreatesAMutexFreeOrHeldByItsCreator) {
    _sync mutex;
    createPlain(mutex);
    EXPECT_FALSE(isHeld(mutex));
    VQMutexAccess::destroy(mutex);

    VQMutexAccess::create(mutex, /*unlocked*/ false, /*shared*/ false, /*recursive*/ false);
    EXPECT_TRUE(isHeld(mutex));
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
    EXPECT_FALSE(isHeld(mutex));
    VQMutexAccess::destroy(mutex);
}

TEST(VQMutexAccess, ARecursiveMutexIsUnlockedAsOftenAsItWasLocked) {
    _sync mutex;
    VQMutexAccess::create(mutex, /*unlocked*/ false, /*shared*/ false, /*recursive*/ true);
    EXPECT_TRUE(VQMutexAccess::lock(mutex, -1));
    EXPECT_TRUE(VQMutexAccess::lock(mutex, 0));
    EXPECT_TRUE(VQMutexAccess::lock(mutex, 10));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
        EXPECT_TRUE(isHeld(mutex));
    }
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
    EXPECT_FALSE(isHeld(mutex));
    EXPECT_EQ(EPERM, pthread_mutex_unlock(&mutex));
    VQMutexAccess::destroy(mutex);
}

TEST(VQMutexAccess, AMutexThatIsNotRecursiveIsNotLockedTwice) {
    _sync mutex;
    VQMutexAccess::create(mutex, /*unlocked*/ false, /*shared*/ false, /*recursive*/ false);
    EXPECT_FALSE(VQMutexAccess::lock(mutex, 0));
    EXPECT_FALSE(VQMutexAccess::lock(mutex, 20));
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
    VQMutexAccess::destroy(mutex);
}

TEST(VQMutexAccess, TriesOnceAtZeroAndReturnsAtOnce) {
    _sync mutex;
    createPlain(mutex);
    EXPECT_TRUE(VQMutexAccess::lock(mutex, 0));
    pthread_mutex_unlock(&mutex);
    {
        const CHolder holder(mutex);
        EXPECT_LT(durationOf([&] { EXPECT_FALSE(VQMutexAccess::lock(mutex, 0)); }), milliseconds(1000));
    }
    VQMutexAccess::destroy(mutex);
}

TEST(VQMutexAccess, WaitsNoShorterThanItsTimeOut) {
    _sync mutex;
    createPlain(mutex);
    {
        const CHolder holder(mutex);
        for (const int timeoutMs : {1, 20, 60}) {
            EXPECT_GE(durationOf([&] { EXPECT_FALSE(VQMutexAccess::lock(mutex, timeoutMs)); }),
                      milliseconds(timeoutMs));
        }
    }
    VQMutexAccess::destroy(mutex);
}

TEST(VQMutexAccess, ATimeOutOf1500TakesOneAndAHalfSeconds) {
    _sync mutex;
    createPlain(mutex);
    {
        const CHolder holder(mutex);
        const milliseconds taken = durationOf([&] { EXPECT_FALSE(VQMutexAccess::lock(mutex, 1500)); });
        EXPECT_GE(taken, milliseconds(1500));
        EXPECT_LT(taken, milliseconds(10000));
    }
    VQMutexAccess::destroy(mutex);
}

TEST(VQMutexAccess, AFreeMutexIsTakenWhateverTheTimeOut) {
    _sync mutex;
    createPlain(mutex);
    for (const int timeoutMs : {INT_MIN, INT_MIN + 1, -1001, -1000, -999, -2, -1, 0, 1, 999, 1000, INT_MAX}) {
        EXPECT_TRUE(VQMutexAccess::lock(mutex, timeoutMs)) << timeoutMs;
        EXPECT_EQ(0, pthread_mutex_unlock(&mutex)) << timeoutMs;
    }
    VQMutexAccess::destroy(mutex);
}

TEST(VQMutexAccess, Kept_ATimeOutBelowMinusOneIsADeadlineInThePast) {  // id: mutex-timeout-below-minus-one
    _sync mutex;
    createPlain(mutex);
    {
        const CHolder holder(mutex);
        for (const int timeoutMs : {INT_MIN, -1000000, -1001, -1000, -999, -2}) {
            EXPECT_LT(durationOf([&] { EXPECT_FALSE(VQMutexAccess::lock(mutex, timeoutMs)); }), milliseconds(1000))
                << timeoutMs;
        }
    }
    VQMutexAccess::destroy(mutex);
}

TEST(VQMutexAccess, AWaitEndsWhenTheHolderLetsGo) {
    for (const int timeoutMs : {-1, 20000, INT_MAX}) {
        _sync mutex;
        createPlain(mutex);
        std::atomic<bool> released{false};
        pthread_mutex_lock(&mutex);
        std::thread waiter([&] {
            EXPECT_TRUE(VQMutexAccess::lock(mutex, timeoutMs));
            EXPECT_TRUE(released);
            pthread_mutex_unlock(&mutex);
        });
        std::this_thread::sleep_for(milliseconds(20));
        released = true;
        pthread_mutex_unlock(&mutex);
        waiter.join();
        VQMutexAccess::destroy(mutex);
    }
}

TEST(VQMutexAccess, NothingIsLoggedAboutALockThatIsNotHad) {
    support::SlogCapture log;
    _sync mutex;
    createPlain(mutex);
    {
        const CHolder holder(mutex);
        EXPECT_FALSE(VQMutexAccess::lock(mutex, 0));
        EXPECT_FALSE(VQMutexAccess::lock(mutex, 5));
        EXPECT_FALSE(VQMutexAccess::lock(mutex, -5));
    }
    VQMutexAccess::destroy(mutex);
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST(VQMutexAccess, SignalsNeitherEndNorShortenAWait) {
    CSignalStorm::install();
    _sync mutex;
    createPlain(mutex);
    {
        const CHolder holder(mutex);
        const CSignalStorm storm(pthread_self());
        const int before = CSignalStorm::sCaught;
        EXPECT_GE(durationOf([&] { EXPECT_FALSE(VQMutexAccess::lock(mutex, 200)); }), milliseconds(200));
        EXPECT_GT(CSignalStorm::sCaught, before);
    }
    pthread_mutex_lock(&mutex);
    std::atomic<bool> released{false};
    std::atomic<bool> waiting{false};
    std::thread waiter([&] {
        waiting = true;
        EXPECT_TRUE(VQMutexAccess::lock(mutex, -1));
        EXPECT_TRUE(released);
        pthread_mutex_unlock(&mutex);
        waiting = false;
        while (!waiting) {
            std::this_thread::yield();
        }
    });
    while (!waiting) {
        std::this_thread::yield();
    }
    {
        const CSignalStorm storm(waiter.native_handle());
        std::this_thread::sleep_for(milliseconds(50));
        released = true;
        pthread_mutex_unlock(&mutex);
        while (waiting) {
            std::this_thread::yield();
        }
    }
    waiting = true;
    waiter.join();
    VQMutexAccess::destroy(mutex);
}

TEST(VQMutexAccess, ManyThreadsExcludeEachOtherHoweverTheyAsk) {
    for (const bool recursive : {false, true}) {
        _sync mutex;
        VQMutexAccess::create(mutex, /*unlocked*/ true, /*shared*/ false, recursive);
        const auto lock = [&mutex](int round) {
            const int timeoutMs[] = {-1, 60000, 0};
            while (!VQMutexAccess::lock(mutex, timeoutMs[round % 3])) {
                std::this_thread::yield();
            }
        };
        EXPECT_EQ(kCountingThreads * kCountingRounds, countTogether(lock, [&] { pthread_mutex_unlock(&mutex); }));
        VQMutexAccess::destroy(mutex);
    }
}

TEST(VQMutexAccess, ProcessesThatMapASharedMutexExcludeEachOther) {
    struct SShared {
        _sync mutex;
        long count;
    };
    auto& common = shared<SShared>();
    VQMutexAccess::create(common.mutex, /*unlocked*/ true, /*shared*/ true, /*recursive*/ false);
    std::vector<pid_t> children;
    for (int i = 0; i < 4; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            for (int round = 0; round < 5000; ++round) {
                if (!VQMutexAccess::lock(common.mutex, round % 2 == 0 ? -1 : 60000)) {
                    _exit(1);
                }
                const long before = common.count;
                if (round % 100 == 0) {
                    sched_yield();
                }
                common.count = before + 1;
                pthread_mutex_unlock(&common.mutex);
            }
            _exit(0);
        }
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    EXPECT_EQ(20000, common.count);
    VQMutexAccess::destroy(common.mutex);
    munmap(&common, sizeof common);
}

TEST(VQMutexAccess, AProcessWaitsForASharedMutexThatAnotherOneHolds) {
    struct SShared {
        _sync mutex;
        std::atomic<int> step;
    };
    auto& common = shared<SShared>();
    VQMutexAccess::create(common.mutex, /*unlocked*/ false, /*shared*/ true, /*recursive*/ false);
    support::ChildProcess child([&common] {
        EXPECT_FALSE(VQMutexAccess::lock(common.mutex, 0));
        EXPECT_FALSE(VQMutexAccess::lock(common.mutex, 20));
        common.step = 1;
        EXPECT_TRUE(VQMutexAccess::lock(common.mutex, -1));
        EXPECT_EQ(2, common.step);
        EXPECT_EQ(0, pthread_mutex_unlock(&common.mutex));
    });
    while (common.step != 1) {
        std::this_thread::sleep_for(milliseconds(1));
    }
    std::this_thread::sleep_for(milliseconds(20));
    common.step = 2;
    EXPECT_EQ(0, pthread_mutex_unlock(&common.mutex));
    const support::ChildResult r = child.finish();
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_TRUE(VQMutexAccess::lock(common.mutex, 0));
    pthread_mutex_unlock(&common.mutex);
    VQMutexAccess::destroy(common.mutex);
    munmap(&common, sizeof common);
}

TEST(VQMutexAccess, DestroyingAHeldMutexIsLoggedAndAnAssertionThatReturns) {
    support::SlogCapture log;
    support::ScopedEnvironment directory("VQ_ASSERTION_BACKTRACE_DIR", "/nowhere");
    const support::ChildResult r = support::runInChild([] {
        _sync mutex;
        VQMutexAccess::create(mutex, /*unlocked*/ false, /*shared*/ false, /*recursive*/ false);
        VQMutexAccess::destroy(mutex);
        pthread_mutex_unlock(&mutex);
        VQMutexAccess::destroy(mutex);
    });
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_EQ("\nVQMutexAccessQNX:102: ASSERTION failed\n", r.err);
    const std::string prefix = "pid " + std::to_string(r.pid) + ": ";
    const std::vector<support::LoggedRecord> records = log.records();
    ASSERT_EQ(3u, records.size());
    EXPECT_EQ(prefix + "Failed to destroy mutex: error=" + std::to_string(EBUSY), records[0].text);
    EXPECT_EQ(1, records[0].severity);
    EXPECT_EQ(10000u, records[0].opcode());
    EXPECT_EQ(prefix + "VQMutexAccessQNX:102: ASSERTION failed", records[1].text);
}
