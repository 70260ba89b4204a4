#include <CVQShMem.h>

#include <CVQAsserter.h>
#include <VQSharedMemoryAccess.h>
#include <shm/copyName.h>

namespace {

constexpr char kUnit[] = "CVQShMem";
constexpr unsigned kLineSize = 31;
constexpr unsigned kLineName = 37;

}  // namespace

CVQShMem::CVQShMem(const char* name, unsigned size) : mSize(size) {
    if (size == 0) {
        doCheapAssert(kLineSize, kUnit);
    }
    if (name == nullptr || *name == '\0') {
        doCheapAssert(kLineName, kUnit);
        return;
    }
    mName = copyName(name);
}

CVQShMem::~CVQShMem() {
    unmap();
    closeDescriptor();
    delete[] mName;
}

CVQShMem::CreateResult CVQShMem::create(bool setSize) {
    closeDescriptor();
    mDescriptor = VQSharedMemoryAccess::open(mName, mSize, VQSharedMemoryAccess::OPEN_CREATE_EXCLUSIVE);
    if (mDescriptor != -1) {
        return CREATED;
    }
    if (errno != EEXIST) {
        return FAILED;
    }
    const unsigned mode = VQSharedMemoryAccess::OPEN_CREATE | (setSize ? VQSharedMemoryAccess::OPEN_SET_SIZE : 0U);
    mDescriptor = VQSharedMemoryAccess::open(mName, mSize, mode);
    // Kept: shmem-descriptor-zero. Callers ask `map` whether the object can be used.
    return mDescriptor == 0 ? FAILED : OPENED;
}

bool CVQShMem::attach() {
    closeDescriptor();
    mDescriptor = VQSharedMemoryAccess::open(mName, mSize, VQSharedMemoryAccess::OPEN_EXISTING);
    return mDescriptor != -1;
}

bool CVQShMem::map(unsigned mode) {
    unmap();
    mAddress = VQSharedMemoryAccess::map(mDescriptor, mSize, 0, mode);
    if (mAddress == nullptr) {
        return false;
    }
    closeDescriptor();
    return true;
}

void CVQShMem::unmap() {
    if (mAddress != nullptr) {
        VQSharedMemoryAccess::unmap(mAddress, mSize);
        mAddress = nullptr;
    }
}

bool CVQShMem::unlink() {
    return VQSharedMemoryAccess::unlink(mName);
}

void CVQShMem::closeDescriptor() {
    if (mDescriptor != -1) {
        VQSharedMemoryAccess::close(mDescriptor);
        mDescriptor = -1;
    }
}
