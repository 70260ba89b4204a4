// PlainConversions: what the conversions, case mapping and splitting do, written out without a thought for speed;
// their yardstick in the tests and in the fuzz targets.
#pragma once

#include "CaseMappingOracle.h"
#include "PlainText.h"

#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace plain {

using Units = std::vector<unsigned short>;

inline char byteOf(unsigned value) {
    return static_cast<char>(static_cast<unsigned char>(value));
}

/// Two to four bytes from U+0080 on, surrogates like any other.
inline std::string utf8Of(unsigned code) {
    if (code < 0x80)
        return {byteOf(code)};
    std::string bytes;
    unsigned bound = 0x40;
    for (unsigned lead = 0xC0;; lead = lead / 2 + 0x80, bound /= 2) {
        bytes.insert(bytes.begin(), byteOf(0x80 + code % 64));
        code /= 64;
        if (code < bound / 2)
            return byteOf(lead + code) + bytes;
    }
}

// ---- UTF-16

/// The rows of the table of well-formed byte sequences in the Unicode standard.
struct WellFormed {
    unsigned first[2];
    unsigned second[2];
    std::size_t length;
};
constexpr WellFormed kWellFormed[] = {
    {{0x00, 0x7F}, {0x00, 0x00}, 1}, {{0xC2, 0xDF}, {0x80, 0xBF}, 2}, {{0xE0, 0xE0}, {0xA0, 0xBF}, 3},
    {{0xE1, 0xEC}, {0x80, 0xBF}, 3}, {{0xED, 0xED}, {0x80, 0x9F}, 3}, {{0xEE, 0xEF}, {0x80, 0xBF}, 3},
    {{0xF0, 0xF0}, {0x90, 0xBF}, 4}, {{0xF1, 0xF3}, {0x80, 0xBF}, 4}, {{0xF4, 0xF4}, {0x80, 0x8F}, 4}};

/// False where the text is not well-formed.
inline bool utf16Of(const std::string& text, Units& units) {
    units.clear();
    for (std::size_t at = 0; at < text.size();) {
        const WellFormed* row = nullptr;
        for (const WellFormed& one : kWellFormed)
            if (byteAt(text, at) >= one.first[0] && byteAt(text, at) <= one.first[1])
                row = &one;
        if (row == nullptr || at + row->length > text.size())
            return false;
        unsigned code = byteAt(text, at);
        if (row->length > 1) {
            code -= row->length == 2 ? 0xC0 : row->length == 3 ? 0xE0 : 0xF0;
            for (std::size_t i = 1; i < row->length; ++i) {
                const unsigned byte = byteAt(text, at + i);
                if (byte < (i == 1 ? row->second[0] : 0x80) || byte > (i == 1 ? row->second[1] : 0xBF))
                    return false;
                code = code * 64 + byte - 0x80;
            }
        }
        if (code > 0xFFFF)
            units.push_back(static_cast<unsigned short>(0xD800 + (code - 0x10000) / 0x400));
        units.push_back(static_cast<unsigned short>(code > 0xFFFF ? 0xDC00 + code % 0x400 : code));
        at += row->length;
    }
    return true;
}

/// What `units` add to a text; false where they end in a high surrogate.
inline bool appendUtf16(const Units& units, Text& text) {
    for (std::size_t at = 0; at < units.size(); ++at) {
        unsigned code = units[at];
        if (code >= 0xD800 && code < 0xDC00) {
            if (at + 1 == units.size())
                return false;
            if (units[at + 1] >= 0xDC00 && units[at + 1] < 0xE000)
                code = 0x10000 + (code - 0xD800) * 0x400 + units[++at] - 0xDC00;
        }
        if (code != 0) {
            text.bytes += utf8Of(code);
            ++text.characters;
        }
    }
    return true;
}

// ---- ISO 8859

enum Part { kPart1, kPart15 };

inline unsigned codeOf8859(Part part, unsigned byte) {
    if (part == kPart15)
        switch (byte) {
        case 0xA4:
            return 0x20AC;  // euro
        case 0xA6:
            return 0x160;  // S and
        case 0xA8:
            return 0x161;  // s with caron
        case 0xB4:
            return 0x17D;  // Z and
        case 0xB8:
            return 0x17E;  // z with caron
        case 0xBC:
            return 0x152;  // OE and
        case 0xBD:
            return 0x153;  // oe
        case 0xBE:
            return 0x178;  // Y with diaeresis
        }
    return byte;
}

/// The text, and the capacity that it takes.
inline Text from8859(Part part, const std::string& bytes, std::size_t& capacity) {
    Text text;
    capacity = 0;
    for (const char byte : bytes) {
        const std::string form = utf8Of(codeOf8859(part, static_cast<unsigned char>(byte)));
        capacity += form.size();
        if (byte != 0) {
            text.bytes += form;
            ++text.characters;
        }
    }
    return text;
}

/// What stands in an output of `outSize` bytes, and the number of characters converted.
inline std::pair<std::string, unsigned> to8859(Part part, const Text& text, std::size_t outSize, char replacement) {
    static std::map<std::string, char> bytesOf[2];
    if (bytesOf[part].empty())
        for (unsigned byte = 0; byte < 256; ++byte)
            bytesOf[part][utf8Of(codeOf8859(part, byte))] = byteOf(byte);
    std::string out;
    if (outSize == 0)
        return {out, 0};
    for (std::size_t at = 0; at < text.bytes.size() && out.size() < outSize && out.size() < text.characters;) {
        const unsigned lead = byteAt(text.bytes, at);
        const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : 3;
        const auto found = bytesOf[part].find(text.bytes.substr(at, length));
        out += found != bytesOf[part].end() ? found->second : replacement;
        at += length;
    }
    const auto converted = static_cast<unsigned>(out.size());
    out.resize(std::min(out.size(), outSize - 1));
    return {out + '\0', converted};
}

// ---- case

using CaseMappings = std::map<unsigned, std::vector<unsigned>>;

template <std::size_t N>
CaseMappings mappingsOf(const oracle::CaseMapping (&rows)[N]) {
    CaseMappings mappings;
    for (const oracle::CaseMapping& row : rows)
        for (const unsigned short mapped : row.mapped)
            if (mapped != 0)
                mappings[row.code].push_back(mapped);
    return mappings;
}

inline const CaseMappings& upperCase() {
    static const CaseMappings mappings = mappingsOf(oracle::kUpper);
    return mappings;
}

inline const CaseMappings& lowerCase() {
    static const CaseMappings mappings = mappingsOf(oracle::kLower);
    return mappings;
}

/// Visits (bytes, code point) of each character; a byte of none is one with a code that no character has.
template <class Visit>
void forEachCharacter(const std::string& text, Visit visit) {
    Text all;
    all.bytes = text;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = measure(text, at, 1).bytes;
        visit(text.substr(at, std::max<std::size_t>(length, 1)),
              length != 0 ? static_cast<unsigned>(all.codeAt(at)) : 0xFFFFFF00 + byteAt(text, at));
        at += std::max<std::size_t>(length, 1);
    }
}

inline Text mapCase(const std::string& text, const CaseMappings& mappings) {
    Text mapped;
    forEachCharacter(text, [&](const std::string& bytes, unsigned code) {
        const auto found = mappings.find(code);
        if (found == mappings.end()) {
            mapped.bytes += bytes;
            ++mapped.characters;
            return;
        }
        for (const unsigned one : found->second) {
            mapped.bytes += utf8Of(one);
            ++mapped.characters;
        }
    });
    return mapped;
}

// ---- splitting

inline std::vector<std::string> split(const std::string& text, const std::string& delimiters, bool skipEmpty) {
    std::vector<unsigned> ends;
    forEachCharacter(delimiters, [&](const std::string&, unsigned code) { ends.push_back(code); });
    std::vector<std::string> tokens(1);
    forEachCharacter(text, [&](const std::string& bytes, unsigned code) {
        if (std::find(ends.begin(), ends.end(), code) == ends.end())
            tokens.back() += bytes;
        else if (!skipEmpty || !tokens.back().empty())
            tokens.emplace_back();
    });
    if (skipEmpty && tokens.back().empty())
        tokens.pop_back();
    return tokens;
}

}  // namespace plain
