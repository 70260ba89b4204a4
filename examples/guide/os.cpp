// Timers: any number of them on one kernel timer, called by the thread that drives their manager.
#include <CLogicalTimerManager.h>
#include <VQOperatingSystem.h>
#include <cstdio>
#include <time.h>

namespace {

class CBlink : public CLogicalTimer {
public:
    using CLogicalTimer::CLogicalTimer;
    void onTimeout() override {
        ++mCount;
        std::printf("blink %d\n", mCount);
        if (mCount == 3) {
            stop();
        }
    }
    bool isDone() const { return mCount == 3; }

private:
    int mCount = 0;
};

class CAlarm : public CLogicalTimer {
public:
    using CLogicalTimer::CLogicalTimer;
    void onTimeout() override { std::printf("alarm\n"); }
};

}  // namespace

int main() {
    constexpr unsigned long long kNanosPerMilli = 1000000;
    CLogicalTimerManager manager(/*workTimeoutMs*/ 1000, /*threadSafe*/ false);
    CBlink blink(manager);
    CAlarm alarm(manager);

    const unsigned long long begin = VQOperatingSystem::getClockValue(CLOCK_MONOTONIC);
    blink.start(40, /*singleShot*/ false);
    alarm.start(60, /*singleShot*/ true);
    while (!blink.isDone()) {
        manager.performWork();  // waits until a timer is due, a second at most
    }
    const unsigned long long took = VQOperatingSystem::getClockValue(CLOCK_MONOTONIC) - begin;
    std::printf("not before 120 ms: %s\n", took >= 120 * kNanosPerMilli ? "yes" : "no");
}
