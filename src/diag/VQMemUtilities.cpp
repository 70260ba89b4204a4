#include <VQMemUtilities.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

template <class Value>
bool isAlignedFor(const void* p) {
    return reinterpret_cast<std::uintptr_t>(p) % sizeof(Value) == 0;
}

/// From the last value towards the first. A copy of fixed size is one store, and bears any alignment.
template <class Value>
void fillBackwards(unsigned char* p, std::size_t count, Value value) {
    while (count != 0) {
        --count;
        std::memcpy(p + count * sizeof value, &value, sizeof value);
    }
}

unsigned char* bytesOf(void* p) {
    return static_cast<unsigned char*>(p);
}

}  // namespace

unsigned* VQMemUtilities::castToUInt32Ptr(void* p) {
    return isAlignedFor<unsigned>(p) ? static_cast<unsigned*>(p) : nullptr;
}

const unsigned* VQMemUtilities::castToUInt32Ptr(const void* p) {
    return isAlignedFor<unsigned>(p) ? static_cast<const unsigned*>(p) : nullptr;
}

unsigned short* VQMemUtilities::castToUInt16Ptr(void* p) {
    return isAlignedFor<unsigned short>(p) ? static_cast<unsigned short*>(p) : nullptr;
}

const unsigned short* VQMemUtilities::castToUInt16Ptr(const void* p) {
    return isAlignedFor<unsigned short>(p) ? static_cast<const unsigned short*>(p) : nullptr;
}

void VQMemUtilities::memFillUInt8(unsigned char* p, unsigned count, unsigned char value) {
    if (p == nullptr) {
        return;
    }
    while (count != 0 && !isAlignedFor<unsigned>(p)) {
        *p++ = value;
        --count;
    }
    const std::size_t words = count / sizeof(unsigned);
    fillBackwards(p, words, value * 0x01010101U);
    p += words * sizeof(unsigned);
    for (count %= sizeof(unsigned); count != 0; --count) {
        *p++ = value;
    }
}

void VQMemUtilities::memFillUInt16(unsigned short* p, unsigned count, unsigned short value) {
    if (p == nullptr || count == 0) {
        return;
    }
    unsigned char* bytes = bytesOf(p);
    if (!isAlignedFor<unsigned>(bytes)) {
        std::memcpy(bytes, &value, sizeof value);
        bytes += sizeof value;
        --count;
    }
    const std::size_t words = count / 2;
    fillBackwards(bytes, words, value * 0x00010001U);
    if (count % 2 != 0) {
        std::memcpy(bytes + words * sizeof(unsigned), &value, sizeof value);
    }
}

void VQMemUtilities::memFillUInt32(unsigned* p, unsigned count, unsigned value) {
    if (p != nullptr) {
        fillBackwards(bytesOf(p), count, value);
    }
}

void VQMemUtilities::memFillUInt64(unsigned long long* p, unsigned count, unsigned long long value) {
    if (p != nullptr) {
        fillBackwards(bytesOf(p), count, value);
    }
}

void VQMemUtilities::memFillNibble(unsigned char* p, unsigned count, unsigned char value,
                                   unsigned startAtLowNibble) {
    if (p == nullptr || count == 0) {
        return;
    }
    const unsigned nibble = value & 0x0FU;
    if (startAtLowNibble != 0) {
        *p = static_cast<unsigned char>((*p & 0xF0U) | nibble);
        ++p;
        --count;
    }
    const unsigned wholeBytes = count / 2;
    memFillUInt8(p, wholeBytes, static_cast<unsigned char>(nibble * 0x11U));
    if (count % 2 != 0) {
        unsigned char& last = p[wholeBytes];
        last = static_cast<unsigned char>((last & 0x0FU) | nibble << 4);
    }
}
