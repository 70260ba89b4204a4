// CVQBuffer beside the byte blocks in CVQBuffer_peers.cpp.
#include "Bench.h"

#include <CVQBuffer.h>

#include <cstring>
#include <vector>

namespace {

MARLIX_BENCH("CVQBuffer_Copy", "ours", 65536) {
    const CVQBuffer original(static_cast<unsigned>(state.range(0)));
    bench::check(CVQBuffer(original).getData() == original.getData(), "a copy shares");
    for (auto _ : state) {
        CVQBuffer copy(original);
        benchmark::DoNotOptimize(copy);
    }
}

MARLIX_BENCH("CVQBuffer_Create", "ours", 64, 4096) {
    const std::vector<char> bytes(static_cast<std::size_t>(state.range(0)), 'x');
    const auto size = static_cast<unsigned>(bytes.size());
    for (auto _ : state) {
        CVQBuffer built(size);
        built.copyTo(bytes.data(), size, 0);
        benchmark::DoNotOptimize(built);
    }
}

}  // namespace
