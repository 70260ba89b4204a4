// Thread: what the host records of a thread for others.
#pragma once

namespace host {

constexpr int kOrdinaryPriority = 10;
constexpr int kLastPriority = 63;

/// The calling thread's recorded priority, 1 to 63; without a lock for threads that have never been given one by others.
/// The lock is not to be waited for with that of the channels held: a handler that forks has them the other way round.
int callerPriority();

/// Another thread may have made the forking one's record.
void findOwnBeforeFork();

}  // namespace host
