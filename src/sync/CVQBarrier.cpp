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
    if (load(current) == index) {
        return true;
    }
    pthread_mutex_unlock(&mHandle.mutex);
    return false;
}

/// Who sleeps here wakes up; who comes now begins the next round, in the other sub-barrier.
void CVQSubBarrier::endRound(unsigned char& current, unsigned char index) {
    store(current, index ^ 1U);
    mRemaining = mThreshold;
    ++roundsEnded();
    const bool anyoneSleeps = mHandle.waiters > 0;
    pthread_mutex_unlock(&mHandle.mutex);
    if (anyoneSleeps) {
        pthread_cond_broadcast(&mHandle.condition);
    }
}

bool CVQSubBarrier::wait(unsigned char& current, unsigned char index) {
    if (!enter(current, index)) {
        return false;
    }
    if (--mRemaining == 0) {
        endRound(current, index);
        return true;
    }
    const unsigned round = roundsEnded();
    ++mHandle.waiters;
    while (roundsEnded() == round) {
        pthread_cond_wait(&mHandle.condition, &mHandle.mutex);
    }
    --mHandle.waiters;
    pthread_mutex_unlock(&mHandle.mutex);
    return true;
}

bool CVQSubBarrier::breakThrough(unsigned char& current, unsigned char index) {
    if (!enter(current, index)) {
        return false;
    }
    endRound(current, index);
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
    if (!mSub[0].blocks()) {
        return;
    }
    for (;;) {
        const unsigned char current = load(mCurrent);
        if (mSub[current].breakThrough(mCurrent, current)) {
            return;
        }
    }
}
