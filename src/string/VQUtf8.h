// VQUtf8: the passes over text that the string makes: measure, validate, search.
//   Rule     lenient UTF-8. The lead byte announces the length; the bytes after it need their top bit set, no
//            more.
//   Speed    each pass exists once, written over a vector type (VQUtf8Passes.h), and is built for what the
//            processor offers: 32-byte vectors where the machine has them (asked once, at the first use), 16-byte
//            ones on any other x86-64, machine words elsewhere. All give the same results to the byte.
//   Threads  any thread, before main as well.
#pragma once

#include <cstddef>

namespace VQUtf8 {

/// Bytes that a character takes, by its first byte; kNoLead for bytes that start none: 80 to BF, FE and FF.
extern const unsigned char kSequenceLength[256];
constexpr unsigned char kNoLead = 255;

/// "All of them", for a count that limits nothing.
constexpr std::size_t kAll = ~std::size_t{0};

/// A byte that starts a character, as the table has it.
constexpr bool isLead(char byte) {
    const unsigned value = static_cast<unsigned char>(byte);
    return value < 0x80U || (value >= 0xC0U && value < 0xFEU);
}

/// A following byte, as iterators know it. FE and FF are neither lead nor following bytes: a position may stand on
/// them, and they count for no character.
constexpr bool isContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

struct SExtent {
    std::size_t bytes;
    std::size_t characters;
};

/// How far a text reaches (up to a zero byte, at most `maxBytes`), and how many of its first bytes are ASCII.
struct SReach {
    std::size_t bytes;
    std::size_t asciiBytes;
};
SReach reach(const char* text, std::size_t maxBytes);

/// The longest run of valid characters at the start of `bytes` bytes, at most `maxCharacters` of them. Zero bytes
/// are characters here.
SExtent measure(const char* text, std::size_t bytes, std::size_t maxCharacters);

/// The first place in [from, end) where all of `pattern` stands, or null. A zero byte in the text ends the search.
const char* find(const char* from, const char* end, const char* pattern, std::size_t patternBytes);

}  // namespace VQUtf8
