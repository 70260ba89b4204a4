// VQUtf16AVX2: the passes of VQUtf16 for processors with 32-byte integer vectors. Only that unit is built with
// their instructions; whoever calls it has asked the processor first.
#pragma once

#include "VQUtf16Passes.h"

namespace VQUtf16 {

extern const SPasses kPassesAVX2;

}  // namespace VQUtf16
