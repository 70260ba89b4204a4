// LogEntry: one record of the log, checked and taken apart.
#pragma once

#include "host/include/host/SlogRecord.h"
#include <optional>
#include <string>
#include <string_view>

namespace slogview {

struct LogEntry {
    host::SlogRecord header;
    std::string_view payload;  // within the datagram it came from
};

/// No value for a datagram that is not exactly one record: too short, foreign, of another version or wrong in size.
std::optional<LogEntry> takeApart(std::string_view datagram);

/// "critical", "debug1"; for a number out of range "?42".
std::string severityName(int severity);

/// The severity that a user means: a name, the beginning of one that fits no other, or a number from 0 to 7.
std::optional<int> parseSeverity(std::string_view word);

/// The payload as one line that a terminal shows and does not obey: a text as tools::printableText has it, integers in
/// decimal, raw data in hexadecimal.
std::string printable(const LogEntry& entry);

}  // namespace slogview
