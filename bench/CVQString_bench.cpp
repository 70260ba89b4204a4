// CVQString beside the text types in CVQString_peers.cpp.
#include "Bench.h"
#include "Texts.h"

#include <CVQString.h>

#include <cstring>
#include <string>

namespace {

using bench::check;
using bench::sizeOf;

CVQString stringOf(const std::string& text) {
    return CVQString(text.data(), text.size());
}

bool same(const CVQString& left, const std::string& right) {
    return left.getByteLength() == right.size() && std::memcmp(left.c_str(), right.data(), right.size()) == 0;
}

using MakeText = std::string (*)(std::size_t bytes);

void copy(benchmark::State& state) {
    const CVQString original = stringOf(bench::asciiText(sizeOf(state)));
    check(CVQString(original).c_str() == original.c_str(), "a copy shares");
    for (auto _ : state) {
        CVQString copied(original);
        benchmark::DoNotOptimize(copied);
    }
}
MARLIX_BENCH_ALONE("CVQString_CopyAlone", "ours", 1024) {
    copy(state);
}
MARLIX_BENCH("CVQString_Copy", "ours", 1024, 65536) {
    copy(state);
}

// What linking the library does to an application's own strings.
MARLIX_BENCH("CVQString_Copy", "std::string on our operator new", 1024, 65536) {
    const std::string original = bench::asciiText(sizeOf(state));
    for (auto _ : state) {
        std::string copied(original);
        benchmark::DoNotOptimize(copied);
    }
}

void build(benchmark::State& state, MakeText make) {
    const std::string text = make(sizeOf(state));
    check(same(stringOf(text), text), "construct");
    const char* bytes = text.data();
    for (auto _ : state) {
        benchmark::DoNotOptimize(bytes);
        CVQString built(bytes, text.size());
        benchmark::DoNotOptimize(built);
    }
}
MARLIX_BENCH("CVQString_FromAscii", "ours", 1024, 65536) {
    build(state, bench::asciiText);
}
MARLIX_BENCH("CVQString_FromGerman", "ours", 1024, 65536) {
    build(state, bench::germanText);
}
MARLIX_BENCH("CVQString_FromChinese", "ours", 1024, 65536) {
    build(state, bench::chineseText);
}

void find(benchmark::State& state, const std::string& in, const std::string& what) {
    const CVQString text = stringOf(in);
    const CVQString pattern = stringOf(what);
    check(text.find(pattern).getPosition() == text.c_str() + in.size() - what.size(), "find");
    for (auto _ : state)
        benchmark::DoNotOptimize(text.find(pattern));
}
MARLIX_BENCH("CVQString_Find", "ours", 65536) {
    find(state, bench::haystack(sizeOf(state)), bench::needle());
}
MARLIX_BENCH("CVQString_FindInProse", "ours", 65536) {
    find(state, bench::proseHaystack(sizeOf(state)), bench::needle());
}
MARLIX_BENCH("CVQString_FindPeriodic", "ours", 65536) {
    find(state, bench::periodicHaystack(sizeOf(state)), bench::periodicNeedle());
}

MARLIX_BENCH("CVQString_Format", "ours", 40) {
    struct {
        const char* service = "sync";
        int attempt = 3;
        unsigned limit = 10;
        unsigned error = 28;
    } with;
    for (auto _ : state) {
        benchmark::DoNotOptimize(with);
        CVQString text;
        text.format("%s: try %d of %u failed, error %08x", with.service, with.attempt, with.limit, with.error);
        benchmark::DoNotOptimize(text);
        check(text.getByteLength() == 40, "format");
    }
}

void append(benchmark::State& state, std::size_t reserved) {
    const std::size_t size = sizeOf(state);
    const char* piece = "12345678";
    for (auto _ : state) {
        CVQString text;
        text.reserve(reserved);
        for (std::size_t length = 0; length < size; length += 8) {
            benchmark::DoNotOptimize(piece);
            text.append(piece);
        }
        benchmark::DoNotOptimize(text);
        check(text.getByteLength() == size, "append");
    }
}
MARLIX_BENCH("CVQString_AppendReserved", "ours", 4096) {
    append(state, sizeOf(state));
}
MARLIX_BENCH("CVQString_AppendGrowing", "ours", 4096) {
    append(state, 0);
}

MARLIX_BENCH("CVQString_Hash", "ours", 16, 1024) {
    const CVQString text = stringOf(bench::asciiText(sizeOf(state)));
    unsigned expected = 0;
    for (const char* at = text.c_str(); *at != 0; ++at)
        expected = 5 * expected + static_cast<unsigned>(*at);
    check(getHashValueForString(text) == expected, "hash");
    for (auto _ : state)
        benchmark::DoNotOptimize(getHashValueForString(text));
}

MARLIX_BENCH("CVQString_Equal", "ours", 16, 1024) {
    const CVQString left = stringOf(bench::asciiText(sizeOf(state)));
    const CVQString right = stringOf(bench::asciiText(sizeOf(state)));
    check(left == right, "==");
    for (auto _ : state) {
        benchmark::DoNotOptimize(&left);
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(left == right);
    }
}

MARLIX_BENCH("CVQString_ReplaceAll", "ours", 4096) {
    const CVQString original = stringOf(bench::textWithPlaceholders(sizeOf(state)));
    const CVQString pattern(bench::placeholder());
    const CVQString with(bench::replacement());
    {
        CVQString text(original);
        text.replaceAll(pattern, with);
        check(text.find(pattern) == text.end() && text.find(with) != text.end(), "replaceAll");
    }
    for (auto _ : state) {
        CVQString text(original);
        text.replaceAll(pattern, with);
        benchmark::DoNotOptimize(text);
    }
}

void walk(benchmark::State& state, const CVQString& text) {
    for (auto _ : state) {
        unsigned sum = 0;
        for (const int character : text)
            sum += static_cast<unsigned>(character);
        benchmark::DoNotOptimize(sum);
    }
}
MARLIX_BENCH("CVQString_Walk", "ours", 65536) {
    walk(state, stringOf(bench::chineseText(sizeOf(state))));
}
MARLIX_BENCH("CVQString_WalkAscii", "ours", 65536) {
    walk(state, stringOf(bench::asciiText(sizeOf(state))));
}

}  // namespace
