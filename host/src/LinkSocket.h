// LinkSocket: the sockets and names by which processes find each other's channels.
//   A channel's doorbell is a file in memory that its process keeps open under a name that has its id, the channel's
//   id and the serial: who may look into that process opens it from there, and nobody in it needs to run. The channel listens at
//   an abstract name made of the process's id and both numbers. The serial keeps it apart from an earlier channel of
//   the same id, whose socket a forked child may not have closed yet.
#pragma once

#include <stddef.h>
#include <sys/socket.h>
#include <sys/types.h>

namespace host {

void doorbellName(char (&name)[48], pid_t pid, int chid, unsigned serial);

/// These give a descriptor, or -1 and errno.
int listenFor(pid_t pid, int chid, unsigned serial);
int connectTo(pid_t pid, int chid, unsigned serial);
int openDoorbell(pid_t pid, int chid, unsigned& serial);

bool peerOf(int socket, ucred& peer);
/// What becomes readable when the process at the other end has ended.
int processBehind(int socket, pid_t pid);

bool sendFile(int socket, int file);
/// EMFILE: it stays where it is, until there is a descriptor for it.
int receiveFile(int socket);

}  // namespace host
