#include <CLogicalTimerManager.h>

#include <CVQAsserter.h>
#include <CVQOptionalLock.h>
#include <VQMemory.h>
#include <VQOperatingSystem.h>
#include <os/TimerPulses.h>

#include <algorithm>
#include <cstring>

namespace {

constexpr char kUnit[] = "CLogicalTimerManager";
constexpr unsigned kLineTimersLeft = 85;

// A search that takes more steps leaves a signpost for the next one.
constexpr unsigned kStepsToSignpost = 16;

// At 0 a timer is not registered; and what is registered in a round is not due in it.
constexpr unsigned long long kSoonestNs = 1;

unsigned long long timeSinceBias() {
    const unsigned long long bias = VQOperatingSystem::getMonotonicBias();
    return VQOperatingSystem::getMonotonicTime() - bias;
}

}  // namespace

static_assert(sizeof(void*) != 4 || sizeof(CLogicalTimer) == 32,
              "virtual table, two links, manager, expiry, period, state");

CLogicalTimerManager::CLogicalTimerManager(int workTimeoutMs, bool threadSafe)
    : mWorkTimeoutMs(workTimeoutMs), mSorted(mTimers.begin()) {
    if (threadSafe) {
        mLock.reset(VQPrivate::TVQInplaceFactory_0());
    }
    create();
}

CLogicalTimerManager::~CLogicalTimerManager() {
    if (!mTimers.isEmpty()) {
        doAssert(kLineTimersLeft, kUnit, "Cannot delete timer manager since timers are still active");
        for (CLogicalTimer& timer : mTimers) {
            timer.mManager = nullptr;
        }
    }
    destroy();
    mLock.destroy();
}

void CLogicalTimerManager::registerTimer(CLogicalTimer& timer, unsigned int timeMs, bool singleShot) {
    const CVQOptionalLock lock(mLock);
    if (timer.mExpiry != 0) {
        doUnregisterTimer(timer);
    }
    const unsigned long long timeNs = timeMs * VQTimerPulses::kNsPerMs;
    const unsigned long long now = timeSinceBias();
    timer.mExpiry = now + std::max(timeNs, kSoonestNs);
    // Kept: logical-period-wraps. Modulo 2^32.
    timer.mPeriodNs = singleShot ? 0 : static_cast<unsigned int>(timeNs);
    // A single-shot timer that fired in this round is still in the list, and will be given its place at the end.
    if (timer.mNext == nullptr) {
        doRegisterTimer(timer, now);
    }
}

void CLogicalTimerManager::unregisterTimer(CLogicalTimer& timer) {
    const CVQOptionalLock lock(mLock);
    doUnregisterTimer(timer);
}

void CLogicalTimerManager::doRegisterTimer(CLogicalTimer& timer, unsigned long long now) {
    TimerList::iterator place = mTimers.begin();
    while (place != mSorted && place->mExpiry <= timer.mExpiry) {
        ++place;
    }
    if (place == mSorted) {
        place = findSortedPlace(timer.mExpiry);
        if (place == mSorted) {
            mSorted = TimerList::iteratorTo(timer);
        }
        mFiredBefore += timer.mState == CLogicalTimer::FIRED ? 1 : 0;
    }
    mTimers.insert(place, timer);
    ++mChanges;
    rearm(now);
}

void CLogicalTimerManager::doUnregisterTimer(CLogicalTimer& timer) {
    if (timer.mExpiry == 0) {
        return;
    }
    erase(timer);
    // Kept: logical-mark-stays. The state is left as it is.
    timer.mExpiry = 0;
    timer.mPeriodNs = 0;
    rearm(timeSinceBias());
}

CLogicalTimerManager::TimerList::iterator CLogicalTimerManager::findSortedPlace(unsigned long long expiry) {
    unsigned post = mSignposts.countUpTo(expiry);
    TimerList::iterator place = post == 0 ? mSorted : TimerList::iteratorTo(mSignposts.at(post - 1));
    for (unsigned steps = 1; place != mTimers.end() && place->mExpiry <= expiry; ++place, ++steps) {
        if (steps % kStepsToSignpost == 0) {
            mSignposts.insert(post++, *place);
        }
    }
    return place;
}

void CLogicalTimerManager::erase(CLogicalTimer& timer) {
    mSignposts.remove(timer);
    const TimerList::iterator next = mTimers.erase(timer);
    if (mSorted == TimerList::iteratorTo(timer)) {
        mSorted = next;
    }
    ++mChanges;
}

void CLogicalTimerManager::release(CLogicalTimer& timer) {
    const CVQOptionalLock lock(mLock);
    doUnregisterTimer(timer);
    if (timer.mNext != nullptr) {
        erase(timer);  // Its handler destroys it.
    }
}

int CLogicalTimerManager::handleSignalledTimer() {
    const CVQOptionalLock lock(mLock);
    if (mTimers.isEmpty() || mInDispatch != 0) {
        return 0;
    }
    mInDispatch = 1;
    forgetFiredBefore();
    const unsigned long long now = timeSinceBias();
    int count = 0;
    for (TimerList::iterator cursor = mTimers.begin(); cursor != mTimers.end();) {
        CLogicalTimer& timer = *cursor++;
        if (timer.mState == CLogicalTimer::FIRED) {
            continue;
        }
        if (timer.mExpiry > now) {
            break;
        }
        markFired(timer);
        const unsigned changes = mChanges;
        timer.handleTimeout();
        ++count;
        // Kept: logical-second-element. Without a change all timers from the second to this one have fired.
        if (mChanges != changes && (cursor = mTimers.begin()) != mTimers.end()) {
            ++cursor;
        }
    }
    resort(now);
    mInDispatch = 0;
    rearm(now);
    return count;
}

void CLogicalTimerManager::forgetFiredBefore() {
    for (TimerList::iterator cursor = mTimers.begin(); mFiredBefore != 0 && cursor != mTimers.end(); ++cursor) {
        if (cursor->mState == CLogicalTimer::FIRED) {
            cursor->mState = CLogicalTimer::IDLE;
            --mFiredBefore;
        }
    }
    mFiredBefore = 0;
}

void CLogicalTimerManager::markFired(CLogicalTimer& timer) {
    // What it leaves behind in the sorted part has been passed over in this round, and stays in front of that.
    const TimerList::iterator fired = TimerList::iteratorTo(timer);
    TimerList::iterator passed;
    do {
        passed = mSorted++;
        mSignposts.remove(*passed);
    } while (passed != fired);
    timer.mExpiry = timer.mPeriodNs == 0 ? 0 : timer.mExpiry + timer.mPeriodNs;
    timer.mState = CLogicalTimer::FIRED;
}

void CLogicalTimerManager::resort(unsigned long long now) {
    TimerList moved;
    TimerList::iterator firstFired = moved.end();
    for (TimerList::iterator cursor = mTimers.begin(); cursor != mSorted;) {
        CLogicalTimer& timer = *cursor++;
        const bool hasFired = timer.mState == CLogicalTimer::FIRED;
        if (!hasFired && timer.mExpiry <= now) {
            continue;  // It is due, was passed over, and precedes what is sorted.
        }
        mTimers.erase(timer);
        timer.mState = timer.mExpiry == 0 ? CLogicalTimer::IDLE : CLogicalTimer::REINSERTED;
        if (timer.mExpiry == 0) {
            continue;
        }
        // A handler started the others: before those that fired are, which begin anew now.
        moved.insert(hasFired ? moved.end() : firstFired, timer);
        if (hasFired && firstFired == moved.end()) {
            firstFired = TimerList::iteratorTo(timer);
        }
    }
    // Those that their own handlers started anew are in the sorted part.
    for (TimerList::iterator cursor = mSorted; mFiredBefore != 0 && cursor != mTimers.end();) {
        CLogicalTimer& timer = *cursor++;
        if (timer.mState == CLogicalTimer::FIRED) {
            erase(timer);
            timer.mState = CLogicalTimer::REINSERTED;
            moved.insert(moved.end(), timer);
            --mFiredBefore;
        }
    }
    mFiredBefore = 0;
    mSorted = mTimers.begin();
    while (CLogicalTimer* const timer = moved.front()) {
        moved.erase(*timer);
        doRegisterTimer(*timer, now);
    }
}

void CLogicalTimerManager::rearm(unsigned long long now) {
    if (mInDispatch != 0) {
        return;
    }
    if (mTimers.isEmpty()) {
        cancel();
    } else {
        start(now);
    }
}

CLogicalTimerManager::CSignposts::~CSignposts() {
    VQMemory::release(mPosts);
}

unsigned CLogicalTimerManager::CSignposts::countUpTo(unsigned long long expiry) const {
    const auto isLater = [](unsigned long long time, const SPost& post) { return time < post.expiry; };
    return static_cast<unsigned>(std::upper_bound(mPosts, mPosts + mCount, expiry, isLater) - mPosts);
}

void CLogicalTimerManager::CSignposts::insert(unsigned index, CLogicalTimer& timer) {
    if (mCount == mCapacity && !grow()) {
        return;
    }
    std::memmove(mPosts + index + 1, mPosts + index, (mCount - index) * sizeof(SPost));
    mPosts[index] = {timer.mExpiry, &timer};
    ++mCount;
}

void CLogicalTimerManager::CSignposts::remove(const CLogicalTimer& timer) {
    for (unsigned index = countUpTo(timer.mExpiry); index-- > 0 && mPosts[index].expiry == timer.mExpiry;) {
        if (mPosts[index].timer == &timer) {
            --mCount;
            std::memmove(mPosts + index, mPosts + index + 1, (mCount - index) * sizeof(SPost));
            return;
        }
    }
}

bool CLogicalTimerManager::CSignposts::grow() {
    const unsigned capacity = mCapacity == 0 ? 16 : 2 * mCapacity;
    void* const block = VQMemory::realloc(mPosts, capacity * sizeof(SPost));
    if (block == nullptr) {
        return false;
    }
    mPosts = static_cast<SPost*>(block);
    mCapacity = capacity;
    return true;
}

bool CLogicalTimer::start(unsigned int timeMs, bool singleShot) {
    if (timeMs == 0 || mManager == nullptr) {
        return false;
    }
    mManager->registerTimer(*this, timeMs, singleShot);
    return true;
}

void CLogicalTimer::stop() {
    if (mManager != nullptr) {
        mManager->unregisterTimer(*this);
    }
}

void CLogicalTimer::release() {
    if (mManager != nullptr) {
        mManager->release(*this);
    }
}
