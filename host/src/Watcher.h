// Watcher: the one thread of the host, which notices new connections and the end of other processes.
//   It starts with the first connection to or from another process, takes no signals, and is not in a forked child.
//   All calls expect the channels' lock to be held, unless they say otherwise.
#pragma once

#include "Link.h"

namespace host {

/// False when there is no thread to be had. With or without it, what is to be watched is told by the calls below.
bool startWatcher();
bool isWatching();

/// False without memory in the kernel; here and below.
bool watchChannel(const Channel* channel);
bool watchLink(const Link* link);
/// Between these only the other process's end is noticed.
void restSocket(const Link* link);
bool watchSocket(const Link* link);
/// Closes a descriptor; a copy of it in a forked child does not keep it watched or connected.
void closeWatched(int descriptor);

/// The thread that `main` began in has ended while others run. From now on the process ends with the last of them, as it
/// would without this one. Takes the lock itself.
void noteLeaderEnded();

void forgetWatcher();

}  // namespace host
