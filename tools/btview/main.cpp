// btview: turns the addresses in the backtrace files of assertions into functions, files and lines. `btview --help`
// says how.
#include "BacktraceFile.h"
#include "ElfObject.h"
#include "Options.h"
#include "Output.h"
#include "Symbolizer.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace btview;

bool complain(const std::string& problem) {
    std::fprintf(stderr, "btview: %s\n", problem.c_str());
    return false;
}

std::optional<std::string> readFile(const std::string& name) {
    const bool isInput = name == "-";
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> opened(
        isInput ? nullptr : std::fopen(name.c_str(), "rbe"), [](std::FILE* file) { return std::fclose(file); });
    std::FILE* const file = isInput ? stdin : opened.get();
    std::string text;
    if (file != nullptr) {
        char piece[65536];
        for (std::size_t count; (count = std::fread(piece, 1, sizeof piece, file)) != 0;)
            text.append(piece, count);
    }
    if (file == nullptr || std::ferror(file) != 0) {
        complain(name + ": " + std::strerror(errno));
        return std::nullopt;
    }
    return text;
}

std::vector<Frame> framesOf(const Backtrace& backtrace, Symbolizer& symbolizer) {
    std::vector<Frame> frames;
    std::map<const MapEntry*, std::vector<std::size_t>> byObject;
    for (const std::uint64_t address : backtrace.addresses) {
        // A return address is behind the call, perhaps already in another line or function.
        const MapEntry* const entry = backtrace.find(address - 1);
        if (entry != nullptr)
            byObject[entry].push_back(frames.size());
        frames.push_back({address, std::vector<Place>(1), entry});
    }
    for (const auto& [entry, numbers] : byObject) {
        std::vector<std::uint64_t> addresses;
        for (const std::size_t number : numbers)
            addresses.push_back(frames[number].address - 1 - entry->start + entry->offset);
        auto places = symbolizer.find(*entry, backtrace.wordSize, addresses);
        for (std::size_t i = 0; i < numbers.size(); ++i)
            frames[numbers[i]].places = std::move(places[i]);
    }
    return frames;
}

/// The map that the user gives. No value when an object in it cannot be read.
std::optional<std::vector<MapEntry>> givenMap(const Options& options) {
    std::vector<MapEntry> map;
    for (const LoadedFile& file : options.loaded) {
        const auto object = readElfObject(file.name);
        if (!object) {
            complain(file.name + ": no object file that can be read");
            return std::nullopt;
        }
        for (const CodeSegment& code : object->code)
            map.push_back({code.address + file.displacement, code.size, code.address, file.name});
    }
    return map;
}

/// False when the file cannot be read, or not all that it has is there.
bool show(const std::string& name, const Options& options, const std::vector<MapEntry>& given, bool hasColor,
          Symbolizer& symbolizer) {
    const auto text = readFile(name);
    if (!text)
        return false;
    std::vector<Backtrace> backtraces = parseBacktraces(*text);
    if (backtraces.empty())
        return complain(name + ": no backtrace in it");
    if (options.lastOnly)
        backtraces.erase(backtraces.begin(), backtraces.end() - 1);
    bool isWhole = true;
    for (Backtrace& backtrace : backtraces) {
        backtrace.map.insert(backtrace.map.begin(), given.begin(), given.end());
        if (&backtrace != &backtraces.front())
            std::fputc('\n', stdout);
        std::fputs(format(backtrace, framesOf(backtrace, symbolizer), hasColor).c_str(), stdout);
        if (backtrace.addresses.empty())
            isWhole = complain(name + ": a backtrace without addresses");
        else if (backtrace.map.empty())
            isWhole = complain(name + ": a backtrace without its map: nobody knows where its objects lay");
    }
    return isWhole;
}

}  // namespace

int main(int argc, char* argv[]) {
    const Options options = parseOptions(argc, argv);
    const bool hasColor = tools::wantsColor(options.color, isatty(STDOUT_FILENO) == 1);
    const auto given = givenMap(options);
    if (!given)
        return 1;
    Symbolizer symbolizer(options.folders, options.addr2line);
    bool isWhole = true;
    for (const std::string& file : options.files)
        isWhole = show(file, options, *given, hasColor, symbolizer) && isWhole;
    std::fflush(stdout);
    for (const std::string& problem : symbolizer.problems())
        isWhole = complain(problem);
    return isWhole && std::ferror(stdout) == 0 ? 0 : 1;
}
