// VQUtf16Passes: the passes of VQUtf16, written once over a vector type of VQUtf8Passes. Internal linkage
// throughout, for the reason given there.
#pragma once

#include "VQUtf16.h"
#include "VQUtf8Passes.h"

namespace VQUtf16 {

/// The passes, built for one kind of processor.
struct SPasses {
    std::size_t (*measure)(const char* text, std::size_t bytes);
    void (*fromUtf8)(const char* text, std::size_t bytes, unsigned short* out, std::size_t units);
    SUtf8Extent (*measureUtf8)(const unsigned short* units, std::size_t count);
    std::size_t (*toAscii)(const unsigned short* units, std::size_t count, char* out);
    void (*toUtf8)(const unsigned short* units, std::size_t count, char* out, std::size_t bytes);
    LatinSteps latinSteps;
};

namespace {

using VQUtf8::asByte;

/// Length of the well-formed character at `text`; 0 when there is none within `bytes`.
inline std::size_t wellFormedAt(const char* text, std::size_t bytes) {
    const unsigned lead = asByte(*text);
    if (lead < 0x80) {
        return 1;
    }
    const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if (lead < 0xC2 || lead > 0xF4 || length > bytes) {
        return 0;
    }
    // Neither overlong forms, nor surrogates, nor anything above U+10FFFF: the second byte tells.
    const unsigned low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const unsigned high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    if (asByte(text[1]) < low || asByte(text[1]) > high) {
        return 0;
    }
    for (std::size_t i = 2; i < length; ++i) {
        if (!VQUtf8::isContinuation(text[i])) {
            return 0;
        }
    }
    return length;
}

/// Goes over well-formed characters from `at` on, until it has passed `to`; false at what is none.
inline bool walkWellFormed(const char* text, std::size_t bytes, std::size_t to, std::size_t& at,
                           std::size_t& units) {
    while (at < to) {
        if (const std::size_t run = VQUtf8::plainRun(text, at, bytes - at); run != 0) {
            at += run;
            units += run;
            continue;
        }
        const std::size_t length = wellFormedAt(text + at, bytes - at);
        if (length == 0) {
            return false;
        }
        at += length;
        units += length < 4 ? 1U : 2U;
    }
    return true;
}

/// Marks the bytes that start only what is overlong.
template <class V>
inline typename V::Vector overlongOfTwo(typename V::Vector x) {
    return V::equal(V::both(x, V::splat('\xFE')), V::splat('\xC0'));
}

/// Marks what is not well-formed in the vector `x` at `text`.
template <class V>
inline typename V::Vector malformed(const char* text, typename V::Vector x) {
    const auto before = V::load(text - 1);
    const auto after = [&](unsigned char lead) { return V::equal(before, V::splat(static_cast<char>(lead))); };
    const auto e0 = after(0xE0);  // needs a second byte from A0 on,
    const auto ed = after(0xED);  // this one a byte below
    const auto f0 = after(0xF0);  // from 90 on
    const auto f4 = after(0xF4);
    const auto wrongAfterE = V::both(V::either(e0, ed), V::differ(V::atLeastA0(x), e0));
    const auto wrongAfterF = V::both(V::either(f0, f4), V::differ(V::atLeast90(x), f0));
    const auto never = V::either(overlongOfTwo<V>(x), V::atLeastF5(x));
    return V::either(V::either(wrongAfterE, wrongAfterF), V::either(never, VQUtf8::irregular<V>(text, x)));
}

/// The same where no character has more than two bytes.
template <class V>
inline typename V::Vector malformedUpToTwo(const char* text, typename V::Vector x) {
    const auto announced = V::atLeastC0(V::load(text - 1));
    return V::either(V::differ(announced, V::continuation(x)), overlongOfTwo<V>(x));
}

/// Counts the units of `Vectors` vectors; false where something in them is not well-formed.
template <class V, std::size_t Vectors>
inline bool tallyWellFormed(const char* text, typename V::Tally& tally) {
    auto longer = V::atLeastE0(V::load(text - 3));
    typename V::Vector x[Vectors];
    for (std::size_t i = 0; i < Vectors; ++i) {
        x[i] = V::load(text + i * V::kBytes);
        longer = V::either(longer, V::atLeastE0(x[i]));
        tally.add(V::differ(V::continuation(x[i]), V::splat('\xFF')));
    }
    auto wrong = V::splat('\0');
    if (V::marks(longer) == 0) {
        for (std::size_t i = 0; i < Vectors; ++i) {
            wrong = V::either(wrong, malformedUpToTwo<V>(text + i * V::kBytes, x[i]));
        }
    } else {
        for (std::size_t i = 0; i < Vectors; ++i) {
            wrong = V::either(wrong, malformed<V>(text + i * V::kBytes, x[i]));
            tally.add(V::equal(V::both(x[i], V::splat('\xF8')), V::splat('\xF0')));
        }
    }
    tally.settle();
    return V::marks(wrong) == 0;
}

/// The bytes of the whole vectors at the beginning that are ASCII.
template <class V>
std::size_t passPlain(const char* text, std::size_t bytes) {
    std::size_t at = 0;
    for (; bytes - at >= VQUtf8::kGroup * V::kBytes; at += VQUtf8::kGroup * V::kBytes) {
        typename V::Vector all = V::load(text + at);
        for (std::size_t i = 1; i < VQUtf8::kGroup; ++i) {
            all = V::either(all, V::load(text + at + i * V::kBytes));
        }
        if (V::marks(all) != 0) {
            break;
        }
    }
    while (bytes - at >= V::kBytes && V::marks(V::load(text + at)) == 0) {
        at += V::kBytes;
    }
    return at;
}

template <class V>
std::size_t measure(const char* text, std::size_t bytes) {
    constexpr std::size_t kLookBack = 3;
    std::size_t at = passPlain<V>(text, bytes);
    std::size_t units = at;
    if (bytes - at >= kLookBack + V::kBytes) {
        if (!walkWellFormed(text, bytes, kLookBack, at, units)) {
            return kMalformed;
        }
        typename V::Tally tally;
        while (bytes - at >= V::kBytes) {
            const char* const place = text + at;
            if (V::marks(V::load(place)) == 0) {
                if (VQUtf8::unfinishedBefore(place) != 0) {
                    return kMalformed;
                }
                units += V::kBytes;
                at += V::kBytes;
                continue;
            }
            // Several, as text that is not plain once is likely not to be so the next time.
            const bool group = bytes - at >= VQUtf8::kGroup * V::kBytes;
            if (!(group ? tallyWellFormed<V, VQUtf8::kGroup>(place, tally) : tallyWellFormed<V, 1>(place, tally))) {
                return kMalformed;
            }
            at += group ? VQUtf8::kGroup * V::kBytes : V::kBytes;
        }
        units += tally.total();
        if (const std::size_t begun = VQUtf8::unfinishedBefore(text + at); begun != 0) {
            at -= begun;
            units -= asByte(text[at]) < 0xF0 ? 1U : 2U;
        }
    }
    return walkWellFormed(text, bytes, bytes, at, units) ? units : kMalformed;
}

/// Writes a code point; returns the place behind it.
inline unsigned short* put(unsigned code, unsigned short* out) {
    if (code < 0x10000) {
        *out++ = static_cast<unsigned short>(code);
    } else {
        *out++ = static_cast<unsigned short>(0xD7C0U + (code >> 10));  // D800 less the plane that is left out
        *out++ = static_cast<unsigned short>(0xDC00U | (code & 0x3FFU));
    }
    return out;
}

template <class V>
void fromUtf8(const char* text, std::size_t bytes, unsigned short* out, std::size_t units) {
    const char* const end = text + bytes;
    const unsigned short* const outEnd = out + units;
    while (text != end) {
        const unsigned lead = asByte(*text);
        if (lead >= 0x80) {
            const std::size_t length = VQUtf8::kSequenceLength[lead];
            out = put(VQUtf8::decode(text, length), out);
            text += length;
        } else if (VQUtf8::toSize(end - text) >= V::kBytes && VQUtf8::toSize(outEnd - out) >= V::kBytes) {
            // What the vector has behind its ASCII is written as well, and overwritten in the next round.
            const auto x = V::load(text);
            const auto marks = V::marks(x);
            V::widen(x, out);
            // A branch: while all is ASCII, the next step does not wait for the marks.
            if (marks == 0) {
                text += V::kBytes;
                out += V::kBytes;
            } else {
                text += VQUtf8::firstOf<V>(marks);
                out += VQUtf8::firstOf<V>(marks);
            }
        } else {
            *out++ = static_cast<unsigned short>(lead);
            ++text;
        }
    }
}

/// Of `N` units and the one behind. A loop of fixed length, which compilers make vectors of.
template <std::size_t N>
inline void count(const unsigned short* units, SUtf8Extent& extent) {
    unsigned short bytes = 0;
    unsigned short characters = 0;
    for (std::size_t i = 0; i < N; ++i) {
        const bool there = units[i] != 0;
        const bool pair = (((units[i] & 0xFC00) ^ 0xD800) | ((units[i + 1] & 0xFC00) ^ 0xDC00)) == 0;
        // Of the six bytes of two surrogates a pair takes four.
        bytes = static_cast<unsigned short>(bytes + there + (units[i] >= 0x80) + (units[i] >= 0x800) - 2 * pair);
        characters = static_cast<unsigned short>(characters + there - pair);
    }
    extent.bytes += bytes;
    extent.characters += characters;
}

template <class V>
SUtf8Extent measureUtf8(const unsigned short* units, std::size_t left) {
    SUtf8Extent extent{0, 0};
    for (; left >= V::kBytes && V::arePlain(units); units += V::kBytes, left -= V::kBytes) {
        extent.bytes += V::kBytes;
    }
    extent.characters = extent.bytes;
    if (left == 0) {
        return extent;
    }
    while (left > V::kBytes) {
        std::size_t step = V::kBytes;
        if (const std::size_t wide = V::countWide(units); wide <= step) {
            extent.bytes += step + wide;
            extent.characters += step;
        } else if (left > VQUtf8::kGroup * step) {
            // As text with longer characters is likely to have more of them.
            step *= VQUtf8::kGroup;
            count<VQUtf8::kGroup * V::kBytes>(units, extent);
        } else {
            count<V::kBytes>(units, extent);
        }
        units += step;
        left -= step;
    }
    unsigned short last[V::kBytes + 1] = {};  // zeros do not count
    std::memcpy(last, units, left * sizeof *units);
    count<V::kBytes>(last, extent);
    return extent;
}

template <class V>
std::size_t toAscii(const unsigned short* units, std::size_t count, char* out) {
    std::size_t at = 0;
    while (count - at >= V::kBytes && V::narrow(units + at, out + at) == V::kBytes) {
        at += V::kBytes;
    }
    return at;
}

/// The character at `units`, of `count`: the code point, and by how many units to go on.
struct SCharacter {
    unsigned code;
    std::size_t units;
};
inline SCharacter characterAt(const unsigned short* units, std::size_t count) {
    if (VQUtf8::isHighSurrogate(*units) && count > 1 && VQUtf8::isLowSurrogate(units[1])) {
        return {VQUtf8::combine(units[0], units[1]), 2};
    }
    return {*units, 1};  // Kept: utf16-lone-surrogates. Peers cut their texts anywhere.
}

/// Goes over at least `steps` units, unless they end, one character after the other.
inline void encodeUnits(const unsigned short*& units, std::size_t& count, char*& out, std::size_t steps) {
    const std::size_t left = count - VQUtf8::smaller(count, steps);
    while (count > left) {
        const SCharacter character = characterAt(units, count);
        if (character.code != 0) {  // Kept: charset-zero-bytes. Peers send texts with their terminating unit.
            out = VQUtf8::encode(character.code, out);
        }
        units += character.units;
        count -= character.units;
    }
}

template <class V>
void toUtf8(const unsigned short* units, std::size_t count, char* out, std::size_t bytes) {
    const char* const outEnd = out + bytes;
    while (count != 0) {
        const bool ascii = *units - 1U < 0x7F;
        if (ascii && count >= V::kBytes && VQUtf8::toSize(outEnd - out) >= V::kBytes) {
            const std::size_t narrowed = V::narrow(units, out);
            if (narrowed == V::kBytes) {  // a branch, as above
                units += V::kBytes;
                count -= V::kBytes;
                out += V::kBytes;
            } else {
                units += narrowed;
                count -= narrowed;
                out += narrowed;
            }
        } else {
            encodeUnits(units, count, out, 1);
        }
    }
}

template <class V>
constexpr SPasses kPassesOver{&measure<V>, &fromUtf8<V>, &measureUtf8<V>, &toAscii<V>, &toUtf8<V>, nullptr};

}  // namespace
}  // namespace VQUtf16
