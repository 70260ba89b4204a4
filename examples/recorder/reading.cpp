#include "recording.h"

#include <CVQByteStream.h>
#include <VQSyslog.h>

namespace {

/// False, with the problem noted, when the block is not what was sent.
bool checkBlock(const CVQByteStream& block, STotals& totals) {
    SRecord record;
    while (block.getReadPosition() < block.getLength()) {
        block >> record;
        const auto expected = static_cast<unsigned>(totals.records);
        if (block.isEndOfData()) {
            totals.problem.format("record %u is cut off at the end of its block", expected);
            return false;
        }
        if (record.sequence != expected) {
            totals.problem.format("record %u came where record %u was due", record.sequence, expected);
            return false;
        }
        totals.count(record);
        totals.sampleHeap();
    }
    totals.bytes += block.getLength();
    return true;
}

bool receive(const CPipeIStream& pipe, CVQByteStream& block, STotals& totals) {
    pipe >> block;
    if (pipe.isBroken())
        totals.problem.format("the records ended without their end mark, after number %llu", totals.records);
    return !pipe.isBroken() && block.getLength() > 0;
}

}  // namespace

STotals readRecords(const CPipeIStream& pipe) {
    STotals totals;
    CStopwatch all;
    {
        const CStopwatch::CScope running(all);
        CVQByteStream block;
        while (receive(pipe, block, totals) && checkBlock(block, totals)) {
        }
    }
    totals.busyMicros = all.getMicros() - pipe.getWaiting().getMicros();
    if (totals.problem.isEmpty())
        VQSyslog::logMsg(0, VQSyslog::INFO, "recorder: read %llu records in %llu bytes", totals.records,
                         totals.bytes);
    else
        VQSyslog::logMsg(0, VQSyslog::ERROR, "recorder: %s", totals.problem.c_str());
    return totals;
}
