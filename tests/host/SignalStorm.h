// SignalStorm: SIGALRM every 300 microseconds to the calling thread alone. System calls are interrupted by it.
#pragma once

#include <csignal>
#include <ctime>
#include <unistd.h>

class SignalStorm {
public:
    explicit SignalStorm(void (*handler)(int)) {
        struct sigaction action = {};
        action.sa_handler = handler;
        sigaction(SIGALRM, &action, nullptr);
        sigevent event = {};
        event.sigev_notify = SIGEV_THREAD_ID;
        event.sigev_signo = SIGALRM;
        event._sigev_un._tid = gettid();
        timer_create(CLOCK_MONOTONIC, &event, &mTimer);
        const itimerspec period = {{0, 300000}, {0, 300000}};
        timer_settime(mTimer, 0, &period, nullptr);
    }
    ~SignalStorm() { timer_delete(mTimer); }
    SignalStorm(const SignalStorm&) = delete;
    SignalStorm& operator=(const SignalStorm&) = delete;

private:
    timer_t mTimer;
};
