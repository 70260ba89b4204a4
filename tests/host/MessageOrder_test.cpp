// Concerns: the order of messages, pulses and expiries that come from several processes, and how many pulses wait.
#include "Deadline.h"
#include "MessageOther.h"

#include "file/Descriptors.h"
#include "support/ChildProcess.h"

#include <csignal>
#include <gmock/gmock.h>
#include <map>
#include <memory>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

/// A process that sends to a channel of this one when its turn comes. First it sends nothing, and is answered: who is
/// not known yet has not sent. All are to be there before this process has a thread.
class InTurn {
public:
    InTurn(int chid, const std::function<void(int coid)>& send)
        : mProcess(client(chid, [this, send](int coid) {
              EXPECT_EQ((Outcome{0, 0}), sendNothing(coid));
              char byte;
              EXPECT_EQ(1, read(mTurn.ends[0], &byte, 1));
              send(coid);
              EXPECT_EQ(1, write(mSent.ends[1], "s", 1));
              EXPECT_EQ(1, read(mTurn.ends[0], &byte, 1));
          })) {}

    pid_t pid() const { return mProcess.pid(); }
    void begin() const { EXPECT_EQ(1, write(mTurn.ends[1], "b", 1)); }
    void waitUntilSent() const {
        char byte;
        EXPECT_EQ(1, read(mSent.ends[0], &byte, 1));
    }
    void end() {
        EXPECT_EQ(1, write(mTurn.ends[1], "e", 1));
        EXPECT_ENDS_WELL(mProcess.finish());
    }

private:
    Pipe mTurn, mSent;
    support::ChildProcess mProcess;
};

TEST(MessageProcess, KeepsTheOrderOfPriorityThenTimeAcrossProcesses) {
    const OwnChannel own;
    std::vector<std::unique_ptr<InTurn>> others;
    for (int turn = 0; turn < 3; ++turn)
        others.push_back(std::make_unique<InTurn>(own.chid, [turn](int coid) {
            EXPECT_EQ(0, MsgSendPulse(coid, 10, 10 + turn, 0));
            EXPECT_EQ(0, MsgSendPulse(coid, turn == 1 ? 20 : 5, 20 + turn, 0));
        }));
    for (std::size_t i = 0; i < others.size(); ++i)
        answerNothing(own.chid);
    for (int turn = 0; turn < 3; ++turn) {
        others[static_cast<std::size_t>(turn)]->begin();
        others[static_cast<std::size_t>(turn)]->waitUntilSent();
        EXPECT_EQ(0, MsgSendPulse(own.coid, 10, 30 + turn, 0));
    }
    std::vector<int> codes;
    _pulse pulse;
    while (codes.size() < 9) {
        ASSERT_EQ(0, receiveSoon(own.chid, &pulse, sizeof pulse));
        codes.push_back(pulse.code);
    }
    EXPECT_THAT(codes, ElementsAre(21, 10, 30, 11, 31, 12, 32, 20, 22));
    for (const auto& other : others)
        other->end();
}

TEST(MessageProcess, IsReceivedInTheOrderOfTheSendersPrioritiesThenTime) {
    constexpr int kSenders = 9;
    static const int kPriorities[kSenders] = {10, 10, 30, 10, 10, 5, 63, 30, 10};
    const auto isHere = [](int sender) { return sender == 5 || sender == 7; };  // a thread of this process
    const OwnChannel own;
    const auto send = [](int coid, int sender) {
        const sched_param parameters = {kPriorities[sender]};
        EXPECT_EQ(0, SchedSet(0, 0, SCHED_NOCHANGE, &parameters));
        armFor(_NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY, 60 * host::kNsPerSecond);
        return outcomeOf([=] { return MsgSend(coid, &sender, sizeof sender, nullptr, 0); });
    };
    std::map<int, std::unique_ptr<InTurn>> others;
    for (int sender = 0; sender < kSenders; ++sender)
        if (!isHere(sender))
            others[sender] = std::make_unique<InTurn>(own.chid, [=](int coid) {
                EXPECT_EQ((Outcome{sender, 0}), send(coid, sender));
            });
    for (std::size_t i = 0; i < others.size(); ++i)
        answerNothing(own.chid);

    std::map<int, std::future<Outcome>> inside;
    for (int sender = 0; sender < kSenders; ++sender) {
        if (isHere(sender)) {
            inside[sender] = std::async(std::launch::async, send, own.coid, sender);
            waitUntilOthersSleep();
        } else {
            others[sender]->begin();
            waitUntilSleeping(others[sender]->pid());
        }
    }
    std::vector<int> order;
    for (int i = 0; i < kSenders; ++i) {
        int sender = 0;
        _msg_info info = {};
        const int id = receiveSoon(own.chid, &sender, sizeof sender, &info);
        EXPECT_EQ(kPriorities[sender], info.priority);
        EXPECT_EQ(0, MsgReply(id, sender, nullptr, 0));
        order.push_back(sender);
    }
    EXPECT_THAT(order, ElementsAre(6, 2, 7, 0, 1, 3, 4, 8, 5));
    for (auto& [sender, outcome] : inside)
        EXPECT_EQ((Outcome{sender, 0}), outcome.get());
    for (auto& [sender, other] : others)
        other->end();
}

/// Two connections to one channel, whose receiver knows both. It looks at one of them first.
struct TwoConnections {
    TwoConnections(pid_t server, int chid) : coids{attachTo(server, chid), attachTo(server, chid)} {
        for (const int coid : coids)
            EXPECT_EQ((Outcome{0, 0}), sendNothing(coid));
    }
    const int coids[2];
};

TEST(MessageProcess, KeepsTheOrderInWhichOneThreadSendsOverTwoConnections) {
    constexpr int kEnd = -1;
    const OwnChannel own;
    support::ChildProcess other([server = getpid(), chid = own.chid] {
        const TwoConnections two(server, chid);
        const auto sendPulse = [&two](int i, int value) {
            while (MsgSendPulse(two.coids[i / 5 % 2], 10, 1, value) != 0) {
                ASSERT_EQ(EAGAIN, errno);
                usleep(10);
            }
        };
        int i = 0;
        // Enough, also of a slow machine.
        for (const uint64_t end = monotonicNs() + 5000 * kMs; i < 150000 && monotonicNs() < end; ++i) {
            if (i % 10000 != 0)
                sendPulse(i, i);
            else
                ASSERT_EQ(0, MsgSend(two.coids[i % 2], &i, sizeof i, nullptr, 0));
        }
        sendPulse(i, kEnd);
        EXPECT_EQ((Outcome{0, 0}), sendNothing(two.coids[0]));
    });
    answerNothing(own.chid);
    answerNothing(own.chid);
    for (int i = 0, sent = 0; sent != kEnd; ++i) {
        union {
            _pulse pulse;
            int message;
        } bytes;
        const int id = receiveSoon(own.chid, &bytes, sizeof bytes);
        ASSERT_GE(id, 0);
        sent = id == 0 ? bytes.pulse.value.sival_int : bytes.message;
        ASSERT_TRUE(sent == i || sent == kEnd) << sent << " instead of " << i;
        if (id != 0) {
            EXPECT_EQ(0, MsgReply(id, 0, nullptr, 0));
        }
    }
    answerNothing(own.chid);
    EXPECT_ENDS_WELL(other.finish());
}

TEST(MessageProcess, KeepsTheOrderOfPulsesWhenTheLaterOnesConnectionHasEnded) {
    const OwnChannel own;
    int ended[2];
    ASSERT_EQ(0, pipe(ended));
    support::ChildProcess other([&, server = getpid()] {
        for (const int last : {0, 1}) {
            const TwoConnections two(server, own.chid);
            EXPECT_EQ(0, MsgSendPulse(two.coids[1 - last], 10, 1, 1));
            EXPECT_EQ(0, MsgSendPulse(two.coids[last], 10, 1, 2));
            const int before = openDescriptors(server);
            EXPECT_EQ(0, ConnectDetach(two.coids[last]));
            while (openDescriptors(server) == before)
                usleep(1000);
            EXPECT_EQ(1, write(ended[1], "e", 1));
        }
    });
    for (int round = 0; round < 2; ++round) {
        answerNothing(own.chid);
        answerNothing(own.chid);
        char byte;
        EXPECT_EQ(1, read(ended[0], &byte, 1));
        for (const int expected : {1, 2}) {
            _pulse pulse;
            ASSERT_EQ(0, receiveSoon(own.chid, &pulse, sizeof pulse));
            EXPECT_EQ(expected, pulse.value.sival_int);
        }
    }
    EXPECT_ENDS_WELL(other.finish());
    close(ended[0]);
    close(ended[1]);
}

TEST(MessageProcess, SendsPulsesUntilTooManyWait) {
    OwnChannel own;
    support::ChildProcess other(client(own.chid, [](int coid) {
        int sent = 0;
        while (MsgSendPulse(coid, 10, 1, sent) == 0)
            ++sent;
        EXPECT_EQ(EAGAIN, errno);
        EXPECT_EQ(sent, MsgSend(coid, &sent, sizeof sent, nullptr, 0));
    }));
    std::this_thread::sleep_for(50ms);
    int received = 0;
    for (;;) {
        union {
            _pulse pulse;
            int sent;
        } bytes;
        const int id = receiveSoon(own.chid, &bytes, sizeof bytes);
        if (id > 0) {
            EXPECT_EQ(received, bytes.sent);
            EXPECT_GE(received, 1024);
            MsgReply(id, received, nullptr, 0);
            break;
        }
        ASSERT_EQ(0, id);
        ASSERT_EQ(received, bytes.pulse.value.sival_int);
        ++received;
    }
    EXPECT_ENDS_WELL(other.finish());
}

// Those count, too, that the receiver's process has fetched already.
TEST(MessageProcess, HasRoomForOneMorePulseWithEachThatIsReceived) {
    OwnChannel own;
    Pipe go, done;
    support::ChildProcess other(client(own.chid, [&](int coid) {
        for (char byte; read(go.ends[0], &byte, 1) == 1;) {
            int count = 0;
            while (MsgSendPulse(coid, 10 + count % 3, 1, 0) == 0)
                ++count;
            EXPECT_EQ(EAGAIN, errno);
            EXPECT_EQ(static_cast<ssize_t>(sizeof count), write(done.ends[1], &count, sizeof count));
        }
    }));
    const auto sendAllThatHaveRoom = [&] {
        int count = -1;
        EXPECT_EQ(1, write(go.ends[1], "g", 1));
        EXPECT_EQ(static_cast<ssize_t>(sizeof count), read(done.ends[0], &count, sizeof count));
        return count;
    };
    EXPECT_EQ(1024, sendAllThatHaveRoom());
    for (const int received : {1, 100, 1024, 0}) {
        _pulse pulse;
        for (int i = 0; i < received; ++i)
            ASSERT_EQ(0, receiveSoon(own.chid, &pulse, sizeof pulse));
        EXPECT_EQ(received, sendAllThatHaveRoom());
    }
    other.send(SIGKILL);
    other.finish();
}

TEST(MessageProcess, KeepsTheOrderOfThePulsesOfManyConnections) {
    constexpr int kConnections = 30;
    const int count = kConnections * support::roundsHere(900);
    OwnChannel own;
    Pipe done;
    support::ChildProcess other(client(own.chid, [&](int) {
        std::vector<int> coids;
        for (int i = 0; i < kConnections; ++i) {
            coids.push_back(attachTo(getppid(), own.chid));
            EXPECT_EQ((Outcome{0, 0}), sendNothing(coids.back()));  // the receiver's process has noticed it
        }
        for (int i = 0; i < count; ++i)
            EXPECT_EQ(0, MsgSendPulse(coids[static_cast<std::size_t>(i % kConnections)], 10, 1, i));
        EXPECT_EQ(1, write(done.ends[1], "d", 1));
        pause();
    }));
    for (int i = 0; i < kConnections; ++i)
        EXPECT_EQ(0, MsgReply(receiveSoon(own.chid), 0, nullptr, 0));
    char byte;
    ASSERT_EQ(1, read(done.ends[0], &byte, 1));
    for (int i = 0; i < count; ++i) {
        _pulse pulse;
        ASSERT_EQ(0, receiveSoon(own.chid, &pulse, sizeof pulse)) << i;
        ASSERT_EQ(i, pulse.value.sival_int);
    }
    other.send(SIGKILL);
    other.finish();
}

/// What two pulses of one priority that are received last say, one of another process and one of a timer here, when
/// that expires `ms` after the begin and the other is sent after `sentAfterMs`.
std::vector<int> orderOfExpiryAndPulse(int expiryMs, int sentAfterMs) {
    OwnChannel own;
    Pipe go, done;
    support::ChildProcess other(client(own.chid, [&](int coid) {
        EXPECT_EQ(0, MsgSendPulse(coid, 10, 1, 0));
        char byte;
        EXPECT_EQ(1, read(go.ends[0], &byte, 1));
        EXPECT_EQ(0, MsgSendPulse(coid, 10, 2, 0));
        EXPECT_EQ(1, write(done.ends[1], "d", 1));
        pause();
    }));
    _pulse pulse;
    EXPECT_EQ(0, receiveSoon(own.chid, &pulse, sizeof pulse));
    struct sigevent event = {};
    SIGEV_PULSE_INIT(&event, own.coid, 10, 3, nullptr);
    const int timer = TimerCreate(CLOCK_MONOTONIC, &event);
    const _itimer once = {static_cast<uint64_t>(expiryMs) * kMs, 0};
    EXPECT_EQ(0, TimerSettime(timer, 0, &once, nullptr));
    std::this_thread::sleep_for(std::chrono::milliseconds(sentAfterMs));
    char byte = 'g';
    EXPECT_EQ(1, write(go.ends[1], &byte, 1));
    EXPECT_EQ(1, read(done.ends[0], &byte, 1));
    std::this_thread::sleep_for(1500ms);  // the thread that watches looks meanwhile, too
    std::vector<int> codes;
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(0, receiveSoon(own.chid, &pulse, sizeof pulse));
        codes.push_back(pulse.code);
    }
    EXPECT_EQ(0, TimerDestroy(timer));
    other.send(SIGKILL);
    other.finish();
    return codes;
}

TEST(MessageProcess, ItsPulsesComeBehindEarlierExpiriesOfTimers) {
    EXPECT_THAT(orderOfExpiryAndPulse(/*expiryMs*/ 50, /*sentAfterMs*/ 100), ElementsAre(3, 2));
}

TEST(MessageProcess, ItsPulsesComeBeforeLaterExpiriesOfTimers) {
    EXPECT_THAT(orderOfExpiryAndPulse(/*expiryMs*/ 1000, /*sentAfterMs*/ 0), ElementsAre(2, 3));
}

TEST(MessageProcess, LongMessagesPassManyShortOnesThatWaitForTheirReplies) {
    if (!canStartThreadsInChildren())
        GTEST_SKIP() << "no threads in the children of a process that has some";
    constexpr int kShort = 33, kLong = 2 << 20;
    OwnChannel own;
    support::ChildProcess other(client(own.chid, [](int coid) {
        std::vector<std::future<Outcome>> waiting;
        for (int i = 0; i < kShort; ++i)
            waiting.push_back(sendNothingElsewhere(coid));
        waitUntilOthersSleep();
        const std::vector<char> bytes(kLong);
        armFor(_NTO_TIMEOUT_SEND, 20000 * kMs);
        EXPECT_EQ((Outcome{1, 0}), outcomeOf([&] { return MsgSend(coid, bytes.data(), kLong, nullptr, 0); }));
        for (auto& one : waiting)
            EXPECT_EQ((Outcome{0, 0}), one.get());
    }));
    std::vector<int> ids;
    for (int i = 0; i < kShort; ++i)
        ids.push_back(receiveSoon(own.chid));
    _msg_info info;
    const int id = receiveSoon(own.chid, nullptr, 0, &info);
    ASSERT_GT(id, 0);
    EXPECT_EQ(kLong, info.srcmsglen);
    EXPECT_EQ(0, MsgReply(id, 1, nullptr, 0));
    for (const int one : ids)
        EXPECT_EQ(0, MsgReply(one, 0, nullptr, 0));
    EXPECT_ENDS_WELL(other.finish());
}

}  // namespace
