#include "PrintableText.h"

#include <algorithm>
#include <cstdio>

namespace tools {
namespace {

unsigned toByte(char c) {
    return static_cast<unsigned char>(c);
}

struct Character {
    unsigned codePoint = 0;
    std::size_t length = 0;  // in bytes; 0 when the bytes are no character
};

// Strict: no overlong form, no surrogate, nothing above U+10FFFF. A terminal may read those in its own way.
Character decodeFirst(std::string_view text) {
    const unsigned lead = toByte(text[0]);
    if (lead < 0x80)
        return {lead, 1};
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || length > text.size())
        return {};
    unsigned codePoint = lead & (0x7Fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((toByte(text[i]) & 0xC0) != 0x80)
            return {};
        codePoint = codePoint << 6 | (toByte(text[i]) & 0x3F);
    }
    constexpr unsigned kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (codePoint < kSmallest[length] || codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint < 0xE000))
        return {};
    return {codePoint, length};
}

bool isHarmless(unsigned codePoint) {
    const bool control = codePoint < 0x20 || (codePoint >= 0x7F && codePoint < 0xA0);
    const bool breaksLine = codePoint == 0x2028 || codePoint == 0x2029;
    const bool reorders = codePoint == 0x061C || codePoint == 0x200E || codePoint == 0x200F ||
                          (codePoint >= 0x202A && codePoint <= 0x202E) ||
                          (codePoint >= 0x2066 && codePoint <= 0x2069);
    return !control && !breaksLine && !reorders;
}

void appendHex(std::string& line, unsigned value, int digits) {
    char text[16];
    std::snprintf(text, sizeof text, "%0*x", digits, value);
    line += text;
}

void appendEscaped(std::string& line, unsigned codePoint) {
    switch (codePoint) {
    case '\n':
        line += "\\n";
        break;
    case '\r':
        line += "\\r";
        break;
    case '\t':
        line += "\\t";
        break;
    default:
        line += codePoint < 0x80 ? "\\x" : "\\u";
        appendHex(line, codePoint, codePoint < 0x80 ? 2 : 4);
    }
}

}  // namespace

std::string printableText(std::string_view text) {
    std::string line;
    line.reserve(text.size());
    while (!text.empty()) {
        const Character character = decodeFirst(text);
        if (character.length == 0) {
            line += "\\x";
            appendHex(line, toByte(text[0]), 2);
        } else if (isHarmless(character.codePoint)) {
            line += text.substr(0, character.length);
        } else {
            appendEscaped(line, character.codePoint);
        }
        text.remove_prefix(std::max<std::size_t>(character.length, 1));
    }
    return line;
}

}  // namespace tools
