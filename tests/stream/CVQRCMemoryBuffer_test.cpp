// Concerns: empty and refused sizes; how long a block is; sharing and its end; comparison; the stream form to the
// byte, whole and cut off at every length; hostile sources and sinks; handles on many threads; use before
// constructors have run.
#include "stream/Streams.h"
#include "support/AssertionLog.h"
#include "support/ChildProcess.h"
#include "support/Sanitizers.h"
#include "support/SlogCapture.h"

#include <CVQByteStream.h>
#include <CVQRCMemoryBuffer.h>

#include <cstdint>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>
#include <sys/resource.h>
#include <thread>

namespace {

using support::AssertionLog;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

Bytes bytesIn(const CVQRCMemoryBuffer& buffer) {
    return bytesOf(buffer.getData(), buffer.getSize());
}

TEST(CVQRCMemoryBuffer, IsEmptyByDefaultAndForSizeZero) {
    CVQRCMemoryBuffer byDefault;
    CVQRCMemoryBuffer ofZero(0);
    for (CVQRCMemoryBuffer* buffer : {&byDefault, &ofZero}) {
        EXPECT_EQ(0u, buffer->getSize());
        EXPECT_EQ(nullptr, buffer->getData());
        EXPECT_EQ(nullptr, buffer->getBuffer());
        EXPECT_FALSE(buffer->isShared());
    }
    EXPECT_TRUE(byDefault == ofZero);
    EXPECT_FALSE(byDefault != ofZero);
}

TEST(CVQRCMemoryBuffer, StaysEmptyWhenNoBlockCanHaveTheSize) {
    const std::size_t kSizes[] = {CVQRCMemoryBuffer::kMaxSize + std::size_t{1}, 0xFFFFFFF0U, 0xFFFFFFFFU,
                                  ~std::size_t{0}, static_cast<std::size_t>(0x100000000ULL - (sizeof(void*) == 4))};
    for (const std::size_t size : kSizes) {
        SCOPED_TRACE(size);
        CVQRCMemoryBuffer buffer(size);
        EXPECT_EQ(0u, buffer.getSize());
        EXPECT_EQ(nullptr, buffer.getData());
        EXPECT_TRUE(buffer == CVQRCMemoryBuffer());
    }
}

TEST(CVQRCMemoryBuffer, HasTheSizeAskedForAndAlignedBytes) {
    for (const unsigned size : {1u, 7u, 8u, 9u, 1000u, 100001u}) {
        SCOPED_TRACE(size);
        CVQRCMemoryBuffer buffer(size);
        EXPECT_EQ(size, buffer.getSize());
        ASSERT_NE(nullptr, buffer.getBuffer());
        EXPECT_EQ(buffer.getData(), buffer.getBuffer());
        EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(buffer.getData()) % 8);
        std::memset(buffer.getBuffer(), 0x5A, size);
        EXPECT_EQ(Bytes(size, 0x5A), bytesIn(buffer));
    }
}

// The report of an allocation that fails says how long a block is: a header of 16 bytes and the size in units of 8.
TEST(CVQRCMemoryBuffer, AsksForAHeaderAndItsSizeRoundedUpTo8Bytes) {
    if (support::kIsSanitized || support::isEmulated())
        GTEST_SKIP() << "the address space cannot be limited here";
    const struct {
        unsigned size;
        const char* report;
    } kRows[] = {
        {0x70000000, "failed to allocate 1879048208 bytes"},
        {0x70000001, "failed to allocate 1879048216 bytes"},
        {0x70000008, "failed to allocate 1879048216 bytes"},
        {0x70000009, "failed to allocate 1879048224 bytes"},
    };
    for (const auto& row : kRows) {
        support::SlogCapture log;
        const auto child = support::runInChild([&row] {
            const rlimit limit{1U << 30, 1U << 30};
            EXPECT_EQ(0, setrlimit(RLIMIT_AS, &limit));
            const CVQRCMemoryBuffer buffer(row.size);
        });
        EXPECT_TRUE(child.exitedWith(EXIT_FAILURE)) << child;
        EXPECT_THAT(log.texts(), Contains(HasSubstr(row.report)));
    }
}

TEST(CVQRCMemoryBuffer, CopiesShareTheBlockUntilTheLastIsGone) {
    CVQRCMemoryBuffer first = blockOf({1, 2, 3});
    EXPECT_FALSE(first.isShared());
    {
        const CVQRCMemoryBuffer second(first);
        CVQRCMemoryBuffer third;
        third = first;
        EXPECT_TRUE(first.isShared());
        EXPECT_TRUE(second.isShared());
        EXPECT_EQ(first.getData(), second.getData());
        EXPECT_EQ(first.getData(), third.getData());
    }
    EXPECT_FALSE(first.isShared());
    EXPECT_THAT(bytesIn(first), ElementsAre(1, 2, 3));
}

TEST(CVQRCMemoryBuffer, AssignmentDropsTheOldBlockAndIgnoresItsOwn) {
    CVQRCMemoryBuffer first = blockOf({1});
    CVQRCMemoryBuffer second = blockOf({2});
    const CVQRCMemoryBuffer witness(second);
    second = first;
    EXPECT_FALSE(witness.isShared());
    EXPECT_THAT(bytesIn(second), ElementsAre(1));
    const CVQRCMemoryBuffer& itself = first;
    first = itself;
    second = first;
    EXPECT_TRUE(first.isShared());
    second = CVQRCMemoryBuffer();
    EXPECT_FALSE(first.isShared());
    EXPECT_THAT(bytesIn(first), ElementsAre(1));
    EXPECT_EQ(nullptr, second.getData());
}

TEST(CVQRCMemoryBuffer, EmptyHandlesAreNeverCounted) {
    const std::vector<CVQRCMemoryBuffer> many(1000);
    for (const CVQRCMemoryBuffer& buffer : many)
        EXPECT_FALSE(buffer.isShared());
    CVQRCMemoryBuffer buffer;
    buffer.addRef();
    buffer.removeRef();
    buffer.removeRef();
    EXPECT_FALSE(buffer.isShared());
    EXPECT_EQ(nullptr, buffer.getData());
}

TEST(CVQRCMemoryBuffer, RemoveRefEmptiesTheHandle) {
    CVQRCMemoryBuffer first = blockOf({1, 2});
    CVQRCMemoryBuffer second(first);
    second.removeRef();
    EXPECT_EQ(0u, second.getSize());
    EXPECT_EQ(nullptr, second.getData());
    EXPECT_FALSE(first.isShared());
    first.removeRef();
    EXPECT_EQ(nullptr, first.getData());
}

TEST(CVQRCMemoryBuffer, AddRefKeepsABlockForAHandleThatIsNone) {
    alignas(CVQRCMemoryBuffer) unsigned char kept[sizeof(CVQRCMemoryBuffer)];
    {
        CVQRCMemoryBuffer buffer = blockOf({1, 2});
        buffer.addRef();
        std::memcpy(kept, static_cast<const void*>(&buffer), sizeof kept);
        EXPECT_TRUE(buffer.isShared());
    }
    auto* const handle = std::launder(reinterpret_cast<CVQRCMemoryBuffer*>(kept));
    EXPECT_THAT(bytesIn(*handle), ElementsAre(1, 2));
    EXPECT_FALSE(handle->isShared());
    handle->removeRef();
    EXPECT_EQ(nullptr, handle->getData());
}

// id: rcbuffer-shared-write
TEST(CVQRCMemoryBuffer, Kept_GetBufferReportsASharedBlockAndHandsItOut) {
    AssertionLog log;
    CVQRCMemoryBuffer first = blockOf({1, 2});
    EXPECT_THAT(log.takeSites(), IsEmpty());
    {
        const CVQRCMemoryBuffer second(first);
        EXPECT_EQ(first.getData(), first.getBuffer());
        EXPECT_THAT(log.takeSites(), ElementsAre("CVQRCMemoryBuffer:264"));
    }
    EXPECT_EQ(first.getData(), first.getBuffer());
    EXPECT_THAT(log.takeSites(), IsEmpty());
}

TEST(CVQRCMemoryBuffer, ComparesBytes) {
    const CVQRCMemoryBuffer empty;
    const CVQRCMemoryBuffer abc = blockOf({'a', 'b', 'c'});
    EXPECT_TRUE(abc == abc);
    EXPECT_TRUE(abc == CVQRCMemoryBuffer(abc));
    EXPECT_TRUE(abc == blockOf({'a', 'b', 'c'}));
    EXPECT_FALSE(abc != blockOf({'a', 'b', 'c'}));
    EXPECT_FALSE(abc == blockOf({'a', 'b', 'd'}));
    EXPECT_TRUE(abc != blockOf({'a', 'b', 'd'}));
    EXPECT_FALSE(abc == blockOf({'a', 'b'}));
    EXPECT_FALSE(abc == blockOf({'a', 'b', 'c', 'd'}));
    EXPECT_FALSE(abc == empty);
    EXPECT_FALSE(empty == abc);
    EXPECT_TRUE(empty == CVQRCMemoryBuffer());
}

TEST(CVQRCMemoryBuffer, IsHarmlessInZeroedMemoryThatNoConstructorHasSeen) {
    alignas(CVQRCMemoryBuffer) unsigned char raw[sizeof(CVQRCMemoryBuffer)] = {};
    auto* const handle = std::launder(reinterpret_cast<CVQRCMemoryBuffer*>(raw));
    EXPECT_EQ(nullptr, handle->getBuffer());
    EXPECT_FALSE(*handle == CVQRCMemoryBuffer());
    EXPECT_FALSE(CVQRCMemoryBuffer() == *handle);
    EXPECT_TRUE(*handle == *handle);
}

TEST(CVQRCMemoryBuffer, WritesSizeAndBytes) {
    Sink sink;
    EXPECT_EQ(&sink, &(sink << blockOf({0xDE, 0xAD, 0})));
    EXPECT_THAT(sink.bytes, ElementsAre(3, 0, 0, 0, 0xDE, 0xAD, 0));
    EXPECT_THAT(sink.calls, ElementsAre("4", "3"));
}

TEST(CVQRCMemoryBuffer, WritesFourZerosWhenEmpty) {
    Sink sink;
    sink << CVQRCMemoryBuffer();
    EXPECT_THAT(sink.bytes, ElementsAre(0, 0, 0, 0));
    EXPECT_THAT(sink.calls, ElementsAre("4"));
}

TEST(CVQRCMemoryBuffer, ReportsAShortWriteOfItsBytes) {
    AssertionLog log;
    Sink sink(4);
    sink << blockOf({1, 2, 3, 4});
    EXPECT_THAT(log.takeSites(), IsEmpty());
    sink << blockOf({1, 2, 3, 4, 5});
    EXPECT_THAT(log.takeSites(), ElementsAre("CVQRCMemoryBuffer:210"));
}

TEST(CVQRCMemoryBuffer, ReadsSizeAndBytesIntoABlockOfItsOwn) {
    CVQRCMemoryBuffer buffer = blockOf({9, 9});
    const CVQRCMemoryBuffer before(buffer);
    const Source source({3, 0, 0, 0, 0xDE, 0xAD, 0, 77});
    EXPECT_EQ(&source, &(source >> buffer));
    EXPECT_THAT(bytesIn(buffer), ElementsAre(0xDE, 0xAD, 0));
    EXPECT_THAT(bytesIn(before), ElementsAre(9, 9));
    EXPECT_FALSE(buffer.isShared());
    EXPECT_FALSE(before.isShared());
    EXPECT_THAT(source.calls, ElementsAre("4", "3"));
}

TEST(CVQRCMemoryBuffer, IsEmptiedByASizeOfZero) {
    CVQRCMemoryBuffer buffer = blockOf({9, 9});
    const Source source({0, 0, 0, 0, 1});
    source >> buffer;
    EXPECT_EQ(nullptr, buffer.getData());
    EXPECT_THAT(source.calls, ElementsAre("4"));
}

TEST(CVQRCMemoryBuffer, ReadsZerosForWhatASourceDoesNotDeliver) {
    const Bytes kWhole = {5, 0, 0, 0, 11, 12, 13, 14, 15};
    for (std::size_t length = 0; length < kWhole.size(); ++length) {
        SCOPED_TRACE(length);
        CVQRCMemoryBuffer buffer = blockOf({9, 9});
        Source(Bytes(kWhole.begin(), kWhole.begin() + static_cast<std::ptrdiff_t>(length))) >> buffer;
        Bytes expected;
        // One byte of the size is enough to name 5; of the rest nothing came, over the zeros set before.
        if (length > 0) {
            expected.assign(5, 0);
            for (std::size_t i = 4; i < length; ++i)
                expected[i - 4] = kWhole[i];
        }
        EXPECT_EQ(expected, bytesIn(buffer));
    }
}

TEST(CVQRCMemoryBuffer, ReadsTheSameFromAByteStreamThatRunsOut) {
    const Bytes kWhole = {5, 0, 0, 0, 11, 12, 13, 14, 15};
    for (std::size_t length = 0; length < kWhole.size(); ++length) {
        SCOPED_TRACE(length);
        CVQByteStream source;
        source.write(kWhole.data(), length);
        CVQRCMemoryBuffer buffer = blockOf({9, 9});
        source >> buffer;
        EXPECT_TRUE(source.isEndOfData());
        Bytes expected;
        if (length > 0) {
            expected.assign(5, 0);
            for (std::size_t i = 4; i < length; ++i)
                expected[i - 4] = kWhole[i];
        }
        EXPECT_EQ(expected, bytesIn(buffer));
    }
}

TEST(CVQRCMemoryBuffer, KeepsItsBlockWhenTheSizeCannotBeHad) {
    for (const unsigned char low : {0xE1, 0xF0, 0xF8, 0xFF}) {
        SCOPED_TRACE(low);
        CVQRCMemoryBuffer buffer = blockOf({9, 8});
        const Source source({low, 0xFF, 0xFF, 0xFF, 1, 2, 3});
        source >> buffer;
        EXPECT_THAT(bytesIn(buffer), ElementsAre(9, 8));
        EXPECT_THAT(source.calls, ElementsAre("4"));
        EXPECT_EQ(4u, source.position);
    }
}

TEST(CVQRCMemoryBuffer, DoesNotBelieveCountsAboveWhatItAskedFor) {
    CVQRCMemoryBuffer buffer;
    Boaster({3, 0, 0, 0, 1, 2, 3}) >> buffer;
    EXPECT_THAT(bytesIn(buffer), ElementsAre(1, 2, 3));
}

TEST(CVQRCMemoryBuffer, MayBeWrittenIntoTheStreamWhoseStorageItIs) {
    CVQByteStream stream;
    stream.write("abcdefghijklmnopqrstuvwxyz012345", 32);
    stream << stream.getMemoryBuffer();
    EXPECT_EQ(68u, stream.getLength());
    EXPECT_EQ(std::string("abcdefghijklmnopqrstuvwxyz012345") + '\x20' + std::string(3, '\0') +
                  "abcdefghijklmnopqrstuvwxyz012345",
              std::string(reinterpret_cast<const char*>(stream.getData()), stream.getLength()));
}

// Set before the constructors of this unit run, and not undone by them: the handle is constant-initialised.
extern CVQRCMemoryBuffer sEarlyBlock;
[[maybe_unused]] const bool sFilledEarlyBlock = [] {
    sEarlyBlock = blockOf({4, 5, 6});
    return true;
}();
CVQRCMemoryBuffer sEarlyBlock;

TEST(CVQRCMemoryBuffer, IsReadyBeforeStaticConstructorsRun) {
    EXPECT_THAT(bytesIn(sEarlyBlock), ElementsAre(4, 5, 6));
}

TEST(CVQRCMemoryBuffer, IsCopiedAndDroppedOnManyThreads) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 2000;
    for (int repeat = 0; repeat < 5; ++repeat) {
        CVQRCMemoryBuffer shared = blockOf(Bytes(100, 0x42));
        std::vector<std::thread> threads;
        for (int thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([mine = shared]() mutable {
                for (int round = 0; round < kRounds; ++round) {
                    CVQRCMemoryBuffer copy(mine);
                    CVQRCMemoryBuffer assigned;
                    assigned = copy;
                    copy.removeRef();
                    ASSERT_EQ(0x42, assigned.getData()[99]);
                }
                // Whoever is alone may write: all others are done with the bytes.
                if (!mine.isShared())
                    std::memset(mine.getBuffer(), 0x43, 100);
            });
        }
        shared.removeRef();
        for (std::thread& thread : threads)
            thread.join();
    }
}

}  // namespace
