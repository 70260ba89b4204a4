// <process.h>: the process's own arguments.
#pragma once

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/// The arguments of main, there before any static constructor runs. With the shared library that holds for the
/// constructors of all other libraries too; with the static one for those of the object that it is linked into.
extern int _argc;
extern char** _argv;

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
