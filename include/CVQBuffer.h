// CVQBuffer: a value of bytes. Copies share one block until one of them is changed.
//
//   Units    sizes, counts and offsets in bytes, 32 bits; std::size_t where they enter.
//   Shape    one CVQRCMemoryBuffer. As a stream exactly its form; `toQRVStream` and `fromQRVStream` call
//            `align(4)` first.
//   Errors   a size above `CVQRCMemoryBuffer::kMaxSize` cannot be had: the buffer stays as it was, and `copyTo`
//            returns 0. Truncating a shared buffer is a cheap assertion (line 79), after which it is done.
//   Threads  one thread at a time; buffers that share a block may belong to different threads.
//   Bytes    what `resize`, `reserve`, `truncate` and `copyTo` add and do not fill is zero; the bytes of
//            `CVQBuffer(size)` are not initialised.
//   Kept     buffer-truncate-shared: truncating a shared buffer shortens it for all who share it.
//            buffer-reserve-size: `reserve` changes the size; there is no capacity beside it (docs/kept.md).
#pragma once

#include <CVQRCMemoryBuffer.h>

class CVQByteStream;

class VQ_EXPORT CVQBuffer {
public:
    constexpr CVQBuffer() = default;

    /// `size` uninitialised bytes.
    explicit CVQBuffer(std::size_t size) : mMemory(size) {}

    CVQBuffer(const CVQBuffer&) = default;
    CVQBuffer& operator=(const CVQBuffer&) = default;
    ~CVQBuffer() = default;

    /// The used bytes of the stream, in a block of their own; the read position does not matter. Empty when the
    /// stream has a length that no block can have.
    CVQBuffer(const CVQByteStream& stream);
    CVQBuffer& operator=(const CVQByteStream& stream);

    unsigned int getSize() const { return mMemory.getSize(); }
    const unsigned char* getData() const { return mMemory.getData(); }
    const CVQRCMemoryBuffer& getMemoryBuffer() const { return mMemory; }

    /// A new block of `size` bytes with as many of the old ones as fit. Without `force` the same size does nothing;
    /// with it the buffer has a block of its own afterwards.
    void resize(std::size_t size, bool force);
    void resize(std::size_t size) { resize(size, false); }

    /// At least `size` bytes: as `resize`, but never fewer than before.
    void reserve(std::size_t size, bool force);
    void reserve(std::size_t size) { reserve(size, false); }

    /// Cuts the buffer to `size` bytes in the block that it has; a larger size is `resize(size)`.
    void truncate(std::size_t size);

    /// Copies up to `count` bytes from `offset` on out of the buffer; returns how many there were. 0 for null.
    unsigned int copyFrom(void* destination, std::size_t count, std::size_t offset) const;

    /// Copies `count` bytes into the buffer at `offset`; the buffer grows as needed and stops sharing. Returns
    /// `count`, or 0 when `source` is null or no block can hold them. `source` may lie in this buffer.
    unsigned int copyTo(const void* source, std::size_t count, std::size_t offset);

    bool operator==(const CVQBuffer& other) const { return mMemory == other.mMemory; }
    bool operator!=(const CVQBuffer& other) const { return mMemory != other.mMemory; }

    static IVQOStream& toQRVStream(IVQOStream& stream, const CVQBuffer& buffer);
    static const IVQIStream& fromQRVStream(const IVQIStream& stream, CVQBuffer& buffer);

private:
    friend VQ_EXPORT const IVQIStream& operator>>(const IVQIStream& stream, CVQBuffer& buffer);

    CVQRCMemoryBuffer mMemory;
};

VQ_EXPORT IVQOStream& operator<<(IVQOStream& stream, const CVQBuffer& buffer);
VQ_EXPORT const IVQIStream& operator>>(const IVQIStream& stream, CVQBuffer& buffer);
