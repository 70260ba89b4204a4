// Concerns: what channels take of their process and leave to others: children, the thread that watches, descriptors.
#include "LinkSocket.h"
#include "LogSocket.h"
#include "MessageOther.h"

#include "file/Descriptors.h"
#include "shm/SharedName.h"
#include "support/ChildProcess.h"
#include "support/Sanitizers.h"
#include "support/ScopedEnvironment.h"
#include "support/TemporaryFolder.h"

#include <CVQFileHandle.h>
#include <VQSharedMemoryAccess.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <iterator>
#include <memory>
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

}  // namespace
