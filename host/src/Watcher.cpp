#include "Watcher.h"

#include "Descriptor.h"
#include "Look.h"
#include "SignalsBlocked.h"

#include <errno.h>
#include <limits.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace host {
namespace {

int events = -1;
int news = -1;  // always readable, and watched for that once the leader is gone
bool isLeaderGone = false;
bool isPauseDue = false;  // before the thread takes the lock again

// What an event speaks of, in 64 bits: kind, id, and the serial that tells an object from an earlier one.
enum Kind : unsigned { LISTENER, SOCKET, PROCESS, LEADER };
constexpr unsigned kKindBits = 4;

uint64_t keyOf(Kind kind, int id, unsigned serial) {
    return uint64_t(serial) << 32 | static_cast<unsigned>(id) << kKindBits | kind;
}

bool watch(int descriptor, uint32_t what, uint64_t key, int how = EPOLL_CTL_ADD) {
    epoll_event event = {};
    event.events = what;
    event.data.u64 = key;
    return epoll_ctl(events, how, descriptor, &event) == 0;
}

/// Says once for each new connection that there is one: one that cannot be accepted does not keep the thread busy.
bool watchListener(const Channel* channel, int how) {
    return watch(channel->listener, EPOLLIN | EPOLLET, keyOf(LISTENER, channel->id, channel->serial), how);
}

/// New connections. When they are many, the others have the lock for a while before more are accepted. False when one
/// waits for want of descriptors.
bool letIn(Channel* channel) {
    const Accepted accepted = acceptLinks(channel);
    if (accepted == Accepted::SOME) {
        isPauseDue = true;
        watchListener(channel, EPOLL_CTL_MOD);  // says again that there are some
    }
    return accepted != Accepted::NO_DESCRIPTORS;
}

void handle(uint64_t key) {
    const int id = static_cast<int>(static_cast<uint32_t>(key) >> kKindBits);
    const unsigned serial = static_cast<unsigned>(key >> 32);
    const unsigned kind = static_cast<unsigned>(key) & ((1u << kKindBits) - 1);
    if (kind == LISTENER) {
        Channel* const channel = channels.find(id);
        if (channel != nullptr && channel->serial == serial)
            letIn(channel);
        return;
    }
    if (kind == LEADER)
        return;
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
        readLateLinks(channel);
        isWorthIt |= !letIn(channel);
        if (channel->links == nullptr)
            continue;
        isWorthIt = true;
        collect(channel);
        if (channel->messages.occupied != 0 || channel->pulses.occupied != 0)
            callAllReceivers(channel);
    }
    return isWorthIt;
}

/// True when there is no thread but the caller. The first one stays in the list when it has ended; it has no program then.
bool isAlone() {
    struct stat tasks;
    char program;
    constexpr nlink_t kOfFolder = 2;
    return stat("/proc/self/task", &tasks) == 0 && tasks.st_nlink <= kOfFolder + 2 &&
           readlink("/proc/self/exe", &program, 1) < 0 && errno == ENOENT;
}

/// As the last thread's end would, in a thread like any other.
void* endProcess(void*) {
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
    exit(0);
}

constexpr uint64_t kNsPerMs = 1000000;
constexpr useconds_t kPauseUs = 1000;

/// For epoll_wait: until `time`, and not shorter.
int msUntil(uint64_t time) {
    const uint64_t now = nowNs(CLOCK_MONOTONIC);
    return time <= now ? 0 : static_cast<int>((time - now + kNsPerMs - 1) / kNsPerMs);
}

void* run(void* argument) {
    const int queue = static_cast<int>(reinterpret_cast<intptr_t>(argument));
    uint64_t nextLook = nowNs(CLOCK_MONOTONIC) + kLookAfterNs;
    for (bool mustLook = true;;) {
        epoll_event found[16];
        const int count = epoll_wait(queue, found, 16, mustLook ? msUntil(nextLook) : -1);
        if (count < 0 && errno != EINTR)
            usleep(kLookAfterNs / 1000);  // the program has closed what it had not opened
        if (isPauseDue)
            usleep(kPauseUs);
        isPauseDue = false;
        const ChannelGuard guard;
        for (int i = 0; i < count; ++i)
            handle(found[i].data.u64);
        // However much happens meanwhile, what waits for a look gets one a second.
        const uint64_t now = nowNs(CLOCK_MONOTONIC);
        mustLook = true;
        if (now >= nextLook) {
            mustLook = lookAround() || isLeaderGone;
            nextLook = now + kLookAfterNs;
        }
        pthread_t thread;
        if (isLeaderGone && isAlone() && pthread_create(&thread, nullptr, endProcess, nullptr) == 0)
            isLeaderGone = false;
    }
}

bool startThread(int queue) {
    // A small stack, unless the program has more thread-local data than that.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    constexpr size_t kStack = 1 << 20;
#else
    constexpr size_t kStack = 128 << 10;
#endif
    pthread_attr_t small;
    if (pthread_attr_init(&small) != 0)
        return false;
    pthread_attr_setstacksize(&small, kStack);
    pthread_t thread;
    void* const argument = reinterpret_cast<void*>(intptr_t(queue));
    const SignalsBlocked inTheThread;
    const bool isThere =
        pthread_create(&thread, &small, run, argument) == 0 || pthread_create(&thread, nullptr, run, argument) == 0;
    pthread_attr_destroy(&small);
    if (isThere)
        pthread_detach(thread);
    return isThere;
}

bool watchAllChannels() {
    for (int id = 1; id < channels.capacity; ++id)
        if (const Channel* const channel = channels.find(id); channel != nullptr && !watchChannel(channel))
            return false;
    return true;
}

}  // namespace

bool isWatching() {
    return events >= 0;
}

bool startWatcher() {
    if (isWatching())
        return true;
    Descriptor queue(epoll_create1(EPOLL_CLOEXEC));
    Descriptor readable(eventfd(1, EFD_CLOEXEC));
    if (!queue.isOpen() || !readable.isOpen())
        return false;
    events = queue.get();
    if (!watch(readable.get(), isLeaderGone ? EPOLLIN | EPOLLONESHOT : 0, keyOf(LEADER, 0, 0)) ||
        !watchAllChannels() || !startThread(events)) {
        events = -1;
        return false;
    }
    queue.release();
    news = readable.release();
    return true;
}

bool watchChannel(const Channel* channel) {
    // One whose descriptor the program has closed is as good as watched.
    return !isWatching() || watchListener(channel, EPOLL_CTL_ADD) || (errno != ENOMEM && errno != ENOSPC);
}

bool watchSocket(const Link* link) {
    return watch(link->socket, EPOLLIN | EPOLLRDHUP, keyOf(SOCKET, link->id, link->serial));
}

void restSocket(const Link* link) {
    epoll_ctl(events, EPOLL_CTL_DEL, link->socket, nullptr);
}

bool watchLink(const Link* link) {
    return watchSocket(link) &&
           (link->peer < 0 || watch(link->peer, EPOLLIN, keyOf(PROCESS, link->id, link->serial)));
}

void closeWatched(int descriptor) {
    const ErrnoKeeper keeper;
    if (isWatching())
        epoll_ctl(events, EPOLL_CTL_DEL, descriptor, nullptr);
    shutdown(descriptor, SHUT_RDWR);
    close(descriptor);
}

void noteLeaderEnded() {
    const ChannelGuard guard;
    isLeaderGone = true;
    epoll_event event = {};
    event.events = EPOLLIN | EPOLLONESHOT;
    event.data.u64 = keyOf(LEADER, 0, 0);
    if (isWatching())
        epoll_ctl(events, EPOLL_CTL_MOD, news, &event);
}

void forgetWatcher() {
    if (isWatching()) {
        close(events);
        close(news);
    }
    events = news = -1;
    isLeaderGone = false;
}

}  // namespace host
