// OnProcessor: keeps the calling thread on one processor for a scope.
#pragma once

#include <gtest/gtest.h>
#include <sched.h>

inline bool hasTwoProcessors() {
    cpu_set_t allowed;
    return sched_getaffinity(0, sizeof allowed, &allowed) == 0 && CPU_COUNT(&allowed) >= 2;
}

/// The `which`th of those that the thread may use, where there are so many.
class OnProcessor {
public:
    explicit OnProcessor(int which) {
        EXPECT_EQ(0, sched_getaffinity(0, sizeof mBefore, &mBefore));
        for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu)
            if (CPU_ISSET(cpu, &mBefore) && which-- == 0) {
                cpu_set_t one;
                CPU_ZERO(&one);
                CPU_SET(cpu, &one);
                EXPECT_EQ(0, sched_setaffinity(0, sizeof one, &one));
            }
    }
    ~OnProcessor() { sched_setaffinity(0, sizeof mBefore, &mBefore); }
    OnProcessor(const OnProcessor&) = delete;
    OnProcessor& operator=(const OnProcessor&) = delete;

private:
    cpu_set_t mBefore;
};
