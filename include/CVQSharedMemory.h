// CVQSharedMemory: a named shared-memory object that one call opens, or makes, and maps.
//   Units    the size in bytes, 32 bits.
//   Shape    address, name (a copy), size, descriptor (open within `map` only).
//   Names    see VQSharedMemoryAccess.
//   Errors   both `map` forms return whether this call made the object; whether it is mapped, `getAddress` tells. A
//            failure is a log line, and one of a call that should not fail an assertion as well; the reason is in
//            `errno`. A size of 0 and a null name are assertions in the constructor, a missing name in each
//            operation.
//   Limits   an object that is there keeps its size, also when it is smaller than this one's: see
//            VQSharedMemoryAccess for what touching the rest does.
//   Lifetime the object stays in the system until it is unlinked, whoever ends: also when its users were killed,
//            and also when `map` made it and could not size or map it.
//   Threads  one thread at a time. Of many processes that map the same name at the same time, `map2` tells one that
//            it made the object; `map` may tell several.
//   Kept     sharedmem-created: the result of `map` and `map2` is about the object and not about the mapping.
#pragma once

#include <VQExport.h>

class VQ_EXPORT CVQSharedMemory {
public:
    CVQSharedMemory(const char* name, unsigned size);
    ~CVQSharedMemory();
    CVQSharedMemory(const CVQSharedMemory&) = delete;
    CVQSharedMemory& operator=(const CVQSharedMemory&) = delete;

    /// `recreate` unlinks what is there and makes a new object. `zeroFill` fills an object that this call made,
    /// except where it is zero already: without memory of its own yet, and through a read-only mapping. False when
    /// already mapped. Kept: sharedmem-created.
    bool map(bool recreate, bool readOnly, bool zeroFill);
    /// Never touches the memory. `initialise`: without it memory that is new to the object may hold anything.
    /// `lazy`: memory is taken when it is first touched. False when already mapped. Kept: sharedmem-created.
    bool map2(bool readOnly, bool initialise, bool lazy);
    void unmap();
    /// Takes the name away; an object that has none any more is no failure.
    void unlink();

    /// Null while not mapped.
    void* getAddress() const noexcept { return mAddress; }
    unsigned getSize() const noexcept { return mSize; }
    /// Null when the constructor got none.
    const char* getName() const noexcept { return mName; }

private:
    friend class CVQReferencedSharedMemory;

    /// `map`, which also tells how many bytes the object has that was mapped; 0 when none was. `expectNone`, not with
    /// `recreate`: an object counts as created only if nobody else has made it.
    bool map(bool recreate, bool readOnly, bool zeroFill, bool expectNone, unsigned long long& objectSize);
    bool openOrCreate(bool recreate);
    bool createOrOpen();
    void* mapDescriptor(bool readOnly, int flags) const;
    void closeDescriptor();

    void* mAddress = nullptr;
    char* mName = nullptr;
    unsigned mSize;
    int mDescriptor = -1;
};
