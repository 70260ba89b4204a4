#include "VQCRCVPCLMUL.h"

// GCC 12 takes the vectors that its own header leaves undefined on purpose for a mistake.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include "VQCRCFolding.h"

namespace VQCRC {
namespace {

struct SVectorOfFour {
    using Vector = __m512i;
    static constexpr std::size_t kBytes = sizeof(Vector);

    static Vector load(const unsigned char* from) { return _mm512_loadu_si512(from); }
    static Vector fromBlock(Block block) { return _mm512_zextsi128_si512(block); }
    static Vector everywhere(Block block) { return _mm512_broadcast_i32x4(block); }
    static Vector zero() { return _mm512_setzero_si512(); }
    static Vector reversed(Vector x) {
        return _mm512_shuffle_epi8(x,
                                   everywhere(_mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15)));
    }
    static Vector either(Vector a, Vector b) { return _mm512_xor_si512(a, b); }
    static Vector fold(Vector x, Vector constants, Vector summand) {
        constexpr int kAddAll = 0x96;
        return _mm512_ternarylogic_epi64(_mm512_clmulepi64_epi128(x, constants, 0x00),
                                         _mm512_clmulepi64_epi128(x, constants, 0x11), summand, kAddAll);
    }
    /// `others` is what the given blocks are added to.
    template <class Divisor>
    static Block toBlock(Vector last, Vector others = zero()) {
        constexpr __mmask8 kLastBlock = 0xC0;
        const Vector sum =
            fold(last, toLastBlock<Divisor, 0>(), either(others, _mm512_maskz_mov_epi64(kLastBlock, last)));
        const __m256i two = _mm256_xor_si256(_mm512_castsi512_si256(sum), _mm512_extracti64x4_epi64(sum, 1));
        return add(_mm256_castsi256_si128(two), _mm256_extracti128_si256(two, 1));
    }
    /// The same for four vectors, all at once.
    template <class Divisor>
    static Block toBlock(Vector a, Vector b, Vector c, Vector d) {
        const Vector others = fold(a, toLastBlock<Divisor, 3>(),
                                   fold(b, toLastBlock<Divisor, 2>(), fold(c, toLastBlock<Divisor, 1>(), zero())));
        return toBlock<Divisor>(d, others);
    }

private:
    /// What takes each block of a vector to the last block of the vector that stands `vectors` behind it; zeros
    /// where that is the block itself, which is added as it stands.
    template <class Divisor, unsigned vectors>
    static Vector toLastBlock() {
        constexpr unsigned kBits = 128;
        constexpr unsigned kBehind = 4 * vectors * kBits;
        alignas(Vector) static constexpr SHalves kForward[4] = {
            Divisor::forward(kBehind + 3 * kBits), Divisor::forward(kBehind + 2 * kBits),
            Divisor::forward(kBehind + kBits), vectors != 0 ? Divisor::forward(kBehind) : SHalves{0, 0}};
        return _mm512_load_si512(kForward);
    }
};

template <class Kind>
using TPass = TFolding<Kind, SVectorOfFour>;

}  // namespace

constexpr SPasses kPassesVPCLMUL = kPassesOf<TPass>;

}  // namespace VQCRC
