// Segment: what two processes share. Fixed widths and places, in 32-bit and 64-bit programs alike.
//   Doorbell  one page of a channel, made by the process that has the channel and mapped by all that send to it. It
//             only says "look": its receivers find what arrived in the links, and whatever is written here cannot
//             make them believe in more or less.
//   Link      one file of a connection, made by the sender and mapped by the receiver: a page with lanes, each for one
//             message at a time, and a ring of pulses; then for each lane a window for the message and one for the
//             reply. The file is sparse: only what was used takes memory.
//   Trust     neither side believes the other. Each field is read once; lengths are bounded by what the reader knows
//             itself; nothing is an address. The files are sealed against shrinking, so touching them does not fault
//             while there is memory. Nor does who sleeps on a word trust that the other side wakes it.
#pragma once

#include "Futex.h"
#include "Spin.h"

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

namespace host {

constexpr uint32_t kSegmentVersion = 0x4e544f03;

// What is written by different sides lies in different cache lines.
// NOLINTBEGIN(clang-analyzer-optin.performance.Padding)
struct Doorbell {
    uint32_t knock;             // somebody connected, and may not have been accepted yet
    alignas(64) uint32_t word;  // the receivers that wait, as below, and the number of arrivals
};
constexpr uint32_t kCallable = 0xfff;   // receivers that sleep on the word and that no arrival has called yet
constexpr uint32_t kSpinning = 0x1000;  // one looks at the word
constexpr uint32_t kArrival = 0x2000;

/// Tells of an arrival, and wakes a receiver if nobody looks at the word. True when one waits in either way.
inline bool ring(Doorbell& doorbell) {
    uint32_t word = __atomic_add_fetch(&doorbell.word, kArrival, __ATOMIC_SEQ_CST);
    while ((word & (kSpinning | kCallable)) != 0) {
        // Who looks at the word takes one arrival and calls another receiver for the rest.
        if ((word & kSpinning) != 0)
            return true;
        if (__atomic_compare_exchange_n(&doorbell.word, &word, word - 1, false, __ATOMIC_SEQ_CST,
                                        __ATOMIC_RELAXED)) {
            futexWake(&doorbell.word, 1, Sharing::SHARED);
            return true;
        }
    }
    return false;
}

/// The states of a lane, in the lowest bits of its word; above them which of its messages is meant.
enum LaneState : uint32_t {
    LANE_FREE,
    LANE_SENT,      // written by the sender; it may withdraw
    LANE_RECEIVED,  // taken by a receiver; the sender may withdraw
    LANE_REPLYING,  // the receiver writes to the sender
    LANE_REPLIED,
    LANE_WITHDRAWN,
    LANE_DEAD,  // the sender's own mark when the receiver is gone
};
constexpr uint32_t kLaneState = 7;
constexpr uint32_t kLaneNotice = 8;   // the sender wants to be woken when its message is received
constexpr uint32_t kLaneAsleep = 16;  // the sender sleeps on the word
constexpr uint32_t kLaneFlags = 31;   // all of these
constexpr uint32_t kLaneTurn = 32;

struct Lane {
    alignas(128) uint32_t word;
    uint32_t releaseWanted;  // the turn whose sender asks to be released
    int32_t priority;
    int32_t tid;
    uint32_t requestLength;
    uint32_t replyRoom;
    alignas(8) uint64_t time;  // monotonic, when it was sent
    int32_t status;
    int32_t error;
    uint32_t replyLength;
    ProcessorHint sender;    // where the message came from
    ProcessorHint receiver;  // where the reply came from
    uint32_t requestBegin;   // where in their windows they begin,
    uint32_t replyBegin;     // below kBeginBelow
};
constexpr uint32_t kBeginBelow = 64;

struct SharedPulse {
    int32_t code;
    int32_t priority;
    alignas(8) uint64_t value;
    uint64_t time;
};

constexpr unsigned kLanes = 64;
constexpr unsigned kLongLanes = 31;  // the first ones; the others are for short messages and replies
constexpr uint32_t kSharedPulses = 1024;
constexpr uint32_t kMaxLength = 64u << 20;
constexpr uint32_t kMaxShort = 1u << 20;
constexpr uint32_t laneRoom(unsigned lane) {
    return lane < kLongLanes ? kMaxLength : kMaxShort;
}

struct LinkPage {
    uint32_t version;
    int32_t coid;
    alignas(64) uint32_t ready[kLanes / 32];  // lanes that were sent or want release
    uint32_t pulsesWritten;
    ProcessorHint pulseSender;            // where the last pulse came from
    alignas(64) uint32_t pulsesReceived;  // so many fewer wait
    Lane lanes[kLanes];
    SharedPulse pulses[kSharedPulses];
};
// NOLINTEND(clang-analyzer-optin.performance.Padding)

static_assert(offsetof(Doorbell, word) == 64 && sizeof(Doorbell) == 128, "the same in 32 and 64 bits");
static_assert(sizeof(Lane) == 128 && offsetof(Lane, time) == 24 && offsetof(Lane, replyLength) == 40, "as above");
static_assert(sizeof(SharedPulse) == 24, "as above");
static_assert(offsetof(LinkPage, lanes) == 256 && offsetof(LinkPage, pulses) == 256 + 64 * 128, "as above");

// Offsets in a link's file are multiples of any page size.
constexpr size_t kLinkPageSize = 64 << 10;
static_assert(sizeof(LinkPage) <= kLinkPageSize, "the windows begin behind it");

constexpr off64_t requestOffset(unsigned lane) {
    const unsigned longLanes = lane < kLongLanes ? lane : kLongLanes;
    return static_cast<off64_t>(kLinkPageSize) + off64_t(longLanes) * 2 * kMaxLength +
           off64_t(lane - longLanes) * 2 * kMaxShort;
}
constexpr off64_t replyOffset(unsigned lane) {
    return requestOffset(lane) + laneRoom(lane);
}
constexpr off64_t kLinkSize = requestOffset(kLanes);
static_assert(kLinkSize < off64_t(1) << 32, "what lies further a 32-bit program may not reach under an emulator");
constexpr off64_t kDoorbellSize = 64 << 10;

/// A sealed file in memory; -1 and errno.
int makeSegment(const char* name, off64_t size);
/// True for such a file of just this size: sealed, and made of ordinary memory.
bool isSegment(int descriptor, off64_t size);
/// Null without memory. A forked child does not have it. `at`: in the place of another, or null.
void* mapSegment(int descriptor, off64_t offset, size_t size, void* at = nullptr);

/// A piece of a link's file as far as it was needed.
struct Window {
    char* at;
    size_t size;

    /// False without memory.
    bool reach(int descriptor, off64_t offset, size_t length);
    /// Gives a large one back.
    void trim();
    void unmap();
};
constexpr size_t kSmallWindow = 4 << 20;

}  // namespace host
