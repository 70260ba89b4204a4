// VQUtf8Passes: the passes of VQUtf8, written once over a vector type.
//
// A vector type V has kBytes bytes, a `Vector`, `load`, `loadAligned` and `splat` (of one byte), and views of a
// vector of which only the top bit of each byte counts: `atLeast90` and `atLeastA0` (of bytes from 80 on),
// `atLeastC0` to `atLeastF8`, `continuation`, `equal` (bytewise) and `outsideAscii` (zero or top bit set); they
// combine with `either`, `both` and `differ`. `marks` turns the top bits into an integer with kMarkBits bits for
// each byte, the first byte lowest. `plainGroup` says whether kGroup aligned vectors hold nothing outsideAscii.
// `Tally` counts the bytes of a view. `widen` makes a 16-bit unit of each byte. `narrow` makes bytes of kBytes
// units and says how many of them, from the first on, are 1 to 7F; what it writes behind these is of no use.
// `arePlain` says whether all of them are. `countWide` says how many are from 80 on, when all are 1 to 7FF, and
// else more than kBytes.
//
// Everything here has internal linkage and uses no function of the standard library that a compiler may place
// elsewhere: the same code built for other processors must never be merged with it.
#pragma once

#include "VQCodePoint.h"

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "marks count from the lowest byte");

/// For whole aligned vectors of which some bytes may lie before a text or behind its end: never on a page that
/// holds nothing of it, which the sanitizers cannot know.
#define VQ_UNSANITIZED __attribute__((no_sanitize("address"), no_sanitize("thread")))

namespace VQUtf8 {

/// Vectors that a pass takes in one step while nothing stops it.
constexpr std::size_t kGroup = 4;

/// The passes, built for one kind of processor.
struct SPasses {
    std::size_t (*asciiPrefix)(const char* text, std::size_t maxBytes);
    SExtent (*measure)(const char* text, std::size_t bytes, std::size_t maxCharacters);
    const char* (*find)(const char* from, const char* end, const char* pattern, std::size_t patternBytes);
};

namespace {

constexpr std::size_t smaller(std::size_t a, std::size_t b) {
    return a < b ? a : b;
}

/// A template, as where the widths agree a plain cast would be one too many.
template <class T>
constexpr std::size_t toSize(T value) {
    return static_cast<std::size_t>(value);
}

/// The first marked byte.
template <class V>
inline std::size_t firstOf(typename V::Marks marks) {
    return toSize(__builtin_ctzll(marks)) / V::kMarkBits;
}

/// The bytes before the first zero or non-ASCII byte, at most `maxBytes`.
template <class V>
VQ_UNSANITIZED std::size_t asciiPrefix(const char* text, std::size_t maxBytes) {
    if (maxBytes == 0) {
        return 0;
    }
    const std::size_t skew = reinterpret_cast<std::uintptr_t>(text) % V::kBytes;
    typename V::Marks stops = static_cast<typename V::Marks>(
        V::marks(V::outsideAscii(V::loadAligned(text - skew))) >> (skew * V::kMarkBits));
    std::size_t done = 0;
    std::size_t width = V::kBytes - skew;
    while (stops == 0) {
        done += width;
        width = V::kBytes;
        if (reinterpret_cast<std::uintptr_t>(text + done) % (kGroup * V::kBytes) == 0) {
            while (done < maxBytes && V::plainGroup(text + done)) {
                done += kGroup * V::kBytes;
            }
        }
        if (done >= maxBytes) {
            return maxBytes;
        }
        stops = V::marks(V::outsideAscii(V::loadAligned(text + done)));
    }
    return smaller(done + firstOf<V>(stops), maxBytes);
}

/// ASCII bytes at `at`, each of them a character: eight, or the last `room` when they are fewer, or 0 when another
/// byte is among them or none can be told. Short texts are made of these; they hold no whole vector.
inline std::size_t plainRun(const char* text, std::size_t at, std::size_t room) {
    constexpr std::size_t kWord = sizeof(std::uint64_t);
    const std::size_t run = smaller(room, kWord);
    if (at + run < kWord) {
        return 0;
    }
    const std::uint64_t word = loadWord(text + at + run - kWord);
    return ((word & kTopBits) >> (8 * (kWord - run))) == 0 ? run : 0;
}

/// How many bytes before `place` belong to a character that announces more bytes than stand there: 0 between
/// regular characters. Reads three bytes back, as far as characters of up to four bytes reach.
inline std::size_t unfinishedBefore(const char* place) {
    return asByte(place[-1]) >= 0xC0 ? 1 : asByte(place[-2]) >= 0xE0 ? 2 : asByte(place[-3]) >= 0xF0 ? 3 : 0;
}

/// Marks what is not regular in the vector `x` at `text`: a byte that is a following byte although none was
/// announced for its place, or the other way round, and every lead of more than four bytes. Where nothing is
/// marked, the lenient rule and the strict structure agree.
template <class V>
inline typename V::Vector irregular(const char* text, typename V::Vector x) {
    const auto second = V::atLeastC0(V::load(text - 1));
    const auto third = V::atLeastE0(V::load(text - 2));
    const auto fourth = V::atLeastF0(V::load(text - 3));
    const auto announced = V::either(second, V::either(third, fourth));
    return V::either(V::differ(announced, V::continuation(x)), V::atLeastF8(x));
}

/// Goes over groups of `Vectors` vectors as long as they are regular and fit into `limit` bytes. Returns the bytes
/// passed and adds their following bytes to `continuations`.
template <class V, std::size_t Vectors>
std::size_t passRegular(const char* text, std::size_t limit, std::size_t& continuations) {
    constexpr std::size_t kBytes = Vectors * V::kBytes;
    typename V::Tally tally;
    std::size_t done = 0;
    for (; limit - done >= kBytes; done += kBytes) {
        const char* const place = text + done;
        typename V::Vector x[Vectors];
        typename V::Vector all = x[0] = V::load(place);
        for (std::size_t i = 1; i < Vectors; ++i) {
            x[i] = V::load(place + i * V::kBytes);
            all = V::either(all, x[i]);
        }
        if (V::marks(all) == 0) {
            if (unfinishedBefore(place) != 0) {
                break;
            }
            continue;
        }
        typename V::Vector wrong = irregular<V>(place, x[0]);
        for (std::size_t i = 1; i < Vectors; ++i) {
            wrong = V::either(wrong, irregular<V>(place + i * V::kBytes, x[i]));
        }
        if (V::marks(wrong) != 0) {
            break;
        }
        for (const auto& vector : x) {
            tally.add(V::continuation(vector));
        }
        tally.settle();
    }
    continuations += tally.total();
    return done;
}

template <class V>
SExtent measure(const char* text, std::size_t bytes, std::size_t maxCharacters) {
    std::size_t at = 0;
    std::size_t characters = 0;
    std::size_t walkTo = 3;  // the vectors look three bytes back
    for (;;) {
        // The rule as it stands, byte by byte, up to a place before which no character looks unfinished: an
        // irregular one behind it must not be taken for the beginning of one at it.
        while (at < bytes && characters < maxCharacters && (at < walkTo || unfinishedBefore(text + at) != 0)) {
            if (const std::size_t run = plainRun(text, at, smaller(bytes - at, maxCharacters - characters));
                run != 0) {
                at += run;
                characters += run;
                continue;
            }
            const std::size_t length = characterAt(text + at, bytes - at);
            if (length == 0) {
                return {at, characters};
            }
            at += length;
            ++characters;
        }
        if (at == bytes || characters == maxCharacters) {
            return {at, characters};
        }

        // No more characters than bytes: within `limit` neither bound can be passed.
        const std::size_t limit = smaller(bytes - at, maxCharacters - characters);
        std::size_t continuations = 0;
        std::size_t done = passRegular<V, kGroup>(text + at, limit, continuations);
        done += passRegular<V, 1>(text + at + done, limit - done, continuations);
        at += done;
        characters += done - continuations;

        // What is left of the text, at the end of a vector that overlaps the bytes before.
        const std::size_t rest = bytes - at;
        if (limit - done == rest && rest > 0 && rest < V::kBytes && bytes >= V::kBytes + 3) {
            const char* const place = text + bytes - V::kBytes;
            const auto x = V::load(place);
            if (V::marks(irregular<V>(place, x)) == 0 && unfinishedBefore(text + bytes) == 0) {
                const auto tail = static_cast<typename V::Marks>(V::marks(V::continuation(x)) >>
                                                                 ((V::kBytes - rest) * V::kMarkBits));
                const auto following = toSize(__builtin_popcountll(tail));
                return {bytes, characters + rest - following};
            }
        }

        if (const std::size_t begun = unfinishedBefore(text + at); begun != 0) {
            at -= begun;
            --characters;
        }
        walkTo = at + V::kBytes + 3;
    }
}

/// The first and the last byte of the pattern are looked for in one step; only places that have both are compared.
template <class V>
const char* find(const char* from, const char* end, const char* pattern, std::size_t patternBytes) {
    if (toSize(end - from) < patternBytes) {
        return nullptr;
    }
    const std::size_t toLast = patternBytes - 1;
    const std::size_t between = patternBytes > 2 ? patternBytes - 2 : 0;
    const char* const behind = end - toLast;  // no match starts here or later
    const auto first = V::splat(pattern[0]);
    const auto last = V::splat(pattern[toLast]);
    const auto zero = V::splat('\0');
    for (; toSize(behind - from) >= V::kBytes; from += V::kBytes) {
        const auto x = V::load(from);
        const auto zeros = V::equal(x, zero);
        const auto both = V::both(V::equal(x, first), V::equal(V::load(from + toLast), last));
        if (V::marks(V::either(zeros, both)) == 0) {
            continue;
        }
        const auto ends = V::marks(zeros);
        auto places = V::marks(both);
        if (ends != 0) {
            places &= static_cast<typename V::Marks>((ends & (~ends + 1)) - 1);  // below the lowest
        }
        for (; places != 0; places &= places - 1) {
            const char* const place = from + firstOf<V>(places);
            if (std::memcmp(place + 1, pattern + 1, between) == 0) {
                return place;
            }
        }
        if (ends != 0) {
            return nullptr;
        }
    }
    for (; from != behind && *from != '\0'; ++from) {
        if (*from == *pattern && std::memcmp(from, pattern, patternBytes) == 0) {
            return from;
        }
    }
    return nullptr;
}

template <class V>
constexpr SPasses kPassesOver{&asciiPrefix<V>, &measure<V>, &find<V>};

}  // namespace
}  // namespace VQUtf8
