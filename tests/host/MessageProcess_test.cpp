// Concerns: messages between processes: bytes and lengths, pieces, many clients and threads.
#include "Deadline.h"
#include "MessageOther.h"

#include "support/ChildProcess.h"

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstring>
#include <memory>
#include <random>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

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
