#include "shared/StopSignals.h"

#include <VQOperatingSystem.h>
#include <csignal>
#include <ctime>

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM};

sigset_t signalSet() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : kSignals) {
        sigaddset(&set, signal);
    }
    return set;
}

}  // namespace

void StopSignals::block() {
    VQOperatingSystem::setSignalMask(kSignals, 2, nullptr, VQOSTypes::SIGNAL_MASK_ADD);
}

bool StopSignals::wait(int timeoutMs) {
    const sigset_t set = signalSet();
    if (timeoutMs < 0) {
        int signal = 0;
        return sigwait(&set, &signal) == 0;
    }
    const timespec limit = {timeoutMs / 1000, timeoutMs % 1000 * 1000000L};
    return sigtimedwait(&set, nullptr, &limit) > 0;
}
