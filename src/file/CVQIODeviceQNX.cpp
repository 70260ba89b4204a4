#include <CVQIODevice.h>

#include <CVQAsserter.h>
#include <VQIODeviceServerRegistry.h>
#include <VQOperatingSystem.h>
#include <os/KernelIO.h>
#include <os/retryInterrupted.h>

#include <cerrno>
#include <devctl.h>
#include <fcntl.h>
#include <sys/neutrino.h>

namespace {

constexpr char kUnit[] = "CVQIODeviceQNX";
constexpr unsigned kLineOpenNoPath = 111;

constexpr int kOpenFlags[] = {O_RDONLY, O_RDONLY | O_CLOEXEC, O_WRONLY | O_CLOEXEC, O_RDWR | O_CLOEXEC};

/// Another one for the same, which programs that are started inherit if they inherit the first.
int duplicate(int descriptor) {
    const bool isInherited = (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == 0;
    return retryInterrupted([&] { return fcntl(descriptor, isInherited ? F_DUPFD : F_DUPFD_CLOEXEC, 0); });
}

constexpr bool isListed(CVQIODevice::AccessMode mode) {
    return mode >= CVQIODevice::ACCESS_DEFAULT && mode <= CVQIODevice::ACCESS_READ_WRITE;
}

}  // namespace

CVQIODevice::CVQIODevice(const CVQIODevice& other) {
    if (other.mServer != -1) {
        int server = other.mServer;
        mState = VQIODeviceServerRegistry::onDup(server) ? STATE_SUCCESS : STATE_FAILED;
        mServer = mState == STATE_SUCCESS ? server : -1;
        return;
    }
    if (other.mDescriptor != -1) {
        mDescriptor = duplicate(other.mDescriptor);
    }
    mState = mDescriptor != -1 ? STATE_SUCCESS : STATE_FAILED;
}

CVQIODevice::~CVQIODevice() {
    // Kept: device-server-untold. A server lives as long as its process, and its devices come and go.
    if (mDescriptor != -1) {
        closeDescriptor(mDescriptor);
    }
}

bool CVQIODevice::doOpen(const char* path, AccessMode mode) {
    mState = STATE_FAILED;
    if (mDescriptor != -1) {
        return false;
    }
    if (path == nullptr) {
        doCheapAssert(kLineOpenNoPath, kUnit);
        return false;
    }
    const bool isServed = VQIODeviceServerRegistry::onOpen(mServer, path, mode);
    if (mServer != -1) {
        mState = isServed ? STATE_SUCCESS : STATE_FAILED;
        return isServed;
    }
    if (!isListed(mode)) {
        VQOperatingSystem::setLastError(EINVAL);
        return false;
    }
    mDescriptor = retryInterrupted([&] { return ::open(path, kOpenFlags[mode]); });
    if (mDescriptor == -1) {
        return false;
    }
    mState = STATE_SUCCESS;
    return true;
}

/// Makes a call that returns its error number, again after interruptions until the time-out has passed; settles state
/// and last error by the number, which is returned.
template <class Call>
int CVQIODevice::callUntil(int timeoutMs, Call call) {
    int error;
    if (timeoutMs == -1) {
        do {
            error = call();
        } while (error == EINTR);
    } else {
        const unsigned long long deadline = VQOperatingSystem::calculateKernelTimeout(timeoutMs);
        error = deadline == 0 ? ETIMEDOUT : EINTR;
        while (error == EINTR) {
            VQOperatingSystem::setKernelTimeout(deadline, _NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY);
            error = call();
            if (error == EINTR && VQOperatingSystem::getClockValue(CLOCK_MONOTONIC) >= deadline) {
                error = ETIMEDOUT;
            }
        }
    }
    VQOperatingSystem::setLastError(error);
    mState = error == EOK ? STATE_SUCCESS : error == ETIMEDOUT ? STATE_TIMEOUT : STATE_FAILED;
    return error;
}

/// Of a transfer: the number of bytes, 0 at a time-out, -1 after an error. What no kernel is asked for arms no time-out,
/// which the thread's next call would meet.
template <class Transfer>
int CVQIODevice::transferUntil(int timeoutMs, int size, Transfer transfer) {
    ssize_t count = 0;
    const int error = callUntil(size < 0 ? -1 : timeoutMs, [&] {
        count = size < 0 ? (errno = EINVAL, -1) : transfer(static_cast<std::size_t>(size));
        return count == -1 ? errno : EOK;
    });
    return error == EOK ? static_cast<int>(count) : error == ETIMEDOUT ? 0 : -1;
}

int CVQIODevice::read(void* buffer, int size, int timeoutMs) {
    if (mServer != -1) {
        const int result = VQIODeviceServerRegistry::onRead(mServer, buffer, size, timeoutMs);
        if (mServer != -1) {
            return result;
        }
    }
    return transferUntil(timeoutMs, size,
                         [&](std::size_t bytes) { return KernelIO::read(mDescriptor, buffer, bytes); });
}

int CVQIODevice::write(const void* data, int size, int timeoutMs) {
    if (mServer != -1) {
        const int result = VQIODeviceServerRegistry::onWrite(mServer, data, size, timeoutMs);
        if (mServer != -1) {
            return result;
        }
    }
    return transferUntil(timeoutMs, size,
                         [&](std::size_t bytes) { return KernelIO::write(mDescriptor, data, bytes); });
}

bool CVQIODevice::devctl(int command, void* data, int size, int* info, int timeoutMs) {
    if (mServer != -1) {
        const bool result = VQIODeviceServerRegistry::onDevctl(mServer, command, data, size, info, timeoutMs);
        if (mServer != -1) {
            return result;
        }
    }
    return callUntil(timeoutMs, [&] {
               return ::devctl(mDescriptor, command, data, static_cast<std::size_t>(size), info);
           }) == EOK;
}

bool CVQIODevice::close() {
    if (mServer != -1) {
        const bool result = VQIODeviceServerRegistry::onClose(mServer);
        mState = result ? STATE_SUCCESS : STATE_FAILED;
        if (mServer != -1) {
            return result;
        }
    }
    // A device without anything to close says so by ENOSYS.
    const bool isClosed = closeDescriptor(mDescriptor) == 0 || errno == ENOSYS;
    mDescriptor = -1;
    mState = isClosed ? STATE_SUCCESS : STATE_FAILED;
    return isClosed;
}

bool CVQIODevice::isOpened() const {
    if (mServer != -1) {
        const bool result = VQIODeviceServerRegistry::onIsOpened(mServer);
        if (mServer != -1) {
            return result;
        }
    }
    return mDescriptor != -1;
}

unsigned CVQIODevice::getLastError() const {
    return mServer != -1 ? VQIODeviceServerRegistry::onGetLastError(mServer) : mState;
}
