#include <CVQByteStream.h>

#include <CVQAsserter.h>
#include <CVQString.h>
#include <stream/toLength.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

constexpr char kUnit[] = "CVQByteStream";
constexpr unsigned kLineWriteNull = 134;
constexpr unsigned kLineWriteNoData = 156;
constexpr unsigned kLineReadNull = 180;
constexpr unsigned kLineReadNoData = 186;
constexpr unsigned kLineReadEndNoData = 197;
constexpr unsigned kLineFromStreamNoData = 222;
constexpr unsigned kLineReserveNoData = 255;
constexpr unsigned kLineTextBegin = 291;
constexpr unsigned kLineTextEnd = 355;
constexpr unsigned kLineInputNoData = 420;

constexpr unsigned int kMaxCapacity = CVQRCMemoryBuffer::kMaxSize;
constexpr unsigned int kFirstCapacity = 32;

/// The first of 32, 64, 128, ... that is at least `need`; past 2^31 the most that there can be.
unsigned int grownCapacity(unsigned int need) {
    unsigned int capacity = kFirstCapacity;
    while (capacity < need) {
        capacity = capacity < 0x80000000U ? capacity * 2 : kMaxCapacity;
    }
    return capacity;
}

std::uintptr_t addressOf(const void* byte) {
    return reinterpret_cast<std::uintptr_t>(byte);
}

}  // namespace

CVQByteStream& CVQByteStream::operator=(const CVQByteStream& other) {
    if (this != &other) {
        // Kept: bytestream-assign-empty. Buffering streams empty theirs this way and go on in the same block.
        if (other.mLength != 0) {
            mStorage = other.mStorage;
        }
        mLength = other.mLength;
        mReadPosition = 0;
        mEndOfData = 0;
    }
    return *this;
}

CVQByteStream& CVQByteStream::operator=(const CVQBuffer& buffer) {
    mStorage = buffer.getMemoryBuffer();
    mLength = buffer.getSize();
    mReadPosition = 0;
    mEndOfData = 0;
    return *this;
}

void CVQByteStream::reserve(std::size_t capacity, bool force) {
    if (capacity <= getCapacity() && !force) {
        return;
    }
    // Kept: bytestream-force-shrinks. Length and position stay where they were.
    const bool done = force ? mStorage.takeOwnBlock(capacity) : mStorage.growBlock(capacity);
    if (!done && getCapacity() != 0) {
        doCheapAssert(kLineReserveNoData, kUnit);
    }
}

unsigned int CVQByteStream::writeGrowing(const void* source, unsigned int count) {
    if (count == 0) {
        return 0;
    }
    if (source == nullptr) {
        doCheapAssert(kLineWriteNull, kUnit);
        return 0;
    }
    unsigned int need = 0;
    if (__builtin_add_overflow(mLength, count, &need) || need > kMaxCapacity) {
        doCheapAssert(kLineWriteNoData, kUnit);
        return 0;
    }
    // Kept: bytestream-cow-shrinks. Only a block that is too small is replaced by a larger one.
    const unsigned int target = need <= getCapacity() ? need : grownCapacity(need);
    // `source` may lie in this stream's block: that of a shared block is kept until the bytes are copied, in a private
    // one it moves along.
    if (mStorage.isShared()) {
        const CVQRCMemoryBuffer left(mStorage);
        mStorage.takeOwnBlock(target);
        std::memcpy(mStorage.mBlock->data + mLength, source, count);
    } else {
        const std::uintptr_t place = addressOf(source) - addressOf(getData());
        const bool isInside = place < getCapacity();
        mStorage.growBlock(target);
        std::memmove(mStorage.mBlock->data + mLength, isInside ? getData() + place : source, count);
    }
    mLength = need;
    return count;
}

unsigned int CVQByteStream::readAtEnd(void* destination, unsigned int count) const {
    if (mEndOfData != 0 || count == 0) {
        return 0;
    }
    if (destination == nullptr) {
        doCheapAssert(kLineReadNull, kUnit);
        return 0;
    }
    const unsigned int available = mReadPosition < mLength ? std::min(mLength - mReadPosition, count) : 0;
    const unsigned int held = mReadPosition < heldLength() ? std::min(heldLength() - mReadPosition, available) : 0;
    if (held != 0) {
        std::memcpy(destination, getData() + mReadPosition, held);
    }
    if (held < available) {
        doCheapAssert(available == count ? kLineReadNoData : kLineReadEndNoData, kUnit);
    }
    mReadPosition += available;
    if (available < count) {
        std::memset(static_cast<unsigned char*>(destination) + available, 0, count - available);
        mEndOfData = 1;
    }
    return available;
}

void CVQByteStream::skip(unsigned int count) const {
    if (mEndOfData != 0 || count == 0) {
        return;
    }
    if (mReadPosition <= mLength && count <= mLength - mReadPosition) {
        mReadPosition += count;
    } else {
        mReadPosition = mLength;
        mEndOfData = 1;
    }
}

unsigned int CVQByteStream::readFromIStream(const IVQIStream& stream, std::size_t count) {
    std::size_t need = 0;
    if (__builtin_add_overflow(mLength, count, &need) || need > kMaxCapacity) {
        doCheapAssert(kLineFromStreamNoData, kUnit);
        return 0;
    }
    reserve(need, mStorage.isShared());
    if (count == 0) {
        return 0;
    }
    const std::size_t arrived = std::min<std::size_t>(stream.read(mStorage.mBlock->data + mLength, count), count);
    mLength += toLength(arrived);
    return toLength(arrived);
}

CVQString CVQByteStream::toString() const {
    if (mReadPosition > mLength) {
        doCheapAssert(kLineTextBegin, kUnit);
        doCheapAssert(kLineTextEnd, kUnit);
        return CVQString();
    }
    const unsigned int begin = mReadPosition;
    unsigned int end = std::max(begin, heldLength());
    const void* const zero = end > begin ? std::memchr(getData() + begin, 0, end - begin) : nullptr;
    if (zero != nullptr) {
        end = toLength(static_cast<std::size_t>(static_cast<const unsigned char*>(zero) - getData()));
    }
    // What ends before the length ends at a zero byte, written or missing, which is consumed as well.
    mReadPosition = end < mLength ? end + 1 : mLength;
    return end > begin ? CVQString(reinterpret_cast<const char*>(getData()) + begin, end - begin) : CVQString();
}

void CVQByteStream::dump(CVQString& out) const {
    constexpr unsigned int kCharsPerByte = 3;
    constexpr unsigned int kBytesPerPiece = 64;
    constexpr char kDigits[] = "0123456789ABCDEF";

    const unsigned int length = heldLength();
    out.reserve(out.getByteLength() + std::size_t{length} * kCharsPerByte);
    char piece[kBytesPerPiece * kCharsPerByte];
    for (unsigned int done = 0; done < length;) {
        char* to = piece;
        for (const unsigned int end = std::min(length, done + kBytesPerPiece); done < end; ++done) {
            *to++ = kDigits[getData()[done] >> 4];
            *to++ = kDigits[getData()[done] & 15];
            *to++ = ' ';
        }
        out.append(piece, static_cast<std::size_t>(to - piece));
    }
}

bool CVQByteStream::operator==(const CVQByteStream& other) const {
    if (mLength != other.mLength) {
        return false;
    }
    const unsigned int held = heldLength();
    return mStorage.mBlock == other.mStorage.mBlock ||
           (held == other.heldLength() && (held == 0 || std::memcmp(getData(), other.getData(), held) == 0));
}

IVQOStream& CVQByteStream::toQRVStream(IVQOStream& stream, const CVQByteStream& value) {
    stream.align(4);
    // Kept: bytestream-qrv-capacity. Receivers take the whole block as the stream's content.
    return stream << value.mStorage;
}

const IVQIStream& CVQByteStream::fromQRVStream(const IVQIStream& stream, CVQByteStream& value) {
    stream.align(4);
    stream >> value.mStorage;
    value.mLength = value.mStorage.getSize();
    value.mReadPosition = 0;
    // Kept: bytestream-qrv-keeps-flag. A stream that had run out stays so.
    return stream;
}

IVQOStream& operator<<(IVQOStream& stream, const CVQByteStream& value) {
    // A handle of our own: a stream may be written into itself, and grow meanwhile.
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
    const CVQByteStream kept(value);
    const unsigned int length = kept.getLength();
    const unsigned int held = std::min(length, kept.getCapacity());
    stream << length;
    if (held != 0) {
        stream.write(kept.getData(), held);
    }
    // In pieces, as writeSkip takes 2^31 bytes and more for none at all.
    constexpr unsigned int kMostSkipped = 0x40000000U;
    for (unsigned int left = length - held; left != 0; left -= std::min(left, kMostSkipped)) {
        stream.writeSkip(std::min(left, kMostSkipped));
    }
    return stream;
}

const IVQIStream& operator>>(const IVQIStream& stream, CVQByteStream& value) {
    if (&stream == &value) {
        const CVQByteStream source(value);
        source >> value;
        return stream;
    }
    value.mReadPosition = 0;
    value.mEndOfData = 0;
    // Kept: bytestream-read-keeps-length. A source that delivers no length leaves the old one.
    stream >> value.mLength;
    value.reserve(value.mLength, value.mStorage.isShared());
    if (value.mLength == 0) {
        return stream;
    }
    if (value.getCapacity() < value.mLength) {
        doCheapAssert(kLineInputNoData, kUnit);
        value.mLength = 0;
        return stream;
    }
    stream.read(value.mStorage.mBlock->data, value.mLength);
    return stream;
}

static_assert(sizeof(void*) != 4 || sizeof(CVQByteStream) == 24, "two tables, storage, length, position, flag");
