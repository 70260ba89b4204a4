// Channel: where messages and pulses of this process's receivers queue, and the messages that wait for a reply.
//   Lock      one for all that is declared here, as a kernel would have it; messages are copied outside. Everything
//             below needs it, unless it says otherwise.
//   Sleeping  receivers of a channel sleep on a word, which changes with each arrival; those of them that no arrival has
//             called yet are counted: a further one wakes one more only while there are such. One receiver at a time may
//             look before it sleeps: arrivals then wake nobody, and it calls the others itself.
//   Inside    while no other process is connected, receivers look and sleep on words of this process, which costs less
//             than the doorbell's; a sender may hand its message to a receiver that looks. Another process that connects
//             for the first time finds them outside within kInsideNs.
//   Fork      a child begins with nothing of this.
#pragma once

#include "Ending.h"
#include "Futex.h"
#include "IdTable.h"
#include "Parts.h"
#include "Segment.h"
#include "Spin.h"
#include "Thread.h"
#include "Timer.h"

#include <pthread.h>
#include <sys/neutrino.h>

namespace host {

/// For where no guard can be: around a fork, and where the lock is handed on. They leave errno alone.
void lockChannels();
void unlockChannels();
/// In the child, where the lock need not be held.
void forgetChannels();

/// Whether the caller holds the lock.
bool holdsChannels();
/// For a thread that must end. True when it holds the lock: it then ends when it gives that up.
bool endsWithChannels();

/// Holds the lock, and gives it up for a while where told.
class ChannelGuard {
public:
    ChannelGuard() { lock(); }
    /// The caller holds it.
    enum Held { HELD };
    explicit ChannelGuard(Held) : mIsLocked(true) {}
    ~ChannelGuard() {
        if (mIsLocked)
            unlock();
    }
    ChannelGuard(const ChannelGuard&) = delete;
    ChannelGuard& operator=(const ChannelGuard&) = delete;

    void lock();
    void unlock();
    bool isLocked() const { return mIsLocked; }

private:
    bool mIsLocked = false;
};

constexpr int kPriorities = kLastPriority + 1;

struct QueueEntry {
    QueueEntry* next;
    QueueEntry* previous;
    uint64_t arrival;
    int priority;
    bool isPulse;
};

/// More urgent entries first, equal ones in the order of their arrival.
struct EntryQueue {
    struct Ends {
        QueueEntry* first;
        QueueEntry* last;
    };
    uint64_t occupied;  // one bit for each priority
    Ends* ends;         // of each priority

    void append(QueueEntry* entry);
    void remove(QueueEntry* entry) {
        Ends& own = ends[entry->priority];
        if (entry->previous != nullptr)
            entry->previous->next = entry->next;
        else
            own.first = entry->next;
        if (entry->next != nullptr)
            entry->next->previous = entry->previous;
        else
            own.last = entry->previous;
        if (own.first == nullptr)
            occupied &= ~(uint64_t(1) << entry->priority);
    }
    bool isEmpty() const { return occupied == 0; }
    QueueEntry* top() const { return occupied == 0 ? nullptr : ends[63 - __builtin_clzll(occupied)].first; }
};

struct QueuedPulse : QueueEntry {
    unsigned linkSerial;  // of the link over which it came, with the id in `pulse.scoid`, if it has not ended; or 0
    _pulse pulse;
};

/// A receiver on its stack, while it looks for an arrival inside. Who writes one of the other states takes it from its
/// channel and leaves it alone from then on.
struct LookingReceiver {
    enum State : unsigned { LOOKS, CALLED, HANDED };
    static constexpr size_t kBytes = 256;

    unsigned state;
    bool takesMessages;
    ProcessorHint processor;
    // When handed:
    int id;
    struct LocalSender* lender;  // whose bytes are to be copied, or null when they are here
    OwnParts lent;
    _msg_info info;
    char bytes[kBytes];
};

constexpr size_t kCacheLine = 64;

// What each message changes comes first, in one cache line: it moves from processor to processor.
struct alignas(kCacheLine) Channel {
    unsigned references;  // the table's, its connections', its timers', its receivers' and its messages'
    bool isDestroyed;
    bool isSpunAt;  // outside
    LookingReceiver* looking;
    unsigned insideWord;
    unsigned asleepInside;
    unsigned callableInside;
    unsigned asleepOutside;
    unsigned asleepForPulses;  // those of both that leave messages to others
    ProcessorHint sender;      // where the last message or pulse came from
    ProcessorHint receiver;    // where the last message was taken
    unsigned waiting;          // messages and pulses in the queues
    uint64_t arrivals;
    EntryQueue messages;
    EntryQueue pulses;
    TimerHeap timers;
    QueuedPulse* freePulses;
    Doorbell* doorbell;  // its place in memory outlives the channel, for those who ring late
    struct InLink* links;
    QueuedPulse* pulseBlocks;  // the first of each block, chained by `previous`
    int id;
    unsigned flags;
    int doorbellFile;
    int listener;
    uint64_t nextLook;  // when a receiver looks at the door itself, while nobody watches it
    unsigned serial;    // of all channels and links of the process
    Channel* nextSpare;
    EntryQueue::Ends messageEnds[kPriorities];
    EntryQueue::Ends pulseEnds[kPriorities];
};

/// A sender of this process, on its stack while it waits.
struct LocalSender {
    // LENT: a receiver copies what was sent, without the lock. OVER: meanwhile the message is, and it ends the wait.
    enum : unsigned { QUEUED = 0, RECEIVED = 1, DONE = 2, ASLEEP = 4, LENT = 8, OVER = 16 };
    unsigned word;        // what it sleeps on: bits of these
    bool isNoticeWanted;  // to be woken when its message is received
    bool isReleased;      // DONE follows as soon as the lock is given up
    int status;
    int error;
    Parts request;
    OwnParts reply;
    struct Message* message;
};

/// A sender's release that is still due, better when the lock was given up: it goes on at once and may need the lock.
/// The word may then be gone.
struct Waker {
    unsigned* word;
    Sharing sharing;
    bool isLocal;

    void wake() const {
        if (word == nullptr || (isLocal && !isAsleepWhenDone()))
            return;
        futexWake(word, 1, sharing);
    }

private:
    bool isAsleepWhenDone() const {
        const unsigned before = __atomic_fetch_or(word, unsigned(LocalSender::DONE), __ATOMIC_ACQ_REL);
        return (before & LocalSender::ASLEEP) != 0;
    }
};
constexpr Waker kNobody = {nullptr, Sharing::PRIVATE, false};

/// A message from the moment it is queued until its sender goes on.
struct alignas(kCacheLine) Message : QueueEntry {
    enum class State : uint8_t { FREE, ARRIVING, QUEUED, RECEIVED, REPLIED };
    unsigned index;
    unsigned generation;
    State state;
    bool isUnblockAsked;  // the pulse that asks for the sender's release was queued
    bool isDelivered;     // a receiver has been given the id
    bool isIdKept;        // and has not replied: the id must not come back soon
    unsigned users;       // threads that copy from it or to its sender, without the lock
    bool isOver;          // its sender goes on, with the result below, as soon as there are no users
    int status;
    int error;
    Channel* channel;
    LocalSender* sender;  // or null, and then it came over this link:
    struct InLink* link;
    unsigned lane;
    unsigned turn;
    bool isFollowed;       // the lane's next message waits until nobody copies from this one
    bool isClaimed;        // its sender waits for the end of the reply and cannot withdraw
    uint8_t requestBegin;  // in the windows
    uint8_t replyBegin;
    size_t replyLength;  // written so far
    _msg_info info;
};

extern IdTable<Channel> channels;

/// Of this process; known as soon as there is a channel or a connection.
extern pid_t processId;

/// Null without memory.
Channel* newChannel(unsigned flags);
/// Takes the channel from everyone who uses it.
void destroyChannel(Channel* channel);
/// Nothing refers to the channel any more.
void retireChannel(Channel* channel);
inline void releaseChannel(Channel* channel) {
    if (--channel->references == 0)
        retireChannel(channel);
}

/// How long receivers sleep inside at most, unless a new connection would be noticed at once.
constexpr uint64_t kInsideNs = 10000000;

/// What is left to do to wake a receiver, better when the lock was given up. The words stay valid.
struct ReceiverCall {
    bool isAwaited;
    unsigned* inside;
    Doorbell* outside;

    /// Gives up the lock first. True when a receiver waits.
    bool makeWithout(ChannelGuard& guard) const {
        if (inside == nullptr && outside == nullptr) {
            guard.unlock();
            return isAwaited;
        }
        const EndsLater untilMade;
        guard.unlock();
        return make();
    }
    /// As above, with the lock or in an EndsLater.
    bool make() const {
        if (inside != nullptr)
            futexWake(inside, 1, Sharing::PRIVATE);
        return isAwaited || (outside != nullptr && ring(*outside));
    }
};

/// Tells the receiver that looks inside, of which there is one, why it need not any more.
inline void callLooking(Channel* channel, LookingReceiver::State state) {
    LookingReceiver* const receiver = channel->looking;
    channel->looking = nullptr;
    __atomic_store_n(&receiver->state, unsigned(state), __ATOMIC_RELEASE);
}
/// Receivers that are about to sleep inside see it.
inline void changeInside(Channel* channel) {
    __atomic_store_n(&channel->insideWord, channel->insideWord + 1, __ATOMIC_RELAXED);
}
/// Calls one receiver, after something was queued.
inline ReceiverCall callReceiver(Channel* channel) {
    if (channel->looking != nullptr) {
        callLooking(channel, LookingReceiver::CALLED);
        return {true, nullptr, nullptr};
    }
    if (channel->callableInside != 0) {
        --channel->callableInside;
        changeInside(channel);
        return {true, &channel->insideWord, nullptr};
    }
    // Those outside that are neither look for what waits before they begin to be.
    const bool isAwaitedOutside = channel->asleepOutside != 0 || channel->isSpunAt;
    return {false, nullptr, isAwaitedOutside ? channel->doorbell : nullptr};
}
/// For receivers that were woken for what they cannot take.
void callAllReceivers(Channel* channel);
inline bool isAnyAsleep(const Channel* channel) {
    return channel->asleepInside != 0 || channel->asleepOutside != 0;
}
/// Around a receiver's sleep on one of the words; what the word was before.
unsigned beginSleep(Channel* channel, bool isInside, bool pulsesOnly);
void endSleep(Channel* channel, bool isInside, bool pulsesOnly);

/// Tells its sender, if the link is still there.
void noteReceived(QueuedPulse* pulse);
/// Null without memory.
QueuedPulse* newPulse(Channel* channel, int priority, int code, union sigval value, int scoid);
/// Queues the pulses of what has expired at the channel.
inline void queueExpiries(Channel* channel) {
    if (channel->timers.count != 0)
        queueDue(channel, UINT64_MAX);
}
/// A new pulse or message takes its place.
void queueArrival(Channel* channel, QueueEntry* entry);
inline void takeFromQueue(Channel* channel, QueueEntry* entry) {
    --channel->waiting;
    (entry->isPulse ? channel->pulses : channel->messages).remove(entry);
}
/// False without memory.
bool queuePulse(Channel* channel, int priority, int code, union sigval value, int scoid);
/// One that was received.
inline void releasePulse(Channel* channel, QueuedPulse* pulse) {
    if (pulse->linkSerial != 0)
        noteReceived(pulse);
    pulse->next = channel->freePulses;
    channel->freePulses = pulse;
}
/// Queues the pulse that says that a sender's connection is gone, where the channel wants to know.
void sayDisconnected(Channel* channel, int scoid, int priority);

/// A message of the channel, not queued yet; null when there are too many.
Message* newMessage(Channel* channel);
/// Frees it without a word to its sender.
void dropMessage(Message* message);
int receiveIdOf(const Message* message);
/// The message under a receive id, if it still waits for a reply.
Message* findReceived(int rcvid);

/// Ends the sender's wait, once nobody uses the message. What wakes it, when that is now.
Waker finishMessage(Message* message, int status, int error);
/// One who used the message is done; the result is as above.
Waker endUse(Message* message);
/// Ends the waits of all messages of a channel, or only of those that were sent on one connection of this process.
void finishMessages(const Channel* channel, int coid, int error);
constexpr int kAllConnections = -1;
/// The pulse that asks the receivers for the sender's release, not queued yet; null without memory.
QueuedPulse* newReleasePulse(Message* message);
/// Queues it.
void askForRelease(Message* message);

}  // namespace host
