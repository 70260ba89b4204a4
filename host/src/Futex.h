// Futex: waiting on and waking of a 32-bit word, the one place that knows the kernel's interface.
#pragma once

#include "Deadline.h"
#include "Errno.h"

#include <limits.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace host {

/// How a word that others may change at any moment is read.
template <class T>
T load(const T& word) {
    return __atomic_load_n(&word, __ATOMIC_ACQUIRE);
}

/// The kernel finds the words of one process by address alone, shared ones by the memory behind it.
enum class Sharing : int { PRIVATE = FUTEX_PRIVATE_FLAG, SHARED = 0 };

/// The system call, in place where that is easy: the C library's function writes errno, and one more return follows the
/// sleep, which the processor does not foresee. The result, or an error number negated.
inline long futex(unsigned* word, int operation, unsigned value, const void* limit, unsigned bits) {
#if defined(__x86_64__)
    long result = SYS_futex;
    register const void* r10 __asm__("r10") = limit;
    register unsigned* r8 __asm__("r8") = nullptr;
    register unsigned long r9 __asm__("r9") = bits;
    __asm__ volatile("syscall"
                     : "+a"(result)
                     : "D"(word), "S"(long(operation)), "d"(long(value)), "r"(r10), "r"(r8), "r"(r9)
                     : "rcx", "r11", "memory");
    return result;
#else
    const ErrnoKeeper keeper;
    const long result = syscall(SYS_futex, word, operation, value, limit, nullptr, bits);
    return result < 0 ? -errno : result;
#endif
}

/// Waits while `*word` is `expected`. 0 after a wake-up, else EAGAIN (another value), EINTR or ETIMEDOUT, never
/// before the deadline.
inline int futexWait(unsigned* word, unsigned expected, Sharing sharing, Deadline deadline) {
    struct {
        long seconds, nanoseconds;  // what SYS_futex reads, also where the C library's time_t is wider
    } const limit = {static_cast<long>(deadline.ns / kNsPerSecond), static_cast<long>(deadline.ns % kNsPerSecond)};
    const bool unlimited = deadline.isNever() || deadline.ns / kNsPerSecond > static_cast<uint64_t>(LONG_MAX);
    return static_cast<int>(-futex(word, FUTEX_WAIT_BITSET | static_cast<int>(sharing), expected,
                                   unlimited ? nullptr : &limit, FUTEX_BITSET_MATCH_ANY));
}

/// How many sleep on the word, who go on sleeping: to move them to where they are tells. 0 when the word changes.
inline unsigned futexSleepers(unsigned* word, Sharing sharing) {
    const ErrnoKeeper keeper;
    const long sleepers = syscall(SYS_futex, word, FUTEX_CMP_REQUEUE | static_cast<int>(sharing), /*wake*/ 0,
                                  /*move*/ static_cast<long>(INT_MAX), word, load(*word));
    return sleepers < 0 ? 0 : static_cast<unsigned>(sleepers);
}

/// Wakes at most `count` waiters; how many they were. The word may be gone already: who was let in may have freed it.
inline int futexWake(unsigned* word, int count, Sharing sharing) {
    const long woken = futex(word, FUTEX_WAKE | static_cast<int>(sharing), unsigned(count), nullptr, 0);
    return woken < 0 ? 0 : static_cast<int>(woken);
}

}  // namespace host
