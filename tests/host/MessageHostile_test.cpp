// Concerns: a peer that does not keep to the rules: files that are none, garbage in lanes, rings and words, replays,
// silence. It loses its own connection at most; the channel goes on with the others.
#include "MessageTesting.h"

#include "Futex.h"
#include "LinkSocket.h"
#include "Segment.h"
#include "support/ChildProcess.h"

#include <climits>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <random>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using namespace host;

/// Plays a sender by hand. It runs in a process of its own, whose parent has the channel.
struct Hostile {
    explicit Hostile(int chid, off64_t size = kLinkSize) : file(makeSegment("hostile", size)) {
        Door door = {getppid(), chid, 0, 0};
        const int bell = openDoorbell(door);
        socket = connectTo(door);
        EXPECT_GE(socket, 0);
        EXPECT_GE(file, 0);
        page = static_cast<LinkPage*>(mapSegment(file, 0, kLinkPageSize));
        page->version = kSegmentVersion;
        doorbell = static_cast<Doorbell*>(mapSegment(bell, 0, static_cast<size_t>(kDoorbellSize)));
    }
    void connect() {
        EXPECT_TRUE(sendFile(socket, file));
        ring();
    }
    /// Its file several times, beside one byte or none.
    void sendFiles(size_t count, size_t bytes) const {
        constexpr size_t kMost = 4;
        char byte = 1;
        iovec part = {&byte, bytes};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * kMost)] = {};
        msghdr message = {};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(sizeof(int) * count);
        cmsghdr* const header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(sizeof(int) * count);
        const std::vector<int> files(count, file);
        std::memcpy(CMSG_DATA(header), files.data(), sizeof(int) * count);
        EXPECT_EQ(static_cast<ssize_t>(bytes), sendmsg(socket, &message, MSG_NOSIGNAL));
        ring();
    }
    void ring() const {
        __atomic_store_n(&doorbell->knock, 1u, __ATOMIC_SEQ_CST);
        __atomic_fetch_add(&doorbell->word, kArrival, __ATOMIC_SEQ_CST);
        futexWake(&doorbell->word, INT_MAX, Sharing::SHARED);
    }
    void sendLane(unsigned lane, uint32_t turn) const {
        __atomic_store_n(&page->lanes[lane].word, turn | LANE_SENT, __ATOMIC_SEQ_CST);
        __atomic_fetch_or(&page->ready[lane / 32], 1u << lane % 32, __ATOMIC_SEQ_CST);
        ring();
    }
    /// True when the other side hangs up soon.
    bool isCutOff() const {
        pollfd end = {socket, POLLIN, 0};
        return poll(&end, 1, 5000) == 1 && (end.revents & POLLHUP) != 0;
    }

    int socket = -1;
    int file;
    LinkPage* page;
    Doorbell* doorbell;
};

/// The first file of a process that has the name of a channel's doorbell; empty when there is none.
std::string fileOfDoorbell(pid_t process, int chid) {
    const std::string begin = "/memfd:nto-channel-" + std::to_string(process) + '-' + std::to_string(chid) + '-';
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        const std::string file = "/proc/" + std::to_string(process) + "/fd/" + std::to_string(descriptor);
        std::error_code error;
        if (std::filesystem::read_symlink(file, error).string().rfind(begin, 0) == 0)
            return file;
    }
    return {};
}

/// Under which it was made.
std::string nameOf(const std::string& file) {
    const std::string linked = std::filesystem::read_symlink(file).string();
    constexpr std::size_t kBefore = sizeof "/memfd:" - 1;
    return linked.substr(kBefore, linked.find(' ') - kBefore);
}

class MessageHostile : public testing::Test {
protected:
    void SetUp() override {
        if (!canStartThreadsInChildren())
            GTEST_SKIP() << "no threads in the children of a process that has some";
    }
    MessageHostile() : mServer([this] { serve(); }) {}
    ~MessageHostile() override {
        EXPECT_EQ(0, MsgSendPulse(mOwn.coid, 63, 77, 4711));
        mServer.join();
    }

    /// What the hostile process does, and afterwards an honest one is served as ever.
    void meet(const std::function<void(int chid)>& play) {
        waitUntilOthersSleep();  // who forks while another thread allocates may leave a sanitizer's heap locked
        const auto hostile = support::runInChild([&] { play(mOwn.chid); });
        EXPECT_TRUE(hostile.exitedWith(0)) << hostile;
        waitUntilOthersSleep();
        serveHonest();
    }
    void serveHonest() {
        const auto honest = support::runInChild([server = getpid(), chid = mOwn.chid] {
            const int coid = ConnectAttach(0, server, chid, _NTO_SIDE_CHANNEL, 0);
            std::string reply;
            EXPECT_EQ((Outcome{6, 0}), sendText(coid, "honest", reply));
            EXPECT_EQ("honest", reply);
        });
        EXPECT_TRUE(honest.exitedWith(0)) << honest;
    }

    OwnChannel mOwn;

private:
    void serve() const {
        for (;;) {
            char bytes[256];
            _msg_info info;
            const int id = receiveSoon(mOwn.chid, bytes, sizeof bytes, &info);
            _pulse pulse;
            std::memcpy(&pulse, bytes, sizeof pulse);
            if (id > 0) {
                EXPECT_LE(info.srcmsglen, static_cast<int>(kMaxLength));
                EXPECT_LE(info.priority, 63);
                EXPECT_GE(info.priority, 0);
                MsgReply(id, info.msglen, bytes, info.msglen);
            } else if (id < 0 || (pulse.code == 77 && pulse.value.sival_int == 4711 && pulse.scoid == mOwn.coid)) {
                return;
            }
        }
    }

    std::thread mServer;
};

TEST_F(MessageHostile, IsCutOffWhenItsFileIsNone) {
    meet([](int chid) {
        Hostile tooShort(chid, kLinkSize - 65536);
        tooShort.connect();
        EXPECT_TRUE(tooShort.isCutOff());
    });
    meet([](int chid) {
        Hostile unsealed(chid);
        unsealed.file = memfd_create("unsealed", MFD_ALLOW_SEALING);
        EXPECT_EQ(0, ftruncate64(unsealed.file, kLinkSize));
        unsealed.connect();
        EXPECT_TRUE(unsealed.isCutOff());
    });
    meet([](int chid) {
        Hostile device(chid);
        device.file = open("/dev/zero", O_RDWR);
        device.connect();
        EXPECT_TRUE(device.isCutOff());
    });
    meet([](int chid) {
        Hostile otherVersion(chid);
        otherVersion.page->version = 1;
        otherVersion.connect();
        EXPECT_TRUE(otherVersion.isCutOff());
    });
    meet([](int chid) {
        Hostile withoutFile(chid);
        withoutFile.ring();
        EXPECT_EQ(3, send(withoutFile.socket, "abc", 3, 0));
        EXPECT_TRUE(withoutFile.isCutOff());
    });
}

TEST_F(MessageHostile, LeavesNoDescriptorsBehindThatItHadNoBusinessToSend) {
    constexpr int kConnections = 20;  // far more than the descriptors of an honest one, which may not be closed yet
    serveHonest();
    const int before = openDescriptors(getpid());
    for (const auto& [count, bytes] : {std::pair<size_t, size_t>{2, 1}, {4, 1}, {1, 0}, {2, 0}}) {
        meet([count = count, bytes = bytes](int chid) {
            for (int i = 0; i < kConnections; ++i) {
                const Hostile sender(chid);
                sender.sendFiles(count, bytes);
                EXPECT_TRUE(sender.isCutOff());
            }
        });
        const auto end = std::chrono::steady_clock::now() + 20s;
        while (openDescriptors(getpid()) > before && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(5ms);
        ASSERT_LE(openDescriptors(getpid()), before) << count << " beside " << bytes << " bytes";
    }
}

TEST_F(MessageHostile, IsCutOffWhenItGoesOnTalking) {
    meet([](int chid) {
        Hostile talker(chid);
        talker.connect();
        EXPECT_TRUE(sendFile(talker.socket, talker.file));
        EXPECT_TRUE(talker.isCutOff());
    });
}

TEST_F(MessageHostile, IsCutOffForLengthsBeyondItsWindows) {
    for (const uint32_t length : {kMaxLength + 1, 0x80000000u, 0xffffffffu}) {
        meet([=](int chid) {
            Hostile liar(chid);
            liar.connect();
            liar.page->lanes[3].requestLength = length;
            liar.sendLane(3, kLaneTurn);
            EXPECT_TRUE(liar.isCutOff());
        });
        meet([=](int chid) {
            Hostile liar(chid);
            liar.connect();
            liar.page->lanes[63].replyRoom = length - kMaxLength + kMaxShort;  // a lane for short ones
            liar.sendLane(63, kLaneTurn);
            EXPECT_TRUE(liar.isCutOff());
        });
    }
}

TEST_F(MessageHostile, IsCutOffForBeginsFromWhichItsLengthsLeaveTheWindows) {
    for (const uint32_t begin : {kBeginBelow - 1, 0x80000001u, 0xffffffffu}) {
        meet([=](int chid) {
            Hostile liar(chid);
            liar.connect();
            liar.page->lanes[3].requestLength = kMaxLength;
            liar.page->lanes[3].requestBegin = begin;
            liar.sendLane(3, kLaneTurn);
            EXPECT_TRUE(liar.isCutOff());
        });
        meet([=](int chid) {
            Hostile liar(chid);
            liar.connect();
            liar.page->lanes[63].replyRoom = kMaxShort;
            liar.page->lanes[63].replyBegin = begin;
            liar.sendLane(63, kLaneTurn);
            EXPECT_TRUE(liar.isCutOff());
        });
    }
}

TEST_F(MessageHostile, IsCutOffForMorePulsesThanTheRingHolds) {
    meet([](int chid) {
        Hostile liar(chid);
        liar.connect();
        __atomic_store_n(&liar.page->pulsesWritten, kSharedPulses + 1, __ATOMIC_SEQ_CST);
        liar.ring();
        EXPECT_TRUE(liar.isCutOff());
    });
}

TEST_F(MessageHostile, MayClaimAnyPriorityTimeAndReader) {
    meet([](int chid) {
        Hostile liar(chid);
        liar.connect();
        Lane& lane = liar.page->lanes[0];
        for (const int32_t priority : {-1, INT_MIN, INT_MAX, 64}) {
            static uint32_t turn = 0;
            lane.priority = priority;
            lane.time = ~0ull;
            lane.requestLength = 5;
            lane.replyRoom = 5;
            liar.page->pulsesReceived = 12345;
            liar.sendLane(0, turn += kLaneTurn);
            for (int i = 0; i < 2000 && (__atomic_load_n(&lane.word, __ATOMIC_ACQUIRE) & 7) != LANE_REPLIED; ++i)
                std::this_thread::sleep_for(1ms);
            EXPECT_EQ(turn | LANE_REPLIED, lane.word);
            EXPECT_EQ(5, lane.status);
        }
    });
}

TEST_F(MessageHostile, MayReplayItsMessagesAtAnyMoment) {
    meet([](int chid) {
        Hostile replayer(chid);
        replayer.connect();
        for (unsigned i = 0; i < 20000; ++i) {
            replayer.page->lanes[i % kLanes].requestLength = i % 300;
            replayer.page->lanes[i % kLanes].replyRoom = 300;
            replayer.sendLane(i % kLanes, (i / 7 + 1) * kLaneTurn);
        }
    });
}

// Random bytes all over the page, again and again while the server looks, with time for it to cut the link off.
TEST_F(MessageHostile, MayWriteGarbageOverAllThatIsShared) {
    for (unsigned seed = 0; seed < 8; ++seed)
        meet([=](int chid) {
            std::mt19937 random(seed);
            Hostile madman(chid);
            madman.connect();
            uint32_t* const words = reinterpret_cast<uint32_t*>(madman.page);
            for (unsigned i = 0; i < 60000; ++i) {
                const size_t place = i % 2 == 0 ? random() % (sizeof(LinkPage) / 4) : 64 + random() % (64 * 32);
                const uint32_t value = i % 3 == 0 ? random() : random() % 300;
                __atomic_store_n(&words[place], value, __ATOMIC_RELAXED);
                if (i % 8 == 0)
                    madman.sendLane(random() % kLanes, random() % 64 * kLaneTurn);
                if (i % 64 == 0)
                    madman.ring();
            }
        });
}

TEST_F(MessageHostile, CannotShrinkItsFile) {
    meet([](int chid) {
        Hostile shrinker(chid);
        shrinker.connect();
        EXPECT_EQ(-1, ftruncate64(shrinker.file, 0));
        EXPECT_EQ(EPERM, errno);
        EXPECT_EQ(0, fallocate64(shrinker.file, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, kLinkSize));
        shrinker.page->lanes[0].requestLength = 100;
        shrinker.sendLane(0, kLaneTurn);
    });
}

/// True from the acceptance of a connection of this process on until its end: the server can tell whether this one ends.
bool isConnectedTo(pid_t server) {
    const std::string wanted = "Pid:\t" + std::to_string(getpid());
    for (const auto& descriptor :
         std::filesystem::directory_iterator("/proc/" + std::to_string(server) + "/fdinfo")) {
        std::ifstream info(descriptor.path());
        for (std::string line; std::getline(info, line);)
            if (line == wanted)
                return true;
    }
    return false;
}

// The server keeps a place for the file of a connection. Another thread may take it when it is given up for the file.
TEST_F(MessageHostile, WaitsWhenTheLastDescriptorIsTakenFromItsFile) {
    meet([](int chid) {
        const pid_t server = getppid();
        Hostile sender(chid);
        sender.ring();
        while (!isConnectedTo(server))
            std::this_thread::sleep_for(1ms);
        rlimit before;
        ASSERT_EQ(0, prlimit(server, RLIMIT_NOFILE, nullptr, &before));
        const rlimit none{3, before.rlim_max};
        ASSERT_EQ(0, prlimit(server, RLIMIT_NOFILE, &none, nullptr));
        std::this_thread::sleep_for(10ms);  // until it has looked for others that connect
        const int withPlace = openDescriptors(server);
        sender.connect();
        const Lane& lane = sender.page->lanes[0];
        sender.sendLane(0, kLaneTurn);
        while (openDescriptors(server) == withPlace)
            std::this_thread::sleep_for(1ms);
        EXPECT_EQ(0, prlimit(server, RLIMIT_NOFILE, &before, nullptr));
        for (int i = 0; i < 15000 && (load(lane.word) & kLaneState) != LANE_REPLIED; ++i)
            std::this_thread::sleep_for(1ms);
        EXPECT_EQ(kLaneTurn | LANE_REPLIED, lane.word);
        close(sender.socket);
        while (isConnectedTo(server))
            std::this_thread::sleep_for(1ms);
    });
}

// The doorbell is shared by all who send. Whatever is in it, the others' messages arrive.
TEST_F(MessageHostile, CannotSilenceOthersByTheDoorbell) {
    int ready[2];
    ASSERT_EQ(0, pipe(ready));
    support::ChildProcess vandal([&] {
        Hostile hostile(mOwn.chid);
        hostile.connect();
        EXPECT_EQ(1, write(ready[1], "r", 1));
        for (;;) {
            __atomic_store_n(&hostile.doorbell->word, 0u, __ATOMIC_SEQ_CST);
            __atomic_store_n(&hostile.doorbell->knock, 0u, __ATOMIC_SEQ_CST);
        }
    });
    char byte;
    ASSERT_EQ(1, read(ready[0], &byte, 1));
    serveHonest();
    vandal.send(SIGKILL);
    vandal.finish();
    // What it left in the doorbell silences nobody either.
    const uint64_t begin = monotonicNs();
    std::string reply;
    EXPECT_EQ((Outcome{5, 0}), sendText(mOwn.coid, "local", reply));
    EXPECT_LT(monotonicNs() - begin, 5000 * kMs);
    close(ready[0]);
    close(ready[1]);
}

// The kernel lets anybody who has a word move those who sleep on it to another one.
TEST_F(MessageHostile, CannotSilenceOthersByMovingTheirSleepers) {
    meet([](int chid) {
        Hostile mover(chid);
        mover.connect();
        static unsigned elsewhere = 0;
        long moved = 0;  // until the receiver sleeps on the doorbell, since somebody is connected
        for (int i = 0; i < 5000 && moved == 0; ++i) {
            std::this_thread::sleep_for(1ms);
            moved = syscall(SYS_futex, &mover.doorbell->word, FUTEX_REQUEUE, 0, INT_MAX, &elsewhere, 0);
        }
        EXPECT_EQ(1, moved);
    });
}

TEST_F(MessageHostile, DoesNotHideTheDoorbellBehindAFileOfItsOwn) {
    serveHonest();  // from here on somebody watches the doors
    std::vector<int> lower(8);
    for (int& descriptor : lower)
        descriptor = open("/dev/null", O_RDONLY);
    const OwnChannel own;
    for (const int descriptor : lower)
        close(descriptor);  // these numbers go to the next connection, and come before the doorbell's
    meet([chid = own.chid](int) {
        const pid_t server = getppid();
        Hostile liar(chid);
        const std::string before = fileOfDoorbell(server, chid);
        liar.file = makeSegment(nameOf(before).c_str(), kLinkSize);
        liar.page = static_cast<LinkPage*>(mapSegment(liar.file, 0, kLinkPageSize));
        liar.page->version = kSegmentVersion;
        liar.connect();
        for (int i = 0; i < 5000 && fileOfDoorbell(server, chid) == before; ++i)
            std::this_thread::sleep_for(1ms);
        EXPECT_NE(before, fileOfDoorbell(server, chid)) << "its file comes first";
        Door door = {server, chid, 0, 0};
        const int bell = openDoorbell(door);
        EXPECT_TRUE(isSegment(bell, kDoorbellSize));
    });
}

TEST_F(MessageHostile, CannotChangeWhatOthersKnowOfTheChannel) {
    OwnChannel own(_NTO_CHF_UNBLOCK);
    meet([&own](int) {
        Hostile vandal(own.chid);
        std::memset(static_cast<void*>(vandal.doorbell), 0, sizeof *vandal.doorbell);
    });
    support::ChildProcess honest([server = getpid(), chid = own.chid] {
        const int coid = ConnectAttach(0, server, chid, _NTO_SIDE_CHANNEL, 0);
        armFor(_NTO_TIMEOUT_REPLY, 1);
        EXPECT_EQ((Outcome{9, 0}), sendNothing(coid)) << "it waits for its release";
    });
    const int id = receiveSoon(own.chid);
    ASSERT_GT(id, 0);
    _pulse pulse = {};
    EXPECT_EQ(0, receiveSoon(own.chid, &pulse, sizeof pulse));
    EXPECT_EQ(_PULSE_CODE_UNBLOCK, pulse.code);
    EXPECT_EQ(0, MsgReply(id, 9, nullptr, 0));
    const auto result = honest.finish();
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST_F(MessageHostile, ConnectionsThatSayNothingDoNoHarm) {
    int ready[2];
    ASSERT_EQ(0, pipe(ready));
    support::ChildProcess silent([&] {
        for (int i = 0; i < 50; ++i)
            Hostile hostile(mOwn.chid);
        EXPECT_EQ(1, write(ready[1], "r", 1));
        pause();
    });
    char byte;
    ASSERT_EQ(1, read(ready[0], &byte, 1));
    serveHonest();
    close(ready[0]);
    close(ready[1]);
}

// A sender's knock was taken away by another one before anybody heard it. Receivers find the sender themselves, however
// short they wait, and whatever wakes them.
TEST(MessageHostileKnock, ThatIsTakenAwayIsMissedForAboutASecond) {
    if (!canStartThreadsInChildren())
        GTEST_SKIP() << "no threads in the children of a process that has some";
    for (const bool doesWait : {true, false}) {
        const auto result = support::runInChild([doesWait] {
            const OwnChannel own;
            struct sigevent event = {};
            SIGEV_PULSE_INIT(&event, own.coid, 10, 1, nullptr);
            const int timer = TimerCreate(CLOCK_MONOTONIC, &event);
            const _itimer often = {50 * kMs, 50 * kMs};
            EXPECT_EQ(0, TimerSettime(timer, 0, &often, nullptr));
            support::ChildProcess unheard([&] {
                Hostile sender(own.chid);
                EXPECT_TRUE(sendFile(sender.socket, sender.file));
                __atomic_store_n(&sender.page->lanes[0].word, kLaneTurn | LANE_SENT, __ATOMIC_SEQ_CST);
                __atomic_store_n(&sender.page->ready[0], 1u, __ATOMIC_SEQ_CST);
                pause();
            });
            const uint64_t begin = monotonicNs();
            int id = 0;
            while (id <= 0 && monotonicNs() - begin < 10000 * kMs) {
                _pulse pulse;
                if (doesWait) {
                    armFor(_NTO_TIMEOUT_RECEIVE, 100 * kMs);
                    id = MsgReceive(own.chid, &pulse, sizeof pulse, nullptr);
                } else {
                    id = receiveNow(own.chid, &pulse, sizeof pulse).result;
                    std::this_thread::sleep_for(10ms);
                }
            }
            EXPECT_GT(id, 0);
            EXPECT_EQ(0, TimerDestroy(timer));
        });
        EXPECT_TRUE(result.exitedWith(0)) << result;
    }
}

/// Of the first connection to who plays a channel by hand.
LinkPage* pageOfFirst(int listener) {
    pollfd connection = {listener, POLLIN, 0};
    poll(&connection, 1, 10000);
    const int socket = accept(listener, nullptr, nullptr);
    pollfd data = {socket, POLLIN, 0};
    poll(&data, 1, 10000);
    return static_cast<LinkPage*>(mapSegment(receiveFile(socket), 0, kLinkPageSize));
}

TEST(MessageHostileServer, EndsItsOwnClientsCallsOnly) {
    // Plays a channel by hand: it listens and has a doorbell, and answers with garbage.
    int ready[2], ofHonest[2];
    ASSERT_EQ(0, pipe(ready));
    ASSERT_EQ(0, pipe(ofHonest));
    support::ChildProcess hostile([&] {
        Door door = {getpid(), 1, 0, 0};
        const int listener = listenFor(door);
        EXPECT_GE(makeDoorbell(door), 0);
        EXPECT_EQ(1, write(ready[1], "r", 1));
        LinkPage* const page = pageOfFirst(listener);
        Lane& lane = page->lanes[kLongLanes];  // which short messages take first
        for (int i = 0; i < 10000 && (__atomic_load_n(&lane.word, __ATOMIC_ACQUIRE) & 7) != LANE_SENT; ++i)
            usleep(1000);
        const uint32_t turn = lane.word & ~kLaneFlags;
        lane.replyLength = 0xffffffff;
        lane.status = 5;
        __atomic_store_n(&lane.word, turn | LANE_REPLIED, __ATOMIC_SEQ_CST);
        futexWake(&lane.word, 1, Sharing::SHARED);
        for (int i = 0; i < 10000 && (__atomic_load_n(&lane.word, __ATOMIC_ACQUIRE) & 7) != LANE_SENT; ++i)
            usleep(1000);
        __atomic_store_n(&lane.word, 0xfffffff7u, __ATOMIC_SEQ_CST);
        futexWake(&lane.word, 1, Sharing::SHARED);
        pause();
    });
    // Replies to the first one last.
    support::ChildProcess honest([&] {
        const int chid = ChannelCreate(0);
        EXPECT_EQ(static_cast<ssize_t>(sizeof chid), write(ofHonest[1], &chid, sizeof chid));
        const int first = receiveSoon(chid);
        EXPECT_EQ(1, write(ofHonest[1], "r", 1));
        for (const int status : {2, 3, 4})
            EXPECT_EQ(0, MsgReply(receiveSoon(chid), status, nullptr, 0));
        EXPECT_EQ(0, MsgReply(first, 1, nullptr, 0));
    });
    char byte;
    ASSERT_EQ(1, read(ready[0], &byte, 1));
    int chid = -1;
    ASSERT_EQ(static_cast<ssize_t>(sizeof chid), read(ofHonest[0], &chid, sizeof chid));
    const int coid = ConnectAttach(0, hostile.pid(), 1, _NTO_SIDE_CHANNEL, 0);
    ASSERT_GE(coid, _NTO_SIDE_CHANNEL) << strerror(errno);
    const int other = ConnectAttach(0, honest.pid(), chid, _NTO_SIDE_CHANNEL, 0);
    ASSERT_GE(other, _NTO_SIDE_CHANNEL) << strerror(errno);
    auto first = sendNothingElsewhere(other);
    ASSERT_EQ(1, read(ofHonest[0], &byte, 1));
    char reply[9] = "--------";
    EXPECT_EQ(5, MsgSend(coid, "x", 1, reply, 4));
    EXPECT_STREQ("----", reply + 4) << "no more than the room";
    EXPECT_EQ((Outcome{2, 0}), sendNothing(other));
    EXPECT_EQ((Outcome{-1, ESRCH}), sendNothing(coid));
    EXPECT_EQ((Outcome{3, 0}), sendNothing(other));
    EXPECT_EQ(0, ConnectDetach(coid));
    EXPECT_EQ((Outcome{4, 0}), sendNothing(other));
    EXPECT_EQ((Outcome{1, 0}), first.get());
    EXPECT_EQ(0, ConnectDetach(other));
    const auto ofHonestServer = honest.finish();
    EXPECT_TRUE(ofHonestServer.exitedWith(0)) << ofHonestServer;
    for (const int end : {ready[0], ready[1], ofHonest[0], ofHonest[1]})
        close(end);
}

// Wherever the server has moved it to, the sleeper notices the server's end.
TEST(MessageHostileServer, CannotKeepAClientThatItHasMoved) {
    int ready[2];
    ASSERT_EQ(0, pipe(ready));
    support::ChildProcess hostile([&] {
        Door door = {getpid(), 1, 0, 0};
        const int listener = listenFor(door);
        EXPECT_GE(makeDoorbell(door), 0);
        EXPECT_EQ(1, write(ready[1], "r", 1));
        LinkPage* const page = pageOfFirst(listener);
        Lane& lane = page->lanes[kLongLanes];
        static unsigned elsewhere = 0;
        long moved = 0;
        for (int i = 0; i < 10000 && moved == 0; ++i) {
            usleep(1000);
            moved = syscall(SYS_futex, &lane.word, FUTEX_REQUEUE, 0, INT_MAX, &elsewhere, 0);
        }
        EXPECT_EQ(1, moved);
    });
    char byte;
    ASSERT_EQ(1, read(ready[0], &byte, 1));
    const int coid = ConnectAttach(0, hostile.pid(), 1, _NTO_SIDE_CHANNEL, 0);
    ASSERT_GE(coid, _NTO_SIDE_CHANNEL) << strerror(errno);
    EXPECT_EQ((Outcome{-1, ESRCH}), sendNothing(coid));
    EXPECT_EQ(0, ConnectDetach(coid));
    const auto result = hostile.finish();
    EXPECT_TRUE(result.exitedWith(0)) << result;
    for (const int end : ready)
        close(end);
}

TEST(MessageStranger, OfAnotherUserIsNotLetIn) {
    if (getuid() != 0 || !canStartThreadsInChildren())
        GTEST_SKIP() << "only root can become another user; and the child needs threads";
    OwnChannel own;
    std::thread server([&] {
        for (int id; (id = receiveSoon(own.chid)) > 0;)
            MsgReply(id, 0, nullptr, 0);
    });
    Door door = {getpid(), own.chid, 0, 0};
    const int bell = openDoorbell(door);
    EXPECT_GE(bell, 0);
    close(bell);
    // Somebody known, so that new connections are looked at at once.
    const auto known = support::runInChild([server = getpid(), chid = own.chid] {
        EXPECT_EQ((Outcome{0, 0}), sendNothing(ConnectAttach(0, server, chid, _NTO_SIDE_CHANNEL, 0)));
    });
    EXPECT_TRUE(known.exitedWith(0)) << known;
    const auto stranger = support::runInChild([server = getpid(), chid = own.chid, door] {
        ASSERT_EQ(0, setresuid(65534, 65534, 65534));
        EXPECT_EQ((Outcome{-1, EPERM}),
                  outcomeOf([=] { return ConnectAttach(0, server, chid, _NTO_SIDE_CHANNEL, 0); }));
        Door unknown = {server, chid, 0, 0};
        EXPECT_EQ(-1, openDoorbell(unknown));
        const int socket = connectTo(door);
        const int file = makeSegment("stranger", kLinkSize);
        ASSERT_TRUE(socket >= 0 && file >= 0);
        sendFile(socket, file);
        pollfd end = {socket, POLLIN, 0};
        EXPECT_EQ(1, poll(&end, 1, 5000));
        EXPECT_NE(0, end.revents & POLLHUP);
    });
    EXPECT_TRUE(stranger.exitedWith(0)) << stranger;
    MsgSendPulse(own.coid, 1, 1, 1);
    server.join();
}

// Anybody may connect, if only to be sent away.
TEST(MessageStranger, WhoConnectsAllTheTimeHoldsUpNobody) {
    if (getuid() != 0 || !canStartThreadsInChildren())
        GTEST_SKIP() << "only root can become another user; and the child needs threads";
    constexpr uint64_t kStormNs = 3000 * kMs;
    OwnChannel own;
    Door door = {getpid(), own.chid, 0, 0};
    close(openDoorbell(door));
    std::vector<std::unique_ptr<support::ChildProcess>> strangers;
    for (int i = 0; i < 3; ++i)
        strangers.push_back(std::make_unique<support::ChildProcess>([door] {
            ASSERT_EQ(0, setresuid(65534, 65534, 65534));
            for (const uint64_t end = monotonicNs() + kStormNs; monotonicNs() < end;)
                close(connectTo(door));
        }));
    std::this_thread::sleep_for(100ms);  // until they are many
    support::ChildProcess honest([server = getpid(), chid = own.chid] {
        EXPECT_GE(ConnectAttach(0, server, chid, _NTO_SIDE_CHANNEL, 0), 0) << strerror(errno);
    });
    uint64_t longest = 0;
    for (const uint64_t end = monotonicNs() + kStormNs; monotonicNs() < end;) {
        const uint64_t begin = monotonicNs();
        EXPECT_EQ(0, MsgSendPulse(own.coid, 10, 1, 0));
        _pulse pulse;
        EXPECT_EQ(0, receiveSoon(own.chid, &pulse, sizeof pulse));
        EXPECT_EQ(kTimedOut, receiveNow(own.chid, &pulse, sizeof pulse)) << "it looks at the door, too";
        longest = std::max(longest, monotonicNs() - begin);
    }
    EXPECT_LT(longest, kStormNs / 2);
    const auto result = honest.finish();
    EXPECT_TRUE(result.exitedWith(0)) << result;
    for (auto& stranger : strangers) {
        const auto ended = stranger->finish();
        EXPECT_TRUE(ended.exitedWith(0)) << ended;
    }
}

TEST(MessageStranger, CannotTakeTheNamesOfAChannelBefore) {
    uint32_t lastKey = 0;
    for (int i = 0; i < 4; ++i) {
        const OwnChannel own;
        Door door = {getpid(), own.chid, 0, 0};
        const int bell = openDoorbell(door);
        EXPECT_GE(bell, 0);
        close(bell);
        EXPECT_GT(door.key - lastKey, 1000u) << "nobody could have guessed it";
        EXPECT_GT(lastKey - door.key, 1000u);
        lastKey = door.key;
    }
}

constexpr uid_t kOneUser = 65533, kOtherUser = 65534;

/// A server of one user with a channel that was made as the same or another one.
class ServerOf {
public:
    ServerOf(uid_t owner, uid_t maker) {
        int ready[2];
        EXPECT_EQ(0, pipe(ready));
        mProcess.emplace([&] { serve(owner, maker, ready[1]); });
        close(ready[1]);
        EXPECT_EQ(static_cast<ssize_t>(sizeof mChid), read(ready[0], &mChid, sizeof mChid));
        close(ready[0]);
    }
    int attach() const { return ConnectAttach(0, mProcess->pid(), mChid, _NTO_SIDE_CHANNEL, 0); }
    /// True when the calling process could write to its doorbell, as whoever sends does.
    bool hasOpenDoor() const {
        Door door = {mProcess->pid(), mChid, 0, 0};
        const int bell = openDoorbell(door);
        close(bell);
        return bell >= 0;
    }

private:
    static void serve(uid_t owner, uid_t maker, int output) {
        ASSERT_EQ(0, seteuid(maker));
        const int chid = ChannelCreate(0);
        ASSERT_EQ(0, seteuid(0));
        ASSERT_EQ(0, setresuid(owner, owner, owner));
        ASSERT_EQ(0, prctl(PR_SET_DUMPABLE, 1));  // as a program is that was started by its user
        ASSERT_EQ(static_cast<ssize_t>(sizeof chid), write(output, &chid, sizeof chid));
        for (int id; (id = receiveSoon(chid)) > 0;)
            MsgReply(id, 42, nullptr, 0);
    }

    std::optional<support::ChildProcess> mProcess;
    int mChid = -1;
};

/// What becomes of a message to a server, from a process of a user.
void sendAs(uid_t user, const ServerOf& server, Outcome expected) {
    const auto result = support::runInChild([&] {
        ASSERT_EQ(0, setresuid(user, user, user));
        EXPECT_TRUE(server.hasOpenDoor());
        Outcome outcome = outcomeOf([&] { return server.attach(); });
        if (outcome.result != -1)
            outcome = sendNothing(outcome.result);
        EXPECT_EQ(expected, outcome);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(MessageStranger, IsLetInWhenItIsRoot) {
    if (getuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    const ServerOf server(kOneUser, kOneUser);
    sendAs(kOneUser, server, {42, 0});
    if (!server.hasOpenDoor())
        GTEST_SKIP() << "here even root may not look into the processes of others";
    sendAs(0, server, {42, 0});
}

TEST(MessageStranger, IsNotTrustedAsAServer) {
    if (getuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    const ServerOf ofAnother(kOtherUser, kOtherUser);
    const auto result = support::runInChild([&] {
        ASSERT_EQ(0, setresuid(kOneUser, kOneUser, kOneUser));
        EXPECT_FALSE(ofAnother.hasOpenDoor());
        EXPECT_EQ((Outcome{-1, EPERM}), outcomeOf([&] { return ofAnother.attach(); }));
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

// The kernel lets a user look into what is the same user's by now; who listens says the socket.
TEST(MessageStranger, IsNotTrustedAsTheMakerOfAChannelEither) {
    if (getuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    const ServerOf server(kOneUser, kOtherUser);
    sendAs(kOneUser, server, {-1, EPERM});
}

}  // namespace
