// Concerns: threads that ThreadDestroy ends in a call, at any moment: what they leave to others.
#include "LogSocket.h"
#include "MessageOther.h"
#include "OnProcessor.h"

#include "support/Forker.h"
#include "support/Sanitizers.h"
#include "support/ScopedEnvironment.h"
#include "support/TemporaryFolder.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <pthread.h>
#include <random>
#include <semaphore.h>
#include <sys/resource.h>
#include <sys/slog.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

namespace {

using namespace std::chrono_literals;

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
    void destroy() {
        EXPECT_EQ(0, ThreadDestroy(mId, -1, nullptr));
        mIsDestroyed = true;
    }
    /// EOK, unless it does not end.
    int join() {
        mIsJoined = true;
        armFor(_NTO_TIMEOUT_JOIN, 60 * host::kNsPerSecond);
        return ThreadJoin_r(mId, nullptr);
    }
    void end() {
        if (!mIsDestroyed)
            destroy();
        EXPECT_EQ(EOK, join());
    }

private:
    const std::function<void()> mWork;
    int mId;
    bool mIsDestroyed = false;
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

/// Answers nothing to nothing, on that processor, until it is ended.
void answerAll(int chid, int processor) {
    const OnProcessor here(processor);
    forEver([chid] {
        const int id = MsgReceive(chid, nullptr, 0, nullptr);
        if (id > 0)
            MsgReply(id, 0, nullptr, 0);
    });
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
        EXPECT_EQ(static_cast<ssize_t>(sizeof mChid), read(ends[0], &mChid, sizeof mChid));
        close(ends[0]);
        close(ends[1]);
        coid = attach();
        EXPECT_GE(coid, _NTO_SIDE_CHANNEL);
    }
    ~Elsewhere() {
        ConnectDetach(coid);
        kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
    }
    Elsewhere(const Elsewhere&) = delete;
    Elsewhere& operator=(const Elsewhere&) = delete;

    int attach() const { return ConnectAttach(0, mPid, mChid, _NTO_SIDE_CHANNEL, 0); }

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
    int mChid = -1;
};

/// A process, on the first processor, that sends to a channel of this one.
class ClientElsewhere {
public:
    ClientElsewhere() {
        EXPECT_EQ(0, pipe(mDown));
        EXPECT_EQ(0, pipe(mUp));
        mPid = fork();
        if (mPid == 0)
            serve();
    }
    ~ClientElsewhere() {
        kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
        for (const int end : {mDown[0], mDown[1], mUp[0], mUp[1]})
            close(end);
    }
    ClientElsewhere(const ClientElsewhere&) = delete;
    ClientElsewhere& operator=(const ClientElsewhere&) = delete;

    void connect(int chid) { call({CONNECT, chid}); }
    void send(int messages) { call({SEND, messages}); }
    void sendPulse() { call({PULSE, 0}); }

private:
    enum EOrder { CONNECT, SEND, PULSE };
    struct SOrder {
        EOrder order;
        int value;
    };

    void call(SOrder order) {
        ASSERT_EQ(static_cast<ssize_t>(sizeof order), write(mDown[1], &order, sizeof order));
        ASSERT_EQ(static_cast<ssize_t>(sizeof order), read(mUp[0], &order, sizeof order));
    }
    [[noreturn]] void serve() const {
        const OnProcessor here(0);
        int coid = -1;
        for (SOrder order; read(mDown[0], &order, sizeof order) == sizeof order;) {
            if (order.order == CONNECT)
                coid = ConnectAttach(0, getppid(), order.value, _NTO_SIDE_CHANNEL, 0);
            else if (order.order == PULSE)
                MsgSendPulse(coid, 10, 1, 0);
            for (int i = 0; order.order == SEND && i < order.value; ++i)
                MsgSend(coid, nullptr, 0, nullptr, 0);
            if (write(mUp[1], &order, sizeof order) != sizeof order)
                break;
        }
        _exit(0);
    }

    int mDown[2], mUp[2];
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
    ClientElsewhere client;
    const int chid = ChannelCreate(0);
    client.connect(chid);
    const auto serve = [&] { answerAll(chid, 1); };
    for (int round = 0; round < 6; ++round) {
        Doomed server(serve);
        client.send(300);  // so that it looks
        server.end();
        Doomed successor(serve);
        const uint64_t begin = host::nowNs(CLOCK_MONOTONIC);
        client.send(10);
        // Of receivers that look none is woken: then each of them would have to wait for a second.
        EXPECT_LT(host::nowNs(CLOCK_MONOTONIC) - begin, 7 * host::kNsPerSecond);
        successor.end();
    }
    EXPECT_EQ(0, ChannelDestroy(chid));
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

// Nor is an arrival lost on it that it was only to collect from another process.
TEST(EndingReceiver, LeavesAnArrivalFromAnotherProcessToTheNext) {
    NEEDS_THREADS_THAT_VANISH();
    ClientElsewhere client;
    const OnProcessor other(1);
    const int chid = ChannelCreate(0);
    client.connect(chid);
    client.sendPulse();
    _pulse pulse;
    ASSERT_EQ(0, receiveSoon(chid, &pulse, sizeof pulse));
    uint64_t waitedNs = 0;
    constexpr int kRounds = 10;
    for (int round = 0; round < kRounds; ++round) {
        std::atomic<int> taken{0};
        const auto receive = [&] {
            setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), 19);  // the one that ends it runs before it does
            _pulse own;
            forEver([&] { taken += MsgReceivePulse(chid, &own, sizeof own, nullptr) == 0 ? 1 : 0; });
        };
        Doomed first(receive);
        waitUntilOthersSleep();
        Doomed second(receive);
        waitUntilOthersSleep();
        client.sendPulse();
        first.destroy();
        const uint64_t begin = host::nowNs(CLOCK_MONOTONIC);
        while (taken == 0 && host::nowNs(CLOCK_MONOTONIC) - begin < 2 * host::kNsPerSecond)
            std::this_thread::sleep_for(100us);
        waitedNs += host::nowNs(CLOCK_MONOTONIC) - begin;
    }
    // A receiver that nobody calls looks once a second.
    EXPECT_LT(waitedNs, kRounds * 300 * kMs);
    EXPECT_EQ(0, ChannelDestroy(chid));
}

TEST(EndingReceiver, LeavesAMessageThatItWasHandedToTheNext) {
    NEEDS_THREADS_THAT_VANISH();
    OwnChannel own;
    for (int round = 0; round < 300; ++round) {
        const auto serve = [&] { answerAll(own.chid, 0); };
        Doomed first(serve), second(serve);
        const OnProcessor here(1);
        for (int i = 0; i < 40; ++i)
            sendNothing(own.coid);
        (round % 2 == 0 ? first : second).destroy();
        // What it has received it may not have replied to; but nothing says that there is no receiver.
        for (int i = 0; i < 3; ++i) {
            armFor(_NTO_TIMEOUT_REPLY, 10 * kMs);
            const int result = MsgSend(own.coid, nullptr, 0, nullptr, 0);  // at once, while it still looks
            ASSERT_TRUE(result == 0 || errno == ETIMEDOUT) << errno;
        }
    }
}

std::atomic<bool> isHeldUp, mayGoOn;

/// Whoever gets the signal.
void holdUpOn(int signal) {
    struct sigaction action = {};
    action.sa_handler = [](int) {
        isHeldUp = true;
        while (!mayGoOn)
            usleep(50);
        isHeldUp = false;
    };
    sigaction(signal, &action, nullptr);
}

// A request for nobody: ThreadDestroy has come back before it is sent.
TEST(EndingReceiver, TakesNothingThatIsSentAfterIt) {
    NEEDS_THREADS_THAT_VANISH();
    holdUpOn(SIGUSR1);  // one that maybe holds the lock of the channels
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR2, &action, nullptr);
    OwnChannel own, other;
    std::atomic<bool> isOver{false};
    std::thread busy([&] {
        const OnProcessor there(1);
        for (_pulse pulse; !isOver;) {
            MsgSendPulse(other.coid, 10, 1, 0);
            MsgReceivePulse(other.chid, &pulse, sizeof pulse, nullptr);
        }
    });
    const auto serve = [&] { answerAll(own.chid, 0); };
    int rounds = 0;
    for (int tries = 0; tries < 500 && rounds < 20; ++tries) {
        isHeldUp = mayGoOn = false;
        Doomed server(serve);
        std::this_thread::sleep_for(1ms);
        ASSERT_EQ(0, pthread_kill(busy.native_handle(), SIGUSR1));
        while (!isHeldUp)
            std::this_thread::sleep_for(20us);
        tgkill(getpid(), server.id(), SIGUSR2);  // its wait is over, and it takes the lock, if that is free
        std::this_thread::sleep_for(2ms);
        server.destroy();
        std::this_thread::sleep_for(2ms);
        const bool waitsForTheLock = tgkill(getpid(), server.id(), 0) == 0;
        mayGoOn = true;
        if (waitsForTheLock) {
            ++rounds;
            auto sent = std::async(std::launch::async, [&] {
                armFor(_NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY, 20 * host::kNsPerSecond);
                return sendNothing(own.coid);
            });
            std::this_thread::sleep_for(5ms);
            Doomed successor(serve);
            EXPECT_EQ((Outcome{0, 0}), sent.get()) << "a successor receives";
        }
        ASSERT_EQ(EOK, server.join());
        while (isHeldUp)
            std::this_thread::sleep_for(20us);
    }
    isOver = true;
    busy.join();
    EXPECT_GT(rounds, 0);
}

// Of a message that was handed over, and not received, a sender that has asked for its release gets that.
TEST(EndingReceiver, ReleasesASenderThatHasAskedForIt) {
    NEEDS_THREADS_THAT_VANISH();
    holdUpOn(SIGUSR1);
    OwnChannel own(_NTO_CHF_UNBLOCK);
    for (int round = 0; round < 10; ++round) {
        isHeldUp = mayGoOn = false;
        Doomed server([&] { answerAll(own.chid, 0); });
        const OnProcessor here(1);
        for (int i = 0; i < 40; ++i)
            sendNothing(own.coid);  // so that it looks
        ASSERT_EQ(0, tgkill(getpid(), server.id(), SIGUSR1));
        while (!isHeldUp) {
        }
        std::atomic<bool> isBack{false};
        std::thread client([&] {
            armFor(_NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY, 20 * kMs);
            const Outcome outcome = sendNothing(own.coid);
            EXPECT_TRUE(outcome == kTimedOut || outcome == (Outcome{0, 0})) << outcome;
            isBack = true;
        });
        std::this_thread::sleep_for(60ms);
        server.destroy();
        mayGoOn = true;
        EXPECT_EQ(EOK, server.join());
        for (int i = 0; i < 2000 && !isBack; ++i)
            std::this_thread::sleep_for(1ms);
        EXPECT_TRUE(isBack) << "it has a time-out, and nobody has received its message";
        while (!isBack)
            if (const int id = receiveNow(own.chid).result; id > 0)
                MsgReply(id, 0, nullptr, 0);
        client.join();
        for (_pulse pulse; receivePulseNow(own.chid, pulse).result == 0;) {
        }
    }
}

TEST(EndingSender, OfPulsesHasCalledTheReceiver) {
    NEEDS_THREADS_THAT_VANISH();
    const Elsewhere elsewhere;
    OwnChannel own;
    std::atomic<int> marks{0};
    Doomed receiver([&] {
        _pulse pulse;
        forEver([&] {
            const int result = MsgReceivePulse(own.chid, &pulse, sizeof pulse, nullptr);
            marks += result == 0 && pulse.code == 2 ? 1 : 0;
        });
    });
    std::mt19937 random(2);
    for (int round = 0; round < 1500 && !HasFailure(); ++round) {
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

TEST(EndingSender, ThatWaitsForAPlaceInAConnectionLeavesNothingOfIt) {
    NEEDS_THREADS_THAT_VANISH();
    FullConnection full;
    Doomed sender([&] { sendNothing(full.coid); });
    waitUntilOthersSleep();
    sender.end();
    full.begin();
    full.expectOfAll({0, 0});
    EXPECT_EQ((Outcome{0, 0}), sendNothing(full.coid));
    constexpr int kDescriptors = 3;  // of a connection, one of them until nobody uses it
    const int before = openDescriptors(getpid());
    EXPECT_EQ(0, ConnectDetach(full.coid));
    EXPECT_EQ(before - kDescriptors, openDescriptors(getpid()));
}

/// A thread that sleeps until it is woken to take something. Who wakes it and ends it then, on the same processor, is
/// quicker than it as a rule.
class Woken {
public:
    /// `wait` says when it has what it was woken for.
    template <class Wait>
    explicit Woken(const Wait& wait)
        : mThread([this, wait] {
              const sched_param parameters = {};
              EXPECT_EQ(0, sched_setscheduler(0, SCHED_BATCH, &parameters));  // does not take over when it is woken
              wait(mHasIt);
          }) {
        waitUntilOthersSleep();
    }

    /// If it is still there.
    void destroy() { ThreadDestroy(mThread.id(), -1, nullptr); }
    int join() { return mThread.join(); }
    /// For one that was destroyed: it had not taken anything before, the mutex included.
    bool endedInTime(const _sync& mutex = {0, 0}) {
        EXPECT_EQ(EOK, join());
        return !mHasIt && static_cast<int>(ownerOf(mutex) & 0x3FFFFFFF) != mThread.id();
    }

private:
    std::atomic<bool> mHasIt{false};
    Doomed mThread;
};

/// How often is enough, and how often it is tried on a machine that has other things to do meanwhile.
constexpr int kTimesInTime = 10, kTries = 200;

/// Calls that make something, by which it is known: how many threads were ended before they knew it, and how many more
/// descriptors the process has afterwards.
struct SMade {
    int unknown = 0;
    long descriptors = 0;
};
SMade endMakers(const std::function<int()>& make, const std::function<void(int)>& destroy) {
    destroy(make());  // what the first one makes for good
    const long before = openDescriptors(getpid());
    std::minstd_rand random(4711);
    SMade made;
    for (int tries = 0; tries < 3000 && made.unknown < 50; ++tries) {
        std::atomic<int> id{-1};
        Doomed maker([&] {
            id = make();
            for (;;)
                pause();
        });
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 250));
        maker.end();
        if (id >= 0)
            destroy(id);
        else
            ++made.unknown;
    }
    made.descriptors = openDescriptors(getpid()) - before;
    return made;
}

// A thread may also end when the call is over and its result not yet stored: that is as on the target, and rare. Some
// of those ended had not come as far as the call.
TEST(EndingThread, LeavesNoConnectionThatNobodyKnows) {
    NEEDS_THREADS_THAT_VANISH();
    const Elsewhere server;
    const SMade made = endMakers([&] { return server.attach(); }, ConnectDetach);
    EXPECT_EQ(50, made.unknown);
    EXPECT_LE(made.descriptors, 3 * made.unknown / 10);
}

TEST(EndingThread, LeavesNoChannelThatNobodyKnows) {
    NEEDS_THREADS_THAT_VANISH();
    const SMade made = endMakers([] { return ChannelCreate(0); }, ChannelDestroy);
    EXPECT_EQ(50, made.unknown);
    EXPECT_LE(made.descriptors, made.unknown / 10);
}

TEST(EndingThread, LeavesAMutexToTheNext) {
    NEEDS_THREADS_THAT_VANISH();
    const OnProcessor one(0);
    int timesInTime = 0;
    for (int tries = 0; tries < kTries && timesInTime < kTimesInTime; ++tries) {
        _sync mutex = {0, 0};
        const auto take = [&mutex](std::atomic<bool>& hasIt) {
            pthread_mutex_lock(&mutex);
            hasIt = true;
            pthread_mutex_unlock(&mutex);
        };
        pthread_mutex_lock(&mutex);
        Woken first(take), second(take);
        pthread_mutex_unlock(&mutex);
        first.destroy();
        if (first.endedInTime(mutex))
            ++timesInTime;
        else
            second.destroy();
        ASSERT_EQ(EOK, second.join()) << tries;
    }
    EXPECT_EQ(kTimesInTime, timesInTime);
}

class EndingWaiter : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(Awoken, EndingWaiter, testing::Values("FromTheCondition", "OnItsWayToTheMutex"),
                         [](const auto& place) { return std::string(place.param); });

TEST_P(EndingWaiter, LeavesASignalOfAConditionToTheNext) {
    NEEDS_THREADS_THAT_VANISH();
    const OnProcessor one(0);
    const bool isMutexHeld = GetParam() == std::string("OnItsWayToTheMutex");
    int timesInTime = 0;
    for (int tries = 0; tries < kTries && timesInTime < kTimesInTime; ++tries) {
        _sync mutex = {0, 0}, condition = {0, 0};
        const auto wait = [&](std::atomic<bool>& hasIt) {
            pthread_mutex_lock(&mutex);
            pthread_cond_wait(&condition, &mutex);
            hasIt = true;
            pthread_mutex_unlock(&mutex);
        };
        Woken first(wait), second(wait);
        if (isMutexHeld)
            pthread_mutex_lock(&mutex);
        pthread_cond_signal(&condition);
        if (isMutexHeld)
            waitUntilOthersSleep();
        first.destroy();
        if (isMutexHeld) {
            waitUntilOthersSleep();
            pthread_mutex_unlock(&mutex);
        }
        if (first.endedInTime(mutex))
            ++timesInTime;
        else
            second.destroy();
        ASSERT_EQ(EOK, second.join()) << tries;
        EXPECT_EQ(0, pthread_cond_destroy(&condition));
    }
    EXPECT_EQ(kTimesInTime, timesInTime);
}

TEST(EndingThread, LeavesAPostOfASemaphoreToTheNext) {
    NEEDS_THREADS_THAT_VANISH();
    const OnProcessor one(0);
    int timesInTime = 0;
    for (int tries = 0; tries < kTries && timesInTime < kTimesInTime; ++tries) {
        sem_t semaphore;
        sem_init(&semaphore, 0, 0);
        const auto wait = [&](std::atomic<bool>& hasIt) {
            timespec deadline;
            clock_gettime(CLOCK_MONOTONIC, &deadline);
            deadline.tv_sec += 3600;
            EXPECT_EQ(0, sem_timedwait_monotonic(&semaphore, &deadline));
            hasIt = true;
        };
        Woken first(wait), second(wait);
        sem_post(&semaphore);
        first.destroy();
        if (first.endedInTime())
            ++timesInTime;
        else
            second.destroy();
        ASSERT_EQ(EOK, second.join()) << tries;
    }
    EXPECT_EQ(kTimesInTime, timesInTime);
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

/// Nobody reads it: it is full soon.
struct FullLog {
    const support::TemporaryFolder folder;
    const LogSocket socket{folder / "log"};
    const support::ScopedEnvironment variable{"NTO_SLOG", folder / "log"};
};

TEST(EndingThread, LeavesNoDescriptorsOfLogCalls) {
    NEEDS_THREADS_THAT_VANISH();
    const FullLog log;
    const int before = openDescriptors(getpid());
    std::mt19937 random(4);
    for (int round = 0; round < 100; ++round) {
        Doomed thread([] { forEver([] { slogb(1, _SLOG_INFO, nullptr, 0); }); });
        waitForAnyMoment(random);
        thread.end();
    }
    EXPECT_EQ(before, openDescriptors(getpid()));
}

// Nor takes it one of another thread's, where the C library gave it a number below 3.
TEST(EndingThread, ClosesItsOwnDescriptorInALogCall) {
    NEEDS_THREADS_THAT_VANISH();
    const FullLog log;
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    const int before = openDescriptors(getpid());
    for (int round = 0; round < 3; ++round) {
        Doomed thread([] { forEver([] { slogb(1, _SLOG_INFO, nullptr, 0); }); });
        waitUntilOthersSleep();
        const int mine = open("/dev/null", O_RDONLY);
        EXPECT_EQ(STDIN_FILENO, mine);
        thread.end();
        EXPECT_NE(-1, fcntl(mine, F_GETFD));
        close(mine);
    }
    EXPECT_EQ(before, openDescriptors(getpid()));
    dup2(input, STDIN_FILENO);
    close(input);
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

class EndingInAHandler : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(Of, EndingInAHandler, testing::Values("AReceive", "ASend", "AMutex", "ACondition"),
                         [](const auto& call) { return std::string(call.param); });

// In the handler of a signal that interrupts a wait.
TEST_P(EndingInAHandler, LeavesNothingBehind) {
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

TEST(EndingItself, MayInterruptACallOfThreads) {
    NEEDS_THREADS_THAT_VANISH();
    struct sigaction action = {};
    action.sa_handler = [](int) { ThreadDestroy(0, -1, nullptr); };
    sigaction(SIGUSR1, &action, nullptr);
    for (int round = 0; round < 300; ++round) {
        std::atomic<bool> isRunning{false};
        Doomed thread([&] {
            forEver([&] {
                sched_param parameters;
                SchedGet(0, 0, &parameters);
                isRunning = true;
            });
        });
        while (!isRunning)
            std::this_thread::yield();
        ASSERT_EQ(0, tgkill(getpid(), thread.id(), SIGUSR1));
        ASSERT_EQ(EOK, thread.join()) << round;
    }
}

// Before its function begins, too, where the signal was there before.
TEST(EndingItself, LeavesItsStatusToItsJoiner) {
    NEEDS_THREADS_THAT_VANISH();
    static char status;
    struct sigaction action = {};
    action.sa_handler = [](int) { ThreadDestroy(0, -1, &status); };
    sigaction(SIGUSR1, &action, nullptr);
    const OnProcessor one(0);
    for (int round = 0; round < 20; ++round) {
        const int id = ThreadCreate(
            0,
            [](void*) -> void* {
                for (;;)
                    pause();
            },
            nullptr, nullptr);
        ASSERT_EQ(0, tgkill(getpid(), id, SIGUSR1));
        std::this_thread::sleep_for(1ms);
        void* found = nullptr;
        armFor(_NTO_TIMEOUT_JOIN, 60 * host::kNsPerSecond);
        ASSERT_EQ(EOK, ThreadJoin_r(id, &found)) << round;
        EXPECT_EQ(&status, found);
    }
}

// In a handler that runs before it, too.
TEST(EndingThread, NeedsItsFunctionNotToHaveBegun) {
    NEEDS_THREADS_THAT_VANISH();
    struct sigaction action = {};
    action.sa_handler = [](int) { forEver([] { pause(); }); };
    sigaction(SIGUSR1, &action, nullptr);
    const OnProcessor one(0);
    for (int round = 0; round < 5; ++round) {
        Doomed thread([] { forEver([] { pause(); }); });
        ASSERT_EQ(0, tgkill(getpid(), thread.id(), SIGUSR1));
        waitUntilOthersSleep();
        thread.end();
    }
}

std::atomic<int> forksOfHandlers{0}, childrenWithoutInput{0};

/// In the thread that gets the signal.
void forkOnSignal(int signal) {
    forksOfHandlers = childrenWithoutInput = 0;
    struct sigaction action = {};
    action.sa_handler = [](int) {
        const pid_t child = fork();
        if (child == 0)
            _exit(fcntl(STDIN_FILENO, F_GETFD) == -1 ? 1 : 0);
        int status = 0;
        forksOfHandlers += waitpid(child, &status, 0) == child ? 1 : 0;
        childrenWithoutInput += status != 0 ? 1 : 0;
    };
    action.sa_flags = SA_RESTART;
    sigaction(signal, &action, nullptr);
}

class ForkInAHandlerOf : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(Within, ForkInAHandlerOf, testing::Values("Messages", "Threads", "Channels"),
                         [](const auto& calls) { return std::string(calls.param); });

void forkInHandlersOf(const std::string& calls, int times) {
    forkOnSignal(SIGUSR1);
    OwnChannel own;
    const auto sendPulse = [&] {
        _pulse pulse;
        MsgSendPulse(own.coid, 10, 1, 0);
        MsgReceivePulse(own.chid, &pulse, sizeof pulse, nullptr);
    };
    const std::function<void()> call = [&] {
        if (calls == "Messages") {
            sendPulse();
        } else if (calls == "Threads") {
            sched_param priority = {};
            SchedGet(0, getpid(), &priority);
        } else {
            ChannelDestroy(ChannelCreate(0));
        }
    };
    call();  // takes memory; the C library's own fork waits for its heap
    sendPulse();
    std::atomic<bool> mayEnd{false};
    std::thread caller([&] {
        while (!mayEnd)
            call();
    });
    if (calls == "Threads") {
        sched_param priority = {};
        priority.sched_priority = 12;
        SchedSet(0, getpid(), SCHED_NOCHANGE, &priority);  // from here on others may have records, too
    }
    std::mt19937 random(5);
    for (int i = 1; i <= times; ++i) {
        ASSERT_EQ(0, pthread_kill(caller.native_handle(), SIGUSR1));
        while (forksOfHandlers < i)
            std::this_thread::sleep_for(100us);
        waitForAnyMoment(random);
    }
    mayEnd = true;
    caller.join();
    EXPECT_EQ(0, childrenWithoutInput);
}

// Of a call that holds a lock of the host's, too: it does not wait for its own thread, and the child may exec.
TEST_P(ForkInAHandlerOf, ComesBack) {
    NEEDS_THREADS_THAT_VANISH();
    forkInHandlersOf(GetParam(), 300);
}

TEST_P(ForkInAHandlerOf, ComesBackWhileAnotherThreadForks) {
    NEEDS_THREADS_THAT_VANISH();
    const support::Forker forker;
    forkInHandlersOf(GetParam(), 100);
}

TEST_P(ForkInAHandlerOf, ComesBackWhileAnotherThreadSends) {
    NEEDS_THREADS_THAT_VANISH();
    OwnChannel own;
    std::atomic<bool> isOver{false};
    std::thread sender([&] {
        while (!isOver) {
            TimerTimeout(CLOCK_MONOTONIC, _NTO_TIMEOUT_SEND, nullptr, nullptr, nullptr);
            MsgSend(own.coid, nullptr, 0, nullptr, 0);
            ConnectDetach(ConnectAttach(0, 0, own.chid, _NTO_SIDE_CHANNEL, 0));
        }
    });
    forkInHandlersOf(GetParam(), 300);
    isOver = true;
    sender.join();
}

// Both at once, in calls that hold different locks.
TEST(ForkInHandlers, OfMessagesAndOfThreadsComeBack) {
    NEEDS_THREADS_THAT_VANISH();
    forkOnSignal(SIGUSR1);
    sched_param priority = {};
    priority.sched_priority = 12;
    SchedSet(0, getpid(), SCHED_NOCHANGE, &priority);
    OwnChannel own;
    std::atomic<bool> isOver{false};
    std::thread callers[] = {std::thread([&] {
                                 for (_pulse pulse; !isOver;) {
                                     MsgSendPulse(own.coid, 10, 1, 0);
                                     MsgReceivePulse(own.chid, &pulse, sizeof pulse, nullptr);
                                 }
                             }),
                             std::thread([&] {
                                 for (sched_param found; !isOver;)
                                     SchedGet(0, getpid(), &found);
                             })};
    std::this_thread::sleep_for(10ms);
    for (int i = 1; i <= 300; ++i) {
        for (std::thread& caller : callers)
            ASSERT_EQ(0, pthread_kill(caller.native_handle(), SIGUSR1));
        while (forksOfHandlers < 2 * i)
            std::this_thread::sleep_for(100us);
    }
    isOver = true;
    for (std::thread& caller : callers)
        caller.join();
}

}  // namespace
