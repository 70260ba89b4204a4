// Streams of a user's own, for the tests: a source that delivers what it is told to, a sink that remembers all it took.
#pragma once

#include <CVQRCMemoryBuffer.h>
#include <CVQString.h>
#include <IVQIStream.h>
#include <IVQOStream.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

using Bytes = std::vector<unsigned char>;

inline Bytes bytesOf(const void* data, std::size_t count) {
    const auto* const begin = static_cast<const unsigned char*>(data);
    return count == 0 ? Bytes() : Bytes(begin, begin + count);
}

inline Bytes bytesOf(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

inline std::string textOf(const CVQString& text) {
    return std::string(text.c_str(), text.getByteLength());
}

inline CVQRCMemoryBuffer blockOf(const Bytes& bytes) {
    CVQRCMemoryBuffer block(bytes.size());
    if (!bytes.empty())
        std::memcpy(block.getBuffer(), bytes.data(), bytes.size());
    return block;
}

/// Delivers its bytes, at most `most` a call, and touches nothing beyond them. What it was asked lies in `calls`:
/// counts of `read`, "align n".
class Source : public IVQIStream {
public:
    explicit Source(Bytes content, unsigned mostPerCall = 0xFFFFFFFFU)
        : bytes(std::move(content)), most(mostPerCall) {}

    bool waitToRead(int) override { return position < bytes.size(); }
    void ready() override {}
    void align(unsigned count) const override { calls.push_back("align " + std::to_string(count)); }

    Bytes bytes;
    unsigned most;
    mutable std::size_t position = 0;
    mutable std::vector<std::string> calls;

protected:
    unsigned doRead(void* destination, unsigned count) const override {
        calls.push_back(std::to_string(count));
        const std::size_t delivered = std::min<std::size_t>({count, most, bytes.size() - position});
        if (delivered != 0)
            std::memcpy(destination, bytes.data() + position, delivered);
        position += delivered;
        return static_cast<unsigned>(delivered);
    }
};

/// Claims more than it was asked for.
class Boaster : public Source {
public:
    using Source::Source;

protected:
    unsigned doRead(void* destination, unsigned count) const override {
        Source::doRead(destination, count);
        return 0xFFFFFFFFU;
    }
};

/// Takes at most `most` bytes a call.
class Sink : public IVQOStream {
public:
    explicit Sink(unsigned mostPerCall = 0xFFFFFFFFU) : most(mostPerCall) {}

    void flush() override {}
    bool waitToWrite(int) override { return true; }
    void align(unsigned count) override { calls.push_back("align " + std::to_string(count)); }

    Bytes bytes;
    unsigned most;
    std::vector<std::string> calls;

protected:
    unsigned doWrite(const void* source, unsigned count) override {
        calls.push_back(std::to_string(count));
        const unsigned taken = std::min(count, most);
        const Bytes added = bytesOf(source, taken);
        bytes.insert(bytes.end(), added.begin(), added.end());
        return taken;
    }
};
