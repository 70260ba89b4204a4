#include "Segment.h"

#include "Descriptor.h"
#include "Errno.h"
#include "Futex.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace host {
namespace {

constexpr size_t kSmallestWindow = 64 << 10;

}  // namespace

int makeSegment(const char* name, off64_t size) {
    rlimit limit;
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
        static_cast<off64_t>(limit.rlim_cur) < size)
        return fail(EFBIG);  // and not the signal that the kernel would send
    Descriptor descriptor(memfd_create(name, MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!descriptor.isOpen() || ftruncate64(descriptor.get(), size) != 0 ||
        fcntl(descriptor.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0)
        return -1;
    return descriptor.release();
}

bool isSegment(int descriptor, off64_t size) {
    struct stat64 status;
    struct statfs64 system;
    const int seals = fcntl(descriptor, F_GET_SEALS);
    // Huge pages could run out when they are first touched, which ordinary ones do not.
    return seals >= 0 && (seals & F_SEAL_SHRINK) != 0 && fstat64(descriptor, &status) == 0 &&
           status.st_size == size && fstatfs64(descriptor, &system) == 0 && system.f_type == TMPFS_MAGIC;
}

void* mapSegment(int descriptor, off64_t offset, size_t size, void* at) {
    const int flags = MAP_SHARED | (at != nullptr ? MAP_FIXED : 0);
    void* const mapped = mmap64(at, size, PROT_READ | PROT_WRITE, flags, descriptor, offset);
    if (mapped == MAP_FAILED)
        return nullptr;
    madvise(mapped, size, MADV_DONTFORK);
    return mapped;
}

bool Window::reach(int descriptor, off64_t offset, size_t length) {
    if (length <= size)
        return true;
    size_t larger = kSmallestWindow;
    while (larger < length)
        larger *= 2;
    void* const mapped = mapSegment(descriptor, offset, larger);
    if (mapped == nullptr)
        return false;
    unmap();
    at = static_cast<char*>(mapped);
    size = larger;
    return true;
}

void Window::trim() {
    if (size > kSmallWindow)
        unmap();
}

void Window::unmap() {
    if (size != 0)
        munmap(at, size);
    at = nullptr;
    size = 0;
}

}  // namespace host
