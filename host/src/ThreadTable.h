// ThreadTable: a record of each thread that ThreadCreate started, and of each other one whose priority was set.
#pragma once

#include "Ending.h"
#include "Futex.h"
#include "Thread.h"

#include <pthread.h>
#include <stdint.h>
#include <sys/types.h>

namespace host {

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

template <class T>
void store(T& word, T value) {
    __atomic_store_n(&word, value, __ATOMIC_RELEASE);
}

/// For the creator of a detached thread, and for the thread when it ends by itself: the later one detaches it for the C
/// library. Of one that ThreadDestroy ends that would keep the stack; it is joined instead.
inline bool isReleasedBefore(Thread* thread) {
    return __atomic_exchange_n(&thread->isReleased, true, __ATOMIC_ACQ_REL);
}

/// Null when the caller has no record, or does not know of it yet.
extern __thread Thread* ownThread __attribute__((tls_model("initial-exec")));
/// Somebody frees a foreign thread's record as soon as the kernel says that it is gone. The thread itself reads it under
/// the lock, so that whoever frees it has synchronised with that.
extern __thread bool isOwnForeign __attribute__((tls_model("initial-exec")));

/// Null when ThreadCreate did not start the caller.
inline Thread* ownCreated() {
    return isOwnForeign ? nullptr : ownThread;
}
/// The caller's record, if it has one.
Thread* findOwn();
/// For a caller that ends: it has no record from here on.
void forgetOwn();
/// The first thread ends, to which the kernel takes signals until the process does.
void noteFirstEnded();
/// For the only thread of a forked child, which is no more one that ThreadCreate started.
void forgetOthers();

/// EOK or an error number.
int sendSignal(int id, int signal);

/// Holds the table's lock.
class TableGuard {
public:
    TableGuard();
    ~TableGuard();
    TableGuard(const TableGuard&) = delete;
    TableGuard& operator=(const TableGuard&) = delete;

private:
    const EndsLater mUntilReleased;
    const sig_atomic_t mWasAtTable;
};

/// Records that nobody can ask for any more. They are freed, and stacks given back, when the lock is free again: that
/// takes locks of the C library's.
class GoneThreads {
public:
    GoneThreads() = default;
    ~GoneThreads();
    GoneThreads(const GoneThreads&) = delete;
    GoneThreads& operator=(const GoneThreads&) = delete;

    /// With the lock.
    void takeFromTable();

private:
    const EndsLater mUntilFreed;
    Thread* mFirst = nullptr;
};

/// A record that is not in the table; null without memory.
Thread* newRecord();

// The following need the lock.

void enter(Thread* thread);
/// And frees it.
void remove(Thread* thread);
/// A thread whose id the table has may be joined.
void enterId(Thread* thread, int id);
/// Makes a record of a thread that ThreadCreate did not start; null without memory.
Thread* enterForeign(int id);
/// The record of an id, if it has one; that of a detached thread until the kernel is done with it.
Thread* find(int id);
/// EOK when `tid`, or the caller for 0, is a thread of this process that runs; `record` is its record, if any.
int findRunning(pid_t pid, int& tid, Thread*& record);

/// The C library's join returns before the kernel has forgotten the thread.
void noteJoined(int id);
/// Whether a thread that has no record runs.
bool isKnownToKernel(int id);

}  // namespace host
