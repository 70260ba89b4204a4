#include "ThreadTable.h"

#include "Descriptor.h"
#include "Errno.h"
#include "ThreadState.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/neutrino.h>
#include <unistd.h>

namespace host {
namespace {

constexpr size_t kMaxName = 100;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr size_t kStackOverhead = 1 << 20;
#else
constexpr size_t kStackOverhead = 64 << 10;
#endif
constexpr size_t kSmallestStack = 256 << 10;

/// The thread asks for TAKES_SIGNALS, who ends it for IS_STOPPED, and the first one decides. True when it is as asked.
bool begins(Thread* thread, Thread::Begin how) {
    unsigned begin = Thread::STARTS;
    return __atomic_compare_exchange_n(&thread->begin, &begin, unsigned(how), false, __ATOMIC_ACQ_REL,
                                       __ATOMIC_ACQUIRE) ||
           begin == how;
}

/// The id of a thread that has not been joined. The kernel's answer is in the C library's record before the thread
/// runs: the creator need not wait for it.
int idOf(const Thread& thread, pthread_t handle) {
    const int id = load(thread.id);
    clockid_t clock;
    if (id != 0 || pthread_getcpuclockid(handle, &clock) != 0)
        return load(thread.id);
    const int derived = ~(clock >> 3);
    return derived > 0 ? derived : load(thread.id);
}

void* runThread(void* argument) {
    Thread* const self = static_cast<Thread*>(argument);
    ownThread = self;
    const pthread_t handle = pthread_self();
    store(self->handle, handle);
    learnThreadId(static_cast<unsigned>(idOf(*self, handle)));
    store(self->id, static_cast<int>(threadId()));
    beToldOfTheEnd();
    if (!begins(self, Thread::TAKES_SIGNALS))
        endOwnThread();
    sigset_t mask;
    sigemptyset(&mask);
    memcpy(&mask, &self->signalMask, sizeof(self->signalMask));
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    return self->function(self->argument);
}

/// Creates the thread of a record; 0 or an error number.
int start(Thread* thread, size_t stackSize, pthread_t& handle) {
    pthread_attr_t attributes;
    int result = pthread_attr_init(&attributes);
    if (result != 0)
        return result;
    // The C library and sanitizers keep data of the thread at the end of its stack.
    const size_t wanted = stackSize < kSmallestStack ? kSmallestStack : stackSize;
    result = wanted > SIZE_MAX - kStackOverhead ? EAGAIN
                                                : pthread_attr_setstacksize(&attributes, wanted + kStackOverhead);
    // A handler that runs in the thread, and may end it, is to find that the thread knows its record.
    sigset_t all, own;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, nullptr, &own);
    sigdelset(&own, endingSignal());
    memcpy(&thread->signalMask, &own, sizeof(thread->signalMask));
    if (result == 0)
        result = pthread_attr_setsigmask_np(&attributes, &all);
    if (result == 0)
        result = pthread_create(&handle, &attributes, runThread, thread);
    pthread_attr_destroy(&attributes);
    return result;
}

bool waitForEnd(Thread* thread, Deadline deadline, Unfinished& join) {
    for (unsigned life; (life = load(thread->life)) != Thread::ENDED;) {
        if (deadline.isImmediate())
            return false;
        if (life == Thread::RUNS && !__atomic_compare_exchange_n(&thread->life, &life, unsigned(Thread::AWAITED),
                                                                 false, __ATOMIC_ACQ_REL, __ATOMIC_RELAXED))
            continue;
        const int result =
            join.during([&] { return futexWait(&thread->life, Thread::AWAITED, Sharing::PRIVATE, deadline); });
        if (result == ETIMEDOUT)
            return load(thread->life) == Thread::ENDED;
    }
    return true;
}

struct Joining {
    Thread* thread;
    Deadline deadline;
};

/// The target has ended, and the C library's join may be giving its stack back, with a lock held. One with a limit waits
/// for the end only.
bool isJoinEnding(const void* what) {
    const Joining& self = *static_cast<const Joining*>(what);
    return self.deadline.isNever() && load(self.thread->life) == Thread::ENDED;
}

/// For a joiner that ends. What the C library has begun without a limit it does not take back.
void stopJoining(void* what) {
    const Joining& self = *static_cast<Joining*>(what);
    if (self.deadline.isNever())
        return;
    const TableGuard guard;
    self.thread->isJoined = false;
}

/// The calling thread. Without the lock, which a handler that calls this may have interrupted its thread in.
void endAsTold(void* status) {
    if (Thread* const own = ownCreated()) {
        store(own->status, status);
        store(own->isDestroyed, true);
    }
    mustEnd = 1;
    endIfDue();
}

}  // namespace
}  // namespace host

using namespace host;

int ThreadCreate(pid_t pid, void* (*function)(void*), void* argument, const struct _thread_attr* attributes) {
    dropTimeout();
    if (pid != 0 && pid != getpid())
        return fail(ESRCH);
    ErrnoKeeper keeper;
    const EndsLater untilStarted;
    const bool isPrepared = prepareEnds();
    Thread* const thread = isPrepared ? newRecord() : nullptr;
    if (thread == nullptr) {
        keeper.report(isPrepared ? ENOMEM : EAGAIN);
        return -1;
    }
    thread->function = function;
    thread->argument = argument;
    thread->isStarting = true;
    thread->isDetached = attributes != nullptr && (attributes->__flags & PTHREAD_CREATE_DETACHED) != 0;
    if (const Thread* const creator = findOwn(); creator != nullptr) {
        thread->priority = load(creator->priority);
        thread->policy = load(creator->policy);
    }
    {
        GoneThreads gone;
        const TableGuard guard;
        gone.takeFromTable();
        enter(thread);
    }
    const bool isDetached = thread->isDetached;  // another thread may join it as soon as it runs
    pthread_t handle;
    if (const int error = start(thread, attributes != nullptr ? attributes->__stacksize : 0, handle); error != 0) {
        const TableGuard guard;
        remove(thread);
        keeper.report(error);
        return -1;
    }
    store(thread->handle, handle);
    int id;
    bool mustDetach;
    {
        const TableGuard guard;
        id = idOf(*thread, handle);  // nobody joins it meanwhile
        enterId(thread, id);
        mustDetach = isDetached && isReleasedBefore(thread);
        thread->isStarting = false;
    }
    if (mustDetach)
        pthread_detach(handle);
    return id;
}

int ThreadJoin_r(int tid, void** status) {
    const Deadline deadline = takeTimeout(_NTO_TIMEOUT_JOIN);
    if (tid == static_cast<int>(threadId()))
        return EDEADLK;
    Joining self = {nullptr, deadline};
    Unfinished joining(stopJoining, &self, isJoinEnding);
    Thread*& thread = self.thread;
    {
        const TableGuard guard;
        thread = tid > 0 ? find(tid) : nullptr;
        if (thread == nullptr)
            return isKnownToKernel(tid) ? EINVAL : ESRCH;
        if (thread->isForeign || thread->isDetached)
            return EINVAL;
        if (thread->isJoined)
            return EBUSY;
        thread->isJoined = true;
    }
    if (!deadline.isNever() && !waitForEnd(thread, deadline, joining)) {
        const TableGuard guard;
        thread->isJoined = false;
        return ETIMEDOUT;
    }
    void* value = nullptr;
    const auto join = [&] { return pthread_join(load(thread->handle), &value); };
    // With a limit, of a thread that has ended.
    const int error = deadline.isNever() ? joining.during(join) : join();
    GoneThreads gone;
    const TableGuard guard;
    if (error != 0) {  // it has detached itself by the C library's means
        thread->isJoined = false;
        return error;
    }
    if (status != nullptr)
        *status = thread->isDestroyed ? thread->status : value;
    thread->isLeft = false;
    thread->isDetached = true;
    store(thread->life, unsigned(Thread::ENDED));
    noteJoined(tid);
    gone.takeFromTable();
    return EOK;
}

int ThreadDestroy(int tid, int, void* status) {
    dropTimeout();
    if (tid == -1)
        _exit(0);
    if (tid == 0 || tid == static_cast<int>(threadId())) {
        endAsTold(status);
        return 0;  // to a handler, and the call that it interrupted ends the thread
    }
    ErrnoKeeper keeper;
    const EndsLater untilDone;  // else nobody would ever get past the installation
    installEndingSignal();
    const TableGuard guard;
    Thread* record;
    int error = findRunning(0, tid, record);
    const bool isOurs = error == EOK && record != nullptr && !record->isForeign;
    // A thread that has ended by itself meanwhile is as good as one that takes the signal.
    if (error == EOK && !(isOurs && begins(record, Thread::IS_STOPPED)) &&
        sendSignal(tid, endingSignal()) == EAGAIN)
        error = EAGAIN;
    if (error != EOK) {
        keeper.report(error);
        return -1;
    }
    if (isOurs && !load(record->isDestroyed)) {  // a joiner looks with the lock
        store(record->status, status);
        store(record->isDestroyed, true);
    }
    return 0;
}

int pthread_setname_np(int tid, const char* name) noexcept {
    dropTimeout();
    const size_t length = name != nullptr ? strlen(name) : 0;
    if (length > kMaxName)
        return E2BIG;
    const ErrnoKeeper keeper;
    const EndsLater untilClosed;
    char path[48];
    snprintf(path, sizeof(path), "/proc/self/task/%d/comm", tid == 0 ? static_cast<int>(threadId()) : tid);
    const Descriptor file(open(path, O_WRONLY | O_CLOEXEC));
    if (!file.isOpen())
        return errno == ENOENT ? ESRCH : errno;
    // Linux cuts the name; of an empty one it wants to see the end.
    const ssize_t written = length != 0 ? write(file.get(), name, length) : write(file.get(), "", 1);
    return written < 0 ? errno : 0;
}

int SignalProcmask_r(pid_t, int tid, int how, const sigset_t* set, sigset_t* old) {
    dropTimeout();
    if (tid != 0 && tid != static_cast<int>(threadId()))
        return ESRCH;
    if (set == nullptr)
        return pthread_sigmask(how, nullptr, old);
    sigset_t without = *set;
    sigdelset(&without, endingSignal());
    return pthread_sigmask(how, &without, old);
}

int SignalProcmask(pid_t pid, int tid, int how, const sigset_t* set, sigset_t* old) {
    return resultOf(SignalProcmask_r(pid, tid, how, set, old));
}
