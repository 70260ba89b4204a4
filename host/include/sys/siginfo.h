// <sys/siginfo.h>: notifications that <signal.h> of Linux does not know.
#pragma once

#include <signal.h>

#define SIGEV_UNBLOCK 0x85  // outside the numbers that the C library uses

#define SIGEV_UNBLOCK_INIT(event) ((event)->sigev_notify = SIGEV_UNBLOCK)
