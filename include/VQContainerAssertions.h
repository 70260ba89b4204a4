// VQContainerAssertions: how every container reports misuse. Nothing here ends the process by itself.
//   Shape    one place that turns a code into a message and hands it to `doAssert`, and a front end for each
//            template, which adds the name of the template's header.
//   Lines    numbers of check sites. They are identifiers: a check keeps its number wherever its code moves.
//   Errors   none. A code outside the table is reported as INVALID_INTERNAL_STATE.
//   Threads  any thread, as with `doAssert`.
//   Kept     container-our-of-range: the message of code 0 is spelt so.
//            vector-erase-spelling: only `VQVectorAssertions::checkErase` spells it right.
//            vector-get-parameter: an index out of range is reported as an invalid parameter (docs/kept.md).
#pragma once

#include <VQExport.h>

class CVQListNodeBase;

namespace VQContainerAssertions {

/// What a container was asked for wrongly; each has its message.
enum ErrorCode : int {
    INDEX_OUT_OF_RANGE = 0,
    INVALID_PARAMETER = 1,
    INVALID_ITERATOR_POSITION = 2,
    INVALID_INTERNAL_STATE = 3
};

/// Reports the code's message for `line` of `file`.
VQ_EXPORT VQ_COLD void reportAssertion(ErrorCode code, const char* file, unsigned int line);
/// The same for line 0 of "<unknown file>".
VQ_EXPORT VQ_COLD void reportAssertion(ErrorCode code);

}  // namespace VQContainerAssertions

/// Reports of `TVQVector`. The checks report what is not acceptable, and return whether it is.
namespace VQVectorAssertions {

/// Always false, so that a check can end in it.
VQ_EXPORT VQ_COLD bool doAssert(VQContainerAssertions::ErrorCode code, unsigned int line);

VQ_EXPORT bool checkGet(int index, int size, unsigned int line);
VQ_EXPORT bool checkResize(int newSize, unsigned int line);
/// `last` belongs to the range.
VQ_EXPORT bool checkErase(int first, int last, int size, unsigned int line);
VQ_EXPORT bool checkInsert(int pos, const void* items, int size, unsigned int line);

}  // namespace VQVectorAssertions

namespace VQPtrVectorAssertions {
VQ_EXPORT VQ_COLD bool doAssert(VQContainerAssertions::ErrorCode code, unsigned int line);
}

namespace VQQueueAssertions {
VQ_EXPORT VQ_COLD bool doAssert(VQContainerAssertions::ErrorCode code, unsigned int line);
}

namespace VQConstRefCountedVectorAssertions {
VQ_EXPORT VQ_COLD bool doAssert(VQContainerAssertions::ErrorCode code, unsigned int line);
}

namespace VQListAssertions {

VQ_EXPORT VQ_COLD bool doAssert(VQContainerAssertions::ErrorCode code, unsigned int line);
/// Whether `node` is one; a null `node` is reported as an invalid iterator position.
VQ_EXPORT bool checkNode(const CVQListNodeBase* node, unsigned int line);

}  // namespace VQListAssertions
