// In the coverage build only, in front of the C library: the calls that end a process at once write the counts first.
// A process that is killed by a signal from outside keeps its counts to itself.
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

extern "C" void __gcov_dump(void);

namespace {

/// Not under a test's limits, which may be such that a file cannot be opened, or that writing to it ends the process.
bool canWriteFiles() {
    rlimit fileSize{};
    if (getrlimit(RLIMIT_FSIZE, &fileSize) != 0 || fileSize.rlim_cur != RLIM_INFINITY)
        return false;
    const int probe = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (probe != -1)
        close(probe);
    return probe != -1;
}

// Once: a report may be under way when the process ends, and may end it again.
void writeCounts() {
    static std::atomic<bool> sWritten{false};
    if (!sWritten.exchange(true) && canWriteFiles())
        __gcov_dump();
}

[[noreturn]] void end(int status) {
    writeCounts();
    for (;;)
        syscall(SYS_exit_group, status);
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

[[noreturn]] void _exit(int status) {
    end(status);
}
[[noreturn]] void _Exit(int status) noexcept {
    end(status);
}
[[noreturn]] void abort() noexcept {
    writeCounts();
    reinterpret_cast<void (*)()>(dlsym(RTLD_NEXT, "abort"))();
    __builtin_trap();
}

}  // extern "C"
#pragma GCC visibility pop
