#include <CVQAsserter.h>
#include <VQOperatingSystem.h>

#include <cerrno>
#include <cstdio>
#include <process.h>
#include <unistd.h>

namespace {

constexpr char kUnit[] = "VQOperatingSystemQNX";
constexpr unsigned kLineVsnprintf = 334;

}  // namespace

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

int VQOperatingSystem::vsnprintf(char* buffer, int size, const char* format, std::va_list arguments) {
    if (size <= 0) {
        return 0;
    }
    if (buffer == nullptr) {
        doCheapAssert(kLineVsnprintf, kUnit);
        return 0;
    }
    const int produced = std::vsnprintf(buffer, static_cast<std::size_t>(size), format, arguments);
    // Kept: vsnprintf-equal-size. Callers compare the result with the size to tell whether bytes were lost.
    return produced > size ? size - 1 : produced;
}
