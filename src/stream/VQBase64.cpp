#include <VQBase64.h>

#include <CVQAsserter.h>
#include <stream/VQBase64Plain.h>
#include <stream/toLength.h>

#if defined(__x86_64__)
#include <stream/VQBase64AVX2.h>
#include <string/TVQPassesChoice.h>
#endif

#include <algorithm>
#include <cstring>

namespace VQBase64 {
namespace {

constexpr char kUnit[] = "VQBase64";
constexpr unsigned kLineEncode = 25;
constexpr unsigned kLineDecode = 78;
constexpr unsigned kLineDecodeLength = 135;

constexpr char kPadding = '=';

constexpr SPasses kPassesPlain{&encodeGroups, &decodeGroups};

#if defined(__x86_64__)
const SPasses& choosePasses() {
    return __builtin_cpu_supports("avx2") != 0 ? kPassesAVX2 : kPassesPlain;
}

VQ_CONSTINIT TVQPassesChoice<SPasses> sChoice{choosePasses};

const SPasses& passes() {
    return sChoice.get();
}
#else
const SPasses& passes() {
    return kPassesPlain;
}
#endif

bool isOutside(unsigned value) {
    return (value & kOutside) != 0;
}

bool isLineBreak(char character) {
    return character == '\r' || character == '\n';
}

}  // namespace

void encode(const unsigned char* source, std::size_t length, char* destination, std::size_t destinationSize) {
    if (source == nullptr || destination == nullptr) {
        doCheapAssert(kLineEncode, kUnit);
        return;
    }
    const std::size_t groups = std::min(length / 3, destinationSize / 4);
    std::size_t done = passes().encode(source, groups, destination);
    done += encodeGroups(source + 3 * done, groups - done, destination + 4 * done);
    source += 3 * done;
    length -= 3 * done;
    destination += 4 * done;
    destinationSize -= 4 * done;

    // Kept: base64-cut-silently. A group that does not fit is written up to the destination's end.
    if (length != 0) {
        char group[4];
        encodeGroup(source[0], length > 1 ? source[1] : 0U, length > 2 ? source[2] : 0U, group);
        if (length < 3) {
            group[3] = kPadding;
        }
        if (length < 2) {
            group[2] = kPadding;
        }
        const std::size_t written = std::min(sizeof group, destinationSize);
        std::copy_n(group, written, destination);
        destination += written;
        destinationSize -= written;
    }
    // Kept: base64-terminator-if-room. Callers size destinations without it, too.
    if (destinationSize != 0) {
        *destination = '\0';
    }
}

unsigned int calcDecodeLength(const char* text) {
    if (text == nullptr) {
        doCheapAssert(kLineDecodeLength, kUnit);
        return 0;
    }
    std::size_t length = std::strlen(text);
    // Kept: base64-all-padding. There are never more than two in what `encode` wrote.
    while (length != 0 && text[length - 1] == kPadding) {
        --length;
    }
    // Kept: base64-length-29-bits. Exact for texts below 2^32 / 3 characters.
    return 3U * static_cast<unsigned int>(length & 0xFFFFFFFFU) >> 2 & 0x1FFFFFFFU;
}

unsigned int decode(const char* text, unsigned char* destination, std::size_t destinationSize) {
    if (text == nullptr || destination == nullptr || destinationSize == 0 || destinationSize > 0xFFFFFFFFU) {
        doCheapAssert(kLineDecode, kUnit);
        return 0;
    }
    destination[0] = 0;
    const char* const end = text + std::strlen(text);
    std::size_t count = 0;
    while (text != end && count != destinationSize) {
        const auto characters = static_cast<std::size_t>(end - text);
        const std::size_t groups = std::min(characters / 4, (destinationSize - count) / 3);
        std::size_t done = passes().decode(text, groups, destination + count);
        done += decodeGroups(text + 4 * done, groups - done, destination + count + 3 * done);
        text += 4 * done;
        count += 3 * done;
        if (done == 0) {
            // A group with a character from outside, cut off by the text's end, or too long for the destination.
            // Kept: base64-first-character. Only the other three end the output.
            const unsigned p = valueOf(text[0]);
            const unsigned q = characters > 1 ? valueOf(text[1]) : kOutside;
            const unsigned r = characters > 2 ? valueOf(text[2]) : kOutside;
            const unsigned u = characters > 3 ? valueOf(text[3]) : kOutside;
            // Kept: base64-full-before-padding. Full here, the output ends without a look at the other characters.
            destination[count++] = firstByte(p, q);
            if (count == destinationSize) {
                break;
            }
            destination[count++] = secondByte(q, r);
            if (count == destinationSize) {
                break;
            }
            destination[count++] = thirdByte(r, u);
            if (isOutside(q) || isOutside(r)) {
                count -= 2;
                break;
            }
            if (isOutside(u)) {
                count -= 1;
                break;
            }
            text += 4;
        }
        while (isLineBreak(*text)) {
            ++text;
        }
    }
    return toLength(count);
}

}  // namespace VQBase64
