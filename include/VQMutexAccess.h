// VQMutexAccess: creates, locks and destroys a raw mutex with chosen attributes.
//   Units    time-outs in milliseconds on the monotonic clock, so that setting the wall clock moves none of them.
//   Shape    the mutex is one `_sync`, two 32-bit words. Created shared, it may lie in shared memory and serve
//            every process that maps it.
//   Errors   refusals of `create` and `destroy` are logged at critical severity; a mutex that cannot be created or
//            destroyed is also a cheap assertion (lines 76 and 102 of `VQMutexAccessQNX`), after which the call
//            goes on. `lock` says false and logs nothing.
//   Threads  any thread, any process that maps it. `create` and `destroy`: one thread at a time.
//   Kept     log-tpthread: the doubled letter in "Failed tpthread_mutexattr_init" (docs/kept.md).
//            mutex-timeout-below-minus-one: only -1 waits without limit. Other negative values are deadlines in the
//            past: a free mutex is taken, a held one gives false at once.
//
// A mutex is released by the platform's `pthread_mutex_unlock`.
#pragma once

#include <VQExport.h>

#include <pthread.h>

namespace VQMutexAccess {

/// Builds `mutex`. Unless `unlocked`, the calling thread holds it on return. `shared`: between processes.
/// `recursive`: its holder may lock it again and must then unlock it as often.
VQ_EXPORT void create(_sync& mutex, bool unlocked, bool shared, bool recursive);

/// Locks `mutex`. `timeoutMs`: -1 waits without limit, 0 tries once, otherwise milliseconds from now. True when the
/// caller now holds it; busy, expired and invalid are all a plain false.
VQ_EXPORT bool lock(_sync& mutex, int timeoutMs);

/// Destroys `mutex`, which nobody may hold.
VQ_EXPORT void destroy(_sync& mutex);

}  // namespace VQMutexAccess
