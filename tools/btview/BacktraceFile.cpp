#include "BacktraceFile.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace btview {
namespace {

constexpr std::string_view kBegin = "[QNX backtrace] INFO - ";
constexpr std::string_view kDataFollows = "\ndata below is the actual callstack created with QNX libbacktrace.so\n"
                                          "usable for analysis with proper project MAP file\n";

/// Takes the next line off the text.
std::string_view takeLine(std::string_view& text) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return line;
}

/// Takes a hexadecimal number of `digits` digits and the blank behind it off the line.
std::optional<std::uint64_t> takeNumber(std::string_view& line, std::size_t digits) {
    std::uint64_t number = 0;
    if (line.size() <= digits || line[digits] != ' ')
        return std::nullopt;
    const auto [end, error] = std::from_chars(line.data(), line.data() + digits, number, 16);
    if (error != std::errc() || end != line.data() + digits)
        return std::nullopt;
    line.remove_prefix(digits + 1);
    return number;
}

/// How many digits the line's numbers have; 0 when it begins with none.
std::size_t digitsOf(std::string_view line) {
    for (const std::size_t digits : {8, 16}) {
        std::string_view rest = line;
        if (takeNumber(rest, digits))
            return digits;
    }
    return 0;
}

/// Takes the lines of addresses off the text.
void takeAddresses(std::string_view& text, Backtrace& backtrace, std::size_t& digits) {
    for (;;) {
        std::string_view rest = text;
        std::string_view line = takeLine(rest);
        if (line.empty() && !rest.empty() && backtrace.addresses.empty()) {
            text = rest;
            continue;
        }
        digits = digits != 0 ? digits : digitsOf(line);
        std::vector<std::uint64_t> addresses;
        while (!line.empty()) {
            const auto address = digits != 0 ? takeNumber(line, digits) : std::nullopt;
            if (!address)
                return;
            addresses.push_back(*address);
        }
        if (addresses.empty())
            return;
        backtrace.addresses.insert(backtrace.addresses.end(), addresses.begin(), addresses.end());
        text = rest;
    }
}

std::optional<MapEntry> parseMapEntry(std::string_view line, std::size_t digits) {
    const auto start = takeNumber(line, digits);
    const auto size = start ? takeNumber(line, digits) : std::nullopt;
    const auto offset = size ? takeNumber(line, digits) : std::nullopt;
    if (!offset)
        return std::nullopt;
    return MapEntry{*start, *size, *offset, std::string(line)};
}

Backtrace parseBacktrace(std::string_view head, std::string_view data) {
    Backtrace backtrace;
    const std::size_t gap = head.rfind("\n\n");
    backtrace.message = head.substr(0, gap);
    backtrace.identification = gap == std::string_view::npos ? std::string_view() : head.substr(gap + 2);
    std::size_t digits = 0;
    takeAddresses(data, backtrace, digits);
    if (backtrace.addresses.empty())
        return backtrace;
    backtrace.wordSize = static_cast<int>(digits / 2);
    takeLine(data);  // the empty one between both lists
    while (!data.empty()) {
        auto entry = parseMapEntry(takeLine(data), digits);
        if (!entry)
            break;
        backtrace.map.push_back(std::move(*entry));
    }
    return backtrace;
}

/// Where the next backtrace begins, at the start of a line.
std::size_t findBegin(std::string_view text, std::size_t from) {
    while ((from = text.find(kBegin, from)) != std::string_view::npos && from != 0 && text[from - 1] != '\n')
        ++from;
    return from;
}

}  // namespace

const MapEntry* Backtrace::find(std::uint64_t address) const {
    const auto found = std::find_if(map.begin(), map.end(), [address](const MapEntry& entry) {
        return address >= entry.start && address - entry.start < entry.size;
    });
    return found != map.end() ? &*found : nullptr;
}

std::vector<Backtrace> parseBacktraces(std::string_view text) {
    std::vector<Backtrace> backtraces;
    for (std::size_t begin = findBegin(text, 0); begin != std::string_view::npos;) {
        const std::size_t next = findBegin(text, begin + 1);
        const std::string_view record = text.substr(begin + kBegin.size(), next - begin - kBegin.size());
        if (const std::size_t data = record.find(kDataFollows); data != std::string_view::npos)
            backtraces.push_back(parseBacktrace(record.substr(0, data), record.substr(data + kDataFollows.size())));
        begin = next;
    }
    return backtraces;
}

}  // namespace btview
