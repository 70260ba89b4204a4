#include <VQTriggerAccess.h>

#include <CVQAsserter.h>
#include <sync/MonotonicDeadline.h>

#include <cerrno>

namespace {

constexpr char kUnit[] = "VQTriggerAccessQNX";
constexpr unsigned kLineTimedWait = 119;

}  // namespace

bool VQTriggerAccess::create(VQOSTypes::TRIGGER_HANDLE& trigger) {
    return sem_init(&trigger, /*pshared*/ 0, 0) == 0;
}

int VQTriggerAccess::destroy(VQOSTypes::TRIGGER_HANDLE& trigger) {
    return sem_destroy(&trigger);
}

bool VQTriggerAccess::signal(VQOSTypes::TRIGGER_HANDLE& trigger) {
    int value;
    if (sem_getvalue(&trigger, &value) != 0) {
        return false;
    }
    return value > 0 || sem_post(&trigger) == 0;
}

bool VQTriggerAccess::wait(VQOSTypes::TRIGGER_HANDLE& trigger) {
    int result;
    do {
        result = sem_wait(&trigger);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

bool VQTriggerAccess::wait(VQOSTypes::TRIGGER_HANDLE& trigger, int timeoutMs) {
    // Kept: trigger-minus-one-has-passed. No time-out is without limit here.
    const timespec deadline = monotonicDeadline(timeoutMs);
    if (sem_timedwait_monotonic(&trigger, &deadline) == 0) {
        return true;
    }
    if (errno != ETIMEDOUT) {
        doCheapAssert(kLineTimedWait, kUnit);  // Kept: trigger-signal-asserts. An interruption is a failure here.
    }
    return false;
}

int VQTriggerAccess::tryWait(VQOSTypes::TRIGGER_HANDLE& trigger) {
    int result;
    do {
        result = sem_trywait(&trigger);
    } while (result != 0 && errno == EINTR);
    if (result == 0 || errno == 0) {
        return 1;
    }
    return errno == EAGAIN ? 0 : -1;
}
