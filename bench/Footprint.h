// Footprint: what a container with 1, 1,000 and 1,000,000 elements takes in memory, as a line of bytes per element: the
// object itself and all blocks, with what the C heap adds to each.
#pragma once

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <unistd.h>

namespace footprint {

/// First in main: starts the program anew with a heap that keeps no caches, whose blocks would count as in use.
inline void begin(char** arguments) {
    if (std::getenv("GLIBC_TUNABLES") == nullptr) {
        setenv("GLIBC_TUNABLES", "glibc.malloc.tcache_count=0", 1);
        execv("/proc/self/exe", arguments);
        std::exit(EXIT_FAILURE);
    }
    mallopt(M_MXFAST, 0);
}

inline std::size_t heapBytes() {
    const struct mallinfo2 heap = mallinfo2();
    return heap.uordblks + heap.hblkhd;
}

/// `add(container, i)` adds the i-th element.
template <class Container, class Add>
void printLine(const char* name, Add add) {
    std::printf("%-38s", name);
    for (const int count : {1, 1000, 1000000}) {
        const std::size_t before = heapBytes();
        Container container;
        for (int i = 0; i < count; ++i)
            add(container, i);
        const std::size_t bytes = heapBytes() - before + sizeof container;
        std::printf("%12.1f", static_cast<double>(bytes) / count);
    }
    std::printf("\n");
}

inline void printHead() {
    std::printf("%-38s%12d%12d%12d\n", "bytes per element, with", 1, 1000, 1000000);
}

}  // namespace footprint
