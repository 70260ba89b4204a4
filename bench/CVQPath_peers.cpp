// The path that one would pick instead of CVQPath.
#include "Bench.h"

#include <filesystem>

namespace {

void joinAndPart(benchmark::State& state, const char* first, const char* second) {
    const std::filesystem::path left(first);
    bench::check((left / second).lexically_normal() == "/opt/service/share/records/today/file.bin",
                 "a joined path");
    for (auto _ : state) {
        benchmark::DoNotOptimize(second);
        std::filesystem::path path = (left / second).lexically_normal();
        std::filesystem::path leaf = path.filename();
        std::filesystem::path branch = path.parent_path();
        benchmark::DoNotOptimize(leaf);
        benchmark::DoNotOptimize(branch);
    }
}
MARLIX_BENCH("CVQPath_JoinAndPart", "std::filesystem", 40) {
    joinAndPart(state, "/opt/service/share", "records/today/file.bin");
}
MARLIX_BENCH("CVQPath_JoinAndPartRuns", "std::filesystem", 40) {
    joinAndPart(state, "/opt//service/share", "records//today/file.bin");
}

}  // namespace
