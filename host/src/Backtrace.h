// Backtrace: what the host's other handlers of forks must know of the walks along stacks.
#pragma once

namespace host {

/// To be called before any other handler with a lock is registered: a fork then waits for their locks first, and has
/// the walks' for a moment only.
void prepareWalksForFork();

}  // namespace host
