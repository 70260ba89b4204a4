#include "Faults.h"

#include <CLogicalTimerManager.h>
#include <CTimerManager.h>
#include <CVQPerformanceCheck.h>
#include <CVQThreadCtrl.h>
#include <TVQVector.h>
#include <VQChannelAccess.h>
#include <VQOperatingSystem.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <optional>
#include <pthread.h>
#include <sys/neutrino.h>
#include <thread>
#include <unistd.h>

namespace {

using faults::Arm;
using faults::Row;
using faults::told;

class Quick : public CVQThreadCtrl::IRunnable {
public:
    void run() override {}
};

/// As `startThread`, but 0 is the failure.
std::string startThread(const Arm& arm, int priority) {
    Quick quick;
    arm();
    errno = 0;
    const int tid = CVQThreadCtrl::startThread(quick, /*detached*/ false, priority);
    const int error = errno;
    if (tid == 0)
        return "0 " + faults::errorName(error);
    return "started, joined " + std::to_string(CVQThreadCtrl::join(tid));
}

std::string joinThread(const Arm& arm, int timeoutMs) {
    Quick quick;
    const int tid = CVQThreadCtrl::startThread(quick);
    arm();
    const int result = CVQThreadCtrl::join(tid, timeoutMs);
    if (result != 0)
        CVQThreadCtrl::join(tid);
    return std::to_string(result);
}

/// A channel of this process, with a thread that answers one message.
class Server {
public:
    Server() : mChannel(ChannelCreate(0)) {
        mThread = std::thread([this] {
            char message[8];
            const int id = MsgReceive(mChannel, message, sizeof message, nullptr);
            if (id > 0)
                MsgReply(id, 7, "ok", 2);
        });
        VQChannelAccess::attach(connection, mChannel, 0, 0);
    }
    ~Server() {
        ConnectDetach(connection);
        ChannelDestroy(mChannel);
        mThread.join();
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    int connection = -1;

private:
    const int mChannel;
    std::thread mThread;
};

std::string send(const Arm& arm) {
    Server server;
    char answer[2];
    arm();
    return told(VQChannelAccess::send(server.connection, "hi", 2, answer, sizeof answer));
}

std::string sendParts(const Arm& arm, int timeoutMs) {
    Server server;
    char answer[2];
    char message[] = "hi";
    const iovec out = {message, 2};
    const iovec in = {answer, sizeof answer};
    arm();
    return told(timeoutMs == -1 ? VQChannelAccess::sendv(server.connection, &out, 1, &in, 1)
                                : VQChannelAccess::sendv(server.connection, &out, 1, &in, 1, timeoutMs));
}

/// A channel of this process with a pulse in it.
class Inbox {
public:
    Inbox() : channel(ChannelCreate(0)) {
        VQChannelAccess::attach(mConnection, channel, 0, 0);
        MsgSendPulse(mConnection, 10, 5, 77);
    }
    ~Inbox() {
        ConnectDetach(mConnection);
        ChannelDestroy(channel);
    }
    Inbox(const Inbox&) = delete;
    Inbox& operator=(const Inbox&) = delete;

    const int channel;

private:
    int mConnection = -1;
};

template <class Receive>
std::string receive(const Arm& arm, Receive call) {
    Inbox inbox;
    _pulse pulse = {};
    const iovec parts = {&pulse, sizeof pulse};
    arm();
    const std::string result = told(call(inbox.channel, pulse, parts));
    return pulse.code == 5 ? "pulse " + result : result;
}

template <int timeoutMs>
std::string receivePulse(const Arm& arm) {
    return receive(arm, [](const int& channel, _pulse& pulse, const iovec&) {
        return VQChannelAccess::receivePulse(channel, &pulse, sizeof pulse, timeoutMs);
    });
}
template <int timeoutMs>
std::string receiveAny(const Arm& arm) {
    return receive(arm, [](const int& channel, _pulse& pulse, const iovec&) {
        return VQChannelAccess::receiveMessageOrPulse(channel, &pulse, sizeof pulse, timeoutMs, nullptr);
    });
}
template <int timeoutMs>
std::string receiveAnyParts(const Arm& arm) {
    return receive(arm, [](const int& channel, _pulse&, const iovec& parts) {
        return VQChannelAccess::receiveMessageOrPulsev(channel, &parts, 1, timeoutMs, nullptr);
    });
}
// The pulse is no message: after an interruption it is dropped, and the wait goes on until it is over.
std::string receiveMessage(const Arm& arm) {
    return receive(arm, [](const int& channel, _pulse& pulse, const iovec&) {
        const int result = VQChannelAccess::receive(channel, &pulse, sizeof pulse, 20, nullptr);
        pulse.code = 0;
        return result;
    });
}
std::string receiveMessageParts(const Arm& arm) {
    return receive(arm, [](const int& channel, _pulse& pulse, const iovec& parts) {
        const int result = VQChannelAccess::receivev(channel, &parts, 1, 20, nullptr);
        pulse.code = 0;
        return result;
    });
}

class Counting : public CTimer {
public:
    using CTimer::CTimer;
    void onTimeout() override { ++fired; }
    int fired = 0;
};

class CountingLogical : public CLogicalTimer {
public:
    explicit CountingLogical(CLogicalTimerManager& manager) : CLogicalTimer(manager) {}
    void onTimeout() override { ++fired; }
    int fired = 0;
};

std::string makeManager(const Arm& arm) {
    arm();
    CTimerManager manager(10);
    return "";
}

std::string makeTimer(const Arm& arm) {
    CTimerManager manager(10);
    arm();
    Counting timer(manager);
    return "";
}

std::string useTimer(const Arm& arm) {
    CTimerManager manager(10);
    Counting timer(manager);
    arm();
    timer.start(1, /*singleShot*/ true);
    manager.performWork();
    return "";
}

std::string stopTimer(const Arm& arm) {
    CTimerManager manager(10);
    Counting timer(manager);
    timer.start(1000, /*singleShot*/ true);
    arm();
    timer.stop();
    return "";
}

/// The manager is made with the fault and then used: nothing comes of it, and nothing breaks.
std::string useLogicalTimer(const Arm& arm) {
    arm();
    CLogicalTimerManager manager(5, /*threadSafe*/ false);
    CountingLogical timer(manager);
    timer.start(1, /*singleShot*/ true);
    return "started";
}

std::string dropLogicalManager(const Arm& arm) {
    {
        CLogicalTimerManager manager(5, /*threadSafe*/ false);
        arm();
    }
    return "dropped";
}

std::string waitForLogicalTimer(const Arm& arm) {
    CLogicalTimerManager manager(100, /*threadSafe*/ false);
    CountingLogical timer(manager);
    timer.start(1, /*singleShot*/ true);
    arm();
    const int handled = manager.performWork();
    return std::to_string(handled) + " handled";
}

int childThatEndsWith(int code) {
    const pid_t pid = fork();
    if (pid == 0)
        _exit(code);
    return pid;
}

std::string joinProcess(const Arm& arm) {
    const int pid = childThatEndsWith(3);
    arm();
    const std::string result = told(VQOperatingSystem::joinProcess(pid));
    VQOperatingSystem::joinProcess(pid);
    return result;
}

std::string waitForProcesses(const Arm& arm) {
    const int pid = childThatEndsWith(3);
    TVQVector<int> pids;
    pids.push_back(pid);
    arm();
    const std::string result = told(VQOperatingSystem::waitForProcesses(pids));
    const std::string left = std::to_string(pids.size());
    VQOperatingSystem::joinProcess(pid);
    return left + " left, " + result.substr(0, 2);
}

std::string waitForProcessesAndTell(const Arm& arm) {
    const int pid = childThatEndsWith(3);
    TVQVector<int> pids;
    pids.push_back(pid);
    arm();
    const std::string result = told(VQOperatingSystem::waitForProcesses(pids));
    VQOperatingSystem::joinProcess(pid);
    return result;
}

std::string setSignals(const Arm& arm) {
    const int signals[] = {SIGUSR1};
    int previous[64];
    arm();
    const std::string result =
        told(VQOperatingSystem::setSignalMask(signals, 1, previous, VQOSTypes::SIGNAL_MASK_ADD));
    sigset_t now;
    pthread_sigmask(SIG_SETMASK, nullptr, &now);
    const bool isBlocked = sigismember(&now, SIGUSR1) == 1;
    VQOperatingSystem::setSignalMask(signals, 1, nullptr, VQOSTypes::SIGNAL_MASK_REMOVE);
    return result + (isBlocked ? ", blocked" : ", not blocked");
}

[[gnu::format(printf, 3, 4)]] int formatted(char* buffer, int size, const char* text, ...) {
    std::va_list arguments;
    va_start(arguments, text);
    const int result = VQOperatingSystem::vsnprintf(buffer, size, text, arguments);
    va_end(arguments);
    return result;
}

std::string clockOfCalendar(const Arm& arm) {
    arm();
    return VQOperatingSystem::getClockValue(CLOCK_REALTIME) == 0 ? "0 " + faults::errorName(errno) : "a time";
}

}  // namespace

std::vector<Row> faults::osRows() {
    return {
        {__LINE__, "CVQThreadCtrlQNX", "sched_getparam",
         [](const Arm& arm) { return startThread(arm, CVQThreadCtrl::INHERITPRIORITY); }, "0 @"},
        {__LINE__, "CVQThreadCtrlQNX", "ThreadCreate",
         [](const Arm& arm) { return startThread(arm, CVQThreadCtrl::INHERITPRIORITY); }, "0 @",
         "started, joined 0"},
        {__LINE__, "CVQThreadCtrlQNX", "SchedGet", [](const Arm& arm) { return startThread(arm, 11); },
         "started, joined 0"},
        {__LINE__, "CVQThreadCtrlQNX", "SchedGet",
         [](const Arm& arm) {
             arm();
             return told(CVQThreadCtrl::getPriority(0));
         },
         "-1 @"},
        {__LINE__, "CVQThreadCtrlQNX", "SchedGet",
         [](const Arm& arm) {
             arm();
             return told(CVQThreadCtrl::setPriority(0, 10));
         },
         "-1 @"},
        {__LINE__, "CVQThreadCtrlQNX", "SchedSet",
         [](const Arm& arm) {
             const int before = CVQThreadCtrl::getPriority(0);
             arm();
             const int told = CVQThreadCtrl::setPriority(0, before + 1);
             return told == before && CVQThreadCtrl::getPriority(0) == before ? "the old one" : "another";
         },
         "the old one"},
        {__LINE__, "CVQThreadCtrlQNX", "ThreadJoin_r", [](const Arm& arm) { return joinThread(arm, 0); }, "-1", "0",
         1, false, errorsBeside("ThreadJoin_r", {ETIMEDOUT})},
        {__LINE__, "CVQThreadCtrlQNX", "ThreadJoin_r", [](const Arm& arm) { return joinThread(arm, 1000); }, "-1",
         "0", 1, false, errorsBeside("ThreadJoin_r", {ETIMEDOUT})},
        {__LINE__,
         "CVQThreadCtrlQNX",
         "ThreadJoin_r",
         [](const Arm& arm) { return joinThread(arm, 1000); },
         "-2",
         nullptr,
         1,
         false,
         {ETIMEDOUT}},
        // A time-out that cannot be armed: the thread is waited for without.
        {__LINE__, "VQOperatingSystemQNX", "TimerTimeout", [](const Arm& arm) { return joinThread(arm, 1000); },
         "0"},
        {__LINE__, "CVQThreadCtrlQNX", "pthread_setname_np",
         [](const Arm& arm) {
             arm();
             return CVQThreadCtrl::setThreadName(0, "name") ? "true" : "false";
         },
         "false"},
        {__LINE__, "CVQThreadCtrlQNX", "ThreadDestroy",
         [](const Arm& arm) {
             arm();
             return told(CVQThreadCtrl::terminate(gettid()));
         },
         "-1 @"},
        {__LINE__, "CVQThreadCtrlQNX", "ThreadDestroy",
         [](const Arm& arm) -> std::string {
             arm();
             CVQThreadCtrl::terminate();
         },
         "signal ABRT", nullptr, 1, /*ends*/ true},

        {__LINE__, "VQOperatingSystemQNX", "ClockTime", clockOfCalendar, "0 @"},
        {__LINE__, "VQOperatingSystemQNX", "TimerTimeout",
         [](const Arm& arm) {
             arm();
             const std::string result = told(VQOperatingSystem::setKernelTimeout(1, _NTO_TIMEOUT_JOIN));
             VQOperatingSystem::resetKernelTimeout();
             return result;
         },
         "false @", "true"},
        {__LINE__, "VQOperatingSystemQNX", "TimerTimeout",
         [](const Arm& arm) {
             arm();
             return told(VQOperatingSystem::resetKernelTimeout());
         },
         "false @", "true"},
        {__LINE__, "VQOperatingSystemQNX", "sigemptyset", setSignals, "-1 @, not blocked"},
        {__LINE__, "VQOperatingSystemQNX", "sigemptyset", setSignals, "-1 @, not blocked", nullptr, 2},
        {__LINE__, "VQOperatingSystemQNX", "sigaddset", setSignals, "-1 @, not blocked"},
        {__LINE__, "VQOperatingSystemQNX", "SignalProcmask", setSignals, "-1 @, not blocked"},
        {__LINE__, "VQOperatingSystemQNX", "sigismember", setSignals, "-1 @, not blocked"},
        {__LINE__, "VQOperatingSystemQNX", "sigismember", setSignals, "-1 @, not blocked", nullptr, 64},
        {__LINE__, "VQOperatingSystemQNX", "spawnvp",
         [](const Arm& arm) {
             arm();
             return told(VQOperatingSystem::spawnProcess("nobody", "one two"));
         },
         "-1 @"},
        {__LINE__, "VQOperatingSystemQNX", "waitpid", joinProcess, "-1 @", "3"},
        {__LINE__, "VQOperatingSystemQNX", "wait", waitForProcesses, "0 left, -1", nullptr, 1, false, {ECHILD}},
        {__LINE__, "VQOperatingSystemQNX", "wait", waitForProcessesAndTell, "-1 @", nullptr, 1, false, {ECHILD}},
        {__LINE__,
         "VQOperatingSystemQNX",
         "wait",
         waitForProcesses,
         "",
         "0 left, -1 | 5 process  has terminated with exit code 3",
         1,
         false,
         {EINTR}},
        {__LINE__, "VQOperatingSystemQNX", "vsnprintf",
         [](const Arm& arm) {
             char buffer[8];
             arm();
             return told(formatted(buffer, sizeof buffer, "x"));
         },
         "-1 @"},

        {__LINE__, "VQChannelAccessQNX", "ConnectAttach",
         [](const Arm& arm) {
             const int channel = ChannelCreate(0);
             int connection = 0;
             arm();
             const std::string result = told(VQChannelAccess::attach(connection, channel, 0, 0));
             ChannelDestroy(channel);
             return result + ", " + std::to_string(connection);
         },
         "false @, -1"},
        {__LINE__, "VQChannelAccessQNX", "MsgSend", send, "-1 @", "7"},
        {__LINE__, "VQChannelAccessQNX", "MsgSendv", [](const Arm& arm) { return sendParts(arm, -1); }, "-1 @",
         "7"},
        {__LINE__, "VQChannelAccessQNX", "MsgSendv", [](const Arm& arm) { return sendParts(arm, 1000); }, "-1 @",
         "7"},
        {__LINE__,
         "VQChannelAccessQNX",
         "MsgSendv",  // the interruption comes when the time is over
         [](const Arm& arm) { return sendParts(arm, 0); },
         "-1 ETIMEDOUT",
         nullptr,
         1,
         false,
         {EINTR}},
        {__LINE__, "VQOperatingSystemQNX", "TimerTimeout", [](const Arm& arm) { return sendParts(arm, 1000); },
         "-1 @", "7"},
        {__LINE__, "VQChannelAccessQNX", "MsgReceivePulse", receivePulse<-1>, "-1 @", "pulse 0"},
        {__LINE__, "VQChannelAccessQNX", "MsgReceivePulse", receivePulse<1000>, "-1 @", "pulse 0"},
        {__LINE__, "VQOperatingSystemQNX", "TimerTimeout", receivePulse<1000>, "-1 @", "pulse 0"},
        {__LINE__, "VQChannelAccessQNX", "MsgReceive", receiveAny<-1>, "-1 @", "pulse 0"},
        {__LINE__, "VQChannelAccessQNX", "MsgReceive", receiveAny<1000>, "-1 @", "pulse 0"},
        {__LINE__, "VQChannelAccessQNX", "MsgReceivev", receiveAnyParts<-1>, "-1 @", "pulse 0"},
        {__LINE__, "VQChannelAccessQNX", "MsgReceivev", receiveAnyParts<1000>, "-1 @", "pulse 0"},
        {__LINE__, "VQChannelAccessQNX", "MsgReceive", receiveMessage, "-1 @", "-1 ETIMEDOUT"},
        {__LINE__, "VQChannelAccessQNX", "MsgReceivev", receiveMessageParts, "-1 @", "-1 ETIMEDOUT"},

        {__LINE__, "TimerPulsesQNX", "ChannelCreate", makeManager,
         "signal ABRT | 1 ChannelCreate failed - aborting process", nullptr, 1, /*ends*/ true},
        {__LINE__, "TimerPulsesQNX", "ConnectAttach", makeManager,
         "signal ABRT | 1 ConnectAttach failed - aborting process", nullptr, 1, /*ends*/ true},
        {__LINE__, "TimerPulsesQNX", "TimerCreate", makeTimer,
         "signal ABRT | 1 Cannot create timer - aborting process", nullptr, 1, /*ends*/ true},
        {__LINE__, "CTimerManagerQNX", "TimerSettime", useTimer,
         "signal ABRT | 1 Cannot start timer - aborting process", nullptr, 1, /*ends*/ true},
        {__LINE__, "CTimerManagerQNX", "TimerSettime", stopTimer,
         "signal ABRT | 1 Cannot stop timer - aborting process", nullptr, 1, /*ends*/ true},
        {__LINE__, "CTimerManagerQNX", "TimerDestroy",
         [](const Arm& arm) {
             CTimerManager manager(10);
             Counting timer(manager);
             arm();
             return std::string();
         },
         "signal ABRT | 1 Cannot delete timer - aborting process", nullptr, 1, /*ends*/ true},
        {__LINE__, "VQOperatingSystemQNX", "TimerTimeout", useTimer,
         "signal ABRT | 1 Setting timeout failed - aborting process", nullptr, 1,
         /*ends*/ true, errorsBeside("TimerTimeout", {EINTR})},
        {__LINE__, "TimerPulsesQNX", "MsgReceivePulse", useTimer,
         "signal ABRT | 1 MsgReceivePulse failed - aborting process", nullptr, 1,
         /*ends*/ true, errorsBeside("MsgReceivePulse", {EINTR, ETIMEDOUT})},
        {__LINE__,
         "TimerPulsesQNX",
         "MsgReceivePulse",
         [](const Arm& arm) {
             CTimerManager manager(100);
             Counting timer(manager);
             timer.start(1, /*singleShot*/ true);
             arm();
             const bool first = manager.performWork();
             const bool second = manager.performWork();
             return std::string(first ? "true" : "false") + (second ? ", true" : ", false");
         },
         "false, true",
         nullptr,
         1,
         false,
         {EINTR, ETIMEDOUT}},
        {__LINE__, "CTimerManagerQNX", "ConnectDetach",
         [](const Arm& arm) {
             {
                 CTimerManager manager(10);
                 arm();
             }
             return std::string("dropped");
         },
         "dropped"},
        {__LINE__, "CTimerManagerQNX", "ChannelDestroy",
         [](const Arm& arm) {
             {
                 CTimerManager manager(10);
                 arm();
             }
             return std::string("dropped");
         },
         "dropped"},

        {__LINE__, "TimerPulsesQNX", "ChannelCreate", useLogicalTimer,
         "started | CLogicalTimerManagerQNX:47 | CLogicalTimerManagerQNX:54 | CLogicalTimerManagerQNX:69 | "
         "CLogicalTimerManagerQNX:95"},
        {__LINE__, "TimerPulsesQNX", "ConnectAttach", useLogicalTimer,
         "started | CLogicalTimerManagerQNX:54 | CLogicalTimerManagerQNX:69 | CLogicalTimerManagerQNX:95"},
        {__LINE__, "TimerPulsesQNX", "TimerCreate", useLogicalTimer,
         "started | CLogicalTimerManagerQNX:69 | CLogicalTimerManagerQNX:95"},
        {__LINE__, "CLogicalTimerManagerQNX", "TimerSettime", useLogicalTimer,
         "started | CLogicalTimerManagerQNX:95"},
        {__LINE__, "CLogicalTimerManagerQNX", "TimerSettime",  // of a timer that is stopped
         [](const Arm& arm) {
             CLogicalTimerManager manager(5, /*threadSafe*/ false);
             CountingLogical timer(manager);
             timer.start(1000, /*singleShot*/ true);
             arm();
             timer.stop();
             return timer.mNext != nullptr ? "active" : "stopped";
         },
         "stopped"},
        {__LINE__,
         "CLogicalTimerManager",
         "SyncMutexLock_r",  // of a time-out that its user had armed: it is held
         [](const Arm& arm) {
             CLogicalTimerManager manager(5, /*threadSafe*/ true);
             CountingLogical timer(manager);
             arm();
             __nto_owner = 0;  // the next lock of this thread takes the long way, which the kernel's call is on
             timer.start(1, /*singleShot*/ true);
             const int handled = manager.performWork();
             return std::to_string(handled) + " handled";
         },
         "1 handled",
         nullptr,
         1,
         false,
         {ETIMEDOUT}},
        {__LINE__, "CLogicalTimerManagerQNX", "TimerDestroy", dropLogicalManager, "dropped"},
        {__LINE__, "CLogicalTimerManagerQNX", "ConnectDetach", dropLogicalManager, "dropped"},
        {__LINE__, "CLogicalTimerManagerQNX", "ChannelDestroy", dropLogicalManager, "dropped"},
        {__LINE__,
         "TimerPulsesQNX",
         "MsgReceivePulse",
         waitForLogicalTimer,
         "0 handled",
         nullptr,
         1,
         false,
         {EINTR, ETIMEDOUT}},
        {__LINE__, "TimerPulsesQNX", "MsgReceivePulse", waitForLogicalTimer,
         "signal ABRT | 1 MsgReceivePulse failed - aborting process", nullptr, 1,
         /*ends*/ true, errorsBeside("MsgReceivePulse", {EINTR, ETIMEDOUT})},

        {__LINE__, "CVQPerformanceCheckQNX", "ClockId",
         [](const Arm& arm) {
             arm();
             CVQPerformanceCheck check(0);
             return std::string("made");
         },
         "made | CVQPerformanceCheckQNX:46"},
        {__LINE__, "CVQPerformanceCheckQNX", "clock_getcpuclockid",
         [](const Arm& arm) {
             arm();
             CVQPerformanceCheck check(0, /*current*/ true);
             return std::string("made");
         },
         "made | CVQPerformanceCheckQNX:55"},
        {__LINE__, "CVQPerformanceCheckQNX", "ClockTime",
         [](const Arm& arm) {
             CVQPerformanceCheck check(0);
             arm();
             return std::to_string(check.getThreadTime());
         },
         "0 | CVQPerformanceCheckQNX:68"},
        {__LINE__, "CVQPerformanceCheckQNX", "ClockTime",
         [](const Arm& arm) {
             CVQPerformanceCheck check(0, /*current*/ true);
             arm();
             return std::to_string(check.getProcessTime());
         },
         "0 | CVQPerformanceCheckQNX:79"},
    };
}
