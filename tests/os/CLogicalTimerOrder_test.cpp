// CLogicalTimerManager on a clock that stands still: which timers a round calls, in which order, what the kernel
// timer is set to, and all that beside a plain version that always walks from the front. The units are compiled
// here a second time, under other names, against a kernel that is set by hand.
#include <CVQAsserter.h>
#include <CVQOptionalLock.h>
#include <VQMemory.h>
#include <VQOperatingSystem.h>
#include <os/TimerPulses.h>

#include "support/AssertionLog.h"
#include "support/Sanitizers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <list>
#include <memory>
#include <random>
#include <sys/neutrino.h>
#include <vector>

namespace manual {

constexpr unsigned long long kMs = 1000000;
constexpr unsigned long long kBias = 123456789;

/// The kernel below the manager under test.
struct SKernel {
    unsigned long long now = kBias;
    uint64_t armed = 0;  // absolute; 0: not armed
    int settings = 0;
    int pulses = 0;
    int refused = 0;  // which call fails
    int destroyed = 0;
    int nextTimeoutMs = 0;
    bool hasMemory = true;
    void* pulseValue = nullptr;

    void advance(unsigned long long ns) {
        now += ns;
        if (armed != 0 && armed <= now) {
            armed = 0;
            ++pulses;
        }
    }
};
SKernel sKernel;

int refusable(int call, int result) {
    return sKernel.refused == call ? -1 : result;
}
int settime(int id, int flags, const _itimer* setting, _itimer* old) {
    EXPECT_EQ(nullptr, old);
    EXPECT_EQ(0u, setting->interval_nsec);
    EXPECT_EQ(setting->nsec == 0 ? 0 : TIMER_ABSTIME, flags);
    ++sKernel.settings;
    if (id == -1 || sKernel.refused == 4)
        return -1;
    EXPECT_EQ(33, id);
    sKernel.armed = setting->nsec;
    sKernel.advance(0);
    return 0;
}
int destroyed(int what) {
    sKernel.destroyed = sKernel.destroyed * 100 + what;
    return 0;
}

}  // namespace manual

namespace ManualClock {
unsigned long long getMonotonicTime() {
    return manual::sKernel.now;
}
unsigned long long getMonotonicBias() {
    return manual::kBias;
}
}  // namespace ManualClock

namespace ManualPulses {
using VQTimerPulses::atLeastOneMs;
using VQTimerPulses::kNsPerMs;
int createChannel() {
    return manual::refusable(1, 11);
}
int connect(int channel) {
    return manual::refusable(2, channel == 11 ? 22 : -1);
}
int createTimer(int connection, void* value) {
    manual::sKernel.pulseValue = value;
    return manual::refusable(3, connection == 22 ? 33 : -1);
}
bool receive(int, int timeoutMs, _pulse&) {
    manual::sKernel.nextTimeoutMs = timeoutMs;
    if (manual::sKernel.pulses == 0)
        return false;
    --manual::sKernel.pulses;
    return true;
}
}  // namespace ManualPulses

namespace ManualMemory {
using VQMemory::release;
void* realloc(void* block, std::size_t size) {
    return manual::sKernel.hasMemory ? VQMemory::realloc(block, size) : nullptr;
}
}  // namespace ManualMemory

#define CLogicalTimerManager CLogicalTimerManagerByHand
#define CLogicalTimer CLogicalTimerByHand
#include <CLogicalTimerManager.h>

#define VQOperatingSystem ManualClock
#define VQTimerPulses ManualPulses
#define VQMemory ManualMemory
#define TimerSettime manual::settime
#define TimerDestroy manual::destroyed
#define ConnectDetach manual::destroyed
#define ChannelDestroy manual::destroyed
#include "os/CLogicalTimerManager.cpp"
#define kUnit kUnitQNX
#include "os/CLogicalTimerManagerQNX.cpp"

using manual::kMs;
using manual::sKernel;

namespace {

/// A timer that notes when it is called.
class CNotingTimer : public CLogicalTimer {
public:
    CNotingTimer(CLogicalTimerManager& manager, int number, std::vector<int>& calls)
        : CLogicalTimer(manager), mNumber(number), mCalls(calls) {}

    void onTimeout() override {
        mCalls.push_back(mNumber);
        if (onCall)
            onCall();
    }

    std::function<void()> onCall;

private:
    const int mNumber;
    std::vector<int>& mCalls;
};

class CLogicalTimerOrder : public testing::Test {
protected:
    CLogicalTimerOrder() { makeTimers(4); }
    ~CLogicalTimerOrder() override {
        timers.clear();
        manager.reset();
        EXPECT_EQ(332211, sKernel.destroyed);
    }

    static std::unique_ptr<CLogicalTimerManager> newManager(int workTimeoutMs = 10) {
        sKernel = manual::SKernel();
        return std::make_unique<CLogicalTimerManager>(workTimeoutMs, /*threadSafe*/ false);
    }

    void makeTimers(int count) {
        for (int i = 0; i < count; ++i)
            timers.push_back(std::make_unique<CNotingTimer>(*manager, i, calls));
    }
    CNotingTimer& operator[](int number) { return *timers[static_cast<std::size_t>(number)]; }

    static void pass(unsigned ms) { sKernel.advance(ms * kMs); }
    /// In the round that follows, the order after 1 was called is 0 3 1 2: it goes on at 3, which is not due.
    void letOneStartThree() {
        (*this)[0].start(8, false);
        (*this)[1].start(10, false);
        (*this)[2].start(10, true);
        (*this)[1].onCall = [this] { (*this)[3].start(7, true); };
        pass(10);
    }
    /// When the kernel timer is due, in nanoseconds from the first moment; 0 when it is not armed.
    static unsigned long long armed() { return sKernel.armed == 0 ? 0 : sKernel.armed - manual::kBias; }
    std::vector<int> takeCalls() { return std::exchange(calls, {}); }
    /// The calls of the next round, whose count has to agree.
    std::vector<int> round() {
        calls.clear();
        const int count = manager->performWork();
        EXPECT_EQ(static_cast<std::size_t>(count), calls.size());
        return takeCalls();
    }

    std::unique_ptr<CLogicalTimerManager> manager = newManager();
    std::vector<int> calls;
    std::vector<std::unique_ptr<CNotingTimer>> timers;
};

using Calls = std::vector<int>;

}  // namespace

TEST_F(CLogicalTimerOrder, TheEarliestTimerIsTheKernels) {
    EXPECT_EQ(0u, armed());
    (*this)[0].start(30, true);
    EXPECT_EQ(30 * kMs, armed());
    (*this)[1].start(20, true);
    EXPECT_EQ(20 * kMs, armed());
    (*this)[2].start(40, true);
    EXPECT_EQ(20 * kMs, armed());
    (*this)[1].stop();
    EXPECT_EQ(30 * kMs, armed());
    (*this)[0].stop();
    (*this)[2].stop();
    EXPECT_EQ(0u, armed()) << "the last stop disarms it";
    (*this)[2].start(5, true);
    EXPECT_EQ(5 * kMs, armed()) << "and a start arms it again";
}

TEST_F(CLogicalTimerOrder, ThePulseCarriesTheManagersAddressAtWhichNobodyLooks) {
    EXPECT_EQ(manager.get(), sKernel.pulseValue);
}

// Through the manager, which does not refuse it as the timer does; even at the time 0 of its clock.
TEST_F(CLogicalTimerOrder, ATimerThatIsRegisteredWithoutATimeIsDueAtOnce) {
    for (const bool singleShot : {true, false}) {
        manager->registerTimer((*this)[0], 0, singleShot);
        manager->registerTimer((*this)[0], 0, singleShot);
        pass(1);
        EXPECT_EQ(Calls{0}, round());
        EXPECT_EQ(Calls(), round());
        EXPECT_EQ(0u, armed());
        sKernel.now = manual::kBias;
        manager->registerTimer((*this)[0], 0, singleShot);
        (*this)[0].stop();
        EXPECT_EQ(Calls(), round());
        sKernel = manual::SKernel();
    }
}

TEST_F(CLogicalTimerOrder, TheKernelTimerIsSetOnlyWhenItChanges) {
    (*this)[0].start(10, true);
    const int settings = sKernel.settings;
    for (int i = 1; i < 4; ++i)
        (*this)[i].start(20, true);
    (*this)[2].stop();
    (*this)[2].stop();
    EXPECT_EQ(settings, sKernel.settings);
    pass(10);
    // It has expired: as each start does, this one sets it to what it was, so that there is a second pulse.
    (*this)[2].start(20, true);
    EXPECT_EQ(settings + 1, sKernel.settings);
    EXPECT_EQ(2, sKernel.pulses);
    EXPECT_EQ(Calls{0}, round());
    EXPECT_EQ(Calls(), round());
    EXPECT_EQ(20 * kMs, armed());
}

TEST_F(CLogicalTimerOrder, ZeroMillisecondsAreRefusedAndChangeNothing) {
    EXPECT_TRUE((*this)[0].start(30, true));
    EXPECT_FALSE((*this)[0].start(0, true));
    EXPECT_FALSE((*this)[1].start(0, false));
    EXPECT_EQ(30 * kMs, armed());
    pass(30);
    EXPECT_EQ(Calls{0}, round());
}

TEST_F(CLogicalTimerOrder, EqualTimesFireInTheOrderOfTheirStarts) {
    (*this)[2].start(10, true);
    (*this)[0].start(10, false);
    (*this)[3].start(9, true);
    (*this)[1].start(10, true);
    pass(10);
    EXPECT_EQ(Calls({3, 2, 0, 1}), round());
}

TEST_F(CLogicalTimerOrder, APeriodCountsFromTheLastExpiryAndIsCaughtUpByOneCallARound) {
    (*this)[0].start(100, false);
    pass(350);
    EXPECT_EQ(1, sKernel.pulses);
    EXPECT_EQ(Calls{0}, round());
    EXPECT_EQ(Calls{0}, round());
    EXPECT_EQ(Calls{0}, round());
    EXPECT_EQ(Calls(), round());
    EXPECT_EQ(400 * kMs, armed());
    pass(50);
    EXPECT_EQ(Calls{0}, round());
}

TEST_F(CLogicalTimerOrder, Kept_APeriodHas32Bits) {
    (*this)[0].start(5000, false);
    EXPECT_EQ(5000 * kMs, armed());
    pass(5000);
    EXPECT_EQ(Calls{0}, round());
    EXPECT_EQ(5000 * kMs + 705032704, armed());
    (*this)[0].start(1u << 26, false);  // the factor 10^6 has the other six bits
    pass(1u << 26);
    EXPECT_EQ(Calls{0}, round());
    EXPECT_EQ(0u, armed()) << "a period of 0 is none";
    (*this)[0].start(~0u, true);
    EXPECT_EQ(sKernel.now - manual::kBias + ~0u * kMs, armed());
}

TEST_F(CLogicalTimerOrder, TimesAreComparedIn64Bits) {
    (*this)[0].start(5000, true);  // 2^32 ns and 705 ms
    (*this)[1].start(1000, true);
    EXPECT_EQ(1000 * kMs, armed());
    pass(1000);
    EXPECT_EQ(Calls{1}, round());
    EXPECT_EQ(5000 * kMs, armed());
    pass(4000);
    EXPECT_EQ(Calls{0}, round());
}

TEST_F(CLogicalTimerOrder, ATimerIsDueAtItsTimeAndNotANanosecondBefore) {
    (*this)[0].start(10, true);
    sKernel.advance(1);
    (*this)[1].start(10, true);
    sKernel.advance(10 * kMs - 1);
    EXPECT_EQ(Calls{0}, round());
    sKernel.advance(1);
    EXPECT_EQ(Calls{1}, round());
}

TEST_F(CLogicalTimerOrder, WhatItsOwnHandlerStartedAnewIsUnmarkedAfterTheRound) {
    (*this)[3].onCall = [this] { (*this)[3].start(50, true); };
    (*this)[3].start(5, false);
    pass(5);
    EXPECT_EQ(Calls{3}, round());
    (*this)[3].stop();
    letOneStartThree();
    EXPECT_EQ(Calls({0, 1}), round()) << "without a mark the third ends the round";
    EXPECT_EQ(Calls{2}, round());
    for (const int number : {0, 1, 3})
        (*this)[number].stop();
}

TEST_F(CLogicalTimerOrder, WhatBecomesDueWhileHandlersRunIsLeftForTheNextRound) {
    (*this)[0].onCall = [] { pass(5); };
    (*this)[0].start(10, true);
    (*this)[1].start(12, true);
    pass(10);
    EXPECT_EQ(Calls{0}, round());
    EXPECT_EQ(1, sKernel.pulses) << "which follows at once";
    EXPECT_EQ(Calls{1}, round());
}

TEST_F(CLogicalTimerOrder, ARestartMovesATimerToItsNewPlace) {
    (*this)[0].start(10, true);
    (*this)[1].start(20, true);
    (*this)[0].start(30, true);
    EXPECT_EQ(20 * kMs, armed());
    pass(30);
    EXPECT_EQ(Calls({1, 0}), round());
}

TEST_F(CLogicalTimerOrder, PeriodicTimersComeBetweenOthersAtTheirNextTimes) {
    (*this)[0].start(10, false);
    (*this)[1].start(30, false);
    (*this)[2].start(35, true);
    pass(30);
    EXPECT_EQ(Calls({0, 1}), round());  // 0 is at 20, 1 at 60
    EXPECT_EQ(Calls{0}, round());
    EXPECT_EQ(Calls{0}, round());
    EXPECT_EQ(Calls(), round());
    EXPECT_EQ(35 * kMs, armed());
    pass(5);
    EXPECT_EQ(Calls{2}, round());
    EXPECT_EQ(40 * kMs, armed());
}

TEST_F(CLogicalTimerOrder, ASingleShotTimerIsIdleAfterItFired) {
    (*this)[0].start(10, true);
    pass(10);
    EXPECT_EQ(Calls{0}, round());
    EXPECT_EQ(0u, armed());
    (*this)[0].stop();
    pass(100);
    EXPECT_EQ(Calls(), round());
    (*this)[0].start(10, true);
    pass(10);
    EXPECT_EQ(Calls{0}, round());
}

TEST_F(CLogicalTimerOrder, ASingleShotTimerThatIsStartedByItsHandlerFiresAgain) {
    (*this)[0].onCall = [this] { (*this)[0].start(10, true); };
    (*this)[0].start(10, true);
    (*this)[1].start(10, true);
    for (int i = 1; i <= 3; ++i) {
        pass(10);
        EXPECT_EQ(i == 1 ? Calls({0, 1}) : Calls{0}, round());
        EXPECT_EQ((i + 1) * 10 * kMs, armed());
    }
}

TEST_F(CLogicalTimerOrder, AHandlerMayTakeItsStartBack) {
    (*this)[0].onCall = [this] {
        (*this)[0].start(10, true);
        (*this)[0].start(20, false);
        (*this)[0].stop();
        (*this)[0].stop();
    };
    (*this)[0].start(10, true);
    pass(10);
    EXPECT_EQ(Calls{0}, round());
    EXPECT_EQ(0u, armed());
}

TEST_F(CLogicalTimerOrder, APeriodicTimerThatIsStoppedByItsHandlerIsIdle) {
    (*this)[0].onCall = [this] { (*this)[0].stop(); };
    (*this)[0].start(10, false);
    pass(10);
    EXPECT_EQ(Calls{0}, round());
    EXPECT_EQ(0u, armed());
    (*this)[0].onCall = nullptr;
    (*this)[0].start(10, true);
    pass(10);
    EXPECT_EQ(Calls{0}, round());
}

TEST_F(CLogicalTimerOrder, AHandlerMayStopAndStartOthers) {
    (*this)[0].onCall = [this] {
        (*this)[1].stop();
        (*this)[3].start(5, true);
    };
    (*this)[0].start(10, true);
    (*this)[1].start(11, true);
    (*this)[2].start(12, true);
    pass(11);
    EXPECT_EQ(Calls{0}, round());
    EXPECT_EQ(12 * kMs, armed());
    pass(5);
    EXPECT_EQ(Calls({2, 3}), round());
}

TEST_F(CLogicalTimerOrder, Kept_ARoundGoesOnAtTheSecondTimer) {
    (*this)[0].onCall = [this] { (*this)[0].stop(); };
    for (int i = 0; i < 4; ++i)
        (*this)[i].start(10, false);
    pass(10);
    EXPECT_EQ(Calls({0, 2, 3}), round()) << "timer 1 had become the first";
    EXPECT_EQ(1, sKernel.pulses) << "the next round follows at once";
    EXPECT_EQ(Calls{1}, round());
    EXPECT_EQ(20 * kMs, armed());
}

TEST_F(CLogicalTimerOrder, ATimerThatIsStartedAmongThoseThatFiredHoldsTheRoundUp) {
    (*this)[0].start(10, false);
    (*this)[1].start(10, false);
    (*this)[2].start(10, true);
    (*this)[1].onCall = [this] {
        (*this)[0].stop();
        (*this)[3].start(5, true);  // stands before 1, whose next time is later; so 2 is first and not second
    };
    pass(10);
    EXPECT_EQ(Calls({0, 1, 2}), round());
    EXPECT_EQ(15 * kMs, armed());
    pass(10);
    EXPECT_EQ(Calls({3, 1}), round());
}

TEST_F(CLogicalTimerOrder, AtEqualTimesAPeriodicTimerIsBehindThoseThatWereStartedBeforeItsLastCall) {
    (*this)[0].start(10, false);
    (*this)[1].start(20, true);
    pass(10);
    EXPECT_EQ(Calls{0}, round());
    pass(10);
    EXPECT_EQ(Calls({1, 0}), round());
}

// In the list it may have stood before one that fired, or behind all of these.
TEST_F(CLogicalTimerOrder, AtEqualTimesAPeriodicTimerIsBehindThoseThatHandlersStartedInItsRound) {
    for (const bool singleShot : {false, true}) {
        (*this)[1].onCall = [this] { (*this)[2].start(10, true); };
        (*this)[1].start(30, singleShot);
        pass(18);
        (*this)[0].start(11, false);
        pass(12);
        EXPECT_EQ(Calls({0, 1}), round());
        EXPECT_EQ(10 * kMs, armed() - (sKernel.now - manual::kBias));
        pass(10);
        EXPECT_EQ(Calls({2, 0}), round());
        (*this)[0].stop();
        (*this)[1].stop();
    }
}

TEST_F(CLogicalTimerOrder, Kept_ATimerStoppedInTheRoundItFiredInIsPassedOverWhereAHandlerStartsIt) {
    for (const bool isMarked : {true, false}) {
        (*this)[3].onCall = [this] { (*this)[3].stop(); };
        (*this)[3].start(5, false);
        pass(5);
        EXPECT_EQ(Calls{3}, round());
        (*this)[3].start(50, true);
        if (!isMarked) {
            ++sKernel.pulses;
            EXPECT_EQ(Calls(), round());
        }
        (*this)[3].stop();
        letOneStartThree();
        EXPECT_EQ(isMarked ? Calls({0, 1, 2}) : Calls({0, 1}), round());
        EXPECT_EQ(isMarked ? Calls() : Calls{2}, round());
        for (const auto& timer : timers) {
            timer->onCall = nullptr;
            timer->stop();
        }
    }
}

TEST_F(CLogicalTimerOrder, AHandlerMayDestroyTimersItsOwnIncluded) {
    for (const bool singleShot : {true, false}) {
        makeTimers(4 - static_cast<int>(timers.size()));
        for (int i = 0; i < 4; ++i) {
            timers[static_cast<std::size_t>(i)] = std::make_unique<CNotingTimer>(*manager, i, calls);
            (*this)[i].start(10, singleShot);
        }
        CNotingTimer& own = (*this)[0];
        own.onCall = [this, &own] {
            timers[2].reset();
            const auto keepAlive = own.onCall;
            timers[0].reset();
        };
        pass(10);
        Calls all = round();
        const Calls rest = round();
        all.insert(all.end(), rest.begin(), rest.end());
        EXPECT_EQ(Calls({0, 3, 1}), all);
        timers.resize(2);
        timers.clear();
    }
}

TEST_F(CLogicalTimerOrder, ARoundWithinARoundCallsNobody) {
    int inner = -1;
    (*this)[0].onCall = [&] {
        ++sKernel.pulses;
        inner = manager->performWork();
    };
    (*this)[0].start(10, true);
    (*this)[1].start(10, true);
    pass(10);
    EXPECT_EQ(Calls({0, 1}), round());
    EXPECT_EQ(0, inner);
    (*this)[1].start(10, true);
    EXPECT_EQ(20 * kMs, armed()) << "the kernel timer is still kept up to date";
}

TEST_F(CLogicalTimerOrder, AManagerThatIsDestroyedLetsItsTimersGo) {
    support::AssertionLog log;
    timers.resize(2);
    (*this)[0].start(10, true);
    (*this)[1].start(10, false);
    manager.reset();
    const std::string what = "ASSERTION \"Cannot delete timer manager since timers are still active\" failed";
    EXPECT_EQ(std::vector<std::string>({"CLogicalTimerManager:85: " + what, what + " in CLogicalTimerManager 85"}),
              log.takeSites());
    EXPECT_EQ(332211, sKernel.destroyed);
    EXPECT_FALSE((*this)[0].start(10, true));
    (*this)[0].stop();
}

TEST_F(CLogicalTimerOrder, ATimeOutOfZeroIsOneMillisecond) {
    for (const auto& [given, used] : {std::pair(0, 1), std::pair(1, 1), std::pair(-1, -1), std::pair(500, 500)}) {
        timers.clear();
        manager.reset();
        manager = newManager(given);
        EXPECT_EQ(0, manager->performWork());
        EXPECT_EQ(used, sKernel.nextTimeoutMs);
    }
}

TEST_F(CLogicalTimerOrder, RefusedKernelObjectsAreAssertions) {
    timers.clear();
    manager.reset();
    support::AssertionLog log;
    const std::vector<std::string> all = {"CLogicalTimerManagerQNX:47", "CLogicalTimerManagerQNX:54",
                                          "CLogicalTimerManagerQNX:69"};
    for (std::size_t call = 1; call <= 3; ++call) {
        sKernel = manual::SKernel();
        sKernel.refused = static_cast<int>(call);
        manager = std::make_unique<CLogicalTimerManager>(10, false);
        EXPECT_EQ(std::vector<std::string>(all.begin() + static_cast<std::ptrdiff_t>(call) - 1, all.end()),
                  log.takeSites());
        makeTimers(1);
        (*this)[0].start(10, true);
        (*this)[0].start(10, true);
        EXPECT_EQ(std::vector<std::string>(2, "CLogicalTimerManagerQNX:95"), log.takeSites());
        timers.clear();
        manager.reset();
    }
    manager = newManager();
    makeTimers(1);
    sKernel.refused = 4;
    (*this)[0].start(10, true);
    EXPECT_EQ(std::vector<std::string>{"CLogicalTimerManagerQNX:95"}, log.takeSites());
    sKernel.refused = 0;
    (*this)[0].start(10, true);
    EXPECT_EQ(10 * kMs, armed());
}

// Beside a plain version.

namespace {

/// What a driver of timers can do, and a handler.
class ITimers {
public:
    virtual ~ITimers() = default;
    virtual void start(int timer, unsigned ms, bool singleShot) = 0;
    virtual void stop(int timer) = 0;
    virtual int round() = 0;
    /// When the kernel timer would be due, 0 for never.
    virtual unsigned long long due() = 0;

    std::function<void(int timer)> onCall;
};

class CTimersUnderTest : public ITimers {
public:
    explicit CTimersUnderTest(int count) : mManager(10, false) {
        for (int i = 0; i < count; ++i) {
            mTimers.push_back(std::make_unique<CNotingTimer>(mManager, i, mCalls));
            mTimers.back()->onCall = [this, i] { onCall(i); };
        }
    }
    void start(int timer, unsigned ms, bool singleShot) override {
        mTimers[static_cast<std::size_t>(timer)]->start(ms, singleShot);
    }
    void stop(int timer) override { mTimers[static_cast<std::size_t>(timer)]->stop(); }
    int round() override {
        sKernel.pulses = 1;
        return mManager.performWork();
    }
    unsigned long long due() override {
        // One that has expired is due now; the kernel here forgets when it was.
        return sKernel.armed != 0 ? sKernel.armed - manual::kBias : 0;
    }

private:
    CLogicalTimerManager mManager;
    std::vector<int> mCalls;
    std::vector<std::unique_ptr<CNotingTimer>> mTimers;
};

/// Walks from the front for everything, and resets and looks at all registered timers in each round.
class CPlainTimers : public ITimers {
public:
    explicit CPlainTimers(int count) : mTimers(static_cast<std::size_t>(count)) {}

    void start(int number, unsigned ms, bool singleShot) override {
        STimer& timer = mTimers[static_cast<std::size_t>(number)];
        if (timer.expiry != 0)
            stop(number);
        timer.expiry = sKernel.now - manual::kBias + ms * kMs;
        timer.period = singleShot ? 0 : static_cast<unsigned>(ms * kMs);
        if (std::find(mList.begin(), mList.end(), number) == mList.end()) {
            timer.isStartedInRound = mIsInRound;
            insert(number);
        }
    }

    void stop(int number) override {
        STimer& timer = mTimers[static_cast<std::size_t>(number)];
        if (timer.expiry == 0)
            return;
        mList.remove(number);
        timer.expiry = timer.period = 0;
    }

    int round() override {
        if (mList.empty())
            return 0;
        mIsInRound = true;
        for (const int number : mList)
            mTimers[static_cast<std::size_t>(number)].state = 0;
        for (STimer& timer : mTimers)
            timer.isStartedInRound = false;
        const unsigned long long now = sKernel.now - manual::kBias;
        int count = 0;
        for (auto cursor = mList.begin(); cursor != mList.end();) {
            STimer& timer = mTimers[static_cast<std::size_t>(*cursor)];
            if (timer.state == 1) {
                ++cursor;
                continue;
            }
            if (timer.expiry > now)
                break;
            timer.expiry = timer.period == 0 ? 0 : timer.expiry + timer.period;
            timer.state = 1;
            onCall(*cursor);
            ++count;
            cursor = mList.begin();
            if (cursor != mList.end())
                ++cursor;
        }
        resort();
        mIsInRound = false;
        return count;
    }

    unsigned long long due() override {
        return mList.empty() ? 0 : mTimers[static_cast<std::size_t>(mList.front())].expiry;
    }

private:
    struct STimer {
        unsigned long long expiry = 0;
        unsigned period = 0;
        int state = 0;  // 1: fired, 2: put into the list again; as it was when it left the list in a round
        bool isStartedInRound = false;
    };

    void insert(int number) {
        const auto isLater = [&](int other) {
            return mTimers[static_cast<std::size_t>(other)].expiry >
                   mTimers[static_cast<std::size_t>(number)].expiry;
        };
        mList.insert(std::find_if(mList.begin(), mList.end(), isLater), number);
    }

    void resort() {
        std::list<int> started, fired;
        for (auto cursor = mList.begin(); cursor != mList.end();) {
            const auto here = cursor++;
            STimer& timer = mTimers[static_cast<std::size_t>(*here)];
            if (timer.state == 1)
                fired.splice(fired.end(), mList, here);
            else if (timer.isStartedInRound)
                started.splice(started.end(), mList, here);
        }
        for (const std::list<int>& moved : {started, fired})
            for (const int number : moved) {
                STimer& timer = mTimers[static_cast<std::size_t>(number)];
                timer.state = timer.expiry == 0 ? 0 : 2;
                if (timer.expiry != 0)
                    insert(number);
            }
    }

    std::vector<STimer> mTimers;
    std::list<int> mList;
    bool mIsInRound = false;
};

/// What happened, as numbers: which timers were called and what each round returned.
std::vector<long long> play(ITimers& timers, int count, unsigned seed, int steps, unsigned maxMs, int handlerActs) {
    std::vector<long long> record;
    std::mt19937 random(seed);
    const auto pick = [&](int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); };
    if (seed % 2 != 0)
        sKernel.advance((1ull << 32) - seed * 97 % 1000 * kMs);  // times get a 33rd bit on the way
    const auto act = [&](int timer) {
        const unsigned ms = 1 + random() % maxMs;
        const bool singleShot = random() % 2 == 0;
        switch (pick(3)) {
        case 0:
            timers.stop(timer);
            break;
        default:
            timers.start(timer, ms, singleShot);
        }
    };
    timers.onCall = [&](int timer) {
        record.push_back(timer);
        sKernel.advance(1);  // a clock goes on meanwhile, so what handlers start is never due at the same time
        if (pick(10) < handlerActs) {
            act(pick(2) == 0 ? timer : pick(count));
            sKernel.advance(1);
            if (pick(2) == 0)
                act(pick(count));
        }
    };
    for (int i = 0; i < steps; ++i) {
        const int what = pick(10);
        if (what < 6) {
            act(pick(count));
        } else {
            // Whole milliseconds, so that many times are equal.
            sKernel.advance(static_cast<unsigned>(pick(3)) * kMs + (pick(4) == 0 ? 1 : 0));
            record.push_back(-1 - timers.round());
        }
        const unsigned long long due = timers.due();
        record.push_back(static_cast<long long>(due > sKernel.now - manual::kBias ? due : 0));
    }
    return record;
}

std::vector<long long> playPlain(int count, unsigned seed, int steps, unsigned maxMs, int handlerActs) {
    sKernel = manual::SKernel();
    CPlainTimers timers(count);
    return play(timers, count, seed, steps, maxMs, handlerActs);
}

std::vector<long long> playUnderTest(int count, unsigned seed, int steps, unsigned maxMs, int handlerActs,
                                     bool hasMemory = true) {
    sKernel = manual::SKernel();
    sKernel.hasMemory = hasMemory;
    CTimersUnderTest timers(count);
    return play(timers, count, seed, steps, maxMs, handlerActs);
}

}  // namespace

TEST(CLogicalTimerPlain, FewTimersBehaveAsInThePlainVersion) {
    for (unsigned seed = 0; seed < support::roundsHere(400u); ++seed)
        for (const int handlerActs : {0, 5, 10})
            ASSERT_EQ(playPlain(6, seed, 200, 8, handlerActs), playUnderTest(6, seed, 200, 8, handlerActs))
                << "seed " << seed << ", " << handlerActs;
}

TEST(CLogicalTimerPlain, ManyTimersBehaveAsInThePlainVersion) {
    for (unsigned seed = 0; seed < support::roundsHere(10u); ++seed)
        for (const unsigned maxMs : {20u, 2000u})
            ASSERT_EQ(playPlain(1000, seed, 4000, maxMs, 3), playUnderTest(1000, seed, 4000, maxMs, 3))
                << "seed " << seed << ", " << maxMs;
}

TEST(CLogicalTimerPlain, ManyTimersBehaveAsInThePlainVersionWithoutMemoryToFindTheirPlaces) {
    ASSERT_EQ(playPlain(1000, 1, 2000, 2000, 3), playUnderTest(1000, 1, 2000, 2000, 3, /*hasMemory*/ false));
}
