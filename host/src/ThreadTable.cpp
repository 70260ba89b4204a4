#include "ThreadTable.h"

#include "Errno.h"
#include "FutexLock.h"
#include "ThreadState.h"

#include <errno.h>
#include <stdlib.h>
#include <sys/neutrino.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace host {
namespace {

Thread* firstThread = nullptr;  // guarded by the lock below
FutexLock tableLock;

bool hasForeign = false;  // a record was made for a thread that ThreadCreate did not start
bool hasFirstEnded = false;

__thread bool hasForgottenOwn __attribute__((tls_model("initial-exec"))) = false;

// A handler that forks must not wait for the lock that its own thread holds.
__thread volatile sig_atomic_t isAtTable __attribute__((tls_model("initial-exec"))) = 0;

/// For a moment the ids of joined threads still take signals.
struct Joined {
    int id;
    uint64_t untilNs;
};
constexpr uint64_t kForgottenWithinNs = kNsPerSecond;
Joined lastJoined[64];
unsigned joinedCount = 0;

bool isThread(int id) {
    const bool isEndedFirst = load(hasFirstEnded) && id == getpid();
    return id > 0 && !isEndedFirst && sendSignal(id, 0) == EOK;
}

bool isGone(const Thread& thread) {
    if (thread.isForeign)
        return !isThread(thread.id);
    return thread.isDetached && !thread.isStarting && load(thread.life) == Thread::ENDED &&
           !(thread.isLeft && isThread(thread.id));  // the kernel is done with its stack
}

}  // namespace

__thread Thread* ownThread __attribute__((tls_model("initial-exec"))) = nullptr;
__thread bool isOwnForeign __attribute__((tls_model("initial-exec"))) = false;

Thread* findOwn() {
    if (ownThread == nullptr && !hasForgottenOwn && load(hasForeign)) {
        const TableGuard guard;
        ownThread = find(static_cast<int>(threadId()));
        isOwnForeign = true;
    }
    return ownThread;
}

void findOwnBeforeFork() {
    if (isAtTable == 0)
        findOwn();
}

void forgetOwn() {
    ownThread = nullptr;
    hasForgottenOwn = true;
}

void noteFirstEnded() {
    store(hasFirstEnded, true);
}

void forgetOthers() {
    tableLock.forget();
    hasFirstEnded = false;
    firstThread = ownThread;
    if (ownThread == nullptr)
        return;
    ownThread->next = nullptr;
    ownThread->id = static_cast<int>(threadId());
    ownThread->isForeign = true;
    isOwnForeign = true;
}

int sendSignal(int id, int signal) {
    const ErrnoKeeper keeper;
    return syscall(SYS_tgkill, getpid(), id, signal) == 0 ? EOK : errno;
}

TableGuard::TableGuard() : mWasAtTable(isAtTable) {
    isAtTable = 1;
    __atomic_signal_fence(__ATOMIC_SEQ_CST);
    tableLock.lock();
}

TableGuard::~TableGuard() {
    tableLock.unlock();
    __atomic_signal_fence(__ATOMIC_SEQ_CST);
    isAtTable = mWasAtTable;
}

GoneThreads::~GoneThreads() {
    while (mFirst != nullptr) {
        Thread* const thread = mFirst;
        mFirst = thread->next;
        if (thread->isLeft)
            pthread_tryjoin_np(thread->handle, nullptr);
        free(thread);
    }
}

void GoneThreads::takeFromTable() {
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

Thread* newRecord() {
    Thread* const thread = static_cast<Thread*>(calloc(1, sizeof(Thread)));
    if (thread != nullptr) {
        thread->priority = kOrdinaryPriority;
        thread->policy = SCHED_RR;
    }
    return thread;
}

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

void enterId(Thread* thread, int id) {
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

Thread* enterForeign(int id) {
    Thread* const thread = newRecord();
    if (thread == nullptr)
        return nullptr;
    thread->id = id;
    thread->isForeign = true;
    enter(thread);
    store(hasForeign, true);
    if (id == static_cast<int>(threadId())) {
        ownThread = thread;
        isOwnForeign = true;
    }
    return thread;
}

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

void noteJoined(int id) {
    lastJoined[joinedCount++ % (sizeof lastJoined / sizeof *lastJoined)] = {id, nowNs(CLOCK_MONOTONIC_COARSE) +
                                                                                    kForgottenWithinNs};
}

bool isKnownToKernel(int id) {
    for (const Joined& joined : lastJoined)
        if (joined.id == id && nowNs(CLOCK_MONOTONIC_COARSE) < joined.untilNs)
            return false;
    return isThread(id);
}

}  // namespace host
