#include "Interrupter.h"

#include "SignalsBlocked.h"

#include <limits.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

namespace host {
namespace {

// Among those that an emulator passes on.
int signalNumber() {
    return SIGRTMAX - 5;
}

struct ThreadTimer {
    timer_t id;
    bool isThere;
    Deadline set;  // what it is set to, never when it is not
};

__thread ThreadTimer own __attribute__((tls_model("initial-exec"))) = {nullptr, false, {UINT64_MAX}};

// A key for what each thread has anyway, for the sake of its destructor. Made at load time, when keys are few: the
// first ones need no memory in a thread.
pthread_key_t endOfThread;
pthread_once_t preparedOnce = PTHREAD_ONCE_INIT;

void forgetOwnTimer() {
    own = {nullptr, false, Deadline::never()};
}

void makeKeyAndForkHandler() {
    pthread_key_create(&endOfThread, [](void*) { deleteOwnTimer(); });
    pthread_atfork(nullptr, nullptr, forgetOwnTimer);  // a forked child has no timers
}

__attribute__((constructor(101))) void prepare() {
    pthread_once(&preparedOnce, makeKeyAndForkHandler);
}

bool makeOwnTimer() {
    const SignalsBlocked whileMade;  // a handler that needs the timer meanwhile would make another
    if (own.isThere)
        return true;  // as one has just done
    prepare();
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(signalNumber(), &action, nullptr);
    struct sigevent event = {};
    event.sigev_notify = SIGEV_THREAD_ID;
    event.sigev_signo = signalNumber();
    event._sigev_un._tid = gettid();
    own.isThere = timer_create(CLOCK_MONOTONIC, &event, &own.id) == 0;
    if (own.isThere)
        pthread_setspecific(endOfThread, &own);
    return own.isThere;
}

void setOwnTimer(Deadline deadline) {
    // A handler that uses the timer before it is set below sets it to this at its end.
    own.set = deadline;
    struct itimerspec times = {};
    if (!deadline.isNever()) {
        const uint64_t ns = deadline.isImmediate() ? 1 : deadline.ns;  // 0 would stop the timer
        const uint64_t seconds = ns / kNsPerSecond;
        times.it_value.tv_sec = static_cast<time_t>(seconds < LONG_MAX ? seconds : LONG_MAX);
        times.it_value.tv_nsec = static_cast<long>(ns % kNsPerSecond);
        times.it_interval.tv_nsec = 1000000;
    }
    timer_settime(own.id, TIMER_ABSTIME, &times, nullptr);
}

sigset_t ownSignal() {
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, signalNumber());
    return one;
}

}  // namespace

Interrupter::Interrupter(Deadline deadline) : mHasTimer(own.isThere || makeOwnTimer()), mOuter(own.set) {
    const sigset_t unblocked = ownSignal();
    sigset_t before;
    pthread_sigmask(SIG_UNBLOCK, &unblocked, &before);
    mWasBlocked = sigismember(&before, signalNumber()) == 1;
    if (mHasTimer)
        setOwnTimer(deadline);
}

Interrupter::~Interrupter() {
    const ErrnoKeeper keeper;
    if (mHasTimer)
        setOwnTimer(mOuter);
    if (mWasBlocked) {
        const sigset_t blocked = ownSignal();
        pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    }
}

void deleteOwnTimer() {
    if (!own.isThere)
        return;
    const SignalsBlocked untilDeleted;  // a thread that ends in between would leave it
    const timer_t timer = own.id;
    forgetOwnTimer();
    timer_delete(timer);
}

}  // namespace host
