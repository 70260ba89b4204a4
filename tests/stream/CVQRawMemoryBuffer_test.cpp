// Concerns: capacities and their limits; the block's form; who releases what.
#include "stream/Streams.h"

#include <CVQRawMemoryBuffer.h>

#include <cstdlib>
#include <gtest/gtest.h>

namespace {

// A caller's allocator: one block, which outlives every buffer.
alignas(8) unsigned char sArena[64];
unsigned sAskedFor = 0;
unsigned sCalls = 0;

void* fromArena(unsigned size) {
    sAskedFor = size;
    ++sCalls;
    return size <= sizeof sArena ? sArena : nullptr;
}

TEST(CVQRawMemoryBuffer, HasACapacityOfAtLeastEight) {
    EXPECT_EQ(8u, CVQRawMemoryBuffer(3).getCapacity());
    const struct {
        int line;
        std::size_t request;
        std::size_t capacity;
    } kRows[] = {{__LINE__, 0, 8}, {__LINE__, 7, 8}, {__LINE__, 8, 8}, {__LINE__, 9, 9}, {__LINE__, 1000, 1000}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(row.capacity, CVQRawMemoryBuffer::adjustCapacity(row.request));
        CVQRawMemoryBuffer buffer(row.request);
        EXPECT_EQ(row.capacity, buffer.getCapacity());
        ASSERT_NE(nullptr, buffer.getData());
        std::memset(buffer.getData(), 0x5A, row.capacity);
        EXPECT_EQ(Bytes(row.capacity, 0x5A), bytesOf(buffer.getData(), row.capacity));
        EXPECT_EQ(row.capacity, buffer.getCapacity());
    }
}

TEST(CVQRawMemoryBuffer, AsksTheCallersFunctionForEightBytesMore) {
    CVQRawMemoryBuffer buffer(20, &fromArena);
    EXPECT_EQ(28u, sAskedFor);
    EXPECT_EQ(20u, buffer.getCapacity());
    EXPECT_EQ(sArena + 8, buffer.getData());
    unsigned firstWord = 0;
    std::memcpy(&firstWord, sArena, sizeof firstWord);
    EXPECT_EQ(20u, firstWord);
}

TEST(CVQRawMemoryBuffer, DoesNotReleaseABlockOfTheCallers) {
    { CVQRawMemoryBuffer buffer(20, &fromArena); }
    sArena[8] = 1;  // still there; the C heap would have refused to free it
    static void* sBlock;
    sBlock = nullptr;
    {
        CVQRawMemoryBuffer buffer(20, [](unsigned size) { return sBlock = std::malloc(size); });
    }
    ASSERT_NE(nullptr, sBlock);
    std::memset(sBlock, 0, 28);
    std::free(sBlock);
}

TEST(CVQRawMemoryBuffer, HoldsNothingWhenTheCallersFunctionHasNone) {
    CVQRawMemoryBuffer buffer(1000, &fromArena);
    EXPECT_EQ(1008u, sAskedFor);
    EXPECT_EQ(nullptr, buffer.getData());
    EXPECT_EQ(0u, buffer.getCapacity());
}

TEST(CVQRawMemoryBuffer, UsesTheGeneralAllocatorWithoutAFunction) {
    CVQRawMemoryBuffer buffer(10, nullptr);
    EXPECT_EQ(10u, buffer.getCapacity());
    EXPECT_NE(nullptr, buffer.getData());
}

TEST(CVQRawMemoryBuffer, HoldsNothingWhenTheBlockWouldNotFit32Bits) {
    sCalls = 0;
    for (const std::size_t capacity : {std::size_t{0xFFFFFFF8U}, std::size_t{0xFFFFFFFFU}, ~std::size_t{0}}) {
        SCOPED_TRACE(capacity);
        CVQRawMemoryBuffer fromFunction(capacity, &fromArena);
        CVQRawMemoryBuffer general(capacity);
        EXPECT_EQ(nullptr, fromFunction.getData());
        EXPECT_EQ(0u, general.getCapacity());
    }
    EXPECT_EQ(0u, sCalls);
    const CVQRawMemoryBuffer largest(0xFFFFFFF7U, &fromArena);
    EXPECT_EQ(0xFFFFFFFFU, sAskedFor);
    EXPECT_EQ(0u, largest.getCapacity());
}

}  // namespace
