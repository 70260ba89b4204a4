#include "sampler/CBlockBuilder.h"

#include "shared/Block.h"

#include <VQSyslog.h>

static_assert(CBlockBuilder::kSmallestBlock >= SBlock::kHeaderSize + SSample::kLargestSize, "room for a sample");

CBlockBuilder::CBlockBuilder(unsigned long long sampler, unsigned blockSize, CBlockQueue& queue, unsigned sequence)
    : mSampler(sampler), mBlockSize(blockSize), mQueue(queue), mSequence(sequence), mBody(blockSize) {
}

void CBlockBuilder::add(const SSample& sample) {
    if (SBlock::kHeaderSize + mBody.getLength() + SSample::kLargestSize > mBlockSize) {
        finish();
    }
    mBody << sample;
    ++mBodyCount;
    ++mSamples;
}

void CBlockBuilder::finish() {
    if (mBodyCount == 0) {
        return;
    }
    if (++mSequence == 0) {  // all numbers are used up: it goes on as another sampler
        ++mSampler;
        mSequence = 1;
    }
    if (!mQueue.push({makeBlock(mSampler, mSequence, mBodyCount, mBody), mSequence, mBodyCount})) {
        mLost += mBodyCount;
        VQSyslog::logMsg(0, VQSyslog::ERROR, "sampler: no room for block %u; its %u samples are lost", mSequence,
                         mBodyCount);
    }
    mBody = CVQByteStream();  // the storage stays
    mBodyCount = 0;
}
