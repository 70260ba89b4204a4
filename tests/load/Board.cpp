#include "Board.h"

#include <VQOperatingSystem.h>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <sys/neutrino.h>

namespace load {

unsigned long long nowNs() {
    return VQOperatingSystem::getClockValue(CLOCK_MONOTONIC);
}

void SFlow::accept(unsigned number) {
    const unsigned last = accepted;
    if (number <= last) {
        ++doubled;
    } else {
        lost += number - last - 1;
        accepted = number;
    }
}

void STrips::note(unsigned long long ns) {
    ++count;
    sumNs += ns;
    unsigned long long longest = longestNs;
    while (ns > longest && !longestNs.compare_exchange_weak(longest, ns)) {
    }
}

void SBoard::complain(const char* format, ...) {
    const unsigned index = mBegun++;
    if (index < kMaxComplaints) {
        std::va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(texts[index], kMaxWords, format, arguments);
        va_end(arguments);
    }
    ++complaints;
}

bool SBoard::takeSystemPulse(int code) {
    if (code == _PULSE_CODE_DISCONNECT) {
        ++disconnects;
    } else if (code == _PULSE_CODE_UNBLOCK) {
        ++interruptions;  // the reply is under way: the sender waits for it
    }
    return code < 0;
}

bool SBoard::takeFault(EFault wanted) {
    return fault == wanted && serverLives == 2 && !mIsFaultMade.exchange(true);
}

}  // namespace load
