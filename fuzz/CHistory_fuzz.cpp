// The recorder's recordings, read from arbitrary bytes and shown. The first byte chooses: the bytes as a file, or, as
// no mutation finds the checksums, as the bodies of blocks whose checks are right.
#include "Fuzz.h"
#include "viewer/CHistory.h"
#include "viewer/Page.h"
#include "viewer/Terminal.h"

#include <CVQByteStream.h>

#include <algorithm>
#include <cstdint>
#include <fuzzer/FuzzedDataProvider.h>
#include <string>

namespace {

using fuzz::require;

CVQByteStream makeRecording(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider choices(data, size);
    CVQByteStream recording;
    while (choices.remaining_bytes() > 0) {
        const auto sampler = choices.ConsumeIntegralInRange<unsigned>(0, 3);
        const auto sequence = choices.ConsumeIntegral<unsigned>();
        const auto count = choices.ConsumeIntegralInRange<unsigned>(0, 8);
        const std::string bytes = choices.ConsumeRandomLengthString(512);
        CVQByteStream body;
        body.write(bytes.data(), bytes.size());
        const CVQByteStream block = makeBlock(sampler, sequence, count, body);
        recording.write(block.getData(), block.getLength());
    }
    return recording;
}

/// What was found lies side by side, and samples of blocks are written as they were.
void readBlocks(const unsigned char* bytes, unsigned size) {
    CBlockReader reader(bytes, size);
    unsigned end = 0;
    for (auto found = reader.next(); found != CBlockReader::END; found = reader.next()) {
        require(reader.getOffset() == end && reader.getLength() > 0, "what follows what was found");
        end += reader.getLength();
        TVQVector<SSample> samples;
        if (found == CBlockReader::BLOCK && readSamples(reader.getBlock(), samples)) {
            CVQByteStream again;
            for (const SSample& sample : samples) {
                again << sample;
            }
            require(again.getLength() == reader.getBlock().bodySize &&
                        std::equal(again.getData(), again.getData() + again.getLength(), reader.getBlock().body),
                    "the samples written again");
        }
    }
    require(end == size, "the end");
}

void show(const unsigned char* bytes, unsigned size) {
    CHistory history;
    history.loadBytes("file", bytes, size);
    CVQOTextStream text(0);
    appendReport(text, history, {});
    appendPage(text, history);
    require(text.getLength() > 0, "the page");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    return fuzz::prepare(fuzz::Assertions::EndTheRun);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    CVQByteStream recording;
    if (data[0] % 2 == 0) {
        recording.write(data + 1, size - 1);
    } else {
        recording = makeRecording(data + 1, size - 1);
    }
    readBlocks(recording.getData(), recording.getLength());
    show(recording.getData(), recording.getLength());
    return 0;
}
