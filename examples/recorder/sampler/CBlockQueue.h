// CBlockQueue: finished blocks on their way from the thread that samples to the one that sends.
//   Errors   a queue that is full refuses blocks: the sampler goes on, and the recording will show what it misses.
//   Threads  any thread.
#pragma once

#include <CVQByteStream.h>
#include <CVQMutex.h>
#include <CVQWaitCondition.h>
#include <TVQQueue.h>

struct SFinishedBlock {
    CVQByteStream bytes;
    unsigned sequence = 0;
    unsigned sampleCount = 0;
};

class CBlockQueue {
public:
    explicit CBlockQueue(unsigned longest) : mLongest(longest) {}

    bool push(const SFinishedBlock& block);
    /// Waits for the first block, which stays. False at the end: the queue is closed, and empty or out of time.
    bool waitForFront(SFinishedBlock& block);
    void pop();
    /// Lets the sender wait before it tries again, or until the queue changes.
    void pause(int ms);
    /// No more blocks will come; those that are there have `patienceMs` to be taken.
    void close(int patienceMs);

    unsigned getLength();

private:
    bool isOver() const;

    const unsigned mLongest;
    CVQMutex mMutex{/*unlocked*/ true, CVQMutex::NON_RECURSIVE};
    CVQWaitCondition mChange;
    TVQQueue<SFinishedBlock> mBlocks;
    unsigned long long mEnd = ~0ULL;  // monotonic nanoseconds, once the queue is closed
};
