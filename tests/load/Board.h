// Board: what all processes of the load see: orders, counts, and what went wrong. It lies in shared memory.
//   Numbers  each sender numbers its requests from 1. It notes a number as intended before it sends, and as answered
//            after the reply; one that it gave up at a time-out, which nobody received, is used again. The receiver
//            notes a number as accepted before it replies. So of a killed process each flow has answered <= accepted
//            <= intended <= answered + 1, and the one that was accepted without an answer is known exactly.
//   Once     a send that a signal interrupts is made again. That the request comes once all the same is the channels'
//            doing: with _NTO_CHF_UNBLOCK a sender whose request was received waits for the reply, signals or not.
//   Places   a generation is one start of a worker. Its place is used again `kGenerations` starts later, when all that
//            it sent has long been seen, and is settled before.
#pragma once

#include <atomic>

namespace load {

using Number = std::atomic<unsigned>;
using Count = std::atomic<unsigned long long>;

constexpr int kWorkers = 3, kServer = kWorkers, kProcesses = kWorkers + 1, kThreads = 8;
constexpr int kUnits = 2;  // of workers that meet in shared semaphores and barriers, and so are killed together
constexpr unsigned kGenerations = 16;

constexpr int unitOf(int worker) {
    return worker == 0 ? 0 : 1;
}

/// What is counted as an operation.
enum EKind {
    STRINGS,
    BUFFERS,
    LOCKS,
    CONDITIONS,
    SEMAPHORES,
    BARRIERS,
    MESSAGES,
    PULSES,
    SEGMENTS,
    KERNEL_TIMERS,
    LOGICAL_TIMERS,
    KINDS
};

/// Who sends what to whom.
enum EFlow {
    SMALL,    // worker to server, some bytes, without a time-out
    LARGE,    // worker to server, up to 256 KiB of strings and buffers, at times with a time-out
    HANDLES,  // worker to server, the handle of a referenced segment
    BACK,     // server to worker
    LOCAL,    // server to itself
    FLOWS
};

/// The accounts of one sender's requests.
struct SFlow {
    Number intended, answered, timedOut;  // the sender's
    Number lapsed;                        // accepted by a receiver who did not live to answer, as the sender found
    Number accepted, doubled, lost;       // the receiver's

    /// Numbers arrive in their order, each once.
    void accept(unsigned number);
};

/// The accounts of pulses, which nobody answers.
struct SPulses {
    Number intended, sent;     // the sender's
    Number received, highest;  // the receiver's
    Count sum;
};

struct SPlace {
    Number generation;
    std::atomic<int> pid, channel;
    std::atomic<bool> isDead;  // its segments are about to be unlinked
    SFlow flows[FLOWS];
    SPulses pulses;
};

struct alignas(64) SOperations {
    Count count;
};

struct STrips {
    Count count, sumNs, longestNs;
    void note(unsigned long long ns);
};

/// Deliberate faults, which the load must find.
enum EFault {
    NO_FAULT,
    LOSE_REQUEST,
    DOUBLE_REQUEST,
    WRONG_REPLY,
    LOSE_PULSE,
    DOUBLE_PULSE,
    LEAK_HEAP,
    LEAK_DESCRIPTOR,
    LEAK_SEGMENT,
    LEAK_THREAD,
    GROW,
    HANG,
    ASSERT,
    DIE,
    FAULTS
};

struct SBoard {
    int id;  // in the names of all segments
    EFault fault;

    Number serverLives;
    std::atomic<bool> guestHasLeft, stopServer, stopUnit[kUnits];
    SPlace places[kProcesses][kGenerations];
    Number newest[kProcesses];            // generation whose place is ready
    std::atomic<int> openings[kWorkers];  // of segments of this worker, under way in the server
    Number steps[kProcesses][kThreads];   // grow while a thread is not stuck
    Count serverHeap;

    SOperations operations[KINDS];
    STrips trips[FLOWS];
    Count signals, disconnects, interruptions;

    static constexpr unsigned kMaxComplaints = 40, kMaxWords = 200;
    Number complaints;
    char texts[kMaxComplaints][kMaxWords];

    SPlace& place(int process, unsigned generation) { return places[process][generation % kGenerations]; }
    void count(EKind kind, unsigned long long more = 1) {
        operations[kind].count.fetch_add(more, std::memory_order_relaxed);
    }
    /// Something went wrong: the load fails.
    void complain(const char* format, ...) __attribute__((format(printf, 2, 3)));
    /// Counts a pulse that the kernel sent, not a program. True when it was one.
    bool takeSystemPulse(int code);
    /// True once, for the one who is to make the fault: in the server's second life, which is the one that counts.
    bool takeFault(EFault wanted);

private:
    Number mBegun;  // complaints, of which some may not be complete
    std::atomic<bool> mIsFaultMade;
};

unsigned long long nowNs();

}  // namespace load
