// VQMemUtilities: alignment questions, and every fill against a plain loop at every offset, with guard bytes.
#include <VQMemUtilities.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr unsigned kMostBytes = 300;
constexpr unsigned kGuard = 16;

/// Memory with other content, at every offset from an aligned place.
class CCanvas {
public:
    explicit CCanvas(unsigned offset) : mOffset(kGuard + offset) {
        for (std::size_t i = 0; i < sizeof mBytes; ++i) {
            mBytes[i] = mExpected[i] = static_cast<unsigned char>(i * 7 + 1);
        }
    }

    unsigned char* at() { return mBytes + mOffset; }
    unsigned char* expected() { return mExpected + mOffset; }
    bool isAsExpected() const { return std::memcmp(mBytes, mExpected, sizeof mBytes) == 0; }

private:
    unsigned mOffset;
    alignas(16) unsigned char mBytes[kGuard + 16 + kMostBytes * 8 + kGuard];
    unsigned char mExpected[sizeof mBytes];
};

/// The pointer that a caller has to a place that may not be aligned for it.
template <class Value>
Value* pointerTo(unsigned char* bytes) {
    void* const place = bytes;
    return static_cast<Value*>(place);
}

template <class Value>
void checkFill(void (*fill)(Value*, unsigned, Value), Value value) {
    for (unsigned offset = 0; offset < 16; ++offset) {
        for (unsigned count = 0; count < kMostBytes; count += count < 40 ? 1 : 13) {
            CCanvas canvas(offset);
            fill(pointerTo<Value>(canvas.at()), count, value);
            for (unsigned i = 0; i < count; ++i) {
                std::memcpy(canvas.expected() + i * sizeof value, &value, sizeof value);
            }
            ASSERT_TRUE(canvas.isAsExpected()) << count << " at offset " << offset;
        }
    }
}

/// Nibble by nibble, as the contract says it.
void fillNibblesPlainly(unsigned char* p, unsigned count, unsigned char value, bool startAtLowNibble) {
    for (unsigned nibble = startAtLowNibble ? 1 : 0; count != 0; ++nibble, --count) {
        unsigned char& byte = p[nibble / 2];
        byte = static_cast<unsigned char>(nibble % 2 == 0 ? (byte & 0x0F) | (value & 15) << 4
                                                          : (byte & 0xF0) | (value & 15));
    }
}

}  // namespace

TEST(VQMemUtilities, CastsGiveAnAlignedPointerOrNull) {
    alignas(8) char bytes[8];
    for (unsigned i = 0; i < 8; ++i) {
        void* const p = bytes + i;
        const void* const constant = p;
        EXPECT_EQ(i % 4 == 0 ? p : nullptr, VQMemUtilities::castToUInt32Ptr(p));
        EXPECT_EQ(i % 4 == 0 ? p : nullptr, VQMemUtilities::castToUInt32Ptr(constant));
        EXPECT_EQ(i % 2 == 0 ? p : nullptr, VQMemUtilities::castToUInt16Ptr(p));
        EXPECT_EQ(i % 2 == 0 ? p : nullptr, VQMemUtilities::castToUInt16Ptr(constant));
    }
    EXPECT_EQ(nullptr, VQMemUtilities::castToUInt32Ptr(static_cast<void*>(nullptr)));
}

TEST(VQMemUtilities, FillsBytes) {
    checkFill<unsigned char>(&VQMemUtilities::memFillUInt8, 0xA7);
}

TEST(VQMemUtilities, Fills16BitValuesAlsoUnaligned) {
    checkFill<unsigned short>(&VQMemUtilities::memFillUInt16, 0x1234);
}

TEST(VQMemUtilities, Fills32BitValuesAlsoUnaligned) {
    checkFill<unsigned>(&VQMemUtilities::memFillUInt32, 0x12345678);
}

TEST(VQMemUtilities, Fills64BitValuesAlsoUnaligned) {
    checkFill<unsigned long long>(&VQMemUtilities::memFillUInt64, 0x123456789ABCDEF0ULL);
}

TEST(VQMemUtilities, NullOrNoCountDoesNothing) {
    VQMemUtilities::memFillUInt8(nullptr, 5, 1);
    VQMemUtilities::memFillUInt16(nullptr, 5, 1);
    VQMemUtilities::memFillUInt32(nullptr, 5, 1);
    VQMemUtilities::memFillUInt64(nullptr, 5, 1);
    VQMemUtilities::memFillNibble(nullptr, 5, 1, 0);
    VQMemUtilities::memFillNibble(nullptr, 5, 1, 1);
    unsigned char byte = 0x12;
    VQMemUtilities::memFillNibble(&byte, 0, 0xF, 0);
    VQMemUtilities::memFillNibble(&byte, 0, 0xF, 1);
    EXPECT_EQ(0x12, byte);
}

TEST(VQMemUtilities, FillsNibblesFromTheLowHalfOfTheFirstByte) {
    unsigned char two[] = {0x12, 0x34};
    VQMemUtilities::memFillNibble(two, 2, 0xA, 1);
    EXPECT_EQ(0x1A, two[0]);
    EXPECT_EQ(0xA4, two[1]);

    unsigned char three[] = {0x12, 0x34};
    VQMemUtilities::memFillNibble(three, 3, 0xA, 1);
    EXPECT_EQ(0x1A, three[0]);
    EXPECT_EQ(0xAA, three[1]);
}

TEST(VQMemUtilities, FillsNibblesHighOnesFirst) {
    unsigned char bytes[] = {0x12, 0x34};
    VQMemUtilities::memFillNibble(bytes, 3, 0xFB, 0);  // only the low 4 bits of the value count
    EXPECT_EQ(0xBB, bytes[0]);
    EXPECT_EQ(0xB4, bytes[1]);
}

TEST(VQMemUtilities, FillsNibblesAsAPlainLoopDoes) {
    for (const bool startAtLowNibble : {false, true}) {
        for (unsigned offset = 0; offset < 8; ++offset) {
            for (unsigned count = 0; count < 70; ++count) {
                CCanvas canvas(offset);
                // Any value but 0 says "low".
                VQMemUtilities::memFillNibble(canvas.at(), count, 0x5C, startAtLowNibble ? 2 + count : 0);
                fillNibblesPlainly(canvas.expected(), count, 0x5C, startAtLowNibble);
                ASSERT_TRUE(canvas.isAsExpected()) << count << " at offset " << offset;
            }
        }
    }
}
