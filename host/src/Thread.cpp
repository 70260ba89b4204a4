#include "Thread.h"

#include "Channel.h"
#include "Descriptor.h"
#include "Ending.h"
#include "ErrnoKeeper.h"
#include "FutexLock.h"
#include "Interrupter.h"
#include "SignalsBlocked.h"
#include "ThreadState.h"
#include "Watcher.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/capability.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/neutrino.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace host {
namespace {

constexpr int kLastPriority = 63;
constexpr size_t kMaxName = 100;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr size_t kStackOverhead = 1 << 20;
#else
constexpr size_t kStackOverhead = 64 << 10;
#endif
constexpr size_t kSmallestStack = 256 << 10;

// One record for each thread that ThreadCreate started, and for each other one whose priority was set.
struct Thread {
    Thread* next;
    int id;  // 0 until it is known
    pthread_t handle;
    void* (*function)(void*);
    void* argument;
    uint64_t signalMask;  // for its function, as far as the kernel knows signals
    void* status;         // what ThreadDestroy left, valid when `isDestroyed`
    bool isDestroyed;
    bool isForeign;  // not started by ThreadCreate
    bool isDetached;
    bool isStarting;   // its creator still needs the record
    bool isScheduled;  // its priority was set
    bool isJoined;     // another thread waits for its end
    bool isLeft;       // ended without the C library's part of it, which a join makes up for
    bool isReleased;   // by the first of two, of a detached one: see isReleasedBefore
    unsigned begin;    // of these, where the thread and who ends it meet:
    enum Begin : unsigned { STARTS, TAKES_SIGNALS, IS_STOPPED };
    unsigned life;  // a futex word, of these:
    enum Life : unsigned { RUNS, AWAITED, ENDED };
    int priority;
    int policy;
};

Thread* firstThread = nullptr;  // guarded by the lock below
FutexLock tableLock;

bool anyoneForeign = false;   // a record was made for a thread that ThreadCreate did not start
bool hasLeaderEnded = false;  // the first thread, to which the kernel takes signals until the process ends

__thread Thread* ownThread __attribute__((tls_model("initial-exec"))) = nullptr;
// Somebody frees a foreign thread's record as soon as the kernel says that it is gone. The thread itself reads it under
// the lock, so that whoever frees it has synchronised with that.
__thread bool isOwnForeign __attribute__((tls_model("initial-exec"))) = false;

// A thread's last steps, which its thread-local destructors still belong to: the last round but one of those of the
// C library's keys. In the last one sanitizers take the thread apart.
pthread_key_t endKey;
bool hasEndKey = false;
constexpr unsigned kEndRound = PTHREAD_DESTRUCTOR_ITERATIONS - 1;
__thread unsigned endRounds __attribute__((tls_model("initial-exec"))) = 0;

template <class T>
void store(T& word, T value) {
    __atomic_store_n(&word, value, __ATOMIC_RELEASE);
}

/// From here on the record may be freed.
void noteEnd() {
    const EndsLater untilNoted;
    Thread* const own = ownThread;
    ownThread = nullptr;
    if (own == nullptr || isOwnForeign) {
        if (static_cast<pid_t>(threadId()) == getpid()) {
            store(hasLeaderEnded, true);
            noteLeaderEnded();
        }
    } else if (__atomic_exchange_n(&own->life, unsigned(Thread::ENDED), __ATOMIC_ACQ_REL) == Thread::AWAITED) {
        futexWake(&own->life, INT_MAX, Sharing::PRIVATE);
    }
}

// The signal that ends another thread. It is among those that an emulator passes on.
int endingSignal() {
    return SIGRTMAX - 4;
}

/// For the creator of a detached thread, and for the thread when it ends by itself: the later one detaches it for the C
/// library. Of one that ThreadDestroy ends that would keep the stack; it is joined instead.
bool isReleasedBefore(Thread* thread) {
    return __atomic_exchange_n(&thread->isReleased, true, __ATOMIC_ACQ_REL);
}

void onEndOfThread(void* value) {
    if (++endRounds < kEndRound) {
        pthread_setspecific(endKey, value);
        return;
    }
    sigset_t before = blockSignals();
    if (ownThread != nullptr && !isOwnForeign && ownThread->isDetached && isReleasedBefore(ownThread))
        pthread_detach(pthread_self());
    noteEnd();
    // From here on the thread ends in the C library's way. The last one's way is that of the process, with handlers.
    sigaddset(&before, endingSignal());
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void beToldOfTheEnd() {
    if (hasEndKey)
        pthread_setspecific(endKey, &endKey);
}

[[noreturn]] void endOwnThread();

// A handler that forks must not wait for the lock that its own thread holds.
__thread volatile sig_atomic_t isAtTable __attribute__((tls_model("initial-exec"))) = 0;

class TableGuard {
public:
    TableGuard() : mWasAtTable(isAtTable) {
        isAtTable = 1;
        __atomic_signal_fence(__ATOMIC_SEQ_CST);
        tableLock.lock();
    }
    ~TableGuard() {
        tableLock.unlock();
        __atomic_signal_fence(__ATOMIC_SEQ_CST);
        isAtTable = mWasAtTable;
    }
    TableGuard(const TableGuard&) = delete;
    TableGuard& operator=(const TableGuard&) = delete;

private:
    const EndsLater mUntilReleased;
    const sig_atomic_t mWasAtTable;
};

void onEndingSignal(int) {
    mustEnd = 1;
    endIfDue();
}

int sendSignal(int id, int signal) {
    const ErrnoKeeper keeper;
    return syscall(SYS_tgkill, getpid(), id, signal) == 0 ? EOK : errno;
}

bool isThread(int id) {
    const bool isEndedLeader = load(hasLeaderEnded) && id == getpid();
    return id > 0 && !isEndedLeader && sendSignal(id, 0) == EOK;
}

/// A forked child has one thread, which keeps its priority, and no other to join.
void forgetOthersInChild() {
    mustEnd = 0;
    beToldOfTheEnd();
    tableLock.forget();
    hasLeaderEnded = false;
    firstThread = ownThread;
    if (ownThread == nullptr)
        return;
    if (ownThread->isDetached && !isOwnForeign)
        pthread_detach(pthread_self());
    ownThread->next = nullptr;
    ownThread->id = static_cast<int>(threadId());
    ownThread->isForeign = true;
    isOwnForeign = true;
}

void installEndingSignal() {
    struct sigaction action = {};
    action.sa_handler = onEndingSignal;
    sigfillset(&action.sa_mask);
    sigaction(endingSignal(), &action, nullptr);
}

void makeEndKeyAndForkHandlers() {
    hasEndKey = pthread_key_create(&endKey, onEndOfThread) == 0;
    pthread_atfork(nullptr, nullptr, forgetOthersInChild);
}

pthread_once_t endingSignalOnce = PTHREAD_ONCE_INIT;
pthread_once_t preparedOnce = PTHREAD_ONCE_INIT;

/// At load time, or earlier with the first thread: a fork that has begun does not run in its child what is registered
/// meanwhile. And the values of early keys take no memory.
void prepare() {
    pthread_once(&preparedOnce, makeEndKeyAndForkHandlers);
}

__attribute__((constructor(102))) void prepareAtLoad() {
    prepare();
    beToldOfTheEnd();
}

// The following need the lock.

bool isGone(const Thread& thread) {
    if (thread.isForeign)
        return !isThread(thread.id);
    return thread.isDetached && !thread.isStarting && load(thread.life) == Thread::ENDED &&
           !(thread.isLeft && isThread(thread.id));  // the kernel is done with its stack
}

/// Records that nobody can ask for any more. They are freed, and stacks given back, when the lock is free again: that
/// takes locks of the C library's.
class GoneThreads {
public:
    GoneThreads() = default;
    ~GoneThreads() {
        while (mFirst != nullptr) {
            Thread* const thread = mFirst;
            mFirst = thread->next;
            if (thread->isLeft)
                pthread_tryjoin_np(thread->handle, nullptr);
            free(thread);
        }
    }
    GoneThreads(const GoneThreads&) = delete;
    GoneThreads& operator=(const GoneThreads&) = delete;

    void takeFromTable() {
        for (Thread** link = &firstThread; *link != nullptr;) {
            Thread* const thread = *link;
            if (isGone(*thread)) {
                *link = thread->next;
                thread->next = mFirst;
                mFirst = thread;
            } else {
                link = &thread->next;
            }
        }
    }

private:
    const EndsLater mUntilFreed;
    Thread* mFirst = nullptr;
};

void enter(Thread* thread) {
    thread->next = firstThread;
    firstThread = thread;
}

void remove(Thread* thread) {
    Thread** link = &firstThread;
    while (*link != thread)
        link = &(*link)->next;
    *link = thread->next;
    free(thread);
}

/// The record of an id, if it has one; that of a detached thread until the kernel is done with it.
Thread* find(int id) {
    if (ownThread != nullptr && load(ownThread->id) == id)
        return ownThread;
    Thread* foreign = nullptr;  // of who saw the id before the table had the thread's own
    for (Thread* thread = firstThread; thread != nullptr; thread = thread->next) {
        if (load(thread->id) != id || isGone(*thread))
            continue;
        if (!thread->isForeign)
            return thread;
        foreign = thread;
    }
    return foreign;
}

/// The C library's join returns before the kernel has forgotten the thread: for a moment its id still takes signals.
struct Joined {
    int id;
    uint64_t untilNs;
};
constexpr uint64_t kForgottenWithinNs = kNsPerSecond;
Joined lastJoined[64];
unsigned joinedCount = 0;

void noteJoined(int id) {
    lastJoined[joinedCount++ % (sizeof lastJoined / sizeof *lastJoined)] = {id, nowNs(CLOCK_MONOTONIC_COARSE) +
                                                                                    kForgottenWithinNs};
}

/// Whether a thread that has no record runs.
bool isKnownToKernel(int id) {
    for (const Joined& joined : lastJoined)
        if (joined.id == id && nowNs(CLOCK_MONOTONIC_COARSE) < joined.untilNs)
            return false;
    return isThread(id);
}

Thread* newRecord(int id) {
    Thread* const thread = static_cast<Thread*>(calloc(1, sizeof(Thread)));
    if (thread != nullptr) {
        thread->id = id;
        thread->priority = kOrdinaryPriority;
        thread->policy = SCHED_RR;
    }
    return thread;
}

/// EOK when `tid`, or the caller for 0, is a thread of this process that runs; `record` is its record, if any.
int findRunning(pid_t pid, int& tid, Thread*& record) {
    if (pid != 0 && pid != getpid())
        return ESRCH;
    if (tid == 0)
        tid = static_cast<int>(threadId());
    record = find(tid);
    if (record != nullptr && !record->isForeign)
        return load(record->life) == Thread::ENDED ? ESRCH : EOK;
    return tid == static_cast<int>(threadId()) || isKnownToKernel(tid) ? EOK : ESRCH;
}

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

/// With the lock: a thread whose id the table has may be joined, and its handle is good for nothing then.
void enterId(Thread* thread, pthread_t handle) {
    const int id = idOf(*thread, handle);
    store(thread->id, id);
    // Who saw the id before the table had it may have set a priority, before the thread could do so itself.
    for (Thread* other = firstThread; other != nullptr; other = other->next) {
        if (other->isForeign && other->id == id) {
            if (!thread->isScheduled) {
                store(thread->priority, other->priority);
                store(thread->policy, other->policy);
            }
            remove(other);
            return;
        }
    }
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

/// The caller's own record, if it has one.
Thread* findOwn() {
    if (ownThread == nullptr && endRounds < kEndRound && load(anyoneForeign)) {
        const TableGuard guard;
        ownThread = find(static_cast<int>(threadId()));
        isOwnForeign = true;
    }
    return ownThread;
}

/// Of the C library's keys: it may give the stack to another thread, with the values that are still there.
void forgetOwnValues() {
    for (pthread_key_t key = 0; key < PTHREAD_KEYS_MAX; ++key)
        if (pthread_getspecific(key) != nullptr)
            pthread_setspecific(key, nullptr);
}

/// Takes back what is unfinished, and ends without unwinding and without the C library's part of it.
void endOwnThread() {
    const EndsLater forGood;
    mustEnd = 0;
    blockSignals();
    Unfinished::takeAllBack();
    forgetOwnValues();
    deleteOwnTimer();
    if (ownThread != nullptr && !isOwnForeign)
        ownThread->isLeft = true;
    noteEnd();
    for (;;)
        syscall(SYS_exit, 0);
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
    if (ownThread != nullptr && !isOwnForeign) {
        store(ownThread->status, status);
        store(ownThread->isDestroyed, true);
    }
    mustEnd = 1;
    endIfDue();
}

int result(int error) {
    if (error == EOK)
        return 0;
    errno = error;
    return -1;
}

}  // namespace

__thread volatile sig_atomic_t mustEnd __attribute__((tls_model("initial-exec"))) = 0;
__thread volatile sig_atomic_t endsLater __attribute__((tls_model("initial-exec"))) = 0;
__thread Unfinished* Unfinished::innermost __attribute__((tls_model("initial-exec"))) = nullptr;

void Unfinished::takeAllBack() {
    while (Unfinished* const one = innermost) {
        innermost = one->mOuter;
        one->mTakeBack(one->mWhat);
    }
}

void endIfDue() {
    if (endsLater == 0 && !endsWithChannels() && !Unfinished::mustGoOn())
        endOwnThread();
}

void findOwnBeforeFork() {
    if (isAtTable == 0)
        findOwn();
}

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

int ThreadCreate(pid_t pid, void* (*function)(void*), void* argument, const struct _thread_attr* attributes) {
    dropTimeout();
    if (pid != 0 && pid != getpid())
        return result(ESRCH);
    ErrnoKeeper keeper;
    const EndsLater untilStarted;
    prepare();
    Thread* const thread = hasEndKey ? newRecord(0) : nullptr;
    if (thread == nullptr) {
        keeper.report(hasEndKey ? ENOMEM : EAGAIN);
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
        enterId(thread, handle);
        id = load(thread->id);
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
    pthread_once(&endingSignalOnce, installEndingSignal);
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

int SchedGet(pid_t pid, int tid, struct sched_param* parameters) {
    dropTimeout();
    const TableGuard guard;
    Thread* record;
    if (const int error = findRunning(pid, tid, record); error != EOK)
        return result(error);
    parameters->sched_priority = record != nullptr ? record->priority : kOrdinaryPriority;
    return record != nullptr ? record->policy : SCHED_RR;
}

int SchedSet(pid_t pid, int tid, int policy, const struct sched_param* parameters) {
    dropTimeout();
    const int priority = parameters->sched_priority;
    if (priority < 1 || priority > kLastPriority || (policy != SCHED_NOCHANGE && !isPolicy(policy)))
        return result(EINVAL);
    GoneThreads gone;
    const TableGuard guard;
    Thread* record;
    if (const int error = findRunning(pid, tid, record); error != EOK)
        return result(error);
    if (record == nullptr) {
        gone.takeFromTable();
        record = newRecord(tid);
        if (record == nullptr)
            return result(ENOMEM);
        record->isForeign = true;
        enter(record);
        store(anyoneForeign, true);
        if (tid == static_cast<int>(threadId())) {
            ownThread = record;
            isOwnForeign = true;
        }
    }
    record->isScheduled = true;
    store(record->priority, priority);
    if (policy != SCHED_NOCHANGE)
        store(record->policy, policy);
    applyPriority(tid, priority);
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
    return result(SignalProcmask_r(pid, tid, how, set, old));
}
