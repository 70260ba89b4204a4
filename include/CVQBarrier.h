// CVQBarrier: a number of threads wait for each other, round after round.
//   Shape    two sub-barriers that serve the rounds in turns, and the number of the present one. All plain 32-bit
//            words: made shared, the object may lie in shared memory.
//   Rounds   who is released may wait again at once: it enters the other sub-barrier. An arrival and the end of its
//            sub-barrier's round exclude each other, so that an arrival counts in the round that ends or in the
//            next, never in both or in none. Caught signals and armed time-outs end no wait.
//   Errors   none of its own; a barrier whose semaphores cannot be created is an assertion of VQSemaphoreAccess. A
//            barrier for 0 or 1 threads never blocks, and neither does one without semaphores; those of one for 0
//            threads cannot be created.
//   Threads  any thread, any process that maps it when shared. More threads than the barrier is for may use it:
//            each `threads` arrivals end a round. A participant that is killed before it arrives leaves its round
//            one short, until another one arrives in its place or the round is broken; one that is killed as it
//            sleeps has arrived, and is missed in the next round only. As with semaphores, one that holds the mutex
//            in that moment stops the others. Destroy a barrier when all have left it.
#pragma once

#include <CVQCountingSemaphore.h>

namespace VQPrivate {

/// One of the two rounds that a barrier takes turns with.
class VQ_EXPORT CVQSubBarrier : private CVQCountingSemaphore {
public:
    CVQSubBarrier(unsigned threads, bool shared);

    /// A semaphore that could not be created cannot hold threads back.
    bool blocks() const { return mThreshold > 1 && mHandle.valid != 0; }

    /// Arrives in the round of this sub-barrier, whose number is `index`, and waits for its end. False, and nothing
    /// has happened, when `current` says that another one serves.
    bool wait(unsigned char& current, unsigned char index);
    /// Ends the round now: all who have arrived are released. False as above.
    bool breakThrough(unsigned char& current, unsigned char index);

private:
    /// What the semaphore's count means here. A unit for each thread that sleeps would stay behind when one of them
    /// is killed, and release another in a later round; so they wait for a change of this instead.
    unsigned& roundsEnded() { return mHandle.count; }

    bool enter(const unsigned char& current, unsigned char index);
    void endRound(unsigned char& current, unsigned char index);

    unsigned mThreshold;  // arrivals that make a round
    unsigned mRemaining;  // arrivals that the present round still lacks
};

static_assert(sizeof(CVQSubBarrier) == 40, "processes share a barrier by its layout");

}  // namespace VQPrivate

class VQ_EXPORT CVQBarrier {
public:
    explicit CVQBarrier(unsigned threads, bool shared = false);
    CVQBarrier(const CVQBarrier&) = delete;
    CVQBarrier& operator=(const CVQBarrier&) = delete;

    /// Returns when `threads` threads have called it in the same round. The last of them does not block.
    void wait();
    /// Releases the threads that wait; the next round needs all arrivals again.
    void breakThrough();

private:
    VQPrivate::CVQSubBarrier mSub[2];
    unsigned char mCurrent;
};

static_assert(sizeof(CVQBarrier) == 84, "processes share a barrier by its layout");
