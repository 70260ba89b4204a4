// Link: a connection between processes, as its sender has it (OutLink) and as the process with the channel has it
// (InLink). Guarded by the channels' lock, but for what a comment excepts.
#pragma once

#include "Channel.h"
#include "Segment.h"
#include "ThreadState.h"

namespace host {

struct Link {
    int id;
    unsigned serial;  // of all links of the process: tells a link from an earlier one with its id
    bool isOutgoing;
    bool isDead;  // read without the lock by senders
    unsigned references;
    int socket;  // set-up, and the end of either side
    int peer;    // the other process, or -1
    int file;
    LinkPage* page;
    Window requests[kLanes];
    Window replies[kLanes];
};

struct InLink : Link {
    Channel* channel;
    InLink* next;  // of the channel
    pid_t pid;
    int32_t coid;
    uint32_t pulsesRead;
    uint32_t pulsesReceived;  // of those that were read; the others are in the channel's queue
    bool isBroken;            // found to hold what no honest sender writes
    Message* messages[kLanes];
};

struct OutLink : Link {
    Doorbell* doorbell;
    bool hasUnblock;  // the channel's flag
    int deathError;   // valid when dead
    uint64_t busyLanes;
    uint32_t turns[kLanes];
    uint32_t pulsesWritten;
    ProcessorHint receiver;  // where the last reply came from
    unsigned lanesFreed;     // a futex word for those who wait for a lane
    unsigned laneWaiters;
};

extern IdTable<Link> links;

/// Makes the channel known to other processes. 0 or an error number.
int openToOthers(Channel* channel);
void closeToOthers(Channel* channel);

/// Once a second starts the watcher if somebody waits to be let in: all who send can write to the doorbell, and one may
/// have taken away another's knock. When the next look is due.
Deadline lookAtDoor(Channel* channel, uint64_t now);
/// Queues what has arrived from other processes, in the order in which it was sent; and sees who knocks.
/// Leaves errno alone.
void collectFromOthers(Channel* channel);
inline void collect(Channel* channel) {
    if (channel->links != nullptr || __atomic_load_n(&channel->doorbell->knock, __ATOMIC_SEQ_CST) != 0)
        collectFromOthers(channel);
}

/// Queues what has arrived and expired by now, before something else does or somebody looks.
inline void update(Channel* channel) {
    collect(channel);  // and what fell due in between
    queueExpiries(channel);
}

/// For the watcher. New connections, of which anybody may start as many as he likes: not all at once.
enum class Accepted { ALL, SOME, NO_DESCRIPTORS };
Accepted acceptLinks(Channel* channel);
/// Data or the end of one: false when its file still waits, for the same reason.
bool readLink(InLink* link);
void readLateLinks(Channel* channel);
void dropBroken(Channel* channel);
/// Takes a link from everyone who uses it. Its senders here fail with `error`.
void dropLink(Link* link, int error);
void dropOutLink(OutLink* link, int error);
unsigned newLinkSerial();

/// For messages from other processes. False when their sender has withdrawn.
bool claimRequest(Message* message, Waker& waker);
bool isStillWanted(const Message* message);
bool claimReply(Message* message);
void unclaimReply(Message* message);
/// The window with the message or for the reply; null without memory.
char* requestWindow(Message* message);
char* replyWindow(Message* message);
Waker completeReply(Message* message);
void releaseLink(Link* link);

/// Connects to a channel of another process. Nothing needs the lock until the link is announced. 0 or an error number.
int newOutLink(pid_t pid, int chid, OutLink*& link);
/// Tells the other process and the watcher; `coid` is what the receivers are told. 0 or an error number.
int announce(OutLink* link, int coid);

/// Takes back a link that could not be announced.
void discard(OutLink* link);

/// Whether of the two states of a sender only the given one is limited.
inline bool isOnly(const ArmedTimeout& timeout, unsigned state) {
    return (timeout.states & (_NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY)) == state;
}

/// A receiver that waits takes a message at once, and its sender does not wait in the state SEND; here it has to wake up
/// first.
inline void allowForWaking(ArmedTimeout& timeout) {
    constexpr uint64_t kWakingNs = kNsPerSecond;
    if (!isOnly(timeout, _NTO_TIMEOUT_SEND))
        return;
    const uint64_t awake = nowNs(CLOCK_MONOTONIC) + kWakingNs;
    if (timeout.deadline.ns < awake)
        timeout.deadline = {awake};
}

struct SendResult {
    int status;
    int error;
};
/// Gives the lock up while it waits.
SendResult sendOver(ChannelGuard& guard, OutLink* link, const Parts& request, const Parts& reply,
                    const ArmedTimeout& timeout, int priority);
/// 0 or an error number.
int pulseOver(ChannelGuard& guard, OutLink* link, int priority, int code, int value);

/// In a forked child, which has none of their memory that is shared.
void forgetLinks();

}  // namespace host
