#include "Report.h"

#include "support/Sanitizers.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace load {
namespace {

const char* const kKindNames[KINDS] = {"string operations",
                                       "buffers and streams",
                                       "locks held",
                                       "conditions met",
                                       "semaphore units given, taken",
                                       "barrier rounds passed",
                                       "requests answered",
                                       "pulses sent",
                                       "segments handed over",
                                       "kernel timers fired",
                                       "logical timers fired"};
const char* const kFlowNames[FLOWS] = {"to the server, 28 to 264 B", "to the server, up to 256 KiB",
                                       "to the server, segments", "to a worker, up to 80 KiB",
                                       "within the server, up to 80 KiB"};

/// The number after `key` in a file of /proc.
long numberIn(const std::string& file, const std::string& key) {
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, key.size(), key) == 0) {
            return std::atol(line.c_str() + key.size());
        }
    }
    return 0;
}

long countEntries(const std::string& folder) {
    std::error_code error;
    return std::distance(std::filesystem::directory_iterator(folder, error), {});
}

}  // namespace

void CReport::wasKilled(int worker, unsigned generation, bool wasKilled) {
    if (wasKilled) {
        mKilled.emplace(worker, generation);
    }
}

void CReport::settle(int process, const SPlace& place) {
    const bool wasKilled = mKilled.erase({process, place.generation}) != 0;
    for (int flow = 0; flow < FLOWS; ++flow) {
        settleFlow(process, place, static_cast<EFlow>(flow), wasKilled);
    }
    settlePulses(process, place, wasKilled);
}

void CReport::settleFlow(int process, const SPlace& place, EFlow index, bool wasKilled) {
    const SFlow& flow = place.flows[index];
    const unsigned intended = flow.intended, answered = flow.answered, timedOut = flow.timedOut;
    const unsigned accepted = flow.accepted, doubled = flow.doubled, lost = flow.lost, lapsed = flow.lapsed;
    mIntended += intended;
    mAnswered += answered;
    mTimedOut += timedOut;
    mAccepted += accepted;
    mDoubled += doubled;
    mLost += lost + (answered > accepted ? answered - accepted : 0);
    // Of a sender that was killed one request may be open: accepted, or not.
    const unsigned open = intended - answered - lapsed;
    if (doubled != 0 || lost != 0 || accepted < answered + lapsed || accepted > intended ||
        open > (wasKilled ? 1U : 0U)) {
        mBoard.complain(
            "%s process %d, start %u, flow %d: %u requests intended, %u accepted, %u answered, %u lapsed; "
            "%u doubled, %u lost",
            wasKilled ? "killed" : "stopped", process, place.generation.load(), index, intended, accepted, answered,
            lapsed, doubled, lost);
    }
}

void CReport::settlePulses(int process, const SPlace& place, bool wasKilled) {
    const SPulses& pulses = place.pulses;
    const unsigned long long highest = pulses.highest, received = pulses.received, sent = pulses.sent;
    mPulsesSent += sent;
    mPulsesReceived += received;
    mPulsesLost += sent > received ? sent - received : 0;
    const bool isWhole = received == highest && pulses.sum == highest * (highest + 1) / 2;
    if (!isWhole || highest > pulses.intended || sent > highest || (!wasKilled && sent != highest)) {
        mBoard.complain("%s process %d, start %u: %llu pulses sent, %llu received, the last was %llu",
                        wasKilled ? "killed" : "stopped", process, place.generation.load(), sent, received,
                        highest);
    }
}

void CReport::sample(pid_t server, unsigned long long ms) {
    const std::string process = "/proc/" + std::to_string(server);
    mSamples.push_back({ms, numberIn(process + "/status", "VmRSS:"), numberIn(process + "/status", "RssAnon:"),
                        static_cast<long>(mBoard.serverHeap.load()), countEntries(process + "/fd")});
    const SSample& now = mSamples.back();
    const bool isSeen = isatty(STDOUT_FILENO) == 1;
    if (ms >= mNextLineMs) {
        mNextLineMs += isSeen ? 1000 : 10000;
        std::printf("%s%5llu s  %llu requests, %llu pulses, %llu kills, %llu signals; %ld KiB, own %ld KiB, heap "
                    "%ld B, %ld fds%s",
                    isSeen ? "\r" : "", ms / 1000, mBoard.operations[MESSAGES].count.load(),
                    mBoard.operations[PULSES].count.load(), kills, mBoard.signals.load(), now.rss, now.anonymous,
                    now.heap, now.descriptors, isSeen ? "  " : "\n");
        std::fflush(stdout);
    }
}

/// A quarter of the time, a minute at most.
std::size_t CReport::warmUp() const {
    return std::min<std::size_t>(mSamples.size() / 4, 60000 / kSampleMs);
}

/// Lays a line through the samples of the server's own memory. What it may rise by in all is what the C library's
/// heap keeps, now more, now less, of blocks of some 100 KiB that come and go.
void CReport::judgeMemory() {
    if (samples() < kFewestSamples) {
        return;
    }
    const std::vector<SSample> kept(mSamples.begin() + static_cast<long>(warmUp()), mSamples.end());
    double meanMs = 0, mean = 0, products = 0, squares = 0;
    for (const SSample& sample : kept) {
        meanMs += static_cast<double>(sample.ms) / static_cast<double>(kept.size());
        mean += static_cast<double>(sample.anonymous) / static_cast<double>(kept.size());
    }
    for (const SSample& sample : kept) {
        const double ms = static_cast<double>(sample.ms) - meanMs;
        products += ms * (static_cast<double>(sample.anonymous) - mean);
        squares += ms * ms;
    }
    mGrowthKiB = products / squares * static_cast<double>(kept.back().ms - kept.front().ms);
    constexpr double kMostKiB = 4096;
    if (mGrowthKiB > kMostKiB && !support::kIsSanitized) {
        mBoard.complain("the server's memory grows: by %.0f KiB", mGrowthKiB);
    }
}

void CReport::showComplaints(int errors) const {
    const unsigned all = mBoard.complaints;
    for (unsigned i = 0; i < std::min(all, SBoard::kMaxComplaints); ++i) {
        std::printf("VIOLATION: %s\n", mBoard.texts[i]);
    }
    char block[4096];
    long at = 0;
    for (long size; (size = pread(errors, block, sizeof(block), at)) > 0 && at < 65536; at += size) {
        std::fwrite(block, 1, static_cast<std::size_t>(size), stdout);
    }
}

void CReport::showMemory() const {
    const std::size_t warm = warmUp();
    if (warm >= mSamples.size()) {
        return;
    }
    std::printf("\n%-36s %12s %10s %10s %10s\n", "the server, five times a second", "warm", "least", "most",
                "last");
    const auto line = [&](const char* what, long SSample::*value) {
        const auto range =
            std::minmax_element(mSamples.begin() + static_cast<long>(warm), mSamples.end(),
                                [&](const SSample& a, const SSample& b) { return a.*value < b.*value; });
        std::printf("%-36s %12ld %10ld %10ld %10ld\n", what, mSamples[warm].*value, (*range.first).*value,
                    (*range.second).*value, mSamples.back().*value);
    };
    line("resident memory, KiB", &SSample::rss);
    line("of it the process's own, KiB", &SSample::anonymous);
    line("heap by the allocator's account, B", &SSample::heap);
    line("descriptors", &SSample::descriptors);
    std::printf("%-36s %+12.0f over %llu s\n", "growth of its own, by a line, KiB", mGrowthKiB,
                (mSamples.back().ms - mSamples[warm].ms) / 1000);
}

int CReport::finish(int errors, unsigned long long lastedMs) {
    judgeMemory();
    const off_t words = lseek(errors, 0, SEEK_END);
    if (words != 0) {
        mBoard.complain("%ld bytes on standard error", static_cast<long>(words));
    }
    char prefix[64];
    std::snprintf(prefix, sizeof(prefix), "marlix_load_%d_", mBoard.id);
    unsigned left = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/dev/shm")) {
        const std::string name = entry.path().filename().string();
        if (name.compare(0, std::strlen(prefix), prefix) == 0) {
            ++left;
            shm_unlink(name.c_str());
        }
    }
    if (left != 1 && mBoard.complaints == 0) {  // the board
        mBoard.complain("%u segments are left", left - 1);
    }

    const double seconds = static_cast<double>(lastedMs) / 1000;
    std::printf("\n%-36s %.0f s, %d threads in each of %d processes\n", "lasted", seconds, kThreads, kProcesses);
    for (int kind = 0; kind < KINDS; ++kind) {
        const unsigned long long count = mBoard.operations[kind].count;
        std::printf("%-36s %12llu %10.0f /s\n", kKindNames[kind], count, static_cast<double>(count) / seconds);
    }
    std::printf("\n%-36s %12s %10s %10s\n", "round trips", "number", "mean us", "longest ms");
    for (int flow = 0; flow < FLOWS; ++flow) {
        const STrips& trips = mBoard.trips[flow];
        const auto count = static_cast<double>(std::max(1ULL, trips.count.load()));
        std::printf("%-36s %12llu %10.1f %10.1f\n", kFlowNames[flow], trips.count.load(),
                    static_cast<double>(trips.sumNs) / count / 1e3, static_cast<double>(trips.longestNs) / 1e6);
    }
    const auto line = [](const char* what, unsigned long long number) {
        std::printf("%-36s %12llu\n", what, number);
    };
    std::printf("\n");
    line("kill -9", kills);
    line("workers' units stopped in order", stops);
    line("signals", mBoard.signals);
    line("interrupted senders kept waiting", mBoard.interruptions);
    line("disconnections noticed", mBoard.disconnects);
    line("segments of killed workers removed", segmentsLeft);
    std::printf("\n");
    line("requests numbered", mIntended);
    line("  answered", mAnswered);
    line("  cut off by a kill", mIntended - mAnswered);
    line("requests accepted", mAccepted);
    line("  of those cut off", mAccepted - mAnswered);
    line("sends given up at a time-out", mTimedOut);
    line("requests lost", mLost);
    line("requests doubled", mDoubled);
    line("pulses sent", mPulsesSent);
    line("pulses received", mPulsesReceived);
    line("pulses lost", mPulsesLost);
    showMemory();
    std::printf("\n");
    showComplaints(errors);
    const unsigned violations = mBoard.complaints;
    std::printf("load: %u violations\n", violations);
    return violations == 0 ? 0 : 1;
}

}  // namespace load
