// VQBase64Plain: the passes of VQBase64 for every processor; they leave nothing.
#pragma once

#include "VQBase64Passes.h"

namespace VQBase64 {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// Marks a character from outside the alphabet; the six bits below it, its value, are 0.
constexpr unsigned char kOutside = 0x80;

/// The value of each character.
struct SValues {
    constexpr SValues() {
        for (unsigned char& value : of) {
            value = kOutside;
        }
        for (unsigned char value = 0; value < 64; ++value) {
            of[static_cast<unsigned char>(kAlphabet[value])] = value;
        }
    }
    unsigned char of[256] = {};
};
inline constexpr SValues kValues;

constexpr unsigned valueOf(char character) {
    return kValues.of[static_cast<unsigned char>(character)];
}

inline void encodeGroup(unsigned a, unsigned b, unsigned c, char* destination) {
    destination[0] = kAlphabet[a >> 2];
    destination[1] = kAlphabet[(a & 3) << 4 | b >> 4];
    destination[2] = kAlphabet[(b & 15) << 2 | c >> 6];
    destination[3] = kAlphabet[c & 63];
}

inline std::size_t encodeGroups(const unsigned char* source, std::size_t groups, char* destination) {
    for (std::size_t done = 0; done < groups; ++done, source += 3, destination += 4) {
        encodeGroup(source[0], source[1], source[2], destination);
    }
    return groups;
}

/// The bytes of a group from the values of its characters.
constexpr unsigned char firstByte(unsigned p, unsigned q) {
    return static_cast<unsigned char>(p << 2 | (q & 63) >> 4);
}
constexpr unsigned char secondByte(unsigned q, unsigned r) {
    return static_cast<unsigned char>(q << 4 | (r & 63) >> 2);
}
constexpr unsigned char thirdByte(unsigned r, unsigned u) {
    return static_cast<unsigned char>(r << 6 | (u & 63));
}

inline std::size_t decodeGroups(const char* text, std::size_t groups, unsigned char* destination) {
    for (std::size_t done = 0; done < groups; ++done, text += 4, destination += 3) {
        const unsigned p = valueOf(text[0]);
        const unsigned q = valueOf(text[1]);
        const unsigned r = valueOf(text[2]);
        const unsigned u = valueOf(text[3]);
        if (((p | q | r | u) & kOutside) != 0) {
            return done;
        }
        destination[0] = firstByte(p, q);
        destination[1] = secondByte(q, r);
        destination[2] = thirdByte(r, u);
    }
    return groups;
}

}  // namespace VQBase64
