// CVQStringWriter: takes a string's buffer, lets a conversion write into it, and gives it back at its end.
#pragma once

#include <CVQString.h>

#include <utility>

class CVQStringWriter : private CVQString {
public:
    explicit CVQStringWriter(CVQString& text) noexcept : CVQString(std::move(text)), mText(text) {}
    ~CVQStringWriter() { mText = std::move(*this); }
    CVQStringWriter(const CVQStringWriter&) = delete;
    CVQStringWriter& operator=(const CVQStringWriter&) = delete;

    /// Makes the buffer unshared with room for a text of `bytes`; false, after a report, when no string may be that
    /// long.
    using CVQString::makeRoom;

    bool hasRoomOfItsOwn(unsigned long long bytes) const noexcept {
        return !isShared() && mData->mCapacity >= bytes;
    }
    /// The same with just that capacity, for a text that fits.
    void setCapacity(std::size_t bytes) {
        if (getCapacity() != bytes) {
            moveToBlock(bytes);
        }
    }
    /// One more owner of the buffer.
    CVQString share() const noexcept { return *this; }

    using CVQString::getByteLength;
    using CVQString::getCapacity;
    using CVQString::getCharacterCount;

    /// The text, to be written up to the capacity. A block has kSpare bytes behind that.
    char* text() noexcept { return mData->text(); }
    static constexpr std::size_t kSpare = SVQStringData::kOverhead - SVQStringData::kTextOffset;

    /// What was written becomes the text.
    void setLengths(std::size_t bytes, std::size_t characters) noexcept {
        mData->mByteLength = static_cast<unsigned>(bytes);
        mData->mCharacterCount = static_cast<unsigned>(characters);
        mData->text()[bytes] = '\0';
    }

private:
    CVQString& mText;
};
