#include <CVQSharedMemory.h>

#include <CVQAsserter.h>
#include <VQSharedMemoryAccess.h>
#include <VQSyslog.h>
#include <diag/ErrorText.h>
#include <os/flagIf.h>
#include <os/retryInterrupted.h>

#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char kUnit[] = "CVQSharedMemoryQNX";
constexpr unsigned kLineMapNoName = 41;
constexpr unsigned kLineMapSize = 77;
constexpr unsigned kLineMap2NoName = 140;
constexpr unsigned kLineMap2Size = 169;
constexpr unsigned kLineUnlinkNoName = 208;
constexpr unsigned kLineUnlink = 216;
constexpr unsigned kLineUnmap = 231;

constexpr mode_t kForAll = 0777;

int openObject(const char* name, int flags) {
    return retryInterrupted([&] { return shm_open(name, O_RDWR | flags, kForAll); });
}

bool setSize(int descriptor, unsigned size) {
    return retryInterrupted([&] { return ftruncate(descriptor, static_cast<off_t>(size)); }) != -1;
}

struct stat statusOf(int descriptor) {
    struct stat status = {};
    fstat(descriptor, &status);
    return status;
}

void logNoObject(const char* name) {
    VQSyslog::logMsg(0, VQSyslog::ERROR, "Unable to create file mapping handle named %s: %s", name,
                     errorText(errno));
}

void logNoObject2(const char* name) {
    VQSyslog::logMsg(0, VQSyslog::ERROR, "Unable to create file mapping handle named %s: errno=%d", name, errno);
}

}  // namespace

bool CVQSharedMemory::map(bool recreate, bool readOnly, bool zeroFill) {
    unsigned long long objectSize;
    return map(recreate, readOnly, zeroFill, /*expectNone*/ false, objectSize);
}

bool CVQSharedMemory::map(bool recreate, bool readOnly, bool zeroFill, bool expectNone,
                          unsigned long long& objectSize) {
    objectSize = 0;
    if (mAddress != nullptr) {
        return false;
    }
    if (mName == nullptr) {
        doCheapAssert(kLineMapNoName, kUnit);
        return false;
    }
    const bool isCreated = expectNone ? createOrOpen() : openOrCreate(recreate);
    if (isCreated && !setSize(mDescriptor, mSize)) {
        doCheapAssert(kLineMapSize, kUnit);
        closeDescriptor();
        logNoObject(mName);
        return isCreated;  // Kept: sharedmem-created. The caller knows what there is to unlink.
    }
    if (mDescriptor == -1) {
        logNoObject(mName);
        return false;
    }
    mAddress = mapDescriptor(readOnly, 0);
    if (mAddress == nullptr) {
        VQSyslog::logMsg(0, VQSyslog::ERROR, "Unable to map file %s to memory: %s", mName, errorText(errno));
    } else if (isCreated && expectNone) {
        objectSize = mSize;  // of zeros: nobody else has had it
    } else {
        const struct stat status = statusOf(mDescriptor);
        objectSize = static_cast<unsigned long long>(status.st_size);
        // What has no memory yet is zero. To fill it would take memory for all of it, whatever size was asked for.
        if (isCreated && zeroFill && !readOnly && status.st_blocks != 0) {
            std::memset(mAddress, 0, mSize);
        }
    }
    closeDescriptor();
    return isCreated;
}

bool CVQSharedMemory::map2(bool readOnly, bool initialise, bool lazy) {
    if (mAddress != nullptr) {
        return false;
    }
    if (mName == nullptr) {
        doCheapAssert(kLineMap2NoName, kUnit);
        return false;
    }
    bool isCreated = false;
    mDescriptor = openObject(mName, 0);
    if (mDescriptor == -1 && errno == ENOENT) {
        mDescriptor = openObject(mName, O_CREAT | O_EXCL);
        if (mDescriptor != -1) {
            isCreated = true;
            if (!setSize(mDescriptor, mSize)) {
                doCheapAssert(kLineMap2Size, kUnit);
                closeDescriptor();
                return isCreated;  // Kept: sharedmem-created.
            }
        } else if (errno == EEXIST) {  // another process was quicker
            mDescriptor = openObject(mName, 0);
        }
    }
    if (mDescriptor == -1) {
        logNoObject2(mName);
        return false;
    }
    mAddress = mapDescriptor(readOnly, flagIf(lazy, MAP_LAZY) | flagIf(!initialise, MAP_NOINIT));
    if (mAddress == nullptr) {
        VQSyslog::logMsg(0, VQSyslog::ERROR, "Unable to map file %s to memory: errno=%d", mName, errno);
    }
    closeDescriptor();
    return isCreated;
}

void CVQSharedMemory::unmap() {
    if (mAddress == nullptr) {
        return;
    }
    if (munmap(mAddress, mSize) == -1) {
        doCheapAssert(kLineUnmap, kUnit);
        VQSyslog::logMsg(0, VQSyslog::ERROR, "Unable to remove file mapping (%s) from address space: %s", mName,
                         errorText(errno));
    }
    mAddress = nullptr;
}

void CVQSharedMemory::unlink() {
    if (mName == nullptr) {
        doCheapAssert(kLineUnlinkNoName, kUnit);
        return;
    }
    if (retryInterrupted([&] { return shm_unlink(mName); }) == -1 && errno != ENOENT) {
        doCheapAssert(kLineUnlink, kUnit);
    }
}

/// True when this call made the object, or somebody else did between its two attempts.
bool CVQSharedMemory::openOrCreate(bool recreate) {
    mDescriptor = openObject(mName, 0);
    if (recreate && mDescriptor != -1) {
        closeDescriptor();
        unlink();
    }
    if (mDescriptor != -1 || (!recreate && errno != ENOENT)) {
        return false;
    }
    mDescriptor = openObject(mName, O_CREAT);
    return mDescriptor != -1;
}

/// True when this call made the object: of many at the same time one does.
bool CVQSharedMemory::createOrOpen() {
    for (;;) {
        mDescriptor = openObject(mName, O_CREAT | O_EXCL);
        if (mDescriptor != -1 || errno != EEXIST) {
            return mDescriptor != -1;
        }
        mDescriptor = openObject(mName, 0);
        if (mDescriptor != -1 || errno != ENOENT) {
            return false;
        }
        // It has gone between the two. The next one may be another process's again.
    }
}

void* CVQSharedMemory::mapDescriptor(bool readOnly, int flags) const {
    void* const address =
        mmap(nullptr, mSize, readOnly ? PROT_READ : PROT_READ | PROT_WRITE, MAP_SHARED | flags, mDescriptor, 0);
    return address != MAP_FAILED ? address : nullptr;
}

/// `errno` stays the reason of what failed before.
void CVQSharedMemory::closeDescriptor() {
    const VQSharedMemoryAccess::SVQErrnoSafe reason;
    VQSharedMemoryAccess::close(mDescriptor);
    mDescriptor = -1;
}
