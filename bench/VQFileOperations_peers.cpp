// What one would call instead of VQFileOperations.
#include "VQFileOperations_workload.h"

#include <filesystem>

namespace {

MARLIX_BENCH_MANUAL("VQFileOperations_RecursiveRemove", "std::filesystem", 1, 100) {
    bench::removeTrees(state, [](const std::string& path) {
        std::error_code error;
        return std::filesystem::remove_all(path, error) > 10000 && !error;
    });
}

}  // namespace
