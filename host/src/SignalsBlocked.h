#pragma once

#include <pthread.h>
#include <signal.h>

namespace host {

/// All of the calling thread's; returns what was blocked before.
inline sigset_t blockSignals() {
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    return before;
}

/// No handler runs in the thread while this lives.
class SignalsBlocked {
public:
    SignalsBlocked() : mBefore(blockSignals()) {}
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &mBefore, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    const sigset_t mBefore;
};

}  // namespace host
