#include "VQCRCPCLMUL.h"

#include "VQCRCFolding.h"

namespace VQCRC {
namespace {

struct SVectorOfOne {
    using Vector = Block;
    static constexpr std::size_t kBytes = sizeof(Vector);

    static Vector load(const unsigned char* from) { return loadBlock(from); }
    static Vector fromBlock(Block block) { return block; }
    static Vector everywhere(Block block) { return block; }
    static Vector zero() { return _mm_setzero_si128(); }
    static Vector reversed(Vector x) { return reversedBlock(x); }
    static Vector either(Vector a, Vector b) { return add(a, b); }
    static Vector fold(Vector x, Vector constants, Vector summand) { return foldBlock(x, constants, summand); }
};

template <class Kind>
using TPass = TFolding<Kind, SVectorOfOne>;

}  // namespace

constexpr SPasses kPassesPCLMUL = kPassesOf<TPass>;

}  // namespace VQCRC
