#include "Connection.h"
#include "Errno.h"
#include "Thread.h"
#include "ThreadState.h"

#include <errno.h>

namespace host {
namespace {

__thread Spinner spinner __attribute__((tls_model("initial-exec")));

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
    if (isElsewhere(receiver) && spinner.isPromising())
        sending.during([&] {
            return spinner.look(timeout.in(_NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY), [&] { return isDone(sender); });
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
