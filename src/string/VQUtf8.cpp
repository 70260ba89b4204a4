#include "VQUtf8.h"

#include "VQUtf8Vectors.h"

#if defined(__x86_64__)
#include "VQUtf8AVX2.h"
#endif

#include <VQExport.h>

#include <atomic>
#include <cstring>

namespace VQUtf8 {
namespace {

const SPasses& choosePasses() {
#if defined(__x86_64__)
    __builtin_cpu_init();  // text is built before main, perhaps before the compiler's own initialiser ran
    return __builtin_cpu_supports("avx2") != 0 ? kPassesAVX2 : kPassesOver<SVector16>;
#else
    return kPassesOver<SVectorWord>;
#endif
}

VQ_CONSTINIT std::atomic<const SPasses*> sPasses{nullptr};

const SPasses& passes() {
    const SPasses* chosen = sPasses.load(std::memory_order_relaxed);
    if (chosen == nullptr) {
        chosen = &choosePasses();
        sPasses.store(chosen, std::memory_order_relaxed);
    }
    return *chosen;
}

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
