#include "sampler/CProbe.h"

#include "sampler/Fields.h"

#include <VQOperatingSystem.h>
#include <VQSyslog.h>
#include <cstring>

namespace {

constexpr int kReadTimeoutMs = 100;
constexpr int kChunk = 4096;
constexpr int kLongestText = 1 << 20;

CVQDateAndTime now() {
    CVQDateAndTime time;
    time.setMicroseconds(VQOperatingSystem::getClockValue(CLOCK_REALTIME) / 1000);
    return time;
}

}  // namespace

CProbe::CProbe(CLogicalTimerManager& manager, const SDevice& device, CBlockBuilder& builder)
    : CLogicalTimer(manager), mDevice(device), mBuilder(builder) {
}

bool CProbe::check(CVQString& problem) {
    bool isGood = read(problem);
    for (const SSeries& series : mSeries) {
        SSample sample;
        isGood = isGood && extract(series, sample, problem);
    }
    return isGood;
}

void CProbe::onTimeout() {
    CVQString problem;
    bool isGood = read(problem);
    SSample sample;
    sample.time = now();
    for (int i = 0; isGood && i < mSeries.size(); ++i) {
        isGood = extract(mSeries[i], sample, problem);
        if (isGood) {
            mBuilder.add(sample);
        }
    }
    if (mIsGood && !isGood) {
        VQSyslog::logMsg(0, VQSyslog::ERROR, "sampler: %s", problem.c_str());
    }
    mIsGood = isGood;
}

/// The device's text, as it is now.
bool CProbe::read(CVQString& problem) {
    CVQIODevice device;
    int length = 0;
    int got = device.open(mDevice.path.c_str(), CVQIODevice::ACCESS_READ) ? 1 : -1;
    while (got > 0 && length < kLongestText) {
        if (mText.size() < length + kChunk + 1) {
            mText.resize(length + kChunk + 1);
        }
        got = device.read(mText.data() + length, kChunk, kReadTimeoutMs);
        length += got > 0 ? got : 0;
    }
    const char* const reason =
        length < kLongestText ? std::strerror(VQOperatingSystem::getLastError()) : "too long a text";
    const bool isGood = got == 0 && device.getLastError() == CVQIODevice::STATE_SUCCESS;
    if (!isGood) {
        problem = mDevice.path + " (" + mDevice.file + "): " + reason;
    }
    device.close();
    if (isGood) {
        mText[length] = '\0';
    }
    return isGood;
}

bool CProbe::extract(const SSeries& series, SSample& sample, CVQString& problem) const {
    sample.series = series.name;
    sample.unit = series.unit;
    sample.kind = series.kind;
    const bool isGood =
        sumField(mText.data(), series.row, series.field, sample.thousandths) &&
        !__builtin_mul_overflow(sample.thousandths, static_cast<long long>(series.scale), &sample.thousandths);
    if (!isGood) {
        problem.format("series %s: %s has no number in field %u of a row \"%s\"", series.name.c_str(),
                       mDevice.file.c_str(), series.field, series.row.c_str());
    }
    return isGood;
}
