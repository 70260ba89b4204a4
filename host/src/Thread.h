// Thread: what the host records of a thread for others.
#pragma once

#include <signal.h>

namespace host {

// A thread that ThreadDestroy is to end while it holds an internal lock ends when it has released it.
extern __thread volatile sig_atomic_t mustEnd __attribute__((tls_model("initial-exec")));
/// Without unwinding, and without the C library's part of it.
[[noreturn]] void endOwnThread();

/// The calling thread's recorded priority, 1 to 63; without a lock for threads that have never been given one by others.
int callerPriority();

}  // namespace host
