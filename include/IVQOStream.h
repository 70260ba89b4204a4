// IVQOStream: a sink for bytes, and the output operators of the primitive types.
//
//   Units    counts in bytes, 32 bits, as for IVQIStream. The unit of the time-out of `waitToWrite` belongs to
//            the concrete stream.
//   Shape    as IVQIStream reads it: the bytes of the value in memory, in the host's byte order.
//   Errors   a stream has no error state: `write` returns how many bytes were taken. The operators below do not
//            look.
//   Threads  one thread at a time. Nothing here locks or allocates.
//   Kept     stream-skip-signed: skipping 2^31 bytes or more does nothing.
//            stream-skip-short: skipping goes on after a short read or write (docs/kept.md).
//
// A type that travels in messages between processes offers two static members beside its operators,
//     static IVQOStream& toQRVStream(IVQOStream& stream, const T& value);
//     static const IVQIStream& fromQRVStream(const IVQIStream& stream, T& value);
// which call `align(4)` and then move the bytes of the operator. CVQString and CVQByteStream differ, see there.
//
// The order of the virtual operations is binary interface. All of them are pure or inline, so that a class
// derived from this one, with run-time type information or without, finds the table and the type in its own
// program.
#pragma once

#include <VQExport.h>

#include <cstddef>

class VQ_EXPORT IVQOStream {
public:
    virtual ~IVQOStream() = default;

    /// Pushes what the stream still holds on to where it goes.
    virtual void flush() = 0;

    /// True when a write can proceed now. The library's own streams ignore the time-out, or pass it on.
    virtual bool waitToWrite(int timeout) = 0;

    /// Pads the write position to the next multiple of the given number of bytes, in streams that keep values
    /// aligned. By default, and in every stream of the library, nothing is written.
    virtual void align(unsigned int /*bytes*/) {}

    /// Writes `count` zero bytes: ceil(count / 512) writes of at most 512 bytes, whatever each of them returns.
    virtual void writeSkip(unsigned int count) { skipByWriting(count); }

    /// Writes up to `count` bytes from `source` and returns how many were taken: none when `count` exceeds 32 bits.
    unsigned int write(const void* source, std::size_t count) {
        return count <= 0xFFFFFFFFU ? doWrite(source, count & 0xFFFFFFFFU) : 0;
    }

protected:
    IVQOStream() = default;
    IVQOStream(const IVQOStream&) = default;
    IVQOStream& operator=(const IVQOStream&) = default;

    /// The work of `write`.
    virtual unsigned int doWrite(const void* source, unsigned int count) = 0;

private:
    void skipByWriting(unsigned int count);
};

/// 4 bytes.
inline IVQOStream& operator<<(IVQOStream& stream, const unsigned int& value) {
    stream.write(&value, sizeof value);
    return stream;
}

/// 4 bytes, two's complement. Also what becomes of a char, a bool or a short: write single bytes with write(). It is read
/// as an unsigned int.
inline IVQOStream& operator<<(IVQOStream& stream, const int& value) {
    stream.write(&value, sizeof value);
    return stream;
}

/// 8 bytes, on the little-endian target the low word first.
inline IVQOStream& operator<<(IVQOStream& stream, const unsigned long long& value) {
    stream.write(&value, sizeof value);
    return stream;
}

static_assert(sizeof(int) == 4 && sizeof(long long) == 8, "the widths that travel");
