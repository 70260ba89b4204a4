// <devctl.h>: commands to devices.
//   Host     commands are Linux's ioctl numbers, with the data that those want.
#pragma once

#include <stddef.h>

#ifndef EOK
#define EOK 0
#endif

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/// Returns EOK, or the error number, as ioctl has it (ENOTTY: no such command); errno is left alone. What the device
/// answers besides its data goes to `*info`, which may be null. An armed SEND or REPLY time-out ends a command that
/// waits (ETIMEDOUT), a signal handler that ran does too (EINTR). `size` is not used: the command implies it.
int devctl(int descriptor, int command, void* data, size_t size, int* info);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
