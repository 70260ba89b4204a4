// Circular buffers read from arbitrary bytes, then put through operations that the rest of the input chooses, each
// held against the model of the tests. What they hold afterwards is dumped, searched, written to a stream and read
// back.
#include "Fuzz.h"
#include "stream/CircularModel.h"
#include "stream/Streams.h"

#include <CVQAsserter.h>
#include <CVQString.h>

#include <cstdint>
#include <fuzzer/FuzzedDataProvider.h>

using fuzz::require;

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    return fuzz::prepare(fuzz::Assertions::Expected);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CVQAsserter::setOccuredAssertions(0);
    FuzzedDataProvider choices(data, size);
    const auto below = [&choices](std::size_t limit) {
        return choices.ConsumeIntegralInRange<std::uint16_t>(0, static_cast<std::uint16_t>(limit - 1));
    };
    CircularOperations pair(choices.ConsumeIntegralInRange<std::uint16_t>(0, 80), below);
    CVQCircularByteBuffer& buffer = pair.buffer();
    CircularModel& model = pair.model();

    Source source(choices.ConsumeBytes<unsigned char>(choices.ConsumeIntegralInRange<std::size_t>(0, 300)));
    source >> buffer;
    require(model.input(source.bytes) == source.position, "what was taken off the stream");
    require(pair.compare().empty(), "the buffer that was read");
    for (int steps = 0; choices.remaining_bytes() > 8 && steps < 200; ++steps)
        require(pair.step().empty(), "an operation");

    Sink sink;
    sink << buffer;
    require(sink.bytes == model.output(), "the form");
    if (buffer.isInvalid())
        return 0;
    CVQCircularByteBuffer back(buffer.size());
    Source form(sink.bytes);
    form >> back;
    require(back == buffer && buffer == back && back.getFlags() == 0, "the way there and back");
    require(buffer.dumpString().getByteLength() > (buffer.size() + 15) / 16 * 77, "the dump");
    buffer.toString(buffer.getLogicBegin(), buffer.getLogicEnd());

    const CVQString text(choices.ConsumeRemainingBytesAsString().c_str());
    const unsigned before = buffer.size();
    const bool found = back.goNextString(text);
    require(!found || back.beginsWith(text), "the string that was found");
    require(back.size() <= before, "the size after a search");
    return 0;
}
