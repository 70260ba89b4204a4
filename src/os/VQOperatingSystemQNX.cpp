#include <VQOperatingSystem.h>

#include <cerrno>
#include <process.h>
#include <unistd.h>

void VQOperatingSystem::setLastError(int error) {
    errno = error;
}

int VQOperatingSystem::getLastError() {
    return errno;
}

int VQOperatingSystem::getCurrentTID() {
    return gettid();
}

int VQOperatingSystem::getCurrentPID() {
    return getpid();
}
