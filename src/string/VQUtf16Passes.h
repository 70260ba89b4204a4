// VQUtf16Passes: the passes of VQUtf16, written once over a vector type of VQUtf8Passes. Internal linkage throughout,
// for the reason given there.
#pragma once

#include "VQUtf16.h"
#include "VQUtf8Passes.h"

namespace VQUtf16 {

/// The passes, built for one kind of processor.
struct SPasses {
    std::size_t (*measure)(const char* text, std::size_t bytes);
    void (*fromUtf8)(const char* text, std::size_t bytes, unsigned short* out, std::size_t units);
    SUtf8Extent (*measureUtf8)(const unsigned short* units, std::size_t count);
    void (*toUtf8)(const unsigned short* units, std::size_t count, char* out, std::size_t bytes);
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
    const auto c0c1 = V::equal(V::both(x, V::splat('\xFE')), V::splat('\xC0'));
    const auto never = V::either(c0c1, V::atLeastF5(x));
    return V::either(V::either(wrongAfterE, wrongAfterF), V::either(never, VQUtf8::irregular<V>(text, x)));
}

template <class V>
std::size_t measure(const char* text, std::size_t bytes) {
    constexpr std::size_t kLookBack = 3;
    std::size_t at = 0;
    std::size_t units = 0;
    if (bytes >= kLookBack + V::kBytes) {
        if (!walkWellFormed(text, bytes, kLookBack, at, units)) {
            return kMalformed;
        }
        typename V::Tally tally;
        for (; bytes - at >= V::kBytes; at += V::kBytes) {
            const char* const place = text + at;
            const auto x = V::load(place);
            if (V::marks(x) == 0) {
                if (VQUtf8::unfinishedBefore(place) != 0) {
                    return kMalformed;
                }
                units += V::kBytes;
                continue;
            }
            if (V::marks(malformed<V>(place, x)) != 0) {
                return kMalformed;
            }
            tally.add(V::differ(V::continuation(x), V::splat('\xFF')));
            tally.add(V::equal(V::both(x, V::splat('\xF8')), V::splat('\xF0')));
            tally.settle();
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
            const std::size_t ascii = marks == 0 ? V::kBytes : VQUtf8::firstOf<V>(marks);
            text += ascii;
            out += ascii;
        } else {
            *out++ = static_cast<unsigned short>(lead);
            ++text;
        }
    }
}

/// Blocks of fixed size, which compilers turn into vectors; `V` only tells the builds apart.
template <class V>
SUtf8Extent measureUtf8(const unsigned short* units, std::size_t count) {
    constexpr std::size_t kBlock = 64;
    SUtf8Extent extent{0, 0};
    const auto add = [&extent](const unsigned short* at, std::size_t block, std::size_t pairsWithin) {
        unsigned characters = 0;
        unsigned further = 0;
        for (std::size_t i = 0; i < block; ++i) {
            characters += at[i] != 0 ? 1U : 0U;
            further += (at[i] >= 0x80 ? 1U : 0U) + (at[i] >= 0x800 ? 1U : 0U);
        }
        unsigned pairs = 0;
        for (std::size_t i = 0; i < pairsWithin; ++i) {
            const unsigned high = VQUtf8::isHighSurrogate(at[i]) ? 1U : 0U;
            const unsigned low = VQUtf8::isLowSurrogate(at[i + 1]) ? 1U : 0U;
            pairs += high & low;
        }
        // Of the six bytes of two surrogates a pair takes four.
        extent.bytes += characters + further - 2 * pairs;
        extent.characters += characters - pairs;
    };
    for (; count > kBlock; count -= kBlock, units += kBlock) {
        add(units, kBlock, kBlock);
    }
    if (count != 0) {
        add(units, count, count - 1);
    }
    return extent;
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
            units += narrowed;
            count -= narrowed;
            out += narrowed;
        } else {
            encodeUnits(units, count, out, 1);
        }
    }
}

template <class V>
constexpr SPasses kPassesOver{&measure<V>, &fromUtf8<V>, &measureUtf8<V>, &toUtf8<V>};

}  // namespace
}  // namespace VQUtf16
