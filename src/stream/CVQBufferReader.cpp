#include <CVQBufferReader.h>

#include <CVQAsserter.h>
#include <stream/toLength.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <iterator>

namespace {

constexpr char kUnit[] = "CVQBufferReader";
constexpr unsigned kLineCtor = 120;

}  // namespace

constexpr CVQBufferReader::SeekFunction CVQBufferReader::ms_seektable[] = {&seek_set, &seek_cur, &seek_end,
                                                                           &seek_none};

CVQBufferReader::CVQBufferReader(const void* data, std::size_t size)
    : mBegin(static_cast<const unsigned char*>(data)), mSize(0), mPosition(mBegin) {
    if (data == nullptr || size == 0 || size > 0xFFFFFFFFU) {
        doCheapAssert(kLineCtor, kUnit);
        return;
    }
    mSize = toLength(size);
}

bool CVQBufferReader::seek(int offset, SeekDirection direction) {
    const SeekFunction function = direction < std::size(ms_seektable) ? ms_seektable[direction] : &seek_none;
    return function(*this, offset);
}

bool CVQBufferReader::seek_set(CVQBufferReader& reader, int offset) {
    return reader.moveTo(offset);
}

bool CVQBufferReader::seek_cur(CVQBufferReader& reader, int offset) {
    return reader.moveTo(static_cast<long long>(reader.tell()) + offset);
}

bool CVQBufferReader::seek_end(CVQBufferReader& reader, int offset) {
    return reader.moveTo(static_cast<long long>(reader.mSize) + offset);
}

bool CVQBufferReader::seek_none(CVQBufferReader& /*reader*/, int /*offset*/) {
    errno = EINVAL;
    return false;
}

bool CVQBufferReader::moveTo(long long position) {
    if (position < 0 || position > mSize) {
        errno = EINVAL;
        return false;
    }
    mPosition = mBegin + position;
    return true;
}

int CVQBufferReader::read(void* destination, std::size_t count, int /*unused*/) {
    if (count == 0) {
        return 0;
    }
    if (destination == nullptr) {
        errno = EINVAL;
        return -1;
    }
    if (count > INT_MAX) {
        return 0;
    }
    const std::size_t copied = std::min<std::size_t>(count, mSize - tell());
    if (copied != 0) {
        std::memmove(destination, mPosition, copied);
        mPosition += copied;
    }
    return static_cast<int>(copied);
}
