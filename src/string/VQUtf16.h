// VQUtf16: the passes of the conversions between UTF-8 and UTF-16: how long is the result, and write it. And one
//   from character sets whose bytes are code points.
//   Speed    built and chosen like the passes of VQUtf8.
//   Threads  any thread, before main as well.
#pragma once

#include <cstddef>

namespace VQUtf16 {

constexpr std::size_t kMalformed = ~std::size_t{0};

/// The units that well-formed UTF-8 takes in UTF-16, or kMalformed.
std::size_t measure(const char* text, std::size_t bytes);

/// Writes these units: `text` is well-formed, and `units` is what `measure` said.
void fromUtf8(const char* text, std::size_t bytes, unsigned short* out, std::size_t units);

struct SUtf8Extent {
    unsigned long long bytes;
    unsigned long long characters;
};

/// What UTF-16 takes in UTF-8. Zero units are left out, lone surrogates are characters of three bytes.
SUtf8Extent measureUtf8(const unsigned short* units, std::size_t count);

/// Writes the ASCII that the units begin with, but for its last few; returns for how many that is. There is room for
/// `count` bytes, and what is behind those written may change.
std::size_t toAscii(const unsigned short* units, std::size_t count, char* out);

/// Writes that form: `bytes` is what `measureUtf8` said.
void toUtf8(const unsigned short* units, std::size_t count, char* out, std::size_t bytes);

/// The bytes of a character set that may stand for others than in ISO 8859-1: from `first` to `last`, none of them
/// ASCII; or none but the zero.
struct SOtherBytes {
    unsigned char first;
    unsigned char last;
};

/// Writes ISO 8859-1 in UTF-8, kLatinStep bytes at once, until less is left or room for its longest form, or other
/// bytes or a zero are among them. Returns how many bytes that were, and moves `out` behind what they became.
using LatinSteps = std::size_t (*)(const char* bytes, std::size_t count, char*& out, const char* outEnd,
                                   SOtherBytes others);
constexpr std::size_t kLatinStep = 16;

/// Null where the processor is as fast byte by byte.
LatinSteps latinSteps();

}  // namespace VQUtf16
