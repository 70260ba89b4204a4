// BacktraceFile: what assertions write, taken apart.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace btview {

/// A line of the map: an object's code in the process that ran.
struct MapEntry {
    std::uint64_t start;   // in its memory
    std::uint64_t size;    // in bytes
    std::uint64_t offset;  // the object file's own address of it
    std::string name;      // its beginning may have given way
};

struct Backtrace {
    std::string message;         // why it was written
    std::string identification;  // by whom
    int wordSize = 0;            // in bytes: 4, 8; 0 when there is no address
    std::vector<std::uint64_t> addresses;
    std::vector<MapEntry> map;

    /// The entry in which the byte at `address` lies, or null.
    const MapEntry* find(std::uint64_t address) const;
};

/// All backtraces of a file, in its order. What stands between them, and pieces of cut ones, is passed over.
std::vector<Backtrace> parseBacktraces(std::string_view text);

}  // namespace btview
