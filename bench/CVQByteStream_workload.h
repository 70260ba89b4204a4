// CVQByteStream_workload: what is written and read back through every stream.
#pragma once

#include "Bench.h"

#include <array>
#include <cstring>
#include <string>
#include <vector>

namespace bench {

constexpr unsigned kValues = 1000000;
constexpr unsigned kStrings = 100000;
constexpr unsigned kStringBytes = 20;

/// The i-th string of 20 bytes. 64 different ones, so that the source of the bytes stays in the first cache.
template <class Text>
std::vector<Text> strings() {
    std::vector<Text> result;
    for (unsigned i = 0; i < 64; ++i) {
        char text[kStringBytes + 1];
        std::snprintf(text, sizeof text, "channel %02u sensor %02u", i, 63 - i);
        result.push_back(Text(text));
    }
    return result;
}

constexpr unsigned kValueSum = kValues / 2 * (kValues - 1);

/// The four halves of the work. `Format` supplies
///   Sink, Source(const Sink&)      the stream that is written, from empty, and one that reads its bytes
///   Text                           its string type, with lengthOf(const Text&)
///   put(Sink&, value), get(Source&, value&)
template <class Format>
struct StreamWork {
    using Text = typename Format::Text;

    static void writeValues(typename Format::Sink& sink) {
        for (unsigned i = 0; i < kValues; ++i)
            Format::put(sink, i);
    }

    static void readValues(typename Format::Source& source) {
        unsigned sum = 0;
        for (unsigned i = 0; i < kValues; ++i) {
            unsigned value = 0;
            Format::get(source, value);
            sum += value;
        }
        check(sum == kValueSum, "values read");
    }

    static void writeStrings(typename Format::Sink& sink, const std::vector<Text>& texts) {
        for (unsigned i = 0; i < kStrings; ++i)
            Format::put(sink, texts[i % texts.size()]);
    }

    static void readStrings(typename Format::Source& source) {
        std::size_t bytes = 0;
        Text text;
        for (unsigned i = 0; i < kStrings; ++i) {
            Format::get(source, text);
            bytes += Format::lengthOf(text);
        }
        check(bytes == std::size_t{kStrings} * kStringBytes, "strings read");
    }

    static void timeRoundTrip(benchmark::State& state) {
        const std::vector<Text> texts = strings<Text>();
        for (auto _ : state) {
            typename Format::Sink sink;
            writeValues(sink);
            writeStrings(sink, texts);
            typename Format::Source source(sink);
            readValues(source);
            readStrings(source);
        }
    }

    static void timeWriteValues(benchmark::State& state) {
        for (auto _ : state) {
            typename Format::Sink sink;
            writeValues(sink);
            benchmark::DoNotOptimize(&sink);
        }
    }

    static void timeWriteStrings(benchmark::State& state) {
        const std::vector<Text> texts = strings<Text>();
        for (auto _ : state) {
            typename Format::Sink sink;
            writeStrings(sink, texts);
            benchmark::DoNotOptimize(&sink);
        }
    }

    static void timeReadValues(benchmark::State& state) {
        typename Format::Sink sink;
        writeValues(sink);
        for (auto _ : state) {
            typename Format::Source source(sink);
            readValues(source);
        }
    }

    static void timeReadStrings(benchmark::State& state) {
        typename Format::Sink sink;
        writeStrings(sink, strings<Text>());
        for (auto _ : state) {
            typename Format::Source source(sink);
            readStrings(source);
        }
    }
};

}  // namespace bench

#define MARLIX_BENCH_STREAM(contender, Format)                                                                     \
    MARLIX_BENCH("CVQByteStream_RoundTrip", contender, 1100000) {                                                  \
        bench::StreamWork<Format>::timeRoundTrip(state);                                                           \
    }                                                                                                              \
    MARLIX_BENCH("CVQByteStream_WriteValues", contender, 1000000) {                                                \
        bench::StreamWork<Format>::timeWriteValues(state);                                                         \
    }                                                                                                              \
    MARLIX_BENCH("CVQByteStream_ReadValues", contender, 1000000) {                                                 \
        bench::StreamWork<Format>::timeReadValues(state);                                                          \
    }                                                                                                              \
    MARLIX_BENCH("CVQByteStream_WriteStrings", contender, 100000) {                                                \
        bench::StreamWork<Format>::timeWriteStrings(state);                                                        \
    }                                                                                                              \
    MARLIX_BENCH("CVQByteStream_ReadStrings", contender, 100000) {                                                 \
        bench::StreamWork<Format>::timeReadStrings(state);                                                         \
    }
