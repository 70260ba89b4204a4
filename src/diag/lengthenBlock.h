// lengthenBlock: makes room behind what a block of the allocator holds, for containers that grow.
#pragma once

#include <cstddef>

/// From how many bytes on a block is better lengthened than replaced. The heap often finds room behind it, and remaps
/// the pages of a very large one; smaller ones come quickest from the lists of a thread's own, which that passes by.
constexpr std::size_t kLeastLengthened = 512;

/// As `VQMemory::reallocChecked` for a live block and a size that is not 0. What its owner asks for is a new block:
/// without memory the process ends with the report of `VQMemory::allocChecked`.
void* lengthenBlock(void* block, std::size_t size);
