// CVQByteStream: a stream in memory. Values are written behind each other and read back in the same order; the
// bytes are handed on as a CVQBuffer, by a message or in a file.
//
//   Units    lengths, capacities and counts in bytes, 32 bits; std::size_t where they enter.
//   Shape    the storage (a CVQRCMemoryBuffer, its size is the capacity), length, read position, end-of-data
//            flag. As a stream: the length in 32 bits, then the used bytes. `toQRVStream` calls `align(4)` and
//            writes the storage instead, whole: capacity and all its bytes.
//   Growth   to the first of 32, 64, 128, ... that is enough; exactly to size in `reserve` and `readFromIStream`,
//            and when a write ends the sharing of a block that was large enough.
//   Sharing  copies and buffers share the block. A write to a shared block takes a private copy first.
//   Errors   a read past the end delivers what is there, fills up with zeros and sets the end-of-data flag: from
//            then on every read returns 0, until the stream is assigned to or read with `operator>>`. Misuse is a
//            cheap assertion with the unit's name and a fixed line, and the operation goes on or returns 0. A
//            stream cannot grow beyond `CVQRCMemoryBuffer::kMaxSize`: such a write takes nothing (line 156).
//   Bytes    the part of the capacity that nobody wrote is zero, so that `toQRVStream` carries nothing off the
//            heap; bytes of a shared block are as their owner left them. A length above the capacity (given as
//            such, or left by a forced `reserve`) never leads past the block: reads report what is missing (lines
//            186 and 197) and leave it out, the stream's own form and `toString` take it for zeros.
//   Threads  one thread at a time. The block may be shared with streams and buffers of other threads.
//   Kept     bytestream-length-as-is: the length given with a block is not checked against it.
//            bytestream-assign-empty: assigning an empty stream keeps the block.
//            bytestream-cow-shrinks: a write that ends sharing sizes the private block exactly.
//            bytestream-force-shrinks: a forced `reserve` cuts the block and leaves length and position.
//            bytestream-read-keeps-length: `operator>>` keeps the old length when none arrives.
//            bytestream-qrv-capacity: the QRV form is the whole storage, the operator's the used bytes.
//            bytestream-qrv-keeps-flag: `fromQRVStream` leaves the end-of-data flag (docs/kept.md).
#pragma once

#include <CVQBuffer.h>
#include <CVQRCMemoryBuffer.h>
#include <IVQIOStream.h>
#include <VQExport.h>

#include <cstring>

class CVQString;

class VQ_EXPORT CVQByteStream : public IVQIOStream {
public:
    constexpr CVQByteStream() = default;

    /// An empty stream that takes `capacity` bytes before it grows.
    explicit CVQByteStream(std::size_t capacity) { reserve(capacity, false); }

    /// Shares the block; `length` is taken as it is (Kept: bytestream-length-as-is). One of more than 32 bits is
    /// none.
    CVQByteStream(const CVQRCMemoryBuffer& storage, std::size_t length)
        : mStorage(storage), mLength(length <= 0xFFFFFFFFU ? length & 0xFFFFFFFFU : 0) {}

    /// Shares the buffer's block, all of it in use.
    CVQByteStream(const CVQBuffer& buffer) : CVQByteStream(buffer.getMemoryBuffer(), buffer.getSize()) {}

    /// Shares the block. The copy reads from the beginning.
    CVQByteStream(const CVQByteStream& other) : IVQIOStream(), mStorage(other.mStorage), mLength(other.mLength) {}

    /// Shares the block, or, when there is nothing in `other`, keeps its own. Reads from the beginning.
    CVQByteStream& operator=(const CVQByteStream& other);
    CVQByteStream& operator=(const CVQBuffer& buffer);

    ~CVQByteStream() override {
        mLength = 0;
        mReadPosition = 0;
    }

    const unsigned char* getData() const { return mStorage.getData(); }
    const CVQRCMemoryBuffer& getMemoryBuffer() const { return mStorage; }
    unsigned int getLength() const { return mLength; }
    unsigned int getReadPosition() const { return mReadPosition; }
    unsigned int getCapacity() const { return mStorage.getSize(); }
    bool isEndOfData() const { return mEndOfData != 0; }

    /// A block of exactly `capacity` bytes, with what fits of the old block's. Without `force` only to grow; with
    /// it the block is private afterwards, and may be shorter than the length.
    void reserve(std::size_t capacity, bool force);
    void reserve(std::size_t capacity) { reserve(capacity, false); }

    /// Appends up to `count` bytes read from `stream`; returns how many came.
    unsigned int readFromIStream(const IVQIStream& stream, std::size_t count);

    /// Reads the text up to the next zero byte, which is consumed, or up to the end.
    CVQString toString() const;

    /// Appends the used bytes, whatever the read position, as "%.2X " each.
    void dump(CVQString& out) const;

    /// Equal are streams with the same used bytes; positions and capacities do not matter.
    bool operator==(const CVQByteStream& other) const;
    bool operator!=(const CVQByteStream& other) const { return !(*this == other); }

    bool waitToRead(int /*timeout*/) override { return mReadPosition < mLength; }
    void ready() override {}
    bool waitToWrite(int /*timeout*/) override { return true; }
    void flush() override {}

    /// Moves the read position; past the end it stops there and sets the end-of-data flag.
    void readSkip(unsigned int count) const override { skip(count); }

    static IVQOStream& toQRVStream(IVQOStream& stream, const CVQByteStream& value);
    static const IVQIStream& fromQRVStream(const IVQIStream& stream, CVQByteStream& value);

protected:
    /// What nearly every read needs, in line: `count` bytes are there.
    unsigned int doRead(void* destination, unsigned int count) const override {
        const CVQRCMemoryBuffer::SBlock& block = *mStorage.mBlock;
        const unsigned int begin = mReadPosition;
        unsigned int end = 0;
        if (VQ_LIKELY(!__builtin_add_overflow(begin, count, &end) && end <= mLength && end <= block.size &&
                      count != 0 && destination != nullptr && mEndOfData == 0)) {
            mReadPosition = end;
            copy(destination, block.data + begin, count);
            return count;
        }
        return readAtEnd(destination, count);
    }

    /// What nearly every write needs, in line: the block is this stream's alone and has room.
    unsigned int doWrite(const void* source, unsigned int count) override {
        const CVQRCMemoryBuffer::SBlock& block = *mStorage.mBlock;
        const unsigned int begin = mLength;
        unsigned int end = 0;
        if (VQ_LIKELY(!__builtin_add_overflow(begin, count, &end) && end <= block.size && count != 0 &&
                      source != nullptr && !mStorage.isShared())) {
            mLength = end;
            copy(block.data + begin, source, count);
            return count;
        }
        return writeGrowing(source, count);
    }

private:
    friend VQ_EXPORT const IVQIStream& operator>>(const IVQIStream& stream, CVQByteStream& value);

    /// memcpy, with the widths of the primitive types as plain loads and stores.
    static void copy(void* destination, const void* source, unsigned int count) {
        switch (count) {
        case 1:
            std::memcpy(destination, source, 1);
            break;
        case 4:
            std::memcpy(destination, source, 4);
            break;
        case 8:
            std::memcpy(destination, source, 8);
            break;
        default:
            std::memcpy(destination, source, count);
            break;
        }
    }

    unsigned int readAtEnd(void* destination, unsigned int count) const;
    unsigned int writeGrowing(const void* source, unsigned int count);
    void skip(unsigned int count) const;

    /// The used bytes that the block holds: all of them, unless the length is above the capacity.
    unsigned int heldLength() const { return mLength < getCapacity() ? mLength : getCapacity(); }

    CVQRCMemoryBuffer mStorage;
    unsigned int mLength = 0;
    mutable unsigned int mReadPosition = 0;
    mutable unsigned int mEndOfData = 0;
};

VQ_EXPORT IVQOStream& operator<<(IVQOStream& stream, const CVQByteStream& value);
VQ_EXPORT const IVQIStream& operator>>(const IVQIStream& stream, CVQByteStream& value);
