// CSamplerConfig: what a sampler reads, how often, and what of it. `sampler --help` describes the file.
//   Errors   `load` is false, and the problem is one line for the user.
//   Threads  one thread at a time.
#pragma once

#include <CVQConfigFileParser.h>
#include <CVQString.h>
#include <TVQVector.h>

struct SDevice {
    CVQString path;
    unsigned periodMs = 0;
    CVQString file;
};

struct SSeries {
    CVQString name;
    CVQString device;
    CVQString row;  // the first word of the lines that count; "*": all lines
    unsigned field = 0;
    char kind = 0;  // SSample::EKind
    unsigned scale = 1;
    CVQString unit;
};

class CSamplerConfig final : private CVQConfigFileParser::ICallback {
public:
    static constexpr unsigned kLongestPeriodMs = 4000;  // a periodic logical timer has 32 bits of nanoseconds

    bool load(const CVQString& fileName);
    const CVQString& getProblem() const { return mProblem; }

    const TVQVector<SDevice>& getDevices() const { return mDevices; }
    const TVQVector<SSeries>& getSeries() const { return mSeries; }

private:
    using Words = TVQVector<CVQString>;
    enum ESection : unsigned short { DEVICES, SERIES };

    bool processConfigFileEntry(unsigned short sectionId, const char* line) override;
    const char* addDevice(const Words& words);
    const char* addSeries(const Words& words);
    bool hasDevice(const CVQString& path) const;
    bool hasSeries(const CVQString& name) const;

    TVQVector<SDevice> mDevices;
    TVQVector<SSeries> mSeries;
    CVQString mProblem;
};
