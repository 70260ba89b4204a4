#include "Interrupt.h"

#include <csignal>
#include <sys/select.h>

namespace {

volatile std::sig_atomic_t gHasCome = 0;
sigset_t gMaskBefore;

sigset_t signals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

void handle(void (*handler)(int)) {
    std::signal(SIGINT, handler);
    std::signal(SIGTERM, handler);
}

void note(int) {
    gHasCome = 1;
    handle(SIG_DFL);
}

}  // namespace

namespace Interrupt {

// The signals are let through only within pselect, so that none slips in between a look at the note and a read
// that then waits for ever.
void listen() {
    const sigset_t set = signals();
    sigprocmask(SIG_BLOCK, &set, &gMaskBefore);
    handle(note);
}

void ignore() {
    handle(SIG_IGN);
}

bool hasCome() {
    return gHasCome != 0;
}

bool waitForInput(int descriptor) {
    fd_set watched;
    FD_ZERO(&watched);
    FD_SET(descriptor, &watched);
    if (!hasCome())
        pselect(descriptor + 1, &watched, nullptr, nullptr, nullptr, &gMaskBefore);
    if (hasCome())
        sigprocmask(SIG_SETMASK, &gMaskBefore, nullptr);
    return !hasCome();
}

}  // namespace Interrupt
