// LoggedLines: what the tests of the reporting units expect of the log: opcode, severity and text of every line, in
// order, written so that a difference is readable.
#pragma once

#include <VQSyslog.h>

#include "support/SlogCapture.h"

#include <sys/types.h>

#include <cstring>
#include <string>
#include <vector>

/// One line in the order of its parts: "<opcode> <severity> <text>".
inline std::string wholeLine(unsigned opcode, int severity, const std::string& text) {
    return std::to_string(opcode) + ' ' + std::to_string(severity) + ' ' + text;
}

/// The line that the process `pid` logs for `message` with the short forms' code and sub-code 0.
inline std::string loggedLine(pid_t pid, VQSyslog::Severity severity, const std::string& message) {
    return wholeLine(10000, severity, "pid " + std::to_string(pid) + ": " + message);
}

/// What the process `pid` writes to standard error for a line that the logger refuses.
inline std::string unwritable(pid_t pid, int error) {
    return "pid: " + std::to_string(pid) + ": cannot write to syslog: " + std::strerror(error) + "\n";
}

inline std::vector<std::string> loggedLines(support::SlogCapture& log) {
    std::vector<std::string> lines;
    for (const support::LoggedRecord& record : log.records()) {
        lines.push_back(wholeLine(record.opcode(), record.severity, record.text));
    }
    return lines;
}
