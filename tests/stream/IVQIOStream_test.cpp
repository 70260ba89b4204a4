// Concerns: bytes of the primitives; short reads; both skips and their limits; align; binary interface (slots, bases);
// use from a program with run-time type information.
#include "stream/Streams.h"
#include "support/VirtualSlot.h"

#include <CVQByteStream.h>
#include <IVQIOStream.h>

#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <typeinfo>

namespace {

using support::slotOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST(IVQOStream, WritesAnUnsignedIntInHostOrder) {
    Sink sink;
    EXPECT_EQ(&sink, &(sink << 0x01020304U));
    EXPECT_THAT(sink.bytes, ElementsAre(4, 3, 2, 1));
    EXPECT_THAT(sink.calls, ElementsAre("4"));
}

TEST(IVQOStream, WritesAnUnsignedLongLongLowWordFirst) {
    Sink sink;
    EXPECT_EQ(&sink, &(sink << 1ULL));
    EXPECT_THAT(sink.bytes, ElementsAre(1, 0, 0, 0, 0, 0, 0, 0));
    EXPECT_THAT(sink.calls, ElementsAre("8"));
}

TEST(IVQOStream, WritesAnIntInTwosComplement) {
    Sink sink;
    EXPECT_EQ(&sink, &(sink << -2));
    EXPECT_THAT(sink.bytes, ElementsAre(0xFE, 0xFF, 0xFF, 0xFF));
}

TEST(IVQOStream, ChainsValues) {
    Sink sink;
    sink << 1U << -1 << 2ULL;
    EXPECT_THAT(sink.bytes, ElementsAre(1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 2, 0, 0, 0, 0, 0, 0, 0));
}

TEST(IVQOStream, IgnoresThatAValueWasTakenInPart) {
    Sink sink(2);
    sink << 0x01020304U << 7U;
    EXPECT_THAT(sink.bytes, ElementsAre(4, 3, 7, 0));
}

TEST(IVQOStream, WriteReturnsTheCountOfTheConcreteStream) {
    Sink sink(3);
    EXPECT_EQ(3u, sink.write("abcdef", 6));
    EXPECT_EQ(2u, sink.write("ab", 2));
    EXPECT_EQ(0u, sink.write("ab", 0));
    EXPECT_THAT(sink.calls, ElementsAre("6", "2", "0"));
}

TEST(IVQOStream, RefusesCountsThatDoNotFit32Bits) {
    if constexpr (sizeof(std::size_t) > 4) {
        Sink sink;
        EXPECT_EQ(0u, sink.write("abcd", (std::size_t{1} << 32) + 4));
        EXPECT_THAT(sink.calls, IsEmpty());
    }
}

TEST(IVQOStream, WriteSkipMakesNoCallForNothing) {
    Sink sink;
    sink.writeSkip(0);
    EXPECT_THAT(sink.calls, IsEmpty());
}

TEST(IVQOStream, WriteSkipWritesZerosInPiecesOf512) {
    const struct {
        int line;
        unsigned count;
        std::vector<std::string> calls;
    } kRows[] = {
        {__LINE__, 1, {"1"}},
        {__LINE__, 511, {"511"}},
        {__LINE__, 512, {"512"}},
        {__LINE__, 513, {"512", "1"}},
        {__LINE__, 1000, {"512", "488"}},
        {__LINE__, 1024, {"512", "512"}},
        {__LINE__, 1025, {"512", "512", "1"}},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        Sink sink;
        sink.writeSkip(row.count);
        EXPECT_EQ(row.calls, sink.calls);
        EXPECT_THAT(sink.bytes, SizeIs(row.count));
        EXPECT_THAT(sink.bytes, Each(0));
    }
}

// id: stream-skip-signed
TEST(IVQOStream, Kept_WriteSkipOf2To31AndMoreDoesNothing) {
    Sink sink;
    sink.writeSkip(0x80000000U);
    sink.writeSkip(0xFFFFFFFFU);
    EXPECT_THAT(sink.calls, IsEmpty());
}

// id: stream-skip-short
TEST(IVQOStream, Kept_WriteSkipGoesOnAfterAShortWrite) {
    Sink sink(1);
    sink.writeSkip(1200);
    EXPECT_THAT(sink.calls, ElementsAre("512", "512", "176"));
    EXPECT_THAT(sink.bytes, SizeIs(3));
}

TEST(IVQIStream, ReadsThePrimitivesInHostOrder) {
    const Source source({4, 3, 2, 1, 9, 8, 7, 6, 5, 4, 3, 2, 'x'});
    unsigned number = 0;
    unsigned long long longNumber = 0;
    char character = 0;
    EXPECT_EQ(&source, &(source >> number >> longNumber >> character));
    EXPECT_EQ(0x01020304U, number);
    EXPECT_EQ(0x0203040506070809ULL, longNumber);
    EXPECT_EQ('x', character);
    EXPECT_THAT(source.calls, ElementsAre("4", "8", "1"));
}

TEST(IVQIStream, LeavesWhatDidNotArriveAsItWas) {
    for (std::size_t arrives = 0; arrives < 4; ++arrives) {
        SCOPED_TRACE(arrives);
        const Source source(Bytes(arrives, 0x11));
        unsigned char target[4] = {0xAA, 0xAA, 0xAA, 0xAA};
        unsigned value = 0;
        std::memcpy(&value, target, sizeof value);
        source >> value;
        std::fill(target, target + arrives, static_cast<unsigned char>(0x11));
        EXPECT_EQ(0, std::memcmp(&value, target, sizeof value));
    }
    const Source empty({});
    char character = 'q';
    unsigned long long longNumber = 12;
    empty >> character >> longNumber;
    EXPECT_EQ('q', character);
    EXPECT_EQ(12u, longNumber);
}

TEST(IVQIStream, ReadReturnsTheCountOfTheConcreteStream) {
    const Source source({1, 2, 3, 4, 5}, 3);
    unsigned char target[8];
    EXPECT_EQ(3u, source.read(target, sizeof target));
    EXPECT_EQ(2u, source.read(target, sizeof target));
    EXPECT_EQ(0u, source.read(target, sizeof target));
}

TEST(IVQIStream, RefusesCountsThatDoNotFit32Bits) {
    if constexpr (sizeof(std::size_t) > 4) {
        const Source source({1, 2, 3, 4, 5});
        unsigned char target[8];
        EXPECT_EQ(0u, source.read(target, (std::size_t{1} << 32) + 4));
        EXPECT_THAT(source.calls, IsEmpty());
    }
}

TEST(IVQIStream, ReadSkipMakesNoCallForNothing) {
    const Source source({1, 2, 3});
    source.readSkip(0);
    EXPECT_THAT(source.calls, IsEmpty());
}

TEST(IVQIStream, ReadSkipDiscardsInPiecesOf512) {
    const Source source(Bytes(2000, 1));
    source.readSkip(1000);
    EXPECT_THAT(source.calls, ElementsAre("512", "488"));
    EXPECT_EQ(1000u, source.position);
    source.readSkip(512);
    EXPECT_THAT(source.calls, ElementsAre("512", "488", "512"));
    EXPECT_EQ(1512u, source.position);
}

// id: stream-skip-signed
TEST(IVQIStream, Kept_ReadSkipOf2To31AndMoreDoesNothing) {
    const Source source(Bytes(2000, 1));
    source.readSkip(0x80000000U);
    source.readSkip(0xFFFFFFFFU);
    EXPECT_THAT(source.calls, IsEmpty());
}

// id: stream-skip-short
TEST(IVQIStream, Kept_ReadSkipGoesOnAfterAShortRead) {
    const Source source(Bytes(600, 1), 5);
    source.readSkip(1025);
    EXPECT_THAT(source.calls, ElementsAre("512", "512", "1"));
    EXPECT_EQ(11u, source.position);
}

// The least that a user's stream has to supply; everything else comes from the interface.
class LeastStream : public IVQIOStream {
public:
    bool waitToRead(int) override { return false; }
    void ready() override {}
    void flush() override {}
    bool waitToWrite(int) override { return false; }

    unsigned calls = 0;

protected:
    unsigned doRead(void*, unsigned) const override { return 0; }
    unsigned doWrite(const void*, unsigned) override { return ++calls; }
};

TEST(IVQIOStream, AlignDoesNothingByDefault) {
    LeastStream stream;
    static_cast<IVQIStream&>(stream).align(4);
    static_cast<IVQOStream&>(stream).align(4);
    EXPECT_EQ(0u, stream.calls);
}

TEST(IVQIOStream, IsKnownByItsTypeInAProgramWithTypeInformation) {
    LeastStream stream;
    IVQIStream& input = stream;
    IVQOStream& output = stream;
    EXPECT_EQ(typeid(LeastStream), typeid(input));
    EXPECT_EQ(typeid(LeastStream), typeid(output));
    EXPECT_EQ(&output, dynamic_cast<IVQOStream*>(&input));
    EXPECT_EQ(&stream, dynamic_cast<IVQIOStream*>(&output));
    EXPECT_EQ(nullptr, dynamic_cast<CVQByteStream*>(&input));

    Sink sink;
    Source source({});
    EXPECT_EQ(typeid(Sink), typeid(static_cast<IVQOStream&>(sink)));
    EXPECT_EQ(typeid(Source), typeid(static_cast<IVQIStream&>(source)));
}

// Makes the protected operations nameable.
struct InputSlots : IVQIStream {
    using IVQIStream::doRead;
};
struct OutputSlots : IVQOStream {
    using IVQOStream::doWrite;
};

// The destructor takes the places 0 and 1: one entry for objects, one for objects that `delete` frees.
TEST(IVQIStream, HasItsOperationsInTheFixedSlots) {
    EXPECT_EQ(2, slotOf(&IVQIStream::waitToRead));
    EXPECT_EQ(3, slotOf(&IVQIStream::ready));
    EXPECT_EQ(4, slotOf(&IVQIStream::align));
    EXPECT_EQ(5, slotOf(&IVQIStream::readSkip));
    EXPECT_EQ(6, slotOf(&InputSlots::doRead));
}

TEST(IVQOStream, HasItsOperationsInTheFixedSlots) {
    EXPECT_EQ(2, slotOf(&IVQOStream::flush));
    EXPECT_EQ(3, slotOf(&IVQOStream::waitToWrite));
    EXPECT_EQ(4, slotOf(&IVQOStream::align));
    EXPECT_EQ(5, slotOf(&IVQOStream::writeSkip));
    EXPECT_EQ(6, slotOf(&OutputSlots::doWrite));
}

// Called as a caller from another compiler run calls it: by its place in the object's table, knowing no class.
TEST(IVQIOStream, IsCalledThroughTheTablesOfItsTwoBasesInOrder) {
    static_assert(sizeof(IVQIOStream) == 2 * sizeof(void*), "two tables and nothing else");
    LeastStream stream;
    EXPECT_EQ(static_cast<void*>(&stream), static_cast<void*>(static_cast<IVQIStream*>(&stream)));
    EXPECT_EQ(static_cast<void*>(reinterpret_cast<char*>(&stream) + sizeof(void*)),
              static_cast<void*>(static_cast<IVQOStream*>(&stream)));

    using Write = unsigned (*)(void* object, const void* source, unsigned count);
    void* const output = static_cast<IVQOStream*>(&stream);
    void** table = nullptr;
    std::memcpy(&table, output, sizeof table);
    Write write = nullptr;
    std::memcpy(&write, &table[6], sizeof write);
    EXPECT_EQ(1u, write(output, "a", 1));
    EXPECT_EQ(1u, stream.calls);
}

}  // namespace
