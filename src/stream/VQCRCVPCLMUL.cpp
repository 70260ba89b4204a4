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
    static Vector lastBlock(Vector x) {
        constexpr __mmask8 kLastBlock = 0xC0;
        return _mm512_maskz_mov_epi64(kLastBlock, x);
    }
    static Block sumOfBlocks(Vector x) {
        const __m256i two = _mm256_xor_si256(_mm512_castsi512_si256(x), _mm512_extracti64x4_epi64(x, 1));
        return add(_mm256_castsi256_si128(two), _mm256_extracti128_si256(two, 1));
    }
};

template <class Kind>
using TPass = TFolding<Kind, SVectorOfFour>;

}  // namespace

constexpr SPasses kPassesVPCLMUL = kPassesOf<TPass>;

}  // namespace VQCRC
