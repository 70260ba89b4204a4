#include <VQSharedMemoryAccess.h>

#include <os/flagIf.h>
#include <os/retryInterrupted.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr unsigned kWhich = 0xFF;  // the part of a mode that selects; the rest are bits
constexpr int kOpenFlags[] = {0, O_CREAT, O_EXCL, O_CREAT | O_EXCL};
constexpr int kProtections[] = {PROT_READ, PROT_WRITE, PROT_READ | PROT_WRITE};
constexpr mode_t kForAll = 0777;

template <class Result>
Result refuse(Result failure) {
    errno = EINVAL;
    return failure;
}

template <unsigned Count>
constexpr bool isListed(unsigned mode, const int (&)[Count]) {
    return (mode & kWhich) < Count;
}

constexpr bool setsSize(unsigned mode) {
    return (mode & (VQSharedMemoryAccess::OPEN_SET_SIZE | VQSharedMemoryAccess::OPEN_EXCLUSIVE)) != 0;
}

}  // namespace

int VQSharedMemoryAccess::open(const char* name, unsigned size, unsigned mode) {
    if (name == nullptr || !isListed(mode, kOpenFlags)) {
        return refuse(-1);
    }
    const int flags = kOpenFlags[mode & kWhich] | O_RDWR;
    const int descriptor = retryInterrupted([&] { return shm_open(name, flags, kForAll); });
    if (descriptor != -1 && setsSize(mode) &&
        retryInterrupted([&] { return ftruncate(descriptor, static_cast<off_t>(size)); }) == -1) {
        const SVQErrnoSafe reason;
        close(descriptor);
        return -1;
    }
    return descriptor;
}

void* VQSharedMemoryAccess::map(int descriptor, unsigned size, unsigned offset, unsigned mode) {
    if (descriptor == -1 || !isListed(mode, kProtections)) {
        return refuse<void*>(nullptr);
    }
    const int flags = MAP_SHARED | flagIf((mode & MAPPING_INITIALISED) == 0, MAP_NOINIT) |
                      flagIf((mode & MAPPING_LAZY) != 0, MAP_LAZY);
    void* const address =
        mmap(nullptr, size, kProtections[mode & kWhich], flags, descriptor, static_cast<off_t>(offset));
    return address != MAP_FAILED ? address : nullptr;
}

bool VQSharedMemoryAccess::unmap(void* address, unsigned size) {
    return munmap(address, size) == 0;
}

bool VQSharedMemoryAccess::close(int descriptor) {
    return closeDescriptor(descriptor) == 0;
}

bool VQSharedMemoryAccess::unlink(const char* name) {
    if (name == nullptr) {
        return refuse(false);
    }
    // Kept: shm-unlink-eexist. ENOENT would be the error to expect here; callers count on hearing of it.
    return retryInterrupted([&] { return shm_unlink(name); }) == 0 || errno == EEXIST;
}
