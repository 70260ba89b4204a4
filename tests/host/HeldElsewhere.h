// HeldElsewhere: a mutex that another thread holds, until told otherwise or for a while.
#pragma once

#include "Deadline.h"

#include "support/Units.h"

#include <atomic>
#include <chrono>
#include <future>
#include <pthread.h>
#include <thread>

inline uint64_t monotonicNs() {
    return host::nowNs(CLOCK_MONOTONIC);
}

inline timespec timeAt(uint64_t ns) {
    timespec time;
    time.tv_sec = static_cast<time_t>(ns / host::kNsPerSecond);
    time.tv_nsec = static_cast<long>(ns % host::kNsPerSecond);
    return time;
}

/// The owner word while other threads may be changing it.
inline unsigned ownerOf(const _sync& mutex) {
    return __atomic_load_n(&mutex.__owner, __ATOMIC_RELAXED);
}

class HeldElsewhere {
public:
    /// Returns when the mutex is held. With `holdFor` it is released after that time.
    explicit HeldElsewhere(_sync& mutex, std::chrono::milliseconds holdFor = std::chrono::hours(1))
        : mHolder([this, &mutex, holdFor] {
              pthread_mutex_lock(&mutex);
              mIsHeld.set_value();
              mMayGo.get_future().wait_for(holdFor);
              releasedAtNs = monotonicNs();
              pthread_mutex_unlock(&mutex);
          }) {
        mIsHeld.get_future().wait();
    }
    ~HeldElsewhere() { release(); }

    void release() {
        if (!mHolder.joinable())
            return;
        mMayGo.set_value();
        mHolder.join();
    }

    std::atomic<uint64_t> releasedAtNs{0};

private:
    std::promise<void> mIsHeld;
    std::promise<void> mMayGo;
    std::thread mHolder;
};
