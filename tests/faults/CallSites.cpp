#include "CallSites.h"

#include "Faults.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <link.h>
#include <stdexcept>
#include <unistd.h>
#include <vector>

namespace {

using faults::Site;

/// Functions that a header of the platform defines: a call of one is a call of what it calls in the end.
const std::map<std::string, std::string> kInlineCalls = {
    {"_Z18pthread_mutex_lockP5_sync", "SyncMutexLock_r"},
    {"_Z21pthread_mutex_trylockP5_sync", "__nto_mutex_trylock"},
    {"_Z20pthread_mutex_unlockP5_sync", "SyncMutexUnlock_r"}};

std::vector<std::string> linesOf(const std::string& command) {
    std::FILE* const output = popen(command.c_str(), "r");
    if (output == nullptr)
        throw std::runtime_error(command);
    std::vector<std::string> lines;
    std::string line;
    for (int c = 0; (c = std::fgetc(output)) != EOF;) {
        if (c != '\n') {
            line += static_cast<char>(c);
        } else {
            lines.push_back(line);
            line.clear();
        }
    }
    if (pclose(output) != 0)
        throw std::runtime_error(command);
    return lines;
}

/// The source files of the library by their names, which are unique.
std::string& pathOf(const std::string& file) {
    static std::map<std::string, std::string> paths;
    return paths[file];
}

/// "/build/../src/room/Unit.cpp:12 (more)" is "Unit.cpp:12"; empty for what is not the library's.
std::string placeIn(const std::string& text) {
    for (const char* const folder : {"/src/", "/include/"}) {
        const std::size_t begin = text.rfind(folder);
        const std::size_t colon = begin == std::string::npos ? begin : text.find(':', begin);
        if (colon == std::string::npos || std::isdigit(static_cast<unsigned char>(text[colon + 1])) == 0)
            continue;
        // The folder that an object was compiled in may be another's, by way of a cache.
        const std::string path = MARLIX_SOURCE_FOLDER + text.substr(begin, colon - begin);
        if (access(path.c_str(), R_OK) != 0)
            continue;
        const std::string file = path.substr(path.rfind('/') + 1);
        pathOf(file) = path;
        return file + text.substr(colon, text.find(' ', colon) - colon);
    }
    return "";
}

const std::string kProgram = "/proc/" + std::to_string(getpid()) + "/exe";

/// The places of addresses as they are in the program's file.
std::map<std::uintptr_t, std::string> placesOf(const std::set<std::uintptr_t>& addresses) {
    std::string command = MARLIX_ADDR2LINE " -e " + kProgram;
    for (const std::uintptr_t address : addresses) {
        std::array<char, 32> text;
        std::snprintf(text.data(), text.size(), " 0x%zx", static_cast<std::size_t>(address));
        command += text.data();
    }
    const std::vector<std::string> lines = linesOf(command);
    if (lines.size() != addresses.size())
        throw std::runtime_error("addr2line: a line for each address expected");
    std::map<std::uintptr_t, std::string> places;
    auto line = lines.begin();
    for (const std::uintptr_t address : addresses)
        places[address] = placeIn(*line++);
    return places;
}

std::uintptr_t baseOfProgram() {
    std::uintptr_t base = 0;
    dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void* result) {
            *static_cast<std::uintptr_t*>(result) = info->dlpi_addr;
            return 1;  // the first is the program
        },
        &base);
    return base;
}

}  // namespace

bool faults::canTellSites() {
#ifdef MARLIX_LIBRARY_TELLS_SITES
    return true;
#else
    return false;
#endif
}

std::set<Site> faults::sitesOfLibrary() {
    std::map<std::string, std::string> nameOf;
    for (const Call& call : calls())
        nameOf["__wrap_" + std::string(call.symbol)] = call.name;
    for (const auto& [function, call] : kInlineCalls)
        nameOf[function] = call;
    // "  12ab:\tcall   34cd <function>", or the same at the end of what takes the function's address.
    std::map<std::uintptr_t, std::string> references;
    bool isOfPlatform = false;
    for (const std::string& line : linesOf(MARLIX_OBJDUMP " -d --no-show-raw-insn " + kProgram)) {
        const std::size_t begin = line.rfind('<');
        if (begin == std::string::npos)
            continue;
        if (line.back() == ':')  // "00000000000012ab <function>:"
            isOfPlatform = kInlineCalls.count(line.substr(begin + 1, line.size() - begin - 3)) != 0;
        if (isOfPlatform || line.back() != '>')
            continue;
        const auto known = nameOf.find(line.substr(begin + 1, line.size() - begin - 2));
        if (known != nameOf.end())
            references[std::stoul(line, nullptr, 16)] = known->second;
    }
    std::set<std::uintptr_t> addresses;
    for (const auto& [address, call] : references)
        addresses.insert(address);
    std::set<Site> sites;
    for (const auto& [address, place] : placesOf(addresses))
        if (!place.empty())
            sites.emplace(place, references[address]);
    return sites;
}

std::map<Site, std::set<int>> faults::errorsGivenAt(const std::set<Site>& sites) {
    const std::vector<Hit> hits = hitsOfAll();
    const std::uintptr_t base = baseOfProgram();
    // A call lies before the address that it returns to.
    const auto addressOf = [&](void* step) { return reinterpret_cast<std::uintptr_t>(step) - base - 1; };
    std::set<std::uintptr_t> addresses;
    for (const Hit& hit : hits)
        for (void* const step : hit.way)
            addresses.insert(addressOf(step));
    std::map<std::uintptr_t, std::string> places = placesOf(addresses);
    std::map<Site, std::set<int>> given;
    for (const Hit& hit : hits) {
        // The innermost: what lies further out has called a function of the library that makes the same call.
        for (void* const step : hit.way) {
            const Site site{places[addressOf(step)], hit.call->name};
            if (sites.count(site) != 0) {
                given[site].insert(hit.error);
                break;
            }
        }
    }
    return given;
}

std::string faults::textAt(const Site& site) {
    const std::size_t colon = site.first.find(':');
    std::ifstream file(pathOf(site.first.substr(0, colon)));
    std::string text;
    for (int i = std::stoi(site.first.substr(colon + 1)); i > 0; --i)
        std::getline(file, text);
    return text.substr(std::min(text.find_first_not_of(' '), text.size()));
}
