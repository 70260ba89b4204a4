// CVQOTextStream: text that grows by what is inserted: texts, truth values, printf formats; aligned in a width, or
// escaped for XML.
//
//   Units    lengths, capacities and widths in bytes.
//   Shape    a heap block from `begin` to the capacity's end, the end of the text in it, flags, width. The text is
//            terminated only by `c_str`.
//   Flags    BOOL_AS_WORD: truth values are "true" and "false", not 1 and 0. XML_ESCAPE: in inserted texts " & ' <
//            > become &quot; &amp; &apos; &lt; &gt;. Formatted output is never escaped.
//   Width    right-aligns the next formatted item in that many bytes, then it is 0 again. Set by manipulators:
//            functions that take the stream, inserted like a value.
//   Growth   doubles from the present capacity, or from 128; a byte for the terminator is always kept free.
//   Errors   without memory the process ends (VQMemory::allocChecked). A null text, format or function inserts
//            nothing, nor does a format that vsnprintf refuses.
//   Self     an inserted text may lie in the stream's own. The arguments of `streamWrite` may not.
//   Threads  one thread at a time; `c_str` writes.
//   Kept     textstream-copy-drops-width: copies start without width, assignment takes the other's.
//            textstream-string-ignores-width: strings are inserted without regard to the width, and leave it.
//            textstream-xml-ignores-width: escaped texts as well.
//            textstream-negative-width: a width of 2^31 and more is a negative one: left-aligned.
//            textstream-resize-same: `resize` to just the length of the text does nothing (docs/kept.md).
#pragma once

#include <VQExport.h>

#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <type_traits>

class CVQString;

class VQ_EXPORT CVQOTextStream {
public:
    /// How values become text; see Flags above.
    enum Flag : unsigned int { BOOL_AS_WORD = 1, XML_ESCAPE = 2 };
    using Manipulator = void (*)(CVQOTextStream& stream);

    /// An empty text; a block of `capacity` bytes for it at once, unless that is 0.
    explicit CVQOTextStream(std::size_t capacity);
    /// The same text in a block of the same capacity, the same flags. Kept: textstream-copy-drops-width.
    CVQOTextStream(const CVQOTextStream& other);
    CVQOTextStream& operator=(const CVQOTextStream& other);
    ~CVQOTextStream();

    std::size_t getLength() const { return static_cast<std::size_t>(mWrite - mBegin); }
    std::size_t getCapacity() const { return static_cast<std::size_t>(mCapacityEnd - mBegin); }
    unsigned int getFlags() const { return mFlags; }
    void setFlags(unsigned int flags) { mFlags = flags; }
    unsigned int getWidth() const { return mWidth; }
    void setWidth(unsigned int width) { mWidth = width; }

    /// Appends `length` bytes as they are; nothing for a null pointer.
    void write(const char* text, std::size_t length) {
        if (VQ_LIKELY(length < spare() && text != nullptr)) {
            std::memcpy(mWrite, text, length);
            mWrite += length;
            return;
        }
        writeGrowing(text, length);
    }

    /// Makes room for `count` bytes and a terminator.
    void checkSpare(std::size_t count) {
        if (VQ_UNLIKELY(count >= spare())) {
            grow(count);
        }
    }

    /// A block of exactly `capacity` bytes; 0 releases it, text and all. Nothing for what is not above the length.
    void resize(std::size_t capacity);

    /// Cuts the block to the text and its terminator; releases it when there is no text.
    void trim();

    /// The text, zero-terminated, until the stream is changed. Never null: a stream without a block gets one.
    const char* c_str() const;

    CVQOTextStream& operator<<(bool value);
    CVQOTextStream& operator<<(const char* text) {
        if (VQ_LIKELY(text != nullptr && mWidth == 0 && (mFlags & XML_ESCAPE) == 0)) {
            write(text, std::strlen(text));
        } else {
            insertSpecial(text);
        }
        return *this;
    }
    /// The text up to a zero byte when it is escaped, otherwise all of it. Kept: textstream-string-ignores-width.
    CVQOTextStream& operator<<(const CVQString& text);
    CVQOTextStream& operator<<(Manipulator manipulator);
    /// Numbers are for `streamWrite`: here they would be taken for truth values.
    template <class T, std::enable_if_t<std::is_arithmetic_v<T> && !std::is_same_v<T, bool>, int> = 0>
    CVQOTextStream& operator<<(T number) = delete;

    /// Appends formatted text, right-aligned in the width if one is set.
    void streamWrite(const char* format, ...) VQ_PRINTF(2, 3);

private:
    std::size_t spare() const { return static_cast<std::size_t>(mCapacityEnd - mWrite); }
    void grow(std::size_t count);
    const char* growFor(std::size_t count, const char* text);
    void writeGrowing(const char* text, std::size_t length);
    void insertSpecial(const char* text);
    void insertEscaped(const char* text);
    bool appendPlainlyFormatted(const char* format, std::va_list arguments) VQ_PRINTF(2, 0);
    bool appendFormatted(const char* format, std::va_list arguments) VQ_PRINTF(2, 0);
    void copyFrom(const CVQOTextStream& other);

    char* mBegin = nullptr;
    char* mCapacityEnd = nullptr;
    char* mWrite = nullptr;
    unsigned int mFlags = 0;
    unsigned int mWidth = 0;
};
