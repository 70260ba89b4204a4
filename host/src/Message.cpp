#include "Connection.h"
#include "ErrnoKeeper.h"
#include "Look.h"
#include "ThreadState.h"
#include "Watcher.h"

#include <errno.h>

namespace host {
namespace {

__thread Spinner sendersSpinner __attribute__((tls_model("initial-exec")));
__thread Spinner receiversSpinner __attribute__((tls_model("initial-exec")));

constexpr int kLastPriority = kPriorities - 1;

int fail(int error) {
    errno = error;
    return -1;
}

bool hasPassed(Deadline deadline) {
    return deadline.isImmediate() || (!deadline.isNever() && nowNs(CLOCK_MONOTONIC) >= deadline.ns);
}

/// What a sender whose message sleeps in `state` may wait for.
Deadline limitOf(unsigned state, const ArmedTimeout& timeout) {
    return timeout.in((state & LocalSender::RECEIVED) == 0 ? _NTO_TIMEOUT_SEND : _NTO_TIMEOUT_REPLY);
}

bool isDone(const LocalSender& sender) {
    return (__atomic_load_n(&sender.word, __ATOMIC_ACQUIRE) & LocalSender::DONE) != 0;
}

/// The sender wants to leave, with `error`. True when it may; else its wait ends by itself, soon or with a reply.
bool leave(LocalSender& sender, int error) {
    Message* const message = sender.message;
    if (message->isOver)
        return false;
    const bool isReceived = message->state != Message::State::QUEUED;
    if (message->state == Message::State::REPLIED)
        return false;
    if (isReceived && (message->channel->flags & _NTO_CHF_UNBLOCK) != 0) {
        message->error = error;  // for the case that nobody receives it after all
        if (!message->isUnblockAsked) {
            update(message->channel);
            askForRelease(message);
        }
        return false;
    }
    finishMessage(message, -1, error).wake();
    return isDone(sender);
}

/// EAGAIN when the word is not `state`, else as futexWait().
int sleepIn(unsigned state, LocalSender& sender, Deadline limit) {
    const unsigned asleep = state | LocalSender::ASLEEP;
    if (!__atomic_compare_exchange_n(&sender.word, &state, asleep, false, __ATOMIC_ACQ_REL, __ATOMIC_RELAXED))
        return EAGAIN;
    return futexWait(&sender.word, asleep, Sharing::PRIVATE, limit);
}

/// For a sender whose thread ends. Where it may not leave yet, that takes as long as the receiver does.
void leaveForGood(void* ended) {
    LocalSender& sender = *static_cast<LocalSender*>(ended);
    {
        const ChannelGuard guard;
        if (!sender.isReleased)
            leave(sender, EINTR);
    }
    while (!isDone(sender))
        sleepIn(load(sender.word) & ~unsigned(LocalSender::DONE), sender, Deadline::never());
}

/// Waits until the sender's word says that it is done. `receiver` is where the last message was taken.
void waitForReply(LocalSender& sender, ArmedTimeout timeout, ProcessorHint receiver, Unfinished& sending) {
    if (isElsewhere(receiver) && sendersSpinner.isPromising())
        sending.during([&] {
            return sendersSpinner.look(timeout.in(_NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY),
                                       [&] { return isDone(sender); });
        });
    for (bool mayLeave = true;;) {
        const unsigned state = load(sender.word);
        if ((state & LocalSender::DONE) != 0)
            return;
        const Deadline limit = mayLeave ? limitOf(state, timeout) : Deadline::never();
        const int error =
            limit.isImmediate() ? ETIMEDOUT : sending.during([&] { return sleepIn(state, sender, limit); });
        if (!mayLeave || (error != EINTR && error != ETIMEDOUT))
            continue;
        const ChannelGuard guard;
        if (sender.isReleased) {
            mayLeave = false;
            continue;
        }
        // The message may have been received meanwhile, and that state may have no limit. A receiver that gives back what
        // was lent changes the word without the lock.
        if (error == ETIMEDOUT && !hasPassed(limitOf(load(sender.word), timeout)))
            continue;
        if (leave(sender, error))
            return;
        mayLeave = false;
    }
}

/// Gives the message to the receiver that looks for one, as it would take it from the queue itself. A short one comes
/// with its bytes, those of a longer one are lent, so that the receiver needs the lock no more. False when there is
/// none, or when another message waits.
bool handOver(Channel* channel, Message* message) {
    LookingReceiver* const receiver = channel->looking;
    if (receiver == nullptr || !receiver->takesMessages || channel->waiting != 0)
        return false;
    LocalSender* const sender = message->sender;
    message->state = Message::State::RECEIVED;
    channel->receiver = receiver->processor;
    receiver->id = receiveIdOf(message);
    receiver->info = message->info;
    if (sender->request.length <= LookingReceiver::kBytes) {
        const iovec bytes = {receiver->bytes, LookingReceiver::kBytes};
        copyParts({&bytes, 1, bytes.iov_len}, 0, sender->request, 0);
        sender->word = LocalSender::RECEIVED;
        receiver->lender = nullptr;
    } else {
        sender->word = LocalSender::RECEIVED | LocalSender::LENT;
        receiver->lender = sender;
        receiver->lent.set(sender->request);
    }
    --channel->references;  // the receiver's; the message has its own
    callLooking(channel, LookingReceiver::HANDED);
    return true;
}

/// Whether one of the receivers that wait takes messages.
bool isMessageAwaited(const Channel* channel) {
    return channel->isSpunAt || (channel->looking != nullptr && channel->looking->takesMessages) ||
           channel->asleepInside + channel->asleepOutside > channel->asleepForPulses;
}

SendResult sendHere(ChannelGuard& guard, Connection* connection, const Parts& request, const Parts& reply,
                    ArmedTimeout timeout, int priority) {
    Channel* const channel = connection->channel;
    if (channel->isDestroyed)
        return {-1, EBADF};
    Message* const message = newMessage(channel);
    if (message == nullptr)
        return {-1, EAGAIN};
    const bool isReplyAloneTimed = isOnly(timeout, _NTO_TIMEOUT_REPLY);
    LocalSender sender = {LocalSender::QUEUED, isReplyAloneTimed, false, 0, 0, request, {}, message};
    sender.reply.set(reply);
    Unfinished sending(leaveForGood, &sender);
    message->sender = &sender;
    message->link = nullptr;
    message->priority = priority;
    message->info = {};
    message->info.pid = processId;
    message->info.tid = static_cast<int32_t>(threadId());
    message->info.chid = channel->id;
    message->info.scoid = message->info.coid = _NTO_SIDE_CHANNEL | connection->id;
    message->info.srcmsglen = static_cast<int32_t>(request.length);
    message->info.dstmsglen = static_cast<int32_t>(reply.length);
    message->info.priority = static_cast<int16_t>(message->priority);
    update(channel);  // what others sent before comes first
    channel->sender = thisProcessor();
    const ProcessorHint lastReceiver = channel->receiver;
    if (handOver(channel, message)) {
        guard.unlock();
    } else {
        const bool isWanted = isMessageAwaited(channel);
        queueArrival(channel, message);
        if (callReceiver(channel).makeWithout(guard) && isWanted)
            allowForWaking(timeout);
    }
    waitForReply(sender, timeout, lastReceiver, sending);
    return {sender.status, sender.error};
}

/// 0 or an error number.
int pulseHere(ChannelGuard& guard, const Connection* connection, int priority, int code, int value) {
    Channel* const channel = connection->channel;
    if (channel->isDestroyed)
        return EBADF;
    update(channel);
    sigval small;
    small.sival_ptr = nullptr;
    small.sival_int = value;
    if (!queuePulse(channel, priority, code, small, _NTO_SIDE_CHANNEL | connection->id))
        return EAGAIN;
    if (channel->waiting == 1)  // of several the first one tells
        channel->sender = thisProcessor();
    callReceiver(channel).makeWithout(guard);
    return 0;
}

int send(int coid, Buffers given, Buffers room) {
    const ArmedTimeout timeout = takeTimeouts();
    iovec storage[2];
    Parts request, reply;
    if (!given.measure(request, storage[0]) || !room.measure(reply, storage[1]))
        return fail(EINVAL);
    ErrnoKeeper keeper;
    const int priority = callerPriority();
    SendResult result = {-1, EBADF};
    {
        ChannelGuard guard;
        Connection* const connection = findConnection(coid);
        if (connection != nullptr)
            result = connection->link != nullptr
                         ? sendOver(guard, connection->link, request, reply, timeout, priority)
                         : sendHere(guard, connection, request, reply, timeout, priority);
    }
    if (result.error == 0)
        return result.status;
    keeper.report(result.error);
    return -1;
}

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

/// Copies what was sent, from `offset` on; how much. Needs no lock.
size_t readRequest(const Message* message, const char* window, const Parts& into, size_t offset) {
    if (message->sender != nullptr)
        return copyParts(into, 0, message->sender->request, offset);
    const size_t length = static_cast<size_t>(message->info.srcmsglen);
    const iovec part = {const_cast<char*>(window), length};
    return copyParts(into, 0, {&part, 1, length}, offset);
}

/// Copies with the lock given up, or, where that would take longer than copying, with it.
template <class Copy>
size_t copyAside(ChannelGuard& guard, size_t length, Copy copy) {
    constexpr size_t kShort = 1024;
    if (length <= kShort)
        return copy();
    const EndsLater untilCopied;
    guard.unlock();
    const size_t copied = copy();
    guard.lock();
    return copied;
}

size_t lesser(size_t a, size_t b) {
    return a < b ? a : b;
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
    looking.during([&] {
        return receiversSpinner.look(deadline, [&] { return load(self.state) != LookingReceiver::LOOKS; });
    });
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
        looking.during([&] { return receiversSpinner.look(deadline, [&] { return load(word) != seen; }); });
        guard.lock();
    }
    endLookOutside(channel);
}

/// Promising, and nobody else does.
bool isWorthLooking(const Channel* channel) {
    return channel->looking == nullptr && !channel->isSpunAt && isElsewhere(channel->sender) &&
           receiversSpinner.isPromising();
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

/// The reply's place and room at the sender. False when it has withdrawn, or without memory.
bool replyPlace(Message* message, iovec& storage, Parts& place) {
    if (message->sender != nullptr) {
        place = message->sender->reply.get();
        return true;
    }
    storage = {replyWindow(message), static_cast<size_t>(message->info.dstmsglen)};
    place = {&storage, 1, storage.iov_len};
    return storage.iov_base != nullptr || storage.iov_len == 0;
}

void noteReplied(Message* message, size_t end) {
    if (end > message->replyLength)
        message->replyLength = end;
}

int reply(int rcvid, int status, int error, Buffers given) {
    dropTimeout();
    iovec only;
    Parts answer;
    if (!given.measure(answer, only))
        return fail(EINVAL);
    ErrnoKeeper keeper;
    ChannelGuard guard;
    Message* const message = findReceived(rcvid);
    if (message == nullptr) {
        keeper.report(ESRCH);
        return -1;
    }
    if (message->sender == nullptr && !claimReply(message)) {
        finishMessage(message, -1, ESRCH);
        keeper.report(ESRCH);
        return -1;
    }
    iovec storage;
    Parts place;
    if (answer.length != 0 && !replyPlace(message, storage, place)) {
        finishMessage(message, -1, EAGAIN).wake();
        keeper.report(EAGAIN);
        return -1;
    }
    message->state = Message::State::REPLIED;
    if (answer.length != 0) {
        ++message->users;
        noteReplied(message, copyAside(guard, lesser(place.length, answer.length), [&] {
                        return message->sender != nullptr ? copyParts(place, 0, answer, 0)
                                                          : fillFromEnd(storage, answer);
                    }));
        --message->users;
    }
    const bool isGone = message->sender == nullptr && message->link->isDead;
    const Waker sender = finishMessage(message, status, error);
    {
        const EndsLater untilWoken;
        guard.unlock();
        sender.wake();
    }
    if (!isGone)
        return 0;
    keeper.report(ESRCH);
    return -1;
}

int readMessage(int rcvid, Buffers room, int offset) {
    dropTimeout();
    iovec only;
    Parts into;
    if (!room.measure(into, only) || offset < 0)
        return fail(EINVAL);
    ErrnoKeeper keeper;
    ChannelGuard guard;
    Message* const message = findReceived(rcvid);
    if (message == nullptr) {
        keeper.report(ESRCH);
        return -1;
    }
    const char* const window = message->sender == nullptr ? requestWindow(message) : nullptr;
    ++message->users;
    const size_t copied = copyAside(
        guard, into.length, [&] { return readRequest(message, window, into, static_cast<size_t>(offset)); });
    const bool isGone = message->sender == nullptr && !isStillWanted(message) && !message->isClaimed;
    if (isGone)
        message->isOver = message->isIdKept = true;
    endUse(message).wake();
    if (!isGone)
        return static_cast<int>(copied);
    keeper.report(ESRCH);
    return -1;
}

int writeReply(int rcvid, Buffers given, int offset) {
    dropTimeout();
    iovec only;
    Parts from;
    if (!given.measure(from, only) || offset < 0)
        return fail(EINVAL);
    ErrnoKeeper keeper;
    const ChannelGuard guard;  // all the time: pieces that two threads write take their turns
    Message* const message = findReceived(rcvid);
    if (message == nullptr || (message->sender == nullptr && !claimReply(message))) {
        if (message != nullptr)
            finishMessage(message, -1, ESRCH);
        keeper.report(ESRCH);
        return -1;
    }
    iovec storage;
    Parts place;
    const size_t begin = static_cast<size_t>(offset);
    size_t copied = 0;
    const bool hasPlace = replyPlace(message, storage, place);
    if (hasPlace && begin < place.length) {
        if (message->sender == nullptr && begin > message->replyLength)
            memset(static_cast<char*>(storage.iov_base) + message->replyLength, 0, begin - message->replyLength);
        copied = copyParts(place, begin, from, 0);
        noteReplied(message, begin + copied);
    }
    if (message->sender == nullptr)
        unclaimReply(message);
    if (hasPlace)
        return static_cast<int>(copied);
    keeper.report(EAGAIN);
    return -1;
}

}  // namespace
}  // namespace host

using namespace host;

int MsgSend(int coid, const void* message, int bytes, void* reply, int replyBytes) {
    return send(coid, Buffers::one(message, bytes), Buffers::one(reply, replyBytes));
}

int MsgSendv(int coid, const iovec* message, int parts, const iovec* reply, int replyParts) {
    return send(coid, Buffers::list(message, parts), Buffers::list(reply, replyParts));
}

int MsgSendPulse(int coid, int priority, int code, int value) {
    dropTimeout();
    if (priority > kLastPriority)
        return fail(EINVAL);
    const int urgency = priority < 0 ? callerPriority() : priority;
    ErrnoKeeper keeper;
    int error = EBADF;
    {
        ChannelGuard guard;
        const Connection* const connection = findConnection(coid);
        if (connection != nullptr)
            error = connection->link != nullptr ? pulseOver(guard, connection->link, urgency, code, value)
                                                : pulseHere(guard, connection, urgency, code, value);
    }
    if (error == 0)
        return 0;
    keeper.report(error);
    return -1;
}

int MsgReceive(int chid, void* message, int bytes, _msg_info* info) {
    return receive(chid, Buffers::one(message, bytes), info, /*pulsesOnly*/ false);
}

int MsgReceivev(int chid, const iovec* message, int parts, _msg_info* info) {
    return receive(chid, Buffers::list(message, parts), info, /*pulsesOnly*/ false);
}

int MsgReceivePulse(int chid, void* pulse, int bytes, _msg_info*) {
    return receive(chid, Buffers::one(pulse, bytes), nullptr, /*pulsesOnly*/ true);
}

int MsgReply(int rcvid, int status, const void* bytes, int size) {
    return reply(rcvid, status, 0, Buffers::one(bytes, size));
}

int MsgReplyv(int rcvid, int status, const iovec* answer, int parts) {
    return reply(rcvid, status, 0, Buffers::list(answer, parts));
}

int MsgError(int rcvid, int error) {
    return reply(rcvid, error == EOK ? 0 : -1, error, Buffers::list(nullptr, 0));
}

int MsgRead(int rcvid, void* message, int bytes, int offset) {
    return readMessage(rcvid, Buffers::one(message, bytes), offset);
}

int MsgReadv(int rcvid, const iovec* message, int parts, int offset) {
    return readMessage(rcvid, Buffers::list(message, parts), offset);
}

int MsgWrite(int rcvid, const void* bytes, int size, int offset) {
    return writeReply(rcvid, Buffers::one(bytes, size), offset);
}

int MsgWritev(int rcvid, const iovec* answer, int parts, int offset) {
    return writeReply(rcvid, Buffers::list(answer, parts), offset);
}
