// ProcessorTime: what was spent on work, most of it in the kernel, whoever else runs meanwhile.
#pragma once

#include <ctime>

namespace bench {

/// By default what this thread has spent.
inline double processorSeconds(clockid_t clock = CLOCK_THREAD_CPUTIME_ID) {
    timespec time;
    clock_gettime(clock, &time);
    return double(time.tv_sec) + double(time.tv_nsec) / 1e9;
}

}  // namespace bench
