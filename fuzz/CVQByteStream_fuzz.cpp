// Byte streams and buffers read from arbitrary bytes, and random operations on byte streams, each held against the plain
// model of the tests. The first byte chooses.
#include "Fuzz.h"
#include "stream/ByteStreamModel.h"
#include "stream/ByteStreamOperations.h"
#include "stream/Streams.h"

#include <CVQAsserter.h>
#include <CVQBuffer.h>
#include <CVQByteStream.h>
#include <CVQString.h>

#include <algorithm>
#include <cstdint>
#include <fuzzer/FuzzedDataProvider.h>

namespace {

using fuzz::require;

// Longer lengths are honest requests for memory: nothing to find, and slow.
constexpr std::uint32_t kLongest = 0x3FF;

Bytes usedBytes(const CVQByteStream& stream) {
    return bytesOf(stream.getData(), stream.getLength());
}

void readForms(Bytes form) {
    const std::size_t lengthBytes = std::min<std::size_t>(form.size(), 4);
    std::uint32_t length = 0;
    for (std::size_t i = 0; i < lengthBytes; ++i)
        length |= std::uint32_t{form[i]} << (8 * i);
    if (length <= CVQRCMemoryBuffer::kMaxSize) {
        for (std::size_t i = 0; i < lengthBytes; ++i)
            form[i] = static_cast<unsigned char>((length & kLongest) >> (8 * i));
    }

    CVQByteStream stream;
    ByteStreamModel model;
    Source(form) >> stream;
    model.input(form);
    require(usedBytes(stream) == model.used(), "the stream that was read");

    CVQBuffer buffer;
    Source(form) >> buffer;
    require(bytesOf(buffer.getData(), buffer.getSize()) == model.used(), "the buffer that was read");

    CVQRCMemoryBuffer block;
    Source(form) >> block;
    require(bytesOf(block.getData(), block.getSize()) == model.used(), "the block that was read");

    CVQBuffer message;
    CVQBuffer::fromQRVStream(Source(form), message);
    require(bytesOf(message.getData(), message.getSize()) == model.used(), "the buffer of a message");

    CVQByteStream storage;
    ByteStreamModel storageModel;
    CVQByteStream::fromQRVStream(Source(form), storage);
    storageModel.inputStorage(form);
    require(usedBytes(storage) == storageModel.used(), "the storage that was read");

    // The same bytes in a byte stream, which fills up what it lacks with zeros.
    CVQByteStream source;
    source.write(form.data(), form.size());
    CVQByteStream fromStream;
    source >> fromStream;
    require(usedBytes(fromStream) == model.used(), "the stream that was read from a stream");
    require(source.getReadPosition() <= source.getLength(), "the position in the source");

    CVQByteStream again;
    again << stream;
    CVQByteStream back;
    again >> back;
    require(back == stream && !again.isEndOfData(), "the way there and back");

    CVQString dumped;
    stream.dump(dumped);
    require(dumped.getByteLength() == stream.getLength() * 3, "the dump");

    while (stream.waitToRead(0)) {
        const unsigned before = stream.getReadPosition();
        const CVQString text = stream.toString();
        require(stream.getReadPosition() > before, "a text that moves the position");
        require(text.getByteLength() <= stream.getReadPosition() - before, "a text from between the positions");
    }
}

void operate(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider choices(data, size);
    ByteStreamOperations operations([&choices](std::size_t limit) {
        return choices.ConsumeIntegralInRange<std::uint16_t>(0, static_cast<std::uint16_t>(limit - 1));
    });
    while (choices.remaining_bytes() > 0)
        require(operations.step().empty(), "an operation");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    return fuzz::prepare(fuzz::Assertions::Expected);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    CVQAsserter::setOccuredAssertions(0);
    if (data[0] % 2 == 0)
        readForms(Bytes(data + 1, data + size));
    else
        operate(data + 1, size - 1);
    return 0;
}
