// ByteStreamModel: what a byte stream promises, with vectors and 64-bit sums. Random operations are held against it.
#pragma once

#include <CVQRCMemoryBuffer.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

class ByteStreamModel {
public:
    using Bytes = std::vector<unsigned char>;

    ByteStreamModel() = default;
    ByteStreamModel(const ByteStreamModel& other) : mBlock(other.mBlock), mLength(other.mLength) {}
    ByteStreamModel& operator=(const ByteStreamModel& other) {
        if (this != &other) {
            if (other.mLength != 0)
                mBlock = other.mBlock;
            restart(other.mLength);
        }
        return *this;
    }
    ~ByteStreamModel() = default;

    /// A buffer of these bytes, assigned.
    void takeBlock(const std::shared_ptr<Bytes>& block) {
        mBlock = block;
        restart(mBlock->size());
    }

    std::size_t length() const { return mLength; }
    std::size_t position() const { return mPosition; }
    std::size_t capacity() const { return mBlock->size(); }
    bool atEnd() const { return mAtEnd; }
    Bytes used() const { return Bytes(mBlock->begin(), mBlock->begin() + static_cast<std::ptrdiff_t>(mLength)); }
    const std::shared_ptr<Bytes>& block() const { return mBlock; }

    std::size_t write(const Bytes& bytes) {
        if (bytes.empty())
            return 0;
        const std::uint64_t need = std::uint64_t{mLength} + bytes.size();
        std::uint64_t target = need;
        if (need > capacity()) {
            for (target = 32; target < need; target *= 2) {
            }
        }
        reserve(static_cast<std::size_t>(target), isShared());
        std::copy(bytes.begin(), bytes.end(), mBlock->begin() + static_cast<std::ptrdiff_t>(mLength));
        mLength = static_cast<std::size_t>(need);
        return bytes.size();
    }

    /// Up to `count` of the bytes that a source delivers.
    std::size_t append(const Bytes& bytes, std::size_t count) {
        reserve(mLength + count, isShared());
        const std::size_t arrived = std::min(bytes.size(), count);
        std::copy_n(bytes.begin(), arrived, mBlock->begin() + static_cast<std::ptrdiff_t>(mLength));
        mLength += arrived;
        return arrived;
    }

    /// Shrinking below the length is not modelled.
    void reserve(std::size_t wanted, bool force) {
        if (wanted <= capacity() && !force)
            return;
        Bytes resized(*mBlock);
        resized.resize(wanted);
        mBlock = std::make_shared<Bytes>(std::move(resized));
    }

    /// What `target` holds after a read into it, and the read's result.
    std::size_t read(Bytes& target) {
        if (mAtEnd || target.empty())
            return 0;
        const std::size_t available = std::min(target.size(), mLength - mPosition);
        for (std::size_t i = 0; i < target.size(); ++i)
            target[i] = i < available ? (*mBlock)[mPosition + i] : 0;
        mPosition += available;
        mAtEnd = available < target.size();
        return available;
    }

    void skip(std::size_t count) {
        if (mAtEnd || count == 0)
            return;
        mAtEnd = count > mLength - mPosition;
        mPosition = mAtEnd ? mLength : mPosition + count;
    }

    Bytes text() {
        Bytes text;
        while (mPosition < mLength) {
            const unsigned char byte = (*mBlock)[mPosition++];
            if (byte == 0)
                break;
            text.push_back(byte);
        }
        return text;
    }

    /// The input operator over a source that holds `form` and touches nothing beyond what it delivers.
    void input(const Bytes& form) {
        const std::uint64_t length = lengthIn(form, mLength);
        const bool canBe = length <= CVQRCMemoryBuffer::kMaxSize;
        restart(canBe ? static_cast<std::size_t>(length) : 0);
        if (canBe) {
            reserve(mLength, isShared());
            fill(*mBlock, mLength, form);
        }
    }

    /// The same for the form with the whole storage.
    void inputStorage(const Bytes& form) {
        const std::uint64_t size = lengthIn(form, 0);
        if (size <= CVQRCMemoryBuffer::kMaxSize) {
            mBlock = std::make_shared<Bytes>(static_cast<std::size_t>(size));
            fill(*mBlock, mBlock->size(), form);
        }
        mLength = mBlock->size();
        mPosition = 0;
    }

private:
    /// The length in front of a form; bytes that did not arrive are those of `before`.
    static std::uint64_t lengthIn(const Bytes& form, std::uint64_t before) {
        std::uint64_t length = 0;
        for (unsigned i = 0; i < 4; ++i) {
            const std::uint64_t byte = i < form.size() ? form[i] : before >> (8 * i) & 0xFF;
            length |= byte << (8 * i);
        }
        return length;
    }

    static void fill(Bytes& block, std::size_t length, const Bytes& form) {
        for (std::size_t i = 4; i < form.size() && i - 4 < length; ++i)
            block[i - 4] = form[i];
    }

    bool isShared() const { return !mBlock->empty() && mBlock.use_count() > 1; }
    void restart(std::size_t length) {
        mLength = length;
        mPosition = 0;
        mAtEnd = false;
    }

    std::shared_ptr<Bytes> mBlock = std::make_shared<Bytes>();
    std::size_t mLength = 0;
    std::size_t mPosition = 0;
    bool mAtEnd = false;
};
