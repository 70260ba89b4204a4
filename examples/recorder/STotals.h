// STotals: what one of the two processes counted. The reading process sends its own to the writing one.
//   Units    bytes as serialised; times in microseconds; the heap in bytes, as the allocator's trace knows it.
#pragma once

#include "SRecord.h"

#include <VQMemory.h>
#include <algorithm>

struct STotals {
    unsigned long long records = 0;
    unsigned long long bytes = 0;
    unsigned long long checksum = 0;  // over all texts in their order
    unsigned long long invalidLines = 0;
    unsigned long long zeroByteLines = 0;
    unsigned long long busyMicros = 0;  // without the time spent waiting for the file and the pipe
    unsigned peakHeap = 0;
    CVQString problem;  // empty when all is well

    void count(const SRecord& record) {
        constexpr unsigned long long kMix = 0x9E3779B97F4A7C15ULL;  // odd, with bits all over: 2^64 / golden ratio
        ++records;
        checksum = (checksum ^ getHashValueForString(record.text) ^ record.text.getByteLength()) * kMix + 1;
    }

    void sampleHeap() { peakHeap = std::max(peakHeap, VQMemory::getHeapInfo().allocatedBytes); }
};

inline IVQOStream& operator<<(IVQOStream& stream, const STotals& totals) {
    return stream << totals.records << totals.bytes << totals.checksum << totals.invalidLines
                  << totals.zeroByteLines << totals.busyMicros << totals.peakHeap << totals.problem;
}

inline const IVQIStream& operator>>(const IVQIStream& stream, STotals& totals) {
    return stream >> totals.records >> totals.bytes >> totals.checksum >> totals.invalidLines >>
           totals.zeroByteLines >> totals.busyMicros >> totals.peakHeap >> totals.problem;
}
