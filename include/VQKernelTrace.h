// VQKernelTrace: marks of the application's own in the kernel's instrumentation trace.
//   Errors   false when an argument is missing (the kernel is not asked) or when the kernel refuses the event;
//            errno then holds the kernel's reason. A kernel without instrumentation (ENOTSUP) counts as success, so
//            that traced code runs unchanged on it.
//   Threads  any thread.
//   Kept     trace-enotsup: true does not prove that the event was recorded.
#pragma once

#include <VQExport.h>

namespace VQKernelTrace {

VQ_EXPORT bool addSimpleUserEvent(int event, int value1, int value2);

/// `length` is passed to the kernel as it is. False for null `data` and for length 0.
VQ_EXPORT bool addComplexUserEvent(int event, void* data, unsigned length);

/// False for a null `text`.
VQ_EXPORT bool addStringUserEvent(int event, const char* text);

}  // namespace VQKernelTrace
