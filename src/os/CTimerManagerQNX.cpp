#include <CTimerManager.h>

#include <CVQAsserter.h>
#include <VQError.h>
#include <os/TimerPulses.h>

#include <sys/neutrino.h>

namespace {

constexpr char kUnit[] = "CTimerManagerQNX";
constexpr unsigned kLineTimersLeft = 66;

/// Ends the process for a result that says failure.
void require(int result, const char* whatFailed) {
    if (VQ_UNLIKELY(result < 0)) {
        VQError::fatalError(0, whatFailed);
    }
}

}  // namespace

static_assert(sizeof(void*) != 4 || sizeof(CTimerManager) == 16, "list, time-out, channel, connection");
static_assert(sizeof(void*) != 4 || sizeof(CTimerBase) == 12, "virtual table, timer, manager");
static_assert(sizeof(void*) != 4 || sizeof(CTimer) == 20, "base, link, one byte");

CTimerManager::CTimerManager(int workTimeoutMs)
    : mWorkTimeoutMs(VQTimerPulses::atLeastOneMs(workTimeoutMs)), mChannel(VQTimerPulses::createChannel()) {
    require(mChannel, "ChannelCreate failed");
    mConnection = VQTimerPulses::connect(mChannel);
    require(mConnection, "ConnectAttach failed");
}

CTimerManager::~CTimerManager() {
    if (!mTimers.isEmpty()) {
        doAssert(kLineTimersLeft, kUnit, "Cannot delete timer manager since timers are still available");
        for (CTimer& timer : mTimers) {
            timer.mManager = nullptr;
        }
    }
    ConnectDetach(mConnection);
    ChannelDestroy(mChannel);
}

bool CTimerManager::performWork() {
    _pulse pulse;
    if (!VQTimerPulses::receive(mChannel, mWorkTimeoutMs, pulse)) {
        return false;
    }
    // The timer may be gone since it sent the pulse: its address is compared, and used only when it is in the list.
    CTimerBase* const sender = static_cast<CTimerBase*>(pulse.value.sival_ptr);
    CTimer* const timer = sender == nullptr ? nullptr : mTimers.find(static_cast<CTimer*>(sender));
    if (timer == nullptr || timer->mIsActive == 0) {
        return false;
    }
    // Kept: timer-restart-stale. Kept: timer-stays-active.
    timer->handleTimeout();
    return true;
}

void CTimerManager::registerTimer(CTimer& timer) {
    mTimers.push_front(timer);
}

void CTimerManager::unregisterTimer(CTimer& timer) {
    mTimers.erase(timer);
}

void CTimerBase::create() {
    mTimer = VQTimerPulses::createTimer(mManager->mConnection, this);
    require(mTimer, "Cannot create timer");
}

void CTimerBase::destroy() {
    doStop();
    require(TimerDestroy(mTimer), "Cannot delete timer");
}

bool CTimerBase::doStart(unsigned int timeMs, bool singleShot) {
    const unsigned long long timeNs = timeMs * VQTimerPulses::kNsPerMs;
    const _itimer setting = {timeNs, singleShot ? 0 : timeNs};  // Kept: timer-zero-never. 0 disarms.
    require(TimerSettime(mTimer, 0, &setting, nullptr), "Cannot start timer");
    return true;
}

void CTimerBase::doStop() {
    const _itimer disarmed = {0, 0};
    require(TimerSettime(mTimer, 0, &disarmed, nullptr), "Cannot stop timer");
}

bool CTimer::start(unsigned int timeMs, bool singleShot) {
    if (mManager == nullptr) {
        return false;
    }
    stop();
    mIsActive = 1;
    return doStart(timeMs, singleShot);
}

void CTimer::stop() {
    if (mIsActive != 0) {
        doStop();
        mIsActive = 0;
    }
}

void CTimer::leave() {
    if (mManager != nullptr) {
        mManager->unregisterTimer(*this);
    }
}
