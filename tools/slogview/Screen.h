// Screen: where records are shown, one aligned line each.
//   Threads  one thread at a time.
#pragma once

#include "LogEntry.h"
#include "Options.h"

#include <string>

namespace slogview {

class Screen {
public:
    /// Writes to `descriptor`. Lines that share a terminal with a running program begin by clearing the line, in
    /// which the program may just be drawing a progress bar.
    Screen(int descriptor, Color color, bool shared);

    void show(const LogEntry& entry);
    /// Writes out what was shown. False when nobody reads any more.
    bool flush();

private:
    void appendTime(unsigned long long nanoseconds);
    void appendColumn(const std::string& text, std::size_t width);
    void appendSeverity(int severity);

    int mDescriptor;
    bool mIsTerminal;
    bool mHasColor;
    bool mClearsLine;
    bool mHasHead = false;
    std::string mPending;
};

}  // namespace slogview
