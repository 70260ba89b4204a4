#include "CVQStringWriter.h"
#include "VQCaseMappings.h"
#include "VQCodePoint.h"

#include <VQStringUtilities.h>

#include <limits>

namespace VQStringUtilities {
namespace {

constexpr std::size_t kWord = sizeof(std::uint64_t);

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

    static constexpr bool kAsciiLetters = false;

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

/// What each code of the plane becomes: its own code's place in a page, of which only those with mappings are there.
template <const SVQCaseMappingTable& table, unsigned FirstLetter>
class CIndexedMappings {
public:
    constexpr CIndexedMappings() { visitMappings(table.mPlane, kFirstMulti, *this); }

    /// While the index is built.
    constexpr void operator()(unsigned code, unsigned held) {
        unsigned char& page = mPageOf[code / kPageCodes];
        if (page == 0) {
            page = ++mLastPage;
        }
        mPages[page][code % kPageCodes] = static_cast<unsigned short>(held);
    }

    static constexpr bool kAsciiLetters = true;

    /// Eight ASCII letters and other characters at once: in both directions a letter differs in one bit.
    static std::uint64_t mapAscii(std::uint64_t word) {
        // Adding carries into the top bit of just the bytes from the first letter on, or behind the last.
        const std::uint64_t fromFirst = word + (0x80 - FirstLetter) * VQUtf8::kLowBits;
        const std::uint64_t behindLast = word + (0x80 - FirstLetter - 26) * VQUtf8::kLowBits;
        return word ^ ((fromFirst & ~behindLast & VQUtf8::kTopBits) >> 2);
    }

    template <class Put>
    bool map(unsigned code, const Put& put) const {
        const unsigned held = code <= 0xFFFF ? mPages[mPageOf[code / kPageCodes]][code % kPageCodes] : kNothing;
        if (held == kNothing) {
            return false;
        }
        if (VQ_LIKELY(held - kFirstMulti >= table.mPlane.mMultiCount)) {
            put(held);
            return true;
        }
        const SMulti& multi = table.mPlane.mMultis[held - kFirstMulti];
        for (unsigned i = 0; i < multi.mCount; ++i) {
            put(multi.mMapped[i]);
        }
        return true;
    }

private:
    static constexpr unsigned kNothing = 0;
    static constexpr unsigned kFirstMulti = 0xE000;  // private use: no letter becomes one of these

    unsigned char mPageOf[kPageCodes] = {};
    unsigned char mLastPage = 0;
    unsigned short mPages[countPages(table)][kPageCodes] = {};
};

constexpr CIndexedMappings<kUpper, 'a'> kUpperIndex;
constexpr CIndexedMappings<kLower, 'A'> kLowerIndex;

// ---- the walk over a text

/// Visits a text in pieces: eight ASCII characters that are mapped at once, a character that is mapped, one that stays.
template <class Mappings, class Visitor>
void walk(const Mappings& mappings, const char* const text, std::size_t bytes, Visitor& visitor) {
    for (std::size_t at = 0; at < bytes;) {
        const char* const place = text + at;
        const std::size_t left = bytes - at;
        if constexpr (Mappings::kAsciiLetters) {
            const std::uint64_t word = left >= kWord ? VQUtf8::loadWord(place) : VQUtf8::kTopBits;
            if ((word & VQUtf8::kTopBits) == 0) {
                visitor.onWord(word, Mappings::mapAscii(word));
                at += kWord;
                continue;
            }
        }
        const VQUtf8::SCharacter character = VQUtf8::nextCharacter(place, left);
        at += character.bytes;
        const auto onCode = [&visitor](unsigned mapped) {
            visitor.onCode(mapped <= VQUtf8::kLastCodePoint ? mapped : VQUtf8::kReplacementCharacter);
        };
        if (mappings.map(character.code, onCode)) {
            visitor.onMapped(at);
        } else {
            visitor.onKept(place, character.bytes);
        }
    }
}

/// What the mapped text takes.
struct SMeasure {
    unsigned long long bytes = 0;
    unsigned long long characters = 0;
    bool changed = false;
    bool overtakes = false;  ///< written over the original, the result would reach what has not been read yet

    void onWord(std::uint64_t word, std::uint64_t mapped) {
        bytes += kWord;
        characters += kWord;
        changed |= word != mapped;
    }
    void onCode(unsigned code) {
        bytes += VQUtf8::encodedLength(code);
        ++characters;
    }
    void onMapped(std::size_t at) {
        changed = true;
        overtakes |= bytes > at;
    }
    void onKept(const char*, std::size_t length) {
        bytes += length;
        ++characters;
    }
};

/// Writes it.
struct SOutput {
    char* out;

    void onWord(std::uint64_t, std::uint64_t mapped) {
        std::memcpy(out, &mapped, kWord);
        out += kWord;
    }
    void onCode(unsigned code) { out = VQUtf8::encode(code, out); }
    void onMapped(std::size_t) {}
    void onKept(const char* place, std::size_t length) {
        for (; length > 0; --length) {
            *out++ = *place++;
        }
    }
};

template <class Mappings>
void mapCase(CVQString& text, const Mappings& mappings) {
    SMeasure measure;
    walk(mappings, text.c_str(), text.getByteLength(), measure);
    if (!measure.changed) {
        return;
    }
    CVQStringWriter writer(text);
    const std::size_t bytes = writer.getByteLength();
    const bool roomy = writer.hasRoomOfItsOwn(measure.bytes);
    const bool inPlace = roomy && !measure.overtakes;
    // Shared, the block stays as it is while the result is written to another.
    const CVQString original = inPlace ? CVQString() : writer.share();
    if (!inPlace && !writer.makeRoom(roomy ? writer.getCapacity() : measure.bytes)) {
        return;
    }
    SOutput output{writer.text()};
    walk(mappings, inPlace ? writer.text() : original.c_str(), bytes, output);
    writer.setLengths(static_cast<std::size_t>(measure.bytes), static_cast<std::size_t>(measure.characters));
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
        mapCase(text, kUpperIndex);
    } else if (&table == &sToLowerCaseMappingTable) {
        mapCase(text, kLowerIndex);
    } else {
        mapCase(text, CSearchedMappings(table));
    }
}

}  // namespace VQStringUtilities
