#include "Errno.h"
#include "ThreadState.h"
#include "ThreadTable.h"

#include <errno.h>
#include <linux/capability.h>
#include <sys/neutrino.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace host {
namespace {

/// True when the kernel lets a thread come back from a higher nice value: else lowering it would be for good.
bool mayRaise() {
    rlimit limit;
    if (getrlimit(RLIMIT_NICE, &limit) == 0 && limit.rlim_cur >= 20)
        return true;
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
    return syscall(SYS_capget, &header, data) == 0 && (data[0].effective & (1u << CAP_SYS_NICE)) != 0;
}

void applyPriority(int tid, int priority) {
    const ErrnoKeeper keeper;
    if (!mayRaise())
        return;
    constexpr int kLowest = 19, kHighest = -20;
    const int nice = priority <= kOrdinaryPriority
                         ? (kOrdinaryPriority - priority) * kLowest / (kOrdinaryPriority - 1)
                         : (priority - kOrdinaryPriority) * kHighest / (kLastPriority - kOrdinaryPriority);
    setpriority(PRIO_PROCESS, static_cast<id_t>(tid), nice);
}

bool isPolicy(int policy) {
    return policy == SCHED_FIFO || policy == SCHED_RR || policy == SCHED_OTHER;
}

}  // namespace

int callerPriority() {
    const Thread* const own = findOwn();
    if (own == nullptr)
        return kOrdinaryPriority;
    if (!isOwnForeign)
        return load(own->priority);
    const TableGuard guard;
    return own->priority;
}

}  // namespace host

using namespace host;

int SchedGet(pid_t pid, int tid, struct sched_param* parameters) {
    dropTimeout();
    const TableGuard guard;
    Thread* record;
    if (const int error = findRunning(pid, tid, record); error != EOK)
        return fail(error);
    parameters->sched_priority = record != nullptr ? record->priority : kOrdinaryPriority;
    return record != nullptr ? record->policy : SCHED_RR;
}

int SchedSet(pid_t pid, int tid, int policy, const struct sched_param* parameters) {
    dropTimeout();
    const int priority = parameters->sched_priority;
    if (priority < 1 || priority > kLastPriority || (policy != SCHED_NOCHANGE && !isPolicy(policy)))
        return fail(EINVAL);
    GoneThreads gone;
    const TableGuard guard;
    Thread* record;
    if (const int error = findRunning(pid, tid, record); error != EOK)
        return fail(error);
    if (record == nullptr) {
        gone.takeFromTable();
        record = enterForeign(tid);
        if (record == nullptr)
            return fail(ENOMEM);
    }
    record->isScheduled = true;
    store(record->priority, priority);
    if (policy != SCHED_NOCHANGE)
        store(record->policy, policy);
    applyPriority(tid, priority);
    return 0;
}
