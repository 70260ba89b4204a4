// Spin: looking at a word for a while before sleeping on it. Waking a thread on another processor takes tens of
// microseconds; a peer that runs there at this moment answers sooner. On the own processor it cannot, so nobody spins
// unless the peer was last seen on another one.
#pragma once

#include "Deadline.h"

#include <sched.h>

namespace host {

inline void pauseProcessor() {
#if defined(__i386__) || defined(__x86_64__)
    __builtin_ia32_pause();
#elif defined(__arm__) || defined(__aarch64__)
    __asm__ __volatile__("yield");
#endif
}

/// A processor as others are told of it; 0 is none.
using ProcessorHint = uint32_t;

inline ProcessorHint thisProcessor() {
    return static_cast<ProcessorHint>(sched_getcpu() + 1);
}

inline bool isElsewhere(ProcessorHint peer) {
    return peer != 0 && peer != thisProcessor();
}

/// How one thread's looks went. After some in vain it rests, the longer the more often: a peer that takes its time costs
/// little, and one that becomes quick is noticed after 255 waits.
class Spinner {
public:
    /// Once for each wait for a peer that is elsewhere: is it worth a look?
    bool isPromising() {
        if (mRest == 0)
            return true;
        --mRest;
        return false;
    }

    /// True as soon as `hasChanged()` is, if that is before long and before the deadline.
    template <class HasChanged>
    bool look(Deadline deadline, HasChanged hasChanged) {
        const bool found = lookOn(deadline, hasChanged);
        mLastRest = found ? 0 : mLastRest < kLongestRest ? 2 * mLastRest + 1 : kLongestRest;
        mRest = mLastRest;
        return found;
    }

private:
    static constexpr uint64_t kLongestNs = 50000;  // enough to wake the peer and to be answered
    static constexpr unsigned kLongestRest = 255;
    static constexpr int kLooksPerTime = 32;

    template <class HasChanged>
    static bool lookOn(Deadline deadline, HasChanged hasChanged) {
        uint64_t end = 0;
        for (;;) {
            for (int i = 0; i < kLooksPerTime; ++i) {
                if (hasChanged())
                    return true;
                pauseProcessor();
            }
            const uint64_t now = nowNs(CLOCK_MONOTONIC);
            if (end == 0)
                end = now + kLongestNs < deadline.ns ? now + kLongestNs : deadline.ns;
            if (now >= end)
                return false;
        }
    }

    unsigned mRest;
    unsigned mLastRest;
};

}  // namespace host
