// LinkSocket: the sockets and names by which processes find each other's channels.
//   A channel's doorbell is a file in memory that its process keeps open: who may look into that process opens it from
//   there, by its name, and nobody in it needs to run. The channel listens at an abstract name, which anybody may take;
//   but nobody knows the key in it before. The key also keeps the channel apart from an earlier one of the same id, whose
//   socket a forked child may not have closed yet.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/socket.h>
#include <sys/types.h>

namespace host {

/// What is in the names of a channel.
struct Door {
    pid_t pid;
    int chid;
    uint32_t key;
    uint32_t flags;  // the channel's: what its process says here nobody else can change
};

/// These give a descriptor, or -1 and errno.
int makeDoorbell(const Door& door);
/// Of a channel of another process; fills in the rest of `door`.
int openDoorbell(Door& door);
/// Chooses the key.
int listenFor(Door& door);
/// Waits up to 2 s for a place among those that knock, then EAGAIN.
int connectTo(const Door& door);

bool peerOf(int socket, ucred& peer);
/// What becomes readable when the process at the other end has ended.
int processBehind(int socket, pid_t pid);

bool sendFile(int socket, int file);
/// EMFILE: it stays where it is, until there is a descriptor for it.
int receiveFile(int socket);

}  // namespace host
