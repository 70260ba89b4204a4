// The calls that the host layer makes of Linux, each with what it fails with.
#include "Wrapping.h"

#include <cstdint>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

bool faults::hasOldKernel = false;
timespec faults::timeThatWasSet = {};

CALL(calloc, NOTHING, void*, (std::size_t count, std::size_t size), (count, size), ENOMEM)
CALL(aligned_alloc, NOTHING, void*, (std::size_t alignment, std::size_t size), (alignment, size), ENOMEM)
CALL(realloc, NOTHING, void*, (void* block, std::size_t size), (block, size), ENOMEM)
CALL(mmap64, NO_MAPPING, void*,
     (void* at, std::size_t size, int protection, int flags, int descriptor, off64_t offset),
     (at, size, protection, flags, descriptor, offset), ENOMEM)
CALL(ftruncate64, ERRNO, int, (int descriptor, off64_t size), (descriptor, size), ENOSPC)
CALL(fallocate64, ERRNO, int, (int descriptor, int mode, off64_t offset, off64_t size),
     (descriptor, mode, offset, size), ENOSPC)
CALL(fstat64, ERRNO, int, (int descriptor, struct stat64* status), (descriptor, status), EIO)
CALL(fstatfs64, ERRNO, int, (int descriptor, struct statfs64* status), (descriptor, status), EIO)
CALL(getrlimit, ERRNO, int, (__rlimit_resource_t resource, rlimit* limit), (resource, limit), EINVAL)
CALL(opendir, ERRNO, DIR*, (const char* path), (path), EMFILE, EACCES)
CALL(openat, ERRNO, int, (int folder, const char* path, int flags), (folder, path, flags), EMFILE, EACCES)
CALL(socket, ERRNO, int, (int domain, int type, int protocol), (domain, type, protocol), EMFILE, ENOBUFS)
CALL(bind, ERRNO, int, (int socket, const sockaddr* address, socklen_t length), (socket, address, length),
     EADDRINUSE)
CALL(listen, ERRNO, int, (int socket, int count), (socket, count), EOPNOTSUPP)
CALL(connect, ERRNO, int, (int socket, const sockaddr* address, socklen_t length), (socket, address, length),
     ECONNREFUSED, EAGAIN)
CALL(accept4, ERRNO, int, (int socket, sockaddr* address, socklen_t* length, int flags),
     (socket, address, length, flags), ECONNABORTED, EMFILE)
CALL(sendmsg, ERRNO, ssize_t, (int socket, const msghdr* message, int flags), (socket, message, flags), EPIPE,
     ENOBUFS)
CALL(recvmsg, ERRNO, ssize_t, (int socket, msghdr* message, int flags), (socket, message, flags), ECONNRESET)
CALL(epoll_create1, ERRNO, int, (int flags), (flags), EMFILE)
CALL(epoll_ctl, ERRNO, int, (int queue, int operation, int descriptor, epoll_event* event),
     (queue, operation, descriptor, event), ENOMEM, ENOSPC)
CALL(pthread_create, VALUE, int,
     (pthread_t * thread, const pthread_attr_t* attributes, void* (*function)(void*), void* argument),
     (thread, attributes, function, argument), EAGAIN)
CALL(pthread_attr_init, VALUE, int, (pthread_attr_t * attributes), (attributes), ENOMEM)
CALL(pthread_attr_setstacksize, VALUE, int, (pthread_attr_t * attributes, std::size_t size), (attributes, size),
     EINVAL)
CALL(pthread_getattr_np, VALUE, int, (pthread_t thread, pthread_attr_t* attributes), (thread, attributes), ENOMEM)
CALL(pthread_attr_getstack, VALUE, int, (const pthread_attr_t* attributes, void** begin, std::size_t* size),
     (attributes, begin, size), EINVAL)
CALL(pthread_mutexattr_gettype, VALUE, int, (const pthread_mutexattr_t* attributes, int* type), (attributes, type),
     EINVAL)
CALL(pthread_mutexattr_getpshared, VALUE, int, (const pthread_mutexattr_t* attributes, int* sharing),
     (attributes, sharing), EINVAL)
CALL(pthread_mutexattr_getrobust, VALUE, int, (const pthread_mutexattr_t* attributes, int* robust),
     (attributes, robust), EINVAL)
CALL(pthread_mutexattr_getprotocol, VALUE, int, (const pthread_mutexattr_t* attributes, int* protocol),
     (attributes, protocol), EINVAL)
CALL(pthread_condattr_getpshared, VALUE, int, (const pthread_condattr_t* attributes, int* sharing),
     (attributes, sharing), EINVAL)
CALL(pthread_condattr_getclock, VALUE, int, (const pthread_condattr_t* attributes, clockid_t* clock),
     (attributes, clock), EINVAL)
CALL(sched_getaffinity, ERRNO, int, (pid_t process, std::size_t size, cpu_set_t* set), (process, size, set), EINVAL)
CALL(timer_create, ERRNO, int, (clockid_t clock, struct sigevent* event, timer_t* timer), (clock, event, timer),
     EAGAIN)
CALL(preadv2, ERRNO, ssize_t, (int descriptor, const iovec* parts, int count, off_t offset, int flags),
     (descriptor, parts, count, offset, flags), ENOSYS, EOPNOTSUPP)
CALL(pwritev2, ERRNO, ssize_t, (int descriptor, const iovec* parts, int count, off_t offset, int flags),
     (descriptor, parts, count, offset, flags), ENOSYS, EOPNOTSUPP)
CALL(posix_spawnp, VALUE, int,
     (pid_t * process, const char* file, const posix_spawn_file_actions_t* actions,
      const posix_spawnattr_t* attributes, char* const arguments[], char* const environment[]),
     (process, file, actions, attributes, arguments, environment), ENOMEM, ENOENT)
CALL(wait4, ERRNO, pid_t, (pid_t process, int* status, int options, rusage* usage),
     (process, status, options, usage), ECHILD)

namespace {

const char* nameOf(long number) {
    switch (number) {
    case SYS_memfd_create:
        return "memfd_create";
    case SYS_pidfd_open:
        return "pidfd_open";
    default:
        return "syscall";
    }
}

const faults::Registered sMemfd{"memfd_create", "", faults::Failure::ERRNO, {EMFILE, ENOMEM}};
const faults::Registered sPidfd{"pidfd_open", "", faults::Failure::ERRNO, {EMFILE, ESRCH}};

// Of the commands, those that can fail on a descriptor that is open.
const char* nameOfCommand(int command) {
    switch (command) {
    case F_DUPFD_CLOEXEC:
        return "fcntl(F_DUPFD_CLOEXEC)";
    case F_ADD_SEALS:
        return "fcntl(F_ADD_SEALS)";
    case F_GET_SEALS:
        return "fcntl(F_GET_SEALS)";
    default:
        return "fcntl";
    }
}

const faults::Registered sDuplicate{"fcntl(F_DUPFD_CLOEXEC)", "", faults::Failure::ERRNO, {EMFILE}};
const faults::Registered sAddSeals{"fcntl(F_ADD_SEALS)", "", faults::Failure::ERRNO, {EPERM}};
const faults::Registered sGetSeals{"fcntl(F_GET_SEALS)", "", faults::Failure::ERRNO, {EINVAL}};
const faults::Registered sPeer{"getsockopt(SO_PEERCRED)", "", faults::Failure::ERRNO, {ENOTCONN}};

}  // namespace

// The machine's clock stays as it is.
int wrapped_clock_settime(clockid_t clock, const timespec* time) asm("__wrap_clock_settime");
const faults::Registered sSetClock{"clock_settime", "clock_settime", faults::Failure::ERRNO, {EPERM, EINVAL}};
int wrapped_clock_settime(clockid_t clock, const timespec* time) {
    if (const int error = faults::errorOfNext("clock_settime"); error != 0)
        return faults::failed<int>(faults::Failure::ERRNO, error);
    faults::timeThatWasSet = clock == CLOCK_REALTIME ? *time : timespec{};
    return 0;
}

int wrapped_fcntl(int descriptor, int command, ...) asm("__wrap_fcntl");
int wrapped_fcntl(int descriptor, int command, ...) {
    std::va_list rest;
    va_start(rest, command);
    void* const argument = va_arg(rest, void*);
    va_end(rest);
    if (const int error = faults::errorOfNext(nameOfCommand(command)); error != 0)
        return faults::failed<int>(faults::Failure::ERRNO, error);
    return fcntl(descriptor, command, argument);
}

int wrapped_getsockopt(int socket, int level, int name, void* value, socklen_t* size) asm("__wrap_getsockopt");
int wrapped_getsockopt(int socket, int level, int name, void* value, socklen_t* size) {
    if (name != SO_PEERCRED) {
        if (faults::hasOldKernel)
            return faults::failed<int>(faults::Failure::ERRNO, ENOPROTOOPT);
    } else if (const int error = faults::errorOfNext("getsockopt(SO_PEERCRED)"); error != 0) {
        return faults::failed<int>(faults::Failure::ERRNO, error);
    }
    return getsockopt(socket, level, name, value, size);
}

// Of all system calls, two: waiting and waking cannot fail.
long wrapped_syscall(long number, ...) asm("__wrap_syscall");
long wrapped_syscall(long number, ...) {
    std::va_list rest;
    va_start(rest, number);
    long words[6];
    for (long& word : words)
        word = va_arg(rest, long);
    va_end(rest);
    if (const int error = faults::errorOfNext(nameOf(number)); error != 0)
        return faults::failed<long>(faults::Failure::ERRNO, error);
    return syscall(number, words[0], words[1], words[2], words[3], words[4], words[5]);
}
