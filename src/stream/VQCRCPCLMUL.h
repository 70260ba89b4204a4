// VQCRCPCLMUL: the folding CRCs for processors with carry-less multiplication of one block. Only that unit is built
// with its instructions; whoever calls it has asked the processor first.
#pragma once

#include "VQCRCKinds.h"

namespace VQCRC {

extern const SPasses kPassesPCLMUL;

}  // namespace VQCRC
