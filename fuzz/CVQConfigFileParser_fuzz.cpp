// Arbitrary bytes as a configuration file: the callbacks get what the plain rules say.
//   Input    the first byte says after how many lines the callback stops the parser; all others are the file.
#include "Fuzz.h"
#include "util/PlainConfigFile.h"

#include <cstdint>
#include <sys/mman.h>
#include <unistd.h>

namespace {

using fuzz::require;

const std::map<std::string, unsigned>& sections() {
    static const std::map<std::string, unsigned> kSections = {{"s", 1},  {"t", 2},  {"", 3},
                                                              {" s", 4}, {"s#", 5}, {"COMMANDLINE", 65535}};
    return kSections;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    return fuzz::prepare(fuzz::Assertions::EndTheRun);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::size_t most = data[0] == 0 ? ~std::size_t(0) : data[0];
    const int file = memfd_create("input", MFD_CLOEXEC);
    require(file >= 0 && write(file, data + 1, size - 1) == ssize_t(size - 1));
    const std::string path = "/proc/self/fd/" + std::to_string(file);

    plain::Collector collector(most);
    CVQConfigFileParser parser;
    for (const auto& section : sections())
        require(parser.addSectionCallback(section.first.c_str(), static_cast<unsigned short>(section.second),
                                          &collector));
    require(parser.parse(path.c_str()));
    require(plain::linesOf(path.c_str(), sections(), most) == collector.lines);
    close(file);
    return 0;
}
