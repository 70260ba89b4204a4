#include "CVQStringWriter.h"
#include "VQCodePoint.h"

#include <CVQAsserter.h>

#include <cstdint>

namespace {

constexpr char kUnit[] = "CVQString";
constexpr unsigned kLineFromWCharSequence = 1349;
constexpr unsigned kLineFromUCS4Sequence = 1602;

constexpr unsigned encodable(unsigned code) {
    return code <= VQUtf8::kLastCodePoint ? code : VQUtf8::kReplacementCharacter;
}

/// Makes `text` the characters of these codes, without pairing surrogates. False when a code was none.
template <class Code>
bool replaceText(CVQString& text, const Code* codes, std::size_t count) {
    unsigned long long bytes = 0;
    bool whole = true;
    for (std::size_t i = 0; i < count; ++i) {
        whole = whole && codes[i] <= VQUtf8::kLastCodePoint;
        bytes += VQUtf8::encodedLength(encodable(codes[i]));
    }
    if (count == 0) {
        text.truncate(0);
        return whole;
    }
    CVQStringWriter writer(text);
    if (writer.makeRoom(bytes)) {
        char* out = writer.text();
        for (std::size_t i = 0; i < count; ++i) {
            out = VQUtf8::encode(encodable(codes[i]), out);
        }
        writer.setLengths(static_cast<std::size_t>(bytes), count);
    }
    return whole;
}

}  // namespace

CVQString::CVQString(const unsigned* ucs4) : CVQString() {
    if (ucs4 != nullptr) {
        const unsigned* end = ucs4;
        while (*end != 0) {
            ++end;
        }
        fromWCharSequence(ucs4, end);
    }
}

CVQString::CVQString(const unsigned* begin, const unsigned* end) : CVQString() {
    fromWCharSequence(begin, end);
}

void CVQString::fromUCS2Sequence(const unsigned short* units, std::size_t count) {
    replaceText(*this, units, units != nullptr ? count : 0);
}

void CVQString::fromUCS4Sequence(const unsigned* codePoints, std::size_t count) {
    const bool there = codePoints != nullptr || count == 0;
    if (!replaceText(*this, codePoints, there ? count : 0) || !there) {
        doCheapAssert(kLineFromUCS4Sequence, kUnit);
    }
}

void CVQString::fromWCharSequence(const unsigned* begin, const unsigned* end) {
    const auto first = reinterpret_cast<std::uintptr_t>(begin);
    const auto last = reinterpret_cast<std::uintptr_t>(end);
    const bool there = begin == end || (begin != nullptr && first <= last);
    const std::size_t count = there ? (last - first) / sizeof *begin : 0;
    if (!replaceText(*this, begin, count) || !there) {
        doCheapAssert(kLineFromWCharSequence, kUnit);
    }
}
