// The byte blocks that one would pick instead of CVQBuffer.
#include "Bench.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#if BENCH_QT
#include <QByteArray>
#endif
#if BENCH_GLIB
#include <glib.h>
#endif

namespace {

using bench::sizeOf;

// Copy and drop

MARLIX_BENCH("CVQBuffer_Copy", "std::vector", 65536) {
    const std::vector<char> original(sizeOf(state), 'x');
    for (auto _ : state) {
        std::vector<char> copy(original);
        benchmark::DoNotOptimize(copy);
    }
}
MARLIX_BENCH("CVQBuffer_Copy", "std::shared_ptr<vector>", 65536) {
    const auto original = std::make_shared<std::vector<char>>(sizeOf(state), 'x');
    for (auto _ : state) {
        std::shared_ptr<std::vector<char>> copy(original);
        benchmark::DoNotOptimize(copy);
    }
}
MARLIX_BENCH("CVQBuffer_Copy", "floor: atomic increment and decrement", 65536) {
    unsigned references = 1;
    for (auto _ : state) {
        benchmark::DoNotOptimize(__atomic_add_fetch(&references, 1, __ATOMIC_RELAXED));
        benchmark::DoNotOptimize(__atomic_sub_fetch(&references, 1, __ATOMIC_ACQ_REL));
    }
}
#if BENCH_QT
MARLIX_BENCH("CVQBuffer_Copy", "QByteArray", 65536) {
    const QByteArray original(int(sizeOf(state)), 'x');
    for (auto _ : state) {
        QByteArray copy(original);
        benchmark::DoNotOptimize(copy);
    }
}
#endif
#if BENCH_GLIB
MARLIX_BENCH("CVQBuffer_Copy", "GBytes", 65536) {
    const std::vector<char> bytes(sizeOf(state), 'x');
    GBytes* const original = g_bytes_new(bytes.data(), bytes.size());
    for (auto _ : state) {
        GBytes* copy = g_bytes_ref(original);
        benchmark::DoNotOptimize(copy);
        g_bytes_unref(copy);
    }
    g_bytes_unref(original);
}
#endif

// Create, fill, drop

MARLIX_BENCH("CVQBuffer_Create", "std::vector", 64, 4096) {
    const std::vector<char> bytes(sizeOf(state), 'x');
    for (auto _ : state) {
        std::vector<char> built(bytes.data(), bytes.data() + bytes.size());
        benchmark::DoNotOptimize(built);
    }
}
MARLIX_BENCH("CVQBuffer_Create", "floor: malloc, memcpy, free", 64, 4096) {
    const std::vector<char> bytes(sizeOf(state), 'x');
    for (auto _ : state) {
        void* block = std::malloc(bytes.size());
        benchmark::DoNotOptimize(std::memcpy(block, bytes.data(), bytes.size()));
        benchmark::ClobberMemory();
        std::free(block);
    }
}
#if BENCH_QT
MARLIX_BENCH("CVQBuffer_Create", "QByteArray", 64, 4096) {
    const std::vector<char> bytes(sizeOf(state), 'x');
    for (auto _ : state) {
        QByteArray built(bytes.data(), int(bytes.size()));
        benchmark::DoNotOptimize(built);
    }
}
#endif
#if BENCH_GLIB
MARLIX_BENCH("CVQBuffer_Create", "GBytes", 64, 4096) {
    const std::vector<char> bytes(sizeOf(state), 'x');
    for (auto _ : state) {
        GBytes* built = g_bytes_new(bytes.data(), bytes.size());
        benchmark::DoNotOptimize(built);
        g_bytes_unref(built);
    }
}
#endif

}  // namespace
