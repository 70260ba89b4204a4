// Concerns: clocks, absolute and relative, immediate, unlimited; covered and not; one call only, of whatever kind;
// threads, children and handlers; refusals.
#include "HeldElsewhere.h"

#include "support/ChildProcess.h"
#include "support/Sanitizers.h"

#include <backtrace.h>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <devctl.h>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <host/KernelIO.h>
#include <process.h>
#include <semaphore.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/neutrino.h>
#include <sys/slog.h>
#include <sys/trace.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

void armMutex(uint64_t relativeNs) {
    ASSERT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, _NTO_TIMEOUT_MUTEX, nullptr, &relativeNs, nullptr));
}

void armImmediate(int states = _NTO_TIMEOUT_MUTEX) {
    ASSERT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, states, nullptr, nullptr, nullptr));
}

/// True when a lock of a mutex held elsewhere waits for its release: no time-out is armed for it.
bool lockWaits() {
    _sync mutex = {};
    HeldElsewhere held(mutex, 20ms);
    const int result = pthread_mutex_lock(&mutex);
    if (result == 0)
        pthread_mutex_unlock(&mutex);
    return result == 0 && held.releasedAtNs != 0;
}

TEST(TimerTimeout, EndsAWaitForAMutexAndIsNotEarly) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    for (const uint64_t wait : {kMs, 7 * kMs, 20 * kMs + 1}) {
        const uint64_t begin = monotonicNs();
        armMutex(wait);
        EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
        EXPECT_GE(monotonicNs() - begin, wait);
    }
}

TEST(TimerTimeout, EndsTheKernelsHalfOfALockToo) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    armMutex(kMs);
    EXPECT_EQ(ETIMEDOUT, SyncMutexLock_r(&mutex));
}

TEST(TimerTimeout, CountsFromTheClocksZeroWhenAbsolute) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    const uint64_t deadline = monotonicNs() + 10 * kMs;
    ASSERT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, _NTO_TIMEOUT_MUTEX | TIMER_ABSTIME, nullptr, &deadline, nullptr));
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
    EXPECT_GE(monotonicNs(), deadline);
}

TEST(TimerTimeout, CountsRelativeTimesFromTheMomentOfArming) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    armMutex(30 * kMs);
    const uint64_t armedAt = monotonicNs();
    std::this_thread::sleep_for(40ms);
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
    EXPECT_GE(monotonicNs() - armedAt, 40 * kMs);
}

TEST(TimerTimeout, KnowsTheRealTimeClock) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    const uint64_t begin = monotonicNs();
    const uint64_t deadline = host::nowNs(CLOCK_REALTIME) + 10 * kMs;
    ASSERT_EQ(0, TimerTimeout(CLOCK_REALTIME, _NTO_TIMEOUT_MUTEX | TIMER_ABSTIME, nullptr, &deadline, nullptr));
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
    EXPECT_GE(monotonicNs() - begin, 9 * kMs);  // two clocks were read
    const uint64_t wait = 5 * kMs;
    const uint64_t again = monotonicNs();
    ASSERT_EQ(0, TimerTimeout(CLOCK_REALTIME, _NTO_TIMEOUT_MUTEX, nullptr, &wait, nullptr));
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
    EXPECT_GE(monotonicNs() - again, wait);
}

TEST(TimerTimeout, WithoutATimeMeansDoNotBlock) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    armImmediate();
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
}

TEST(TimerTimeout, OfZeroOrInThePastMeansDoNotBlock) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    armMutex(0);
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
    for (const clockid_t clock : {CLOCK_MONOTONIC, CLOCK_REALTIME})
        for (const uint64_t past : {uint64_t{0}, uint64_t{1}, host::nowNs(clock)}) {
            ASSERT_EQ(0, TimerTimeout(clock, _NTO_TIMEOUT_MUTEX | TIMER_ABSTIME, nullptr, &past, nullptr));
            EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex)) << clock << ' ' << past;
        }
}

TEST(TimerTimeout, LetsAFreeMutexBeTakenWhateverTheTimeSays) {
    _sync mutex = {};
    armImmediate();
    EXPECT_EQ(0, pthread_mutex_lock(&mutex));
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
}

TEST(TimerTimeout, AboveTheSignedRangeIsWithoutLimit) {
    for (const uint64_t time : {UINT64_MAX, uint64_t{INT64_MAX} + 1})
        for (const int absolute : {0, TIMER_ABSTIME}) {
            ASSERT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, _NTO_TIMEOUT_MUTEX | absolute, nullptr, &time, nullptr));
            EXPECT_TRUE(lockWaits()) << time;
        }
}

TEST(TimerTimeout, OfCenturiesIsNoTimeInThePast) {
    const uint64_t centuries = INT64_MAX;
    armMutex(centuries);
    EXPECT_TRUE(lockWaits());
    ASSERT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, _NTO_TIMEOUT_MUTEX | TIMER_ABSTIME, nullptr, &centuries, nullptr));
    EXPECT_TRUE(lockWaits());
}

TEST(TimerTimeout, WithoutStatesCancels) {
    const uint64_t zero = 0;
    armImmediate();
    EXPECT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, 0, nullptr, &zero, nullptr));
    EXPECT_TRUE(lockWaits());
    armImmediate();
    EXPECT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, TIMER_ABSTIME, nullptr, nullptr, nullptr));
    EXPECT_TRUE(lockWaits());
}

TEST(TimerTimeout, ReplacesTheOneBefore) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    armMutex(3600 * host::kNsPerSecond);
    armMutex(kMs);
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
}

TEST(TimerTimeout, ForOtherStatesDoesNotConcernAMutex) {
    for (const int state : {_NTO_TIMEOUT_SEND, _NTO_TIMEOUT_RECEIVE, _NTO_TIMEOUT_REPLY, _NTO_TIMEOUT_SIGSUSPEND,
                            _NTO_TIMEOUT_SIGWAITINFO, _NTO_TIMEOUT_NANOSLEEP, _NTO_TIMEOUT_CONDVAR,
                            _NTO_TIMEOUT_JOIN, _NTO_TIMEOUT_INTR, _NTO_TIMEOUT_SEM}) {
        armImmediate(state);
        EXPECT_TRUE(lockWaits()) << state;
    }
}

TEST(TimerTimeout, MayCoverSeveralStates) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    armImmediate(_NTO_TIMEOUT_SEM | _NTO_TIMEOUT_MUTEX | _NTO_TIMEOUT_CONDVAR);
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
}

TEST(TimerTimeout, StatesHaveTheNumbersOfThePlatform) {
    EXPECT_EQ(0x10, _NTO_TIMEOUT_SEND);
    EXPECT_EQ(0x20, _NTO_TIMEOUT_RECEIVE);
    EXPECT_EQ(0x40, _NTO_TIMEOUT_REPLY);
    EXPECT_EQ(0x1000, _NTO_TIMEOUT_NANOSLEEP);
    EXPECT_EQ(0x2000, _NTO_TIMEOUT_MUTEX);
    EXPECT_EQ(0x4000, _NTO_TIMEOUT_CONDVAR);
    EXPECT_EQ(0x8000, _NTO_TIMEOUT_JOIN);
    EXPECT_EQ(0x20000, _NTO_TIMEOUT_SEM);
}

TEST(TimerTimeout, IsGoneAfterTheCallThatItEnded) {
    _sync mutex = {};
    {
        HeldElsewhere held(mutex);
        armImmediate();
        EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
    }
    EXPECT_TRUE(lockWaits());
}

// Every call, covered or not, blocking or not, consumes the time-out.

struct Consumer {
    const char* name;
    std::function<void()> call;
};

_sync freeMutex;
_sync ownMutex;
_sync freeCondition;

constexpr timespec kPast = {0, 0};
constexpr timespec kNoTime = {0, -1};

[[gnu::format(printf, 1, 2)]] int logWithList(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = vslogf(1, _SLOG_INFO, format, arguments);
    va_end(arguments);
    return result;
}

/// Of a semaphore with so many units.
int waitForUnit(unsigned units) {
    sem_t semaphore;
    sem_init(&semaphore, 0, units);
    const int result = sem_timedwait_monotonic(&semaphore, &kPast);
    sem_destroy(&semaphore);
    return result;
}

class TimerTimeoutConsumer : public testing::TestWithParam<Consumer> {};

TEST_P(TimerTimeoutConsumer, LeavesNothingForTheNextCall) {
    pthread_mutex_lock(&ownMutex);
    armImmediate();
    GetParam().call();
    EXPECT_TRUE(lockWaits());
    pthread_mutex_unlock(&ownMutex);
}

const Consumer kConsumers[] = {
    {"lock",
     [] {
         EXPECT_EQ(0, pthread_mutex_lock(&freeMutex));
         freeMutex = {};
     }},
    {"trylock",
     [] {
         EXPECT_EQ(0, pthread_mutex_trylock(&freeMutex));
         freeMutex = {};
     }},
    {"trylockOfAHeldOne", [] { EXPECT_EQ(EBUSY, pthread_mutex_trylock(&ownMutex)); }},
    {"timedlock",
     [] {
         EXPECT_EQ(0, pthread_mutex_timedlock_monotonic(&freeMutex, &kPast));
         freeMutex = {};
     }},
    {"timedlockThatExpires", [] { EXPECT_EQ(ETIMEDOUT, pthread_mutex_timedlock_monotonic(&ownMutex, &kPast)); }},
    {"unlock", [] { EXPECT_EQ(0, pthread_mutex_unlock(&ownMutex)); }},
    {"unlockThatIsRefused", [] { EXPECT_EQ(EPERM, pthread_mutex_unlock(&freeMutex)); }},
    {"init", [] { EXPECT_EQ(0, pthread_mutex_init(&freeMutex, nullptr)); }},
    {"destroy", [] { EXPECT_EQ(0, pthread_mutex_destroy(&freeMutex)); }},
    {"kernelsHalfOfLock",
     [] {
         EXPECT_EQ(0, SyncMutexLock_r(&freeMutex));
         freeMutex = {};
     }},
    {"kernelsHalfOfUnlock", [] { EXPECT_EQ(0, SyncMutexUnlock_r(&ownMutex)); }},
    {"cond_waitThatIsRefused", [] { EXPECT_EQ(EPERM, pthread_cond_wait(&freeCondition, &freeMutex)); }},
    {"cond_timedwaitThatIsRefused",
     [] { EXPECT_EQ(EINVAL, pthread_cond_timedwait(&freeCondition, &ownMutex, &kNoTime)); }},
    {"sem_timedwait_monotonic", [] { EXPECT_EQ(0, waitForUnit(1)); }},
    {"sem_timedwait_monotonicThatExpires", [] { EXPECT_EQ(-1, waitForUnit(0)); }},
    {"ThreadCreate",
     [] {
         _thread_attr attributes = {};
         attributes.__flags = PTHREAD_CREATE_DETACHED;
         EXPECT_GT(ThreadCreate(
                       0, [](void*) -> void* { return nullptr; }, nullptr, &attributes),
                   0);
     }},
    {"ThreadCreateThatIsRefused",
     [] {
         EXPECT_EQ(-1, ThreadCreate(
                           getppid(), [](void*) -> void* { return nullptr; }, nullptr, nullptr));
     }},
    {"ThreadDestroyThatIsRefused", [] { EXPECT_EQ(-1, ThreadDestroy(getppid(), -1, nullptr)); }},
    {"SchedGet",
     [] {
         sched_param parameters;
         EXPECT_EQ(SCHED_RR, SchedGet(0, 0, &parameters));
     }},
    {"SchedSet",
     [] {
         const sched_param parameters = {10};
         EXPECT_EQ(0, SchedSet(0, 0, SCHED_NOCHANGE, &parameters));
     }},
    {"SchedSetThatIsRefused",
     [] {
         const sched_param parameters = {0};
         EXPECT_EQ(-1, SchedSet(0, 0, SCHED_NOCHANGE, &parameters));
     }},
    {"setname", [] { EXPECT_EQ(0, pthread_setname_np(0, "consumer")); }},
    {"setnameThatIsRefused", [] { EXPECT_EQ(E2BIG, pthread_setname_np(0, std::string(101, 'n').c_str())); }},
    {"SignalProcmask", [] { EXPECT_EQ(0, SignalProcmask(0, 0, SIG_BLOCK, nullptr, nullptr)); }},
    {"SignalProcmask_r", [] { EXPECT_EQ(EOK, SignalProcmask_r(0, 0, SIG_BLOCK, nullptr, nullptr)); }},
    {"SignalProcmaskThatIsRefused",
     [] { EXPECT_EQ(ESRCH, SignalProcmask_r(0, getppid(), SIG_BLOCK, nullptr, nullptr)); }},
    {"ClockTime", [] { EXPECT_EQ(0, ClockTime(CLOCK_MONOTONIC, nullptr, nullptr)); }},
    {"ClockTimeThatIsRefused", [] { EXPECT_EQ(-1, ClockTime(4711, nullptr, nullptr)); }},
    {"ClockId", [] { EXPECT_NE(-1, ClockId(0, 0)); }},
    {"ClockIdThatIsRefused", [] { EXPECT_EQ(-1, ClockId(0, -1)); }},
    {"spawnvp",
     [] {
         char name[] = "true";
         char* const arguments[] = {name, nullptr};
         EXPECT_GT(spawnvp(P_NOWAIT, name, arguments), 0);
         EXPECT_GT(wait(nullptr), 0);  // the C library's, which consumes nothing
     }},
    {"spawnvpThatIsRefused", [] { EXPECT_EQ(-1, spawnvp(P_NOWAIT, "true", nullptr)); }},
    {"waitpid",
     [] {
         const pid_t child = fork();
         if (child == 0)
             _exit(0);
         EXPECT_EQ(child, waitpid(child, nullptr, WEXITED));
     }},
    {"waitpidOfNobody", [] { EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG)); }},
    {"write", [] { EXPECT_EQ(-1, KernelIO::write(-1, nullptr, 0)); }},
    {"devctl",
     [] {
         int count;
         EXPECT_EQ(EBADF, devctl(-1, FIONREAD, &count, sizeof count, nullptr));
     }},
    {"slogf", [] { slogf(1, _SLOG_INFO, "text"); }},
    {"vslogf", [] { logWithList("text"); }},
    {"slogi", [] { slogi(1, _SLOG_INFO, 0); }},
    {"slogb", [] { slogb(1, _SLOG_INFO, nullptr, -1); }},
    {"TraceEvent", [] { TraceEvent(_NTO_TRACE_INSERTSUSEREVENT, 1, 2, 3); }},
    {"bt_init_accessor",
     [] {
         bt_accessor_t accessor;
         bt_init_accessor(&accessor, BT_SELF);
     }},
    {"bt_get_backtrace",
     [] {
         bt_addr_t address;
         bt_get_backtrace(&bt_acc_self, &address, 1);
     }},
    {"bt_load_memmap",
     [] {
         bt_memmap_t map;
         bt_load_memmap(&bt_acc_self, &map);
     }},
    {"bt_sprn_memmap", [] { EXPECT_EQ(-1, bt_sprn_memmap(nullptr, nullptr, 0)); }},
    {"bt_unload_memmap", [] { EXPECT_EQ(-1, bt_unload_memmap(nullptr)); }},
    {"bt_release_accessor", [] { EXPECT_EQ(0, bt_release_accessor(&bt_acc_self)); }},
    {"MsgSend", [] { EXPECT_EQ(-1, MsgSend(-1, nullptr, 0, nullptr, 0)); }},
    {"MsgSendOfNoSize", [] { EXPECT_EQ(-1, MsgSend(-1, nullptr, -1, nullptr, 0)); }},
    {"MsgSendv", [] { EXPECT_EQ(-1, MsgSendv(-1, nullptr, 0, nullptr, 0)); }},
    {"MsgSendPulseOfNoPriority", [] { EXPECT_EQ(-1, MsgSendPulse(-1, 64, 0, 0)); }},
    {"MsgReceive", [] { EXPECT_EQ(-1, MsgReceive(-1, nullptr, 0, nullptr)); }},
    {"MsgReceivev", [] { EXPECT_EQ(-1, MsgReceivev(-1, nullptr, 0, nullptr)); }},
    {"MsgReceivePulse", [] { EXPECT_EQ(-1, MsgReceivePulse(-1, nullptr, 0, nullptr)); }},
    {"MsgReplyOfNoSize", [] { EXPECT_EQ(-1, MsgReply(1, 0, nullptr, -1)); }},
    {"MsgReplyvOfNoSize", [] { EXPECT_EQ(-1, MsgReplyv(1, 0, nullptr, -1)); }},
    {"MsgError", [] { EXPECT_EQ(-1, MsgError(1, EPERM)); }},
    {"MsgReadOfNoPlace", [] { EXPECT_EQ(-1, MsgRead(1, nullptr, 0, -1)); }},
    {"MsgReadvOfNoPlace", [] { EXPECT_EQ(-1, MsgReadv(1, nullptr, 0, -1)); }},
    {"MsgWriteOfNoPlace", [] { EXPECT_EQ(-1, MsgWrite(1, nullptr, 0, -1)); }},
    {"MsgWritevOfNoPlace", [] { EXPECT_EQ(-1, MsgWritev(1, nullptr, 0, -1)); }},
    {"ChannelCreate", [] { EXPECT_GT(ChannelCreate(0), 0); }},
    {"ConnectAttach", [] { EXPECT_EQ(-1, ConnectAttach(0, 0, -1, _NTO_SIDE_CHANNEL, 0)); }},
    {"ConnectAttachToAnotherNode", [] { EXPECT_EQ(-1, ConnectAttach(1, 0, 1, _NTO_SIDE_CHANNEL, 0)); }},
    {"TimerCreateThatIsRefused", [] { EXPECT_EQ(-1, TimerCreate(CLOCK_PROCESS_CPUTIME_ID, nullptr)); }},
    {"TimerSettime", [] { EXPECT_EQ(-1, TimerSettime(-1, 0, nullptr, nullptr)); }},
    {"TimerDestroy", [] { EXPECT_EQ(-1, TimerDestroy(-1)); }},
    {"TimerTimeoutThatIsRefused",
     [] { EXPECT_EQ(-1, TimerTimeout(12345, _NTO_TIMEOUT_MUTEX, nullptr, nullptr, nullptr)); }},
};

INSTANTIATE_TEST_SUITE_P(, TimerTimeoutConsumer, testing::ValuesIn(kConsumers),
                         [](const auto& consumer) { return std::string(consumer.param.name); });

TEST(TimerTimeout, IsReplacedByTheOwnTimeOfATimedLock) {
    _sync mutex = {};
    HeldElsewhere held(mutex);
    armImmediate();
    const uint64_t deadline = monotonicNs() + 10 * kMs;
    const timespec limit = timeAt(deadline);
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_timedlock_monotonic(&mutex, &limit));
    EXPECT_GE(monotonicNs(), deadline);
}

TEST(TimerTimeout, IsTheArmingThreadsAlone) {
    armImmediate();
    EXPECT_TRUE(std::async(std::launch::async, [] { return lockWaits(); }).get());
    _sync mutex = {0, 1};  // held by nobody here: pid 1
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
}

TEST(TimerTimeout, IsNotInheritedByAForkedChild) {
    armImmediate();
    const auto result = support::runInChild([] { EXPECT_TRUE(lockWaits()); });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(TimerTimeout, StaysArmedInTheParentOfAFork) {
    _sync mutex = {0, 1};
    armImmediate();
    if (const pid_t child = fork(); child == 0)
        _exit(0);
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
}

TEST(TimerTimeout, IsConsumedByACallInASignalHandler) {
    struct sigaction action = {};
    action.sa_handler = [](int) { slogf(1, _SLOG_INFO, "from a handler"); };
    sigaction(SIGUSR1, &action, nullptr);
    armImmediate();
    raise(SIGUSR1);
    EXPECT_TRUE(lockWaits());
}

#if defined(__x86_64__)

bool isStepping = false, hasHandlerRun = false;
int instruction = 0, instructionOfHandler = 0;

/// Has the processor stop after each instruction, or no more.
void setStepping(void* context, bool isOn) {
    constexpr greg_t kTrapFlag = 0x100;
    greg_t& flags = static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_EFL];
    flags = isOn ? flags | kTrapFlag : flags & ~kTrapFlag;
}

void onStep(int, siginfo_t*, void* context) {
    const bool isDue = isStepping && instruction++ == instructionOfHandler;
    isStepping &= !isDue;
    setStepping(context, isStepping);
    if (!isDue)
        return;
    hasHandlerRun = true;
    armImmediate(_NTO_TIMEOUT_NANOSLEEP);
    delay(1);
}

// A handler with a time-out of its own comes at each instruction of the arming in turn. What it used up may be the
// interrupted thread's, but it leaves that nothing of its own.
TEST(TimerTimeout, IsNotEarlyForAHandlersTimeoutInBetween) {
    if (support::kIsSanitized)
        GTEST_SKIP() << "a sanitizer's own code is not made to be stepped through";
    constexpr uint64_t kWait = 3 * kMs;
    struct sigaction step = {};
    step.sa_sigaction = onStep;
    step.sa_flags = SA_SIGINFO;
    for (const int signal : {SIGTRAP, SIGUSR1})
        ASSERT_EQ(0, sigaction(signal, &step, nullptr));
    int withoutTimeout = 0;
    for (hasHandlerRun = true; hasHandlerRun; ++instructionOfHandler) {
        hasHandlerRun = false;
        isStepping = true;
        instruction = 0;
        const uint64_t wait = kWait, begin = monotonicNs();
        raise(SIGUSR1);  // from its return on
        TimerTimeout(CLOCK_MONOTONIC, _NTO_TIMEOUT_NANOSLEEP, nullptr, &wait, nullptr);
        isStepping = false;
        withoutTimeout += delay(2 * kWait / kMs) == 0 ? 1 : 0;
        EXPECT_GE(monotonicNs() - begin, kWait) << "handler at instruction " << instructionOfHandler;
    }
    for (const int signal : {SIGTRAP, SIGUSR1})
        std::signal(signal, SIG_DFL);
    EXPECT_GT(instructionOfHandler, 50);
    EXPECT_LT(withoutTimeout, instructionOfHandler) << "else this looks at nothing";
}

#endif

TEST(TimerTimeout, TakesTheEventThatUnblocks) {
    struct sigevent event;
    SIGEV_UNBLOCK_INIT(&event);
    _sync mutex = {0, 1};
    EXPECT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, _NTO_TIMEOUT_MUTEX, &event, nullptr, nullptr));
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
}

TEST(TimerTimeout, RefusesOtherEventsAndSaysSo) {
    struct sigevent event = {};
    event.sigev_notify = SIGEV_SIGNAL;
    testing::internal::CaptureStderr();
    EXPECT_EQ(-1, TimerTimeout(CLOCK_MONOTONIC, _NTO_TIMEOUT_MUTEX, &event, nullptr, nullptr));
    EXPECT_EQ(ENOTSUP, errno);
    EXPECT_EQ("neutrino host: TimerTimeout with an event other than SIGEV_UNBLOCK is not supported on Linux\n",
              testing::internal::GetCapturedStderr());
    EXPECT_TRUE(lockWaits());
}

TEST(TimerTimeout, RefusesOtherClocks) {
    errno = 0;
    EXPECT_EQ(-1, TimerTimeout(CLOCK_PROCESS_CPUTIME_ID, _NTO_TIMEOUT_MUTEX, nullptr, nullptr, nullptr));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_TRUE(lockWaits());
}

TEST(TimerTimeout, FormWithoutErrnoReturnsTheNumber) {
    errno = 4711;
    EXPECT_EQ(EINVAL, TimerTimeout_r(CLOCK_PROCESS_CPUTIME_ID, 0, nullptr, nullptr, nullptr));
    EXPECT_EQ(EOK, TimerTimeout_r(CLOCK_MONOTONIC, _NTO_TIMEOUT_MUTEX, nullptr, nullptr, nullptr));
    EXPECT_EQ(4711, errno);
    _sync mutex = {0, 1};
    EXPECT_EQ(ETIMEDOUT, pthread_mutex_lock(&mutex));
}

}  // namespace
