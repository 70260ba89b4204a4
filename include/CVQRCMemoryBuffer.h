// CVQRCMemoryBuffer: a handle to a block of bytes that handles share and count. It is the storage of CVQBuffer,
// of the byte stream and of the circular byte buffer.
//
//   Units    sizes in bytes, 32 bits; std::size_t where they enter.
//   Shape    one pointer, never null: an empty handle points at `sNullBuffer`, which is never counted or
//            released. A block is one allocation, a header of 16 bytes and the payload, rounded up to 8 bytes. As
//            a stream: the size in 32 bits, then, unless it is 0, the payload in one piece.
//   Errors   sizes above `kMaxSize` would overflow the allocation's 32-bit length: such a block cannot be had,
//            and the handle stays empty (reading from a stream: stays as it was). Otherwise a failed allocation
//            ends the process in VQMemory::allocChecked. A short write to a stream and writing through a shared
//            block are cheap assertions (lines 210 and 264), after which the operation goes on.
//   Threads  handles that share a block may be copied, assigned and dropped by any thread; one handle is for one
//            thread at a time. The payload is not guarded: write only while `isShared()` is false.
//   Bytes    a new block's payload is not initialised. What a stream fails to deliver to `operator>>` reads as
//            zeros: nothing that lay on the heap before is passed on as if it had arrived.
//   Kept     rcbuffer-shared-write: `getBuffer` reports a shared block and hands out its bytes all the same
//            (docs/kept.md).
#pragma once

#include <IVQIStream.h>
#include <IVQOStream.h>
#include <VQAtomic.h>
#include <VQExport.h>

#include <cstddef>

class CVQByteStream;

class VQ_EXPORT CVQRCMemoryBuffer {
public:
    /// The largest size of a block: its allocation, with all that the allocator adds, still fits 32 bits.
    static constexpr unsigned int kMaxSize = 0xFFFFFFE0U;

    /// An empty handle; a static one is ready before any code runs.
    constexpr CVQRCMemoryBuffer() noexcept : mBlock(emptyBlock()) {}

    /// A block of its own with `size` uninitialised bytes; none for 0 and above `kMaxSize`.
    explicit CVQRCMemoryBuffer(std::size_t size) : mBlock(allocateBlock(size)) {}

    /// Shares the block.
    CVQRCMemoryBuffer(const CVQRCMemoryBuffer& other) noexcept : mBlock(other.mBlock) { addRef(); }

    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): a handle has its own block, whichever handle it is
    CVQRCMemoryBuffer& operator=(const CVQRCMemoryBuffer& other) noexcept {
        if (mBlock != other.mBlock) {
            removeRef();
            mBlock = other.mBlock;
            addRef();
        }
        return *this;
    }

    ~CVQRCMemoryBuffer() {
        removeRef();
        mBlock = nullptr;
    }

    /// Counts one more handle. Handles do this themselves; for code that keeps a block alive by other means.
    void addRef() noexcept {
        if (mBlock != &sNullBuffer) {
            VQAtomic::incrementPrivate(mBlock->referenceCount);
        }
    }

    /// Drops the block, releasing it with the last handle; this handle is empty afterwards.
    void removeRef() noexcept {
        if (mBlock != &sNullBuffer) {
            dropBlock();
        }
    }

    /// The payload for writing, null when there is none. A shared block is reported (line 264). In zeroed memory
    /// that no constructor has seen it is null as well.
    unsigned char* getBuffer();

    const unsigned char* getData() const noexcept { return mBlock->data; }
    unsigned int getSize() const noexcept { return mBlock->size; }

    /// True while another handle holds the block as well. False means that only this handle does, and that whatever
    /// the others did with the bytes has happened before.
    bool isShared() const noexcept { return VQAtomic::load(mBlock->referenceCount) > 1; }

    /// Equal are handles to one block, and to two payloads with the same bytes. An empty handle equals empty ones
    /// only.
    bool operator==(const CVQRCMemoryBuffer& other) const noexcept;
    bool operator!=(const CVQRCMemoryBuffer& other) const noexcept { return !(*this == other); }

private:
    friend class CVQBuffer;
    friend class CVQByteStream;
    friend VQ_EXPORT const IVQIStream& operator>>(const IVQIStream& stream, CVQRCMemoryBuffer& buffer);
    friend VQ_EXPORT const IVQIStream& operator>>(const IVQIStream& stream, CVQByteStream& value);

    struct SBlock {
        unsigned int referenceCount;
        unsigned int size;
        unsigned char* data;
    };

    static constexpr SBlock* emptyBlock() noexcept { return const_cast<SBlock*>(&sNullBuffer); }
    static SBlock* allocateBlock(std::size_t size);
    static SBlock* placeHeader(void* allocation, std::size_t size);
    void dropBlock() noexcept;

    /// Takes a private block of `size` bytes: as many of the present ones as fit, then zeros. False, with nothing
    /// changed, when no block can have that size.
    bool takeOwnBlock(std::size_t size);

    /// The same for a shared block. A private one that is long enough stays as it is; otherwise it is lengthened
    /// where it lies, if it can be: large ones then grow without a copy.
    bool growBlock(std::size_t size);

    void exchange(CVQRCMemoryBuffer& other) noexcept {
        SBlock* const mine = mBlock;
        mBlock = other.mBlock;
        other.mBlock = mine;
    }

    static const SBlock sNullBuffer;

    SBlock* mBlock;
};

VQ_EXPORT IVQOStream& operator<<(IVQOStream& stream, const CVQRCMemoryBuffer& buffer);
VQ_EXPORT const IVQIStream& operator>>(const IVQIStream& stream, CVQRCMemoryBuffer& buffer);
