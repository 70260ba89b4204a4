// Concerns: messages between processes that end early: time-outs, giving up, the end of either side at any moment.
#include "Deadline.h"
#include "MessageOther.h"

#include "file/Descriptors.h"
#include "support/ChildProcess.h"
#include "support/Sanitizers.h"

#include <atomic>
#include <csignal>
#include <poll.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

TEST(MessageProcessTimeout, EndsEachStateThatItCovers) {
    OwnChannel own;
    support::ChildProcess other(client(own.chid, [](int coid) {
        expectTimeOutToEndSending(coid);
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

TEST(MessageProcessTimeout, EndsTheWaitForAPlaceInAConnection) {
    FullConnection full;
    expectTimeOutToEndSending(full.coid);
    full.begin();
    full.expectOfAll({0, 0});
    EXPECT_EQ((Outcome{0, 0}), sendNothing(full.coid));
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

TEST(MessageProcessSender, IsInterruptedWhileItWaitsForAPlaceInAConnection) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    FullConnection full;
    std::atomic<bool> isOver{false};
    std::thread sender([&] {
        EXPECT_EQ((Outcome{-1, EINTR}), sendNothing(full.coid));
        isOver = true;
    });
    while (!isOver) {
        pthread_kill(sender.native_handle(), SIGUSR1);
        std::this_thread::sleep_for(1ms);
    }
    sender.join();
    full.begin();
    full.expectOfAll({0, 0});
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

TEST(MessageProcessEnd, OfTheServerEndsTheWaitForAPlaceInAConnection) {
    FullConnection full;
    auto another = sendNothingElsewhere(full.coid);
    waitUntilOthersSleep();
    full.killServer();
    EXPECT_EQ((Outcome{-1, ESRCH}), another.get());
    full.expectOfAll({-1, ESRCH});
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

}  // namespace
