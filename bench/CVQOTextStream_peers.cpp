// What one would pick instead of CVQOTextStream.
#include "CVQOTextStream_workload.h"

#include <cstdio>
#include <cstring>
#include <sstream>

#if BENCH_FMT
#include <fmt/format.h>
#endif
#if BENCH_QT
#include <QString>
#endif
#if BENCH_GLIB
#include <glib.h>
#endif

namespace {

#if BENCH_FMT
MARLIX_BENCH("CVQOTextStream_Texts", "{fmt} into a memory buffer", 1000000) {
    for (auto _ : state) {
        fmt::memory_buffer buffer;
        for (unsigned i = 0; i < bench::kItems; ++i)
            fmt::format_to(std::back_inserter(buffer), "{}", bench::kTexts[i % bench::kTextCount]);
        bench::check(buffer.size() == bench::plainLength(), "length");
    }
}
MARLIX_BENCH("CVQOTextStream_Formatted", "{fmt} into a memory buffer", 1000000) {
    for (auto _ : state) {
        fmt::memory_buffer buffer;
        for (unsigned i = 0; i < bench::kItems; ++i)
            fmt::format_to(std::back_inserter(buffer), "{}={};", "name", static_cast<int>(i));
        bench::check(buffer.size() == bench::kFormattedLength, "length");
    }
}
#endif

MARLIX_BENCH("CVQOTextStream_Texts", "std::ostringstream", 1000000) {
    for (auto _ : state) {
        std::ostringstream stream;
        for (unsigned i = 0; i < bench::kItems; ++i)
            stream << bench::kTexts[i % bench::kTextCount];
        bench::check(static_cast<std::size_t>(stream.tellp()) == bench::plainLength(), "length");
    }
}
MARLIX_BENCH("CVQOTextStream_Texts", "std::string", 1000000) {
    for (auto _ : state) {
        std::string text;
        for (unsigned i = 0; i < bench::kItems; ++i)
            text += bench::kTexts[i % bench::kTextCount];
        bench::check(text.size() == bench::plainLength(), "length");
    }
}
MARLIX_BENCH("CVQOTextStream_Formatted", "snprintf, std::string", 1000000) {
    for (auto _ : state) {
        std::string text;
        for (unsigned i = 0; i < bench::kItems; ++i) {
            char item[64];
            const int length = std::snprintf(item, sizeof item, "%s=%d;", "name", static_cast<int>(i));
            text.append(item, static_cast<std::size_t>(length));
        }
        bench::check(text.size() == bench::kFormattedLength, "length");
    }
}

#if BENCH_QT
MARLIX_BENCH("CVQOTextStream_Escape", "QString::toHtmlEscaped", 1048576) {
    const QString text = QString::fromStdString(bench::markedUp(static_cast<std::size_t>(state.range(0))));
    for (auto _ : state) {
        QString escaped = text.toHtmlEscaped();
        bench::check(escaped.size() > text.size(), "length");
    }
}
#endif
#if BENCH_GLIB
MARLIX_BENCH("CVQOTextStream_Escape", "g_markup_escape_text", 1048576) {
    const std::string text = bench::markedUp(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        gchar* const escaped = g_markup_escape_text(text.data(), static_cast<gssize>(text.size()));
        bench::check(std::strlen(escaped) > text.size(), "length");
        g_free(escaped);
    }
}
#endif
MARLIX_BENCH("CVQOTextStream_Escape", "floor: malloc, memcpy, free", 1048576) {
    const std::string text = bench::markedUp(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        char* const copy = static_cast<char*>(std::malloc(text.size()));
        std::memcpy(copy, text.data(), text.size());
        benchmark::DoNotOptimize(copy);
        benchmark::ClobberMemory();
        std::free(copy);
    }
}

}  // namespace
