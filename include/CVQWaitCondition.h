// CVQWaitCondition: owns one condition of its process; the mutex is the caller's.
//   Units    time-outs in milliseconds on the monotonic clock.
//   Shape    exactly one `_sync`: the object is the condition.
//   Errors   a condition that cannot be created ends the process ("cannot create wait condition"); one that cannot
//            be destroyed is reported ("cannot destroy wait condition", severity error).
//   Threads  any thread. Never shared between processes. It may be destroyed as soon as all who wait were woken.
//   Kept     condition-expiry-is-true: see `wait`.
#pragma once

#include <VQConditionVariableAccess.h>

class VQ_EXPORT CVQWaitCondition : public _sync {
public:
    CVQWaitCondition();
    ~CVQWaitCondition();
    CVQWaitCondition(const CVQWaitCondition&) = delete;
    CVQWaitCondition& operator=(const CVQWaitCondition&) = delete;

    /// As VQConditionVariableAccess::wait: the caller holds `mutex`. True with errno 0 after a signal, true with
    /// errno ETIMEDOUT after `timeoutMs`, false after a `timeoutMs` of 0 that found nothing.
    bool wait(_sync& mutex, int timeoutMs = -1) { return VQConditionVariableAccess::wait(*this, mutex, timeoutMs); }
    /// Wakes one thread, or all. The result is the platform's error number, 0 for success.
    int signal() { return pthread_cond_signal(this); }
    int broadcast() { return pthread_cond_broadcast(this); }
};

static_assert(sizeof(CVQWaitCondition) == sizeof(_sync), "a CVQWaitCondition is its condition and nothing else");
