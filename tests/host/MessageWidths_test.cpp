// Concerns: processes that are not forked from one another, and that may be 32-bit and 64-bit programs, in both roles:
// messages, pulses, time-outs, many threads, killed clients and servers; locks in shared memory, semaphores and
// barriers, too. MessagePeer.cpp says what each does. The program of the other width is one that another build made.
#include "SharedLocks.h"

#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <gmock/gmock.h>
#include <new>
#include <sstream>
#include <sys/mman.h>
#include <sys/neutrino.h>
#include <unistd.h>

namespace {

#if defined(HOST_OTHER_MESSAGE_PEER)
constexpr char kOther[] = HOST_OTHER_MESSAGE_PEER;
#define HOST_PAIRS                                                                                                 \
    Pair{false, false}, Pair{false, true}, Pair {                                                                  \
        true, false                                                                                                \
    }
#else
constexpr char kOther[] = "";
#define HOST_PAIRS                                                                                                 \
    Pair {                                                                                                         \
        false, false                                                                                               \
    }
#endif

struct Pair {
    bool isFirstOther;
    bool isSecondOther;
};

std::string nameOf(const testing::TestParamInfo<Pair>& info) {
    return std::string(info.param.isFirstOther ? "Other" : "Own") + (info.param.isSecondOther ? "Other" : "Own");
}

std::vector<std::string> command(bool isOther, std::vector<std::string> arguments) {
    if (!isOther)
        return support::commandFor(HOST_MESSAGE_PEER, arguments);
    arguments.insert(arguments.begin(), kOther);
    return arguments;
}

class MessageWidths : public testing::TestWithParam<Pair> {
protected:
    void SetUp() override {
        if ((GetParam().isFirstOther || GetParam().isSecondOther) && access(kOther, X_OK) != 0)
            GTEST_SKIP() << kOther << " has not been built";
    }

    static std::vector<std::string> first(const std::vector<std::string>& arguments) {
        return command(GetParam().isFirstOther, arguments);
    }
    static std::vector<std::string> second(const std::vector<std::string>& arguments) {
        return command(GetParam().isSecondOther, arguments);
    }

    /// A server, and a client that is told where it is: how both end.
    static std::pair<support::ChildResult, support::ChildResult> meet(unsigned flags, const std::string& role) {
        support::ChildOptions patient;
        patient.deadline = std::chrono::seconds(100);
        support::ChildProcess server(first({"serve", std::to_string(flags)}), patient);
        EXPECT_TRUE(server.waitForOut("\n"));
        std::istringstream place(server.out());
        std::string pid, channel;
        place >> pid >> channel;
        auto client = support::ChildProcess(second({role, pid, channel}), patient).finish();
        if (!client.exitedWith(0))
            server.send(SIGKILL);
        return {server.finish(), client};
    }
};

TEST_P(MessageWidths, DoNotMatterToMessagesAndPulses) {
    const auto [server, client] = meet(_NTO_CHF_DISCONNECT, "call");
    EXPECT_TRUE(client.exitedWith(0)) << client;
    EXPECT_TRUE(server.killedBy(SIGKILL)) << server;
}

TEST_P(MessageWidths, DoNotMatterToASenderThatGivesUp) {
    const auto [server, client] = meet(_NTO_CHF_UNBLOCK, "unblock");
    EXPECT_TRUE(client.exitedWith(0)) << client;
    EXPECT_TRUE(server.exitedWith(0)) << server;
}

TEST_P(MessageWidths, DoNotMatterToLocksInSharedMemory) {
    const support::TemporaryFolder folder;
    const std::string path = folder.path() + "/shared";
    // Two free mutexes or conditions, and two counts; the former are shared between processes, which waiting needs.
    struct Shared {
        _sync mutex, condition;
        uint32_t turn, sum;
    } shared = {};
    pthread_mutexattr_t attributes;
    ASSERT_EQ(0, pthread_mutexattr_init(&attributes));
    ASSERT_EQ(0, pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED));
    ASSERT_EQ(0, pthread_mutex_init(&shared.mutex, &attributes));
    pthread_mutexattr_destroy(&attributes);
    pthread_condattr_t waiting;
    ASSERT_EQ(0, pthread_condattr_init(&waiting));
    ASSERT_EQ(0, pthread_condattr_setpshared(&waiting, PTHREAD_PROCESS_SHARED));
    ASSERT_EQ(0, pthread_cond_init(&shared.condition, &waiting));
    pthread_condattr_destroy(&waiting);
    char bytes[sizeof shared];
    std::memcpy(bytes, &shared, sizeof shared);
    std::ofstream(path, std::ios::binary).write(bytes, sizeof bytes);

    support::ChildProcess one(first({"count", path, "0"}));
    support::ChildProcess other(second({"count", path, "1"}));
    const auto oneResult = one.finish(), otherResult = other.finish();
    EXPECT_TRUE(oneResult.exitedWith(0)) << oneResult;
    EXPECT_TRUE(otherResult.exitedWith(0)) << otherResult;
    std::ifstream(path, std::ios::binary).read(bytes, sizeof bytes);
    std::memcpy(&shared, bytes, sizeof shared);
    EXPECT_EQ(2000u, shared.turn);
    EXPECT_EQ(40000u, shared.sum);
}

TEST_P(MessageWidths, DoNotMatterToSemaphoresAndBarriersInSharedMemory) {
    const support::TemporaryFolder folder;
    const std::string path = folder.write("shared", std::string(sizeof(SharedLocks), '\0'));
    const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
    void* const mapped = mmap(nullptr, sizeof(SharedLocks), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ASSERT_NE(MAP_FAILED, mapped);
    close(file);
    const SharedLocks& shared = *new (mapped) SharedLocks;
    support::ChildProcess one(first({"pass", path, "0"}));
    support::ChildProcess other(second({"pass", path, "1"}));
    const auto oneResult = one.finish(), otherResult = other.finish();
    EXPECT_TRUE(oneResult.exitedWith(0)) << oneResult;
    EXPECT_TRUE(otherResult.exitedWith(0)) << otherResult;
    EXPECT_EQ(2 * SharedLocks::kSteps, shared.sum);
    EXPECT_EQ(2 * SharedLocks::kTurns, shared.turn);
    EXPECT_THAT(shared.arrivals, testing::Each(2u));
    munmap(mapped, sizeof(SharedLocks));
}

INSTANTIATE_TEST_SUITE_P(Host, MessageWidths, testing::Values(HOST_PAIRS), nameOf);

}  // namespace
