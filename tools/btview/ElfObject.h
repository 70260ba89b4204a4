// ElfObject: the little of an object file that says whether it is the one that ran, and which tool can read it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace btview {

struct CodeSegment {
    std::uint64_t address;  // the file's own
    std::uint64_t size;     // in memory
};

struct ElfObject {
    int wordSize;      // in bytes: 4, 8
    unsigned machine;  // EM_ARM, EM_X86_64, ...
    std::vector<CodeSegment> code;
};

/// No value for what is no ELF file of this machine's byte order, cannot be read or ends too early.
std::optional<ElfObject> readElfObject(const std::string& path);

}  // namespace btview
