// Deadline: a point on CLOCK_MONOTONIC up to which a call may wait.
#pragma once

#include <stdint.h>
#include <time.h>

namespace host {

constexpr uint64_t kNsPerSecond = 1000000000;

struct Deadline {
    uint64_t ns;

    static constexpr Deadline never() { return {UINT64_MAX}; }
    static constexpr Deadline immediate() { return {0}; }

    /// A time before the clock's zero has passed, one beyond the range never comes. Nanoseconds must be valid.
    static constexpr Deadline at(const timespec& time) {
        if (time.tv_sec < 0)
            return immediate();
        const uint64_t seconds = static_cast<uint64_t>(time.tv_sec);
        if (seconds >= INT64_MAX / kNsPerSecond)
            return never();
        return {seconds * kNsPerSecond + static_cast<uint64_t>(time.tv_nsec)};
    }

    constexpr bool isNever() const { return ns == UINT64_MAX; }
    constexpr bool isImmediate() const { return ns == 0; }
};

constexpr bool hasValidNanoseconds(const timespec& time) {
    return time.tv_nsec >= 0 && time.tv_nsec < static_cast<long>(kNsPerSecond);
}

inline uint64_t nowNs(clockid_t clock) {
    timespec now;
    clock_gettime(clock, &now);
    return static_cast<uint64_t>(now.tv_sec) * kNsPerSecond + static_cast<uint64_t>(now.tv_nsec);
}

/// A time of `clock` as one of the monotonic clock, so that later settings of the real-time clock change nothing.
inline Deadline monotonic(clockid_t clock, Deadline time) {
    if (clock == CLOCK_MONOTONIC || time.isNever())
        return time;
    const uint64_t passed = nowNs(clock);
    return time.ns <= passed ? Deadline::immediate() : Deadline{nowNs(CLOCK_MONOTONIC) + (time.ns - passed)};
}

}  // namespace host
