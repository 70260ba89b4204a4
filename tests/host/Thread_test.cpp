// Concerns: ids; joining and its errors; time-outs; ends of every kind; priorities, names, masks; forked children;
// threads of the C++ library.
#include "MessageTesting.h"
#include "Spin.h"

#include "support/ChildProcess.h"
#include "support/Sanitizers.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <malloc.h>
#include <memory>
#include <pthread.h>
#include <string>
#include <sys/neutrino.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::chrono_literals;

void* const kStatus = reinterpret_cast<void*>(0x1234);
constexpr int kNoPrivilege = 77;

/// A thread that runs until told to end.
class Runner {
public:
    explicit Runner(int flags = PTHREAD_CREATE_JOINABLE) {
        _thread_attr attributes = {};
        attributes.__flags = flags;
        mId = ThreadCreate(0, &Runner::run, this, &attributes);
    }
    ~Runner() {
        end();
        if (!mIsJoined)
            ThreadJoin_r(mId, nullptr);
    }
    Runner(const Runner&) = delete;
    Runner& operator=(const Runner&) = delete;

    int id() const { return mId; }
    void end() { mMayEnd = true; }
    int join(void** status = nullptr) {
        mIsJoined = true;
        return ThreadJoin_r(mId, status);
    }
    void forget() { mIsJoined = true; }

    std::atomic<int> seenId{0};
    std::atomic<bool> hasLeft{false};

private:
    static void* run(void* argument) {
        Runner& self = *static_cast<Runner*>(argument);
        self.seenId = gettid();
        while (!self.mMayEnd)
            usleep(500);
        self.hasLeft = true;
        return kStatus;
    }

    std::atomic<bool> mMayEnd{false};
    std::atomic<bool> mIsJoined{false};
    int mId;
};

void armJoin(uint64_t ns) {
    ASSERT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, _NTO_TIMEOUT_JOIN, nullptr, &ns, nullptr));
}

int priorityOf(int tid) {
    sched_param parameters = {};
    return SchedGet(0, tid, &parameters) == -1 ? -errno : parameters.sched_priority;
}

int setPriorityOf(int tid, int priority) {
    sched_param parameters = {};
    parameters.sched_priority = priority;
    return SchedSet(0, tid, SCHED_NOCHANGE, &parameters) == -1 ? errno : 0;
}

int start(void* (*function)(void*), void* argument = nullptr) {
    return ThreadCreate(0, function, argument, nullptr);
}

int startDetached(void* (*function)(void*), void* argument = nullptr) {
    _thread_attr attributes = {};
    attributes.__flags = PTHREAD_CREATE_DETACHED;
    return ThreadCreate(0, function, argument, &attributes);
}

bool isAlive(int tid) {
    return access(("/proc/self/task/" + std::to_string(tid)).c_str(), F_OK) == 0;
}

void waitForEndOf(int tid) {
    while (isAlive(tid))
        std::this_thread::sleep_for(1ms);
}

TEST(ThreadCreate, GivesTheKernelsId) {
    Runner runner;
    ASSERT_GT(runner.id(), 0);
    while (runner.seenId == 0)
        std::this_thread::yield();
    EXPECT_EQ(runner.seenId, runner.id());
    EXPECT_NE(gettid(), runner.id());
}

TEST(ThreadCreate, GivesTheIdAlsoOfThreadsThatEndAtOnce) {
    static std::atomic<int> seen;
    for (int i = 0; i < 2000; ++i) {
        seen = 0;
        const int id = start([](void*) -> void* {
            seen = gettid();
            return nullptr;
        });
        ASSERT_EQ(0, ThreadJoin_r(id, nullptr));
        ASSERT_EQ(seen, id);
    }
}

TEST(ThreadCreate, FailsWhenTheStackCannotBeHad) {
    _thread_attr attributes = {};
    attributes.__stacksize = static_cast<size_t>(-1) / 16 * 15;
    errno = 0;
    EXPECT_EQ(-1, ThreadCreate(
                      0, [](void*) -> void* { return nullptr; }, nullptr, &attributes));
    EXPECT_NE(0, errno);
    attributes.__stacksize = static_cast<size_t>(-1);
    EXPECT_EQ(-1, ThreadCreate(
                      0, [](void*) -> void* { return nullptr; }, nullptr, &attributes));
}

TEST(ThreadCreate, ReachesThisProcessOnly) {
    EXPECT_EQ(-1, ThreadCreate(
                      getppid(), [](void*) -> void* { return nullptr; }, nullptr, nullptr));
    EXPECT_EQ(ESRCH, errno);
}

TEST(ThreadCreate, LeavesErrnoWhenItSucceeds) {
    errno = EACCES;
    const int id = start([](void*) -> void* { return nullptr; });
    EXPECT_EQ(EACCES, errno);
    EXPECT_EQ(0, ThreadJoin_r(id, nullptr));
    EXPECT_EQ(EACCES, errno);
}

TEST(ThreadCreate, DetachedThreadsLeaveNothingToJoin) {
    Runner runner(PTHREAD_CREATE_DETACHED);
    EXPECT_EQ(EINVAL, ThreadJoin_r(runner.id(), nullptr));
    runner.end();
    runner.forget();
    waitForEndOf(runner.id());
    EXPECT_EQ(ESRCH, ThreadJoin_r(runner.id(), nullptr));
}

TEST(ThreadCreate, ManyDetachedThreadsComeAndGo) {
    static std::atomic<int> ended;
    ended = 0;
    constexpr int kThreads = 1000;
    for (int i = 0; i < kThreads; ++i)
        ASSERT_GT(startDetached([](void*) -> void* {
                      ++ended;
                      return nullptr;
                  }),
                  0);
    while (ended != kThreads)
        std::this_thread::yield();
}

TEST(ThreadJoin, GivesTheStatus) {
    Runner runner;
    runner.end();
    void* status = nullptr;
    EXPECT_EQ(0, runner.join(&status));
    EXPECT_EQ(kStatus, status);
    EXPECT_TRUE(runner.hasLeft);
    EXPECT_EQ(ESRCH, ThreadJoin_r(runner.id(), &status));  // once only
}

TEST(ThreadJoin, GivesTheStatusOfPthreadExit) {
    const int id = start([](void*) -> void* { pthread_exit(kStatus); });
    void* status = nullptr;
    EXPECT_EQ(0, ThreadJoin_r(id, &status));
    EXPECT_EQ(kStatus, status);
}

TEST(ThreadJoin, RefusesWhatCannotBeJoined) {
    EXPECT_EQ(EDEADLK, ThreadJoin_r(gettid(), nullptr));
    for (const int id : {0, -1, -7, INT_MIN, INT_MAX, getppid()})
        EXPECT_EQ(ESRCH, ThreadJoin_r(id, nullptr)) << id;
    std::atomic<int> id{0};
    std::atomic<bool> mayEnd{false};
    std::thread other([&] {
        id = gettid();
        while (!mayEnd)
            std::this_thread::yield();
    });
    while (id == 0)
        std::this_thread::yield();
    EXPECT_EQ(EINVAL, ThreadJoin_r(id, nullptr));
    mayEnd = true;
    other.join();
}

TEST(ThreadJoin, RefusesAThreadThatDetachedItself) {
    static std::atomic<bool> isDetached, mayEnd;
    isDetached = mayEnd = false;
    const int id = start([](void*) -> void* {
        pthread_detach(pthread_self());  // the C library's way, which the host does not hear of
        isDetached = true;
        while (!mayEnd)
            std::this_thread::yield();
        return nullptr;
    });
    while (!isDetached)
        std::this_thread::yield();
    EXPECT_EQ(EINVAL, ThreadJoin_r(id, nullptr));
    EXPECT_EQ(10, priorityOf(id)) << "it is still known";
    mayEnd = true;
}

TEST(ThreadJoin, TimesOutAndCanBeDoneAgain) {
    Runner runner;
    for (const uint64_t wait : {uint64_t{0}, kMs, 20 * kMs}) {
        const uint64_t begin = monotonicNs();
        armJoin(wait);
        EXPECT_EQ(ETIMEDOUT, ThreadJoin_r(runner.id(), nullptr));
        EXPECT_GE(monotonicNs() - begin, wait);
    }
    runner.end();
    void* status = nullptr;
    armJoin(60 * host::kNsPerSecond);
    EXPECT_EQ(0, runner.join(&status));
    EXPECT_EQ(kStatus, status);
}

TEST(ThreadJoin, TakesAnEndedThreadWhateverTheTimeSays) {
    Runner runner;
    runner.end();
    waitForEndOf(runner.id());
    armJoin(0);
    EXPECT_EQ(0, runner.join());
}

TEST(ThreadJoin, OfAnEndedThreadConsumesTheTimeout) {
    Runner ended, running;
    ended.end();
    waitForEndOf(ended.id());
    armJoin(0);
    EXPECT_EQ(0, ended.join());
    const auto ender = whenAllSleep([&] { running.end(); });
    EXPECT_EQ(0, running.join());
}

/// A thread's object, whose destructor runs after the thread's function.
struct Last {
    ~Last() {
        if (atTheEnd != nullptr)
            atTheEnd();
    }
    void (*atTheEnd)() = nullptr;
};
thread_local Last last;
std::atomic<bool> mayLeave{false};

TEST(ThreadJoin, TimesOutWhileTheDestructorsRun) {
    mayLeave = false;
    const int id = start([](void*) -> void* {
        last.atTheEnd = [] {
            while (!mayLeave)
                std::this_thread::sleep_for(1ms);
        };
        return kStatus;
    });
    std::this_thread::sleep_for(20ms);
    armJoin(0);
    EXPECT_EQ(ETIMEDOUT, ThreadJoin_r(id, nullptr));
    armJoin(10000000);
    EXPECT_EQ(ETIMEDOUT, ThreadJoin_r(id, nullptr));
    mayLeave = true;
    void* status = nullptr;
    armJoin(20 * host::kNsPerSecond);
    EXPECT_EQ(EOK, ThreadJoin_r(id, &status));
    EXPECT_EQ(kStatus, status);
}

TEST(Thread, HasItsPriorityUntilItsDestructorsAreThrough) {
    for (const int flags : {PTHREAD_CREATE_JOINABLE, PTHREAD_CREATE_DETACHED}) {
        static std::atomic<int> found;
        static std::atomic<bool> isAtItsEnd;
        found = 0;
        isAtItsEnd = mayLeave = false;
        _thread_attr attributes = {};
        attributes.__flags = flags;
        const int id = ThreadCreate(
            0,
            [](void*) -> void* {
                setPriorityOf(0, 21);
                last.atTheEnd = [] {
                    isAtItsEnd = true;
                    while (!mayLeave)
                        std::this_thread::sleep_for(1ms);
                    found = priorityOf(0);
                };
                return nullptr;
            },
            nullptr, &attributes);
        while (!isAtItsEnd)
            std::this_thread::sleep_for(1ms);
        ThreadJoin_r(start([](void*) -> void* { return nullptr; }), nullptr);  // frees the records of ended threads
        EXPECT_EQ(21, priorityOf(id));
        mayLeave = true;
        if (flags == PTHREAD_CREATE_JOINABLE)
            ThreadJoin_r(id, nullptr);
        while (found == 0)
            std::this_thread::sleep_for(1ms);
        EXPECT_EQ(21, found);
    }
}

TEST(ThreadJoin, ConsumesTheTimeoutEvenIfItIsRefused) {
    for (const int id : {gettid(), -1}) {
        armJoin(0);
        EXPECT_NE(0, ThreadJoin_r(id, nullptr));
        Runner runner;
        std::thread ender([&] {
            std::this_thread::sleep_for(10ms);
            runner.end();
        });
        EXPECT_EQ(0, runner.join());
        ender.join();
    }
}

TEST(ThreadJoin, IsForOneThreadAtATime) {
    Runner runner;
    std::atomic<int> result{-1};
    std::atomic<int> joinerId{0};
    std::thread joiner([&] {
        joinerId = gettid();
        do
            result = runner.join();
        while (result == EBUSY);  // where the other thread is just trying
    });
    while (joinerId == 0)
        std::this_thread::yield();
    int second = ETIMEDOUT;
    while (second == ETIMEDOUT) {  // until the joiner has arrived
        armJoin(kMs);
        second = ThreadJoin_r(runner.id(), nullptr);
    }
    EXPECT_EQ(EBUSY, second);
    runner.end();
    joiner.join();
    EXPECT_EQ(0, result);
}

// The id is out before ThreadCreate has returned: whoever learns it may join at once.
TEST(ThreadJoin, MayOvertakeTheCreator) {
    static std::atomic<int> id;
    for (int i = 0; i < 500; ++i) {
        id = 0;
        std::thread joiner([] {
            while (id == 0)
                std::this_thread::yield();
            EXPECT_EQ(0, ThreadJoin_r(id, nullptr));
        });
        const int created = start([](void*) -> void* {
            id = gettid();
            return nullptr;
        });
        joiner.join();
        EXPECT_EQ(created, id);
    }
}

TEST(ThreadDestroy, EndsAnotherThread) {
    NEEDS_THREADS_THAT_VANISH();
    Runner runner;
    EXPECT_EQ(0, ThreadDestroy(runner.id(), -1, nullptr));
    void* status = kStatus;
    EXPECT_EQ(0, runner.join(&status));
    EXPECT_EQ(nullptr, status);
    EXPECT_FALSE(runner.hasLeft);
    EXPECT_EQ(-1, ThreadDestroy(runner.id(), -1, nullptr));
    EXPECT_EQ(ESRCH, errno);
}

TEST(ThreadDestroy, GivesItsStatusToTheJoiner) {
    NEEDS_THREADS_THAT_VANISH();
    Runner runner;
    EXPECT_EQ(0, ThreadDestroy(runner.id(), -1, &runner));
    void* status = nullptr;
    armJoin(60 * host::kNsPerSecond);
    EXPECT_EQ(0, runner.join(&status));
    EXPECT_EQ(&runner, status);
}

TEST(ThreadDestroy, EndsTheCaller) {
    NEEDS_THREADS_THAT_VANISH();
    for (const bool byId : {false, true}) {
        static std::atomic<bool> hasReturned;
        hasReturned = false;
        const auto leave = [](void* mode) -> void* {
            ThreadDestroy(mode != nullptr ? gettid() : 0, -1, kStatus);
            hasReturned = true;
            return nullptr;
        };
        bool marker = byId;
        const int id = start(leave, byId ? &marker : nullptr);
        void* status = nullptr;
        EXPECT_EQ(0, ThreadJoin_r(id, &status));
        EXPECT_EQ(kStatus, status);
        EXPECT_FALSE(hasReturned);
    }
}

/// Of a detached thread that has been ended: nobody joins it, and nothing is recorded of it.
void expectForgotten(int id) {
    waitForEndOf(id);
    EXPECT_EQ(ESRCH, ThreadJoin_r(id, nullptr));
    EXPECT_EQ(-ESRCH, priorityOf(id));
    EXPECT_EQ(-1, ThreadDestroy(id, -1, nullptr));
    EXPECT_EQ(ESRCH, errno);
}

TEST(ThreadDestroy, EndsADetachedThread) {
    NEEDS_THREADS_THAT_VANISH();
    Runner runner(PTHREAD_CREATE_DETACHED);
    runner.forget();
    while (runner.seenId == 0)
        std::this_thread::yield();
    ASSERT_EQ(0, setPriorityOf(runner.id(), 21));
    EXPECT_EQ(EINVAL, ThreadJoin_r(runner.id(), nullptr));
    EXPECT_EQ(0, ThreadDestroy(runner.id(), -1, kStatus));
    expectForgotten(runner.id());
    EXPECT_FALSE(runner.hasLeft);
}

TEST(ThreadDestroy, EndsADetachedCaller) {
    NEEDS_THREADS_THAT_VANISH();
    for (const bool byId : {false, true}) {
        static std::atomic<bool> hasReturned;
        hasReturned = false;
        bool marker = byId;
        const int id = startDetached(
            [](void* mode) -> void* {
                ThreadDestroy(mode != nullptr ? gettid() : 0, -1, kStatus);
                hasReturned = true;
                return nullptr;
            },
            byId ? &marker : nullptr);
        ASSERT_GT(id, 0);
        expectForgotten(id);
        EXPECT_FALSE(hasReturned);
    }
}

/// What may be written to of the memory that is mapped here.
std::size_t writableBytes() {
    std::ifstream maps("/proc/self/maps");
    std::size_t bytes = 0;
    for (std::string line; std::getline(maps, line);) {
        std::size_t begin = 0, end = 0;
        char mode[5] = "";
        std::sscanf(line.c_str(), "%zx-%zx %4s", &begin, &end, mode);
        bytes += mode[1] == 'w' ? end - begin : 0;
    }
    return bytes;
}

/// By another thread, at any moment, or by itself; or they return.
void startAndEndDetachedThreads(int threads) {
    for (int i = 0; i < threads; ++i) {
        void* (*const kWays[])(void*) = {
            [](void*) -> void* {
                for (;;)
                    pause();
            },
            [](void*) -> void* {
                ThreadDestroy(0, -1, nullptr);
                return nullptr;
            },
            [](void*) -> void* { return nullptr; },
        };
        const int id = startDetached(kWays[i % 3]);
        ASSERT_GT(id, 0);
        if (i % 3 == 0) {
            std::this_thread::sleep_for(std::chrono::microseconds(50 * (i % 5)));
            ASSERT_EQ(0, ThreadDestroy(id, -1, nullptr));
        }
        waitForEndOf(id);
    }
}

TEST(ThreadDestroy, OfDetachedThreadsLeavesNoMemoryBehind) {
    NEEDS_THREADS_THAT_VANISH();
    startAndEndDetachedThreads(15);  // what the C library keeps for the next ones
    const std::size_t mappedBefore = writableBytes();
    const std::size_t heapBefore = mallinfo2().uordblks;
    startAndEndDetachedThreads(150);
    EXPECT_LT(writableBytes(), mappedBefore + (2 << 20)) << "at least 100 stacks have 25 MB";
    EXPECT_LT(mallinfo2().uordblks, heapBefore + (4 << 10)) << "at least 100 records have 15 KB";
}

TEST(ThreadDestroy, EndsAThreadThatSleepsInACall) {
    NEEDS_THREADS_THAT_VANISH();
    static _sync mutex, condition;
    pthread_mutex_lock(&mutex);
    void* (*const kSleeps[])(void*) = {
        [](void*) -> void* {
            pthread_mutex_lock(&mutex);
            return kStatus;
        },
        [](void*) -> void* {
            _sync own = {};
            pthread_mutex_lock(&own);
            pthread_cond_wait(&condition, &own);
            return kStatus;
        },
        [](void*) -> void* {
            delay(3600000);
            return kStatus;
        },
    };
    for (const auto sleep : kSleeps) {
        const int id = start(sleep);
        std::this_thread::sleep_for(5ms);
        EXPECT_EQ(0, ThreadDestroy(id, -1, nullptr));
        void* status = kStatus;
        EXPECT_EQ(0, ThreadJoin_r(id, &status));
        EXPECT_EQ(nullptr, status);
    }
    pthread_mutex_unlock(&mutex);
}

TEST(ThreadDestroy, EndsAThreadWhoseCreatorBlockedAllSignals) {
    NEEDS_THREADS_THAT_VANISH();
    sigset_t all, old;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &old);
    Runner runner;
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    while (runner.seenId == 0)
        std::this_thread::yield();
    EXPECT_EQ(0, ThreadDestroy(runner.id(), -1, nullptr));
    EXPECT_EQ(0, runner.join());
}

TEST(ThreadDestroy, RefusesUnknownThreads) {
    for (const int id : {-2, INT_MIN, INT_MAX, getppid()}) {
        EXPECT_EQ(-1, ThreadDestroy(id, -1, nullptr)) << id;
        EXPECT_EQ(ESRCH, errno) << id;
    }
}

TEST(ThreadDestroy, ThreadsThatStartAndJoinOthersLeaveNoLockBehind) {
    NEEDS_THREADS_THAT_VANISH();
    for (int i = 0; i < 100; ++i) {
        const int busy = start([](void*) -> void* {
            for (;;) {
                sched_param parameters;
                SchedGet(0, 0, &parameters);  // takes and leaves the table's lock
            }
        });
        std::this_thread::sleep_for(std::chrono::microseconds(50 * (i % 7)));
        ASSERT_EQ(0, ThreadDestroy(busy, -1, nullptr));
        ASSERT_EQ(0, ThreadJoin_r(busy, nullptr));
        ASSERT_EQ(10, priorityOf(0));
    }
}

// The joiner may be giving the stack back just then, with a lock of the C library's that all who start threads need.
TEST(ThreadDestroy, OfAJoinerWhoseTargetEndsLeavesNoLockBehind) {
    NEEDS_THREADS_THAT_VANISH();
    static std::atomic<bool> mayEnd;
    static std::atomic<int> target;
    for (int i = 0; i < 3000; ++i) {
        mayEnd = false;
        target = start([](void*) -> void* {
            while (!mayEnd)
                host::pauseProcessor();
            return nullptr;
        });
        const int joiner = start([](void*) -> void* {
            ThreadJoin_r(target, nullptr);
            return nullptr;
        });
        mayEnd = true;
        for (int spins = i * 7 % 2000; spins > 0; --spins)
            host::pauseProcessor();
        ThreadDestroy(joiner, -1, nullptr);  // unless it has ended already
        armJoin(60 * host::kNsPerSecond);
        ASSERT_EQ(0, ThreadJoin_r(joiner, nullptr));
        // One that the joiner has left for good; or it has joined it.
        const int left = ThreadJoin_r(target, nullptr);
        ASSERT_TRUE(left == EBUSY || left == ESRCH || left == EOK) << left;
    }
}

TEST(ThreadDestroy, WaitsUntilAChannelsLockIsGivenUp) {
    NEEDS_THREADS_THAT_VANISH();
    const int chid = ChannelCreate(0);
    const int coid = ConnectAttach(0, 0, chid, _NTO_SIDE_CHANNEL, 0);
    struct sigevent event = {};
    SIGEV_PULSE_INIT(&event, coid, 10, 1, nullptr);
    static int timer;
    timer = TimerCreate(CLOCK_MONOTONIC, &event);
    for (int i = 0; i < 200; ++i) {
        const int id = start([](void*) -> void* {
            const _itimer later = {1000000000, 0};
            for (;;)
                TimerSettime(timer, 0, &later, nullptr);
        });
        usleep(500);
        EXPECT_EQ(0, ThreadDestroy(id, -1, nullptr));
        EXPECT_EQ(EOK, ThreadJoin_r(id, nullptr));
    }
    EXPECT_EQ(0, TimerDestroy(timer));
    EXPECT_EQ(0, ConnectDetach(coid));
    EXPECT_EQ(0, ChannelDestroy(chid));
}

TEST(ThreadDestroy, OfAllEndsTheProcess) {
    NEEDS_THREADS_THAT_VANISH();
    const auto result = support::runInChild([] {
        std::atexit([] { _exit(7); });  // not run
        static std::atomic<bool> never{false};
        std::thread([] {
            while (!never)
                usleep(1000);
        }).detach();
        ThreadDestroy(-1, -1, nullptr);
        _exit(8);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(ThreadDestroy, OfTheOnlyThreadEndsTheProcess) {
    NEEDS_THREADS_THAT_VANISH();
    const auto result = support::runInChild([] {
        ThreadDestroy(0, -1, nullptr);
        _exit(8);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(ThreadDestroy, TheProcessGoesOnWithoutItsFirstThread) {
    NEEDS_THREADS_THAT_VANISH();
    NEEDS_THREADS_AFTER_FORK();
    const auto result = support::runInChild([] {
        start([](void*) -> void* {
            std::this_thread::sleep_for(10ms);
            _exit(5);
        });
        ThreadDestroy(0, -1, nullptr);
    });
    EXPECT_TRUE(result.exitedWith(5)) << result;
}

// The last one of a process runs what exit calls.
TEST(Thread, HasItsSignalsAsTheyWereWhenTheHostIsDoneWithIt) {
    if (support::kIsSanitized)
        GTEST_SKIP() << "the sanitizer takes the thread apart just then";
    static pthread_key_t key;
    static int round;
    static sigset_t mask;
    round = 0;
    ASSERT_EQ(0, pthread_key_create(&key, [](void* value) {
                  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
                  if (++round < PTHREAD_DESTRUCTOR_ITERATIONS)
                      pthread_setspecific(key, value);
              }));
    const int id = start([](void*) -> void* {
        pthread_setspecific(key, &key);
        return nullptr;
    });
    EXPECT_EQ(0, ThreadJoin_r(id, nullptr));
    EXPECT_EQ(PTHREAD_DESTRUCTOR_ITERATIONS, round);
    for (const int signal : {SIGTERM, SIGALRM, SIGSEGV})
        EXPECT_EQ(0, sigismember(&mask, signal)) << signal;
    EXPECT_EQ(1, sigismember(&mask, SIGRTMAX - 4)) << "nobody ends it any more";
    pthread_key_delete(key);
}

TEST(ThreadDestroy, TheFirstThreadIsKnownToHaveEnded) {
    NEEDS_THREADS_THAT_VANISH();
    NEEDS_THREADS_AFTER_FORK();
    const auto result = support::runInChild([] {
        start([](void*) -> void* {
            const int first = getpid();
            sched_param parameters;
            while (SchedGet(0, first, &parameters) != -1)
                usleep(500);
            const bool isGone = errno == ESRCH;
            const bool isRefused = ThreadDestroy(first, -1, nullptr) == -1 && errno == ESRCH;
            _exit(isGone && isRefused ? 5 : 6);
        });
        ThreadDestroy(0, -1, nullptr);
    });
    EXPECT_TRUE(result.exitedWith(5)) << result;
}

TEST(Sched, OfAThreadThatJustStartsDoesNotHideItFromAJoiner) {
    std::atomic<bool> isOver{false};
    std::thread setter([&] {
        while (!isOver)
            for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
                setPriorityOf(std::stoi(task.path().filename()), 10);
    });
    const int rounds = support::roundsHere(2000);
    for (int round = 0; round < rounds; ++round)
        EXPECT_EQ(0, ThreadJoin_r(start([](void*) -> void* {
                                      usleep(100);
                                      return nullptr;
                                  }),
                                  nullptr));
    isOver = true;
    setter.join();
}

TEST(Sched, RecordsPriorities) {
    Runner runner;
    EXPECT_EQ(10, priorityOf(runner.id()));
    for (const int priority : {1, 6, 10, 30, 63}) {
        EXPECT_EQ(0, setPriorityOf(runner.id(), priority));
        EXPECT_EQ(priority, priorityOf(runner.id()));
    }
    EXPECT_EQ(10, priorityOf(0));
}

TEST(Sched, RefusesOtherPriorities) {
    for (const int priority : {0, -1, 64, INT_MAX, INT_MIN})
        EXPECT_EQ(EINVAL, setPriorityOf(0, priority)) << priority;
    sched_param parameters = {};
    parameters.sched_priority = 10;
    EXPECT_EQ(-1, SchedSet(0, 0, 77, &parameters));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(10, priorityOf(0));
}

TEST(ThreadDestroy, SaysThatTheKernelHasNoRoomForItsSignal) {
    Runner runner;
    while (runner.seenId == 0)
        usleep(500);
    rlimit before;
    ASSERT_EQ(0, getrlimit(RLIMIT_SIGPENDING, &before));
    const rlimit none{0, before.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_SIGPENDING, &none));
    EXPECT_EQ(-1, ThreadDestroy(runner.id(), -1, &runner));
    EXPECT_EQ(EAGAIN, errno);
    ASSERT_EQ(0, setrlimit(RLIMIT_SIGPENDING, &before));
    runner.end();
    void* status = nullptr;
    EXPECT_EQ(EOK, runner.join(&status));
    EXPECT_EQ(kStatus, status);  // its own: nobody has ended it
}

/// The kernel's nice values, in a child, at the lowest priority and at 37.
void expectNice(bool mayRaise, int atLowest, int at37) {
    const auto result = support::runInChild([=] {
        const rlimit none{0, 0};
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
        ASSERT_EQ(0, setrlimit(RLIMIT_NICE, &none));
        ASSERT_EQ(0, syscall(SYS_capget, &header, data));
        const unsigned capability = 1u << CAP_SYS_NICE;
        if (mayRaise && (data[0].effective & capability) == 0)
            _exit(kNoPrivilege);
        data[0].effective &= mayRaise ? ~0u : ~capability;
        ASSERT_EQ(0, syscall(SYS_capset, &header, data));
        EXPECT_EQ(0, setPriorityOf(0, 1));
        EXPECT_EQ(atLowest, getpriority(PRIO_PROCESS, 0));
        EXPECT_EQ(0, setPriorityOf(0, 37));
        EXPECT_EQ(at37, getpriority(PRIO_PROCESS, 0));
        EXPECT_EQ(37, priorityOf(0));
    });
    if (result.exitedWith(kNoPrivilege))
        GTEST_SKIP() << "no privilege to raise priorities";
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(Sched, APriorityIsANiceValueForWhoMayRaiseItAgain) {
    expectNice(true, 19, -10);
}

TEST(Sched, APriorityIsOnlyRecordedForWhoCouldNotRaiseItAgain) {
    const int own = getpriority(PRIO_PROCESS, 0);
    expectNice(false, own, own);
}

TEST(Sched, RefusesUnknownThreads) {
    for (const int id : {-1, INT_MAX, getppid()}) {
        EXPECT_EQ(-ESRCH, priorityOf(id)) << id;
        EXPECT_EQ(ESRCH, setPriorityOf(id, 10)) << id;
    }
    sched_param parameters = {};
    EXPECT_EQ(-1, SchedGet(getppid(), 0, &parameters));
    EXPECT_EQ(ESRCH, errno);
}

TEST(Sched, KeepsOrChangesThePolicy) {
    std::thread([] {
        sched_param parameters = {};
        EXPECT_EQ(SCHED_RR, SchedGet(0, 0, &parameters));
        EXPECT_EQ(0, SchedSet(0, 0, SCHED_FIFO, &parameters));
        EXPECT_EQ(SCHED_FIFO, SchedGet(0, 0, &parameters));
        EXPECT_EQ(0, SchedSet(0, 0, SCHED_NOCHANGE, &parameters));
        EXPECT_EQ(SCHED_FIFO, SchedGet(getpid(), gettid(), &parameters));
        EXPECT_EQ(SCHED_OTHER, sched_getscheduler(0));  // never for the kernel: a loop would stop the machine
    }).join();
}

TEST(Sched, NewThreadsInheritTheirCreatorsPriority) {
    std::thread([] {
        ASSERT_EQ(0, setPriorityOf(0, 7));
        Runner runner;
        EXPECT_EQ(7, priorityOf(runner.id()));
    }).join();
    Runner runner;
    EXPECT_EQ(10, priorityOf(runner.id()));
}

TEST(Sched, AThreadOfTheLibraryMayBeSetFromOutside) {
    std::atomic<int> id{0};
    std::atomic<bool> mayEnd{false};
    std::thread other([&] {
        id = gettid();
        while (!mayEnd)
            std::this_thread::yield();
        EXPECT_EQ(33, priorityOf(0));
        EXPECT_EQ(0, setPriorityOf(0, 9));
        EXPECT_EQ(9, priorityOf(gettid()));
    });
    while (id == 0)
        std::this_thread::yield();
    EXPECT_EQ(0, setPriorityOf(id, 33));
    EXPECT_EQ(33, priorityOf(id));
    mayEnd = true;
    other.join();
    waitForEndOf(id);
    EXPECT_EQ(-ESRCH, priorityOf(id));
}

TEST(Thread, AForkedChildKeepsThePriorityAndForgetsTheOthers) {
    NEEDS_THREADS_AFTER_FORK();
    Runner runner;
    ASSERT_EQ(0, setPriorityOf(0, 12));
    const auto result = support::runInChild([&] {
        EXPECT_EQ(12, priorityOf(0));
        EXPECT_EQ(12, priorityOf(getpid()));
        EXPECT_EQ(ESRCH, ThreadJoin_r(runner.id(), nullptr));
        const int id = start([](void*) -> void* { return kStatus; });
        void* status = nullptr;
        EXPECT_EQ(0, ThreadJoin_r(id, &status));
        EXPECT_EQ(kStatus, status);
        runner.forget();
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    ASSERT_EQ(0, setPriorityOf(0, 10));
}

TEST(Thread, AForkedChildKeepsThePriorityThatAnotherThreadHadSet) {
    std::atomic<int> id{0};
    std::atomic<bool> isSet{false};
    std::thread forking([&] {
        id = gettid();
        while (!isSet)
            std::this_thread::yield();
        const auto result = support::runInChild([] { EXPECT_EQ(20, priorityOf(0)); });
        EXPECT_TRUE(result.exitedWith(0)) << result;
    });
    while (id == 0)
        std::this_thread::yield();
    EXPECT_EQ(0, setPriorityOf(id, 20));
    isSet = true;
    forking.join();
}

TEST(Thread, AChildForgetsTheOthersWhoseForkHadBegunBeforeTheFirst) {
    static std::unique_ptr<Runner> runner;
    pthread_atfork(
        [] {
            if (runner == nullptr)
                runner = std::make_unique<Runner>();
        },
        nullptr, nullptr);
    const auto result = support::runInChild([] { EXPECT_EQ(ESRCH, ThreadJoin_r(runner->id(), nullptr)); });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    runner.reset();
}

TEST(Thread, AThreadMayForkAndItsChildMayStartThreads) {
    NEEDS_THREADS_AFTER_FORK();
    const int id = start([](void*) -> void* {
        const pid_t child = fork();
        if (child == 0) {
            const int inner = start([](void*) -> void* { return kStatus; });
            void* status = nullptr;
            _exit(ThreadJoin_r(inner, &status) == 0 && status == kStatus && priorityOf(0) == 10 ? 0 : 1);
        }
        int status = -1;
        waitpid(child, &status, 0);
        return reinterpret_cast<void*>(static_cast<intptr_t>(status));
    });
    void* status = kStatus;
    EXPECT_EQ(0, ThreadJoin_r(id, &status));
    EXPECT_EQ(nullptr, status);
}

std::string nameOf(int tid) {
    std::ifstream file("/proc/self/task/" + std::to_string(tid) + "/comm");
    std::string name;
    std::getline(file, name);
    return name;
}

TEST(ThreadName, IsWhatToolsShow) {
    Runner runner;
    EXPECT_EQ(0, pthread_setname_np(runner.id(), "pump"));
    EXPECT_EQ("pump", nameOf(runner.id()));
    EXPECT_EQ(0, pthread_setname_np(runner.id(), "a name of 20 letters"));
    EXPECT_EQ("a name of 20 le", nameOf(runner.id()));
    EXPECT_EQ(0, pthread_setname_np(runner.id(), nullptr));
    EXPECT_EQ("", nameOf(runner.id()));
    EXPECT_EQ(0, pthread_setname_np(runner.id(), ""));
}

TEST(ThreadName, OfTheCallerHasTheIdZero) {
    std::thread([] {
        EXPECT_EQ(0, pthread_setname_np(0, "mine"));
        EXPECT_EQ("mine", nameOf(gettid()));
    }).join();
}

TEST(ThreadName, HasABound) {
    Runner runner;
    EXPECT_EQ(0, pthread_setname_np(runner.id(), std::string(100, 'x').c_str()));
    EXPECT_EQ(E2BIG, pthread_setname_np(runner.id(), std::string(101, 'x').c_str()));
    EXPECT_EQ(ESRCH, pthread_setname_np(INT_MAX, "nobody"));
    EXPECT_EQ(ESRCH, pthread_setname_np(-1, "nobody"));
}

TEST(SignalProcmask, ChangesTheCallersMask) {
    std::thread([] {
        sigset_t set, old;
        sigemptyset(&set);
        sigaddset(&set, SIGUSR1);
        ASSERT_EQ(0, SignalProcmask(0, 0, SIG_BLOCK, &set, &old));
        EXPECT_EQ(0, sigismember(&old, SIGUSR1));
        ASSERT_EQ(0, SignalProcmask(0, gettid(), SIG_UNBLOCK, nullptr, &old));  // asks only
        EXPECT_EQ(1, sigismember(&old, SIGUSR1));
        sigfillset(&set);
        ASSERT_EQ(0, SignalProcmask_r(0, 0, SIG_SETMASK, &set, nullptr));
        ASSERT_EQ(0, SignalProcmask_r(0, 0, SIG_BLOCK, nullptr, &old));
        EXPECT_EQ(1, sigismember(&old, SIGTERM));
        EXPECT_EQ(0, sigismember(&old, SIGKILL));
    }).join();
}

TEST(SignalProcmask, RefusesOtherThreadsAndModes) {
    sigset_t set;
    sigemptyset(&set);
    EXPECT_EQ(-1, SignalProcmask(0, INT_MAX, SIG_BLOCK, &set, nullptr));
    EXPECT_EQ(ESRCH, errno);
    errno = 0;
    EXPECT_EQ(EINVAL, SignalProcmask_r(0, 0, 99, &set, nullptr));
    EXPECT_EQ(0, errno);
}

}  // namespace
