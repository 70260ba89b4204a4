// Channel: where messages and pulses of this process's receivers queue, and the messages that wait for a reply.
//   Lock      one for all that is declared here, as a kernel would have it; messages are copied outside. Everything
//             below needs it, unless it says otherwise.
//   Sleeping  receivers of a channel sleep on one word, which changes with each arrival. `asleep` counts them,
//             `called` those among them that were woken and have not come back yet: an arrival wakes one more
//             receiver only while not all are called.
//   Fork      a child begins with nothing of this.
#pragma once

#include "Futex.h"
#include "IdTable.h"
#include "Parts.h"
#include "Thread.h"

#include <pthread.h>
#include <sys/neutrino.h>

namespace host {

/// Holds the lock, and gives it up for a while where told.
class ChannelGuard {
public:
    ChannelGuard() { lock(); }
    ~ChannelGuard() {
        if (mIsLocked)
            unlock();
    }
    ChannelGuard(const ChannelGuard&) = delete;
    ChannelGuard& operator=(const ChannelGuard&) = delete;

    void lock();
    void unlock();

private:
    bool mIsLocked = false;
};

constexpr int kPriorities = 64;

struct QueueEntry {
    QueueEntry* next;
    QueueEntry* previous;
    uint64_t arrival;
    int priority;
};

/// More urgent entries first, equal ones in the order of their arrival.
struct EntryQueue {
    uint64_t occupied;  // one bit for each priority
    QueueEntry* first[kPriorities];
    QueueEntry* last[kPriorities];

    void append(QueueEntry* entry);
    void remove(QueueEntry* entry);
    QueueEntry* top() const { return occupied == 0 ? nullptr : first[63 - __builtin_clzll(occupied)]; }
};

struct QueuedPulse : QueueEntry {
    _pulse pulse;
};

struct Channel {
    int id;
    unsigned flags;
    unsigned references;  // the table's, its connections', its receivers' and its messages'
    bool isDestroyed;
    unsigned* word;
    unsigned asleep;
    unsigned called;
    uint64_t arrivals;
    EntryQueue messages;
    EntryQueue pulses;
    QueuedPulse* freePulses;
    QueuedPulse* pulseBlocks;  // the first of each block, chained by `previous`
    unsigned ownWord;
};

/// A sender of this process, on its stack while it waits.
struct LocalSender {
    enum : unsigned { QUEUED, RECEIVED, DONE };
    unsigned word;        // what it sleeps on
    bool isNoticeWanted;  // to be woken when its message is received
    int status;
    int error;
    Parts request;
    Parts reply;
    struct Message* message;
};

/// A message from the moment it is queued until its sender goes on.
struct Message : QueueEntry {
    enum class State : uint8_t { FREE, QUEUED, RECEIVED, REPLIED };
    unsigned index;
    unsigned generation;
    State state;
    bool isUnblockAsked;  // the pulse that asks for the sender's release was queued
    unsigned users;       // threads that copy from it or to its sender, without the lock
    bool isOver;          // its sender goes on, with the result below, as soon as there are no users
    int status;
    int error;
    Channel* channel;
    LocalSender* sender;
    _msg_info info;
};

extern IdTable<Channel> channels;

/// Null without memory.
Channel* newChannel(unsigned flags);
/// Takes the channel from everyone who uses it.
void destroyChannel(Channel* channel);
void releaseChannel(Channel* channel);

/// The word to wake one receiver by, when the lock was given up; null when all are awake or on their way.
unsigned* callReceiver(Channel* channel);
/// For receivers that were woken for what they cannot take.
void callAllReceivers(Channel* channel);

/// False without memory.
bool queuePulse(Channel* channel, int priority, int code, union sigval value, int scoid);
void releasePulse(Channel* channel, QueuedPulse* pulse);
/// Queues the pulse that says that a sender's connection is gone, where the channel wants to know.
void sayDisconnected(Channel* channel, int scoid);

/// A message of the channel, not queued yet; null when there are too many.
Message* newMessage(Channel* channel);
void queueMessage(Message* message);
/// Frees it without a word to its sender.
void dropMessage(Message* message);
int receiveIdOf(const Message* message);
/// The message under a receive id, if it still waits for a reply.
Message* findReceived(int rcvid);

/// Ends the sender's wait, once nobody uses the message. Its word to wake it by when that is now, else null.
unsigned* finishMessage(Message* message, int status, int error);
/// One who used the message is done; the result is as above.
unsigned* endUse(Message* message);
/// Ends the waits of all messages of a channel, or only of those that were sent on one connection of this process.
void finishMessages(const Channel* channel, int coid, int error);
constexpr int kAllConnections = -1;
/// Queues the pulse that asks the receivers for the sender's release.
void askForRelease(Message* message);

void wakeReceiver(unsigned* word);
void wakeSender(unsigned* word);

/// Around a fork, and in the child, where the lock need not be held.
void lockChannels();
void unlockChannels();
void forgetChannels();

}  // namespace host
