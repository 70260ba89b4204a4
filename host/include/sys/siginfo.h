// <sys/siginfo.h>: notifications that <signal.h> of Linux does not know, and what they use of struct sigevent.
#pragma once

#include <signal.h>

// Outside the numbers that the C library uses.
#define SIGEV_PULSE 0x84
#define SIGEV_UNBLOCK 0x85

// Neutrino's code and priority are 16 bits wide. Here they lie in words that the C library keeps for other events.
#define sigev_coid sigev_signo
#define sigev_code _sigev_un._pad[0]
#define sigev_priority _sigev_un._pad[1]

/// `value` is a pointer, or an integer as wide.
#define SIGEV_PULSE_INIT(event, coid, priority, code, value)                                                       \
    ((event)->sigev_notify = SIGEV_PULSE, (event)->sigev_coid = (coid), (event)->sigev_priority = (priority),      \
     (event)->sigev_code = (code), (event)->sigev_value.sival_ptr = (void*)(value))

#define SIGEV_UNBLOCK_INIT(event) ((event)->sigev_notify = SIGEV_UNBLOCK)
