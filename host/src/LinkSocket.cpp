#include "LinkSocket.h"

#include "Deadline.h"
#include "Descriptor.h"
#include "Errno.h"
#include "Segment.h"

#include <dirent.h>
#include <errno.h>
#include <inttypes.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <sys/random.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/un.h>

#ifndef SO_PEERPIDFD
#define SO_PEERPIDFD 77
#endif

namespace host {
namespace {

constexpr int kBacklog = 4096;

struct Address {
    sockaddr_un name;
    socklen_t length;
};

Address addressOf(const Door& door) {
    Address address = {};
    address.name.sun_family = AF_UNIX;
    const int length = snprintf(address.name.sun_path + 1, sizeof(address.name.sun_path) - 1, "nto.%d.%d.%x",
                                static_cast<int>(door.pid), door.chid, door.key);
    address.length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1) + static_cast<socklen_t>(length);
    return address;
}

uint32_t newKey() {
    uint32_t key;
    if (getrandom(&key, sizeof(key), GRND_NONBLOCK) != sizeof(key))
        key = static_cast<uint32_t>(nowNs(CLOCK_MONOTONIC));
    return key;
}

int openSocket(int flags) {
    return socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | flags, 0);
}

const sockaddr* plain(const Address& address) {
    return reinterpret_cast<const sockaddr*>(&address.name);
}

/// What a received message brought, or -1.
int descriptorIn(const msghdr& message) {
    const cmsghdr* const header = CMSG_FIRSTHDR(&message);
    if (header == nullptr || header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS ||
        header->cmsg_len != CMSG_LEN(sizeof(int)))
        return -1;
    int descriptor;
    memcpy(&descriptor, CMSG_DATA(header), sizeof(descriptor));
    return descriptor;
}

struct Search {
    int found;
    int error;       // where nothing was found
    bool hasLooked;  // there was something to look at
};

/// Looks for a channel's doorbell among the descriptors in a folder, and completes what is known of its door.
Search searchIn(const char* folder, Door& door) {
    char wanted[64], linked[96];
    // The process may have other channels' doorbells open for a moment, too: its own have its id.
    const size_t length = static_cast<size_t>(
        snprintf(wanted, sizeof(wanted), "/memfd:nto-channel-%d-%d-", static_cast<int>(door.pid), door.chid));
    Search search = {-1, ESRCH, false};
    DIR* const descriptors = opendir(folder);
    if (descriptors == nullptr) {
        search.error = errno;
        return search;
    }
    for (const dirent* entry; search.found < 0 && (entry = readdir(descriptors)) != nullptr;) {
        const ssize_t size = readlinkat(dirfd(descriptors), entry->d_name, linked, sizeof(linked) - 1);
        search.hasLooked |= size >= 0;
        if (size <= static_cast<ssize_t>(length) || memcmp(linked, wanted, length) != 0)
            continue;
        linked[size] = '\0';
        if (sscanf(linked + length, "%" SCNx32 "-%" SCNx32, &door.key, &door.flags) != 2)
            continue;
        Descriptor candidate(openat(dirfd(descriptors), entry->d_name, O_RDWR | O_CLOEXEC));
        // The files of the process's clients, who choose their names, are larger.
        if (!candidate.isOpen())
            search.error = errno;
        else if (isSegment(candidate.get(), kDoorbellSize))
            search.found = candidate.release();
    }
    closedir(descriptors);
    return search;
}

}  // namespace

int makeDoorbell(const Door& door) {
    char name[64];
    snprintf(name, sizeof(name), "nto-channel-%d-%d-%x-%x", static_cast<int>(door.pid), door.chid, door.key,
             door.flags);
    return makeSegment(name, kDoorbellSize);
}

int openDoorbell(Door& door) {
    char folder[64];
    snprintf(folder, sizeof(folder), "/proc/%d/fd", static_cast<int>(door.pid));
    Search search = searchIn(folder, door);
    if (search.hasLooked) {
        errno = search.error;
        return search.found;
    }
    // There is nothing to see there of a process whose first thread has ended. The others' descriptors are the same.
    snprintf(folder, sizeof(folder), "/proc/%d/task", static_cast<int>(door.pid));
    DIR* const threads = opendir(folder);
    for (const dirent* entry; threads != nullptr && !search.hasLooked && (entry = readdir(threads)) != nullptr;) {
        snprintf(folder, sizeof(folder), "/proc/%d/task/%.16s/fd", static_cast<int>(door.pid), entry->d_name);
        if (entry->d_name[0] != '.')
            search = searchIn(folder, door);
    }
    if (threads != nullptr)
        closedir(threads);
    errno = search.error;
    return search.found;
}

int listenFor(Door& door) {
    Descriptor listener(openSocket(SOCK_NONBLOCK));
    if (!listener.isOpen())
        return -1;
    int result;
    do {
        door.key = newKey();
        const Address address = addressOf(door);
        result = bind(listener.get(), plain(address), address.length);
    } while (result != 0 && errno == EADDRINUSE);
    return result == 0 && listen(listener.get(), kBacklog) == 0 ? listener.release() : -1;
}

int connectTo(const Door& door) {
    const Address address = addressOf(door);
    Descriptor connected(openSocket(0));
    const timeval patience = {2, 0};
    if (!connected.isOpen() ||
        setsockopt(connected.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience)) != 0)
        return -1;
    while (connect(connected.get(), plain(address), address.length) != 0)
        if (errno != EINTR)
            return -1;
    return fcntl(connected.get(), F_SETFL, O_NONBLOCK) == 0 ? connected.release() : -1;
}

bool peerOf(int socket, ucred& peer) {
    socklen_t size = sizeof(peer);
    return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0;
}

int processBehind(int socket, pid_t pid) {
    int descriptor = -1;
    socklen_t size = sizeof(descriptor);
    if (getsockopt(socket, SOL_SOCKET, SO_PEERPIDFD, &descriptor, &size) == 0)
        return aboveStandardStreams(descriptor);
    Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    if (!process.isOpen())
        return -1;
    // The id may have passed on to another process, but not while the socket has not been hung up.
    pollfd hungUp = {socket, POLLIN, 0};
    if (poll(&hungUp, 1, 0) > 0 && (hungUp.revents & (POLLHUP | POLLERR)) != 0)
        return -1;
    return process.release();
}

bool sendFile(int socket, int file) {
    char byte = 1;
    iovec part = {&byte, 1};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    memcpy(CMSG_DATA(header), &file, sizeof(file));
    return sendmsg(socket, &message, MSG_NOSIGNAL) == 1;
}

int receiveFile(int socket) {
    char byte;
    iovec part = {&byte, 1};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = CMSG_LEN(sizeof(int));  // CMSG_SPACE may have room for two, and both would be opened
    const ssize_t length = recvmsg(socket, &message, MSG_CMSG_CLOEXEC | MSG_PEEK);
    if (length < 0)
        return -1;
    // A record that is refused may have brought a descriptor all the same, even one of no bytes.
    const int arrived = descriptorIn(message);
    Descriptor file(arrived);
    const bool isCut = (message.msg_flags & MSG_CTRUNC) != 0;
    if (!file.isOpen() && (isCut || arrived >= 0))
        return fail(EMFILE);
    // So far it was only looked at. What it brings again, the kernel closes.
    message.msg_control = nullptr;
    message.msg_controllen = 0;
    if (!file.isOpen() || isCut || recvmsg(socket, &message, 0) != 1)
        return fail(EBADMSG);
    return file.release();
}

}  // namespace host
