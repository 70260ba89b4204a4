// Concerns: servers and clients that are killed at any moment, again and again: nobody else hangs, no reply is wrong, no
// pulse is lost or comes twice while its sender lives. The test lasts a second; KILL_LOOP_SECONDS makes it last longer.
#include "MessageTesting.h"

#include <array>
#include <atomic>
#include <cstdlib>
#include <iostream>
#include <map>
#include <random>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr int kServerPlayers = 2, kClientPlayers = 4, kPlayers = kServerPlayers + kClientPlayers;
constexpr int kLongestText = 200000;
constexpr int kPulsePriority = 10;  // as that of the pulse that ends a connection, which so comes after the last

/// What all processes see. Each writes its own place.
struct Board {
    struct Player {
        std::atomic<unsigned long> steps;  // grows while the process is not stuck
        std::atomic<int> pid;
        std::atomic<int> chid;  // of a server that is ready
    };
    Player players[kPlayers];
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

[[noreturn]] void serve(Board& board, Board::Player& self) {
    Bytes request(kLongestText);
    std::map<int, int> nextPulse;  // of each connection
    self.chid = ChannelCreate(_NTO_CHF_DISCONNECT);
    for (;; ++self.steps) {
        _msg_info info;
        armFor(_NTO_TIMEOUT_RECEIVE, 100 * kMs);
        const int id = MsgReceive(self.chid, request.at(), kLongestText, &info);
        if (id > 0) {
            request.increase(info.msglen);
            MsgReply(id, info.msglen, request.at(), info.msglen);
        } else if (id == 0) {
            const _pulse pulse = *reinterpret_cast<const _pulse*>(request.at());
            if (pulse.code == _PULSE_CODE_DISCONNECT) {
                nextPulse.erase(pulse.scoid);
            } else {
                board.lost += pulse.value.sival_int == nextPulse[pulse.scoid] ? 0 : 1;
                nextPulse[pulse.scoid] = pulse.value.sival_int + 1;
                ++board.pulses;
            }
        }
    }
}

/// Talks on one connection until its server is gone.
void talk(Board& board, Board::Player& self, int coid, std::mt19937& random) {
    Bytes request(kLongestText), reply(kLongestText);
    for (int pulses = 0;; ++self.steps) {
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
        const int coid = ConnectAttach(0, server.pid, server.chid, _NTO_SIDE_CHANNEL, 0);
        if (coid == -1) {
            std::this_thread::sleep_for(1ms);
            continue;
        }
        talk(board, self, coid, random);
        ConnectDetach(coid);
    }
}

class MessageKillLoop : public testing::Test {
protected:
    MessageKillLoop()
        : mBoard(*new (mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
                     Board()) {
        for (int i = 0; i < kPlayers; ++i)
            start(i);
    }
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
        const pid_t pid = mBoard.players[i].pid;
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

    struct Seen {
        unsigned long steps;
        Clock::time_point since;
    };
    Board& mBoard;
    std::array<Seen, kPlayers> mSeen;
};

TEST_F(MessageKillLoop, NobodyHangsAndNothingIsLost) {
    if (!canStartThreadsInChildren())
        GTEST_SKIP() << "no threads in the children of a process that has some";
    const char* const seconds = std::getenv("KILL_LOOP_SECONDS");
    const auto end = Clock::now() + std::chrono::seconds(seconds != nullptr ? std::atoi(seconds) : 1);
    std::mt19937 random(4711);
    unsigned long rounds = 0, hangs = 0;
    for (; Clock::now() < end || mBoard.replies == 0; ++rounds) {
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 10000));
        const int victim = static_cast<int>(random() % kPlayers);
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
}

}  // namespace
