// <atomic.h>: counters that threads, signal handlers and processes share.
//   Host     sequentially consistent; the documentation of the calls promises no ordering, so nobody may lean on it.
#pragma once

#ifdef __cplusplus
#define __NTO_INLINE inline
#else
#define __NTO_INLINE static inline
#endif

__NTO_INLINE void atomic_add(volatile unsigned* location, unsigned increment) {
    __atomic_fetch_add(location, increment, __ATOMIC_SEQ_CST);
}

/// The value before the addition.
__NTO_INLINE unsigned atomic_add_value(volatile unsigned* location, unsigned increment) {
    return __atomic_fetch_add(location, increment, __ATOMIC_SEQ_CST);
}

/// The value before the subtraction.
__NTO_INLINE unsigned atomic_sub_value(volatile unsigned* location, unsigned decrement) {
    return __atomic_fetch_sub(location, decrement, __ATOMIC_SEQ_CST);
}

#undef __NTO_INLINE
