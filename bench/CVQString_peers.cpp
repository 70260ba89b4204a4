// The text types that one would pick instead of CVQString, and what bounds them all.
#include "Bench.h"
#include "Texts.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>

#if BENCH_QT
#include <QHash>
#include <QString>
#endif
#if BENCH_ABSEIL
#include <absl/hash/hash.h>
#include <absl/strings/cord.h>
#include <absl/strings/match.h>
#include <absl/strings/str_format.h>
#include <absl/strings/str_replace.h>
#endif
#if BENCH_BOOST
#include <boost/algorithm/string/replace.hpp>
#include <boost/format.hpp>
#include <boost/functional/hash.hpp>
#endif
#if BENCH_FMT
#include <fmt/format.h>
#endif
#if BENCH_GLIB
#include <glib.h>
#endif
#if BENCH_POCO
#include <Poco/Format.h>
#include <Poco/Hash.h>
#include <Poco/String.h>
#endif
#if BENCH_SIMDUTF
#include <simdutf.h>
#endif

namespace {

using bench::check;
using bench::sizeOf;

using MakeText = std::string (*)(std::size_t bytes);

// The arguments of the format, hidden from the optimiser.
struct FormatArguments {
    const char* service = "sync";
    int attempt = 3;
    unsigned limit = 10;
    unsigned error = 28;
};

// Copy and drop

template <class Text>
void copy(benchmark::State& state, const Text& original) {
    check(Text(original) == original, "copy");
    for (auto _ : state) {
        Text copied(original);
        benchmark::DoNotOptimize(copied);
    }
}

MARLIX_BENCH_ALONE("CVQString_CopyAlone", "std::string", 1024) {
    copy(state, bench::asciiText(sizeOf(state)));
}
MARLIX_BENCH("CVQString_Copy", "std::string", 1024, 65536) {
    copy(state, bench::asciiText(sizeOf(state)));
}

// What shared storage costs at least: one owner more, one less.
void count(benchmark::State& state) {
    unsigned references = 1;
    for (auto _ : state) {
        benchmark::DoNotOptimize(__atomic_add_fetch(&references, 1, __ATOMIC_RELAXED));
        benchmark::DoNotOptimize(__atomic_sub_fetch(&references, 1, __ATOMIC_ACQ_REL));
    }
    check(references == 1, "reference count");
}
MARLIX_BENCH_ALONE("CVQString_CopyAlone", "floor: atomic increment and decrement", 1024) {
    count(state);
}
MARLIX_BENCH("CVQString_Copy", "floor: atomic increment and decrement", 1024, 65536) {
    count(state);
}

#if BENCH_QT
MARLIX_BENCH_ALONE("CVQString_CopyAlone", "QString", 1024) {
    copy(state, QString::fromStdString(bench::asciiText(sizeOf(state))));
}
MARLIX_BENCH("CVQString_Copy", "QString", 1024, 65536) {
    copy(state, QString::fromStdString(bench::asciiText(sizeOf(state))));
}
#endif

#if BENCH_ABSEIL
MARLIX_BENCH("CVQString_Copy", "absl::Cord", 1024, 65536) {
    copy(state, absl::Cord(bench::asciiText(sizeOf(state))));
}
#endif

#if BENCH_GLIB
MARLIX_BENCH("CVQString_Copy", "GLib g_ref_string", 1024, 65536) {
    char* const original = g_ref_string_new(bench::asciiText(sizeOf(state)).c_str());
    for (auto _ : state) {
        char* copied = g_ref_string_acquire(original);
        benchmark::DoNotOptimize(copied);
        g_ref_string_release(copied);
    }
    g_ref_string_release(original);
}
#endif

// Build and validate

void copyStdString(benchmark::State& state, MakeText make) {
    const std::string text = make(sizeOf(state));
    const char* bytes = text.data();
    for (auto _ : state) {
        benchmark::DoNotOptimize(bytes);
        std::string built(bytes, text.size());
        benchmark::DoNotOptimize(built);
    }
}

void copyReady(benchmark::State& state, MakeText make) {
    const std::string text = make(sizeOf(state));
    std::string ready(text.size(), '\0');
    const char* bytes = text.data();
    for (auto _ : state) {
        benchmark::DoNotOptimize(bytes);
        std::memcpy(ready.data(), bytes, text.size());
        benchmark::ClobberMemory();
    }
    check(ready == text, "memcpy");
}

void copyAllocated(benchmark::State& state, MakeText make) {
    const std::string text = make(sizeOf(state));
    const char* bytes = text.data();
    for (auto _ : state) {
        benchmark::DoNotOptimize(bytes);
        void* block = std::malloc(text.size());
        benchmark::DoNotOptimize(std::memcpy(block, bytes, text.size()));
        benchmark::ClobberMemory();
        std::free(block);
    }
}

// What a text of that size costs the C heap at least when its block also holds what a CVQString's does: the counts
// in front, and the eight bytes that the allocator adds. glibc keeps freed blocks up to 1032 bytes at hand, so at
// 1 KiB those few bytes alone make the heap four times slower.
void copyAllocatedLonger(benchmark::State& state, MakeText make) {
    const std::string text = make(sizeOf(state));
    const char* bytes = text.data();
    for (auto _ : state) {
        benchmark::DoNotOptimize(bytes);
        void* block = std::malloc(text.size() + 28);
        benchmark::DoNotOptimize(std::memcpy(block, bytes, text.size()));
        benchmark::ClobberMemory();
        std::free(block);
    }
}

#if BENCH_QT
void buildQString(benchmark::State& state, MakeText make) {
    const std::string text = make(sizeOf(state));
    check(QString::fromUtf8(text.data(), int(text.size())).toStdString() == text, "fromUtf8");
    const char* bytes = text.data();
    for (auto _ : state) {
        benchmark::DoNotOptimize(bytes);
        QString built = QString::fromUtf8(bytes, int(text.size()));
        benchmark::DoNotOptimize(built);
    }
}
#endif

#if BENCH_GLIB
void buildGLib(benchmark::State& state, MakeText make) {
    const std::string text = make(sizeOf(state));
    check(g_utf8_validate(text.data(), gssize(text.size()), nullptr) != 0, "g_utf8_validate");
    const char* bytes = text.data();
    for (auto _ : state) {
        benchmark::DoNotOptimize(bytes);
        benchmark::DoNotOptimize(g_utf8_validate(bytes, gssize(text.size()), nullptr));
        char* built = g_strndup(bytes, text.size());
        benchmark::DoNotOptimize(built);
        g_free(built);
    }
}
#endif

#if BENCH_SIMDUTF
void buildSimdutf(benchmark::State& state, MakeText make) {
    const std::string text = make(sizeOf(state));
    check(simdutf::validate_utf8(text.data(), text.size()), "simdutf::validate_utf8");
    const char* bytes = text.data();
    for (auto _ : state) {
        benchmark::DoNotOptimize(bytes);
        benchmark::DoNotOptimize(simdutf::validate_utf8(bytes, text.size()));
        benchmark::DoNotOptimize(simdutf::count_utf8(bytes, text.size()));
        std::string built(bytes, text.size());
        benchmark::DoNotOptimize(built);
    }
}
#endif

MARLIX_BENCH("CVQString_FromAscii", "floor: malloc of 28 B more, memcpy, free", 1024, 65536) {
    copyAllocatedLonger(state, bench::asciiText);
}

#define BUILD_FROM(operation, make)                                                                                \
    MARLIX_BENCH(operation, "std::string, not validated", 1024, 65536) {                                           \
        copyStdString(state, make);                                                                                \
    }                                                                                                              \
    MARLIX_BENCH(operation, "floor: memcpy into a ready buffer", 1024, 65536) {                                    \
        copyReady(state, make);                                                                                    \
    }                                                                                                              \
    MARLIX_BENCH(operation, "floor: malloc, memcpy, free", 1024, 65536) {                                          \
        copyAllocated(state, make);                                                                                \
    }
BUILD_FROM("CVQString_FromAscii", bench::asciiText)
BUILD_FROM("CVQString_FromGerman", bench::germanText)
BUILD_FROM("CVQString_FromChinese", bench::chineseText)

#if BENCH_QT
MARLIX_BENCH("CVQString_FromAscii", "QString::fromUtf8", 1024, 65536) {
    buildQString(state, bench::asciiText);
}
MARLIX_BENCH("CVQString_FromGerman", "QString::fromUtf8", 1024, 65536) {
    buildQString(state, bench::germanText);
}
MARLIX_BENCH("CVQString_FromChinese", "QString::fromUtf8", 1024, 65536) {
    buildQString(state, bench::chineseText);
}
#endif
#if BENCH_GLIB
MARLIX_BENCH("CVQString_FromAscii", "g_utf8_validate, g_strndup", 1024, 65536) {
    buildGLib(state, bench::asciiText);
}
MARLIX_BENCH("CVQString_FromGerman", "g_utf8_validate, g_strndup", 1024, 65536) {
    buildGLib(state, bench::germanText);
}
MARLIX_BENCH("CVQString_FromChinese", "g_utf8_validate, g_strndup", 1024, 65536) {
    buildGLib(state, bench::chineseText);
}
#endif
#if BENCH_SIMDUTF
MARLIX_BENCH("CVQString_FromAscii", "simdutf, std::string", 1024, 65536) {
    buildSimdutf(state, bench::asciiText);
}
MARLIX_BENCH("CVQString_FromGerman", "simdutf, std::string", 1024, 65536) {
    buildSimdutf(state, bench::germanText);
}
MARLIX_BENCH("CVQString_FromChinese", "simdutf, std::string", 1024, 65536) {
    buildSimdutf(state, bench::chineseText);
}
#endif

// Find

void findStdString(benchmark::State& state, const std::string& text, const std::string& pattern) {
    const std::size_t expected = text.size() - pattern.size();
    check(text.find(pattern) == expected, "std::string::find");
    for (auto _ : state)
        benchmark::DoNotOptimize(text.find(pattern));
}

void findMemmem(benchmark::State& state, const std::string& text, const std::string& pattern) {
    check(memmem(text.data(), text.size(), pattern.data(), pattern.size()) ==
              text.data() + text.size() - pattern.size(),
          "memmem");
    for (auto _ : state)
        benchmark::DoNotOptimize(memmem(text.data(), text.size(), pattern.data(), pattern.size()));
}

#if BENCH_QT
void findQString(benchmark::State& state, const std::string& text, const std::string& pattern) {
    const QString qText = QString::fromStdString(text);
    const QString qPattern = QString::fromStdString(pattern);
    check(qText.indexOf(qPattern) == qText.size() - qPattern.size(), "QString::indexOf");
    for (auto _ : state)
        benchmark::DoNotOptimize(qText.indexOf(qPattern));
}
#endif

#if BENCH_GLIB
void findGLib(benchmark::State& state, const std::string& text, const std::string& pattern) {
    check(g_strstr_len(text.data(), gssize(text.size()), pattern.c_str()) ==
              text.data() + text.size() - pattern.size(),
          "g_strstr_len");
    for (auto _ : state)
        benchmark::DoNotOptimize(g_strstr_len(text.data(), gssize(text.size()), pattern.c_str()));
}
#endif

MARLIX_BENCH("CVQString_Find", "std::string::find", 65536) {
    findStdString(state, bench::haystack(sizeOf(state)), bench::needle());
}
MARLIX_BENCH("CVQString_Find", "C library memmem", 65536) {
    findMemmem(state, bench::haystack(sizeOf(state)), bench::needle());
}
MARLIX_BENCH("CVQString_FindInProse", "std::string::find", 65536) {
    findStdString(state, bench::proseHaystack(sizeOf(state)), bench::needle());
}
MARLIX_BENCH("CVQString_FindInProse", "C library memmem", 65536) {
    findMemmem(state, bench::proseHaystack(sizeOf(state)), bench::needle());
}
MARLIX_BENCH("CVQString_FindPeriodic", "std::string::find", 65536) {
    findStdString(state, bench::periodicHaystack(sizeOf(state)), bench::periodicNeedle());
}
MARLIX_BENCH("CVQString_FindPeriodic", "C library memmem", 65536) {
    findMemmem(state, bench::periodicHaystack(sizeOf(state)), bench::periodicNeedle());
}
#if BENCH_QT
MARLIX_BENCH("CVQString_Find", "QString::indexOf", 65536) {
    findQString(state, bench::haystack(sizeOf(state)), bench::needle());
}
MARLIX_BENCH("CVQString_FindInProse", "QString::indexOf", 65536) {
    findQString(state, bench::proseHaystack(sizeOf(state)), bench::needle());
}
MARLIX_BENCH("CVQString_FindPeriodic", "QString::indexOf", 65536) {
    findQString(state, bench::periodicHaystack(sizeOf(state)), bench::periodicNeedle());
}
#endif
#if BENCH_GLIB
MARLIX_BENCH("CVQString_Find", "g_strstr_len", 65536) {
    findGLib(state, bench::haystack(sizeOf(state)), bench::needle());
}
#endif

// The best that a scan for one byte can do over the same bytes: the needle cannot be found without reading them.
MARLIX_BENCH("CVQString_Find", "floor: memchr over the text", 65536) {
    const std::string text = bench::haystack(sizeOf(state));
    for (auto _ : state)
        benchmark::DoNotOptimize(std::memchr(text.data(), 'Z', text.size()));
}

// Format

MARLIX_BENCH("CVQString_Format", "snprintf, std::string", 40) {
    const auto format = [](const FormatArguments& with) {
        char scratch[257];
        const int length = std::snprintf(scratch, sizeof scratch, "%s: try %d of %u failed, error %08x",
                                         with.service, with.attempt, with.limit, with.error);
        return std::string(scratch, static_cast<std::size_t>(length));
    };
    FormatArguments with;
    check(format(with) == bench::kFormatted, "snprintf");
    for (auto _ : state) {
        benchmark::DoNotOptimize(with);
        std::string text = format(with);
        benchmark::DoNotOptimize(text);
    }
}

MARLIX_BENCH("CVQString_Format", "floor: snprintf alone", 40) {
    FormatArguments with;
    char scratch[257];
    for (auto _ : state) {
        benchmark::DoNotOptimize(with);
        benchmark::DoNotOptimize(std::snprintf(scratch, sizeof scratch, "%s: try %d of %u failed, error %08x",
                                               with.service, with.attempt, with.limit, with.error));
    }
    check(std::strcmp(scratch, bench::kFormatted) == 0, "snprintf");
}

#if BENCH_FMT
MARLIX_BENCH("CVQString_Format", "fmt::format", 40) {
    const auto format = [](const FormatArguments& with) {
        return fmt::format("{}: try {} of {} failed, error {:08x}", with.service, with.attempt, with.limit,
                           with.error);
    };
    FormatArguments with;
    check(format(with) == bench::kFormatted, "fmt::format");
    for (auto _ : state) {
        benchmark::DoNotOptimize(with);
        std::string text = format(with);
        benchmark::DoNotOptimize(text);
    }
}
#endif

#if BENCH_QT
MARLIX_BENCH("CVQString_Format", "QString::asprintf", 40) {
    const auto format = [](const FormatArguments& with) {
        return QString::asprintf("%s: try %d of %u failed, error %08x", with.service, with.attempt, with.limit,
                                 with.error);
    };
    FormatArguments with;
    check(format(with) == QLatin1String(bench::kFormatted), "QString::asprintf");
    for (auto _ : state) {
        benchmark::DoNotOptimize(with);
        QString text = format(with);
        benchmark::DoNotOptimize(text);
    }
}
#endif

#if BENCH_ABSEIL
MARLIX_BENCH("CVQString_Format", "absl::StrFormat", 40) {
    const auto format = [](const FormatArguments& with) {
        return absl::StrFormat("%s: try %d of %u failed, error %08x", with.service, with.attempt, with.limit,
                               with.error);
    };
    FormatArguments with;
    check(format(with) == bench::kFormatted, "absl::StrFormat");
    for (auto _ : state) {
        benchmark::DoNotOptimize(with);
        std::string text = format(with);
        benchmark::DoNotOptimize(text);
    }
}
#endif

#if BENCH_BOOST
MARLIX_BENCH("CVQString_Format", "boost::format", 40) {
    const auto format = [](const FormatArguments& with) {
        return (boost::format("%s: try %d of %u failed, error %08x") % with.service % with.attempt % with.limit %
                with.error)
            .str();
    };
    FormatArguments with;
    check(format(with) == bench::kFormatted, "boost::format");
    for (auto _ : state) {
        benchmark::DoNotOptimize(with);
        std::string text = format(with);
        benchmark::DoNotOptimize(text);
    }
}
#endif

#if BENCH_POCO
MARLIX_BENCH("CVQString_Format", "Poco::format", 40) {
    const auto format = [](const FormatArguments& with) {
        return Poco::format("%s: try %d of %u failed, error %08x", std::string(with.service), with.attempt,
                            with.limit, with.error);
    };
    FormatArguments with;
    check(format(with) == bench::kFormatted, "Poco::format");
    for (auto _ : state) {
        benchmark::DoNotOptimize(with);
        std::string text = format(with);
        benchmark::DoNotOptimize(text);
    }
}
#endif

#if BENCH_GLIB
MARLIX_BENCH("CVQString_Format", "g_strdup_printf", 40) {
    FormatArguments with;
    for (auto _ : state) {
        benchmark::DoNotOptimize(with);
        char* text = g_strdup_printf("%s: try %d of %u failed, error %08x", with.service, with.attempt, with.limit,
                                     with.error);
        benchmark::DoNotOptimize(text);
        g_free(text);
    }
}
#endif

// Append in a loop, 8 bytes at a time

template <class Text, class Append, class Reserve>
void appendLoop(benchmark::State& state, Append append, Reserve reserve) {
    const std::size_t size = sizeOf(state);
    const char* piece = "12345678";
    for (auto _ : state) {
        Text text;
        reserve(text, size);
        for (std::size_t length = 0; length < size; length += 8) {
            benchmark::DoNotOptimize(piece);
            append(text, piece);
        }
        benchmark::DoNotOptimize(text);
        check(std::size_t(text.size()) == size, "append");
    }
}

MARLIX_BENCH("CVQString_AppendReserved", "std::string", 4096) {
    appendLoop<std::string>(
        state, [](std::string& text, const char* piece) { text.append(piece); },
        [](std::string& text, std::size_t size) { text.reserve(size); });
}
MARLIX_BENCH("CVQString_AppendGrowing", "std::string", 4096) {
    appendLoop<std::string>(
        state, [](std::string& text, const char* piece) { text.append(piece); }, [](std::string&, std::size_t) {});
}
#if BENCH_QT
MARLIX_BENCH("CVQString_AppendReserved", "QString", 4096) {
    appendLoop<QString>(
        state, [](QString& text, const char* piece) { text.append(QLatin1String(piece)); },
        [](QString& text, std::size_t size) { text.reserve(int(size)); });
}
MARLIX_BENCH("CVQString_AppendReserved", "QByteArray, not validated", 4096) {
    appendLoop<QByteArray>(
        state, [](QByteArray& text, const char* piece) { text.append(piece); },
        [](QByteArray& text, std::size_t size) { text.reserve(int(size)); });
}
MARLIX_BENCH("CVQString_AppendGrowing", "QString", 4096) {
    appendLoop<QString>(
        state, [](QString& text, const char* piece) { text.append(QLatin1String(piece)); },
        [](QString&, std::size_t) {});
}
#endif

// Hash

template <class Text, class Hash>
void hashLoop(benchmark::State& state, const Text& text, Hash hash) {
    for (auto _ : state)
        benchmark::DoNotOptimize(hash(text));
}

MARLIX_BENCH("CVQString_Hash", "std::hash", 16, 1024) {
    hashLoop(state, bench::asciiText(sizeOf(state)), std::hash<std::string>());
}
#if BENCH_QT
MARLIX_BENCH("CVQString_Hash", "qHash(QString)", 16, 1024) {
    hashLoop(state, QString::fromStdString(bench::asciiText(sizeOf(state))),
             [](const QString& text) { return qHash(text); });
}
#endif
#if BENCH_ABSEIL
MARLIX_BENCH("CVQString_Hash", "absl::Hash", 16, 1024) {
    hashLoop(state, bench::asciiText(sizeOf(state)), absl::Hash<std::string>());
}
#endif
#if BENCH_BOOST
MARLIX_BENCH("CVQString_Hash", "boost::hash", 16, 1024) {
    hashLoop(state, bench::asciiText(sizeOf(state)), boost::hash<std::string>());
}
#endif
#if BENCH_POCO
MARLIX_BENCH("CVQString_Hash", "Poco::hash", 16, 1024) {
    hashLoop(state, bench::asciiText(sizeOf(state)), [](const std::string& text) { return Poco::hash(text); });
}
#endif
#if BENCH_GLIB
MARLIX_BENCH("CVQString_Hash", "g_str_hash", 16, 1024) {
    hashLoop(state, bench::asciiText(sizeOf(state)),
             [](const std::string& text) { return g_str_hash(text.c_str()); });
}
#endif

// Compare two equal texts in separate storage

template <class Text>
void equalLoop(benchmark::State& state, const Text& left, const Text& right) {
    check(left == right, "==");
    for (auto _ : state) {
        benchmark::DoNotOptimize(&left);
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(left == right);
    }
}

MARLIX_BENCH("CVQString_Equal", "std::string", 16, 1024) {
    equalLoop<std::string>(state, bench::asciiText(sizeOf(state)), bench::asciiText(sizeOf(state)));
}
MARLIX_BENCH("CVQString_Equal", "floor: memcmp", 16, 1024) {
    const std::string left = bench::asciiText(sizeOf(state));
    const std::string right = bench::asciiText(sizeOf(state));
    std::size_t size = sizeOf(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(size);
        benchmark::DoNotOptimize(std::memcmp(left.data(), right.data(), size));
    }
}
#if BENCH_QT
MARLIX_BENCH("CVQString_Equal", "QString", 16, 1024) {
    equalLoop<QString>(state, QString::fromStdString(bench::asciiText(sizeOf(state))),
                       QString::fromStdString(bench::asciiText(sizeOf(state))));
}
#endif

// Replace all

template <class Text, class Replace>
void replaceLoop(benchmark::State& state, const Text& original, Replace replace) {
    for (auto _ : state) {
        Text text = original;
        replace(text);
        benchmark::DoNotOptimize(text);
    }
}

#if BENCH_QT
MARLIX_BENCH("CVQString_ReplaceAll", "QString::replace", 4096) {
    const QString pattern = QLatin1String(bench::placeholder());
    const QString with = QLatin1String(bench::replacement());
    replaceLoop(state, QString::fromStdString(bench::textWithPlaceholders(sizeOf(state))),
                [&](QString& text) { text.replace(pattern, with); });
}
#endif
#if BENCH_ABSEIL
MARLIX_BENCH("CVQString_ReplaceAll", "absl::StrReplaceAll", 4096) {
    replaceLoop(state, bench::textWithPlaceholders(sizeOf(state)), [&](std::string& text) {
        absl::StrReplaceAll({{bench::placeholder(), bench::replacement()}}, &text);
    });
}
#endif
#if BENCH_BOOST
MARLIX_BENCH("CVQString_ReplaceAll", "boost::replace_all", 4096) {
    replaceLoop(state, bench::textWithPlaceholders(sizeOf(state)),
                [&](std::string& text) { boost::replace_all(text, bench::placeholder(), bench::replacement()); });
}
#endif
#if BENCH_POCO
MARLIX_BENCH("CVQString_ReplaceAll", "Poco::replaceInPlace", 4096) {
    const std::string pattern = bench::placeholder();
    const std::string with = bench::replacement();
    replaceLoop(state, bench::textWithPlaceholders(sizeOf(state)),
                [&](std::string& text) { Poco::replaceInPlace(text, pattern, with); });
}
#endif
MARLIX_BENCH("CVQString_ReplaceAll", "std::string, find and append", 4096) {
    const std::string pattern = bench::placeholder();
    const std::string with = bench::replacement();
    replaceLoop(state, bench::textWithPlaceholders(sizeOf(state)), [&](std::string& text) {
        std::string result;
        std::size_t from = 0;
        for (std::size_t at; (at = text.find(pattern, from)) != std::string::npos; from = at + pattern.size())
            result.append(text, from, at - from).append(with);
        result.append(text, from);
        text.swap(result);
    });
}

// Walk over the characters of a text

#if BENCH_GLIB
void walk(benchmark::State& state, const std::string& text) {
    for (auto _ : state) {
        unsigned sum = 0;
        for (const char* at = text.data(); at != text.data() + text.size(); at = g_utf8_next_char(at))
            sum += g_utf8_get_char(at);
        benchmark::DoNotOptimize(sum);
    }
}
MARLIX_BENCH("CVQString_Walk", "g_utf8_next_char", 65536) {
    walk(state, bench::chineseText(sizeOf(state)));
}
MARLIX_BENCH("CVQString_WalkAscii", "g_utf8_next_char", 65536) {
    walk(state, bench::asciiText(sizeOf(state)));
}
#endif
#if BENCH_QT
void walk(benchmark::State& state, const QString& text) {
    for (auto _ : state) {
        unsigned sum = 0;
        for (const QChar unit : text)
            sum += unit.unicode();
        benchmark::DoNotOptimize(sum);
    }
}
MARLIX_BENCH("CVQString_Walk", "QString, as UTF-16 units", 65536) {
    walk(state, QString::fromStdString(bench::chineseText(sizeOf(state))));
}
MARLIX_BENCH("CVQString_WalkAscii", "QString, as UTF-16 units", 65536) {
    walk(state, QString::fromStdString(bench::asciiText(sizeOf(state))));
}
#endif

}  // namespace
