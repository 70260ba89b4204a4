// CVQRawMemoryBuffer: one unshared block of bytes that knows its capacity, from an allocator of the caller's
// choice.
//
//   Units    capacities in bytes, 32 bits, at least 8; std::size_t where they enter.
//   Shape    one pointer. The block: the capacity in 32 bits, 4 bytes of the buffer's own, then the bytes, so
//            that they are aligned as well as the block is, up to 8.
//   Errors   a capacity above 0xFFFFFFF7 does not fit a block of 32-bit length: the buffer holds nothing, as when
//            the caller's function returns null. `getData()` is null then and `getCapacity()` 0.
//   Threads  one thread at a time.
//
// The destructor releases the general-purpose allocator's block. A block from a caller's function stays: no
// function to release it is known, and often, as in an arena, there is none.
#pragma once

#include <VQExport.h>

#include <cstddef>

class VQ_EXPORT CVQRawMemoryBuffer {
public:
    using AllocateFunction = void* (*)(unsigned int size);

    /// The capacity that a request gets: the request, but at least 8.
    static std::size_t adjustCapacity(std::size_t capacity) { return capacity < 8 ? 8 : capacity; }

    /// From VQMemory::allocChecked.
    explicit CVQRawMemoryBuffer(std::size_t capacity) : CVQRawMemoryBuffer(capacity, nullptr) {}

    /// From `allocate`, which is asked for the capacity and 8 bytes more, aligned to at least 4. Null: as above.
    CVQRawMemoryBuffer(std::size_t capacity, AllocateFunction allocate);

    CVQRawMemoryBuffer(const CVQRawMemoryBuffer&) = delete;
    CVQRawMemoryBuffer& operator=(const CVQRawMemoryBuffer&) = delete;
    ~CVQRawMemoryBuffer();

    unsigned int getCapacity() const { return mBlock == nullptr ? 0 : mBlock->capacity; }

    /// The bytes, uninitialised at first.
    unsigned char* getData() { return mBlock == nullptr ? nullptr : mBlock->data(); }

private:
    struct SBlock {
        unsigned int capacity;
        unsigned int isOwned;

        unsigned char* data() { return reinterpret_cast<unsigned char*>(this + 1); }
    };

    SBlock* mBlock;
};
