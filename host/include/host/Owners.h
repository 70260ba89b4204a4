// <host/Owners.h>: counting the owners of what one process alone maps. Host only; include <VQAtomic.h>.
//   Alone    a process that has had no second thread, as the C library knows, needs no bus lock: that lock is nearly
//            all that a count costs. Whoever starts a thread has its own steps behind it; a signal handler must not
//            start one, as the C library says anyway.
//   Signals  a handler that counts as well comes before or after a step, never in between: each is one instruction.
//            Hence this is for processors that have such instructions.
#pragma once

#include <sys/single_threaded.h>

namespace VQAtomic {

inline void incrementPrivate(unsigned int& count) {
    if (__libc_single_threaded) {
        static_cast<void>(load(count));  // for sanitizers, which see no more of what follows
        __asm__ volatile("incl %0" : "+m"(count) : : "cc");
    } else {
        increment(count);
    }
}

inline bool testDecrementPrivate(unsigned int& count) {
    if (!__libc_single_threaded) {
        return testDecrement(count);
    }
    static_cast<void>(load(count));
    bool ownersRemain;
    __asm__ volatile("decl %0" : "+m"(count), "=@ccnz"(ownersRemain) : : "memory");
    return ownersRemain;
}

}  // namespace VQAtomic
