// Arbitrary bytes, split and mapped to the other case: the results have to agree with the plain rules.
//   Input    the first byte says what to do and how the text is held; then the text; for a split, up to the first
//            byte FF, the delimiters behind it.
#include "Fuzz.h"
#include "string/PlainConversions.h"
#include "string/StringInternals.h"

#include <TVQVector.h>
#include <VQStringUtilities.h>

#include <cstdint>

namespace {

using fuzz::require;
using strings::bytesOf;

void split(const std::string& text, const std::string& delimiters, bool skipEmpty) {
    TVQVector<CVQString> tokens;
    VQStringUtilities::split(tokens, strings::unchecked(text), strings::unchecked(delimiters), skipEmpty);
    const std::vector<std::string> expected = plain::split(text, delimiters, skipEmpty);
    require(expected.size() == static_cast<std::size_t>(tokens.size()));
    for (int i = 0; i < tokens.size(); ++i)
        require(bytesOf(tokens[i]) == expected[static_cast<std::size_t>(i)]);
}

/// `held`: 0 shared; 1 alone; 2 alone and with room.
void mapCase(const std::string& bytes, bool upper, unsigned held) {
    const plain::Text expected = plain::mapCase(bytes, upper ? plain::upperCase() : plain::lowerCase());
    const auto& table =
        upper ? VQStringUtilities::sToUpperCaseMappingTable : VQStringUtilities::sToLowerCaseMappingTable;
    const auto copy = table;  // not known to be the library's own
    for (const auto* const one : {&table, &copy}) {
        CVQString text = strings::unchecked(bytes);
        const CVQString other(held == 0 ? text : CVQString());
        if (held == 2)
            text.reserve(bytes.size() + bytes.size() / 2);
        VQStringUtilities::doCaseMapping(text, *one);
        require(expected.bytes == bytesOf(text));
        require(held != 0 || bytes == bytesOf(other));
        if (plain::measure(bytes, 0, plain::kAll).bytes == bytes.size() &&
            strings::unchecked(bytes).getCharacterCount() == plain::measure(bytes, 0, plain::kAll).characters)
            require(expected.characters == text.getCharacterCount());
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    return fuzz::prepare(fuzz::Assertions::EndTheRun);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    if (data[0] % 8 < 6) {
        mapCase(bytes, data[0] % 2 == 0, data[0] % 8 / 2);
        return 0;
    }
    const std::size_t end = std::min(bytes.find('\xFF'), bytes.size());
    split(bytes.substr(0, end), bytes.substr(std::min(end + 1, bytes.size())), data[0] % 2 == 0);
    return 0;
}
