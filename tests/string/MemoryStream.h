// MemoryStream: a stream over plain bytes that keeps values aligned where it is told to, and remembers each call.
#pragma once

#include <IVQIOStream.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace strings {

class MemoryStream : public IVQIOStream {
public:
    MemoryStream() = default;
    explicit MemoryStream(std::string source) : bytes(std::move(source)) {}

    std::string bytes;
    mutable std::size_t position = 0;
    mutable std::vector<unsigned> calls;  // counts asked for

    bool waitToRead(int) override { return true; }
    void ready() override {}
    void align(unsigned unit) const override {
        position = std::min((position + unit - 1) / unit * unit, bytes.size());
    }
    bool waitToWrite(int) override { return true; }
    void flush() override {}
    void align(unsigned unit) override { bytes.resize((bytes.size() + unit - 1) / unit * unit); }

protected:
    unsigned doRead(void* destination, unsigned count) const override {
        calls.push_back(count);
        const auto delivered = std::min<std::size_t>(count, bytes.size() - position);
        std::memcpy(destination, bytes.data() + position, delivered);
        position += delivered;
        return static_cast<unsigned>(delivered);
    }
    unsigned doWrite(const void* source, unsigned count) override {
        calls.push_back(count);
        bytes.append(static_cast<const char*>(source), count);
        return count;
    }
};

/// A length as it stands in a stream.
inline std::string lengthOf(unsigned value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

}  // namespace strings
