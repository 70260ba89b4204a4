#include "LogEntry.h"

#include "tools/PrintableText.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace slogview {
namespace {

constexpr const char* kSeverityNames[] = {"shutdown", "critical", "error",  "warning",
                                          "notice",   "info",     "debug1", "debug2"};
constexpr int kSeverityCount = 8;

std::string printableIntegers(std::string_view bytes) {
    std::string line;
    for (std::size_t i = 0; i + sizeof(std::int32_t) <= bytes.size(); i += sizeof(std::int32_t)) {
        std::int32_t value;
        std::memcpy(&value, bytes.data() + i, sizeof value);
        line += (i == 0 ? "" : " ") + std::to_string(value);
    }
    return line;
}

std::string printableBytes(std::string_view bytes) {
    std::string line;
    for (const char byte : bytes) {
        line += line.empty() ? "" : " ";
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
        line += digits;
    }
    return line;
}

}  // namespace

std::optional<LogEntry> takeApart(std::string_view datagram) {
    LogEntry entry{};
    std::memcpy(&entry.header, datagram.data(), std::min(datagram.size(), sizeof entry.header));
    if (!host::isWholeSlogRecord(entry.header, datagram.size()))
        return std::nullopt;
    entry.payload = datagram.substr(sizeof entry.header);
    return entry;
}

std::string severityName(int severity) {
    if (severity >= 0 && severity < kSeverityCount)
        return kSeverityNames[severity];
    return '?' + std::to_string(severity);
}

std::optional<int> parseSeverity(std::string_view word) {
    if (word.size() == 1 && word[0] >= '0' && word[0] < '0' + kSeverityCount)
        return word[0] - '0';
    std::optional<int> found;
    for (int severity = 0; severity < kSeverityCount && !word.empty(); ++severity) {
        const std::string_view name = kSeverityNames[severity];
        if (name.substr(0, word.size()) != word)
            continue;
        if (found)
            return std::nullopt;
        found = severity;
    }
    return found;
}

std::string printable(const LogEntry& entry) {
    switch (entry.header.kind) {
    case host::SlogKind::INTS:
        return printableIntegers(entry.payload);
    case host::SlogKind::BYTES:
        return printableBytes(entry.payload);
    case host::SlogKind::TEXT:
        break;
    }
    return tools::printableText(entry.payload);
}

}  // namespace slogview
