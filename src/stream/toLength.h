// toLength: a length that is known to fit 32 bits, in the width that travels.
#pragma once

#include <cstddef>

constexpr unsigned int toLength(std::size_t length) {
    return static_cast<unsigned int>(length);
}
