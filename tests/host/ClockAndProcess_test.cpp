// Concerns: clocks and sleeps, never early; starting programs and waiting for them; the stack's end; the C library's
// semaphore on the monotonic clock.
#include "HeldElsewhere.h"
#include "PrivateMounts.h"
#include "SignalStorm.h"

#include "support/ChildProcess.h"
#include "support/ScopedEnvironment.h"

#include <algorithm>
#include <alloca.h>
#include <cerrno>
#include <climits>
#include <gtest/gtest.h>
#include <process.h>
#include <semaphore.h>
#include <sys/neutrino.h>
#include <sys/resource.h>
#include <sys/syspage.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

void armSleep(uint64_t ns) {
    ASSERT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, _NTO_TIMEOUT_NANOSLEEP, nullptr, &ns, nullptr));
}

TEST(Syspage, TellsTheMonotonicTime) {
    for (int i = 0; i < 1000; ++i) {
        const uint64_t before = monotonicNs();
        const uint64_t time = SYSPAGE_ENTRY(qtime)->nsec;
        EXPECT_LE(before, time);
        EXPECT_LE(time, monotonicNs());
    }
}

TEST(ClockTime, ReadsClocks) {
    for (const clockid_t clock : {CLOCK_REALTIME, CLOCK_MONOTONIC, CLOCK_PROCESS_CPUTIME_ID}) {
        const uint64_t before = host::nowNs(clock);
        uint64_t time = 0;
        EXPECT_EQ(0, ClockTime(clock, nullptr, &time));
        EXPECT_LE(before, time);
        EXPECT_LE(time, host::nowNs(clock));
    }
    EXPECT_EQ(0, ClockTime(CLOCK_REALTIME, nullptr, nullptr));
}

TEST(ClockTime, RefusesUnknownClocks) {
    uint64_t time = 5;
    EXPECT_EQ(-1, ClockTime(4711, nullptr, &time));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(5u, time);
}

TEST(ClockTime, RefusesATimeThatDoesNotFit) {
    const auto result = support::runInChild([] {
        constexpr uid_t kNobody = 65534;
        if (geteuid() == 0 && setresuid(kNobody, kNobody, kNobody) != 0)
            _exit(1);  // else the clock would be set
        const uint64_t afterSeconds32 = ((uint64_t{1} << 32) + 100) * host::kNsPerSecond;
        errno = 0;
        EXPECT_EQ(-1, ClockTime(CLOCK_REALTIME, &afterSeconds32, nullptr));
        EXPECT_EQ(sizeof(time_t) == 4 ? EINVAL : EPERM, errno);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(ClockId, IsTheProcessorTimeOfAThreadOrAProcess) {
    const struct {
        pid_t pid;
        int tid;
        clockid_t same;
    } kRows[] = {{0, gettid(), CLOCK_THREAD_CPUTIME_ID},
                 {getpid(), gettid(), CLOCK_THREAD_CPUTIME_ID},
                 {0, 0, CLOCK_PROCESS_CPUTIME_ID},
                 {getpid(), 0, CLOCK_PROCESS_CPUTIME_ID}};
    for (const auto& row : kRows) {
        errno = EACCES;
        const int clock = ClockId(row.pid, row.tid);
        ASSERT_NE(-1, clock);
        EXPECT_EQ(EACCES, errno);
        const uint64_t before = host::nowNs(row.same);
        uint64_t time = 0;
        EXPECT_EQ(0, ClockTime(clock, nullptr, &time));
        EXPECT_LE(before, time);
        EXPECT_LE(time, host::nowNs(row.same));
    }
}

TEST(ClockId, RefusesWhatIsNotThere) {
    const struct {
        pid_t pid;
        int tid;
    } kRows[] = {{0, -1},      {0, 0x0fffffff}, {0, 0x3fffffff},       {0, INT_MAX}, {0, INT_MIN}, {0x0fffffff, 0},
                 {INT_MAX, 0}, {1, 1},          {getppid(), gettid()}, {-1, 0},      {-2, 0},      {INT_MIN, 0}};
    for (const auto& row : kRows) {
        errno = 0;
        EXPECT_EQ(-1, ClockId(row.pid, row.tid)) << row.pid << ", " << row.tid;
        EXPECT_EQ(ESRCH, errno);
    }
}

TEST(Delay, SleepsAndIsNotEarly) {
    for (const unsigned ms : {0u, 1u, 15u}) {
        const uint64_t begin = monotonicNs();
        EXPECT_EQ(0u, delay(ms));
        EXPECT_GE(monotonicNs() - begin, ms * kMs);
    }
}

TEST(Delay, TellsWhatACaughtSignalLeft) {
    const SignalStorm storm([](int) {});
    const unsigned left = delay(UINT_MAX);
    EXPECT_EQ(EINTR, errno);
    EXPECT_GT(left, UINT_MAX - 60000u);
    const uint64_t begin = monotonicNs();
    unsigned rest = 20;
    while (rest != 0)
        rest = delay(rest);
    EXPECT_GE(monotonicNs() - begin, 20 * kMs);
}

TEST(Delay, EndsWithAnArmedTimeout) {
    const uint64_t begin = monotonicNs();
    armSleep(10 * kMs);
    const unsigned left = delay(3600000);
    EXPECT_EQ(ETIMEDOUT, errno);
    EXPECT_GE(monotonicNs() - begin, 10 * kMs);
    EXPECT_GT(left, 3000000u);
    armSleep(0);
    EXPECT_EQ(0u, delay(0));
    EXPECT_EQ(0u, delay(5));  // the one before is gone
}

TEST(Spawn, RunsAProgramWithItsArguments) {
    const char* const arguments[] = {"sh", "-c", "exit $1", "-", "42", nullptr};
    const int pid = spawnvp(P_NOWAIT, "/bin/sh", const_cast<char* const*>(arguments));
    ASSERT_GT(pid, 0);
    int status = 0;
    EXPECT_EQ(pid, waitpid(pid, &status, WEXITED));
    EXPECT_EQ(42, WEXITSTATUS(status));
    status = spawnvp(P_WAIT, "sh", const_cast<char* const*>(arguments));  // found in PATH
    EXPECT_EQ(42, WEXITSTATUS(status));
}

TEST(Spawn, LeavesErrnoWhereItSucceeds) {
    const support::ScopedEnvironment path("PATH", "/nowhere:/usr/bin:/bin");
    const char* const arguments[] = {"true", nullptr};
    for (const int mode : {P_WAIT, P_NOWAIT}) {
        errno = EIO;
        const int result = spawnvp(mode, "true", const_cast<char* const*>(arguments));
        EXPECT_EQ(EIO, errno);
        if (mode == P_NOWAIT) {
            EXPECT_EQ(result, waitpid(result, nullptr, WEXITED));
        } else {
            EXPECT_EQ(0, result);
        }
    }
}

TEST(Spawn, MayReplaceTheCaller) {
    const auto result = support::runInChild([] {
        const char* const arguments[] = {"sh", "-c", "exit 3", nullptr};
        spawnvp(P_OVERLAY, "/bin/sh", const_cast<char* const*>(arguments));
    });
    EXPECT_TRUE(result.exitedWith(3)) << result;
}

TEST(Spawn, RefusesWhatItCannotStart) {
    const char* const arguments[] = {"x", nullptr};
    char* const* const argv = const_cast<char* const*>(arguments);
    if (!support::isEmulated()) {  // which starts a process, and that ends with 127
        EXPECT_EQ(-1, spawnvp(P_NOWAIT, "./no-such-program", argv));
        EXPECT_EQ(ENOENT, errno);
    }
    EXPECT_EQ(-1, spawnvp(99, "/bin/true", argv));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(-1, spawnvp(P_NOWAIT, "/bin/true", nullptr));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(-1, spawnvp(P_NOWAIT, "/bin/true", argv + 1));
    EXPECT_EQ(-1, spawnvp(P_NOWAIT, nullptr, argv));
}

TEST(Waitpid, TakesTheFlagOfNeutrinoAndTheOthers) {
    int status = 0;
    EXPECT_EQ(-1, waitpid(-1, &status, WEXITED));
    EXPECT_EQ(ECHILD, errno);
    const pid_t child = fork();
    if (child == 0) {
        pause();
        _exit(0);
    }
    EXPECT_EQ(0, waitpid(child, &status, WEXITED | WNOHANG));
    kill(child, SIGKILL);
    EXPECT_EQ(child, waitpid(child, &status, WEXITED));
    EXPECT_TRUE(WIFSIGNALED(status));
}

TEST(Stack, HasAnEnd) {
    errno = EACCES;
    const std::size_t here = __stackavail();
    EXPECT_EQ(EACCES, errno);
    EXPECT_GT(here, 100000u);
    volatile char* const block = static_cast<char*>(alloca(50000));
    block[0] = 1;
    EXPECT_LE(__stackavail(), here - 50000);
    std::thread([] {
        EXPECT_GT(__stackavail(), 50000u);
        EXPECT_LT(__stackavail(), std::size_t{1} << 30);
    }).join();
}

TEST(Stack, OfTheFirstThreadNeedsNoProc) {
    const auto result = support::runInChild([] {
        if (!mountEmptyOver("/proc"))
            _exit(kNoMounts);
        rlimit own;
        getrlimit(RLIMIT_STACK, &own);
        rlimit some = own;  // where there is none nobody could tell
        some.rlim_cur = 8 << 20;
        setrlimit(RLIMIT_STACK, &some);
        const std::size_t here = __stackavail();
        EXPECT_GT(here, 100000u);
        EXPECT_LE(here, std::max(own.rlim_cur, some.rlim_cur));
    });
    if (result.exitedWith(kNoMounts))
        GTEST_SKIP() << "no privilege to have a /proc of one's own";
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(Semaphore, WaitsOnTheMonotonicClock) {
    sem_t semaphore;
    sem_init(&semaphore, 0, 1);
    const timespec past = {0, -1};
    EXPECT_EQ(0, sem_timedwait_monotonic(&semaphore, &past));  // there is a unit, so nobody asks
    EXPECT_EQ(-1, sem_timedwait_monotonic(&semaphore, &past));
    EXPECT_EQ(EINVAL, errno);
    const uint64_t deadline = monotonicNs() + 10 * kMs;
    const timespec until = timeAt(deadline);
    EXPECT_EQ(-1, sem_timedwait_monotonic(&semaphore, &until));
    EXPECT_EQ(ETIMEDOUT, errno);
    EXPECT_GE(monotonicNs(), deadline);
    sem_destroy(&semaphore);
}

}  // namespace
