#include "Connection.h"
#include "ErrnoKeeper.h"
#include "ThreadState.h"

#include <errno.h>

namespace host {
namespace {

constexpr unsigned kSendStates = _NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY;
constexpr uint64_t kWakingNs = 20000000;
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
    return timeout.in(state == LocalSender::QUEUED ? _NTO_TIMEOUT_SEND : _NTO_TIMEOUT_REPLY);
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
        if (!message->isUnblockAsked)
            askForRelease(message);
        return false;
    }
    finishMessage(message, -1, error);
    return sender.word == LocalSender::DONE;
}

/// Waits until the sender's word says that it is done.
void waitForReply(LocalSender& sender, ArmedTimeout timeout) {
    for (bool mayLeave = true;;) {
        const unsigned state = __atomic_load_n(&sender.word, __ATOMIC_ACQUIRE);
        if (state == LocalSender::DONE)
            return;
        const Deadline limit = mayLeave ? limitOf(state, timeout) : Deadline::never();
        int error = limit.isImmediate() ? ETIMEDOUT : futexWait(&sender.word, state, Sharing::PRIVATE, limit);
        if (!mayLeave || (error != EINTR && error != ETIMEDOUT))
            continue;
        const ChannelGuard guard;
        if (sender.word == LocalSender::DONE)
            return;
        // The message may have been received meanwhile, and that state may have no limit.
        if (error == ETIMEDOUT && !hasPassed(limitOf(sender.word, timeout)))
            continue;
        if (leave(sender, error))
            return;
        mayLeave = false;
    }
}

int send(int coid, Parts request, Parts reply) {
    ArmedTimeout timeout = takeTimeouts();
    if (!measure(request) || !measure(reply))
        return fail(EINVAL);
    ErrnoKeeper keeper;
    LocalSender sender = {LocalSender::QUEUED, false, 0, 0, request, reply, nullptr};
    unsigned* receiver;
    {
        const ChannelGuard guard;
        Connection* const connection = findConnection(coid);
        if (connection == nullptr || connection->channel->isDestroyed) {
            keeper.report(EBADF);
            return -1;
        }
        Channel* const channel = connection->channel;
        Message* const message = newMessage(channel);
        if (message == nullptr) {
            keeper.report(EAGAIN);
            return -1;
        }
        sender.isNoticeWanted = (timeout.states & kSendStates) == _NTO_TIMEOUT_REPLY;
        sender.message = message;
        message->sender = &sender;
        message->priority = callerPriority();
        message->info = {};
        message->info.pid = getpid();
        message->info.tid = static_cast<int32_t>(threadId());
        message->info.chid = channel->id;
        message->info.scoid = coid;
        message->info.coid = coid;
        message->info.srcmsglen = static_cast<int32_t>(request.length);
        message->info.dstmsglen = static_cast<int32_t>(reply.length);
        message->info.priority = static_cast<int16_t>(message->priority);
        queueMessage(message);
        receiver = callReceiver(channel);
    }
    // A receiver that waits takes the message without any waiting; here it has to wake up first.
    if (receiver != nullptr && timeout.in(_NTO_TIMEOUT_SEND).isImmediate() &&
        (timeout.states & kSendStates) == _NTO_TIMEOUT_SEND)
        timeout.deadline = {nowNs(CLOCK_MONOTONIC) + kWakingNs};
    wakeReceiver(receiver);
    waitForReply(sender, timeout);
    if (sender.error == 0)
        return sender.status;
    keeper.report(sender.error);
    return -1;
}

/// 0, or EFAULT when there is no room.
int deliverPulse(Channel* channel, QueuedPulse* queued, const Parts& into) {
    channel->pulses.remove(queued);
    iovec part = {&queued->pulse, sizeof(_pulse)};
    const bool fits = into.length >= sizeof(_pulse);
    if (fits)
        copyParts(into, 0, {&part, 1, sizeof(_pulse)}, 0);
    releasePulse(channel, queued);
    return fits ? 0 : EFAULT;
}

/// Takes a queued message and copies it. Its receive id, or 0 when the sender left meanwhile.
int deliverMessage(ChannelGuard& guard, Message* message, const Parts& into, _msg_info* info) {
    LocalSender* const sender = message->sender;
    message->channel->messages.remove(message);
    message->state = Message::State::RECEIVED;
    ++message->users;
    message->info.msglen = 0;
    const int id = receiveIdOf(message);
    __atomic_store_n(&sender->word, LocalSender::RECEIVED, __ATOMIC_RELEASE);
    if (sender->isNoticeWanted)
        wakeSender(&sender->word);
    guard.unlock();
    const size_t copied = copyParts(into, 0, sender->request, 0);
    guard.lock();
    message->info.msglen = static_cast<int32_t>(copied);
    message->info.flags = message->isUnblockAsked ? _NTO_MI_UNBLOCK_REQ : 0;
    if (info != nullptr && !message->isOver)
        *info = message->info;
    const bool isOver = message->isOver;
    wakeSender(endUse(message));
    return isOver ? 0 : id;
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

/// Until something arrives: 0 or an error number.
int sleep(ChannelGuard& guard, Channel* channel, Deadline deadline) {
    unsigned* const word = channel->word;
    const unsigned seen = __atomic_load_n(word, __ATOMIC_RELAXED);
    ++channel->asleep;
    guard.unlock();
    const int result = futexWait(word, seen, Sharing::PRIVATE, deadline);
    guard.lock();
    --channel->asleep;
    if (channel->called != 0)
        --channel->called;
    return result == EAGAIN ? 0 : result;
}

/// The receive id, 0 for a pulse, or an error number negated.
int receiveFrom(ChannelGuard& guard, Channel* channel, Parts into, _msg_info* info, bool pulsesOnly,
                Deadline deadline) {
    for (int ended = 0;;) {
        if (channel->isDestroyed)
            return -ESRCH;
        QueueEntry* const entry = nextFor(channel, pulsesOnly);
        if (entry != nullptr && entry == channel->pulses.top())
            return -deliverPulse(channel, static_cast<QueuedPulse*>(entry), into);
        if (entry != nullptr) {
            const int id = deliverMessage(guard, static_cast<Message*>(entry), into, info);
            if (id != 0)
                return id;
            continue;
        }
        if (ended != 0)
            return -ended;
        if (deadline.isImmediate())
            return -ETIMEDOUT;
        ended = sleep(guard, channel, deadline);
        if (pulsesOnly && channel->messages.top() != nullptr && channel->asleep != 0)
            callAllReceivers(channel);
    }
}

int receive(int chid, Parts into, _msg_info* info, bool pulsesOnly) {
    const Deadline deadline = takeTimeout(_NTO_TIMEOUT_RECEIVE);
    if (!measure(into))
        return fail(EINVAL);
    ErrnoKeeper keeper;
    ChannelGuard guard;
    Channel* const channel = channels.find(chid);
    int result = -ESRCH;
    if (channel != nullptr) {
        ++channel->references;
        result = receiveFrom(guard, channel, into, info, pulsesOnly, deadline);
        releaseChannel(channel);
    }
    if (result >= 0)
        return result;
    keeper.report(-result);
    return -1;
}

int reply(int rcvid, int status, int error, Parts answer) {
    dropTimeout();
    if (!measure(answer))
        return fail(EINVAL);
    ErrnoKeeper keeper;
    ChannelGuard guard;
    Message* const message = findReceived(rcvid);
    if (message == nullptr) {
        keeper.report(ESRCH);
        return -1;
    }
    if (answer.length != 0) {
        message->state = Message::State::REPLIED;
        ++message->users;
        guard.unlock();
        copyParts(message->sender->reply, 0, answer, 0);
        guard.lock();
        --message->users;
    }
    unsigned* const sender = finishMessage(message, status, error);
    guard.unlock();
    wakeSender(sender);
    return 0;
}

enum class Direction { FROM_SENDER, TO_SENDER };

int transfer(int rcvid, Parts own, int offset, Direction direction) {
    dropTimeout();
    if (!measure(own) || offset < 0)
        return fail(EINVAL);
    ErrnoKeeper keeper;
    ChannelGuard guard;
    Message* const message = findReceived(rcvid);
    if (message == nullptr) {
        keeper.report(ESRCH);
        return -1;
    }
    ++message->users;
    guard.unlock();
    const size_t from = static_cast<size_t>(offset);
    const size_t copied = direction == Direction::FROM_SENDER ? copyParts(own, 0, message->sender->request, from)
                                                              : copyParts(message->sender->reply, from, own, 0);
    guard.lock();
    wakeSender(endUse(message));
    return static_cast<int>(copied);
}

/// One buffer as the parts of a message. A negative size becomes more than any message has.
class OnePart {
public:
    OnePart(const void* bytes, int size)
        : mPart{const_cast<void*>(bytes), size < 0 ? SIZE_MAX : static_cast<size_t>(size)} {}
    Parts get() const { return {&mPart, 1, 0}; }

private:
    iovec mPart;
};

}  // namespace
}  // namespace host

using namespace host;

int MsgSend(int coid, const void* message, int bytes, void* reply, int replyBytes) {
    return send(coid, OnePart(message, bytes).get(), OnePart(reply, replyBytes).get());
}

int MsgSendv(int coid, const iovec* message, int parts, const iovec* reply, int replyParts) {
    return send(coid, {message, parts, 0}, {reply, replyParts, 0});
}

int MsgSendPulse(int coid, int priority, int code, int value) {
    dropTimeout();
    if (priority > kLastPriority)
        return fail(EINVAL);
    unsigned* receiver;
    {
        const ChannelGuard guard;
        Connection* const connection = findConnection(coid);
        if (connection == nullptr || connection->channel->isDestroyed)
            return fail(EBADF);
        sigval small;
        small.sival_ptr = nullptr;
        small.sival_int = value;
        if (!queuePulse(connection->channel, priority < 0 ? callerPriority() : priority, code, small, coid))
            return fail(EAGAIN);
        receiver = callReceiver(connection->channel);
    }
    wakeReceiver(receiver);
    return 0;
}

int MsgReceive(int chid, void* message, int bytes, _msg_info* info) {
    return receive(chid, OnePart(message, bytes).get(), info, /*pulsesOnly*/ false);
}

int MsgReceivev(int chid, const iovec* message, int parts, _msg_info* info) {
    return receive(chid, {message, parts, 0}, info, /*pulsesOnly*/ false);
}

int MsgReceivePulse(int chid, void* pulse, int bytes, _msg_info*) {
    return receive(chid, OnePart(pulse, bytes).get(), nullptr, /*pulsesOnly*/ true);
}

int MsgReply(int rcvid, int status, const void* bytes, int size) {
    return reply(rcvid, status, 0, OnePart(bytes, size).get());
}

int MsgReplyv(int rcvid, int status, const iovec* answer, int parts) {
    return reply(rcvid, status, 0, {answer, parts, 0});
}

int MsgError(int rcvid, int error) {
    return reply(rcvid, error == EOK ? 0 : -1, error, {nullptr, 0, 0});
}

int MsgRead(int rcvid, void* message, int bytes, int offset) {
    return transfer(rcvid, OnePart(message, bytes).get(), offset, Direction::FROM_SENDER);
}

int MsgReadv(int rcvid, const iovec* message, int parts, int offset) {
    return transfer(rcvid, {message, parts, 0}, offset, Direction::FROM_SENDER);
}

int MsgWrite(int rcvid, const void* bytes, int size, int offset) {
    return transfer(rcvid, OnePart(bytes, size).get(), offset, Direction::TO_SENDER);
}

int MsgWritev(int rcvid, const iovec* answer, int parts, int offset) {
    return transfer(rcvid, {answer, parts, 0}, offset, Direction::TO_SENDER);
}
