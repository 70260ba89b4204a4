// VQUtf8Vectors: the vector types of VQUtf8Passes that need no question to the processor.
#pragma once

#include "VQUtf8Passes.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace VQUtf8 {
namespace {

#if defined(__SSE2__)

struct SVector16 {
    using Vector = __m128i;
    using Marks = std::uint32_t;
    static constexpr std::size_t kBytes = sizeof(Vector);
    static constexpr std::size_t kMarkBits = 1;

    static const Vector* at(const char* p) { return static_cast<const Vector*>(static_cast<const void*>(p)); }
    static Vector load(const char* p) { return _mm_loadu_si128(at(p)); }
    VQ_UNSANITIZED static Vector loadAligned(const char* p) { return _mm_load_si128(at(p)); }
    static Vector splat(char c) { return _mm_set1_epi8(c); }

    // A saturating difference keeps the top bit of just the bytes from the bound on.
    static Vector atLeast90(Vector x) { return _mm_subs_epu8(x, splat(0x90 - 0x80)); }
    static Vector atLeastA0(Vector x) { return _mm_subs_epu8(x, splat(0xA0 - 0x80)); }
    static Vector atLeastC0(Vector x) { return _mm_subs_epu8(x, splat(0xC0 - 0x80)); }
    static Vector atLeastE0(Vector x) { return _mm_subs_epu8(x, splat(0xE0 - 0x80)); }
    static Vector atLeastF0(Vector x) { return _mm_subs_epu8(x, splat(0xF0 - 0x80)); }
    static Vector atLeastF5(Vector x) { return _mm_subs_epu8(x, splat(0xF5 - 0x80)); }
    static Vector atLeastF8(Vector x) { return _mm_subs_epu8(x, splat(0xF8 - 0x80)); }
    // As signed bytes, 80 to BF are the lowest.
    static Vector continuation(Vector x) { return _mm_cmpgt_epi8(splat(-0x40), x); }
    static Vector equal(Vector a, Vector b) { return _mm_cmpeq_epi8(a, b); }
    static Vector outsideAscii(Vector x) { return _mm_cmpgt_epi8(splat(1), x); }

    static Vector either(Vector a, Vector b) { return _mm_or_si128(a, b); }
    static Vector both(Vector a, Vector b) { return _mm_and_si128(a, b); }
    static Vector differ(Vector a, Vector b) { return _mm_xor_si128(a, b); }
    static void widen(Vector x, unsigned short* out) {
        auto* const to = static_cast<Vector*>(static_cast<void*>(out));
        _mm_storeu_si128(to, _mm_unpacklo_epi8(x, _mm_setzero_si128()));
        _mm_storeu_si128(to + 1, _mm_unpackhi_epi8(x, _mm_setzero_si128()));
    }
    static Vector narrow(const unsigned short* units) {
        const auto* const from = static_cast<const Vector*>(static_cast<const void*>(units));
        // Saturation makes a zero or a byte from 80 on of every unit that is not ASCII.
        return _mm_packus_epi16(_mm_loadu_si128(from), _mm_loadu_si128(from + 1));
    }
    static bool arePlain(const unsigned short* units) { return marks(outsideAscii(narrow(units))) == 0; }
    static std::size_t countWide(const unsigned short* units) {
        const auto* const from = static_cast<const Vector*>(static_cast<const void*>(units));
        const Vector all = either(_mm_loadu_si128(from), _mm_loadu_si128(from + 1));
        const Vector longer = both(all, _mm_set1_epi16(static_cast<short>(0xF800)));
        const Vector x = narrow(units);
        if (marks(equal(longer, splat('\0'))) != 0xFFFF || marks(equal(x, splat('\0'))) != 0) {
            return kBytes + 1;
        }
        const Vector ones = both(_mm_cmpgt_epi8(splat('\0'), x), splat('\1'));
        const Vector sums = _mm_sad_epu8(ones, splat('\0'));
        return toSize(_mm_cvtsi128_si32(_mm_add_epi32(sums, _mm_unpackhi_epi64(sums, sums))));
    }
    static std::size_t narrow(const unsigned short* units, char* out) {
        const Vector x = narrow(units);
        _mm_storeu_si128(static_cast<Vector*>(static_cast<void*>(out)), x);
        return toSize(__builtin_ctz(marks(outsideAscii(x)) | 1U << kBytes));
    }
    static Marks marks(Vector x) { return static_cast<Marks>(_mm_movemask_epi8(x)); }

    static bool plainGroup(const char* p) {
        const Vector a = either(outsideAscii(loadAligned(p)), outsideAscii(loadAligned(p + kBytes)));
        const Vector b =
            either(outsideAscii(loadAligned(p + 2 * kBytes)), outsideAscii(loadAligned(p + 3 * kBytes)));
        return marks(either(a, b)) == 0;
    }

    class Tally {
    public:
        void add(Vector view) { mBytes = _mm_sub_epi8(mBytes, view); }
        void settle() {
            mSums = _mm_add_epi64(mSums, _mm_sad_epu8(mBytes, _mm_setzero_si128()));
            mBytes = _mm_setzero_si128();
        }
        std::size_t total() const {
            return toSize(_mm_cvtsi128_si64(_mm_add_epi64(mSums, _mm_unpackhi_epi64(mSums, mSums))));
        }

    private:
        Vector mBytes = _mm_setzero_si128();  // a count for each byte of the vector, below 256
        Vector mSums = _mm_setzero_si128();
    };
};

#endif

/// Eight bytes in a machine word or two.
struct SVectorWord {
    using Vector = std::uint64_t;
    using Marks = std::uint64_t;
    static constexpr std::size_t kBytes = sizeof(Vector);
    static constexpr std::size_t kMarkBits = 8;
    static constexpr Vector kTop = kTopBits;
    static constexpr Vector kLow = kLowBits;
    using AliasedVector __attribute__((may_alias)) = Vector;

    static Vector load(const char* p) {
        Vector x;
        std::memcpy(&x, p, sizeof x);
        return x;
    }
    VQ_UNSANITIZED static Vector loadAligned(const char* p) {
        return *static_cast<const AliasedVector*>(static_cast<const void*>(p));
    }
    static Vector splat(char c) { return asByte(c) * kLow; }

    // A bound is a run of top bits: shifting puts each of them under the top bit of its own byte.
    static Vector atLeast90(Vector x) { return x & (x << 1 | x << 2 | x << 3); }
    static Vector atLeastA0(Vector x) { return x & (x << 1 | x << 2); }
    static Vector atLeastC0(Vector x) { return x & (x << 1); }
    static Vector atLeastE0(Vector x) { return atLeastC0(x) & (x << 2); }
    static Vector atLeastF0(Vector x) { return atLeastE0(x) & (x << 3); }
    static Vector atLeastF5(Vector x) { return atLeastF0(x) & (x << 4 | (x << 5 & (x << 6 | x << 7))); }
    static Vector atLeastF8(Vector x) { return atLeastF0(x) & (x << 4); }
    static Vector continuation(Vector x) { return x & ~(x << 1); }
    static Vector isZero(Vector x) { return ~(((x & ~kTop) + ~kTop) | x); }
    static Vector equal(Vector a, Vector b) { return isZero(a ^ b); }
    static Vector outsideAscii(Vector x) { return x | isZero(x); }

    static Vector either(Vector a, Vector b) { return a | b; }
    static Vector both(Vector a, Vector b) { return a & b; }
    static Vector differ(Vector a, Vector b) { return a ^ b; }
    static void widen(Vector x, unsigned short* out) {
        for (std::size_t i = 0; i < kBytes; ++i) {
            out[i] = static_cast<unsigned char>(x >> (8 * i));
        }
    }
    static bool arePlain(const unsigned short* units) {
        constexpr Vector kOutside = 0xFF80FF80FF80FF80U;
        constexpr Vector kOnes = 0x0001000100010001U;
        Vector a;
        Vector b;
        std::memcpy(&a, units, sizeof a);
        std::memcpy(&b, units + sizeof a / sizeof *units, sizeof b);
        // Where no higher bits are, a one is borrowed from beyond just by a unit that is zero.
        return ((a | b | (a - kOnes) | (b - kOnes)) & kOutside) == 0;
    }
    static std::size_t countWide(const unsigned short* units) {
        std::size_t wide = 0;
        bool longer = false;
        for (std::size_t i = 0; i < kBytes; ++i) {
            wide += units[i] >= 0x80 ? 1U : 0U;
            longer |= units[i] - 1U >= 0x7FF;
        }
        return longer ? kBytes + 1 : wide;
    }
    static std::size_t narrow(const unsigned short* units, char* out) {
        std::size_t done = 0;
        for (; done < kBytes && units[done] - 1U < 0x7F; ++done) {
            out[done] = static_cast<char>(units[done]);
        }
        return done;
    }
    static Marks marks(Vector x) { return x & kTop; }

    static bool plainGroup(const char* p) {
        Vector outside = 0;
        for (std::size_t i = 0; i < kGroup; ++i) {
            outside |= outsideAscii(loadAligned(p + i * kBytes));
        }
        return marks(outside) == 0;
    }

    class Tally {
    public:
        void add(Vector view) { mBytes += (view >> 7) & kLow; }
        void settle() {
            mSum += (mBytes * kLow) >> 56;
            mBytes = 0;
        }
        std::size_t total() const { return toSize(mSum); }

    private:
        Vector mBytes = 0;  // a count for each byte of the vector; a group's sum stays below 256
        std::uint64_t mSum = 0;
    };
};

}  // namespace
}  // namespace VQUtf8
