#include <CVQRawMemoryBuffer.h>

#include <VQMemory.h>
#include <stream/toLength.h>

#include <new>

CVQRawMemoryBuffer::CVQRawMemoryBuffer(std::size_t capacity, AllocateFunction allocate) : mBlock(nullptr) {
    static_assert(sizeof(SBlock) == 8, "the capacity leads the block, the bytes follow at 8");
    static_assert(sizeof(CVQRawMemoryBuffer) == sizeof(void*), "one pointer");
    constexpr std::size_t kMaxCapacity = 0xFFFFFFFFU - sizeof(SBlock);

    const std::size_t adjusted = adjustCapacity(capacity);
    if (adjusted > kMaxCapacity) {
        return;
    }
    const unsigned int size = toLength(adjusted + sizeof(SBlock));
    void* const raw = allocate != nullptr ? allocate(size) : VQMemory::allocChecked(size);
    if (raw != nullptr) {
        mBlock = new (raw) SBlock{toLength(adjusted), allocate == nullptr};
    }
}

CVQRawMemoryBuffer::~CVQRawMemoryBuffer() {
    if (mBlock != nullptr && mBlock->isOwned != 0) {
        VQMemory::release(mBlock);
    }
}
