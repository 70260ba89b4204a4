// VQBase64AVX2: the passes of VQBase64 for processors with 32-byte integer vectors: eight groups a step. Only that
// unit is built with their instructions; whoever calls it has asked the processor first.
//   Source   W. Mula, D. Lemire, "Faster Base64 Encoding and Decoding Using AVX2 Instructions" (ACM Transactions on
//            the Web, 2018).
#pragma once

#include "VQBase64Passes.h"

namespace VQBase64 {

extern const SPasses kPassesAVX2;

}  // namespace VQBase64
