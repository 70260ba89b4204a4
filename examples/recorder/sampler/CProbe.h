// CProbe: reads one device, on its period, and makes a sample of each of its series.
//   Errors   what cannot be read or is not there is logged once, until it can be read again; there is no sample then.
//   Threads  the one that drives the timers; before these are started, the one that made it.
#pragma once

#include "sampler/CBlockBuilder.h"
#include "sampler/CSamplerConfig.h"

#include <CLogicalTimerManager.h>
#include <CVQIODevice.h>

class CProbe final : public CLogicalTimer {
public:
    CProbe(CLogicalTimerManager& manager, const SDevice& device, CBlockBuilder& builder);

    void addSeries(const SSeries& series) { mSeries.push_back(series); }
    /// A first look: false, with a line for the user, when a sample cannot be had.
    bool check(CVQString& problem);
    bool start() { return CLogicalTimer::start(mDevice.periodMs, /*singleShot*/ false); }

    void onTimeout() override;

private:
    bool read(CVQString& problem);
    bool extract(const SSeries& series, SSample& sample, CVQString& problem) const;

    const SDevice mDevice;
    CBlockBuilder& mBuilder;
    TVQVector<SSeries> mSeries;
    TVQVector<char> mText;  // zero-terminated
    bool mIsGood = true;
};
