// VQCRCKinds: the three divisors behind the four types of CVQCRC, and the passes over bytes.
//   Shape    `kPolynomial` leaves out the highest power, which is `kWidth`. `kLowFirst`: the low bit of a byte
//            stands for the highest power, and so does the low bit of the register. A register has `kWidth` bits,
//            the final XOR not in.
#pragma once

#include <cstddef>
#include <cstdint>

namespace VQCRC {

struct SHighFirst16 {
    static constexpr unsigned kWidth = 16;
    static constexpr bool kLowFirst = false;
    static constexpr std::uint32_t kPolynomial = 0x1021;
};

struct SLowFirst32 {
    static constexpr unsigned kWidth = 32;
    static constexpr bool kLowFirst = true;
    static constexpr std::uint32_t kPolynomial = 0x04C11DB7;
};

struct SLowFirst16 {
    static constexpr unsigned kWidth = 16;
    static constexpr bool kLowFirst = true;
    // Kept: crc-reflected-1021. Its mirror image is the constant 1021.
    static constexpr std::uint32_t kPolynomial = 0x8408;
};

/// The register after `count` bytes more.
using Pass = std::uint32_t (*)(std::uint32_t crc, const unsigned char* bytes, std::size_t count);

/// A pass for each type, built for one kind of processor. None is called for fewer than `kLeast` bytes.
struct SPasses {
    Pass add[4];
};
constexpr std::size_t kLeast = 16;

template <template <class> class Pass>
constexpr SPasses kPassesOf{
    {&Pass<SHighFirst16>::add, &Pass<SLowFirst32>::add, &Pass<SLowFirst16>::add, &Pass<SHighFirst16>::add}};

}  // namespace VQCRC
