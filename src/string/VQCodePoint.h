// VQCodePoint: one character's bytes, under the lenient rule of VQUtf8.
//
// Everything here has internal linkage: units that are built for other processors use it, too.
#pragma once

#include "VQUtf8.h"

#include <cstdint>
#include <cstring>

namespace VQUtf8 {

constexpr std::uint64_t kLowBits = 0x0101010101010101U;  ///< in each byte of a word
constexpr std::uint64_t kTopBits = 0x8080808080808080U;

constexpr unsigned kReplacementCharacter = 0xFFFD;
constexpr unsigned kLastCodePoint = 0x10FFFF;

namespace {

constexpr unsigned asByte(char c) {
    return static_cast<unsigned char>(c);
}

constexpr bool isHighSurrogate(unsigned code) {
    return (code & 0xFFFFFC00U) == 0xD800;
}

constexpr bool isLowSurrogate(unsigned code) {
    return (code & 0xFFFFFC00U) == 0xDC00;
}

/// Of a high surrogate and the low one behind it.
constexpr unsigned combine(unsigned high, unsigned low) {
    return (high << 10) + low - ((0xD800U << 10) + 0xDC00U - 0x10000U);
}

inline std::uint64_t loadWord(const char* text) {
    std::uint64_t word;
    std::memcpy(&word, text, sizeof word);
    return word;
}

/// Length of the valid character at `text`; 0 when there is none within `bytes`.
inline std::size_t characterAt(const char* text, std::size_t bytes) {
    const std::size_t length = kSequenceLength[asByte(*text)];
    if (length == kNoLead || length > bytes) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if (asByte(text[i]) < 0x80) {
            return 0;
        }
    }
    return length;
}

/// The code point of the valid character of `length` bytes at `text`.
inline unsigned decode(const char* text, std::size_t length) {
    unsigned code = asByte(*text);
    if (length > 1) {
        code &= 0x7FU >> length;
        for (std::size_t i = 1; i < length; ++i) {
            code = code << 6 | (asByte(text[i]) & 0x3FU);
        }
    }
    return code;
}

struct SCharacter {
    unsigned code;
    std::size_t bytes;
};

/// The character at `text`, of `bytes` bytes. A byte that starts none stands for itself, with the sign-extended
/// value that iterators give it: no code point.
inline SCharacter nextCharacter(const char* text, std::size_t bytes) {
    const std::size_t length = characterAt(text, bytes);
    if (length == 0) {
        return {static_cast<unsigned>(static_cast<signed char>(*text)), 1};
    }
    return {decode(text, length), length};
}

/// Bytes of a code point up to kLastCodePoint.
constexpr std::size_t encodedLength(unsigned code) {
    return code < 0x80 ? 1 : code < 0x800 ? 2 : code < 0x10000 ? 3 : 4;
}

/// Writes those bytes; returns the place behind them.
inline char* encode(unsigned code, char* out) {
    const auto put = [&out](unsigned byte) { *out++ = static_cast<char>(byte); };
    const auto follow = [&](unsigned shift) { put(0x80U | (code >> shift & 0x3FU)); };
    if (code < 0x80) {
        put(code);
    } else if (code < 0x800) {
        put(0xC0U | code >> 6);
        follow(0);
    } else if (code < 0x10000) {
        put(0xE0U | code >> 12);
        follow(6);
        follow(0);
    } else {
        put(0xF0U | code >> 18);
        follow(12);
        follow(6);
        follow(0);
    }
    return out;
}

}  // namespace
}  // namespace VQUtf8
