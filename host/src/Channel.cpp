#include "Channel.h"

#include "ErrnoKeeper.h"

#include <stdlib.h>

namespace host {

IdTable<Channel> channels = {nullptr, 0, 1};

namespace {

_sync channelLock = {0, 0};

// Messages lie in blocks that never move, since their receive ids outlive them.
constexpr unsigned kBlockSize = 64;
constexpr unsigned kBlocks = 1024;  // so 65535 messages: index 0 is none
constexpr unsigned kIndexBits = 16;
constexpr unsigned kGenerations = 1u << (31 - kIndexBits);
Message* messageBlocks[kBlocks];
unsigned messageCount = 0;
Message* freeMessages = nullptr;

constexpr int kPulsesAtOnce = 32;

bool addMessageBlock() {
    if (messageCount == kBlocks * kBlockSize)
        return false;
    Message* const block = static_cast<Message*>(calloc(kBlockSize, sizeof(Message)));
    if (block == nullptr)
        return false;
    messageBlocks[messageCount / kBlockSize] = block;
    for (unsigned i = kBlockSize; i-- > 0;) {
        block[i].index = messageCount + i;
        if (block[i].index != 0) {
            block[i].next = freeMessages;
            freeMessages = &block[i];
        }
    }
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

void freeChannel(Channel* channel) {
    while (QueuedPulse* const block = channel->pulseBlocks) {
        channel->pulseBlocks = static_cast<QueuedPulse*>(block->previous);
        free(block);
    }
    free(channel);
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
    pthread_mutex_lock(&channelLock);
}

void unlockChannels() {
    pthread_mutex_unlock(&channelLock);
}

void forgetChannels() {
    channelLock = {0, 0};
    channels = {nullptr, 0, 1};
    messageCount = 0;
    freeMessages = nullptr;
}

void EntryQueue::append(QueueEntry* entry) {
    const int priority = entry->priority;
    entry->next = nullptr;
    entry->previous = last[priority];
    if (entry->previous != nullptr)
        entry->previous->next = entry;
    else
        first[priority] = entry;
    last[priority] = entry;
    occupied |= uint64_t(1) << priority;
}

void EntryQueue::remove(QueueEntry* entry) {
    const int priority = entry->priority;
    if (entry->previous != nullptr)
        entry->previous->next = entry->next;
    else
        first[priority] = entry->next;
    if (entry->next != nullptr)
        entry->next->previous = entry->previous;
    else
        last[priority] = entry->previous;
    if (first[priority] == nullptr)
        occupied &= ~(uint64_t(1) << priority);
}

Channel* newChannel(unsigned flags) {
    Channel* const channel = static_cast<Channel*>(calloc(1, sizeof(Channel)));
    if (channel == nullptr)
        return nullptr;
    channel->flags = flags;
    channel->references = 1;
    channel->word = &channel->ownWord;
    channel->id = channels.add(channel);
    if (channel->id < 0) {
        free(channel);
        return nullptr;
    }
    return channel;
}

void releaseChannel(Channel* channel) {
    if (--channel->references == 0)
        freeChannel(channel);
}

void destroyChannel(Channel* channel) {
    channel->isDestroyed = true;
    channels.remove(channel->id);
    callAllReceivers(channel);
    finishMessages(channel, kAllConnections, ESRCH);
    releaseChannel(channel);
}

unsigned* callReceiver(Channel* channel) {
    __atomic_fetch_add(channel->word, 1, __ATOMIC_RELEASE);
    if (channel->asleep <= channel->called)
        return nullptr;
    ++channel->called;
    return channel->word;
}

void callAllReceivers(Channel* channel) {
    __atomic_fetch_add(channel->word, 1, __ATOMIC_RELEASE);
    channel->called = channel->asleep;
    futexWake(channel->word, INT_MAX, Sharing::PRIVATE);
}

void wakeReceiver(unsigned* word) {
    if (word != nullptr)
        futexWake(word, 1, Sharing::PRIVATE);
}

void wakeSender(unsigned* word) {
    if (word != nullptr)
        futexWake(word, 1, Sharing::PRIVATE);
}

bool queuePulse(Channel* channel, int priority, int code, union sigval value, int scoid) {
    if (channel->freePulses == nullptr && !addPulses(channel))
        return false;
    QueuedPulse* const pulse = channel->freePulses;
    channel->freePulses = static_cast<QueuedPulse*>(pulse->next);
    pulse->priority = priority;
    pulse->arrival = ++channel->arrivals;
    pulse->pulse = {};
    pulse->pulse.code = static_cast<int8_t>(code);
    pulse->pulse.value = value;
    pulse->pulse.scoid = scoid;
    channel->pulses.append(pulse);
    return true;
}

void releasePulse(Channel* channel, QueuedPulse* pulse) {
    pulse->next = channel->freePulses;
    channel->freePulses = pulse;
}

void sayDisconnected(Channel* channel, int scoid) {
    if ((channel->flags & _NTO_CHF_DISCONNECT) == 0 || channel->isDestroyed)
        return;
    sigval none;
    none.sival_ptr = nullptr;
    if (queuePulse(channel, callerPriority(), _PULSE_CODE_DISCONNECT, none, scoid))
        wakeReceiver(callReceiver(channel));
}

Message* newMessage(Channel* channel) {
    if (freeMessages == nullptr && !addMessageBlock())
        return nullptr;
    Message* const message = freeMessages;
    freeMessages = static_cast<Message*>(message->next);
    message->isUnblockAsked = false;
    message->users = 0;
    message->isOver = false;
    message->channel = channel;
    ++channel->references;
    return message;
}

void queueMessage(Message* message) {
    message->state = Message::State::QUEUED;
    message->arrival = ++message->channel->arrivals;
    message->channel->messages.append(message);
}

void dropMessage(Message* message) {
    releaseChannel(message->channel);
    message->state = Message::State::FREE;
    message->generation = (message->generation + 1) % kGenerations;
    message->next = freeMessages;
    freeMessages = message;
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

unsigned* finishMessage(Message* message, int status, int error) {
    if (message->state == Message::State::QUEUED)
        message->channel->messages.remove(message);
    message->state = Message::State::REPLIED;
    message->isOver = true;
    message->status = status;
    message->error = error;
    ++message->users;
    return endUse(message);
}

unsigned* endUse(Message* message) {
    if (--message->users != 0 || !message->isOver)
        return nullptr;
    LocalSender* const sender = message->sender;
    sender->status = message->status;
    sender->error = message->error;
    dropMessage(message);
    // From here on the sender may be gone.
    __atomic_store_n(&sender->word, LocalSender::DONE, __ATOMIC_RELEASE);
    return &sender->word;
}

void finishMessages(const Channel* channel, int coid, int error) {
    for (unsigned i = 1; i < messageCount; ++i) {
        Message* const message = messageAt(i);
        if (message->state == Message::State::FREE || message->channel != channel)
            continue;
        if (coid == kAllConnections || message->info.coid == coid)
            wakeSender(finishMessage(message, -1, error));
    }
}

void askForRelease(Message* message) {
    message->isUnblockAsked = true;
    sigval id;
    id.sival_ptr = nullptr;
    id.sival_int = receiveIdOf(message);
    if (queuePulse(message->channel, message->priority, _PULSE_CODE_UNBLOCK, id, message->info.scoid))
        wakeReceiver(callReceiver(message->channel));
}

}  // namespace host
