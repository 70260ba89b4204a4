// <sys/mman.h>: the C library's, with Neutrino's flags that Linux has no bits for. They are permissions, so that it is
// right to do nothing about them: new memory is always zero here, and is always taken when it is first touched.
#pragma once
#pragma GCC system_header  // for the line below, which no standard knows

#include_next <sys/mman.h>

#define MAP_NOINIT 0      // new memory need not be zero
#define MAP_LAZY 0        // memory need not be taken before it is touched
#define MAP_NOSYNCFILE 0  // what is written need not reach the file
