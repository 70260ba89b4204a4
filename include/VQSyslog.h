// VQSyslog: one printf-style line to the system logger.
//   Shape    every line is "pid %d: " and the message, at most 1024 bytes; the rest of a longer message is dropped.
//            The logger's opcode is code | subCode << 20; the forms without a code use 10000.
//   Errors   none to the caller. Without a logger (ENOENT) a line is lost in silence; when the logger refuses it,
//            or when the message cannot be formatted, one line on standard error says so. errno is left as it was.
//            A logger that reports an interruption (EINTR) has refused the line like any other: it is handed over
//            once, as it may have arrived.
//   Threads  any thread, at any time: before main, during exit, in a forked child. The line is built on the
//            caller's stack. A line that is logged allocates nothing and locks nothing.
//   Kept     syslog-two-prefixes: a logged line starts with "pid %d: ", the report on standard error with
//            "pid: %d: ".
#pragma once

#include <VQExport.h>

#include <cstdarg>

namespace VQSyslog {

/// The system logger's own severities, passed on unchanged. The library uses CRITICAL on the way to the process's
/// end, ERROR for assertions and failures, NOTICE for command-line warnings and INFO for termination notes.
enum Severity : int {
    SHUTDOWN = 0,
    CRITICAL = 1,
    ERROR = 2,
    WARNING = 3,
    NOTICE = 4,
    INFO = 5,
    DEBUG1 = 6,
    DEBUG2 = 7
};

/// A null `format` is ignored, here and in the three forms below.
VQ_EXPORT void logMsg(int code, int subCode, Severity severity, const char* format, ...) VQ_PRINTF(4, 5);

/// The same with code 10000.
VQ_EXPORT void logMsg(int subCode, Severity severity, const char* format, ...) VQ_PRINTF(3, 4);

VQ_EXPORT void vlogMsg(int code, int subCode, Severity severity, const char* format, std::va_list arguments)
    VQ_PRINTF(4, 0);

/// The same with code 10000.
VQ_EXPORT void vlogMsg(int subCode, Severity severity, const char* format, std::va_list arguments) VQ_PRINTF(3, 0);

}  // namespace VQSyslog
