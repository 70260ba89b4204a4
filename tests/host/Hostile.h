// Hostile: surroundings in which a call must still work.
#pragma once

#include <cstdlib>
#include <sys/resource.h>

/// Takes a block from the heap and keeps it. Volatile: compilers may drop an allocation that nobody uses.
inline bool isAvailable(std::size_t size) {
    void* volatile block = std::malloc(size);
    return block != nullptr;
}

/// Leaves the calling process without heap, where its memory can be limited: ask isAvailable afterwards.
inline void exhaustHeap() {
    const rlimit small = {256 << 20, 256 << 20};
    setrlimit(RLIMIT_DATA, &small);
    for (std::size_t size = 128 << 20; size != 0; size /= 2)
        while (isAvailable(size)) {
        }
}
