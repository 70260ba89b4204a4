// The ring that one would pick instead of CVQCircularByteBuffer.
#include "Bench.h"

#include <algorithm>
#include <cstring>

#if BENCH_BOOST
#include <boost/circular_buffer.hpp>
#endif

namespace {

#if BENCH_BOOST
MARLIX_BENCH("CVQCircularByteBuffer_WriteRead", "boost::circular_buffer, in bulk", 64) {
    boost::circular_buffer<char> ring(1000);
    char out[64];
    char back[64];
    std::memset(out, 'x', sizeof out);
    std::memset(back, 0, sizeof back);
    for (auto _ : state) {
        ring.insert(ring.end(), out, out + sizeof out);
        benchmark::ClobberMemory();
        // By its two pieces, as its documentation says for C interfaces: faster than by its iterators.
        const auto first = ring.array_one();
        const std::size_t fromFirst = std::min(first.second, sizeof back);
        std::memcpy(back, first.first, fromFirst);
        if (fromFirst < sizeof back)
            std::memcpy(back + fromFirst, ring.array_two().first, sizeof back - fromFirst);
        ring.erase_begin(sizeof back);
        benchmark::ClobberMemory();
    }
    bench::check(std::memcmp(out, back, sizeof out) == 0, "bytes");
}
#endif

MARLIX_BENCH("CVQCircularByteBuffer_WriteRead", "floor: memcpy there and back", 64) {
    char out[64];
    char ring[64];
    char back[64];
    std::memset(out, 'x', sizeof out);
    for (auto _ : state) {
        std::memcpy(ring, out, sizeof out);
        benchmark::ClobberMemory();
        std::memcpy(back, ring, sizeof back);
        benchmark::ClobberMemory();
    }
    bench::check(std::memcmp(out, back, sizeof out) == 0, "bytes");
}

}  // namespace
