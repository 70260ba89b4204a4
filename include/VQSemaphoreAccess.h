// VQSemaphoreAccess: a counting semaphore with an upper bound, built from a mutex, a condition and counters.
//   Units    time-outs in milliseconds on the monotonic clock.
//   Shape    VQOSTypes::SEMHANDLE, eight 32-bit words. Created shared, it may lie in shared memory and serve every
//            process that maps it.
//   Errors   `lock` leaves the error number in VQOperatingSystem::getLastError(), 0 after a unit was taken: EAGAIN
//            (single attempt), ETIMEDOUT, EINVAL for an invalid handle. `create` that fails logs what was refused
//            at critical severity, leaves the handle invalid, and is a cheap assertion (line 140 of
//            `VQSemaphoreAccessQNX`).
//   Threads  any thread, any process that maps it, but no signal handler: whom it interrupts may hold the mutex (a
//            trigger may be signalled there). `create` and `destroy`: one thread at a time. A process that is killed
//            inside a call may leave `waiters` too high, which costs later posts a kernel call, or the mutex locked,
//            which stops the others: semaphores do not survive a holder of their mutex.
//   Time-out a timed `lock` arms the thread's kernel time-out, and takes it back where nothing blocked: the next
//            wait of the thread never ends because of it.
//   Kept     semaphore-drops-posts: a post beyond the bound is dropped and counts as a success.
//            semaphore-negative-tries-once: time-outs below -1 are single attempts, like 0.
//            semaphore-locks-again: an unlimited wait that fails locks the mutex once more and leaves it locked.
#pragma once

#include <VQExport.h>
#include <VQOSTypes.h>

namespace VQSemaphoreAccess {

/// `initialCount` is cut to 0 ... `maxCount`; a `maxCount` of 0 or less builds nothing and is an assertion.
/// `shared`: between processes.
VQ_EXPORT void create(VQOSTypes::SEMHANDLE& handle, int initialCount, int maxCount, bool shared);

/// Takes a unit. `timeoutMs`: -1 waits without limit, 0 and other negative values try once.
VQ_EXPORT bool lock(VQOSTypes::SEMHANDLE& handle, int timeoutMs);

/// Adds a unit, unless the bound is reached. Returns the platform's result of the last call made, 0 for success.
VQ_EXPORT int unlock(VQOSTypes::SEMHANDLE& handle);

/// Nobody may wait any more, nor be in another call: a poster still wakes who already has its unit.
VQ_EXPORT void destroy(VQOSTypes::SEMHANDLE& handle);

}  // namespace VQSemaphoreAccess
