#include "Ending.h"

#include "Channel.h"
#include "Interrupter.h"
#include "SignalsBlocked.h"
#include "ThreadState.h"
#include "ThreadTable.h"
#include "Watcher.h"

#include <limits.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace host {
namespace {

// A thread's last steps, which its thread-local destructors still belong to: the last round but one of those of the
// C library's keys. In the last one sanitizers take the thread apart.
pthread_key_t endKey;
bool hasEndKey = false;
constexpr unsigned kEndRound = PTHREAD_DESTRUCTOR_ITERATIONS - 1;
__thread unsigned endRounds __attribute__((tls_model("initial-exec"))) = 0;

pthread_once_t preparedOnce = PTHREAD_ONCE_INIT;
pthread_once_t endingSignalOnce = PTHREAD_ONCE_INIT;

/// From here on the record may be freed.
void noteEnd() {
    const EndsLater untilNoted;
    Thread* const own = ownCreated();
    forgetOwn();
    if (own != nullptr) {
        if (__atomic_exchange_n(&own->life, unsigned(Thread::ENDED), __ATOMIC_ACQ_REL) == Thread::AWAITED)
            futexWake(&own->life, INT_MAX, Sharing::PRIVATE);
    } else if (static_cast<pid_t>(threadId()) == getpid()) {
        noteFirstEnded();
        noteLeaderEnded();
    }
}

void onEndOfThread(void* value) {
    if (++endRounds < kEndRound) {
        pthread_setspecific(endKey, value);
        return;
    }
    sigset_t before = blockSignals();
    if (Thread* const own = ownCreated(); own != nullptr && own->isDetached && isReleasedBefore(own))
        pthread_detach(pthread_self());
    noteEnd();
    // From here on the thread ends in the C library's way. The last one's way is that of the process, with handlers.
    sigaddset(&before, endingSignal());
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

/// A forked child has one thread, which keeps its priority, and no other to join.
void forgetOthersInChild() {
    mustEnd = 0;
    beToldOfTheEnd();
    if (const Thread* const own = ownCreated(); own != nullptr && own->isDetached)
        pthread_detach(pthread_self());
    forgetOthers();
}

void makeEndKeyAndForkHandlers() {
    hasEndKey = pthread_key_create(&endKey, onEndOfThread) == 0;
    pthread_atfork(nullptr, nullptr, forgetOthersInChild);
}

/// At load time, or earlier with the first thread: a fork that has begun does not run in its child what is registered
/// meanwhile. And the values of early keys take no memory.
__attribute__((constructor(102))) void prepareAtLoad() {
    prepareEnds();
    beToldOfTheEnd();
}

void onEndingSignal(int) {
    mustEnd = 1;
    endIfDue();
}

void handleEndingSignal() {
    struct sigaction action = {};
    action.sa_handler = onEndingSignal;
    sigfillset(&action.sa_mask);
    sigaction(endingSignal(), &action, nullptr);
}

/// Of the C library's keys: it may give the stack to another thread, with the values that are still there.
void forgetOwnValues() {
    for (pthread_key_t key = 0; key < PTHREAD_KEYS_MAX; ++key)
        if (pthread_getspecific(key) != nullptr)
            pthread_setspecific(key, nullptr);
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

void endOwnThread() {
    const EndsLater forGood;
    mustEnd = 0;
    blockSignals();
    Unfinished::takeAllBack();
    forgetOwnValues();
    deleteOwnTimer();
    if (Thread* const own = ownCreated())
        own->isLeft = true;
    noteEnd();
    for (;;)
        syscall(SYS_exit, 0);
}

bool prepareEnds() {
    pthread_once(&preparedOnce, makeEndKeyAndForkHandlers);
    return hasEndKey;
}

void beToldOfTheEnd() {
    if (hasEndKey)
        pthread_setspecific(endKey, &endKey);
}

void installEndingSignal() {
    pthread_once(&endingSignalOnce, handleEndingSignal);
}

}  // namespace host
