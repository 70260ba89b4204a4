#include <sys/neutrino.h>

#include "Errno.h"
#include "ThreadState.h"
#include "Unsupported.h"

#include <errno.h>

namespace host {
namespace {

constexpr unsigned kStates = _NTO_TIMEOUT_SEND | _NTO_TIMEOUT_RECEIVE | _NTO_TIMEOUT_REPLY |
                             _NTO_TIMEOUT_SIGSUSPEND | _NTO_TIMEOUT_SIGWAITINFO | _NTO_TIMEOUT_NANOSLEEP |
                             _NTO_TIMEOUT_MUTEX | _NTO_TIMEOUT_CONDVAR | _NTO_TIMEOUT_JOIN | _NTO_TIMEOUT_INTR |
                             _NTO_TIMEOUT_SEM;

Deadline deadlineOf(clockid_t clock, bool absolute, uint64_t ntime) {
    if (absolute)
        return monotonic(clock, {ntime});
    return ntime == 0 ? Deadline::immediate() : Deadline{nowNs(CLOCK_MONOTONIC) + ntime};
}

}  // namespace
}  // namespace host

using namespace host;

int TimerTimeout_r(clockid_t id, int flags, const struct sigevent* notify, const uint64_t* ntime, uint64_t*) {
    dropTimeout();
    if (id != CLOCK_MONOTONIC && id != CLOCK_REALTIME)
        return EINVAL;
    if (notify != nullptr && notify->sigev_notify != SIGEV_UNBLOCK)
        return unsupported("TimerTimeout with an event other than SIGEV_UNBLOCK", ENOTSUP);
    const unsigned states = static_cast<unsigned>(flags) & kStates;
    if (states == 0)
        return EOK;
    if (ntime == nullptr)
        armTimeout(states, Deadline::immediate());
    else if (*ntime <= INT64_MAX)
        armTimeout(states, deadlineOf(id, (flags & TIMER_ABSTIME) != 0, *ntime));
    return EOK;
}

int TimerTimeout(clockid_t id, int flags, const struct sigevent* notify, const uint64_t* ntime, uint64_t* otime) {
    return resultOf(TimerTimeout_r(id, flags, notify, ntime, otime));
}
