// NeutrinoDoubles: scripted answers of the platform calls below the reporting units, for what the real ones do not do
// on demand. A double answers while its object lives; otherwise the real call is made.
//   Threads  one double at a time; the calls may come from any thread.
#pragma once

#include <backtrace.h>

#include <cerrno>
#include <cstddef>
#include <string>
#include <vector>

namespace doubles {

/// The stack and the map that <backtrace.h> finds.
class ScriptedStack {
public:
    ScriptedStack();
    ~ScriptedStack();
    ScriptedStack(const ScriptedStack&) = delete;
    ScriptedStack& operator=(const ScriptedStack&) = delete;

    int initResult = 0;
    int loadResult = 0;
    std::vector<bt_addr_t> addresses;
    int stackResult = 0;  // -1: bt_get_backtrace fails
    int mapCount = 1;
    std::string mapText = "map\n";  // printed as it is, without a terminator, as far as it fits

    // What was asked for.
    int printedCount = -1;
    std::size_t printedSize = 0;
    int unloads = 0;
};

struct TraceCall {
    int command;
    int event;
    int value1;
    int value2;
    const void* data;
    unsigned length;
    const char* text;
};

/// Records calls of TraceEvent and answers them.
class TraceRecorder {
public:
    TraceRecorder();
    ~TraceRecorder();
    TraceRecorder(const TraceRecorder&) = delete;
    TraceRecorder& operator=(const TraceRecorder&) = delete;

    int result = 0;
    int error = 0;  // put into errno when it is not 0
    std::vector<TraceCall> calls;
};

/// A logger that takes no line.
class RefusingLogger {
public:
    RefusingLogger();
    ~RefusingLogger();
    RefusingLogger(const RefusingLogger&) = delete;
    RefusingLogger& operator=(const RefusingLogger&) = delete;

    int error = EACCES;
    int lines = 0;  // how many it was asked to take
};

/// Makes strerror answer null.
class NoErrorTexts {
public:
    NoErrorTexts();
    ~NoErrorTexts();
    NoErrorTexts(const NoErrorTexts&) = delete;
    NoErrorTexts& operator=(const NoErrorTexts&) = delete;
};

}  // namespace doubles
