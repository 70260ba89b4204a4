// VQCRCFolding: CRCs by carry-less multiplication, written once over a vector type.
//
// The bytes are a polynomial over GF(2). A block of 16 of them that stands D bits before another may be replaced by
// what x^D makes of it, modulo the divisor: two products of 64 by 32 bits, added to the other. So four vectors run
// abreast over the bytes and end as one block, whose remainder is taken with Barrett's reduction. A 16-bit divisor
// is multiplied by x^16, and is then one of 32 bits whose remainders have 16 zeros behind them.
//   Source   V. Gopal and others, "Fast CRC Computation for Generic Polynomials Using PCLMULQDQ Instruction"
//            (Intel, 2009). P. D. Barrett, "Implementing the Rivest Shamir and Adleman Public Key Encryption
//            Algorithm on a Standard Digital Signal Processor" (1986).
//
// In blocks of the kinds that take the low bit first, bit n stands for x^(127-n), and a product of two 64-bit
// halves comes out multiplied by x: the constants make up for it. In the others, bit n stands for x^n, once the
// bytes are reversed.
//
// A vector type V has kBytes bytes, a `Vector`, `load`, `fromBlock` (the first 16 bytes, zeros behind),
// `everywhere` (a block in all its places), `reversed` (bytes within each block), `fold` (products of the low and
// of the high halves of each block with those of the constants, and a summand) and `either` (the sum); where it is
// longer than a block also `lastBlock` (zeros in front) and `sumOfBlocks`.
// Everything here has internal linkage: code built for other processors must never be merged with it.
#pragma once

#include "VQCRCKinds.h"

#include <immintrin.h>

namespace VQCRC {

constexpr std::size_t kBlockBytes = 16;

/// Indices for moving the bytes of a block, from kMoves + 16 on; the top bit stands for a zero byte.
alignas(16) constexpr unsigned char kMoves[48] = {
    0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80,  //
    0,    1,    2,    3,    4,    5,    6,    7,    8,    9,    10,   11,   12,   13,   14,   15,    //
    0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80};

namespace {

using Block = __m128i;

/// Two halves of a block.
struct SHalves {
    std::uint64_t low;
    std::uint64_t high;

    Block block() const { return _mm_set_epi64x(static_cast<long long>(high), static_cast<long long>(low)); }
};

inline Block loadBlock(const void* from) {
    return _mm_loadu_si128(static_cast<const Block*>(from));
}

inline Block add(Block a, Block b) {
    return _mm_xor_si128(a, b);
}

inline Block foldBlock(Block block, Block constants, Block summand) {
    return add(add(_mm_clmulepi64_si128(block, constants, 0x00), _mm_clmulepi64_si128(block, constants, 0x11)),
               summand);
}

inline Block reversedBlock(Block block) {
    return _mm_shuffle_epi8(block, _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
}

/// The constants of a divisor P of degree 32.
template <class Kind>
struct TDivisor {
    static constexpr unsigned kShift = 32 - Kind::kWidth;
    static constexpr std::uint64_t kLower = std::uint64_t{Kind::kPolynomial} << kShift;
    static constexpr std::uint64_t kHighest = std::uint64_t{1} << 32;

    static constexpr std::uint64_t mirrored(std::uint64_t value, unsigned width) {
        std::uint64_t mirror = 0;
        for (unsigned bit = 0; bit < width; ++bit) {
            mirror |= (value >> bit & 1U) << (width - 1 - bit);
        }
        return mirror;
    }

    /// x^exponent mod P.
    static constexpr std::uint64_t power(unsigned exponent) {
        std::uint64_t remainder = 1;
        for (; exponent > 0; --exponent) {
            remainder <<= 1;
            remainder ^= (remainder & kHighest) != 0 ? kHighest | kLower : 0;
        }
        return remainder;
    }

    /// What takes a block `bits` bits further.
    static constexpr SHalves forward(unsigned bits) {
        return Kind::kLowFirst ? SHalves{mirrored(power(bits + 63), 64), mirrored(power(bits - 1), 64)}
                               : SHalves{power(bits), power(bits + 64)};
    }

    /// The powers from x^64 to x^`lowest` of the quotient x^96 / P, the lowest of them in bit 0; x^64 falls off
    /// where there is no bit for it.
    static constexpr std::uint64_t quotient(unsigned lowest) {
        std::uint64_t remainder = 0;
        std::uint64_t quotient = 0;
        for (unsigned power = 97; power-- > lowest;) {
            remainder = remainder << 1 | (power == 96 ? 1U : 0U);
            const bool divides = (remainder & kHighest) != 0;
            remainder ^= divides ? kHighest | kLower : 0;
            quotient = quotient << 1 | (divides ? 1U : 0U);
        }
        return quotient;
    }

    /// Where a register enters the bytes: in front.
    static Block fromRegister(std::uint32_t crc) {
        return Kind::kLowFirst ? SHalves{crc, 0}.block()
                               : SHalves{0, std::uint64_t{crc} << (64 - Kind::kWidth)}.block();
    }

    /// The remainder of a block times x^32: the register.
    static std::uint32_t toRegister(Block block) {
        if (Kind::kLowFirst) {
            // 96 bits of the same remainder, in the bits from 0 on: one half to divide, and the last 32 bits.
            constexpr SHalves kTo96{mirrored(power(95) << 32, 64), 0};
            const Block shorter = add(_mm_clmulepi64_si128(block, kTo96.block(), 0x00), _mm_srli_si128(block, 8));
            constexpr SHalves kReduce{mirrored(quotient(1), 64), mirrored(kHighest | kLower, 33)};
            const Block whole = _mm_clmulepi64_si128(shorter, kReduce.block(), 0x00);
            const Block rest = add(shorter, _mm_clmulepi64_si128(whole, kReduce.block(), 0x10));
            return static_cast<std::uint32_t>(_mm_extract_epi32(rest, 2));
        }
        constexpr SHalves kTo96{0, power(96) << 32};
        const Block shorter = add(_mm_clmulepi64_si128(block, kTo96.block(), 0x11), _mm_slli_si128(block, 8));
        constexpr SHalves kReduce{kLower << 32, quotient(0)};
        // The quotient's x^64, which has no bit in the constant, is the summand.
        const Block whole = add(_mm_clmulepi64_si128(shorter, kReduce.block(), 0x11), shorter);
        const Block rest = add(shorter, _mm_clmulepi64_si128(whole, kReduce.block(), 0x01));
        return static_cast<std::uint32_t>(_mm_extract_epi32(rest, 1)) >> kShift;
    }
};

template <class Kind, class V>
struct TFolding {
    using Divisor = TDivisor<Kind>;
    using Vector = typename V::Vector;

    static constexpr unsigned kAbreast = 4;
    static constexpr std::size_t kStride = kAbreast * V::kBytes;
    static constexpr unsigned kVectorBits = V::kBytes * 8;
    static constexpr unsigned kBlockBits = kBlockBytes * 8;
    static constexpr unsigned kBlocks = V::kBytes / kBlockBytes;

    static std::uint32_t add(std::uint32_t crc, const unsigned char* bytes, std::size_t count) {
        Block block = Divisor::fromRegister(crc);
        if (count >= V::kBytes) {
            const std::size_t used = count / V::kBytes * V::kBytes;
            block = foldVectors(block, bytes, used);
            bytes += used;
            count -= used;
        } else {
            block = VQCRC::add(block, loadOne(bytes));
            bytes += kBlockBytes;
            count -= kBlockBytes;
        }
        for (; count >= kBlockBytes; count -= kBlockBytes, bytes += kBlockBytes) {
            block = foldBlock(block, next(), loadOne(bytes));
        }
        return Divisor::toRegister(count != 0 ? foldRest(block, bytes, count) : block);
    }

private:
    template <unsigned bits>
    static Vector distance() {
        constexpr SHalves kForward = Divisor::forward(bits);
        return V::everywhere(kForward.block());
    }
    static Block next() {
        constexpr SHalves kForward = Divisor::forward(kBlockBits);
        return kForward.block();
    }
    static Vector load(const unsigned char* from) {
        return Kind::kLowFirst ? V::load(from) : V::reversed(V::load(from));
    }
    static Block loadOne(const unsigned char* from) {
        return Kind::kLowFirst ? loadBlock(from) : reversedBlock(loadBlock(from));
    }

    /// `count` is a multiple of the vector's size, and not 0.
    static Block foldVectors(Block start, const unsigned char* bytes, std::size_t count) {
        Vector last = V::either(load(bytes), V::fromBlock(start));
        if (count >= kStride) {
            Vector a = last;
            Vector b = load(bytes + V::kBytes);
            Vector c = load(bytes + 2 * V::kBytes);
            Vector d = load(bytes + 3 * V::kBytes);
            const Vector stride = distance<kAbreast * kVectorBits>();
            for (bytes += kStride, count -= kStride; count >= kStride; bytes += kStride, count -= kStride) {
                a = V::fold(a, stride, load(bytes));
                b = V::fold(b, stride, load(bytes + V::kBytes));
                c = V::fold(c, stride, load(bytes + 2 * V::kBytes));
                d = V::fold(d, stride, load(bytes + 3 * V::kBytes));
            }
            if constexpr (kBlocks > 1) {
                if (count == 0) {
                    return toBlock(a, b, c, d);
                }
            }
            d = V::fold(a, distance<3 * kVectorBits>(), d);
            b = V::fold(b, distance<2 * kVectorBits>(), V::fold(c, distance<kVectorBits>(), V::zero()));
            last = V::either(d, b);
        } else {
            bytes += V::kBytes;
            count -= V::kBytes;
        }
        for (; count != 0; count -= V::kBytes, bytes += V::kBytes) {
            last = V::fold(last, distance<kVectorBits>(), load(bytes));
        }
        return toBlock(last);
    }

    struct SForward {
        alignas(V::kBytes) SHalves blocks[kBlocks];
    };
    /// What takes each block of a vector to the last block of the vector that stands `vectors` behind it; zeros
    /// where that is the block itself, which is added as it stands.
    static constexpr SForward forwardToLast(unsigned vectors) {
        SForward forward{};
        for (unsigned i = 0; i < kBlocks; ++i) {
            const unsigned blocks = vectors * kBlocks + (kBlocks - 1 - i);
            forward.blocks[i] = blocks != 0 ? Divisor::forward(blocks * kBlockBits) : SHalves{0, 0};
        }
        return forward;
    }
    template <unsigned vectors>
    static Vector toLastBlock() {
        static constexpr SForward kForward = forwardToLast(vectors);
        return V::load(reinterpret_cast<const unsigned char*>(kForward.blocks));
    }

    /// The last block, what the constants make of those before it, and of `others`.
    static Block toBlock(Vector last, Vector others = V::zero()) {
        if constexpr (kBlocks > 1) {
            return V::sumOfBlocks(V::fold(last, toLastBlock<0>(), V::either(others, V::lastBlock(last))));
        } else {
            return last;
        }
    }
    /// The same for four vectors, all at once.
    static Block toBlock(Vector a, Vector b, Vector c, Vector d) {
        const Vector others =
            V::fold(a, toLastBlock<3>(), V::fold(b, toLastBlock<2>(), V::fold(c, toLastBlock<1>(), V::zero())));
        return toBlock(d, others);
    }

    /// The last bytes, fewer than a block: the block's first bytes are taken forward to the end of a block of
    /// zeros, the others and the last bytes make up the block after it.
    static Block foldRest(Block block, const unsigned char* bytes, std::size_t count) {
        const Block inOrder = Kind::kLowFirst ? block : reversedBlock(block);
        const Block toEnd = loadBlock(kMoves + count);
        const Block toBegin = loadBlock(kMoves + kBlockBytes + count);
        const Block first = _mm_shuffle_epi8(inOrder, toEnd);
        const Block others =
            _mm_blendv_epi8(_mm_shuffle_epi8(inOrder, toBegin), loadBlock(bytes + count - kBlockBytes), toBegin);
        return Kind::kLowFirst ? foldBlock(first, next(), others)
                               : foldBlock(reversedBlock(first), next(), reversedBlock(others));
    }
};

}  // namespace
}  // namespace VQCRC
