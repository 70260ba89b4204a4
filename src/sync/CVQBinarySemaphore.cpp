#include <CVQBinarySemaphore.h>

CVQBinarySemaphore::CVQBinarySemaphore(bool available, bool shared) {
    VQSemaphoreAccess::create(mHandle, available, 1, shared);
}

CVQBinarySemaphore::~CVQBinarySemaphore() {
    VQSemaphoreAccess::destroy(mHandle);
}
