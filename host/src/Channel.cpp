#include "Channel.h"

#include "Errno.h"
#include "Link.h"
#include "Mutex.h"

#include <errno.h>
#include <string.h>

#include <stdlib.h>

namespace host {

IdTable<Channel> channels = {nullptr, 0, 1};
pid_t processId = 0;

namespace {

// What each message changes, in one cache line: it moves from processor to processor together.
struct alignas(kCacheLine) {
    _sync lock;
    Message* freeMessages;
    Message* lastFree;
} shared = {{0, 0}, nullptr, nullptr};

// Messages lie in blocks that never move, since their receive ids outlive them.
constexpr unsigned kBlockSize = 64;
constexpr unsigned kBlocks = 1024;  // so 65535 messages: index 0 is none
constexpr unsigned kIndexBits = 16;
constexpr unsigned kGenerations = 1u << (31 - kIndexBits);
Message* messageBlocks[kBlocks];
unsigned messageCount = 0;

constexpr int kPulsesAtOnce = 32;

Channel* spareChannels = nullptr;

/// Zeroed, and at the begin of a cache line; null without memory.
void* allocateLines(size_t size) {
    void* const lines = aligned_alloc(kCacheLine, size);
    if (lines != nullptr)
        memset(lines, 0, size);
    return lines;
}

void addFirstFree(Message* message) {
    if (shared.freeMessages == nullptr)
        shared.lastFree = message;
    message->next = shared.freeMessages;
    shared.freeMessages = message;
}

void addLastFree(Message* message) {
    message->next = nullptr;
    if (shared.freeMessages == nullptr)
        shared.freeMessages = message;
    else
        shared.lastFree->next = message;
    shared.lastFree = message;
}

void addFreeMessages(Message* block, unsigned firstIndex) {
    for (unsigned i = kBlockSize; i-- > 0;) {
        block[i].index = firstIndex + i;
        if (block[i].index != 0)
            addFirstFree(&block[i]);
    }
}

bool addMessageBlock() {
    if (messageCount == kBlocks * kBlockSize)
        return false;
    Message* const block = static_cast<Message*>(allocateLines(kBlockSize * sizeof(Message)));
    if (block == nullptr)
        return false;
    messageBlocks[messageCount / kBlockSize] = block;
    addFreeMessages(block, messageCount);
    messageCount += kBlockSize;
    return true;
}

Message* messageAt(unsigned index) {
    return &messageBlocks[index / kBlockSize][index % kBlockSize];
}

bool addPulses(Channel* channel) {
    QueuedPulse* const block = static_cast<QueuedPulse*>(calloc(kPulsesAtOnce, sizeof(QueuedPulse)));
    if (block == nullptr)
        return false;
    block->previous = channel->pulseBlocks;
    channel->pulseBlocks = block;
    for (int i = 1; i < kPulsesAtOnce; ++i)
        releasePulse(channel, &block[i]);
    return true;
}

/// Apart, so that nothing has to be kept around a call each time a pulse is queued.
[[gnu::noinline]] bool addPulsesAndQueueOne(Channel* channel, int priority, int code, sigval value, int scoid) {
    return addPulses(channel) && queuePulse(channel, priority, code, value, scoid);
}

/// `change(callable)` gives the new number of callable receivers. Others change the word meanwhile.
template <class Change>
void changeCallable(Channel* channel, Change change) {
    uint32_t& word = channel->doorbell->word;
    uint32_t before = __atomic_load_n(&word, __ATOMIC_RELAXED);
    while (!__atomic_compare_exchange_n(&word, &before, (before & ~kCallable) | change(before & kCallable), false,
                                        __ATOMIC_SEQ_CST, __ATOMIC_RELAXED)) {
    }
}

void freeContents(Channel* channel) {
    free(channel->timers.timers);
    while (QueuedPulse* const block = channel->pulseBlocks) {
        channel->pulseBlocks = static_cast<QueuedPulse*>(block->previous);
        free(block);
    }
}

/// One that was used before, with the place of its doorbell, or a new one; null without memory.
Channel* takeChannel() {
    Channel* const spare = spareChannels;
    if (spare == nullptr)
        return static_cast<Channel*>(allocateLines(sizeof(Channel)));
    spareChannels = spare->nextSpare;
    Doorbell* const doorbell = spare->doorbell;
    memset(static_cast<void*>(spare), 0, sizeof(Channel));
    spare->doorbell = doorbell;
    return spare;
}

void putBack(Channel* channel) {
    channel->nextSpare = spareChannels;
    spareChannels = channel;
}

/// True when a receiver still copies; it then finds that the message is over.
bool isStillLent(LocalSender* lender) {
    return (__atomic_load_n(&lender->word, __ATOMIC_RELAXED) & LocalSender::LENT) != 0 &&
           (__atomic_fetch_or(&lender->word, unsigned(LocalSender::OVER), __ATOMIC_ACQ_REL) & LocalSender::LENT) !=
               0;
}

// The long ways, apart, so that the short ones need no frame.

[[gnu::noinline]] void waitForChannels() {
    // Only a time-out that a signal handler armed after the call began can refuse the lock.
    while (SyncMutexLock_r(&shared.lock) == ETIMEDOUT) {
    }
}

/// A thread that must end does so in here.
[[gnu::noinline]] void unlockChannelsLong() {
    SyncMutexUnlock_r(&shared.lock);
}

}  // namespace

void ChannelGuard::lock() {
    lockChannels();
    mIsLocked = true;
}

void ChannelGuard::unlock() {
    mIsLocked = false;
    unlockChannels();
}

void lockChannels() {
    if (!__nto_take(&shared.lock))
        waitForChannels();
}

void unlockChannels() {
    if (!__nto_give(&shared.lock))
        unlockChannelsLong();
}

bool holdsChannels() {
    return isOwn(&shared.lock);
}

bool endsWithChannels() {
    return makeUnlockLong(&shared.lock);
}

void forgetChannels() {
    shared.lock = {0, 0};
    forgetTimers();
    processId = getpid();
    for (int id = 1; id < channels.capacity; ++id)
        if (Channel* const channel = channels.find(id)) {
            close(channel->listener);
            close(channel->doorbellFile);
            freeContents(channel);
            free(channel);
        }
    while (Channel* const spare = spareChannels) {
        spareChannels = spare->nextSpare;
        free(spare);
    }
    channels.clear(1);
    shared.freeMessages = nullptr;
    for (unsigned first = 0; first < messageCount; first += kBlockSize) {
        Message* const block = messageBlocks[first / kBlockSize];
        memset(static_cast<void*>(block), 0, kBlockSize * sizeof(Message));
        addFreeMessages(block, first);
    }
}

void EntryQueue::append(QueueEntry* entry) {
    Ends& own = ends[entry->priority];
    entry->next = nullptr;
    entry->previous = own.last;
    if (entry->previous != nullptr)
        entry->previous->next = entry;
    else
        own.first = entry;
    own.last = entry;
    occupied |= uint64_t(1) << entry->priority;
}

Channel* newChannel(unsigned flags) {
    Channel* const channel = takeChannel();
    if (channel == nullptr)
        return nullptr;
    channel->flags = flags;
    channel->references = 1;
    channel->messages.ends = channel->messageEnds;
    channel->pulses.ends = channel->pulseEnds;
    channel->listener = channel->doorbellFile = -1;  // for a child that is forked before they are there
    channel->id = channels.add(channel);
    if (channel->id < 0) {
        putBack(channel);
        return nullptr;
    }
    if (openToOthers(channel) != 0) {
        channels.remove(channel->id);
        putBack(channel);
        return nullptr;
    }
    return channel;
}

void retireChannel(Channel* channel) {
    freeContents(channel);
    putBack(channel);
}

void destroyChannel(Channel* channel) {
    channel->isDestroyed = true;
    channels.remove(channel->id);
    callAllReceivers(channel);
    closeToOthers(channel);
    finishMessages(channel, kAllConnections, ESRCH);
    releaseChannel(channel);
}

void callAllReceivers(Channel* channel) {
    if (channel->looking != nullptr)
        callLooking(channel, LookingReceiver::CALLED);
    channel->callableInside = 0;
    changeInside(channel);
    if (channel->asleepInside != 0)
        futexWake(&channel->insideWord, INT_MAX, Sharing::PRIVATE);
    changeCallable(channel, [](uint32_t) { return 0u; });
    ring(*channel->doorbell);
    if (channel->asleepOutside != 0)
        futexWake(&channel->doorbell->word, INT_MAX, Sharing::SHARED);
}

unsigned beginSleep(Channel* channel, bool isInside, bool pulsesOnly) {
    channel->asleepForPulses += pulsesOnly ? 1 : 0;
    if (isInside) {
        ++channel->asleepInside;
        ++channel->callableInside;
        return channel->insideWord;
    }
    ++channel->asleepOutside;
    changeCallable(channel, [](uint32_t callable) { return callable < kCallable ? callable + 1 : callable; });
    return __atomic_load_n(&channel->doorbell->word, __ATOMIC_SEQ_CST);
}

void endSleep(Channel* channel, bool isInside, bool pulsesOnly) {
    channel->asleepForPulses -= pulsesOnly ? 1 : 0;
    if (isInside) {
        const unsigned rest = --channel->asleepInside;
        if (channel->callableInside > rest)
            channel->callableInside = rest;
        return;
    }
    const uint32_t rest = --channel->asleepOutside;
    changeCallable(channel, [rest](uint32_t callable) { return callable < rest ? callable : rest; });
}

QueuedPulse* newPulse(Channel* channel, int priority, int code, union sigval value, int scoid) {
    if (channel->freePulses == nullptr && !addPulses(channel))
        return nullptr;
    QueuedPulse* const pulse = channel->freePulses;
    channel->freePulses = static_cast<QueuedPulse*>(pulse->next);
    pulse->isPulse = true;
    pulse->priority = priority;
    pulse->pulse = {};
    pulse->pulse.code = static_cast<int8_t>(code);
    pulse->pulse.value = value;
    pulse->pulse.scoid = scoid;
    return pulse;
}

void queueArrival(Channel* channel, QueueEntry* entry) {
    entry->arrival = ++channel->arrivals;
    ++channel->waiting;
    if (entry->isPulse) {
        channel->pulses.append(entry);
        return;
    }
    static_cast<Message*>(entry)->state = Message::State::QUEUED;
    channel->messages.append(entry);
}

bool queuePulse(Channel* channel, int priority, int code, union sigval value, int scoid) {
    if (channel->freePulses == nullptr)
        return addPulsesAndQueueOne(channel, priority, code, value, scoid);
    queueArrival(channel, newPulse(channel, priority, code, value, scoid));
    return true;
}

void sayDisconnected(Channel* channel, int scoid, int priority) {
    if ((channel->flags & _NTO_CHF_DISCONNECT) == 0 || channel->isDestroyed)
        return;
    queueExpiries(channel);
    sigval none;
    none.sival_ptr = nullptr;
    if (queuePulse(channel, priority, _PULSE_CODE_DISCONNECT, none, scoid))
        callReceiver(channel).make();
}

Message* newMessage(Channel* channel) {
    if (shared.freeMessages == nullptr && !addMessageBlock())
        return nullptr;
    Message* const message = shared.freeMessages;
    shared.freeMessages = static_cast<Message*>(message->next);
    message->isPulse = false;
    message->isUnblockAsked = false;
    message->isDelivered = false;
    message->isIdKept = false;
    message->users = 0;
    message->isOver = false;
    message->channel = channel;
    ++channel->references;
    return message;
}

void dropMessage(Message* message) {
    releaseChannel(message->channel);
    message->state = Message::State::FREE;
    message->generation = (message->generation + 1) % kGenerations;
    if (message->isIdKept)
        addLastFree(message);
    else
        addFirstFree(message);
}

int receiveIdOf(const Message* message) {
    return static_cast<int>(message->generation << kIndexBits | message->index);
}

Message* findReceived(int rcvid) {
    const unsigned id = static_cast<unsigned>(rcvid);
    const unsigned index = id & ((1u << kIndexBits) - 1);
    if (rcvid <= 0 || index == 0 || index >= messageCount)
        return nullptr;
    Message* const message = messageAt(index);
    const bool waits = message->state == Message::State::RECEIVED && !message->isOver;
    return waits && message->generation == id >> kIndexBits ? message : nullptr;
}

Waker finishMessage(Message* message, int status, int error) {
    if (message->state == Message::State::QUEUED)
        takeFromQueue(message->channel, message);
    message->isIdKept |= message->state == Message::State::RECEIVED;
    message->state = Message::State::REPLIED;
    message->isOver = true;
    message->status = status;
    message->error = error;
    ++message->users;
    return endUse(message);
}

Waker endUse(Message* message) {
    if (--message->users != 0 || !message->isOver)
        return kNobody;
    LocalSender* const sender = message->sender;
    if (sender == nullptr) {
        const Waker waker = completeReply(message);
        dropMessage(message);
        return waker;
    }
    if (isStillLent(sender))
        return kNobody;
    sender->status = message->status;
    sender->error = message->error;
    dropMessage(message);
    sender->isReleased = true;
    return {&sender->word, Sharing::PRIVATE, /*isLocal*/ true};
}

void finishMessages(const Channel* channel, int coid, int error) {
    for (unsigned i = 1; i < messageCount; ++i) {
        Message* const message = messageAt(i);
        // Of one that is over its last user ends the wait.
        if (message->state == Message::State::FREE || message->channel != channel || message->isOver)
            continue;
        if (coid == kAllConnections || (message->sender != nullptr && message->info.coid == coid))
            finishMessage(message, -1, error).wake();
    }
}

QueuedPulse* newReleasePulse(Message* message) {
    message->isUnblockAsked = true;
    sigval id;
    id.sival_ptr = nullptr;
    id.sival_int = receiveIdOf(message);
    return newPulse(message->channel, message->priority, _PULSE_CODE_UNBLOCK, id, message->info.scoid);
}

void askForRelease(Message* message) {
    QueuedPulse* const pulse = newReleasePulse(message);
    if (pulse == nullptr)
        return;
    queueExpiries(message->channel);
    queueArrival(message->channel, pulse);
    callReceiver(message->channel).make();
}

}  // namespace host
