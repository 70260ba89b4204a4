#include "sampler/CSampler.h"

#include <VQOperatingSystem.h>
#include <cerrno>
#include <cstring>

namespace {

constexpr int kWorkTimeoutMs = 100;  // the longest that the timers' thread takes to see that it is over

unsigned long long microsNow() {
    return VQOperatingSystem::getClockValue(CLOCK_REALTIME) / 1000;
}

}  // namespace

void CSampler::CTimerThread::run() {
    CVQThreadCtrl::setThreadName(0, "timers");
    while (!mIsStopped) {
        mManager.performWork();
    }
}

CSampler::CSampler(const CSamplerConfig& config, const SSamplerOptions& options)
    : mOptions(options), mQueue(options.waitingBlocks), mBuilder(microsNow(), options.blockSize, mQueue),
      mSender(options.folder, static_cast<int>(options.deadlineMs), mQueue),
      mTimers(kWorkTimeoutMs, /*threadSafe*/ true), mFinishTimer(mTimers, mBuilder), mTimerThread(mTimers) {
    for (const SDevice& device : config.getDevices()) {
        addDevice(device, config.getSeries());
    }
}

void CSampler::addDevice(const SDevice& device, const TVQVector<SSeries>& allSeries) {
    mServers.emplace_back(device.path, device.file);
    mProbes.emplace_back(mTimers, device, mBuilder);
    for (const SSeries& series : allSeries) {
        if (series.device == device.path) {
            mProbes.back().addSeries(series);
        }
    }
}

bool CSampler::start(CVQString& problem) {
    for (CProbe& probe : mProbes) {
        if (!probe.check(problem)) {
            return false;
        }
    }
    if (!mSender.open(mBuilder.getSampler(), mOptions.blockSize)) {
        const bool isTaken = errno == EAGAIN || errno == EACCES;
        const char* const reason = isTaken ? "another sampler records into this folder" : std::strerror(errno);
        problem = mOptions.folder.getString() + ": " + reason;
        return false;
    }
    if (mOptions.tellsEach) {
        mSender.tellEach();
    }
    mSenderThreadId = CVQThreadCtrl::startThread(mSender);
    mTimerThreadId = CVQThreadCtrl::startThread(mTimerThread);
    mFinishTimer.start(mOptions.blockAgeMs, /*singleShot*/ false);
    for (CProbe& probe : mProbes) {
        probe.start();
    }
    if (mSenderThreadId == 0 || mTimerThreadId == 0) {
        problem = "cannot start a thread";
        stop();
        return false;
    }
    return true;
}

void CSampler::stop() {
    for (CProbe& probe : mProbes) {
        probe.stop();
    }
    mFinishTimer.stop();
    mTimerThread.stop();
    if (mTimerThreadId != 0) {
        CVQThreadCtrl::join(mTimerThreadId);
    }
    mBuilder.finish();
    mQueue.close(static_cast<int>(2 * mOptions.deadlineMs));
    if (mSenderThreadId != 0) {
        CVQThreadCtrl::join(mSenderThreadId);
    }
}

CSampler::SCounts CSampler::getCounts() {
    return {mBuilder.getSampleCount(), mSender.getSampleCount(), mSender.getBlockCount(), mQueue.getLength()};
}
