// Concerns: sizes and sharing of every operation; bytes that nobody supplied; sums that overflow; sources inside the
// buffer; byte streams; the stream forms whole and cut off; random sequences against a plain model.
#include "stream/Streams.h"
#include "support/AssertionLog.h"

#include <CVQBuffer.h>
#include <CVQByteStream.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <thread>

namespace {

using support::AssertionLog;
using testing::ElementsAre;
using testing::IsEmpty;

CVQBuffer bufferOf(const Bytes& bytes) {
    CVQBuffer buffer;
    buffer.copyTo(bytes.data(), bytes.size(), 0);
    return buffer;
}

Bytes bytesIn(const CVQBuffer& buffer) {
    return bytesOf(buffer.getData(), buffer.getSize());
}

TEST(CVQBuffer, IsEmptyByDefault) {
    const CVQBuffer buffer;
    EXPECT_EQ(0u, buffer.getSize());
    EXPECT_EQ(nullptr, buffer.getData());
    EXPECT_TRUE(buffer == CVQBuffer(0));
}

TEST(CVQBuffer, CopiesShareTheirBlock) {
    const CVQBuffer first = bufferOf({1, 2, 3});
    const CVQBuffer second(first);
    CVQBuffer third;
    third = second;
    EXPECT_EQ(first.getData(), second.getData());
    EXPECT_EQ(first.getData(), third.getData());
    EXPECT_TRUE(first.getMemoryBuffer().isShared());
    const CVQBuffer& itself = third;
    third = itself;
    EXPECT_THAT(bytesIn(third), ElementsAre(1, 2, 3));
}

TEST(CVQBuffer, TruncateToLessKeepsTheBlockAndToMoreReallocates) {
    CVQBuffer buffer = bufferOf({0, 1, 2, 3, 4, 5, 6, 7, 8, 9});
    const unsigned char* const block = buffer.getData();
    buffer.truncate(3);
    EXPECT_EQ(block, buffer.getData());
    EXPECT_THAT(bytesIn(buffer), ElementsAre(0, 1, 2));
    buffer.truncate(3);
    EXPECT_EQ(block, buffer.getData());
    buffer.truncate(12);
    EXPECT_NE(block, buffer.getData());
    EXPECT_THAT(bytesIn(buffer), ElementsAre(0, 1, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0));
    buffer.truncate(0);
    EXPECT_EQ(0u, buffer.getSize());
}

TEST(CVQBuffer, TruncateOfAnEmptyBufferResizesIt) {
    CVQBuffer buffer;
    buffer.truncate(0);
    EXPECT_EQ(nullptr, buffer.getData());
    buffer.truncate(2);
    EXPECT_THAT(bytesIn(buffer), ElementsAre(0, 0));
}

// id: buffer-truncate-shared
TEST(CVQBuffer, Kept_TruncateShortensASharedBlockForAllAndReportsIt) {
    AssertionLog log;
    CVQBuffer buffer = bufferOf({1, 2, 3, 4});
    const CVQBuffer other(buffer);
    buffer.truncate(2);
    EXPECT_THAT(log.takeSites(), ElementsAre("CVQBuffer:79"));
    EXPECT_THAT(bytesIn(buffer), ElementsAre(1, 2));
    EXPECT_THAT(bytesIn(other), ElementsAre(1, 2));
    EXPECT_EQ(other.getData(), buffer.getData());
    buffer.truncate(2);
    EXPECT_THAT(log.takeSites(), ElementsAre("CVQBuffer:79"));
    buffer.truncate(3);
    EXPECT_THAT(log.takeSites(), ElementsAre("CVQBuffer:79"));
    EXPECT_THAT(bytesIn(buffer), ElementsAre(1, 2, 0));
    EXPECT_THAT(bytesIn(other), ElementsAre(1, 2));
}

TEST(CVQBuffer, ResizeTakesANewBlockWheneverTheSizeChanges) {
    CVQBuffer buffer = bufferOf({1, 2, 3});
    const unsigned char* block = buffer.getData();
    buffer.resize(3);
    EXPECT_EQ(block, buffer.getData());
    for (const unsigned size : {5u, 2u, 4u}) {
        SCOPED_TRACE(size);
        const CVQBuffer before(buffer);  // so that the old place is not free to be taken again
        buffer.resize(size);
        EXPECT_NE(before.getData(), buffer.getData());
        EXPECT_EQ(size, buffer.getSize());
    }
    EXPECT_THAT(bytesIn(buffer), ElementsAre(1, 2, 0, 0));
    buffer.resize(0);
    EXPECT_EQ(nullptr, buffer.getData());
}

TEST(CVQBuffer, ResizeByForceEndsSharing) {
    CVQBuffer buffer = bufferOf({1, 2, 3});
    const CVQBuffer other(buffer);
    buffer.resize(3, false);
    EXPECT_EQ(other.getData(), buffer.getData());
    buffer.resize(3, true);
    EXPECT_NE(other.getData(), buffer.getData());
    EXPECT_FALSE(buffer.getMemoryBuffer().isShared());
    EXPECT_EQ(other, buffer);
}

// id: buffer-reserve-size
TEST(CVQBuffer, Kept_ReserveChangesTheSizeButNeverDown) {
    CVQBuffer buffer = bufferOf({1, 2, 3});
    const unsigned char* const block = buffer.getData();
    buffer.reserve(2);
    buffer.reserve(3);
    EXPECT_EQ(block, buffer.getData());
    EXPECT_EQ(3u, buffer.getSize());
    buffer.reserve(5);
    EXPECT_THAT(bytesIn(buffer), ElementsAre(1, 2, 3, 0, 0));
    const CVQBuffer other(buffer);
    buffer.reserve(1, true);
    EXPECT_NE(other.getData(), buffer.getData());
    EXPECT_THAT(bytesIn(buffer), ElementsAre(1, 2, 3, 0, 0));
    buffer.reserve(6, true);
    EXPECT_EQ(6u, buffer.getSize());
}

TEST(CVQBuffer, StaysAsItIsWhenASizeCannotBeHad) {
    CVQBuffer buffer = bufferOf({1, 2, 3});
    for (const std::size_t size : {CVQRCMemoryBuffer::kMaxSize + std::size_t{1}, ~std::size_t{0}}) {
        SCOPED_TRACE(size);
        buffer.resize(size);
        buffer.resize(size, true);
        buffer.reserve(size);
        buffer.truncate(size);
        EXPECT_EQ(0u, buffer.copyTo("abc", 3, size));
        EXPECT_EQ(0u, buffer.copyTo("abc", size, 3));
        EXPECT_EQ(0u, buffer.copyTo("abc", size, size));
        EXPECT_THAT(bytesIn(buffer), ElementsAre(1, 2, 3));
        EXPECT_EQ(0u, CVQBuffer(size).getSize());
    }
}

TEST(CVQBuffer, CopyFromDeliversWhatThereIs) {
    const CVQBuffer buffer = bufferOf({1, 2, 3, 4, 5});
    const struct {
        int line;
        std::size_t count;
        std::size_t offset;
        Bytes expected;
    } kRows[] = {
        {__LINE__, 5, 0, {1, 2, 3, 4, 5}},
        {__LINE__, 2, 1, {2, 3}},
        {__LINE__, 9, 0, {1, 2, 3, 4, 5}},
        {__LINE__, 9, 3, {4, 5}},
        {__LINE__, 1, 4, {5}},
        {__LINE__, 1, 5, {}},
        {__LINE__, 1, 6, {}},
        {__LINE__, 0, 2, {}},
        {__LINE__, 0xFFFFFFFF, 4, {5}},
        {__LINE__, ~std::size_t{0}, 1, {2, 3, 4, 5}},
        {__LINE__, 1, ~std::size_t{0}, {}},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        unsigned char target[9] = {};
        const unsigned count = buffer.copyFrom(target, row.count, row.offset);
        EXPECT_EQ(row.expected, bytesOf(target, count));
        EXPECT_EQ(0, target[count]);
    }
    EXPECT_EQ(0u, buffer.copyFrom(nullptr, 1, 0));
    unsigned char byte = 7;
    EXPECT_EQ(0u, CVQBuffer().copyFrom(&byte, 1, 0));
    EXPECT_EQ(7, byte);
}

TEST(CVQBuffer, CopyToGrowsAsNeededAndFillsTheGapWithZeros) {
    CVQBuffer buffer;
    EXPECT_EQ(2u, buffer.copyTo("ab", 2, 0));
    EXPECT_THAT(bytesIn(buffer), ElementsAre('a', 'b'));
    EXPECT_EQ(2u, buffer.copyTo("xy", 2, 1));
    EXPECT_THAT(bytesIn(buffer), ElementsAre('a', 'x', 'y'));
    EXPECT_EQ(1u, buffer.copyTo("z", 1, 5));
    EXPECT_THAT(bytesIn(buffer), ElementsAre('a', 'x', 'y', 0, 0, 'z'));
    EXPECT_EQ(0u, buffer.copyTo("", 0, 7));
    EXPECT_EQ(7u, buffer.getSize());
    EXPECT_EQ(0u, buffer.copyTo(nullptr, 3, 0));
    EXPECT_EQ(7u, buffer.getSize());
}

TEST(CVQBuffer, CopyToLeavesTheOtherSharersAlone) {
    CVQBuffer buffer = bufferOf({1, 2, 3});
    const CVQBuffer other(buffer);
    EXPECT_EQ(1u, buffer.copyTo("\x09", 1, 1));
    EXPECT_THAT(bytesIn(buffer), ElementsAre(1, 9, 3));
    EXPECT_THAT(bytesIn(other), ElementsAre(1, 2, 3));
    EXPECT_FALSE(other.getMemoryBuffer().isShared());
}

TEST(CVQBuffer, CopyToTakesBytesFromTheBufferItself) {
    CVQBuffer buffer = bufferOf({1, 2, 3, 4});
    EXPECT_EQ(3u, buffer.copyTo(buffer.getData(), 3, 1));
    EXPECT_THAT(bytesIn(buffer), ElementsAre(1, 1, 2, 3));
    EXPECT_EQ(4u, buffer.copyTo(buffer.getData(), 4, 4));
    EXPECT_THAT(bytesIn(buffer), ElementsAre(1, 1, 2, 3, 1, 1, 2, 3));
    const CVQBuffer other(buffer);
    EXPECT_EQ(2u, buffer.copyTo(buffer.getData() + 2, 2, 0));
    EXPECT_THAT(bytesIn(buffer), ElementsAre(2, 3, 2, 3, 1, 1, 2, 3));
    EXPECT_THAT(bytesIn(other), ElementsAre(1, 1, 2, 3, 1, 1, 2, 3));
}

TEST(CVQBuffer, TakesTheUsedBytesOfAByteStream) {
    CVQByteStream stream;
    stream << 0x01020304U;
    unsigned value = 0;
    stream >> value;
    const CVQBuffer buffer(stream);
    EXPECT_THAT(bytesIn(buffer), ElementsAre(4, 3, 2, 1));
    EXPECT_NE(stream.getData(), buffer.getData());
    CVQBuffer assigned = bufferOf({9});
    assigned = stream;
    EXPECT_EQ(buffer, assigned);
    EXPECT_EQ(32u, stream.getCapacity());

    assigned = CVQByteStream();
    EXPECT_EQ(nullptr, assigned.getData());
    EXPECT_EQ(0u, CVQBuffer(CVQByteStream(10)).getSize());
}

TEST(CVQBuffer, TakesZerosForTheBytesThatAByteStreamLacks) {
    const CVQByteStream stream(bufferOf({1, 2}).getMemoryBuffer(), 4);
    EXPECT_THAT(bytesIn(CVQBuffer(stream)), ElementsAre(1, 2, 0, 0));
}

TEST(CVQBuffer, IsEmptyForAByteStreamOfALengthThatNoBlockCanHave) {
    const CVQBuffer storage = bufferOf({1, 2});
    for (const unsigned length : {CVQRCMemoryBuffer::kMaxSize + 1, 0xFFFFFFFFU}) {
        SCOPED_TRACE(length);
        const CVQByteStream stream(storage.getMemoryBuffer(), length);
        EXPECT_EQ(nullptr, CVQBuffer(stream).getData());
        CVQBuffer assigned = bufferOf({3});
        assigned = stream;
        EXPECT_EQ(0u, assigned.getSize());
        EXPECT_EQ(nullptr, assigned.getData());
    }
    EXPECT_THAT(bytesIn(storage), ElementsAre(1, 2));
}

TEST(CVQBuffer, ComparesBytes) {
    const CVQBuffer buffer = bufferOf({1, 2});
    EXPECT_TRUE(buffer == buffer);
    EXPECT_TRUE(buffer == bufferOf({1, 2}));
    EXPECT_TRUE(buffer != bufferOf({1, 3}));
    EXPECT_TRUE(buffer != bufferOf({1}));
    EXPECT_FALSE(buffer == CVQBuffer());
}

TEST(CVQBuffer, WritesSizeAndBytes) {
    Sink sink;
    EXPECT_EQ(&sink, &(sink << bufferOf({7, 8})));
    EXPECT_THAT(sink.bytes, ElementsAre(2, 0, 0, 0, 7, 8));
    EXPECT_THAT(sink.calls, ElementsAre("4", "2"));
}

TEST(CVQBuffer, WritesFourZerosWhenEmptyAndIsEmptiedByThem) {
    Sink sink;
    sink << CVQBuffer();
    EXPECT_THAT(sink.bytes, ElementsAre(0, 0, 0, 0));
    CVQBuffer buffer = bufferOf({7, 8});
    Source(sink.bytes) >> buffer;
    EXPECT_EQ(nullptr, buffer.getData());
}

TEST(CVQBuffer, AlignsInTheQRVFormOnly) {
    Sink sink;
    EXPECT_EQ(&sink, &CVQBuffer::toQRVStream(sink, bufferOf({7, 8})));
    EXPECT_THAT(sink.calls, ElementsAre("align 4", "4", "2"));
    EXPECT_THAT(sink.bytes, ElementsAre(2, 0, 0, 0, 7, 8));
    const Source source(sink.bytes);
    CVQBuffer buffer;
    EXPECT_EQ(&source, &CVQBuffer::fromQRVStream(source, buffer));
    EXPECT_THAT(source.calls, ElementsAre("align 4", "4", "2"));
    EXPECT_THAT(bytesIn(buffer), ElementsAre(7, 8));
}

TEST(CVQBuffer, ReadsZerosForWhatASourceDoesNotDeliver) {
    const Bytes kWhole = {3, 0, 0, 0, 21, 22, 23};
    for (const bool isQRV : {false, true}) {
        for (std::size_t length = 0; length < kWhole.size(); ++length) {
            SCOPED_TRACE(length);
            const Source source(Bytes(kWhole.begin(), kWhole.begin() + static_cast<std::ptrdiff_t>(length)));
            CVQBuffer buffer = bufferOf({9, 9});
            if (isQRV)
                CVQBuffer::fromQRVStream(source, buffer);
            else
                source >> buffer;
            Bytes expected(length == 0 ? 0 : 3, 0);
            for (std::size_t i = 4; i < length; ++i)
                expected[i - 4] = kWhole[i];
            EXPECT_EQ(expected, bytesIn(buffer));
        }
    }
}

TEST(CVQBuffer, IsEmptyAfterReadingFromAnExhaustedStream) {
    const CVQByteStream exhausted;
    CVQBuffer buffer = bufferOf({1});
    exhausted >> buffer;
    EXPECT_EQ(nullptr, buffer.getData());
}

TEST(CVQBuffer, IsChangedOnOneThreadWhileSharersReadOnOthers) {
    const CVQBuffer original = bufferOf(Bytes(64, 0x11));
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([mine = original, thread]() mutable {
            for (int round = 0; round < 500; ++round) {
                CVQBuffer copy(mine);
                const unsigned char mark = static_cast<unsigned char>(thread);
                copy.copyTo(&mark, 1, static_cast<std::size_t>(round % 80));
                ASSERT_EQ(mark, copy.getData()[round % 80]);
                ASSERT_EQ(0x11, mine.getData()[63]);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(Bytes(64, 0x11), bytesIn(original));
}

// The same with plain vectors: a buffer is a shared vector that is replaced, never changed while it is shared.
class BufferModel {
public:
    BufferModel() = default;
    explicit BufferModel(const Bytes& bytes) : mBytes(std::make_shared<Bytes>(bytes)) {}

    const Bytes& bytes() const { return *mBytes; }
    void resize(std::size_t size, bool force) {
        if (size == mBytes->size() && !force)
            return;
        Bytes resized(*mBytes);
        resized.resize(size);
        mBytes = std::make_shared<Bytes>(std::move(resized));
    }
    bool isShared() const { return !mBytes->empty() && mBytes.use_count() > 1; }
    void copyTo(const Bytes& source, std::size_t offset) {
        const std::size_t end = offset + source.size();
        if (end > mBytes->size() || isShared())
            resize(std::max(end, mBytes->size()), true);
        std::copy(source.begin(), source.end(), mBytes->begin() + static_cast<std::ptrdiff_t>(offset));
    }
    void truncate(std::size_t size) {
        if (size < mBytes->size())
            mBytes->resize(size);
        else
            resize(size, false);
    }

private:
    std::shared_ptr<Bytes> mBytes = std::make_shared<Bytes>();
};

TEST(CVQBuffer, AgreesWithAPlainModelOverRandomOperations) {
    std::mt19937 random(20240607);
    const auto below = [&random](std::size_t limit) {
        return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
    };
    constexpr std::size_t kValues = 4;
    CVQBuffer buffers[kValues];
    BufferModel models[kValues];
    for (int step = 0; step < 20000; ++step) {
        const std::size_t at = below(kValues);
        const std::size_t other = below(kValues);
        const std::size_t size = below(70);
        switch (below(7)) {
        case 0:
            buffers[at] = buffers[other];
            models[at] = models[other];
            break;
        case 1:
            buffers[at].resize(size);
            models[at].resize(size, false);
            break;
        case 2:
            buffers[at].resize(size, true);
            models[at].resize(size, true);
            break;
        case 3:
            if (!models[at].isShared()) {
                buffers[at].truncate(size + 1);
                models[at].truncate(size + 1);
            }
            break;
        case 4: {
            Bytes bytes(below(40) + 1);
            for (unsigned char& byte : bytes)
                byte = static_cast<unsigned char>(below(256));
            ASSERT_EQ(bytes.size(), buffers[at].copyTo(bytes.data(), bytes.size(), size));
            models[at].copyTo(bytes, size);
            break;
        }
        case 5: {
            unsigned char target[70];
            const std::size_t count = below(70);
            const Bytes& bytes = models[at].bytes();
            const std::size_t expected = size >= bytes.size() ? 0 : std::min(count, bytes.size() - size);
            ASSERT_EQ(expected, buffers[at].copyFrom(target, count, size));
            ASSERT_TRUE(std::equal(target, target + expected,
                                   bytes.begin() + static_cast<std::ptrdiff_t>(expected == 0 ? 0 : size)));
            break;
        }
        default: {
            CVQByteStream stream;
            stream << buffers[other];
            stream >> buffers[at];
            models[at] = BufferModel(models[other].bytes());
            break;
        }
        }
        for (std::size_t i = 0; i < kValues; ++i)
            ASSERT_EQ(models[i].bytes(), bytesIn(buffers[i])) << "value " << i << " after step " << step;
    }
}

}  // namespace
