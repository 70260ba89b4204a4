// MessageOther: other processes that the tests of channels talk to.
#pragma once

#include "MessageTesting.h"
#include "Segment.h"

#include "support/ChildProcess.h"

#include <csignal>
#include <cstring>
#include <sys/wait.h>
#include <unistd.h>

/// A process of its own that runs `body`, and is killed at the end of the scope at the latest.
class Other {
public:
    explicit Other(const std::function<void()>& body) : mPid(fork()) {
        if (mPid == 0) {
            body();
            _exit(testing::Test::HasFailure() ? support::kExpectationFailed : 0);
        }
    }
    ~Other() {
        if (mPid > 0) {
            kill();
            wait();
        }
    }
    Other(const Other&) = delete;
    Other& operator=(const Other&) = delete;

    pid_t pid() const { return mPid; }
    void kill() const { ::kill(mPid, SIGKILL); }
    int wait() {
        int status = -1;
        while (waitpid(mPid, &status, 0) == -1 && errno == EINTR) {
        }
        mPid = -1;
        return status;
    }

private:
    pid_t mPid;
};

inline int attachTo(pid_t pid, int chid) {
    return ConnectAttach(0, pid, chid, _NTO_SIDE_CHANNEL, _NTO_COF_CLOEXEC);
}

/// Echoes with the status of how many bytes came, until a pulse of code 0 comes.
inline void echo(int chid) {
    std::vector<char> bytes(64 << 20);
    for (;;) {
        _msg_info info;
        const int id = receiveSoon(chid, bytes.data(), static_cast<int>(bytes.size()), &info);
        if (id > 0)
            MsgReply(id, info.msglen, bytes.data(), info.msglen);
        else if (id < 0 || reinterpret_cast<const _pulse*>(bytes.data())->code == 0)
            return;
    }
}

inline void answerNothing(int chid) {
    const int id = receiveSoon(chid);
    ASSERT_GT(id, 0);
    EXPECT_EQ(0, MsgReply(id, 0, nullptr, 0));
}

struct Pipe {
    Pipe() { EXPECT_EQ(0, pipe(ends)); }
    ~Pipe() {
        close(ends[0]);
        close(ends[1]);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int ends[2];
};

/// A process that echoes. It is one of its own so that this one has no thread when it forks clients.
class EchoServer {
public:
    EchoServer() : mServer([this] { run(); }) {
        EXPECT_EQ(static_cast<ssize_t>(sizeof chid), read(mReady.ends[0], &chid, sizeof chid));
    }
    pid_t pid() const { return mServer.pid(); }

    int chid = -1;

private:
    void run() const {
        const int made = ChannelCreate(0);
        if (write(mReady.ends[1], &made, sizeof made) == sizeof made)
            echo(made);
    }

    Pipe mReady;
    Other mServer;
};

inline std::function<void()> clientOf(pid_t server, int chid, const std::function<void(int)>& body) {
    return [=] {
        const int coid = attachTo(server, chid);
        ASSERT_GE(coid, _NTO_SIDE_CHANNEL) << std::strerror(errno);
        body(coid);
        EXPECT_EQ(0, ConnectDetach(coid));
    };
}

/// Of a channel of this process.
inline std::function<void()> client(int chid, const std::function<void(int)>& body) {
    return clientOf(getpid(), chid, body);
}

/// A connection that has no place for another message: as many threads as there are places send nothing to a process that
/// receives nothing until it is told to echo.
class FullConnection {
public:
    FullConnection() : mServer([this] { run(); }) {
        int chid = -1;
        EXPECT_EQ(static_cast<ssize_t>(sizeof chid), read(mReady.ends[0], &chid, sizeof chid));
        coid = attachTo(mServer.pid(), chid);
        EXPECT_GE(coid, _NTO_SIDE_CHANNEL);
        for (unsigned i = 0; i < host::kLanes; ++i)
            mSenders.push_back(sendNothingElsewhere(coid));
        waitUntilOthersSleep();
    }

    void begin() const { EXPECT_EQ(1, write(mBegin.ends[1], "b", 1)); }
    void killServer() const { mServer.kill(); }
    void expectOfAll(const Outcome& expected) {
        for (std::future<Outcome>& sender : mSenders)
            EXPECT_EQ(expected, sender.get());
        mSenders.clear();
    }

    int coid = -1;

private:
    void run() const {
        const int chid = ChannelCreate(0);
        char byte;
        if (write(mReady.ends[1], &chid, sizeof chid) == sizeof chid && read(mBegin.ends[0], &byte, 1) == 1)
            echo(chid);
    }

    Pipe mReady, mBegin;
    std::vector<std::future<Outcome>> mSenders;
    Other mServer;  // the first to go, so that nobody waits for it
};

#define EXPECT_ENDS_WELL(child)                                                                                    \
    do {                                                                                                           \
        const support::ChildResult result = (child);                                                               \
        EXPECT_TRUE(result.exitedWith(0)) << result;                                                               \
    } while (false)
