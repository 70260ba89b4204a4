// The conversions of CVQString beside the libraries in VQCharsetConversion_peers.cpp.
#include "Bench.h"
#include "Texts.h"

#include <CVQString.h>
#include <VQCharsetConversion.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using bench::check;
using bench::sizeOf;

CVQString stringOf(const std::string& text) {
    return CVQString(text.data(), text.size());
}

using MakeText = std::string (*)(std::size_t bytes);

/// With the terminating unit, as the conversion leaves them.
std::vector<unsigned short> unitsOf(const CVQString& text) {
    std::vector<unsigned short> units(text.getByteLength() + 1);
    auto count = static_cast<unsigned>(units.size());
    check(convertUTF8ToUTF16(text, units.data(), count), "convertUTF8ToUTF16");
    units.resize(count);
    return units;
}

std::string latinOf(const CVQString& text) {
    std::string bytes(text.getCharacterCount() + 1, '\0');
    bytes.resize(VQConvertTo8859_15(text, bytes.data(), bytes.size(), '?'));
    check(bytes.find('?') == std::string::npos && bytes.size() == text.getCharacterCount(), "VQConvertTo8859_15");
    return bytes;
}

void toUtf16(benchmark::State& state, MakeText make) {
    const CVQString text = stringOf(make(sizeOf(state)));
    std::vector<unsigned short> out(text.getByteLength() + 1);
    CVQString back;
    const std::vector<unsigned short> units = unitsOf(text);
    check(convertUTF16ToUTF8(units.data(), back, units.size()) && back == text, "to UTF-16 and back");
    for (auto _ : state) {
        auto count = static_cast<unsigned>(out.size());
        benchmark::DoNotOptimize(convertUTF8ToUTF16(text, out.data(), count));
        benchmark::ClobberMemory();
    }
}

void fromUtf16(benchmark::State& state, MakeText make) {
    const CVQString text = stringOf(make(sizeOf(state)));
    const std::vector<unsigned short> units = unitsOf(text);
    for (auto _ : state) {
        CVQString converted;
        benchmark::DoNotOptimize(convertUTF16ToUTF8(units.data(), converted, units.size() - 1));
        benchmark::DoNotOptimize(converted);
        check(converted.getByteLength() == text.getByteLength(), "convertUTF16ToUTF8");
    }
}

void to8859(benchmark::State& state, MakeText make) {
    const CVQString text = stringOf(make(sizeOf(state)));
    std::string out(text.getCharacterCount() + 1, '\0');
    check(VQConvertFrom8859_15(latinOf(text).data(), text.getCharacterCount()) == text, "to ISO 8859-15 and back");
    for (auto _ : state) {
        benchmark::DoNotOptimize(VQConvertTo8859_15(text, out.data(), out.size(), '?'));
        benchmark::ClobberMemory();
    }
}

void from8859(benchmark::State& state, MakeText make) {
    const CVQString text = stringOf(make(sizeOf(state)));
    const std::string bytes = latinOf(text);
    for (auto _ : state) {
        const CVQString converted = VQConvertFrom8859_15(bytes.data(), bytes.size());
        benchmark::DoNotOptimize(converted);
        check(converted.getByteLength() == text.getByteLength(), "VQConvertFrom8859_15");
    }
}

#define CONVERT(name, function, make)                                                                              \
    MARLIX_BENCH("VQCharsetConversion_" name, "ours", 1024, 65536) {                                               \
        function(state, make);                                                                                     \
    }
CONVERT("AsciiToUtf16", toUtf16, bench::asciiText)
CONVERT("GermanToUtf16", toUtf16, bench::germanText)
CONVERT("ChineseToUtf16", toUtf16, bench::chineseText)
CONVERT("EmojiToUtf16", toUtf16, bench::emojiText)
CONVERT("AsciiFromUtf16", fromUtf16, bench::asciiText)
CONVERT("GermanFromUtf16", fromUtf16, bench::germanText)
CONVERT("ChineseFromUtf16", fromUtf16, bench::chineseText)
CONVERT("EmojiFromUtf16", fromUtf16, bench::emojiText)
CONVERT("AsciiTo8859", to8859, bench::asciiText)
CONVERT("GermanTo8859", to8859, bench::germanText)
CONVERT("AsciiFrom8859", from8859, bench::asciiText)
CONVERT("GermanFrom8859", from8859, bench::germanText)

}  // namespace
