// Mutex: what threads that are ended need to know of a mutex of one process.
#pragma once

#include <pthread.h>

namespace host {

/// Has the caller take the long way when it unlocks the mutex, there to do what came up meanwhile. False when it does not
/// hold it. Also from a signal handler.
bool makeUnlockLong(_sync* mutex);
/// Whether the caller holds it.
bool isOwn(const _sync* mutex);

}  // namespace host
