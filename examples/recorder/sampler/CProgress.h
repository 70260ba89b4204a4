// CProgress: a line on a terminal that tells how far a sampler is. Elsewhere nothing is shown.
//   Threads  one thread at a time.
#pragma once

#include "sampler/CSampler.h"

class CProgress {
public:
    /// `seconds` 0: without end.
    explicit CProgress(unsigned seconds);
    /// Leaves no trace.
    ~CProgress();
    CProgress(const CProgress&) = delete;
    CProgress& operator=(const CProgress&) = delete;

    void show(unsigned long long elapsedMs, const CSampler::SCounts& counts) const;

private:
    const unsigned mSeconds;
    const bool mIsTerminal;
};
