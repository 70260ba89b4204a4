// CVQBufferReader: a read position over bytes that the caller owns and keeps.
//
//   Units    sizes, counts and offsets in bytes, 32 bits; sizes and counts are std::size_t where they enter.
//   Shape    begin, size (32 bits), position.
//   Errors   a refused seek sets errno to EINVAL, returns false and moves nothing. A direction outside the table
//            is refused like SEEK_DIR_NONE. A reader over null, over no bytes or over more than 32 bits can count
//            is a cheap assertion (line 120); it is built as a reader over no bytes.
//   Threads  one thread at a time.
#pragma once

#include <VQExport.h>

#include <cstddef>

class VQ_EXPORT CVQBufferReader {
public:
    /// What an offset counts from: the begin, the position, the end. SEEK_DIR_NONE is always refused.
    enum SeekDirection : unsigned int { SEEK_DIR_SET, SEEK_DIR_CUR, SEEK_DIR_END, SEEK_DIR_NONE };

    CVQBufferReader(const void* data, std::size_t size);

    unsigned int tell() const { return static_cast<unsigned int>(mPosition - mBegin); }

    /// Moves to `offset` from the begin, the position or the end.
    bool seek(int offset, SeekDirection direction);

    static bool seek_set(CVQBufferReader& reader, int offset);
    static bool seek_cur(CVQBufferReader& reader, int offset);
    static bool seek_end(CVQBufferReader& reader, int offset);
    static bool seek_none(CVQBufferReader& reader, int offset);

    /// Copies up to `count` bytes and moves behind them. Returns how many; 0 at the end and for counts of 2^31 and
    /// more; -1 with EINVAL for a null destination, unless `count` is 0. The third argument is not used.
    /// `destination` may lie in the bytes that are read, as when a caller moves up what it has not used yet.
    int read(void* destination, std::size_t count, int);

private:
    using SeekFunction = bool (*)(CVQBufferReader& reader, int offset);
    static const SeekFunction ms_seektable[4];

    bool moveTo(long long position);

    const unsigned char* mBegin;
    unsigned int mSize;
    const unsigned char* mPosition;
};
