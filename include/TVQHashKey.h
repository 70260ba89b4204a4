// TVQHashKey: how TVQHashArray hashes and compares its keys. Specialise it for a key type of your own, or give the
// table another class with these two functions.
//   Shape    hashes have 32 bits, of which a table uses the low ones. Numbers are spread over these bits, as is the
//            std::hash of other types; a string has all its bytes hashed, eight at a time, by multiplication.
//   Strings  are equal when all their bytes are, zero bytes included (CVQString's == ends at the first of them).
//   Errors   none.  Threads  any thread, as far as reading the keys is for any thread.
//   Stable   hashes are for one process only: they differ between platforms, and may change.
#pragma once

#include <CVQString.h>

#include <cstddef>
#include <cstring>
#include <functional>
#include <type_traits>

namespace VQPrivate {

/// 2^64 divided by the golden ratio, made odd: neighbouring numbers end up far apart.
constexpr unsigned long long kHashFactor = 0x9E3779B97F4A7C15ULL;

/// Brings every bit of `value` to bear on the low bits of the result.
constexpr unsigned int spreadHash(unsigned long long value) noexcept {
    value = (value ^ (value >> 32U)) * kHashFactor;
    return static_cast<unsigned int>(value >> 32U);
}

template <class Word>
unsigned long long hashWord(const char* bytes) noexcept {
    Word word;
    std::memcpy(&word, bytes, sizeof(word));
    return word;
}

inline unsigned int hashBytes(const char* bytes, std::size_t count) noexcept {
    // The length goes in spread: beside the first byte it could be made up for by that.
    unsigned long long hash = count * kHashFactor;
    for (; count > 8; count -= 8, bytes += 8) {
        hash = (hash ^ hashWord<unsigned long long>(bytes)) * kHashFactor;
        hash ^= hash >> 32U;
    }
    // The last 1 to 8 bytes in two words that may overlap: no loop, and nothing is read past the end.
    unsigned long long last = 0;
    if (count >= 4) {
        last = hashWord<unsigned int>(bytes) | (hashWord<unsigned int>(bytes + count - 4) << 32U);
    } else if (count != 0) {
        last = hashWord<unsigned char>(bytes) | (hashWord<unsigned char>(bytes + count / 2) << 8U) |
               (hashWord<unsigned char>(bytes + count - 1) << 16U);
    }
    return spreadHash((hash ^ last) * kHashFactor);
}

}  // namespace VQPrivate

template <class K>
struct TVQHashKey {
    static unsigned int hash(const K& key) {
        // std::hash cuts 64-bit numbers to the target's 32 bits.
        if constexpr (std::is_integral_v<K> || std::is_enum_v<K>) {
            return VQPrivate::spreadHash(static_cast<unsigned long long>(key));
        } else {
            return VQPrivate::spreadHash(std::hash<K>()(key));
        }
    }
    static bool equal(const K& left, const K& right) { return left == right; }
};

/// Texts are equal when their bytes are.
template <>
struct TVQHashKey<CVQString> {
    static unsigned int hash(const CVQString& key) noexcept {
        return VQPrivate::hashBytes(key.c_str(), key.getByteLength());
    }
    static bool equal(const CVQString& left, const CVQString& right) noexcept {
        const unsigned int length = left.getByteLength();
        return length == right.getByteLength() && std::memcmp(left.c_str(), right.c_str(), length) == 0;
    }
};
