#include "Errno.h"
#include "Look.h"
#include "MessageBytes.h"
#include "ThreadState.h"
#include "Watcher.h"

#include <errno.h>

namespace host {
namespace {

__thread Spinner spinner __attribute__((tls_model("initial-exec")));

/// 0, or EFAULT when there is no room.
int deliverPulse(Channel* channel, QueuedPulse* queued, const Parts& into) {
    takeFromQueue(channel, queued);
    iovec part = {&queued->pulse, sizeof(_pulse)};
    const bool fits = into.length >= sizeof(_pulse);
    if (fits)
        copyParts(into, 0, {&part, 1, sizeof(_pulse)}, 0);
    releasePulse(channel, queued);
    return fits ? 0 : EFAULT;
}

/// Tells the sender that its message is being received. False when it has withdrawn.
bool beginReceive(Message* message) {
    if (message->sender == nullptr) {
        Waker notice = kNobody;
        const bool isWanted = claimRequest(message, notice);
        notice.wake();
        return isWanted;
    }
    LocalSender* const sender = message->sender;
    const unsigned before = __atomic_fetch_or(&sender->word, unsigned(LocalSender::RECEIVED), __ATOMIC_ACQ_REL);
    if (sender->isNoticeWanted && (before & LocalSender::ASLEEP) != 0)
        futexWake(&sender->word, 1, Sharing::PRIVATE);
    return true;
}

/// When a user of the message has copied what was sent. Its receive id, or 0 when the sender left meanwhile.
int endDelivery(Message* message, size_t copied, _msg_info* info) {
    const int id = receiveIdOf(message);
    if (message->sender == nullptr && !message->isOver && !isStillWanted(message))
        message->isOver = true;
    message->info.msglen = static_cast<int32_t>(copied);
    message->info.flags = message->isUnblockAsked ? _NTO_MI_UNBLOCK_REQ : 0;
    const bool isOver = message->isOver;
    message->isDelivered = !isOver;
    if (info != nullptr && !isOver)
        *info = message->info;
    endUse(message).wake();
    return isOver ? 0 : id;
}

/// Takes a queued message and copies it. The result is as above.
int deliverMessage(ChannelGuard& guard, Message* message, const Parts& into, _msg_info* info) {
    Channel* const channel = message->channel;
    takeFromQueue(channel, message);
    channel->receiver = thisProcessor();
    message->state = Message::State::RECEIVED;
    const bool isRemote = message->sender == nullptr;
    const char* const window = isRemote ? requestWindow(message) : nullptr;
    if (!beginReceive(message)) {
        finishMessage(message, -1, ESRCH);
        return 0;
    }
    if (isRemote && window == nullptr && message->info.srcmsglen != 0) {
        claimReply(message);
        finishMessage(message, -1, EAGAIN).wake();
        return 0;
    }
    ++message->users;
    const size_t copied = copyAside(guard, lesser(into.length, static_cast<size_t>(message->info.srcmsglen)),
                                    [&] { return readRequest(message, window, into, 0); });
    return endDelivery(message, copied, info);
}

QueueEntry* nextFor(const Channel* channel, bool pulsesOnly) {
    QueueEntry* const pulse = channel->pulses.top();
    QueueEntry* const message = pulsesOnly ? nullptr : channel->messages.top();
    if (pulse == nullptr || message == nullptr)
        return pulse != nullptr ? pulse : message;
    if (pulse->priority != message->priority)
        return pulse->priority > message->priority ? pulse : message;
    return pulse->arrival < message->arrival ? pulse : message;
}

bool isWorthWaking(const Channel* channel, bool pulsesOnly) {
    return nextFor(channel, pulsesOnly) != nullptr || channel->isDestroyed;
}

bool isInside(const Channel* channel) {
    return channel->links == nullptr;
}

/// The caller has copied what was lent. False when the message is over: the caller ends the loan.
bool giveBack(LocalSender* lender) {
    const unsigned before = __atomic_fetch_and(&lender->word, ~unsigned(LocalSender::LENT), __ATOMIC_ACQ_REL);
    return (before & LocalSender::OVER) == 0;
}

/// Of a message that was over before its receiver gave it back.
void endLoan(Channel* channel, LocalSender* lender) {
    ++channel->references;  // the receiver's again, as long as the message still has its own
    ++lender->message->users;
    endUse(lender->message).wake();
}

/// For a receiver that ends while it is counted among the channel's: others take what it may have been called for, of
/// which what other processes sent is in no queue yet.
void leaveToOthers(Channel* channel) {
    callAllReceivers(channel);
    releaseChannel(channel);
}

/// A message that nobody has got after all. Its sender wakes, if it sleeps: another time-out may be its limit now.
void queueAgain(Message* message) {
    if (message->isUnblockAsked) {  // it waits for nothing but its release
        finishMessage(message, -1, message->error).wake();
        return;
    }
    unsigned* const word = &message->sender->word;
    __atomic_fetch_and(word, ~unsigned(LocalSender::RECEIVED | LocalSender::ASLEEP), __ATOMIC_ACQ_REL);
    futexWake(word, 1, Sharing::PRIVATE);
    queueArrival(message->channel, message);
    callReceiver(message->channel).make();
}

struct Looking {
    Channel* channel;
    LookingReceiver receiver;
};

/// For a receiver that ends.
void stopLookingInside(void* what) {
    Looking& look = *static_cast<Looking*>(what);
    LookingReceiver& self = look.receiver;
    const ChannelGuard guard;
    if (self.state != LookingReceiver::HANDED) {
        if (self.state == LookingReceiver::LOOKS)
            look.channel->looking = nullptr;
        leaveToOthers(look.channel);
        return;
    }
    if (self.lender != nullptr && !giveBack(self.lender)) {
        endLoan(look.channel, self.lender);
        releaseChannel(look.channel);
    } else if (Message* const message = findReceived(self.id)) {
        queueAgain(message);
    }
}

/// Looks inside. A message that was handed over gives its receive id, without the lock; else 0.
int lookInside(ChannelGuard& guard, Channel* channel, const Parts& into, _msg_info* info, bool pulsesOnly,
               Deadline deadline) {
    Looking what;
    what.channel = channel;
    LookingReceiver& self = what.receiver;
    Unfinished looking(stopLookingInside, &what);
    self.state = LookingReceiver::LOOKS;
    self.takesMessages = !pulsesOnly;
    self.processor = thisProcessor();
    channel->looking = &self;
    guard.unlock();
    looking.during(
        [&] { return spinner.look(deadline, [&] { return load(self.state) != LookingReceiver::LOOKS; }); });
    if (load(self.state) != LookingReceiver::HANDED) {
        guard.lock();
        if (self.state == LookingReceiver::LOOKS)
            channel->looking = nullptr;
        if (self.state != LookingReceiver::HANDED)
            return 0;
        guard.unlock();
    }
    if (mustEnd != 0)
        looking.during([] {});  // ends, and leaves to others what it was handed
    const iovec bytes = {self.bytes, static_cast<size_t>(self.info.srcmsglen)};
    const Parts sent = self.lender != nullptr ? self.lent.get() : Parts{&bytes, 1, bytes.iov_len};
    self.info.msglen = static_cast<int32_t>(copyParts(into, 0, sent, 0));
    if (self.lender != nullptr && !giveBack(self.lender)) {
        guard.lock();
        endLoan(channel, self.lender);
        return 0;
    }
    if (info != nullptr)
        *info = self.info;
    return self.id;
}

void endLookOutside(Channel* channel) {
    channel->isSpunAt = false;
    __atomic_fetch_and(&channel->doorbell->word, ~kSpinning, __ATOMIC_SEQ_CST);
}

/// For a receiver that ends.
void stopLookingOutside(void* what) {
    Channel* const channel = static_cast<Channel*>(what);
    const ChannelGuard guard;
    endLookOutside(channel);
    leaveToOthers(channel);
}

/// Looks at the word that other processes change, too.
void lookOutside(ChannelGuard& guard, Channel* channel, bool pulsesOnly, Deadline deadline) {
    Unfinished looking(stopLookingOutside, channel);
    channel->isSpunAt = true;
    uint32_t& word = channel->doorbell->word;
    const uint32_t seen = __atomic_or_fetch(&word, kSpinning, __ATOMIC_SEQ_CST);
    // Their senders look at the word after they have sent: what came before it was seen is found here.
    collect(channel);
    if (!isWorthWaking(channel, pulsesOnly)) {
        guard.unlock();
        looking.during([&] { return spinner.look(deadline, [&] { return load(word) != seen; }); });
        guard.lock();
    }
    endLookOutside(channel);
}

/// Promising, and nobody else does.
bool isWorthLooking(const Channel* channel) {
    return channel->looking == nullptr && !channel->isSpunAt && isElsewhere(channel->sender) &&
           spinner.isPromising();
}

/// Looks for an arrival for a while. The result is that of lookInside().
int look(ChannelGuard& guard, Channel* channel, const Parts& into, _msg_info* info, bool pulsesOnly,
         Deadline deadline) {
    if (isInside(channel))
        return lookInside(guard, channel, into, info, pulsesOnly, deadline);
    lookOutside(guard, channel, pulsesOnly, deadline);
    return 0;
}

Deadline earlier(Deadline one, Deadline other) {
    return one.ns < other.ns ? one : other;
}

/// How long a receiver may sleep.
Deadline sleepUntil(Channel* channel, bool inside, Deadline deadline) {
    const bool hasTimers = channel->timers.count != 0;
    if (inside && isWatching() && !hasTimers)
        return deadline;
    // Where some milliseconds less do not matter, the clock that is read in a fraction of the time.
    const uint64_t now = nowNs(hasTimers ? CLOCK_MONOTONIC : CLOCK_MONOTONIC_COARSE);
    Deadline limit = earlier(lookAtDoor(channel, now), deadline);
    if (inside && !isWatching())
        limit = earlier({now + kInsideNs}, limit);
    if (!inside)
        limit = earlier({now + kLookAfterNs}, limit);
    return hasTimers ? earlier(wakingTime(channel->timers, now), limit) : limit;
}

struct Asleep {
    Channel* channel;
    bool isInside;
    bool pulsesOnly;
};

/// For a receiver that ends.
void endSleepForGood(void* what) {
    const Asleep& self = *static_cast<Asleep*>(what);
    const ChannelGuard guard;
    endSleep(self.channel, self.isInside, self.pulsesOnly);
    leaveToOthers(self.channel);
}

/// Until something arrives: 0 or an error number. `mayStayInside` ends with a sleep inside that was long enough.
int sleep(ChannelGuard& guard, Channel* channel, bool pulsesOnly, Deadline deadline, bool& mayStayInside) {
    const bool inside = isInside(channel) && (mayStayInside || isWatching());
    unsigned* const word = inside ? &channel->insideWord : &channel->doorbell->word;
    Asleep self = {channel, inside, pulsesOnly};
    Unfinished sleeping(endSleepForGood, &self);
    const unsigned seen = beginSleep(channel, inside, pulsesOnly);
    collect(channel);  // after the word was seen, as above
    int result = 0;
    if (!isWorthWaking(channel, pulsesOnly)) {
        const Deadline limit = sleepUntil(channel, inside, deadline);
        guard.unlock();
        const Sharing sharing = inside ? Sharing::PRIVATE : Sharing::SHARED;
        result = sleeping.during([&] { return futexWait(word, seen, sharing, limit); });
        guard.lock();
        if (result == ETIMEDOUT && limit.ns < deadline.ns) {
            mayStayInside = false;
            result = 0;
        }
    }
    endSleep(channel, inside, pulsesOnly);
    return result == EAGAIN ? 0 : result;
}

/// Who was called passes the call on: to all, when it leaves messages to others; to one, when more waits than it takes.
void passCallOn(Channel* channel, bool takesOne, bool pulsesOnly) {
    if (takesOne && channel->waiting > 1 && isAnyAsleep(channel))
        callReceiver(channel).make();
    if (!takesOne && pulsesOnly && channel->waiting != 0 &&
        channel->asleepInside + channel->asleepOutside > channel->asleepForPulses)
        callAllReceivers(channel);
}

/// The receive id, 0 for a pulse, or an error number negated. Without the lock when the channel is no more the caller's.
int receiveFrom(ChannelGuard& guard, Channel* channel, const Parts& into, _msg_info* info, bool pulsesOnly,
                Deadline deadline) {
    bool hasWaited = false, mayStayInside = true;
    for (int ended = 0;;) {
        if (channel->isDestroyed)
            return -ESRCH;
        if (hasWaited && mustEnd != 0) {  // what it took would end with it
            callAllReceivers(channel);
            return -EINTR;
        }
        update(channel);
        QueueEntry* const entry = nextFor(channel, pulsesOnly);
        if (hasWaited)
            passCallOn(channel, entry != nullptr, pulsesOnly);
        if (entry != nullptr && entry->isPulse)
            return -deliverPulse(channel, static_cast<QueuedPulse*>(entry), into);
        if (entry != nullptr) {
            const int id = deliverMessage(guard, static_cast<Message*>(entry), into, info);
            if (id != 0)
                return id;
            continue;
        }
        if (ended != 0)
            return -ended;
        if (deadline.isImmediate()) {
            if (!isWatching())
                lookAtDoor(channel, nowNs(CLOCK_MONOTONIC));
            return -ETIMEDOUT;
        }
        if (hasWaited || !isWorthLooking(channel))
            ended = sleep(guard, channel, pulsesOnly, deadline, mayStayInside);
        else if (const int id = look(guard, channel, into, info, pulsesOnly, deadline); id != 0)
            return id;
        hasWaited = true;
    }
}

/// Takes over the lock; a null channel is none. Not part of its caller, which jumps here and has a small frame.
[[gnu::noinline]] int receiveAnything(Channel* channel, Buffers room, _msg_info* info, bool pulsesOnly,
                                      Deadline deadline) {
    ErrnoKeeper keeper;
    ChannelGuard guard(ChannelGuard::HELD);
    iovec storage;
    Parts into;
    int result = -ESRCH;
    if (!room.measure(into, storage)) {
        keeper.report(EINVAL);
        return -1;
    }
    if (channel != nullptr) {
        ++channel->references;
        result = receiveFrom(guard, channel, into, info, pulsesOnly, deadline);
        if (guard.isLocked())
            releaseChannel(channel);
    }
    if (result >= 0)
        return result;
    keeper.report(-result);
    return -1;
}

/// A pulse that waits already goes into one buffer by a way of its own, without what waiting and messages need.
bool takeWaitingPulse(Channel* channel, Buffers room, bool pulsesOnly) {
    if (channel->pulses.isEmpty() || !room.isOneOf(sizeof(_pulse)))
        return false;
    update(channel);
    QueueEntry* const entry = nextFor(channel, pulsesOnly);
    if (!entry->isPulse)
        return false;
    QueuedPulse* const queued = static_cast<QueuedPulse*>(entry);
    takeFromQueue(channel, queued);
    room.fill(&queued->pulse, sizeof(_pulse));
    releasePulse(channel, queued);
    return true;
}

int receive(int chid, Buffers room, _msg_info* info, bool pulsesOnly) {
    const Deadline deadline = takeTimeout(_NTO_TIMEOUT_RECEIVE);
    lockChannels();
    Channel* const channel = channels.find(chid);
    if (channel != nullptr && takeWaitingPulse(channel, room, pulsesOnly)) {
        unlockChannels();
        return 0;
    }
    return receiveAnything(channel, room, info, pulsesOnly, deadline);
}

}  // namespace
}  // namespace host

using namespace host;

int MsgReceive(int chid, void* message, int bytes, _msg_info* info) {
    return receive(chid, Buffers::one(message, bytes), info, /*pulsesOnly*/ false);
}

int MsgReceivev(int chid, const iovec* message, int parts, _msg_info* info) {
    return receive(chid, Buffers::list(message, parts), info, /*pulsesOnly*/ false);
}

int MsgReceivePulse(int chid, void* pulse, int bytes, _msg_info*) {
    return receive(chid, Buffers::one(pulse, bytes), nullptr, /*pulsesOnly*/ true);
}
