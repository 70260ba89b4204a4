// The C library's allocator, the operators of the C++ library over it, and fills.
#include "Bench.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#if BENCH_GLIB
#include <glib.h>
#endif

namespace {

using bench::sizeOf;

MARLIX_BENCH("VQMemory_AllocRelease", "malloc, free", 64, 1024, 65536) {
    std::size_t size = sizeOf(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(size);
        void* block = std::malloc(size);
        benchmark::DoNotOptimize(block);
        std::free(block);
    }
}

#if BENCH_GLIB
MARLIX_BENCH("VQMemory_AllocRelease", "g_malloc, g_free", 64, 1024, 65536) {
    std::size_t size = sizeOf(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(size);
        void* block = g_malloc(size);
        benchmark::DoNotOptimize(block);
        g_free(block);
    }
}
#endif

MARLIX_BENCH("VQMemory_NewDelete", "libstdc++ operator new, delete", 64) {
    std::size_t size = sizeOf(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(size);
        void* block = ::operator new(size);
        benchmark::DoNotOptimize(block);
        ::operator delete(block);
    }
}

MARLIX_BENCH("VQMemory_AlignedNewDelete", "libstdc++ aligned operator new, delete", 256) {
    std::size_t size = sizeOf(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(size);
        void* block = ::operator new (size, std::align_val_t{64});
        benchmark::DoNotOptimize(block);
        ::operator delete (block, std::align_val_t{64});
    }
}

// 256 live blocks of mixed sizes, dropped in another order than taken: what a service does, rather than one block
// that goes back and forth.
MARLIX_BENCH("VQMemory_MixedBlocks", "malloc, free", 256) {
    std::vector<void*> blocks(sizeOf(state));
    for (auto _ : state) {
        for (std::size_t i = 0; i < blocks.size(); ++i)
            blocks[i] = std::malloc(16 + (i * 37) % 480);
        benchmark::ClobberMemory();
        for (std::size_t i = 0; i < blocks.size(); ++i)
            std::free(blocks[(i * 101) % blocks.size()]);
    }
}

MARLIX_BENCH("VQMemory_Realloc", "realloc", 4096) {
    for (auto _ : state) {
        void* block = nullptr;
        for (std::size_t size = 64; size <= sizeOf(state); size *= 2) {
            block = std::realloc(block, size);
            benchmark::DoNotOptimize(block);
        }
        std::free(block);
    }
}

// Fills. memset is also the floor of every width: the fewest instructions that write as many bytes.

template <class Word>
void fill(benchmark::State& state, Word value) {
    std::vector<Word> words(sizeOf(state) / sizeof(Word));
    for (auto _ : state) {
        benchmark::DoNotOptimize(value);
        std::fill(words.begin(), words.end(), value);
        benchmark::ClobberMemory();
    }
}

MARLIX_BENCH("VQMemory_Fill8", "memset", 4096) {
    std::vector<unsigned char> bytes(sizeOf(state));
    int value = 0x5A;
    for (auto _ : state) {
        benchmark::DoNotOptimize(value);
        std::memset(bytes.data(), value, bytes.size());
        benchmark::ClobberMemory();
    }
}
MARLIX_BENCH("VQMemory_Fill16", "std::fill", 4096) {
    fill<std::uint16_t>(state, 0x1234);
}
MARLIX_BENCH("VQMemory_Fill32", "std::fill", 4096) {
    fill<std::uint32_t>(state, 0x12345678);
}
MARLIX_BENCH("VQMemory_Fill64", "std::fill", 4096) {
    fill<std::uint64_t>(state, 0x123456789ABCDEF0);
}
MARLIX_BENCH("VQMemory_FillNibble", "floor: memset", 4096) {
    std::vector<unsigned char> bytes(sizeOf(state) / 2);
    int value = 0xAA;
    for (auto _ : state) {
        benchmark::DoNotOptimize(value);
        std::memset(bytes.data(), value, bytes.size());
        benchmark::ClobberMemory();
    }
}

}  // namespace
