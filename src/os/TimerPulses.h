// TimerPulses: what both timer managers ask of the kernel: a channel of their own, timers that send pulses to it,
// and the wait for these.
#pragma once

struct _pulse;

namespace VQTimerPulses {

constexpr unsigned long long kNsPerMs = 1000000;

// The platform's results: an id, or -1.
int createChannel();
int connect(int channel);
/// A timer on the monotonic clock whose pulses carry `value`.
int createTimer(int connection, void* value);

/// A time-out as the managers keep it: 0 would poll.
constexpr int atLeastOneMs(int timeoutMs) {
    return timeoutMs == 0 ? 1 : timeoutMs;
}

/// Waits for one pulse, as long as a positive `timeoutMs` says. False when none came or a signal did; other
/// failures end the process.
bool receive(int channel, int timeoutMs, _pulse& pulse);

}  // namespace VQTimerPulses
