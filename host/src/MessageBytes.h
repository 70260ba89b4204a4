// MessageBytes: how receivers copy what a message has.
#pragma once

#include "Channel.h"
#include "Link.h"

namespace host {

inline size_t lesser(size_t a, size_t b) {
    return a < b ? a : b;
}

/// Copies what was sent, from `offset` on; how much. Needs no lock.
inline size_t readRequest(const Message* message, const char* window, const Parts& into, size_t offset) {
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

}  // namespace host
