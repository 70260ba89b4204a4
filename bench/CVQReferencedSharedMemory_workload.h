// CVQReferencedSharedMemory_workload: an object of the benchmark's size that one process creates and another one
// opens. The time is what both have spent on it.
#pragma once

#include "Bench.h"
#include "ProcessorTime.h"

#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

constexpr unsigned kLetter = 0x4C455454;  // what lies in each segment

/// A process that calls `receive(bytes, size)` for each message, which returns the letter.
template <class Receive>
class Receiver {
public:
    explicit Receiver(Receive receive) {
        int ends[2];
        check(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0, "a pair of sockets");
        mProcess = fork();
        check(mProcess >= 0, "another process");
        if (mProcess == 0) {
            close(ends[0]);
            char message[256];
            ssize_t size;
            while ((size = read(ends[1], message, sizeof message)) > 0) {
                const unsigned letter = receive(message, static_cast<unsigned>(size));
                if (write(ends[1], &letter, sizeof letter) != sizeof letter)
                    break;
            }
            _exit(0);
        }
        close(ends[1]);
        mEnd = ends[0];
        check(clock_getcpuclockid(mProcess, &mClock) == 0, "a clock of the other process");
    }
    ~Receiver() {
        close(mEnd);
        waitpid(mProcess, nullptr, 0);
    }
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    /// Returns when the other process has done with it.
    void handOver(const void* message, std::size_t size) const {
        unsigned letter = 0;
        const bool isAnswered = write(mEnd, message, size) == static_cast<ssize_t>(size) &&
                                read(mEnd, &letter, sizeof letter) == sizeof letter;
        check(isAnswered && letter == kLetter, "a letter that arrived");
    }

    /// What both processes have spent.
    double seconds() const { return processorSeconds() + processorSeconds(mClock); }

private:
    pid_t mProcess;
    int mEnd;
    clockid_t mClock;
};

/// `send(receiver, name, size)` is one hand-over, from the segment's creation to its end.
template <class Receive, class Send>
void handOvers(benchmark::State& state, Receive receive, Send send) {
    constexpr unsigned kTurns = 50;
    const std::string name = "/marlix-bench-" + std::to_string(getpid());
    const auto size = static_cast<unsigned>(state.range(0));
    const Receiver<Receive> receiver(receive);
    for (auto _ : state) {
        const double start = receiver.seconds();
        for (unsigned i = 0; i < kTurns; ++i)
            send(receiver, name.c_str(), size);
        state.SetIterationTime((receiver.seconds() - start) / kTurns);
    }
    check(access(("/dev/shm" + name).c_str(), F_OK) != 0, "nothing is left");
}

}  // namespace bench
