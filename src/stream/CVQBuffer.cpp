#include <CVQBuffer.h>

#include <CVQAsserter.h>
#include <CVQByteStream.h>
#include <stream/toLength.h>

#include <algorithm>
#include <cstring>

namespace {

constexpr char kUnit[] = "CVQBuffer";
constexpr unsigned kLineTruncate = 79;

}  // namespace

CVQBuffer::CVQBuffer(const CVQByteStream& stream) : mMemory(stream.getMemoryBuffer()) {
    resize(stream.getLength(), mMemory.isShared());
    if (getSize() != stream.getLength()) {
        mMemory.removeRef();
    }
}

CVQBuffer& CVQBuffer::operator=(const CVQByteStream& stream) {
    return *this = CVQBuffer(stream);
}

void CVQBuffer::resize(std::size_t size, bool force) {
    if (size != getSize() || force) {
        mMemory.takeOwnBlock(size);
    }
}

void CVQBuffer::reserve(std::size_t size, bool force) {
    if (size > getSize() || force) {
        // Kept: buffer-reserve-size. Users size a buffer this way before they copy into it.
        resize(std::max<std::size_t>(size, getSize()), force);
    }
}

void CVQBuffer::truncate(std::size_t size) {
    if (VQ_UNLIKELY(mMemory.isShared())) {
        // Kept: buffer-truncate-shared. The report is all; the block is shortened for everyone.
        doCheapAssert(kLineTruncate, kUnit);
    }
    if (size < getSize()) {
        mMemory.mBlock->size = toLength(size);
    } else {
        resize(size);
    }
}

unsigned int CVQBuffer::copyFrom(void* destination, std::size_t count, std::size_t offset) const {
    if (destination == nullptr || offset >= getSize()) {
        return 0;
    }
    const std::size_t copied = std::min(getSize() - offset, count);
    std::memcpy(destination, getData() + offset, copied);
    return toLength(copied);
}

unsigned int CVQBuffer::copyTo(const void* source, std::size_t count, std::size_t offset) {
    std::size_t end = 0;
    if (source == nullptr || __builtin_add_overflow(offset, count, &end) || end > CVQRCMemoryBuffer::kMaxSize) {
        return 0;
    }
    const bool shared = mMemory.isShared();
    const bool moves = shared || end > getSize();
    // Where the bytes move to another block, `source` may lie in the one that they leave.
    const CVQRCMemoryBuffer left = moves ? mMemory : CVQRCMemoryBuffer();
    reserve(end, shared);
    if (count != 0) {
        std::memmove(mMemory.mBlock->data + offset, source, count);
    }
    return toLength(count);
}

IVQOStream& CVQBuffer::toQRVStream(IVQOStream& stream, const CVQBuffer& buffer) {
    stream.align(4);
    return stream << buffer;
}

const IVQIStream& CVQBuffer::fromQRVStream(const IVQIStream& stream, CVQBuffer& buffer) {
    stream.align(4);
    return stream >> buffer;
}

IVQOStream& operator<<(IVQOStream& stream, const CVQBuffer& buffer) {
    return stream << buffer.getMemoryBuffer();
}

const IVQIStream& operator>>(const IVQIStream& stream, CVQBuffer& buffer) {
    return stream >> buffer.mMemory;
}

static_assert(sizeof(CVQBuffer) == sizeof(void*), "one handle");
