// VQCRCTables: CRCs with tables, for every processor.
//   Source   D. V. Sarwate, "Computation of Cyclic Redundancy Checks via Table Look-up" (1988) for one byte at a
//            time; M. E. Kounavis, F. L. Berry, "A Systematic Approach to Building High Performance,
//            Software-based, CRC Generators" (2005) for eight.
#pragma once

#include "VQCRCKinds.h"

#include <cstring>
#include <type_traits>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "words are taken from the first byte on");

namespace VQCRC {

/// The lowest `width` bits of `value` in reverse.
constexpr std::uint32_t mirrored(std::uint32_t value, unsigned width) {
    std::uint32_t mirror = 0;
    for (unsigned bit = 0; bit < width; ++bit) {
        mirror |= (value >> bit & 1U) << (width - 1 - bit);
    }
    return mirror;
}

/// What byte `index` does to an empty register. Where the high bit comes first, bits above the register's width
/// stay in, which a step masks off.
template <class Kind>
constexpr std::uint32_t tableEntry(unsigned index) {
    std::uint32_t entry = index;
    if (Kind::kLowFirst) {
        for (int bit = 0; bit < 8; ++bit) {
            entry = entry >> 1 ^ ((entry & 1U) != 0 ? mirrored(Kind::kPolynomial, Kind::kWidth) : 0U);
        }
        return entry;
    }
    entry <<= Kind::kWidth - 8;
    for (int bit = 0; bit < 8; ++bit) {
        const bool carries = (entry >> (Kind::kWidth - 1) & 1U) != 0;
        // Kept: crc-unmasked-tables. The high power is part of the exported entries.
        entry = entry << 1 ^ (carries ? Kind::kPolynomial : 0U);
    }
    return entry;
}

/// `after[n][b]`: the register that byte b leaves, n zero bytes later.
template <class Kind>
struct TTables {
    using Entry = std::conditional_t<Kind::kWidth == 16, std::uint16_t, std::uint32_t>;

    constexpr TTables() {
        for (unsigned byte = 0; byte < 256; ++byte) {
            after[0][byte] = static_cast<Entry>(tableEntry<Kind>(byte));
        }
        for (unsigned zeros = 1; zeros < 8; ++zeros) {
            for (unsigned byte = 0; byte < 256; ++byte) {
                const std::uint32_t crc = after[zeros - 1][byte];
                after[zeros][byte] =
                    static_cast<Entry>(Kind::kLowFirst ? crc >> 8 ^ after[0][crc & 0xFFU]
                                                       : crc << 8 ^ after[0][crc >> (Kind::kWidth - 8) & 0xFFU]);
            }
        }
    }

    Entry after[8][256] = {};
};

template <class Kind>
inline constexpr TTables<Kind> kTables;

template <class Kind>
struct TTablePass {
    static std::uint32_t add(std::uint32_t crc, const unsigned char* bytes, std::size_t count) {
        const auto& after = kTables<Kind>.after;
        for (; count >= 8; count -= 8, bytes += 8) {
            std::uint32_t words[2];
            std::memcpy(words, bytes, sizeof words);
            words[0] ^= inByteOrder(crc);
            crc = std::uint32_t{after[7][words[0] & 0xFFU]} ^ after[6][words[0] >> 8 & 0xFFU] ^
                  after[5][words[0] >> 16 & 0xFFU] ^ after[4][words[0] >> 24] ^ after[3][words[1] & 0xFFU] ^
                  after[2][words[1] >> 8 & 0xFFU] ^ after[1][words[1] >> 16 & 0xFFU] ^ after[0][words[1] >> 24];
        }
        for (; count > 0; --count, ++bytes) {
            crc = Kind::kLowFirst ? crc >> 8 ^ after[0][(crc ^ *bytes) & 0xFFU]
                                  : (crc << 8 & kMask) ^ after[0][(crc >> (Kind::kWidth - 8) ^ *bytes) & 0xFFU];
        }
        return crc;
    }

private:
    static constexpr std::uint32_t kMask = 0xFFFFFFFFU >> (32 - Kind::kWidth);

    /// The register as the bytes that it meets next, the first one lowest.
    static constexpr std::uint32_t inByteOrder(std::uint32_t crc) {
        return Kind::kLowFirst ? crc : __builtin_bswap32(crc) >> (32 - Kind::kWidth);
    }
};

}  // namespace VQCRC
