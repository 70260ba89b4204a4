// CVQMemoryMappedFile beside the mappings in CVQMemoryMappedFile_peers.cpp.
#include "Bench.h"
#include "DataFile.h"

#include <CVQMemoryMappedFile.h>

namespace {

MARLIX_BENCH("CVQMemoryMappedFile_Sum", "ours", 64 << 20) {
    const bench::DataFile data(static_cast<std::size_t>(state.range(0)));
    const auto sum = [&] {
        CVQMemoryMappedFile file{CVQPath(data.path())};
        bench::check(file.map(0, static_cast<unsigned>(data.size()), /*lazy*/ true), "a mapped file");
        return bench::sumOf(file.getAddress(), file.getSize());
    };
    bench::check(sum() == data.sum(), "the sum");
    for (auto _ : state)
        benchmark::DoNotOptimize(sum());
}

}  // namespace
