#include <CVQFileHandle.h>

#include <TVQErrnoSafeFunction.h>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int kModeOfNewFiles = 0777;

}  // namespace

bool CVQFileHandle::open(const CVQPath& path, unsigned flags) {
    close();
    mDescriptor =
        TVQErrnoSafeFunction(&::open)(path.getOSSpecific().c_str(), static_cast<int>(flags), kModeOfNewFiles);
    return isOpen();
}

bool CVQFileHandle::close() {
    if (!isOpen()) {
        return true;
    }
    int result;
    bool wasInterrupted = false;
    while ((result = ::close(mDescriptor)) < 0 && errno == EINTR) {
        wasInterrupted = true;
    }
    // The attempt that was interrupted may have released the descriptor: then it is not ours any more.
    if (result >= 0 || (wasInterrupted && errno == EBADF)) {
        mDescriptor = -1;
    }
    return true;  // Kept: handle-close-true.
}
