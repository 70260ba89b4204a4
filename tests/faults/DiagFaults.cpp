#include "Faults.h"
#include "support/TemporaryFolder.h"

#include <TVQVector.h>
#include <VQBacktrace.h>
#include <VQError.h>
#include <VQKernelTrace.h>
#include <VQMemory.h>
#include <VQSyslog.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <thread>
#include <unistd.h>

namespace {

using faults::Arm;
using faults::Row;
using faults::told;
using support::TemporaryFolder;

/// What a backtrace leaves: which of its parts the file has, and that `errno` is as it was.
std::string backtrace(const Arm& arm) {
    const TemporaryFolder folder;
    arm();
    errno = EDOM;
    VQBacktrace::doBacktraceNoAlloc("message", folder.path().c_str(), "ass", /*append*/ false);
    const std::string errnoLeft = errno == EDOM ? "" : ", errno changed";
    std::string parts;
    for (const std::string& name : folder.list()) {
        const std::string text = support::readFile(folder / name);
        parts += text.find("message") != std::string::npos ? "head" : "nothing";
        static const std::string kBeforeAddresses = "MAP file\n\n\n";
        const std::size_t data = text.find(kBeforeAddresses);
        const bool hasAddresses =
            data != std::string::npos && std::isxdigit(text[data + kBeforeAddresses.size()]) != 0;
        parts += hasAddresses ? ", addresses" : "";
        parts += text.find("test_faults") != std::string::npos ? ", map" : "";
    }
    return (parts.empty() ? "no file" : parts) + errnoLeft;
}

/// The words on standard error of something that is done.
std::string standardErrorOf(const std::function<void()>& body) {
    const TemporaryFolder folder;
    const std::string path = folder.write("err", "");
    std::fflush(stderr);
    const int before = dup(STDERR_FILENO);
    std::FILE* const file = std::fopen(path.c_str(), "w");
    dup2(fileno(file), STDERR_FILENO);
    body();
    std::fflush(stderr);
    dup2(before, STDERR_FILENO);
    close(before);
    std::fclose(file);
    return support::readFile(path);
}

std::string logLine(const Arm& arm) {
    std::string errnoLeft;
    const std::string words = standardErrorOf([&] {
        arm();
        errno = EDOM;
        VQSyslog::logMsg(0, VQSyslog::INFO, "line");
        errnoLeft = errno == EDOM ? "" : "errno changed, ";
    });
    const std::string prefix = "pid: " + std::to_string(getpid()) + ": ";
    return errnoLeft + (words.compare(0, prefix.size(), prefix) == 0 ? words.substr(prefix.size()) : words);
}

template <class Add>
std::function<std::string(const Arm&)> trace(Add add) {
    return [add](const Arm& arm) {
        arm();
        errno = EDOM;
        const bool result = add();
        const int error = errno;
        return (result ? "true " : "false ") + faults::errorName(error);
    };
}

const auto kSimple = trace([] { return VQKernelTrace::addSimpleUserEvent(1, 2, 3); });
const auto kComplex = trace([] {
    char data[] = "data";
    return VQKernelTrace::addComplexUserEvent(1, data, 4);
});
const auto kText = trace([] { return VQKernelTrace::addStringUserEvent(1, "text"); });

std::string allocate(const Arm& arm) {
    arm();
    void* const block = VQMemory::alloc(100);
    const std::string result = told(static_cast<const void*>(block));
    VQMemory::release(block);
    return result;
}

std::string reallocate(const Arm& arm) {
    void* block = VQMemory::alloc(10);
    std::memcpy(block, "remember", 9);
    arm();
    void* const larger = VQMemory::realloc(block, 100000);
    const std::string result = told(static_cast<const void*>(larger));
    const bool isKept = std::memcmp(larger != nullptr ? larger : block, "remember", 9) == 0;
    VQMemory::release(larger != nullptr ? larger : block);
    return result + (isKept ? ", kept" : ", lost");
}

constexpr std::align_val_t kWide{64};

// Without a folder for backtraces, whose file is not what this is about.
const char* const kAllocateEnds =
    "exit 1 | 1 failed to allocate 100 bytes (err: #) | 5 terminating process using exit(EXIT_FAILURE)";

}  // namespace

std::vector<Row> faults::diagRows() {
    return {
        {__LINE__, "VQBacktraceQNX", "bt_init_accessor", backtrace, "head"},
        {__LINE__, "VQBacktraceQNX", "bt_load_memmap", backtrace, "head, addresses"},
        {__LINE__, "VQBacktraceQNX", "bt_get_backtrace", backtrace, "head, map"},
        {__LINE__, "VQBacktraceQNX", "bt_sprn_memmap", backtrace, "head, addresses"},
        {__LINE__, "VQBacktraceQNX", "bt_unload_memmap", backtrace, "head, addresses, map"},
        {__LINE__, "VQBacktraceQNX", "open", backtrace, "no file", "head, addresses, map"},
        {__LINE__, "VQBacktraceQNX", "writev", backtrace, "nothing", "head, addresses, map"},
        {__LINE__, "VQBacktraceQNX", "close", backtrace, "head, addresses, map"},
        {__LINE__, "VQBacktraceQNX", "sigtimedwait", backtrace, "head, addresses, map", "head, addresses, map"},
        {__LINE__, "VQBacktraceQNX", "sigemptyset", backtrace, "head, addresses, map"},
        {__LINE__, "VQBacktraceQNX", "sigemptyset", backtrace, "head, addresses, map", nullptr, 2},
        {__LINE__, "VQBacktraceQNX", "sigaddset", backtrace, "head, addresses, map"},
        {__LINE__, "VQBacktraceQNX", "sigismember", backtrace, "head, addresses, map"},
        {__LINE__, "VQBacktraceQNX", "fflush",
         [](const Arm& arm) {
             arm();
             VQBacktrace::doBacktraceNoAlloc("message", "/no folder", "ass", /*append*/ false);
             return std::string("told");
         },
         "told"},

        {__LINE__, "VQSyslogQNX", "slogf", logLine, "cannot write to syslog: ?\n", nullptr, 1, false,
         errorsBeside("slogf", {ENOENT})},
        {__LINE__,
         "VQSyslogQNX",
         "slogf",
         logLine,
         "",
         nullptr,
         1,
         false,
         {ENOENT}},  // nobody listens: nothing to tell
        {__LINE__, "VQSyslogQNX", "vsnprintf", logLine, "cannot write to syslog: ?\n"},
        {__LINE__, "VQSyslogQNX", "strerror",
         [](const Arm& arm) {
             const wchar_t text[] = {0x110000, 0};
             const std::string words = standardErrorOf([&] {
                 arm();
                 VQSyslog::logMsg(0, VQSyslog::INFO, "%ls", text);
             });
             return words.substr(words.find("cannot"));
         },
         "cannot write to syslog: unknown\n"},
        {__LINE__, "VQError", "strerror",
         [](const Arm& arm) {
             arm();
             VQError::reportOSError(0, VQSyslog::ERROR, ENOENT, "something");
             return std::string("reported");
         },
         "reported | 2 something (operating system error 2, unknown)"},

        {__LINE__, "VQKernelTraceQNX", "TraceEvent", kSimple, "false @", nullptr, 1, false,
         errorsBeside("TraceEvent", {ENOTSUP})},
        {__LINE__, "VQKernelTraceQNX", "TraceEvent", kComplex, "false @", nullptr, 1, false,
         errorsBeside("TraceEvent", {ENOTSUP})},
        {__LINE__, "VQKernelTraceQNX", "TraceEvent", kText, "false @", nullptr, 1, false,
         errorsBeside("TraceEvent", {ENOTSUP})},
        {__LINE__, "VQKernelTraceQNX", "TraceEvent", kSimple, "true EDOM", nullptr, 1, false, {ENOTSUP}},
        {__LINE__, "VQKernelTraceQNX", "TraceEvent", kComplex, "true EDOM", nullptr, 1, false, {ENOTSUP}},
        {__LINE__, "VQKernelTraceQNX", "TraceEvent", kText, "true EDOM", nullptr, 1, false, {ENOTSUP}},

        {__LINE__, "VQMemory", "malloc", allocate, "null @"},
        {__LINE__, "VQMemory", "malloc",  // of a thread's first allocation, which takes the long way
         [](const Arm& arm) {
             std::string result;
             std::thread([&] { result = allocate(arm); }).join();
             return result;
         },
         "null @"},
        {__LINE__, "VQMemory", "realloc", reallocate, "null @, kept"},
        {__LINE__, "VQMemory", "posix_memalign",
         [](const Arm& arm) {
             arm();
             void* const block = ::operator new(64, kWide, std::nothrow);
             const std::string result = told(static_cast<const void*>(block));
             ::operator delete(block, kWide);
             return result;
         },
         "null @"},
        {__LINE__, "VQMemory", "malloc",
         [](const Arm& arm) {
             setenv("VQ_ASSERTION_BACKTRACE_DIR", "/no folder", 1);
             arm();
             return told(static_cast<const void*>(VQMemory::allocChecked(100)));
         },
         kAllocateEnds, nullptr, 1, /*ends*/ true},
        {__LINE__, "VQMemory", "malloc",
         [](const Arm& arm) {
             setenv("VQ_ASSERTION_BACKTRACE_DIR", "/no folder", 1);
             setenv("VQ_ENABLE_ABORT_ON_FAILED_MEMORY_ALLOCATION", "", 1);
             arm();
             return told(static_cast<const void*>(VQMemory::allocChecked(100)));
         },
         "signal ABRT | 1 failed to allocate 100 bytes (err: #)", nullptr, 1, /*ends*/ true},
        {__LINE__, "VQMemory", "posix_memalign",
         [](const Arm& arm) {
             setenv("VQ_ASSERTION_BACKTRACE_DIR", "/no folder", 1);
             arm();
             return told(static_cast<const void*>(::operator new(64, kWide)));
         },
         "exit 1 | 1 failed to allocate 64 bytes (err: #) | 5 terminating process using exit(EXIT_FAILURE)",
         nullptr, 1, /*ends*/ true},
        {__LINE__, "VQMemory", "realloc",
         [](const Arm& arm) {
             setenv("VQ_ASSERTION_BACKTRACE_DIR", "/no folder", 1);
             void* const block = VQMemory::alloc(10);
             arm();
             VQMemory::release(VQMemory::reallocChecked(block, 200));
             return std::string();
         },
         "exit 1 | 1 failed to reallocate 200 bytes (err: #) | 5 terminating process using exit(EXIT_FAILURE)",
         nullptr, 1, /*ends*/ true},
        {__LINE__, "VQMemory", "realloc",  // a vector's block is lengthened, and reported as one that is allocated
         [](const Arm& arm) {
             setenv("VQ_ASSERTION_BACKTRACE_DIR", "/no folder", 1);
             TVQVector<std::array<char, 10000 - sizeof(CVQVectorBase::SVectorData)>> vector(1);
             arm();
             vector.push_back({});
             vector.push_back({});
             return std::string();
         },
         sizeof(void*) == 4
             ? "exit 1 | 1 failed to allocate 39952 bytes (err: #) | 5 terminating process using exit(EXIT_FAILURE)"
             : "exit 1 | 1 failed to allocate 39904 bytes (err: #) | 5 terminating process using "
               "exit(EXIT_FAILURE)",
         nullptr, 1, /*ends*/ true},
    };
}
