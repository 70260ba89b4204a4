// Arbitrary bytes through every conversion, in both directions: the results have to agree with the plain rules.
//   Input    the first byte says which conversion; the second, where there is a choice, the size of the output or
//            what the text holds before; all others are the text, in bytes or in units.
#include "Fuzz.h"
#include "string/PlainConversions.h"
#include "string/StringInternals.h"

#include <VQCharsetConversion.h>

#include <cstdint>
#include <cstring>
#include <memory>

namespace {

using fuzz::require;
using strings::bytesOf;

void requireSame(const plain::Text& expected, const CVQString& text) {
    require(expected.bytes == bytesOf(text));
    require(expected.characters == text.getCharacterCount());
    require(text.c_str()[text.getByteLength()] == '\0');
}

void from8859(plain::Part part, const std::string& bytes) {
    std::size_t capacity = 0;
    const plain::Text expected = plain::from8859(part, bytes, capacity);
    const CVQString text = part == plain::kPart1 ? VQConvertFrom8859_1(bytes.data(), bytes.size())
                                                 : VQConvertFrom8859_15(bytes.data(), bytes.size());
    requireSame(expected, text);
    require(text.getCapacity() == capacity);
    // The same by a table that is not known to be the library's own.
    const SVQConvTable copy = part == plain::kPart1 ? sConvTable8859_1 : sConvTable8859_15;
    requireSame(expected, convertStringToUTF8(&copy, bytes.data(), bytes.size()));
}

void to8859(plain::Part part, const CVQString& text, std::size_t size) {
    plain::Text source;
    source.bytes = bytesOf(text);
    source.characters = text.getCharacterCount();
    const auto expected = plain::to8859(part, source, size, '?');
    const SVQReverseConvTable& table = part == plain::kPart1 ? sReverseConvTable8859_1 : sReverseConvTable8859_15;
    const SVQReverseConvTable copy = table;
    for (const SVQReverseConvTable* const one : {&table, &copy}) {
        const std::unique_ptr<char[]> out(new char[size]);
        require(convertUTF8ToString(*one, text, out.get(), size, '?') == expected.second);
        require(std::memcmp(out.get(), expected.first.data(), expected.first.size()) == 0);
    }
}

void toUtf16(const CVQString& text, std::size_t spare) {
    plain::Units expected;
    const bool wellFormed = plain::utf16Of(bytesOf(text) + '\0', expected);
    const std::size_t units = expected.size();
    for (const std::size_t room : {units - (units != 0 ? 1 : 0), units, units + spare}) {
        const std::unique_ptr<unsigned short[]> out(new unsigned short[room]);
        auto count = static_cast<unsigned>(room);
        const bool converted = convertUTF8ToUTF16(text, out.get(), count);
        require(converted == (wellFormed && room >= units));
        require(count == (converted ? units : room));
        require(!converted || expected == plain::Units(out.get(), out.get() + count));
    }
}

plain::Units unitsOf(const std::string& bytes) {
    plain::Units units(bytes.size() / 2);
    for (std::size_t i = 0; i < units.size(); ++i)
        units[i] = static_cast<unsigned short>(plain::byteAt(bytes, 2 * i) | plain::byteAt(bytes, 2 * i + 1) << 8);
    return units;
}

void fromUtf16(const plain::Units& units, const std::string& before) {
    plain::Text expected(before);
    const bool whole = plain::appendUtf16(units, expected);
    CVQString text(before.c_str());
    const CVQString shared(text);
    const unsigned short none = 0;
    require(convertUTF16ToUTF8(units.empty() ? &none : units.data(), text, units.size()) == whole);
    requireSame(expected, text);
    requireSame(plain::Text(before), shared);
}

void fromCodes(const std::string& bytes) {
    const plain::Units units = unitsOf(bytes);
    plain::Text expected;
    for (const unsigned short unit : units)
        expected.bytes += plain::utf8Of(unit);
    expected.characters = units.size();
    CVQString text("old");
    text.fromUCS2Sequence(units.data(), units.size());
    requireSame(expected, text);

    std::vector<unsigned> codes(bytes.size() / 3);
    expected = plain::Text();
    for (std::size_t i = 0; i < codes.size(); ++i) {
        codes[i] = (plain::byteAt(bytes, 3 * i) << 16 | plain::byteAt(bytes, 3 * i + 1) << 8 |
                    plain::byteAt(bytes, 3 * i + 2)) %
                   0x110000;
        expected.bytes += plain::utf8Of(codes[i]);
    }
    expected.characters = codes.size();
    text.fromUCS4Sequence(codes.data(), codes.size());
    requireSame(expected, text);
    requireSame(expected, CVQString(codes.data(), codes.data() + codes.size()));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    return fuzz::prepare(fuzz::Assertions::EndTheRun);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2)
        return 0;
    const std::string bytes(reinterpret_cast<const char*>(data + 2), size - 2);
    const std::size_t choice = data[1];
    switch (data[0] % 6) {
    case 0:
        from8859(choice % 2 == 0 ? plain::kPart1 : plain::kPart15, bytes);
        break;
    case 1:
        for (const plain::Part part : {plain::kPart1, plain::kPart15}) {
            to8859(part, CVQString(bytes.data(), bytes.size()), 1 + choice);
            to8859(part, strings::unchecked(bytes), bytes.size() + 1 + choice % 3);
        }
        break;
    case 2:
        toUtf16(CVQString(bytes.data(), bytes.size()), choice);
        break;
    case 3:
        toUtf16(strings::unchecked(bytes), choice);
        break;
    case 4:
        fromUtf16(unitsOf(bytes), std::string(choice % 20, 'b'));
        break;
    default:
        fromCodes(bytes);
        break;
    }
    return 0;
}
