#include "recording.h"

#include <CVQByteStream.h>
#include <VQSyslog.h>
#include <chrono>

namespace {

using SLine = CTextSource::SLine;

unsigned long long microsNow() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<unsigned long long>(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

/// 0xC3 announces a second byte, which does not come.
void spoil(const SLine& line) {
    if (line.length > 0)
        line.text[line.length - 1] = '\xC3';
}

SRecord makeRecord(const SLine& line, STotals& totals) {
    SRecord record;
    record.sequence = static_cast<unsigned>(totals.records);
    record.micros = microsNow();
    record.text = CVQString(line.text, line.length);  // valid UTF-8 from here on, or cut and logged
    const unsigned kept = record.text.getByteLength();
    if (kept < line.length)
        ++(line.text[kept] == '\0' ? totals.zeroByteLines : totals.invalidLines);
    return record;
}

/// The block is empty afterwards, and keeps its storage.
void send(CVQByteStream& block, CPipeOStream& pipe, STotals& totals) {
    pipe << block;
    totals.bytes += block.getLength();
    block = CVQByteStream();
}

}  // namespace

STotals writeRecords(CTextSource& source, const SOptions& options, CPipeOStream& pipe, CProgress& progress) {
    STotals totals;
    CStopwatch all;
    {
        const CStopwatch::CScope running(all);
        CVQByteStream block(options.blockSize);
        for (SLine line{}; !pipe.isBroken() && source.getNextLine(line);) {
            if (options.spoilEvery != 0 && (totals.records + 1) % options.spoilEvery == 0)
                spoil(line);
            const SRecord record = makeRecord(line, totals);
            if (block.getLength() > 0 && block.getLength() + record.getSerialisedSize() > options.blockSize)
                send(block, pipe, totals);
            block << record;
            totals.count(record);
            totals.sampleHeap();
            progress.update(source.getBytesRead(), totals.records);
        }
        if (block.getLength() > 0)
            send(block, pipe, totals);
        send(block, pipe, totals);  // empty: the end
    }
    totals.busyMicros = all.getMicros() - source.getWaiting().getMicros() - pipe.getWaiting().getMicros();
    VQSyslog::logMsg(0, VQSyslog::INFO, "recorder: wrote %llu records in %llu bytes", totals.records, totals.bytes);
    return totals;
}
