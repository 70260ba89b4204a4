#include <SVQKernelTimer.h>

#include <VQOperatingSystem.h>

#include <cerrno>
#include <sys/neutrino.h>

SVQKernelTimer::SVQKernelTimer(int timeoutMs) : mDeadline(VQOperatingSystem::calculateKernelTimeout(timeoutMs)) {
}

bool SVQKernelTimer::start() {
    if (mDeadline == 0) {
        VQOperatingSystem::setLastError(ETIMEDOUT);
        return false;
    }
    return VQOperatingSystem::setKernelTimeout(mDeadline, _NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY);
}

bool SVQKernelTimer::timeoutOccurred() {
    return VQOperatingSystem::getMonotonicTime() >= mDeadline;
}
