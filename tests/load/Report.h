// Report: settles the accounts, samples the server's memory, and says how it went.
#pragma once

#include "Board.h"

#include <set>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace load {

class CReport {
public:
    explicit CReport(SBoard& board) : mBoard(board) {}

    /// How a start of a worker ended.
    void wasKilled(int worker, unsigned generation, bool wasKilled);
    /// The sender has ended and the receiver has seen all that it sent: the account is closed.
    void settle(int process, const SPlace& place);
    /// Notes what the server holds, and shows a line on the way.
    void sample(pid_t server, unsigned long long ms);
    /// The whole report. The exit status of the load.
    int finish(int errors, unsigned long long lastedMs);

    static constexpr unsigned kSampleMs = 200;
    static constexpr unsigned long long kFewestSamples = 20;  ///< that a line is laid through
    unsigned long long samples() const { return mSamples.size(); }
    unsigned long long kills = 0, stops = 0, segmentsLeft = 0;

private:
    struct SSample {
        unsigned long long ms;
        long rss, anonymous, heap, descriptors;  // KiB, KiB, bytes, number
    };

    void settleFlow(int process, const SPlace& place, EFlow flow, bool wasKilled);
    void settlePulses(int process, const SPlace& place, bool wasKilled);
    std::size_t warmUp() const;
    void judgeMemory();
    void showMemory() const;
    void showComplaints(int errors) const;

    SBoard& mBoard;
    std::set<std::pair<int, unsigned>> mKilled;
    std::vector<SSample> mSamples;
    unsigned long long mIntended = 0, mAnswered = 0, mTimedOut = 0, mAccepted = 0;
    unsigned long long mLost = 0, mDoubled = 0;
    unsigned long long mPulsesSent = 0, mPulsesReceived = 0, mPulsesLost = 0;
    double mGrowthKiB = 0;
    unsigned long long mNextLineMs = 0;
};

}  // namespace load
