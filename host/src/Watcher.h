// Watcher: the one thread of the host, which notices new connections and the end of other processes.
//   It starts with the first connection to or from another process, takes no signals, and is not in a forked child.
//   All but startWatcher expects the channels' lock to be held.
#pragma once

#include "Link.h"

namespace host {

/// False when there is no thread to be had. With or without it, what is to be watched is told by the calls below.
bool startWatcher();
bool isWatching();

void watchChannel(const Channel* channel);
/// False without memory in the kernel.
bool watchLink(const Link* link);
/// Closes a descriptor; a copy of it in a forked child does not keep it watched or connected.
void closeWatched(int descriptor);

void forgetWatcher();

}  // namespace host
