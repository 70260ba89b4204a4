// VQFileOperations_workload: the tree that every removal gets.
#pragma once

#include "Bench.h"
#include "ProcessorTime.h"

#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace bench {

/// Removes 10,000 files, in `state.range(0)` directories of a common one, with `remove(path)`, which is true when it
/// has removed all. In memory where the system has a file system there: a disk's own work would cover the rest.
template <class Remove>
void removeTrees(benchmark::State& state, Remove remove) {
    constexpr int kFiles = 10000;
    const int directories = int(state.range(0));
    const std::string folder = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    const std::string tree = folder + "/marlix-bench-" + std::to_string(getpid());
    for (auto _ : state) {
        check(mkdir(tree.c_str(), 0700) == 0, "a tree of our own");
        for (int i = 0; i < directories; ++i) {
            const std::string directory = tree + "/directory" + std::to_string(i);
            mkdir(directory.c_str(), 0700);
            for (int file = 0; file < kFiles / directories; ++file)
                close(open((directory + "/file" + std::to_string(file)).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC,
                           0600));
        }
        const double start = processorSeconds();
        const bool removed = remove(tree);
        const double taken = processorSeconds() - start;
        check(removed && access(tree.c_str(), F_OK) != 0, "the tree is gone");
        state.SetIterationTime(taken);
    }
}

}  // namespace bench
