#include <VQError.h>

#include <VQExport.h>
#include <VQOperatingSystem.h>
#include <diag/ErrorText.h>
#include <os/CErrnoKeeper.h>

#include <atomic>
#include <cstdarg>
#include <cstdlib>

namespace {

struct SErrorHandler {
    std::atomic<VQError::ErrorHandler> handler;
    std::atomic<void*> data;
};

VQ_CONSTINIT SErrorHandler sErrorHandler{{&VQError::exitHandlerFunc}, {nullptr}};
VQ_CONSTINIT std::atomic<bool> sExiting{false};

void install(VQError::ErrorHandler handler, void* data) {
    sErrorHandler.data.store(data, std::memory_order_relaxed);
    sErrorHandler.handler.store(handler, std::memory_order_release);
}

}  // namespace

void VQError::reportOSError(int subCode, VQSyslog::Severity severity, int error, const char* text) {
    const CErrnoKeeper keepErrno;
    VQSyslog::logMsg(subCode, severity, "%s (operating system error %d, %s)", text, error, errorText(error));
}

void VQError::reportOSError(int subCode, VQSyslog::Severity severity, const char* text) {
    reportOSError(subCode, severity, VQOperatingSystem::getLastError(), text);
}

// Kept: fatal-without-handler. The three below abort without a look at the error handler.
void VQError::fatalOSError(int subCode, int error, const char* text) {
    VQSyslog::logMsg(subCode, VQSyslog::CRITICAL, "%s (operating system error %d, %s) - aborting process", text,
                     error, errorText(error));
    std::abort();
}

void VQError::fatalOSError(int subCode, const char* text) {
    fatalOSError(subCode, VQOperatingSystem::getLastError(), text);
}

void VQError::fatalError(int subCode, const char* text) {
    VQSyslog::logMsg(subCode, VQSyslog::CRITICAL, "%s - aborting process", text);
    std::abort();
}

void VQError::criticalError(int subCode, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    VQSyslog::vlogMsg(subCode, VQSyslog::CRITICAL, format, arguments);
    va_end(arguments);

    const ErrorHandler handler = sErrorHandler.handler.load(std::memory_order_acquire);
    handler(sErrorHandler.data.load(std::memory_order_relaxed));
    std::abort();
}

void VQError::setErrorHandler(ErrorHandler handler, void* data) {
    if (handler != nullptr) {
        install(handler, data);
    } else {
        install(&exitHandlerFunc, nullptr);
    }
}

void VQError::exitHandlerFunc(void*) {
    install(&abortHandlerFunc, nullptr);
    // Two threads can read the handler before either has replaced it, and exit must not run twice.
    if (sExiting.exchange(true)) {
        abortHandlerFunc(nullptr);
    }
    VQSyslog::logMsg(0, VQSyslog::INFO, "terminating process using exit(EXIT_FAILURE)");
    std::exit(EXIT_FAILURE);
}

void VQError::abortHandlerFunc(void*) {
    VQSyslog::logMsg(0, VQSyslog::INFO, "terminating process using abort()");
    std::abort();
}
