// Symbolizer: the places in the sources that code came from, by binutils' addr2line or LLVM's.
#pragma once

#include "BacktraceFile.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace btview {

/// Empty or 0 is what is not known.
struct Place {
    std::string function;
    std::string file;
    unsigned line = 0;
};

class Symbolizer {
public:
    Symbolizer(std::vector<std::string> folders, std::string addr2line);

    /// For each address of an object's code, as the file has them, its places, from the innermost inlined function
    /// outwards; at least one. What stands in the way is said in `problems`, once for each object.
    std::vector<std::vector<Place>> find(const MapEntry& entry, int wordSize,
                                         const std::vector<std::uint64_t>& addresses);

    const std::vector<std::string>& problems() const { return mProblems; }

private:
    struct Object {
        std::string path;  // empty: there is none to be asked
        unsigned machine = 0;
    };

    const Object& objectFor(const MapEntry& entry, int wordSize);
    Object locate(const MapEntry& entry, int wordSize);

    std::vector<std::string> mFolders;
    std::string mAddr2line;
    std::map<std::string, Object> mObjects;  // by name, word size, place and length in the map
    std::vector<std::string> mProblems;
};

}  // namespace btview
