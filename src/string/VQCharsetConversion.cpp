#include "VQCharsetConversion.h"

#include "CVQStringWriter.h"
#include "VQCodePoint.h"
#include "VQUtf16.h"

#include <algorithm>
#include <climits>

namespace {

constexpr std::size_t kWord = sizeof(std::uint64_t);

constexpr std::size_t smaller(std::size_t a, std::size_t b) {
    return a < b ? a : b;
}

// ---- the tables

struct SDifference {
    unsigned char byte;
    unsigned code;
};

/// Where ISO 8859-15 differs from ISO 8859-1.
constexpr SDifference kDifferences15[] = {{0xA4, 0x20AC}, {0xA6, 0x0160}, {0xA8, 0x0161}, {0xB4, 0x017D},
                                          {0xB8, 0x017E}, {0xBC, 0x0152}, {0xBD, 0x0153}, {0xBE, 0x0178}};

constexpr SVQConvTable::SEntry formOf(unsigned code) {
    const auto byte = [](unsigned value) { return static_cast<unsigned char>(value); };
    const unsigned char last = byte(0x80U | (code & 0x3FU));
    if (code < 0x80) {
        return {1, {byte(code), 0, 0}};
    }
    if (code < 0x800) {
        return {2, {byte(0xC0U | code >> 6), last, 0}};
    }
    return {3, {byte(0xE0U | code >> 12), byte(0x80U | (code >> 6 & 0x3FU)), last}};
}

constexpr SVQConvTable makeTable8859_1() {
    SVQConvTable table{};
    for (unsigned byte = 0; byte < 256; ++byte) {
        table.mEntries[byte] = formOf(byte);
    }
    return table;
}

constexpr SVQConvTable makeTable8859_15() {
    SVQConvTable table = makeTable8859_1();
    for (const SDifference& difference : kDifferences15) {
        table.mEntries[difference.byte] = formOf(difference.code);
    }
    return table;
}

constexpr unsigned sortKey(const unsigned char (&bytes)[3]) {
    return static_cast<unsigned>(bytes[0]) << 16 | static_cast<unsigned>(bytes[1]) << 8 | bytes[2];
}

constexpr SVQReverseConvTable reverse(const SVQConvTable& table) {
    SVQReverseConvTable reversed{};
    unsigned ofLength[4] = {};
    for (unsigned byte = 0; byte < 256; ++byte) {
        const SVQConvTable::SEntry& form = table.mEntries[byte];
        ++ofLength[form.mByteCount];
        unsigned at = byte;
        for (; at > 0 && sortKey(reversed.mEntries[at - 1].mBytes) > sortKey(form.mBytes); --at) {
            reversed.mEntries[at] = reversed.mEntries[at - 1];
        }
        reversed.mEntries[at] = {{form.mBytes[0], form.mBytes[1], form.mBytes[2]},
                                 static_cast<unsigned char>(byte)};
    }
    reversed.mLastOneByteIndex = static_cast<unsigned char>(ofLength[1] - 1);
    reversed.mLastTwoByteIndex = static_cast<unsigned char>(ofLength[1] + ofLength[2] - 1);
    return reversed;
}

// ---- ISO 8859

/// In the library's own tables every byte below 80 stays as it is, and every other has two bytes, but in one of
/// them this one.
constexpr unsigned char kByteOfThree = 0xA4;

bool isOwn(const SVQConvTable* table) {
    return table == &sConvTable8859_1 || table == &sConvTable8859_15;
}

std::size_t lengthOf(const SVQConvTable::SEntry& entry) {
    return smaller(entry.mByteCount, sizeof entry.mBytes);
}

unsigned long long sumOfLengths(const SVQConvTable& table, const char* bytes, std::size_t count) {
    unsigned long long sum = 0;
    if (isOwn(&table)) {
        const unsigned has = lengthOf(table.mEntries[kByteOfThree]) == 3 ? 1 : 0;
        // Loops of fixed length, which compilers make vectors of.
        for (constexpr std::size_t kBlock = 64; count >= kBlock; count -= kBlock, bytes += kBlock) {
            unsigned char further = 0;
            for (std::size_t i = 0; i < kBlock; ++i) {
                const auto byte = static_cast<unsigned char>(bytes[i]);
                const unsigned ofThree = byte == kByteOfThree ? has : 0;
                further = static_cast<unsigned char>(further + (byte >> 7) + ofThree);
            }
            sum += kBlock + further;
        }
    }
    for (std::size_t i = 0; i < count; ++i) {
        sum += lengthOf(table.mEntries[VQUtf8::asByte(bytes[i])]);
    }
    return sum;
}

bool areAscii(std::uint64_t word) {
    return (word & VQUtf8::kTopBits) == 0;
}

/// The bytes before the first that is zero or not ASCII.
std::size_t asciiIn(std::uint64_t word) {
    // A zero borrows from beyond, so that what is marked behind it may be wrong: only the first counts.
    const std::uint64_t marks = (word | (word - VQUtf8::kLowBits)) & VQUtf8::kTopBits;
    return marks == 0 ? kWord : static_cast<std::size_t>(__builtin_ctzll(marks)) / 8;
}

/// The bytes in which one of the library's own tables may differ from ISO 8859-1, in which none does.
VQUtf16::SOtherBytes othersOf(const SVQConvTable& table) {
    constexpr std::size_t kLast = sizeof kDifferences15 / sizeof *kDifferences15 - 1;
    return &table == &sConvTable8859_15 ? VQUtf16::SOtherBytes{kDifferences15[0].byte, kDifferences15[kLast].byte}
                                        : VQUtf16::SOtherBytes{0, 0};
}

/// What is left of the bytes, and where the text is that they become.
struct SConversion {
    const char* bytes;
    std::size_t count;
    char* out;
    std::size_t characters = 0;

    /// Of bytes that have been written.
    void pass(std::size_t converted) {
        bytes += converted;
        count -= converted;
        characters += converted;
    }
    void byEntries(const SVQConvTable& table, std::size_t most) {
        const bool asciiStays = isOwn(&table);
        for (const std::size_t left = count - most; count > left;) {
            if (asciiStays && count >= left + kWord) {
                // What is behind the ASCII is written as well, and overwritten in the next round.
                std::memcpy(out, bytes, kWord);
                const std::size_t ascii = asciiIn(VQUtf8::loadWord(bytes));
                out += ascii;
                pass(ascii);
                if (ascii == kWord) {
                    continue;
                }
            }
            const SVQConvTable::SEntry& entry = table.mEntries[VQUtf8::asByte(*bytes)];
            ++bytes;
            --count;
            // Kept: charset-zero-bytes. Fixed-size fields arrive with zero bytes behind their text.
            if (entry.mBytes[0] != 0 && entry.mByteCount != 0) {
                // The whole form, whatever its length: a block has room for that behind its capacity.
                static_assert(CVQStringWriter::kSpare >= sizeof entry.mBytes - 1);
                std::memcpy(out, entry.mBytes, sizeof entry.mBytes);
                out += lengthOf(entry);
                ++characters;
            }
        }
    }
};

/// The entry of this table for one byte that has several: the place of a character of two bytes, or null.
const SVQReverseConvTable::SEntry* findOfTwo(const SVQReverseConvTable& table, unsigned first, unsigned second) {
    const auto keyOf = [](const SVQReverseConvTable::SEntry& entry) {
        return static_cast<unsigned>(entry.mBytes[0]) << 8 | entry.mBytes[1];
    };
    if (table.mLastTwoByteIndex <= table.mLastOneByteIndex) {
        return nullptr;
    }
    const unsigned key = first << 8 | second;
    const SVQReverseConvTable::SEntry* low = table.mEntries + table.mLastOneByteIndex + 1;
    // Halves without a branch that depends on the text: no processor could foresee it.
    for (unsigned count = table.mLastTwoByteIndex - table.mLastOneByteIndex; count > 1; count -= count / 2) {
        low += keyOf(low[count / 2]) <= key ? count / 2 : 0;
    }
    return keyOf(*low) == key ? low : nullptr;
}

const SVQReverseConvTable::SEntry* findOfThree(const SVQReverseConvTable& table, const char* text) {
    for (std::size_t i = table.mLastTwoByteIndex + std::size_t{1}; i < 256; ++i) {
        if (std::memcmp(table.mEntries[i].mBytes, text, sizeof table.mEntries[i].mBytes) == 0) {
            return &table.mEntries[i];
        }
    }
    return nullptr;
}

// ---- UTF-16

/// Writes the units behind the text; there is the room that they take.
void write(CVQStringWriter& writer, const unsigned short* units, std::size_t count,
           const VQUtf16::SUtf8Extent& extent) {
    const std::size_t length = writer.getByteLength();
    const std::size_t characters = writer.getCharacterCount();
    const auto bytes = static_cast<std::size_t>(extent.bytes);
    VQUtf16::toUtf8(units, count, writer.text() + length, bytes);
    writer.setLengths(length + bytes, characters + static_cast<std::size_t>(extent.characters));
}

/// False when the text would be too long.
bool append(const unsigned short* units, std::size_t count, CVQString& text) {
    const VQUtf16::SUtf8Extent extent = VQUtf16::measureUtf8(units, count);
    if (extent.characters == 0) {
        return true;
    }
    CVQStringWriter writer(text);
    if (!writer.makeRoom(writer.getByteLength() + extent.bytes)) {
        return false;
    }
    write(writer, units, count, extent);
    return true;
}

constexpr std::size_t kSample = 4096;  ///< units, few enough to be in the first-level cache when they are converted
constexpr std::size_t kLong = 2 * kSample;

bool isAscii(const unsigned short* units, std::size_t count) {
    const VQUtf16::SUtf8Extent extent = VQUtf16::measureUtf8(units, count);
    return extent.bytes == count && extent.characters == count;
}

/// The same for a long text that begins with ASCII, as most go on like that: it is converted while it is looked at,
/// into room for as many bytes as there are units, instead of gone over twice. In the end it has the room that it
/// would have otherwise.
void appendAscii(const unsigned short* units, std::size_t count, CVQString& text) {
    CVQStringWriter writer(text);
    const std::size_t ownCapacity = writer.hasRoomOfItsOwn(0) ? writer.getCapacity() : 0;
    const std::size_t terminator = units[count - 1] == 0 ? 1 : 0;
    writer.makeRoom(writer.getByteLength() + count - terminator);
    const std::size_t ascii = VQUtf16::toAscii(units, count - terminator, writer.text() + writer.getByteLength());
    writer.setLengths(writer.getByteLength() + ascii, writer.getCharacterCount() + ascii);

    const VQUtf16::SUtf8Extent rest = VQUtf16::measureUtf8(units + ascii, count - ascii);
    // What is not ASCII needs more, zero units none.
    writer.setCapacity(std::max(writer.getByteLength() + static_cast<std::size_t>(rest.bytes), ownCapacity));
    write(writer, units + ascii, count - ascii, rest);
}

}  // namespace

constexpr SVQConvTable sConvTable8859_1 = makeTable8859_1();
constexpr SVQConvTable sConvTable8859_15 = makeTable8859_15();
constexpr SVQReverseConvTable sReverseConvTable8859_1 = reverse(sConvTable8859_1);
constexpr SVQReverseConvTable sReverseConvTable8859_15 = reverse(sConvTable8859_15);

CVQString VQConvertFrom8859_1(const char* bytes, std::size_t count) {
    return convertStringToUTF8(&sConvTable8859_1, bytes, count);
}

CVQString VQConvertFrom8859_15(const char* bytes, std::size_t count) {
    return convertStringToUTF8(&sConvTable8859_15, bytes, count);
}

unsigned VQConvertTo8859_1(const CVQString& text, char* out, std::size_t outSize, char replacement) {
    return convertUTF8ToString(sReverseConvTable8859_1, text, out, outSize, replacement);
}

unsigned VQConvertTo8859_15(const CVQString& text, char* out, std::size_t outSize, char replacement) {
    return convertUTF8ToString(sReverseConvTable8859_15, text, out, outSize, replacement);
}

CVQString convertStringToUTF8(const SVQConvTable* table, const char* bytes, std::size_t count) {
    if (table == nullptr || bytes == nullptr) {
        count = 0;
    }
    const unsigned long long capacity = count != 0 ? sumOfLengths(*table, bytes, count) : 0;
    CVQString text(capacity);
    if (capacity == 0 || text.getCapacity() != capacity) {
        return text;
    }

    CVQStringWriter writer(text);
    SConversion conversion{bytes, count, writer.text()};
    const VQUtf16::LatinSteps bySteps = isOwn(table) ? VQUtf16::latinSteps() : nullptr;
    if (bySteps != nullptr) {
        const char* const end = writer.text() + capacity;
        const VQUtf16::SOtherBytes others = othersOf(*table);
        while (conversion.count >= VQUtf16::kLatinStep) {
            conversion.pass(bySteps(conversion.bytes, conversion.count, conversion.out, end, others));
            conversion.byEntries(*table, smaller(conversion.count, VQUtf16::kLatinStep));
        }
    }
    conversion.byEntries(*table, conversion.count);
    writer.setLengths(static_cast<std::size_t>(conversion.out - writer.text()), conversion.characters);
    return text;
}

unsigned convertUTF8ToString(const SVQReverseConvTable& table, const CVQString& text, char* out,
                             std::size_t outSize, char replacement) {
    if (out == nullptr || outSize == 0) {
        return 0;
    }
    const bool asciiStays = &table == &sReverseConvTable8859_1 || &table == &sReverseConvTable8859_15;
    const std::size_t most = smaller(outSize, text.getCharacterCount());
    const char* in = text.c_str();
    const char* const end = in + text.getByteLength();
    std::size_t written = 0;
    while (written < most && in != end) {
        const auto left = static_cast<std::size_t>(end - in);
        if (asciiStays && most - written >= kWord && left >= kWord && areAscii(VQUtf8::loadWord(in))) {
            std::memcpy(out + written, in, kWord);
            written += kWord;
            in += kWord;
            continue;
        }
        const unsigned lead = VQUtf8::asByte(*in);
        const SVQReverseConvTable::SEntry* entry = nullptr;
        std::size_t length = 3;
        if (lead < 0x80) {
            length = 1;
            entry = &table.mEntries[lead];
        } else if (lead < 0xE0) {
            length = 2;
            entry = findOfTwo(table, lead, VQUtf8::asByte(in[1]));  // at worst the terminating zero byte
        } else if (left >= length) {
            // Kept: charset-four-bytes. Of four bytes the last is left over; receivers count its replacement, too.
            entry = findOfThree(table, in);
        }
        out[written++] = entry != nullptr ? static_cast<char>(entry->mByte) : replacement;
        in += smaller(length, left);
    }
    // Kept: charset-last-character. Receivers with fields of fixed size rely on the zero byte and on the count.
    out[smaller(written, outSize - 1)] = '\0';
    return static_cast<unsigned>(written);
}

// ---- UTF-16

bool convertUTF8ToUTF16(const CVQString& text, unsigned short* out, unsigned& count) {
    if (out == nullptr) {
        return false;
    }
    const std::size_t bytes = std::size_t{text.getByteLength()} + 1;
    const std::size_t units = VQUtf16::measure(text.c_str(), bytes);
    if (units == VQUtf16::kMalformed || units > count) {
        return false;
    }
    VQUtf16::fromUtf8(text.c_str(), bytes, out, units);
    count = static_cast<unsigned>(units);
    return true;
}

bool convertUTF16ToUTF8(const unsigned short* units, CVQString& text, std::size_t count) {
    if (units == nullptr) {
        return false;
    }
    const bool whole = count == 0 || !VQUtf8::isHighSurrogate(units[count - 1]);
    count -= whole ? 0 : 1;
    // Kept: utf16-appends. Receivers put long messages together this way.
    const bool fits = text.getByteLength() + 3ULL * count <= INT_MAX;  // in any case, and so without a report
    if (count >= kLong && fits && isAscii(units, kSample)) {
        appendAscii(units, count, text);
        return whole;
    }
    return append(units, count, text) && whole;
}
