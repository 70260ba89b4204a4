// CLogicalTimerManager, CLogicalTimer: any number of timers on one kernel timer.
//   Use      class CRetry : public CLogicalTimer { ... void onTimeout() override { ... } };
//            CLogicalTimerManager manager(100, /*threadSafe*/ true);
//            CRetry retry(manager);
//            retry.start(500, /*singleShot*/ true);
//            while (isRunning) manager.performWork();
//   Units    milliseconds in calls; inside nanoseconds since VQOperatingSystem::getMonotonicBias(), 64 bits.
//   Shape    the manager is the list of the registered timers, the one that is due first in front, and what it has
//            of the kernel; no virtual table. A timer is a virtual table, the list's links, its manager, and three
//            numbers. Table: both destructors, onTimeout.
//   Order    timers that are due at the same time fire in the order in which they were started, where each call of
//            a periodic one is a start anew. A round calls each due timer once, however late it is; a periodic one
//            counts on from its last expiry, not from now. When the round ends, all that fired are taken out first
//            and then find their new places: the list is in the order of the expiries whatever these are.
//   Rounds   after each call the round goes on at the second timer of the list. So when a handler stops the timer
//            in front, its own or another, the one behind is left for the next round, which follows at once.
//   Cost     a start finds its place by a search among signposts, of which there is one for every few dozens of
//            timers, and a few steps from there. They are memory of the manager, 16 bytes each; without memory all
//            steps are taken from the front.
//   Errors   a kernel object that is refused is an assertion. A receive that fails, as it does without a channel,
//            ends the process through VQError::fatalError, unless it was interrupted. A manager outlives its
//            timers: destroying one that has registered ones is an assertion; these are let go, and can be
//            destroyed, but not be started, afterwards.
//   Threads  performWork() is for one thread, which calls the handlers. A manager made thread-safe has its timers
//            started and stopped by any thread, except by handlers: these run under its lock, so no call is under
//            way when stop() returns. Another thread stops a timer before it destroys it: the timer's own
//            destructor, which stops it too, comes after that of the class with the handler. A manager made without
//            the lock is for its one thread alone, and its handlers may start, stop and destroy any of its timers:
//            one that fired and is started again is due anew, one that was stopped or destroyed is not called.
//            A round within a round, from a handler, calls nobody. Handlers may not throw.
//   Kept     logical-period-wraps: a period has 32 bits of nanoseconds, so one of 4295 ms or more is cut to its
//            remainder modulo 2^32 ns; the first expiry is right. A remainder of 0 makes a single-shot timer.
//            logical-second-element: see Rounds.
//            logical-mark-stays: a timer that is stopped in the round in which it fired keeps its mark until
//            a round begins while it is registered. A round that comes to a timer which a handler started ends
//            there, as that is not due; but if it still has the mark, the round goes on behind it.
#pragma once

#include <CVQCriticalSection.h>
#include <TVQIntrusiveList.h>
#include <TVQOptional.h>
#include <VQExport.h>

class CLogicalTimer;

class VQ_EXPORT CLogicalTimerManager {
public:
    /// `workTimeoutMs`: how long one performWork() waits; negative: without limit; 0 becomes 1.
    CLogicalTimerManager(int workTimeoutMs, bool threadSafe);
    ~CLogicalTimerManager();
    CLogicalTimerManager(const CLogicalTimerManager&) = delete;
    CLogicalTimerManager& operator=(const CLogicalTimerManager&) = delete;

    /// Waits until a timer is due and calls those that are. How many were called; 0 also after the time-out.
    int performWork();

    // For CLogicalTimer::start and stop.
    void registerTimer(CLogicalTimer& timer, unsigned int timeMs, bool singleShot);
    void unregisterTimer(CLogicalTimer& timer);

private:
    friend class CLogicalTimer;

    using TimerList = TVQIntrusiveList<CLogicalTimer, VQIntrusive::TVQListBaseHookAccessor<CLogicalTimer>>;

    /// Some timers of the sorted part of the list, in its order: where to begin a search.
    class CSignposts {
    public:
        CSignposts() = default;
        ~CSignposts();
        CSignposts(const CSignposts&) = delete;
        CSignposts& operator=(const CSignposts&) = delete;

        /// The number of signposts that are not later than `expiry`.
        unsigned countUpTo(unsigned long long expiry) const;
        CLogicalTimer& at(unsigned index) const { return *mPosts[index].timer; }
        /// Without memory nothing happens.
        void insert(unsigned index, CLogicalTimer& timer);
        /// Takes the timer out, if it is one of them. It still has the expiry that it was put in with.
        void remove(const CLogicalTimer& timer);

    private:
        struct SPost {
            unsigned long long expiry;
            CLogicalTimer* timer;
        };

        bool grow();

        SPost* mPosts = nullptr;
        unsigned mCount = 0;
        unsigned mCapacity = 0;
    };

    void create();
    void destroy();
    void doRegisterTimer(CLogicalTimer& timer, unsigned long long now);
    void doUnregisterTimer(CLogicalTimer& timer);
    TimerList::iterator findSortedPlace(unsigned long long expiry);
    void erase(CLogicalTimer& timer);
    void release(CLogicalTimer& timer);
    int handleSignalledTimer();
    void forgetFiredBefore();
    void markFired(CLogicalTimer& timer);
    void resort(unsigned long long now);
    void rearm(unsigned long long now);
    void start(unsigned long long now);
    void cancel();

    TimerList mTimers;
    int mWorkTimeoutMs;
    int mChannel = -1;
    int mConnection = -1;
    int mTimer = -1;
    unsigned char mInDispatch = 0;
    TVQOptional<CVQCriticalSection, 8u, 4u> mLock;

    // From here on the list is sorted. What stands before it has fired in this round, or was put between what has.
    TimerList::iterator mSorted;
    CSignposts mSignposts;
    unsigned mFiredBefore = 0;            // timers there, at most, that still say that they fired
    unsigned mChanges = 0;                // of the list, so that a round knows whether a handler made any
    unsigned long long mArmedExpiry = 0;  // what the kernel timer is set to; 0 when it is not
};

/// One timer of a CLogicalTimerManager: derive from it and write onTimeout().
class VQ_EXPORT CLogicalTimer : public VQIntrusive::SVQListBaseHook {
public:
    explicit CLogicalTimer(CLogicalTimerManager& manager) : mManager(&manager) {}
    virtual ~CLogicalTimer() { release(); }
    CLogicalTimer(const CLogicalTimer&) = delete;
    CLogicalTimer& operator=(const CLogicalTimer&) = delete;

    /// Called by performWork() when the timer is due.
    virtual void onTimeout() = 0;

    /// Fires `timeMs` from now, and with `singleShot` false then every `timeMs`. A timer that is registered starts
    /// anew. For 0 nothing is done, and the result is false; so it is without a manager.
    bool start(unsigned int timeMs, bool singleShot);
    void stop();

    void handleTimeout() { onTimeout(); }

private:
    friend class CLogicalTimerManager;

    /// What became of the timer in the round that goes on. REINSERTED, which nobody asks for, lasts to the next
    /// call.
    enum State : unsigned { IDLE, FIRED, REINSERTED };

    void release();

    CLogicalTimerManager* mManager;  // null when it has gone before its timer
    unsigned long long mExpiry = 0;  // 0: not registered
    unsigned int mPeriodNs = 0;      // 0: single-shot
    State mState = IDLE;
};
