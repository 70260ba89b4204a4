// CVQCircularByteBuffer beside the ring in CVQCircularByteBuffer_peers.cpp.
#include "Bench.h"

#include <CVQCircularByteBuffer.h>

#include <cstring>

namespace {

MARLIX_BENCH("CVQCircularByteBuffer_WriteRead", "ours", 64) {
    CVQCircularByteBuffer ring(1000);
    char out[64];
    char back[64];
    std::memset(out, 'x', sizeof out);
    std::memset(back, 0, sizeof back);
    for (auto _ : state) {
        ring.write(out, sizeof out);
        benchmark::ClobberMemory();
        ring.read(back, sizeof back);
        benchmark::ClobberMemory();
    }
    bench::check(std::memcmp(out, back, sizeof out) == 0 && ring.getFlags() == 0, "bytes");
}

}  // namespace
