#include <CVQMemoryMappedFile.h>

#include <VQError.h>
#include <os/flagIf.h>
#include <os/retryInterrupted.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>

CVQMemoryMappedFile::CVQMemoryMappedFile(const CVQPath& path) {
    open(path);
}

CVQMemoryMappedFile::~CVQMemoryMappedFile() {
    close();
}

bool CVQMemoryMappedFile::open(const CVQPath& path) {
    return CVQFileHandle::open(path, O_RDONLY);
}

bool CVQMemoryMappedFile::close() {
    if (!unmap()) {
        VQError::reportOSError(0, VQSyslog::ERROR, "unmapping memory mapping failed - closing anyway");
    }
    return CVQFileHandle::close();
}

bool CVQMemoryMappedFile::map(unsigned long long offset, unsigned size, bool isLazy) {
    if (!unmap()) {
        VQError::reportOSError(0, VQSyslog::ERROR, "unmapping memory mapping failed - mapping anyway");
    }
    const int protection = isOpen() ? PROT_READ : PROT_READ | PROT_WRITE;
    const int flags = (isOpen() ? MAP_SHARED | MAP_NOSYNCFILE : MAP_PRIVATE | MAP_ANON) | flagIf(isLazy, MAP_LAZY);
    const long long from = isOpen() ? static_cast<long long>(offset) : 0;
    void* address;
    do {
        address = mmap64(nullptr, size, protection, flags, getDescriptor(), from);
    } while (address == MAP_FAILED && errno == EINTR);
    if (address == MAP_FAILED) {
        mAddress = nullptr;
        mSize = 0;
        if (errno == ENOTSUP) {
            errno = ENOSYS;
        }
        return false;
    }
    mAddress = address;
    mSize = size;
    return true;
}

bool CVQMemoryMappedFile::unmap() {
    if (mAddress == nullptr) {
        return true;
    }
    if (retryInterrupted([&] { return munmap(mAddress, mSize); }) == -1) {
        return false;
    }
    mAddress = nullptr;
    mSize = 0;
    return true;
}
