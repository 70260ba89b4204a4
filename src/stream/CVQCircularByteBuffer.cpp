#include <CVQCircularByteBuffer.h>

#include <CVQString.h>
#include <VQMemory.h>
#include <VQSyslog.h>
#include <stream/toLength.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <utility>

namespace {

constexpr unsigned kLineWrite = 126;
constexpr unsigned kLineRead = 187;
constexpr unsigned kLineMoveBegin = 243;
constexpr unsigned kLineMoveEnd = 294;
constexpr unsigned kLineSetSize = 341;
constexpr unsigned kLineSize = 368;
constexpr unsigned kLineFreeSize = 381;
constexpr unsigned kLineEqual = 452;

constexpr unsigned int kInvalidCount = 0xFFFFFFFF;
constexpr unsigned int kBytesPerLine = 16;
constexpr char kDigits[] = "0123456789ABCDEF";

// A pointer that is looked at as the string that it makes up: a string object would be destroyed at exit.
const void* const kEmptyHandle = &CVQString::nullData;

// Broken pointers may point anywhere: they are compared and subtracted as numbers.
std::uintptr_t numberOf(const unsigned char* pointer) {
    return reinterpret_cast<std::uintptr_t>(pointer);
}

/// For pointers into one storage.
long long distance(const unsigned char* from, const unsigned char* to) {
    return static_cast<long long>(to - from);
}

void logInvalid(const char* operation, unsigned line) {
    VQSyslog::logMsg(0, VQSyslog::ERROR, "[CVQCircularByteBuffer::%s:%d] invalid buffer", operation,
                     static_cast<int>(line));
}

}  // namespace

const CVQString& CVQCircularByteBuffer::EMPTY_STRING = reinterpret_cast<const CVQString&>(kEmptyHandle);

CVQCircularByteBuffer::CVQCircularByteBuffer(std::size_t capacity)
    : mStorage(capacity < CVQRCMemoryBuffer::kMaxSize ? capacity + 1 : 0), m_physBegin(mStorage.getBuffer()),
      m_physEnd(m_physBegin + mStorage.getSize()), m_logicBegin(m_physBegin), m_logicEnd(m_physBegin) {
    if (m_physBegin != nullptr) {
        std::memset(m_physBegin, 0, mStorage.getSize());
    }
}

CVQCircularByteBuffer::CVQCircularByteBuffer(const CVQCircularByteBuffer& other) : IVQIOStream() {
    takePositions(other);
}

CVQCircularByteBuffer& CVQCircularByteBuffer::operator=(const CVQCircularByteBuffer& other) {
    if (this != &other) {
        takePositions(other);
    }
    mFlags = 0;
    return *this;
}

void CVQCircularByteBuffer::takePositions(const CVQCircularByteBuffer& other) {
    mStorage = other.mStorage;
    // Kept: circular-copy-shares. The bytes are written to through either, which is reported here and not there.
    mStorage.getBuffer();
    // As they are, since the bytes stay where they are: a copy of broken pointers is broken in the same way.
    m_physBegin = other.m_physBegin;
    m_physEnd = other.m_physEnd;
    m_logicBegin = other.m_logicBegin;
    m_logicEnd = other.m_logicEnd;
}

bool CVQCircularByteBuffer::isInvalid() const {
    const std::uintptr_t begin = numberOf(m_physBegin);
    const std::uintptr_t end = numberOf(m_physEnd);
    const std::uintptr_t first = numberOf(m_logicBegin);
    const std::uintptr_t last = numberOf(m_logicEnd);
    if (begin == 0 || first < begin || last < begin || first > end || last > end || begin == end) {
        mFlags |= INVALID;
    }
    return (mFlags & INVALID) != 0;
}

void CVQCircularByteBuffer::reset() {
    m_logicBegin = m_physBegin;
    m_logicEnd = m_physBegin;
    mFlags = 0;
}

unsigned int CVQCircularByteBuffer::held() const {
    const SPieces content = pieces();
    return toLength(content.firstCount + content.secondCount);
}

CVQCircularByteBuffer::SPieces CVQCircularByteBuffer::pieces() const {
    if (m_logicBegin > m_logicEnd) {
        return {m_logicBegin, static_cast<std::size_t>(m_physEnd - m_logicBegin), m_physBegin,
                static_cast<std::size_t>(m_logicEnd - m_physBegin)};
    }
    return {m_logicBegin, static_cast<std::size_t>(m_logicEnd - m_logicBegin), nullptr, 0};
}

unsigned int CVQCircularByteBuffer::size() const {
    if (isInvalid()) {
        logInvalid("size", kLineSize);
        return 0;
    }
    return held();
}

unsigned int CVQCircularByteBuffer::getFreeSize() const {
    if (isInvalid()) {
        // Kept: circular-freesize-message. Log readers know this line in the name of the size.
        logInvalid("size", kLineFreeSize);
        return 0;
    }
    const unsigned int capacity = getCapacity();
    return capacity - std::min(capacity, held());
}

unsigned int CVQCircularByteBuffer::getCapacity() const {
    return isInvalid() ? 0 : toLength(static_cast<std::size_t>(m_physEnd - m_physBegin) - 1);
}

unsigned int CVQCircularByteBuffer::put(const void* source, unsigned int count) {
    if (isInvalid()) {
        logInvalid("write", kLineWrite);
        explainError();
        return 0;
    }
    if ((mFlags & WRITE_OVERFLOW) != 0 || (source == nullptr && count != 0)) {
        return 0;
    }
    const auto* const bytes = static_cast<const unsigned char*>(source);
    std::size_t written = 0;
    const auto append = [&](long long room) {
        const std::size_t piece = std::min<std::size_t>(count - written, static_cast<std::size_t>(room));
        if (piece != 0) {
            // Bytes of a copy may be written: they lie in the same storage.
            std::memmove(m_logicEnd, bytes + written, piece);
            m_logicEnd += piece;
            written += piece;
        }
    };
    if (m_logicBegin > m_logicEnd) {
        append(distance(m_logicEnd, m_logicBegin) - 1);
    } else {
        const bool keepsLast = m_logicBegin == m_physBegin && m_logicEnd != m_physEnd;
        append(distance(m_logicEnd, m_physEnd) - (keepsLast ? 1 : 0));
        if (m_logicBegin != m_physBegin) {
            const long long room = distance(m_physBegin, m_logicBegin) - 1;
            if (m_logicEnd == m_physEnd && (written != 0 || (room != 0 && count != 0))) {
                m_logicEnd = m_physBegin;
            }
            append(room);
        }
    }
    if (written < count) {
        mFlags |= WRITE_OVERFLOW;
    }
    return toLength(written);
}

unsigned int CVQCircularByteBuffer::take(void* destination, unsigned int count) const {
    if (isInvalid()) {
        logInvalid("read", kLineRead);
        explainError();
        return 0;
    }
    if ((mFlags & READ_UNDERFLOW) != 0) {
        return 0;
    }
    if (m_logicBegin == m_logicEnd) {
        // Kept: circular-empty-read. Whatever the count, there is nothing here any more.
        mFlags |= READ_UNDERFLOW;
        return 0;
    }
    if (destination == nullptr && count != 0) {
        return 0;
    }
    auto* const bytes = static_cast<unsigned char*>(destination);
    std::size_t delivered = 0;
    const auto deliver = [&](const unsigned char* end) {
        const std::size_t piece =
            std::min<std::size_t>(count - delivered, static_cast<std::size_t>(end - m_logicBegin));
        if (piece != 0) {
            std::memmove(bytes + delivered, m_logicBegin, piece);
            m_logicBegin += piece;
            delivered += piece;
        }
    };
    if (m_logicBegin > m_logicEnd) {
        deliver(m_physEnd);
        if (m_logicBegin == m_physEnd) {
            m_logicBegin = m_physBegin;
            deliver(m_logicEnd);
        }
    } else {
        deliver(m_logicEnd);
    }
    if (delivered < count) {
        mFlags |= READ_UNDERFLOW;
    }
    return toLength(delivered);
}

bool CVQCircularByteBuffer::moveRelativeBegin(int distanceBytes) {
    if (isInvalid()) {
        logInvalid("moveRelativeBegin", kLineMoveBegin);
        return false;
    }
    if ((mFlags & READ_UNDERFLOW) != 0) {
        return false;
    }
    const long long extent = distance(m_physBegin, m_physEnd);
    const long long end = distance(m_physBegin, m_logicEnd);
    const bool runsOn = m_logicBegin < m_logicEnd;
    long long begin = distance(m_physBegin, m_logicBegin) + distanceBytes;
    bool passes = false;
    if (distanceBytes < 0) {
        if (!runsOn) {
            passes = end >= begin;
        } else if (begin < 0) {
            begin += extent;
            passes = end >= begin;
        }
    } else if (runsOn) {
        passes = begin > end;
    } else if (begin > extent) {
        begin -= extent;
        passes = begin > end;
    }
    // Kept: circular-begin-unchecked. Short of the physical end nothing is compared.
    if (passes) {
        mFlags |= READ_UNDERFLOW;
        return false;
    }
    m_logicBegin = m_physBegin + begin;
    return true;
}

bool CVQCircularByteBuffer::moveRelativeEnd(int distanceBytes) {
    if (isInvalid()) {
        logInvalid("moveRelativeEnd", kLineMoveEnd);
        return false;
    }
    if ((mFlags & WRITE_OVERFLOW) != 0) {
        return false;
    }
    const long long extent = distance(m_physBegin, m_physEnd);
    const long long begin = distance(m_physBegin, m_logicBegin);
    const bool isWrapped = m_logicBegin > m_logicEnd;
    long long end = distance(m_physBegin, m_logicEnd) + distanceBytes;
    bool passes = false;
    if (distanceBytes >= 0) {
        if (isWrapped) {
            passes = end >= begin - 1;
        } else if (end >= extent) {
            end -= extent;
            passes = end >= begin - 1;
        }
    } else if (isWrapped) {
        // Kept: circular-end-asymmetry. Back over the physical begin there is no way.
        passes = end < 0;
    } else {
        passes = begin > end;
    }
    if (passes) {
        mFlags |= WRITE_OVERFLOW;
        return false;
    }
    m_logicEnd = m_physBegin + end;
    return true;
}

bool CVQCircularByteBuffer::setSize(std::size_t count) {
    if (isInvalid()) {
        logInvalid("setSize", kLineSetSize);
        return false;
    }
    const auto extent = static_cast<std::size_t>(distance(m_physBegin, m_physEnd));
    const auto begin = static_cast<std::size_t>(distance(m_physBegin, m_logicBegin));
    const auto end = static_cast<std::size_t>(distance(m_physBegin, m_logicEnd));
    std::size_t newEnd = 0;
    bool passes = __builtin_add_overflow(begin, count, &newEnd);
    if (m_logicBegin < m_logicEnd) {
        passes = passes || newEnd > end;
    } else if (newEnd > extent) {
        // Kept: circular-setsize-grows. Up to the physical end nothing is compared.
        newEnd -= extent;
        passes = passes || newEnd > end;
    }
    if (passes) {
        // Kept: circular-setsize-flags. Users take exactly this value for a size that was refused.
        mFlags = WRITE_OVERFLOW;
        return false;
    }
    m_logicEnd = m_physBegin + newEnd;
    return true;
}

CVQString CVQCircularByteBuffer::toString(const unsigned char* from, const unsigned char* to) const {
    const auto isInside = [this](const unsigned char* position) {
        return numberOf(position) >= numberOf(m_physBegin) && numberOf(position) <= numberOf(m_physEnd);
    };
    if (isInvalid() || from == to || !isInside(from) || !isInside(to)) {
        return EMPTY_STRING;
    }
    if (from < to) {
        return CVQString(reinterpret_cast<const char*>(from), static_cast<std::size_t>(to - from));
    }
    const auto first = static_cast<std::size_t>(m_physEnd - from);
    const auto second = static_cast<std::size_t>(to - m_physBegin);
    auto* const bytes = static_cast<char*>(VQMemory::alloc(first + second));
    if (bytes == nullptr) {
        return EMPTY_STRING;
    }
    std::memcpy(bytes, from, first);
    std::memcpy(bytes + first, m_physBegin, second);
    CVQString text(bytes, first + second);
    VQMemory::release(bytes);
    return text;
}

CVQString CVQCircularByteBuffer::dumpLine(unsigned int offset) const {
    constexpr unsigned int kOffsetWidth = 10;
    constexpr unsigned int kHexWidth = 3 * kBytesPerLine;
    constexpr unsigned int kLineWidth = kOffsetWidth + kHexWidth + 2 + kBytesPerLine;

    CVQCircularByteBuffer copy(*this);
    // What is no distance forward would be one back.
    if (offset > INT_MAX || !copy.moveRelativeBegin(static_cast<int>(offset))) {
        return EMPTY_STRING;
    }
    char line[kLineWidth + 1];
    std::memset(line, ' ', kLineWidth);
    char number[32];
    std::snprintf(number, sizeof number, "%X:           ", offset);
    std::memcpy(line, number, kOffsetWidth);

    unsigned char bytes[kBytesPerLine];
    const unsigned int count = copy.take(bytes, std::min(copy.held(), kBytesPerLine));
    char* hex = line + kOffsetWidth;
    char* character = hex + kHexWidth + 2;
    for (unsigned int i = 0; i < count; ++i, hex += 3) {
        hex[0] = kDigits[bytes[i] >> 4];
        hex[1] = kDigits[bytes[i] & 15];
        *character++ = bytes[i] < 32 || bytes[i] >= 128 ? '.' : static_cast<char>(bytes[i]);
    }
    return CVQString(line, kLineWidth);
}

CVQString CVQCircularByteBuffer::dumpString() const {
    const unsigned int bytes = size();
    char header[512];
    std::snprintf(
        header, sizeof header,
        "CVQCircularByteBuffer: size = %d, free size = %d\nphys  begin = 0x%p, phys  end = 0x%p\nlogic begin = "
        "0x%p, logic end = 0x%p\nlogic rel begin = %d, logic rel end = %d\n",
        static_cast<int>(bytes), static_cast<int>(getFreeSize()), static_cast<const void*>(m_physBegin),
        static_cast<const void*>(m_physEnd), static_cast<const void*>(m_logicBegin),
        static_cast<const void*>(m_logicEnd), static_cast<int>(numberOf(m_logicBegin) - numberOf(m_physBegin)),
        static_cast<int>(numberOf(m_logicEnd) - numberOf(m_physBegin)));
    CVQString dump(header);
    if (!isInvalid()) {
        for (unsigned long long offset = 0; offset < bytes; offset += kBytesPerLine) {
            dump.append(dumpLine(static_cast<unsigned int>(offset))).append("\n");
        }
    }
    return dump;
}

unsigned int CVQCircularByteBuffer::serializeString(const CVQString& text) {
    const unsigned int length = text.getByteLength();
    // Kept: circular-serialize-wraps. Without room for the length itself nothing limits the count.
    const unsigned int count = std::min(getFreeSize() - toLength(sizeof length), length);
    // Kept: circular-full-length. Receivers learn from it that the text was cut.
    *this << length;
    write(text.c_str(), count);
    return count;
}

bool CVQCircularByteBuffer::beginsWith(const CVQString& text) const {
    if (size() < text.getByteLength()) {
        return false;
    }
    CVQCircularByteBuffer copy(*this);
    unsigned int length = 0;
    if (copy.read(&length, sizeof length) != sizeof length || length > copy.held()) {
        return false;  // a text of that length would not arrive whole, and need not be asked for
    }
    copy.m_logicBegin = m_logicBegin;
    CVQString found;
    copy >> found;
    return !copy.isInvalid() && copy.mFlags == 0 && found == text;
}

bool CVQCircularByteBuffer::goNextString(const CVQString& text) {
    const unsigned int length = text.getByteLength();
    unsigned int remaining = size();
    if (remaining < length) {
        return false;
    }
    while (!beginsWith(text)) {
        // With nothing left, another step would uncover bytes that were read before.
        if (remaining == 0) {
            return false;
        }
        --remaining;
        if (!moveRelativeBegin(1) || remaining < length) {
            return false;
        }
    }
    return true;
}

bool CVQCircularByteBuffer::operator==(const CVQCircularByteBuffer& other) const {
    if (this == &other) {
        return true;
    }
    if (isInvalid()) {
        logInvalid("operator ==", kLineEqual);
        return other.isInvalid();
    }
    // Kept: circular-equal-invalid. Of an invalid one the size is 0.
    if (held() != other.size()) {
        return false;
    }
    if (held() == 0) {
        return true;
    }
    SPieces early = pieces();
    SPieces late = other.pieces();
    if (early.firstCount > late.firstCount) {
        std::swap(early, late);
    }
    const std::size_t between = late.firstCount - early.firstCount;
    return std::equal(early.first, early.first + early.firstCount, late.first) &&
           std::equal(early.second, early.second + between, late.first + early.firstCount) &&
           std::equal(late.second, late.second + late.secondCount, early.second + between);
}

void CVQCircularByteBuffer::explainError() const {
    const std::uintptr_t begin = numberOf(m_physBegin);
    const std::uintptr_t end = numberOf(m_physEnd);
    const std::uintptr_t first = numberOf(m_logicBegin);
    const std::uintptr_t last = numberOf(m_logicEnd);
    // Kept: circular-explain-twice. The one condition that differs between the log and the output, and all texts.
    const struct {
        bool isLogged;
        bool isPrinted;
        const char* text;
    } findings[] = {
        {begin == 0, begin == 0, "m_physBegin is null"},
        {end == 0, end == 0, "m_physEnd is null"},
        {first == 0, first == 0, "m_logicBegin is null"},
        {last == 0, last == 0, "m_logicEnd is null"},
        {first < begin, first < begin, "m_logicBegin <  m_physBegin"},
        {end <= first, end < first, "m_logicBegin >=  m_physEnd"},
        {last < begin, last < begin, "m_logicEnd <  m_physBegin"},
        {last > end, last > end, "m_logicEnd >  m_physEnd"},
        {begin == end, begin == end, "m_physBegin == m_physEnd"},
    };
    constexpr char kWho[] = "[CVQCircularByteBuffer::explainError]";
    for (const auto& finding : findings) {
        if (finding.isLogged) {
            VQSyslog::logMsg(0, VQSyslog::ERROR, "%s %s", kWho, finding.text);
        }
    }
    std::printf("%s error occured:\n", kWho);
    for (const auto& finding : findings) {
        if (finding.isPrinted) {
            std::printf("%s %s\n", kWho, finding.text);
        }
    }
}

IVQOStream& operator<<(IVQOStream& stream, const CVQCircularByteBuffer& value) {
    if (value.isInvalid()) {
        return stream << kInvalidCount;
    }
    // Taken before anything is written: the stream may be this very buffer.
    const CVQCircularByteBuffer::SPieces pieces = value.pieces();
    stream << value.held();
    const bool isWhole = stream.write(pieces.first, pieces.firstCount) == pieces.firstCount;
    if (isWhole && pieces.second != nullptr) {
        stream.write(pieces.second, pieces.secondCount);
    }
    return stream;
}

IVQIStream& operator>>(IVQIStream& stream, CVQCircularByteBuffer& value) {
    value.reset();
    unsigned int count = 0;
    stream >> count;
    if (count == kInvalidCount) {
        value.mFlags = CVQCircularByteBuffer::INVALID;
        return stream;
    }
    const unsigned int fitting = std::min(value.getCapacity(), count);
    if (fitting != 0) {
        const unsigned int arrived = std::min(stream.read(value.m_physBegin, fitting), fitting);
        value.m_logicEnd += arrived;
        if (arrived != fitting) {
            return stream;
        }
    }
    unsigned int excess = count - fitting;
    if (excess != 0) {
        value.mFlags |= CVQCircularByteBuffer::WRITE_OVERFLOW;
        unsigned char scratch[1024];
        while (excess != 0) {
            const unsigned int piece = std::min<unsigned int>(excess, sizeof scratch);
            if (stream.read(scratch, piece) != piece) {
                break;
            }
            excess -= piece;
        }
    }
    return stream;
}

static_assert(sizeof(void*) != 4 || sizeof(CVQCircularByteBuffer) == 32,
              "two tables, storage, four pointers, flags");
