// <unistd.h>: the C library's, and Neutrino's sleep in milliseconds.
#pragma once
#pragma GCC system_header  // for the line below, which no standard knows

#include_next <unistd.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/// Sleeps; the result is 0, or the milliseconds (rounded up) that were left when a caught signal or an armed
/// NANOSLEEP time-out ended the sleep, with errno EINTR or ETIMEDOUT.
unsigned delay(unsigned milliseconds);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
