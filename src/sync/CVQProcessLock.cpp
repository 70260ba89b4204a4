#include "CVQProcessLock.h"

#include <VQExport.h>

#include <cerrno>
#include <sched.h>

namespace {

// Forks counted in twos, so that a lock's state says for which process it was made and, by the last bit, that it is.
constexpr unsigned kCreated = 1;
constexpr unsigned kStep = 2;
VQ_CONSTINIT std::atomic<unsigned> sProcess{kStep};
VQ_CONSTINIT std::atomic<bool> sForkHandlerThere{false};

void enterChild() {
    sProcess.fetch_add(kStep, std::memory_order_relaxed);
}

void registerForkHandler() {
    // Every thread that finds no handler registers one: a lock must not be held before one is there, and to count
    // a fork twice does no harm.
    if (VQ_UNLIKELY(!sForkHandlerThere.load(std::memory_order_acquire))) {
        if (pthread_atfork(nullptr, nullptr, &enterChild) == 0) {
            sForkHandlerThere.store(true, std::memory_order_release);
        }
    }
}

/// Or earlier, for whoever locks before. A fork that has begun does not run in its child what is registered meanwhile:
/// with the first lock that may be too late.
__attribute__((constructor)) void registerAtLoadTime() {
    registerForkHandler();
}

}  // namespace

void CVQProcessLock::lock() {
    registerForkHandler();
    createUnlessThere();
    // A time-out that the caller had armed for something else ends one attempt, and is gone then.
    while (section().lock() == ETIMEDOUT) {
    }
}

void CVQProcessLock::unlock() {
    // In a child that was forked while this thread held the lock the platform refuses, and the next use makes a new
    // one.
    section().unlock();
}

void CVQProcessLock::createUnlessThere() {
    const unsigned creating = sProcess.load(std::memory_order_relaxed);
    unsigned state = mState.load(std::memory_order_acquire);
    while (state != (creating | kCreated)) {
        if (state == creating) {
            sched_yield();
            state = mState.load(std::memory_order_acquire);
        } else if (mState.compare_exchange_weak(state, creating, std::memory_order_acquire)) {
            new (mStorage) CVQCriticalSection;
            state = creating | kCreated;
            mState.store(state, std::memory_order_release);
        }
    }
}
