// MonotonicDeadline: a time-out in milliseconds as the absolute time that the platform's timed waits take.
#pragma once

#include <time.h>

/// Now plus `timeoutMs` on the monotonic clock. A negative time-out gives a time in the past, whose nanoseconds are
/// valid, too: else a wait would be refused when the second has just begun, and expire at all other times.
inline timespec monotonicDeadline(int timeoutMs) {
    timespec deadline;
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += timeoutMs / 1000;
    deadline.tv_nsec += (timeoutMs % 1000) * 1000000L;
    if (deadline.tv_nsec > 999999999L) {
        deadline.tv_sec += deadline.tv_nsec / 1000000000L;
        deadline.tv_nsec %= 1000000000L;
    }
    if (deadline.tv_nsec < 0) {
        deadline.tv_nsec += 1000000000L;
        --deadline.tv_sec;
    }
    return deadline;
}
