// Concerns: messages and pulses between processes: bytes and lengths, order, time-outs and giving up, many clients and
// threads, the end of either side at any moment, children, the thread that watches, descriptors and memory left behind.
#include "LinkSocket.h"
#include "LogSocket.h"
#include "MessageTesting.h"

#include "file/Descriptors.h"
#include "shm/SharedName.h"
#include "support/ChildProcess.h"
#include "support/Sanitizers.h"
#include "support/ScopedEnvironment.h"
#include "support/TemporaryFolder.h"

#include <CVQFileHandle.h>
#include <VQSharedMemoryAccess.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <iterator>
#include <map>
#include <memory>
#include <poll.h>
#include <random>
#include <set>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/slog.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

/// A process of its own that runs `body`, and is killed at the end of the scope at the latest.
class Other {
public:
    explicit Other(const std::function<void()>& body) : mPid(fork()) {
        if (mPid == 0) {
            body();
            _exit(testing::Test::HasFailure() ? support::kExpectationFailed : 0);
        }
    }
    ~Other() {
        if (mPid > 0) {
            kill();
            wait();
        }
    }
    Other(const Other&) = delete;
    Other& operator=(const Other&) = delete;

    pid_t pid() const { return mPid; }
    void kill() const { ::kill(mPid, SIGKILL); }
    int wait() {
        int status = -1;
        while (waitpid(mPid, &status, 0) == -1 && errno == EINTR) {
        }
        mPid = -1;
        return status;
    }

private:
    pid_t mPid;
};

int attachTo(pid_t pid, int chid) {
    return ConnectAttach(0, pid, chid, _NTO_SIDE_CHANNEL, _NTO_COF_CLOEXEC);
}

/// Echoes with the status of how many bytes came, until a pulse of code 0 comes.
void echo(int chid) {
    std::vector<char> bytes(64 << 20);
    for (;;) {
        _msg_info info;
        const int id = receiveSoon(chid, bytes.data(), static_cast<int>(bytes.size()), &info);
        if (id > 0)
            MsgReply(id, info.msglen, bytes.data(), info.msglen);
        else if (id < 0 || reinterpret_cast<const _pulse*>(bytes.data())->code == 0)
            return;
    }
}

struct Pipe {
    Pipe() { EXPECT_EQ(0, pipe(ends)); }
    ~Pipe() {
        close(ends[0]);
        close(ends[1]);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int ends[2];
};

/// A process that echoes. It is one of its own so that this one has no thread when it forks clients.
class EchoServer {
public:
    EchoServer() : mServer([this] { run(); }) {
        EXPECT_EQ(static_cast<ssize_t>(sizeof chid), read(mReady.ends[0], &chid, sizeof chid));
    }
    pid_t pid() const { return mServer.pid(); }

    int chid = -1;

private:
    void run() const {
        const int made = ChannelCreate(0);
        if (write(mReady.ends[1], &made, sizeof made) == sizeof made)
            echo(made);
    }

    Pipe mReady;
    Other mServer;
};

std::function<void()> clientOf(pid_t server, int chid, const std::function<void(int)>& body) {
    return [=] {
        const int coid = attachTo(server, chid);
        ASSERT_GE(coid, _NTO_SIDE_CHANNEL) << std::strerror(errno);
        body(coid);
        EXPECT_EQ(0, ConnectDetach(coid));
    };
}

/// Of a channel of this process.
std::function<void()> client(int chid, const std::function<void(int)>& body) {
    return clientOf(getpid(), chid, body);
}

#define EXPECT_ENDS_WELL(child)                                                                                    \
    do {                                                                                                           \
        const support::ChildResult result = (child);                                                               \
        EXPECT_TRUE(result.exitedWith(0)) << result;                                                               \
    } while (false)

TEST(MessageProcess, CarriesAMessageThereAndTheReplyBack) {
    OwnChannel own;
    support::ChildProcess other(client(own.chid, [](int coid) {
        std::string reply;
        EXPECT_EQ((Outcome{42, 0}), sendText(coid, "question", reply));
        EXPECT_EQ("answer", reply);
    }));
    char text[16] = {};
    _msg_info info;
    const int id = receiveSoon(own.chid, text, sizeof text, &info);
    ASSERT_GT(id, 0);
    EXPECT_STREQ("question", text);
    EXPECT_EQ(other.pid(), info.pid);
    EXPECT_EQ(other.pid(), info.tid);
    EXPECT_EQ(own.chid, info.chid);
    EXPECT_EQ(_NTO_SIDE_CHANNEL, info.coid);
    EXPECT_EQ(8, info.msglen);
    EXPECT_EQ(8, info.srcmsglen);
    EXPECT_EQ(256, info.dstmsglen);
    EXPECT_EQ(10, info.priority);
    EXPECT_EQ(0, MsgReply(id, 42, "answer", 7));
    EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return MsgReply(id, 0, nullptr, 0); }));
    EXPECT_ENDS_WELL(other.finish());
}

TEST(MessageProcess, CarriesAnyLengthUpTo64MiB) {
    EchoServer server;
    EXPECT_ENDS_WELL(support::runInChild(clientOf(server.pid(), server.chid, [](int coid) {
        for (const int length :
             {0, 1, 63, 4095, 4096, 4097, 65535, 65536, 65537, 1 << 20, (4 << 20) + 1, 64 << 20, 5}) {
            std::vector<char> sent(static_cast<std::size_t>(length)), back(sent.size() + 1, '-');
            for (std::size_t i = 0; i < sent.size(); ++i)
                sent[i] = static_cast<char>(i * 7 + i / 4096);
            ASSERT_EQ(length, MsgSend(coid, sent.data(), length, back.data(), length + 1));
            ASSERT_TRUE(std::equal(sent.begin(), sent.end(), back.begin())) << length;
            ASSERT_EQ('-', back.back());
        }
        std::vector<char> tooLong((64 << 20) + 1);
        EXPECT_EQ((Outcome{-1, EMSGSIZE}), outcomeOf([&] {
                      return MsgSend(coid, tooLong.data(), static_cast<int>(tooLong.size()), nullptr, 0);
                  }));
        EXPECT_EQ(3, MsgSend(coid, "abc", 3, tooLong.data(), static_cast<int>(tooLong.size())));
    })));
}

// A long message lies in its segment as it does in the sender's memory, unless it fills the whole.
TEST(MessageProcess, CarriesLongMessagesFromAnyPlaceToAnyOther) {
    constexpr int kLongest = 64 << 20, kShortest = 128 << 10;
    EchoServer server;
    EXPECT_ENDS_WELL(support::runInChild(clientOf(server.pid(), server.chid, [](int coid) {
        std::vector<char> sent(kLongest + 64), back(kLongest + 64);
        constexpr std::size_t kPattern = 4099;
        for (std::size_t i = 0; i < kPattern; ++i)
            sent[i] = static_cast<char>(i * 7 + i / 256);
        for (std::size_t i = kPattern; i < sent.size(); i += kPattern)
            std::memcpy(&sent[i], &sent[0], std::min(kPattern, sent.size() - i));
        const auto echo = [&](int length, unsigned place, unsigned placeBack) {
            char* const from = sent.data() + place;
            char* const to = back.data() + placeBack;
            to[length] = '-';
            ASSERT_EQ(length, MsgSend(coid, from, length, to, length));
            ASSERT_EQ(0, std::memcmp(from, to, static_cast<std::size_t>(length))) << length << " from " << place;
            ASSERT_EQ('-', to[length]);
        };
        for (const int length : {kShortest - 1, kShortest, kShortest + 1, 1 << 20})
            for (const unsigned place : {0u, 1u, 8u, 16u, 63u})
                echo(length, place, (place * 5 + 8) % 64);
        echo(kLongest - 64, 63, 1);
        echo(kLongest - 63, 63, 1);
    })));
}

TEST(MessageProcess, CutsToTheRoomOnEitherSide) {
    OwnChannel own;
    support::ChildProcess other(client(own.chid, [](int coid) {
        char reply[6] = "-----";
        EXPECT_EQ(0, MsgSend(coid, "abcdef", 6, reply, 2));
        EXPECT_STREQ("vw---", reply);
    }));
    char text[6] = "-----";
    const int id = receiveSoon(own.chid, text, 3);
    EXPECT_STREQ("abc--", text);
    EXPECT_EQ(0, MsgReply(id, 0, "vwxyz", 5));
    EXPECT_ENDS_WELL(other.finish());
}

TEST(MessageProcess, GathersAndScattersParts) {
    OwnChannel own;
    support::ChildProcess other(client(own.chid, [](int coid) {
        char out[] = "abcdefgh", first[3] = {}, second[4] = {};
        const iovec sent[] = {{out, 3}, {nullptr, 0}, {out + 3, 5}}, room[] = {{first, 2}, {second, 3}};
        EXPECT_EQ(5, MsgSendv(coid, sent, 3, room, 2));
        EXPECT_STREQ("vw", first);
        EXPECT_STREQ("xyz", second);
    }));
    char first[2] = {}, second[8] = {}, answer[] = "vwxyz";
    const iovec parts[] = {{first, 1}, {second, 7}}, answers[] = {{answer, 4}, {answer + 4, 1}};
    const int id = MsgReceivev(own.chid, parts, 2, nullptr);
    EXPECT_STREQ("a", first);
    EXPECT_STREQ("bcdefgh", second);
    EXPECT_EQ(0, MsgReplyv(id, 5, answers, 2));
    EXPECT_ENDS_WELL(other.finish());
}

// Large runs are copied in steps, the end first: the borders of the parts lie at, beside and far from those of the
// steps, and what either side has no room for is cut off as from a small one.
TEST(MessageProcess, GathersAndScattersPartsOfAnySizeAroundTheStepsOfCopying) {
    constexpr std::size_t kStep = 65536;
    static const std::size_t kSizes[] = {1, kStep - 1, 0, kStep, 3 * kStep + 7, 2, kStep + 1, 40000};
    static const auto split = [](std::vector<char>& bytes, unsigned first) {
        std::vector<iovec> parts;
        for (std::size_t at = 0; at < bytes.size(); at += parts.back().iov_len)
            parts.push_back({bytes.data() + at, std::min(kSizes[first++ % std::size(kSizes)], bytes.size() - at)});
        return parts;
    };
    static const auto fill = [](std::vector<char>& bytes, unsigned seed) {
        std::mt19937 random(seed);
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
    };
    static const auto hasBegin = [](const std::vector<char>& bytes, const std::vector<char>& of) {
        const auto end = bytes.begin() + static_cast<long>(std::min(bytes.size(), of.size()));
        return std::equal(bytes.begin(), end, of.begin()) &&
               std::all_of(end, bytes.end(), [](char byte) { return byte == 0; });
    };
    struct Sizes {
        std::size_t question, received, answer, back;
    };
    static const Sizes kRounds[] = {{kStep, kStep, kStep, kStep},
                                    {kStep + 1, kStep + 1, kStep + 1, kStep + 1},
                                    {10 * kStep, 10 * kStep - 1, 10 * kStep, 10 * kStep + 1},
                                    {500000, 600000, 1000003, 700001},
                                    {1 << 20, 3 * kStep, 1 << 20, 5 * kStep + 1}};
    OwnChannel own;
    support::ChildProcess other(client(own.chid, [](int coid) {
        for (unsigned round = 0; round < std::size(kRounds); ++round) {
            std::vector<char> question(kRounds[round].question), answer(kRounds[round].answer),
                back(kRounds[round].back);
            fill(question, round);
            fill(answer, round + 100);
            const auto out = split(question, round), in = split(back, round + 3);
            ASSERT_EQ(0, MsgSendv(coid, out.data(), static_cast<int>(out.size()), in.data(),
                                  static_cast<int>(in.size())));
            ASSERT_TRUE(hasBegin(back, answer)) << round;
        }
    }));
    for (unsigned round = 0; round < std::size(kRounds); ++round) {
        std::vector<char> question(kRounds[round].question), answer(kRounds[round].answer),
            received(kRounds[round].received);
        fill(question, round);
        fill(answer, round + 100);
        const auto in = split(received, round + 5), out = split(answer, round + 1);
        armFor(_NTO_TIMEOUT_RECEIVE, 20 * host::kNsPerSecond);
        const int id = MsgReceivev(own.chid, in.data(), static_cast<int>(in.size()), nullptr);
        ASSERT_GT(id, 0);
        EXPECT_TRUE(hasBegin(received, question)) << round;
        EXPECT_EQ(0, MsgReplyv(id, 0, out.data(), static_cast<int>(out.size())));
    }
    EXPECT_ENDS_WELL(other.finish());
}

TEST(MessageProcess, CanBeReadAndAnsweredInPieces) {
    OwnChannel own;
    support::ChildProcess other(client(own.chid, [](int coid) {
        char reply[7] = {};
        EXPECT_EQ(0, MsgSend(coid, "abcdef", 6, reply, 6));
        EXPECT_EQ(0, std::memcmp("WX\0\0!", reply, 6)) << reply;
    }));
    char head[3] = {}, rest[8] = {};
    const int id = receiveSoon(own.chid, head, 2);
    EXPECT_STREQ("ab", head);
    EXPECT_EQ(3, MsgRead(id, rest, 3, 2));
    EXPECT_STREQ("cde", rest);
    EXPECT_EQ(0, MsgRead(id, rest, 8, 6));
    EXPECT_EQ(1, MsgWrite(id, "!", 1, 4));
    EXPECT_EQ(0, MsgWrite(id, "!", 1, 6));
    EXPECT_EQ(1, MsgRead(id, rest, 8, 5));
    EXPECT_EQ(0, MsgReply(id, 0, "WX", 2));
    EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return MsgRead(id, rest, 8, 0); }));
    EXPECT_ENDS_WELL(other.finish());
}

TEST(MessageProcess, CanNeitherBeReadNorAnsweredWhenItsSenderHasDied) {
    OwnChannel own;
    support::ChildProcess other(client(own.chid, [](int coid) {
        char reply[6];
        MsgSend(coid, "abcdef", 6, reply, 6);
    }));
    char head[2];
    const int id = receiveSoon(own.chid, head, 2);
    other.send(SIGKILL);
    EXPECT_TRUE(other.finish().killedBy(SIGKILL));
    char rest[8] = {};
    // The bytes are still there until the end of the process has been noticed.
    Outcome outcome{};
    for (int i = 0; i < 1000 && !(outcome == Outcome{-1, ESRCH}); ++i) {
        outcome = outcomeOf([&] { return MsgRead(id, rest, 8, 0); });
        EXPECT_TRUE(outcome == (Outcome{6, 0}) || outcome == (Outcome{-1, ESRCH})) << i;
        usleep(1000);
    }
    EXPECT_EQ((Outcome{-1, ESRCH}), outcome);
    EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return MsgWrite(id, "!", 1, 0); }));
    EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return MsgReply(id, 0, "WX", 2); }));
}

TEST(MessageProcess, FailsWithTheErrorThatTheReceiverNames) {
    OwnChannel own;
    support::ChildProcess other(client(own.chid, [](int coid) {
        EXPECT_EQ((Outcome{-1, ENOSYS}), sendNothing(coid));
    }));
    EXPECT_EQ(0, MsgError(receiveSoon(own.chid), ENOSYS));
    EXPECT_ENDS_WELL(other.finish());
}

TEST(MessageProcess, WaitsForAReceiverThatComesLater) {
    OwnChannel own;
    support::ChildProcess other(client(own.chid, [](int coid) {
        EXPECT_EQ(0, MsgSendPulse(coid, 10, 4, 5));
        EXPECT_EQ((Outcome{1, 0}), sendNothing(coid));
    }));
    std::this_thread::sleep_for(50ms);
    _pulse pulse;
    ASSERT_EQ(0, receiveSoon(own.chid, &pulse, sizeof pulse));
    EXPECT_EQ(4, pulse.code);
    EXPECT_EQ(5, pulse.value.sival_int);
    EXPECT_EQ(0, MsgReply(receiveSoon(own.chid), 1, nullptr, 0));
    EXPECT_ENDS_WELL(other.finish());
}

void answerNothing(int chid) {
    const int id = receiveSoon(chid);
    ASSERT_GT(id, 0);
    EXPECT_EQ(0, MsgReply(id, 0, nullptr, 0));
}

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

// Where its descriptors are seen the kernel then shows none.
TEST(MessageProcess, IsReachedWhenItsFirstThreadHasEnded) {
    NEEDS_THREADS_THAT_VANISH();
    if (!canStartThreadsInChildren())
        GTEST_SKIP() << "no threads in the children of a process that has some";
    Pipe ready;
    Other server([&] {
        static int chid;
        chid = ChannelCreate(0);
        EXPECT_GE(ThreadCreate(
                      0,
                      [](void*) -> void* {
                          echo(chid);
                          return nullptr;
                      },
                      nullptr, nullptr),
                  0);
        EXPECT_EQ(static_cast<ssize_t>(sizeof chid), write(ready.ends[1], &chid, sizeof chid));
        ThreadDestroy(0, -1, nullptr);
    });
    int chid = -1;
    ASSERT_EQ(static_cast<ssize_t>(sizeof chid), read(ready.ends[0], &chid, sizeof chid));
    std::string line;
    for (int i = 0; i < 5000 && line.find(") Z ") == std::string::npos; ++i) {
        std::this_thread::sleep_for(1ms);
        std::ifstream stat("/proc/" + std::to_string(server.pid()) + "/stat");
        std::getline(stat, line);
    }
    EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return attachTo(server.pid(), chid + 1); }));
    const int coid = attachTo(server.pid(), chid);
    ASSERT_GE(coid, _NTO_SIDE_CHANNEL) << strerror(errno);
    std::string reply;
    EXPECT_EQ((Outcome{5, 0}), sendText(coid, "hello", reply));
    EXPECT_EQ(0, ConnectDetach(coid));
}

TEST(MessageProcess, ServesManyClientsWithManyThreadsEach) {
    if (!canStartThreadsInChildren())
        GTEST_SKIP() << "no threads in the children of a process that has some";
    constexpr int kServers = 3, kClients = 4, kThreads = 3, kRounds = 150;
    OwnChannel own;
    // Before any thread here: in a child that is forked while another thread allocates, a sanitizer's heap stays locked.
    std::vector<std::unique_ptr<support::ChildProcess>> clients;
    for (int i = 0; i < kClients; ++i)
        clients.push_back(std::make_unique<support::ChildProcess>(client(own.chid, [](int coid) {
            std::vector<std::thread> threads;
            for (int t = 0; t < kThreads; ++t)
                threads.emplace_back([=] {
                    for (int round = 0; round < kRounds; ++round) {
                        int sent[40] = {t * kRounds + round, t}, back[40] = {};
                        ASSERT_EQ(sent[0], MsgSend(coid, sent, sizeof sent, back, sizeof back));
                        ASSERT_EQ(0, std::memcmp(sent, back, sizeof sent));
                    }
                });
            for (std::thread& thread : threads)
                thread.join();
        })));
    std::vector<std::thread> servers;
    for (int i = 0; i < kServers; ++i)
        servers.emplace_back([&] {
            for (;;) {
                int received[64];
                _msg_info info;
                const int id = receiveSoon(own.chid, received, sizeof received, &info);
                if (id <= 0)
                    break;
                EXPECT_EQ(0, MsgReply(id, received[0], received, info.msglen));
            }
        });
    for (auto& one : clients)
        EXPECT_ENDS_WELL(one->finish());
    for (int i = 0; i < kServers; ++i)
        MsgSendPulse(own.coid, 1, 0, 0);
    for (std::thread& server : servers)
        server.join();
}

TEST(MessageProcess, HasMoreSendersThanLanesOnOneConnection) {
    EchoServer server;
    EXPECT_ENDS_WELL(support::runInChild(clientOf(server.pid(), server.chid, [](int coid) {
        std::vector<std::thread> threads;
        for (int t = 0; t < 100; ++t)
            threads.emplace_back([=] {
                std::vector<int> back(t % 2 == 0 ? 1 : 1 << 19);  // with room for a long reply, too
                for (int round = 0; round < 5; ++round) {
                    const int number = t * round;
                    back[0] = -1;
                    EXPECT_EQ(4, MsgSend(coid, &number, 4, back.data(), static_cast<int>(4 * back.size())));
                    EXPECT_EQ(number, back[0]);
                }
            });
        for (std::thread& thread : threads)
            thread.join();
    })));
}

// ---- time-outs and giving up

TEST(MessageProcessTimeout, EndsEachStateThatItCovers) {
    OwnChannel own;
    support::ChildProcess other(client(own.chid, [](int coid) {
        for (const int states : {_NTO_TIMEOUT_SEND, _NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY}) {
            const uint64_t begin = monotonicNs();
            armFor(states, 10 * kMs);
            EXPECT_EQ(kTimedOut, sendNothing(coid));
            EXPECT_GE(monotonicNs() - begin, 10 * kMs);
            armNow(states);
            EXPECT_EQ(kTimedOut, sendNothing(coid));
        }
        std::string reply;
        armFor(_NTO_TIMEOUT_REPLY, 1500 * kMs);
        EXPECT_EQ(kTimedOut, sendText(coid, "never answered", reply));
        EXPECT_EQ((Outcome{2, 0}), sendText(coid, "answered", reply));
    }));
    std::this_thread::sleep_for(150ms);
    char text[32] = {};
    const int never = receiveSoon(own.chid, text, sizeof text);
    EXPECT_STREQ("never answered", text) << "the others have left the queue";
    const int second = receiveSoon(own.chid, text, sizeof text);
    EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return MsgReply(never, 1, "late", 5); }));
    EXPECT_EQ(0, MsgReply(second, 2, nullptr, 0));
    EXPECT_ENDS_WELL(other.finish());
}

TEST(MessageProcessTimeout, HasOneOutcomeWhenItRacesTheReply) {
    if (!canStartThreadsInChildren())
        GTEST_SKIP() << "no threads in the children of a process that has some";
    OwnChannel own;
    support::ChildProcess other(client(own.chid, [](int coid) {
        unsigned random = 1;
        for (int round = 0; round < 2000; ++round) {
            random = random * 1103515245 + 12345;
            char bytes[64] = {}, back[64] = {};
            bytes[0] = static_cast<char>(round);
            armFor(_NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY, random / 65536 % 60000);
            const Outcome outcome = outcomeOf([&] { return MsgSend(coid, bytes, 64, back, 64); });
            if (outcome == (Outcome{7, 0}))
                ASSERT_EQ(bytes[0], back[0]);
            else
                ASSERT_EQ(kTimedOut, outcome);
        }
    }));
    std::atomic<bool> stop{false};
    std::thread server([&] {
        while (!stop) {
            char bytes[64];
            armFor(_NTO_TIMEOUT_RECEIVE, kMs);
            const int id = MsgReceive(own.chid, bytes, sizeof bytes, nullptr);
            if (id > 0 && MsgReply(id, 7, bytes, sizeof bytes) == -1) {
                EXPECT_EQ(ESRCH, errno);
            }
        }
    });
    EXPECT_ENDS_WELL(other.finish());
    stop = true;
    server.join();
}

TEST(MessageProcessTimeout, EndsASendWhoseReplyIsBeingWritten) {
    constexpr int kRoom = support::kIsSanitized ? 1 << 20 : 8 << 20;
    const OwnChannel own;
    const Other sender(client(own.chid, [](int coid) {
        std::vector<char> reply(kRoom);
        Outcome outcome = kTimedOut;
        while (outcome == kTimedOut) {  // one that is received too late is withdrawn at once
            armFor(_NTO_TIMEOUT_REPLY, 100 * kMs);
            outcome =
                outcomeOf([&] { return MsgSend(coid, nullptr, 0, reply.data(), static_cast<int>(reply.size())); });
        }
    }));
    const std::vector<char> piece(kRoom, 'p');
    const int id = receiveSoon(own.chid);
    ASSERT_GT(id, 0);
    const auto begin = std::chrono::steady_clock::now();
    bool isWanted = true;
    while (isWanted && std::chrono::steady_clock::now() < begin + 60s) {
        isWanted = MsgWrite(id, piece.data(), kRoom, 0) == kRoom;
        // Without a break until long after the deadline: the sender finds its reply claimed then, and cannot leave.
        if (std::chrono::steady_clock::now() > begin + 300ms)
            std::this_thread::sleep_for(1ms);
    }
    EXPECT_FALSE(isWanted) << "the sender has gone";
    EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([id] { return MsgReply(id, 0, nullptr, 0); }));
    EXPECT_GT(receiveSoon(own.chid), 0) << "its time was over, and it sends again";
}

TEST(MessageProcessTimeout, OfTheSendStateAloneLetsAWaitingReceiverTakeTheMessage) {
    OwnChannel own;
    support::ChildProcess other(client(own.chid, [](int coid) {
        Outcome outcome = kTimedOut;
        for (int i = 0; i < 1000 && outcome == kTimedOut; ++i) {  // until the receiver waits
            std::this_thread::sleep_for(5ms);
            armNow(_NTO_TIMEOUT_SEND);
            outcome = sendNothing(coid);
        }
        EXPECT_EQ((Outcome{3, 0}), outcome);
    }));
    EXPECT_EQ(0, MsgReply(receiveSoon(own.chid), 3, nullptr, 0));
    EXPECT_ENDS_WELL(other.finish());
}

TEST(MessageProcessTimeout, OfTheSendStateAloneDoesNotMatterWhereAReceiverWaits) {
    if (!canStartThreadsInChildren())
        GTEST_SKIP() << "no threads in the children of a process that has some";
    EchoServer server;
    EXPECT_ENDS_WELL(support::runInChild(clientOf(server.pid(), server.chid, [&](int coid) {
        for (int i = 0; i < 30; ++i) {
            waitUntilSleeping(server.pid());
            if (i % 2 == 0)
                armFor(_NTO_TIMEOUT_SEND, 1000);
            else
                armAtPast(_NTO_TIMEOUT_SEND);
            EXPECT_EQ((Outcome{0, 0}), sendNothing(coid));
        }
    })));
}

// The next message takes the withdrawn one's place in the segment, often with another length.
TEST(MessageProcessTimeout, MayEndWhileTheMessageIsBeingCopied) {
    if (!canStartThreadsInChildren())
        GTEST_SKIP() << "no threads in the children of a process that has some";
    constexpr int kLongest = 6 << 20;
    OwnChannel own;
    support::ChildProcess other(client(own.chid, [](int coid) {
        std::vector<char> bytes(kLongest);
        int replied = 0;
        for (int round = 0; round < 90; ++round) {
            const int length = round % 3 == 0 ? kLongest : round % 3 == 1 ? 100000 : 5 << 20;
            bytes[0] = bytes[static_cast<std::size_t>(length) - 1] = static_cast<char>(round);
            char back = 0;
            armFor(_NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY, static_cast<uint64_t>(round * 7919 % 4000) * 1000);
            const Outcome outcome = outcomeOf([&] { return MsgSend(coid, bytes.data(), length, &back, 1); });
            ASSERT_TRUE(outcome == (Outcome{0, 0}) || outcome == kTimedOut) << outcome;
            if (outcome.result == 0) {
                EXPECT_EQ(static_cast<char>(round), back);
                ++replied;
            }
        }
        EXPECT_GT(replied, 0);
    }));
    std::vector<std::thread> servers;
    for (int i = 0; i < 2; ++i)
        servers.emplace_back([&] {
            std::vector<char> bytes(kLongest);
            _msg_info info;
            for (int id; (id = receiveSoon(own.chid, bytes.data(), kLongest, &info)) > 0;) {
                const std::size_t last = static_cast<std::size_t>(info.msglen) - 1;
                EXPECT_EQ(bytes[0], bytes[last]);
                MsgReply(id, 0, bytes.data(), 1);
            }
        });
    EXPECT_ENDS_WELL(other.finish());
    for (std::size_t i = 0; i < servers.size(); ++i)
        MsgSendPulse(own.coid, 1, 0, 0);
    for (std::thread& server : servers)
        server.join();
}

TEST(MessageProcessSender, IsInterruptedWhileItWaitsForAReceiverOrTheReply) {
    OwnChannel own;
    int ended[2];
    ASSERT_EQ(0, pipe(ended));
    support::ChildProcess other(client(own.chid, [&](int coid) {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(SIGUSR1, &action, nullptr);
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(0, MsgSendPulse(coid, 20, i, 0));
            EXPECT_EQ((Outcome{-1, EINTR}), sendNothing(coid));
            EXPECT_EQ(1, write(ended[1], "e", 1));
        }
    }));
    const auto interrupt = [&] {
        pollfd hasEnded = {ended[0], POLLIN, 0};
        while (poll(&hasEnded, 1, 5) == 0)
            ::kill(other.pid(), SIGUSR1);
        char byte;
        EXPECT_EQ(1, read(ended[0], &byte, 1));
    };
    _pulse pulse;
    ASSERT_EQ(0, receiveSoon(own.chid, &pulse, sizeof pulse));
    interrupt();
    ASSERT_EQ(0, receiveSoon(own.chid, &pulse, sizeof pulse));
    const int id = receiveSoon(own.chid, &pulse, sizeof pulse);
    EXPECT_GT(id, 0) << "the first has left the queue";
    interrupt();
    EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([=] { return MsgReply(id, 0, nullptr, 0); }));
    EXPECT_ENDS_WELL(other.finish());
    close(ended[0]);
    close(ended[1]);
}

TEST(MessageProcessUnblock, AsksTheReceiverAndWaitsForItsReply) {
    OwnChannel own(_NTO_CHF_UNBLOCK);
    support::ChildProcess other(client(own.chid, [](int coid) {
        armFor(_NTO_TIMEOUT_SEND, 5 * kMs);
        EXPECT_EQ(kTimedOut, sendNothing(coid)) << "not received: nobody is asked";
        armFor(_NTO_TIMEOUT_REPLY, 5 * kMs);
        EXPECT_EQ((Outcome{-1, EINTR}), sendNothing(coid));
    }));
    std::this_thread::sleep_for(30ms);
    char bytes[sizeof(_pulse)];
    const int id = receiveSoon(own.chid, bytes, sizeof bytes);
    ASSERT_GT(id, 0);
    _pulse pulse;
    ASSERT_EQ(0, receiveSoon(own.chid, &pulse, sizeof pulse));
    EXPECT_EQ(_PULSE_CODE_UNBLOCK, pulse.code);
    EXPECT_EQ(id, pulse.value.sival_int);
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(kTimedOut, receiveNow(own.chid, bytes, sizeof bytes)) << "one pulse only";
    EXPECT_EQ(0, MsgError(id, EINTR));
    EXPECT_ENDS_WELL(other.finish());
}

TEST(MessageProcessUnblock, AsksTheReceiverOfOneWhoseProcessHasEnded) {
    OwnChannel own(_NTO_CHF_UNBLOCK);
    support::ChildProcess other(client(own.chid, [](int coid) {
        std::string reply;
        sendText(coid, "x", reply);
    }));
    const int id = receiveSoon(own.chid);
    ASSERT_GT(id, 0);
    other.send(SIGKILL);
    other.finish();
    _pulse pulse = {};
    ASSERT_EQ(0, receiveSoon(own.chid, &pulse, sizeof pulse));
    EXPECT_EQ(_PULSE_CODE_UNBLOCK, pulse.code);
    EXPECT_EQ(id, pulse.value.sival_int);
    EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return MsgReply(id, 0, nullptr, 0); }));
}

// It dies while the receiver copies, who then never learns of the message.
TEST(MessageProcessUnblock, IsAskedForNobodyWhoseMessageWasNotReceived) {
    if (!canStartThreadsInChildren())
        GTEST_SKIP() << "no threads in the children of a process that has some";
    constexpr int kLength = 48 << 20;
    OwnChannel own(_NTO_CHF_UNBLOCK);
    const std::vector<char> sent(kLength, 'x');
    std::vector<char> room(kLength);
    int notReceived = 0;
    for (int round = 0; round < 100 && notReceived < 5; ++round) {
        __atomic_store_n(&room[0], '-', __ATOMIC_RELAXED);
        support::ChildProcess other(
            client(own.chid, [&](int coid) { MsgSend(coid, sent.data(), kLength, nullptr, 0); }));
        const auto end = std::async(std::launch::async, [&, pid = other.pid()] {
            while (__atomic_load_n(&room[0], __ATOMIC_RELAXED) == '-')
                std::this_thread::yield();
            kill(pid, SIGKILL);
        });
        int id;
        _pulse& pulse = reinterpret_cast<_pulse&>(room[0]);
        do {
            armFor(_NTO_TIMEOUT_RECEIVE, 200 * kMs);
            id = MsgReceive(own.chid, room.data(), kLength, nullptr);
        } while (id == 0 && pulse.code != _PULSE_CODE_UNBLOCK);
        EXPECT_NE(0, id) << "a pulse for nobody that is known";
        notReceived += id == -1 ? 1 : 0;
        room[0] = 'x';
        end.wait();
        other.finish();
        while (receivePulseNow(own.chid, pulse).result == 0) {
        }
    }
    EXPECT_GT(notReceived, 0) << "else this looks at nothing";
}

// ---- the end of a side

TEST(MessageProcessEnd, OfTheServerEndsTheClientsWait) {
    if (!canStartThreadsInChildren())
        GTEST_SKIP() << "no threads in the children of a process that has some";
    for (const bool isReceived : {false, true}) {
        int ready[2];
        ASSERT_EQ(0, pipe(ready));
        Other server([&] {
            const int chid = ChannelCreate(0);
            EXPECT_EQ(static_cast<ssize_t>(sizeof chid), write(ready[1], &chid, sizeof chid));
            if (isReceived)
                receiveSoon(chid);
            pause();
        });
        int chid = -1;
        ASSERT_EQ(static_cast<ssize_t>(sizeof chid), read(ready[0], &chid, sizeof chid));
        const int coid = attachTo(server.pid(), chid);
        ASSERT_GE(coid, _NTO_SIDE_CHANNEL);
        auto sender = sendNothingElsewhere(coid);
        waitUntilOthersSleep();
        const uint64_t begin = monotonicNs();
        server.kill();
        EXPECT_EQ((Outcome{-1, ESRCH}), sender.get());
        EXPECT_LT(monotonicNs() - begin, host::kNsPerSecond);
        EXPECT_EQ((Outcome{-1, EBADF}), sendNothing(coid));
        EXPECT_EQ((Outcome{-1, EBADF}), outcomeOf([&] { return MsgSendPulse(coid, 1, 1, 1); }));
        EXPECT_EQ(0, ConnectDetach(coid));
        server.wait();
        EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return attachTo(server.pid(), chid); }));
        close(ready[0]);
        close(ready[1]);
    }
}

TEST(MessageProcessEnd, OfTheClientIsToldToTheServer) {
    OwnChannel own(_NTO_CHF_DISCONNECT);
    Other other(client(own.chid, [](int coid) { sendNothing(coid); }));
    char bytes[sizeof(_pulse)];
    _msg_info info;
    const int id = receiveSoon(own.chid, bytes, sizeof bytes, &info);
    ASSERT_GT(id, 0);
    other.kill();
    _pulse pulse;
    ASSERT_EQ(0, receiveSoon(own.chid, &pulse, sizeof pulse));
    EXPECT_EQ(_PULSE_CODE_DISCONNECT, pulse.code);
    EXPECT_EQ(info.scoid, pulse.scoid);
    EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return MsgReply(id, 0, nullptr, 0); }));
}

TEST(MessageProcessEnd, OfTheChannelEndsTheWaitAndLaterSends) {
    const int chid = ChannelCreate(0);
    support::ChildProcess other([server = getpid(), chid] {
        const int coid = attachTo(server, chid);
        EXPECT_EQ((Outcome{-1, ESRCH}), sendNothing(coid));
        EXPECT_EQ((Outcome{-1, EBADF}), sendNothing(coid));
        EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return attachTo(server, chid); }));
    });
    EXPECT_GT(receiveSoon(chid), 0);
    EXPECT_EQ(0, ChannelDestroy(chid));
    EXPECT_ENDS_WELL(other.finish());
}

TEST(MessageProcessEnd, OfTheConnectionEndsItsSends) {
    OwnChannel own;
    support::ChildProcess other([server = getpid(), chid = own.chid] {
        const int coid = attachTo(server, chid);
        auto sender = sendNothingElsewhere(coid);
        waitUntilOthersSleep();
        EXPECT_EQ(0, ConnectDetach(coid));
        EXPECT_EQ((Outcome{-1, EBADF}), sender.get());
    });
    const int id = receiveSoon(own.chid);
    EXPECT_ENDS_WELL(other.finish());
    while (MsgReply(id, 0, nullptr, 0) == 0)
        FAIL() << "somebody still waited";
    EXPECT_EQ(ESRCH, errno);
}

// Clients that are killed at any moment: the server goes on, and nothing of them stays.
TEST(MessageProcessEnd, OfClientsAtAnyMomentLeavesNothingBehind) {
    EchoServer server;
    EXPECT_ENDS_WELL(support::runInChild(clientOf(server.pid(), server.chid, [](int coid) { sendNothing(coid); })));
    std::this_thread::sleep_for(50ms);
    const int before = openDescriptors(server.pid());
    for (int round = 0; round < 60; ++round) {
        Other other(clientOf(server.pid(), server.chid, [](int coid) {
            std::vector<char> bytes(300000), back(300000);
            for (unsigned length = 1;; length = length * 5 % 299999) {
                MsgSendPulse(coid, 5, 1, 1);
                MsgSend(coid, bytes.data(), static_cast<int>(length), back.data(), static_cast<int>(length));
            }
        }));
        std::this_thread::sleep_for(std::chrono::microseconds(500 + round * 171 % 9000));
        other.kill();
        other.wait();
    }
    EXPECT_ENDS_WELL(support::runInChild(clientOf(server.pid(), server.chid, [](int coid) {
        char back[4];
        EXPECT_EQ(3, MsgSend(coid, "abc", 3, back, 4));
    })));
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(before, openDescriptors(server.pid()));
}

// Servers that are killed at any moment: each call of the client ends, and nothing of them stays.
TEST(MessageProcessEnd, OfServersAtAnyMomentEndsEachCall) {
    if (!canStartThreadsInChildren())
        GTEST_SKIP() << "no threads in the children of a process that has some";
    int before = 0;
    for (int round = 0; round < 60; ++round) {
        int ready[2];
        ASSERT_EQ(0, pipe(ready));
        Other server([&] {
            const int chid = ChannelCreate(0);
            if (write(ready[1], &chid, sizeof chid) == sizeof chid)
                echo(chid);
        });
        int chid = -1;
        ASSERT_EQ(static_cast<ssize_t>(sizeof chid), read(ready[0], &chid, sizeof chid));
        std::thread killer([&] {
            std::this_thread::sleep_for(std::chrono::microseconds(300 + round * 173 % 9000));
            server.kill();
        });
        const int coid = attachTo(server.pid(), chid);
        if (coid != -1) {
            std::vector<char> bytes(200000), back(200000);
            Outcome outcome = {0, 0};
            for (unsigned length = 1; outcome.result >= 0; length = length * 5 % 199999)
                outcome = outcomeOf([&] {
                    return MsgSend(coid, bytes.data(), static_cast<int>(length), back.data(),
                                   static_cast<int>(length));
                });
            EXPECT_TRUE(outcome.error == ESRCH || outcome.error == EBADF) << outcome;
            EXPECT_EQ(0, ConnectDetach(coid));
        } else {
            EXPECT_EQ(ESRCH, errno);
        }
        killer.join();
        server.wait();
        waitUntilOthersSleep();  // who forks while another thread allocates may leave a sanitizer's heap locked
        close(ready[0]);
        close(ready[1]);
        if (round == 5)
            before = openDescriptors(getpid());
    }
    EXPECT_EQ(before, openDescriptors(getpid()));
}

// ---- children and surroundings

TEST(MessageProcessInChild, OfEitherSideTheConnectionIsNotThere) {
    EchoServer server;
    EXPECT_ENDS_WELL(support::runInChild(clientOf(server.pid(), server.chid, [](int coid) {
        EXPECT_EQ((Outcome{0, 0}), sendNothing(coid));
        const pid_t child = fork();
        if (child == 0)
            _exit(sendNothing(coid) == Outcome{-1, EBADF} ? 0 : 1);
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(0, status);
        EXPECT_EQ((Outcome{0, 0}), sendNothing(coid));
    })));
    EXPECT_ENDS_WELL(support::runInChild([] {
        EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([] { return MsgReceive(1, nullptr, 0, nullptr); }));
    }));
    EXPECT_ENDS_WELL(support::runInChild(clientOf(server.pid(), server.chid, [](int coid) {
        EXPECT_EQ((Outcome{0, 0}), sendNothing(coid));
    })));
}

TEST(MessageProcessInChild, AConnectionWhoseServerHasDiedIsNotThereEither) {
    EchoServer server;
    EXPECT_ENDS_WELL(support::runInChild(clientOf(server.pid(), server.chid, [&server](int coid) {
        kill(server.pid(), SIGKILL);
        while (sendNothing(coid).result == 0)
            std::this_thread::yield();
        const auto child = support::runInChild([coid] {
            EXPECT_EQ((Outcome{-1, EBADF}), sendNothing(coid));
            const OwnChannel own;
            EXPECT_EQ(coid, own.coid) << "the lowest id is free again";
        });
        EXPECT_TRUE(child.exitedWith(0)) << child;
        EXPECT_EQ((Outcome{-1, EBADF}), sendNothing(coid)) << "the parent's is there, and dead";
    })));
}

TEST(MessageProcessInChild, TheDescriptorsOfAConnectionAreClosedAlsoIfItsServerHasDied) {
    EchoServer server;
    EXPECT_ENDS_WELL(support::runInChild([&server] {
        const auto countInChild = [] {
            const auto child = support::runInChild([] { _exit(openDescriptors(getpid())); });
            return child.exitCode;
        };
        const int none = countInChild();
        const int coid = attachTo(server.pid(), server.chid);
        EXPECT_EQ(none, countInChild());
        kill(server.pid(), SIGKILL);
        while (sendNothing(coid).result == 0)
            std::this_thread::yield();
        EXPECT_EQ(none, countInChild());
    }));
}

TEST(MessageProcessInChild, ThatOutlivesItsParentTheServersEndIsStillNoticed) {
    int ready[2];
    ASSERT_EQ(0, pipe(ready));
    Other server([&] {
        const int chid = ChannelCreate(0);
        const pid_t child = fork();
        if (child == 0) {
            pause();
            _exit(0);
        }
        const int said[] = {chid, child};
        EXPECT_EQ(static_cast<ssize_t>(sizeof said), write(ready[1], said, sizeof said));
        receiveSoon(chid);
        pause();
    });
    int said[2];
    ASSERT_EQ(static_cast<ssize_t>(sizeof said), read(ready[0], said, sizeof said));
    const int coid = attachTo(server.pid(), said[0]);
    auto sender = sendNothingElsewhere(coid);
    waitUntilOthersSleep();
    server.kill();
    EXPECT_EQ((Outcome{-1, ESRCH}), sender.get());
    EXPECT_EQ(0, ConnectDetach(coid));
    kill(said[1], SIGKILL);
    close(ready[0]);
    close(ready[1]);
}

int threads() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("Threads:", 0) == 0)
            return std::stoi(line.substr(8));
    return -1;
}

/// Another process connects for the first time, to a channel whose receiver serves this process or sleeps.
void connectFromOutside(bool isBusy) {
    int ready[2];
    ASSERT_EQ(0, pipe(ready));
    Other outside([&, server = getpid()] {
        int chid = -1;
        EXPECT_EQ(static_cast<ssize_t>(sizeof chid), read(ready[0], &chid, sizeof chid));
        std::string reply;
        const int coid = attachTo(server, chid);
        armFor(_NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY, 10 * host::kNsPerSecond);
        EXPECT_EQ((Outcome{12, 0}), sendText(coid, "from outside", reply));
        EXPECT_EQ("from outside", reply);
    });
    OwnChannel own;
    std::thread receiver([&] {
        char bytes[64];
        _msg_info info;
        int id;
        while ((id = receiveSoon(own.chid, bytes, sizeof bytes, &info)) > 0)
            MsgReply(id, info.msglen, bytes, info.msglen);
    });
    std::atomic<bool> isOver{false};
    std::thread sender([&] {
        std::string reply;
        while (isBusy && !isOver)
            EXPECT_EQ((Outcome{6, 0}), sendText(own.coid, "inside", reply));
    });
    std::this_thread::sleep_for(2ms);
    EXPECT_EQ(static_cast<ssize_t>(sizeof own.chid), write(ready[1], &own.chid, sizeof own.chid));
    EXPECT_EQ(0, outside.wait());
    isOver = true;
    sender.join();
    MsgSendPulse(own.coid, 10, 1, 0);
    receiver.join();
    close(ready[0]);
    close(ready[1]);
}

// Receivers of a channel that no other process uses do not listen to others all the time.
TEST(MessageProcess, ReachesAReceiverThatIsBusyWithItsOwnProcess) {
    connectFromOutside(/*isBusy*/ true);
}

TEST(MessageProcess, ReachesAReceiverThatJustBeganToSleep) {
    connectFromOutside(/*isBusy*/ false);
}

TEST(MessageProcess, StartsNoThreadBeforeTheFirstConnectionToAnotherProcess) {
    EXPECT_ENDS_WELL(support::runInChild([] {
        const int before = threads();
        OwnChannel own;
        _pulse pulse;
        MsgSendPulse(own.coid, 10, 1, 1);
        EXPECT_EQ(0, receivePulseNow(own.chid, pulse).result);
        EXPECT_EQ(kTimedOut, receiveNow(own.chid));
        EXPECT_EQ(before, threads());
    }));
}

/// The ids of this process's threads.
std::set<int> threadIds() {
    std::set<int> ids;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
        ids.insert(std::stoi(task.path().filename()));
    return ids;
}

/// The same, with the one that a sanitizer may have as soon as there is a second one.
std::set<int> threadIdsOnceThereWereTwo() {
    const int second = ThreadCreate(
        0, [](void*) -> void* { return nullptr; }, nullptr, nullptr);
    while (access(("/proc/self/task/" + std::to_string(second)).c_str(), F_OK) == 0)
        std::this_thread::sleep_for(1ms);
    EXPECT_EQ(EOK, ThreadJoin_r(second, nullptr));
    return threadIds();
}

template <class T>
std::vector<T> without(const std::set<T>& all, const std::set<T>& some) {
    std::vector<T> others;
    std::set_difference(all.begin(), all.end(), some.begin(), some.end(), std::back_inserter(others));
    return others;
}

/// A connection and a message over it.
int sendOverNewConnection(const EchoServer& server) {
    const int coid = attachTo(server.pid(), server.chid);
    EXPECT_EQ((Outcome{0, 0}), sendNothing(coid));
    return coid;
}

TEST(MessageProcess, HasOneThreadThatWatchesAllConnections) {
    const EchoServer servers[3];
    OwnChannel own, another;
    const std::set<int> before = threadIdsOnceThereWereTwo();
    std::vector<std::unique_ptr<Other>> clients;
    for (const int chid : {own.chid, own.chid, another.chid})
        clients.push_back(std::make_unique<Other>([chid, parent = getpid()] {
            sendNothing(attachTo(parent, chid));
            pause();
        }));
    for (const int chid : {own.chid, own.chid, another.chid})
        answerNothing(chid);
    EXPECT_EQ(1u, without(threadIds(), before).size());
    for (int round = 0; round < 2; ++round) {
        std::vector<int> coids;
        for (int i = 0; i < 9; ++i)
            coids.push_back(sendOverNewConnection(servers[i % 3]));
        EXPECT_EQ(1u, without(threadIds(), before).size());
        for (const int coid : coids)
            EXPECT_EQ(0, ConnectDetach(coid));
    }
    clients.clear();
    EXPECT_EQ(1u, without(threadIds(), before).size());
}

/// The signals that a thread of this process blocks, as the kernel tells.
std::string signalsBlockedBy(int tid) {
    std::ifstream status("/proc/self/task/" + std::to_string(tid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("SigBlk:", 0) == 0)
            return line;
    return "";
}

TEST(MessageProcess, ItsThreadThatWatchesTakesNoSignals) {
    if (support::isEmulated())
        GTEST_SKIP() << "the emulator takes the signals for all threads of its program";
    const EchoServer server;
    const std::set<int> before = threadIdsOnceThereWereTwo();
    const int coid = sendOverNewConnection(server);
    sigset_t all, old;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &old);
    const std::string blocked = signalsBlockedBy(gettid());
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    ASSERT_NE(blocked, signalsBlockedBy(gettid()));
    int watching = 0;
    for (const int id : without(threadIds(), before))
        watching += signalsBlockedBy(id) == blocked ? 1 : 0;
    EXPECT_EQ(1, watching);
    EXPECT_EQ(0, ConnectDetach(coid));
}

TEST(MessageProcessInChild, HasNoThreadThatWatchesBeforeItConnectsItself) {
    if (!canStartThreadsInChildren())
        GTEST_SKIP() << "no thread can watch in a child here";
    const EchoServer server;
    const int coid = sendOverNewConnection(server);
    EXPECT_ENDS_WELL(support::runInChild([&] {
        EXPECT_EQ(1, threads());
        OwnChannel own;
        EXPECT_EQ(1, threads());
        sendOverNewConnection(server);
        sendOverNewConnection(server);
        EXPECT_EQ(2, threads());
    }));
    EXPECT_EQ(0, ConnectDetach(coid));
}

/// Of a channel, of each side of a connection, and of the thread that watches.
constexpr unsigned kOfAChannel = 2, kOfAConnection = 3, kOfTheWatcher = 2;

// With a file and memory that the library has opened there, and in a log call.
TEST(MessageProcess, LeavesNoDescriptorToAProgramThatItBecomes) {
    const support::TemporaryFolder folder;
    const std::string path = folder.write("file", "text");
    const LogSocket log(folder / "log");
    const support::ScopedEnvironment variable("NTO_SLOG", folder / "log");
    while (slogb(1, _SLOG_INFO, nullptr, 0) == 0)
        armNow(_NTO_TIMEOUT_SEND);  // until its queue is full
    const EchoServer server;
    int ready[2];
    ASSERT_EQ(0, pipe(ready));
    const Other client([&, parent = getpid()] {
        int chid = -1;
        if (read(ready[0], &chid, sizeof chid) == sizeof chid)
            sendNothing(attachTo(parent, chid));
        pause();
    });
    const std::set<int> before = files::openDescriptors();

    OwnChannel own;
    struct sigevent event = {};
    SIGEV_PULSE_INIT(&event, own.coid, 10, 1, nullptr);
    const int timer = TimerCreate(CLOCK_MONOTONIC, &event);
    const _itimer soon = {kMs, 0};
    EXPECT_EQ(0, TimerSettime(timer, 0, &soon, nullptr));
    _pulse pulse;
    EXPECT_EQ(0, receiveSoon(own.chid, &pulse, sizeof pulse));
    const int coid = attachTo(server.pid(), server.chid);
    std::string reply;
    EXPECT_EQ((Outcome{100000, 0}), sendText(coid, std::string(100000, 't'), reply, 100000));
    ASSERT_EQ(static_cast<ssize_t>(sizeof own.chid), write(ready[1], &own.chid, sizeof own.chid));
    answerNothing(own.chid);
    const shmtest::SharedName name;
    const int memory = VQSharedMemoryAccess::open(name, 4096, VQSharedMemoryAccess::OPEN_CREATE_EXCLUSIVE);
    EXPECT_NE(-1, memory);
    const CVQFileHandle file(CVQPath(path.c_str()), O_RDONLY);
    EXPECT_TRUE(file.isOpen());
    std::atomic<bool> isOver{false};
    std::thread logging([&] {
        while (!isOver)
            slogb(1, _SLOG_INFO, nullptr, 0);  // waits for the logger for a second
    });

    constexpr unsigned kAll = kOfAChannel + 2 * kOfAConnection + kOfTheWatcher + 3;
    std::vector<int> ours;
    for (int tries = 0; tries < 20000 && ours.size() != kAll; ++tries) {
        std::this_thread::sleep_for(1ms);
        ours = without(files::openDescriptors(), before);
    }
    EXPECT_EQ(kAll, ours.size());
    for (const int descriptor : ours) {
        std::error_code isClosed;
        const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
        EXPECT_TRUE(files::isClosedOnExec(descriptor)) << std::filesystem::read_symlink(link, isClosed);
    }
    isOver = true;
    logging.join();
    VQSharedMemoryAccess::close(memory);
    EXPECT_EQ(0, ConnectDetach(coid));
    EXPECT_EQ(0, TimerDestroy(timer));
    close(ready[0]);
    close(ready[1]);
}

TEST(MessageProcess, IsRefusedWhereFilesMayNotBeLargeEnough) {
    EchoServer server;
    EXPECT_ENDS_WELL(support::runInChild([&server] {
        rlimit before;
        ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &before));
        const rlimit small{65536, before.rlim_max};
        ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &small));
        EXPECT_EQ((Outcome{-1, EFBIG}), outcomeOf([&] { return attachTo(server.pid(), server.chid); }));
        ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &before));
        clientOf(server.pid(), server.chid, [](int coid) { EXPECT_EQ((Outcome{0, 0}), sendNothing(coid)); })();
    }));
}

/// Takes all descriptors but some.
class FewDescriptors {
public:
    explicit FewDescriptors(unsigned left) {
        const rlimit few{64, 64};
        EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
        for (int taken; (taken = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;)
            mTaken.push_back(taken);
        for (; left > 0; --left) {
            close(mTaken.back());
            mTaken.pop_back();
        }
    }
    void giveBack() {
        for (const int taken : mTaken)
            close(taken);
        mTaken.clear();
    }

private:
    std::vector<int> mTaken;
};

/// A server that is short of descriptors when it is told. It has a second channel, from which it never receives.
class ShortServer {
public:
    explicit ShortServer(unsigned left) : mServer([this, left] { run(left); }) {
        for (int* const chid : {&mChid, &quiet}) {
            _pulse pulse;
            EXPECT_EQ(0, receiveSoon(mOwn.chid, &pulse, sizeof pulse));
            *chid = pulse.value.sival_int;
        }
        mFirst = attach(mChid);
    }
    ~ShortServer() { EXPECT_EQ(0, ConnectDetach(mFirst)); }

    int attach(int chid) const {
        const int coid = attachTo(mServer.pid(), chid);
        EXPECT_GE(coid, _NTO_SIDE_CHANNEL) << std::strerror(errno);
        return coid;
    }
    int attach() const { return attach(mChid); }
    void beShort() const { wishFor('s'); }
    void haveEnough() const { wishFor('e'); }
    void haveNoInput() const { wishFor('c'); }

    int quiet = -1;

private:
    void run(unsigned left) const {
        const int chid = ChannelCreate(0);
        const int toParent = attachTo(getppid(), mOwn.chid);
        MsgSendPulse(toParent, 10, 1, chid);
        MsgSendPulse(toParent, 10, 1, ChannelCreate(0));
        std::unique_ptr<FewDescriptors> few;
        for (;;) {
            char wish = 0;
            const int id = receiveSoon(chid, &wish, 1);
            if (wish == 'c')
                close(STDIN_FILENO);
            if (wish == 's')
                few = std::make_unique<FewDescriptors>(left);
            if (wish == 'e')
                few->giveBack();
            MsgReply(id, 0, nullptr, 0);
        }
    }
    void wishFor(char wish) const {
        EXPECT_EQ((Outcome{0, 0}), outcomeOf([=] { return MsgSend(mFirst, &wish, 1, nullptr, 0); }));
    }

    const OwnChannel mOwn;  // which the server tells its channels by
    Other mServer;
    int mChid = -1;
    int mFirst = -1;
};

class MessageProcessLeft : public testing::TestWithParam<unsigned> {};

/// A new sender waits for a server that is short of descriptors.
void expectToWaitFor(const ShortServer& server) {
    const int later = server.attach();
    auto sent = sendNothingElsewhere(later);
    EXPECT_EQ(std::future_status::timeout, sent.wait_for(50ms));
    server.haveEnough();
    EXPECT_EQ((Outcome{0, 0}), sent.get());
    EXPECT_EQ(0, ConnectDetach(later));
}

TEST_P(MessageProcessLeft, WaitsForAServerThatIsShortOfDescriptors) {
    const ShortServer server(GetParam());
    server.beShort();
    expectToWaitFor(server);
}

TEST_P(MessageProcessLeft, WaitsForAServerThatIsShortOfDescriptorsAndHasNoStandardInput) {
    const ShortServer server(GetParam());
    server.beShort();
    server.haveNoInput();
    expectToWaitFor(server);
}

INSTANTIATE_TEST_SUITE_P(Descriptors, MessageProcessLeft, testing::Values(0, 1, 2));

TEST(MessageProcess, WaitsNoLongerForAServerThatOthersConnectToAllTheTime) {
    const ShortServer server(0);
    server.beShort();
    const int later = server.attach();
    auto sent = sendNothingElsewhere(later);
    EXPECT_EQ(std::future_status::timeout, sent.wait_for(50ms));
    server.haveEnough();
    const auto end = std::chrono::steady_clock::now() + 15s;  // the server's patience is 20 s
    while (sent.wait_for(100ms) == std::future_status::timeout && std::chrono::steady_clock::now() < end)
        EXPECT_EQ(0, ConnectDetach(server.attach(server.quiet)));
    EXPECT_EQ(std::future_status::ready, sent.wait_for(0s));
    EXPECT_EQ((Outcome{0, 0}), sent.get());
    EXPECT_EQ(0, ConnectDetach(later));
}

TEST(MessageProcess, IsRefusedForTheMomentWhileTooManyDescriptorsAreOnTheirWay) {
    EXPECT_ENDS_WELL(support::runInChild([] {
        // What is on its way is counted for each user: one of its own, so that other runs of this test do not count.
        ASSERT_TRUE(geteuid() != 0 || setuid(20000 + static_cast<uid_t>(getpid()) % 40000) == 0);
        ASSERT_EQ(0, prctl(PR_SET_DUMPABLE, 1));
        const EchoServer server;
        int ends[2];
        ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends));
        const rlimit few{32, 32};
        ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
        while (host::sendFile(ends[0], ends[0])) {
        }
        ASSERT_EQ(ETOOMANYREFS, errno);
        EXPECT_EQ((Outcome{-1, EAGAIN}), outcomeOf([&] { return attachTo(server.pid(), server.chid); }));
        close(ends[1]);
        close(ends[0]);
        clientOf(server.pid(), server.chid, [](int coid) { EXPECT_EQ((Outcome{0, 0}), sendNothing(coid)); })();
    }));
}

TEST(MessageProcess, CostsNothingWhenAProgramHasClosedAllDescriptors) {
    const OwnChannel own;  // which the child tells its channel by
    Other server([&own] {
        const int chid = ChannelCreate(0);
        MsgSendPulse(attachTo(getppid(), own.chid), 10, 1, chid);
        receiveSoon(chid);
        for (int i = 3; i < 64; ++i)
            syscall(SYS_close, i);        // unseen by the thread sanitizer
        std::this_thread::sleep_for(1s);  // until the thread that watches has looked around
        const uint64_t before = host::nowNs(CLOCK_PROCESS_CPUTIME_ID);
        std::this_thread::sleep_for(1s);
        _exit(host::nowNs(CLOCK_PROCESS_CPUTIME_ID) - before < host::kNsPerSecond / 5 ? 0 : 1);
    });
    _pulse pulse;
    ASSERT_EQ(0, receiveSoon(own.chid, &pulse, sizeof pulse));
    const int coid = attachTo(server.pid(), pulse.value.sival_int);
    EXPECT_EQ((Outcome{-1, ESRCH}), sendNothing(coid));
    EXPECT_EQ(0, server.wait());
    EXPECT_EQ(0, ConnectDetach(coid));
}

TEST(MessageProcess, LetsAProcessEndWithItsLastThread) {
    NEEDS_THREADS_THAT_VANISH();
    if (!canStartThreadsInChildren())
        GTEST_SKIP() << "no thread can watch here, and the emulator has one of its own";
    EchoServer server;
    for (const bool isFirstTheLast : {false, true}) {
        Other process([&] {
            EXPECT_EQ((Outcome{0, 0}), sendNothing(attachTo(server.pid(), server.chid)));
            static std::atomic<bool> mayEnd;
            mayEnd = isFirstTheLast;
            const int id = ThreadCreate(
                0,
                [](void*) -> void* {
                    while (!mayEnd)
                        usleep(1000);
                    return nullptr;
                },
                nullptr, nullptr);
            if (isFirstTheLast)
                ThreadJoin_r(id, nullptr);
            mayEnd = true;
            ThreadDestroy(0, -1, nullptr);
        });
        int status = -1;
        const auto end = std::chrono::steady_clock::now() + 60s;
        while (waitpid(process.pid(), &status, WNOHANG) == 0 && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(5ms);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    }
}

TEST(MessageProcess, CarriesNoPulsesOfTimersAndSaysSo) {
    EchoServer server;
    const auto result = support::runInChild(clientOf(server.pid(), server.chid, [](int coid) {
        struct sigevent event = {};
        SIGEV_PULSE_INIT(&event, coid, 10, 1, nullptr);
        EXPECT_EQ((Outcome{-1, ENOTSUP}), outcomeOf([&] { return TimerCreate(CLOCK_MONOTONIC, &event); }));
        EXPECT_EQ((Outcome{0, 0}), sendNothing(coid));
    }));
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ("neutrino host: a timer that sends to another process is not supported on Linux\n", result.err);
}

TEST(MessageProcess, UnknownProcessesAndChannelsAreRefused) {
    OwnChannel own;
    EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return attachTo(INT_MAX, own.chid); }));
    EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return attachTo(-5, own.chid); }));
    EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return attachTo(getppid(), 1000); }));
    EXPECT_ENDS_WELL(support::runInChild([server = getpid(), chid = own.chid] {
        EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([=] { return attachTo(server, chid + 100); }));
    }));
}

}  // namespace
