#include "LinkSocket.h"

#include "Descriptor.h"

#include <dirent.h>
#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
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

Address addressOf(pid_t pid, int chid, unsigned serial) {
    Address address = {};
    address.name.sun_family = AF_UNIX;
    const int length = snprintf(address.name.sun_path + 1, sizeof(address.name.sun_path) - 1, "nto.%d.%d.%u",
                                static_cast<int>(pid), chid, serial);
    address.length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1) + static_cast<socklen_t>(length);
    return address;
}

int openSocket() {
    return socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
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

}  // namespace

void doorbellName(char (&name)[48], pid_t pid, int chid, unsigned serial) {
    snprintf(name, sizeof(name), "nto-channel-%d-%d-%u", static_cast<int>(pid), chid, serial);
}

int listenFor(pid_t pid, int chid, unsigned serial) {
    const Address address = addressOf(pid, chid, serial);
    Descriptor listener(openSocket());
    if (!listener.isOpen() || bind(listener.get(), plain(address), address.length) != 0 ||
        listen(listener.get(), kBacklog) != 0)
        return -1;
    return listener.release();
}

int connectTo(pid_t pid, int chid, unsigned serial) {
    const Address address = addressOf(pid, chid, serial);
    Descriptor connected(openSocket());
    if (!connected.isOpen() || connect(connected.get(), plain(address), address.length) != 0)
        return -1;
    return connected.release();
}

int openDoorbell(pid_t pid, int chid, unsigned& serial) {
    char folder[48], wanted[64], linked[96];
    snprintf(folder, sizeof(folder), "/proc/%d/fd", static_cast<int>(pid));
    // The process may have other channels' doorbells open for a moment, too: its own have its id.
    const size_t length = static_cast<size_t>(
        snprintf(wanted, sizeof(wanted), "/memfd:nto-channel-%d-%d-", static_cast<int>(pid), chid));
    DIR* const descriptors = opendir(folder);
    if (descriptors == nullptr)
        return -1;
    int found = -1;
    int error = ESRCH;
    while (const dirent* const entry = readdir(descriptors)) {
        const ssize_t size = readlinkat(dirfd(descriptors), entry->d_name, linked, sizeof(linked) - 1);
        if (size <= static_cast<ssize_t>(length) || memcmp(linked, wanted, length) != 0)
            continue;
        linked[size] = '\0';
        serial = static_cast<unsigned>(strtoul(linked + length, nullptr, 10));
        found = aboveStandardStreams(openat(dirfd(descriptors), entry->d_name, O_RDWR | O_CLOEXEC));
        error = errno;
        break;
    }
    closedir(descriptors);
    errno = error;
    return found;
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
    if (!file.isOpen() && (isCut || arrived >= 0)) {
        errno = EMFILE;
        return -1;
    }
    // So far it was only looked at. What it brings again, the kernel closes.
    message.msg_control = nullptr;
    message.msg_controllen = 0;
    if (!file.isOpen() || isCut || recvmsg(socket, &message, 0) != 1) {
        errno = EBADMSG;
        return -1;
    }
    return file.release();
}

}  // namespace host
