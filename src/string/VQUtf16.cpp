#include "VQUtf16.h"

#include "VQUtf16Passes.h"
#include "VQUtf8Vectors.h"

#if defined(__x86_64__)
#include "TVQPassesChoice.h"
#include "VQUtf16AVX2.h"

#include <VQExport.h>
#endif

namespace VQUtf16 {
namespace {

#if defined(__x86_64__)
const SPasses& choosePasses() {
    return __builtin_cpu_supports("avx2") != 0 ? kPassesAVX2 : kPassesOver<VQUtf8::SVector16>;
}

VQ_CONSTINIT TVQPassesChoice<SPasses> sChoice{choosePasses};

const SPasses& passes() {
    return sChoice.get();
}
#else
const SPasses& passes() {
    return kPassesOver<VQUtf8::SVectorWord>;
}
#endif

}  // namespace

std::size_t measure(const char* text, std::size_t bytes) {
    return passes().measure(text, bytes);
}

void fromUtf8(const char* text, std::size_t bytes, unsigned short* out, std::size_t units) {
    passes().fromUtf8(text, bytes, out, units);
}

SUtf8Extent measureUtf8(const unsigned short* units, std::size_t count) {
    return passes().measureUtf8(units, count);
}

std::size_t toAscii(const unsigned short* units, std::size_t count, char* out) {
    return passes().toAscii(units, count, out);
}

void toUtf8(const unsigned short* units, std::size_t count, char* out, std::size_t bytes) {
    passes().toUtf8(units, count, out, bytes);
}

LatinSteps latinSteps() {
    return passes().latinSteps;
}

}  // namespace VQUtf16
