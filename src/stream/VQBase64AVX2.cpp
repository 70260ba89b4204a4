#include "VQBase64AVX2.h"

#include <immintrin.h>

namespace VQBase64 {
namespace {

using Vector = __m256i;
constexpr std::size_t kGroups = 8;  // in a vector

/// The same 16 bytes, the first one first, in both halves.
template <class... Bytes>
Vector inBothHalves(Bytes... bytes) {
    static_assert(sizeof...(bytes) == 16, "a half");
    return _mm256_setr_epi8(static_cast<char>(bytes)..., static_cast<char>(bytes)...);
}

/// The characters of values from 0 to 63: the value and what its range has for a distance to its characters.
Vector toCharacters(Vector values) {
    // 0 for both ranges of letters, 1 to 10 for the digits, 11 and 12 for the signs; then 13 for the capital
    // letters.
    const Vector beyondLetters = _mm256_subs_epu8(values, _mm256_set1_epi8(51));
    const Vector capital = _mm256_cmpgt_epi8(_mm256_set1_epi8(26), values);
    const Vector range = _mm256_or_si256(beyondLetters, _mm256_and_si256(capital, _mm256_set1_epi8(13)));
    constexpr int kDigit = '0' - 52;
    const Vector distances = inBothHalves('a' - 26, kDigit, kDigit, kDigit, kDigit, kDigit, kDigit, kDigit, kDigit,
                                          kDigit, kDigit, '+' - 62, '/' - 63, 'A', 0, 0);
    return _mm256_add_epi8(values, _mm256_shuffle_epi8(distances, range));
}

std::size_t encode(const unsigned char* source, std::size_t groups, char* destination) {
    // Each half is loaded with the four bytes behind its own twelve: those of two groups more.
    constexpr std::size_t kGroupsRead = kGroups + 2;
    std::size_t done = 0;
    for (; groups - done >= kGroupsRead; done += kGroups, source += 3 * kGroups, destination += 4 * kGroups) {
        const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source));
        const __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + 12));
        const Vector bytes = _mm256_inserti128_si256(_mm256_castsi128_si256(first), second, 1);
        // A group as two 16-bit words: bytes 0 and 1, bytes 1 and 2, the earlier byte higher.
        const Vector words =
            _mm256_shuffle_epi8(bytes, inBothHalves(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
        // The first and the third value go down to bit 0 of their bytes, the second and the fourth up to bit 8.
        const Vector down = _mm256_mulhi_epu16(_mm256_and_si256(words, _mm256_set1_epi32(0x0FC0FC00)),
                                               _mm256_set1_epi32(0x04000040));
        const Vector up = _mm256_mullo_epi16(_mm256_and_si256(words, _mm256_set1_epi32(0x003F03F0)),
                                             _mm256_set1_epi32(0x01000010));
        _mm256_storeu_si256(reinterpret_cast<Vector*>(destination), toCharacters(_mm256_or_si256(down, up)));
    }
    return done;
}

std::size_t decode(const char* text, std::size_t groups, unsigned char* destination) {
    std::size_t done = 0;
    for (; groups - done >= kGroups; done += kGroups, text += 4 * kGroups, destination += 3 * kGroups) {
        const Vector characters = _mm256_loadu_si256(reinterpret_cast<const Vector*>(text));
        // A character is outside the alphabet where the sets that its two halves belong to have a member in common:
        // 01 high half 2 without "+" and "/", 02 high half 3 without the digits, 04 high halves 4 and 6 without the
        //   letters, 08 high halves 5 and 7 without the letters, 10 the other high halves.
        const Vector high = _mm256_and_si256(_mm256_srli_epi32(characters, 4), _mm256_set1_epi8(0x0F));
        const Vector low = _mm256_and_si256(characters, _mm256_set1_epi8(0x0F));
        const Vector setsOfHigh = _mm256_shuffle_epi8(inBothHalves(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08,
                                                                   0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10),
                                                      high);
        const Vector setsOfLow = _mm256_shuffle_epi8(inBothHalves(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11,
                                                                  0x11, 0x11, 0x13, 0x1A, 0x1B, 0x1B, 0x1B, 0x1A),
                                                     low);
        if (_mm256_testz_si256(setsOfHigh, setsOfLow) == 0) {
            break;
        }
        // By the high half, each range of characters has its distance to the values; "/" shares one with "+" and
        // takes the place before it.
        const Vector slash = _mm256_cmpeq_epi8(characters, _mm256_set1_epi8('/'));
        const Vector distances =
            inBothHalves(0, 63 - '/', 62 - '+', 52 - '0', -'A', -'A', 26 - 'a', 26 - 'a', 0, 0, 0, 0, 0, 0, 0, 0);
        const Vector values =
            _mm256_add_epi8(characters, _mm256_shuffle_epi8(distances, _mm256_add_epi8(high, slash)));
        // Four values of six bits become a number of 24 bits in each 32-bit word, then three bytes, highest first.
        const Vector pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));
        const Vector numbers = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
        const Vector packed =
            _mm256_shuffle_epi8(numbers, inBothHalves(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
        const Vector bytes = _mm256_permutevar8x32_epi32(packed, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7));
        // Not a byte more than the 24: what lies behind them is the caller's.
        _mm_storeu_si128(reinterpret_cast<__m128i*>(destination), _mm256_castsi256_si128(bytes));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(destination + 16), _mm256_extracti128_si256(bytes, 1));
    }
    return done;
}

}  // namespace

constexpr SPasses kPassesAVX2{&encode, &decode};

}  // namespace VQBase64
