// The serialising streams that one would pick instead of CVQByteStream.
#include "CVQByteStream_workload.h"

#include <cstring>
#include <sstream>
#include <string>

#if BENCH_QT
#include <QByteArray>
#include <QDataStream>
#include <QIODevice>
#include <QString>
#endif
#if BENCH_POCO
#include <Poco/BinaryReader.h>
#include <Poco/BinaryWriter.h>
#include <Poco/Buffer.h>
#include <Poco/MemoryStream.h>
#endif
#if BENCH_GLIB
#include <glib.h>
#endif

namespace {

#if BENCH_QT
// Set to this machine's byte order, which spares Qt the swap that its default demands.
template <class TextType>
struct QtFormat {
    using Text = TextType;
    struct Sink {
        QByteArray bytes;
        QDataStream stream{&bytes, QIODevice::WriteOnly};
        Sink() { stream.setByteOrder(QDataStream::LittleEndian); }
    };
    struct Source {
        QDataStream stream;
        explicit Source(const Sink& sink) : stream(sink.bytes) { stream.setByteOrder(QDataStream::LittleEndian); }
    };
    static void put(Sink& sink, unsigned value) { sink.stream << quint32(value); }
    static void get(Source& source, unsigned& value) { source.stream >> value; }
    static void put(Sink& sink, const Text& text) { sink.stream << text; }
    static void get(Source& source, Text& text) { source.stream >> text; }
    static std::size_t lengthOf(const Text& text) { return std::size_t(text.size()); }
};
MARLIX_BENCH_STREAM("QDataStream with QByteArray", QtFormat<QByteArray>)
MARLIX_BENCH_STREAM("QDataStream with QString", QtFormat<QString>)
#endif

#if BENCH_POCO
struct PocoFormat {
    using Text = std::string;
    static void get(Poco::BinaryReader& reader, unsigned& value) { reader >> value; }
    static void get(Poco::BinaryReader& reader, std::string& text) { reader >> text; }
    static std::size_t lengthOf(const std::string& text) { return text.size(); }
};

struct PocoStringStream : PocoFormat {
    struct Sink {
        std::ostringstream stream;
        Poco::BinaryWriter writer{stream};
    };
    struct Source {
        std::istringstream stream;
        Poco::BinaryReader reader{stream};
        explicit Source(const Sink& sink) : stream(sink.stream.str()) {}
    };
    template <class T>
    static void put(Sink& sink, const T& value) {
        sink.writer << value;
    }
    template <class T>
    static void get(Source& source, T& value) {
        PocoFormat::get(source.reader, value);
    }
};
MARLIX_BENCH_STREAM("POCO on std::stringstream", PocoStringStream)

// A block that is large enough from the start: it need not grow, which is Poco's best case.
struct PocoReadyBlock : PocoFormat {
    struct Sink {
        Poco::Buffer<char> block{8000000};
        Poco::MemoryOutputStream stream{block.begin(), std::streamsize(block.size())};
        Poco::BinaryWriter writer{stream};
    };
    struct Source {
        Poco::MemoryInputStream stream;
        Poco::BinaryReader reader{stream};
        explicit Source(const Sink& sink) : stream(sink.block.begin(), std::streamsize(sink.block.size())) {}
    };
    template <class T>
    static void put(Sink& sink, const T& value) {
        sink.writer << value;
    }
    template <class T>
    static void get(Source& source, T& value) {
        PocoFormat::get(source.reader, value);
    }
};
MARLIX_BENCH_STREAM("POCO on a ready block", PocoReadyBlock)
#endif

// What one writes by hand where no stream is at hand: a length and bytes, appended to a growing string.
struct ByHand {
    using Text = std::string;
    using Sink = std::string;
    struct Source {
        const std::string& bytes;
        std::size_t position = 0;
        explicit Source(const Sink& sink) : bytes(sink) {}
    };
    static void put(Sink& sink, unsigned value) {
        char bytes[sizeof value];
        std::memcpy(bytes, &value, sizeof value);
        sink.append(bytes, sizeof bytes);
    }
    static void get(Source& source, unsigned& value) {
        if (source.bytes.size() - source.position < sizeof value)
            return;
        std::memcpy(&value, source.bytes.data() + source.position, sizeof value);
        source.position += sizeof value;
    }
    static void put(Sink& sink, const std::string& text) {
        put(sink, static_cast<unsigned>(text.size()));
        sink.append(text);
    }
    static void get(Source& source, std::string& text) {
        unsigned length = 0;
        get(source, length);
        if (source.bytes.size() - source.position < length)
            return;
        text.assign(source.bytes, source.position, length);
        source.position += length;
    }
    static std::size_t lengthOf(const std::string& text) { return text.size(); }
};
MARLIX_BENCH_STREAM("std::string by hand", ByHand)

// Four megabytes of values and 2.4 of strings, out and back, in one piece each way.
MARLIX_BENCH("CVQByteStream_RoundTrip", "floor: memcpy of the bytes", 1100000) {
    const std::size_t size = bench::kValues * 4 + bench::kStrings * (4 + bench::kStringBytes);
    const std::string bytes(size, 'x');
    std::string out(size, ' ');
    std::string back(size, ' ');
    for (auto _ : state) {
        std::memcpy(out.data(), bytes.data(), size);
        benchmark::ClobberMemory();
        std::memcpy(back.data(), out.data(), size);
        benchmark::ClobberMemory();
    }
    bench::check(back == bytes, "memcpy");
}

// Copies of a stream

#if BENCH_QT
MARLIX_BENCH("CVQByteStream_Copy", "QByteArray", 65536) {
    const QByteArray original(int(state.range(0)), 'x');
    for (auto _ : state) {
        QByteArray copy(original);
        benchmark::DoNotOptimize(copy);
    }
}
#endif
MARLIX_BENCH("CVQByteStream_Copy", "std::string", 65536) {
    const std::string original(std::size_t(state.range(0)), 'x');
    for (auto _ : state) {
        std::string copy(original);
        benchmark::DoNotOptimize(copy);
    }
}
#if BENCH_GLIB
MARLIX_BENCH("CVQByteStream_Copy", "GBytes", 65536) {
    const std::string bytes(std::size_t(state.range(0)), 'x');
    GBytes* const original = g_bytes_new(bytes.data(), bytes.size());
    for (auto _ : state) {
        GBytes* copy = g_bytes_ref(original);
        benchmark::DoNotOptimize(copy);
        g_bytes_unref(copy);
    }
    g_bytes_unref(original);
}
#endif

}  // namespace
