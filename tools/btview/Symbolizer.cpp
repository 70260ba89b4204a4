#include "Symbolizer.h"

#include "ElfObject.h"
#include "tools/PrintableText.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <optional>
#include <spawn.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

extern char** environ;

namespace btview {
namespace {

using Words = std::vector<std::string>;

std::string hex(std::uint64_t number) {
    char text[32];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(number));
    return text;
}

bool isFile(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

/// The places where the object may lie, in the order in which they are tried.
Words candidates(const Words& folders, const std::string& name) {
    const std::string leaf = name.substr(name.rfind('/') + 1);
    Words paths;
    for (const std::string& folder : folders)
        for (const std::string& below : {name, leaf})
            paths.emplace_back(folder).append("/").append(below);
    paths.push_back(name);
    return paths;
}

bool hasCode(const ElfObject& object, const MapEntry& entry) {
    return std::any_of(object.code.begin(), object.code.end(), [&entry](const CodeSegment& segment) {
        return segment.address == entry.offset && segment.size == entry.size;
    });
}

/// Programs that can read the machine's objects, the likeliest first.
Words programsFor(unsigned machine) {
    switch (machine) {
    case EM_ARM:
        return {"arm-linux-gnueabihf-addr2line", "llvm-addr2line", "addr2line"};
    case EM_X86_64:
        return {"x86_64-linux-gnu-addr2line", "addr2line", "llvm-addr2line"};
    case EM_AARCH64:
        return {"aarch64-linux-gnu-addr2line", "addr2line", "llvm-addr2line"};
    default:
        return {"addr2line", "llvm-addr2line"};
    }
}

/// What a program writes, when it can be started and ends well.
std::optional<std::string> outputOf(const Words& command) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return std::nullopt;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    // What it says of its troubles is about the next program's chance, and not the user's to read.
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::vector<char*> arguments;
    for (const std::string& word : command)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    pid_t child = -1;
    const int error = posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    std::string output;
    char piece[4096];
    for (ssize_t count; error == 0 && ((count = read(ends[0], piece, sizeof piece)) > 0 || errno == EINTR);)
        output.append(piece, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    close(ends[0]);
    int status = -1;
    while (error == 0 && waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    return error == 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0 ? std::optional(output) : std::nullopt;
}

/// "FILE:LINE", with "??" and "?" or 0 for what is not known, and perhaps a remark in parentheses.
void parsePlace(std::string text, Place& place) {
    text.erase(std::min(text.find(" ("), text.size()));
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos || text.compare(0, colon, "??") == 0)
        return;
    place.file = text.substr(0, colon);
    std::from_chars(text.data() + colon + 1, text.data() + text.size(), place.line);
}

/// Each address is followed by pairs of lines, the function and the place.
std::optional<std::vector<std::vector<Place>>> parseAnswer(const std::string& output, std::size_t addresses) {
    std::vector<std::vector<Place>> all;
    std::istringstream lines(output);
    for (std::string line, where; std::getline(lines, line);) {
        if (line.compare(0, 2, "0x") == 0) {
            all.emplace_back();
            continue;
        }
        if (all.empty() || !std::getline(lines, where))
            return std::nullopt;
        Place place;
        place.function = line == "??" ? "" : line;
        parsePlace(where, place);
        all.back().push_back(std::move(place));
    }
    const bool isWhole = all.size() == addresses &&
                         std::none_of(all.begin(), all.end(), [](const auto& places) { return places.empty(); });
    return isWhole ? std::optional(all) : std::nullopt;
}

std::string listed(const Words& words) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : ", ") + word;
    return text;
}

}  // namespace

Symbolizer::Symbolizer(std::vector<std::string> folders, std::string addr2line)
    : mFolders(std::move(folders)), mAddr2line(std::move(addr2line)) {
}

std::vector<std::vector<Place>> Symbolizer::find(const MapEntry& entry, int wordSize,
                                                 const std::vector<std::uint64_t>& addresses) {
    std::vector<std::vector<Place>> nothing(addresses.size(), std::vector<Place>(1));
    const Object& object = objectFor(entry, wordSize);
    if (object.path.empty())
        return nothing;
    const Words programs = mAddr2line.empty() ? programsFor(object.machine) : Words{mAddr2line};
    for (const std::string& program : programs) {
        Words command = {program, "-a", "-f", "-i", "-C", "-e", object.path};
        for (const std::uint64_t address : addresses)
            command.push_back(hex(address));
        if (const auto output = outputOf(command))
            if (auto places = parseAnswer(*output, addresses.size()))
                return *places;
    }
    const std::string problem =
        tools::printableText(object.path) + ": none of these could read it: " + listed(programs);
    if (std::find(mProblems.begin(), mProblems.end(), problem) == mProblems.end())
        mProblems.push_back(problem);
    return nothing;
}

const Symbolizer::Object& Symbolizer::objectFor(const MapEntry& entry, int wordSize) {
    const std::string key =
        std::to_string(wordSize) + ' ' + hex(entry.offset) + ' ' + hex(entry.size) + ' ' + entry.name;
    const auto found = mObjects.find(key);
    return found != mObjects.end() ? found->second : mObjects.emplace(key, locate(entry, wordSize)).first->second;
}

Symbolizer::Object Symbolizer::locate(const MapEntry& entry, int wordSize) {
    std::string other;  // one that lies where the object should
    for (const std::string& path : candidates(mFolders, entry.name)) {
        if (!isFile(path))
            continue;
        const auto object = readElfObject(path);
        if (object && object->wordSize == wordSize && hasCode(*object, entry))
            return {path, object->machine};
        other = other.empty() ? path : other;
    }
    if (!other.empty())
        mProblems.push_back(tools::printableText(other) + ": not the object that ran, whose code lay at " +
                            hex(entry.offset) + " and had " + std::to_string(entry.size) + " bytes");
    else if (entry.name.empty())
        mProblems.emplace_back("the program had no name yet, so that it cannot be looked for");
    else if (entry.name.find("vdso") == std::string::npos)  // the kernel's own, which is no file
        mProblems.push_back(tools::printableText(entry.name) + ": not found; --dir says where to look");
    return {};
}

}  // namespace btview
