// VirtualSlot: where a virtual operation stands in its class's table, for tests of binary interfaces.
#pragma once

#include <cstddef>
#include <cstring>
#include <gtest/gtest.h>

namespace support {

/// The place in the table that a pointer to a virtual operation names, as the Itanium C++ ABI lays it down: two
/// words, of which one holds the distance in the table; the mark "virtual" is the lowest bit of the first word, on
/// ARM (whose functions may start at odd addresses) of the second. A virtual destructor takes two places.
template <class Operation>
std::ptrdiff_t slotOf(Operation operation) {
    std::ptrdiff_t words[2];
    static_assert(sizeof operation == sizeof words);
    std::memcpy(words, &operation, sizeof words);
#if defined(__arm__) || defined(__aarch64__)
    EXPECT_EQ(1, words[1] & 1) << "not virtual";
    const std::ptrdiff_t distance = words[0];
#else
    EXPECT_EQ(1, words[0] & 1) << "not virtual";
    const std::ptrdiff_t distance = words[0] - 1;
#endif
    EXPECT_EQ(0, distance % static_cast<std::ptrdiff_t>(sizeof(void*)));
    return distance / static_cast<std::ptrdiff_t>(sizeof(void*));
}

}  // namespace support
