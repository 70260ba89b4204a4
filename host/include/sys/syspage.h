// <sys/syspage.h>: the time of the system page.
//   Units    nanoseconds since boot, the zero of CLOCK_MONOTONIC.
//   Host     the entry is each thread's own and is brought up to date by each use of SYSPAGE_ENTRY: keep a pointer
//            for one reading only.
#pragma once

#include <stdint.h>

struct qtime_entry {
    volatile uint64_t nsec;
};

#define SYSPAGE_ENTRY(entry) (__nto_syspage_##entry())

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

struct qtime_entry* __nto_syspage_qtime(void);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
