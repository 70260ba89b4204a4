// Concerns: which time-outs bound a transfer, and that it consumes them; what is there, and past deadlines; answers
// and errors of devctl on real devices; calls of any kind ended at a deadline, within handlers and in children;
// what their timers leave.
#include <host/KernelIO.h>

#include "Interrupter.h"
#include "support/Sanitizers.h"
#include "support/Units.h"

#include <cerrno>
#include <climits>
#include <devctl.h>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <pty.h>
#include <sched.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/neutrino.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

void arm(int states, uint64_t relativeNs) {
    ASSERT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, states, nullptr, &relativeNs, nullptr));
}

class KernelIOTest : public testing::Test {
protected:
    KernelIOTest() { EXPECT_EQ(0, pipe2(mPipe, O_NONBLOCK)); }
    ~KernelIOTest() override {
        close(mPipe[0]);
        close(mPipe[1]);
    }
    void block() const { fcntl(mPipe[0], F_SETFL, 0); }

    int mPipe[2];
    char mByte = '\0';
};

TEST_F(KernelIOTest, EitherStateBoundsATransferAndOthersDoNot) {
    block();
    for (const int states : {_NTO_TIMEOUT_SEND, _NTO_TIMEOUT_REPLY, _NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY}) {
        const uint64_t begin = host::nowNs(CLOCK_MONOTONIC);
        arm(states, 5 * kMs);
        EXPECT_EQ(-1, KernelIO::read(mPipe[0], &mByte, 1));
        EXPECT_EQ(ETIMEDOUT, errno);
        EXPECT_GE(host::nowNs(CLOCK_MONOTONIC) - begin, 5 * kMs);
    }
    fcntl(mPipe[0], F_SETFL, O_NONBLOCK);
    arm(_NTO_TIMEOUT_MUTEX, 5 * kMs);
    EXPECT_EQ(-1, KernelIO::read(mPipe[0], &mByte, 1));
    EXPECT_EQ(EAGAIN, errno);
}

TEST_F(KernelIOTest, ATransferWithATimeoutLeavesErrnoWhereItSucceeds) {
    for (const bool isWriting : {true, false}) {
        arm(_NTO_TIMEOUT_SEND, 1000 * kMs);
        errno = EIO;
        EXPECT_EQ(1, isWriting ? KernelIO::write(mPipe[1], "x", 1) : KernelIO::read(mPipe[0], &mByte, 1));
        EXPECT_EQ(EIO, errno);
    }
}

TEST_F(KernelIOTest, ATransferConsumesTheTimeout) {
    ASSERT_EQ(1, write(mPipe[1], "x", 1));
    arm(_NTO_TIMEOUT_SEND | _NTO_TIMEOUT_MUTEX, 0);
    EXPECT_EQ(1, KernelIO::read(mPipe[0], &mByte, 1));
    _sync mutex = {};
    EXPECT_EQ(0, pthread_mutex_lock(&mutex));
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
    arm(_NTO_TIMEOUT_SEND, 0);
    EXPECT_EQ(0, KernelIO::read(mPipe[0], &mByte, 0));
    ASSERT_EQ(-1, KernelIO::read(mPipe[0], &mByte, 1));
    EXPECT_EQ(EAGAIN, errno);  // and not the time-out
}

TEST_F(KernelIOTest, ADeadlineThatHasPassedStillTakesWhatIsThere) {
    block();
    ASSERT_EQ(2, write(mPipe[1], "xy", 2));
    ASSERT_EQ(0, TimerTimeout(CLOCK_MONOTONIC, _NTO_TIMEOUT_SEND, nullptr, nullptr, nullptr));
    EXPECT_EQ(1, KernelIO::read(mPipe[0], &mByte, 1));
    arm(_NTO_TIMEOUT_SEND | static_cast<int>(TIMER_ABSTIME), 1);
    EXPECT_EQ(1, KernelIO::read(mPipe[0], &mByte, 1));
    arm(_NTO_TIMEOUT_SEND | static_cast<int>(TIMER_ABSTIME), 1);
    EXPECT_EQ(-1, KernelIO::read(mPipe[0], &mByte, 1));
    EXPECT_EQ(ETIMEDOUT, errno);
}

TEST_F(KernelIOTest, ErrorsOfADescriptorComeThrough) {
    arm(_NTO_TIMEOUT_SEND, kMs);
    EXPECT_EQ(-1, KernelIO::read(mPipe[1], &mByte, 1));
    EXPECT_EQ(EBADF, errno);
    arm(_NTO_TIMEOUT_SEND, kMs);
    EXPECT_EQ(-1, KernelIO::write(-1, &mByte, 1));
    EXPECT_EQ(EBADF, errno);
}

TEST_F(KernelIOTest, ACallOfAnyKindEndsAtItsDeadline) {
    block();
    for (const uint64_t wait : {uint64_t{0}, kMs, 20 * kMs}) {
        const uint64_t begin = host::nowNs(CLOCK_MONOTONIC);
        EXPECT_EQ(-1, host::callUntil({begin + wait}, [&] { return read(mPipe[0], &mByte, 1); }));
        EXPECT_EQ(ETIMEDOUT, errno);
        EXPECT_GE(host::nowNs(CLOCK_MONOTONIC) - begin, wait);
    }
    EXPECT_EQ(-1, host::callUntil(host::Deadline::immediate(), [&] { return read(mPipe[0], &mByte, 1); }));
    EXPECT_EQ(ETIMEDOUT, errno);
    ASSERT_EQ(1, write(mPipe[1], "x", 1));
    EXPECT_EQ(1, host::callUntil({INT64_MAX}, [&] { return read(mPipe[0], &mByte, 1); }));
}

uint64_t beginOfHandler = 0;
int pipeOfHandler = -1;
int errorInHandler = 0;

void waitInHandler(int) {
    char byte;
    const int error = errno;
    if (host::callUntil({beginOfHandler + 10 * kMs}, [&] { return read(pipeOfHandler, &byte, 1); }) == -1) {
        errorInHandler = errno;
    }
    errno = error;
}

TEST_F(KernelIOTest, ACallWithinAHandlerLeavesTheInterruptedOneItsDeadline) {
    block();
    struct sigaction before;
    struct sigaction action = {};
    action.sa_handler = waitInHandler;
    action.sa_flags = SA_RESTART;
    ASSERT_EQ(0, sigaction(SIGUSR1, &action, &before));
    pipeOfHandler = mPipe[0];
    errorInHandler = 0;
    const uint64_t begin = host::nowNs(CLOCK_MONOTONIC);
    EXPECT_EQ(-1, host::callUntil({begin + 30 * kMs}, [&] {
        beginOfHandler = host::nowNs(CLOCK_MONOTONIC);
        raise(SIGUSR1);
        return read(mPipe[0], &mByte, 1);
    }));
    EXPECT_EQ(ETIMEDOUT, errno);
    EXPECT_GE(host::nowNs(CLOCK_MONOTONIC) - begin, 30 * kMs);
    EXPECT_EQ(ETIMEDOUT, errorInHandler);
    sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(KernelIOTest, NothingInterruptsWhatComesAfterACall) {
    block();
    for (const bool isOver : {false, true}) {
        ASSERT_EQ(1, write(mPipe[1], "x", 1));
        const uint64_t limit = isOver ? 0 : host::nowNs(CLOCK_MONOTONIC) + 2 * kMs;
        EXPECT_EQ(1, host::callUntil({limit}, [&] { return read(mPipe[0], &mByte, 1); }));
        const timespec pause = {0, 10 * kMs};
        EXPECT_EQ(0, nanosleep(&pause, nullptr));
    }
}

TEST_F(KernelIOTest, AForkedChildsCallsEndAtTheirDeadlines) {
    block();
    const auto waitABit = [&] {
        const uint64_t deadline = host::nowNs(CLOCK_MONOTONIC) + 2 * kMs;
        return host::callUntil({deadline}, [&] { return read(mPipe[0], &mByte, 1); }) == -1 && errno == ETIMEDOUT;
    };
    ASSERT_TRUE(waitABit());
    const pid_t child = fork();
    if (child == 0) {
        _exit(waitABit() && waitABit() ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    EXPECT_TRUE(waitABit());
}

/// Timers of this process, as the kernel lists them.
int countTimers() {
    std::ifstream list("/proc/self/timers");
    int count = 0;
    for (std::string line; std::getline(list, line);) {
        count += line.compare(0, 3, "ID:") == 0 ? 1 : 0;
    }
    return count;
}

/// Reads from a terminal, which takes a timer, for `waitNs`.
struct Reader {
    int terminal;
    uint64_t waitNs;

    static void* run(void* self) {
        const Reader& reader = *static_cast<const Reader*>(self);
        char byte;
        arm(_NTO_TIMEOUT_SEND, reader.waitNs);
        KernelIO::read(reader.terminal, &byte, 1);
        return nullptr;
    }
};

class KernelIOThreads : public testing::Test {
protected:
    void SetUp() override {
        if (access("/proc/self/timers", R_OK) != 0) {
            GTEST_SKIP() << "the kernel lists no timers";
        }
        ASSERT_EQ(0, openpty(&mMaster, &mReader.terminal, nullptr, nullptr, nullptr));
        mBefore = countTimers();
    }
    void TearDown() override {
        EXPECT_EQ(mBefore, countTimers());
        close(mMaster);
        close(mReader.terminal);
    }
    int start(uint64_t waitNs) {
        mReader.waitNs = waitNs;
        return ThreadCreate(0, Reader::run, &mReader, nullptr);
    }

    int mMaster = -1;
    Reader mReader = {-1, 0};
    int mBefore = 0;
};

TEST_F(KernelIOThreads, LeaveNoTimers) {
    const int thread = start(kMs);
    ASSERT_GT(thread, 0);
    EXPECT_EQ(EOK, ThreadJoin_r(thread, nullptr));
}

TEST_F(KernelIOThreads, LeaveNoTimersWhereTheyAreDestroyed) {
    NEEDS_THREADS_THAT_VANISH();
    const int thread = start(100000 * kMs);
    ASSERT_GT(thread, 0);
    while (countTimers() == mBefore) {
        sched_yield();
    }
    EXPECT_EQ(0, ThreadDestroy(thread, -1, nullptr));
    EXPECT_EQ(EOK, ThreadJoin_r(thread, nullptr));
}

TEST_F(KernelIOTest, DevctlAnswersAsTheDeviceDoes) {
    int master;
    int slave;
    winsize size = {33, 44, 0, 0};
    ASSERT_EQ(0, openpty(&master, &slave, nullptr, nullptr, &size));
    for (const bool isArmed : {false, true}) {
        if (isArmed) {
            arm(_NTO_TIMEOUT_SEND, 1000 * kMs);
        }
        winsize told = {};
        int info = -5;
        errno = EIO;
        EXPECT_EQ(EOK, devctl(slave, TIOCGWINSZ, &told, sizeof told, &info));
        EXPECT_EQ(33, told.ws_row);
        EXPECT_EQ(0, info);
        EXPECT_EQ(EOK, devctl(slave, TIOCGWINSZ, &told, sizeof told, nullptr));
        EXPECT_EQ(ENOTTY, devctl(mPipe[0], TIOCGWINSZ, &told, sizeof told, &info));
        EXPECT_EQ(EBADF, devctl(-1, TIOCGWINSZ, &told, sizeof told, &info));
        EXPECT_EQ(0, info);
        EXPECT_EQ(EIO, errno);
    }
    close(master);
    close(slave);
}

}  // namespace
