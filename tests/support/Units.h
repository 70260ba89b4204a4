// Units: what one millisecond is in the nanoseconds of the kernel's calls.
#pragma once

#include <cstdint>

constexpr std::uint64_t kMs = 1000000;
