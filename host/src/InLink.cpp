#include "Link.h"

#include "Descriptor.h"
#include "LinkSocket.h"
#include "Look.h"
#include "Watcher.h"

#include <errno.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/socket.h>

namespace host {

IdTable<Link> links = {nullptr, 0, 1};

namespace {

unsigned serials = 0;

/// What one look has found, chained by `next`. `arrival` is the time until the batch is queued.
class Batch {
public:
    uint64_t latest = UINT64_MAX;  // what was sent later stays where it is

    bool isEmpty() const { return mFirst == nullptr; }
    void add(QueueEntry* entry, uint64_t time) {
        entry->arrival = time;
        entry->next = nullptr;
        *mEnd = entry;
        mEnd = &entry->next;
        ++mCount;
    }
    /// Of all, the earliest first; equal ones as they were added. Sorts by merging, which leaves a few links' many
    /// pulses no more expensive than one's.
    QueueEntry* sorted() {
        QueueEntry* rest = mFirst;
        return take(rest, mCount);
    }

private:
    /// The first `count` of the rest, sorted.
    static QueueEntry* take(QueueEntry*& rest, size_t count) {
        if (count <= 1) {
            QueueEntry* const only = count == 0 ? nullptr : rest;
            if (only != nullptr) {
                rest = only->next;
                only->next = nullptr;
            }
            return only;
        }
        QueueEntry* left = take(rest, count / 2);
        QueueEntry* right = take(rest, count - count / 2);
        QueueEntry* first;
        for (QueueEntry** end = &first;; end = &(*end)->next) {
            if (left == nullptr || right == nullptr) {
                *end = left != nullptr ? left : right;
                return first;
            }
            QueueEntry*& earlier = right->arrival < left->arrival ? right : left;
            *end = earlier;
            earlier = earlier->next;
        }
    }

    QueueEntry* mFirst = nullptr;
    QueueEntry** mEnd = &mFirst;
    size_t mCount = 0;
};

int boundedPriority(int32_t priority) {
    return priority < 0 ? 0 : priority < kPriorities ? priority : kPriorities - 1;
}

Lane& laneOf(const Message* message) {
    return message->link->page->lanes[message->lane];
}

/// From the turn and the state that `before` holds, if the lane is in these, to another state; `before` becomes what the
/// word was.
bool changeState(Lane& lane, uint32_t& before, LaneState state) {
    const uint32_t expected = before;
    before = load(lane.word);
    do {
        if ((before & ~(kLaneNotice | kLaneAsleep)) != expected)
            return false;
    } while (!__atomic_compare_exchange_n(&lane.word, &before, (before & ~(kLaneState | kLaneNotice)) | state,
                                          false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE));
    return true;
}

/// Has the next look find the lane again.
void leaveLane(InLink* link, unsigned lane) {
    __atomic_fetch_or(&link->page->ready[lane / 32], 1u << lane % 32, __ATOMIC_SEQ_CST);
}

/// A lane's message, unless it is there already. False for what no honest sender writes.
bool collectMessage(InLink* link, unsigned lane, Batch& batch) {
    const Lane& shared = link->page->lanes[lane];
    const uint32_t word = load(shared.word);
    const uint32_t turn = word & ~kLaneFlags;
    Message* const known = link->messages[lane];
    if (known != nullptr && known->turn == turn) {
        const bool wantsRelease = known->state == Message::State::RECEIVED && !known->isOver &&
                                  (word & kLaneState) == LANE_RECEIVED && load(shared.releaseWanted) == turn;
        if (wantsRelease && !known->isUnblockAsked)
            if (QueuedPulse* const pulse = newReleasePulse(known))
                batch.add(pulse, nowNs(CLOCK_MONOTONIC));
        return true;
    }
    if ((word & kLaneState) != LANE_SENT)
        return true;
    const uint64_t time = load(shared.time);
    // A message that was withdrawn since it was put into this batch must leave that before it can end.
    const bool isOtherInBatch = known != nullptr && known->state == Message::State::ARRIVING;
    if (time > batch.latest || isOtherInBatch) {
        leaveLane(link, lane);
        return true;
    }
    if (known != nullptr && !known->isOver)
        finishMessage(known, -1, ESRCH);  // its sender has withdrawn it
    if (Message* const stays = link->messages[lane]) {
        stays->isFollowed = true;  // somebody still copies from the lane's window
        return true;
    }
    const uint32_t requestLength = load(shared.requestLength), replyRoom = load(shared.replyRoom);
    const uint32_t requestBegin = load(shared.requestBegin) % kBeginBelow;
    const uint32_t replyBegin = load(shared.replyBegin) % kBeginBelow;
    if (requestLength > laneRoom(lane) - requestBegin || replyRoom > laneRoom(lane) - replyBegin)
        return false;
    Message* const message = newMessage(link->channel);
    if (message == nullptr) {
        leaveLane(link, lane);  // until there is room
        return true;
    }
    message->sender = nullptr;
    message->link = link;
    message->lane = lane;
    message->turn = turn;
    message->isClaimed = false;
    message->isFollowed = false;
    message->requestBegin = static_cast<uint8_t>(requestBegin);
    message->replyBegin = static_cast<uint8_t>(replyBegin);
    message->replyLength = 0;
    message->priority = boundedPriority(load(shared.priority));
    message->info = {};
    message->info.pid = link->pid;
    message->info.tid = load(shared.tid);
    message->info.chid = link->channel->id;
    message->info.scoid = link->id;
    message->info.coid = link->coid;
    message->info.srcmsglen = static_cast<int32_t>(requestLength);
    message->info.dstmsglen = static_cast<int32_t>(replyRoom);
    message->info.priority = static_cast<int16_t>(message->priority);
    message->state = Message::State::ARRIVING;
    link->channel->sender = load(shared.sender);
    ++link->references;
    link->messages[lane] = message;
    batch.add(message, time);
    return true;
}

bool collectPulses(InLink* link, Batch& batch) {
    const uint32_t written = load(link->page->pulsesWritten);
    if (written - link->pulsesRead > kSharedPulses - (link->pulsesRead - link->pulsesReceived))
        return false;
    if (link->pulsesRead != written)
        link->channel->sender = load(link->page->pulseSender);
    for (; link->pulsesRead != written; ++link->pulsesRead) {
        const SharedPulse& shared = link->page->pulses[link->pulsesRead % kSharedPulses];
        const uint64_t time = load(shared.time);
        if (time > batch.latest)
            break;
        sigval value;
        value.sival_ptr = nullptr;
        value.sival_int = static_cast<int>(load(shared.value));
        QueuedPulse* const pulse =
            newPulse(link->channel, boundedPriority(load(shared.priority)), load(shared.code), value, link->id);
        if (pulse == nullptr)
            break;  // they stay where they are
        pulse->linkSerial = link->serial;
        batch.add(pulse, time);
    }
    return true;
}

bool collectFrom(InLink* link, Batch& batch) {
    for (unsigned i = 0; i < kLanes / 32; ++i) {
        if (__atomic_load_n(&link->page->ready[i], __ATOMIC_SEQ_CST) == 0)
            continue;
        for (uint32_t ready = __atomic_exchange_n(&link->page->ready[i], 0u, __ATOMIC_SEQ_CST); ready != 0;
             ready &= ready - 1)
            if (!collectMessage(link, i * 32 + static_cast<unsigned>(__builtin_ctz(ready)), batch))
                return false;
    }
    return collectPulses(link, batch);
}

/// From all links but those that are broken, or turn out to be. True when there are such.
bool collectFromAll(Channel* channel, Batch& batch) {
    bool isAnyBroken = false;
    for (InLink* link = channel->links; link != nullptr; link = link->next) {
        if (link->page != nullptr && !link->isBroken)
            link->isBroken = !collectFrom(link, batch);
        isAnyBroken |= link->isBroken;
    }
    return isAnyBroken;
}

/// Queues what has arrived, in the order in which it was sent. The result is as above.
bool queueArrived(Channel* channel) {
    Batch batch;
    bool isAnyBroken = collectFromAll(channel, batch);
    if (!batch.isEmpty() && channel->links->next != nullptr) {
        // Before something that was found, its sender may have sent over another link, after that had been looked at.
        // It is there by now. What is sent from now on stays: of that, too, only the later part may be found.
        batch.latest = nowNs(CLOCK_MONOTONIC);
        isAnyBroken = collectFromAll(channel, batch);
    }
    for (QueueEntry* entry = batch.sorted(); entry != nullptr;) {
        QueueEntry* const next = entry->next;
        if (channel->timers.count != 0)
            queueDue(channel, entry->arrival);
        queueArrival(channel, entry);
        entry = next;
    }
    return isAnyBroken;
}

bool isWelcome(const ucred& peer) {
    return peer.uid == geteuid() || peer.uid == 0;
}

/// A descriptor whose number another one is to have.
int placeFor(int any) {
    return fcntl(any, F_DUPFD_CLOEXEC, 0);
}

void addLink(Channel* channel, Descriptor& accepted, Descriptor& forFile) {
    ucred peer;
    if (!peerOf(accepted.get(), peer) || !isWelcome(peer))
        return;
    InLink* const link = static_cast<InLink*>(calloc(1, sizeof(InLink)));
    if (link == nullptr)
        return;
    link->id = links.add(link);
    if (link->id < 0) {
        free(link);
        return;
    }
    link->serial = ++serials;
    link->references = 1;
    link->file = forFile.release();
    link->socket = accepted.release();
    link->peer = processBehind(link->socket, peer.pid);  // -1 when it has ended already: the socket says so too
    link->pid = peer.pid;
    link->channel = channel;
    ++channel->references;
    link->next = channel->links;
    channel->links = link;
    if (link->next == nullptr)
        callAllReceivers(channel);  // those inside would not hear it
    if (!watchLink(link))
        dropLink(link, ESRCH);
}

/// The place of its file went to another one.
bool isLate(const InLink* link) {
    return link->page == nullptr && link->file < 0;
}

void callIfAnythingWaits(Channel* channel) {
    if (channel->messages.occupied != 0 || channel->pulses.occupied != 0)
        callAllReceivers(channel);
}

/// As when a sender of this process leaves: who has received its message is told.
void sayEnded(Message* message) {
    if (message->isDelivered && message->state == Message::State::RECEIVED && !message->isOver &&
        !message->isUnblockAsked && (message->channel->flags & _NTO_CHF_UNBLOCK) != 0 &&
        !message->channel->isDestroyed)
        askForRelease(message);
}

void dropInLink(InLink* link) {
    Channel* const channel = link->channel;
    // What was sent before the end still counts for pulses, which nobody waits for; and what others sent before them
    // comes first.
    if (link->page != nullptr && !channel->isDestroyed)
        queueArrived(channel);
    link->isDead = true;
    for (Message* const message : link->messages)
        if (message != nullptr && message->state != Message::State::FREE && message->link == link) {
            sayEnded(message);
            finishMessage(message, -1, ESRCH);
        }
    InLink** place = &channel->links;
    while (*place != link)
        place = &(*place)->next;
    *place = link->next;
    if (link->page != nullptr)
        sayDisconnected(channel, link->id, kOrdinaryPriority);
    callAllReceivers(channel);  // and have them count themselves anew: the other side could write to the doorbell
    releaseChannel(channel);
}

}  // namespace

unsigned newLinkSerial() {
    return ++serials;
}

int openToOthers(Channel* channel) {
    channel->serial = ++serials;
    Door door = {getpid(), channel->id, 0, channel->flags};
    Descriptor listener(listenFor(door));
    if (!listener.isOpen())
        return errno;
    Descriptor file(makeDoorbell(door));
    if (!file.isOpen())
        return errno;
    void* const page = mapSegment(file.get(), 0, static_cast<size_t>(kDoorbellSize), channel->doorbell);
    if (page == nullptr)
        return ENOMEM;
    channel->doorbell = static_cast<Doorbell*>(page);
    channel->listener = listener.get();
    if (!watchChannel(channel))
        return errno;
    channel->doorbellFile = file.release();
    listener.release();
    return 0;
}

void closeToOthers(Channel* channel) {
    close(channel->doorbellFile);
    channel->doorbellFile = -1;
    closeWatched(channel->listener);
    channel->listener = -1;
    // Now that nobody can connect any more, who is connected may know.
    while (channel->links != nullptr)
        dropLink(channel->links, ESRCH);
}

void dropBroken(Channel* channel) {
    for (InLink* link = channel->links; link != nullptr;) {
        InLink* const next = link->next;
        if (link->isBroken)
            dropLink(link, ESRCH);
        link = next;
    }
}

Deadline lookAtDoor(Channel* channel, uint64_t now) {
    if (isWatching())
        return Deadline::never();
    if (now >= channel->nextLook) {
        channel->nextLook = now + kLookAfterNs;
        pollfd door = {channel->listener, POLLIN, 0};
        if (poll(&door, 1, 0) > 0)
            startWatcher();
    }
    return {channel->nextLook};
}

void collectFromOthers(Channel* channel) {
    const ErrnoKeeper keeper;
    if (__atomic_load_n(&channel->doorbell->knock, __ATOMIC_SEQ_CST) != 0) {
        __atomic_store_n(&channel->doorbell->knock, 0u, __ATOMIC_SEQ_CST);
        if (!startWatcher())
            __atomic_store_n(&channel->doorbell->knock, 1u, __ATOMIC_SEQ_CST);
    }
    if (queueArrived(channel))
        dropBroken(channel);
}

Accepted acceptLinks(Channel* channel) {
    constexpr int kAtOnce = 16;
    for (int i = 0; i < kAtOnce; ++i) {
        // A link needs three descriptors: one that was accepted with less would cut its sender off.
        Descriptor forFile(placeFor(channel->listener));
        Descriptor forPeer(placeFor(channel->listener));
        Descriptor forSocket(placeFor(channel->listener));
        if (!forFile.isOpen() || !forPeer.isOpen() || !forSocket.isOpen())
            return Accepted::NO_DESCRIPTORS;
        close(forSocket.release());  // also where the new one first gets the number of a closed standard stream
        Descriptor socket(accept4(channel->listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!socket.isOpen())
            return errno == EAGAIN ? Accepted::ALL : Accepted::NO_DESCRIPTORS;
        close(forPeer.release());
        addLink(channel, socket, forFile);
    }
    return Accepted::SOME;
}

bool readLink(InLink* link) {
    if (link->page != nullptr) {
        dropLink(link, ESRCH);  // after its set-up a sender says nothing any more but its end
        return true;
    }
    const bool wasLate = isLate(link);
    if (!wasLate)
        close(link->file);  // that kept its place
    link->file = -1;
    Descriptor file(receiveFile(link->socket));
    if (!file.isOpen() && errno == EMFILE) {  // another thread was faster
        if (!wasLate)
            restSocket(link);
        return false;
    }
    void* page = nullptr;
    if (file.isOpen() && (!wasLate || watchSocket(link)) && isSegment(file.get(), kLinkSize))
        page = mapSegment(file.get(), 0, kLinkPageSize);
    if (page == nullptr) {
        dropLink(link, ESRCH);
        return true;
    }
    link->file = file.release();
    link->page = static_cast<LinkPage*>(page);
    link->coid = load(link->page->coid);
    if (load(link->page->version) != kSegmentVersion) {
        dropLink(link, ESRCH);
        return true;
    }
    Channel* const channel = link->channel;
    collect(channel);
    callIfAnythingWaits(channel);
    return true;
}

void readLateLinks(Channel* channel) {
    for (InLink* link = channel->links; link != nullptr;) {
        if (!isLate(link)) {
            link = link->next;
            continue;
        }
        if (!readLink(link))
            return;
        link = channel->links;  // any of them may have been dropped
    }
}

void dropLink(Link* link, int error) {
    if (link->isDead)
        return;
    links.remove(link->id);
    closeWatched(link->socket);
    if (link->peer >= 0)
        closeWatched(link->peer);
    if (link->isOutgoing)
        dropOutLink(static_cast<OutLink*>(link), error);
    else
        dropInLink(static_cast<InLink*>(link));
    releaseLink(link);
}

void releaseLink(Link* link) {
    if (--link->references != 0)
        return;
    for (unsigned i = 0; i < kLanes; ++i) {
        link->requests[i].unmap();
        link->replies[i].unmap();
    }
    if (link->page != nullptr)
        munmap(link->page, kLinkPageSize);
    if (link->file >= 0)
        close(link->file);
    if (link->isOutgoing)
        munmap(static_cast<OutLink*>(link)->doorbell, static_cast<size_t>(kDoorbellSize));
    free(link);
}

bool claimRequest(Message* message, Waker& waker) {
    Lane& lane = laneOf(message);
    uint32_t before = message->turn | LANE_SENT;
    if (!changeState(lane, before, LANE_RECEIVED))
        return false;
    if ((before & kLaneNotice) != 0 && (before & kLaneAsleep) != 0)
        waker = {&lane.word, Sharing::SHARED, false};
    return true;
}

bool isStillWanted(const Message* message) {
    // A change of nothing, since it does not move in front of the reading of the message, as a mere look could.
    const uint32_t word = __atomic_fetch_or(&laneOf(message).word, 0u, __ATOMIC_ACQ_REL);
    return (word & ~kLaneAsleep) == (message->turn | LANE_RECEIVED);
}

bool claimReply(Message* message) {
    uint32_t before = message->turn | LANE_RECEIVED;
    message->isClaimed = changeState(laneOf(message), before, LANE_REPLYING);
    return message->isClaimed;
}

void unclaimReply(Message* message) {
    message->isClaimed = false;
    Lane& lane = laneOf(message);
    uint32_t before = message->turn | LANE_REPLYING;  // unless the sender's connection ended
    // The sender may have gone to sleep without a limit meanwhile, since it could not leave.
    if (changeState(lane, before, LANE_RECEIVED) && (before & kLaneAsleep) != 0)
        futexWake(&lane.word, 1, Sharing::SHARED);
}

char* requestWindow(Message* message) {
    Window& window = message->link->requests[message->lane];
    const size_t end = message->requestBegin + static_cast<size_t>(message->info.srcmsglen);
    return window.reach(message->link->file, requestOffset(message->lane), end) ? window.at + message->requestBegin
                                                                                : nullptr;
}

char* replyWindow(Message* message) {
    Window& window = message->link->replies[message->lane];
    const size_t end = message->replyBegin + static_cast<size_t>(message->info.dstmsglen);
    return window.reach(message->link->file, replyOffset(message->lane), end) ? window.at + message->replyBegin
                                                                              : nullptr;
}

Waker completeReply(Message* message) {
    InLink* const link = message->link;
    Lane& lane = laneOf(message);
    Waker waker = {nullptr, Sharing::SHARED, false};
    if (message->isClaimed && !link->isDead) {
        __atomic_store_n(&lane.status, message->status, __ATOMIC_RELAXED);
        __atomic_store_n(&lane.error, message->error, __ATOMIC_RELAXED);
        __atomic_store_n(&lane.replyLength, static_cast<uint32_t>(message->replyLength), __ATOMIC_RELAXED);
        __atomic_store_n(&lane.receiver, thisProcessor(), __ATOMIC_RELAXED);
        const uint32_t before = __atomic_exchange_n(&lane.word, message->turn | LANE_REPLIED, __ATOMIC_ACQ_REL);
        if ((before & kLaneAsleep) != 0)
            waker.word = &lane.word;
    }
    link->requests[message->lane].trim();
    link->replies[message->lane].trim();
    link->messages[message->lane] = nullptr;
    if (message->isFollowed && !link->isDead) {
        leaveLane(link, message->lane);
        callReceiver(link->channel).make();
    }
    message->link = nullptr;
    releaseLink(link);
    return waker;
}

void noteReceived(QueuedPulse* pulse) {
    Link* const found = links.find(pulse->pulse.scoid);
    if (found != nullptr && found->serial == pulse->linkSerial) {
        InLink* const link = static_cast<InLink*>(found);
        __atomic_store_n(&link->page->pulsesReceived, ++link->pulsesReceived, __ATOMIC_RELEASE);
    }
    pulse->linkSerial = 0;
}

void forgetLinks() {
    for (int i = 0; i < links.capacity; ++i)
        if (Link* const link = links.find(i)) {
            close(link->socket);
            if (link->peer >= 0)
                close(link->peer);
            if (link->file >= 0)
                close(link->file);
            free(link);
        }
    links.clear(1);
}

}  // namespace host
