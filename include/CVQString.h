// CVQString: UTF-8 text in a shared buffer that is copied when one of its owners writes.
//
//   Units    `bytes` count bytes, `characters` count code points. Positions are iterators and step over whole
//            characters. Counts and limits are std::size_t, which on the target is `unsigned`; whatever a text
//            holds, and whatever travels, is counted in 32 bits.
//   Shape    one pointer to a block: reference count, capacity, byte length, character count (four unsigned 32-bit
//            words), a zero byte at offset 16, the text from offset 17, always followed by a zero byte. A block
//            has capacity + 20 bytes. Capacities are exact: a text grows to what it needs and no further, and
//            `reserve` spares the steps between. An empty string needs no block: it points at `nullData`, which is
//            read-only and has no owners to count.
//   Checks   text is validated where it enters from bytes. The rule is lenient: a lead byte is followed by as many
//            bytes as it announces (up to five), each with its top bit set. What breaks the rule is logged and cut
//            off, with all that follows. Iterators know a following byte by its top bits 10; in well-formed UTF-8
//            both rules agree. Nothing here reads past a text, whatever bytes it holds, but for one: stepping
//            back again from the zero byte before a text of 2^24 characters or more.
//   Errors   none are returned. A capacity of 2^32 - 20 or more is an assertion, and the block is asked for all the
//            same; but the constructor leaves the empty string, and `reserve` of more than 32 bits the string as it
//            was. So does a text of 2^32 - 1 bytes or more, alone or as a sum, which is the same assertion. Without
//            memory the process ends (VQMemory::allocChecked).
//   Position one outside the text, or inside a character, changes nothing and yields nothing, except that a search
//            starts inside a character as well. Iterators carry no owner and are valid until the string's buffer
//            is replaced; those of another string are taken for positions outside the text. A modifying operation
//            that is given a position moves it along. Stepping ends at the text's ends; back before the beginning
//            it stays (for texts below 2^24 characters). Where a text has zero bytes, a step back may stay at one
//            of them as well.
//   Threads  strings that share a buffer may be used, changed and destroyed on different threads; the count is
//            atomic and the last owner alone frees the block. One string object: one thread at a time. One buffer
//            counts up to 2^32 - 1 owners.
//   Self     any argument may be the string itself, share its buffer or point into its text.
//   Elsewhere the constructors from code points, fromUCS4Sequence, fromUCS2Sequence and fromWCharSequence are
//            declared here and defined with the character-set conversions.
//   Kept     string-lenient-utf8: the rule above; overlong forms and surrogates pass as well.
//            string-invalid-message: the report of invalid text has its odd wording.
//            string-zero-bytes: zero bytes that came from a stream are characters, but comparing, searching and
//            stepping forward end at the first of them, as C code does.
//            string-signed-byte: a position on no lead byte decodes to the byte itself, sign-extended.
//            string-signed-hash: bytes enter the hash sign-extended.
//            string-format-256: `format` keeps at most 256 bytes.
//            string-asked-anyway: after the assertion on an invalid capacity the block is asked for all the same.
//            string-clear-message: an invalid capacity in `clear` is reported in addReference's name.
//            string-own-empty: `clear` and `swap` give an empty string a block of its own, of capacity 0.
#pragma once

#include <VQAtomic.h>
#include <VQExport.h>

#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <type_traits>

class CVQString;
class IVQIStream;
class IVQOStream;

/// The byte length (32 bits), then the bytes.
VQ_EXPORT IVQOStream& operator<<(IVQOStream& stream, const CVQString& text);
/// Reads that form. Length 0 truncates. A text that the stream does not deliver whole leaves the string empty.
VQ_EXPORT const IVQIStream& operator>>(const IVQIStream& stream, CVQString& text);

/// The block behind a string. Only CVQString and its conversions touch it.
struct SVQStringData {
    unsigned mReferences;      ///< owners; changed atomically
    unsigned mCapacity;        ///< bytes of text that fit, the terminator not counted
    unsigned mByteLength;      ///< bytes of text in use
    unsigned mCharacterCount;  ///< characters in those bytes
    char mSentinel;            ///< always 0: stepping back ends here
    char mTail[3];             ///< where the text starts: an empty text's terminator and two spare bytes

    char* text() noexcept { return reinterpret_cast<char*>(this) + kTextOffset; }
    const char* text() const noexcept { return reinterpret_cast<const char*>(this) + kTextOffset; }

    static constexpr std::size_t kTextOffset = 17;
    static constexpr std::size_t kOverhead = 20;  ///< of a block over its capacity
};

class VQ_EXPORT CVQString {
public:
    /// A position in a text: one pointer to a character's lead byte, to the terminator (the end) or, after stepping
    /// back from the beginning, to the zero byte before the text.
    class VQ_EXPORT const_iterator {
    public:
        using iterator_category = std::bidirectional_iterator_tag;
        using value_type = int;
        using difference_type = int;
        using pointer = const int*;
        using reference = int;

        /// The end of an empty text.
        const_iterator() noexcept : mPosition(nullData.text()) {}

        /// The character's code point; 0 at the end. Kept: string-signed-byte.
        int operator*() const noexcept {
            const auto byte = static_cast<signed char>(*mPosition);
            return byte >= 0 ? byte : decode(mPosition);
        }

        // In line, as nearly every walk over a text is made of these.
        const_iterator& operator++() noexcept {
            if (*mPosition != '\0') {
                do {
                    ++mPosition;
                } while ((static_cast<unsigned char>(*mPosition) & 0xC0U) == 0x80U);
            }
            return *this;
        }
        const_iterator& operator--() noexcept { return *this += -1; }
        const_iterator operator++(int) noexcept {
            const const_iterator before(*this);
            ++*this;
            return before;
        }
        const_iterator operator--(int) noexcept {
            const const_iterator before(*this);
            --*this;
            return before;
        }

        /// Moves by `steps` characters, forward no further than to a zero byte, back no further than to the zero
        /// byte before the text. From there no step leads forward again.
        const_iterator& operator+=(int steps) noexcept {
            // Not the member's own place, so that a loop may keep an iterator in a register.
            const char* position = mPosition;
            incrementSteps(&position, steps);
            mPosition = position;
            return *this;
        }
        const_iterator& operator-=(int steps) noexcept;

        bool operator==(const const_iterator& other) const noexcept { return mPosition == other.mPosition; }
        bool operator!=(const const_iterator& other) const noexcept { return mPosition != other.mPosition; }

        /// The byte that the position stands on.
        const char* getPosition() const noexcept { return mPosition; }

        /// The work of `+=` on a plain pointer into a text.
        static void incrementSteps(const char** position, int steps) noexcept;

    private:
        friend class CVQString;
        explicit const_iterator(const char* position) noexcept : mPosition(position) {}
        static int decode(const char* position) noexcept;

        const char* mPosition;
    };

    /// What every empty string without a block of its own points at: read-only, and so never counted.
    alignas(8) static const SVQStringData nullData;
    /// An empty string that is there before any constructor runs and after every destructor ran.
    static const CVQString& null;

    constexpr CVQString() noexcept : mData(const_cast<SVQStringData*>(&nullData)) {}
    /// Null gives the empty string.
    CVQString(const char* text);
    /// At most `maxBytes` bytes, fewer when a zero byte comes first.
    CVQString(const char* text, std::size_t maxBytes);
    /// An empty string with room for `capacity` bytes.
    explicit CVQString(unsigned capacity);
    /// The same for wider types: what does not fit 32 bits is refused like any capacity that large.
    template <class T, std::enable_if_t<std::is_integral_v<T> && (sizeof(T) > sizeof(unsigned)), int> = 0>
    explicit CVQString(T capacity)
        : CVQString(static_cast<unsigned long long>(capacity) < ~0U ? static_cast<unsigned>(capacity) : ~0U) {}
    /// From code points up to a terminating 0; null gives the empty string.
    CVQString(const unsigned* ucs4);
    /// From the code points in [begin, end).
    CVQString(const unsigned* begin, const unsigned* end);

    CVQString(const CVQString& other) noexcept : mData(other.mData) { addReference(false, 0); }
    /// Leaves `other` empty.
    CVQString(CVQString&& other) noexcept : mData(other.mData) { other.pointAtNull(); }
    ~CVQString() { removeReference(); }

    CVQString& operator=(const CVQString& other) noexcept {
        if (mData != other.mData) {
            CVQString copy(other);
            exchange(copy);
        }
        return *this;
    }
    /// Leaves `other` empty.
    CVQString& operator=(CVQString&& other) noexcept {
        CVQString taken(static_cast<CVQString&&>(other));
        exchange(taken);
        return *this;
    }

    unsigned getByteLength() const noexcept { return mData->mByteLength; }
    unsigned getCharacterCount() const noexcept { return mData->mCharacterCount; }
    unsigned getCapacity() const noexcept { return mData->mCapacity; }
    bool isEmpty() const noexcept { return mData->mByteLength == 0; }
    /// The text in UTF-8, zero-terminated. Valid as long as the string's buffer is not replaced.
    const char* c_str() const noexcept { return mData->text(); }

    const_iterator begin() const noexcept { return const_iterator(mData->text()); }
    const_iterator end() const noexcept { return const_iterator(mData->text() + mData->mByteLength); }

    /// The code point of the index-th character; 0 past the end. Walks there, unless all characters are ASCII.
    int operator[](std::size_t index) const noexcept;

    /// Equal in their number of characters and in strcmp. Kept: string-zero-bytes.
    friend bool operator==(const CVQString& left, const CVQString& right) noexcept {
        return left.mData == right.mData || left.equals(right);
    }
    friend bool operator!=(const CVQString& left, const CVQString& right) noexcept { return !(left == right); }
    /// Byte order (strcmp), then the number of characters, so that what is equivalent is also equal.
    bool operator<(const CVQString& other) const noexcept { return compare(other) < 0; }
    /// Below 0, 0 or above 0 as this text is, in that order, before, the same as or behind the other.
    /// In line, as searching a sorted container is made of it.
    int compare(const CVQString& other) const noexcept {
        const int order = std::strcmp(mData->text(), other.mData->text());
        return order != 0 ? order : compareCounts(other);
    }
    /// The same, of two texts whose first `alike` bytes are the same and not zero. Raises `alike` to the number of
    /// all such bytes. So a search in sorted texts compares only once what all that are left to it begin with.
    int compareFrom(const CVQString& other, std::size_t& alike) const noexcept {
        const char* const mine = mData->text();
        const char* const theirs = other.mData->text();
        const std::size_t bytes =
            mData->mByteLength < other.mData->mByteLength ? mData->mByteLength : other.mData->mByteLength;
        while (alike + sizeof(std::size_t) <= bytes && areWordsAlike(mine + alike, theirs + alike)) {
            alike += sizeof(std::size_t);
        }
        while (mine[alike] == theirs[alike]) {
            if (mine[alike] == '\0')
                return compareCounts(other);
            ++alike;
        }
        return static_cast<unsigned char>(mine[alike]) < static_cast<unsigned char>(theirs[alike]) ? -1 : 1;
    }

    /// The first place of `pattern`, or end(). An empty pattern is nowhere.
    const_iterator find(const CVQString& pattern) const noexcept;
    /// The same from `from` on.
    const_iterator find(const CVQString& pattern, const const_iterator& from) const noexcept;
    /// The nearest place of `pattern` at `from` or, according to `forward`, after or before it. A zero byte in the
    /// text ends the search in both directions.
    const_iterator findString(const_iterator from, const CVQString& pattern, bool forward) const noexcept;

    /// The first characters, at most `characters`, in a string of exactly that capacity.
    CVQString getLeft(std::size_t characters) const;
    /// What stands before `position`.
    CVQString getLeft(const const_iterator& position) const;
    /// The last characters, at most `characters`.
    CVQString getRight(std::size_t characters) const;
    /// What stands at `position` and after it.
    CVQString getRight(const const_iterator& position) const;
    /// At most `characters` characters from `from` on; empty at the end.
    CVQString getMid(const const_iterator& from, std::size_t characters) const;

    /// Null appends nothing.
    CVQString& append(const char* text);
    /// At most `maxBytes` bytes, fewer when a zero byte comes first.
    CVQString& append(const char* text, std::size_t maxBytes);
    CVQString& append(const CVQString& other);
    CVQString operator+(const CVQString& other) const;

    /// `position` moves to the first byte of what was inserted.
    CVQString& insert(const_iterator& position, const CVQString& text);
    /// Removes at most `characters` characters. `position` stays where they began.
    CVQString& remove(const_iterator& position, std::size_t characters);
    /// Replaces at most `characters` characters; none at the end, none but an insertion for 0. `position` moves to
    /// the first byte of the replacement.
    CVQString& replace(const_iterator& position, std::size_t characters, const CVQString& replacement);
    /// Replaces every place of `pattern`, front to back; replacement text is not searched again.
    CVQString& replaceAll(const CVQString& pattern, const CVQString& replacement);
    /// Replaces the "%" and digit with the lowest digit (the first of these) by `argument`.
    CVQString& replaceArg(const CVQString& argument);

    /// Keeps the first `characters` characters. A buffer of its own keeps its capacity.
    CVQString& truncate(std::size_t characters);
    /// Keeps what stands before `position`.
    CVQString& truncate(const const_iterator& position);
    /// Removes leading and trailing white space: the bytes 9 to 13 and 32.
    CVQString& trim();
    /// Empties the string; its capacity stays. Kept: string-own-empty.
    void clear();
    /// Makes room for `capacity` bytes in a buffer of its own, unless there is room already.
    void reserve(std::size_t capacity);
    /// Afterwards neither string shares its buffer. Kept: string-own-empty.
    void swap(CVQString& other);

    /// Replaces the text by at most 256 formatted bytes. False when bytes were cut off (or the format was refused
    /// by vsnprintf, or null: then the string is empty). A character that the cut splits goes whole, and is logged.
    bool format(const char* format, ...) VQ_PRINTF(2, 3);
    /// The same through `scratch`, of `size` bytes: at most size - 1 bytes are kept.
    bool doFormat(char* scratch, std::size_t size, const char* format, std::va_list arguments) VQ_PRINTF(4, 0);
    /// doFormat through the caller's buffer.
    bool strprintf(char* buffer, std::size_t size, const char* format, ...) VQ_PRINTF(4, 5);

    /// Replace the text by the given code points or code units; each becomes one character, 0 and surrogates too.
    /// Code points above U+10FFFF become U+FFFD and are an assertion, raised once. So are null with a count and a
    /// range that ends before it begins: like null units, which are none, they give the empty text.
    void fromUCS4Sequence(const unsigned* codePoints, std::size_t count);
    void fromUCS2Sequence(const unsigned short* units, std::size_t count);
    void fromWCharSequence(const unsigned* begin, const unsigned* end);

    /// align(4), the byte length, the text and its terminating zero byte.
    static IVQOStream& toQRVStream(IVQOStream& stream, const CVQString& text);
    /// Reads that form. See operator>> for a source that delivers less.
    static const IVQIStream& fromQRVStream(const IVQIStream& stream, CVQString& text);

protected:
    // For the conversions, which derive to reach these.

    /// All sharing and copying on write. `unique` false: one more owner, as long as the capacity suffices. True, or
    /// else: a buffer of its own with at least that capacity; the text comes along as far as it fits.
    void addReference(bool unique, std::size_t capacity) {
        if (!unique && mData->mCapacity >= capacity) {
            if (mData != &nullData) {
                VQAtomic::incrementPrivate(mData->mReferences);
            }
            return;
        }
        if (isShared() || mData->mCapacity < capacity) {
            moveToBlock(capacity);
        }
    }

    /// Drops this owner's share; the last one frees the block.
    void removeReference() noexcept {
        if (mData == &nullData || mData == nullptr) {
            return;
        }
        const unsigned owners = VQAtomic::load(mData->mReferences);
        if (owners <= 1 || !VQAtomic::testDecrementPrivate(mData->mReferences)) {
            releaseBlock(owners);
        }
    }

    /// Copies `bytes` bytes to `atByte` as far as they are valid, and terminates. The buffer is unshared and has
    /// the room; the byte length grows by what was kept. `text` may be the place itself.
    void charConstruct(const char* text, std::size_t bytes, std::size_t atByte);

    /// Appends without validation: the caller vouches for the bytes. Characters are counted by their lead bytes:
    /// all but 80 to BF, FE and FF.
    void internalAppend(const char* text, std::size_t bytes);

    /// Makes the buffer unshared with room for a text of `bytes`; false, after a report, when no string may be that
    /// long.
    bool makeRoom(unsigned long long bytes);

    /// Exchanges the buffer for one of exactly that capacity. The text comes along as far as it fits.
    void moveToBlock(std::size_t capacity);

    bool isShared() const noexcept { return VQAtomic::load(mData->mReferences) > 1; }

    SVQStringData* mData;

private:
    friend const IVQIStream& operator>>(const IVQIStream& stream, CVQString& text);

    void pointAtNull() noexcept { mData = const_cast<SVQStringData*>(&nullData); }
    void exchange(CVQString& other) noexcept {
        SVQStringData* const mine = mData;
        mData = other.mData;
        other.mData = mine;
    }
    int compareCounts(const CVQString& other) const noexcept {
        const unsigned count = mData->mCharacterCount, otherCount = other.mData->mCharacterCount;
        return (count > otherCount ? 1 : 0) - (count < otherCount ? 1 : 0);
    }
    /// Whether both begin with the same word of bytes, none of them zero.
    static bool areWordsAlike(const char* left, const char* right) noexcept {
        constexpr std::size_t kOnes = ~std::size_t{0} / 0xFFU;
        std::size_t leftWord = 0;
        std::size_t rightWord = 0;
        std::memcpy(&leftWord, left, sizeof leftWord);
        std::memcpy(&rightWord, right, sizeof rightWord);
        return leftWord == rightWord && ((leftWord - kOnes) & ~leftWord & (kOnes << 7U)) == 0;
    }
    bool equals(const CVQString& other) const noexcept;
    bool holds(const const_iterator& position, std::size_t& at) const noexcept;
    CVQString slice(std::size_t at, std::size_t bytes, std::size_t characters) const;

    void releaseBlock(unsigned owners) noexcept;
    void adopt(SVQStringData* block) noexcept;
    void construct(const char* text, std::size_t bytes, std::size_t atByte, std::size_t asciiBytes);
    bool splice(std::size_t at, std::size_t bytes, std::size_t characters, const CVQString& inserted);
    void keep(std::size_t at, std::size_t bytes, std::size_t characters, std::size_t capacity);
    void receive(const IVQIStream& stream, unsigned bytes, unsigned terminator);
};

/// The text's hash: over all bytes, h = 5 h + byte, modulo 2^32. Kept: string-signed-hash.
VQ_EXPORT unsigned getHashValueForString(const CVQString& text) noexcept;

/// The distance in characters, negative when `to` stands before `from`; no further than to a zero byte.
VQ_EXPORT int operator-(const CVQString::const_iterator& to, const CVQString::const_iterator& from) noexcept;

static_assert(sizeof(SVQStringData) == SVQStringData::kOverhead && sizeof(unsigned) == 4, "the block's header");
static_assert(offsetof(SVQStringData, mSentinel) == 16 && offsetof(SVQStringData, mTail) == 17, "text at 17");
static_assert(sizeof(CVQString) == sizeof(void*) && sizeof(CVQString::const_iterator) == sizeof(void*),
              "one pointer");
