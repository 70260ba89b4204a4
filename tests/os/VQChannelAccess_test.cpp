// Concerns: what each call passes to the kernel and back, one deadline over interruptions and dropped pulses, no limit
// for negative time-outs, refusals.
#include "host/MessageTesting.h"
#include "host/SignalStorm.h"

#include <VQChannelAccess.h>

#include <cstring>

namespace {

using namespace std::chrono_literals;

constexpr int kNoLimit = -1;

void doNothing(int) {
}

/// How long a call took, in milliseconds.
template <class Call>
uint64_t millisecondsOf(Call call) {
    const uint64_t begin = monotonicNs();
    call();
    return (monotonicNs() - begin) / kMs;
}

/// Replies to one message with its own bytes, and the receive id's `status`.
std::thread echoOnce(int chid, int status, std::chrono::milliseconds after = 0ms) {
    return std::thread([=] {
        char bytes[64];
        _msg_info info;
        const int id = VQChannelAccess::receive(chid, bytes, sizeof bytes, 20000, &info);
        std::this_thread::sleep_for(after);
        if (id > 0)
            MsgReply(id, status, bytes, info.msglen);
    });
}

TEST(VQChannelAccess, AttachesToAChannelOfThisProcess) {
    OwnChannel own;
    int coid = 0;
    EXPECT_TRUE(VQChannelAccess::attach(coid, own.chid, 0, 0));
    EXPECT_EQ(_NTO_SIDE_CHANNEL, coid & _NTO_SIDE_CHANNEL);
    EXPECT_EQ(0, ConnectDetach(coid));
    EXPECT_TRUE(VQChannelAccess::attach(coid, own.chid, getpid(), 0));
    EXPECT_EQ(0, ConnectDetach(coid));
    EXPECT_FALSE(VQChannelAccess::attach(coid, own.chid + 50, 0, 0));
    EXPECT_EQ(-1, coid);
    EXPECT_EQ(ESRCH, errno);
}

TEST(VQChannelAccess, SendsOneBufferAndParts) {
    OwnChannel own;
    char back[8] = {};
    std::thread server = echoOnce(own.chid, 11);
    EXPECT_EQ(11, VQChannelAccess::send(own.coid, "hello", 6, back, sizeof back));
    EXPECT_STREQ("hello", back);
    server.join();

    char question[] = "abcd";
    const iovec parts[] = {{question, 1}, {question + 1, 4}};
    for (const int timeoutMs : {kNoLimit, 10000, -7}) {
        char first[2] = {}, second[4] = {};
        const iovec room[] = {{first, 1}, {second, 4}};
        server = echoOnce(own.chid, 12);
        EXPECT_EQ(12, VQChannelAccess::sendv(own.coid, parts, 2, room, 2, timeoutMs));
        server.join();
        EXPECT_STREQ("a", first);
        EXPECT_STREQ("bcd", second);
    }
    server = echoOnce(own.chid, 13);
    EXPECT_EQ(13, VQChannelAccess::sendv(own.coid, parts, 2, nullptr, 0));
    server.join();
}

TEST(VQChannelAccess, PassesOnTheReceiversErrorAndTheKernels) {
    OwnChannel own;
    for (const int timeoutMs : {kNoLimit, 10000}) {
        std::thread server(
            [&] { MsgError(VQChannelAccess::receive(own.chid, nullptr, 0, 20000, nullptr), ENOSYS); });
        EXPECT_EQ((Outcome{-1, ENOSYS}),
                  outcomeOf([&] { return VQChannelAccess::sendv(own.coid, nullptr, 0, nullptr, 0, timeoutMs); }));
        server.join();
        EXPECT_EQ((Outcome{-1, EBADF}),
                  outcomeOf([&] { return VQChannelAccess::sendv(-1, nullptr, 0, nullptr, 0, timeoutMs); }));
        EXPECT_EQ((Outcome{-1, ESRCH}),
                  outcomeOf([&] { return VQChannelAccess::receive(9999, nullptr, 0, timeoutMs, nullptr); }));
    }
    EXPECT_EQ((Outcome{-1, EBADF}), outcomeOf([] { return VQChannelAccess::send(-1, nullptr, 0, nullptr, 0); }));
}

// errno holds EINTR from long ago, and the receiver's status looks like a failure.
TEST(VQChannelAccess, DoesNotTakeAnOldInterruptionForItsOwn) {
    OwnChannel own;
    for (const int timeoutMs : {kNoLimit, 10000}) {
        std::thread server = echoOnce(own.chid, -1);
        errno = EINTR;
        EXPECT_EQ(-1, VQChannelAccess::sendv(own.coid, nullptr, 0, nullptr, 0, timeoutMs));
        EXPECT_EQ(EINTR, errno);
        server.join();
    }
}

TEST(VQChannelAccess, Kept_ANegativeStatusIsTheResultWithoutATimeoutAndMinusOneUnderOne) {
    OwnChannel own;
    std::thread server = echoOnce(own.chid, -9);
    EXPECT_EQ(-9, VQChannelAccess::sendv(own.coid, nullptr, 0, nullptr, 0));
    server.join();
    server = echoOnce(own.chid, -9);
    EXPECT_EQ(-1, VQChannelAccess::sendv(own.coid, nullptr, 0, nullptr, 0, 10000));
    server.join();
}

TEST(VQChannelAccess, SendTimesOutWhereverTheMessageIs) {
    OwnChannel own;
    EXPECT_EQ(kTimedOut, outcomeOf([&] { return VQChannelAccess::sendv(own.coid, nullptr, 0, nullptr, 0, 0); }));
    EXPECT_GE(millisecondsOf([&] {
                  EXPECT_EQ(kTimedOut, outcomeOf([&] {
                                return VQChannelAccess::sendv(own.coid, nullptr, 0, nullptr, 0, 20);
                            }));
              }),
              20u);
    std::thread server = echoOnce(own.chid, 0, 60ms);
    EXPECT_EQ(kTimedOut, outcomeOf([&] { return VQChannelAccess::sendv(own.coid, nullptr, 0, nullptr, 0, 20); }));
    server.join();
}

TEST(VQChannelAccess, SendKeepsItsDeadlineAcrossSignals) {
    OwnChannel own;
    const SignalStorm storm(doNothing);
    const uint64_t took = millisecondsOf([&] {
        EXPECT_EQ(kTimedOut,
                  outcomeOf([&] { return VQChannelAccess::sendv(own.coid, nullptr, 0, nullptr, 0, 100); }));
    });
    EXPECT_GE(took, 100u);
    EXPECT_LT(took, 1000u);
}

// The channel keeps senders whose message was taken: elsewhere an interruption has the message sent again.
TEST(VQChannelAccess, CallsWithoutALimitOutliveSignals) {
    OwnChannel own(_NTO_CHF_UNBLOCK);
    std::thread server = echoOnce(own.chid, 4, 50ms);
    {
        const SignalStorm storm(doNothing);
        EXPECT_EQ(4, VQChannelAccess::send(own.coid, nullptr, 0, nullptr, 0));
    }
    server.join();
    _pulse asked;
    EXPECT_EQ((Outcome{0, 0}), receivePulseNow(own.chid, asked));
    EXPECT_EQ(_PULSE_CODE_UNBLOCK, asked.code);
    std::thread client([&] {
        std::this_thread::sleep_for(50ms);
        MsgSendPulse(own.coid, 10, 3, 0);
    });
    {
        const SignalStorm storm(doNothing);
        _pulse pulse;
        EXPECT_EQ(0, VQChannelAccess::receivePulse(own.chid, &pulse, sizeof pulse, kNoLimit));
        EXPECT_EQ(3, pulse.code);
    }
    client.join();
}

TEST(VQChannelAccess, ReceiveKeepsItsDeadlineAcrossSignals) {
    OwnChannel own;
    const SignalStorm storm(doNothing);
    const uint64_t took = millisecondsOf([&] {
        EXPECT_EQ(kTimedOut,
                  outcomeOf([&] { return VQChannelAccess::receive(own.chid, nullptr, 0, 100, nullptr); }));
    });
    EXPECT_GE(took, 100u);
    EXPECT_LT(took, 1000u);
}

TEST(VQChannelAccess, ReceiveDropsPulsesAndKeepsItsDeadline) {
    OwnChannel own;
    std::thread pulses([&] {
        for (int i = 0; i < 15; ++i) {
            MsgSendPulse(own.coid, 10, 1, i);
            std::this_thread::sleep_for(10ms);
        }
    });
    char bytes[64];
    iovec part = {bytes, sizeof bytes};
    const uint64_t took = millisecondsOf([&] {
        EXPECT_EQ(kTimedOut,
                  outcomeOf([&] { return VQChannelAccess::receive(own.chid, bytes, sizeof bytes, 100, nullptr); }));
    });
    EXPECT_GE(took, 100u);
    EXPECT_LT(took, 1000u);
    pulses.join();
    EXPECT_EQ(kTimedOut, outcomeOf([&] { return VQChannelAccess::receivev(own.chid, &part, 1, 0, nullptr); }));
    _pulse pulse;
    EXPECT_EQ(kTimedOut, receivePulseNow(own.chid, pulse)) << "they are gone";
}

TEST(VQChannelAccess, ReceiveTakesTheMessageBehindPulses) {
    OwnChannel own;
    for (const int timeoutMs : {kNoLimit, 10000, -3}) {
        MsgSendPulse(own.coid, 20, 1, 0);
        auto sender = sendNothingElsewhere(own.coid);
        char bytes[64];
        iovec part = {bytes, sizeof bytes};
        _msg_info info = {};
        const int id = VQChannelAccess::receivev(own.chid, &part, 1, timeoutMs, &info);
        EXPECT_GT(id, 0);
        EXPECT_EQ(getpid(), info.pid);
        MsgReply(id, 0, nullptr, 0);
        EXPECT_EQ((Outcome{0, 0}), sender.get());
    }
}

TEST(VQChannelAccess, ReceivesMessagesOrPulses) {
    OwnChannel own;
    for (const int timeoutMs : {kNoLimit, 10000, 0}) {
        ASSERT_EQ(0, MsgSendPulse(own.coid, 20, 7, 8));
        ASSERT_EQ(0, MsgSendPulse(own.coid, 20, 9, 8));
        _pulse pulse = {};
        EXPECT_EQ(0, VQChannelAccess::receiveMessageOrPulse(own.chid, &pulse, sizeof pulse, timeoutMs, nullptr));
        EXPECT_EQ(7, pulse.code);
        iovec part = {&pulse, sizeof pulse};
        EXPECT_EQ(0, VQChannelAccess::receiveMessageOrPulsev(own.chid, &part, 1, timeoutMs, nullptr));
        EXPECT_EQ(9, pulse.code);
    }
    auto sender = sendNothingElsewhere(own.coid);
    char bytes[64];
    const int id = VQChannelAccess::receiveMessageOrPulse(own.chid, bytes, sizeof bytes, 10000, nullptr);
    EXPECT_GT(id, 0);
    MsgReply(id, 0, nullptr, 0);
    sender.get();
    EXPECT_EQ(kTimedOut, outcomeOf([&] {
                  return VQChannelAccess::receiveMessageOrPulse(own.chid, bytes, sizeof bytes, 0, nullptr);
              }));
}

TEST(VQChannelAccess, ReceivesMessagesOrPulsesWithARecordOfTheSender) {
    OwnChannel own;
    for (const bool isInParts : {false, true}) {
        std::thread client([&] { EXPECT_EQ(0, VQChannelAccess::send(own.coid, "hello", 6, nullptr, 0)); });
        char bytes[64];
        iovec part = {bytes, sizeof bytes};
        _msg_info info = {};
        const int id = isInParts
                           ? VQChannelAccess::receiveMessageOrPulsev(own.chid, &part, 1, 20000, &info)
                           : VQChannelAccess::receiveMessageOrPulse(own.chid, bytes, sizeof bytes, 20000, &info);
        EXPECT_GT(id, 0);
        EXPECT_EQ(6, info.msglen);
        EXPECT_EQ(getpid(), info.pid);
        EXPECT_EQ(own.chid, info.chid);
        MsgReply(id, 0, nullptr, 0);
        client.join();
    }
}

TEST(VQChannelAccess, ReceivesPulsesPastMessages) {
    OwnChannel own;
    auto sender = sendNothingElsewhere(own.coid);
    std::this_thread::sleep_for(20ms);
    _pulse pulse;
    EXPECT_EQ(kTimedOut,
              outcomeOf([&] { return VQChannelAccess::receivePulse(own.chid, &pulse, sizeof pulse, 10); }));
    MsgSendPulse(own.coid, 1, 2, 3);
    EXPECT_EQ(0, VQChannelAccess::receivePulse(own.chid, &pulse, sizeof pulse, 10000));
    EXPECT_EQ(2, pulse.code);
    MsgReply(receiveSoon(own.chid), 0, nullptr, 0);
    sender.get();
}

}  // namespace
