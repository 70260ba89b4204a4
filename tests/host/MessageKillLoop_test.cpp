// Concerns: servers and clients that are killed at any moment, again and again: nobody else hangs, no reply is wrong, no
// pulse is lost or comes twice while its sender lives, and nothing of the dead stays with the living. The test lasts a
// second; KILL_LOOP_SECONDS makes it last longer.
#include "MessageTesting.h"

#include "support/ChildProcess.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <random>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr int kServerPlayers = 3, kClientPlayers = 5, kPlayers = kServerPlayers + kClientPlayers;
constexpr int kLastingServer = 0, kLastingClient = kPlayers - 1;  // nobody kills these
constexpr unsigned kHeld = 63;  // all the places for messages that a process makes at first
constexpr int kLongestText = 200000;
constexpr int kPulsePriority = 10;  // as that of the pulse that ends a connection, which so comes after the last

/// What all processes see. Each writes its own place.
struct Board {
    struct Player {
        std::atomic<unsigned long> steps;  // grows while the process is not stuck
        std::atomic<int> pid;
        std::atomic<int> chid;  // of a server that is ready
        std::atomic<unsigned> disconnects;
        std::atomic<bool> rests;  // a client without a connection
    };
    Player players[kPlayers];
    std::atomic<bool> mustRest;
    std::atomic<int> lastPlace, scoid;  // that the last held messages had
    std::atomic<unsigned long> replies, ends, timeouts, pulses, wrong, lost;
};

/// The reply to a request is its bytes, each one greater.
struct Bytes {
    explicit Bytes(std::size_t size) : bytes(size) {}
    char* at() { return bytes.data(); }
    void fill(unsigned seed, int length) {
        for (int i = 0; i < length; ++i)
            bytes[static_cast<std::size_t>(i)] = static_cast<char>(seed + static_cast<unsigned>(i) * 13);
    }
    void increase(int length) {
        for (int i = 0; i < length; ++i)
            ++bytes[static_cast<std::size_t>(i)];
    }
    bool isReplyTo(unsigned seed, int length) const {
        for (int i = 0; i < length; ++i)
            if (bytes[static_cast<std::size_t>(i)] != static_cast<char>(seed + static_cast<unsigned>(i) * 13 + 1))
                return false;
        return true;
    }
    std::vector<char> bytes;
};

/// Replies when all are there that are to be held at once.
class Holder {
public:
    void hold(Board& board, int id, int scoid) {
        constexpr int kPlaceOfId = 0xffff;  // the rest tells the messages apart that a place has had
        mIds.push_back(id);
        mLastPlace = std::max(mLastPlace, id & kPlaceOfId);
        if (mIds.size() < kHeld)
            return;
        board.lastPlace = std::exchange(mLastPlace, 0);
        board.scoid = scoid;
        for (const int held : mIds)
            MsgReply(held, 0, nullptr, 0);
        mIds.clear();
    }

private:
    std::vector<int> mIds;
    int mLastPlace = 0;
};

[[noreturn]] void serve(Board& board, Board::Player& self) {
    Bytes request(kLongestText);
    Holder holder;
    std::map<int, int> nextPulse;  // of each connection
    self.chid = ChannelCreate(_NTO_CHF_DISCONNECT);
    for (;; ++self.steps) {
        _msg_info info;
        armFor(_NTO_TIMEOUT_RECEIVE, 100 * kMs);
        const int id = MsgReceive(self.chid, request.at(), kLongestText, &info);
        if (id > 0 && info.dstmsglen == 0) {
            holder.hold(board, id, info.scoid);
        } else if (id > 0) {
            request.increase(info.msglen);
            MsgReply(id, info.msglen, request.at(), info.msglen);
        } else if (id == 0) {
            const _pulse pulse = *reinterpret_cast<const _pulse*>(request.at());
            if (pulse.code == _PULSE_CODE_DISCONNECT) {
                nextPulse.erase(pulse.scoid);
                ++self.disconnects;
            } else {
                board.lost += pulse.value.sival_int == nextPulse[pulse.scoid] ? 0 : 1;
                nextPulse[pulse.scoid] = pulse.value.sival_int + 1;
                ++board.pulses;
            }
        }
    }
}

/// Talks on one connection until its server is gone, or it is time to rest.
void talk(Board& board, Board::Player& self, int coid, std::mt19937& random) {
    Bytes request(kLongestText), reply(kLongestText);
    for (int pulses = 0; !board.mustRest; ++self.steps) {
        if (random() % 4 == 0 && MsgSendPulse(coid, kPulsePriority, 0, pulses) == 0)
            ++pulses;
        const unsigned seed = random();
        const int length = static_cast<int>(random() % 8 == 0 ? random() % kLongestText : random() % 300);
        request.fill(seed, length);
        if (random() % 4 == 0)
            armFor(_NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY, random() % 300000);
        const int status = MsgSend(coid, request.at(), length, reply.at(), kLongestText);
        if (status >= 0) {
            ++board.replies;
            board.wrong += status == length && reply.isReplyTo(seed, length) ? 0 : 1;
        } else if (errno == ETIMEDOUT) {
            ++board.timeouts;
        } else {
            ++board.ends;
            board.wrong += errno == ESRCH || errno == EBADF ? 0 : 1;
            return;
        }
    }
}

[[noreturn]] void beClient(Board& board, Board::Player& self) {
    std::mt19937 random(static_cast<unsigned>(getpid()));
    for (;; ++self.steps) {
        const Board::Player& server = board.players[random() % kServerPlayers];
        self.rests = board.mustRest.load();
        const int coid = self.rests ? -1 : ConnectAttach(0, server.pid, server.chid, _NTO_SIDE_CHANNEL, 0);
        if (coid == -1) {
            std::this_thread::sleep_for(1ms);
            continue;
        }
        board.wrong += coid == _NTO_SIDE_CHANNEL ? 0 : 1;  // the lowest, and it has no other
        talk(board, self, coid, random);
        ConnectDetach(coid);
    }
}

/// What a process has because of its connections.
struct Kept {
    int descriptors;
    int segments;

    friend bool operator==(const Kept& a, const Kept& b) {
        return a.descriptors == b.descriptors && a.segments == b.segments;
    }
    friend std::ostream& operator<<(std::ostream& stream, const Kept& kept) {
        return stream << kept.descriptors << " descriptors, " << kept.segments << " segments";
    }
};

Kept keptOf(pid_t pid) {
    Kept kept = {openDescriptors(pid), 0};
    std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
    for (std::string line; std::getline(maps, line);)
        kept.segments += line.find("/memfd:nto-") != std::string::npos ? 1 : 0;
    return kept;
}

/// False when it does not become so for long.
bool becomes(const std::function<bool()>& isSo) {
    const auto end = Clock::now() + 20s;
    while (!isSo() && Clock::now() < end)
        std::this_thread::sleep_for(1ms);
    return isSo();
}

class MessageKillLoop : public testing::Test {
protected:
    MessageKillLoop()
        : mBoard(*new (mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
                     Board()) {}
    ~MessageKillLoop() override {
        for (int i = 0; i < kPlayers; ++i)
            end(i);
        munmap(&mBoard, sizeof(Board));
    }

    void start(int i) {
        Board::Player& player = mBoard.players[i];
        player.chid = 0;
        const pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            if (i < kServerPlayers)
                serve(mBoard, player);
            beClient(mBoard, player);
        }
        player.pid = pid;
        mSeen[static_cast<std::size_t>(i)] = {player.steps, Clock::now()};
    }
    void end(int i) {
        const pid_t pid = mBoard.players[i].pid.exchange(0);
        if (pid == 0)
            return;
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    /// True when a process has not done anything for long.
    bool isStuck(int i) {
        Seen& seen = mSeen[static_cast<std::size_t>(i)];
        const unsigned long steps = mBoard.players[i].steps;
        if (steps != seen.steps)
            seen = {steps, Clock::now()};
        return Clock::now() - seen.since > 20s;
    }

    /// A new client has the lasting server hold as many messages at once as it had places for at first.
    void fill() const {
        const Board::Player& server = mBoard.players[kLastingServer];
        const auto client = support::runInChild([&server] {
            const int coid = ConnectAttach(0, server.pid, server.chid, _NTO_SIDE_CHANNEL, 0);
            std::vector<std::future<Outcome>> senders;
            for (unsigned i = 0; i < kHeld; ++i)
                senders.push_back(sendNothingElsewhere(coid));
            for (auto& sender : senders)
                EXPECT_EQ((Outcome{0, 0}), sender.get());
            EXPECT_EQ(0, ConnectDetach(coid));
        });
        EXPECT_TRUE(client.exitedWith(0)) << client;
    }
    Kept keptBy(int player) const { return keptOf(mBoard.players[player].pid); }
    /// Not what it has only for a moment, when its thread that watches looks around.
    Kept keptLongBy(int player) const {
        Kept kept = keptBy(player);
        for (int same = 0; same < 5;) {
            std::this_thread::sleep_for(10ms);
            const Kept now = keptBy(player);
            same = now == kept ? same + 1 : 0;
            kept = now;
        }
        return kept;
    }
    /// What the lasting client has while it rests.
    Kept keptAtRest() {
        std::atomic<bool>& rests = mBoard.players[kLastingClient].rests;
        rests = false;
        mBoard.mustRest = true;
        EXPECT_TRUE(becomes([&] { return rests.load(); }));
        const Kept kept = keptBy(kLastingClient);
        mBoard.mustRest = false;
        return kept;
    }

    struct Seen {
        unsigned long steps;
        Clock::time_point since;
    };
    Board& mBoard;
    std::array<Seen, kPlayers> mSeen;
};

TEST_F(MessageKillLoop, NobodyHangsAndNothingIsLostOrLeft) {
    if (!canStartThreadsInChildren())
        GTEST_SKIP() << "no threads in the children of a process that has some";
    const Board::Player& server = mBoard.players[kLastingServer];
    start(kLastingServer);
    ASSERT_TRUE(becomes([&] { return server.chid != 0; }));
    fill();
    ASSERT_TRUE(becomes([&] { return server.disconnects == 1; }));
    const Kept ofServer = keptLongBy(kLastingServer);
    const int lastPlace = mBoard.lastPlace, scoid = mBoard.scoid;
    start(kLastingClient);
    ASSERT_TRUE(becomes([&] { return mBoard.replies != 0; }));
    const Kept ofClient = keptAtRest();

    const char* const seconds = std::getenv("KILL_LOOP_SECONDS");
    const auto end = Clock::now() + std::chrono::seconds(seconds != nullptr ? std::atoi(seconds) : 1);
    for (int i = kLastingServer + 1; i < kLastingClient; ++i)
        start(i);
    std::mt19937 random(4711);
    unsigned long rounds = 0, hangs = 0;
    for (const unsigned long before = mBoard.replies; Clock::now() < end || mBoard.replies == before; ++rounds) {
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 10000));
        const int victim = kLastingServer + 1 + static_cast<int>(random() % (kPlayers - 2));
        this->end(victim);
        start(victim);
        for (int i = 0; i < kPlayers; ++i)
            hangs += isStuck(i) ? 1 : 0;
        ASSERT_EQ(0u, hangs) << "after " << rounds << " rounds";
    }
    std::cout << rounds << " kills, " << mBoard.replies << " replies, " << mBoard.ends << " calls ended by a kill, "
              << mBoard.timeouts << " by a time-out, " << mBoard.pulses << " pulses; " << hangs << " hangs, "
              << mBoard.wrong << " wrong, " << mBoard.lost << " lost\n";
    EXPECT_EQ(0u, mBoard.wrong);
    EXPECT_EQ(0u, mBoard.lost);

    for (int i = kLastingServer + 1; i < kLastingClient; ++i)
        this->end(i);
    EXPECT_EQ(ofClient, keptAtRest());
    this->end(kLastingClient);
    becomes([&] { return keptBy(kLastingServer) == ofServer; });
    EXPECT_EQ(ofServer, keptLongBy(kLastingServer));
    fill();
    EXPECT_EQ(lastPlace, mBoard.lastPlace);
    EXPECT_EQ(scoid, mBoard.scoid);
}

}  // namespace
