// ByteStreamOperations: random operations on a few byte streams that share blocks, each held against its model. Who calls
// supplies the choices: a random number generator, or the bytes of a fuzzer.
#pragma once

#include "stream/ByteStreamModel.h"
#include "stream/Streams.h"

#include <CVQBuffer.h>
#include <CVQByteStream.h>
#include <CVQString.h>

#include <functional>
#include <string>
#include <utility>

class ByteStreamOperations {
public:
    /// `below(limit)` chooses one of the numbers from 0 to limit - 1.
    explicit ByteStreamOperations(std::function<std::size_t(std::size_t limit)> below) : mBelow(std::move(below)) {}

    /// One operation. Returns what is wrong after it, or nothing.
    std::string step() {
        const std::size_t at = mBelow(kValues);
        const std::size_t other = mBelow(kValues);
        std::string wrong = operate(mStreams[at], mModels[at], mStreams[other], mModels[other]);
        for (std::size_t i = 0; i < kValues && wrong.empty(); ++i)
            wrong = compare(mStreams[i], mModels[i]);
        return wrong;
    }

private:
    static constexpr std::size_t kValues = 4;
    static constexpr std::size_t kTooLong = 500;

    std::string operate(CVQByteStream& stream, ByteStreamModel& model, CVQByteStream& other,
                        const ByteStreamModel& otherModel) {
        switch (mBelow(13)) {
        case 0:
            stream = other;
            model = otherModel;
            break;
        case 1:
        case 2: {
            const Bytes bytes = someBytes(50);
            if (model.write(bytes) != stream.write(bytes.data(), bytes.size()))
                return "count of a write";
            break;
        }
        case 3:
        case 4: {
            Bytes expected(mBelow(50), 0xAA);
            Bytes target(expected);
            if (model.read(expected) != stream.read(target.data(), target.size()))
                return "count of a read";
            if (expected != target)
                return "bytes of a read";
            break;
        }
        case 5: {
            const std::size_t count = mBelow(20);
            stream.readSkip(static_cast<unsigned>(count));
            model.skip(count);
            break;
        }
        case 6: {
            const std::size_t capacity = model.length() + mBelow(60);
            const bool force = mBelow(2) == 0;
            stream.reserve(capacity, force);
            model.reserve(capacity, force);
            break;
        }
        case 7: {
            const Bytes expected = model.text();
            const CVQString text = stream.toString();
            if (expected != bytesOf(text.c_str(), text.getByteLength()))
                return "text";
            break;
        }
        case 8: {
            Sink sink;
            sink << other;
            input(stream, model, cutOff(sink.bytes));
            break;
        }
        case 9: {
            Sink sink;
            CVQByteStream::toQRVStream(sink, other);
            inputStorage(stream, model, cutOff(sink.bytes));
            break;
        }
        case 10:
            if (mBelow(2) == 0)
                input(stream, model, someForm());
            else
                inputStorage(stream, model, someForm());
            break;
        case 11: {
            const Bytes bytes = someBytes(20);
            const std::size_t count = mBelow(20);
            if (model.append(bytes, count) != stream.readFromIStream(Source(bytes), count))
                return "count of an append";
            break;
        }
        default:
            stream = CVQBuffer(other);
            model.takeBlock(std::make_shared<Bytes>(otherModel.used()));
            break;
        }
        if (stream.getLength() > kTooLong) {
            stream = CVQBuffer();
            model.takeBlock(std::make_shared<Bytes>());
        }
        return std::string();
    }

    static std::string compare(const CVQByteStream& stream, const ByteStreamModel& model) {
        if (stream.getLength() != model.length())
            return "length " + std::to_string(stream.getLength()) + ", not " + std::to_string(model.length());
        if (stream.getReadPosition() != model.position())
            return "position " + std::to_string(stream.getReadPosition()) + ", not " +
                   std::to_string(model.position());
        if (stream.getCapacity() != model.capacity())
            return "capacity " + std::to_string(stream.getCapacity()) + ", not " + std::to_string(model.capacity());
        if (stream.isEndOfData() != model.atEnd())
            return "end of data";
        if (bytesOf(stream.getData(), stream.getCapacity()) != *model.block())
            return "storage";
        return std::string();
    }

    static void input(CVQByteStream& stream, ByteStreamModel& model, const Bytes& form) {
        Source(form) >> stream;
        model.input(form);
    }

    static void inputStorage(CVQByteStream& stream, ByteStreamModel& model, const Bytes& form) {
        CVQByteStream::fromQRVStream(Source(form), stream);
        model.inputStorage(form);
    }

    Bytes cutOff(Bytes form) {
        form.resize(mBelow(form.size() + 1));
        return form;
    }

    /// A form of its own making: a length that fits, one that no block can have, and what may follow.
    Bytes someForm() {
        Bytes form = someBytes(60);
        for (std::size_t i = 1; i < form.size() && i < 4; ++i)
            form[i] = 0;
        if (form.size() >= 4 && mBelow(8) == 0)
            std::fill(form.begin() + 1, form.begin() + 4, static_cast<unsigned char>(0xFF));
        if (form.size() >= 4 && form[1] == 0xFF)
            form[0] |= 0xE1;
        return form;
    }

    /// Of ASCII characters, so that they are good as text as well, and zeros between.
    Bytes someBytes(std::size_t limit) {
        Bytes bytes(mBelow(limit));
        for (unsigned char& byte : bytes)
            byte = static_cast<unsigned char>(mBelow(4) == 0 ? 0 : 'a' + mBelow(26));
        return bytes;
    }

    std::function<std::size_t(std::size_t limit)> mBelow;
    CVQByteStream mStreams[kValues];
    ByteStreamModel mModels[kValues];
};
