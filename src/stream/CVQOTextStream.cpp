#include <CVQOTextStream.h>

#include <CVQString.h>
#include <VQMemory.h>

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <iterator>

namespace {

constexpr std::size_t kFirstCapacity = 128;
constexpr std::size_t kLikelyItem = 32;

/// What XML has for each character that cannot stand for itself in a text or an attribute.
struct SEscapes {
    constexpr SEscapes() {
        for (unsigned char& bytes : length) {
            bytes = 1;
        }
        length[static_cast<unsigned char>('"')] = 6;
        length[static_cast<unsigned char>('\'')] = 6;
        length[static_cast<unsigned char>('&')] = 5;
        length[static_cast<unsigned char>('<')] = 4;
        length[static_cast<unsigned char>('>')] = 4;
    }
    static constexpr const char* textOf(char character) {
        switch (character) {
        case '"':
            return "&quot;";
        case '\'':
            return "&apos;";
        case '&':
            return "&amp;";
        case '<':
            return "&lt;";
        default:
            return "&gt;";
        }
    }
    unsigned char length[256] = {};
};
constexpr SEscapes kEscapes;

constexpr std::size_t kDecimalDigits = 11;  // of an int, with its sign

/// Writes the number so that it ends before `end`; returns its first digit.
char* writeDigits(unsigned int number, char* end) {
    do {
        *--end = static_cast<char>('0' + number % 10);
        number /= 10;
    } while (number != 0);
    return end;
}

std::size_t escapedLengthOf(char character) {
    return kEscapes.length[static_cast<unsigned char>(character)];
}

}  // namespace

CVQOTextStream::CVQOTextStream(std::size_t capacity) {
    resize(capacity);
}

CVQOTextStream::CVQOTextStream(const CVQOTextStream& other) : mFlags(other.mFlags) {
    // Kept: textstream-copy-drops-width. The width belongs to the item that the original awaits.
    copyFrom(other);
}

CVQOTextStream& CVQOTextStream::operator=(const CVQOTextStream& other) {
    if (this != &other) {
        resize(0);
        copyFrom(other);
        mFlags = other.mFlags;
        mWidth = other.mWidth;
    }
    return *this;
}

CVQOTextStream::~CVQOTextStream() {
    resize(0);
}

/// From a stream without a block.
void CVQOTextStream::copyFrom(const CVQOTextStream& other) {
    resize(other.getCapacity());
    mWrite = std::copy(other.mBegin, other.mWrite, mBegin);
}

void CVQOTextStream::resize(std::size_t capacity) {
    if (capacity == 0) {
        VQMemory::release(mBegin);
        mBegin = nullptr;
        mCapacityEnd = nullptr;
        mWrite = nullptr;
        return;
    }
    const std::size_t length = getLength();
    // Kept: textstream-resize-same. A block that the text fills is left alone, however large it is.
    if (capacity > length) {
        mBegin = static_cast<char*>(VQMemory::reallocChecked(mBegin, capacity));
        mCapacityEnd = mBegin + capacity;
        mWrite = mBegin + length;
    }
}

void CVQOTextStream::trim() {
    const std::size_t length = getLength();
    if (length == 0) {
        resize(0);
    } else if (length + 1 < getCapacity()) {
        resize(length + 1);
    }
}

/// Doubles the capacity until `count` bytes and a terminator fit; to just these where doubling would overflow. What
/// cannot be counted cannot be had either: the allocator ends the process.
void CVQOTextStream::grow(std::size_t count) {
    std::size_t need = 0;
    if (__builtin_add_overflow(getLength() + 1, count, &need)) {
        need = SIZE_MAX;
    }
    std::size_t capacity = mBegin != nullptr ? getCapacity() : kFirstCapacity;
    while (capacity < need) {
        capacity = capacity <= SIZE_MAX / 2 ? capacity * 2 : need;
    }
    resize(capacity);
}

void CVQOTextStream::writeGrowing(const char* text, std::size_t length) {
    if (text == nullptr || length == 0) {
        return;
    }
    text = growFor(length, text);
    std::memcpy(mWrite, text, length);
    mWrite += length;
}

/// Makes room, and returns where `text` lies then: it may lie in the block that moves.
const char* CVQOTextStream::growFor(std::size_t count, const char* text) {
    const std::uintptr_t place = reinterpret_cast<std::uintptr_t>(text) - reinterpret_cast<std::uintptr_t>(mBegin);
    const bool isInside = place < getCapacity();
    checkSpare(count);
    return isInside ? mBegin + place : text;
}

const char* CVQOTextStream::c_str() const {
    auto& self = const_cast<CVQOTextStream&>(*this);
    if (spare() == 0) {
        self.checkSpare(1);
    }
    *self.mWrite = '\0';
    return mBegin;
}

CVQOTextStream& CVQOTextStream::operator<<(bool value) {
    if ((mFlags & BOOL_AS_WORD) != 0) {
        return *this << (value ? "true" : "false");
    }
    streamWrite("%d", value ? 1 : 0);
    return *this;
}

CVQOTextStream& CVQOTextStream::operator<<(const CVQString& text) {
    if ((mFlags & XML_ESCAPE) != 0) {
        insertEscaped(text.c_str());
    } else {
        // Kept: textstream-string-ignores-width. The width waits for an item that is formatted.
        write(text.c_str(), text.getByteLength());
    }
    return *this;
}

CVQOTextStream& CVQOTextStream::operator<<(Manipulator manipulator) {
    if (manipulator != nullptr) {
        manipulator(*this);
    }
    return *this;
}

void CVQOTextStream::insertSpecial(const char* text) {
    if (text == nullptr) {
        return;
    }
    if ((mFlags & XML_ESCAPE) != 0) {
        // Kept: textstream-xml-ignores-width. It waits for an item that is formatted.
        insertEscaped(text);
    } else {
        streamWrite("%s", text);
    }
}

void CVQOTextStream::insertEscaped(const char* text) {
    std::size_t escaped = 0;
    std::size_t length = 0;
    for (; text[length] != '\0'; ++length) {
        escaped += escapedLengthOf(text[length]);
    }
    text = growFor(escaped, text);
    char* to = mWrite;
    for (const char* const end = text + length; text != end; ++text) {
        const std::size_t bytes = escapedLengthOf(*text);
        if (bytes == 1) {
            *to++ = *text;
        } else {
            std::memcpy(to, SEscapes::textOf(*text), bytes);
            to += bytes;
        }
    }
    mWrite = to;
}

void CVQOTextStream::streamWrite(const char* format, ...) {
    if (format == nullptr) {
        return;
    }
    std::va_list arguments;
    va_start(arguments, format);
    if (mWidth == 0) {
        appendFormatted(format, arguments);
    } else {
        CVQOTextStream item(0);
        const bool isFormatted = item.appendFormatted(format, arguments);
        // Kept: textstream-negative-width. The width is a signed number in the format.
        const int width = static_cast<int>(mWidth);
        mWidth = 0;
        // A length cannot be as long as the least width is wide: no platform formats that, but some try for a minute.
        if (isFormatted && width != INT_MIN) {
            streamWrite("%*s", width, item.c_str());
        }
    }
    va_end(arguments);
}

/// What most formats consist of, without a call of vsnprintf: "%s", "%d", "%u" and "%%", as they stand. False for
/// all others, with nothing appended: they are vsnprintf's.
bool CVQOTextStream::appendPlainlyFormatted(const char* format, std::va_list arguments) {
    const std::size_t before = getLength();
    checkSpare(kLikelyItem);
    for (;;) {
        const char* const literal = format;
        while (*format != '%' && *format != '\0') {
            ++format;
        }
        write(literal, static_cast<std::size_t>(format - literal));
        if (*format == '\0') {
            return true;
        }
        char digits[kDecimalDigits];
        const char* item = nullptr;
        std::size_t length = 0;
        switch (format[1]) {
        case 's':
            item = va_arg(arguments, const char*);
            length = item != nullptr ? std::strlen(item) : 0;
            break;
        case 'd': {
            const int number = va_arg(arguments, int);
            const unsigned int size =
                number < 0 ? 0U - static_cast<unsigned int>(number) : static_cast<unsigned int>(number);
            char* const first = writeDigits(size, std::end(digits));
            item = number < 0 ? &(first[-1] = '-') : first;
            length = static_cast<std::size_t>(std::end(digits) - item);
            break;
        }
        case 'u':
            item = writeDigits(va_arg(arguments, unsigned int), std::end(digits));
            length = static_cast<std::size_t>(std::end(digits) - item);
            break;
        case '%':
            item = "%";
            length = 1;
            break;
        default:
            break;
        }
        if (item == nullptr || length > INT_MAX - (getLength() - before)) {
            mWrite = mBegin + before;
            return false;
        }
        write(item, length);
        format += 2;
    }
}

bool CVQOTextStream::appendFormatted(const char* format, std::va_list arguments) {
    std::va_list again;
    va_copy(again, arguments);
    const bool isPlain = appendPlainlyFormatted(format, again);
    va_end(again);
    if (isPlain) {
        return true;
    }
    va_copy(again, arguments);
    int length = std::vsnprintf(mWrite, spare(), format, arguments);
    if (length > 0) {
        const auto bytes = static_cast<std::size_t>(length);
        if (bytes >= spare()) {
            checkSpare(bytes);
            length = std::vsnprintf(mWrite, spare(), format, again);
        }
        mWrite += length >= 0 ? bytes : 0;
    }
    va_end(again);
    return length >= 0;
}

static_assert(sizeof(void*) != 4 || sizeof(CVQOTextStream) == 20, "three pointers, flags, width");
