#include <CVQMutex.h>

#include <VQMutexAccess.h>

CVQMutex::CVQMutex(bool unlocked, RecursionMode mode) {
    VQMutexAccess::create(*this, unlocked, /*shared*/ false, /*recursive*/ mode == RECURSIVE);
}

CVQMutex::~CVQMutex() {
    VQMutexAccess::destroy(*this);
}

bool CVQMutex::lock(int timeoutMs) {
    return VQMutexAccess::lock(*this, timeoutMs);
}
