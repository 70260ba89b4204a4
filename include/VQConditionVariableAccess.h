// VQConditionVariableAccess: creates and waits for a raw condition.
//   Units    time-outs in milliseconds on the monotonic clock.
//   Shape    the condition is one `_sync`, private to its process. It is signalled and destroyed by the platform's
//            `pthread_cond_signal`, `pthread_cond_broadcast` and `pthread_cond_destroy`.
//   Errors   errno is the platform's result: 0 after a signal, ETIMEDOUT after an expiry. Nothing is logged.
//   Threads  any thread. A wait may end without a signal, as the platform's may: look at the state waited for.
//   Kept     condition-expiry-is-true: a wait that expires says true, unless its time-out is 0. Ask errno.
#pragma once

#include <VQExport.h>

#include <pthread.h>

namespace VQConditionVariableAccess {

/// True when `condition` was built, to wait on the monotonic clock. Otherwise errno says which step was refused.
VQ_EXPORT bool create(_sync& condition);

/// Releases `mutex`, which the caller holds, waits, and holds it again on return. -1 waits without limit; other
/// negative time-outs have passed already.
VQ_EXPORT bool wait(_sync& condition, _sync& mutex, int timeoutMs);

}  // namespace VQConditionVariableAccess
