// Recordings: what the tests of the recorder share: samples, blocks, and the bytes of recordings.
#pragma once

#include "shared/Block.h"
#include "shared/CServiceFile.h"
#include "shared/Message.h"

#include <VQSharedMemoryAccess.h>
#include <initializer_list>
#include <string>
#include <vector>

namespace recordings {

constexpr unsigned long long kSampler = 1700000000000000ULL;  // in November 2023

inline SSample makeSample(unsigned long long micros, long long thousandths, const char* name = "a.b",
                          char kind = SSample::GAUGE, const char* unit = "B") {
    SSample sample;
    sample.time.setMicroseconds(micros);
    sample.series = name;
    sample.unit = unit;
    sample.kind = kind;
    sample.thousandths = thousandths;
    return sample;
}

inline std::string toString(const CVQByteStream& stream) {
    return {reinterpret_cast<const char*>(stream.getData()), stream.getLength()};
}

inline std::string blockOf(unsigned sequence, const std::vector<SSample>& samples,
                           unsigned long long sampler = kSampler) {
    CVQByteStream body;
    for (const SSample& sample : samples) {
        body << sample;
    }
    return toString(makeBlock(sampler, sequence, static_cast<unsigned>(samples.size()), body));
}

/// A block of one sample, a second after the block before.
inline std::string block(unsigned sequence, unsigned long long sampler = kSampler) {
    return blockOf(sequence, {makeSample(sampler + sequence * 1000000ULL, sequence * 1000)}, sampler);
}

/// Blocks 1 to `count`.
inline std::string blocks(unsigned count, unsigned long long sampler = kSampler) {
    std::string bytes;
    for (unsigned i = 1; i <= count; ++i) {
        bytes += block(i, sampler);
    }
    return bytes;
}

inline CBlockReader readerOf(const std::string& bytes) {
    return {reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<unsigned>(bytes.size())};
}

/// The numbers of the blocks that a reader finds, -1 for each damage, -2 for a cut end.
inline std::vector<int> read(const std::string& bytes) {
    std::vector<int> found;
    CBlockReader reader = readerOf(bytes);
    for (;;) {
        switch (reader.next()) {
        case CBlockReader::BLOCK:
            found.push_back(static_cast<int>(reader.getBlock().sequence));
            break;
        case CBlockReader::DAMAGE:
            found.push_back(-1);
            break;
        case CBlockReader::CUT:
            found.push_back(-2);
            return found;
        case CBlockReader::END:
            return found;
        }
    }
}

/// Takes away what the last sampler of a folder left, if it was killed; no other will come there to do it.
inline void removeSegment(const std::string& folder) {
    const CVQString name = CServiceFile::readLine((folder + '/' + Message::kSamplerFile).c_str());
    if (!name.isEmpty()) {
        VQSharedMemoryAccess::unlink(name.c_str());
    }
}

}  // namespace recordings
