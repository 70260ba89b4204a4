#include <CVQCRC.h>

#include <CVQAsserter.h>
#include <stream/VQCRCTables.h>

#if defined(__x86_64__)
#include <stream/VQCRCPCLMUL.h>
#include <stream/VQCRCVPCLMUL.h>
#include <stream/VQCRCVPCLMUL256.h>
#include <string/TVQPassesChoice.h>
#endif

namespace {

constexpr char kUnit[] = "CVQCRC";
constexpr unsigned kLineNoBytes = 108;

using namespace VQCRC;

constexpr SPasses kPassesWithTables = kPassesOf<TTablePass>;

#if defined(__x86_64__)
const SPasses& choosePasses() {
    if (__builtin_cpu_supports("pclmul") == 0 || __builtin_cpu_supports("sse4.1") == 0) {
        return kPassesWithTables;
    }
    if (__builtin_cpu_supports("vpclmulqdq") == 0 || __builtin_cpu_supports("avx2") == 0) {
        return kPassesPCLMUL;
    }
    const bool fourAtOnce = __builtin_cpu_supports("avx512bw") != 0 && __builtin_cpu_supports("avx512vl") != 0;
    return fourAtOnce ? kPassesVPCLMUL : kPassesVPCLMUL256;
}

VQ_CONSTINIT TVQPassesChoice<SPasses> sChoice{choosePasses};

const SPasses& passesFor(std::size_t count) {
    return count >= kLeast ? sChoice.get() : kPassesWithTables;
}
#else
const SPasses& passesFor(std::size_t /*count*/) {
    return kPassesWithTables;
}
#endif

}  // namespace

const unsigned int CVQCRC::mWidth[4] = {16, 32, 16, 16};
const bool CVQCRC::mReverseOrder[4] = {false, true, true, false};
// Kept: crc-finished-start. Zero over no bytes, as receivers of empty messages compare it.
const unsigned int CVQCRC::mInitialValue[4] = {0xFFFF, 0, 0xFFFF, 0};
const unsigned int CVQCRC::mXorOutValue[4] = {0, 0xFFFFFFFF, 0, 0};

// An array cannot be had from a function, hence the macros.
#define FOUR(kind, i)                                                                                              \
    tableEntry<kind>(i), tableEntry<kind>((i) + 1), tableEntry<kind>((i) + 2), tableEntry<kind>((i) + 3)
#define SIXTEEN(kind, i) FOUR(kind, i), FOUR(kind, (i) + 4), FOUR(kind, (i) + 8), FOUR(kind, (i) + 12)
#define SIXTY_FOUR(kind, i)                                                                                        \
    SIXTEEN(kind, i), SIXTEEN(kind, (i) + 16), SIXTEEN(kind, (i) + 32), SIXTEEN(kind, (i) + 48)
#define TABLE(kind)                                                                                                \
    { SIXTY_FOUR(kind, 0), SIXTY_FOUR(kind, 64), SIXTY_FOUR(kind, 128), SIXTY_FOUR(kind, 192) }
VQ_CONSTINIT const unsigned int CVQCRC::mCRCTab[4][256] = {TABLE(SHighFirst16), TABLE(SLowFirst32),
                                                           TABLE(SLowFirst16), TABLE(SHighFirst16)};
#undef TABLE
#undef SIXTY_FOUR
#undef SIXTEEN
#undef FOUR

void CVQCRC::addByte(unsigned char byte) noexcept {
    const unsigned width = mWidth[mType];
    const unsigned crc = mValue ^ mXorOutValue[mType];
    const unsigned next = mReverseOrder[mType] ? crc >> 8 ^ mCRCTab[mType][(crc ^ byte) & 0xFFU]
                                               : crc << 8 ^ mCRCTab[mType][(crc >> (width - 8) ^ byte) & 0xFFU];
    mValue = (next ^ mXorOutValue[mType]) & (0xFFFFFFFFU >> (32 - width));
}

void CVQCRC::addBytes(const unsigned char* bytes, std::size_t count) noexcept {
    if (VQ_UNLIKELY(bytes == nullptr)) {
        doCheapAssert(kLineNoBytes, kUnit);
        return;
    }
    mValue = passesFor(count).add[mType](mValue ^ mXorOutValue[mType], bytes, count) ^ mXorOutValue[mType];
}
