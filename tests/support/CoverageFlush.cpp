// In the coverage build only, in front of the C library: the calls that end a process at once write the counts first.
// A process that is killed by a signal from outside keeps its counts to itself.
//
// The compiler's runtime writes with one open file for all threads of the process. A second thread that ends the process
// meanwhile, or a signal's handler that does, would write one unit's counts into another's file: garbage, negative
// counts among it. So there is one writer, and nothing interrupts it.
#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

extern "C" void __gcov_dump(void);

#pragma GCC visibility push(default)
/// 0, the process and thread that write, or kWritten. One for the program and all of its libraries.
extern "C" std::atomic<std::uint64_t> marlixCoverageWriter;
std::atomic<std::uint64_t> marlixCoverageWriter{0};
#pragma GCC visibility pop

namespace {

constexpr std::uint64_t kWritten = ~std::uint64_t{0};

/// Memory for the writing, which tests do without that leave the process none.
constexpr std::size_t kReserve = 1 << 20;
void* reserve = MAP_FAILED;

__attribute__((constructor)) void takeReserve() {
    reserve = mmap(nullptr, kReserve, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
}

void releaseReserve() {
    if (reserve != MAP_FAILED)
        munmap(std::exchange(reserve, MAP_FAILED), kReserve);
}

void liftLimit(__rlimit_resource resource, rlim_t least) {
    rlimit limit{least, least};
    if (setrlimit(resource, &limit) == 0)
        return;
    getrlimit(resource, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(resource, &limit);
}

/// A test's limits may be such that no file can be opened, or that writing to one ends the process.
void makeRoom() {
    releaseReserve();
    liftLimit(RLIMIT_FSIZE, RLIM_INFINITY);
    liftLimit(RLIMIT_NOFILE, 4096);
}

bool canWriteFiles() {
    rlimit fileSize{};
    if (getrlimit(RLIMIT_FSIZE, &fileSize) != 0 || fileSize.rlim_cur != RLIM_INFINITY)
        return false;
    const int probe = open("/", O_RDONLY | O_CLOEXEC);
    if (probe != -1)
        close(probe);
    return probe != -1;
}

/// Once in a process. True: the caller writes. Otherwise this was done; or the process was forked while its parent
/// wrote, so that its counts are half the parent's. Whoever comes while another thread writes waits for it.
bool becomeWriter() {
    const auto process = static_cast<std::uint64_t>(getpid());
    const std::uint64_t self = process << 32 | static_cast<std::uint64_t>(syscall(SYS_gettid));
    std::uint64_t writer = 0;
    if (marlixCoverageWriter.compare_exchange_strong(writer, self))
        return true;
    while (writer != self && writer != kWritten && writer >> 32 == process) {
        usleep(1000);
        writer = marlixCoverageWriter.load();
    }
    return false;
}

void writeCounts() {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, &before);
    if (becomeWriter()) {
        makeRoom();
        if (canWriteFiles())
            __gcov_dump();
        marlixCoverageWriter.store(kWritten);
    }
    sigprocmask(SIG_SETMASK, &before, nullptr);
}

/// Before the destructors with which the runtime writes the counts at `exit`, one for the program and for each library:
/// this thread writes from here to the end.
__attribute__((destructor(101))) void letExitWrite() {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
    becomeWriter();
    makeRoom();
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
/// When it fails, this process counts no further.
int execvp(const char* file, char* const arguments[]) noexcept {
    writeCounts();
    using Function = int (*)(const char*, char* const*);
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "execvp"))(file, arguments);
}
[[noreturn]] void abort() noexcept {
    writeCounts();
    reinterpret_cast<void (*)()>(dlsym(RTLD_NEXT, "abort"))();
    __builtin_trap();
}

}  // extern "C"
#pragma GCC visibility pop
