#include "VQUtf8.h"

#include "VQUtf8Vectors.h"

#if defined(__x86_64__)
#include "TVQPassesChoice.h"
#include "VQUtf8AVX2.h"

#include <VQExport.h>
#endif

#include <cstring>

namespace VQUtf8 {
namespace {

#if defined(__x86_64__)
const SPasses& choosePasses() {
    return __builtin_cpu_supports("avx2") != 0 ? kPassesAVX2 : kPassesOver<SVector16>;
}

VQ_CONSTINIT TVQPassesChoice<SPasses> sChoice{choosePasses};

const SPasses& passes() {
    return sChoice.get();
}
#else
const SPasses& passes() {
    return kPassesOver<SVectorWord>;
}
#endif

}  // namespace

// clang-format off
constexpr unsigned char X = kNoLead;
const unsigned char kSequenceLength[256] = {
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 00
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 10
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 20
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 30
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 40
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 50
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 60
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 70
    X, X, X, X, X, X, X, X, X, X, X, X, X, X, X, X,  // 80
    X, X, X, X, X, X, X, X, X, X, X, X, X, X, X, X,  // 90
    X, X, X, X, X, X, X, X, X, X, X, X, X, X, X, X,  // A0
    X, X, X, X, X, X, X, X, X, X, X, X, X, X, X, X,  // B0
    2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2,  // C0
    2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2,  // D0
    3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3,  // E0
    4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5, 5, 6, 6, X, X,  // F0
};
// clang-format on

SReach reach(const char* text, std::size_t maxBytes) {
    const std::size_t ascii = passes().asciiPrefix(text, maxBytes);
    if (ascii == maxBytes || text[ascii] == '\0') {
        return {ascii, ascii};
    }
    const char* const rest = text + ascii;
    if (maxBytes == kAll) {
        return {ascii + std::strlen(rest), ascii};
    }
    const void* const zero = std::memchr(rest, '\0', maxBytes - ascii);
    return {zero != nullptr ? static_cast<std::size_t>(static_cast<const char*>(zero) - text) : maxBytes, ascii};
}

SExtent measure(const char* text, std::size_t bytes, std::size_t maxCharacters) {
    return passes().measure(text, bytes, maxCharacters);
}

const char* find(const char* from, const char* end, const char* pattern, std::size_t patternBytes) {
    return passes().find(from, end, pattern, patternBytes);
}

}  // namespace VQUtf8
