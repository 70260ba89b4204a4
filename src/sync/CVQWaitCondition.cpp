#include <CVQWaitCondition.h>

#include <VQConditionVariableAccess.h>
#include <VQError.h>

CVQWaitCondition::CVQWaitCondition() {
    if (!VQConditionVariableAccess::create(*this)) {
        VQError::fatalOSError(0, "cannot create wait condition");
    }
}

CVQWaitCondition::~CVQWaitCondition() {
    if (const int error = pthread_cond_destroy(this); error != 0) {
        VQError::reportOSError(0, VQSyslog::ERROR, error, "cannot destroy wait condition");
    }
}

bool CVQWaitCondition::wait(_sync& mutex, int timeoutMs) {
    return VQConditionVariableAccess::wait(*this, mutex, timeoutMs);
}
