// CVQByteStream beside the streams in CVQByteStream_peers.cpp.
#include "CVQByteStream_workload.h"

#include <CVQByteStream.h>
#include <CVQString.h>

#include <cstring>

namespace {

struct OurFormat {
    using Text = CVQString;
    using Sink = CVQByteStream;
    using Source = CVQByteStream;  // a copy shares the bytes and reads from the beginning
    template <class T>
    static void put(Sink& sink, const T& value) {
        sink << value;
    }
    template <class T>
    static void get(Source& source, T& value) {
        source >> value;
    }
    static std::size_t lengthOf(const Text& text) { return text.getByteLength(); }
};
MARLIX_BENCH_STREAM("ours", OurFormat)

MARLIX_BENCH("CVQByteStream_Copy", "ours", 65536) {
    CVQByteStream original;
    original.writeSkip(static_cast<unsigned>(state.range(0)));
    for (auto _ : state) {
        CVQByteStream copy(original);
        benchmark::DoNotOptimize(copy);
    }
}

}  // namespace
