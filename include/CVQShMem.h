// CVQShMem: a named shared-memory object: made or opened, then mapped, in separate steps.
//   Units    the size in bytes, 32 bits.
//   Shape    name (a copy), size, address, descriptor. The descriptor is open between `create` or `attach` and
//            `map`.
//   Names    see VQSharedMemoryAccess.
//   Errors   stated with each operation; the reason of a failure is in `errno`. A size of 0 and a name that is null
//            or empty are assertions in the constructor; without a name nothing can be opened (EINVAL).
//   Lifetime the object stays in the system until it is unlinked, whoever ends: also when its users were killed.
//   Threads  one thread at a time. Of many processes that create the same name at the same time one is told
//            CREATED.
//   Kept     shmem-descriptor-zero: of the second step of `create` only descriptor 0 is taken for a failure.
#pragma once

#include <VQExport.h>

class VQ_EXPORT CVQShMem {
    struct SVQBoolHelper {
        int x;
    };

public:
    /// What `create` did.
    enum CreateResult : int { CREATED = 0, OPENED = 1, FAILED = 2 };

    CVQShMem(const char* name, unsigned size);
    ~CVQShMem();
    CVQShMem(const CVQShMem&) = delete;
    CVQShMem& operator=(const CVQShMem&) = delete;

    /// Makes the object with its size (CREATED), or opens the one that is there (OPENED), with `setSize` giving it
    /// this size. Kept: shmem-descriptor-zero. So OPENED is no promise: `map` tells.
    CreateResult create(bool setSize);
    /// Opens the object that is there.
    bool attach();
    /// Maps the whole size in place of a mapping that is there, and closes the descriptor; when that fails the
    /// descriptor stays open. `mode`: a VQSharedMemoryAccess::MapMode.
    bool map(unsigned mode);
    void unmap();
    bool unlink();

    /// Null while not mapped.
    void* getAddress() const noexcept { return mAddress; }
    unsigned getSize() const noexcept { return mSize; }
    /// Null when the constructor got none.
    const char* getName() const noexcept { return mName; }

    /// True while mapped.
    operator int SVQBoolHelper::*() const noexcept { return mAddress != nullptr ? &SVQBoolHelper::x : nullptr; }

private:
    void closeDescriptor();

    char* mName = nullptr;
    unsigned mSize;
    void* mAddress = nullptr;
    int mDescriptor = -1;
};
