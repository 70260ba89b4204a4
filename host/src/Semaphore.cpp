#include <semaphore.h>

#include "Ending.h"
#include "Errno.h"
#include "ThreadState.h"

namespace {

/// For a thread that ends: the post that woke it may be another one's.
void passPostOn(void* semaphore) {
    sem_t* const posted = static_cast<sem_t*>(semaphore);
    if (sem_trywait(posted) == 0)
        sem_post(posted);
}

}  // namespace

int sem_timedwait_monotonic(sem_t* semaphore, const timespec* deadline) {
    host::dropTimeout();
    host::ErrnoKeeper keeper;
    // The C library would look at the nanoseconds first.
    if (sem_trywait(semaphore) == 0)
        return 0;
    host::Unfinished waiting(passPostOn, semaphore);
    if (waiting.during([&] { return sem_clockwait(semaphore, CLOCK_MONOTONIC, deadline); }) == 0)
        return 0;
    keeper.report(errno);
    return -1;
}
