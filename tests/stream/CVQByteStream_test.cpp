// Concerns: growth; the end of data; sharing with copies and buffers; text and dump; both stream forms whole, cut off
// and hostile; each assertion by its line; lengths that the block does not have; sums that overflow; streams written and
// read into themselves; random sequences against a plain model; use from static constructors and on many threads.
#include "stream/ByteStreamOperations.h"
#include "stream/Streams.h"
#include "support/AssertionLog.h"

#include <CVQBuffer.h>
#include <CVQByteStream.h>
#include <CVQString.h>

#include <atomic>
#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <thread>
#include <typeinfo>

namespace {

using support::AssertionLog;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

CVQByteStream streamOf(const Bytes& bytes) {
    CVQByteStream stream;
    stream.write(bytes.data(), bytes.size());
    return stream;
}

Bytes bytesIn(const CVQByteStream& stream) {
    return bytesOf(stream.getData(), stream.getLength());
}

Bytes storageOf(const CVQByteStream& stream) {
    return bytesOf(stream.getData(), stream.getCapacity());
}

struct State {
    unsigned length, position, capacity;
    bool atEnd;
    bool operator==(const State& o) const {
        return length == o.length && position == o.position && capacity == o.capacity && atEnd == o.atEnd;
    }
    friend std::ostream& operator<<(std::ostream& out, const State& s) {
        return out << "length " << s.length << " position " << s.position << " capacity " << s.capacity
                   << (s.atEnd ? " at end" : "");
    }
};

State stateOf(const CVQByteStream& s) {
    return {s.getLength(), s.getReadPosition(), s.getCapacity(), s.isEndOfData()};
}

TEST(CVQByteStream, IsEmptyByDefault) {
    const CVQByteStream stream;
    EXPECT_EQ((State{0, 0, 0, false}), stateOf(stream));
    EXPECT_EQ(nullptr, stream.getData());
}

TEST(CVQByteStream, IsEmptyWithACapacity) {
    const CVQByteStream stream(10);
    EXPECT_EQ((State{0, 0, 10, false}), stateOf(stream));
    EXPECT_NE(nullptr, stream.getData());
    EXPECT_EQ((State{0, 0, 0, false}), stateOf(CVQByteStream(0)));
    EXPECT_EQ((State{0, 0, 0, false}), stateOf(CVQByteStream(~std::size_t{0})));
}

TEST(CVQByteStream, GrowsByDoublingFrom32) {
    const struct {
        int line;
        unsigned count;
        unsigned capacity;
    } kRows[] = {
        {__LINE__, 1, 32},      {__LINE__, 32, 32},     {__LINE__, 33, 64},
        {__LINE__, 64, 64},     {__LINE__, 65, 128},    {__LINE__, 100, 128},
        {__LINE__, 1000, 1024}, {__LINE__, 1024, 1024}, {__LINE__, 1025, 2048},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        const Bytes bytes(row.count, 0x5A);
        CVQByteStream stream;
        EXPECT_EQ(row.count, stream.write(bytes.data(), row.count));
        EXPECT_EQ((State{row.count, 0, row.capacity, false}), stateOf(stream));
        EXPECT_EQ(bytes, bytesIn(stream));
    }
}

TEST(CVQByteStream, GrowsAsRarelyAsDoublingAllows) {
    CVQByteStream stream;
    std::set<unsigned> capacities;
    for (unsigned i = 0; i < 100000; ++i) {
        const unsigned char byte = static_cast<unsigned char>(i);
        ASSERT_EQ(1u, stream.write(&byte, 1));
        capacities.insert(stream.getCapacity());
    }
    EXPECT_EQ(13u, capacities.size());  // 32 = 2^5 to 131072 = 2^17
    for (unsigned i = 0; i < 100000; ++i)
        ASSERT_EQ(static_cast<unsigned char>(i), stream.getData()[i]);
}

TEST(CVQByteStream, DoublesFromACapacityThatIsNoPowerOfTwo) {
    CVQByteStream stream(10);
    const unsigned char* const block = stream.getData();
    stream.write("0123456789", 10);
    EXPECT_EQ(block, stream.getData());
    EXPECT_EQ(10u, stream.getCapacity());
    stream.write("a", 1);
    EXPECT_EQ((State{11, 0, 32, false}), stateOf(stream));
    EXPECT_EQ(0, std::memcmp("0123456789a", stream.getData(), 11));
}

TEST(CVQByteStream, WritesNothingForACountOfZero) {
    CVQByteStream stream;
    EXPECT_EQ(0u, stream.write("a", 0));
    EXPECT_EQ(0u, stream.write(nullptr, 0));
    EXPECT_EQ(nullptr, stream.getData());
}

TEST(CVQByteStream, ReportsANullSource) {
    AssertionLog log;
    CVQByteStream stream = streamOf({1});
    EXPECT_EQ(0u, stream.write(nullptr, 1));
    EXPECT_THAT(log.takeSites(), ElementsAre("CVQByteStream:134"));
    EXPECT_THAT(bytesIn(stream), ElementsAre(1));
}

TEST(CVQByteStream, RefusesAWriteThatNoBlockCanHold) {
    AssertionLog log;
    CVQByteStream empty;
    EXPECT_EQ(0u, empty.write("a", 0xFFFFFFFFU));
    EXPECT_THAT(log.takeSites(), ElementsAre("CVQByteStream:156"));
    CVQByteStream stream = streamOf({1, 2, 3});
    EXPECT_EQ(0u, stream.write("a", 0xFFFFFFFFU));
    EXPECT_EQ(0u, stream.write("a", CVQRCMemoryBuffer::kMaxSize - 2));
    EXPECT_THAT(log.takeSites(), ElementsAre("CVQByteStream:156", "CVQByteStream:156"));
    EXPECT_THAT(bytesIn(stream), ElementsAre(1, 2, 3));
    CVQByteStream longOne(blockOf({1, 2}), 0xFFFFFFFFU);
    EXPECT_EQ(0u, longOne.write("a", 1));
    EXPECT_EQ(0u, longOne.write("abc", 3));
    EXPECT_THAT(log.takeSites(), ElementsAre("CVQByteStream:156", "CVQByteStream:156"));
    EXPECT_EQ((State{0xFFFFFFFFU, 0, 2, false}), stateOf(longOne));
}

TEST(CVQByteStream, TakesItsOwnBytesAsASource) {
    CVQByteStream stream;
    stream.write("0123456789abcdefghijklmnopqrst", 30);
    EXPECT_EQ(30u, stream.write(stream.getData(), 30));
    EXPECT_EQ(0, std::memcmp("0123456789abcdefghijklmnopqrst0123456789abcdefghijklmnopqrst", stream.getData(), 60));
    EXPECT_EQ(64u, stream.getCapacity());
    EXPECT_EQ(2u, stream.write(stream.getData() + 10, 2));
    EXPECT_EQ(0, std::memcmp("ab", stream.getData() + 60, 2));
    const CVQByteStream copy(stream);
    EXPECT_EQ(3u, stream.write(stream.getData() + 1, 3));
    EXPECT_EQ(0, std::memcmp("123", stream.getData() + 62, 3));
    EXPECT_EQ(62u, copy.getLength());
}

TEST(CVQByteStream, ReadsBackWhatWasWritten) {
    CVQByteStream stream;
    stream << 0x01020304U << -1 << 0x1122334455667788ULL;
    stream.write("x", 1);
    unsigned number = 0;
    unsigned minusOne = 0;
    unsigned long long longNumber = 0;
    char character = 0;
    EXPECT_TRUE(stream.waitToRead(0));
    stream >> number >> minusOne >> longNumber >> character;
    EXPECT_EQ(0x01020304U, number);
    EXPECT_EQ(0xFFFFFFFFU, minusOne);
    EXPECT_EQ(0x1122334455667788ULL, longNumber);
    EXPECT_EQ('x', character);
    EXPECT_FALSE(stream.waitToRead(0));
    EXPECT_TRUE(stream.waitToWrite(0));
    EXPECT_FALSE(stream.isEndOfData());
    EXPECT_EQ(17u, stream.getReadPosition());
}

TEST(CVQByteStream, ReadsThroughAConstReference) {
    const CVQByteStream stream = streamOf({1, 2});
    unsigned char byte = 0;
    EXPECT_EQ(1u, stream.read(&byte, 1));
    EXPECT_EQ(1u, stream.getReadPosition());
}

TEST(CVQByteStream, FillsUpAShortReadWithZerosAndStaysAtTheEnd) {
    CVQByteStream stream = streamOf({1, 2, 3, 4, 5});
    unsigned char target[8];
    std::memset(target, 0xAA, sizeof target);
    EXPECT_EQ(5u, stream.read(target, 8));
    EXPECT_EQ(Bytes({1, 2, 3, 4, 5, 0, 0, 0}), bytesOf(target, 8));
    EXPECT_TRUE(stream.isEndOfData());
    EXPECT_EQ(5u, stream.getReadPosition());
    target[0] = 0xAA;
    EXPECT_EQ(0u, stream.read(target, 1));
    EXPECT_EQ(0xAA, target[0]);
    // More bytes do not help: the state is sticky.
    stream.write("abc", 3);
    EXPECT_TRUE(stream.waitToRead(0));
    EXPECT_EQ(0u, stream.read(target, 1));
    EXPECT_EQ(0xAA, target[0]);
}

TEST(CVQByteStream, MayBeReadExactlyToTheEnd) {
    CVQByteStream stream = streamOf({1, 2});
    unsigned char target[2];
    EXPECT_EQ(2u, stream.read(target, 2));
    EXPECT_FALSE(stream.isEndOfData());
    EXPECT_EQ(0u, stream.read(target, 0));
    EXPECT_FALSE(stream.isEndOfData());
    EXPECT_EQ(0u, stream.read(target, 1));
    EXPECT_TRUE(stream.isEndOfData());
    EXPECT_EQ(0, target[0]);
}

TEST(CVQByteStream, ReportsANullDestination) {
    AssertionLog log;
    CVQByteStream stream = streamOf({1, 2});
    EXPECT_EQ(0u, stream.read(nullptr, 0));
    EXPECT_THAT(log.takeSites(), IsEmpty());
    EXPECT_EQ(0u, stream.read(nullptr, 1));
    EXPECT_EQ(0u, stream.read(nullptr, 3));
    EXPECT_THAT(log.takeSites(), ElementsAre("CVQByteStream:180", "CVQByteStream:180"));
    EXPECT_EQ((State{2, 0, 32, false}), stateOf(stream));
    stream.readSkip(3);
    EXPECT_EQ(0u, stream.read(nullptr, 1));
    EXPECT_THAT(log.takeSites(), IsEmpty());
}

TEST(CVQByteStream, SkipsUpToTheEnd) {
    CVQByteStream stream = streamOf({1, 2, 3, 4, 5});
    stream.readSkip(1);
    EXPECT_EQ(1u, stream.getReadPosition());
    stream.readSkip(0);
    EXPECT_EQ(1u, stream.getReadPosition());
    stream.readSkip(10);
    EXPECT_EQ((State{5, 5, 32, true}), stateOf(stream));
    EXPECT_FALSE(stream.waitToRead(0));
    CVQByteStream exact = streamOf({1, 2});
    exact.readSkip(2);
    EXPECT_EQ((State{2, 2, 32, false}), stateOf(exact));
    exact.readSkip(0xFFFFFFFFU);
    EXPECT_EQ((State{2, 2, 32, true}), stateOf(exact));
    exact.write("a", 1);
    exact.readSkip(1);
    EXPECT_EQ(2u, exact.getReadPosition());
}

// The signed test of the interface's own skip is not this stream's.
TEST(CVQByteStream, SkipsCountsOf2To31AndMore) {
    CVQByteStream stream = streamOf({1, 2});
    stream.readSkip(0x80000000U);
    EXPECT_EQ((State{2, 2, 32, true}), stateOf(stream));
}

TEST(CVQByteStream, WritesZerosToSkip) {
    CVQByteStream stream;
    stream.writeSkip(600);
    EXPECT_EQ(600u, stream.getLength());
    EXPECT_THAT(bytesIn(stream), Each(0));
}

TEST(CVQByteStream, ACopyReadsFromTheBeginningAndIsWrittenAlone) {
    CVQByteStream stream = streamOf({1, 2, 3, 4});
    stream.readSkip(2);
    CVQByteStream copy(stream);
    EXPECT_EQ((State{4, 0, 32, false}), stateOf(copy));
    EXPECT_EQ(stream.getData(), copy.getData());
    unsigned char byte = 0;
    copy.read(&byte, 1);
    EXPECT_EQ(1, byte);
    copy.write("\x09", 1);
    EXPECT_THAT(bytesIn(copy), ElementsAre(1, 2, 3, 4, 9));
    EXPECT_THAT(bytesIn(stream), ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(Bytes({1, 2, 3, 4, 0}), bytesOf(stream.getData(), 5));
    EXPECT_EQ(2u, stream.getReadPosition());
    stream.readSkip(100);
    EXPECT_FALSE(CVQByteStream(stream).isEndOfData());
}

// id: bytestream-cow-shrinks
TEST(CVQByteStream, Kept_AWriteThatEndsSharingSizesThePrivateBlockExactly) {
    CVQByteStream stream(100);
    stream.write("abc", 3);
    CVQByteStream copy(stream);
    copy.write("de", 2);
    EXPECT_EQ(5u, copy.getCapacity());
    EXPECT_EQ(100u, stream.getCapacity());
    // A block that is too small gives way to a doubled one, shared or not.
    CVQByteStream full = streamOf(Bytes(32, 7));
    CVQByteStream fullCopy(full);
    fullCopy.write("x", 1);
    EXPECT_EQ(64u, fullCopy.getCapacity());
}

TEST(CVQByteStream, AssignmentSharesAndStartsAgain) {
    CVQByteStream stream = streamOf({1, 2, 3});
    CVQByteStream target = streamOf({9});
    target.readSkip(5);
    target = stream;
    EXPECT_EQ((State{3, 0, 32, false}), stateOf(target));
    EXPECT_EQ(stream.getData(), target.getData());
}

TEST(CVQByteStream, SelfAssignmentDoesNothing) {
    CVQByteStream stream = streamOf({1, 2, 3});
    stream.readSkip(5);
    const CVQByteStream& itself = stream;
    stream = itself;
    EXPECT_EQ((State{3, 3, 32, true}), stateOf(stream));
}

// id: bytestream-assign-empty
TEST(CVQByteStream, Kept_AssigningAnEmptyStreamKeepsTheBlock) {
    CVQByteStream stream = streamOf({1, 2, 3});
    const unsigned char* const block = stream.getData();
    stream.readSkip(5);
    stream = CVQByteStream(100);
    EXPECT_EQ((State{0, 0, 32, false}), stateOf(stream));
    EXPECT_EQ(block, stream.getData());
    stream.write("a", 1);
    EXPECT_EQ(block, stream.getData());
}

TEST(CVQByteStream, SharesTheBlockOfABuffer) {
    CVQBuffer buffer;
    buffer.copyTo("abcd", 4, 0);
    CVQByteStream constructed(buffer);
    EXPECT_EQ((State{4, 0, 4, false}), stateOf(constructed));
    EXPECT_EQ(buffer.getData(), constructed.getData());
    CVQByteStream assigned = streamOf({1});
    assigned.readSkip(2);
    assigned = buffer;
    EXPECT_EQ((State{4, 0, 4, false}), stateOf(assigned));
    EXPECT_EQ(buffer.getData(), assigned.getData());
    assigned.write("e", 1);
    EXPECT_EQ(0, std::memcmp("abcd", buffer.getData(), 4));
    EXPECT_EQ(0, std::memcmp("abcde", assigned.getData(), 5));
    assigned = CVQBuffer();
    EXPECT_EQ((State{0, 0, 0, false}), stateOf(assigned));
}

// id: bytestream-length-as-is
TEST(CVQByteStream, Kept_TheLengthGivenWithABlockIsNotCheckedAgainstIt) {
    const CVQByteStream shorter(blockOf({1, 2, 3}), 2);
    EXPECT_EQ((State{2, 0, 3, false}), stateOf(shorter));
    EXPECT_THAT(bytesIn(shorter), ElementsAre(1, 2));
    const CVQByteStream longer(blockOf({1, 2, 3}), 0xFFFFFFFFU);
    EXPECT_EQ((State{0xFFFFFFFFU, 0, 3, false}), stateOf(longer));
    if constexpr (sizeof(std::size_t) > 4) {
        EXPECT_EQ(0u, CVQByteStream(blockOf({1, 2, 3}), (std::size_t{1} << 32) + 2).getLength());
    }
}

TEST(CVQByteStream, NeverReadsPastTheBlockWhateverTheLength) {
    AssertionLog log;
    const CVQByteStream stream(blockOf({1, 2, 3}), 10);
    unsigned char target[8];
    std::memset(target, 0xAA, sizeof target);
    EXPECT_EQ(2u, stream.read(target, 2));
    EXPECT_THAT(log.takeSites(), IsEmpty());
    EXPECT_EQ(4u, stream.read(target, 4));
    EXPECT_THAT(log.takeSites(), ElementsAre("CVQByteStream:186"));
    EXPECT_EQ(Bytes({3, 2, 0xAA, 0xAA, 0xAA}), bytesOf(target, 5));
    EXPECT_EQ((State{10, 6, 3, false}), stateOf(stream));
    std::memset(target, 0xAA, sizeof target);
    EXPECT_EQ(4u, stream.read(target, 6));
    EXPECT_THAT(log.takeSites(), ElementsAre("CVQByteStream:197"));
    EXPECT_EQ(Bytes({0xAA, 0xAA, 0xAA, 0xAA, 0, 0, 0xAA, 0xAA}), bytesOf(target, 8));
    EXPECT_EQ((State{10, 10, 3, true}), stateOf(stream));
}

TEST(CVQByteStream, ReportsAMissingBlockAndAdvancesAllTheSame) {
    AssertionLog log;
    const CVQByteStream stream(CVQRCMemoryBuffer(), 6);
    unsigned value = 0xAAAAAAAAU;
    EXPECT_EQ(4u, stream.read(&value, 4));
    EXPECT_THAT(log.takeSites(), ElementsAre("CVQByteStream:186"));
    EXPECT_EQ(0xAAAAAAAAU, value);
    EXPECT_EQ(4u, stream.getReadPosition());
    EXPECT_EQ(2u, stream.read(&value, 4));
    EXPECT_THAT(log.takeSites(), ElementsAre("CVQByteStream:197"));
    EXPECT_EQ(0x0000AAAAU, value);
    EXPECT_EQ((State{6, 6, 0, true}), stateOf(stream));
}

TEST(CVQByteStream, CountsPositionsBeyond2To32Right) {
    AssertionLog log;
    const CVQByteStream stream(blockOf({1, 2, 3}), 0xFFFFFFFFU);
    stream.readSkip(0xFFFFFFF0U);
    EXPECT_EQ(0xFFFFFFF0U, stream.getReadPosition());
    unsigned char target[0x20];
    EXPECT_EQ(0xFu, stream.read(target, sizeof target));
    EXPECT_THAT(log.takeSites(), ElementsAre("CVQByteStream:197"));
    EXPECT_EQ((State{0xFFFFFFFFU, 0xFFFFFFFFU, 3, true}), stateOf(stream));
    const CVQByteStream skipped(blockOf({1, 2, 3}), 0xFFFFFFFFU);
    skipped.readSkip(0xFFFFFFF0U);
    skipped.readSkip(0x20);
    EXPECT_EQ((State{0xFFFFFFFFU, 0xFFFFFFFFU, 3, true}), stateOf(skipped));
}

TEST(CVQByteStream, GrowsOverALengthThatTheBlockLacks) {
    CVQByteStream stream(blockOf({1, 2, 3}), 6);
    EXPECT_EQ(1u, stream.write("\x09", 1));
    EXPECT_EQ((State{7, 0, 32, false}), stateOf(stream));
    EXPECT_THAT(bytesIn(stream), ElementsAre(1, 2, 3, 0, 0, 0, 9));
}

TEST(CVQByteStream, ReservesExactly) {
    CVQByteStream stream = streamOf({1, 2, 3});
    const unsigned char* block = stream.getData();
    stream.reserve(31);
    stream.reserve(32);
    EXPECT_EQ(block, stream.getData());
    stream.reserve(33);
    EXPECT_EQ((State{3, 0, 33, false}), stateOf(stream));
    const CVQByteStream copy(stream);
    stream.reserve(33, true);
    EXPECT_NE(copy.getData(), stream.getData());
    EXPECT_EQ(33u, stream.getCapacity());
    EXPECT_EQ(copy, stream);
}

TEST(CVQByteStream, ReserveKeepsTheWholeOldCapacity) {
    CVQByteStream stream(blockOf({1, 2, 3, 4, 5}), 2);
    stream.reserve(7);
    EXPECT_THAT(storageOf(stream), ElementsAre(1, 2, 3, 4, 5, 0, 0));
}

// id: bytestream-force-shrinks
TEST(CVQByteStream, Kept_AForcedReserveCutsTheBlockAndLeavesLengthAndPosition) {
    AssertionLog log;
    CVQByteStream stream = streamOf({1, 2, 3, 4, 5});
    stream.readSkip(1);
    stream.reserve(3, true);
    EXPECT_EQ((State{5, 1, 3, false}), stateOf(stream));
    unsigned char target[4] = {9, 9, 9, 9};
    EXPECT_EQ(4u, stream.read(target, 4));
    EXPECT_EQ(Bytes({2, 3, 9, 9}), bytesOf(target, 4));
    EXPECT_THAT(log.takeSites(), ElementsAre("CVQByteStream:186"));
    stream.reserve(0, true);
    EXPECT_EQ((State{5, 5, 0, false}), stateOf(stream));
    EXPECT_EQ(nullptr, stream.getData());
}

TEST(CVQByteStream, ReportsAReserveThatCannotTakeItsBytesAlong) {
    AssertionLog log;
    CVQByteStream stream = streamOf({1, 2, 3});
    for (const bool force : {false, true}) {
        stream.reserve(~std::size_t{0}, force);
        EXPECT_THAT(log.takeSites(), ElementsAre("CVQByteStream:255"));
        EXPECT_THAT(bytesIn(stream), ElementsAre(1, 2, 3));
        EXPECT_EQ(32u, stream.getCapacity());
    }
    CVQByteStream empty;
    empty.reserve(~std::size_t{0});
    EXPECT_THAT(log.takeSites(), IsEmpty());
    EXPECT_EQ(0u, empty.getCapacity());
}

TEST(CVQByteStream, NeverCarriesBytesThatNobodyWrote) {
    { CVQRCMemoryBuffer dirt = blockOf(Bytes(4096, 0xDD)); }
    for (const unsigned size : {40u, 4000u}) {
        SCOPED_TRACE(size);
        EXPECT_THAT(storageOf(CVQByteStream(size)), Each(0));
        CVQByteStream stream;
        const Bytes some(size / 2, 0);
        stream.write(some.data(), some.size());
        stream.write(some.data(), 20);
        stream.reserve(size * 3);
        EXPECT_THAT(storageOf(stream), Each(0));
    }
}

TEST(CVQByteStream, AppendsFromAnotherStream) {
    CVQByteStream stream = streamOf({1, 2});
    const Source source({3, 4, 5, 6});
    EXPECT_EQ(3u, stream.readFromIStream(source, 3));
    EXPECT_THAT(bytesIn(stream), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_EQ(1u, stream.readFromIStream(source, 40));
    EXPECT_EQ((State{6, 0, 45, false}), stateOf(stream));
    EXPECT_THAT(source.calls, ElementsAre("3", "40"));
    EXPECT_EQ(0u, stream.readFromIStream(source, 0));
    EXPECT_THAT(source.calls, ElementsAre("3", "40"));
}

TEST(CVQByteStream, AppendsToAPrivateCopyOfASharedBlock) {
    const CVQByteStream original = streamOf({1, 2});
    CVQByteStream stream(original);
    stream.readFromIStream(Source({3}), 1);
    EXPECT_EQ((State{3, 0, 3, false}), stateOf(stream));
    EXPECT_THAT(bytesIn(original), ElementsAre(1, 2));
    CVQByteStream untouched(original);
    untouched.readFromIStream(Source({}), 0);
    EXPECT_NE(original.getData(), untouched.getData());
    EXPECT_EQ(2u, untouched.getCapacity());
}

TEST(CVQByteStream, DoesNotBelieveCountsAboveWhatItAskedFor) {
    CVQByteStream stream = streamOf({1});
    EXPECT_EQ(2u, stream.readFromIStream(Boaster({2, 3}), 2));
    EXPECT_THAT(bytesIn(stream), ElementsAre(1, 2, 3));
}

TEST(CVQByteStream, ReportsAnAppendThatNoBlockCanHold) {
    AssertionLog log;
    CVQByteStream stream = streamOf({1, 2});
    const Source source({3});
    EXPECT_EQ(0u, stream.readFromIStream(source, 0xFFFFFFFFU));
    EXPECT_EQ(0u, stream.readFromIStream(source, ~std::size_t{0}));
    EXPECT_EQ(0u, stream.readFromIStream(source, ~std::size_t{0} - 1));
    EXPECT_THAT(log.takeSites(), ElementsAre("CVQByteStream:222", "CVQByteStream:222", "CVQByteStream:222"));
    EXPECT_THAT(source.calls, IsEmpty());
    EXPECT_THAT(bytesIn(stream), ElementsAre(1, 2));
}

TEST(CVQByteStream, AppendsFromItself) {
    CVQByteStream stream = streamOf({1, 2, 3});
    stream.readSkip(1);
    EXPECT_EQ(2u, stream.readFromIStream(stream, 50));
    EXPECT_THAT(bytesIn(stream), ElementsAre(1, 2, 3, 2, 3));
    EXPECT_EQ((State{5, 3, 53, true}), stateOf(stream));
}

TEST(CVQByteStream, ReadsZeroTerminatedTexts) {
    const CVQByteStream stream = streamOf({'a', 'b', 0, 'c'});
    EXPECT_EQ("ab", textOf(stream.toString()));
    EXPECT_EQ(3u, stream.getReadPosition());
    EXPECT_EQ("c", textOf(stream.toString()));
    EXPECT_EQ(4u, stream.getReadPosition());
    EXPECT_EQ("", textOf(stream.toString()));
    EXPECT_EQ(4u, stream.getReadPosition());
    EXPECT_FALSE(stream.isEndOfData());
    const CVQByteStream zeros = streamOf({0, 0});
    EXPECT_EQ("", textOf(zeros.toString()));
    EXPECT_EQ(1u, zeros.getReadPosition());
    EXPECT_EQ("", textOf(CVQByteStream().toString()));
}

TEST(CVQByteStream, MovesBehindATextOfWhichAPartWasCutOff) {
    AssertionLog log;
    const CVQByteStream stream = streamOf({'a', 0xC3, 'x', 0, 'b'});
    EXPECT_EQ("a", textOf(stream.toString()));
    EXPECT_THAT(log.takeSites(), ElementsAre("The character sequence contains a wrong coded UTF-8 sequence !"));
    EXPECT_EQ(4u, stream.getReadPosition());
    EXPECT_EQ("b", textOf(stream.toString()));
}

TEST(CVQByteStream, EndsATextWhereTheBlockEnds) {
    const CVQByteStream stream(blockOf({'a', 'b'}), 4);
    EXPECT_EQ("ab", textOf(stream.toString()));
    EXPECT_EQ(3u, stream.getReadPosition());
    EXPECT_EQ("", textOf(stream.toString()));
    EXPECT_EQ(4u, stream.getReadPosition());
    EXPECT_EQ("", textOf(stream.toString()));
    EXPECT_EQ(4u, stream.getReadPosition());
    const CVQByteStream empty(CVQRCMemoryBuffer(), 1);
    EXPECT_EQ("", textOf(empty.toString()));
    EXPECT_EQ(1u, empty.getReadPosition());
}

// A source that moves the position of the stream that reads from it, before it delivers a length below that position.
class Meddler : public Source {
public:
    explicit Meddler(const CVQByteStream& reader) : Source({2, 0, 0, 0, 'a', 'b'}), victim(reader) {}

private:
    unsigned doRead(void* destination, unsigned count) const override {
        if (position == 0)
            victim.readSkip(5);
        return Source::doRead(destination, count);
    }
    const CVQByteStream& victim;
};

TEST(CVQByteStream, ReportsAPositionBeyondTheLength) {
    AssertionLog log;
    CVQByteStream stream = streamOf(Bytes(9, 'x'));
    Meddler(stream) >> stream;
    ASSERT_EQ((State{2, 5, 32, false}), stateOf(stream));
    EXPECT_THAT(log.takeSites(), IsEmpty());
    EXPECT_EQ("", textOf(stream.toString()));
    EXPECT_THAT(log.takeSites(), ElementsAre("CVQByteStream:291", "CVQByteStream:355"));
    EXPECT_EQ(5u, stream.getReadPosition());
    EXPECT_FALSE(stream.waitToRead(0));
    unsigned char byte = 9;
    EXPECT_EQ(0u, stream.read(&byte, 1));
    EXPECT_EQ(0, byte);
    EXPECT_EQ((State{2, 5, 32, true}), stateOf(stream));
    EXPECT_THAT(log.takeSites(), IsEmpty());
}

TEST(CVQByteStream, DumpsItsUsedBytes) {
    CVQByteStream stream = streamOf({0x0A, 0xFF});
    stream.readSkip(1);
    CVQString out("> ");
    stream.dump(out);
    EXPECT_EQ("> 0A FF ", textOf(out));
    CVQByteStream().dump(out);
    EXPECT_EQ("> 0A FF ", textOf(out));
    CVQByteStream long200;
    std::string expected;
    for (int i = 0; i < 200; ++i) {
        const unsigned char byte = static_cast<unsigned char>(i);
        long200.write(&byte, 1);
        char digits[4];
        std::snprintf(digits, sizeof digits, "%.2X ", byte);
        expected += digits;
    }
    CVQString longOut;
    long200.dump(longOut);
    EXPECT_EQ(expected, textOf(longOut));
    EXPECT_EQ(600u, longOut.getCapacity());
}

TEST(CVQByteStream, DumpsNoMoreThanTheBlockHolds) {
    CVQString out;
    CVQByteStream(blockOf({1, 2}), 0xFFFFFFFFU).dump(out);
    EXPECT_EQ("01 02 ", textOf(out));
}

TEST(CVQByteStream, ComparesUsedBytesOnly) {
    const CVQByteStream stream = streamOf({1, 2, 3});
    CVQByteStream other(100);
    other.write("\1\2\3", 3);
    other.readSkip(2);
    EXPECT_TRUE(stream == stream);
    EXPECT_TRUE(stream == other);
    EXPECT_FALSE(stream != other);
    EXPECT_TRUE(stream == CVQByteStream(stream));
    EXPECT_FALSE(stream == streamOf({1, 2, 4}));
    EXPECT_TRUE(stream != streamOf({1, 2, 4}));
    EXPECT_FALSE(stream == streamOf({1, 2}));
    EXPECT_FALSE(stream == CVQByteStream());
    EXPECT_TRUE(CVQByteStream() == CVQByteStream(10));
    EXPECT_FALSE(CVQByteStream(stream.getMemoryBuffer(), 2) == stream);
    EXPECT_TRUE(CVQByteStream(blockOf({1}), 5) == CVQByteStream(blockOf({1}), 5));
    EXPECT_FALSE(CVQByteStream(blockOf({1}), 5) == CVQByteStream(blockOf({1, 2}), 5));
}

TEST(CVQByteStream, WritesLengthAndUsedBytes) {
    Sink sink;
    EXPECT_EQ(&sink, &(sink << streamOf({7, 8, 9})));
    EXPECT_THAT(sink.bytes, ElementsAre(3, 0, 0, 0, 7, 8, 9));
    EXPECT_THAT(sink.calls, ElementsAre("4", "3"));
    Sink empty;
    empty << CVQByteStream(10);
    EXPECT_THAT(empty.bytes, ElementsAre(0, 0, 0, 0));
    EXPECT_THAT(empty.calls, ElementsAre("4"));
}

TEST(CVQByteStream, WritesAllUsedBytesWhateverWasRead) {
    CVQByteStream stream = streamOf({7, 8, 9});
    stream.readSkip(5);
    Sink sink;
    sink << stream;
    EXPECT_THAT(sink.bytes, ElementsAre(3, 0, 0, 0, 7, 8, 9));
    EXPECT_EQ((State{3, 3, 32, true}), stateOf(stream));
}

TEST(CVQByteStream, WritesZerosForTheBytesThatTheBlockLacks) {
    Sink sink;
    sink << CVQByteStream(blockOf({7, 8}), 5);
    EXPECT_THAT(sink.bytes, ElementsAre(5, 0, 0, 0, 7, 8, 0, 0, 0));
}

// Counts and forgets.
class Counter : public IVQOStream {
public:
    void flush() override {}
    bool waitToWrite(int) override { return true; }

    std::uint64_t taken = 0;

protected:
    unsigned doWrite(const void*, unsigned count) override {
        taken += count;
        return count;
    }
};

TEST(CVQByteStream, WritesAsManyBytesAsItAnnouncesWhateverTheBlockLacks) {
    for (const unsigned length : {0x7FFFFFFFU, 0x80000001U, 0x80000002U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(length);
        Counter counter;
        counter << CVQByteStream(blockOf({7, 8}), length);
        EXPECT_EQ(4 + std::uint64_t{length}, counter.taken);
    }
}

TEST(CVQByteStream, ReadsLengthAndBytes) {
    CVQByteStream stream = streamOf({1, 2, 3, 4, 5, 6, 7, 8});
    stream.readSkip(100);
    const unsigned char* const block = stream.getData();
    const Source source({3, 0, 0, 0, 7, 8, 9, 10});
    EXPECT_EQ(&source, &(source >> stream));
    EXPECT_EQ((State{3, 0, 32, false}), stateOf(stream));
    EXPECT_EQ(block, stream.getData());
    EXPECT_THAT(bytesIn(stream), ElementsAre(7, 8, 9));
    EXPECT_THAT(source.calls, ElementsAre("4", "3"));
}

TEST(CVQByteStream, ReadsIntoAPrivateBlock) {
    const CVQByteStream original = streamOf({1, 2, 3});
    CVQByteStream stream(original);
    Source({2, 0, 0, 0, 7, 8}) >> stream;
    EXPECT_EQ((State{2, 0, 2, false}), stateOf(stream));
    EXPECT_THAT(bytesIn(stream), ElementsAre(7, 8));
    EXPECT_THAT(bytesIn(original), ElementsAre(1, 2, 3));
    CVQByteStream emptied(original);
    Source({0, 0, 0, 0, 7}) >> emptied;
    EXPECT_EQ((State{0, 0, 0, false}), stateOf(emptied));
    EXPECT_THAT(bytesIn(original), ElementsAre(1, 2, 3));
}

// id: bytestream-read-keeps-length
TEST(CVQByteStream, Kept_ReadingKeepsTheOldLengthWhenNoneArrives) {
    CVQByteStream stream = streamOf({1, 2, 3});
    stream.readSkip(100);
    Source({}) >> stream;
    EXPECT_EQ((State{3, 0, 32, false}), stateOf(stream));
    EXPECT_THAT(bytesIn(stream), ElementsAre(1, 2, 3));

    // A byte stream that runs out fills up with zeros, once.
    const CVQByteStream exhausted;
    CVQByteStream zeroed = streamOf({1, 2, 3});
    exhausted >> zeroed;
    EXPECT_EQ(0u, zeroed.getLength());
    CVQByteStream untouched = streamOf({1, 2, 3});
    exhausted >> untouched;
    EXPECT_EQ(3u, untouched.getLength());
}

TEST(CVQByteStream, ReadsWhatArrivesOfAFormCutOffAnywhere) {
    const Bytes kWhole = {40, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    for (std::size_t length = 0; length <= kWhole.size(); ++length) {
        SCOPED_TRACE(length);
        const Bytes form(kWhole.begin(), kWhole.begin() + static_cast<std::ptrdiff_t>(length));
        CVQByteStream fresh;
        Source(form) >> fresh;
        Bytes expected(length == 0 ? 0 : 40, 0);
        for (std::size_t i = 4; i < length; ++i)
            expected[i - 4] = form[i];
        EXPECT_EQ(expected, bytesIn(fresh));

        CVQByteStream fromByteStream;
        streamOf(form) >> fromByteStream;
        EXPECT_EQ(expected, bytesIn(fromByteStream));

        // Bytes that the target had stay where nothing came; beyond them are zeros.
        CVQByteStream used = streamOf(Bytes(33, 0x77));
        used.reserve(35, true);
        Source(form) >> used;
        Bytes expectedUsed(length == 0 ? 33 : 40, 0);
        std::fill(expectedUsed.begin(), expectedUsed.begin() + 33, 0x77);
        for (std::size_t i = 4; i < length; ++i)
            expectedUsed[i - 4] = form[i];
        EXPECT_EQ(expectedUsed, bytesIn(used));
    }
}

TEST(CVQByteStream, IsEmptyAfterALengthThatNoBlockCanHave) {
    AssertionLog log;
    CVQByteStream stream;
    const Source source({0xFF, 0xFF, 0xFF, 0xFF, 1, 2});
    source >> stream;
    EXPECT_THAT(log.takeSites(), ElementsAre("CVQByteStream:420"));
    EXPECT_EQ((State{0, 0, 0, false}), stateOf(stream));
    EXPECT_THAT(source.calls, ElementsAre("4"));
    CVQByteStream used = streamOf({1, 2, 3});
    const CVQByteStream sharer(used);
    Source({0xFF, 0xFF, 0xFF, 0xFF, 1, 2}) >> used;
    EXPECT_THAT(log.takeSites(), ElementsAre("CVQByteStream:255", "CVQByteStream:420"));
    EXPECT_EQ(0u, used.getLength());
    EXPECT_THAT(bytesIn(sharer), ElementsAre(1, 2, 3));
}

// id: bytestream-qrv-capacity
TEST(CVQByteStream, Kept_TheQRVFormIsTheWholeStorage) {
    CVQByteStream stream(6);
    stream.write("abc", 3);
    Sink sink;
    EXPECT_EQ(&sink, &CVQByteStream::toQRVStream(sink, stream));
    EXPECT_THAT(sink.calls, ElementsAre("align 4", "4", "6"));
    EXPECT_THAT(sink.bytes, ElementsAre(6, 0, 0, 0, 'a', 'b', 'c', 0, 0, 0));
    Sink partly;
    CVQByteStream::toQRVStream(partly, CVQByteStream(blockOf({1, 2, 3, 4}), 2));
    EXPECT_THAT(partly.bytes, ElementsAre(4, 0, 0, 0, 1, 2, 3, 4));
    Sink empty;
    CVQByteStream::toQRVStream(empty, CVQByteStream());
    EXPECT_THAT(empty.bytes, ElementsAre(0, 0, 0, 0));
}

TEST(CVQByteStream, ReadsItsQRVForm) {
    CVQByteStream stream = streamOf({9, 9, 9, 9, 9});
    stream.readSkip(2);
    const Source source({3, 0, 0, 0, 7, 8, 9});
    EXPECT_EQ(&source, &CVQByteStream::fromQRVStream(source, stream));
    EXPECT_THAT(source.calls, ElementsAre("align 4", "4", "3"));
    EXPECT_EQ((State{3, 0, 3, false}), stateOf(stream));
    EXPECT_THAT(bytesIn(stream), ElementsAre(7, 8, 9));
    CVQByteStream::fromQRVStream(Source({}), stream);
    EXPECT_EQ((State{0, 0, 0, false}), stateOf(stream));
}

// id: bytestream-qrv-keeps-flag
TEST(CVQByteStream, Kept_ReadingTheQRVFormLeavesTheEndOfDataFlag) {
    CVQByteStream stream = streamOf({9});
    stream.readSkip(2);
    CVQByteStream::fromQRVStream(Source({1, 0, 0, 0, 7}), stream);
    EXPECT_EQ((State{1, 0, 1, true}), stateOf(stream));
    unsigned char byte = 5;
    EXPECT_EQ(0u, stream.read(&byte, 1));
    EXPECT_EQ(5, byte);
    Source({1, 0, 0, 0, 7}) >> stream;
    EXPECT_EQ(1u, stream.read(&byte, 1));
    EXPECT_EQ(7, byte);
}

TEST(CVQByteStream, ReadsWhatArrivesOfAQRVFormCutOffAnywhere) {
    const Bytes kWhole = {5, 0, 0, 0, 1, 2, 3, 4, 5};
    for (std::size_t length = 0; length <= kWhole.size(); ++length) {
        SCOPED_TRACE(length);
        CVQByteStream stream = streamOf(Bytes(9, 0x77));
        CVQByteStream::fromQRVStream(
            Source(Bytes(kWhole.begin(), kWhole.begin() + static_cast<std::ptrdiff_t>(length))), stream);
        Bytes expected(length == 0 ? 0 : 5, 0);
        for (std::size_t i = 4; i < length; ++i)
            expected[i - 4] = kWhole[i];
        EXPECT_EQ(expected, bytesIn(stream));
    }
}

TEST(CVQByteStream, KeepsItsStorageWhenTheQRVFormNamesASizeThatCannotBeHad) {
    CVQByteStream stream = streamOf({1, 2, 3});
    CVQByteStream::fromQRVStream(Source({0xFF, 0xFF, 0xFF, 0xFF, 1}), stream);
    EXPECT_EQ((State{32, 0, 32, false}), stateOf(stream));
    EXPECT_EQ(Bytes({1, 2, 3, 0}), bytesOf(stream.getData(), 4));
}

TEST(CVQByteStream, IsWrittenIntoItselfAsItWas) {
    CVQByteStream stream = streamOf({1, 2, 3});
    stream << stream;
    EXPECT_THAT(bytesIn(stream), ElementsAre(1, 2, 3, 3, 0, 0, 0, 1, 2, 3));
    CVQByteStream full = streamOf(Bytes(32, 5));
    full << full;
    Bytes expected(68, 5);
    expected[32] = 32;
    std::fill_n(expected.begin() + 33, 3, static_cast<unsigned char>(0));
    EXPECT_EQ(expected, bytesIn(full));
    CVQByteStream qrv = streamOf(Bytes(30, 6));
    CVQByteStream::toQRVStream(qrv, qrv);
    EXPECT_EQ(30u + 4 + 32, qrv.getLength());
    EXPECT_EQ(Bytes({6, 32, 0, 0, 0, 6, 6}), bytesOf(qrv.getData() + 29, 7));
    EXPECT_EQ(Bytes({6, 0, 0}), bytesOf(qrv.getData() + 63, 3));
}

TEST(CVQByteStream, IsReadFromItself) {
    CVQByteStream stream = streamOf({2, 0, 0, 0, 7, 8, 9});
    stream.readSkip(100);
    EXPECT_EQ(&stream, &(stream >> stream));
    EXPECT_EQ((State{2, 0, 2, false}), stateOf(stream));
    EXPECT_THAT(bytesIn(stream), ElementsAre(7, 8));
    CVQByteStream qrv = streamOf({9, 9, 3, 0, 0, 0, 4, 5, 6});
    qrv.readSkip(2);
    CVQByteStream::fromQRVStream(qrv, qrv);
    EXPECT_EQ((State{3, 0, 3, false}), stateOf(qrv));
    EXPECT_THAT(bytesIn(qrv), ElementsAre(4, 5, 6));
}

TEST(CVQByteStream, CarriesValuesOfEveryKindAndBack) {
    CVQByteStream inner;
    inner << 7U;
    CVQByteStream stream;
    stream << CVQString("text") << inner << CVQBuffer(inner) << 8ULL;
    CVQString text;
    CVQByteStream innerBack;
    CVQBuffer bufferBack;
    unsigned long long number = 0;
    stream >> text >> innerBack >> bufferBack >> number;
    EXPECT_EQ("text", textOf(text));
    EXPECT_EQ(inner, innerBack);
    EXPECT_EQ(CVQBuffer(inner), bufferBack);
    EXPECT_EQ(8u, number);
    EXPECT_FALSE(stream.isEndOfData());
    EXPECT_FALSE(stream.waitToRead(0));
    // Nothing is left: the next text is empty.
    stream >> text;
    EXPECT_TRUE(text.isEmpty());
    EXPECT_TRUE(stream.isEndOfData());
}

// A user's own byte stream: its overrides are called by the operators.
class CountingStream : public CVQByteStream {
public:
    unsigned reads() const { return mReads; }
    unsigned writes() const { return mWrites; }

protected:
    unsigned doRead(void* destination, unsigned count) const override {
        ++mReads;
        return CVQByteStream::doRead(destination, count);
    }
    unsigned doWrite(const void* source, unsigned count) override {
        ++mWrites;
        return CVQByteStream::doWrite(source, count);
    }

private:
    mutable unsigned mReads = 0;
    unsigned mWrites = 0;
};

TEST(CVQByteStream, MayBeDerivedFrom) {
    CountingStream stream;
    CVQByteStream& base = stream;
    unsigned value = 0;
    base << 1U << 2U;
    base >> value;
    EXPECT_EQ(2u, stream.writes());
    EXPECT_EQ(1u, stream.reads());
    EXPECT_EQ(1u, value);
    EXPECT_EQ(typeid(CountingStream), typeid(base));
    EXPECT_NE(nullptr, dynamic_cast<CountingStream*>(&base));
    CVQByteStream plain;
    IVQIStream& input = plain;
    EXPECT_EQ(typeid(CVQByteStream), typeid(input));
    EXPECT_EQ(&plain, dynamic_cast<CVQByteStream*>(&input));
    EXPECT_EQ(static_cast<IVQOStream*>(&plain), dynamic_cast<IVQOStream*>(&input));
}

// Written to before the constructors of this unit run, and not undone by them: the stream is constant-initialised.
extern CVQByteStream sEarlyStream;
[[maybe_unused]] const bool sFilledEarlyStream = [] {
    sEarlyStream << 0x0A0B0C0DU;
    return true;
}();
CVQByteStream sEarlyStream;

TEST(CVQByteStream, IsReadyBeforeStaticConstructorsRun) {
    EXPECT_THAT(bytesIn(sEarlyStream), ElementsAre(0x0D, 0x0C, 0x0B, 0x0A));
}

TEST(CVQByteStream, SharesItsBlockWithStreamsOfOtherThreads) {
    const CVQByteStream original = streamOf(Bytes(64, 0x11));
    std::vector<std::thread> threads;
    for (unsigned thread = 0; thread < 4; ++thread) {
        threads.emplace_back([mine = CVQByteStream(original), thread]() mutable {
            for (unsigned round = 0; round < 300; ++round) {
                CVQByteStream copy(mine);
                copy << thread;
                copy.readSkip(64);
                unsigned value = 99;
                copy >> value;
                ASSERT_EQ(thread, value);
                const CVQBuffer buffer(mine);
                ASSERT_EQ(0x11, buffer.getData()[63]);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(Bytes(64, 0x11), bytesIn(original));
    EXPECT_EQ(64u, original.getLength());
}

// The writer comes later after each round that it was too early in, and the other way round: so the other owner
// keeps letting go between the two looks that a write takes at the count.
TEST(CVQByteStream, KeepsALongEnoughBlockThatTheOtherOwnerLetsGoOfDuringAWrite) {
    constexpr unsigned kCapacity = 4096, kRounds = 20000;
    CVQByteStream share;
    std::atomic<unsigned> given{0}, dropped{0};
    const auto waitFor = [](const std::atomic<unsigned>& value, unsigned round) {
        for (unsigned tries = 0; value != round; ++tries) {
            if (tries > 1000)
                std::this_thread::yield();
        }
    };
    const auto spin = [](unsigned turns) {
        for (std::atomic<unsigned> turn{0}; turn < turns;)
            ++turn;
    };
    std::thread owner([&] {
        for (unsigned round = 1; round <= kRounds; ++round) {
            waitFor(given, round);
            share = CVQBuffer();
            dropped = round;
        }
    });
    unsigned wrong = 0, delay = 0;
    for (unsigned round = 1; round <= kRounds; ++round) {
        CVQByteStream stream(kCapacity);
        stream << round;
        share = stream;
        given = round;
        spin(delay);
        stream << ~round;
        // The block as it was, or a private copy of just the used bytes.
        const unsigned capacity = stream.getCapacity();
        if (capacity == 8)
            ++delay;
        else if (delay > 0)
            --delay;
        unsigned first = 0, second = 0;
        stream >> first >> second;
        wrong += first == round && second == ~round && (capacity == kCapacity || capacity == 8) ? 0 : 1;
        waitFor(dropped, round);
    }
    owner.join();
    EXPECT_EQ(0u, wrong);
}

TEST(CVQByteStream, AgreesWithAPlainModelOverRandomOperations) {
    CVQAsserter::setExpectedAssertions(~0U);  // lengths that no block can have are among the operations
    std::mt19937 random(20240608);
    ByteStreamOperations operations(
        [&random](std::size_t limit) { return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random); });
    for (int step = 0; step < 30000; ++step)
        ASSERT_EQ("", operations.step()) << "in step " << step;
    CVQAsserter::setExpectedAssertions(0);
    CVQAsserter::setOccuredAssertions(0);
}

}  // namespace
