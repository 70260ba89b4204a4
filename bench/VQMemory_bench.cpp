// VQMemory and the operators over it beside the allocators in VQMemory_peers.cpp.
#include "Bench.h"

#include <VQMemUtilities.h>
#include <VQMemory.h>

#include <new>
#include <vector>

namespace {

using bench::sizeOf;

MARLIX_BENCH("VQMemory_AllocRelease", "ours", 64, 1024, 65536) {
    std::size_t size = sizeOf(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(size);
        void* block = allocateMemory(size);
        benchmark::DoNotOptimize(block);
        releaseMemory(block);
    }
}

MARLIX_BENCH("VQMemory_NewDelete", "ours", 64) {
    std::size_t size = sizeOf(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(size);
        void* block = ::operator new(size);
        benchmark::DoNotOptimize(block);
        ::operator delete(block);
    }
}

MARLIX_BENCH("VQMemory_AlignedNewDelete", "ours", 256) {
    std::size_t size = sizeOf(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(size);
        void* block = ::operator new (size, std::align_val_t{64});
        benchmark::DoNotOptimize(block);
        ::operator delete (block, std::align_val_t{64});
    }
}

MARLIX_BENCH("VQMemory_MixedBlocks", "ours", 256) {
    std::vector<void*> blocks(sizeOf(state));
    for (auto _ : state) {
        for (std::size_t i = 0; i < blocks.size(); ++i)
            blocks[i] = allocateMemory(16 + (i * 37) % 480);
        benchmark::ClobberMemory();
        for (std::size_t i = 0; i < blocks.size(); ++i)
            releaseMemory(blocks[(i * 101) % blocks.size()]);
    }
}

MARLIX_BENCH("VQMemory_Realloc", "ours", 4096) {
    for (auto _ : state) {
        void* block = nullptr;
        for (std::size_t size = 64; size <= sizeOf(state); size *= 2) {
            block = reallocateMemory(block, size);
            benchmark::DoNotOptimize(block);
        }
        releaseMemory(block);
    }
}

template <class Word>
void fill(benchmark::State& state, void (*fillWords)(Word*, unsigned, Word), Word value) {
    std::vector<Word> words(sizeOf(state) / sizeof(Word));
    const auto count = static_cast<unsigned>(words.size());
    for (auto _ : state) {
        benchmark::DoNotOptimize(value);
        fillWords(words.data(), count, value);
        benchmark::ClobberMemory();
    }
    bench::check(words == std::vector<Word>(words.size(), value), "fill");
}
MARLIX_BENCH("VQMemory_Fill8", "ours", 4096) {
    fill<unsigned char>(state, VQMemUtilities::memFillUInt8, 0x5A);
}
MARLIX_BENCH("VQMemory_Fill16", "ours", 4096) {
    fill<unsigned short>(state, VQMemUtilities::memFillUInt16, 0x1234);
}
MARLIX_BENCH("VQMemory_Fill32", "ours", 4096) {
    fill<unsigned>(state, VQMemUtilities::memFillUInt32, 0x12345678);
}
MARLIX_BENCH("VQMemory_Fill64", "ours", 4096) {
    fill<unsigned long long>(state, VQMemUtilities::memFillUInt64, 0x123456789ABCDEF0);
}

// 4096 nibbles from the second on: both ends lie within a byte.
MARLIX_BENCH("VQMemory_FillNibble", "ours", 4096) {
    std::vector<unsigned char> bytes(sizeOf(state) / 2 + 1);
    unsigned char value = 0xA;
    for (auto _ : state) {
        benchmark::DoNotOptimize(value);
        VQMemUtilities::memFillNibble(bytes.data(), static_cast<unsigned>(sizeOf(state)), value, 1);
        benchmark::ClobberMemory();
    }
    bench::check(bytes.front() == 0x0A && bytes[1] == 0xAA && bytes.back() == 0xA0, "fill");
}

}  // namespace
