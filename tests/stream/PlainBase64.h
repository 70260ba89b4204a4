// PlainBase64: Base64 written out step by step, one character at a time, for the tests to compare with.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace plain {

using Bytes = std::vector<unsigned char>;

inline const std::string kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// What lies in a destination of `size` bytes that held `fill` before.
inline std::string encode(const Bytes& source, std::size_t size, char fill) {
    std::string destination(size, fill);
    std::size_t at = 0;
    const auto put = [&](char character) {
        if (at < size)
            destination[at++] = character;
    };
    for (std::size_t i = 0; i < source.size(); i += 3) {
        const std::size_t rest = source.size() - i;
        const unsigned a = source[i];
        const unsigned b = rest > 1 ? source[i + 1] : 0;
        const unsigned c = rest > 2 ? source[i + 2] : 0;
        put(kAlphabet[a / 4]);
        put(kAlphabet[a % 4 * 16 + b / 16]);
        put(rest > 1 ? kAlphabet[b % 16 * 4 + c / 64] : '=');
        put(rest > 2 ? kAlphabet[c % 64] : '=');
    }
    put('\0');
    return destination;
}

struct Decoded {
    std::size_t count;
    Bytes destination;
};

/// `text` has no zero byte in it; `size` is not 0.
inline Decoded decode(const std::string& text, std::size_t size, unsigned char fill) {
    Decoded result{0, Bytes(size, fill)};
    Bytes& out = result.destination;
    std::size_t& count = result.count;
    out[0] = 0;
    for (std::size_t at = 0; at < text.size();) {
        unsigned value[4];
        bool inside[4];
        for (std::size_t i = 0; i < 4; ++i) {
            const std::size_t place = at + i < text.size() ? kAlphabet.find(text[at + i]) : std::string::npos;
            inside[i] = place != std::string::npos;
            value[i] = inside[i] ? static_cast<unsigned>(place) : 0;
        }
        out[count++] = static_cast<unsigned char>(value[0] * 4 + value[1] / 16);
        if (count == size)
            return result;
        out[count++] = static_cast<unsigned char>(value[1] * 16 + value[2] / 4);
        if (count == size)
            return result;
        out[count++] = static_cast<unsigned char>(value[2] * 64 + value[3]);
        if (!inside[1] || !inside[2]) {
            count -= 2;
            return result;
        }
        if (!inside[3]) {
            count -= 1;
            return result;
        }
        if (count == size)
            return result;
        at += 4;
        while (at < text.size() && (text[at] == '\r' || text[at] == '\n'))
            ++at;
    }
    return result;
}

}  // namespace plain
