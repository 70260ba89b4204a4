// VQOperatingSystem: the calling thread's last error, ids, clocks, kernel time-outs, the signal mask and processes.
//   Units    clocks and deadlines in nanoseconds, 64 bits unsigned; time-outs and sleeps in milliseconds.
//   Errors   the last error is errno: the whole library leaves the reason of a platform failure there. Calls that
//            an interruption ended are made again.
//   Threads  any thread; the last error and an armed kernel time-out are each thread's own. Of threads that
//            ask for the monotonic bias first, at the same moment, one captures it for all.
//   Kept     vsnprintf-equal-size: a text of exactly `size` bytes, which is cut, is not counted as cut.
//            process-exit-signed: an exit code is a signed byte, so 255 looks like a failure.
//            process-wait-minus-one: waitForProcesses says -1 after success, too.
//            process-current-directory: a program is looked up in the current directory only.
#pragma once

#include <VQExport.h>
#include <VQOSTypes.h>

#include <cstdarg>

template <class T>
class TVQVector;

namespace VQOperatingSystem {

VQ_EXPORT void setLastError(int error);
VQ_EXPORT int getLastError();

/// The kernel's id of the calling thread, as the log, the debugger and the process list show it.
VQ_EXPORT int getCurrentTID();
VQ_EXPORT int getCurrentPID();

/// Milliseconds of the real-time clock, modulo 2^32.
VQ_EXPORT unsigned getRealTimeMs();

/// Caught signals neither shorten the sleep nor add to it, however many there are.
VQ_EXPORT void sleepMs(unsigned ms);

/// Nanoseconds since boot as the kernel's system page has them.
VQ_EXPORT unsigned long long getSysPageTime();

/// A clock's nanoseconds; 0 only for failure.
VQ_EXPORT unsigned long long getClockValue(int clockId);

/// The monotonic clock; stored in `out` as well unless that is null. A clock that cannot be read is an assertion.
/// errno is left as it was.
VQ_EXPORT unsigned long long getMonotonicTime(unsigned long long* out = nullptr);

/// The monotonic time of this function's first call in the process; stored in `out` as well unless that is null.
VQ_EXPORT unsigned long long getMonotonicBias(unsigned long long* out = nullptr);

/// Nanoseconds since `then`; a time in the future is an assertion, and 0.
VQ_EXPORT unsigned long long timeDiffMonotonic(unsigned long long then);

/// The deadline that lies `timeoutMs` from now: all bits set, which means no limit, for a negative time-out, and 0
/// when the clock cannot be read.
VQ_EXPORT unsigned long long calculateKernelTimeout(int timeoutMs);

/// Arms a time-out for the calling thread's next blocking kernel call in one of the states `flags` (the platform's
/// _NTO_TIMEOUT_ bits). It covers one call: arm it right before each.
VQ_EXPORT bool setKernelTimeout(unsigned long long deadline, int flags);
/// Takes an armed time-out back.
VQ_EXPORT bool resetKernelTimeout();

/// The C library's vsnprintf, except that a result above `size` is returned as `size` - 1, the bytes that were
/// kept. A size of 0 or less gives 0, and so does a null buffer, which is an assertion as well unless the size is
/// 0. Kept: vsnprintf-equal-size.
VQ_EXPORT int vsnprintf(char* buffer, int size, const char* format, std::va_list arguments) VQ_PRINTF(3, 0);

/// Changes the calling thread's signal mask by `count` signal numbers. With `previous`, which has room for 64, the
/// signals that were blocked before are written there in ascending order, and the result is their number; without
/// it 0. -1 on failure; the mask is then what it was.
VQ_EXPORT int setSignalMask(const int* signals, unsigned count, int* previous, VQOSTypes::SignalMaskMode mode);

/// Starts ./`name` with `name` and the words of `arguments` (split at blanks, at most 14; the rest is dropped).
/// Returns the process id, or -1.
VQ_EXPORT int spawnProcess(const char* name, const char* arguments);

/// Waits for the end of a child and returns its exit code, -128 to 127, or the signal that ended it; -1 on failure.
VQ_EXPORT int joinProcess(int pid);

/// Waits until all listed children have ended, and takes each from the list; the end of any child is logged. An
/// empty list gives 0, everything else -1.
VQ_EXPORT int waitForProcesses(TVQVector<int>& pids);

/// Does nothing.
VQ_EXPORT void waitAttachDebugger();

}  // namespace VQOperatingSystem

/// What is under both kernel time-out operations: arms `deadline` for the states in `flags`, which say with
/// TIMER_ABSTIME that the deadline is a time of the monotonic clock.
VQ_EXPORT bool setKernelTimer(unsigned long long deadline, int flags);
