#include "Errno.h"
#include "MessageBytes.h"
#include "ThreadState.h"

#include <errno.h>

namespace host {
namespace {

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

/// What `act` makes of the message under the id and of the caller's buffers: its result, or an error number negated.
template <class Act>
int withReceived(int rcvid, Buffers buffers, int offset, Act act) {
    dropTimeout();
    iovec only;
    Parts parts;
    if (!buffers.measure(parts, only) || offset < 0)
        return fail(EINVAL);
    ErrnoKeeper keeper;
    ChannelGuard guard;
    Message* const message = findReceived(rcvid);
    const int result = message != nullptr ? act(guard, message, parts) : -ESRCH;
    if (result >= 0)
        return result;
    keeper.report(-result);
    return -1;
}

/// For messages from other processes: false, and the message is over, when the sender has withdrawn.
bool claimOrFinish(Message* message) {
    if (message->sender != nullptr || claimReply(message))
        return true;
    finishMessage(message, -1, ESRCH);
    return false;
}

int replyTo(ChannelGuard& guard, Message* message, const Parts& answer, int status, int error) {
    if (!claimOrFinish(message))
        return -ESRCH;
    iovec storage;
    Parts place;
    if (answer.length != 0 && !replyPlace(message, storage, place)) {
        finishMessage(message, -1, EAGAIN).wake();
        return -EAGAIN;
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
    const EndsLater untilWoken;
    guard.unlock();
    sender.wake();
    return isGone ? -ESRCH : 0;
}

int readFrom(ChannelGuard& guard, Message* message, const Parts& into, size_t offset) {
    const char* const window = message->sender == nullptr ? requestWindow(message) : nullptr;
    ++message->users;
    const size_t copied = copyAside(guard, into.length, [&] { return readRequest(message, window, into, offset); });
    const bool isGone = message->sender == nullptr && !isStillWanted(message) && !message->isClaimed;
    if (isGone)
        message->isOver = message->isIdKept = true;
    endUse(message).wake();
    return isGone ? -ESRCH : static_cast<int>(copied);
}

/// With the lock all the time: pieces that two threads write take their turns.
int writeTo(Message* message, const Parts& from, size_t begin) {
    if (!claimOrFinish(message))
        return -ESRCH;
    iovec storage;
    Parts place;
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
    return hasPlace ? static_cast<int>(copied) : -EAGAIN;
}

int reply(int rcvid, int status, int error, Buffers given) {
    return withReceived(rcvid, given, 0, [=](ChannelGuard& guard, Message* message, const Parts& answer) {
        return replyTo(guard, message, answer, status, error);
    });
}

int readMessage(int rcvid, Buffers room, int offset) {
    return withReceived(rcvid, room, offset, [=](ChannelGuard& guard, Message* message, const Parts& into) {
        return readFrom(guard, message, into, static_cast<size_t>(offset));
    });
}

int writeReply(int rcvid, Buffers given, int offset) {
    return withReceived(rcvid, given, offset, [=](ChannelGuard&, Message* message, const Parts& from) {
        return writeTo(message, from, static_cast<size_t>(offset));
    });
}

}  // namespace
}  // namespace host

using namespace host;

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
