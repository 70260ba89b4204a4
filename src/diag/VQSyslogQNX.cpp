#include <VQSyslog.h>

#include <VQOperatingSystem.h>
#include <diag/ErrorText.h>
#include <os/CErrnoKeeper.h>

#include <sys/slog.h>

#include <cerrno>
#include <cstdio>

namespace {

constexpr int kDefaultCode = 10000;      // the first code that the logger leaves to applications
constexpr unsigned kSubCodeShift = 20;   // an opcode's lower 20 bits are the code, the upper 12 the sub-code
constexpr std::size_t kLineSize = 1025;  // 1024 bytes and the terminator

void reportUnwritable(int error) {
    // Kept: syslog-two-prefixes. This prefix has a colon more than a logged line's.
    std::fprintf(stderr, "pid: %d: cannot write to syslog: %s\n", VQOperatingSystem::getCurrentPID(),
                 errorText(error));
}

}  // namespace

void VQSyslog::vlogMsg(int code, int subCode, Severity severity, const char* format, std::va_list arguments) {
    if (format == nullptr) {
        return;
    }
    const CErrnoKeeper keepErrno;

    char line[kLineSize];
    const int prefixLength = std::snprintf(line, sizeof line, "pid %d: ", VQOperatingSystem::getCurrentPID());
    if (prefixLength < 0 ||
        std::vsnprintf(line + prefixLength, sizeof line - static_cast<std::size_t>(prefixLength), format,
                       arguments) < 0) {
        reportUnwritable(errno);
        return;
    }
    line[sizeof line - 1] = '\0';

    const unsigned opcode = static_cast<unsigned>(code) | static_cast<unsigned>(subCode) << kSubCodeShift;
    if (slogf(static_cast<int>(opcode), severity, "%s", line) == -1 && errno != ENOENT) {
        reportUnwritable(errno);
    }
}

void VQSyslog::vlogMsg(int subCode, Severity severity, const char* format, std::va_list arguments) {
    vlogMsg(kDefaultCode, subCode, severity, format, arguments);
}

void VQSyslog::logMsg(int code, int subCode, Severity severity, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    vlogMsg(code, subCode, severity, format, arguments);
    va_end(arguments);
}

void VQSyslog::logMsg(int subCode, Severity severity, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    vlogMsg(kDefaultCode, subCode, severity, format, arguments);
    va_end(arguments);
}
