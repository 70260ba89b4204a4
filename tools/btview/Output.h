// Output: how a backtrace is shown.
#pragma once

#include "BacktraceFile.h"
#include "Symbolizer.h"

#include <cstdint>
#include <string>
#include <vector>

namespace btview {

struct Frame {
    std::uint64_t address;      // as it stands in the file
    std::vector<Place> places;  // from the innermost inlined function outwards
    const MapEntry* object;     // null when the address lies in none
};

/// The message, who wrote it, and a line for each function of each frame.
std::string format(const Backtrace& backtrace, const std::vector<Frame>& frames, bool hasColor);

}  // namespace btview
