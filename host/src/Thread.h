// Thread: what the host records of a thread for others.
#pragma once

namespace host {

/// The calling thread's recorded priority, 1 to 63; without a lock for threads that have never been given one by others.
int callerPriority();

}  // namespace host
