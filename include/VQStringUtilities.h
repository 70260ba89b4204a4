// VQStringUtilities: splitting a text at delimiters, and upper and lower case.
//   Units    characters are code points.
//   Rules    case mapping goes character by character, without regard to what stands beside it or to a language:
//            the final sigma and the Turkish i are mapped like others. One character may become up to three.
//   Errors   none are returned. Bytes that form no character stay as they are. A text that would become one of
//            2^32 - 1 bytes or more is the string's assertion on its capacity; it is mapped in part or not at all.
//   Threads  any thread; the text or vector that is written: one thread at a time.
//   Source   Unicode Character Database, the mappings of Unicode 4.0 for letters below U+10000
//            (tools/unicode/generate_case_mappings.py).
#pragma once

#include <CVQString.h>
#include <TVQVector.h>
#include <VQExport.h>

namespace VQStringUtilities {

/// The case mappings of one part of the code space. Each kind is sorted by code.
template <class Code>
struct TVQCaseMappings {
    /// One code becomes another.
    struct SSingle {
        Code mCode;
        Code mMapped;
    };
    /// `mLength` codes from `mFirst` on become those from `mFirstMapped` on.
    struct SRange {
        Code mFirst;
        Code mLength;
        Code mFirstMapped;
    };
    /// One code becomes `mCount` codes.
    struct SMulti {
        Code mCode;
        Code mCount;
        const Code* mMapped;
    };

    unsigned mSingleCount;
    const SSingle* mSingles;
    unsigned mRangeCount;
    const SRange* mRanges;
    unsigned mMultiCount;
    const SMulti* mMultis;
};

/// One direction of case mapping, for all code points.
struct SVQCaseMappingTable {
    TVQCaseMappings<unsigned short> mPlane;  ///< code points up to U+FFFF
    TVQCaseMappings<unsigned> mAbove;        ///< those above
};

static_assert(sizeof(TVQCaseMappings<unsigned short>::SSingle) == 4 &&
                  sizeof(TVQCaseMappings<unsigned short>::SRange) == 6 &&
                  sizeof(TVQCaseMappings<unsigned>::SSingle) == 8 &&
                  sizeof(TVQCaseMappings<unsigned>::SRange) == 12,
              "codes of 16 bits, and of 32");
static_assert(sizeof(void*) != 4 ||
                  (sizeof(TVQCaseMappings<unsigned short>::SMulti) == 8 &&
                   sizeof(TVQCaseMappings<unsigned>::SMulti) == 12 && sizeof(SVQCaseMappingTable) == 48),
              "six pairs of a count and a pointer on the target");

VQ_EXPORT extern const SVQCaseMappingTable sToUpperCaseMappingTable;
VQ_EXPORT extern const SVQCaseMappingTable sToLowerCaseMappingTable;

/// The tokens between the characters of `text` that are also in `delimiters`. Without `skipEmpty` k delimiters make
/// k + 1 tokens; with it no token is empty. What `out` held goes first; it may hold `text` and `delimiters`.
VQ_EXPORT void split(TVQVector<CVQString>& out, const CVQString& text, const CVQString& delimiters, bool skipEmpty);

VQ_EXPORT void toUpper(CVQString& text);
VQ_EXPORT void toLower(CVQString& text);

/// Maps each character by the first kind that has it: single, range, multi. A text in which nothing changes keeps
/// its buffer, shared or not.
VQ_EXPORT void doCaseMapping(CVQString& text, const SVQCaseMappingTable& table);

}  // namespace VQStringUtilities
