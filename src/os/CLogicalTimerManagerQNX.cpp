#include <CLogicalTimerManager.h>

#include <CVQAsserter.h>
#include <VQOperatingSystem.h>
#include <os/TimerPulses.h>

#include <sys/neutrino.h>

namespace {

constexpr char kUnit[] = "CLogicalTimerManagerQNX";
constexpr unsigned kLineChannel = 47;
constexpr unsigned kLineConnection = 54;
constexpr unsigned kLineTimer = 69;
constexpr unsigned kLineStart = 95;

void expect(int result, unsigned line) {
    if (VQ_UNLIKELY(result == -1)) {
        doCheapAssert(line, kUnit);
    }
}

}  // namespace

void CLogicalTimerManager::create() {
    mChannel = VQTimerPulses::createChannel();
    expect(mChannel, kLineChannel);
    mConnection = VQTimerPulses::connect(mChannel);
    expect(mConnection, kLineConnection);
    mWorkTimeoutMs = VQTimerPulses::atLeastOneMs(mWorkTimeoutMs);
    mTimer = VQTimerPulses::createTimer(mConnection, this);
    expect(mTimer, kLineTimer);
}

void CLogicalTimerManager::destroy() {
    TimerDestroy(mTimer);
    ConnectDetach(mConnection);
    ChannelDestroy(mChannel);
}

void CLogicalTimerManager::start(unsigned long long now) {
    const unsigned long long expiry = mTimers.front()->mExpiry;
    // Setting the kernel timer again to what it is set to changes nothing, unless it has expired and is to do so
    // again.
    if (expiry == mArmedExpiry && now < expiry) {
        return;
    }
    const _itimer setting = {VQOperatingSystem::getMonotonicBias() + expiry, 0};
    const int result = TimerSettime(mTimer, TIMER_ABSTIME, &setting, nullptr);
    expect(result, kLineStart);
    mArmedExpiry = result == -1 ? 0 : expiry;
}

void CLogicalTimerManager::cancel() {
    if (mArmedExpiry == 0) {
        return;
    }
    const _itimer disarmed = {0, 0};
    TimerSettime(mTimer, 0, &disarmed, nullptr);
    mArmedExpiry = 0;
}

int CLogicalTimerManager::performWork() {
    _pulse pulse;
    return VQTimerPulses::receive(mChannel, mWorkTimeoutMs, pulse) ? handleSignalledTimer() : 0;
}
