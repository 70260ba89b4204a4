#include <VQKernelTrace.h>

#include <VQOperatingSystem.h>

#include <sys/trace.h>

#include <cerrno>

namespace {

// The commands are part of what trace readers decode; the number of arguments stands in the leading digit.
static_assert(static_cast<unsigned>(_NTO_TRACE_INSERTSUSEREVENT) == 0x4000001eU);
static_assert(static_cast<unsigned>(_NTO_TRACE_INSERTCUSEREVENT) == 0x4000001fU);
static_assert(static_cast<unsigned>(_NTO_TRACE_INSERTUSRSTREVENT) == 0x30000020U);

template <class... Arguments>
bool insertEvent(int command, Arguments... arguments) {
    const int errorBefore = VQOperatingSystem::getLastError();
    if (TraceEvent(command, arguments...) != -1) {
        return true;
    }
    // Kept: trace-enotsup. A kernel without instrumentation must not change what traced code does.
    if (VQOperatingSystem::getLastError() != ENOTSUP) {
        return false;
    }
    VQOperatingSystem::setLastError(errorBefore);
    return true;
}

}  // namespace

bool VQKernelTrace::addSimpleUserEvent(int event, int value1, int value2) {
    return insertEvent(_NTO_TRACE_INSERTSUSEREVENT, event, value1, value2);
}

bool VQKernelTrace::addComplexUserEvent(int event, void* data, unsigned length) {
    return data != nullptr && length != 0 && insertEvent(_NTO_TRACE_INSERTCUSEREVENT, event, data, length);
}

bool VQKernelTrace::addStringUserEvent(int event, const char* text) {
    return text != nullptr && insertEvent(_NTO_TRACE_INSERTUSRSTREVENT, event, text);
}
