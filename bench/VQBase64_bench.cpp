// VQBase64 beside the codecs in VQBase64_peers.cpp.
#include "CVQCRC_workload.h"

#include <VQBase64.h>

#include <cstring>

namespace {

// Sizes are those of the text.

MARLIX_BENCH("VQBase64_Encode", "ours", 4096, 1048576) {
    const auto bytes = bench::someBytes(static_cast<std::size_t>(state.range(0)) / 4 * 3);
    std::vector<char> text(static_cast<std::size_t>(state.range(0)) + 1);
    for (auto _ : state) {
        VQBase64::encode(bytes.data(), bytes.size(), text.data(), text.size());
        benchmark::ClobberMemory();
    }
    bench::check(std::strlen(text.data()) == static_cast<std::size_t>(state.range(0)), "the text");
}

MARLIX_BENCH("VQBase64_Decode", "ours", 4096, 1048576) {
    const auto bytes = bench::someBytes(static_cast<std::size_t>(state.range(0)) / 4 * 3);
    std::vector<char> text(static_cast<std::size_t>(state.range(0)) + 1);
    VQBase64::encode(bytes.data(), bytes.size(), text.data(), text.size());
    std::vector<unsigned char> back(bytes.size());
    for (auto _ : state) {
        auto count = VQBase64::decode(text.data(), back.data(), back.size());
        benchmark::DoNotOptimize(count);
        benchmark::ClobberMemory();
    }
    bench::check(back == bytes, "the bytes");
}

}  // namespace
