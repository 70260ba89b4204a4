// <sys/syspage.h>: the time of the system page.
//   Units    nanoseconds since boot, the zero of CLOCK_MONOTONIC.
//   Host     the entry is each thread's own and is brought up to date by each use of SYSPAGE_ENTRY: keep a pointer
//            for one reading only.
#pragma once
#pragma GCC system_header  // for its casts, which C shares

#include <stdint.h>
#include <time.h>

struct qtime_entry {
    uint64_t nsec;  // volatile on Neutrino, whose kernel writes it
};

#define SYSPAGE_ENTRY(entry) (__nto_syspage_##entry())

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

extern __thread struct qtime_entry __nto_qtime __attribute__((tls_model("initial-exec")));

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

static inline struct qtime_entry* __nto_syspage_qtime(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    __nto_qtime.nsec = (uint64_t)now.tv_sec * 1000000000 + (uint64_t)now.tv_nsec;
    return &__nto_qtime;
}
