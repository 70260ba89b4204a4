// CSampler: the devices, the timers that read them, and the two threads: one samples, one sends.
//   Threads  one thread at a time, but for the counts.
#pragma once

#include "sampler/CBlockBuilder.h"
#include "sampler/CFileDeviceServer.h"
#include "sampler/CProbe.h"
#include "sampler/CSender.h"

#include <atomic>
#include <list>

struct SSamplerOptions {
    CVQPath folder;
    unsigned blockSize = 0;
    unsigned blockAgeMs = 0;
    unsigned deadlineMs = 0;
    unsigned waitingBlocks = 0;
    bool tellsEach = false;
};

class CSampler {
public:
    struct SCounts {
        unsigned samples;
        unsigned acceptedSamples;
        unsigned acceptedBlocks;
        unsigned waitingBlocks;
    };

    CSampler(const CSamplerConfig& config, const SSamplerOptions& options);

    /// Begins. False, with a line for the user, when a device cannot be read, or the threads cannot be had.
    bool start(CVQString& problem);
    /// Stops sampling, then waits until all blocks were accepted; of a recorder that is away, for two deadlines.
    void stop();

    SCounts getCounts();

private:
    /// Drives the timers.
    class CTimerThread final : public CVQThreadCtrl::IRunnable {
    public:
        explicit CTimerThread(CLogicalTimerManager& manager) : mManager(manager) {}
        void run() override;
        void stop() { mIsStopped = true; }

    private:
        CLogicalTimerManager& mManager;
        std::atomic<bool> mIsStopped{false};
    };

    /// Sends on what has waited long enough for the rest of its block.
    class CFinishTimer final : public CLogicalTimer {
    public:
        CFinishTimer(CLogicalTimerManager& manager, CBlockBuilder& builder)
            : CLogicalTimer(manager), mBuilder(builder) {}
        void onTimeout() override { mBuilder.finish(); }

    private:
        CBlockBuilder& mBuilder;
    };

    void addDevice(const SDevice& device, const TVQVector<SSeries>& allSeries);

    const SSamplerOptions mOptions;
    CBlockQueue mQueue;
    CBlockBuilder mBuilder;
    CSender mSender;
    CLogicalTimerManager mTimers;
    CFinishTimer mFinishTimer;
    std::list<CFileDeviceServer> mServers;
    std::list<CProbe> mProbes;
    CTimerThread mTimerThread;
    int mTimerThreadId = 0;
    int mSenderThreadId = 0;
};
