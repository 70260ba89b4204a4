#include "VQCRCVPCLMUL256.h"

#include "VQCRCFolding.h"

namespace VQCRC {
namespace {

struct SVectorOfTwo {
    using Vector = __m256i;
    static constexpr std::size_t kBytes = sizeof(Vector);

    static Vector load(const unsigned char* from) {
        return _mm256_loadu_si256(reinterpret_cast<const Vector*>(from));
    }
    static Vector fromBlock(Block block) { return _mm256_zextsi128_si256(block); }
    static Vector everywhere(Block block) { return _mm256_broadcastsi128_si256(block); }
    static Vector zero() { return _mm256_setzero_si256(); }
    static Vector reversed(Vector x) {
        return _mm256_shuffle_epi8(x,
                                   everywhere(_mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15)));
    }
    static Vector either(Vector a, Vector b) { return _mm256_xor_si256(a, b); }
    static Vector fold(Vector x, Vector constants, Vector summand) {
        return either(
            either(_mm256_clmulepi64_epi128(x, constants, 0x00), _mm256_clmulepi64_epi128(x, constants, 0x11)),
            summand);
    }
    static Vector lastBlock(Vector x) {
        constexpr int kLastBlock = 0xF0;
        return _mm256_blend_epi32(zero(), x, kLastBlock);
    }
    static Block sumOfBlocks(Vector x) { return add(_mm256_castsi256_si128(x), _mm256_extracti128_si256(x, 1)); }
};

template <class Kind>
using TPass = TFolding<Kind, SVectorOfTwo>;

}  // namespace

constexpr SPasses kPassesVPCLMUL256 = kPassesOf<TPass>;

}  // namespace VQCRC
