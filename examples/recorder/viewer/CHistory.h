// CHistory: a recording, read back: what each series was over time, and whether the recording is whole.
//   Units    times in microseconds since 1970; values in the series' unit, counters in what they add in a second.
//   Damage   what cannot be read is left out and told of.
//   Threads  one thread at a time.
#pragma once

#include "shared/Block.h"

#include <CVQPath.h>
#include <TVQMap.h>
#include <TVQVector.h>

struct SPoint {
    unsigned long long micros;
    double value;
    bool isJoined;  // a line leads here from the point before; otherwise there was nothing to be had between
};

struct SSeriesHistory {
    CVQString name;
    CVQString unit;
    unsigned samples = 0;
    TVQVector<SPoint> points;
    double smallest = 0;
    double largest = 0;
    double mean = 0;
    double last = 0;
};

class CHistory {
public:
    /// Reads a file, or all files of a folder. False, with a line for the user, when there is nothing to read.
    bool load(const CVQPath& path, CVQString& problem);
    /// Takes the bytes for those of a file of that name.
    void loadBytes(const char* name, const unsigned char* bytes, unsigned size);

    const TVQVector<SSeriesHistory>& getSeries() const { return mSeries; }
    unsigned getSamplerCount() const { return static_cast<unsigned>(mSamplers.size()); }
    /// When samplers began that were not the first.
    const TVQVector<unsigned long long>& getRestarts() const { return mRestarts; }
    /// One line for each damage.
    const TVQVector<CVQString>& getDamages() const { return mDamages; }

    unsigned long long getBegin() const { return mBegin; }
    unsigned long long getEnd() const { return mEnd; }
    unsigned getFileCount() const { return mFiles; }
    unsigned long long getByteCount() const { return mBytes; }
    unsigned getBlockCount() const { return mBlocks; }
    unsigned getSampleCount() const { return mSamples; }
    /// Blocks that samplers made and could not get rid of, as their numbers tell.
    unsigned getMissingCount() const { return mMissing; }
    /// Blocks that are there more than once.
    unsigned getDoubledCount() const { return mDoubled; }

private:
    struct SRaw {
        CVQString unit;
        char kind = SSample::GAUGE;
        TVQVector<SSample> samples;
    };

    bool readFile(const CVQPath& path, bool isFirst, CVQString& problem);
    void readBytes(const char* name, const unsigned char* bytes, unsigned size, bool isFirst);
    void readBlock(const SBlock& block, bool hasForerunners, const char* file, unsigned offset);
    void checkSequence(const SBlock& block, bool hasForerunners);
    void addSample(const SSample& sample);
    void addDamage(const char* file, unsigned offset, const char* what);
    void finish();

    TVQMap<unsigned long long, unsigned> mSamplers;  // with their last blocks' numbers
    TVQMap<CVQString, SRaw> mRaw;
    TVQVector<SSeriesHistory> mSeries;
    TVQVector<unsigned long long> mRestarts;
    TVQVector<CVQString> mDamages;
    unsigned long long mBegin = ~0ULL;
    unsigned long long mEnd = 0;
    unsigned long long mBytes = 0;
    unsigned mFiles = 0;
    unsigned mBlocks = 0;
    unsigned mSamples = 0;
    unsigned mMissing = 0;
    unsigned mDoubled = 0;
};

/// The course of a series in `count` steps of equal length between two times: the mean of each step, what lies on the
/// line between two points, or not-a-number where there is neither.
TVQVector<double> resample(const SSeriesHistory& series, unsigned long long begin, unsigned long long end,
                           unsigned count);
