// ThreadState: what the host keeps for each thread: its id and its armed time-out.
//   Every emulated call begins with takeTimeout() or dropTimeout(), covered or not: a time-out lives for one call.
//   A forked child begins with neither.
//   Invariant: __nto_owner is the id when the id is known and nothing is armed, else 0.
#pragma once

#include "Deadline.h"

#include <pthread.h>

namespace host {

/// The kernel's id of the calling thread, without a system call from the second time on.
unsigned threadId();
/// For a thread that begins: spares it that system call where its id is known; 0 is not.
void learnThreadId(unsigned id);

/// Arms `deadline` for the calling thread's next emulated call, for the blocked states `states`; 0 disarms.
void armTimeout(unsigned states, Deadline deadline);

/// The long way of takeTimeout().
Deadline takeArmedTimeout(unsigned state);

/// Consumes the armed time-out: its deadline when it covers `state` (one _NTO_TIMEOUT_ bit or several), else never.
inline Deadline takeTimeout(unsigned state) {
    return __nto_owner != 0 ? Deadline::never() : takeArmedTimeout(state);
}

/// What was armed, for calls that go through more than one state.
struct ArmedTimeout {
    unsigned states;
    Deadline deadline;

    Deadline in(unsigned state) const { return (states & state) != 0 ? deadline : Deadline::never(); }
};

/// The long way of takeTimeouts().
ArmedTimeout takeArmedTimeouts();

/// Consumes the armed time-out.
inline ArmedTimeout takeTimeouts() {
    return __nto_owner != 0 ? ArmedTimeout{0, Deadline::never()} : takeArmedTimeouts();
}

/// For calls that do not block.
inline void dropTimeout() {
    takeTimeout(0);
}

}  // namespace host
