// Hex: bytes as text, without the formatted output of the C library.
#pragma once

#include <stddef.h>

namespace host {

/// Two digits a byte in memory order; where the text ends.
inline char* writeHex(char* text, const void* data, size_t byteCount) {
    constexpr char kDigits[] = "0123456789abcdef";
    const unsigned char* bytes = static_cast<const unsigned char*>(data);
    for (size_t i = 0; i < byteCount; ++i) {
        *text++ = kDigits[bytes[i] >> 4];
        *text++ = kDigits[bytes[i] & 0xF];
    }
    return text;
}

}  // namespace host
