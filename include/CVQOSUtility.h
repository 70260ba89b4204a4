// CVQOSUtility: a time-out in milliseconds as the wall-clock time that some platform calls want.
//   Threads  any thread.
#pragma once

#include <VQExport.h>

#include <time.h>

class VQ_EXPORT CVQOSUtility {
public:
    /// Stores in `out`, and returns, the real-time clock's now plus `timeoutMs`; negative time-outs count as 0.
    static timespec& translateToOSTimeout(int timeoutMs, timespec& out);
};
