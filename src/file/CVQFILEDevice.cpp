#include <CVQFILEDevice.h>

#include <CVQAsserter.h>
#include <VQExport.h>
#include <os/retryInterrupted.h>

#include <cerrno>
#include <climits>
#include <fcntl.h>

namespace {

constexpr char kUnit[] = "CVQFILEDevice";
constexpr unsigned kLineSync = 93;
constexpr unsigned kLineWrite = 108;
constexpr unsigned kLineRead = 156;

/// fopen's mode for the platform's open flags. "b" alone is none: fopen refuses it.
const char* modeOf(unsigned flags) {
    const auto either = [flags](const char* writeOnly, const char* readWrite) {
        return (flags & O_WRONLY) != 0 ? writeOnly : (flags & O_RDWR) != 0 ? readWrite : "b";
    };
    if (flags == 0) {
        return "rb";
    }
    if ((flags & (O_TRUNC | O_APPEND | O_CREAT)) == 0) {
        return "r+b";  // Kept: filedevice-write-only-reads. Existing callers update files that they open so.
    }
    return (flags & (O_TRUNC | O_APPEND)) == O_APPEND ? either("ab", "a+b") : either("wb", "w+b");
}

}  // namespace

/// `call` moves up to that many bytes and returns how many it did.
template <bool isRead, class Call>
int CVQFILEDevice::transfer(const void* bytes, unsigned size, Call call) {
    if (size == 0) {
        return bytes == nullptr ? 0 : -1;  // Kept: filedevice-size-zero. Callers take -1 for "nothing to do".
    }
    if (bytes == nullptr) {
        errno = EINVAL;
        return -1;
    }
    const std::size_t atOnce = size < INT_MAX ? size : INT_MAX;  // no more than the result can tell
    for (;;) {
        if (!isRead || mHasFailed) {
            errno = 0;
        }
        const std::size_t count = call(atOnce);
        // To ask the stream for errors takes its lock, which costs as much as moving a few bytes does. A read that
        // delivered all has met none. A write that counts all may have failed to hand on its buffer, and has left a
        // reason then.
        if (VQ_LIKELY(count == atOnce && !mHasFailed && (isRead || errno == 0))) {
            return static_cast<int>(count);
        }
        mHasFailed = std::ferror(mStream) != 0;
        if (!mHasFailed) {
            return static_cast<int>(count);
        }
        // Kept: filedevice-interrupted-restarts. The stream remembers the error, so that what comes after an
        // interruption is an error, too; callers open the file again.
        if (errno != EINTR) {
            return -1;
        }
    }
}

CVQFILEDevice::~CVQFILEDevice() {
    closeAnyway();
}

bool CVQFILEDevice::open(const CVQPath& path, unsigned flags) {
    closeAnyway();
    const char* const name = path.getOSSpecific().c_str();
    do {
        errno = 0;
        mStream = std::fopen(name, modeOf(flags));
    } while (mStream == nullptr && errno == EINTR);
    mIsOpened = mStream != nullptr;
    mHasFailed = false;
    if (mIsOpened) {
        fcntl(fileno(mStream), F_SETFD, FD_CLOEXEC);
    }
    return mIsOpened;
}

int CVQFILEDevice::read(void* buffer, unsigned size, int) {
    if (mStream == nullptr) {
        doCheapAssert(kLineRead, kUnit);
        return -1;
    }
    return transfer<true>(buffer, size, [&](std::size_t atOnce) { return std::fread(buffer, 1, atOnce, mStream); });
}

int CVQFILEDevice::write(const void* data, unsigned size, int) {
    if (mStream == nullptr) {
        doCheapAssert(kLineWrite, kUnit);
        return -1;
    }
    return transfer<false>(data, size, [&](std::size_t atOnce) { return std::fwrite(data, 1, atOnce, mStream); });
}

bool CVQFILEDevice::sync() {
    if (mStream == nullptr) {
        doCheapAssert(kLineSync, kUnit);
        return false;
    }
    return flush();
}

bool CVQFILEDevice::close() {
    if (!mIsOpened) {
        return true;
    }
    // What cannot be written is found out first: after a failed fclose there is no stream left to keep.
    return flush() && release();
}

bool CVQFILEDevice::flush() {
    const bool isFlushed = retryInterrupted([&] { return std::fflush(mStream); }) == 0;
    mHasFailed = std::ferror(mStream) != 0;
    return isFlushed;
}

void CVQFILEDevice::closeAnyway() {
    if (!close() && mIsOpened) {
        release();
    }
}

bool CVQFILEDevice::release() {
    std::FILE* const stream = mStream;
    mStream = nullptr;
    mIsOpened = false;
    return std::fclose(stream) == 0;
}
