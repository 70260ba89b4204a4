// Messages: what travels over the channels, and the connections that it travels on.
#pragma once

#include "Board.h"

#include <CVQByteStream.h>
#include <sys/neutrino.h>

namespace load {

constexpr unsigned kMark = 0x10AD10AD;
constexpr int kLongest = 320 * 1024;

/// In front of each request and, with the sum of what was received, of each reply.
struct SHeader {
    unsigned mark;
    unsigned process, generation;
    unsigned flow, number;
    unsigned length, sum;  // of the bytes that follow

    bool isAnswerTo(const SHeader& request) const;
};

unsigned sumOf(const void* bytes, unsigned length);

/// A pulse's number, with the start of its sender in the upper bits where that has several.
constexpr unsigned kNumberBits = 24;
constexpr int pulseValue(unsigned generation, unsigned number) {
    return static_cast<int>(generation << kNumberBits | (number & ((1U << kNumberBits) - 1)));
}

/// One flow of requests over a connection to the channel of another process.
class CSender {
public:
    /// What became of a request. TIMED_OUT: nobody received it. LAPSED: the receiver is gone.
    enum EResult { ANSWERED, TIMED_OUT, LAPSED };

    CSender(SBoard& board, int process, SPlace& place, EFlow flow);
    ~CSender() { detach(); }
    CSender(const CSender&) = delete;
    CSender& operator=(const CSender&) = delete;

    bool attach(int pid, int channel);
    void detach();
    bool isAttached() const { return mConnection != -1; }

    /// Sends `content` under the next number and has the reply's content in `answer`.
    EResult send(const CVQByteStream& content, CVQByteStream& answer, int timeoutMs);
    /// Sends a pulse under the next number. True unless there is no room for it.
    bool sendPulse(int code);

private:
    SBoard& mBoard;
    const int mProcess;
    SPlace& mPlace;
    SFlow& mFlow;
    STrips& mTrips;
    const unsigned mFlowIndex;
    unsigned mNumber, mPulse;
    int mConnection = -1;
    CVQRCMemoryBuffer mRoom;
};

/// What a receiving thread has been given.
union UArrival {
    _pulse pulse;
    struct {
        SHeader header;
        unsigned char content[kLongest];
    } request;
};

}  // namespace load
