#include <VQConditionVariableAccess.h>

#include <sync/MonotonicDeadline.h>

#include <cerrno>

bool VQConditionVariableAccess::create(_sync& condition) {
    pthread_condattr_t attributes;
    int error = pthread_condattr_init(&attributes);
    if (error != 0) {
        errno = error;
        return false;
    }
    error = pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    if (error == 0) {
        error = pthread_cond_init(&condition, &attributes);
    }
    const int before = errno;
    pthread_condattr_destroy(&attributes);
    errno = error != 0 ? error : before;  // last: the caller asks for the reason of the step that was refused
    return error == 0;
}

bool VQConditionVariableAccess::wait(_sync& condition, _sync& mutex, int timeoutMs) {
    int error;
    if (timeoutMs == -1) {
        error = pthread_cond_wait(&condition, &mutex);
    } else {
        const timespec deadline = monotonicDeadline(timeoutMs);
        error = pthread_cond_timedwait(&condition, &mutex, &deadline);
    }
    errno = error;
    // Kept: condition-expiry-is-true. Callers tell a signal from an expiry by errno.
    return error == 0 || (error == ETIMEDOUT && timeoutMs != 0);
}
