// Concerns: bytes and lengths, parts, status and errors, receive ids, the order of messages and pulses, time-outs in
// each state, giving up, channels and connections that go, many threads, children.
#include "MessageTesting.h"
#include "OnProcessor.h"

#include "support/ChildProcess.h"
#include "support/Sanitizers.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstring>
#include <gmock/gmock.h>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <random>
#include <sys/mman.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

TEST(Message, ArrivesAndBringsTheReplyBack) {
    OwnChannel own;
    std::thread server([&] {
        char text[16] = {};
        const int id = receiveSoon(own.chid, text, sizeof text);
        EXPECT_STREQ("question", text);
        EXPECT_EQ(0, MsgReply(id, 42, "answer", 7));
    });
    std::string reply;
    EXPECT_EQ((Outcome{42, 0}), sendText(own.coid, "question", reply));
    EXPECT_EQ("answer", reply);
    server.join();
}

TEST(Message, WaitsForAReceiverThatComesLater) {
    OwnChannel own;
    auto sender = sendNothingElsewhere(own.coid);
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(0, MsgReply(receiveSoon(own.chid), 5, nullptr, 0));
    EXPECT_EQ((Outcome{5, 0}), sender.get());
}

TEST(Message, TellsTheReceiverWhoSentHowMuch) {
    OwnChannel own;
    int senderTid = 0;
    std::thread sender([&] {
        senderTid = gettid();
        char room[20];
        MsgSend(own.coid, "0123456789", 10, room, sizeof room);
    });
    char text[4];
    _msg_info info;
    std::memset(&info, -1, sizeof info);
    const int id = receiveSoon(own.chid, text, sizeof text, &info);
    MsgReply(id, 0, nullptr, 0);
    sender.join();
    EXPECT_EQ(getpid(), info.pid);
    EXPECT_EQ(senderTid, info.tid);
    EXPECT_EQ(own.chid, info.chid);
    EXPECT_EQ(own.coid, info.coid);
    EXPECT_EQ(4, info.msglen);
    EXPECT_EQ(10, info.srcmsglen);
    EXPECT_EQ(20, info.dstmsglen);
    EXPECT_EQ(10, info.priority);
    EXPECT_EQ(0, info.flags);
    EXPECT_EQ(0u, info.nd);
}

TEST(Message, IsCutToTheReceiversRoomAndItsReplyToTheSenders) {
    OwnChannel own;
    std::thread server([&] {
        char text[6] = "-----";
        const int id = receiveSoon(own.chid, text, 3);
        EXPECT_STREQ("abc--", text);
        EXPECT_EQ(0, MsgReply(id, 0, "vwxyz", 5));
    });
    char reply[6] = "-----";
    EXPECT_EQ(0, MsgSend(own.coid, "abcdef", 6, reply, 2));
    EXPECT_STREQ("vw---", reply);
    server.join();
}

// One run of bytes is sent, received, replied and taken back in parts whose borders have nothing to do with each other.
TEST(Message, GathersAndScattersAnySplitIntoParts) {
    OwnChannel own;
    std::mt19937 random(7);
    const auto split = [&](std::vector<char>& bytes) {
        std::vector<iovec> parts;
        for (std::size_t at = 0; at < bytes.size();) {
            const std::size_t size = std::min<std::size_t>(random() % 50, bytes.size() - at);
            parts.push_back({bytes.data() + at, size});
            at += size;
        }
        parts.push_back({nullptr, 0});
        return parts;
    };
    for (int round = 0; round < 200; ++round) {
        std::vector<char> question(random() % 300), received(random() % 300, '-'), answer(random() % 300),
            back(random() % 300, '-');
        for (char& byte : question)
            byte = static_cast<char>(random());
        for (char& byte : answer)
            byte = static_cast<char>(random());
        const auto questionParts = split(question), receivedParts = split(received), answerParts = split(answer),
                   backParts = split(back);
        std::thread server([&] {
            armFor(_NTO_TIMEOUT_RECEIVE, 20 * host::kNsPerSecond);
            const int id =
                MsgReceivev(own.chid, receivedParts.data(), static_cast<int>(receivedParts.size()), nullptr);
            EXPECT_EQ(0, MsgReplyv(id, round, answerParts.data(), static_cast<int>(answerParts.size())));
        });
        EXPECT_EQ(round, MsgSendv(own.coid, questionParts.data(), static_cast<int>(questionParts.size()),
                                  backParts.data(), static_cast<int>(backParts.size())));
        server.join();
        const std::size_t there = std::min(question.size(), received.size());
        const std::size_t here = std::min(answer.size(), back.size());
        EXPECT_TRUE(std::equal(received.begin(), received.begin() + static_cast<long>(there), question.begin()));
        EXPECT_TRUE(std::all_of(received.begin() + static_cast<long>(there), received.end(),
                                [](char c) { return c == '-'; }));
        EXPECT_TRUE(std::equal(back.begin(), back.begin() + static_cast<long>(here), answer.begin()));
        EXPECT_TRUE(
            std::all_of(back.begin() + static_cast<long>(here), back.end(), [](char c) { return c == '-'; }));
    }
}

// A receiver on another processor looks for its message, and may get it from the sender's hand; a late one finds it in
// the queue. Nobody sees a difference.
TEST(Message, IsTheSameFromTheSendersHandAndFromTheQueue) {
    constexpr int kRounds = 3000;
    const std::vector<std::size_t> lengths = {0, 1, 64, 255, 256, 257, 1024, 1025, 5000};
    OwnChannel own;
    std::atomic<int> clientTid{0};
    const auto byteOf = [](int round, std::size_t i) { return static_cast<char>(round * 31 + int(i) * 7 + 1); };
    const auto lengthOf = [&](int round) { return lengths[static_cast<std::size_t>(round) % lengths.size()]; };
    std::thread server([&] {
        const OnProcessor here(1);
        for (int round = 0; round < kRounds; ++round) {
            const std::size_t sent = lengthOf(round), room = lengthOf(round / 9), first = room / 3;
            std::vector<char> buffer(room + 1, '-');
            const iovec parts[] = {{buffer.data(), first}, {nullptr, 0}, {buffer.data() + first, room - first}};
            _msg_info info;
            std::memset(&info, -1, sizeof info);
            if (round % 2 == 1)
                std::this_thread::sleep_for(20us);
            armFor(_NTO_TIMEOUT_RECEIVE, 20 * host::kNsPerSecond);
            const int id = MsgReceivev(own.chid, parts, 3, &info);
            ASSERT_GT(id, 0);
            const std::size_t copied = std::min(sent, room);
            for (std::size_t i = 0; i <= room; ++i)
                ASSERT_EQ(i < copied ? byteOf(round, i) : '-', buffer[i]) << round << ", " << i;
            char again[3] = {};
            ASSERT_EQ(static_cast<int>(std::min<std::size_t>(sent, 3)), MsgRead(id, again, 3, 0));
            ASSERT_EQ(sent > 2 ? byteOf(round, 2) : 0, again[2]);
            ASSERT_EQ(static_cast<int>(copied), info.msglen);
            ASSERT_EQ(static_cast<int>(sent), info.srcmsglen);
            ASSERT_EQ(round % 5, info.dstmsglen);
            ASSERT_EQ(getpid(), info.pid);
            ASSERT_EQ(clientTid, info.tid);
            ASSERT_EQ(own.chid, info.chid);
            ASSERT_EQ(own.coid, info.coid);
            ASSERT_EQ(own.coid, info.scoid);
            ASSERT_EQ(10, info.priority);
            ASSERT_EQ(0, info.flags);
            ASSERT_EQ(0, MsgReply(id, round, "1234", 4));
        }
    });
    std::thread client([&] {
        const OnProcessor here(0);
        clientTid = gettid();
        for (int round = 0; round < kRounds; ++round) {
            std::vector<char> request(lengthOf(round));
            for (std::size_t i = 0; i < request.size(); ++i)
                request[i] = byteOf(round, i);
            char reply[6] = "-----";
            armFor(_NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY, 20 * host::kNsPerSecond);
            ASSERT_EQ(round, MsgSend(own.coid, request.data(), static_cast<int>(request.size()), reply, round % 5));
            ASSERT_EQ(std::string("1234").substr(0, static_cast<std::size_t>(round % 5)) +
                          std::string("-----").substr(static_cast<std::size_t>(round % 5)),
                      reply);
        }
    });
    client.join();
    server.join();
}

TEST(Message, MayHave64MiB) {
    OwnChannel own;
    std::vector<char> question(64 << 20, 'q'), received(64 << 20), back(64 << 20);
    question.back() = 'e';
    std::thread server([&] {
        const int id = receiveSoon(own.chid, received.data(), 64 << 20);
        MsgReply(id, 0, received.data(), 64 << 20);
    });
    EXPECT_EQ(0, MsgSend(own.coid, question.data(), 64 << 20, back.data(), 64 << 20));
    server.join();
    EXPECT_TRUE(question == received);
    EXPECT_TRUE(question == back);
}

TEST(Message, RefusesSizesThatAreNone) {
    OwnChannel own;
    const iovec tooLong[] = {{nullptr, INT_MAX}, {nullptr, 1}};
    EXPECT_EQ((Outcome{-1, EINVAL}), outcomeOf([&] { return MsgSend(own.coid, "", -1, nullptr, 0); }));
    EXPECT_EQ((Outcome{-1, EINVAL}), outcomeOf([&] { return MsgSend(own.coid, "", 0, nullptr, -1); }));
    EXPECT_EQ((Outcome{-1, EINVAL}), outcomeOf([&] { return MsgSendv(own.coid, tooLong, 2, nullptr, 0); }));
    EXPECT_EQ((Outcome{-1, EINVAL}), outcomeOf([&] { return MsgSendv(own.coid, tooLong, -1, nullptr, 0); }));
    EXPECT_EQ((Outcome{-1, EINVAL}), outcomeOf([&] { return MsgReceive(own.chid, nullptr, -1, nullptr); }));
    EXPECT_EQ((Outcome{-1, EINVAL}), outcomeOf([&] { return MsgReply(1, 0, nullptr, -1); }));
}

TEST(Message, FailsWithTheErrorThatTheReceiverNames) {
    OwnChannel own;
    auto sender = sendNothingElsewhere(own.coid);
    EXPECT_EQ(0, MsgError(receiveSoon(own.chid), ENOSYS));
    EXPECT_EQ((Outcome{-1, ENOSYS}), sender.get());
    sender = sendNothingElsewhere(own.coid);
    EXPECT_EQ(0, MsgError(receiveSoon(own.chid), EOK));
    EXPECT_EQ((Outcome{0, 0}), sender.get());
}

TEST(Message, CarriesAnyStatus) {
    OwnChannel own;
    for (const int status : {0, 1, -1, -7, INT_MAX, INT_MIN}) {
        auto sender = sendNothingElsewhere(own.coid);
        EXPECT_EQ(0, MsgReply(receiveSoon(own.chid), status, nullptr, 0));
        EXPECT_EQ((Outcome{status, 0}), sender.get());
    }
}

TEST(Message, IsRepliedToOnceByAnyThreadInAnyOrder) {
    OwnChannel own;
    auto first = sendNothingElsewhere(own.coid);
    const int firstId = receiveSoon(own.chid);
    auto second = sendNothingElsewhere(own.coid);
    const int secondId = receiveSoon(own.chid);
    EXPECT_NE(firstId, secondId);
    std::thread([&] { EXPECT_EQ(0, MsgReply(secondId, 2, nullptr, 0)); }).join();
    EXPECT_EQ((Outcome{2, 0}), second.get());
    EXPECT_EQ(0, MsgReply(firstId, 1, nullptr, 0));
    EXPECT_EQ((Outcome{1, 0}), first.get());
    EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return MsgReply(firstId, 0, nullptr, 0); }));
    EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return MsgError(secondId, EPERM); }));
}

TEST(Message, RepliesToNobodyAreRefused) {
    OwnChannel own;
    for (const int id : {0, -1, 1, 63, 64, 65536, 65537, INT_MAX, INT_MIN})
        EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return MsgReply(id, 0, nullptr, 0); })) << id;
}

// Else a late reply would go to somebody else.
TEST(Message, AnIdOfOneWhoGaveUpIsNotAnothersSoon) {
    OwnChannel own;
    std::thread impatient([&] {
        armFor(_NTO_TIMEOUT_REPLY, 1);
        EXPECT_EQ(kTimedOut, sendNothing(own.coid));
    });
    const int stale = receiveSoon(own.chid);
    ASSERT_GT(stale, 0);
    impatient.join();
    constexpr int kRounds = 33000;  // more than a part of the id can count
    std::thread patient([&] {
        for (int i = 0; i < kRounds; ++i)
            ASSERT_EQ((Outcome{i, 0}), sendNothing(own.coid));
    });
    for (int i = 0; i < kRounds; ++i) {
        const int id = receiveSoon(own.chid);
        EXPECT_NE(stale, id) << i;
        EXPECT_EQ(0, MsgReply(id, i, nullptr, 0));
    }
    patient.join();
    EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return MsgReply(stale, 0, "secret", 6); }));
}

TEST(Message, CanBeReadInPiecesAndItsReplyWrittenInPieces) {
    OwnChannel own;
    std::thread server([&] {
        char head[3] = {};
        const int id = receiveSoon(own.chid, head, 2);
        EXPECT_STREQ("ab", head);
        char rest[8] = {};
        EXPECT_EQ(3, MsgRead(id, rest, 3, 2));
        EXPECT_STREQ("cde", rest);
        EXPECT_EQ(1, MsgRead(id, rest, 8, 5));
        EXPECT_EQ(0, MsgRead(id, rest, 8, 6));
        EXPECT_EQ(0, MsgRead(id, rest, 8, INT_MAX));
        EXPECT_EQ((Outcome{-1, EINVAL}), outcomeOf([&] { return MsgRead(id, rest, 8, -1); }));
        EXPECT_EQ(2, MsgWrite(id, "YZ", 2, 2));
        EXPECT_EQ(1, MsgWrite(id, "!?", 2, 4));
        EXPECT_EQ(0, MsgReply(id, 0, "WX", 2));
        EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return MsgRead(id, rest, 8, 0); }));
        EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return MsgWrite(id, rest, 8, 0); }));
    });
    char reply[6] = {};
    EXPECT_EQ(0, MsgSend(own.coid, "abcdef", 6, reply, 5));
    EXPECT_STREQ("WXYZ!", reply);
    server.join();
}

TEST(Message, CanBeReadAndAnsweredInPiecesOfSeveralParts) {
    OwnChannel own;
    std::thread server([&] {
        const int id = receiveSoon(own.chid);
        char first[2] = {}, second[3] = {};
        const iovec into[] = {{first, 1}, {second, 2}};
        EXPECT_EQ(3, MsgReadv(id, into, 2, 2));
        EXPECT_STREQ("c", first);
        EXPECT_STREQ("de", second);
        EXPECT_EQ((Outcome{-1, EINVAL}), outcomeOf([&] { return MsgReadv(id, into, 2, -1); }));
        EXPECT_EQ((Outcome{-1, EINVAL}), outcomeOf([&] { return MsgReadv(id, into, -1, 0); }));
        char one[] = "W", more[] = "XYZ";
        const iovec from[] = {{one, 1}, {more, 3}};
        EXPECT_EQ(4, MsgWritev(id, from, 2, 1));
        EXPECT_EQ((Outcome{-1, EINVAL}), outcomeOf([&] { return MsgWritev(id, from, 2, -1); }));
        EXPECT_EQ((Outcome{-1, EINVAL}), outcomeOf([&] { return MsgWritev(id, from, -1, 0); }));
        EXPECT_EQ(0, MsgReply(id, 0, "V", 1));
        EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return MsgReadv(id, into, 2, 0); }));
        EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return MsgWritev(id, from, 2, 0); }));
    });
    char reply[6] = {};
    EXPECT_EQ(0, MsgSend(own.coid, "abcdef", 6, reply, 5));
    EXPECT_STREQ("VWXYZ", reply);
    server.join();
}

TEST(Message, LeavesErrnoAloneWhenAllGoesWell) {
    OwnChannel own;
    std::thread server([&] {
        errno = 4711;
        const int id = receiveSoon(own.chid);
        EXPECT_EQ(0, MsgReply(id, 0, nullptr, 0));
        EXPECT_EQ(4711, errno);
    });
    std::this_thread::sleep_for(10ms);
    errno = 4712;
    EXPECT_EQ(0, MsgSend(own.coid, nullptr, 0, nullptr, 0));
    EXPECT_EQ(0, MsgSendPulse(own.coid, 5, 1, 1));
    EXPECT_EQ(4712, errno);
    server.join();
}

TEST(Message, GoesToTheChannelOfItsConnection) {
    OwnChannel one, other;
    auto sender = sendNothingElsewhere(other.coid);
    const int id = receiveSoon(other.chid);
    EXPECT_EQ(kTimedOut, receiveNow(one.chid));
    MsgReply(id, 0, nullptr, 0);
    EXPECT_EQ((Outcome{0, 0}), sender.get());
}

TEST(Message, FindsOneReceiverEachAmongManyThreads) {
    constexpr int kClients = 6, kServers = 3, kRounds = 400;
    OwnChannel own;
    std::vector<std::thread> servers;
    for (int i = 0; i < kServers; ++i)
        servers.emplace_back([&] {
            for (;;) {
                int received[8] = {-1};  // with room for the pulse that ends it
                const int id = receiveSoon(own.chid, received, sizeof received);
                const int number = received[0];
                if (id == 0)
                    break;
                ASSERT_GT(id, 0);
                const int answer = number * 3;
                EXPECT_EQ(0, MsgReply(id, number, &answer, sizeof answer));
            }
        });
    std::vector<std::thread> clients;
    for (int i = 0; i < kClients; ++i)
        clients.emplace_back([&, i] {
            for (int round = 0; round < kRounds; ++round) {
                const int number = i * kRounds + round;
                int answer = 0;
                ASSERT_EQ(number, MsgSend(own.coid, &number, sizeof number, &answer, sizeof answer));
                ASSERT_EQ(number * 3, answer);
            }
        });
    for (std::thread& client : clients)
        client.join();
    for (int i = 0; i < kServers; ++i)
        EXPECT_EQ(0, MsgSendPulse(own.coid, 1, 0, 0));
    for (std::thread& server : servers)
        server.join();
}

// A message and its reply while the sender's time-out keeps ending the wait at every possible moment.
TEST(Message, HasOneOutcomeWhenItsTimeoutRacesItsReply) {
    OwnChannel own;
    std::atomic<bool> stop{false};
    std::thread server([&] {
        int ended = 0;
        while (!stop) {
            char bytes[64];
            armFor(_NTO_TIMEOUT_RECEIVE, kMs);
            const int id = MsgReceive(own.chid, bytes, sizeof bytes, nullptr);
            if (id > 0 && MsgReply(id, 7, bytes, sizeof bytes) == -1) {
                EXPECT_EQ(ESRCH, errno);
                ++ended;
            }
        }
    });
    std::mt19937 random(3);
    int answered = 0;
    for (int round = 0; round < 3000; ++round) {
        char bytes[64] = {'x'}, back[64] = {};
        armFor(_NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY, random() % 60000);
        const Outcome outcome = outcomeOf([&] { return MsgSend(own.coid, bytes, 64, back, 64); });
        if (outcome == (Outcome{7, 0})) {
            ++answered;
            EXPECT_EQ('x', back[0]);
        } else {
            EXPECT_EQ(kTimedOut, outcome);
        }
    }
    stop = true;
    server.join();
    EXPECT_EQ(kTimedOut, receiveNow(own.chid));
}

/// Memory whose second half halts whoever touches it, until it is opened.
class HaltingMemory {
public:
    static constexpr std::size_t kHalf = 1 << 16;

    HaltingMemory() {
        mapped = static_cast<char*>(
            mmap(nullptr, 2 * kHalf, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        mprotect(mapped + kHalf, kHalf, PROT_NONE);
        isTouched = isOpen = false;
        struct sigaction halt = {};
        halt.sa_handler = [](int) {
            isTouched = true;
            while (!isOpen) {
            }
        };
        sigaction(SIGSEGV, &halt, &mBefore);
    }
    ~HaltingMemory() {
        sigaction(SIGSEGV, &mBefore, nullptr);
        munmap(mapped, 2 * kHalf);
    }
    HaltingMemory(const HaltingMemory&) = delete;
    HaltingMemory& operator=(const HaltingMemory&) = delete;

    void open() {
        mprotect(mapped + kHalf, kHalf, PROT_READ | PROT_WRITE);
        isOpen = true;
    }

    char* mapped;
    static inline std::atomic<bool> isTouched, isOpen;

private:
    struct sigaction mBefore;
};

/// The sender's time is over while the receiver, which looks for the message or comes late to it, copies from it. False
/// when the sender was too slow to notice that before the receiver was through.
bool isWithdrawnWhileCopied(bool isReceiverLate) {
    OwnChannel own;
    HaltingMemory memory;
    Outcome received = kTimedOut;
    std::thread server([&] {
        const OnProcessor here(1);
        for (int warmUp = 0; warmUp < 200; ++warmUp)
            ASSERT_EQ(0, MsgReply(receiveSoon(own.chid), 0, nullptr, 0));
        if (isReceiverLate)
            std::this_thread::sleep_for(2ms);
        do {
            armFor(_NTO_TIMEOUT_RECEIVE, 100 * kMs);
            received =
                outcomeOf([&] { return MsgReceive(own.chid, memory.mapped, 2 * HaltingMemory::kHalf, nullptr); });
        } while (!HaltingMemory::isTouched);
    });
    std::thread client([&] {
        const OnProcessor here(0);
        for (int warmUp = 0; warmUp < 200; ++warmUp)
            ASSERT_EQ(0, MsgSend(own.coid, nullptr, 0, nullptr, 0));
        const std::string sent(2 * HaltingMemory::kHalf, 'x');
        std::string reply;
        do {
            armFor(_NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY, 20 * kMs);
            EXPECT_EQ(kTimedOut, sendText(own.coid, sent, reply));
        } while (!HaltingMemory::isTouched);
        EXPECT_TRUE(HaltingMemory::isOpen) << "the receiver still copied";
    });
    while (!HaltingMemory::isTouched)
        std::this_thread::sleep_for(1ms);
    std::this_thread::sleep_for(40ms);
    memory.open();
    client.join();
    server.join();
    EXPECT_EQ('x', memory.mapped[2 * HaltingMemory::kHalf - 1]);
    return received == kTimedOut;
}

TEST(Message, IsNotTakenFromAReceiverThatCopiesIt) {
    for (int rounds = 0; rounds < 6;)
        rounds += isWithdrawnWhileCopied(rounds % 2 == 1) ? 1 : 0;
}

// ---- order

std::vector<int> codesOf(int chid) {
    std::vector<int> codes;
    _pulse pulse;
    while (receivePulseNow(chid, pulse).result == 0)
        codes.push_back(pulse.code);
    return codes;
}

TEST(Pulse, CarriesCodeValueAndConnection) {
    OwnChannel own;
    ASSERT_EQ(0, MsgSendPulse(own.coid, 9, 17, -123456));
    _pulse pulse;
    std::memset(&pulse, -1, sizeof pulse);
    _msg_info info;
    std::memset(&info, 0x55, sizeof info);
    const _msg_info untouched = info;
    EXPECT_EQ(0, receiveSoon(own.chid, &pulse, sizeof pulse, &info));
    EXPECT_EQ(0, pulse.type);
    EXPECT_EQ(0, pulse.subtype);
    EXPECT_EQ(17, pulse.code);
    EXPECT_EQ(-123456, pulse.value.sival_int);
    EXPECT_EQ(own.coid, pulse.scoid);
    EXPECT_EQ(0, std::memcmp(&untouched, &info, sizeof info));
}

TEST(Pulse, ArrivesInTheOrderOfPriorityThenTime) {
    OwnChannel own;
    const int priorities[] = {10, 63, 1, 10, 63, 0, 10};
    for (int i = 0; i < 7; ++i)
        ASSERT_EQ(0, MsgSendPulse(own.coid, priorities[i], i, 0));
    EXPECT_THAT(codesOf(own.chid), ElementsAre(1, 4, 0, 3, 6, 2, 5));
}

TEST(Pulse, IsNotMergedWithAnEqualOne) {
    OwnChannel own;
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(0, MsgSendPulse(own.coid, 10, 3, 4));
    EXPECT_EQ(1000u, codesOf(own.chid).size());
}

TEST(Pulse, SharesTheOrderWithMessages) {
    OwnChannel own;
    ASSERT_EQ(0, MsgSendPulse(own.coid, 10, 1, 0));
    auto sender = sendNothingElsewhere(own.coid);
    std::this_thread::sleep_for(20ms);
    ASSERT_EQ(0, MsgSendPulse(own.coid, 10, 2, 0));
    ASSERT_EQ(0, MsgSendPulse(own.coid, 11, 3, 0));
    _pulse pulse;
    EXPECT_EQ(0, receiveSoon(own.chid, &pulse, sizeof pulse));
    EXPECT_EQ(3, pulse.code);
    EXPECT_EQ(0, receiveSoon(own.chid, &pulse, sizeof pulse));
    EXPECT_EQ(1, pulse.code);
    const int id = receiveSoon(own.chid, &pulse, sizeof pulse);
    EXPECT_GT(id, 0);
    EXPECT_EQ(0, receiveSoon(own.chid, &pulse, sizeof pulse));
    EXPECT_EQ(2, pulse.code);
    MsgReply(id, 0, nullptr, 0);
    sender.get();
}

TEST(Message, IsReceivedInTheOrderOfTheSendersPrioritiesThenTime) {
    const int priorities[] = {10, 30, 5, 30, 10, 63, 1, 10, 30};
    OwnChannel own;
    std::vector<std::future<Outcome>> senders;
    for (int i = 0; i < 9; ++i) {
        senders.push_back(std::async(std::launch::async, [&, i] {
            const sched_param parameters = {priorities[i]};
            EXPECT_EQ(0, SchedSet(0, 0, SCHED_NOCHANGE, &parameters));
            armFor(_NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY, 60 * host::kNsPerSecond);
            return outcomeOf([&] { return MsgSend(own.coid, &i, sizeof i, nullptr, 0); });
        }));
        waitUntilOthersSleep();
    }
    std::vector<int> order;
    for (int i = 0; i < 9; ++i) {
        int sender = 0;
        _msg_info info = {};
        const int id = receiveSoon(own.chid, &sender, sizeof sender, &info);
        EXPECT_EQ(priorities[sender], info.priority);
        EXPECT_EQ(0, MsgReply(id, 0, nullptr, 0));
        order.push_back(sender);
    }
    EXPECT_THAT(order, ElementsAre(5, 1, 3, 8, 0, 4, 7, 2, 6));
    for (auto& sender : senders)
        EXPECT_EQ((Outcome{0, 0}), sender.get());
}

TEST(Pulse, NoneIsLostWhileAHandlerArmsTimeoutsForMutexes) {
    const OwnChannel own;
    struct sigaction action = {};
    action.sa_handler = [](int) {
        const int error = errno;
        TimerTimeout(CLOCK_MONOTONIC, _NTO_TIMEOUT_MUTEX, nullptr, nullptr, nullptr);
        errno = error;
    };
    sigaction(SIGUSR1, &action, nullptr);
    std::atomic<bool> mayEnd{false};
    std::atomic<int> sent{0}, received{0};
    const auto send = [&] {
        while (!mayEnd)
            if (sent - received < 10000)
                sent += MsgSendPulse(own.coid, 10, 1, 0) == 0 ? 1 : 0;
    };
    std::thread interrupted(send), other(send);
    constexpr int kLast = 2;
    std::thread receiver([&] {
        for (_pulse pulse = {}; pulse.code != kLast;) {
            ASSERT_EQ(0, receiveSoon(own.chid, &pulse, sizeof pulse));
            received += pulse.code == kLast ? 0 : 1;
        }
    });
    for (const auto end = std::chrono::steady_clock::now() + 1s; std::chrono::steady_clock::now() < end;) {
        pthread_kill(interrupted.native_handle(), SIGUSR1);
        usleep(20);
    }
    mayEnd = true;
    interrupted.join();
    other.join();
    ASSERT_EQ(0, MsgSendPulse(own.coid, 1, kLast, 0));
    receiver.join();
    EXPECT_EQ(sent, received);
}

TEST(Pulse, IsTakenPastWaitingMessages) {
    OwnChannel own;
    auto sender = sendNothingElsewhere(own.coid);
    std::this_thread::sleep_for(20ms);
    _pulse pulse;
    EXPECT_EQ(kTimedOut, receivePulseNow(own.chid, pulse));
    ASSERT_EQ(0, MsgSendPulse(own.coid, 1, 5, 0));
    EXPECT_EQ((Outcome{0, 0}), receivePulseNow(own.chid, pulse));
    EXPECT_EQ(5, pulse.code);
    MsgReply(receiveSoon(own.chid), 0, nullptr, 0);
    EXPECT_EQ((Outcome{0, 0}), sender.get());
}

TEST(Pulse, ReceiversSleepWhileAMessageWaits) {
    OwnChannel own;
    std::vector<std::thread> receivers;
    for (int i = 0; i < 2; ++i)
        receivers.emplace_back([&] {
            _pulse pulse;
            EXPECT_EQ(0, MsgReceivePulse(own.chid, &pulse, sizeof pulse, nullptr));
        });
    std::this_thread::sleep_for(20ms);
    auto sender = sendNothingElsewhere(own.coid);
    timespec before, after;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &before);
    std::this_thread::sleep_for(200ms);
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &after);
    const auto usedNs = (after.tv_sec - before.tv_sec) * 1'000'000'000ll + (after.tv_nsec - before.tv_nsec);
    EXPECT_LT(usedNs, 100 * static_cast<long long>(kMs));
    MsgSendPulse(own.coid, 1, 0, 0);
    MsgSendPulse(own.coid, 1, 0, 0);
    for (std::thread& receiver : receivers)
        receiver.join();
    MsgReply(receiveSoon(own.chid), 0, nullptr, 0);
    EXPECT_EQ((Outcome{0, 0}), sender.get());
}

TEST(Pulse, IsLostInABufferThatIsTooSmall) {
    OwnChannel own;
    ASSERT_EQ(0, MsgSendPulse(own.coid, 10, 1, 0));
    _pulse pulse;
    EXPECT_EQ((Outcome{-1, EFAULT}), receiveNow(own.chid, &pulse, sizeof pulse - 1));
    EXPECT_EQ(kTimedOut, receivePulseNow(own.chid, pulse));
}

TEST(Pulse, OfAnUnknownPriorityIsRefused) {
    OwnChannel own;
    EXPECT_EQ((Outcome{-1, EINVAL}), outcomeOf([&] { return MsgSendPulse(own.coid, 64, 1, 0); }));
    EXPECT_EQ((Outcome{-1, EBADF}), outcomeOf([&] { return MsgSendPulse(own.coid + 1, 10, 1, 0); }));
}

// A receiver of pulses and one of messages sleep on one channel: whoever is woken, the right one gets it.
TEST(Pulse, AndMessagesEachFindTheirReceiver) {
    OwnChannel own;
    std::thread pulses([&] {
        for (int i = 0; i < 300; ++i) {
            _pulse pulse;
            armFor(_NTO_TIMEOUT_RECEIVE, 20 * host::kNsPerSecond);
            ASSERT_EQ(0, MsgReceivePulse(own.chid, &pulse, sizeof pulse, nullptr)) << i;
        }
    });
    std::thread messages([&] {
        for (int i = 0; i < 300; ++i) {
            char bytes[sizeof(_pulse)];
            const int id = receiveSoon(own.chid, bytes, sizeof bytes);
            if (id == 0) {  // a pulse that was meant for the other
                ASSERT_EQ(0, MsgSendPulse(own.coid, 10, 1, 1));
                --i;
                std::this_thread::yield();
                continue;
            }
            ASSERT_EQ(0, MsgReply(id, 0, nullptr, 0));
        }
    });
    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ(0, MsgSend(own.coid, nullptr, 0, nullptr, 0));
        ASSERT_EQ(0, MsgSendPulse(own.coid, 10, 1, 1));
    }
    messages.join();
    pulses.join();
}

// ---- time-outs

TEST(MessageTimeout, EndsAReceiveAndIsNotEarly) {
    OwnChannel own;
    for (const uint64_t wait : {kMs, 7 * kMs, 20 * kMs + 1}) {
        const uint64_t begin = monotonicNs();
        armFor(_NTO_TIMEOUT_RECEIVE, wait);
        EXPECT_EQ(kTimedOut, outcomeOf([&] { return MsgReceive(own.chid, nullptr, 0, nullptr); }));
        EXPECT_GE(monotonicNs() - begin, wait);
        _pulse pulse;
        const uint64_t again = monotonicNs();
        armFor(_NTO_TIMEOUT_RECEIVE, wait);
        EXPECT_EQ(kTimedOut, outcomeOf([&] { return MsgReceivePulse(own.chid, &pulse, sizeof pulse, nullptr); }));
        EXPECT_GE(monotonicNs() - again, wait);
    }
}

TEST(MessageTimeout, TakesWhatIsThereAlthoughItHasPassed) {
    OwnChannel own;
    ASSERT_EQ(0, MsgSendPulse(own.coid, 10, 1, 0));
    _pulse pulse;
    EXPECT_EQ(0, receivePulseNow(own.chid, pulse).result);
    const uint64_t past = 1;
    ASSERT_EQ(0, MsgSendPulse(own.coid, 10, 1, 0));
    ASSERT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, _NTO_TIMEOUT_RECEIVE | TIMER_ABSTIME, nullptr, &past, nullptr));
    EXPECT_EQ(0, MsgReceivePulse(own.chid, &pulse, sizeof pulse, nullptr));
}

TEST(MessageTimeout, OfTheSendStateEndsTheWaitForAReceiver) {
    OwnChannel own;
    expectTimeOutToEndSending(own.coid);
    EXPECT_EQ(kTimedOut, receiveNow(own.chid)) << "the messages have left the queue";
}

/// A sender under a time-out, and what it came to; the server receives after `untilReceived` and replies later.
Outcome sendUnder(int states, std::chrono::milliseconds untilReceived, std::chrono::milliseconds untilReplied) {
    OwnChannel own;
    std::thread server([&] {
        std::this_thread::sleep_for(untilReceived);
        armFor(_NTO_TIMEOUT_RECEIVE, 250 * kMs);
        const int id = MsgReceive(own.chid, nullptr, 0, nullptr);
        if (id == -1)
            return;
        std::this_thread::sleep_for(untilReplied);
        MsgReply(id, 9, nullptr, 0);
    });
    armFor(states, 150 * kMs);
    const Outcome outcome = sendNothing(own.coid);
    server.join();
    return outcome;
}

TEST(MessageTimeout, CoversTheStatesThatItNamesAndNoOther) {
    EXPECT_EQ((Outcome{9, 0}), sendUnder(_NTO_TIMEOUT_SEND, 5ms, 250ms));
    EXPECT_EQ((Outcome{9, 0}), sendUnder(_NTO_TIMEOUT_RECEIVE, 160ms, 10ms));
    EXPECT_EQ(kTimedOut, sendUnder(_NTO_TIMEOUT_REPLY, 5ms, 250ms));
    EXPECT_EQ(kTimedOut, sendUnder(_NTO_TIMEOUT_REPLY, 250ms, 250ms));
    EXPECT_EQ(kTimedOut, sendUnder(_NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY, 5ms, 250ms));
}

TEST(MessageTimeout, OfTheSendStateAloneLetsAWaitingReceiverTakeTheMessage) {
    OwnChannel own;
    std::thread server([&] { MsgReply(receiveSoon(own.chid), 3, nullptr, 0); });
    Outcome outcome = kTimedOut;
    for (int i = 0; i < 1000 && outcome == kTimedOut; ++i) {  // until the receiver waits
        std::this_thread::sleep_for(5ms);
        armNow(_NTO_TIMEOUT_SEND);
        outcome = sendNothing(own.coid);
    }
    EXPECT_EQ((Outcome{3, 0}), outcome);
    server.join();
}

TEST(MessageTimeout, OfTheSendStateAloneDoesNotMatterWhereAReceiverWaits) {
    OwnChannel own;
    std::thread server([&] {
        for (int id; (id = receiveSoon(own.chid)) > 0;)
            MsgReply(id, 3, nullptr, 0);
    });
    for (int i = 0; i < 30; ++i) {
        waitUntilOthersSleep();
        if (i % 2 == 0)
            armFor(_NTO_TIMEOUT_SEND, 1000);
        else
            armAtPast(_NTO_TIMEOUT_SEND);
        EXPECT_EQ((Outcome{3, 0}), sendNothing(own.coid));
    }
    MsgSendPulse(own.coid, 1, 0, 0);
    server.join();
}

TEST(MessageTimeout, OfTheSendStateAloneEndsASendToReceiversOfPulses) {
    OwnChannel own;
    std::thread server([&] {
        _pulse pulse;
        armFor(_NTO_TIMEOUT_RECEIVE, 20000 * kMs);
        EXPECT_EQ(0, MsgReceivePulse(own.chid, &pulse, sizeof pulse, nullptr));
    });
    waitUntilOthersSleep();
    const uint64_t begin = monotonicNs();
    armNow(_NTO_TIMEOUT_SEND);
    EXPECT_EQ(kTimedOut, sendNothing(own.coid));
    EXPECT_LT(monotonicNs() - begin, 900 * kMs) << "nobody who wakes up takes it";
    MsgSendPulse(own.coid, 1, 0, 0);
    server.join();
}

TEST(MessageTimeout, IsConsumedByTheNextCallWhateverItIs) {
    OwnChannel own;
    const std::function<void()> calls[] = {
        [&] { MsgSendPulse(own.coid, 1, 1, 1); },
        [&] { MsgReply(1, 0, nullptr, 0); },
        [&] { MsgRead(1, nullptr, 0, 0); },
        [&] { ConnectDetach(ConnectAttach(0, 0, own.chid, _NTO_SIDE_CHANNEL, 0)); },
        [&] { ChannelDestroy(ChannelCreate(0)); },
        [&] { ConnectDetach(1); },
        [&] { ChannelDestroy(1000); },
        [] {
            struct statvfs status;
            statvfs("/", &status);
        },
    };
    for (const auto& call : calls) {
        auto sender = std::async(std::launch::async, [&] {
            armFor(_NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY, 1);
            call();
            return sendNothing(own.coid);
        });
        std::this_thread::sleep_for(20ms);
        char bytes[sizeof(_pulse)];
        int id;
        while ((id = receiveSoon(own.chid, bytes, sizeof bytes)) == 0) {
        }
        EXPECT_EQ(0, MsgReply(id, 0, nullptr, 0));
        EXPECT_EQ((Outcome{0, 0}), sender.get());
    }
}

// It is also gone when the call did not have to wait: the next one of its kind waits as long as it takes.

/// A receive that another thread's pulse ends when this one sleeps.
Outcome receiveLater(const OwnChannel& own) {
    auto sent = whenAllSleep([&own] { EXPECT_EQ(0, MsgSendPulse(own.coid, 10, 1, 0)); });
    _pulse pulse;
    const Outcome outcome = outcomeOf([&] { return MsgReceivePulse(own.chid, &pulse, sizeof pulse, nullptr); });
    sent.get();
    receivePulseNow(own.chid, pulse);  // what a receive that did not wait has left
    return outcome;
}

TEST(MessageTimeout, IsGoneAfterAReceiveThatFoundAPulse) {
    OwnChannel own;
    _pulse pulse;
    ASSERT_EQ(0, MsgSendPulse(own.coid, 10, 1, 0));
    EXPECT_EQ((Outcome{0, 0}), receiveNow(own.chid, &pulse, sizeof pulse));
    EXPECT_EQ((Outcome{0, 0}), receiveLater(own));
    ASSERT_EQ(0, MsgSendPulse(own.coid, 10, 1, 0));
    EXPECT_EQ((Outcome{0, 0}), receivePulseNow(own.chid, pulse));
    EXPECT_EQ((Outcome{0, 0}), receiveLater(own));
}

TEST(MessageTimeout, IsGoneAfterAReceiveThatFoundAMessage) {
    OwnChannel own;
    auto sender = sendNothingElsewhere(own.coid);
    waitUntilOthersSleep();
    const int id = receiveNow(own.chid).result;
    EXPECT_GT(id, 0);
    EXPECT_EQ((Outcome{0, 0}), receiveLater(own));
    EXPECT_EQ(0, MsgReply(id, 0, nullptr, 0));
    EXPECT_EQ((Outcome{0, 0}), sender.get());
}

TEST(MessageTimeout, IsGoneAfterASendThatFoundAReceiver) {
    OwnChannel own;
    auto sender = std::async(std::launch::async, [&] {
        Outcome outcome = kTimedOut;
        while (outcome == kTimedOut) {  // until the receiver waits
            std::this_thread::sleep_for(5ms);
            armNow(_NTO_TIMEOUT_SEND);
            outcome = sendNothing(own.coid);
        }
        EXPECT_EQ((Outcome{1, 0}), outcome);
        return sendNothing(own.coid);
    });
    EXPECT_EQ(0, MsgReply(receiveSoon(own.chid), 1, nullptr, 0));
    waitUntilOthersSleep();
    EXPECT_EQ(0, MsgReply(receiveSoon(own.chid), 2, nullptr, 0));
    EXPECT_EQ((Outcome{2, 0}), sender.get());
}

TEST(MessageTimeout, IsGoneAfterASendThatWasRepliedToInTime) {
    OwnChannel own;
    std::atomic<uint64_t> deadline{0};
    auto sender = std::async(std::launch::async, [&] {
        Outcome outcome = kTimedOut;
        while (outcome == kTimedOut) {  // until it is in time, however busy the machine is
            const uint64_t soon = deadline = monotonicNs() + 50 * kMs;
            constexpr int kStates = _NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY;
            EXPECT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, kStates | TIMER_ABSTIME, nullptr, &soon, nullptr));
            outcome = sendNothing(own.coid);
        }
        EXPECT_EQ((Outcome{1, 0}), outcome);
        return sendNothing(own.coid);
    });
    int id;
    do
        id = receiveSoon(own.chid);
    while (id > 0 && MsgReply(id, 1, nullptr, 0) != 0);
    id = receiveSoon(own.chid);
    while (monotonicNs() < deadline + 20 * kMs)
        std::this_thread::sleep_for(5ms);
    waitUntilOthersSleep();
    EXPECT_EQ(0, MsgReply(id, 2, nullptr, 0));
    EXPECT_EQ((Outcome{2, 0}), sender.get());
}

TEST(MessageTimeout, IsGoneAfterWhatIsDoneWithAReceivedMessage) {
    OwnChannel own;
    char byte = 'x';
    const iovec part = {&byte, 1};
    const std::function<int(int)> calls[] = {
        [&](int id) { return MsgRead(id, &byte, 1, 0); },  [&](int id) { return MsgReadv(id, &part, 1, 0); },
        [&](int id) { return MsgWrite(id, &byte, 1, 0); }, [&](int id) { return MsgWritev(id, &part, 1, 0); },
        [&](int id) { return MsgReply(id, 0, &byte, 1); }, [&](int id) { return MsgReplyv(id, 0, &part, 1); },
        [&](int id) { return MsgError(id, EOK); },
    };
    for (const auto& call : calls) {
        auto sender = sendNothingElsewhere(own.coid);
        const int id = receiveSoon(own.chid);
        armNow(_NTO_TIMEOUT_RECEIVE);
        EXPECT_EQ(0, call(id));
        EXPECT_EQ((Outcome{0, 0}), receiveLater(own));
        MsgReply(id, 0, nullptr, 0);  // unless it was that
        EXPECT_EQ((Outcome{0, 0}), sender.get());
    }
}

// ---- giving up

void doNothing(int) {
}

/// The id of the thread that waits in `call`, which a signal may then interrupt.
struct Interruptible {
    explicit Interruptible(std::function<Outcome()> call)
        : outcome(std::async(std::launch::async, [this, call] {
              struct sigaction action = {};
              action.sa_handler = doNothing;
              sigaction(SIGUSR1, &action, nullptr);
              handle.set_value(pthread_self());
              return call();
          })) {}
    /// Signals until the call has ended.
    Outcome interrupt() {
        const pthread_t thread = handle.get_future().get();
        while (outcome.wait_for(5ms) != std::future_status::ready)
            pthread_kill(thread, SIGUSR1);
        return outcome.get();
    }
    std::promise<pthread_t> handle;
    std::future<Outcome> outcome;
};

constexpr Outcome kInterrupted = {-1, EINTR};

TEST(MessageSender, IsInterruptedWhileItWaitsForAReceiver) {
    OwnChannel own;
    Interruptible sender([&] { return sendNothing(own.coid); });
    EXPECT_EQ(kInterrupted, sender.interrupt());
    EXPECT_EQ(kTimedOut, receiveNow(own.chid));
}

TEST(MessageSender, IsInterruptedWhileItWaitsForTheReplyWhichThenGoesToNobody) {
    OwnChannel own;
    Interruptible sender([&] { return sendNothing(own.coid); });
    const int id = receiveSoon(own.chid);
    EXPECT_EQ(kInterrupted, sender.interrupt());
    EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return MsgReply(id, 0, nullptr, 0); }));
}

TEST(MessageReceiver, IsInterrupted) {
    OwnChannel own;
    Interruptible receiver([&] { return outcomeOf([&] { return MsgReceive(own.chid, nullptr, 0, nullptr); }); });
    EXPECT_EQ(kInterrupted, receiver.interrupt());
}

TEST(MessageUnblock, AsksTheReceiverAndWaitsForItsReply) {
    OwnChannel own(_NTO_CHF_UNBLOCK);
    auto sender = std::async(std::launch::async, [&] {
        armFor(_NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY, 10 * kMs);
        return sendNothing(own.coid);
    });
    const int id = receiveSoon(own.chid);
    _pulse pulse;
    ASSERT_EQ(0, receiveSoon(own.chid, &pulse, sizeof pulse));
    EXPECT_EQ(_PULSE_CODE_UNBLOCK, pulse.code);
    EXPECT_EQ(id, pulse.value.sival_int);
    EXPECT_EQ(std::future_status::timeout, sender.wait_for(20ms));
    EXPECT_EQ(kTimedOut, receiveNow(own.chid)) << "one pulse only";
    EXPECT_EQ(0, MsgError(id, EINTR));
    EXPECT_EQ(kInterrupted, sender.get());
}

TEST(MessageUnblock, AsksAfterASignalToo) {
    OwnChannel own(_NTO_CHF_UNBLOCK);
    Interruptible sender([&] { return sendNothing(own.coid); });
    const int id = receiveSoon(own.chid);
    const pthread_t thread = sender.handle.get_future().get();
    _pulse pulse = {};
    while (receivePulseNow(own.chid, pulse).result != 0) {
        pthread_kill(thread, SIGUSR1);
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_EQ(_PULSE_CODE_UNBLOCK, pulse.code);
    EXPECT_EQ(id, pulse.value.sival_int);
    pthread_kill(thread, SIGUSR1);
    EXPECT_EQ(std::future_status::timeout, sender.outcome.wait_for(20ms));
    EXPECT_EQ(0, MsgReply(id, 8, nullptr, 0));
    EXPECT_EQ((Outcome{8, 0}), sender.outcome.get());
}

TEST(MessageUnblock, IsNotAskedForWhatWasNotReceived) {
    OwnChannel own(_NTO_CHF_UNBLOCK);
    armFor(_NTO_TIMEOUT_SEND, 5 * kMs);
    EXPECT_EQ(kTimedOut, sendNothing(own.coid));
    EXPECT_EQ(kTimedOut, receiveNow(own.chid));
}

// ---- channels and connections

TEST(Channel, HasTheLowestFreeId) {
    const int first = ChannelCreate(0), second = ChannelCreate(0), third = ChannelCreate(0);
    EXPECT_EQ(first + 1, second);
    EXPECT_EQ(second + 1, third);
    ChannelDestroy(second);
    EXPECT_EQ(second, ChannelCreate(0));
    EXPECT_EQ(third + 1, ChannelCreate(0));
    for (int id = first; id <= third + 1; ++id)
        EXPECT_EQ(0, ChannelDestroy(id));
}

TEST(Channel, OfAnUnknownIdIsRefused) {
    EXPECT_EQ((Outcome{-1, EINVAL}), outcomeOf([] { return ChannelDestroy(77); }));
    EXPECT_EQ((Outcome{-1, EINVAL}), outcomeOf([] { return ChannelDestroy(0); }));
    EXPECT_EQ((Outcome{-1, EINVAL}), outcomeOf([] { return ChannelDestroy(-1); }));
    EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([] { return MsgReceive(77, nullptr, 0, nullptr); }));
    EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([] { return MsgReceivePulse(-5, nullptr, 0, nullptr); }));
    EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([] { return ConnectAttach(0, 0, 77, _NTO_SIDE_CHANNEL, 0); }));
    EXPECT_EQ((Outcome{-1, EINVAL}), outcomeOf([] { return ConnectAttach(1, 0, 1, _NTO_SIDE_CHANNEL, 0); }));
    EXPECT_EQ((Outcome{-1, EINVAL}), outcomeOf([] { return ConnectDetach(_NTO_SIDE_CHANNEL); }));
    EXPECT_EQ((Outcome{-1, EINVAL}), outcomeOf([] { return ConnectDetach(3); }));
    EXPECT_EQ((Outcome{-1, EBADF}), sendNothing(_NTO_SIDE_CHANNEL));
    EXPECT_EQ((Outcome{-1, EBADF}), sendNothing(-1));
}

TEST(Channel, WithFlagsThatTheHostLacksIsRefusedAloud) {
    testing::internal::CaptureStderr();
    EXPECT_EQ((Outcome{-1, ENOTSUP}), outcomeOf([] { return ChannelCreate(4); }));
    EXPECT_EQ("neutrino host: ChannelCreate with a flag other than FIXED_PRIORITY, UNBLOCK, DISCONNECT, SENDER_LEN "
              "and REPLY_LEN is not supported on Linux\n",
              testing::internal::GetCapturedStderr());
}

TEST(Channel, SaysWhichConnectionIsGoneWhenAskedTo) {
    OwnChannel own(_NTO_CHF_DISCONNECT);
    const int coid = ConnectAttach(0, 0, own.chid, _NTO_SIDE_CHANNEL, 0);
    EXPECT_NE(own.coid, coid);
    ASSERT_EQ(0, ConnectDetach(coid));
    _pulse pulse;
    ASSERT_EQ((Outcome{0, 0}), receivePulseNow(own.chid, pulse));
    EXPECT_EQ(_PULSE_CODE_DISCONNECT, pulse.code);
    EXPECT_EQ(coid, pulse.scoid);
}

TEST(Channel, ReleasesAllWhoWaitWhenItIsDestroyed) {
    const int chid = ChannelCreate(0);
    const int coid = ConnectAttach(0, 0, chid, _NTO_SIDE_CHANNEL, 0);
    auto answered = sendNothingElsewhere(coid);
    const int id = receiveSoon(chid);
    std::vector<std::future<Outcome>> waiting;
    waiting.push_back(std::async(
        std::launch::async, [=] { return outcomeOf([=] { return MsgReceivePulse(chid, nullptr, 0, nullptr); }); }));
    waiting.push_back(sendNothingElsewhere(coid));
    waiting.push_back(std::move(answered));
    waitUntilOthersSleep();
    EXPECT_EQ(0, ChannelDestroy(chid));
    for (auto& one : waiting)
        EXPECT_EQ((Outcome{-1, ESRCH}), one.get());
    EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return MsgReply(id, 0, nullptr, 0); }));
    EXPECT_EQ((Outcome{-1, EBADF}), sendNothing(coid));
    EXPECT_EQ((Outcome{-1, EBADF}), outcomeOf([&] { return MsgSendPulse(coid, 1, 1, 1); }));

    const int sameId = ChannelCreate(0);
    EXPECT_EQ(chid, sameId);
    EXPECT_EQ((Outcome{-1, EBADF}), sendNothing(coid)) << "a connection does not pass on to a new channel";
    EXPECT_EQ(0, ConnectDetach(coid));
    EXPECT_EQ(0, ChannelDestroy(sameId));
}

TEST(Connection, ReleasesItsSendersWhenItIsDetached) {
    OwnChannel own;
    const int coid = ConnectAttach(0, 0, own.chid, _NTO_SIDE_CHANNEL, 0);
    auto received = sendNothingElsewhere(coid);
    const int id = receiveSoon(own.chid);
    auto waiting = sendNothingElsewhere(coid);
    auto other = sendNothingElsewhere(own.coid);
    waitUntilOthersSleep();
    EXPECT_EQ(0, ConnectDetach(coid));
    EXPECT_EQ((Outcome{-1, EBADF}), received.get());
    EXPECT_EQ((Outcome{-1, EBADF}), waiting.get());
    EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return MsgReply(id, 0, nullptr, 0); }));
    MsgReply(receiveSoon(own.chid), 1, nullptr, 0);
    EXPECT_EQ((Outcome{1, 0}), other.get());
}

/// What the last calls had there.
[[gnu::noinline]] void overwriteStack() {
    volatile char frame[16384];
    for (int i = 0; i < 20; ++i)
        std::fill(std::begin(frame), std::end(frame), 'A');
}

TEST(Connection, AndItsChannelMayGoWhileAReceiverCopies) {
    if (!hasTwoProcessors())
        GTEST_SKIP() << "what is lent to a receiver is lent to another processor";
    std::vector<char> sent(1 << 20), received(1 << 20);
    std::mt19937 random(7);
    for (int round = 0; round < support::roundsHere(1500); ++round) {
        const int chid = ChannelCreate(0);
        const int coid = ConnectAttach(0, 0, chid, _NTO_SIDE_CHANNEL, 0);
        constexpr int kShort = 8;
        std::thread receiver([&] {
            const OnProcessor one(1);
            for (int i = 0; i < kShort; ++i)
                MsgReply(MsgReceive(chid, nullptr, 0, nullptr), 0, nullptr, 0);
            MsgReceive(chid, received.data(), static_cast<int>(received.size()), nullptr);
        });
        std::atomic<bool> isAboutToSend{false};
        std::thread sender([&] {
            const OnProcessor one(0);
            for (int i = 0; i < kShort; ++i)
                MsgSend(coid, nullptr, 0, nullptr, 0);
            isAboutToSend = true;
            MsgSend(coid, sent.data(), static_cast<int>(sent.size()), nullptr, 0);
            overwriteStack();
        });
        while (!isAboutToSend)
            std::this_thread::yield();
        for (volatile unsigned moment = random() % 30000; moment > 0;)
            moment = moment - 1;
        EXPECT_EQ(0, ConnectDetach(coid));
        EXPECT_EQ(0, ChannelDestroy(chid));
        sender.join();
        receiver.join();
    }
}

TEST(ChannelInChild, IsNotThereAndTheParentsGoesOn) {
    OwnChannel own;
    ASSERT_EQ(0, MsgSendPulse(own.coid, 10, 1, 0));
    auto sender = sendNothingElsewhere(own.coid);
    std::this_thread::sleep_for(20ms);
    const auto child = support::runInChild([&] {
        EXPECT_EQ((Outcome{-1, EBADF}), sendNothing(own.coid));
        EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return MsgReceive(own.chid, nullptr, 0, nullptr); }));
        OwnChannel childs;
        EXPECT_EQ(own.chid, childs.chid);
        ASSERT_EQ(0, MsgSendPulse(childs.coid, 10, 2, 0));
        EXPECT_THAT(codesOf(childs.chid), ElementsAre(2));
    });
    EXPECT_TRUE(child.exitedWith(0)) << child;
    EXPECT_THAT(codesOf(own.chid), ElementsAre(1));
    MsgReply(receiveSoon(own.chid), 3, nullptr, 0);
    EXPECT_EQ((Outcome{3, 0}), sender.get());
}

TEST(ChannelInChild, IsNotThereWhenTheForkHadBegunBeforeTheFirst) {
    static std::unique_ptr<OwnChannel> own;
    pthread_atfork(
        [] {
            if (own == nullptr)
                own = std::make_unique<OwnChannel>();
        },
        nullptr, nullptr);
    const auto child = support::runInChild([] {
        EXPECT_EQ((Outcome{-1, EBADF}), sendNothing(own->coid));
        const OwnChannel childs;
        EXPECT_EQ(own->chid, childs.chid);
    });
    EXPECT_TRUE(child.exitedWith(0)) << child;
    own.reset();
}

TEST(ChannelInChild, LeavesTheParentsArmedTimeoutAlone) {
    OwnChannel own;
    armNow(_NTO_TIMEOUT_RECEIVE);
    if (const pid_t child = fork(); child == 0)
        _exit(0);
    EXPECT_EQ(kTimedOut, outcomeOf([&] { return MsgReceive(own.chid, nullptr, 0, nullptr); }));
}

TEST(ChannelInChild, WorksWhileOtherThreadsSend) {
    OwnChannel own;
    std::atomic<bool> stop{false};
    std::thread server([&] {
        for (int id; (id = receiveSoon(own.chid)) > 0;)
            MsgReply(id, 0, nullptr, 0);
    });
    std::thread client([&] {
        while (!stop)
            ASSERT_EQ(0, MsgSend(own.coid, nullptr, 0, nullptr, 0));
    });
    for (int i = 0; i < 20; ++i) {
        const auto child = support::runInChild([&] {
            OwnChannel childs;
            EXPECT_EQ(0, MsgSendPulse(childs.coid, 10, 2, 0));
            _pulse pulse;
            EXPECT_EQ(0, receivePulseNow(childs.chid, pulse).result);
        });
        ASSERT_TRUE(child.exitedWith(0)) << child;
    }
    stop = true;
    client.join();
    MsgSendPulse(own.coid, 1, 1, 1);
    server.join();
}

}  // namespace
