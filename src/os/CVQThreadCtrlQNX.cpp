#include <CVQThreadCtrl.h>

#include <VQOperatingSystem.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <sched.h>
#include <sys/neutrino.h>
#include <unistd.h>

namespace {

constexpr int kTimedOut = -2;

void* runRunnable(void* runnable) {
    static_cast<CVQThreadCtrl::IRunnable*>(runnable)->run();
    return nullptr;
}

}  // namespace

int CVQThreadCtrl::startThread(IRunnable& runnable, bool detached, int priority, int stackSize) {
    _thread_attr attributes = {};
    if (sched_getparam(0, &attributes.__param) == -1) {
        return 0;
    }
    attributes.__flags = detached ? PTHREAD_CREATE_DETACHED : PTHREAD_CREATE_JOINABLE;
    attributes.__stacksize = static_cast<std::size_t>(stackSize);
    int tid;
    do {
        tid = ThreadCreate(0, &runRunnable, &runnable, &attributes);
    } while (tid == -1 && errno == EINTR);
    if (tid == -1) {
        return 0;
    }
    if (priority != INHERITPRIORITY) {
        setPriority(tid, priority);
    }
    return tid;
}

int CVQThreadCtrl::join(int tid, int timeoutMs) {
    void* value = reinterpret_cast<void*>(-1);
    int error;
    // Kept: join-zero-waits. Only a time-out above 0 is one.
    const unsigned long long deadline = timeoutMs >= 1 ? VQOperatingSystem::calculateKernelTimeout(timeoutMs) : 0;
    do {
        if (deadline != 0) {
            VQOperatingSystem::setKernelTimeout(deadline, _NTO_TIMEOUT_JOIN);
        }
        error = ThreadJoin_r(tid, &value);
    } while (error == EINTR);
    if (error == ETIMEDOUT) {
        return kTimedOut;
    }
    return static_cast<int>(reinterpret_cast<std::intptr_t>(value));
}

int CVQThreadCtrl::getPriority(int tid) {
    sched_param parameters;
    return SchedGet(0, tid, &parameters) == -1 ? -1 : parameters.sched_priority;
}

int CVQThreadCtrl::setPriority(int tid, int priority) {
    sched_param parameters;
    if (SchedGet(0, tid, &parameters) == -1) {
        return -1;
    }
    const int previous = parameters.sched_priority;
    parameters.sched_priority = priority;
    SchedSet(0, tid, SCHED_NOCHANGE, &parameters);  // Kept: thread-priority-unchecked. Callers want the old one.
    return previous;
}

bool CVQThreadCtrl::setThreadName(int tid, const char* name) {
    return pthread_setname_np(tid, name) == 0;
}

int CVQThreadCtrl::terminate(int tid) {
    return ThreadDestroy(tid, -1, nullptr);
}

void CVQThreadCtrl::terminate() {
    ThreadDestroy(0, -1, nullptr);
    std::abort();
}

int CVQThreadCtrl::getCurrentThreadId() {
    return gettid();
}
