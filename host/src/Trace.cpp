#include <sys/trace.h>

#include "Descriptor.h"
#include "Ending.h"
#include "Hex.h"
#include "ThreadState.h"

#include <algorithm>
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>

namespace host {
namespace {

constexpr const char* kMarkers[] = {"/sys/kernel/tracing/trace_marker", "/sys/kernel/debug/tracing/trace_marker"};
constexpr size_t kShownBytes = 400;
constexpr size_t kLineSize = 1024;

/// Of a line that is known to fit.
size_t lengthOf(int printed) {
    return static_cast<size_t>(printed);
}

/// Writes the event's line and its length; 0 or the error number.
int format(int command, va_list& arguments, char (&line)[kLineSize], size_t& length) {
    switch (command) {
    case _NTO_TRACE_INSERTSUSEREVENT: {
        const int event = va_arg(arguments, int);
        const int value1 = va_arg(arguments, int);
        const int value2 = va_arg(arguments, int);
        length =
            lengthOf(snprintf(line, sizeof(line), "nto event=%d value1=%d value2=%d\n", event, value1, value2));
        return 0;
    }
    case _NTO_TRACE_INSERTCUSEREVENT: {
        const int event = va_arg(arguments, int);
        const void* const data = va_arg(arguments, const void*);
        const unsigned byteCount = va_arg(arguments, unsigned);
        if (data == nullptr && byteCount != 0)
            return EFAULT;
        char* end = line + sprintf(line, "nto event=%d data=", event);
        end = writeHex(end, data, byteCount < kShownBytes ? byteCount : kShownBytes);
        *end++ = '\n';
        length = static_cast<size_t>(end - line);
        return 0;
    }
    case _NTO_TRACE_INSERTUSRSTREVENT: {
        const int event = va_arg(arguments, int);
        const char* const text = va_arg(arguments, const char*);
        if (text == nullptr)
            return EFAULT;
        length = lengthOf(snprintf(line, sizeof(line), "nto event=%d text=%.900s\n", event, text));
        std::replace(line, line + length - 1, '\n', ' ');  // else the text could pass for an event of its own
        return 0;
    }
    }
    return ENOTSUP;
}

/// One write is one event. The tracer may be mounted at either place, and may refuse what it is given.
bool write(const char* line, size_t length) {
    const EndsLater untilClosed;
    for (const char* const path : kMarkers) {
        const Descriptor marker(open(path, O_WRONLY | O_CLOEXEC));
        if (marker.isOpen())
            return ::write(marker.get(), line, length) == static_cast<ssize_t>(length);
    }
    return false;
}

}  // namespace
}  // namespace host

using namespace host;

int TraceEvent(int command, ...) {
    dropTimeout();
    ErrnoKeeper keeper;
    char line[kLineSize];
    size_t length = 0;
    va_list arguments;
    va_start(arguments, command);
    int error = format(command, arguments, line, length);
    va_end(arguments);
    if (error == 0 && !write(line, length))
        error = ENOTSUP;
    if (error == 0)
        return 0;
    keeper.report(error);
    return -1;
}
