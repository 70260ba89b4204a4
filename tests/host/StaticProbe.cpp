// Prints what a static object finds in a program that is linked with the static library.
#include <cstdio>
#include <process.h>
#include <pthread.h>

namespace {

_sync mutex;

struct Early {
    bool knowsItself = __nto_owner != 0;  // before anything was locked
    int argc = _argc;
    const char* last = _argv[_argc - 1];
    int locked = pthread_mutex_lock(&mutex);
} early;

}  // namespace

int main() {
    std::printf("%d %s %d %d %d\n", early.argc, early.last, early.knowsItself, early.locked,
                pthread_mutex_unlock(&mutex));
}
