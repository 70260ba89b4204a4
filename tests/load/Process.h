// Process: what the server and the workers have in common: threads in a storm of signals, an inventory of what the
// process holds, and the work that stays within the process.
#pragma once

#include "Board.h"

#include <CLogicalTimerManager.h>
#include <CTimerManager.h>
#include <CVQBarrier.h>
#include <CVQCountingSemaphore.h>
#include <CVQCriticalSection.h>
#include <CVQMutex.h>
#include <CVQString.h>
#include <CVQThreadCtrl.h>
#include <CVQWaitCondition.h>
#include <functional>
#include <memory>
#include <random>
#include <vector>

namespace load {

/// Who one is: which process, and which of its starts.
struct SSelf {
    SBoard& board;
    int process;
    unsigned generation;
    SPlace& place;
};

/// While it lives, every signal of the storm is counted on the board, and ends what it interrupts. Later ones are
/// ignored.
class CStormCount {
public:
    explicit CStormCount(SBoard& board);
    ~CStormCount();
    CStormCount(const CStormCount&) = delete;
    CStormCount& operator=(const CStormCount&) = delete;
};

/// A thread of the load. Signals hit it every millisecond.
class CLoadThread : private CVQThreadCtrl::IRunnable {
public:
    CLoadThread(const SSelf& self, int index, std::function<void(Number& steps)> body);
    ~CLoadThread() override;
    CLoadThread(const CLoadThread&) = delete;
    CLoadThread& operator=(const CLoadThread&) = delete;

private:
    void run() override;

    SBoard& mBoard;
    Number& mSteps;
    std::function<void(Number& steps)> mBody;
    int mId;
};

/// What a process holds. It must be the same before and after a life. The RAM watcher's tables, which the first vector
/// makes, are there from the first inventory on, whether or not a life had a vector before.
struct SInventory {
    unsigned heapBytes;  // by the allocator's own account
    unsigned watched;    // instances that the RAM watcher knows
    int descriptors, threads, mappings;

    static SInventory take();
    /// When nothing changes any more: for a moment a thread that was joined is still there.
    static SInventory takeSettled();
    /// Complains about everything that is not as it was. What ends by itself gets a second to do so.
    void compare(const SSelf& self) const;

    bool operator==(const SInventory& other) const {
        return heapBytes == other.heapBytes && watched == other.watched && descriptors == other.descriptors &&
               threads == other.threads && mappings == other.mappings;
    }
};

/// Two threads that hand texts over, a batch a round: through a ring with semaphores, then under a condition, then
/// they meet at a barrier. Each text comes once and in order.
class CHandOver {
public:
    explicit CHandOver(SBoard& board) : mBoard(board) {}

    void produceBatch(std::mt19937& random);
    void consumeBatch();

private:
    static constexpr unsigned kRing = 8, kBatch = 32;

    SBoard& mBoard;
    CVQCountingSemaphore mFree{static_cast<int>(kRing), static_cast<int>(kRing)},
        mFilled{0, static_cast<int>(kRing)};
    CVQCriticalSection mLock;
    CVQString mRing[kRing];
    unsigned mProduced = 0, mConsumed = 0;

    CVQMutex mMutex{/*unlocked*/ true, CVQMutex::NON_RECURSIVE};
    CVQWaitCondition mChanged;
    bool mIsOffered = false;
    CVQString mOffer;

    CVQBarrier mBarrier{2};
};

/// Timers of both kinds, for one thread to drive; others start and stop some of them meanwhile.
class CTimers {
public:
    explicit CTimers(SBoard& board) : mBoard(board) {}

    /// Makes managers and timers, drives them for a while, accounts for each expiry, and takes them down.
    void live(Number& steps, const std::function<bool()>& isStopped);
    /// From any other thread.
    void disturb(std::mt19937& random);

private:
    class CCounted;
    class CCountedKernel;
    struct SBatch;

    SBoard& mBoard;
    CVQMutex mMutex{/*unlocked*/ true, CVQMutex::NON_RECURSIVE};
    SBatch* mBatch = nullptr;
};

/// Strings and buffers that threads share and change.
class CTexts {
public:
    explicit CTexts(SBoard& board) : mBoard(board) {}
    void work(std::mt19937& random);

private:
    SBoard& mBoard;
    CVQCriticalSection mLock;
    CVQString mShared{"0"};
};

}  // namespace load
