// CProgress: a line that tells how far the recording is; on a terminal only, and only when it takes a while.
//   Threads  one thread at a time.
#pragma once

#include <chrono>

class CProgress {
public:
    /// `size` 0: not known.
    explicit CProgress(unsigned long long size);
    CProgress(const CProgress&) = delete;
    CProgress& operator=(const CProgress&) = delete;
    /// Leaves no trace.
    ~CProgress() { clear(); }

    void update(unsigned long long bytes, unsigned long long lines) {
        // The clock is looked at now and then only: a line takes less time than a look.
        if (mIsTerminal && lines % 256 == 0)
            show(bytes, lines);
    }
    void clear();

private:
    using Clock = std::chrono::steady_clock;

    void show(unsigned long long bytes, unsigned long long lines);

    unsigned long long mSize;
    bool mIsTerminal;
    bool mIsShown = false;
    Clock::time_point mNext;
};
