#include <CVQCountingSemaphore.h>

#include <VQSemaphoreAccess.h>

CVQCountingSemaphore::CVQCountingSemaphore(int initialCount, int maxCount, bool shared) {
    VQSemaphoreAccess::create(mHandle, initialCount, maxCount, shared);
}

CVQCountingSemaphore::~CVQCountingSemaphore() {
    VQSemaphoreAccess::destroy(mHandle);
}

bool CVQCountingSemaphore::lock(int timeoutMs) {
    return VQSemaphoreAccess::lock(mHandle, timeoutMs);
}

int CVQCountingSemaphore::unlock() {
    return VQSemaphoreAccess::unlock(mHandle);
}
