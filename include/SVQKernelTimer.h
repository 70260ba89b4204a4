// SVQKernelTimer: one deadline over a sequence of blocking calls, armed again before each.
//   Units    milliseconds in, nanoseconds of the monotonic clock inside; all bits set is no limit.
//   Threads  one thread at a time; an armed time-out covers the thread that called `start`.
#pragma once

#include <VQExport.h>

struct VQ_EXPORT SVQKernelTimer {
    /// The deadline is `timeoutMs` from now; a negative time-out is without limit.
    explicit SVQKernelTimer(int timeoutMs);

    /// Arms the deadline for the thread's next send or reply; call it right before the call that may block. False
    /// with errno ETIMEDOUT when there is no deadline because the clock could not be read.
    bool start();

    /// True when the deadline has passed. errno is left as it was.
    bool timeoutOccurred();

    unsigned long long mDeadline;
};
