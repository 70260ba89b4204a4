#include "sampler/CSamplerConfig.h"

#include "shared/InputFile.h"
#include "shared/SSample.h"

#include <VQStringUtilities.h>
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

bool readNumber(const CVQString& word, unsigned smallest, unsigned largest, unsigned& number) {
    char* end = nullptr;
    errno = 0;
    const unsigned long long value = std::strtoull(word.c_str(), &end, 10);
    const bool isNumber = word.c_str()[0] >= '0' && word.c_str()[0] <= '9' && *end == '\0' && errno == 0;
    number = static_cast<unsigned>(value);
    return isNumber && value >= smallest && value <= largest;
}

bool readKind(const CVQString& word, char& kind) {
    kind = word == CVQString("counter") ? SSample::COUNTER : SSample::GAUGE;
    return kind == SSample::COUNTER || word == CVQString("gauge");
}

}  // namespace

bool CSamplerConfig::load(const CVQString& fileName) {
    CVQConfigFileParser parser;
    parser.addSectionCallback("devices", DEVICES, this);
    parser.addSectionCallback("series", SERIES, this);
    CVQFileStatus status;
    if (!isReadableFile(fileName, status) || !parser.parse(fileName)) {
        mProblem = std::strerror(errno);
    } else if (mProblem.isEmpty() && mSeries.isEmpty()) {
        mProblem = "it names no series";
    }
    return mProblem.isEmpty();
}

bool CSamplerConfig::processConfigFileEntry(unsigned short sectionId, const char* line) {
    Words words;
    VQStringUtilities::split(words, line, " \t", /*skipEmpty*/ true);
    if (words.isEmpty()) {
        return true;
    }
    const char* const problem = sectionId == DEVICES ? addDevice(words) : addSeries(words);
    if (problem != nullptr) {
        mProblem = CVQString(problem) + ": " + line;
    }
    return problem == nullptr;
}

const char* CSamplerConfig::addDevice(const Words& words) {
    if (words.size() != 3) {
        return "a device has a path, a period and a file";
    }
    SDevice device;
    device.path = words[0];
    device.file = words[2];
    if (hasDevice(device.path)) {
        return "a device of this path was named before";
    }
    if (!readNumber(words[1], 1, kLongestPeriodMs, device.periodMs)) {
        return "a period is a number of milliseconds from 1 to 4000";
    }
    mDevices.push_back(device);
    return nullptr;
}

const char* CSamplerConfig::addSeries(const Words& words) {
    if (words.size() != 7) {
        return "a series has a name, a device, a row, a field, a kind, a scale and a unit";
    }
    SSeries series;
    series.name = words[0];
    series.device = words[1];
    series.row = words[2];
    series.unit = words[6];
    if (!isSampleText(series.name) || !isSampleText(series.unit)) {
        return "names and units have at most 64 bytes, all visible";
    }
    if (hasSeries(series.name)) {
        return "a series of this name was named before";
    }
    if (!hasDevice(series.device)) {
        return "there is no such device above";
    }
    if (!readNumber(words[3], 0, 1000, series.field)) {
        return "a field is a number from 0 to 1000";
    }
    if (!readKind(words[4], series.kind)) {
        return "a kind is gauge or counter";
    }
    if (!readNumber(words[5], 1, 1000000, series.scale)) {
        return "a scale is a number from 1 to 1000000";
    }
    mSeries.push_back(series);
    return nullptr;
}

bool CSamplerConfig::hasDevice(const CVQString& path) const {
    return std::any_of(mDevices.begin(), mDevices.end(), [&](const SDevice& each) { return each.path == path; });
}

bool CSamplerConfig::hasSeries(const CVQString& name) const {
    return std::any_of(mSeries.begin(), mSeries.end(), [&](const SSeries& each) { return each.name == name; });
}
