// Worker: a process that may be killed at any moment. It sends requests to the server, answers its requests, and
// meets the other workers of its unit.
#pragma once

#include "Process.h"

namespace load {

/// Where the workers of a unit meet, in a segment of its own: objects that processes share do not survive a holder
/// who is killed, so that each start of a unit has new ones.
struct SMeeting {
    explicit SMeeting(unsigned participants);
    ~SMeeting();
    SMeeting(const SMeeting&) = delete;
    SMeeting& operator=(const SMeeting&) = delete;

    _sync mutex;
    CVQCountingSemaphore ping{0, 1 << 20, /*shared*/ true}, pong{0, 1 << 20, /*shared*/ true};
    CVQBarrier barrier;
    const unsigned participants;
    Number locked;     // how often the mutex was held; changed only under it, by two steps
    Number lastRound;  // after which all go
};

/// The names of segments begin with these; `kind` 'm' is a meeting, 's' what a worker hands over, 'b' the board.
void segmentName(char (&name)[64], int id, char kind, int process, unsigned generation, unsigned number);

/// A process that connects to the server's first life and leaves again. What the first connection ever takes, a
/// process keeps: this is how the server gets it.
int runGuest(const SSelf& self);

/// The whole of the process. The result is its exit status.
int runWorker(const SSelf& self);

}  // namespace load
