#include <sys/neutrino.h>
#include <sys/syspage.h>

#include "Deadline.h"
#include "Errno.h"
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

// Above that an id and its clock's number do not fit into 32 bits; Linux has none.
constexpr int kLastId = (1 << 28) - 1;

// As the kernel numbers it: the complement of the id, "of a thread", "time scheduled".
clockid_t clockOfThread(int tid) {
    return static_cast<clockid_t>(~static_cast<unsigned>(tid) << 3 | 6);
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
        if (static_cast<uint64_t>(wanted.tv_sec) != *set / kNsPerSecond)
            return fail(EINVAL);
        if (clock_settime(id, &wanted) != 0)
            return -1;
    }
    if (old != nullptr)
        *old = static_cast<uint64_t>(time.tv_sec) * kNsPerSecond + static_cast<uint64_t>(time.tv_nsec);
    return 0;
}

int ClockId(pid_t pid, int tid) {
    dropTimeout();
    ErrnoKeeper keeper;
    clockid_t clock = clockOfThread(tid);
    const bool isKnown = tid == 0 ? pid >= 0 && pid <= kLastId && clock_getcpuclockid(pid, &clock) == 0
                                  : tid > 0 && tid <= kLastId && (pid == 0 || pid == getpid());
    timespec time;
    if (isKnown && clock_gettime(clock, &time) == 0)
        return clock;
    keeper.report(ESRCH);
    return -1;
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
