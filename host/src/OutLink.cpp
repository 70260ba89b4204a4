#include "Link.h"

#include "Descriptor.h"
#include "Ending.h"
#include "LinkSocket.h"
#include "Look.h"
#include "Watcher.h"

#include <errno.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/socket.h>

namespace host {
namespace {

__thread Spinner spinner __attribute__((tls_model("initial-exec")));

bool announceLane(OutLink* link, unsigned lane) {
    __atomic_fetch_or(&link->page->ready[lane / 32], 1u << lane % 32, __ATOMIC_SEQ_CST);
    return ring(*link->doorbell);
}

unsigned limitedBy(uint32_t state) {
    return state == LANE_SENT ? _NTO_TIMEOUT_SEND : _NTO_TIMEOUT_REPLY;
}

/// For a sender that ends while it waits for a lane.
void stopWaiting(void* what) {
    OutLink* const link = static_cast<OutLink*>(what);
    const ChannelGuard guard;
    --link->laneWaiters;
    releaseLink(link);
}

/// A free lane with enough room, or -1 and why not. Waits for one with the lock given up.
int takeLane(ChannelGuard& guard, OutLink* link, size_t room, Deadline deadline, int& error) {
    constexpr uint64_t kLong = (uint64_t(1) << kLongLanes) - 1;
    const uint64_t roomy = room <= kMaxShort ? ~uint64_t(0) : kLong;
    // A short one leaves the others to those that need them.
    const uint64_t best = room <= kMaxShort - kBeginBelow ? ~kLong : kLong;
    for (error = 0;;) {
        if (link->isDead) {
            error = link->deathError;
            return -1;
        }
        if (const uint64_t free = ~link->busyLanes & roomy; free != 0) {
            const int lane = __builtin_ctzll((free & best) != 0 ? free & best : free);
            link->busyLanes |= uint64_t(1) << lane;
            return lane;
        }
        if (error != 0)
            return -1;
        const unsigned seen = link->lanesFreed;
        Unfinished waiting(stopWaiting, link);
        ++link->laneWaiters;
        guard.unlock();
        const auto wait = [&] { return futexWait(&link->lanesFreed, seen, Sharing::PRIVATE, deadline); };
        error = deadline.isImmediate() ? ETIMEDOUT : waiting.during(wait);
        guard.lock();
        --link->laneWaiters;
        if (mustEnd != 0) {  // what it sent would be carried out for nobody
            error = EINTR;
            return -1;
        }
        if (error == EAGAIN)
            error = 0;
    }
}

void freeLane(ChannelGuard& guard, OutLink* link, unsigned lane) {
    if (link->requests[lane].size > kSmallWindow || link->replies[lane].size > kSmallWindow) {
        guard.unlock();  // it takes milliseconds
        link->requests[lane].trim();
        link->replies[lane].trim();
        fallocate64(link->file, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, requestOffset(lane),
                    off64_t(2) * laneRoom(lane));
        guard.lock();
    }
    link->busyLanes &= ~(uint64_t(1) << lane);
    __atomic_fetch_add(&link->lanesFreed, 1, __ATOMIC_RELEASE);
    if (link->laneWaiters != 0)
        futexWake(&link->lanesFreed, INT_MAX, Sharing::PRIVATE);  // not every one can use every lane
}

struct Sending {
    OutLink* link;
    unsigned lane;
    uint32_t turn;
    Unfinished* unfinished;
};

void lookForReply(const Sending& self, Deadline deadline) {
    const uint32_t& word = self.link->page->lanes[self.lane].word;
    spinner.look(deadline, [&] { return (load(word) & kLaneState) >= LANE_REPLIED || load(self.link->isDead); });
}

/// Until the reply is there: 0 or an error number. Who is interrupted wants to leave.
int waitForReply(const Sending& self, const ArmedTimeout& timeout, bool isInterrupted) {
    OutLink* const link = self.link;
    const uint32_t turn = self.turn;
    Lane& shared = link->page->lanes[self.lane];
    if (!isInterrupted && isElsewhere(load(link->receiver)) && spinner.isPromising())
        self.unfinished->during([&] { lookForReply(self, timeout.in(_NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY)); });
    for (bool isReleaseAsked = false;;) {
        uint32_t word = __atomic_load_n(&shared.word, __ATOMIC_SEQ_CST);
        const uint32_t state = word & kLaneState;
        if ((word & ~kLaneFlags) != turn)
            return ESRCH;  // the receiver does not keep to the rules
        if (state == LANE_REPLIED)
            return 0;
        if (__atomic_load_n(&link->isDead, __ATOMIC_SEQ_CST))
            return link->deathError;
        if (state > LANE_REPLIED)
            return ESRCH;
        const bool mayLeave = state != LANE_REPLYING && !isReleaseAsked;
        const Deadline limit = !mayLeave ? Deadline::never() : timeout.in(limitedBy(state));
        int error = EINTR;
        if (mayLeave && limit.isImmediate()) {
            error = ETIMEDOUT;
        } else if (!mayLeave || !isInterrupted) {
            const uint32_t asleep = word | kLaneAsleep;
            if (word != asleep && !__atomic_compare_exchange_n(&shared.word, &word, asleep, false, __ATOMIC_SEQ_CST,
                                                               __ATOMIC_RELAXED))
                continue;
            word = asleep;
            const Deadline look = nextLook(limit, Sharing::SHARED);
            error = self.unfinished->during([&] { return futexWait(&shared.word, word, Sharing::SHARED, look); });
            if (error == ETIMEDOUT && look.ns < limit.ns)
                continue;
        }
        isInterrupted |= error == EINTR;
        if (!mayLeave || (error != EINTR && error != ETIMEDOUT))
            continue;
        if (state == LANE_RECEIVED && link->hasUnblock) {
            __atomic_store_n(&shared.releaseWanted, turn, __ATOMIC_RELEASE);
            announceLane(link, self.lane);
            isReleaseAsked = true;
        } else if (__atomic_compare_exchange_n(&shared.word, &word, turn | LANE_WITHDRAWN, false, __ATOMIC_ACQ_REL,
                                               __ATOMIC_RELAXED)) {
            return error;
        }
    }
}

/// What fits into a segment of the room that the sender offers.
size_t replyRoom(const Parts& reply) {
    return reply.length < kMaxLength ? reply.length : kMaxLength;
}

/// Where in its window a run begins. A long one lies there as it does in the sender's memory, and so, as large blocks of
/// the heap begin alike, in the receiver's: 1 MiB that does not takes up to a tenth longer to copy.
uint32_t beginOf(const Parts& run, size_t length, unsigned lane) {
    constexpr size_t kLong = 128 << 10;
    if (length < kLong || length > laneRoom(lane) - kBeginBelow)
        return 0;
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(run.parts->iov_base) % kBeginBelow);
}

void endSending(ChannelGuard& guard, const Sending& self) {
    freeLane(guard, self.link, self.lane);
    releaseLink(self.link);
}

/// For a sender that ends while it waits for its reply. Where it may not leave yet, that takes as long as the receiver
/// does.
void leaveForGood(void* what) {
    const Sending& self = *static_cast<Sending*>(what);
    waitForReply(self, ArmedTimeout{0, Deadline::never()}, /*isInterrupted*/ true);
    ChannelGuard guard;
    endSending(guard, self);
}

SendResult exchange(Sending& self, const Parts& request, const Parts& reply, ArmedTimeout timeout, int priority) {
    OutLink* const link = self.link;
    const unsigned lane = self.lane;
    const size_t room = replyRoom(reply);
    Window& requests = link->requests[lane];
    Window& replies = link->replies[lane];
    const uint32_t requestBegin = beginOf(request, request.length, lane), replyBegin = beginOf(reply, room, lane);
    if (!requests.reach(link->file, requestOffset(lane), requestBegin + request.length) ||
        !replies.reach(link->file, replyOffset(lane), replyBegin + room))
        return {-1, EAGAIN};
    fillFromEnd({requests.at + requestBegin, request.length}, request);

    Lane& shared = link->page->lanes[lane];
    const uint32_t turn = self.turn = link->turns[lane] += kLaneTurn;
    shared.sender = thisProcessor();
    shared.priority = priority;
    shared.tid = static_cast<int32_t>(threadId());
    shared.requestLength = static_cast<uint32_t>(request.length);
    shared.replyRoom = static_cast<uint32_t>(room);
    shared.requestBegin = requestBegin;
    shared.replyBegin = replyBegin;
    shared.time = nowNs(CLOCK_MONOTONIC);
    const bool wantsNotice = isOnly(timeout, _NTO_TIMEOUT_REPLY);
    __atomic_store_n(&shared.word, turn | LANE_SENT | (wantsNotice ? kLaneNotice : 0), __ATOMIC_SEQ_CST);
    if (announceLane(link, lane))
        allowForWaking(timeout);

    if (const int error = waitForReply(self, timeout, /*isInterrupted*/ false); error != 0)
        return {-1, error};
    __atomic_store_n(&link->receiver, load(shared.receiver), __ATOMIC_RELAXED);
    const size_t replied = load(shared.replyLength);
    const iovec here = {replies.at + replyBegin, replied < room ? replied : room};
    copyParts(reply, 0, {&here, 1, here.iov_len}, 0);
    return {load(shared.status), load(shared.error)};
}

}  // namespace

int newOutLink(pid_t pid, int chid, OutLink*& link) {
    if (pid < 0 || chid <= 0)
        return ESRCH;
    Door door = {pid, chid, 0, 0};
    Descriptor doorbell(openDoorbell(door));
    if (!doorbell.isOpen())
        return errno == EACCES ? EPERM : errno == ENOENT || errno == ESRCH ? ESRCH : EAGAIN;
    Descriptor socket(connectTo(door));
    if (!socket.isOpen())
        return errno == ECONNREFUSED ? ESRCH : EAGAIN;
    ucred peer;
    // The name could be another process's: anybody may take one.
    if (!peerOf(socket.get(), peer) || peer.pid != pid)
        return ESRCH;
    if (peer.uid != geteuid() && geteuid() != 0)
        return EPERM;
    Descriptor file(makeSegment("nto-link", kLinkSize));
    if (!file.isOpen())
        return errno == EFBIG ? EFBIG : EAGAIN;
    Descriptor process(processBehind(socket.get(), pid));
    if (!process.isOpen())
        return errno == EMFILE || errno == ENFILE ? EAGAIN : ESRCH;
    OutLink* const made = static_cast<OutLink*>(calloc(1, sizeof(OutLink)));
    if (made == nullptr)
        return EAGAIN;
    made->doorbell = static_cast<Doorbell*>(mapSegment(doorbell.get(), 0, static_cast<size_t>(kDoorbellSize)));
    made->page = static_cast<LinkPage*>(mapSegment(file.get(), 0, kLinkPageSize));
    if (made->doorbell == nullptr || made->page == nullptr) {
        if (made->doorbell != nullptr)
            munmap(made->doorbell, static_cast<size_t>(kDoorbellSize));
        if (made->page != nullptr)
            munmap(made->page, kLinkPageSize);
        free(made);
        return EAGAIN;
    }
    made->isOutgoing = true;
    made->references = 1;
    made->hasUnblock = (door.flags & _NTO_CHF_UNBLOCK) != 0;
    made->file = file.release();
    made->socket = socket.release();
    made->peer = process.release();
    link = made;
    return 0;
}

int announce(OutLink* link, int coid) {
    link->page->version = kSegmentVersion;
    link->page->coid = coid;
    link->serial = newLinkSerial();
    link->id = links.add(link);
    if (link->id < 0 || !startWatcher() || !watchLink(link))
        return EAGAIN;
    if (!sendFile(link->socket, link->file))
        return errno == EPIPE || errno == ECONNRESET || errno == ENOTCONN ? ESRCH : EAGAIN;
    __atomic_store_n(&link->doorbell->knock, 1u, __ATOMIC_SEQ_CST);
    ring(*link->doorbell);
    return 0;
}

void discard(OutLink* link) {
    if (link->id > 0)
        links.remove(link->id);
    closeWatched(link->socket);
    closeWatched(link->peer);
    releaseLink(link);
}

void dropOutLink(OutLink* link, int error) {
    link->deathError = error;
    __atomic_store_n(&link->isDead, true, __ATOMIC_SEQ_CST);
    for (unsigned lane = 0; lane < kLanes; ++lane) {
        if ((link->busyLanes >> lane & 1) == 0)
            continue;
        uint32_t& shared = link->page->lanes[lane].word;
        uint32_t word = __atomic_load_n(&shared, __ATOMIC_SEQ_CST);
        while ((word & kLaneState) < LANE_REPLIED &&
               !__atomic_compare_exchange_n(&shared, &word, (word & ~kLaneFlags) | LANE_DEAD, false,
                                            __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST)) {
        }
        futexWake(&shared, INT_MAX, Sharing::SHARED);  // the other side may wait there, too, to our harm
    }
    __atomic_fetch_add(&link->lanesFreed, 1, __ATOMIC_RELEASE);
    futexWake(&link->lanesFreed, INT_MAX, Sharing::PRIVATE);
}

SendResult sendOver(ChannelGuard& guard, OutLink* link, const Parts& request, const Parts& reply,
                    const ArmedTimeout& timeout, int priority) {
    if (request.length > kMaxLength)
        return {-1, EMSGSIZE};
    if (link->isDead)
        return {-1, EBADF};
    ++link->references;
    SendResult result = {-1, 0};
    const size_t longest = request.length > replyRoom(reply) ? request.length : replyRoom(reply);
    const int lane = takeLane(guard, link, longest, timeout.in(_NTO_TIMEOUT_SEND), result.error);
    if (lane < 0) {
        releaseLink(link);
        return result;
    }
    Sending self = {link, static_cast<unsigned>(lane), 0, nullptr};
    Unfinished sending(leaveForGood, &self);
    self.unfinished = &sending;
    guard.unlock();
    result = exchange(self, request, reply, timeout, priority);
    guard.lock();
    endSending(guard, self);
    return result;
}

int pulseOver(ChannelGuard& guard, OutLink* link, int priority, int code, int value) {
    if (link->isDead)
        return EBADF;
    if (link->pulsesWritten - load(link->page->pulsesReceived) >= kSharedPulses)
        return EAGAIN;
    SharedPulse& pulse = link->page->pulses[link->pulsesWritten % kSharedPulses];
    link->page->pulseSender = thisProcessor();
    pulse.code = code;
    pulse.priority = priority;
    pulse.value = static_cast<uint32_t>(value);
    pulse.time = nowNs(CLOCK_MONOTONIC);
    __atomic_store_n(&link->page->pulsesWritten, ++link->pulsesWritten, __ATOMIC_SEQ_CST);
    ++link->references;
    const EndsLater untilRung;
    guard.unlock();
    ring(*link->doorbell);
    guard.lock();
    releaseLink(link);
    return 0;
}

}  // namespace host
