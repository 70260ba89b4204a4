#include "sampler/CProgress.h"

#include <CVQOTextStream.h>
#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace {

constexpr unsigned kBarWidth = 24;

void appendBar(CVQOTextStream& line, unsigned long long elapsedMs, unsigned seconds) {
    const unsigned long long filled =
        std::min<unsigned long long>(elapsedMs * kBarWidth / (seconds * 1000ULL), kBarWidth);
    for (unsigned i = 0; i < kBarWidth; ++i) {
        line << (i < filled ? "█" : "░");
    }
    line.streamWrite("  %.1f of %u s", static_cast<double>(elapsedMs) / 1000, seconds);
}

}  // namespace

CProgress::CProgress(unsigned seconds) : mSeconds(seconds), mIsTerminal(isatty(STDERR_FILENO) == 1) {
}

CProgress::~CProgress() {
    if (mIsTerminal) {
        std::fputs("\r\033[K", stderr);
    }
}

void CProgress::show(unsigned long long elapsedMs, const CSampler::SCounts& counts) const {
    if (!mIsTerminal) {
        return;
    }
    CVQOTextStream line(256);
    if (mSeconds != 0) {
        appendBar(line, elapsedMs, mSeconds);
    } else {
        line.streamWrite("%.1f s", static_cast<double>(elapsedMs) / 1000);
    }
    line.streamWrite("   %u samples, %u blocks accepted, %u waiting", counts.samples, counts.acceptedBlocks,
                     counts.waitingBlocks);
    std::fprintf(stderr, "\r\033[K%s", line.c_str());
}
