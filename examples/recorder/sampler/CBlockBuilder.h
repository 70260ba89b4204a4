// CBlockBuilder: gathers samples into blocks and queues each that is full.
//   Units    sizes in bytes, the block's header included.
//   Threads  one thread at a time, but for the counts.
#pragma once

#include "sampler/CBlockQueue.h"
#include "shared/SSample.h"

#include <atomic>

class CBlockBuilder {
public:
    static constexpr unsigned kSmallestBlock = 256;  // has room for a sample of any size

    /// `sequence`: the number before that of the first block.
    CBlockBuilder(unsigned long long sampler, unsigned blockSize, CBlockQueue& queue, unsigned sequence = 0);

    void add(const SSample& sample);
    /// Queues what there is.
    void finish();

    unsigned long long getSampler() const { return mSampler; }
    unsigned getSampleCount() const { return mSamples; }
    /// Of samples for which the queue had no room.
    unsigned getLostCount() const { return mLost; }

private:
    unsigned long long mSampler;
    const unsigned mBlockSize;
    CBlockQueue& mQueue;
    unsigned mSequence;
    CVQByteStream mBody;
    unsigned mBodyCount = 0;
    std::atomic<unsigned> mSamples{0};
    std::atomic<unsigned> mLost{0};
};
