// <alloca.h>: the C library's, and how much stack there is left.
#pragma once
#pragma GCC system_header  // for the line below, which no standard knows

#include_next <alloca.h>
#include <stddef.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/// Bytes between the caller's frame and the end of the calling thread's stack. errno is left alone.
size_t __stackavail(void);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
