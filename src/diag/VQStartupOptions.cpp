#include <VQStartupOptions.h>

#include <CVQString.h>
#include <os/CErrnoKeeper.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <process.h>

namespace {

// All that the scan finds, in one word, so that threads that scan at the same moment settle on one result.
constexpr unsigned kScanned = 1;
constexpr unsigned kBreakDisabled = 2;
constexpr unsigned kMemoryTraced = 4;
VQ_CONSTINIT std::atomic<unsigned> sOptions{0};

constexpr char kNoBreak[] = "--nobreak";
constexpr char kMemoryTrace[] = "--memtrace=";

unsigned scanArguments() {
    const CErrnoKeeper keepErrno;
    unsigned options = kScanned;
    for (int i = 0; i < _argc; ++i) {
        const char* const argument = _argv[i];
        if (argument == nullptr) {
            break;
        }
        if (std::strcmp(argument, kNoBreak) == 0) {
            options |= kBreakDisabled;
        } else if (std::strncmp(argument, kMemoryTrace, sizeof kMemoryTrace - 1) == 0) {
            const char* const number = argument + sizeof kMemoryTrace - 1;
            char* end;
            const unsigned long level = std::strtoul(number, &end, 10);
            if (end != number && level <= 1) {
                options = level == 1 ? options | kMemoryTraced : options & ~kMemoryTraced;
            }
        }
    }
    return options;
}

unsigned getOptions() {
    unsigned settled = sOptions.load(std::memory_order_relaxed);
    if (settled != 0 || _argv == nullptr) {
        return settled;
    }
    const unsigned found = scanArguments();
    return sOptions.compare_exchange_strong(settled, found, std::memory_order_relaxed) ? found : settled;
}

// The arguments are still as the process received them.
const TVQStartupCaller<unsigned (*)()> sScanAtLoad(&getOptions);

}  // namespace

bool VQStartupOptions::isBreakEnabled() {
    return (getOptions() & kBreakDisabled) == 0;
}

int VQStartupOptions::getMemoryTraceLevel() {
    return (getOptions() & kMemoryTraced) != 0 ? 1 : 0;
}

CVQString VQStartupOptions::getCommandLine() {
    CVQString line;
    if (_argv == nullptr) {
        return line;
    }
    for (int i = 1; i < _argc && _argv[i] != nullptr; ++i) {
        if (i > 1) {
            line.append(" ");
        }
        line.append(_argv[i]);
    }
    return line;
}
