// CSender: sends blocks, one at a time, until the recorder has each.
//   Purpose  a block is put into a segment of shared memory; what travels is the segment's handle. A block that is not
//            accepted before the deadline, for whatever reason, is sent again: the recorder knows those that it has.
//   Errors   the first failure and the next success are logged.
//   Threads  `run` is the body of a thread. The counts may be asked for by any thread.
#pragma once

#include "sampler/CBlockQueue.h"
#include "shared/CServiceFile.h"

#include <CVQReferencedSharedMemory.h>
#include <CVQThreadCtrl.h>
#include <TVQRefCountPointer.h>
#include <atomic>

class CSender final : public CVQThreadCtrl::IRunnable {
public:
    CSender(const CVQPath& folder, int deadlineMs, CBlockQueue& queue);
    ~CSender() override;

    /// False, with `errno`, when another sampler (EAGAIN, EACCES) serves this folder, or without shared memory.
    bool open(unsigned long long sampler, unsigned blockSize);
    /// Writes a line on standard output for each block that was accepted.
    void tellEach() { mTellsEach = true; }

    /// Returns when the queue has come to its end.
    void run() override;

    unsigned getBlockCount() const { return mBlocks; }
    unsigned getSampleCount() const { return mSamples; }

private:
    bool deliver(const SFinishedBlock& block);
    bool connect();
    void disconnect();
    void note(bool isGood);
    void count(const SFinishedBlock& block);

    const CVQPath mFolder;
    const int mDeadlineMs;
    CBlockQueue& mQueue;
    CServiceFile mFile;
    CVQString mSegmentName;
    TVQRefCountPointer<CVQReferencedSharedMemory> mSegment;
    int mConnection = -1;
    bool mIsGood = true;
    bool mTellsEach = false;
    std::atomic<unsigned> mBlocks{0};
    std::atomic<unsigned> mSamples{0};
};
