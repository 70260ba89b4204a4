// VQMemUtilities: fills memory with values of 4 to 64 bits, and asks for alignment.
//   Units    `count` in elements: bytes, 16-, 32- or 64-bit values, or nibbles.
//   Errors   none: a null pointer or a count of 0 does nothing.
//   Threads  any thread, one at a time on the same memory.
//
// The pointers of the wider fills need not be aligned.
#pragma once

#include <VQExport.h>

namespace VQMemUtilities {

/// The pointer if it is 4-byte aligned, else null.
VQ_EXPORT unsigned* castToUInt32Ptr(void* p);
VQ_EXPORT const unsigned* castToUInt32Ptr(const void* p);
/// The pointer if it is 2-byte aligned, else null.
VQ_EXPORT unsigned short* castToUInt16Ptr(void* p);
VQ_EXPORT const unsigned short* castToUInt16Ptr(const void* p);

VQ_EXPORT void memFillUInt8(unsigned char* p, unsigned count, unsigned char value);
VQ_EXPORT void memFillUInt16(unsigned short* p, unsigned count, unsigned short value);
VQ_EXPORT void memFillUInt32(unsigned* p, unsigned count, unsigned value);
VQ_EXPORT void memFillUInt64(unsigned long long* p, unsigned count, unsigned long long value);

/// Fills `count` nibbles with the low 4 bits of `value`. A byte's high nibble comes before its low one. With a
/// non-zero `startAtLowNibble` the fill begins at the low nibble of the first byte. The other halves of the first
/// and the last byte keep their content.
VQ_EXPORT void memFillNibble(unsigned char* p, unsigned count, unsigned char value, unsigned startAtLowNibble);

}  // namespace VQMemUtilities
