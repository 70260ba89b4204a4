// CircularModel: what a circular byte buffer promises, with indices into a vector, one byte at a time. Random
// operations are held against it.
#pragma once

#include <CVQCircularByteBuffer.h>

#include <functional>
#include <string>
#include <vector>

class CircularModel {
public:
    using Bytes = std::vector<unsigned char>;

    explicit CircularModel(std::size_t capacity)
        : mStorage(capacity + 1), mExtent(static_cast<long long>(capacity) + 1) {}

    long long begin() const { return mBegin; }
    long long end() const { return mEnd; }
    unsigned flags() const { return mFlags; }
    unsigned size() const { return static_cast<unsigned>(mEnd - mBegin + (mBegin > mEnd ? mExtent : 0)); }
    const Bytes& storage() const { return mStorage; }

    void place(long long begin, long long end) {
        mBegin = begin;
        mEnd = end;
        mFlags = 0;
    }
    void reset() { place(0, 0); }

    Bytes content() const {
        Bytes bytes;
        long long at = mBegin;
        for (unsigned rest = size(); rest > 0; --rest) {
            at = at == mExtent ? 0 : at;
            bytes.push_back(mStorage[static_cast<std::size_t>(at++)]);
        }
        return bytes;
    }

    unsigned write(const Bytes& bytes) {
        if ((mFlags & 2) != 0)
            return 0;
        long long room = mBegin - 1 - mEnd;
        if (mBegin <= mEnd) {
            room = mExtent - mEnd - (mBegin == 0 && mEnd != mExtent ? 1 : 0);
            room += mBegin != 0 ? mBegin - 1 : 0;
        }
        unsigned written = 0;
        for (const unsigned char byte : bytes) {
            if (written == room) {
                mFlags |= 2;
                break;
            }
            mEnd = mEnd == mExtent ? 0 : mEnd;
            mStorage[static_cast<std::size_t>(mEnd++)] = byte;
            mEnd = mEnd == mExtent ? 0 : mEnd;
            ++written;
        }
        return written;
    }

    Bytes read(std::size_t count) {
        Bytes bytes;
        if ((mFlags & 1) != 0)
            return bytes;
        if (mBegin == mEnd) {
            mFlags |= 1;
            return bytes;
        }
        const bool wrapped = mBegin > mEnd;
        while (bytes.size() < count && mBegin != mEnd) {
            mBegin = mBegin == mExtent ? 0 : mBegin;
            if (mBegin == mEnd)
                break;
            bytes.push_back(mStorage[static_cast<std::size_t>(mBegin++)]);
            if (wrapped && mBegin == mExtent)
                mBegin = 0;
        }
        if (wrapped && mBegin == mExtent)
            mBegin = 0;
        if (bytes.size() < count)
            mFlags |= 1;
        return bytes;
    }

    bool moveBegin(int distance) {
        if ((mFlags & 1) != 0)
            return false;
        long long to = mBegin + distance;
        bool fails = false;
        if (distance < 0 && mBegin < mEnd) {
            if (to < 0) {
                to += mExtent;
                fails = mEnd >= to;
            }
        } else if (distance < 0) {
            fails = mEnd >= to;
        } else if (mBegin < mEnd) {
            fails = to > mEnd;
        } else if (to > mExtent) {
            to -= mExtent;
            fails = to > mEnd;
        }
        if (fails)
            mFlags |= 1;
        else
            mBegin = to;
        return !fails;
    }

    bool moveEnd(int distance) {
        if ((mFlags & 2) != 0)
            return false;
        long long to = mEnd + distance;
        bool fails = false;
        if (distance >= 0 && mBegin > mEnd) {
            fails = to >= mBegin - 1;
        } else if (distance >= 0) {
            if (to >= mExtent) {
                to -= mExtent;
                fails = to >= mBegin - 1;
            }
        } else if (mBegin <= mEnd) {
            fails = mBegin > to;
        } else if (to < 0) {
            to -= mExtent;
            fails = mBegin > to;
        }
        if (fails)
            mFlags |= 2;
        else
            mEnd = to;
        return !fails;
    }

    bool setSize(std::size_t count) {
        long long to = mBegin + static_cast<long long>(count);
        bool fails = false;
        if (mBegin < mEnd) {
            fails = to > mEnd;
        } else if (to > mExtent) {
            to -= mExtent;
            fails = to > mEnd;
        }
        if (fails)
            mFlags = 2;
        else
            mEnd = to;
        return !fails;
    }

    /// The input operator over a source that holds `form`. Returns how many bytes of it are taken.
    std::size_t input(const Bytes& form) {
        reset();
        unsigned count = 0;
        for (std::size_t i = 0; i < form.size() && i < 4; ++i)
            count |= unsigned{form[i]} << (8 * i);
        if (count == 0xFFFFFFFF) {
            mFlags = 4;
            return 4;
        }
        std::size_t taken = std::min<std::size_t>(form.size(), 4);
        const std::size_t fitting = std::min<std::size_t>(mStorage.size() - 1, count);
        while (static_cast<std::size_t>(mEnd) < fitting && taken < form.size())
            mStorage[static_cast<std::size_t>(mEnd++)] = form[taken++];
        if (static_cast<std::size_t>(mEnd) == fitting && fitting < count) {
            mFlags = 2;
            taken = std::min<std::size_t>(form.size(), 4 + std::size_t{count});
        }
        return taken;
    }

    Bytes output() const {
        if ((mFlags & 4) != 0)
            return Bytes(4, 0xFF);
        Bytes form;
        for (unsigned i = 0; i < 4; ++i)
            form.push_back(static_cast<unsigned char>(size() >> (8 * i)));
        const Bytes bytes = content();
        form.insert(form.end(), bytes.begin(), bytes.end());
        return form;
    }

private:
    Bytes mStorage;
    long long mExtent;
    long long mBegin = 0;
    long long mEnd = 0;
    unsigned mFlags = 0;
};

/// A buffer whose pointers a test may place, and break.
class PlacedBuffer : public CVQCircularByteBuffer {
public:
    using CVQCircularByteBuffer::CVQCircularByteBuffer;
    using CVQCircularByteBuffer::m_logicBegin;
    using CVQCircularByteBuffer::m_logicEnd;
    using CVQCircularByteBuffer::m_physBegin;
    using CVQCircularByteBuffer::m_physEnd;
    using CVQCircularByteBuffer::mFlags;

    void place(long long begin, long long end) {
        m_logicBegin = m_physBegin + begin;
        m_logicEnd = m_physBegin + end;
        mFlags = 0;
    }
};

/// One buffer and its model under random operations. `below(limit)` chooses one of the numbers from 0 to limit - 1.
class CircularOperations {
public:
    CircularOperations(std::size_t capacity, std::function<std::size_t(std::size_t limit)> below)
        : mBuffer(capacity), mModel(capacity), mCapacity(capacity), mBelow(std::move(below)) {}

    /// Returns what is wrong after one operation, or nothing.
    std::string step() {
        const std::string wrong = operate();
        return wrong.empty() ? compare() : wrong;
    }

    PlacedBuffer& buffer() { return mBuffer; }
    CircularModel& model() { return mModel; }

    std::string compare() const {
        if (mBuffer.getFlags() != mModel.flags())
            return "flags";
        if ((mModel.flags() & 4) != 0)
            return std::string();
        if (mBuffer.m_logicBegin - mBuffer.m_physBegin != mModel.begin())
            return "begin";
        if (mBuffer.m_logicEnd - mBuffer.m_physBegin != mModel.end())
            return "end";
        if (mBuffer.size() != mModel.size())
            return "size";
        if (CircularModel::Bytes(mBuffer.m_physBegin, mBuffer.m_physEnd) != mModel.storage())
            return "storage";
        return std::string();
    }

private:
    std::string operate() {
        const int distance = static_cast<int>(mBelow(2 * mCapacity + 5)) - static_cast<int>(mCapacity) - 2;
        switch ((mModel.flags() & 4) != 0 ? 6 : mBelow(8)) {
        case 0:
        case 1: {
            CircularModel::Bytes bytes(mBelow(mCapacity + 3));
            for (unsigned char& byte : bytes)
                byte = static_cast<unsigned char>(mBelow(256));
            if (mBuffer.write(bytes.data(), bytes.size()) != mModel.write(bytes))
                return "count of a write";
            break;
        }
        case 2:
        case 3: {
            CircularModel::Bytes bytes(mBelow(mCapacity + 3));
            const CircularModel::Bytes expected = mModel.read(bytes.size());
            if (mBuffer.read(bytes.data(), bytes.size()) != expected.size())
                return "count of a read";
            bytes.resize(expected.size());
            if (bytes != expected)
                return "bytes of a read";
            break;
        }
        case 4:
            if (mBuffer.moveRelativeBegin(distance) != mModel.moveBegin(distance))
                return "move of the begin";
            break;
        case 5:
            if (mBuffer.moveRelativeEnd(distance) != mModel.moveEnd(distance))
                return "move of the end";
            break;
        case 6:
            mBuffer.reset();
            mModel.reset();
            break;
        default: {
            const std::size_t count = mBelow(2 * mCapacity + 3);
            if (mBuffer.setSize(count) != mModel.setSize(count))
                return "new size";
            break;
        }
        }
        return std::string();
    }

    PlacedBuffer mBuffer;
    CircularModel mModel;
    std::size_t mCapacity;
    std::function<std::size_t(std::size_t limit)> mBelow;
};
