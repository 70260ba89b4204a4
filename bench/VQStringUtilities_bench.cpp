// Case mapping beside the libraries in VQStringUtilities_peers.cpp.
#include "Bench.h"
#include "Texts.h"

#include <CVQString.h>
#include <VQStringUtilities.h>

#include <string>

namespace {

using bench::check;

using MakeText = std::string (*)(std::size_t bytes);
using Map = void (*)(CVQString& text);

// A copy, as each run has to start from the same text: ours then makes a new block, as the others make a new text.
void mapCase(benchmark::State& state, Map map, MakeText make) {
    const CVQString original(make(static_cast<std::size_t>(state.range(0))).c_str());
    CVQString mapped(original);
    map(mapped);
    CVQString again(mapped);
    map(again);
    check(again == mapped && mapped.getByteLength() == original.getByteLength(), "mapped once and for all");
    for (auto _ : state) {
        CVQString text(original);
        map(text);
        benchmark::DoNotOptimize(text);
    }
}

#define MAP_CASE(name, make)                                                                                       \
    MARLIX_BENCH("VQStringUtilities_Upper" name, "ours", 1024, 65536) {                                            \
        mapCase(state, VQStringUtilities::toUpper, make);                                                          \
    }                                                                                                              \
    MARLIX_BENCH("VQStringUtilities_Lower" name, "ours", 1024, 65536) {                                            \
        mapCase(state, VQStringUtilities::toLower, make);                                                          \
    }
MAP_CASE("Ascii", bench::asciiText)
MAP_CASE("German", bench::germanText)
MAP_CASE("Greek", bench::greekText)

}  // namespace
