// VQUtf8Vector32: the vector type of VQUtf8Passes for units that are built for processors with AVX2.
#pragma once

#include "VQUtf8Passes.h"

#include <immintrin.h>

namespace VQUtf8 {
namespace {

struct SVector32 {
    using Vector = __m256i;
    using Marks = std::uint32_t;
    static constexpr std::size_t kBytes = sizeof(Vector);
    static constexpr std::size_t kMarkBits = 1;

    static const Vector* at(const char* p) { return static_cast<const Vector*>(static_cast<const void*>(p)); }
    static Vector load(const char* p) { return _mm256_loadu_si256(at(p)); }
    VQ_UNSANITIZED static Vector loadAligned(const char* p) { return _mm256_load_si256(at(p)); }
    static Vector splat(char c) { return _mm256_set1_epi8(c); }

    // A saturating difference keeps the top bit of just the bytes from the bound on.
    static Vector atLeast90(Vector x) { return _mm256_subs_epu8(x, splat(0x90 - 0x80)); }
    static Vector atLeastA0(Vector x) { return _mm256_subs_epu8(x, splat(0xA0 - 0x80)); }
    static Vector atLeastC0(Vector x) { return _mm256_subs_epu8(x, splat(0xC0 - 0x80)); }
    static Vector atLeastE0(Vector x) { return _mm256_subs_epu8(x, splat(0xE0 - 0x80)); }
    static Vector atLeastF0(Vector x) { return _mm256_subs_epu8(x, splat(0xF0 - 0x80)); }
    static Vector atLeastF5(Vector x) { return _mm256_subs_epu8(x, splat(0xF5 - 0x80)); }
    static Vector atLeastF8(Vector x) { return _mm256_subs_epu8(x, splat(0xF8 - 0x80)); }
    // As signed bytes, 80 to BF are the lowest.
    static Vector continuation(Vector x) { return _mm256_cmpgt_epi8(splat(-0x40), x); }
    static Vector equal(Vector a, Vector b) { return _mm256_cmpeq_epi8(a, b); }
    static Vector outsideAscii(Vector x) { return _mm256_cmpgt_epi8(splat(1), x); }

    static Vector either(Vector a, Vector b) { return _mm256_or_si256(a, b); }
    static Vector both(Vector a, Vector b) { return _mm256_and_si256(a, b); }
    static Vector differ(Vector a, Vector b) { return _mm256_xor_si256(a, b); }
    static void widen(Vector x, unsigned short* out) {
        const auto store = [](unsigned short* to, __m128i half) {
            _mm256_storeu_si256(static_cast<Vector*>(static_cast<void*>(to)), _mm256_cvtepu8_epi16(half));
        };
        store(out, _mm256_castsi256_si128(x));
        store(out + kBytes / 2, _mm256_extracti128_si256(x, 1));
    }
    /// The first, second, third and fourth eight units go to the first, third, second and fourth eight bytes.
    /// Saturation makes a zero or a byte from 80 on of every unit that is not ASCII.
    static Vector narrow(const unsigned short* units) {
        const auto* const from = static_cast<const Vector*>(static_cast<const void*>(units));
        return _mm256_packus_epi16(_mm256_loadu_si256(from), _mm256_loadu_si256(from + 1));
    }
    static bool arePlain(const unsigned short* units) { return marks(outsideAscii(narrow(units))) == 0; }
    static std::size_t countWide(const unsigned short* units) {
        const auto* const from = static_cast<const Vector*>(static_cast<const void*>(units));
        const Vector all = either(_mm256_loadu_si256(from), _mm256_loadu_si256(from + 1));
        const Vector x = narrow(units);
        if (_mm256_testz_si256(all, _mm256_set1_epi16(static_cast<short>(0xF800))) == 0 ||
            marks(equal(x, splat('\0'))) != 0) {
            return kBytes + 1;
        }
        return toSize(__builtin_popcount(marks(x)));
    }
    static Marks marks(Vector x) { return static_cast<Marks>(_mm256_movemask_epi8(x)); }

    static bool plainGroup(const char* p) {
        const Vector a = _mm256_min_epi8(loadAligned(p), loadAligned(p + kBytes));
        const Vector b = _mm256_min_epi8(loadAligned(p + 2 * kBytes), loadAligned(p + 3 * kBytes));
        return marks(outsideAscii(_mm256_min_epi8(a, b))) == 0;
    }

    class Tally {
    public:
        void add(Vector view) { mBytes = _mm256_sub_epi8(mBytes, view); }
        void settle() {
            mSums = _mm256_add_epi64(mSums, _mm256_sad_epu8(mBytes, _mm256_setzero_si256()));
            mBytes = _mm256_setzero_si256();
        }
        std::size_t total() const {
            const __m128i two = _mm_add_epi64(_mm256_castsi256_si128(mSums), _mm256_extracti128_si256(mSums, 1));
            return toSize(_mm_cvtsi128_si64(_mm_add_epi64(two, _mm_unpackhi_epi64(two, two))));
        }

    private:
        Vector mBytes = _mm256_setzero_si256();  // a count for each byte of the vector, below 256
        Vector mSums = _mm256_setzero_si256();
    };
};

}  // namespace
}  // namespace VQUtf8
