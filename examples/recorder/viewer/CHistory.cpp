#include "viewer/CHistory.h"

#include "shared/Folder.h"

#include <VQFileOperations.h>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

namespace {

// Counters of the system move in steps: over less time than this a rate would show the steps and not the work.
constexpr unsigned long long kShortestRate = 100000;

double valueOf(const SSample& sample) {
    return static_cast<double>(sample.thousandths) / 1000;
}

/// A distance between samples that none of the usual ones comes near.
unsigned long long findGap(const TVQVector<SSample>& samples) {
    TVQVector<unsigned long long> distances;
    for (int i = 1; i < samples.size(); ++i) {
        distances.push_back(samples[i].time.getMicroseconds() - samples[i - 1].time.getMicroseconds());
    }
    std::sort(distances.begin(), distances.end());
    const unsigned long long usual = distances.isEmpty() ? 0 : distances[distances.size() / 2];
    return std::max<unsigned long long>(4 * usual, 2 * kShortestRate);
}

TVQVector<SPoint> makeGauge(const TVQVector<SSample>& samples) {
    const unsigned long long gap = findGap(samples);
    TVQVector<SPoint> points;
    unsigned long long before = 0;
    for (const SSample& sample : samples) {
        const unsigned long long micros = sample.time.getMicroseconds();
        points.push_back({micros, valueOf(sample), !points.isEmpty() && micros - before <= gap});
        before = micros;
    }
    return points;
}

/// A counter that is set back, as after a restart of the machine, begins anew.
TVQVector<SPoint> makeRate(const TVQVector<SSample>& samples) {
    const unsigned long long gap = findGap(samples);
    TVQVector<SPoint> points;
    int from = 0;
    bool isJoined = false;
    for (int i = 1; i < samples.size(); ++i) {
        const unsigned long long step = samples[i].time.getMicroseconds() - samples[i - 1].time.getMicroseconds();
        const unsigned long long micros = samples[i].time.getMicroseconds() - samples[from].time.getMicroseconds();
        if (step > gap || samples[i].thousandths < samples[i - 1].thousandths) {
            from = i;
            isJoined = false;
        } else if (micros >= kShortestRate) {
            const double added = valueOf(samples[i]) - valueOf(samples[from]);
            points.push_back(
                {samples[i].time.getMicroseconds(), added / (static_cast<double>(micros) / 1e6), isJoined});
            from = i;
            isJoined = true;
        }
    }
    return points;
}

void summarise(SSeriesHistory& series) {
    if (series.points.isEmpty()) {
        return;
    }
    const auto isSmaller = [](const SPoint& left, const SPoint& right) { return left.value < right.value; };
    const auto extremes = std::minmax_element(series.points.begin(), series.points.end(), isSmaller);
    series.smallest = extremes.first->value;
    series.largest = extremes.second->value;
    double sum = 0;
    for (const SPoint& point : series.points) {
        sum += point.value;
    }
    series.mean = sum / series.points.size();
    series.last = (series.points.end() - 1)->value;
}

}  // namespace

bool CHistory::load(const CVQPath& path, CVQString& problem) {
    CVQFileStatus status;
    if (!VQFileOperations::getFileStatus(path, status)) {
        const char* const reason = std::strerror(errno);
        problem = path.getString() + ": " + reason;
        return false;
    }
    if (!S_ISDIR(status.st_mode)) {
        const bool isRead = readFile(path, /*isFirst*/ false, problem);
        finish();
        return isRead;
    }
    TVQVector<unsigned> numbers;
    if (!Folder::listFiles(path, numbers) || numbers.isEmpty()) {
        problem = path.getString() + ": there is no recording";
        return false;
    }
    for (const unsigned number : numbers) {
        if (!readFile(Folder::getFile(path, number), number == 1, problem)) {
            return false;
        }
    }
    finish();
    return true;
}

void CHistory::loadBytes(const char* name, const unsigned char* bytes, unsigned size) {
    readBytes(name, bytes, size, /*isFirst*/ true);
    finish();
}

bool CHistory::readFile(const CVQPath& path, bool isFirst, CVQString& problem) {
    CVQRCMemoryBuffer bytes;
    if (!Folder::load(path, bytes)) {
        const char* const reason = std::strerror(errno);
        problem = path.getString() + ": " + reason;
        return false;
    }
    readBytes(path.getLeaf().c_str(), bytes.getData(), bytes.getSize(), isFirst);
    return true;
}

void CHistory::readBytes(const char* name, const unsigned char* bytes, unsigned size, bool isFirst) {
    CBlockReader reader(bytes, size);
    for (CBlockReader::EFound found = reader.next(); found != CBlockReader::END; found = reader.next()) {
        CVQString what;
        if (found == CBlockReader::BLOCK) {
            readBlock(reader.getBlock(), !isFirst, name, reader.getOffset());
        } else if (found == CBlockReader::CUT) {
            what.format("the last block is cut short: %u bytes of it are there", reader.getLength());
            addDamage(name, reader.getOffset(), what.c_str());
            break;
        } else {
            what.format("%u bytes are damaged", reader.getLength());
            addDamage(name, reader.getOffset(), what.c_str());
        }
    }
    ++mFiles;
    mBytes += size;
}

void CHistory::readBlock(const SBlock& block, bool hasForerunners, const char* file, unsigned offset) {
    TVQVector<SSample> samples;
    if (!readSamples(block, samples)) {
        addDamage(file, offset, "this block holds something else than samples");
        return;
    }
    checkSequence(block, hasForerunners && mBlocks == 0);
    ++mBlocks;
    for (const SSample& sample : samples) {
        addSample(sample);
    }
}

/// `hasForerunners`: the sampler's first blocks may have gone with older files.
void CHistory::checkSequence(const SBlock& block, bool hasForerunners) {
    unsigned* const last = mSamplers.find(block.sampler);
    if (last == nullptr) {
        if (mSamplers.size() > 0) {
            mRestarts.push_back(block.sampler);
        }
        mMissing += hasForerunners ? 0 : block.sequence - 1;
        mSamplers.insert(block.sampler, block.sequence);
    } else if (block.sequence <= *last) {
        ++mDoubled;
    } else {
        mMissing += block.sequence - *last - 1;
        *last = block.sequence;
    }
}

void CHistory::addSample(const SSample& sample) {
    mRaw.insert(sample.series, SRaw());
    SRaw& raw = *mRaw.find(sample.series);
    raw.unit = sample.unit;
    raw.kind = sample.kind;
    raw.samples.push_back(sample);
    ++mSamples;
    mBegin = std::min(mBegin, sample.time.getMicroseconds());
    mEnd = std::max(mEnd, sample.time.getMicroseconds());
}

void CHistory::addDamage(const char* file, unsigned offset, const char* what) {
    CVQString line;
    line.format("%s, byte %u: %s", file, offset, what);
    mDamages.push_back(line);
}

/// Makes courses of samples.
void CHistory::finish() {
    for (auto& [name, raw] : mRaw) {
        const auto isEarlier = [](const SSample& left, const SSample& right) {
            return left.time.compareTo(right.time) < 0;
        };
        std::stable_sort(raw.samples.begin(), raw.samples.end(), isEarlier);  // clocks are set back at times
        SSeriesHistory series;
        series.name = name;
        series.unit = raw.kind == SSample::COUNTER && raw.unit != CVQString("%") ? raw.unit + "/s" : raw.unit;
        series.samples = static_cast<unsigned>(raw.samples.size());
        series.points = raw.kind == SSample::COUNTER ? makeRate(raw.samples) : makeGauge(raw.samples);
        summarise(series);
        mSeries.push_back(series);
    }
    mRaw.clear();
}

TVQVector<double> resample(const SSeriesHistory& series, unsigned long long begin, unsigned long long end,
                           unsigned count) {
    constexpr double kNothing = std::numeric_limits<double>::quiet_NaN();
    TVQVector<double> values;
    values.resize(count, kNothing);
    const double step = std::max(static_cast<double>(end - begin) / count, 1.0);
    const auto stepOf = [&](const SPoint& point) {
        const int index = static_cast<int>(static_cast<double>(point.micros - begin) / step);
        return std::clamp(index, 0, static_cast<int>(count) - 1);
    };
    int inStep = 0;  // points in the present one
    int at = -1;
    double before = 0;
    for (const SPoint& point : series.points) {
        const int next = stepOf(point);
        if (next == at) {
            ++inStep;
            values[at] += (point.value - values[at]) / inStep;
        } else {
            for (int i = at + 1; point.isJoined && at >= 0 && i < next; ++i) {
                values[i] = before + (point.value - before) * (i - at) / (next - at);
            }
            values[next] = point.value;
            inStep = 1;
            at = next;
        }
        before = values[at];
    }
    return values;
}
