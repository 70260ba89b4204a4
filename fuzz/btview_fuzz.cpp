// Backtrace files and object files of arbitrary bytes, as btview reads them: what it shows is harmless to a terminal,
// and each address is shown once.
//   Input    a backtrace file or, when it begins with the magic bytes of one, an object file.
#include "Fuzz.h"
#include "tools/btview/BacktraceFile.h"
#include "tools/btview/ElfObject.h"
#include "tools/btview/Output.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace {

using fuzz::require;

void showAll(std::string_view text) {
    for (const btview::Backtrace& backtrace : btview::parseBacktraces(text)) {
        require(backtrace.addresses.empty() == (backtrace.wordSize == 0), "the word size");
        std::vector<btview::Frame> frames;
        for (const std::uint64_t address : backtrace.addresses) {
            const btview::MapEntry* const entry = backtrace.find(address);
            require(entry == nullptr || (address >= entry->start && address - entry->start < entry->size),
                    "the entry");
            frames.push_back({address, std::vector<btview::Place>(1), entry});
        }
        const std::string shown = format(backtrace, frames, /*hasColor*/ false);
        const auto lines = std::count(shown.begin(), shown.end(), '\n');
        require(lines == static_cast<std::ptrdiff_t>(frames.size()) + 2, "a line each");
        require(
            std::none_of(shown.begin(), shown.end(),
                         [](char c) { return c != '\n' && (static_cast<unsigned char>(c) < 0x20 || c == 0x7F); }),
            "no control characters");
    }
}

void readObject(const std::uint8_t* data, std::size_t size) {
    const int file = memfd_create("object", MFD_CLOEXEC);
    require(file >= 0 && write(file, data, size) == static_cast<ssize_t>(size), "a file in memory");
    if (const auto object = btview::readElfObject("/proc/self/fd/" + std::to_string(file)))
        require(object->wordSize == 4 || object->wordSize == 8, "the word size");
    close(file);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size >= 4 && data[0] == 0x7F && data[1] == 'E')
        readObject(data, size);
    else
        showAll({reinterpret_cast<const char*>(data), size});
    return 0;
}
