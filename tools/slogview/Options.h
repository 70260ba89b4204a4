// Options: what slogview was asked to do.
#pragma once

#include "LogEntry.h"
#include "tools/Color.h"

#include <chrono>
#include <limits>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace slogview {

/// Which records are shown: those that pass every kind of filter given.
struct Filter {
    int leastSeverity = std::numeric_limits<int>::max();  // numbers grow as severity falls
    std::vector<pid_t> processes;                         // any of them; none: all
    std::optional<unsigned> code;
    std::optional<unsigned> subCode;
    std::vector<std::string> texts;  // every one of them is in the text

    bool passes(const LogEntry& entry) const;
};

using tools::Color;

struct Options {
    std::string socketPath;  // empty: the default
    Filter filter;
    Color color = Color::AUTO;
    bool quiet = false;
    std::optional<unsigned long> count;
    std::optional<std::chrono::milliseconds> duration;
    std::vector<char*> command;  // ends with a null pointer when there is one

    bool hasCommand() const { return !command.empty(); }
};

/// Ends the process after `--help` (0) and, with a message, after a wrong command line (2).
Options parseOptions(int argc, char* argv[]);

}  // namespace slogview
