// MemoryTesting: what the tests of the allocator share. Their program runs in four forms: with the shared and with
// the static library, with and without "--memtrace=1".
#pragma once

#include "support/Sanitizers.h"

#include <VQMemory.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <sys/resource.h>
#include <unistd.h>

namespace memorytest {

using support::kIsSanitized;

/// A size that no heap has; the compiler does not know of it.
inline volatile std::size_t vUnavailable = SIZE_MAX / 2;

/// Makes the compiler believe that the block is looked at: it leaves out allocations that nobody sees.
inline void look(const void* block) {
    asm volatile("" : : "r"(block) : "memory");
}

/// The sanitizers' heaps do not let go of their locks in a child forked while another thread allocates.
constexpr bool kHeapSurvivesFork = !kIsSanitized;

/// Whether `new` comes from the library: a sanitizer's run-time stands before a shared library, but not before the
/// program itself.
extern const bool kOwnsOperators;

/// Whether this process was started with "--memtrace=1", from the kernel's record of its arguments.
inline bool isTraced() {
    static const bool traced = [] {
        std::FILE* const file = std::fopen("/proc/self/cmdline", "r");
        char arguments[65536];
        const std::size_t length = std::fread(arguments, 1, sizeof arguments - 1, file);
        std::fclose(file);
        arguments[length] = '\0';
        bool found = false;
        for (std::size_t at = 0; at < length; at += std::strlen(arguments + at) + 1) {
            found = found || std::strcmp(arguments + at, "--memtrace=1") == 0;
        }
        return found;
    }();
    return traced;
}

inline unsigned total() {
    return VQMemory::getHeapInfo().allocatedBytes;
}

/// What `size` requested bytes add to the total.
inline unsigned counted(std::size_t size) {
    return isTraced() ? static_cast<unsigned>(size) : 0;
}

/// Takes all the memory there is. Cannot be done under a sanitizer or the emulator, which need it themselves.
inline void emptyHeap() {
    rlim_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;  // its buffer is given back before the heap is emptied
    const rlim_t limit = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + (32 << 20);
    const rlimit addressSpace{limit, limit};
    setrlimit(RLIMIT_AS, &addressSpace);
    for (std::size_t size = 1 << 20; size >= 64; size /= 2) {
        while (VQMemory::alloc(size) != nullptr) {
        }
    }
}

inline bool isAligned(const void* block, std::size_t alignment) {
    return reinterpret_cast<std::uintptr_t>(block) % alignment == 0;
}

}  // namespace memorytest
