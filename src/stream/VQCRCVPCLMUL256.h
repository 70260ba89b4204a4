// VQCRCVPCLMUL256: the folding CRCs for processors that multiply two blocks at once. Only that unit is built with
// their instructions; whoever calls it has asked the processor first.
#pragma once

#include "VQCRCKinds.h"

namespace VQCRC {

extern const SPasses kPassesVPCLMUL256;

}  // namespace VQCRC
