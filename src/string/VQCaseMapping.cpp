#include "CVQStringWriter.h"
#include "VQCaseMappings.h"
#include "VQCodePoint.h"
#include "VQUtf8Vectors.h"

#include <VQStringUtilities.h>

#include <limits>

namespace VQStringUtilities {
namespace {

template <class T, std::size_t N>
constexpr unsigned countOf(const T (&)[N]) {
    return static_cast<unsigned>(N);
}

// ---- any table: binary searches

/// The entry for `code`, or null; `lengthOf` says how many codes an entry is for.
template <class Entry, class First, class Length>
const Entry* search(const Entry* entries, unsigned count, unsigned code, First firstOf, Length lengthOf) {
    while (count > 0) {
        const Entry* const middle = entries + count / 2;
        if (code < firstOf(*middle)) {
            count /= 2;
        } else if (code - firstOf(*middle) < lengthOf(*middle)) {
            return middle;
        } else {
            entries = middle + 1;
            count -= count / 2 + 1;
        }
    }
    return nullptr;
}

class CSearchedMappings {
public:
    explicit CSearchedMappings(const SVQCaseMappingTable& table) : mTable(table) {}

    /// Calls `put` with each code that `code` becomes; false when it stays as it is.
    template <class Put>
    bool map(unsigned code, const Put& put) const {
        return code <= 0xFFFF ? map(mTable.mPlane, code, put) : map(mTable.mAbove, code, put);
    }

private:
    template <class Code, class Put>
    static bool map(const TVQCaseMappings<Code>& mappings, unsigned code, const Put& put) {
        const auto codeOf = [](const auto& entry) -> unsigned { return entry.mCode; };
        const auto one = [](const auto&) { return 1U; };
        if (const auto* const single = search(mappings.mSingles, mappings.mSingleCount, code, codeOf, one)) {
            put(single->mMapped);
            return true;
        }
        const auto firstOf = [](const auto& range) -> unsigned { return range.mFirst; };
        const auto lengthOf = [](const auto& range) -> unsigned { return range.mLength; };
        if (const auto* const range = search(mappings.mRanges, mappings.mRangeCount, code, firstOf, lengthOf)) {
            put((range->mFirstMapped - range->mFirst + code) & std::numeric_limits<Code>::max());
            return true;
        }
        if (const auto* const multi = search(mappings.mMultis, mappings.mMultiCount, code, codeOf, one)) {
            for (unsigned i = 0; i < multi->mCount; ++i) {
                put(multi->mMapped[i]);
            }
            return true;
        }
        return false;
    }

    const SVQCaseMappingTable& mTable;
};

// ---- the tables of the library: looked up

constexpr SVQCaseMappingTable kNoTable{};

constexpr SVQCaseMappingTable kUpper{{countOf(kUpperSingles), kUpperSingles, countOf(kUpperRanges), kUpperRanges,
                                      countOf(kUpperMultis), kUpperMultis},
                                     kNoTable.mAbove};
constexpr SVQCaseMappingTable kLower{{countOf(kLowerSingles), kLowerSingles, countOf(kLowerRanges), kLowerRanges,
                                      countOf(kLowerMultis), kLowerMultis},
                                     kNoTable.mAbove};

constexpr unsigned kPageCodes = 256;

/// Visits (code, what the index holds for it).
template <class Visit>
constexpr void visitMappings(const TVQCaseMappings<unsigned short>& mappings, unsigned firstMulti, Visit& visit) {
    for (unsigned i = 0; i < mappings.mSingleCount; ++i) {
        visit(mappings.mSingles[i].mCode, mappings.mSingles[i].mMapped);
    }
    for (unsigned i = 0; i < mappings.mRangeCount; ++i) {
        const SRange& range = mappings.mRanges[i];
        for (unsigned j = 0; j < range.mLength; ++j) {
            visit(range.mFirst + j, range.mFirstMapped + j);
        }
    }
    for (unsigned i = 0; i < mappings.mMultiCount; ++i) {
        visit(mappings.mMultis[i].mCode, firstMulti + i);
    }
}

struct SPageMarks {
    bool has[kPageCodes] = {};

    constexpr void operator()(unsigned code, unsigned) { has[code / kPageCodes] = true; }
};

/// Pages with mappings, and one without.
constexpr unsigned countPages(const SVQCaseMappingTable& table) {
    SPageMarks marks;
    visitMappings(table.mPlane, 0, marks);
    unsigned count = 1;
    for (const bool has : marks.has) {
        count += has ? 1 : 0;
    }
    return count;
}

/// What each code of the plane becomes.
template <const SVQCaseMappingTable& table, unsigned FirstLetter>
class CIndexedMappings {
public:
    static constexpr unsigned kNothing = 0;

    constexpr CIndexedMappings() {
        for (unsigned code = 0x80; code < kCodesOfTwo; ++code) {
            setOfTwo(code, formOfTwo(code));
        }
        visitMappings(table.mPlane, kFirstMulti, *this);
    }

    /// While the index is built.
    constexpr void operator()(unsigned code, unsigned held) {
        unsigned char& page = mPageOf[code / kPageCodes];
        if (page == 0) {
            page = ++mLastPage;
        }
        mPages[page][code % kPageCodes] = static_cast<unsigned short>(held);
        if (code >= 0x80 && code < kCodesOfTwo) {
            setOfTwo(code, isMulti(held) ? formOfTwo(table.mPlane.mMultis[held - kFirstMulti]) : formOfTwo(held));
        }
    }

    /// Calls `put` with each code that `code` becomes; false when it stays as it is.
    template <class Put>
    bool map(unsigned code, const Put& put) const {
        const unsigned held = at(code);
        if (held == kNothing) {
            return false;
        }
        if (!isMulti(held)) {
            put(held);
            return true;
        }
        const SMulti& multi = table.mPlane.mMultis[held - kFirstMulti];
        for (unsigned i = 0; i < multi.mCount; ++i) {
            put(multi.mMapped[i]);
        }
        return true;
    }

    /// Eight bytes at once, of which the ASCII letters are mapped: in both directions a letter differs in one bit.
    static std::uint64_t mapAscii(std::uint64_t word) {
        // Adding carries into the top bit of just the bytes from the first letter on, or behind the last.
        const std::uint64_t low = word & ~VQUtf8::kTopBits;
        const std::uint64_t fromFirst = low + (0x80 - FirstLetter) * VQUtf8::kLowBits;
        const std::uint64_t behindLast = low + (0x80 - FirstLetter - 26) * VQUtf8::kLowBits;
        return word ^ ((fromFirst & ~behindLast & ~word & VQUtf8::kTopBits) >> 2);
    }

    /// The two bytes that a character of these two bytes becomes, the first one lower; kNothing when it becomes
    /// another number of bytes, or had no need of two.
    std::uint16_t ofTwo(std::uint16_t form) const { return mOfTwo[placeOfTwo(form)]; }

    /// The code that a character becomes; kNothing when it stays as it is.
    unsigned at(unsigned code) const {
        return code <= 0xFFFF ? mPages[mPageOf[code / kPageCodes]][code % kPageCodes] : kNothing;
    }
    /// Instead of one code: it becomes several.
    static constexpr bool isMulti(unsigned held) { return held - kFirstMulti < table.mPlane.mMultiCount; }

private:
    static constexpr unsigned kFirstMulti = 0xE000;  // private use: no letter becomes one of these
    static constexpr unsigned kCodesOfTwo = 0x800;
    static constexpr unsigned kPlacesOfTwo = 0x2000;

    static constexpr std::uint16_t formOfTwo(unsigned code) {
        const unsigned form =
            code < 0x80 || code >= kCodesOfTwo ? kNothing : 0x80C0U | code >> 6 | (code & 0x3FU) << 8;
        return static_cast<std::uint16_t>(form);
    }
    static constexpr std::uint16_t formOfTwo(const SMulti& multi) {
        const bool ascii = multi.mCount == 2 && multi.mMapped[0] < 0x80 && multi.mMapped[1] < 0x80;
        const unsigned form = ascii ? multi.mMapped[0] | static_cast<unsigned>(multi.mMapped[1]) << 8 : kNothing;
        return static_cast<std::uint16_t>(form);
    }

    /// By both bytes as they are, the first one's mark cut off: three quarters of the table are never touched, but
    /// a place is found in two instructions.
    static constexpr unsigned placeOfTwo(std::uint16_t form) {
        return __builtin_bswap16(form) & (kPlacesOfTwo - 1);
    }
    constexpr void setOfTwo(unsigned code, std::uint16_t form) { mOfTwo[placeOfTwo(formOfTwo(code))] = form; }

    unsigned char mPageOf[kPageCodes] = {};
    unsigned char mLastPage = 0;
    unsigned short mPages[countPages(table)][kPageCodes] = {};
    std::uint16_t mOfTwo[kPlacesOfTwo] = {};
};

constexpr CIndexedMappings<kUpper, 'a'> kUpperIndex;
constexpr CIndexedMappings<kLower, 'A'> kLowerIndex;

// ---- texts that keep their length

#if defined(__SSE2__)
using Vector = VQUtf8::SVector16;
#else
using Vector = VQUtf8::SVectorWord;
#endif

/// One bit, or the top one of as many, for each byte of a block.
using Marks = std::uint64_t;
constexpr std::size_t kMarkBits = Vector::kMarkBits;
constexpr std::size_t kBlock = 64 / kMarkBits;
constexpr std::size_t kLookBack = 3;
constexpr std::size_t kWord = sizeof(std::uint64_t);

constexpr Marks marksBelow(std::size_t byte) {
    return byte < kBlock ? (Marks{1} << (byte * kMarkBits)) - 1 : ~Marks{0};
}

/// A block of a text, from the beginning of a character on, and the way to its mapped form, which is written as far
/// as no character changes its number of bytes.
class CBlock {
public:
    /// `in` has kBlock bytes, and kLookBack before them; the first `size` are of the text.
    CBlock(const char* in, std::size_t size) : mIn(in), mSize(size - VQUtf8::unfinishedBefore(in + size)) {
        if (!mark()) {
            mSize = 0;
            mTwos = 0;
            mLonger = 0;
        }
    }

    /// Writes kBlock bytes to `out`, of which the first size() are the mapped form. The others still have to be
    /// mapped, or are cut; where they are ASCII letters, they may have been mapped already.
    template <class Index>
    void map(const Index& index, char* out) {
        for (std::size_t i = 0; i < kBlock; i += kWord) {
            const std::uint64_t mapped = Index::mapAscii(VQUtf8::loadWord(mIn + i));
            std::memcpy(out + i, &mapped, kWord);
        }
        if (mLonger == 0) {
            mapMarked(index, mTwos, out, [](const char*) { return true; });
        } else {
            mapMarked(index, mTwos | mLonger, out, [](const char* in) { return VQUtf8::asByte(*in) < 0xE0; });
        }
    }

    /// Less than a block when the text ends, a character is cut, or one has to be mapped otherwise; perhaps 0.
    std::size_t size() const { return mSize; }
    /// The characters that came in addition.
    std::size_t more() const { return mMore; }

private:
    /// The bytes of the block that a view marks.
    template <class View>
    Marks marksOf(View view) const {
        Marks marks = 0;
        for (std::size_t i = 0; i < kBlock; i += Vector::kBytes) {
            marks |= Marks{Vector::marks(view(Vector::load(mIn + i)))} << (i * kMarkBits);
        }
        return marks;
    }

    template <class View>
    bool has(View view) const {
        Vector::Vector all = view(Vector::load(mIn));
        for (std::size_t i = Vector::kBytes; i < kBlock; i += Vector::kBytes) {
            all = Vector::either(all, view(Vector::load(mIn + i)));
        }
        return Vector::marks(all) != 0;
    }

    /// Finds the characters; false where not all bytes are of regular ones.
    bool mark() {
        if (!has([](Vector::Vector x) { return x; })) {
            return true;
        }
        const auto behind = [](Marks marks, std::size_t count) { return marks << (count * kMarkBits); };
        const Marks within = marksBelow(mSize);
        mTwos = marksOf(Vector::atLeastC0) & within;
        Marks announced = behind(mTwos, 1);
        Marks never = 0;
        if (has(Vector::atLeastE0)) {
            mLonger = marksOf(Vector::atLeastE0) & within;
            mTwos &= ~mLonger;
            announced |= behind(mLonger, 2) | behind(marksOf(Vector::atLeastF0) & within, 3);
            never = marksOf(Vector::atLeastF8) & within;
        }
        // What is announced beyond the end is wrong, too: the end was not where a regular character is cut.
        return ((announced ^ (marksOf(Vector::continuation) & within)) | never) == 0;
    }

    /// Maps the characters of more than one byte, and ends the block at the first that does not keep its length.
    template <class Index, class OfTwo>
    void mapMarked(const Index& index, Marks marks, char* out, OfTwo isOfTwo) {
        const char* const in = mIn;
        std::size_t more = 0;  // not in the object, which each store through `out` might change
        for (; marks != 0; marks &= marks - 1) {
            const std::size_t at = static_cast<std::size_t>(__builtin_ctzll(marks)) / kMarkBits;
            if (isOfTwo(in + at)) {
                std::uint16_t form;
                std::memcpy(&form, in + at, sizeof form);
                const std::uint16_t mapped = index.ofTwo(form);
                if (VQ_UNLIKELY((mapped & 0x80U) == 0)) {
                    if (mapped == Index::kNothing) {
                        mSize = at;
                        break;
                    }
                    ++more;  // two characters of one byte
                }
                std::memcpy(out + at, &mapped, sizeof mapped);
            } else if (!mapLonger(index, at, out)) {
                mSize = at;
                break;
            }
        }
        mMore = more;
    }

    template <class Index>
    bool mapLonger(const Index& index, std::size_t at, char* out) {
        const std::size_t length = VQUtf8::kSequenceLength[VQUtf8::asByte(mIn[at])];
        const unsigned held = index.at(VQUtf8::decode(mIn + at, length));
        if (held == Index::kNothing) {
            return true;
        }
        if (Index::isMulti(held) || VQUtf8::encodedLength(held) != length) {
            return false;
        }
        VQUtf8::encode(held, out + at);
        return true;
    }

    const char* mIn;
    std::size_t mSize;
    std::size_t mMore = 0;
    Marks mTwos = 0;
    Marks mLonger = 0;
};

// ---- any text

/// Visits the characters from byte `at` on: those that are mapped, with the codes that they become, and those that
/// stay.
template <class Mappings, class Visitor>
void walk(const Mappings& mappings, const char* const text, std::size_t at, std::size_t bytes, Visitor& visitor) {
    const auto onCode = [&visitor](unsigned mapped) {
        visitor.onCode(mapped <= VQUtf8::kLastCodePoint ? mapped : VQUtf8::kReplacementCharacter);
    };
    while (at < bytes) {
        const char* const place = text + at;
        const VQUtf8::SCharacter character = VQUtf8::nextCharacter(place, bytes - at);
        at += character.bytes;
        if (mappings.map(character.code, onCode)) {
            visitor.onMapped(at);
        } else {
            visitor.onKept(place, character.bytes);
        }
    }
}

/// What the text takes when it is mapped.
struct SMeasure {
    unsigned long long bytes;  ///< with those before
    long long more = 0;        ///< characters
    bool changed = false;
    bool overtakes = false;  ///< written over the original, the result would reach what has not been read yet

    void onCode(unsigned code) {
        bytes += VQUtf8::encodedLength(code);
        ++more;
    }
    void onMapped(std::size_t at) {
        --more;
        changed = true;
        overtakes |= bytes > at;
    }
    void onKept(const char*, std::size_t length) { bytes += length; }
};

/// Writes it.
struct SOutput {
    char* out;

    void onCode(unsigned code) { out = VQUtf8::encode(code, out); }
    void onMapped(std::size_t) {}
    void onKept(const char* place, std::size_t length) {
        for (; length > 0; --length) {
            *out++ = *place++;
        }
    }
};

/// A text on its way from the original to the result: both in one buffer as long as that is possible.
class CMappedText {
public:
    explicit CMappedText(CVQString& text)
        : mWriter(text), mIn(mWriter.text()), mBytes(mWriter.getByteLength()),
          mCharacters(mWriter.getCharacterCount()) {}

    /// Maps block by block, as far as the number of bytes stays the same.
    template <class Index>
    void mapBlocks(const Index& index) {
        char last[kLookBack + kBlock] = {};
        char aside[kBlock];
        while (mAt < mBytes) {
            const char* in = mIn + mAt;
            const std::size_t size = mBytes - mAt < kBlock ? mBytes - mAt : kBlock;
            if (size < kBlock) {
                in = static_cast<const char*>(std::memcpy(last + kLookBack, in, size));
            }
            CBlock block(in, size);
            const bool direct = mChanged && size == kBlock;
            block.map(index, direct ? mWriter.text() + mAt : aside);
            const bool first = !mChanged && std::memcmp(aside, in, block.size()) != 0;
            if (block.size() == 0 || (first && !provide(mBytes, /*overtakes*/ false))) {
                return;
            }
            mChanged |= first;
            if (mChanged && !direct) {
                std::memcpy(mWriter.text() + mAt, aside, block.size());
            }
            mCharacters += static_cast<long long>(block.more());
            mAt += block.size();
        }
    }

    /// Maps the rest.
    template <class Mappings>
    void mapCharacters(const Mappings& mappings) {
        SMeasure rest{mAt};
        walk(mappings, mIn, mAt, mBytes, rest);
        if (rest.changed && provide(rest.bytes, rest.overtakes)) {
            SOutput output{mWriter.text() + mAt};
            walk(mappings, mIn, mAt, mBytes, output);
            mChanged = true;
            mCharacters += rest.more;
            mResult = static_cast<std::size_t>(rest.bytes);
        }
    }

    void finish() {
        if (mChanged) {
            mWriter.setLengths(mResult, static_cast<std::size_t>(mCharacters));
        }
    }

private:
    /// Makes room for a result of `bytes` bytes, of which those before mAt are there already. `overtakes`: not in
    /// the same buffer as the original. False when no string may be that long.
    bool provide(unsigned long long bytes, bool overtakes) {
        const bool apart = mIn != mWriter.text();
        const bool roomy = mWriter.hasRoomOfItsOwn(bytes);
        if (roomy && (apart || !overtakes)) {
            return true;
        }
        // Shared, a buffer stays as it is while the writer takes its text to another.
        const CVQString shared = mWriter.share();
        if (!mWriter.makeRoom(roomy ? mWriter.getCapacity() : bytes)) {
            return false;
        }
        if (!apart) {
            mOriginal = shared;
        }
        return true;
    }

    CVQStringWriter mWriter;
    CVQString mOriginal;  ///< where the original is apart from the result
    const char* mIn;      ///< the original
    std::size_t mBytes;   ///< of it
    std::size_t mResult = mBytes;
    std::size_t mAt = 0;
    long long mCharacters;  ///< of the original, and those that came in addition
    bool mChanged = false;
};

template <class Index>
void mapByIndex(CVQString& text, const Index& index) {
    CMappedText mapped(text);
    mapped.mapBlocks(index);
    mapped.mapCharacters(index);
    mapped.finish();
}

}  // namespace

constexpr SVQCaseMappingTable sToUpperCaseMappingTable = kUpper;
constexpr SVQCaseMappingTable sToLowerCaseMappingTable = kLower;

void toUpper(CVQString& text) {
    doCaseMapping(text, sToUpperCaseMappingTable);
}

void toLower(CVQString& text) {
    doCaseMapping(text, sToLowerCaseMappingTable);
}

void doCaseMapping(CVQString& text, const SVQCaseMappingTable& table) {
    if (&table == &sToUpperCaseMappingTable) {
        mapByIndex(text, kUpperIndex);
    } else if (&table == &sToLowerCaseMappingTable) {
        mapByIndex(text, kLowerIndex);
    } else {
        CMappedText mapped(text);
        mapped.mapCharacters(CSearchedMappings(table));
        mapped.finish();
    }
}

}  // namespace VQStringUtilities
