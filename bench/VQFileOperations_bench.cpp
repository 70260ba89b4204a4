// VQFileOperations beside the standard library's in VQFileOperations_peers.cpp.
#include "VQFileOperations_workload.h"

#include <VQFileOperations.h>

namespace {

MARLIX_BENCH_MANUAL("VQFileOperations_RecursiveRemove", "ours", 1, 100) {
    bench::removeTrees(state,
                       [](const std::string& path) { return VQFileOperations::recursiveRemove(path.c_str()); });
}

}  // namespace
