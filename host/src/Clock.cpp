#include <sys/neutrino.h>
#include <sys/syspage.h>

#include "Deadline.h"
#include "ErrnoKeeper.h"
#include "ThreadState.h"

#include <errno.h>
#include <unistd.h>

extern "C" {
__thread qtime_entry __nto_qtime = {0};
}

namespace host {
namespace {

timespec timespecOf(uint64_t ns) {
    timespec time;
    time.tv_sec = static_cast<time_t>(ns / kNsPerSecond);
    time.tv_nsec = static_cast<long>(ns % kNsPerSecond);
    return time;
}

}  // namespace
}  // namespace host

using namespace host;

int ClockTime(clockid_t id, const uint64_t* set, uint64_t* old) {
    dropTimeout();
    timespec time;
    if (clock_gettime(id, &time) != 0)
        return -1;
    if (set != nullptr) {
        const timespec wanted = timespecOf(*set);
        if (clock_settime(id, &wanted) != 0)
            return -1;
    }
    if (old != nullptr)
        *old = static_cast<uint64_t>(time.tv_sec) * kNsPerSecond + static_cast<uint64_t>(time.tv_nsec);
    return 0;
}

unsigned delay(unsigned milliseconds) {
    constexpr uint64_t kNsPerMs = kNsPerSecond / 1000;
    const Deadline armed = takeTimeout(_NTO_TIMEOUT_NANOSLEEP);
    const uint64_t end = nowNs(CLOCK_MONOTONIC) + milliseconds * kNsPerMs;
    const timespec until = timespecOf(armed.ns < end ? armed.ns : end);
    int error = clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
    const uint64_t now = nowNs(CLOCK_MONOTONIC);
    if (now >= end)
        return 0;
    errno = error == 0 ? ETIMEDOUT : error;
    return static_cast<unsigned>((end - now + kNsPerMs - 1) / kNsPerMs);
}
