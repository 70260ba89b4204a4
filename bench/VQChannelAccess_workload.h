// A request of some length and a reply of 64 bytes, there and back between two threads or processes that stay on one
// processor or on two; pulses; and the end of a process.
#pragma once

#include "Bench.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace bench {

constexpr std::size_t kReplyBytes = 64;
constexpr std::size_t kLongestRequest = 1 << 20;

using Clock = std::chrono::steady_clock;

inline double secondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

inline void stayOn(int cpu) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(cpu, &set);
    check(sched_setaffinity(0, sizeof set, &set) == 0, "a processor of one's own");
}

/// Where the two sides run: on one processor, or on two, unless the process may use one alone.
struct Placement {
    int client = -1, server = -1;

    explicit Placement(int processors) {
        cpu_set_t allowed;
        sched_getaffinity(0, sizeof allowed, &allowed);
        for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu)
            if (CPU_ISSET(cpu, &allowed)) {
                server = client;
                client = cpu;
            }
        if (processors == 1)
            server = client;
    }
    bool exists() const { return server != -1; }
};

inline bool isPlaced(benchmark::State& state, const Placement& placement) {
    if (!placement.exists())
        state.SkipWithError("this process may run on one processor only");
    return placement.exists();
}

/// Puts the measuring thread back to where it may run when the scope ends.
class PinnedHere {
public:
    explicit PinnedHere(int cpu) {
        sched_getaffinity(0, sizeof mBefore, &mBefore);
        stayOn(cpu);
    }
    ~PinnedHere() { sched_setaffinity(0, sizeof mBefore, &mBefore); }
    PinnedHere(const PinnedHere&) = delete;
    PinnedHere& operator=(const PinnedHere&) = delete;

private:
    cpu_set_t mBefore;
};

/// What a server replies: the ends of the request.
inline void answer(const char* request, std::size_t bytes, char (&reply)[kReplyBytes]) {
    std::memcpy(reply, request, kReplyBytes / 2);
    std::memcpy(reply + kReplyBytes / 2, request + bytes - kReplyBytes / 2, kReplyBytes / 2);
}

/// One client with its request. `exchange(request, reply)` makes one round trip.
template <class Exchange>
class RoundTrips {
public:
    RoundTrips(std::size_t bytes, Exchange exchange) : mExchange(exchange), mRequest(bytes) {
        for (std::size_t i = 0; i < bytes; ++i)
            mRequest[i] = static_cast<char>(i * 7 + i / 251);
        checkOne();
        const double first = run(kFirst) / kFirst;
        mTrips = static_cast<int>(std::clamp(kSecondsEach / first, 20.0, 5000.0));
    }
    /// What a round trip takes, in seconds: the middle one of many small batches, so that the moments in which another
    /// process had the processor do not count.
    double typical() {
        std::vector<double> batches(static_cast<std::size_t>((mTrips + kBatch - 1) / kBatch));
        for (double& batch : batches)
            batch = run(kBatch) / kBatch;
        const auto middle = batches.begin() + static_cast<std::ptrdiff_t>(batches.size() / 2);
        std::nth_element(batches.begin(), middle, batches.end());
        return *middle;
    }
    void checkOne() {
        mRequest.front() = static_cast<char>(mRequest.front() + 1);
        mRequest.back() = static_cast<char>(mRequest.back() + 3);
        char expected[kReplyBytes];
        answer(mRequest.data(), mRequest.size(), expected);
        std::memset(mReply, 0, sizeof mReply);
        mExchange(mRequest.data(), mReply);
        check(std::memcmp(mReply, expected, sizeof expected) == 0, "the reply");
    }

private:
    static constexpr double kSecondsEach = 0.005;
    static constexpr int kFirst = 20, kBatch = 8;

    double run(int trips) {
        const auto begin = Clock::now();
        for (int i = 0; i < trips; ++i)
            mExchange(mRequest.data(), mReply);
        return secondsSince(begin);
    }

    Exchange mExchange;
    std::vector<char> mRequest;
    char mReply[kReplyBytes];
    int mTrips = 1;
};

template <class Exchange>
void timeRoundTrips(benchmark::State& state, Exchange exchange) {
    RoundTrips<Exchange> trips(static_cast<std::size_t>(state.range(0)), exchange);
    for (auto _ : state)
        state.SetIterationTime(trips.typical());
    trips.checkOne();
}

/// A process that runs `body` and then ends, or is killed at the end of the scope.
class Process {
public:
    template <class Body>
    explicit Process(Body body) : mPid(fork()) {
        check(mPid >= 0, "fork");
        if (mPid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            body();
            _exit(EXIT_SUCCESS);
        }
    }
    ~Process() {
        kill();
        waitpid(mPid, nullptr, 0);
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    pid_t pid() const { return mPid; }
    void kill() const { ::kill(mPid, SIGKILL); }

private:
    pid_t mPid;
};

/// Carries numbers from one process to another.
class Pipe {
public:
    Pipe() { check(pipe(mEnds) == 0, "pipe"); }
    ~Pipe() {
        close(mEnds[0]);
        close(mEnds[1]);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    template <class T>
    void put(T value) const {
        check(write(mEnds[1], &value, sizeof value) == sizeof value, "tell the other process");
    }
    template <class T>
    T take() const {
        T value;
        check(read(mEnds[0], &value, sizeof value) == sizeof value, "hear from the other process");
        return value;
    }

private:
    int mEnds[2];
};

/// `serve(ready)` serves until its process is killed, after it has put a number into `ready`. `attach(server, number)`
/// gives what makes a round trip. Both run in processes of their own, so that what a library does at its first use is
/// never inherited.
template <class Serve, class Attach>
void timeProcesses(benchmark::State& state, int processors, Serve serve, Attach attach) {
    const Placement placement(processors);
    if (!isPlaced(state, placement))
        return;
    const Pipe ready, results;
    const Process server([&] {
        stayOn(placement.server);
        serve(ready);
    });
    const int number = ready.take<int>();
    const Process client([&] {
        stayOn(placement.client);
        auto exchange = attach(server.pid(), number);
        RoundTrips<decltype(exchange)> trips(static_cast<std::size_t>(state.range(0)), exchange);
        for (benchmark::IterationCount i = 0; i < state.max_iterations; ++i)
            results.put(trips.typical());
        trips.checkOne();
        results.put(0.0);
    });
    for (auto _ : state)
        state.SetIterationTime(results.take<double>());
    results.take<double>();
}

/// `serve()` in another thread and `exchange` here.
template <class Serve, class Exchange, class End>
void timeThreads(benchmark::State& state, int processors, Serve serve, Exchange exchange, End end) {
    const Placement placement(processors);
    if (!isPlaced(state, placement))
        return;
    const PinnedHere pinned(placement.client);
    std::thread server([=] {
        stayOn(placement.server);
        serve();
    });
    timeRoundTrips(state, exchange);
    end();
    server.join();
}

constexpr int kPulses = 20000;

/// `send(i)` for each pulse here, and `receive()` for each in another thread; the last must give the last number.
template <class Send, class Receive>
void timePulses(benchmark::State& state, int processors, Send send, Receive receive) {
    const Placement placement(processors);
    if (!isPlaced(state, placement))
        return;
    const PinnedHere pinned(placement.client);
    for (auto _ : state) {
        std::thread receiver([=] {
            stayOn(placement.server);
            int last = -1;
            for (int i = 0; i < kPulses; ++i)
                last = receive();
            check(last == kPulses - 1, "the last pulse");
        });
        const auto begin = Clock::now();
        for (int i = 0; i < kPulses; ++i)
            send(i);
        receiver.join();
        state.SetIterationTime(secondsSince(begin) / kPulses);
    }
}

/// The time from the kill of a process with as many MiB as the benchmark's size until another's call returns that waits
/// for it. `serve(ready)` as above but without end; `wait(server, number)` returns when the server is gone, after it
/// has called what it is given, close before it begins to wait.
template <class Serve, class Wait>
void timeEndOfPeer(benchmark::State& state, Serve serve, Wait wait) {
    const std::size_t bytes = static_cast<std::size_t>(state.range(0)) << 20;
    for (auto _ : state) {
        const Pipe ready, waiting, ended;
        const Process server([&] {
            std::vector<char> memory(bytes, 'm');
            benchmark::DoNotOptimize(memory.data());
            serve(ready);
        });
        const int number = ready.take<int>();
        const Process client([&] {
            wait(server.pid(), number, [&] { waiting.put('w'); });
            ended.put(Clock::now());
        });
        waiting.take<char>();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        const auto begin = Clock::now();
        server.kill();
        state.SetIterationTime(std::chrono::duration<double>(ended.take<Clock::time_point>() - begin).count());
    }
}

/// A process that keeps a processor busy to the end of the scope.
class BusyProcess {
public:
    explicit BusyProcess(int cpu)
        : mProcess([=] {
              stayOn(cpu);
              for (;;)
                  benchmark::ClobberMemory();
          }) {}

private:
    Process mProcess;
};

}  // namespace bench
