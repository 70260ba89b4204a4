#include "NeutrinoDoubles.h"

#include <sys/slog.h>
#include <sys/trace.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <dlfcn.h>

namespace {

doubles::ScriptedStack* sStack = nullptr;
doubles::TraceRecorder* sTrace = nullptr;
doubles::RefusingLogger* sLogger = nullptr;
bool sNoErrorTexts = false;

/// The definition that this program's own hides.
template <class Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

doubles::ScriptedStack::ScriptedStack() {
    sStack = this;
}
doubles::ScriptedStack::~ScriptedStack() {
    sStack = nullptr;
}
doubles::TraceRecorder::TraceRecorder() {
    sTrace = this;
}
doubles::TraceRecorder::~TraceRecorder() {
    sTrace = nullptr;
}
doubles::RefusingLogger::RefusingLogger() {
    sLogger = this;
}
doubles::RefusingLogger::~RefusingLogger() {
    sLogger = nullptr;
}
doubles::NoErrorTexts::NoErrorTexts() {
    sNoErrorTexts = true;
}
doubles::NoErrorTexts::~NoErrorTexts() {
    sNoErrorTexts = false;
}

// The library finds these before the ones it carries, as a program's symbols come first.
#pragma GCC visibility push(default)
extern "C" {

int bt_init_accessor(bt_accessor_t* accessor, int type, ...) {
    // The one form in use, BT_SELF, has no further arguments.
    return sStack != nullptr ? sStack->initResult
                             : real<int(bt_accessor_t*, int, ...)>("bt_init_accessor")(accessor, type);
}

int bt_load_memmap(bt_accessor_t* accessor, bt_memmap_t* map) {
    if (sStack == nullptr)
        return real<decltype(bt_load_memmap)>("bt_load_memmap")(accessor, map);
    map->count = sStack->mapCount;
    return sStack->loadResult;
}

int bt_get_backtrace(bt_accessor_t* accessor, bt_addr_t* addresses, int length) {
    if (sStack == nullptr)
        return real<decltype(bt_get_backtrace)>("bt_get_backtrace")(accessor, addresses, length);
    if (sStack->stackResult == -1)
        return -1;
    const int count = std::min(length, static_cast<int>(sStack->addresses.size()));
    std::copy_n(sStack->addresses.begin(), count, addresses);
    return count;
}

int bt_sprn_memmap(bt_memmap_t* map, char* text, size_t size) {
    if (sStack == nullptr)
        return real<decltype(bt_sprn_memmap)>("bt_sprn_memmap")(map, text, size);
    sStack->printedCount = map->count;
    sStack->printedSize = size;
    std::memcpy(text, sStack->mapText.data(), std::min(size, sStack->mapText.size()));
    return 0;
}

int bt_unload_memmap(bt_memmap_t* map) {
    if (sStack == nullptr)
        return real<decltype(bt_unload_memmap)>("bt_unload_memmap")(map);
    ++sStack->unloads;
    return 0;
}

int TraceEvent(int command, ...) {
    doubles::TraceCall call{command, 0, 0, 0, nullptr, 0, nullptr};
    va_list arguments;
    va_start(arguments, command);
    call.event = va_arg(arguments, int);
    if (command == _NTO_TRACE_INSERTSUSEREVENT) {
        call.value1 = va_arg(arguments, int);
        call.value2 = va_arg(arguments, int);
    } else if (command == _NTO_TRACE_INSERTCUSEREVENT) {
        call.data = va_arg(arguments, const void*);
        call.length = va_arg(arguments, unsigned);
    } else {
        call.text = va_arg(arguments, const char*);
    }
    va_end(arguments);

    if (sTrace != nullptr) {
        sTrace->calls.push_back(call);
        if (sTrace->error != 0)
            errno = sTrace->error;
        return sTrace->result;
    }
    auto* const realTraceEvent = real<int(int, ...)>("TraceEvent");
    if (command == _NTO_TRACE_INSERTSUSEREVENT)
        return realTraceEvent(command, call.event, call.value1, call.value2);
    if (command == _NTO_TRACE_INSERTCUSEREVENT)
        return realTraceEvent(command, call.event, call.data, call.length);
    return realTraceEvent(command, call.event, call.text);
}

int slogf(int opcode, int severity, const char* format, ...) {
    if (sLogger != nullptr) {
        ++sLogger->lines;
        errno = sLogger->error;
        return -1;
    }
    va_list arguments;
    va_start(arguments, format);
    const int result = vslogf(opcode, severity, format, arguments);
    va_end(arguments);
    return result;
}

char* strerror(int error) noexcept {
    return sNoErrorTexts ? nullptr : real<char*(int)>("strerror")(error);
}

}  // extern "C"
#pragma GCC visibility pop
