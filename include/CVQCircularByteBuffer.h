// CVQCircularByteBuffer: a ring of bytes of fixed capacity that is written at its end and read from its beginning.
//
//   Units    sizes, offsets and distances in bytes, 32 bits.
//   Shape    the storage (capacity + 1 bytes), four pointers into it (physical begin and end, logical begin and
//            end), flags. One byte of the storage stays free, so that equal logical pointers mean empty. As a
//            stream: the size in 32 bits, then the bytes, oldest first; the invalid buffer is the int -1 alone.
//   Flags    READ_UNDERFLOW: a read or a move asked for more than there was. WRITE_OVERFLOW: a write or a move had
//            not the room. INVALID: the pointers are broken, or the buffer was read from an invalid one. Flags stay
//            until `reset`, assignment or `operator>>`; while one is set, reads (or writes) do nothing and return
//            0.
//   Copies   share the storage's bytes and have positions of their own. As a shared block is written to then, each
//            copy and each assignment is a cheap assertion of CVQRCMemoryBuffer (line 264), and so are the
//            operations that work on a copy: `dumpLine`, `dumpString`, `beginsWith`, `goNextString`.
//   Errors   every operation checks the pointers first. What an invalid buffer is asked for has no effect and is
//            logged, "[...] invalid buffer" with a number for the call; only `toString`, `getCapacity` and
//            the stream operators say nothing. Nothing is asserted but copies. A capacity that cannot be had gives
//            an invalid buffer, and so does a copy of broken pointers. Null sources and destinations move nothing.
//   Bytes    new storage is zeroed: moves uncover nothing that lay on the heap before.
//   Threads  one thread at a time, together with all its copies.
//   Kept     circular-copy-shares: copies share bytes, and are reported (see Copies).
//            circular-empty-read: a read from an empty buffer sets READ_UNDERFLOW, also a read of 0 bytes.
//            circular-begin-unchecked: moving the beginning of an empty or wrapped buffer forward, short of the
//            physical end, is not held against the end: it uncovers what was there before.
//            circular-end-asymmetry: the end of a wrapped buffer cannot be moved back over the physical begin, nor
//            forward so that the buffer is full.
//            circular-setsize-flags: a `setSize` that fails leaves WRITE_OVERFLOW as the only flag.
//            circular-setsize-grows: `setSize` of an empty or wrapped buffer uncovers bytes up to the physical end,
//            so that the size may be capacity + 1. The free size is 0 then.
//            circular-full-length: `serializeString` writes the length of the whole text, however much of it
//            follows.
//            circular-serialize-wraps: below 4 free bytes it takes the room for unlimited, and returns the whole
//            length.
//            circular-equal-invalid: invalid buffers are equal, and an empty one equals an invalid one on its
//            right.
//            circular-freesize-message: an invalid buffer that is asked for its free size is logged in the name of
//            `size`.
//            circular-explain-twice: `explainError` logs a beginning at the physical end, but does not print it;
//            its texts are spelt as they are (docs/kept.md).
#pragma once

#include <CVQRCMemoryBuffer.h>
#include <IVQIOStream.h>
#include <VQExport.h>

class CVQString;

class VQ_EXPORT CVQCircularByteBuffer : public IVQIOStream {
public:
    /// What went wrong; see Flags above.
    enum Flag : unsigned int { READ_UNDERFLOW = 1, WRITE_OVERFLOW = 2, INVALID = 4 };

    /// What the text operations return when there is nothing to return.
    static const CVQString& EMPTY_STRING;

    explicit CVQCircularByteBuffer(std::size_t capacity);
    /// Shares the bytes; the same positions, no flags. Kept: circular-copy-shares.
    CVQCircularByteBuffer(const CVQCircularByteBuffer& other);
    CVQCircularByteBuffer& operator=(const CVQCircularByteBuffer& other);
    ~CVQCircularByteBuffer() override = default;

    /// True when the pointers contradict one another (INVALID is set then), and while INVALID is set.
    bool isInvalid() const;

    /// Empties the buffer and clears the flags.
    void reset();

    unsigned int size() const;
    unsigned int getFreeSize() const;
    unsigned int getCapacity() const;
    unsigned int getFlags() const { return mFlags; }

    /// Positions for `toString`.
    const unsigned char* getPhysBegin() const { return m_physBegin; }
    const unsigned char* getPhysEnd() const { return m_physEnd; }
    const unsigned char* getLogicBegin() const { return m_logicBegin; }
    const unsigned char* getLogicEnd() const { return m_logicEnd; }

    /// Keeps the oldest `count` bytes. False, with WRITE_OVERFLOW, when there are fewer.
    /// Kept: circular-setsize-grows.
    bool setSize(std::size_t count);

    /// Move the beginning (the end) of the content, around the physical end if need be: forward by a positive
    /// distance, back by a negative one. False, with READ_UNDERFLOW (WRITE_OVERFLOW), when it would pass the other.
    bool moveRelativeBegin(int distance);
    bool moveRelativeEnd(int distance);

    /// The bytes from `from` up to `to`, around the physical end if need be; up to a zero byte, as in every text.
    /// Positions outside the storage give EMPTY_STRING.
    CVQString toString(const unsigned char* from, const unsigned char* to) const;

    /// 16 bytes from `offset` on in hexadecimal and as characters: "10:       41 42 ...  AB..", 76 characters.
    /// EMPTY_STRING where `moveRelativeBegin` refuses such a distance, and from 2^31 on.
    CVQString dumpLine(unsigned int offset) const;
    /// Sizes, pointers and all lines.
    CVQString dumpString() const;

    /// Writes the length of `text`, then as many of its bytes as there is room for; returns that number.
    /// Kept: circular-full-length, circular-serialize-wraps.
    unsigned int serializeString(const CVQString& text);

    /// True when the oldest bytes are the stream form of `text`.
    bool beginsWith(const CVQString& text) const;

    /// Drops the oldest bytes until the buffer begins with `text`; false when that did not come about.
    bool goNextString(const CVQString& text);

    /// Equal are buffers with the same content. Kept: circular-equal-invalid.
    bool operator==(const CVQCircularByteBuffer& other) const;
    bool operator!=(const CVQCircularByteBuffer& other) const { return !(*this == other); }

    /// Logs and prints what is wrong with the pointers.
    void explainError() const;

    bool waitToRead(int /*timeout*/) override { return true; }
    void ready() override {}
    bool waitToWrite(int /*timeout*/) override { return true; }
    void flush() override {}

protected:
    unsigned int doRead(void* destination, unsigned int count) const override { return take(destination, count); }
    unsigned int doWrite(const void* source, unsigned int count) override { return put(source, count); }

private:
    friend VQ_EXPORT IVQOStream& operator<<(IVQOStream& stream, const CVQCircularByteBuffer& value);
    friend VQ_EXPORT IVQIStream& operator>>(IVQIStream& stream, CVQCircularByteBuffer& value);

    /// The content, oldest first; the second piece, null unless the buffer is wrapped, lies behind the physical
    /// end.
    struct SPieces {
        const unsigned char* first;
        std::size_t firstCount;
        const unsigned char* second;
        std::size_t secondCount;
    };

    void takePositions(const CVQCircularByteBuffer& other);
    // Of a buffer that is not invalid.
    unsigned int held() const;
    SPieces pieces() const;

    unsigned int take(void* destination, unsigned int count) const;
    unsigned int put(const void* source, unsigned int count);

    CVQRCMemoryBuffer mStorage;

protected:
    // Within reach of derived classes, which may break them: that is what `isInvalid` and `explainError` are for.
    unsigned char* m_physBegin = nullptr;
    unsigned char* m_physEnd = nullptr;
    mutable unsigned char* m_logicBegin = nullptr;
    unsigned char* m_logicEnd = nullptr;
    mutable unsigned int mFlags = 0;
};

VQ_EXPORT IVQOStream& operator<<(IVQOStream& stream, const CVQCircularByteBuffer& value);
/// The source is not const here, unlike in all other input operators.
VQ_EXPORT IVQIStream& operator>>(IVQIStream& stream, CVQCircularByteBuffer& value);
