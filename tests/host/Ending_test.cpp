// Concerns: threads that ThreadDestroy ends in a call, at any moment: what they leave to others.
#include "MessageTesting.h"
#include "OnProcessor.h"

#include "support/Sanitizers.h"

#include <atomic>
#include <csignal>
#include <pthread.h>
#include <random>
#include <sys/wait.h>

namespace {

using namespace std::chrono_literals;

constexpr uint64_t kMs = 1000000;

/// A thread that ends only when it is told to, or with its function.
class Doomed {
public:
    explicit Doomed(std::function<void()> work) : mWork(std::move(work)) {
        mId = ThreadCreate(
            0,
            [](void* self) -> void* {
                static_cast<Doomed*>(self)->mWork();
                return nullptr;
            },
            this, nullptr);
    }
    ~Doomed() {
        if (!mIsJoined)
            end();
    }
    Doomed(const Doomed&) = delete;
    Doomed& operator=(const Doomed&) = delete;

    int id() const { return mId; }
    void destroy() const { EXPECT_EQ(0, ThreadDestroy(mId, -1, nullptr)); }
    /// EOK, unless it does not end.
    int join() {
        mIsJoined = true;
        armFor(_NTO_TIMEOUT_JOIN, 60 * host::kNsPerSecond);
        return ThreadJoin_r(mId, nullptr);
    }
    void end() {
        destroy();
        EXPECT_EQ(EOK, join());
    }

private:
    const std::function<void()> mWork;
    int mId;
    bool mIsJoined = false;
};

/// A moment that a thread which was just started may be anywhere at.
void waitForAnyMoment(std::mt19937& random) {
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 300));
}

/// Without memory from the heap: nobody gives back the heap's lock for who is ended in there.
template <class Step>
void forEver(const Step& step) {
    for (;;)
        step();
}

/// A server of another process, and with it a thread that watches over the connection to it. It answers who sends
/// something, and leaves those waiting who send nothing.
class Elsewhere {
public:
    Elsewhere() {
        int ends[2];
        EXPECT_EQ(0, pipe(ends));
        mPid = fork();
        if (mPid == 0)
            serve(ends[1]);
        int chid = 0;
        EXPECT_EQ(static_cast<ssize_t>(sizeof chid), read(ends[0], &chid, sizeof chid));
        close(ends[0]);
        close(ends[1]);
        coid = ConnectAttach(0, mPid, chid, _NTO_SIDE_CHANNEL, 0);
        EXPECT_GE(coid, _NTO_SIDE_CHANNEL);
    }
    ~Elsewhere() {
        ConnectDetach(coid);
        kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
    }
    Elsewhere(const Elsewhere&) = delete;
    Elsewhere& operator=(const Elsewhere&) = delete;

    int coid;

private:
    [[noreturn]] static void serve(int output) {
        const int chid = ChannelCreate(0);
        if (write(output, &chid, sizeof chid) != sizeof chid)
            _exit(1);
        _msg_info info;
        forEver([&] {
            const int id = MsgReceive(chid, nullptr, 0, &info);
            if (id > 0 && info.srcmsglen != 0)
                MsgReply(id, 0, nullptr, 0);
        });
        _exit(2);
    }

    pid_t mPid;
};

struct SLengths {
    int request, reply;
};

class EndingServer : public testing::TestWithParam<SLengths> {};
INSTANTIATE_TEST_SUITE_P(Of, EndingServer,
                         testing::Values(SLengths{0, 0}, SLengths{100, 5000}, SLengths{65536, 0},
                                         SLengths{300000, 300000}),
                         [](const auto& lengths) {
                             return std::to_string(lengths.param.request) + "To" +
                                    std::to_string(lengths.param.reply);
                         });

// Whatever a server thread is ended in, its successor answers, and senders keep their time-outs.
TEST_P(EndingServer, LeavesTheChannelToItsSuccessor) {
    NEEDS_THREADS_THAT_VANISH();
    const int chid = ChannelCreate(0);
    const int coid = ConnectAttach(0, 0, chid, _NTO_SIDE_CHANNEL, 0);
    const SLengths lengths = GetParam();
    const std::string request(static_cast<std::size_t>(lengths.request), 'q');
    const std::string answer(static_cast<std::size_t>(lengths.reply), 'a');
    const auto send = [&](std::string& reply, uint64_t limitNs) {
        armFor(_NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY, limitNs);
        return outcomeOf([&] {
            return MsgSend(coid, request.data(), lengths.request, &reply[0], static_cast<int>(reply.size()));
        });
    };
    std::string got(answer), room(answer), into(request);
    const auto serve = [&] {
        forEver([&] {
            const int id = MsgReceive(chid, &into[0], lengths.request, nullptr);
            if (id > 0)
                MsgReply(id, 0, answer.data(), lengths.reply);
        });
    };
    Doomed client([&] {
        while (send(room, 5 * kMs).error != EBADF) {
        }
    });
    std::mt19937 random(1);
    for (int round = 0; round < 150; ++round) {
        Doomed server(serve);
        waitForAnyMoment(random);
        server.end();
        Doomed successor(serve);
        got.assign(got.size(), '-');
        ASSERT_EQ((Outcome{0, 0}), send(got, 60 * host::kNsPerSecond)) << round;
        ASSERT_EQ(answer, got) << round;
        successor.end();
    }
    EXPECT_EQ(0, ConnectDetach(coid));
    EXPECT_EQ(0, ChannelDestroy(chid));
    EXPECT_EQ(EOK, client.join());
}

// The same with a sender of another process, whose receivers look at a word that it sees.
TEST(EndingServer, LeavesTheChannelOfAnotherProcessToItsSuccessor) {
    NEEDS_THREADS_THAT_VANISH();
    int down[2], up[2];
    ASSERT_EQ(0, pipe(down));
    ASSERT_EQ(0, pipe(up));
    const pid_t client = fork();
    if (client == 0) {
        const OnProcessor here(0);
        int chid = 0, coid = -1;
        for (int count; read(down[0], &count, sizeof count) == sizeof count;) {
            if (chid == 0)
                coid = ConnectAttach(0, getppid(), chid = count, _NTO_SIDE_CHANNEL, 0);
            for (int i = 0; chid != count && i < count; ++i)
                MsgSend(coid, nullptr, 0, nullptr, 0);
            if (write(up[1], &count, sizeof count) != sizeof count)
                break;
        }
        _exit(0);
    }
    const auto have = [&](int count) {
        ASSERT_EQ(static_cast<ssize_t>(sizeof count), write(down[1], &count, sizeof count));
        ASSERT_EQ(static_cast<ssize_t>(sizeof count), read(up[0], &count, sizeof count));
    };
    const int chid = ChannelCreate(0);
    have(chid);
    const auto serve = [&] {
        const OnProcessor here(1);
        forEver([&] {
            const int id = MsgReceive(chid, nullptr, 0, nullptr);
            if (id > 0)
                MsgReply(id, 0, nullptr, 0);
        });
    };
    for (int round = 0; round < 6; ++round) {
        Doomed server(serve);
        have(300);  // so that it looks
        server.end();
        Doomed successor(serve);
        const uint64_t begin = host::nowNs(CLOCK_MONOTONIC);
        have(10);
        // Of receivers that look none is woken: then each of them would have to wait for a second.
        EXPECT_LT(host::nowNs(CLOCK_MONOTONIC) - begin, 7 * host::kNsPerSecond);
        successor.end();
    }
    EXPECT_EQ(0, ChannelDestroy(chid));
    kill(client, SIGKILL);
    waitpid(client, nullptr, 0);
}

TEST(EndingReceiver, LeavesAnArrivalToTheNext) {
    NEEDS_THREADS_THAT_VANISH();
    const Elsewhere elsewhere;  // without its watcher receivers look for themselves soon
    const OnProcessor one(0);
    OwnChannel own;
    for (int round = 0; round < 20; ++round) {
        std::atomic<int> taken{0};
        const auto receive = [&] {
            _pulse pulse;
            forEver([&] { taken += MsgReceivePulse(own.chid, &pulse, sizeof pulse, nullptr) == 0 ? 1 : 0; });
        };
        Doomed first(receive);
        waitUntilOthersSleep();
        Doomed second(receive);
        waitUntilOthersSleep();
        ASSERT_EQ(0, MsgSendPulse(own.coid, 10, 1, 0));
        first.end();
        for (int i = 0; i < 2000 && taken == 0; ++i)
            std::this_thread::sleep_for(1ms);
        _pulse pulse;
        ASSERT_EQ(kTimedOut, receivePulseNow(own.chid, pulse)) << "it lies in the queue, with a receiver asleep";
    }
}

TEST(EndingSender, OfPulsesHasCalledTheReceiver) {
    NEEDS_THREADS_THAT_VANISH();
    const Elsewhere elsewhere;
    OwnChannel own;
    std::atomic<int> marks{0};
    const Doomed receiver([&] {
        _pulse pulse;
        forEver([&] {
            const int result = MsgReceivePulse(own.chid, &pulse, sizeof pulse, nullptr);
            marks += result == 0 && pulse.code == 2 ? 1 : 0;
        });
    });
    std::mt19937 random(2);
    for (int round = 0; round < 3000 && !HasFailure(); ++round) {
        Doomed sender([&] {
            std::minstd_rand pauses(static_cast<unsigned>(round) + 1);
            forEver([&] {
                MsgSendPulse(own.coid, 10, 1, 0);
                for (volatile unsigned pause = pauses() % 3000; pause > 0; pause = pause - 1) {
                }
            });
        });
        std::this_thread::sleep_for(std::chrono::microseconds(100 + random() % 100));
        sender.end();
        ASSERT_EQ(0, MsgSendPulse(own.coid, 10, 2, 0));
        const uint64_t limit = host::nowNs(CLOCK_MONOTONIC) + 20 * host::kNsPerSecond;
        while (marks == round && host::nowNs(CLOCK_MONOTONIC) < limit)
            std::this_thread::yield();
        EXPECT_EQ(round + 1, marks) << "nobody receives";
    }
}

TEST(EndingSender, LeavesNoMessageBehind) {
    NEEDS_THREADS_THAT_VANISH();
    OwnChannel own;
    for (const bool isReceived : {false, true}) {
        Doomed sender([&] { sendNothing(own.coid); });
        const int id = isReceived ? receiveSoon(own.chid) : 0;
        waitUntilOthersSleep();
        sender.end();
        EXPECT_EQ(kTimedOut, receiveNow(own.chid));
        if (isReceived) {
            EXPECT_EQ((Outcome{-1, ESRCH}), outcomeOf([&] { return MsgReply(id, 0, nullptr, 0); }));
        }
    }
}

TEST(EndingSender, WaitsForItsReleaseWhereTheChannelIsToldOfIt) {
    NEEDS_THREADS_THAT_VANISH();
    OwnChannel own(_NTO_CHF_UNBLOCK);
    Doomed sender([&] { sendNothing(own.coid); });
    const int id = receiveSoon(own.chid);
    waitUntilOthersSleep();
    sender.destroy();
    _pulse pulse;
    ASSERT_EQ(0, receiveSoon(own.chid, &pulse, sizeof pulse));
    EXPECT_EQ(_PULSE_CODE_UNBLOCK, pulse.code);
    EXPECT_EQ(id, pulse.value.sival_int);
    armNow(_NTO_TIMEOUT_JOIN);
    EXPECT_EQ(ETIMEDOUT, ThreadJoin_r(sender.id(), nullptr));
    EXPECT_EQ(0, MsgReply(id, 0, nullptr, 0));
    EXPECT_EQ(EOK, sender.join());
}

TEST(EndingSender, GivesBackItsPlaceInAConnectionToAnotherProcess) {
    NEEDS_THREADS_THAT_VANISH();
    const Elsewhere elsewhere;
    std::mt19937 random(3);
    for (int round = 0; round < 200; ++round) {  // some times as many as there are places
        Doomed sender([&] { sendNothing(elsewhere.coid); });
        waitForAnyMoment(random);
        sender.end();
    }
    armFor(_NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY, 60 * host::kNsPerSecond);
    EXPECT_EQ(0, MsgSend(elsewhere.coid, "x", 1, nullptr, 0));
}

TEST(EndingThread, LeavesAMutexToTheNext) {
    NEEDS_THREADS_THAT_VANISH();
    const OnProcessor one(0);
    for (int round = 0; round < 20; ++round) {
        _sync mutex = {0, 0};
        const auto take = [&] {
            pthread_mutex_lock(&mutex);
            pthread_mutex_unlock(&mutex);
        };
        pthread_mutex_lock(&mutex);
        Doomed first(take);
        waitUntilOthersSleep();
        Doomed second(take);
        waitUntilOthersSleep();
        pthread_mutex_unlock(&mutex);
        ThreadDestroy(first.id(), -1, nullptr);
        EXPECT_EQ(EOK, first.join());
        if (mutex.__owner != 0 && second.id() != static_cast<int>(mutex.__owner & 0x3FFFFFFF))
            break;  // it had the mutex before the signal reached it: nothing to see on this busy machine
        ASSERT_EQ(EOK, second.join()) << round;
    }
}

TEST(EndingThread, LeavesASignalOfAConditionToTheNext) {
    NEEDS_THREADS_THAT_VANISH();
    const OnProcessor one(0);
    for (int round = 0; round < 20; ++round) {
        _sync mutex = {0, 0}, condition = {0, 0};
        std::atomic<bool> isFirstAwake{false};
        const auto wait = [&] {
            pthread_mutex_lock(&mutex);
            pthread_cond_wait(&condition, &mutex);
            pthread_mutex_unlock(&mutex);
        };
        Doomed first([&] {
            wait();
            isFirstAwake = true;
        });
        waitUntilOthersSleep();
        Doomed second(wait);
        waitUntilOthersSleep();
        pthread_cond_signal(&condition);
        ThreadDestroy(first.id(), -1, nullptr);
        EXPECT_EQ(EOK, first.join());
        if (isFirstAwake || mutex.__owner != 0)
            break;  // as above
        ASSERT_EQ(EOK, second.join()) << round;
        EXPECT_EQ(0, pthread_cond_destroy(&condition));
    }
}

TEST(EndingThread, LeavesAThreadThatItJoinsWithinATimeToOthers) {
    NEEDS_THREADS_THAT_VANISH();
    std::atomic<bool> mayEnd{false};
    Doomed target([&] {
        while (!mayEnd)
            std::this_thread::sleep_for(1ms);
    });
    Doomed joiner([&] {
        do
            armFor(_NTO_TIMEOUT_JOIN, 3600 * host::kNsPerSecond);
        while (ThreadJoin_r(target.id(), nullptr) == EBUSY);  // while the other one asks
    });
    armNow(_NTO_TIMEOUT_JOIN);
    while (ThreadJoin_r(target.id(), nullptr) != EBUSY)
        armNow(_NTO_TIMEOUT_JOIN);
    joiner.end();
    mayEnd = true;
    EXPECT_EQ(EOK, target.join());
}

pthread_key_t valueKey;
std::atomic<int> destroyedValues{0};

TEST(EndingThread, LeavesNoValuesOfItsKeysToTheNextOne) {
    NEEDS_THREADS_THAT_VANISH();
    ASSERT_EQ(0, pthread_key_create(&valueKey, [](void*) { ++destroyedValues; }));
    std::atomic<bool> hasValue{false};
    Doomed first([&] {
        pthread_setspecific(valueKey, &hasValue);
        hasValue = true;
        forEver([] { std::this_thread::sleep_for(1h); });
    });
    while (!hasValue)
        std::this_thread::yield();
    first.end();
    const void* found = &hasValue;
    Doomed second([&] { found = pthread_getspecific(valueKey); });
    EXPECT_EQ(EOK, second.join());
    EXPECT_EQ(nullptr, found);
    EXPECT_EQ(0, destroyedValues);
    pthread_key_delete(valueKey);
}

class EndingItself : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(In, EndingItself, testing::Values("AReceive", "ASend", "AMutex", "ACondition"),
                         [](const auto& call) { return std::string(call.param); });

// In the handler of a signal that interrupts a wait.
TEST_P(EndingItself, LeavesNothingBehind) {
    NEEDS_THREADS_THAT_VANISH();
    struct sigaction action = {};
    action.sa_handler = [](int) { ThreadDestroy(0, -1, nullptr); };
    sigaction(SIGUSR1, &action, nullptr);
    OwnChannel own;
    _sync mutex = {0, 0}, condition = {0, 0};
    pthread_mutex_lock(&mutex);
    Doomed thread([&] {
        _sync mine = {0, 0};
        pthread_mutex_lock(&mine);
        const std::string call = GetParam();
        if (call == "AReceive")
            MsgReceive(own.chid, nullptr, 0, nullptr);
        else if (call == "ASend")
            sendNothing(own.coid);
        else if (call == "AMutex")
            pthread_mutex_lock(&mutex);
        else
            pthread_cond_wait(&condition, &mine);
    });
    waitUntilOthersSleep();
    ASSERT_EQ(0, tgkill(getpid(), thread.id(), SIGUSR1));
    EXPECT_EQ(EOK, thread.join());
    EXPECT_EQ(kTimedOut, receiveNow(own.chid));
    EXPECT_EQ(0, pthread_cond_destroy(&condition));
    pthread_mutex_unlock(&mutex);
    ASSERT_EQ(0, MsgSendPulse(own.coid, 10, 1, 0));
    _pulse pulse;
    EXPECT_EQ(0, receivePulseNow(own.chid, pulse).result);
}

class ForkInAHandler : public testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(Within, ForkInAHandler, testing::Bool(), [](const auto& isOfThreads) {
    return std::string(isOfThreads.param ? "CallsOfThreads" : "CallsOfChannels");
});

// Of a call that holds a lock of the host's, too.
TEST_P(ForkInAHandler, DoesNotWaitForItsOwnThread) {
    NEEDS_THREADS_THAT_VANISH();
    static std::atomic<int> forks;
    forks = 0;
    struct sigaction action = {};
    action.sa_handler = [](int) {
        const pid_t child = fork();
        if (child == 0)
            _exit(0);
        forks += waitpid(child, nullptr, 0) == child ? 1 : 0;
    };
    sigaction(SIGUSR1, &action, nullptr);
    OwnChannel own;
    const auto callChannels = [&] {
        _pulse pulse;
        MsgSendPulse(own.coid, 10, 1, 0);
        MsgReceivePulse(own.chid, &pulse, sizeof pulse, nullptr);
    };
    callChannels();  // takes memory; the C library's own fork waits for its heap
    const bool isOfThreads = GetParam();
    std::atomic<bool> mayEnd{false};
    std::thread caller([&] {
        sched_param priority = {};
        while (!mayEnd) {
            if (isOfThreads)
                SchedGet(0, getpid(), &priority);
            else
                callChannels();
        }
    });
    if (isOfThreads) {
        sched_param priority = {};
        priority.sched_priority = 12;
        SchedSet(0, getpid(), SCHED_NOCHANGE, &priority);  // from here on others may have records, too
    }
    for (int i = 1; i <= 300; ++i) {
        ASSERT_EQ(0, pthread_kill(caller.native_handle(), SIGUSR1));
        while (forks < i)
            std::this_thread::sleep_for(100us);
    }
    mayEnd = true;
    caller.join();
}

}  // namespace
