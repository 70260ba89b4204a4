#include "VQUtf16AVX2.h"

#include "VQUtf8Vector32.h"
#include "VQUtf8Vectors.h"

// A step takes a fixed number of bytes or units, whatever characters they are of, so that no step waits for another
// to tell where it begins. A shuffle, chosen by which of them end a character, gathers the parts of each character
// (from UTF-8) or closes the gaps between them (to UTF-8). Each step writes whole vectors; what lies behind its
// result is overwritten by the next, so the last few characters go one by one.

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
inline void store(void* to, __m256i x) {
    _mm256_storeu_si256(static_cast<__m256i*>(to), x);
}

constexpr SShuffle nothing() {
    SShuffle shuffle{};
    for (unsigned char& from : shuffle.from) {
        from = kNothing;
    }
    return shuffle;
}

// ---- from UTF-8

constexpr unsigned kGatherBytes = 8;
constexpr unsigned kGatherKeys = 1U << kGatherBytes;
constexpr unsigned kLookBack = 2;  ///< of the vectors; what begins a pair is looked for one byte earlier

/// By a key with a bit set for each of eight bytes that completes a unit: where that byte and the one before it
/// stand in a vector that begins two bytes earlier.
struct SGathers {
    SShuffle byKey[kGatherKeys];
};

constexpr SGathers makeGathers() {
    SGathers gathers{};
    for (unsigned key = 0; key < kGatherKeys; ++key) {
        SShuffle& shuffle = gathers.byKey[key] = nothing();
        unsigned to = 0;
        for (unsigned last = 0; last < kGatherBytes; ++last) {
            if ((key >> last & 1U) != 0) {
                shuffle.from[to++] = static_cast<unsigned char>(last + kLookBack);
                shuffle.from[to++] = static_cast<unsigned char>(last + kLookBack - 1);
            }
        }
    }
    return gathers;
}

constexpr SGathers kGathers = makeGathers();

inline __m256i all16(unsigned bits) {
    return _mm256_set1_epi16(static_cast<short>(bits));
}

/// Twice eight units, each from its last byte and the one before it (in `two`, the last byte lower), of characters
/// of up to two bytes.
inline __m256i unitsOf(__m256i two) {
    const __m256i last = _mm256_and_si256(two, all16(0x7F));
    const __m256i middle = _mm256_srli_epi16(_mm256_and_si256(two, all16(0x3F00)), 2);
    const __m256i ofTwo = _mm256_srai_epi16(_mm256_slli_epi16(two, 8), 15);  // the last one follows
    return _mm256_or_si256(last, _mm256_and_si256(middle, ofTwo));
}

/// The same of up to three bytes, of which `third` has the one before the other two.
inline __m256i unitsOf(__m256i two, __m256i third) {
    const __m256i ofTwo = _mm256_srai_epi16(_mm256_slli_epi16(two, 8), 15);
    const __m256i ofThree = _mm256_and_si256(ofTwo, _mm256_cmpgt_epi16(all16(0xC000), two));  // both follow
    return _mm256_or_si256(unitsOf(two), _mm256_and_si256(_mm256_slli_epi16(third, 12), ofThree));
}

/// The same where some units are surrogates: the third byte of four completes the high one, the fourth the low one.
inline __m256i unitsAndPairsOf(__m256i two, __m256i third) {
    const __m256i bothFollow =
        _mm256_and_si256(_mm256_srai_epi16(_mm256_slli_epi16(two, 8), 15), _mm256_cmpgt_epi16(all16(0xC000), two));
    const __m256i isHigh = _mm256_and_si256(bothFollow, _mm256_cmpgt_epi16(third, all16(0xEF)));
    const __m256i follows =
        _mm256_and_si256(_mm256_cmpgt_epi16(third, all16(0x7F)), _mm256_cmpgt_epi16(all16(0xC0), third));
    const __m256i isLow = _mm256_and_si256(bothFollow, follows);
    // Bits 10 and up of the code point, less the plane that pairs leave out.
    const __m256i lead = _mm256_slli_epi16(_mm256_and_si256(third, all16(0x07)), 8);
    const __m256i upper = _mm256_or_si256(_mm256_srli_epi16(_mm256_and_si256(two, all16(0x3F00)), 6),
                                          _mm256_srli_epi16(_mm256_and_si256(two, all16(0x30)), 4));
    const __m256i high = _mm256_add_epi16(_mm256_or_si256(lead, upper), all16(0xD7C0));
    const __m256i low = _mm256_or_si256(_mm256_or_si256(_mm256_srli_epi16(_mm256_and_si256(two, all16(0x0F00)), 2),
                                                        _mm256_and_si256(two, all16(0x3F))),
                                        all16(0xDC00));
    return _mm256_blendv_epi8(_mm256_blendv_epi8(unitsOf(two, third), high, isHigh), low, isLow);
}

constexpr std::size_t kStep = 16;  ///< bytes that a step from UTF-8 takes, and units that it writes
constexpr std::size_t kReach = kGatherBytes - kLookBack + 16;  ///< bytes that it reads
constexpr std::size_t kPlainStep = 64;

/// The bytes of the whole vectors at the beginning that are ASCII: each takes a unit.
inline std::size_t fromPlain(const char* text, std::size_t bytes, unsigned short* out) {
    std::size_t at = 0;
    for (; bytes - at >= SVector32::kBytes; at += SVector32::kBytes) {
        const auto x = SVector32::load(text + at);
        if (SVector32::marks(x) != 0) {
            break;
        }
        SVector32::widen(x, out + at);
    }
    return at;
}

/// From the beginning of a character on, with three bytes before it, up to the end or the end of the room but for a
/// few. It may stop inside a character.
inline void fromUtf8BySteps(const char*& text, const char* end, unsigned short*& out,
                            const unsigned short* outEnd) {
    const auto left = [&] { return toSize(end - text); };
    const auto room = [&] { return toSize(outEnd - out); };
    while (left() >= kReach && room() >= kStep) {
        if (left() >= kPlainStep && room() >= kPlainStep) {
            const auto a = SVector32::load(text);
            const auto b = SVector32::load(text + SVector32::kBytes);
            if (SVector32::marks(SVector32::either(a, b)) == 0) {
                SVector32::widen(a, out);
                SVector32::widen(b, out + SVector32::kBytes);
                text += kPlainStep;
                out += kPlainStep;
                continue;
            }
        }
        // As many again, since text that is not plain once is likely not to be so the next time.
        for (std::size_t step = 0; step < kPlainStep / kStep && left() >= kReach && room() >= kStep; ++step) {
            const __m128i lookedBack = load(text - kLookBack);
            const auto follow = static_cast<unsigned>(_mm_movemask_epi8(SVector16::continuation(load(text + 1))));
            const bool hasLong =
                _mm_movemask_epi8(SVector16::atLeastE0(lookedBack)) != 0 || asByte(text[-3]) >= 0xF0;
            const auto thirdOfFour =
                hasLong ? static_cast<unsigned>(_mm_movemask_epi8(SVector16::atLeastF0(lookedBack))) : 0;
            const unsigned ends = (~follow | thirdOfFour) & 0xFFFFU;
            const unsigned lower = ends & (kGatherKeys - 1);
            const unsigned upper = ends >> kGatherBytes;
            const __m256i source = _mm256_set_m128i(load(text + kGatherBytes - kLookBack), lookedBack);
            const __m256i gather = _mm256_set_m128i(kGathers.byKey[upper].load(), kGathers.byKey[lower].load());
            const __m256i two = _mm256_shuffle_epi8(source, gather);
            __m256i made;
            if (hasLong) {
                const __m256i before = _mm256_or_si256(_mm256_sub_epi8(gather, all16(2)), all16(0xFF00));
                const __m256i third = _mm256_shuffle_epi8(source, before);
                const bool hasPairs = thirdOfFour != 0 || asByte(text[-3]) >= 0xF0;
                made = hasPairs ? unitsAndPairsOf(two, third) : unitsOf(two, third);
            } else {
                made = unitsOf(two);
            }
            store(out, _mm256_castsi256_si128(made));
            out += __builtin_popcount(lower);
            store(out, _mm256_extracti128_si256(made, 1));
            out += __builtin_popcount(upper);
            text += kStep;
        }
    }
}

void fromUtf8AVX2(const char* text, std::size_t bytes, unsigned short* out, std::size_t units) {
    const char* const end = text + bytes;
    const unsigned short* const outEnd = out + units;
    const std::size_t plain = fromPlain(text, bytes, out);
    text += plain;
    out += plain;
    if (bytes - plain > 2 * kStep) {
        for (std::size_t passed = plain; passed <= kLookBack;) {
            const std::size_t length = VQUtf8::kSequenceLength[asByte(*text)];
            out = put(VQUtf8::decode(text, length), out);
            text += length;
            passed += length;
        }
        fromUtf8BySteps(text, end, out, outEnd);
        if (const std::size_t begun = VQUtf8::unfinishedBefore(text); begun != 0) {
            text -= begun;
            out -= begun < 3 ? 0 : 1;  // the high surrogate
        }
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

/// Sixteen units: the bytes of those that have one or two.
struct SUpToTwo {
    __m256i bytes;
    __m256i wide;  ///< all bits set where there are two

    explicit SUpToTwo(__m256i units) : wide(_mm256_cmpgt_epi16(units, all16(0x7F))) {
        const __m256i two = bytesOf(0x80C0, _mm256_srli_epi16(units, 6), lowSix(units));
        bytes = _mm256_blendv_epi8(units, two, wide);
    }

    static __m256i bytesOf(unsigned marks, __m256i lead, __m256i last) {
        return _mm256_or_si256(all16(marks), _mm256_or_si256(lead, last));
    }
    static __m256i lowSix(__m256i units) { return _mm256_slli_epi16(_mm256_and_si256(units, all16(0x3F)), 8); }

    /// Surrogates of pairs have two bytes each: the high one has the bits for the first two, and its last two bits
    /// are the third byte's. `before` and `behind` have the neighbours of each. All bits set where a pair is.
    __m256i pair(__m256i before, __m256i units, __m256i behind) {
        const auto isOf = [](__m256i x, unsigned kind) {
            return _mm256_cmpeq_epi16(_mm256_and_si256(x, all16(0xFC00)), all16(kind));
        };
        const __m256i isHigh = _mm256_and_si256(isOf(units, 0xD800), isOf(behind, 0xDC00));
        const __m256i isLow = _mm256_and_si256(isOf(units, 0xDC00), isOf(before, 0xD800));
        const __m256i upper = _mm256_add_epi16(_mm256_and_si256(units, all16(0x3FF)), all16(0x40));
        const __m256i high = bytesOf(0x80F0, _mm256_srli_epi16(upper, 8),
                                     _mm256_slli_epi16(_mm256_and_si256(upper, all16(0xFC)), 6));
        const __m256i third = _mm256_or_si256(_mm256_slli_epi16(_mm256_and_si256(before, all16(3)), 4),
                                              _mm256_and_si256(_mm256_srli_epi16(units, 6), all16(0xF)));
        const __m256i low = bytesOf(0x8080, third, lowSix(units));
        const __m256i isPair = _mm256_or_si256(isHigh, isLow);
        bytes = _mm256_blendv_epi8(_mm256_blendv_epi8(bytes, high, isHigh), low, isLow);
        wide = _mm256_or_si256(wide, isPair);
        return isPair;
    }

    /// The first eight units, or all.
    template <std::size_t Halves>
    char* write(char* out) const {
        const unsigned keys = SVector32::marks(_mm256_packs_epi16(wide, _mm256_setzero_si256()));
        const unsigned lower = keys & (kCloseKeys - 1);
        const unsigned upper = keys >> 16;
        const __m256i close = _mm256_set_m128i(kClosesOfTwo.byKey[upper].load(), kClosesOfTwo.byKey[lower].load());
        const __m256i closed = _mm256_shuffle_epi8(bytes, close);
        store(out, _mm256_castsi256_si128(closed));
        out += 8 + __builtin_popcount(lower);
        if (Halves == 1) {
            return out;
        }
        store(out, _mm256_extracti128_si256(closed, 1));
        return out + 8 + __builtin_popcount(upper);
    }
};

/// Twice four units, of which some have three bytes. `upToTwo` has the bytes of the others, `isPair` all bits set
/// where there is a surrogate of a pair.
inline char* toUpToThree(__m128i units, __m128i upToTwo, __m128i isPair, char* out) {
    const auto all = [](unsigned bits) { return _mm256_set1_epi32(static_cast<int>(bits)); };
    const __m256i codes = _mm256_cvtepu16_epi32(units);
    const __m256i second = _mm256_cmpgt_epi32(codes, all(0x7F));
    const __m256i third = _mm256_andnot_si256(_mm256_cvtepi16_epi32(isPair), _mm256_cmpgt_epi32(codes, all(0x7FF)));
    const __m256i last = _mm256_slli_epi32(_mm256_and_si256(codes, all(0x3F)), 16);
    const __m256i middle = _mm256_and_si256(_mm256_slli_epi32(codes, 2), all(0x3F00));
    const __m256i lead = _mm256_or_si256(_mm256_srli_epi32(codes, 12), all(0x8080E0));
    const __m256i three = _mm256_or_si256(lead, _mm256_or_si256(middle, last));
    const __m256i bytes = _mm256_blendv_epi8(_mm256_cvtepu16_epi32(upToTwo), three, third);
    const auto seconds = static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(second)));
    const auto thirds = static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(third)));
    const unsigned lower = (seconds & 0xFU) | (thirds << 4 & 0xF0U);
    const unsigned upper = seconds >> 4 | (thirds & 0xF0U);
    store(out, _mm_shuffle_epi8(_mm256_castsi256_si128(bytes), kClosesOfThree.byKey[lower].load()));
    out += 4 + __builtin_popcount(lower);
    store(out, _mm_shuffle_epi8(_mm256_extracti128_si256(bytes, 1), kClosesOfThree.byKey[upper].load()));
    return out + 4 + __builtin_popcount(upper);
}

/// Where a step stopped inside a pair, goes on behind it.
inline void completePair(const unsigned short*& units, std::size_t& count, char*& out) {
    if (count != 0 && VQUtf8::isHighSurrogate(units[-1]) && VQUtf8::isLowSurrogate(*units)) {
        out = VQUtf8::encode(VQUtf8::combine(units[-1], *units), out - 2);  // with the two bytes of the high one
        ++units;
        --count;
    }
}

constexpr std::size_t kPlainUnits = 32;  ///< units, and bytes, of a plain step to UTF-8
constexpr std::size_t kUnits = 8;        ///< units that a step takes, or twice as many
constexpr std::size_t kStepRoom = 32;    ///< bytes that it writes, or twice as many

/// One step for `Halves` times eight units: false, and nothing done, where zeros are among them.
template <std::size_t Halves>
inline bool stepToUtf8(const unsigned short* units, char*& out) {
    const auto loadHalves = [](const unsigned short* from) {
        return Halves == 1 ? _mm256_broadcastsi128_si256(load(from))
                           : _mm256_set_m128i(load(from + kUnits), load(from));
    };
    const __m256i zero = _mm256_setzero_si256();
    const __m256i x = loadHalves(units);
    if (SVector32::marks(_mm256_cmpeq_epi16(x, zero)) != 0) {
        return false;
    }
    const __m256i uppermost = _mm256_and_si256(x, all16(0xF800));
    SUpToTwo upToTwo(x);
    __m256i isPair = zero;
    if (SVector32::marks(_mm256_cmpeq_epi16(uppermost, all16(0xD800))) != 0) {
        isPair = upToTwo.pair(loadHalves(units - 1), x, loadHalves(units + 1));
    }
    if (_mm256_testc_si256(isPair, uppermost) != 0) {
        out = upToTwo.write<Halves>(out);
        return true;
    }
    out = toUpToThree(_mm256_castsi256_si128(x), _mm256_castsi256_si128(upToTwo.bytes),
                      _mm256_castsi256_si128(isPair), out);
    if (Halves == 2) {
        out = toUpToThree(_mm256_extracti128_si256(x, 1), _mm256_extracti128_si256(upToTwo.bytes, 1),
                          _mm256_extracti128_si256(isPair, 1), out);
    }
    return true;
}

/// From behind at least one unit on, as long as units and room are there for whole steps and a unit is behind them.
/// May stop inside a pair.
template <std::size_t Halves>
inline void toUtf8BySteps(const unsigned short*& units, std::size_t& count, char*& out, const char* outEnd) {
    while (count > Halves * kUnits && toSize(outEnd - out) >= Halves * kStepRoom) {
        if (stepToUtf8<Halves>(units, out)) {
            units += Halves * kUnits;
            count -= Halves * kUnits;
        } else {
            completePair(units, count, out);
            encodeUnits(units, count, out, kUnits);
        }
    }
}

std::size_t toAsciiAVX2(const unsigned short* units, std::size_t count, char* out) {
    std::size_t at = 0;
    for (; count - at >= kPlainUnits; at += kPlainUnits) {
        const __m256i narrow = SVector32::narrow(units + at);
        if (SVector32::marks(SVector32::outsideAscii(narrow)) != 0) {
            break;
        }
        store(out + at, _mm256_permute4x64_epi64(narrow, 0xD8));
    }
    return at;
}

void toUtf8AVX2(const unsigned short* units, std::size_t count, char* out, std::size_t bytes) {
    const char* const outEnd = out + bytes;
    const std::size_t ascii = toAsciiAVX2(units, count, out);
    units += ascii;
    count -= ascii;
    out += ascii;
    if (count > 2 * kUnits) {
        encodeUnits(units, count, out, 1);
        toUtf8BySteps<2>(units, count, out, outEnd);
        toUtf8BySteps<1>(units, count, out, outEnd);
        completePair(units, count, out);
    }
    toUtf8<SVector16>(units, count, out, toSize(outEnd - out));
}

// ---- from ISO 8859-1

static_assert(kLatinStep == sizeof(__m128i) && kLatinStep * 2 == kStepRoom);

std::size_t latinStepsAVX2(const char* const bytes, std::size_t count, char*& out, const char* outEnd,
                           SOtherBytes others) {
    const __m128i first = _mm_set1_epi8(static_cast<char>(others.first));
    const __m128i span = _mm_set1_epi8(static_cast<char>(others.last - others.first));
    const auto areOthers = [&](__m128i x) {
        const __m128i beyond = _mm_sub_epi8(x, first);
        return _mm_or_si128(_mm_cmpeq_epi8(x, _mm_setzero_si128()),
                            _mm_cmpeq_epi8(_mm_min_epu8(beyond, span), beyond));
    };
    char* to = out;  // not in the caller's, which each store might change
    std::size_t at = 0;
    const auto hasRoomFor = [&](std::size_t step, std::size_t room) {
        return count - at >= step && toSize(outEnd - to) >= room;
    };
    const auto end = [&] {
        out = to;
        return at;
    };
    while (hasRoomFor(kLatinStep, kStepRoom)) {
        if (hasRoomFor(kPlainStep, kPlainStep)) {
            const auto a = SVector32::load(bytes + at);
            const auto b = SVector32::load(bytes + at + SVector32::kBytes);
            if (SVector32::marks(SVector32::outsideAscii(_mm256_min_epi8(a, b))) == 0) {
                store(to, a);
                store(to + SVector32::kBytes, b);
                to += kPlainStep;
                at += kPlainStep;
                continue;
            }
        }
        // As many again, since text that is not plain once is likely not to be so the next time.
        for (std::size_t i = 0; i < kPlainStep / kLatinStep && hasRoomFor(kLatinStep, kStepRoom); ++i) {
            const __m128i x = load(bytes + at);
            if (_mm_movemask_epi8(areOthers(x)) != 0) {
                return end();
            }
            to = SUpToTwo(_mm256_cvtepu8_epi16(x)).write<2>(to);
            at += kLatinStep;
        }
    }
    return end();
}

}  // namespace

constexpr SPasses kPassesAVX2{&measure<SVector32>, &fromUtf8AVX2, &measureUtf8<SVector32>,
                              &toAsciiAVX2,        &toUtf8AVX2,   &latinStepsAVX2};

}  // namespace VQUtf16
