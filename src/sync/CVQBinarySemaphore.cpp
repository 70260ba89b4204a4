#include <CVQBinarySemaphore.h>

#include <VQSemaphoreAccess.h>

CVQBinarySemaphore::CVQBinarySemaphore(bool available, bool shared) {
    VQSemaphoreAccess::create(mHandle, available, 1, shared);
}

CVQBinarySemaphore::~CVQBinarySemaphore() {
    VQSemaphoreAccess::destroy(mHandle);
}

bool CVQBinarySemaphore::lock(int timeoutMs) {
    return VQSemaphoreAccess::lock(mHandle, timeoutMs);
}

int CVQBinarySemaphore::unlock() {
    return VQSemaphoreAccess::unlock(mHandle);
}
