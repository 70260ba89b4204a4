// VQOperatingSystem: the calling thread's last error, and who is calling.
//   Errors   none. The last error is errno: the whole library leaves the reason of a platform failure there.
//   Threads  any thread; the last error is each thread's own.
//   Kept     vsnprintf-equal-size: a text of exactly `size` bytes, which is cut, is not counted as cut.
#pragma once

#include <VQExport.h>

#include <cstdarg>

namespace VQOperatingSystem {

VQ_EXPORT void setLastError(int error);
VQ_EXPORT int getLastError();

/// The kernel's id of the calling thread, as the log, the debugger and the process list show it.
VQ_EXPORT int getCurrentTID();
VQ_EXPORT int getCurrentPID();

/// The C library's vsnprintf, except that a result above `size` is returned as `size` - 1, the bytes that were kept.
/// A size of 0 or less gives 0, and so does a null buffer, which is an assertion as well.
/// Kept: vsnprintf-equal-size.
VQ_EXPORT int vsnprintf(char* buffer, int size, const char* format, std::va_list arguments) VQ_PRINTF(3, 0);

}  // namespace VQOperatingSystem
