// What one would build instead of channels: sockets, ZeroMQ, nng; and the least that the kernel and the memory allow.
#include "VQChannelAccess_workload.h"

#include <atomic>
#include <linux/futex.h>
#include <poll.h>
#include <pthread.h>
#include <string>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#if BENCH_ZEROMQ
#include <zmq.h>
#endif
#if BENCH_NNG
#include <nng/nng.h>
#include <nng/protocol/reqrep0/rep.h>
#include <nng/protocol/reqrep0/req.h>
#endif

namespace {

using namespace bench;

std::size_t bytesOf(const benchmark::State& state) {
    return static_cast<std::size_t>(state.range(0));
}

// ---- hand-overs: one word each way

enum class Waiting { SLEEP, SPIN };
enum class Shared : int { NO = FUTEX_PRIVATE_FLAG, YES = 0 };

template <Waiting waiting, Shared shared>
struct Word {
    alignas(64) std::atomic<unsigned> value{0};

    void await(unsigned turn) {
        while (value.load(std::memory_order_acquire) != turn) {
            if constexpr (waiting == Waiting::SPIN)
                __builtin_ia32_pause();
            else
                syscall(SYS_futex, &value, FUTEX_WAIT | static_cast<int>(shared), turn - 1, nullptr, nullptr, 0);
        }
    }
    void set(unsigned turn) {
        value.store(turn, std::memory_order_release);
        if constexpr (waiting == Waiting::SLEEP)
            syscall(SYS_futex, &value, FUTEX_WAKE | static_cast<int>(shared), 1, nullptr, nullptr, 0);
    }
};

/// The request is copied once, by the server, from where the client has it.
template <Waiting waiting>
void handOver(benchmark::State& state, int processors) {
    struct {
        Word<waiting, Shared::NO> sent, replied;
        const char* request = nullptr;
        char* reply = nullptr;
    } lane;
    unsigned turn = 0;
    timeThreads(
        state, processors,
        [&lane, bytes = bytesOf(state)] {
            std::vector<char> request(bytes);
            for (unsigned next = 1;; ++next) {
                lane.sent.await(next);
                if (lane.request == nullptr)
                    return;
                std::memcpy(request.data(), lane.request, bytes);
                char reply[kReplyBytes];
                answer(request.data(), bytes, reply);
                std::memcpy(lane.reply, reply, sizeof reply);
                lane.replied.set(next);
            }
        },
        [&](const char* request, char* reply) {
            lane.request = request;
            lane.reply = reply;
            lane.sent.set(++turn);
            lane.replied.await(turn);
        },
        [&] {
            lane.request = nullptr;
            lane.sent.set(turn + 1);
        });
}

MARLIX_BENCH_MANUAL("VQChannelAccess_ThreadsOneCpu", "floor: futex hand-over and one copy", 64, 4096, 65536,
                    1048576) {
    handOver<Waiting::SLEEP>(state, 1);
}
MARLIX_BENCH_MANUAL("VQChannelAccess_ThreadsOneCpuTimed", "floor: futex hand-over and one copy", 64, 4096, 65536) {
    handOver<Waiting::SLEEP>(state, 1);
}
MARLIX_BENCH_MANUAL("VQChannelAccess_ThreadsTwoCpus", "floor: spinning hand-over and one copy", 64, 4096, 65536) {
    handOver<Waiting::SPIN>(state, 2);
}
MARLIX_BENCH_FEW("VQChannelAccess_BesideBusy", "floor: quiet futex hand-over and one copy", 64) {
    handOver<Waiting::SLEEP>(state, 1);
}

/// The same between processes: the request is copied into memory of both and out of it.
template <Waiting waiting>
void handOverSegment(benchmark::State& state, int processors) {
    struct Segment {
        Word<waiting, Shared::YES> sent, replied;
        char reply[kReplyBytes];
        char request[kLongestRequest];
    };
    void* const memory = mmap(nullptr, sizeof(Segment), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    check(memory != MAP_FAILED, "mmap");
    Segment& segment = *new (memory) Segment;
    timeProcesses(
        state, processors,
        [&, bytes = bytesOf(state)](const Pipe& ready) {
            std::vector<char> request(bytes);
            ready.put(0);
            for (unsigned turn = 1;; ++turn) {
                segment.sent.await(turn);
                std::memcpy(request.data(), segment.request, bytes);
                char reply[kReplyBytes];
                answer(request.data(), bytes, reply);
                std::memcpy(segment.reply, reply, sizeof reply);
                segment.replied.set(turn);
            }
        },
        [&](pid_t, int) {
            return [&, bytes = bytesOf(state), turn = 0u](const char* request, char* reply) mutable {
                std::memcpy(segment.request, request, bytes);
                segment.sent.set(++turn);
                segment.replied.await(turn);
                std::memcpy(reply, segment.reply, kReplyBytes);
            };
        });
    munmap(memory, sizeof(Segment));
}

MARLIX_BENCH_MANUAL("VQChannelAccess_ProcessesOneCpu", "floor: segment and futex", 64, 4096, 65536, 1048576) {
    handOverSegment<Waiting::SLEEP>(state, 1);
}
MARLIX_BENCH_MANUAL("VQChannelAccess_ProcessesOneCpuTimed", "floor: segment and futex", 64, 4096, 65536, 1048576) {
    handOverSegment<Waiting::SLEEP>(state, 1);
}
MARLIX_BENCH_MANUAL("VQChannelAccess_ProcessesTwoCpus", "floor: segment and spinning", 64, 4096, 65536) {
    handOverSegment<Waiting::SPIN>(state, 2);
}

// ---- a socket pair

class SocketPair {
public:
    SocketPair() {
        check(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0, "socketpair");
        const int room = 4 << 20;
        for (const int end : ends)
            if (setsockopt(end, SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof room) != 0)
                setsockopt(end, SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
    }
    ~SocketPair() {
        close(ends[0]);
        close(ends[1]);
    }
    SocketPair(const SocketPair&) = delete;
    SocketPair& operator=(const SocketPair&) = delete;

    int ends[2];
};

/// The largest message depends on what the kernel allows as a buffer: 208 KiB for those who are not root.
bool takesWhole(const SocketPair& sockets, std::size_t bytes) {
    const std::vector<char> request(bytes);
    return send(sockets.ends[0], request.data(), bytes, MSG_DONTWAIT) == static_cast<ssize_t>(bytes);
}

void overSocket(benchmark::State& state, int processors) {
    if (!takesWhole(SocketPair(), bytesOf(state))) {
        state.SkipWithError("the kernel's limit for a message is smaller");
        return;
    }
    const SocketPair sockets;
    timeProcesses(
        state, processors,
        [&](const Pipe& ready) {
            std::vector<char> request(kLongestRequest);
            ready.put(0);
            for (ssize_t size; (size = recv(sockets.ends[1], request.data(), request.size(), 0)) > 0;) {
                char reply[kReplyBytes];
                answer(request.data(), static_cast<std::size_t>(size), reply);
                send(sockets.ends[1], reply, sizeof reply, 0);
            }
        },
        [&](pid_t, int) {
            return [&, bytes = bytesOf(state)](const char* request, char* reply) {
                check(send(sockets.ends[0], request, bytes, 0) == static_cast<ssize_t>(bytes), "send");
                check(recv(sockets.ends[0], reply, kReplyBytes, 0) == kReplyBytes, "receive");
            };
        });
}

MARLIX_BENCH_MANUAL("VQChannelAccess_ProcessesOneCpu", "AF_UNIX SEQPACKET", 64, 4096, 65536, 1048576) {
    overSocket(state, 1);
}
MARLIX_BENCH_MANUAL("VQChannelAccess_ProcessesTwoCpus", "AF_UNIX SEQPACKET", 64, 4096, 65536) {
    overSocket(state, 2);
}

MARLIX_BENCH_FEW("VQChannelAccess_EndOfPeer", "floor: a descriptor of the process", 1, 64, 256) {
    timeEndOfPeer(
        state,
        [](const Pipe& ready) {
            ready.put(0);
            pause();
        },
        [](pid_t server, int, auto begin) {
            pollfd end = {static_cast<int>(syscall(SYS_pidfd_open, server, 0)), POLLIN, 0};
            check(end.fd >= 0, "pidfd_open");
            begin();
            check(poll(&end, 1, -1) == 1, "the end is noticed");
        });
}

// ---- libraries

#if BENCH_ZEROMQ || BENCH_NNG
// Abstract names, so that no file is left behind.
std::string addressOf(const char* scheme, int number) {
    return scheme + std::string("bench_channels_") + std::to_string(number);
}
#endif

#if BENCH_ZEROMQ
void overZeroMq(benchmark::State& state, int processors) {
    timeProcesses(
        state, processors,
        [](const Pipe& ready) {
            void* const socket = zmq_socket(zmq_ctx_new(), ZMQ_REP);
            check(zmq_bind(socket, addressOf("ipc://@", getpid()).c_str()) == 0, "bind");
            ready.put(static_cast<int>(getpid()));
            std::vector<char> request(kLongestRequest);
            for (int size; (size = zmq_recv(socket, request.data(), request.size(), 0)) >= 0;) {
                char reply[kReplyBytes];
                answer(request.data(), static_cast<std::size_t>(size), reply);
                zmq_send(socket, reply, sizeof reply, 0);
            }
        },
        [&](pid_t, int number) {
            void* const socket = zmq_socket(zmq_ctx_new(), ZMQ_REQ);
            check(zmq_connect(socket, addressOf("ipc://@", number).c_str()) == 0, "connect");
            return [=, bytes = bytesOf(state)](const char* request, char* reply) {
                check(zmq_send(socket, request, bytes, 0) == static_cast<int>(bytes), "send");
                check(zmq_recv(socket, reply, kReplyBytes, 0) == kReplyBytes, "receive");
            };
        });
}
MARLIX_BENCH_MANUAL("VQChannelAccess_ProcessesOneCpu", "ZeroMQ over ipc", 64, 4096, 65536, 1048576) {
    overZeroMq(state, 1);
}
MARLIX_BENCH_MANUAL("VQChannelAccess_ProcessesTwoCpus", "ZeroMQ over ipc", 64, 4096, 65536) {
    overZeroMq(state, 2);
}
#endif

#if BENCH_NNG
void overNng(benchmark::State& state, int processors) {
    timeProcesses(
        state, processors,
        [](const Pipe& ready) {
            nng_socket socket;
            check(nng_rep0_open(&socket) == 0 &&
                      nng_listen(socket, addressOf("abstract://", getpid()).c_str(), nullptr, 0) == 0,
                  "listen");
            nng_socket_set_size(socket, NNG_OPT_RECVMAXSZ, 0);
            ready.put(static_cast<int>(getpid()));
            std::vector<char> request(kLongestRequest);
            for (std::size_t size; size = request.size(), nng_recv(socket, request.data(), &size, 0) == 0;) {
                char reply[kReplyBytes];
                answer(request.data(), size, reply);
                nng_send(socket, reply, sizeof reply, 0);
            }
        },
        [&](pid_t, int number) {
            nng_socket socket;
            check(nng_req0_open(&socket) == 0 &&
                      nng_dial(socket, addressOf("abstract://", number).c_str(), nullptr, 0) == 0,
                  "dial");
            return [=, bytes = bytesOf(state)](char* request, char* reply) {
                std::size_t room = kReplyBytes;
                check(nng_send(socket, request, bytes, 0) == 0, "send");
                check(nng_recv(socket, reply, &room, 0) == 0 && room == kReplyBytes, "receive");
            };
        });
}
MARLIX_BENCH_MANUAL("VQChannelAccess_ProcessesOneCpu", "nng over ipc", 64, 4096, 65536, 1048576) {
    overNng(state, 1);
}
MARLIX_BENCH_MANUAL("VQChannelAccess_ProcessesTwoCpus", "nng over ipc", 64, 4096, 65536) {
    overNng(state, 2);
}
#endif

// ---- pulses

/// A bounded ring under a lock; who puts something in wakes the other only when it sleeps.
class Ring {
public:
    void put(int value) {
        pthread_mutex_lock(&mLock);
        mPulses[mWritten++ % kPlaces] = {0, 10, value};
        const bool wake = mSleeps;
        mSleeps = false;
        pthread_mutex_unlock(&mLock);
        if (wake) {
            mWord.fetch_add(1);
            syscall(SYS_futex, &mWord, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
        }
    }
    int take() {
        pthread_mutex_lock(&mLock);
        while (mRead == mWritten) {
            mSleeps = true;
            const unsigned seen = mWord.load();
            pthread_mutex_unlock(&mLock);
            syscall(SYS_futex, &mWord, FUTEX_WAIT_PRIVATE, seen, nullptr, nullptr, 0);
            pthread_mutex_lock(&mLock);
        }
        const Pulse pulse = mPulses[mRead++ % kPlaces];
        pthread_mutex_unlock(&mLock);
        return pulse.value;
    }

private:
    static constexpr unsigned kPlaces = 1 << 15;
    static_assert(kPlaces > kPulses, "the sender never waits");
    struct Pulse {
        int code, priority, value;
    };

    pthread_mutex_t mLock = PTHREAD_MUTEX_INITIALIZER;
    Pulse mPulses[kPlaces];
    unsigned mWritten = 0, mRead = 0;
    bool mSleeps = false;
    std::atomic<unsigned> mWord{0};
};

void pulsesThroughRing(benchmark::State& state, int processors) {
    static Ring ring;
    timePulses(
        state, processors, [](int i) { ring.put(i); }, [] { return ring.take(); });
}
MARLIX_BENCH_MANUAL("VQChannelAccess_PulseOneCpu", "floor: locked ring", 16) {
    pulsesThroughRing(state, 1);
}
MARLIX_BENCH_MANUAL("VQChannelAccess_PulseTwoCpus", "floor: locked ring", 16) {
    pulsesThroughRing(state, 2);
}

// ---- what is allowed, where a time and not a ratio is the goal

MARLIX_BENCH_FEW("VQChannelAccess_EndOfPeer", "allowed: 1 ms and 0.1 ms per MiB", 1, 64, 256) {
    for (auto _ : state)
        state.SetIterationTime(1e-3 + 1e-4 * static_cast<double>(state.range(0)));
}
MARLIX_BENCH_FEW("VQChannelAccess_Idle", "allowed: 0.1 % of a processor", 1) {
    for (auto _ : state)
        state.SetIterationTime(1e-3);
}

}  // namespace
