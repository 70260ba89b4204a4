// <sys/wait.h>: the C library's, except that waitpid takes WEXITED, as Neutrino's does.
#pragma once
#pragma GCC system_header  // for the line below, which no standard knows

#include_next <sys/wait.h>

#ifdef __cplusplus
extern "C" {
#endif

/// On Linux only waitid knows WEXITED; here it is dropped: waitpid reports ends anyway.
pid_t waitpid(pid_t pid, int* status, int options) __asm__("__nto_waitpid");

#ifdef __cplusplus
}
#endif
