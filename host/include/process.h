// <process.h>: the process's own arguments, and new processes.
#pragma once

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/// The arguments of main, there before any static constructor runs. With the shared library that holds for the
/// constructors of all other libraries too; with the static one for those of the object that it is linked into.
extern int _argc;
extern char** _argv;

#define P_WAIT 0     // returns the child's status when it has ended
#define P_NOWAIT 1   // returns its id at once
#define P_OVERLAY 2  // becomes it

/// Starts a program; a `file` without a slash is looked up in PATH. The child has the caller's environment,
/// directory, descriptors without close-on-exec and signal mask. -1 and errno: what the start of a program says,
/// EINVAL for another mode and for no arguments.
int spawnvp(int mode, const char* file, char* const argv[]);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
