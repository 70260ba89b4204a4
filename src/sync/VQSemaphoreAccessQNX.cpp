#include <VQSemaphoreAccess.h>

#include <CVQAsserter.h>
#include <VQOperatingSystem.h>
#include <VQSyslog.h>

#include <cerrno>
#include <sys/neutrino.h>

namespace {

constexpr char kUnit[] = "VQSemaphoreAccessQNX";
constexpr unsigned kLineCreate = 140;

using VQOSTypes::SEMHANDLE;

void logCritical(const char* text) {
    VQSyslog::logMsg(0, VQSyslog::CRITICAL, "%s", text);
}

bool createLocks(SEMHANDLE& handle, const pthread_mutexattr_t& mutexAttributes,
                 const pthread_condattr_t& conditionAttributes) {
    if (const int error = pthread_mutex_init(&handle.mutex, &mutexAttributes); error != 0) {
        VQSyslog::logMsg(0, VQSyslog::CRITICAL, "Failed to create mutex: error=%d", error);
        return false;
    }
    if (const int error = pthread_cond_init(&handle.condition, &conditionAttributes); error != 0) {
        VQSyslog::logMsg(0, VQSyslog::CRITICAL, "Failed to create condition variable: error=%d", error);
        pthread_mutex_destroy(&handle.mutex);
        return false;
    }
    return true;
}

/// The condition keeps its default clock: a timed `lock` uses the kernel time-out.
bool createShared(SEMHANDLE& handle, bool shared) {
    pthread_mutexattr_t mutexAttributes;
    pthread_condattr_t conditionAttributes;
    const bool hasMutexAttributes = pthread_mutexattr_init(&mutexAttributes) == 0;
    const bool hasConditionAttributes = pthread_condattr_init(&conditionAttributes) == 0;
    bool created = false;
    if (!hasMutexAttributes || !hasConditionAttributes ||
        pthread_mutexattr_setpshared(&mutexAttributes, shared) != 0 ||
        pthread_condattr_setpshared(&conditionAttributes, shared) != 0) {
        logCritical("Failed initializing mutex/condition attributes.");
    } else {
        created = createLocks(handle, mutexAttributes, conditionAttributes);
    }
    if (hasMutexAttributes) {
        pthread_mutexattr_destroy(&mutexAttributes);
    }
    if (hasConditionAttributes) {
        pthread_condattr_destroy(&conditionAttributes);
    }
    return created;
}

// Posting and taking a unit that is there come down to four atomic instructions, each of which waits until what was
// stored before it has arrived. So the functions below keep apart what is rare, and what follows once the mutex is
// held: the way of the others then saves no registers.

[[gnu::noinline]] bool fail(int error) {
    errno = error;
    return false;
}

/// Leaves `error` as the caller's last error, and is true when that is none.
bool finish(int error) {
    if (VQ_UNLIKELY(error != 0)) {
        return fail(error);
    }
    errno = 0;
    return true;
}

int waitForUnit(SEMHANDLE& handle) {
    int error = 0;
    while (handle.count == 0 && error == 0) {
        ++handle.waiters;
        error = pthread_cond_wait(&handle.condition, &handle.mutex);
        --handle.waiters;
    }
    return error;
}

/// The caller holds the mutex, and there is a unit.
bool takeAndUnlock(SEMHANDLE& handle) {
    --handle.count;
    return finish(pthread_mutex_unlock(&handle.mutex));
}

[[gnu::noinline]] bool waitAndTake(SEMHANDLE& handle) {
    if (const int error = waitForUnit(handle); error != 0) {
        // Kept: semaphore-locks-again. The mutex is left to who finds out why the platform refused to wait.
        pthread_mutex_lock(&handle.mutex);
        return fail(error);
    }
    return takeAndUnlock(handle);
}

[[gnu::noinline]] bool takeHoldingMutex(SEMHANDLE& handle) {
    return VQ_LIKELY(handle.count > 0) ? takeAndUnlock(handle) : waitAndTake(handle);
}

bool lockWithoutLimit(SEMHANDLE& handle) {
    const int error = pthread_mutex_lock(&handle.mutex);
    return VQ_LIKELY(error == 0) ? takeHoldingMutex(handle) : fail(error);
}

[[gnu::noinline]] bool tryLock(SEMHANDLE& handle) {
    if (const int error = pthread_mutex_trylock(&handle.mutex); error != 0) {
        return finish(error);
    }
    const bool taken = handle.count > 0;
    if (taken) {
        --handle.count;
    }
    const int error = pthread_mutex_unlock(&handle.mutex);
    return finish(error == 0 && !taken ? EAGAIN : error);
}

/// Arms the thread's time-out; 0 or an error number. Where neither gives a reason the wait goes on without one.
int arm(unsigned long long deadline, int states) {
    return deadline != 0 && VQOperatingSystem::setKernelTimeout(deadline, states)
               ? 0
               : VQOperatingSystem::getLastError();
}

/// The caller holds the mutex. 0 when a unit was taken.
int takeBefore(SEMHANDLE& handle, unsigned long long deadline) {
    while (handle.count == 0) {
        ++handle.waiters;
        // Armed again: the call before, whatever it was, has used up its time-out.
        int error = arm(deadline, _NTO_TIMEOUT_MUTEX | _NTO_TIMEOUT_CONDVAR);
        if (error == 0) {
            error = pthread_cond_wait(&handle.condition, &handle.mutex);
        }
        --handle.waiters;
        if (error != 0) {
            return error;
        }
    }
    --handle.count;
    return 0;
}

[[gnu::noinline]] bool lockWithin(SEMHANDLE& handle, int timeoutMs) {
    VQOperatingSystem::setLastError(0);  // what is found there after a refusal is then its reason
    const unsigned long long deadline = VQOperatingSystem::calculateKernelTimeout(timeoutMs);
    if (const int error = arm(deadline, _NTO_TIMEOUT_MUTEX); error != 0) {
        return finish(error);
    }
    int error = pthread_mutex_lock(&handle.mutex);
    if (error == 0) {
        const int taken = takeBefore(handle, deadline);
        const int unlocked = pthread_mutex_unlock(&handle.mutex);
        error = unlocked != 0 && (taken == 0 || taken == ETIMEDOUT) ? unlocked : taken;
    }
    if (error != ETIMEDOUT) {
        // Where nothing blocked, or the platform refused to wait, what was armed must not end this thread's next wait.
        VQOperatingSystem::resetKernelTimeout();
    }
    return finish(error);
}

[[gnu::noinline]] int unlockAndWake(SEMHANDLE& handle) {
    pthread_mutex_unlock(&handle.mutex);
    return pthread_cond_signal(&handle.condition);
}

[[gnu::noinline]] int postHoldingMutex(SEMHANDLE& handle) {
    // Kept: semaphore-drops-posts. What makes the binary one binary.
    if (handle.count < handle.maxCount) {
        ++handle.count;
        if (VQ_UNLIKELY(handle.waiters > 0)) {
            return unlockAndWake(handle);
        }
    }
    return pthread_mutex_unlock(&handle.mutex);
}

}  // namespace

void VQSemaphoreAccess::create(SEMHANDLE& handle, int initialCount, int maxCount, bool shared) {
    if (maxCount > 0) {
        handle.count = 0;
        handle.maxCount = 0;
        handle.waiters = 0;
        if (createShared(handle, shared)) {
            const int count = initialCount < maxCount ? initialCount : maxCount;
            handle.count = count > 0 ? static_cast<unsigned>(count) : 0;
            handle.maxCount = static_cast<unsigned>(maxCount);
            handle.valid = 1;
            return;
        }
    }
    handle.valid = 0;  // also of a handle that nobody has filled
    doCheapAssert(kLineCreate, kUnit);
}

bool VQSemaphoreAccess::lock(SEMHANDLE& handle, int timeoutMs) {
    if (VQ_UNLIKELY(handle.valid == 0)) {
        return fail(EINVAL);  // what the platform says of a mutex that is not there
    }
    if (VQ_LIKELY(timeoutMs == -1)) {
        return lockWithoutLimit(handle);
    }
    // Kept: semaphore-negative-tries-once. Only -1 waits without limit.
    return timeoutMs > 0 ? lockWithin(handle, timeoutMs) : tryLock(handle);
}

int VQSemaphoreAccess::unlock(SEMHANDLE& handle) {
    if (VQ_UNLIKELY(handle.valid == 0)) {
        return EINVAL;
    }
    const int error = pthread_mutex_lock(&handle.mutex);
    return VQ_LIKELY(error == 0) ? postHoldingMutex(handle) : error;
}

void VQSemaphoreAccess::destroy(SEMHANDLE& handle) {
    pthread_cond_destroy(&handle.condition);
    if (const int error = pthread_mutex_destroy(&handle.mutex); error != 0) {
        VQSyslog::logMsg(0, VQSyslog::CRITICAL, "Failed to destroy semaphore: error=%d", error);
    }
    handle.valid = 0;
    handle.count = 0;
    handle.maxCount = 0;
    handle.waiters = 0;
}
