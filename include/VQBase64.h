// VQBase64: bytes as text of 64 printable characters, and back, between buffers that the caller supplies.
//
//   Units    counts in bytes and characters.
//   Shape    RFC 4648, section 4: three bytes are four characters of "A-Za-z0-9+/", highest bits first; a last
//            group of one or two bytes is filled up with "=". Written without line breaks. Read with any run of
//            carriage returns and line feeds after a group.
//   Errors   null pointers, and a destination of 0 bytes to decode into, are cheap assertions (lines 25, 78, 135)
//            without effect. Bad text is never refused: what is outside the alphabet counts as 0 or ends the
//            output.
//   Bounds   nothing is written outside the destination, and of a text nothing is read behind its zero byte: a
//            group that the text's end cuts off is read as if the end went on; a group that would begin there is
//            none.
//   Speed    groups are taken 32 characters at a time where the processor has vectors for it (asked once, at the
//            first use). All ways write the same bytes.
//   Threads  any thread. Nothing is allocated. Source and destination may not overlap.
//   Kept     base64-cut-silently: what does not fit the destination is cut off, without a terminator, even within a
//            group.
//            base64-terminator-if-room: the terminating zero byte is written only if there is room left for it.
//            base64-length-29-bits: `calcDecodeLength` calculates modulo 2^32, and drops the highest bit of the
//            quotient.
//            base64-all-padding: `calcDecodeLength` takes all "=" at the end for padding, however many.
//            base64-first-character: a first character of a group that is outside the alphabet is a 0 like "A".
//            base64-full-before-padding: a destination that is full after the first or second byte of a group ends
//            the output before that group's padding is looked at; full after the third, the padding counts
//            (docs/kept.md).
#pragma once

#include <VQExport.h>

#include <cstddef>

namespace VQBase64 {

/// Writes `length` bytes as text. `length` 0 is the empty text: a zero byte.
VQ_EXPORT void encode(const unsigned char* source, std::size_t length, char* destination,
                      std::size_t destinationSize);

/// How many bytes `text` decodes to when it has no line breaks and nothing else from outside the alphabet.
VQ_EXPORT unsigned int calcDecodeLength(const char* text);

/// Reads `text`; returns the number of bytes. Up to two bytes behind them may have been written as well. A
/// destination of more than 32 bits is refused like one of 0 bytes.
VQ_EXPORT unsigned int decode(const char* text, unsigned char* destination, std::size_t destinationSize);

}  // namespace VQBase64
