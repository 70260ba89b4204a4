// VQAtomic: the three steps of a reference count that several threads or processes change.
//
//   Units    a count is a plain unsigned 32-bit word, on the heap or in shared memory, 4-byte aligned.
//   Errors   none. A count wraps modulo 2^32; stepping below 0 is the caller's mistake.
//   Threads  any thread, any process that maps the word, any signal handler.
//   Private  steps for a word that no other process maps, as on the heap: with the same results, and quicker where it
//            is known that the process has no other thread.
//
// Adding an owner needs no order: whoever adds one already holds one. Dropping an owner releases what this owner
// did to the counted object and, for the last one, acquires what all others did before it is torn down.
#pragma once

namespace VQAtomic {

/// Adds an owner.
inline void increment(unsigned int& count) {
    __atomic_fetch_add(&count, 1U, __ATOMIC_RELAXED);
}

/// Drops an owner. True while owners remain, false for the one call that dropped the last.
inline bool testDecrement(unsigned int& count) {
    return __atomic_fetch_sub(&count, 1U, __ATOMIC_ACQ_REL) != 1U;
}

/// The number of owners. A caller that sees 1 and is an owner itself is the only one, and everything that the
/// others did is behind it: it may write.
inline unsigned int load(const unsigned int& count) {
    return __atomic_load_n(&count, __ATOMIC_ACQUIRE);
}

}  // namespace VQAtomic

// Only where a count changes in one instruction: in between no signal handler can count.
#if defined(__x86_64__) && __has_include(<host/Owners.h>)
#include <host/Owners.h>
#else
namespace VQAtomic {

inline void incrementPrivate(unsigned int& count) {
    increment(count);
}

inline bool testDecrementPrivate(unsigned int& count) {
    return testDecrement(count);
}

}  // namespace VQAtomic
#endif
