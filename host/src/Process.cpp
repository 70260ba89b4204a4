#include <alloca.h>
#include <process.h>
#include <sys/wait.h>

#include "Ending.h"
#include "Errno.h"
#include "ThreadState.h"

#include <errno.h>
#include <spawn.h>
#include <stdint.h>
#include <sys/auxv.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace host {
namespace {

struct Stack {
    bool isKnown;
    uintptr_t end;  // its lowest address
};

__thread Stack stack __attribute__((tls_model("initial-exec"))) = {false, 0};

/// Of the first thread, for where the C library cannot tell, without memory, a descriptor or /proc: what the limit leaves
/// below the program's name, which the kernel puts at the top.
void findFirstStack() {
    const unsigned long top = getauxval(AT_EXECFN);
    rlimit limit;
    if (static_cast<pid_t>(threadId()) == getpid() && getrlimit(RLIMIT_STACK, &limit) == 0 && limit.rlim_cur < top)
        stack = {true, top - static_cast<uintptr_t>(limit.rlim_cur)};
}

void findStack() {
    const ErrnoKeeper keeper;
    const EndsLater untilFound;  // the C library takes the heap's lock
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) {
        findFirstStack();
        return;
    }
    void* begin;
    size_t size;
    if (pthread_attr_getstack(&attributes, &begin, &size) == 0)
        stack = {true, reinterpret_cast<uintptr_t>(begin)};
    pthread_attr_destroy(&attributes);
}

}  // namespace
}  // namespace host

using namespace host;

size_t __stackavail() {
    if (!stack.isKnown)
        findStack();
    const uintptr_t here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    return stack.isKnown && here > stack.end ? here - stack.end : 0;
}

int spawnvp(int mode, const char* file, char* const argv[]) {
    dropTimeout();
    if (file == nullptr || argv == nullptr || argv[0] == nullptr)
        return fail(EINVAL);
    if (mode == P_OVERLAY)
        return execvp(file, argv);
    if (mode != P_NOWAIT && mode != P_WAIT)
        return fail(EINVAL);
    ErrnoKeeper keeper;
    pid_t pid;
    int error = posix_spawnp(&pid, file, nullptr, nullptr, argv, environ);
    if (error == 0 && mode == P_NOWAIT)
        return pid;
    int status;
    while (error == 0 && waitpid(pid, &status, 0) == -1)
        error = errno == EINTR ? 0 : errno;
    if (error == 0)
        return status;
    keeper.report(error);
    return -1;
}

#pragma GCC visibility push(default)
extern "C" pid_t __nto_waitpid_body(pid_t, int*, int) __asm__("__nto_waitpid");
#pragma GCC visibility pop

pid_t __nto_waitpid_body(pid_t pid, int* status, int options) {
    dropTimeout();
    return wait4(pid, status, options & ~WEXITED, nullptr);
}
