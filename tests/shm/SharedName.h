// SharedName: a name for a shared-memory object that nobody else has, and that is gone at the end of the scope.
#pragma once

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

constexpr unsigned kPage = 4096;

namespace shmtest {

class SharedName {
public:
    SharedName() {
        static int count = 0;
        mName = "/marlix-test-" + std::to_string(getpid()) + "-" + std::to_string(++count);
    }
    ~SharedName() {
        if (getpid() == mOwner)
            shm_unlink(mName.c_str());
    }
    SharedName(const SharedName&) = delete;
    SharedName& operator=(const SharedName&) = delete;

    operator const char*() const { return mName.c_str(); }
    const std::string& text() const { return mName; }

    /// With a size of -1 when there is no such object.
    struct stat status() const {
        const int descriptor = shm_open(mName.c_str(), O_RDONLY, 0);
        struct stat status = {};
        if (descriptor == -1 || fstat(descriptor, &status) != 0)
            status.st_size = -1;
        if (descriptor != -1)
            close(descriptor);
        return status;
    }
    long long objectSize() const { return status().st_size; }
    bool exists() const { return objectSize() != -1; }

    /// Makes the object with other means than the library's.
    void make(off_t size, mode_t mode = 0600) const {
        const int descriptor = shm_open(mName.c_str(), O_RDWR | O_CREAT, mode);
        if (descriptor == -1 || ftruncate(descriptor, size) != 0)
            std::abort();
        close(descriptor);
    }

private:
    std::string mName;
    pid_t mOwner = getpid();
};

/// Names that no platform takes: empty, only a slash, with a folder, far too long.
inline const std::string kBadNames[] = {"", "/", "/marlix/test", "/" + std::string(5000, 'x')};

}  // namespace shmtest
