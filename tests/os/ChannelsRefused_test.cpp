// VQChannelAccess: what it asks of the kernel, call by call, on a platform whose answers are set by hand. The unit is
// compiled here a second time, under another name.
#include <VQChannelAccess.h>
#include <VQOperatingSystem.h>

#include <cerrno>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/neutrino.h>
#include <vector>

namespace scripted {

/// What the next kernel call gives, and leaves in errno.
struct Answer {
    int result;
    int error;
};

struct Kernel {
    unsigned long long deadline = 4711;  // of calculateKernelTimeout; 0: the clock cannot be read
    unsigned long long now = 0;
    bool isArmingRefused = false;
    std::vector<Answer> answers;  // the first is the next
    std::vector<std::string> calls;
};
Kernel sKernel;

int answer(const std::string& call) {
    sKernel.calls.push_back(call);
    const Answer next = sKernel.answers.at(0);
    sKernel.answers.erase(sKernel.answers.begin());
    if (next.error != 0)
        errno = next.error;
    return next.result;
}

int connectAttach(uint32_t nd, pid_t pid, int chid, unsigned index, int flags) {
    EXPECT_EQ(0x40000000u, index);
    EXPECT_EQ(1, flags);
    return answer("attach " + std::to_string(nd) + " " + std::to_string(pid) + " " + std::to_string(chid));
}
int msgSend(int coid, const void*, int size, void*, int room) {
    return answer("send " + std::to_string(coid) + " " + std::to_string(size) + " " + std::to_string(room));
}
int msgSendv(int coid, const iovec*, int parts, const iovec*, int room) {
    return answer("sendv " + std::to_string(coid) + " " + std::to_string(parts) + " " + std::to_string(room));
}
int msgReceive(int chid, void*, int size, _msg_info* info) {
    return answer("receive " + std::to_string(chid) + " " + std::to_string(size) + (info != nullptr ? " i" : ""));
}
int msgReceivev(int chid, const iovec*, int parts, _msg_info* info) {
    return answer("receivev " + std::to_string(chid) + " " + std::to_string(parts) + (info != nullptr ? " i" : ""));
}
int msgReceivePulse(int chid, void*, int size, _msg_info* info) {
    EXPECT_EQ(nullptr, info);
    return answer("pulse " + std::to_string(chid) + " " + std::to_string(size));
}

}  // namespace scripted

namespace ScriptedSystem {

unsigned long long calculateKernelTimeout(int timeoutMs) {
    scripted::sKernel.calls.push_back("deadline " + std::to_string(timeoutMs));
    return scripted::sKernel.deadline;
}
bool setKernelTimeout(unsigned long long deadline, int flags) {
    scripted::sKernel.calls.push_back("arm " + std::to_string(deadline) + " " + std::to_string(flags));
    return !scripted::sKernel.isArmingRefused;
}
unsigned long long getClockValue(int clock) {
    EXPECT_EQ(CLOCK_MONOTONIC, clock);
    return scripted::sKernel.now;
}
void setLastError(int error) {
    errno = error;
}

}  // namespace ScriptedSystem

#define VQChannelAccess ScriptedChannelAccess
#define VQOperatingSystem ScriptedSystem
#define ConnectAttach scripted::connectAttach
#define MsgSend scripted::msgSend
#define MsgSendv scripted::msgSendv
#define MsgReceive scripted::msgReceive
#define MsgReceivev scripted::msgReceivev
#define MsgReceivePulse scripted::msgReceivePulse
namespace ScriptedChannelAccess {
bool attach(int& coid, const int& chid, int pid, unsigned nd);
int send(const int& coid, const void* msg, int msgSize, void* reply, int replySize);
int sendv(const int& coid, const iovec* msg, int msgParts, const iovec* reply, int replyParts);
int sendv(const int& coid, const iovec* msg, int msgParts, const iovec* reply, int replyParts, int timeoutMs);
int receivePulse(const int& chid, void* pulse, int size, int timeoutMs);
int receive(const int& chid, void* msg, int size, int timeoutMs, _msg_info* info);
int receivev(const int& chid, const iovec* msg, int parts, int timeoutMs, _msg_info* info);
int receiveMessageOrPulse(const int& chid, void* msg, int size, int timeoutMs, _msg_info* info);
int receiveMessageOrPulsev(const int& chid, const iovec* msg, int parts, int timeoutMs, _msg_info* info);
}  // namespace ScriptedChannelAccess
#include "os/VQChannelAccessQNX.cpp"

namespace {

using scripted::Answer;
using scripted::sKernel;
using Calls = std::vector<std::string>;

constexpr Answer kInterrupted = {-1, EINTR};

class ChannelsRefused : public testing::Test {
protected:
    ChannelsRefused() {
        sKernel = scripted::Kernel();
        errno = 0;
    }

    void script(std::vector<Answer> answers) {
        sKernel.answers = std::move(answers);
        sKernel.calls.clear();
        errno = 0;
    }
};

/// A call of the unit with a time-out, and what it then asks of the kernel each time.
struct Timed {
    const char* name;
    int flags;
    std::string call;
    std::function<int(int timeoutMs)> make;
    bool dropsPulses;
};

const int kId = 5;
_msg_info sInfo;

const std::vector<Timed>& timedCalls() {
    static const std::vector<Timed> calls = {
        {"sendv", 0x50, "sendv 5 2 3",
         [](int ms) { return ScriptedChannelAccess::sendv(kId, nullptr, 2, nullptr, 3, ms); }, false},
        {"receivePulse", 0x20, "pulse 5 16",
         [](int ms) { return ScriptedChannelAccess::receivePulse(kId, nullptr, 16, ms); }, false},
        {"receive", 0x20, "receive 5 7 i",
         [](int ms) { return ScriptedChannelAccess::receive(kId, nullptr, 7, ms, &sInfo); }, true},
        {"receivev", 0x20, "receivev 5 2",
         [](int ms) { return ScriptedChannelAccess::receivev(kId, nullptr, 2, ms, nullptr); }, true},
        {"receiveMessageOrPulse", 0x20, "receive 5 7",
         [](int ms) { return ScriptedChannelAccess::receiveMessageOrPulse(kId, nullptr, 7, ms, nullptr); }, false},
        {"receiveMessageOrPulsev", 0x20, "receivev 5 2 i",
         [](int ms) { return ScriptedChannelAccess::receiveMessageOrPulsev(kId, nullptr, 2, ms, &sInfo); }, false},
    };
    return calls;
}

}  // namespace

TEST_F(ChannelsRefused, AConnectionIsOneOfTheSideChannelThatClosesAtExec) {
    int coid = 0;
    script({{0x40000003, 0}, {-1, ESRCH}});
    EXPECT_TRUE(ScriptedChannelAccess::attach(coid, 11, 22, 33));
    EXPECT_EQ(0x40000003, coid);
    EXPECT_FALSE(ScriptedChannelAccess::attach(coid, 11, 22, 33));
    EXPECT_EQ(-1, coid);
    EXPECT_EQ(ESRCH, errno);
    EXPECT_EQ(Calls(2, "attach 33 22 11"), sKernel.calls);
}

TEST_F(ChannelsRefused, SendsWithoutATimeOutAreRepeatedWhileTheyAreInterrupted) {
    script({kInterrupted, kInterrupted, {-3, 0}, {-1, EBADF}});
    EXPECT_EQ(-3, ScriptedChannelAccess::send(kId, nullptr, 8, nullptr, 9));
    EXPECT_EQ(-1, ScriptedChannelAccess::send(kId, nullptr, 8, nullptr, 9));
    EXPECT_EQ(EBADF, errno);
    EXPECT_EQ(Calls(4, "send 5 8 9"), sKernel.calls);
    script({kInterrupted, {4, 0}});
    EXPECT_EQ(4, ScriptedChannelAccess::sendv(kId, nullptr, 1, nullptr, 0));
    EXPECT_EQ(Calls(2, "sendv 5 1 0"), sKernel.calls);
}

TEST_F(ChannelsRefused, MinusOneIsNoTimeOutAndArmsNone) {
    for (const Timed& timed : timedCalls()) {
        SCOPED_TRACE(timed.name);
        script({kInterrupted, {6, 0}});
        EXPECT_EQ(6, timed.make(-1));
        EXPECT_EQ(Calls(2, timed.call), sKernel.calls);
        script({{-1, ESRCH}});
        EXPECT_EQ(-1, timed.make(-1));
        EXPECT_EQ(ESRCH, errno);
    }
}

TEST_F(ChannelsRefused, EachAttemptIsArmedWithTheFirstDeadline) {
    for (const Timed& timed : timedCalls()) {
        SCOPED_TRACE(timed.name);
        const std::string arm = "arm 4711 " + std::to_string(timed.flags);
        script({kInterrupted, kInterrupted, {6, 0}});
        EXPECT_EQ(6, timed.make(100));
        EXPECT_EQ(Calls({"deadline 100", arm, timed.call, arm, timed.call, arm, timed.call}), sKernel.calls);
    }
}

TEST_F(ChannelsRefused, AClockThatCannotBeReadEndsTheCallAtOnce) {
    for (const Timed& timed : timedCalls()) {
        SCOPED_TRACE(timed.name);
        sKernel.deadline = 0;
        script({});
        EXPECT_EQ(-1, timed.make(100));
        EXPECT_EQ(Calls{"deadline 100"}, sKernel.calls);
    }
}

TEST_F(ChannelsRefused, ATimeOutThatIsRefusedEndsTheCallBeforeItWaits) {
    for (const Timed& timed : timedCalls()) {
        SCOPED_TRACE(timed.name);
        sKernel.isArmingRefused = true;
        script({});
        EXPECT_EQ(-1, timed.make(0));
        EXPECT_EQ(2u, sKernel.calls.size());
    }
}

TEST_F(ChannelsRefused, OtherFailuresAreReturnedAsTheyAre) {
    for (const Timed& timed : timedCalls())
        for (const int error : {ETIMEDOUT, ESRCH, EFAULT}) {
            SCOPED_TRACE(timed.name);
            script({{-1, error}});
            EXPECT_EQ(-1, timed.make(100));
            EXPECT_EQ(error, errno);
        }
}

TEST_F(ChannelsRefused, AnInterruptedSendWhoseDeadlineHasPassedIsNotRepeated) {
    const Timed& send = timedCalls()[0];
    sKernel.now = 4710;
    script({kInterrupted, {3, 0}});
    EXPECT_EQ(3, send.make(100));
    sKernel.now = 4711;
    script({kInterrupted});
    EXPECT_EQ(-1, send.make(100));
    EXPECT_EQ(ETIMEDOUT, errno);
}

TEST_F(ChannelsRefused, PulsesAreDroppedOnlyWhereMessagesAreAskedFor) {
    for (const Timed& timed : timedCalls()) {
        SCOPED_TRACE(timed.name);
        const std::string arm = "arm 4711 " + std::to_string(timed.flags);
        script({{0, 0}, {0, 0}, {8, 0}});
        EXPECT_EQ(timed.dropsPulses ? 8 : 0, timed.make(100));
        EXPECT_EQ(timed.dropsPulses ? Calls({"deadline 100", arm, timed.call, arm, timed.call, arm, timed.call})
                                    : Calls({"deadline 100", arm, timed.call}),
                  sKernel.calls);
        script({{0, 0}, {0, 0}, {8, 0}});
        EXPECT_EQ(timed.dropsPulses ? 8 : 0, timed.make(-1));
        EXPECT_EQ(Calls(timed.dropsPulses ? 3u : 1u, timed.call), sKernel.calls);
    }
}
