// VQBase64Passes: what the forms of VQBase64 have in common: passes over whole groups.
#pragma once

#include <cstddef>

namespace VQBase64 {

/// The passes, built for one kind of processor. Each takes groups from the front, touches nothing outside the given
/// ones, and returns how many it took; what it leaves is for the plain passes.
struct SPasses {
    /// Groups of three bytes.
    std::size_t (*encode)(const unsigned char* source, std::size_t groups, char* destination);
    /// Groups of four characters, up to the first with one from outside the alphabet.
    std::size_t (*decode)(const char* text, std::size_t groups, unsigned char* destination);
};

}  // namespace VQBase64
