#include <VQMutexAccess.h>

#include <CVQAsserter.h>
#include <VQSyslog.h>
#include <sync/MonotonicDeadline.h>

namespace {

constexpr char kUnit[] = "VQMutexAccessQNX";
constexpr unsigned kLineInit = 76;
constexpr unsigned kLineDestroy = 102;

}  // namespace

void VQMutexAccess::create(_sync& mutex, bool unlocked, bool shared, bool recursive) {
    // A refused attribute is reported and left at its default: a lock of the wrong kind still locks. Where not even
    // the object can be had, the steps after it see zeros and nothing that lay on the stack.
    pthread_mutexattr_t attributes = {};
    if (const int error = pthread_mutexattr_init(&attributes); error != 0) {
        // Kept: log-tpthread. The doubled letter is in the text that log readers match.
        VQSyslog::logMsg(0, VQSyslog::CRITICAL, "Failed tpthread_mutexattr_init: error=%d", error);
    }
    const int recursion = recursive ? PTHREAD_RECURSIVE_ENABLE : PTHREAD_RECURSIVE_DISABLE;
    if (const int error = pthread_mutexattr_setrecursive(&attributes, recursion); error != 0) {
        VQSyslog::logMsg(0, VQSyslog::CRITICAL, "Failed pthread_mutexattr_setrecursive: error=%d Recursive: %d",
                         error, recursive);
    }
    if (const int error = pthread_mutexattr_setpshared(&attributes, shared); error != 0) {
        VQSyslog::logMsg(0, VQSyslog::CRITICAL, "Failed pthread_mutexattr_setpshared: error=%d shareable: %d",
                         error, shared);
    }
    if (const int error = pthread_mutex_init(&mutex, &attributes); error != 0) {
        VQSyslog::logMsg(0, VQSyslog::CRITICAL, "Failed to create mutex: error=%d", error);
        doCheapAssert(kLineInit, kUnit);
    }
    if (!unlocked) {
        pthread_mutex_lock(&mutex);
    }
    pthread_mutexattr_destroy(&attributes);
}

bool VQMutexAccess::lock(_sync& mutex, int timeoutMs) {
    if (timeoutMs == -1) {
        return pthread_mutex_lock(&mutex) == 0;
    }
    if (timeoutMs == 0) {
        return pthread_mutex_trylock(&mutex) == 0;
    }
    // Kept: mutex-timeout-below-minus-one. No other value waits without limit.
    const timespec deadline = monotonicDeadline(timeoutMs);
    return pthread_mutex_timedlock_monotonic(&mutex, &deadline) == 0;
}

void VQMutexAccess::destroy(_sync& mutex) {
    if (const int error = pthread_mutex_destroy(&mutex); error != 0) {
        VQSyslog::logMsg(0, VQSyslog::CRITICAL, "Failed to destroy mutex: error=%d", error);
        doCheapAssert(kLineDestroy, kUnit);
    }
}
