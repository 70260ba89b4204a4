// CTimerManager and the pulses of both managers on a platform that refuses: what is asked of it, and the words with
// which the process ends. The units are compiled here a second time, under other names and against calls that fail
// on demand.
#include <CVQAsserter.h>
#include <VQError.h>
#include <VQOperatingSystem.h>

#include "support/ChildProcess.h"
#include "support/SlogCapture.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <functional>
#include <memory>
#include <string>
#include <sys/neutrino.h>

namespace balking {

std::string sRefused;
int sError = EAGAIN;
struct sigevent sEvent;
_itimer sSetting;
int sSettings;
std::string sReleased;
unsigned long long sTimeout;

int answer(const std::string& call, int result) {
    if (call != sRefused)
        return result;
    errno = sError;
    return -1;
}

int channelCreate(unsigned flags) {
    EXPECT_EQ(3u, flags);
    return answer("ChannelCreate", 11);
}
int connectAttach(uint32_t nd, pid_t pid, int chid, unsigned index, int flags) {
    EXPECT_EQ(0u, nd);
    EXPECT_EQ(0, pid);
    EXPECT_EQ(11, chid);
    EXPECT_EQ(0x40000000u, index);
    EXPECT_EQ(1, flags);
    return answer("ConnectAttach", 22);
}
int timerCreate(clockid_t clock, const struct sigevent* event) {
    EXPECT_EQ(CLOCK_MONOTONIC, clock);
    sEvent = *event;
    return answer("TimerCreate", 33);
}
int timerSettime(int id, int flags, const _itimer* setting, _itimer* old) {
    EXPECT_EQ(33, id);
    EXPECT_EQ(0, flags);
    EXPECT_EQ(nullptr, old);
    sSetting = *setting;
    ++sSettings;
    return answer("TimerSettime", 0);
}
int timerDestroy(int id) {
    EXPECT_EQ(33, id);
    sReleased += "timer ";
    return answer("TimerDestroy", 0);
}
int connectDetach(int coid) {
    EXPECT_EQ(22, coid);
    sReleased += "connection ";
    return 0;
}
int channelDestroy(int chid) {
    EXPECT_EQ(11, chid);
    sReleased += "channel ";
    return 0;
}
bool setTimer(unsigned long long deadline, int flags) {
    EXPECT_EQ(_NTO_TIMEOUT_RECEIVE, flags) << "relative";
    sTimeout = deadline;
    return answer("TimerTimeout", 0) == 0;
}
int receivePulse(int chid, void* pulse, int size, _msg_info* info) {
    EXPECT_EQ(11, chid);
    EXPECT_EQ(static_cast<int>(sizeof(_pulse)), size);
    EXPECT_EQ(nullptr, info);
    static_cast<_pulse*>(pulse)->code = -1;  // nobody looks at it
    static_cast<_pulse*>(pulse)->value = sEvent.sigev_value;
    return answer("MsgReceivePulse", 0);
}

}  // namespace balking

#define CTimerManager CTimerManagerThatBalks
#define CTimerBase CTimerBaseThatBalks
#define CTimer CTimerThatBalks
#define VQTimerPulses VQTimerPulsesThatBalk
#define ChannelCreate balking::channelCreate
#define ConnectAttach balking::connectAttach
#define TimerCreate balking::timerCreate
#define TimerSettime balking::timerSettime
#define TimerDestroy balking::timerDestroy
#define ConnectDetach balking::connectDetach
#define ChannelDestroy balking::channelDestroy
#define setKernelTimer balking::setTimer
#define MsgReceivePulse balking::receivePulse
#include "os/CTimerManagerQNX.cpp"
#include "os/TimerPulsesQNX.cpp"

namespace {

class CCountingTimer : public CTimer {
public:
    using CTimer::CTimer;
    void onTimeout() override { ++calls; }

    int calls = 0;
};

struct SScene {
    explicit SScene(int workTimeoutMs = 10) : manager(workTimeoutMs), timer(manager) {}
    ~SScene() { balking::sRefused.clear(); }
    SScene(const SScene&) = delete;
    SScene& operator=(const SScene&) = delete;

    CTimerManager manager;
    CCountingTimer timer;
};

/// What the process logs in the end when `call` fails.
std::string lastWords(const std::string& call, const std::function<void()>& body, int error = EAGAIN) {
    support::SlogCapture log;
    const auto result = support::runInChild([&] {
        balking::sRefused = call;
        balking::sError = error;
        body();
    });
    EXPECT_TRUE(result.killedBy(SIGABRT)) << result;
    const auto records = log.records();
    if (records.size() != 1)
        return std::to_string(records.size()) + " records";
    EXPECT_EQ(1, records[0].severity);
    const std::string prefix = "pid " + std::to_string(result.pid) + ": ";
    EXPECT_EQ(prefix, records[0].text.substr(0, prefix.size()));
    return records[0].text.substr(prefix.size());
}

}  // namespace

TEST(TimersRefused, EachKernelFailureEndsTheProcessInItsOwnWords) {
    const std::string end = " - aborting process";
    EXPECT_EQ("ChannelCreate failed" + end, lastWords("ChannelCreate", [] { SScene(); }));
    EXPECT_EQ("ConnectAttach failed" + end, lastWords("ConnectAttach", [] { SScene(); }));
    EXPECT_EQ("Cannot create timer" + end, lastWords("TimerCreate", [] { SScene(); }));
    EXPECT_EQ("Cannot start timer" + end, lastWords("TimerSettime", [] { SScene().timer.start(1, true); }));
    EXPECT_EQ("Cannot delete timer" + end, lastWords("TimerDestroy", [] {
                  CTimerManager manager(1);
                  CCountingTimer timer(manager);
              }));
    EXPECT_EQ("Cannot stop timer" + end, lastWords("", [] {
                  SScene scene;
                  scene.timer.start(1, true);
                  balking::sRefused = "TimerSettime";
                  scene.timer.stop();
              }));
    EXPECT_EQ("Cannot stop timer" + end, lastWords("TimerSettime",
                                                   [] {
                                                       CTimerManager manager(1);
                                                       CCountingTimer timer(manager);
                                                   }))
        << "a timer is stopped before it is deleted, whether it is active or not";
    EXPECT_EQ("Setting timeout failed" + end, lastWords("TimerTimeout", [] { SScene().manager.performWork(); }));
    EXPECT_EQ("MsgReceivePulse failed" + end,
              lastWords(
                  "MsgReceivePulse", [] { SScene().manager.performWork(); }, ESRCH));
}

TEST(TimersRefused, AnInterruptionAndATimeOutAreQuiet) {
    for (const int error : {EINTR, ETIMEDOUT}) {
        SScene scene;
        scene.timer.start(1, true);
        balking::sRefused = "MsgReceivePulse";
        balking::sError = error;
        EXPECT_FALSE(scene.manager.performWork());
        EXPECT_EQ(0, scene.timer.calls);
    }
}

TEST(TimersRefused, ThePulseCarriesTheTimersAddress) {
    SScene scene;
    EXPECT_EQ(SIGEV_PULSE, balking::sEvent.sigev_notify);
    EXPECT_EQ(22, balking::sEvent.sigev_coid);
    EXPECT_EQ(0, balking::sEvent.sigev_code);
    EXPECT_EQ(63, balking::sEvent.sigev_priority);
    CTimerBase* const base = &scene.timer;
    EXPECT_EQ(base, balking::sEvent.sigev_value.sival_ptr);
}

TEST(TimersRefused, OnlyKnownActiveTimersAreCalledWhateverTheCode) {
    SScene scene;
    EXPECT_FALSE(scene.manager.performWork()) << "inactive";
    scene.timer.start(1, true);
    EXPECT_TRUE(scene.manager.performWork());
    balking::sEvent.sigev_value.sival_ptr = nullptr;
    EXPECT_FALSE(scene.manager.performWork());
    balking::sEvent.sigev_value.sival_ptr = &scene;
    EXPECT_FALSE(scene.manager.performWork()) << "an address of nobody";
    EXPECT_EQ(1, scene.timer.calls);
}

TEST(TimersRefused, TheKernelTimerIsSetByEachStartAndByStopsOfActiveTimersOnly) {
    SScene scene;
    balking::sSettings = 0;
    scene.timer.stop();
    EXPECT_EQ(0, balking::sSettings);
    scene.timer.start(1, false);
    EXPECT_EQ(1, balking::sSettings);
    scene.timer.start(1, false);
    EXPECT_EQ(3, balking::sSettings) << "one that is active is stopped before";
    scene.timer.stop();
    scene.timer.stop();
    EXPECT_EQ(4, balking::sSettings);
}

TEST(TimersRefused, AStopClearsTheIntervalToo) {
    SScene scene;
    scene.timer.start(5, false);
    EXPECT_EQ(5000000u, balking::sSetting.interval_nsec);
    scene.timer.stop();
    EXPECT_EQ(0u, balking::sSetting.nsec);
    EXPECT_EQ(0u, balking::sSetting.interval_nsec);
}

TEST(TimersRefused, WhatTheKernelGaveIsGivenBackInTurn) {
    balking::sReleased.clear();
    SScene(1);
    EXPECT_EQ("timer connection channel ", balking::sReleased);
}

TEST(TimersRefused, TimesAreNanosecondsOf64Bits) {
    SScene scene(3600000);
    scene.timer.start(0xffffffff, false);
    EXPECT_EQ(4294967295000000u, balking::sSetting.nsec);
    EXPECT_EQ(4294967295000000u, balking::sSetting.interval_nsec);
    scene.timer.start(5, true);
    EXPECT_EQ(5000000u, balking::sSetting.nsec);
    EXPECT_EQ(0u, balking::sSetting.interval_nsec);
    scene.timer.stop();
    EXPECT_EQ(0u, balking::sSetting.nsec);
    scene.manager.performWork();
    EXPECT_EQ(3600000000000u, balking::sTimeout);
    balking::sTimeout = 4711;
    SScene(-1).manager.performWork();
    EXPECT_EQ(4711u, balking::sTimeout) << "no time-out is armed";
    SScene(0).manager.performWork();
    EXPECT_EQ(1000000u, balking::sTimeout);
}
