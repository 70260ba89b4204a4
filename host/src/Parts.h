// Parts: the buffers of a message as one run of bytes.
#pragma once

#include <limits.h>
#include <stdint.h>
#include <string.h>
#include <sys/uio.h>

namespace host {

struct Parts {
    const iovec* parts;
    int count;
    size_t length;  // of all together
};

/// False for a count or a length that a message cannot have.
inline bool measure(Parts& run) {
    if (run.count < 0)
        return false;
    run.length = 0;
    for (int i = 0; i < run.count; ++i) {
        if (run.parts[i].iov_len > INT_MAX - run.length)
            return false;
        run.length += run.parts[i].iov_len;
    }
    return true;
}

/// What the caller of an emulated call gives: one buffer or a list of them. Two registers carry it, so that the functions
/// which the caller sees are jumps: a return after a sleep costs some 7 ns, since the processor does not foresee it.
class Buffers {
public:
    /// A negative size is more than any message has.
    static Buffers one(const void* bytes, int size) { return {bytes, static_cast<uint32_t>(size)}; }
    static Buffers list(const iovec* parts, int count) { return {parts, kList | static_cast<uint32_t>(count)}; }

    /// It is one buffer, and large enough.
    bool isOneOf(size_t size) const { return mSize >= size && mSize <= INT_MAX; }
    void fill(const void* bytes, size_t size) const { memcpy(const_cast<void*>(mPlace), bytes, size); }

    /// False for a count or a length that a message cannot have. `storage` is for the part of the one buffer.
    bool measure(Parts& run, iovec& storage) const {
        if ((mSize & kList) != 0) {
            run = {static_cast<const iovec*>(mPlace), static_cast<int>(mSize & UINT32_MAX), 0};
            return host::measure(run);
        }
        storage = {const_cast<void*>(mPlace), static_cast<size_t>(mSize)};
        run = {&storage, 1, storage.iov_len};
        return mSize <= INT_MAX;
    }

private:
    static constexpr uint64_t kList = uint64_t(1) << 32;

    Buffers(const void* place, uint64_t size) : mPlace(place), mSize(size) {}

    const void* mPlace;
    uint64_t mSize;
};

/// A run for a reader on another processor: the place of a single part is here as well, so that it need not be fetched
/// from where the owner of the run has it.
class OwnParts {
public:
    void set(const Parts& run) {
        mRun = run;
        if (run.count == 1)
            mOnly = *run.parts;
    }
    Parts get() const { return mRun.count == 1 ? Parts{&mOnly, 1, mRun.length} : mRun; }

private:
    Parts mRun;
    iovec mOnly;
};

/// A place in a run, moving towards its end.
class PartsCursor {
public:
    PartsCursor(const Parts& run, size_t offset) : mPart(run.parts), mEnd(run.parts + run.count) {
        skipEmpty();
        advance(offset < run.length ? offset : run.length);
    }

    bool isAtEnd() const { return mPart == mEnd; }
    char* place() const { return static_cast<char*>(mPart->iov_base) + mOffset; }
    /// The bytes here that lie in one piece.
    size_t piece() const { return mPart->iov_len - mOffset; }

    void advance(size_t bytes) {
        while (bytes != 0 && !isAtEnd()) {
            const size_t step = bytes < piece() ? bytes : piece();
            bytes -= step;
            mOffset += step;
            skipEmpty();
        }
    }

private:
    void skipEmpty() {
        while (mPart != mEnd && mOffset == mPart->iov_len) {
            ++mPart;
            mOffset = 0;
        }
    }

    const iovec* mPart;
    const iovec* mEnd;
    size_t mOffset = 0;
};

/// How much is copied at a time: much against the start of a copy, little against the cache, beyond whose size the
/// platform's memcpy takes a slower way. 1 MiB in such steps takes a tenth less time.
constexpr size_t kCopyStep = 262144;

inline void copyPiece(char* to, const char* from, size_t size) {
    for (; size > kCopyStep; size -= kCopyStep) {
        memcpy(to, from, kCopyStep);
        to += kCopyStep;
        from += kCopyStep;
    }
    memcpy(to, from, size);
}

/// Copies what both have; the result is how much.
inline size_t copyParts(const Parts& to, size_t toOffset, const Parts& from, size_t fromOffset) {
    if (to.count == 1 && from.count == 1 && toOffset < to.length && fromOffset < from.length) {
        const size_t room = to.length - toOffset, rest = from.length - fromOffset;
        const size_t size = room < rest ? room : rest;
        copyPiece(static_cast<char*>(to.parts->iov_base) + toOffset,
                  static_cast<const char*>(from.parts->iov_base) + fromOffset, size);
        return size;
    }
    PartsCursor target(to, toOffset);
    PartsCursor source(from, fromOffset);
    size_t copied = 0;
    while (!target.isAtEnd() && !source.isAtEnd()) {
        const size_t step = target.piece() < source.piece() ? target.piece() : source.piece();
        copyPiece(target.place(), source.place(), step);
        target.advance(step);
        source.advance(step);
        copied += step;
    }
    return copied;
}

/// Copies what both have into a segment out of which somebody else copies next, its end first; the result is how
/// much. The begin of a run larger than the cache is then still there when the other copy starts, and its end when
/// the next run comes. In smaller steps, which it runs through forwards each, less of that is lost.
inline size_t fillFromEnd(const iovec& place, const Parts& from) {
    constexpr size_t kStep = kCopyStep / 4;
    const size_t length = place.iov_len < from.length ? place.iov_len : from.length;
    for (size_t rest = length; rest != 0;) {
        const size_t step = rest < kStep ? rest : kStep;
        rest -= step;
        const iovec piece = {static_cast<char*>(place.iov_base) + rest, step};
        copyParts({&piece, 1, step}, 0, from, rest);
    }
    return length;
}

}  // namespace host
