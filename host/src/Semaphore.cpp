#include <semaphore.h>

#include "ErrnoKeeper.h"
#include "ThreadState.h"

int sem_timedwait_monotonic(sem_t* semaphore, const timespec* deadline) {
    host::dropTimeout();
    host::ErrnoKeeper keeper;
    // The C library would look at the nanoseconds first.
    if (sem_trywait(semaphore) == 0 || sem_clockwait(semaphore, CLOCK_MONOTONIC, deadline) == 0)
        return 0;
    keeper.report(errno);
    return -1;
}
