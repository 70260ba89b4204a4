// The calls that the library makes of the platform, each with the errors that it can give: those that Neutrino and
// Linux list for it and those of the host layer. Left out is what the library's own arguments rule out: flags that it
// never passes, sockets, bad addresses of its own objects (though where Neutrino lists EFAULT it is there). ESRVRFAULT
// has no number on Linux.
#include "Wrapping.h"

#include <backtrace.h>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <devctl.h>
#include <dirent.h>
#include <fcntl.h>
#include <host/KernelIO.h>
#include <process.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/neutrino.h>
#include <sys/slog.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/trace.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace {

using faults::Failure;
using faults::Registered;

/// A C stream remembers its errors.
std::size_t failed(std::FILE* stream) {
    stream->_flags |= 0x20;  // what ferror looks at
    return 0;
}

}  // namespace

// ---- locks

CALL_AS(pthread_mutex_init, _Z18pthread_mutex_initP5_syncPK19pthread_mutexattr_t, VALUE, int,
        (_sync * mutex, const pthread_mutexattr_t* attributes), (mutex, attributes), EAGAIN, EBUSY, EFAULT, EINVAL,
        ENOMEM, ENOTSUP, EPERM)
CALL_AS(pthread_mutex_destroy, _Z21pthread_mutex_destroyP5_sync, VALUE, int, (_sync * mutex), (mutex), EBUSY,
        EINVAL)
CALL_AS(pthread_mutex_timedlock_monotonic, _Z33pthread_mutex_timedlock_monotonicP5_syncPK8timespec, VALUE, int,
        (_sync * mutex, const timespec* deadline), (mutex, deadline), EAGAIN, EDEADLK, EINVAL, ETIMEDOUT)
CALL_AS(__nto_mutex_trylock, _Z19__nto_mutex_trylockP5_sync, VALUE, int, (_sync * mutex), (mutex), EAGAIN, EBUSY,
        EINVAL)
CALL(SyncMutexLock_r, VALUE, int, (_sync * mutex), (mutex), EAGAIN, EDEADLK, EINVAL, ETIMEDOUT)
CALL(SyncMutexUnlock_r, VALUE, int, (_sync * mutex), (mutex), EINVAL, EPERM)
CALL_AS(pthread_cond_init, _Z17pthread_cond_initP5_syncPK18pthread_condattr_t, VALUE, int,
        (_sync * condition, const pthread_condattr_t* attributes), (condition, attributes), EAGAIN, EBUSY, EFAULT,
        EINVAL, ENOMEM)
CALL_AS(pthread_cond_destroy, _Z20pthread_cond_destroyP5_sync, VALUE, int, (_sync * condition), (condition), EBUSY,
        EINVAL)
CALL_AS(pthread_cond_wait, _Z17pthread_cond_waitP5_syncS0_, VALUE, int, (_sync * condition, _sync* mutex),
        (condition, mutex), EAGAIN, EFAULT, EINVAL, EPERM, ETIMEDOUT)
CALL_AS(pthread_cond_timedwait, _Z22pthread_cond_timedwaitP5_syncS0_PK8timespec, VALUE, int,
        (_sync * condition, _sync* mutex, const timespec* deadline), (condition, mutex, deadline), EAGAIN, EFAULT,
        EINVAL, EPERM, ETIMEDOUT)
CALL_AS(pthread_cond_signal, _Z19pthread_cond_signalP5_sync, VALUE, int, (_sync * condition), (condition), EFAULT,
        EINVAL)
CALL_AS(pthread_cond_broadcast, _Z22pthread_cond_broadcastP5_sync, VALUE, int, (_sync * condition), (condition),
        EFAULT, EINVAL)
CALL(pthread_mutexattr_init, VALUE, int, (pthread_mutexattr_t * attributes), (attributes), EINVAL, ENOMEM)
CALL(pthread_mutexattr_setrecursive, VALUE, int, (pthread_mutexattr_t * attributes, int value), (attributes, value),
     EINVAL)
CALL(pthread_mutexattr_setpshared, VALUE, int, (pthread_mutexattr_t * attributes, int value), (attributes, value),
     EINVAL, ENOTSUP)
CALL(pthread_mutexattr_destroy, VALUE, int, (pthread_mutexattr_t * attributes), (attributes), EINVAL)
CALL(pthread_condattr_init, VALUE, int, (pthread_condattr_t * attributes), (attributes), EINVAL, ENOMEM)
CALL(pthread_condattr_setclock, VALUE, int, (pthread_condattr_t * attributes, clockid_t clock), (attributes, clock),
     EINVAL)
CALL(pthread_condattr_setpshared, VALUE, int, (pthread_condattr_t * attributes, int value), (attributes, value),
     EINVAL, ENOTSUP)
CALL(pthread_condattr_destroy, VALUE, int, (pthread_condattr_t * attributes), (attributes), EINVAL)
CALL(sem_init, ERRNO, int, (sem_t * semaphore, int shared, unsigned value), (semaphore, shared, value), EAGAIN,
     EBUSY, EINVAL, ENOSPC, ENOSYS, EPERM)
CALL(sem_destroy, ERRNO, int, (sem_t * semaphore), (semaphore), EBUSY, EINVAL)
CALL(sem_getvalue, ERRNO, int, (sem_t * semaphore, int* value), (semaphore, value), EINVAL, ENOSYS)
CALL(sem_post, ERRNO, int, (sem_t * semaphore), (semaphore), EINVAL, EOVERFLOW)
CALL(sem_wait, ERRNO, int, (sem_t * semaphore), (semaphore), EDEADLK, EINTR, EINVAL, ETIMEDOUT)
CALL(sem_trywait, ERRNO, int, (sem_t * semaphore), (semaphore), EAGAIN, EDEADLK, EINTR, EINVAL)
CALL(sem_timedwait_monotonic, ERRNO, int, (sem_t * semaphore, const timespec* deadline), (semaphore, deadline),
     EDEADLK, EINTR, EINVAL, ETIMEDOUT)
CALL(pthread_atfork, VALUE, int, (void (*prepare)(), void (*parent)(), void (*child)()), (prepare, parent, child),
     ENOMEM)

// ---- threads, processes, clocks

CALL(sched_getparam, ERRNO, int, (pid_t process, sched_param* parameters), (process, parameters), EPERM, ESRCH)
CALL(ThreadCreate, ERRNO, int,
     (pid_t process, void* (*function)(void*), void* argument, const _thread_attr* attributes),
     (process, function, argument, attributes), EAGAIN, EFAULT, EINTR, EINVAL, ENOMEM, ENOTSUP, EPERM, ESRCH)
CALL(ThreadJoin_r, VALUE, int, (int thread, void** status), (thread, status), EBUSY, EDEADLK, EFAULT, EINTR, EINVAL,
     ESRCH, ETIMEDOUT)
CALL(ThreadDestroy, ERRNO, int, (int thread, int priority, void* status), (thread, priority, status), EAGAIN,
     EINVAL, ESRCH)
CALL(SchedGet, ERRNO, int, (pid_t process, int thread, sched_param* parameters), (process, thread, parameters),
     EFAULT, ESRCH)
CALL(SchedSet, ERRNO, int, (pid_t process, int thread, int policy, const sched_param* parameters),
     (process, thread, policy, parameters), EFAULT, EINVAL, ENOMEM, EPERM, ESRCH)
CALL_AS(pthread_setname_np, _Z18pthread_setname_npiPKc, VALUE, int, (int thread, const char* name), (thread, name),
        E2BIG, EACCES, EBUSY, EINVAL, EMFILE, ENFILE, ENOMEM, EPERM, ESRCH)
CALL(ClockTime, ERRNO, int, (clockid_t clock, const std::uint64_t* set, std::uint64_t* old), (clock, set, old),
     EFAULT, EINVAL, ENODEV, ENOTSUP, EPERM, ESRCH)
CALL(ClockId, ERRNO, int, (pid_t process, int thread), (process, thread), EINVAL, ESRCH)
CALL(clock_getcpuclockid, VALUE, int, (pid_t process, clockid_t* clock), (process, clock), ENOSYS, EPERM, ESRCH)
CALL(TimerTimeout, ERRNO, int,
     (clockid_t clock, int flags, const struct sigevent* notify, const std::uint64_t* time, std::uint64_t* left),
     (clock, flags, notify, time, left), EAGAIN, EFAULT, EINTR, EINVAL, ENOTSUP)
CALL(SignalProcmask, ERRNO, int, (pid_t process, int thread, int how, const sigset_t* set, sigset_t* old),
     (process, thread, how, set, old), EAGAIN, EFAULT, EINVAL, EPERM, ESRCH)
CALL(SignalProcmask_r, VALUE, int, (pid_t process, int thread, int how, const sigset_t* set, sigset_t* old),
     (process, thread, how, set, old), EAGAIN, EFAULT, EINVAL, EPERM, ESRCH)
CALL(sigemptyset, ERRNO, int, (sigset_t * set), (set), EINVAL)
CALL(sigaddset, ERRNO, int, (sigset_t * set, int number), (set, number), EINVAL)
CALL(sigismember, ERRNO, int, (const sigset_t* set, int number), (set, number), EINVAL)
CALL(spawnvp, ERRNO, int, (int mode, const char* file, char* const* arguments), (mode, file, arguments), E2BIG,
     EACCES, EAGAIN, EBADF, EFAULT, EINTR, EINVAL, EIO, EISDIR, ELIBACC, ELIBBAD, ELOOP, EMFILE, ENAMETOOLONG,
     ENFILE, ENOENT, ENOEXEC, ENOMEM, ENOSYS, ENOTDIR, EPERM, ETXTBSY)
CALL_AS(waitpid, __nto_waitpid, ERRNO, pid_t, (pid_t process, int* status, int options), (process, status, options),
        ECHILD, EINTR, EINVAL, ESRCH)
CALL(wait, ERRNO, pid_t, (int* status), (status), ECHILD, EINTR)

// ---- channels and timers

CALL(ChannelCreate, ERRNO, int, (unsigned flags), (flags), EAGAIN, ENOTSUP, EPERM)
CALL(ChannelDestroy, ERRNO, int, (int channel), (channel), EINVAL)
CALL(ConnectAttach, ERRNO, int, (unsigned node, pid_t process, int channel, unsigned index, int flags),
     (node, process, channel, index, flags), EAGAIN, EFBIG, EINVAL, ENXIO, EPERM, ESRCH)
CALL(ConnectDetach, ERRNO, int, (int connection), (connection), EINVAL)
// A receiver may have a send fail with whatever it likes: ENOSYS, for what it does not know, stands for that.
#define SEND_ERRORS EAGAIN, EBADF, EFAULT, EHOSTDOWN, EINTR, EINVAL, EMSGSIZE, ENOSYS, ESRCH, ETIMEDOUT
CALL(MsgSend, ERRNO, int, (int connection, const void* message, int bytes, void* answer, int room),
     (connection, message, bytes, answer, room), SEND_ERRORS)
CALL(MsgSendv, ERRNO, int, (int connection, const iovec* message, int parts, const iovec* answer, int answerParts),
     (connection, message, parts, answer, answerParts), SEND_ERRORS)
CALL(MsgReceive, ERRNO, int, (int channel, void* message, int bytes, _msg_info* info),
     (channel, message, bytes, info), EFAULT, EINTR, EINVAL, ESRCH, ETIMEDOUT)
CALL(MsgReceivev, ERRNO, int, (int channel, const iovec* message, int parts, _msg_info* info),
     (channel, message, parts, info), EFAULT, EINTR, EINVAL, ESRCH, ETIMEDOUT)
CALL(MsgReceivePulse, ERRNO, int, (int channel, void* pulse, int bytes, _msg_info* info),
     (channel, pulse, bytes, info), EFAULT, EINTR, EINVAL, ESRCH, ETIMEDOUT)
CALL(TimerCreate, ERRNO, int, (clockid_t clock, const struct sigevent* event), (clock, event), EAGAIN, EBADF,
     EFAULT, EINVAL, ENOTSUP)
CALL(TimerSettime, ERRNO, int, (int timer, int flags, const _itimer* set, _itimer* old), (timer, flags, set, old),
     EFAULT, EINVAL)
CALL(TimerDestroy, ERRNO, int, (int timer), (timer), EINVAL)

// What names a path or has a descriptor is a message on Neutrino, which also ends when a time-out has passed that the
// thread had armed for something else (ETIMEDOUT).

// ---- shared memory

CALL(shm_open, ERRNO, int, (const char* name, int flags, mode_t mode), (name, flags, mode), EACCES, EEXIST, EINTR,
     EINVAL, ELOOP, EMFILE, ENAMETOOLONG, ENFILE, ENOENT, ENOMEM, ENOSPC, ENOSYS, EPERM, EROFS, ETIMEDOUT)
CALL(shm_unlink, ERRNO, int, (const char* name), (name), EACCES, EEXIST, EINTR, ELOOP, ENAMETOOLONG, ENOENT, ENOMEM,
     ENOSYS, EROFS, ETIMEDOUT)
#define FTRUNCATE_ERRORS EBADF, EFBIG, EINTR, EINVAL, EIO, ENOSPC, EPERM, EROFS, ETIMEDOUT
CALL(ftruncate, ERRNO, int, (int descriptor, off_t size), (descriptor, size), FTRUNCATE_ERRORS)
CALL(mmap, NO_MAPPING, void*, (void* at, std::size_t size, int protection, int flags, int descriptor, off_t offset),
     (at, size, protection, flags, descriptor, offset), EACCES, EAGAIN, EBADF, EINVAL, EMFILE, ENFILE, ENODEV,
     ENOMEM, ENOTSUP, ENXIO, EOVERFLOW, EPERM)
CALL(munmap, ERRNO, int, (void* at, std::size_t size), (at, size), EINTR, EINVAL, ENOMEM, ENOSYS)
CALL(fstat, ERRNO, int, (int descriptor, struct stat* status), (descriptor, status), EBADF, EIO, ENOMEM, EOVERFLOW,
     ETIMEDOUT)
CALL(close, ERRNO, int, (int descriptor), (descriptor), EBADF, EDQUOT, EINTR, EIO, ENOSPC, ENOSYS, ETIMEDOUT)

// ---- files and devices

CALL(access, ERRNO, int, (const char* path, int mode), (path, mode), PATH_ERRORS, EINVAL, EPERM, EROFS, ETXTBSY)
CALL(chdir, ERRNO, int, (const char* path), (path), PATH_ERRORS)
CALL(chmod, ERRNO, int, (const char* path, mode_t mode), (path, mode), PATH_ERRORS, EPERM, EROFS)
CALL(fsync, ERRNO, int, (int descriptor), (descriptor), EBADF, EDQUOT, EINTR, EINVAL, EIO, ENOSPC, EROFS, ETIMEDOUT)
CALL(ftruncate64, ERRNO, int, (int descriptor, off64_t size), (descriptor, size), FTRUNCATE_ERRORS)
CALL(getcwd, ERRNO, char*, (char* buffer, std::size_t size), (buffer, size), EACCES, EINTR, EINVAL, EIO,
     ENAMETOOLONG, ENOENT, ENOMEM, ERANGE)
CALL(lseek64, ERRNO, off64_t, (int descriptor, off64_t offset, int whence), (descriptor, offset, whence), EBADF,
     EINVAL, EOVERFLOW, ESPIPE, ETIMEDOUT)
CALL(lstat64, ERRNO, int, (const char* path, struct stat64* status), (path, status), PATH_ERRORS, EOVERFLOW)
CALL(mkdir, ERRNO, int, (const char* path, mode_t mode), (path, mode), PATH_ERRORS, EDQUOT, EEXIST, EINVAL, EMLINK,
     ENOSPC, EPERM, EROFS)
CALL(mmap64, NO_MAPPING, void*,
     (void* at, std::size_t size, int protection, int flags, int descriptor, off64_t offset),
     (at, size, protection, flags, descriptor, offset), EACCES, EAGAIN, EBADF, EINTR, EINVAL, EMFILE, ENFILE,
     ENODEV, ENOMEM, ENOTSUP, ENXIO, EOVERFLOW, EPERM)
CALL(opendir, ERRNO, DIR*, (const char* path), (path), PATH_ERRORS, EMFILE, ENFILE)
#define READDIR_ERRORS EBADF, EINTR, EIO, ENOENT, EOVERFLOW, ETIMEDOUT
CALL(readdir, ERRNO, struct dirent*, (DIR * directory), (directory), READDIR_ERRORS)
CALL(readdir64, ERRNO, struct dirent64*, (DIR * directory), (directory), READDIR_ERRORS)
CALL(remove, ERRNO, int, (const char* path), (path), PATH_ERRORS, EBUSY, EEXIST, EINVAL, EISDIR, ENOTEMPTY, EPERM,
     EROFS, ETXTBSY)
CALL(rename, ERRNO, int, (const char* from, const char* to), (from, to), PATH_ERRORS, EBUSY, EDQUOT, EEXIST, EINVAL,
     EISDIR, EMLINK, ENOSPC, ENOTEMPTY, EPERM, EROFS, EXDEV)
CALL(rmdir, ERRNO, int, (const char* path), (path), PATH_ERRORS, EBUSY, EEXIST, EINVAL, ENOTEMPTY, EPERM, EROFS)
CALL(stat64, ERRNO, int, (const char* path, struct stat64* status), (path, status), PATH_ERRORS, EOVERFLOW)
CALL(symlink, ERRNO, int, (const char* target, const char* link), (target, link), PATH_ERRORS, EDQUOT, EEXIST,
     ENOSPC, EPERM, EROFS)
CALL(unlink, ERRNO, int, (const char* path), (path), PATH_ERRORS, EBUSY, EISDIR, EPERM, EROFS, ETXTBSY)
CALL(unlinkat, ERRNO, int, (int directory, const char* name, int flags), (directory, name, flags), PATH_ERRORS,
     EBADF, EBUSY, EISDIR, EPERM, EROFS, ETXTBSY)
CALL_AS(statvfs, nto_statvfs, ERRNO, int, (const char* path, struct statvfs* status), (path, status), PATH_ERRORS,
        ENOSYS, ENOTSUP, EOVERFLOW)
CALL(devctl, VALUE, int, (int descriptor, int command, void* data, std::size_t size, int* info),
     (descriptor, command, data, size, info), EAGAIN, EBADF, EFAULT, EINTR, EINVAL, EIO, ENOMEM, ENOSYS, ENOTTY,
     ENXIO, EPERM, ETIMEDOUT)
#define READ_ERRORS EAGAIN, EBADF, EINTR, EINVAL, EIO, EISDIR, ENOMEM, ENXIO, EOVERFLOW, ETIMEDOUT
#define WRITE_ERRORS                                                                                               \
    EAGAIN, EBADF, EDQUOT, EFBIG, EINTR, EINVAL, EIO, ENOMEM, ENOSPC, ENXIO, EPERM, EPIPE, ETIMEDOUT
CALL(read, ERRNO, ssize_t, (int descriptor, void* buffer, std::size_t size), (descriptor, buffer, size),
     READ_ERRORS)
// What is read and written lies where the caller of the library says (EFAULT).
#if __SIZEOF_SIZE_T__ == 8
CALL_AS(KernelIO::read, _ZN8KernelIO4readEiPvm, ERRNO, ssize_t, (int descriptor, void* buffer, std::size_t size),
        (descriptor, buffer, size), READ_ERRORS, EFAULT)
CALL_AS(KernelIO::write, _ZN8KernelIO5writeEiPKvm, ERRNO, ssize_t,
        (int descriptor, const void* data, std::size_t size), (descriptor, data, size), WRITE_ERRORS, EFAULT)
#else
CALL_AS(KernelIO::read, _ZN8KernelIO4readEiPvj, ERRNO, ssize_t, (int descriptor, void* buffer, std::size_t size),
        (descriptor, buffer, size), READ_ERRORS, EFAULT)
CALL_AS(KernelIO::write, _ZN8KernelIO5writeEiPKvj, ERRNO, ssize_t,
        (int descriptor, const void* data, std::size_t size), (descriptor, data, size), WRITE_ERRORS, EFAULT)
#endif
CALL(writev, ERRNO, ssize_t, (int descriptor, const iovec* parts, int count), (descriptor, parts, count),
     WRITE_ERRORS)
CALL_VARIABLE(open, ERRNO, const char*, PATH_ERRORS, EAGAIN, EBUSY, EDQUOT, EEXIST, EINVAL, EISDIR, EMFILE, ENFILE,
              ENODEV, ENOSPC, ENOSYS, ENXIO, EOVERFLOW, EPERM, EROFS, ETXTBSY)
CALL_VARIABLE(fcntl, ERRNO, int, EAGAIN, EBADF, EINTR, EINVAL, EMFILE, EPERM, ETIMEDOUT)
CALL(fopen, ERRNO, std::FILE*, (const char* path, const char* mode), (path, mode), PATH_ERRORS, EBUSY, EDQUOT,
     EINVAL, EISDIR, EMFILE, ENFILE, ENODEV, ENOSPC, ENXIO, EOVERFLOW, EPERM, EROFS, ETXTBSY)
CALL(fflush, ERRNO, int, (std::FILE * stream), (stream), WRITE_ERRORS)
CALL(fclose, ERRNO, int, (std::FILE * stream), (stream), WRITE_ERRORS)

// The stream is gone, whatever the result.
int wrapped_closedir(DIR* directory) asm("__wrap_closedir");
const Registered sRegistered_closedir{"closedir", "closedir", Failure::ERRNO, {EBADF, EINTR, ETIMEDOUT}};
int wrapped_closedir(DIR* directory) {
    const int result = closedir(directory);
    const int error = faults::errorOfNext("closedir");
    return error != 0 ? faults::failed<int>(Failure::ERRNO, error) : result;
}

std::size_t wrapped_fread(void* buffer, std::size_t size, std::size_t count, std::FILE* stream) asm("__wrap_fread");
const Registered sRegistered_fread{"fread", "fread", Failure::NOTHING, {READ_ERRORS, EFAULT}};
std::size_t wrapped_fread(void* buffer, std::size_t size, std::size_t count, std::FILE* stream) {
    if (const int error = faults::errorOfNext("fread"); error != 0) {
        errno = error;
        return failed(stream);
    }
    return fread(buffer, size, count, stream);
}

std::size_t wrapped_fwrite(const void* data, std::size_t size, std::size_t count,
                           std::FILE* stream) asm("__wrap_fwrite");
const Registered sRegistered_fwrite{"fwrite", "fwrite", Failure::NOTHING, {WRITE_ERRORS, EFAULT}};
std::size_t wrapped_fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* stream) {
    if (const int error = faults::errorOfNext("fwrite"); error != 0) {
        errno = error;
        return failed(stream);
    }
    return fwrite(data, size, count, stream);
}

// ---- reports

[[gnu::format(printf, 3, 0)]] int wrapped_vsnprintf(char* buffer, std::size_t size, const char* format,
                                                    std::va_list arguments) asm("__wrap_vsnprintf");
const Registered sRegistered_vsnprintf{"vsnprintf", "vsnprintf", Failure::ERRNO, {EILSEQ, ENOMEM, EOVERFLOW}};
int wrapped_vsnprintf(char* buffer, std::size_t size, const char* format, std::va_list arguments) {
    if (const int error = faults::errorOfNext("vsnprintf"); error != 0)
        return faults::failed<int>(Failure::ERRNO, error);
    return std::vsnprintf(buffer, size, format, arguments);
}

[[gnu::format(printf, 3, 4)]] int wrapped_slogf(int opcode, int severity, const char* format,
                                                ...) asm("__wrap_slogf");
const Registered sRegistered_slogf{"slogf",
                                   "slogf",
                                   Failure::ERRNO,
                                   {EACCES, EAGAIN, EBADF, EHOSTDOWN, EINTR, ELOOP, EMFILE, ENAMETOOLONG, ENFILE,
                                    ENOBUFS, ENOENT, ENOMEM, ENOTDIR, EPROTOTYPE, ESRCH, ETIMEDOUT}};
int wrapped_slogf(int opcode, int severity, const char* format, ...) {
    if (const int error = faults::errorOfNext("slogf"); error != 0)
        return faults::failed<int>(Failure::ERRNO, error);
    std::va_list arguments;
    va_start(arguments, format);
    const int result = vslogf(opcode, severity, format, arguments);
    va_end(arguments);
    return result;
}

CALL(strerror, NOTHING, char*, (int number), (number), EINVAL)
CALL(bt_load_memmap, ERRNO, int, (bt_accessor_t * accessor, bt_memmap_t* map), (accessor, map), EACCES, EINVAL,
     EMFILE, ENFILE, ENOENT, ENOMEM)
CALL(bt_get_backtrace, ERRNO, int, (bt_accessor_t * accessor, bt_addr_t* addresses, int length),
     (accessor, addresses, length), EINVAL)
CALL(bt_sprn_memmap, ERRNO, int, (bt_memmap_t * map, char* text, std::size_t size), (map, text, size), EINVAL,
     ENOSPC)
CALL(bt_unload_memmap, ERRNO, int, (bt_memmap_t * map), (map), EINVAL)
CALL_VARIABLE(bt_init_accessor, ERRNO, bt_accessor_t*, EINVAL, ENOMEM)
CALL_VARIABLE(TraceEvent, ERRNO, int, ECANCELED, EFAULT, ENOMEM, ENOTSUP, EPERM)

CALL(sigtimedwait, ERRNO, int, (const sigset_t* set, siginfo_t* info, const timespec* timeout),
     (set, info, timeout), EAGAIN, EINTR, EINVAL)

// ---- memory

CALL(malloc, NOTHING, void*, (std::size_t size), (size), ENOMEM)
CALL(realloc, NOTHING, void*, (void* block, std::size_t size), (block, size), ENOMEM)
CALL(posix_memalign, VALUE, int, (void** block, std::size_t alignment, std::size_t size), (block, alignment, size),
     EINVAL, ENOMEM)
CALL(mktime, ERRNO, time_t, (std::tm * time), (time), EOVERFLOW)
