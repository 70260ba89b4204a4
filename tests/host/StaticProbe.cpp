// Prints what a static object finds in a program that is linked with the static library.
#include <backtrace.h>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <process.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

_sync mutex;

struct Early {
    bool knowsItself = __nto_owner != 0;  // before anything was locked
    int argc = _argc;
    const char* last = _argv[_argc - 1];
    int locked = pthread_mutex_lock(&mutex);
} early;

int childOfEarlyFork = 1;

/// A child of a fork among the host's own constructors finds nothing held: it takes signals, and walks at once.
__attribute__((constructor(102))) void forkEarly() {
    const pid_t child = fork();
    if (child == 0) {
        sigset_t blocked;
        pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        timespec begin, end;
        clock_gettime(CLOCK_MONOTONIC, &begin);
        bt_addr_t address;
        bt_get_backtrace(&bt_acc_self, &address, 1);
        clock_gettime(CLOCK_MONOTONIC, &end);
        const long long ns = (end.tv_sec - begin.tv_sec) * 1000000000LL + end.tv_nsec - begin.tv_nsec;
        _exit(sigismember(&blocked, SIGTERM) == 1 ? 2 : ns >= 900000000 ? 3 : 0);
    }
    waitpid(child, &childOfEarlyFork, 0);
}

}  // namespace

int main() {
    std::printf("%d %s %d %d %d %x\n", early.argc, early.last, early.knowsItself, early.locked,
                pthread_mutex_unlock(&mutex), static_cast<unsigned>(childOfEarlyFork));
}
