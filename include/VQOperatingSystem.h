// VQOperatingSystem: the calling thread's last error, and who is calling.
//   Errors   none. The last error is errno: the whole library leaves the reason of a platform failure there.
//   Threads  any thread; the last error is each thread's own.
#pragma once

#include <VQExport.h>

namespace VQOperatingSystem {

VQ_EXPORT void setLastError(int error);
VQ_EXPORT int getLastError();

/// The kernel's id of the calling thread, as the log, the debugger and the process list show it.
VQ_EXPORT int getCurrentTID();
VQ_EXPORT int getCurrentPID();

}  // namespace VQOperatingSystem
