#include <CVQWaitCondition.h>

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
