// <sys/slog.h>: the system logger.
//   Shape    an opcode is a major code in the low 20 bits and a minor code in the upper 12.
//   Host     each message is one datagram: to the socket that the variable NTO_SLOG names, as <host/SlogRecord.h>
//            describes it; without the variable, or when it is empty, to /dev/log in syslog form. A message is never cut in the middle of
//            a record. It waits for a logger that is behind, as Neutrino's does, but no longer than a second: a
//            logger that stands still costs the message (EAGAIN). An armed SEND or REPLY time-out may end the wait
//            before (ETIMEDOUT).
//   Errors   -1 and errno: ENOENT when no logger runs, EINVAL for too much data, EAGAIN, EMFILE and whatever else
//            the socket calls say. A message that was sent leaves errno as it was; its result is 0, but callers
//            test for -1 only.
//   Threads  any thread, and before main and during exit; nothing is allocated and nothing is kept between calls.
#pragma once

#include <stdarg.h>
#include <sys/slogcodes.h>

#define _SLOG_SETCODE(major, minor) ((int)((unsigned)(major) | (unsigned)(minor) << 20))

#define _SLOG_SHUTDOWN 0
#define _SLOG_CRITICAL 1
#define _SLOG_ERROR 2
#define _SLOG_WARNING 3
#define _SLOG_NOTICE 4
#define _SLOG_INFO 5
#define _SLOG_DEBUG1 6
#define _SLOG_DEBUG2 7

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/// Logs a formatted text of at most 2047 bytes; the rest of a longer one is dropped.
int slogf(int opcode, int severity, const char* format, ...) __attribute__((format(printf, 3, 4)));
int vslogf(int opcode, int severity, const char* format, va_list arguments) __attribute__((format(printf, 3, 0)));

/// Logs `size` bytes of raw data, at most 255 * 4.
int slogb(int opcode, int severity, void* data, int size);

/// Logs `nargs` arguments of type int, at most 32.
int slogi(int opcode, int severity, int nargs, ...);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
