// The one thing in which the programs of the allocator's tests differ.
#include "MemoryTesting.h"

namespace memorytest {

#if defined(MARLIX_TEST_STATIC)
const bool kOwnsOperators = true;
#else
const bool kOwnsOperators = !kIsSanitized;
#endif

}  // namespace memorytest
