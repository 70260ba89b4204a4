// CVQPath beside the paths in CVQPath_peers.cpp.
#include "Bench.h"

#include <CVQPath.h>

namespace {

/// Joins, and takes the canonical form apart again.
void joinAndPart(benchmark::State& state, const char* first, const char* second) {
    const CVQPath left(first);
    bench::check((left / second) == "/opt/service/share/records/today/file.bin", "a joined path");
    for (auto _ : state) {
        benchmark::DoNotOptimize(second);
        CVQPath path = left / second;
        path.canonify();
        CVQString leaf = path.getLeaf();
        CVQPath branch = path.getBranch();
        benchmark::DoNotOptimize(leaf);
        benchmark::DoNotOptimize(branch);
    }
}
MARLIX_BENCH("CVQPath_JoinAndPart", "ours", 40) {
    joinAndPart(state, "/opt/service/share", "records/today/file.bin");
}
MARLIX_BENCH("CVQPath_JoinAndPartRuns", "ours", 40) {
    joinAndPart(state, "/opt//service/share", "records//today/file.bin");
}

}  // namespace
