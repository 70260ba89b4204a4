// CVQOTextStream_workload: what is inserted into every text.
#pragma once

#include "Bench.h"

#include <cstddef>
#include <string>

namespace bench {

constexpr unsigned kItems = 1000000;

constexpr const char* kTexts[] = {"channel",   "=", "the level of the left one", ", ", "speed", ": ",
                                  "at 48 kHz", "\n"};
constexpr unsigned kTextCount = 8;

inline std::size_t plainLength() {
    std::size_t length = 0;
    for (const char* text : kTexts)
        length += std::string(text).size();
    return length * (kItems / kTextCount);
}

/// "name=0;name=1;..." up to a million.
constexpr std::size_t kFormattedLength = 10 + 90 * 2 + 900 * 3 + 9000 * 4 + 90000 * 5 + 900000 * 6 + kItems * 6ULL;

/// `size` bytes of prose with markup now and then.
inline std::string markedUp(std::size_t size) {
    const std::string piece =
        "He said \"no\" & left; the <b>rest</b> of it isn't worth the paper that it was printed "
        "on, so we go on with plain words for some hundred bytes until the next mark comes along. ";
    std::string text;
    while (text.size() < size)
        text += piece;
    text.resize(size);
    return text;
}

}  // namespace bench
