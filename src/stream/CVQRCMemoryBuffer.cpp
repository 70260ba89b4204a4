#include <CVQRCMemoryBuffer.h>

#include <CVQAsserter.h>
#include <VQMemory.h>
#include <stream/toLength.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace {

constexpr char kUnit[] = "CVQRCMemoryBuffer";
constexpr unsigned kLineShortWrite = 210;
constexpr unsigned kLineSharedWrite = 264;

constexpr std::size_t kHeaderSize = 16;
constexpr std::size_t kPayloadUnit = 8;

/// The allocation behind a block, for sizes up to CVQRCMemoryBuffer::kMaxSize.
constexpr std::size_t allocationOf(std::size_t size) {
    return kHeaderSize + (size + kPayloadUnit - 1) / kPayloadUnit * kPayloadUnit;
}

static_assert(allocationOf(CVQRCMemoryBuffer::kMaxSize) <= 0xFFFFFFF0U, "and 8 bytes of the allocator's own");

}  // namespace

VQ_CONSTINIT const CVQRCMemoryBuffer::SBlock CVQRCMemoryBuffer::sNullBuffer{1, 0, nullptr};

CVQRCMemoryBuffer::SBlock* CVQRCMemoryBuffer::allocateBlock(std::size_t size) {
    static_assert(sizeof(SBlock) == (sizeof(void*) == 4 ? 12 : 16), "count, size, data");
    static_assert(sizeof(SBlock) <= kHeaderSize && kHeaderSize % kPayloadUnit == 0, "the payload follows aligned");
    static_assert(sizeof(CVQRCMemoryBuffer) == sizeof(void*), "one pointer");
    if (size == 0 || size > kMaxSize) {
        return emptyBlock();
    }
    return placeHeader(VQMemory::allocChecked(allocationOf(size)), size);
}

CVQRCMemoryBuffer::SBlock* CVQRCMemoryBuffer::placeHeader(void* allocation, std::size_t size) {
    return new (allocation) SBlock{1, toLength(size), static_cast<unsigned char*>(allocation) + kHeaderSize};
}

void CVQRCMemoryBuffer::dropBlock() noexcept {
    SBlock* const block = mBlock;
    mBlock = emptyBlock();
    if (!VQAtomic::testDecrementPrivate(block->referenceCount)) {
        VQMemory::release(block);
    }
}

bool CVQRCMemoryBuffer::takeOwnBlock(std::size_t size) {
    CVQRCMemoryBuffer own(size);
    if (own.getSize() != size) {
        return false;
    }
    const std::size_t kept = std::min<std::size_t>(size, getSize());
    if (kept != 0) {
        std::memcpy(own.mBlock->data, mBlock->data, kept);
    }
    if (kept != size) {
        std::memset(own.mBlock->data + kept, 0, size - kept);
    }
    exchange(own);
    return true;
}

bool CVQRCMemoryBuffer::growBlock(std::size_t size) {
    if (mBlock == &sNullBuffer || isShared()) {
        return takeOwnBlock(size);
    }
    const std::size_t kept = getSize();
    // Asked for less when the caller still saw another owner, who has let go of the block since.
    if (size <= kept) {
        return true;
    }
    if (size > kMaxSize) {
        return false;
    }
    mBlock = placeHeader(VQMemory::reallocChecked(mBlock, allocationOf(size)), size);
    std::memset(mBlock->data + kept, 0, size - kept);
    return true;
}

unsigned char* CVQRCMemoryBuffer::getBuffer() {
    if (mBlock == nullptr) {
        return nullptr;
    }
    if (VQ_UNLIKELY(isShared())) {
        // Kept: rcbuffer-shared-write. Copies of ring buffers work on the bytes that they share.
        doCheapAssert(kLineSharedWrite, kUnit);
    }
    return mBlock->data;
}

bool CVQRCMemoryBuffer::operator==(const CVQRCMemoryBuffer& other) const noexcept {
    if (mBlock == other.mBlock) {
        return true;
    }
    if (mBlock == nullptr || other.mBlock == nullptr || mBlock->data == nullptr || other.mBlock->data == nullptr) {
        return false;
    }
    return mBlock->size == other.mBlock->size && std::memcmp(mBlock->data, other.mBlock->data, mBlock->size) == 0;
}

IVQOStream& operator<<(IVQOStream& stream, const CVQRCMemoryBuffer& buffer) {
    // A handle of our own: the stream may be the very one whose storage this is, and grow meanwhile.
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
    const CVQRCMemoryBuffer kept(buffer);
    const unsigned int size = kept.getSize();
    stream << size;
    if (size != 0 && stream.write(kept.getData(), size) != size) {
        doCheapAssert(kLineShortWrite, kUnit);
    }
    return stream;
}

const IVQIStream& operator>>(const IVQIStream& stream, CVQRCMemoryBuffer& buffer) {
    unsigned int size = 0;
    stream >> size;
    if (size == 0) {
        buffer.removeRef();
        return stream;
    }
    CVQRCMemoryBuffer arriving(size);
    if (arriving.getSize() == 0) {
        return stream;
    }
    unsigned char* const data = arriving.mBlock->data;
    const unsigned int arrived = std::min(stream.read(data, size), size);
    std::memset(data + arrived, 0, size - arrived);
    buffer.exchange(arriving);
    return stream;
}
