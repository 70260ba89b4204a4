#include "VQUtf16AVX2.h"

#include "VQUtf8Vector32.h"
#include "VQUtf8Vectors.h"

// Both directions move characters of several kinds in one step: a shuffle, chosen by which bytes belong together,
// gathers the parts of each character (from UTF-8) or closes the gaps between them (to UTF-8). A step writes whole
// vectors; what lies behind its result is overwritten by the next one, so the last few characters go one by one.

namespace VQUtf16 {
namespace {

using VQUtf8::SVector16;
using VQUtf8::SVector32;
using VQUtf8::toSize;

constexpr unsigned char kNothing = 0x80;  ///< in a shuffle: a zero byte

struct SShuffle {
    alignas(16) unsigned char from[16];

    __m128i load() const { return _mm_load_si128(static_cast<const __m128i*>(static_cast<const void*>(from))); }
};

inline __m128i load(const void* from) {
    return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

inline void store(void* to, __m128i x) {
    _mm_storeu_si128(static_cast<__m128i*>(to), x);
}

constexpr SShuffle nothing() {
    SShuffle shuffle{};
    for (unsigned char& from : shuffle.from) {
        from = kNothing;
    }
    return shuffle;
}

// ---- from UTF-8

/// Where the bytes of up to eight characters of up to three bytes stand: the last byte and the one before it become
/// the two bytes of a unit, the first of three bytes its uppermost bits.
struct SGather {
    SShuffle tail = nothing();
    SShuffle lead = nothing();

    constexpr void add(unsigned index, unsigned last, unsigned length) {
        tail.from[2 * index] = static_cast<unsigned char>(last);
        if (length > 1) {
            tail.from[2 * index + 1] = static_cast<unsigned char>(last - 1);
        }
        if (length > 2) {
            lead.from[2 * index] = static_cast<unsigned char>(last - 2);
        }
    }

    void apply(__m128i bytes, unsigned short* out) const {
        const __m128i low = _mm_shuffle_epi8(bytes, tail.load());
        const __m128i high = _mm_shuffle_epi8(bytes, lead.load());
        const __m128i last = _mm_and_si128(low, _mm_set1_epi16(0x7F));
        const __m128i middle = _mm_srli_epi16(_mm_and_si128(low, _mm_set1_epi16(0x3F00)), 2);
        store(out, _mm_or_si128(_mm_or_si128(last, middle), _mm_slli_epi16(high, 12)));
    }
};

constexpr unsigned kGatherBytes = 8;
constexpr unsigned kGatherKeys = 1U << kGatherBytes;

/// By a key with a bit set for each of eight bytes that does not end a character.
struct SGathers {
    SGather byKey[kGatherKeys];
};

constexpr SGathers makeGathers() {
    SGathers gathers{};
    for (unsigned key = 0; key < kGatherKeys; ++key) {
        unsigned index = 0;
        unsigned begin = 0;
        for (unsigned last = 0; last < kGatherBytes; ++last) {
            if ((key >> last & 1U) == 0) {
                gathers.byKey[key].add(index++, last, last + 1 - begin);
                begin = last + 1;
            }
        }
    }
    return gathers;
}

constexpr SGather makeFiveOfThree() {
    SGather gather;
    for (unsigned index = 0; index < 5; ++index) {
        gather.add(index, 3 * index + 2, 3);
    }
    return gather;
}

constexpr SGathers kGathers = makeGathers();
constexpr SGather kFiveOfThree = makeFiveOfThree();

/// Four characters of four bytes: four surrogate pairs.
inline void fromFourOfFour(__m128i bytes, unsigned short* out) {
    const __m128i payload = _mm_and_si128(bytes, _mm_set1_epi32(0x3F3F3F07));
    const __m128i halves = _mm_maddubs_epi16(payload, _mm_set1_epi16(0x0140));  // first byte * 64 + second
    const __m128i codes = _mm_madd_epi16(halves, _mm_set1_epi32(0x00011000));   // first half * 4096 + second
    const __m128i high = _mm_add_epi32(_mm_srli_epi32(codes, 10), _mm_set1_epi32(0xD7C0));
    const __m128i low = _mm_or_si128(_mm_and_si128(codes, _mm_set1_epi32(0x3FF)), _mm_set1_epi32(0xDC00));
    store(out, _mm_or_si128(high, _mm_slli_epi32(low, 16)));
}

void fromUtf8AVX2(const char* text, std::size_t bytes, unsigned short* out, std::size_t units) {
    constexpr unsigned kBlock = 2 * SVector32::kBytes;
    constexpr unsigned kStep = 16;  // bytes that a step reads, and units that it writes
    constexpr std::uint64_t kStepMask = 0xFFFF;
    constexpr std::uint64_t kThrees = 0x6DB6;  // following bytes of five characters, and no sixth
    constexpr std::uint64_t kFours = 0xEEEE;
    const char* const end = text + bytes;
    unsigned short* const outEnd = out + units;

    while (toSize(end - text) >= kBlock && toSize(outEnd - out) >= kStep) {
        const auto a = SVector32::load(text);
        const auto b = SVector32::load(text + SVector32::kBytes);
        const auto marks = [&](__m256i ofA, __m256i ofB) {
            return SVector32::marks(ofA) | std::uint64_t{SVector32::marks(ofB)} << SVector32::kBytes;
        };
        const std::uint64_t outside = marks(a, b);
        if (outside == 0 && toSize(outEnd - out) >= kBlock) {
            SVector32::widen(a, out);
            SVector32::widen(b, out + SVector32::kBytes);
            text += kBlock;
            out += kBlock;
            continue;
        }
        const std::uint64_t following = marks(SVector32::continuation(a), SVector32::continuation(b));
        const std::uint64_t fours = marks(SVector32::atLeastF0(a), SVector32::atLeastF0(b));
        unsigned at = 0;
        do {
            const __m128i x = load(text + at);
            const std::uint64_t follow = following >> at;
            if ((outside >> at & kStepMask) == 0) {
                const __m256i wide = _mm256_cvtepu8_epi16(x);
                store(out, _mm256_castsi256_si128(wide));
                store(out + 8, _mm256_extracti128_si256(wide, 1));
                at += kStep;
                out += kStep;
            } else if ((follow & kStepMask) == kThrees) {
                kFiveOfThree.apply(x, out);
                at += 15;
                out += 5;
            } else if ((follow & kStepMask) == kFours) {
                fromFourOfFour(x, out);
                at += 16;
                out += 8;
            } else {
                // Characters end before each byte that does not follow; what is behind a four has to wait.
                const std::uint64_t four = fours >> at;
                const unsigned key = (follow >> 1 | (0 - (four & (0 - four)))) & (kGatherKeys - 1);
                const unsigned ends = ~key & (kGatherKeys - 1);
                if (ends != 0) {
                    kGathers.byKey[key].apply(x, out);
                    at += 32U - static_cast<unsigned>(__builtin_clz(ends));
                    out += __builtin_popcount(ends);
                } else {
                    out = put(VQUtf8::decode(text + at, 4), out);
                    at += 4;
                }
            }
        } while (at <= kBlock - kStep && toSize(outEnd - out) >= kStep);
        text += at;
    }
    fromUtf8<SVector16>(text, toSize(end - text), out, toSize(outEnd - out));
}

// ---- to UTF-8

constexpr unsigned kCloseKeys = 256;

/// Closes the gaps in eight units of 16 bits: the key has a bit set for each that has two bytes.
struct SCloses {
    SShuffle byKey[kCloseKeys];
};

constexpr SCloses makeClosesOfTwo() {
    SCloses closes{};
    for (unsigned key = 0; key < kCloseKeys; ++key) {
        SShuffle& shuffle = closes.byKey[key] = nothing();
        unsigned to = 0;
        for (unsigned unit = 0; unit < 8; ++unit) {
            for (unsigned byte = 0; byte <= (key >> unit & 1U); ++byte) {
                shuffle.from[to++] = static_cast<unsigned char>(2 * unit + byte);
            }
        }
    }
    return closes;
}

/// The same in four units of 32 bits: the lower half of the key is for a second byte, the upper for a third.
constexpr SCloses makeClosesOfThree() {
    SCloses closes{};
    for (unsigned key = 0; key < kCloseKeys; ++key) {
        SShuffle& shuffle = closes.byKey[key] = nothing();
        unsigned to = 0;
        for (unsigned unit = 0; unit < 4; ++unit) {
            for (unsigned byte = 0; byte <= (key >> unit & 1U) + (key >> (unit + 4) & 1U); ++byte) {
                shuffle.from[to++] = static_cast<unsigned char>(4 * unit + byte);
            }
        }
    }
    return closes;
}

constexpr SCloses kClosesOfTwo = makeClosesOfTwo();
constexpr SCloses kClosesOfThree = makeClosesOfThree();

/// Eight units below 800.
inline char* toUpToTwo(__m128i units, char* out) {
    const __m128i wide = _mm_cmpgt_epi16(units, _mm_set1_epi16(0x7F));
    const __m128i lead = _mm_or_si128(_mm_srli_epi16(units, 6), _mm_set1_epi16(0x80C0 - 0x10000));
    const __m128i last = _mm_slli_epi16(_mm_and_si128(units, _mm_set1_epi16(0x3F)), 8);
    const __m128i bytes = _mm_blendv_epi8(units, _mm_or_si128(lead, last), wide);
    const auto key = static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(wide, _mm_setzero_si128())));
    store(out, _mm_shuffle_epi8(bytes, kClosesOfTwo.byKey[key].load()));
    return out + 8 + __builtin_popcount(key);
}

/// Eight units without surrogates.
inline char* toUpToThree(__m128i units, char* out) {
    const __m256i x = _mm256_cvtepu16_epi32(units);
    const auto all = [](int bits) { return _mm256_set1_epi32(bits); };
    const __m256i last = _mm256_and_si256(x, all(0x3F));
    const __m256i middle = _mm256_and_si256(_mm256_srli_epi32(x, 6), all(0x3F));
    const __m256i two =
        _mm256_or_si256(_mm256_or_si256(_mm256_srli_epi32(x, 6), all(0x80C0)), _mm256_slli_epi32(last, 8));
    const __m256i three =
        _mm256_or_si256(_mm256_or_si256(_mm256_srli_epi32(x, 12), all(0x8080E0)),
                        _mm256_or_si256(_mm256_slli_epi32(middle, 8), _mm256_slli_epi32(last, 16)));
    const __m256i second = _mm256_cmpgt_epi32(x, all(0x7F));
    const __m256i third = _mm256_cmpgt_epi32(x, all(0x7FF));
    const __m256i bytes = _mm256_blendv_epi8(_mm256_blendv_epi8(x, two, second), three, third);
    const auto seconds = static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(second)));
    const auto thirds = static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(third)));
    const unsigned lower = (seconds & 0xFU) | (thirds << 4 & 0xF0U);
    const unsigned upper = seconds >> 4 | (thirds & 0xF0U);
    store(out, _mm_shuffle_epi8(_mm256_castsi256_si128(bytes), kClosesOfThree.byKey[lower].load()));
    out += 4 + __builtin_popcount(lower);
    store(out, _mm_shuffle_epi8(_mm256_extracti128_si256(bytes, 1), kClosesOfThree.byKey[upper].load()));
    return out + 4 + __builtin_popcount(upper);
}

/// Four surrogate pairs.
inline char* toFourOfFour(__m128i units, char* out) {
    const auto all = [](int bits) { return _mm_set1_epi32(bits); };
    const __m128i high = _mm_add_epi32(_mm_and_si128(units, all(0x3FF)), all(0x40));  // with the plane left out
    const __m128i low = _mm_and_si128(_mm_srli_epi32(units, 16), all(0x3FF));
    const __m128i code = _mm_or_si128(_mm_slli_epi32(high, 10), low);
    const __m128i first = _mm_srli_epi32(code, 18);
    const __m128i second = _mm_and_si128(_mm_srli_epi32(code, 4), all(0x3F00));
    const __m128i third = _mm_and_si128(_mm_slli_epi32(code, 10), all(0x3F0000));
    const __m128i fourth = _mm_and_si128(_mm_slli_epi32(code, 24), all(0x3F000000));
    const __m128i bytes = _mm_or_si128(_mm_or_si128(first, second), _mm_or_si128(third, fourth));
    store(out, _mm_or_si128(bytes, all(static_cast<int>(0x808080F0U))));
    return out + 16;
}

void toUtf8AVX2(const unsigned short* units, std::size_t count, char* out, std::size_t bytes) {
    constexpr std::size_t kMost = 32;  // bytes that a step writes
    constexpr std::size_t kStep = 8;   // units that it takes, unless all of 32 are ASCII
    const char* const outEnd = out + bytes;
    const auto marks16 = [](__m128i x) { return static_cast<unsigned>(_mm_movemask_epi8(x)); };
    const auto equal = [](__m128i x, int to) { return _mm_cmpeq_epi16(x, _mm_set1_epi16(static_cast<short>(to))); };

    while (count >= 4 * kStep && toSize(outEnd - out) >= kMost) {
        const auto* const from = static_cast<const __m256i*>(static_cast<const void*>(units));
        const __m256i a = _mm256_loadu_si256(from);
        const __m256i b = _mm256_loadu_si256(from + 1);
        // Saturation makes a zero or a byte from 80 on of every unit that is not ASCII.
        const __m256i narrow = _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8);
        const unsigned outside = SVector32::marks(SVector32::outsideAscii(narrow));
        if (outside == 0) {
            store(out, _mm256_castsi256_si128(narrow));
            store(out + 16, _mm256_extracti128_si256(narrow, 1));
            units += 4 * kStep;
            count -= 4 * kStep;
            out += kMost;
            continue;
        }
        for (std::size_t step = 0; step < 4 && toSize(outEnd - out) >= kMost; ++step) {
            const __m128i x = load(units);
            const unsigned zeros = marks16(equal(x, 0));
            const __m128i uppermost = _mm_and_si128(x, _mm_set1_epi16(static_cast<short>(0xF800)));
            const unsigned surrogates = marks16(equal(uppermost, 0xD800));
            if (zeros == 0 && marks16(equal(uppermost, 0)) == 0xFFFF) {
                out = toUpToTwo(x, out);
            } else if ((zeros | surrogates) == 0) {
                out = toUpToThree(x, out);
            } else {
                const __m128i half = _mm_and_si128(x, _mm_set1_epi16(static_cast<short>(0xFC00)));
                const unsigned pairs =
                    marks16(_mm_cmpeq_epi32(half, _mm_set1_epi32(static_cast<int>(0xDC00D800U))));
                if (pairs != 0xFFFF) {
                    encodeUnits(units, count, out, kStep);
                    break;
                }
                out = toFourOfFour(x, out);
            }
            units += kStep;
            count -= kStep;
        }
    }
    toUtf8<SVector16>(units, count, out, toSize(outEnd - out));
}

}  // namespace

constexpr SPasses kPassesAVX2{&measure<SVector32>, &fromUtf8AVX2, &measureUtf8<SVector32>, &toUtf8AVX2};

}  // namespace VQUtf16
