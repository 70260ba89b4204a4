// What one would map case with instead. ICU maps UTF-8 into a buffer that the caller has ready, Qt its own UTF-16
// text into a new one; utf8proc maps code points, so that the way from and to UTF-8 is a loop here.
#include "Bench.h"
#include "Texts.h"

#include <string>

#if BENCH_QT
#include <QString>
#endif
#if BENCH_ICU
#include <unicode/ucasemap.h>
#endif
#if BENCH_UTF8PROC
#include <utf8proc.h>
#endif

namespace {

using bench::check;

using MakeText = std::string (*)(std::size_t bytes);

std::string textFor(const benchmark::State& state, MakeText make) {
    return make(static_cast<std::size_t>(state.range(0)));
}

#if BENCH_ICU
using IcuMap = int32_t (*)(const UCaseMap*, char*, int32_t, const char*, int32_t, UErrorCode*);

void mapByIcu(benchmark::State& state, IcuMap map, MakeText make) {
    const std::string text = textFor(state, make);
    std::string out(2 * text.size(), '\0');
    UErrorCode error = U_ZERO_ERROR;
    UCaseMap* const noLanguage = ucasemap_open("", 0, &error);
    for (auto _ : state) {
        const int32_t bytes =
            map(noLanguage, out.data(), int32_t(out.size()), text.data(), int32_t(text.size()), &error);
        benchmark::DoNotOptimize(bytes);
        benchmark::ClobberMemory();
        check(U_SUCCESS(error) && bytes >= int32_t(text.size()), "ucasemap");
    }
    ucasemap_close(noLanguage);
}
#endif

#if BENCH_QT
using QtMap = QString (*)(const QString&);

QString upperByQt(const QString& text) {
    return text.toUpper();
}

QString lowerByQt(const QString& text) {
    return text.toLower();
}

void mapByQt(benchmark::State& state, QtMap map, MakeText make) {
    const QString text = QString::fromStdString(textFor(state, make));
    check(map(text).size() >= text.size(), "QString");
    for (auto _ : state) {
        QString out = map(text);
        benchmark::DoNotOptimize(out);
    }
}
#endif

#if BENCH_UTF8PROC
using Utf8procMap = utf8proc_int32_t (*)(utf8proc_int32_t);

std::size_t mapByUtf8proc(Utf8procMap map, const std::string& text, std::string& out) {
    const auto* in = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    auto left = utf8proc_ssize_t(text.size());
    auto* to = reinterpret_cast<utf8proc_uint8_t*>(out.data());
    while (left > 0) {
        utf8proc_int32_t code = 0;
        const utf8proc_ssize_t bytes = utf8proc_iterate(in, left, &code);
        to += utf8proc_encode_char(map(code), to);
        in += bytes;
        left -= bytes;
    }
    return std::size_t(reinterpret_cast<char*>(to) - out.data());
}

void mapByUtf8proc(benchmark::State& state, Utf8procMap map, MakeText make) {
    const std::string text = textFor(state, make);
    std::string out(2 * text.size(), '\0');
    check(mapByUtf8proc(map, text, out) >= text.size() / 2, "utf8proc");
    for (auto _ : state) {
        benchmark::DoNotOptimize(mapByUtf8proc(map, text, out));
        benchmark::ClobberMemory();
    }
}
#endif

#define MAP_CASE(name, contender, function, upper, lower, make)                                                    \
    MARLIX_BENCH("VQStringUtilities_Upper" name, contender, 1024, 65536) {                                         \
        function(state, upper, make);                                                                              \
    }                                                                                                              \
    MARLIX_BENCH("VQStringUtilities_Lower" name, contender, 1024, 65536) {                                         \
        function(state, lower, make);                                                                              \
    }
#define MAP_CASES(contender, function, upper, lower)                                                               \
    MAP_CASE("Ascii", contender, function, upper, lower, bench::asciiText)                                         \
    MAP_CASE("German", contender, function, upper, lower, bench::germanText)                                       \
    MAP_CASE("Greek", contender, function, upper, lower, bench::greekText)

#if BENCH_ICU
MAP_CASES("ICU", mapByIcu, ucasemap_utf8ToUpper, ucasemap_utf8ToLower)
#endif
#if BENCH_QT
MAP_CASES("QString", mapByQt, upperByQt, lowerByQt)
#endif
#if BENCH_UTF8PROC
MAP_CASES("utf8proc", mapByUtf8proc, utf8proc_toupper, utf8proc_tolower)
#endif

}  // namespace
