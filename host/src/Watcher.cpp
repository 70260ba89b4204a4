#include "Watcher.h"

#include "Descriptor.h"

#include <errno.h>
#include <limits.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/socket.h>

namespace host {
namespace {

int events = -1;

// What an event speaks of, in 64 bits: kind, id, and the serial that tells an object from an earlier one.
enum Kind : unsigned { LISTENER, SOCKET, PROCESS };
constexpr unsigned kKindBits = 4;

uint64_t keyOf(Kind kind, int id, unsigned serial) {
    return uint64_t(serial) << 32 | static_cast<unsigned>(id) << kKindBits | kind;
}

bool watch(int descriptor, uint32_t what, uint64_t key) {
    epoll_event event = {};
    event.events = what;
    event.data.u64 = key;
    return epoll_ctl(events, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

void handle(uint64_t key) {
    const int id = static_cast<int>(static_cast<uint32_t>(key) >> kKindBits);
    const unsigned serial = static_cast<unsigned>(key >> 32);
    const unsigned kind = static_cast<unsigned>(key) & ((1u << kKindBits) - 1);
    if (kind == LISTENER) {
        Channel* const channel = channels.find(id);
        if (channel != nullptr && channel->serial == serial)
            acceptLinks(channel);
        return;
    }
    Link* const link = links.find(id);
    if (link == nullptr || link->serial != serial)
        return;
    if (kind == PROCESS || link->isOutgoing)
        dropLink(link, ESRCH);
    else
        readLink(static_cast<InLink*>(link));
}

/// True when it is worth to look again later: others send to this process, and what they write to a doorbell may have
/// hidden an arrival from a receiver that was about to sleep; or a connection waits that there was no descriptor for.
bool lookAround() {
    bool isWorthIt = false;
    for (int id = 1; id < channels.capacity; ++id) {
        Channel* const channel = channels.find(id);
        if (channel == nullptr)
            continue;
        isWorthIt |= !acceptLinks(channel);
        if (channel->links == nullptr)
            continue;
        isWorthIt = true;
        collect(channel);
        if (channel->messages.occupied != 0 || channel->pulses.occupied != 0)
            callAllReceivers(channel);
    }
    return isWorthIt;
}

constexpr int kLookEveryMs = 1000;

void* run(void* argument) {
    const int queue = static_cast<int>(reinterpret_cast<intptr_t>(argument));
    bool mustLook = true;
    for (;;) {
        epoll_event found[16];
        const int count = epoll_wait(queue, found, 16, mustLook ? kLookEveryMs : -1);
        const ChannelGuard guard;
        for (int i = 0; i < count; ++i)
            handle(found[i].data.u64);
        mustLook = count > 0 || lookAround();
    }
    return nullptr;
}

bool startThread(int queue) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    constexpr size_t kStack = 1 << 20;
#else
    constexpr size_t kStack = 128 << 10;
#endif
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0)
        return false;
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attributes, kStack);
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t thread;
    const int result = pthread_create(&thread, &attributes, run, reinterpret_cast<void*>(intptr_t(queue)));
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    return result == 0;
}

}  // namespace

bool isWatching() {
    return events >= 0;
}

bool startWatcher() {
    if (isWatching())
        return true;
    const int queue = aboveStandardStreams(epoll_create1(EPOLL_CLOEXEC));
    if (queue < 0)
        return false;
    events = queue;
    if (!startThread(queue)) {
        close(queue);
        events = -1;
        return false;
    }
    for (int id = 1; id < channels.capacity; ++id)
        if (const Channel* const channel = channels.find(id))
            watchChannel(channel);
    return true;
}

void watchChannel(const Channel* channel) {
    // Once for each new connection: one that cannot be accepted does not keep the thread busy.
    if (isWatching())
        watch(channel->listener, EPOLLIN | EPOLLET, keyOf(LISTENER, channel->id, channel->serial));
}

bool watchLink(const Link* link) {
    return watch(link->socket, EPOLLIN | EPOLLRDHUP, keyOf(SOCKET, link->id, link->serial)) &&
           (link->peer < 0 || watch(link->peer, EPOLLIN, keyOf(PROCESS, link->id, link->serial)));
}

void closeWatched(int descriptor) {
    const ErrnoKeeper keeper;
    if (isWatching())
        epoll_ctl(events, EPOLL_CTL_DEL, descriptor, nullptr);
    shutdown(descriptor, SHUT_RDWR);
    close(descriptor);
}

void forgetWatcher() {
    if (isWatching())
        close(events);
    events = -1;
}

}  // namespace host
