#include <CVQOSUtility.h>

timespec& CVQOSUtility::translateToOSTimeout(int timeoutMs, timespec& out) {
    if (timeoutMs < 0) {
        timeoutMs = 0;
    }
    out = {};
    clock_gettime(CLOCK_REALTIME, &out);
    out.tv_sec += timeoutMs / 1000;
    out.tv_nsec += timeoutMs % 1000 * 1000000L;
    if (out.tv_nsec > 999999999L) {
        out.tv_nsec -= 1000000000L;
        ++out.tv_sec;
    }
    return out;
}
