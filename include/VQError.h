// VQError: reports of operating-system failures, and the ways to end a process that cannot go on.
//   Errors   reportOSError returns. fatalError and fatalOSError abort at once; criticalError runs the process's
//            error handler first, and only it does. That is exitHandlerFunc until setErrorHandler changes it.
//   Shape    the reason of an operating-system failure is added as "(operating system error %d, %s)" with the
//            platform's text, or "unknown" where it has none.
//   Threads  any thread. Handler and data are two words, changed without a lock: set them once at start-up. A
//            critical error on another thread during the change may see one of them new and the other old.
//   Kept     fatal-without-handler: fatalError and fatalOSError do not consult the error handler.
#pragma once

#include <VQExport.h>
#include <VQSyslog.h>

namespace VQError {

using ErrorHandler = void (*)(void* data);

/// Logs "`text` (operating system error ...)" and returns; errno is left as it was.
VQ_EXPORT VQ_COLD void reportOSError(int subCode, VQSyslog::Severity severity, int error, const char* text);

/// The same with the calling thread's last error (VQOperatingSystem::getLastError).
VQ_EXPORT VQ_COLD void reportOSError(int subCode, VQSyslog::Severity severity, const char* text);

/// Logs "`text` (operating system error ...) - aborting process" as critical and aborts.
[[noreturn]] VQ_EXPORT VQ_COLD void fatalOSError(int subCode, int error, const char* text);

/// The same with the calling thread's last error.
[[noreturn]] VQ_EXPORT VQ_COLD void fatalOSError(int subCode, const char* text);

/// Logs "`text` - aborting process" as critical and aborts.
[[noreturn]] VQ_EXPORT VQ_COLD void fatalError(int subCode, const char* text);

/// Logs the message as critical, calls the error handler, and aborts should the handler return.
[[noreturn]] VQ_EXPORT VQ_COLD void criticalError(int subCode, const char* format, ...) VQ_PRINTF(2, 3);

/// Installs the pair. A null `handler` brings exitHandlerFunc back, with null data whatever `data` is. A handler
/// that raises a critical error itself is entered again.
VQ_EXPORT void setErrorHandler(ErrorHandler handler, void* data);

/// The default handler: makes abortHandlerFunc the handler, so that a critical error raised by what runs during
/// exit aborts instead of entering exit a second time; logs "terminating process using exit(EXIT_FAILURE)"; exits
/// with status 1. A thread that arrives here while another is already exiting this way aborts through
/// abortHandlerFunc.
[[noreturn]] VQ_EXPORT VQ_COLD void exitHandlerFunc(void* ignored);

/// Logs "terminating process using abort()" and aborts.
[[noreturn]] VQ_EXPORT VQ_COLD void abortHandlerFunc(void* ignored);

}  // namespace VQError
