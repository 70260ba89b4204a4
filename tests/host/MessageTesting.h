// MessageTesting: what the tests of channels share.
#pragma once

#include "HeldElsewhere.h"
#include "Hostile.h"
#include "support/Sanitizers.h"

#include "support/ChildProcess.h"

#include <cerrno>
#include <dirent.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <string>
#include <sys/neutrino.h>
#include <thread>
#include <unistd.h>
#include <vector>

/// Neither the emulator nor the thread sanitizer can start threads in the children of a process that has some.
inline bool canStartThreadsInChildren() {
    return !support::kIsThreadSanitized && !support::isEmulated();
}

/// Returns when all threads of a process sleep, those that were just started included; of this one, all others.
inline void waitUntilSleeping(pid_t pid) {
    for (int looks = 0; looks < 3; ++looks) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
            std::ifstream stat(task.path() / "stat");
            std::string line;
            std::getline(stat, line);
            const std::size_t name = line.rfind(") ");
            const bool isOther = task.path().filename() != std::to_string(gettid());
            if (isOther && name != std::string::npos && line[name + 2] == 'R')
                looks = 0;
        }
    }
}

inline void waitUntilOthersSleep() {
    waitUntilSleeping(getpid());
}

/// What another thread does as soon as all others sleep, this one in its next call.
inline std::future<void> whenAllSleep(std::function<void()> act) {
    return std::async(std::launch::async, [act = std::move(act)] {
        waitUntilOthersSleep();
        act();
    });
}

inline int openDescriptors(pid_t pid) {
    int count = 0;
    DIR* const folder = opendir(("/proc/" + std::to_string(pid) + "/fd").c_str());
    while (readdir(folder) != nullptr)
        ++count;
    closedir(folder);
    return count;
}

/// A channel of this process and a connection to it, for a scope.
struct OwnChannel {
    explicit OwnChannel(unsigned flags = 0)
        : chid(ChannelCreate(flags)), coid(ConnectAttach(0, 0, chid, _NTO_SIDE_CHANNEL, _NTO_COF_CLOEXEC)) {
        EXPECT_GT(chid, 0);
        EXPECT_GE(coid, _NTO_SIDE_CHANNEL);
    }
    ~OwnChannel() {
        EXPECT_EQ(0, ConnectDetach(coid));
        EXPECT_EQ(0, ChannelDestroy(chid));
    }
    OwnChannel(const OwnChannel&) = delete;
    OwnChannel& operator=(const OwnChannel&) = delete;

    const int chid;
    const int coid;
};

/// What a call returned and what it left in errno.
struct Outcome {
    int result;
    int error;

    friend bool operator==(const Outcome& a, const Outcome& b) {
        return a.result == b.result && a.error == b.error;
    }
    friend std::ostream& operator<<(std::ostream& stream, const Outcome& outcome) {
        return stream << outcome.result << ", errno " << outcome.error;
    }
};

inline Outcome outcomeOf(const std::function<int()>& call) {
    errno = 0;
    const int result = call();
    return {result, errno};
}

inline const Outcome kTimedOut = {-1, ETIMEDOUT};

inline void armFor(int states, uint64_t relativeNs) {
    ASSERT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, states, nullptr, &relativeNs, nullptr));
}

inline void armNow(int states) {
    ASSERT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, states, nullptr, nullptr, nullptr));
}

/// At a time that has passed.
inline void armAtPast(int states) {
    const uint64_t begin = 1;
    ASSERT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, states | TIMER_ABSTIME, nullptr, &begin, nullptr));
}

/// A text sent and received back.
inline Outcome sendText(int coid, const std::string& text, std::string& reply, int room = 256) {
    reply.assign(static_cast<std::size_t>(room), '\0');
    const Outcome outcome =
        outcomeOf([&] { return MsgSend(coid, text.data(), static_cast<int>(text.size()), reply.data(), room); });
    reply = reply.c_str();
    return outcome;
}

inline Outcome sendNothing(int coid) {
    return outcomeOf([coid] { return MsgSend(coid, nullptr, 0, nullptr, 0); });
}

/// Where nobody receives: not before its time, and at once for none.
inline void expectTimeOutToEndSending(int coid) {
    for (const int states : {_NTO_TIMEOUT_SEND, _NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY}) {
        const uint64_t begin = monotonicNs();
        armFor(states, 10 * kMs);
        EXPECT_EQ(kTimedOut, sendNothing(coid));
        EXPECT_GE(monotonicNs() - begin, 10 * kMs);
        armNow(states);
        EXPECT_EQ(kTimedOut, sendNothing(coid));
    }
}

/// A thread's outcome of sending nothing.
inline std::future<Outcome> sendNothingElsewhere(int coid) {
    return std::async(std::launch::async, [coid] { return sendNothing(coid); });
}

inline Outcome receiveNow(int chid, void* buffer = nullptr, int size = 0, _msg_info* info = nullptr) {
    armNow(_NTO_TIMEOUT_RECEIVE);
    return outcomeOf([=] { return MsgReceive(chid, buffer, size, info); });
}

/// A receive that a hanging test does not hang in.
inline int receiveSoon(int chid, void* buffer = nullptr, int size = 0, _msg_info* info = nullptr) {
    armFor(_NTO_TIMEOUT_RECEIVE, 20 * host::kNsPerSecond);
    return MsgReceive(chid, buffer, size, info);
}

inline Outcome receivePulseNow(int chid, _pulse& pulse) {
    armNow(_NTO_TIMEOUT_RECEIVE);
    return outcomeOf([&] { return MsgReceivePulse(chid, &pulse, sizeof pulse, nullptr); });
}
