// IVQIStream: a source of bytes, and the input operators of the primitive types.
//
//   Units    counts in bytes, 32 bits. Where they enter they are std::size_t (on the target the same), so that a
//            wider one is refused and never cut. The unit of the time-out of `waitToRead` belongs to the concrete
//            stream.
//   Shape    a value is read as the bytes that it occupies in memory, in the host's byte order: no tag, no
//            padding. A length or count stands before the bytes that it counts, as an unsigned 32-bit word.
//   Errors   a stream has no error state: `read` returns how many bytes came, and who must know whether a value
//            arrived whole compares. The operators below do not: bytes that did not come leave the target as it
//            was.
//   Threads  one thread at a time. Nothing here locks or allocates.
//   Kept     stream-skip-signed: skipping 2^31 bytes or more does nothing.
//            stream-skip-short: skipping goes on after a short read or write (docs/kept.md).
//
// Reading is const: the position that it moves is the stream's own affair. The order of the virtual operations is
// binary interface. All of them are pure or inline, so that a class derived from this one, with run-time type
// information or without, finds the table and the type in its own program.
#pragma once

#include <VQExport.h>

#include <cstddef>

class VQ_EXPORT IVQIStream {
public:
    virtual ~IVQIStream() = default;

    /// True when a read can proceed now. The library's own streams ignore the time-out.
    virtual bool waitToRead(int timeout) = 0;

    /// Called to announce that bytes are there; the library's own streams do nothing.
    virtual void ready() = 0;

    /// Moves the read position to the next multiple of the given number of bytes, in streams that keep values
    /// aligned. By default, and in every stream of the library, nothing moves.
    virtual void align(unsigned int /*bytes*/) const {}

    /// Discards `count` bytes: ceil(count / 512) reads of at most 512 bytes, whatever each of them returns.
    virtual void readSkip(unsigned int count) const { skipByReading(count); }

    /// Reads up to `count` bytes into `destination` and returns how many came: none when `count` exceeds 32 bits.
    unsigned int read(void* destination, std::size_t count) const {
        return count <= 0xFFFFFFFFU ? doRead(destination, count & 0xFFFFFFFFU) : 0;
    }

protected:
    IVQIStream() = default;
    IVQIStream(const IVQIStream&) = default;
    IVQIStream& operator=(const IVQIStream&) = default;

    /// The work of `read`.
    virtual unsigned int doRead(void* destination, unsigned int count) const = 0;

private:
    void skipByReading(unsigned int count) const;
};

/// 4 bytes.
inline const IVQIStream& operator>>(const IVQIStream& stream, unsigned int& value) {
    stream.read(&value, sizeof value);
    return stream;
}

/// 8 bytes, on the little-endian target the low word first.
inline const IVQIStream& operator>>(const IVQIStream& stream, unsigned long long& value) {
    stream.read(&value, sizeof value);
    return stream;
}

/// 1 byte, as write(&value, 1) writes it; << of a char writes 4.
inline const IVQIStream& operator>>(const IVQIStream& stream, char& value) {
    stream.read(&value, sizeof value);
    return stream;
}

static_assert(sizeof(int) == 4 && sizeof(long long) == 8, "the widths that travel");
