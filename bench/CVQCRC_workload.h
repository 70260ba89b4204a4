// CVQCRC_workload: the bytes that every CRC is taken over.
#pragma once

#include "Bench.h"

#include <cstddef>
#include <vector>

namespace bench {

inline std::vector<unsigned char> someBytes(std::size_t count) {
    std::vector<unsigned char> bytes(count);
    unsigned state = 1;
    for (unsigned char& byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<unsigned char>(state >> 24);
    }
    return bytes;
}

constexpr unsigned char kDigits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};

/// Times `take(bytes, count)`, whose result over the nine digits is `expected`.
template <class Take>
void timeCRC(benchmark::State& state, unsigned expected, Take take) {
    check(take(kDigits, sizeof kDigits) == expected, "the CRC of the nine digits");
    const std::vector<unsigned char> bytes = someBytes(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        auto crc = take(bytes.data(), bytes.size());
        benchmark::DoNotOptimize(crc);
    }
}

}  // namespace bench
