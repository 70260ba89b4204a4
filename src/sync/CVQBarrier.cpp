#include <CVQBarrier.h>

#include <cerrno>

namespace {

unsigned char load(const unsigned char& current) {
    return __atomic_load_n(&current, __ATOMIC_ACQUIRE);
}

void store(unsigned char& current, unsigned char value) {
    __atomic_store_n(&current, value, __ATOMIC_RELEASE);
}

}  // namespace

namespace VQPrivate {

CVQSubBarrier::CVQSubBarrier(unsigned threads, bool shared)
    : CVQCountingSemaphore(0, static_cast<int>(threads), shared), mThreshold(threads), mRemaining(threads) {
}

/// Takes the semaphore's mutex, which guards the round as well. False when another sub-barrier serves.
bool CVQSubBarrier::enter(const unsigned char& current, unsigned char index) {
    // Only a time-out that the caller had armed can refuse; it is gone then.
    while (pthread_mutex_lock(&mHandle.mutex) == ETIMEDOUT) {
    }
    // After a break-through this sub-barrier may serve again while units of its former round are still to be
    // fetched. Who arrives anew must not take one of them from a thread that is slower.
    while (mHandle.count != 0 && load(current) == index) {
        sleep();
    }
    if (load(current) == index) {
        return true;
    }
    pthread_mutex_unlock(&mHandle.mutex);
    return false;
}

void CVQSubBarrier::sleep() {
    ++mHandle.waiters;
    pthread_cond_wait(&mHandle.condition, &mHandle.mutex);
    --mHandle.waiters;
}

void CVQSubBarrier::leaveAndWake() {
    const bool anyoneSleeps = mHandle.waiters > 0;
    pthread_mutex_unlock(&mHandle.mutex);
    if (anyoneSleeps) {
        pthread_cond_broadcast(&mHandle.condition);
    }
}

/// The next round begins in the other sub-barrier; the threads of this one find their units.
void CVQSubBarrier::endRound(unsigned char& current, unsigned char index, unsigned released) {
    store(current, index ^ 1U);
    mRemaining = mThreshold;
    mHandle.count += released;
    leaveAndWake();
}

bool CVQSubBarrier::wait(unsigned char& current, unsigned char index) {
    if (!enter(current, index)) {
        return false;
    }
    if (--mRemaining == 0) {
        endRound(current, index, mThreshold - 1);
        return true;
    }
    while (mHandle.count == 0) {
        sleep();
    }
    if (--mHandle.count == 0) {
        leaveAndWake();  // who has come back, and waits for this
    } else {
        pthread_mutex_unlock(&mHandle.mutex);
    }
    return true;
}

bool CVQSubBarrier::breakThrough(unsigned char& current, unsigned char index) {
    if (!enter(current, index)) {
        return false;
    }
    endRound(current, index, mThreshold - mRemaining);
    return true;
}

}  // namespace VQPrivate

CVQBarrier::CVQBarrier(unsigned threads, bool shared) : mSub{{threads, shared}, {threads, shared}}, mCurrent(0) {
}

void CVQBarrier::wait() {
    if (!mSub[0].blocks()) {
        return;
    }
    for (;;) {
        const unsigned char current = load(mCurrent);
        if (mSub[current].wait(mCurrent, current)) {
            return;
        }
    }
}

void CVQBarrier::breakThrough() {
    for (;;) {
        const unsigned char current = load(mCurrent);
        if (mSub[current].breakThrough(mCurrent, current)) {
            return;
        }
    }
}
