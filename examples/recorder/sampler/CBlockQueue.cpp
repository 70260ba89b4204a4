#include "sampler/CBlockQueue.h"

#include <VQOperatingSystem.h>
#include <mutex>

using CGuard = std::lock_guard<CVQMutex>;

namespace {

constexpr unsigned long long kOpen = ~0ULL;

}

bool CBlockQueue::push(const SFinishedBlock& block) {
    const CGuard guard(mMutex);
    const bool hasRoom = static_cast<unsigned>(mBlocks.size()) < mLongest;
    if (hasRoom) {
        mBlocks.push(block);
        mChange.signal();
    }
    return hasRoom;
}

bool CBlockQueue::waitForFront(SFinishedBlock& block) {
    const CGuard guard(mMutex);
    while (mBlocks.isEmpty() && mEnd == kOpen) {
        mChange.wait(mMutex);
    }
    if (isOver()) {
        return false;
    }
    block = *mBlocks.front();
    return true;
}

void CBlockQueue::pop() {
    const CGuard guard(mMutex);
    mBlocks.pop();
}

void CBlockQueue::pause(int ms) {
    const CGuard guard(mMutex);
    mChange.wait(mMutex, ms);
}

void CBlockQueue::close(int patienceMs) {
    const CGuard guard(mMutex);
    mEnd = VQOperatingSystem::calculateKernelTimeout(patienceMs);
    mChange.broadcast();
}

unsigned CBlockQueue::getLength() {
    const CGuard guard(mMutex);
    return static_cast<unsigned>(mBlocks.size());
}

bool CBlockQueue::isOver() const {
    return mEnd != kOpen && (mBlocks.isEmpty() || VQOperatingSystem::getMonotonicTime() >= mEnd);
}
