#include "ElfObject.h"

#include <cstring>
#include <elf.h>
#include <fstream>

namespace btview {
namespace {

#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
constexpr unsigned char kByteOrder = ELFDATA2LSB;
#else
constexpr unsigned char kByteOrder = ELFDATA2MSB;
#endif

template <class T>
bool readAt(std::ifstream& file, std::uint64_t offset, T& value) {
    file.seekg(static_cast<std::streamoff>(offset));
    return static_cast<bool>(file.read(reinterpret_cast<char*>(&value), sizeof value));
}

template <class Header, class Segment>
std::optional<ElfObject> read(std::ifstream& file, int wordSize) {
    Header header;
    if (!readAt(file, 0, header) || header.e_phentsize != sizeof(Segment))
        return std::nullopt;
    ElfObject object{wordSize, header.e_machine, {}};
    for (unsigned i = 0; i < header.e_phnum; ++i) {
        Segment segment;
        if (!readAt(file, header.e_phoff + std::uint64_t{i} * sizeof segment, segment))
            return std::nullopt;
        if (segment.p_type == PT_LOAD && (segment.p_flags & PF_X) != 0)
            object.code.push_back({segment.p_vaddr, segment.p_memsz});
    }
    return object;
}

}  // namespace

std::optional<ElfObject> readElfObject(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    unsigned char identity[EI_NIDENT];
    if (!readAt(file, 0, identity) || std::memcmp(identity, ELFMAG, SELFMAG) != 0 ||
        identity[EI_DATA] != kByteOrder)
        return std::nullopt;
    if (identity[EI_CLASS] == ELFCLASS32)
        return read<Elf32_Ehdr, Elf32_Phdr>(file, 4);
    if (identity[EI_CLASS] == ELFCLASS64)
        return read<Elf64_Ehdr, Elf64_Phdr>(file, 8);
    return std::nullopt;
}

}  // namespace btview
