// VQUtf8AVX2: the passes of VQUtf8 for processors with 32-byte integer vectors. Only that unit is built with their
// instructions; whoever calls it has asked the processor first.
#pragma once

#include "VQUtf8Passes.h"

namespace VQUtf8 {

extern const SPasses kPassesAVX2;

}  // namespace VQUtf8
