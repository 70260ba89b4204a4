#include "sampler/CSender.h"

#include "shared/Message.h"

#include <VQChannelAccess.h>
#include <VQOperatingSystem.h>
#include <VQSharedMemoryAccess.h>
#include <VQSyslog.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/neutrino.h>
#include <unistd.h>

namespace {

constexpr int kRetryMs = 100;

}

CSender::CSender(const CVQPath& folder, int deadlineMs, CBlockQueue& queue)
    : mFolder(folder), mDeadlineMs(deadlineMs), mQueue(queue) {
}

CSender::~CSender() {
    disconnect();
    // A recorder that was killed while it held the segment is still counted as one of its users.
    mSegment = nullptr;
    if (!mSegmentName.isEmpty()) {
        VQSharedMemoryAccess::unlink(mSegmentName.c_str());
        mFile.write("");
    }
}

bool CSender::open(unsigned long long sampler, unsigned blockSize) {
    if (!mFile.own(mFolder / Message::kSamplerFile)) {
        return false;
    }
    if (const CVQString left = mFile.read(); !left.isEmpty()) {
        VQSharedMemoryAccess::unlink(left.c_str());  // by a sampler that was killed
    }
    mSegmentName.format("/sampler-%d-%llx", VQOperatingSystem::getCurrentPID(), sampler);
    if (!mFile.write(mSegmentName)) {  // first, so that no moment is left in which a kill leaves a segment for good
        return false;
    }
    mSegment = CVQReferencedSharedMemory::create(mSegmentName.c_str(), blockSize);
    return !mSegment.isNull();
}

void CSender::run() {
    CVQThreadCtrl::setThreadName(0, "sender");
    for (SFinishedBlock block; mQueue.waitForFront(block);) {
        const bool isGood = deliver(block);
        note(isGood);
        if (isGood) {
            count(block);
            mQueue.pop();
        } else {
            disconnect();
            mQueue.pause(kRetryMs);
        }
    }
}

bool CSender::deliver(const SFinishedBlock& block) {
    if (!connect()) {
        return false;
    }
    const unsigned size = block.bytes.getLength();
    std::memcpy(mSegment->getDataPtr(), block.bytes.getData(), size);
    CVQByteStream message;
    message << mSegment << size;
    const iovec parts = {const_cast<unsigned char*>(message.getData()), message.getLength()};
    return VQChannelAccess::sendv(mConnection, &parts, 1, nullptr, 0, mDeadlineMs) >= 0;
}

/// To where the recorder is now: one that was started again is another process.
bool CSender::connect() {
    if (mConnection != -1) {
        return true;
    }
    int process = 0;
    int channel = 0;
    const CVQString line = CServiceFile::readLine(mFolder / Message::kRecorderFile);
    if (std::sscanf(line.c_str(), "%d %d", &process, &channel) != 2) {
        errno = ESRCH;
        return false;
    }
    return VQChannelAccess::attach(mConnection, channel, process, /*this node*/ 0);
}

void CSender::disconnect() {
    if (mConnection != -1) {
        ConnectDetach(mConnection);
    }
    mConnection = -1;
}

void CSender::note(bool isGood) {
    if (mIsGood && !isGood) {
        VQSyslog::logMsg(0, VQSyslog::WARNING, "sampler: the recorder does not take blocks (%s); they wait",
                         std::strerror(errno));
    }
    if (!mIsGood && isGood) {
        VQSyslog::logMsg(0, VQSyslog::NOTICE, "sampler: the recorder takes blocks again");
    }
    mIsGood = isGood;
}

void CSender::count(const SFinishedBlock& block) {
    ++mBlocks;
    mSamples += block.sampleCount;
    if (mTellsEach) {
        std::printf("block %u accepted, %u samples\n", block.sequence, block.sampleCount);
        std::fflush(stdout);
    }
}
