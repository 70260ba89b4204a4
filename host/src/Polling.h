// Polling: looking at a word for a while before the thread sleeps on it.
#pragma once

#include "ErrnoKeeper.h"

#include <sched.h>

namespace host {

inline void pauseProcessor() {
#if defined(__i386__) || defined(__x86_64__)
    __builtin_ia32_pause();
#elif defined(__arm__) || defined(__aarch64__)
    __asm__ __volatile__("yield");
#endif
}

/// How often a word is looked at: a microsecond or two, which short critical sections end within and which costs
/// less than sleeping and waking. With one processor nobody changes the word meanwhile.
inline unsigned pollCount() {
    static unsigned count = 0;  // 0: not known yet; two threads may find it out at once and agree
    unsigned known = __atomic_load_n(&count, __ATOMIC_RELAXED);
    if (known == 0) {
        const ErrnoKeeper keeper;
        cpu_set_t processors;
        const bool single =
            sched_getaffinity(0, sizeof(processors), &processors) == 0 && CPU_COUNT(&processors) == 1;
        known = single ? 1 : 100;
        __atomic_store_n(&count, known, __ATOMIC_RELAXED);
    }
    return known;
}

}  // namespace host
