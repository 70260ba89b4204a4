// What one would convert text with instead. The C library's iconv is always there. Its and ICU's functions write
// into a buffer that the caller has ready, on the way to UTF-8 as well, where ours makes a string.
#include "Bench.h"
#include "Texts.h"

#include <cstring>
#include <iconv.h>
#include <string>
#include <vector>

#if BENCH_QT
#include <QString>
#include <QTextCodec>
#endif
#if BENCH_ICU
#include <unicode/unistr.h>
#include <unicode/ustring.h>
#endif
#if BENCH_SIMDUTF
#include <simdutf.h>
#endif

namespace {

using bench::check;
using bench::sizeOf;

using MakeText = std::string (*)(std::size_t bytes);

class Iconv {
public:
    Iconv(const char* to, const char* from) : mHandle(iconv_open(to, from)) {
        check(mHandle != reinterpret_cast<iconv_t>(-1), "iconv_open");
    }
    ~Iconv() { iconv_close(mHandle); }

    /// The bytes written.
    std::size_t convert(const std::string& text, std::string& out) {
        char* in = const_cast<char*>(text.data());
        std::size_t left = text.size();
        char* to = out.data();
        std::size_t room = out.size();
        check(iconv(mHandle, &in, &left, &to, &room) == 0 && left == 0, "iconv");
        return out.size() - room;
    }

private:
    iconv_t mHandle;
};

std::string converted(const char* to, const char* from, const std::string& text) {
    std::string out(4 * text.size(), '\0');
    out.resize(Iconv(to, from).convert(text, out));
    return out;
}

void convertByIconv(benchmark::State& state, const char* to, const char* from, const std::string& text) {
    Iconv handle(to, from);
    std::string out(4 * text.size(), '\0');
    check(converted(from, to, converted(to, from, text)) == text, "iconv and back");
    for (auto _ : state) {
        benchmark::DoNotOptimize(handle.convert(text, out));
        benchmark::ClobberMemory();
    }
}

std::vector<char16_t> unitsOf(const std::string& text) {
    const std::string bytes = converted("UTF-16LE", "UTF-8", text);
    std::vector<char16_t> units(bytes.size() / 2);
    std::memcpy(units.data(), bytes.data(), bytes.size());
    return units;
}

std::string latinOf(const std::string& text) {
    return converted("ISO-8859-15", "UTF-8", text);
}

#if BENCH_ICU
void toUtf16ByIcu(benchmark::State& state, MakeText make) {
    const std::string text = make(sizeOf(state));
    const std::vector<char16_t> units = unitsOf(text);
    std::vector<char16_t> out(text.size() + 1);
    int32_t length = 0;
    for (auto _ : state) {
        UErrorCode error = U_ZERO_ERROR;
        u_strFromUTF8(out.data(), int32_t(out.size()), &length, text.data(), int32_t(text.size()), &error);
        benchmark::DoNotOptimize(length);
        benchmark::ClobberMemory();
        check(U_SUCCESS(error) && std::size_t(length) == units.size(), "u_strFromUTF8");
    }
    check(std::memcmp(out.data(), units.data(), 2 * units.size()) == 0, "u_strFromUTF8");
}

void fromUtf16ByIcu(benchmark::State& state, MakeText make) {
    const std::string text = make(sizeOf(state));
    const std::vector<char16_t> units = unitsOf(text);
    std::string out(text.size() + 1, '\0');
    int32_t length = 0;
    for (auto _ : state) {
        UErrorCode error = U_ZERO_ERROR;
        u_strToUTF8(out.data(), int32_t(out.size()), &length, units.data(), int32_t(units.size()), &error);
        benchmark::DoNotOptimize(length);
        benchmark::ClobberMemory();
        check(U_SUCCESS(error) && std::size_t(length) == text.size(), "u_strToUTF8");
    }
    check(out.compare(0, text.size(), text) == 0, "u_strToUTF8");
}

void fromUtf16ToString(benchmark::State& state, MakeText make) {
    const std::string text = make(sizeOf(state));
    const std::vector<char16_t> units = unitsOf(text);
    const icu::UnicodeString source(units.data(), int32_t(units.size()));
    for (auto _ : state) {
        std::string out;
        source.toUTF8String(out);
        benchmark::DoNotOptimize(out);
        check(out.size() == text.size(), "toUTF8String");
    }
}
#endif

#if BENCH_QT
void toUtf16ByQt(benchmark::State& state, MakeText make) {
    const std::string text = make(sizeOf(state));
    check(QString::fromUtf8(text.data(), int(text.size())).toStdString() == text, "fromUtf8");
    for (auto _ : state) {
        QString out = QString::fromUtf8(text.data(), int(text.size()));
        benchmark::DoNotOptimize(out);
    }
}

void fromUtf16ByQt(benchmark::State& state, MakeText make) {
    const std::string text = make(sizeOf(state));
    const QString source = QString::fromUtf8(text.data(), int(text.size()));
    for (auto _ : state) {
        QByteArray out = source.toUtf8();
        benchmark::DoNotOptimize(out);
        check(std::size_t(out.size()) == text.size(), "toUtf8");
    }
}

// Qt has no way from one to the other but through its own string.
void to8859ByQt(benchmark::State& state, MakeText make) {
    const std::string text = make(sizeOf(state));
    const std::string latin = latinOf(text);
    const QTextCodec* const codec = QTextCodec::codecForName("ISO 8859-15");
    for (auto _ : state) {
        QByteArray out = codec->fromUnicode(QString::fromUtf8(text.data(), int(text.size())));
        benchmark::DoNotOptimize(out);
        check(std::size_t(out.size()) == latin.size(), "fromUnicode");
    }
}

void from8859ByQt(benchmark::State& state, MakeText make) {
    const std::string text = make(sizeOf(state));
    const std::string latin = latinOf(text);
    const QTextCodec* const codec = QTextCodec::codecForName("ISO 8859-15");
    for (auto _ : state) {
        QByteArray out = codec->toUnicode(latin.data(), int(latin.size())).toUtf8();
        benchmark::DoNotOptimize(out);
        check(std::size_t(out.size()) == text.size(), "toUnicode");
    }
}
#endif

#if BENCH_SIMDUTF
void toUtf16BySimdutf(benchmark::State& state, MakeText make) {
    const std::string text = make(sizeOf(state));
    std::vector<char16_t> out(unitsOf(text).size());
    for (auto _ : state) {
        benchmark::DoNotOptimize(simdutf::convert_utf8_to_utf16(text.data(), text.size(), out.data()));
        benchmark::ClobberMemory();
    }
    check(out == unitsOf(text), "convert_utf8_to_utf16");
}

void fromUtf16BySimdutf(benchmark::State& state, MakeText make) {
    const std::string text = make(sizeOf(state));
    const std::vector<char16_t> units = unitsOf(text);
    std::string out(text.size(), '\0');
    for (auto _ : state) {
        benchmark::DoNotOptimize(simdutf::convert_utf16_to_utf8(units.data(), units.size(), out.data()));
        benchmark::ClobberMemory();
    }
    check(out == text, "convert_utf16_to_utf8");
}
#endif

#define CONVERT(name, contender, function, ...)                                                                    \
    MARLIX_BENCH("VQCharsetConversion_" name, contender, 1024, 65536) {                                            \
        function(state, __VA_ARGS__);                                                                              \
    }
#define CONVERT_UTF16(contender, to, from)                                                                         \
    CONVERT("AsciiToUtf16", contender, to, bench::asciiText)                                                       \
    CONVERT("GermanToUtf16", contender, to, bench::germanText)                                                     \
    CONVERT("ChineseToUtf16", contender, to, bench::chineseText)                                                   \
    CONVERT("EmojiToUtf16", contender, to, bench::emojiText)                                                       \
    CONVERT("AsciiFromUtf16", contender, from, bench::asciiText)                                                   \
    CONVERT("GermanFromUtf16", contender, from, bench::germanText)                                                 \
    CONVERT("ChineseFromUtf16", contender, from, bench::chineseText)                                               \
    CONVERT("EmojiFromUtf16", contender, from, bench::emojiText)

CONVERT("AsciiTo8859", "iconv", convertByIconv, "ISO-8859-15", "UTF-8", bench::asciiText(sizeOf(state)))
CONVERT("GermanTo8859", "iconv", convertByIconv, "ISO-8859-15", "UTF-8", bench::germanText(sizeOf(state)))
CONVERT("AsciiFrom8859", "iconv", convertByIconv, "UTF-8", "ISO-8859-15", latinOf(bench::asciiText(sizeOf(state))))
CONVERT("GermanFrom8859", "iconv", convertByIconv, "UTF-8", "ISO-8859-15",
        latinOf(bench::germanText(sizeOf(state))))
#if BENCH_ICU
CONVERT_UTF16("ICU", toUtf16ByIcu, fromUtf16ByIcu)
CONVERT("AsciiFromUtf16", "ICU, std::string", fromUtf16ToString, bench::asciiText)
CONVERT("GermanFromUtf16", "ICU, std::string", fromUtf16ToString, bench::germanText)
CONVERT("ChineseFromUtf16", "ICU, std::string", fromUtf16ToString, bench::chineseText)
CONVERT("EmojiFromUtf16", "ICU, std::string", fromUtf16ToString, bench::emojiText)
#endif
#if BENCH_QT
CONVERT_UTF16("QString", toUtf16ByQt, fromUtf16ByQt)
CONVERT("AsciiTo8859", "QTextCodec", to8859ByQt, bench::asciiText)
CONVERT("GermanTo8859", "QTextCodec", to8859ByQt, bench::germanText)
CONVERT("AsciiFrom8859", "QTextCodec", from8859ByQt, bench::asciiText)
CONVERT("GermanFrom8859", "QTextCodec", from8859ByQt, bench::germanText)
#endif
#if BENCH_SIMDUTF
CONVERT_UTF16("simdutf", toUtf16BySimdutf, fromUtf16BySimdutf)
#endif

}  // namespace
