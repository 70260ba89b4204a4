// Options: what btview was asked to do.
#pragma once

#include "tools/Color.h"

#include <cstdint>
#include <string>
#include <vector>

namespace btview {

using tools::Color;

/// An object file, and by how much its addresses in memory lay above its own.
struct LoadedFile {
    std::string name;
    std::uint64_t displacement;
};

struct Options {
    std::vector<std::string> files;    // at least one; "-" is standard input
    std::vector<std::string> folders;  // where objects are looked for first
    std::vector<LoadedFile> loaded;    // for backtraces whose map tells nothing
    std::string addr2line;             // empty: the one for each object's processor
    Color color = Color::AUTO;
    bool lastOnly = false;
};

/// Ends the process after `--help` (0) and, with a message, after a wrong command line (2).
Options parseOptions(int argc, char* argv[]);

}  // namespace btview
