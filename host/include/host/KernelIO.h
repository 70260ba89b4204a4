// <host/KernelIO.h>: read and write as Neutrino has them: bounded by the time-out that the thread has armed.
//   Time-out TimerTimeout for the states SEND or REPLY; the call consumes it, whatever it covers. Expiry is -1 and
//            ETIMEDOUT. What can be transferred at once is transferred, also when the time has passed already. A read
//            ends with the first bytes that come. A write that began and could not end in time returns what it wrote.
//   Errors   those of the C library's calls. A signal handler that ran ends a waiting call with EINTR, or with what it
//            transferred. EAGAIN for a descriptor in non-blocking mode, whose mode is never changed, and where the kernel
//            has no timer left for a call that needs one (RLIMIT_SIGPENDING): nothing was transferred then.
//   Files    regular files and block devices do not wait, so no time-out ends their transfers.
//   Done by  an attempt that cannot wait (RWF_NOWAIT), then poll. Where the kernel has no such attempt (pipes with a
//            name, terminals, some devices, emulators) a timer sends the thread a real-time signal, SIGRTMAX - 5, at
//            the deadline and every millisecond after that until the call is over: some 1 to 2 us for each call.
//   Threads  any thread.
#pragma once

#include <sys/types.h>

#pragma GCC visibility push(default)
namespace KernelIO {

ssize_t read(int descriptor, void* buffer, size_t size);
ssize_t write(int descriptor, const void* data, size_t size);

}  // namespace KernelIO
#pragma GCC visibility pop
