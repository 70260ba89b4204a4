#include <CVQCountingSemaphore.h>

CVQCountingSemaphore::CVQCountingSemaphore(int initialCount, int maxCount, bool shared) {
    VQSemaphoreAccess::create(mHandle, initialCount, maxCount, shared);
}

CVQCountingSemaphore::~CVQCountingSemaphore() {
    VQSemaphoreAccess::destroy(mHandle);
}
