// VQCRCVPCLMUL: the folding CRCs for processors that multiply four blocks at once. Only that unit is built with
// their instructions; whoever calls it has asked the processor first.
#pragma once

#include "VQCRCKinds.h"

namespace VQCRC {

extern const SPasses kPassesVPCLMUL;

}  // namespace VQCRC
