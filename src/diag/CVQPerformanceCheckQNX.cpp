#include <CVQPerformanceCheck.h>

#include <CVQAsserter.h>
#include <VQOperatingSystem.h>

#include <cstdint>
#include <sys/neutrino.h>
#include <time.h>

namespace {

constexpr char kUnit[] = "CVQPerformanceCheckQNX";
constexpr unsigned kLineThreadClock = 46;
constexpr unsigned kLineProcessClock = 55;
constexpr unsigned kLineThreadTime = 68;
constexpr unsigned kLineProcessTime = 79;

unsigned long long read(clockid_t clock, unsigned line) {
    std::uint64_t time = 0;
    if (VQ_UNLIKELY(ClockTime(clock, nullptr, &time) == -1)) {
        doCheapAssert(line, kUnit);
        return 0;
    }
    return time;
}

}  // namespace

void CVQPerformanceCheck::init() {
    if (mMode == THREAD_TIME) {
        mClock = ClockId(mProcessId, mThreadId);
        if (VQ_UNLIKELY(mClock == -1)) {
            doCheapAssert(kLineThreadClock, kUnit);
        }
    } else if (mMode == PROCESS_TIME) {
        // A negative id is none, also where the platform takes -1 for the calling process.
        if (VQ_UNLIKELY(mProcessId < 0 || clock_getcpuclockid(mProcessId, &mClock) != 0)) {
            mClock = -1;  // no clock, whereas 0 is the real-time clock
            doCheapAssert(kLineProcessClock, kUnit);
        }
    }
}

unsigned long long CVQPerformanceCheck::getRealTime() {
    return VQOperatingSystem::getSysPageTime();
}

unsigned long long CVQPerformanceCheck::getThreadTime() const {
    return read(mClock, kLineThreadTime);
}

unsigned long long CVQPerformanceCheck::getProcessTime() const {
    return read(mClock, kLineProcessTime);
}
