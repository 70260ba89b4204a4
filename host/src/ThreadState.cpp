#include "ThreadState.h"

#include <sys/syscall.h>
#include <unistd.h>

extern "C" {
__thread unsigned __nto_owner = 0;
}

namespace host {
namespace {

struct ThreadState {
    unsigned id;
    unsigned states;
    Deadline deadline;
};

__thread ThreadState state __attribute__((tls_model("initial-exec"))) = {0, 0, {0}};

// A handler that makes an emulated call between two accesses here must find either no time-out or a whole one. What it
// armed and used up itself must not end up as half of the interrupted one: where the deadline has changed meanwhile, all
// is done again.
void orderForHandlers() {
    __atomic_signal_fence(__ATOMIC_SEQ_CST);
}

void forgetInChild() {
    __nto_owner = 0;
    state = {0, 0, {0}};
}

void registerForkHandler() {
    pthread_atfork(nullptr, nullptr, forgetInChild);
}

pthread_once_t forkHandlerOnce = PTHREAD_ONCE_INIT;

// Registering takes locks and memory, which a signal handler or an exhausted heap cannot give: done at load time if
// nobody needed the id before. So this child handler also runs before those that the program registers.
__attribute__((constructor(101))) void learnFirstId() {
    threadId();
}

}  // namespace

unsigned threadId() {
    if (state.id == 0) {
        // Before the first id is kept, whenever that is: at load time it may be too late for another static object.
        pthread_once(&forkHandlerOnce, registerForkHandler);
        learnThreadId(static_cast<unsigned>(syscall(SYS_gettid)));
    }
    return state.id;
}

void learnThreadId(unsigned id) {
    state.id = id;
    if (state.states == 0)
        __nto_owner = id;
}

void armTimeout(unsigned states, Deadline deadline) {
    const unsigned id = threadId();
    do {
        state.states = 0;
        orderForHandlers();
        state.deadline = deadline;
        orderForHandlers();
        state.states = states;
        orderForHandlers();
    } while (state.deadline.ns != deadline.ns);
    __nto_owner = states == 0 ? id : 0;
}

ArmedTimeout takeArmedTimeouts() {
    const unsigned id = threadId();
    ArmedTimeout armed;
    do {
        armed.deadline = state.deadline;
        orderForHandlers();
        armed.states = state.states;
        orderForHandlers();
    } while (state.deadline.ns != armed.deadline.ns);
    state.states = 0;
    orderForHandlers();
    __nto_owner = id;
    return armed;
}

Deadline takeArmedTimeout(unsigned wanted) {
    return takeArmedTimeouts().in(wanted);
}

}  // namespace host
