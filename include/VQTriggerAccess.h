// VQTriggerAccess: an event that is signalled or not, on the platform's own semaphore.
//   Units    time-outs in milliseconds on the monotonic clock.
//   Shape    VQOSTypes::TRIGGER_HANDLE, one platform semaphore, private to its process.
//   Errors   errno says why a call failed. A timed wait that fails other than by its time-out, a caught signal
//            included, is a cheap assertion (line 119 of `VQTriggerAccessQNX`) as well.
//   Threads  any thread. A signal on a trigger that is signalled is dropped; only two signals at the very same
//            moment may both count, and then wake two waits. So look at the state that the trigger stands for.
//   Kept     trigger-minus-one-has-passed: a time-out of -1 is a deadline 1 ms ago, not one without limit.
//            trigger-signal-asserts: see Errors.
#pragma once

#include <VQExport.h>
#include <VQOSTypes.h>

namespace VQTriggerAccess {

/// Builds a trigger that is not signalled.
VQ_EXPORT bool create(VQOSTypes::TRIGGER_HANDLE& trigger);
/// Returns the platform's result, 0 for success.
VQ_EXPORT int destroy(VQOSTypes::TRIGGER_HANDLE& trigger);

/// May be called in a signal handler, too.
VQ_EXPORT bool signal(VQOSTypes::TRIGGER_HANDLE& trigger);

/// Waits for the signal and takes it; caught signals of the system do not end the wait.
VQ_EXPORT bool wait(VQOSTypes::TRIGGER_HANDLE& trigger);
/// Waits for `timeoutMs` at most; time-outs of 0 and less only take a signal that is there. Here a caught signal of the
/// system ends the wait, with an assertion.
VQ_EXPORT bool wait(VQOSTypes::TRIGGER_HANDLE& trigger, int timeoutMs);

/// 1 when the signal was there and is taken, 0 when there was none, -1 for an error.
VQ_EXPORT int tryWait(VQOSTypes::TRIGGER_HANDLE& trigger);

}  // namespace VQTriggerAccess
