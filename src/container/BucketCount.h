// bucketCountFor: the buckets that a hash table of a given size starts with.
#pragma once

#include <cstddef>

/// The smallest power of two that is at least `n` and `least`. More than `most`, which is a power of two like
/// `least`, comes out as a number above `most`.
constexpr std::size_t bucketCountFor(std::size_t n, std::size_t least, std::size_t most) {
    std::size_t count = least;
    while (count < n && count <= most) {
        count *= 2;
    }
    return count;
}
