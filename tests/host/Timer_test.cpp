// Timers: settings and what is left of them, one pulse for each expiry, in order; pulses that stay; who sleeps for
// a channel while timers are set by others; forked children; misuse.
#include "MessageTesting.h"
#include "SignalStorm.h"
#include "support/ChildProcess.h"
#include "support/Sanitizers.h"

#include <atomic>
#include <chrono>
#include <climits>
#include <cstddef>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/siginfo.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

uint64_t now(clockid_t clock = CLOCK_MONOTONIC) {
    return host::nowNs(clock);
}

void sleepMs(int ms) {
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

struct sigevent pulseEvent(int coid, int code, int priority = 10, void* value = nullptr) {
    struct sigevent event = {};
    SIGEV_PULSE_INIT(&event, coid, priority, code, value);
    return event;
}

/// A timer, for a scope, that sends pulses of a code.
struct OwnTimer {
    explicit OwnTimer(const OwnChannel& channel, int code = 1, int priority = 10, clockid_t clock = CLOCK_MONOTONIC,
                      void* value = nullptr) {
        const struct sigevent event = pulseEvent(channel.coid, code, priority, value);
        id = TimerCreate(clock, &event);
        EXPECT_GE(id, 0);
    }
    ~OwnTimer() {
        if (id >= 0) {
            EXPECT_EQ(0, TimerDestroy(id));
        }
    }
    OwnTimer(const OwnTimer&) = delete;
    OwnTimer& operator=(const OwnTimer&) = delete;

    void destroy() {
        EXPECT_EQ(0, TimerDestroy(id));
        id = -1;
    }
    _itimer set(uint64_t nsec, uint64_t interval = 0, int flags = 0) const {
        const _itimer setting = {nsec, interval};
        _itimer old = {4711, 4711};
        EXPECT_EQ(0, TimerSettime(id, flags, &setting, &old));
        return old;
    }

    int id;
};

/// The codes of the pulses that are there.
std::vector<int> pulsesNow(const OwnChannel& channel) {
    std::vector<int> codes;
    _pulse pulse;
    while (receivePulseNow(channel.chid, pulse).result == 0)
        codes.push_back(pulse.code);
    return codes;
}

int receivePulseSoon(const OwnChannel& channel, _pulse& pulse) {
    armFor(_NTO_TIMEOUT_RECEIVE, 20 * host::kNsPerSecond);
    return MsgReceivePulse(channel.chid, &pulse, sizeof pulse, nullptr);
}

}  // namespace

TEST(Timer, APulseOfATimerSaysWhatItsEventSays) {
    const OwnChannel channel;
    int object;
    const OwnTimer timer(channel, 7, 63, CLOCK_MONOTONIC, &object);
    timer.set(1);
    _pulse pulse;
    ASSERT_EQ(0, receivePulseSoon(channel, pulse));
    EXPECT_EQ(7, pulse.code);
    EXPECT_EQ(&object, pulse.value.sival_ptr);
    EXPECT_EQ(channel.coid, pulse.scoid);
    EXPECT_EQ(_PULSE_TYPE, pulse.type);
    EXPECT_EQ(std::vector<int>(), pulsesNow(channel));
}

TEST(Timer, ARelativeTimeIsNeverEarly) {
    const OwnChannel channel;
    const OwnTimer timer(channel);
    for (int i = 0; i < 20; ++i) {
        const uint64_t due = now() + 2 * kMs;
        timer.set(2 * kMs);
        _pulse pulse;
        ASSERT_EQ(0, receivePulseSoon(channel, pulse));
        EXPECT_GE(now(), due);
    }
}

TEST(Timer, AnAbsoluteTimeIsOfTheTimersClock) {
    const OwnChannel channel;
    for (const clockid_t clock : {CLOCK_MONOTONIC, CLOCK_REALTIME}) {
        const OwnTimer timer(channel, 1, 10, clock);
        const uint64_t due = now(clock) + 3 * kMs;
        timer.set(due, 0, TIMER_ABSTIME);
        _pulse pulse;
        ASSERT_EQ(0, receivePulseSoon(channel, pulse));
        EXPECT_GE(now(clock) + 1000, due);  // the two clocks are read one after the other
    }
}

TEST(Timer, ATimeThatHasPassedIsDueAtOnceAndOnce) {
    const OwnChannel channel;
    const OwnTimer timer(channel);
    for (const uint64_t past : {uint64_t(1), now() - 1}) {
        timer.set(past, 0, TIMER_ABSTIME);
        EXPECT_EQ(std::vector<int>{1}, pulsesNow(channel));
    }
    // Of periods that lie before the setting none is made up for; the following ones keep their distance.
    const uint64_t first = now() - 10000 * kMs;
    timer.set(first, 3000 * kMs, TIMER_ABSTIME);
    EXPECT_EQ(std::vector<int>{1}, pulsesNow(channel));
    const _itimer left = timer.set(0);
    EXPECT_GT(left.nsec, 0u);
    EXPECT_LE(left.nsec, 2000 * kMs);
}

TEST(Timer, PeriodsCountFromTheirFirstTimeAlsoIfItHasPassed) {
    const OwnChannel channel;
    const uint64_t running = now();
    const struct {
        int line;
        clockid_t clock;
        uint64_t passed, period;
    } kRows[] = {
        {__LINE__, CLOCK_MONOTONIC, running / 4, running},
        {__LINE__, CLOCK_REALTIME, running / 4, running},
        {__LINE__, CLOCK_REALTIME, running + 3600000 * kMs, running + 7200000 * kMs},  // before the system started
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        const OwnTimer timer(channel, 1, 10, row.clock);
        const uint64_t second = now(row.clock) - row.passed + row.period;
        timer.set(second - row.period, row.period, TIMER_ABSTIME);
        EXPECT_EQ(std::vector<int>{1}, pulsesNow(channel));
        const uint64_t before = now(row.clock);
        const _itimer left = timer.set(0);
        EXPECT_EQ(row.period, left.interval_nsec);
        EXPECT_GE(second + 1000 * kMs, before + left.nsec) << "late by what it took to read two clocks";
        EXPECT_LE(second, now(row.clock) + left.nsec);
    }
}

TEST(Timer, EachExpiryIsAPulseWhetherSomebodyReceivesOrNot) {
    const OwnChannel channel;
    const OwnTimer timer(channel);
    const uint64_t begin = now();
    timer.set(5 * kMs, 2 * kMs);
    sleepMs(20);
    timer.set(0);
    const uint64_t end = now();
    const auto count = pulsesNow(channel).size();
    EXPECT_GE(count, 8u);
    EXPECT_LE(count, (end - begin - 5 * kMs) / (2 * kMs) + 1);
    EXPECT_EQ(std::vector<int>(), pulsesNow(channel));
}

TEST(Timer, PeriodsDoNotDrift) {
    const OwnChannel channel;
    const OwnTimer timer(channel);
    const uint64_t begin = now();
    timer.set(begin + 1 * kMs, 1 * kMs, TIMER_ABSTIME);
    for (unsigned i = 1; i <= 50; ++i) {
        _pulse pulse;
        ASSERT_EQ(0, receivePulseSoon(channel, pulse));
        EXPECT_GE(now(), begin + i * kMs);
        if (i % 10 == 0)
            sleepMs(3);
    }
    const uint64_t before = now() - begin;
    const _itimer left = timer.set(0);
    const uint64_t after = now() - begin;
    EXPECT_EQ(1 * kMs, left.interval_nsec);
    EXPECT_LE(left.nsec, 1 * kMs);
    const uint64_t due = (after + left.nsec) / kMs * kMs;  // a multiple of the period
    EXPECT_LE(before + left.nsec, due);
}

TEST(Timer, TheFormerSettingIsTimeLeftAndInterval) {
    const OwnChannel channel;
    const OwnTimer timer(channel);
    _itimer old = timer.set(1000 * kMs, 500 * kMs);
    EXPECT_EQ(0u, old.nsec);
    EXPECT_EQ(0u, old.interval_nsec);
    ASSERT_EQ(0, TimerSettime(timer.id, 0, nullptr, &old));
    EXPECT_GT(old.nsec, 0u);
    EXPECT_LE(old.nsec, 1000 * kMs);
    EXPECT_EQ(500 * kMs, old.interval_nsec);
    old = timer.set(now() + 2000 * kMs, 0, TIMER_ABSTIME);
    EXPECT_EQ(500 * kMs, old.interval_nsec);
    old = timer.set(0, 700 * kMs);
    EXPECT_GT(old.nsec, 1000 * kMs);
    EXPECT_LE(old.nsec, 2000 * kMs);
    EXPECT_EQ(0u, old.interval_nsec);
    old = timer.set(0);
    EXPECT_EQ(0u, old.nsec) << "a time of 0 disarms, whatever the interval";
    EXPECT_EQ(0u, old.interval_nsec);
    EXPECT_EQ(0, TimerSettime(timer.id, 0, nullptr, nullptr));
}

TEST(Timer, AnExpiryEndsNoSetting) {
    const OwnChannel channel;
    const OwnTimer timer(channel);
    timer.set(1);
    EXPECT_EQ(std::vector<int>{1}, pulsesNow(channel));
    EXPECT_EQ(0u, timer.set(0).nsec) << "a single shot is disarmed by its expiry";
}

TEST(Timer, PulsesThatAreQueuedStay) {
    const OwnChannel channel;
    OwnTimer timer(channel, 1);
    timer.set(1);
    sleepMs(1);
    timer.set(0);
    timer.set(1);
    sleepMs(1);
    timer.set(3600000 * kMs);
    timer.set(1);
    sleepMs(1);
    timer.destroy();
    EXPECT_EQ(std::vector<int>({1, 1, 1}), pulsesNow(channel));
}

TEST(Timer, TheMoreUrgentPulseComesFirstElseTheEarlierOne) {
    const OwnChannel channel;
    const OwnTimer late(channel, 1), early(channel, 2), urgent(channel, 3, 11), later(channel, 4), same(channel, 5);
    const uint64_t begin = now() + 50 * kMs;  // all are set by then
    late.set(begin + 3000, 0, TIMER_ABSTIME);
    later.set(begin + 4000, 0, TIMER_ABSTIME);
    same.set(begin + 4000, 0, TIMER_ABSTIME);
    early.set(begin + 1000, 0, TIMER_ABSTIME);
    urgent.set(begin + 9000, 0, TIMER_ABSTIME);
    sleepMs(52);
    EXPECT_EQ(std::vector<int>({3, 2, 1, 4, 5}), pulsesNow(channel));
}

TEST(Timer, ExpiriesTakeTheirPlaceAmongPulsesSentMeanwhile) {
    const OwnChannel channel;
    const OwnTimer timer(channel, 1);
    ASSERT_EQ(0, MsgSendPulse(channel.coid, 10, 2, 0));
    timer.set(1 * kMs);
    sleepMs(2);
    ASSERT_EQ(0, MsgSendPulse(channel.coid, 10, 3, 0));
    EXPECT_EQ(std::vector<int>({2, 1, 3}), pulsesNow(channel));
}

TEST(Timer, ManyTimersExpireInTheOrderOfTheirTimes) {
    constexpr int kTimers = 500;
    const OwnChannel channel;
    std::vector<int> ids;
    std::vector<uint64_t> due;
    const uint64_t begin = now() + 100 * kMs;
    unsigned random = 12345;
    for (std::intptr_t i = 0; i < kTimers; ++i) {
        const struct sigevent event = pulseEvent(channel.coid, 1, 10, reinterpret_cast<void*>(i));
        ids.push_back(TimerCreate(CLOCK_MONOTONIC, &event));
        ASSERT_GE(ids.back(), 0);
        for (int k = 0; k < 2; ++k) {
            random = random * 1103515245 + 12345;
            const _itimer setting = {begin + random / 4096 % 300000, 0};
            ASSERT_EQ(0, TimerSettime(ids.back(), TIMER_ABSTIME, &setting, nullptr));
            if (k == 1)
                due.push_back(setting.nsec);
        }
    }
    for (int i = 0; i < kTimers; i += 3) {
        const _itimer disarmed = {0, 0};
        ASSERT_EQ(0, TimerSettime(ids[static_cast<std::size_t>(i)], 0, &disarmed, nullptr));
    }
    sleepMs(101);
    uint64_t last = 0;
    _pulse pulse;
    int count = 0;
    while (receivePulseNow(channel.chid, pulse).result == 0) {
        const auto which = reinterpret_cast<std::uintptr_t>(pulse.value.sival_ptr);
        EXPECT_NE(0u, which % 3) << "disarmed";
        EXPECT_LE(last, due[which]);
        last = due[which];
        ++count;
    }
    EXPECT_EQ(kTimers - (kTimers + 2) / 3, count);
    for (const int id : ids)
        EXPECT_EQ(0, TimerDestroy(id));
}

TEST(Timer, SomebodyWhoSleepsIsWokenByATimerSetMeanwhile) {
    const OwnChannel channel;
    const OwnTimer timer(channel), far(channel, 2);
    far.set(3600000 * kMs);
    for (int i = 0; i < 20; ++i) {
        auto received = std::async(std::launch::async, [&] {
            _pulse pulse;
            return receivePulseSoon(channel, pulse) == 0 ? pulse.code : -1;
        });
        sleepMs(i % 3);
        timer.set(1 * kMs);
        EXPECT_EQ(1, received.get());
    }
}

TEST(Timer, AReceiverOfMessagesTakesPulsesOfTimers) {
    const OwnChannel channel;
    const OwnTimer timer(channel);
    timer.set(2 * kMs);
    _pulse pulse;
    EXPECT_EQ(0, receiveSoon(channel.chid, &pulse, sizeof pulse));
    EXPECT_EQ(1, pulse.code);
}

TEST(Timer, EachExpiryHasOneOfManyReceivers) {
    constexpr int kThreads = 4;
    constexpr int kExpiries = 100;
    const OwnChannel channel;
    const OwnTimer timer(channel), end(channel, 2, 1);
    std::atomic<int> count{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&] {
            _pulse pulse;
            while (receivePulseSoon(channel, pulse) == 0 && pulse.code == 1)
                ++count;
        });
    const uint64_t begin = now() + 1 * kMs;
    timer.set(begin, kMs / 5, TIMER_ABSTIME);
    while (count < kExpiries)
        sleepMs(1);
    timer.set(0);
    for (int i = 0; i < kThreads; ++i)
        MsgSendPulse(channel.coid, 1, 2, 0);
    for (std::thread& thread : threads)
        thread.join();
    const auto most = (now() - begin) / (kMs / 5) + 1;
    EXPECT_LE(static_cast<uint64_t>(count), most);
    EXPECT_EQ(std::vector<int>(), pulsesNow(channel));
}

TEST(Timer, AReceiversOwnTimeOutHoldsBesideTimers) {
    const OwnChannel channel;
    const OwnTimer timer(channel);
    timer.set(3600000 * kMs);
    _pulse pulse;
    const uint64_t begin = now();
    armFor(_NTO_TIMEOUT_RECEIVE, 5 * kMs);
    EXPECT_EQ(kTimedOut, outcomeOf([&] { return MsgReceivePulse(channel.chid, &pulse, sizeof pulse, nullptr); }));
    EXPECT_GE(now() - begin, 5 * kMs);
}

TEST(Timer, CaughtSignalsInterruptTheWaitAndLoseNothing) {
    const OwnChannel channel;
    const OwnTimer timer(channel);
    const uint64_t begin = now();
    timer.set(begin + kMs, kMs, TIMER_ABSTIME);
    int pulses = 0;
    int interruptions = 0;
    {
        const SignalStorm storm([](int) {});
        while (pulses < 100) {
            _pulse pulse;
            if (receivePulseSoon(channel, pulse) == 0)
                ++pulses;
            else {
                ASSERT_EQ(EINTR, errno);
                ++interruptions;
            }
        }
    }
    EXPECT_GE(now(), begin + 100 * kMs);
    EXPECT_GT(interruptions, 0);
}

TEST(Timer, ADetachedConnectionCarriesNoPulses) {
    const OwnChannel channel;
    const int coid = ConnectAttach(0, 0, channel.chid, _NTO_SIDE_CHANNEL, 0);
    const struct sigevent event = pulseEvent(coid, 1);
    const int id = TimerCreate(CLOCK_MONOTONIC, &event);
    ASSERT_GE(id, 0);
    const _itimer setting = {1, kMs};
    const uint64_t begin = now();
    ASSERT_EQ(0, TimerSettime(id, 0, &setting, nullptr));
    sleepMs(1);
    ASSERT_EQ(0, ConnectDetach(coid));
    const uint64_t most = (now() - begin) / kMs + 1;
    sleepMs(5);
    const auto count = pulsesNow(channel).size();
    EXPECT_GE(count, 1u) << "what had expired before";
    EXPECT_LE(count, most);
    EXPECT_EQ(0, TimerDestroy(id));
}

TEST(Timer, ATimerOutlivesItsChannel) {
    int id;
    {
        const OwnChannel channel;
        const struct sigevent event = pulseEvent(channel.coid, 1);
        id = TimerCreate(CLOCK_MONOTONIC, &event);
        const _itimer setting = {1, kMs};
        ASSERT_EQ(0, TimerSettime(id, 0, &setting, nullptr));
    }
    const OwnChannel other;
    sleepMs(2);
    EXPECT_EQ(std::vector<int>(), pulsesNow(other));
    const _itimer again = {1, kMs};
    EXPECT_EQ(0, TimerSettime(id, 0, &again, nullptr));
    EXPECT_EQ(0, TimerDestroy(id));
}

TEST(Timer, HugeTimesNeverCome) {
    const OwnChannel channel;
    const OwnTimer timer(channel);
    for (const int flags : {0, TIMER_ABSTIME}) {
        timer.set(UINT64_MAX, UINT64_MAX, flags);
        EXPECT_EQ(std::vector<int>(), pulsesNow(channel));
        _itimer old;
        EXPECT_EQ(0, TimerSettime(timer.id, 0, nullptr, &old));
        EXPECT_GT(old.nsec, UINT64_MAX / 4);
        EXPECT_EQ(UINT64_MAX, old.interval_nsec);
    }
    timer.set(1, UINT64_MAX);
    EXPECT_EQ(std::vector<int>{1}, pulsesNow(channel));
    EXPECT_EQ(std::vector<int>(), pulsesNow(channel));
}

TEST(Timer, APeriodIsAMicrosecondAtLeastAndAMillionExpiriesAreMadeUpFor) {
    const OwnChannel channel;
    const OwnTimer timer(channel);
    timer.set(1, 1);
    _itimer old;
    EXPECT_EQ(0, TimerSettime(timer.id, 0, nullptr, &old));
    EXPECT_EQ(1000u, old.interval_nsec);
    sleepMs(1100);
    timer.set(0);
    int count = 0;
    _pulse pulse;
    while (receivePulseNow(channel.chid, pulse).result == 0)
        ++count;
    EXPECT_GE(count, 1 << 20);
    EXPECT_LT(count, (1 << 20) + (1 << 16));
}

TEST(Timer, MisuseIsAnError) {
    const OwnChannel channel;
    struct sigevent event = pulseEvent(channel.coid, 1);
    EXPECT_EQ((Outcome{-1, EINVAL}), outcomeOf([&] { return TimerCreate(CLOCK_PROCESS_CPUTIME_ID, &event); }));
    for (const int priority : {-1, 0, 64}) {
        event = pulseEvent(channel.coid, 1, priority);
        EXPECT_EQ((Outcome{-1, EINVAL}), outcomeOf([&] { return TimerCreate(CLOCK_MONOTONIC, &event); }));
    }
    for (const int coid : {-1, 0, 3, channel.coid + 1}) {
        event = pulseEvent(coid, 1);
        EXPECT_EQ((Outcome{-1, EBADF}), outcomeOf([&] { return TimerCreate(CLOCK_MONOTONIC, &event); }));
    }
    const _itimer setting = {1, 0};
    for (const int id : {-1, 0, 4711, INT_MAX, INT_MIN}) {
        EXPECT_EQ((Outcome{-1, EINVAL}), outcomeOf([&] { return TimerSettime(id, 0, &setting, nullptr); })) << id;
        EXPECT_EQ((Outcome{-1, EINVAL}), outcomeOf([&] { return TimerDestroy(id); })) << id;
    }
    const int id = OwnTimer(channel).id;
    EXPECT_EQ((Outcome{-1, EINVAL}), outcomeOf([&] { return TimerDestroy(id); })) << "destroyed before";
}

TEST(Timer, OtherEventsAreRefusedAloud) {
    const auto result = support::runInChild([] {
        struct sigevent event = {};
        event.sigev_notify = SIGEV_SIGNAL;
        EXPECT_EQ((Outcome{-1, ENOTSUP}), outcomeOf([&] { return TimerCreate(CLOCK_MONOTONIC, &event); }));
        EXPECT_EQ((Outcome{-1, ENOTSUP}), outcomeOf([&] { return TimerCreate(CLOCK_MONOTONIC, nullptr); }));
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    const std::string line =
        "neutrino host: TimerCreate with an event other than SIGEV_PULSE is not supported on Linux\n";
    EXPECT_EQ(line + line, result.err);
}

TEST(Timer, SuccessLeavesErrnoAndConsumesAnArmedTimeOut) {
    const OwnChannel channel;
    const struct sigevent event = pulseEvent(channel.coid, 1);
    int id = -1;
    errno = EACCES;
    armNow(_NTO_TIMEOUT_RECEIVE);
    id = TimerCreate(CLOCK_MONOTONIC, &event);
    ASSERT_GE(id, 0);
    const _itimer setting = {2 * kMs, 0};
    _pulse pulse;
    armNow(_NTO_TIMEOUT_RECEIVE);
    EXPECT_EQ(0, TimerSettime(id, 0, &setting, nullptr));
    EXPECT_EQ(0, MsgReceivePulse(channel.chid, &pulse, sizeof pulse, nullptr)) << "it waited";
    EXPECT_EQ(0, TimerSettime(id, 0, &setting, nullptr));
    armNow(_NTO_TIMEOUT_RECEIVE);
    EXPECT_EQ(0, TimerDestroy(id));
    EXPECT_EQ(EACCES, errno);
    MsgSendPulse(channel.coid, 1, 9, 0);
    EXPECT_EQ(0, MsgReceivePulse(channel.chid, &pulse, sizeof pulse, nullptr));
}

TEST(Timer, AForkedChildHasNoTimers) {
    const OwnChannel channel;
    const OwnTimer timer(channel);
    timer.set(20 * kMs);
    const auto result = support::runInChild([&] {
        const _itimer setting = {1, 0};
        EXPECT_EQ((Outcome{-1, EINVAL}), outcomeOf([&] { return TimerSettime(timer.id, 0, &setting, nullptr); }));
        const OwnChannel own;
        const OwnTimer ownTimer(own, 5);
        ownTimer.set(1);
        EXPECT_EQ(std::vector<int>{5}, pulsesNow(own));
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    _pulse pulse;
    EXPECT_EQ(0, receivePulseSoon(channel, pulse));
}

TEST(Timer, TimersTakeNoDescriptors) {
    const OwnChannel channel;
    const int before = dup(0);
    close(before);
    const OwnTimer timer(channel);
    timer.set(1 * kMs);
    _pulse pulse;
    ASSERT_EQ(0, receivePulseSoon(channel, pulse));
    const int after = dup(0);
    close(after);
    EXPECT_EQ(before, after);
}

// The second's look at the door falls before.
TEST(Timer, AWaitForAnExpirySleepsAndAsksTheKernelForNothingElse) {
    if (support::isEmulated() || support::kIsSanitized)
        GTEST_SKIP() << "the emulator and the sanitizers make system calls of their own";
    const auto result = support::runInChild([] {
        const OwnChannel channel;
        const OwnTimer timer(channel);
        timer.set(kMs, kMs);
        _pulse pulse;
        receivePulseSoon(channel, pulse);
        const sock_filter program[] = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_futex, 2, 0),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clock_gettime, 1, 0),  // where it needs the kernel
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 0, 1),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
        };
        const sock_fprog filter = {std::size(program), const_cast<sock_filter*>(program)};
        prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
        if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0)
            _exit(1);
        for (int i = 0; i < 20; ++i)
            if (receivePulseSoon(channel, pulse) != 0)
                _exit(2);
        _exit(3);
    });
    EXPECT_TRUE(result.exitedWith(3)) << result;
}

TEST(Timer, TimersSetByManyThreadsAreAllCounted) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 500;
    const OwnChannel channel;
    std::atomic<int> running{kThreads};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] {
            for (int round = 0; round < kRounds; ++round) {
                const OwnTimer timer(channel, i + 1);
                timer.set(1, 0, round % 2 == 0 ? 0 : TIMER_ABSTIME);
                _itimer left = {1, 0};
                while (left.nsec != 0)
                    TimerSettime(timer.id, 0, nullptr, &left);
            }
            --running;
        });
    std::vector<int> counts(kThreads);
    for (bool isOver = false; !isOver;) {
        const bool isLast = running == 0;
        _pulse pulse;
        armFor(_NTO_TIMEOUT_RECEIVE, kMs);
        if (MsgReceivePulse(channel.chid, &pulse, sizeof pulse, nullptr) == 0)
            ++counts[static_cast<std::size_t>(pulse.code) - 1];
        else
            isOver = isLast;
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(std::vector<int>(kThreads, kRounds), counts);
}
