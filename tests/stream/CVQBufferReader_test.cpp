// Concerns: each seek from both sides of each limit; directions outside the table; every special argument of read, in
// their order; destinations among the bytes that are read; readers over nothing.
#include "stream/Streams.h"
#include "support/AssertionLog.h"

#include <CVQBufferReader.h>

#include <cerrno>
#include <climits>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

namespace {

using support::AssertionLog;
using testing::ElementsAre;

constexpr unsigned char kTen[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};

TEST(CVQBufferReader, SeeksWithinItsBytesOnly) {
    using Reader = CVQBufferReader;
    const struct {
        int line;
        unsigned from;
        int offset;
        Reader::SeekDirection direction;
        bool accepted;
        unsigned to;
    } kRows[] = {
        {__LINE__, 4, 0, Reader::SEEK_DIR_SET, true, 0},
        {__LINE__, 4, 10, Reader::SEEK_DIR_SET, true, 10},
        {__LINE__, 4, 11, Reader::SEEK_DIR_SET, false, 4},
        {__LINE__, 4, -1, Reader::SEEK_DIR_SET, false, 4},
        {__LINE__, 4, INT_MAX, Reader::SEEK_DIR_SET, false, 4},
        {__LINE__, 4, INT_MIN, Reader::SEEK_DIR_SET, false, 4},
        {__LINE__, 4, 0, Reader::SEEK_DIR_CUR, true, 4},
        {__LINE__, 4, 6, Reader::SEEK_DIR_CUR, true, 10},
        {__LINE__, 4, 7, Reader::SEEK_DIR_CUR, false, 4},
        {__LINE__, 4, -4, Reader::SEEK_DIR_CUR, true, 0},
        {__LINE__, 4, -5, Reader::SEEK_DIR_CUR, false, 4},
        {__LINE__, 4, INT_MAX, Reader::SEEK_DIR_CUR, false, 4},
        {__LINE__, 4, INT_MIN, Reader::SEEK_DIR_CUR, false, 4},
        {__LINE__, 4, 0, Reader::SEEK_DIR_END, true, 10},
        {__LINE__, 4, -10, Reader::SEEK_DIR_END, true, 0},
        {__LINE__, 4, -11, Reader::SEEK_DIR_END, false, 4},
        {__LINE__, 4, 1, Reader::SEEK_DIR_END, false, 4},
        {__LINE__, 4, INT_MAX, Reader::SEEK_DIR_END, false, 4},
        {__LINE__, 4, INT_MIN, Reader::SEEK_DIR_END, false, 4},
        {__LINE__, 4, 0, Reader::SEEK_DIR_NONE, false, 4},
        {__LINE__, 4, 0, static_cast<Reader::SeekDirection>(4), false, 4},
        {__LINE__, 4, 0, static_cast<Reader::SeekDirection>(0x80000000U), false, 4},
        {__LINE__, 4, 0, static_cast<Reader::SeekDirection>(-1), false, 4},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        Reader reader(kTen, sizeof kTen);
        ASSERT_TRUE(reader.seek(static_cast<int>(row.from), Reader::SEEK_DIR_SET));
        errno = 0;
        EXPECT_EQ(row.accepted, reader.seek(row.offset, row.direction));
        EXPECT_EQ(row.accepted ? 0 : EINVAL, errno);
        EXPECT_EQ(row.to, reader.tell());
    }
}

TEST(CVQBufferReader, OffersTheSeeksByName) {
    CVQBufferReader reader(kTen, sizeof kTen);
    EXPECT_TRUE(CVQBufferReader::seek_set(reader, 3));
    EXPECT_TRUE(CVQBufferReader::seek_cur(reader, 2));
    EXPECT_EQ(5u, reader.tell());
    EXPECT_TRUE(CVQBufferReader::seek_end(reader, -1));
    EXPECT_EQ(9u, reader.tell());
    errno = 0;
    EXPECT_FALSE(CVQBufferReader::seek_none(reader, 0));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(9u, reader.tell());
}

TEST(CVQBufferReader, NumbersItsDirectionsFromZero) {
    EXPECT_EQ(0u, CVQBufferReader::SEEK_DIR_SET);
    EXPECT_EQ(1u, CVQBufferReader::SEEK_DIR_CUR);
    EXPECT_EQ(2u, CVQBufferReader::SEEK_DIR_END);
    EXPECT_EQ(3u, CVQBufferReader::SEEK_DIR_NONE);
}

TEST(CVQBufferReader, ReadsUpToItsEnd) {
    CVQBufferReader reader(kTen, sizeof kTen);
    unsigned char target[16] = {};
    EXPECT_EQ(3, reader.read(target, 3, 0));
    EXPECT_EQ(Bytes({0, 1, 2}), bytesOf(target, 3));
    EXPECT_EQ(3u, reader.tell());
    ASSERT_TRUE(reader.seek(8, CVQBufferReader::SEEK_DIR_SET));
    EXPECT_EQ(2, reader.read(target, 4, 99));
    EXPECT_EQ(Bytes({8, 9, 2, 0}), bytesOf(target, 4));
    EXPECT_EQ(10u, reader.tell());
    EXPECT_EQ(0, reader.read(target, 4, -1));
}

TEST(CVQBufferReader, TestsTheArgumentsOfReadInOrder) {
    CVQBufferReader reader(kTen, sizeof kTen);
    unsigned char target[4] = {};
    errno = 0;
    EXPECT_EQ(0, reader.read(nullptr, 0, 0));
    EXPECT_EQ(0, errno);
    EXPECT_EQ(-1, reader.read(nullptr, 1, 0));
    EXPECT_EQ(EINVAL, errno);
    errno = 0;
    EXPECT_EQ(-1, reader.read(nullptr, 0x80000000U, 0));
    EXPECT_EQ(EINVAL, errno);
    errno = 0;
    EXPECT_EQ(0, reader.read(target, 0x80000000U, 0));
    EXPECT_EQ(0, reader.read(target, 0xFFFFFFFFU, 0));
    EXPECT_EQ(0, reader.read(target, ~std::size_t{0}, 0));
    EXPECT_EQ(0, errno);
    EXPECT_EQ(0u, reader.tell());
    ASSERT_TRUE(reader.seek(0, CVQBufferReader::SEEK_DIR_END));
    EXPECT_EQ(-1, reader.read(nullptr, 1, 0));
}

TEST(CVQBufferReader, ReadsEverythingForTheLargestCount) {
    CVQBufferReader reader(kTen, sizeof kTen);
    unsigned char target[16];
    EXPECT_EQ(10, reader.read(target, INT_MAX, 0));
}

TEST(CVQBufferReader, ReadsIntoTheBytesThatItReads) {
    Bytes bytes(600);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<unsigned char>(i % 251);
    for (const int from : {1, 40, 500}) {
        SCOPED_TRACE(from);
        Bytes compacted = bytes, movedOn = bytes;
        CVQBufferReader compacting(compacted.data(), compacted.size());
        ASSERT_TRUE(compacting.seek(from, CVQBufferReader::SEEK_DIR_SET));
        EXPECT_EQ(600 - from, compacting.read(compacted.data(), 600, 0));
        EXPECT_EQ(Bytes(bytes.begin() + from, bytes.end()),
                  bytesOf(compacted.data(), compacted.size() - static_cast<unsigned>(from)));
        CVQBufferReader movingOn(movedOn.data(), movedOn.size());
        EXPECT_EQ(600 - from, movingOn.read(movedOn.data() + from, 600 - static_cast<unsigned>(from), 0));
        EXPECT_EQ(Bytes(bytes.begin(), bytes.end() - from), Bytes(movedOn.begin() + from, movedOn.end()));
    }
}

TEST(CVQBufferReader, ReportsThatThereIsNothingToReadAndIsBuiltAllTheSame) {
    AssertionLog log;
    CVQBufferReader overNull(nullptr, 10);
    EXPECT_THAT(log.takeSites(), ElementsAre("CVQBufferReader:120"));
    CVQBufferReader overNothing(kTen, 0);
    EXPECT_THAT(log.takeSites(), ElementsAre("CVQBufferReader:120"));
    CVQBufferReader overNullAndNothing(nullptr, 0);
    EXPECT_THAT(log.takeSites(), ElementsAre("CVQBufferReader:120"));
    for (CVQBufferReader* reader : {&overNull, &overNothing, &overNullAndNothing}) {
        unsigned char byte = 7;
        EXPECT_EQ(0u, reader->tell());
        EXPECT_TRUE(reader->seek(0, CVQBufferReader::SEEK_DIR_SET));
        EXPECT_TRUE(reader->seek(0, CVQBufferReader::SEEK_DIR_END));
        EXPECT_FALSE(reader->seek(1, CVQBufferReader::SEEK_DIR_SET));
        EXPECT_EQ(0, reader->read(&byte, 1, 0));
        EXPECT_EQ(7, byte);
    }
}

TEST(CVQBufferReader, RefusesMoreThan32BitsCanCount) {
    if constexpr (sizeof(std::size_t) > 4) {
        AssertionLog log;
        CVQBufferReader reader(kTen, static_cast<std::size_t>(0x1'0000'000AULL));
        EXPECT_THAT(log.takeSites(), ElementsAre("CVQBufferReader:120"));
        EXPECT_FALSE(reader.seek(1, CVQBufferReader::SEEK_DIR_SET));
    }
}

TEST(CVQBufferReader, SeeksBeyond2To31) {
    if constexpr (sizeof(void*) > 4) {
        constexpr std::size_t kSize = 0xFFFFFFFFU;
        void* const room = mmap(nullptr, kSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        ASSERT_NE(MAP_FAILED, room);
        CVQBufferReader reader(room, kSize);
        EXPECT_TRUE(reader.seek(INT_MAX, CVQBufferReader::SEEK_DIR_SET));
        EXPECT_TRUE(reader.seek(INT_MAX, CVQBufferReader::SEEK_DIR_CUR));
        EXPECT_TRUE(reader.seek(1, CVQBufferReader::SEEK_DIR_CUR));
        EXPECT_EQ(0xFFFFFFFFU, reader.tell());
        EXPECT_FALSE(reader.seek(1, CVQBufferReader::SEEK_DIR_CUR));
        EXPECT_TRUE(reader.seek(INT_MIN, CVQBufferReader::SEEK_DIR_END));
        EXPECT_EQ(0x7FFFFFFFU, reader.tell());
        EXPECT_TRUE(reader.seek(INT_MIN + 1, CVQBufferReader::SEEK_DIR_CUR));
        EXPECT_EQ(0u, reader.tell());
        EXPECT_EQ(0, munmap(room, kSize));
    }
}

}  // namespace
