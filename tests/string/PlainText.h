// PlainText: what a string does, written byte by byte without a thought for speed; the yardstick of CVQString and
// of the passes behind it. Used by the tests and by the fuzz target.
//   Shape    the bytes of the text, the number of characters and the capacity. Positions are byte offsets; -1 is
//            the zero byte before the text.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>

namespace plain {

constexpr std::size_t kAll = ~std::size_t{0};
constexpr std::size_t kNowhere = ~std::size_t{0};

inline unsigned byteAt(const std::string& text, std::size_t at) {
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
}

/// What a first byte announces; 0 for bytes that start no character.
inline std::size_t announced(unsigned lead) {
    return lead < 0x80   ? 1
           : lead < 0xC0 ? 0
           : lead < 0xE0 ? 2
           : lead < 0xF0 ? 3
           : lead < 0xF8 ? 4
           : lead < 0xFC ? 5
           : lead < 0xFE ? 6
                         : 0;
}

inline bool following(unsigned byte) {
    return byte >= 0x80 && byte < 0xC0;
}

struct Extent {
    std::size_t bytes = 0;
    std::size_t characters = 0;
    bool operator==(const Extent& other) const { return bytes == other.bytes && characters == other.characters; }
};

/// The valid characters from byte `at` on, at most `characters` of them.
inline Extent measure(const std::string& text, std::size_t at, std::size_t characters) {
    Extent extent;
    while (at + extent.bytes < text.size() && extent.characters < characters) {
        const std::size_t start = at + extent.bytes;
        const std::size_t length = announced(byteAt(text, start));
        if (length == 0 || start + length > text.size())
            break;
        bool good = true;
        for (std::size_t i = 1; i < length; ++i)
            good = good && byteAt(text, start + i) >= 0x80;
        if (!good)
            break;
        extent.bytes += length;
        ++extent.characters;
    }
    return extent;
}

class Text {
public:
    std::string bytes;
    std::size_t characters = 0;
    unsigned reports = 0;  // of invalid text

    Text() = default;
    explicit Text(const std::string& source) { append(source); }

    /// Bytes up to the first zero byte, at most `maxBytes`, as far as they are valid.
    void append(const std::string& source, std::size_t maxBytes = kAll) {
        appendValid(source.substr(0, std::min(maxBytes, source.find('\0'))));
    }

    /// As a stream delivers them: zero bytes are characters.
    void appendValid(const std::string& source) {
        const Extent valid = measure(source, 0, kAll);
        reports += valid.bytes < source.size() ? 1 : 0;
        bytes += source.substr(0, valid.bytes);
        characters += valid.characters;
    }

    void append(const Text& other) {
        if (other.characters != 0) {
            const std::string copy = other.bytes;
            bytes += copy;
            characters += other.characters;
        }
    }

    bool holds(std::size_t at) const { return at <= bytes.size() && !following(byteAt(bytes, at)); }

    /// One character on, no further than to a zero byte.
    std::size_t next(std::size_t at) const {
        if (byteAt(bytes, at) == 0)
            return at;
        ++at;
        while (following(byteAt(bytes, at)))
            ++at;
        return at;
    }

    int codeAt(std::size_t at) const {
        const unsigned lead = byteAt(bytes, at);
        const std::size_t length = announced(lead);
        if (length < 2)
            return static_cast<signed char>(lead);
        static const unsigned kPayload[] = {0, 0, 0x1F, 0x0F, 0x07, 0x03, 0x01};
        unsigned value = lead & kPayload[length];
        bool ended = false;
        for (std::size_t i = 1; i < length; ++i) {
            ended = ended || byteAt(bytes, at + i) == 0;
            value = value * 64 + (ended ? 0 : byteAt(bytes, at + i) % 64);
        }
        return static_cast<int>(value);
    }

    /// Position by position, as long as no zero byte comes.
    std::size_t find(const Text& pattern, std::size_t from) const {
        if (from > bytes.size() || pattern.characters == 0 || byteAt(pattern.bytes, 0) == 0)
            return bytes.size();
        for (std::size_t at = from; byteAt(bytes, at) != 0; at = next(at))
            if (bytes.compare(at, pattern.bytes.size(), pattern.bytes) == 0)
                return at;
        return bytes.size();
    }

    std::size_t findBack(const Text& pattern, std::size_t from) const {
        if (from > bytes.size() || pattern.characters == 0 || byteAt(pattern.bytes, 0) == 0)
            return bytes.size();
        auto at = static_cast<long>(from);
        const auto back = [this](long place) {
            do
                --place;
            while (place >= 0 && following(byteAt(bytes, static_cast<std::size_t>(place))));
            return place;
        };
        if (from == bytes.size())
            at = back(at);
        for (; at >= 0 && byteAt(bytes, static_cast<std::size_t>(at)) != 0; at = back(at))
            if (bytes.compare(static_cast<std::size_t>(at), pattern.bytes.size(), pattern.bytes) == 0)
                return static_cast<std::size_t>(at);
        return bytes.size();
    }

    void insert(std::size_t at, const Text& text) {
        if (holds(at))
            exchange(at, Extent{}, text);
    }

    void remove(std::size_t at, std::size_t count) {
        if (holds(at))
            exchange(at, measure(bytes, at, count), Text());
    }

    void replace(std::size_t at, std::size_t count, const Text& text) {
        if (count == 0)
            insert(at, text);
        else if (holds(at) && measure(bytes, at, count).bytes != 0)
            exchange(at, measure(bytes, at, count), text);
    }

    /// Find, replace, go on behind the replacement.
    void replaceAll(const Text& pattern, const Text& replacement) {
        const Text wanted = pattern;
        const Text coming = replacement;
        std::size_t at = find(wanted, 0);
        while (at != bytes.size()) {
            exchange(at, Extent{wanted.bytes.size(), wanted.characters}, coming);
            at = find(wanted, at + coming.bytes.size());
        }
    }

    void replaceArg(const Text& argument) {
        std::size_t lowest = kNowhere;
        for (std::size_t at = 0; at + 1 < bytes.size(); ++at)
            if (bytes[at] == '%' && bytes[at + 1] >= '0' && bytes[at + 1] <= '9' &&
                (lowest == kNowhere || bytes[at + 1] < bytes[lowest + 1]))
                lowest = at;
        if (lowest != kNowhere)
            exchange(lowest, Extent{2, 2}, argument);
    }

    void truncate(std::size_t count) {
        if (count < characters || count == 0)
            *this = left(count);
    }

    void trim() {
        const auto white = [](char c) { return c == ' ' || (c >= 9 && c <= 13); };
        std::size_t removed = bytes.size();
        while (!bytes.empty() && white(bytes.back()))
            bytes.pop_back();
        while (!bytes.empty() && white(bytes.front()))
            bytes.erase(0, 1);
        removed -= bytes.size();
        characters -= std::min(characters, removed);
    }

    Text left(std::size_t count) const { return part(0, measure(bytes, 0, std::min(count, characters))); }

    Text right(std::size_t count) const {
        count = std::min(count, characters);
        std::size_t at = bytes.size();
        for (std::size_t i = 0; i < count && at > 0; ++i)
            do
                --at;
            while (at > 0 && following(byteAt(bytes, at)));
        return part(at, Extent{bytes.size() - at, count});
    }

    Text mid(std::size_t at, std::size_t count) const {
        return holds(at) && at < bytes.size() ? part(at, measure(bytes, at, count)) : Text();
    }

    unsigned hash() const {
        unsigned value = 0;
        for (const char byte : bytes)
            value = 5 * value + static_cast<unsigned>(static_cast<signed char>(byte));
        return value;
    }

    /// As C code sees the text.
    std::string upToZero() const { return bytes.substr(0, bytes.find('\0')); }
    bool operator==(const Text& other) const {
        return characters == other.characters && upToZero() == other.upToZero();
    }

private:
    Text part(std::size_t at, Extent extent) const {
        Text text;
        text.bytes = bytes.substr(at, extent.bytes);
        text.characters = std::min(extent.characters, extent.bytes);
        return text;
    }

    void exchange(std::size_t at, Extent going, const Text& coming) {
        const Text copy = coming;
        bytes.replace(at, going.bytes, copy.bytes);
        characters = characters - std::min(characters, going.characters) + copy.characters;
        characters = std::min(characters, bytes.size());
    }
};

}  // namespace plain
