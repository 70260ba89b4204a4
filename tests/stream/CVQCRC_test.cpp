// Concerns: the check values and parameters of each type; the exported tables to the entry; bytes in any pieces;
// clearing, copies, misuse; each pass of this machine against one bit at a time: all lengths around a block, a
// vector and a stride, all alignments, random registers, the ends of pages; use before main.
#include "stream/VQCRCTables.h"
#include "support/AssertionLog.h"

#if defined(__x86_64__)
#include "stream/VQCRCPCLMUL.h"
#include "stream/VQCRCVPCLMUL.h"
#include "stream/VQCRCVPCLMUL256.h"
#endif

#include <CVQCRC.h>

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>
#include <random>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace {

using support::AssertionLog;
using testing::ElementsAre;

constexpr CVQCRC::eType kTypes[] = {CVQCRC::CRC16_CCITT_FALSE, CVQCRC::CRC32, CVQCRC::CRC16_CCITT_REFLECTED,
                                    CVQCRC::CRC16_XMODEM};

unsigned crcOf(CVQCRC::eType type, const std::string& text) {
    CVQCRC crc(type);
    crc.addBytes(reinterpret_cast<const unsigned char*>(text.data()), text.size());
    return crc.getCRC();
}

const struct {
    unsigned width;
    bool lowFirst;
    unsigned constant;
} kPlain[4] = {{16, false, 0x1021}, {32, true, 0xEDB88320}, {16, true, 0x1021}, {16, false, 0x1021}};

/// One bit at a time, register in and out.
unsigned plainCRC(unsigned type, unsigned crc, const unsigned char* bytes, std::size_t count) {
    const unsigned width = kPlain[type].width;
    for (; count > 0; --count, ++bytes) {
        for (unsigned bit = 0; bit < 8; ++bit) {
            if (kPlain[type].lowFirst) {
                const unsigned carry = (crc ^ *bytes >> bit) & 1;
                crc = crc >> 1 ^ (carry != 0 ? kPlain[type].constant : 0);
            } else {
                const unsigned carry = (crc >> (width - 1) ^ *bytes >> (7 - bit)) & 1;
                crc = (crc << 1 ^ (carry != 0 ? kPlain[type].constant : 0)) & (0xFFFFFFFFU >> (32 - width));
            }
        }
    }
    return crc;
}

// The edge cases

TEST(CVQCRC, GivesTheCheckValueOfEachTypeOverTheNineDigits) {
    EXPECT_EQ(0x29B1u, crcOf(CVQCRC::CRC16_CCITT_FALSE, "123456789"));
    EXPECT_EQ(0xCBF43926u, crcOf(CVQCRC::CRC32, "123456789"));
    EXPECT_EQ(0x1DBAu, crcOf(CVQCRC::CRC16_CCITT_REFLECTED, "123456789"));
    EXPECT_EQ(0x31C3u, crcOf(CVQCRC::CRC16_XMODEM, "123456789"));
}

TEST(CVQCRC, ReadsAsTheInitialValueAfterClearing) {
    const unsigned kInitial[] = {0xFFFF, 0, 0xFFFF, 0};
    for (const CVQCRC::eType type : kTypes) {
        SCOPED_TRACE(type);
        CVQCRC crc(type);
        EXPECT_EQ(kInitial[type], crc.getCRC());
        EXPECT_EQ(kInitial[type], crc.getInitialValue());
        crc.addByte('x');
        EXPECT_NE(kInitial[type], crc.getCRC());
        crc.clearCRC();
        EXPECT_EQ(kInitial[type], crc.getCRC());
    }
}

// Each stated behaviour

TEST(CVQCRC, IsOfTheFirstTypeByDefault) {
    CVQCRC crc;
    EXPECT_EQ(16u, crc.getWidth());
    EXPECT_EQ(0xFFFFu, crc.getCRC());
    crc.addBytes(reinterpret_cast<const unsigned char*>("123456789"), 9);
    EXPECT_EQ(0x29B1u, crc.getCRC());
}

TEST(CVQCRC, NumbersItsTypesFromZeroAndExportsTheirParameters) {
    EXPECT_EQ(0, CVQCRC::CRC16_CCITT_FALSE);
    EXPECT_EQ(1, CVQCRC::CRC32);
    EXPECT_EQ(2, CVQCRC::CRC16_CCITT_REFLECTED);
    EXPECT_EQ(3, CVQCRC::CRC16_XMODEM);
    EXPECT_THAT(CVQCRC::mWidth, ElementsAre(16, 32, 16, 16));
    EXPECT_THAT(CVQCRC::mReverseOrder, ElementsAre(false, true, true, false));
    EXPECT_THAT(CVQCRC::mInitialValue, ElementsAre(0xFFFF, 0, 0xFFFF, 0));
    EXPECT_THAT(CVQCRC::mXorOutValue, ElementsAre(0, 0xFFFFFFFF, 0, 0));
    for (const CVQCRC::eType type : kTypes)
        EXPECT_EQ(CVQCRC::mWidth[type], CVQCRC(type).getWidth());
}

TEST(CVQCRC, Kept_TheTablesThatTakeTheHighBitFirstKeepBitsAboveBit15) {  // id: crc-unmasked-tables
    for (const unsigned type : {0u, 3u}) {
        EXPECT_EQ(0u, CVQCRC::mCRCTab[type][0]);
        EXPECT_EQ(0x11021u, CVQCRC::mCRCTab[type][1]);
        EXPECT_EQ(0x22042u, CVQCRC::mCRCTab[type][2]);
        EXPECT_EQ(0x33063u, CVQCRC::mCRCTab[type][3]);
        for (unsigned i = 0; i < 256; ++i) {
            unsigned entry = i << 8;
            for (int bit = 0; bit < 8; ++bit)
                entry = (entry & 0x8000) != 0 ? entry << 1 ^ 0x1021 : entry << 1;
            ASSERT_EQ(entry, CVQCRC::mCRCTab[type][i]) << i;
        }
    }
}

TEST(CVQCRC, ExportsTheTablesThatTakeTheLowBitFirst) {
    EXPECT_EQ(0x77073096u, CVQCRC::mCRCTab[1][1]);
    EXPECT_EQ(0x2D02EF8Du, CVQCRC::mCRCTab[1][255]);
    for (const unsigned type : {1u, 2u}) {
        const unsigned constant = type == 1 ? 0xEDB88320 : 0x1021;
        for (unsigned i = 0; i < 256; ++i) {
            unsigned entry = i;
            for (int bit = 0; bit < 8; ++bit)
                entry = (entry & 1) != 0 ? entry >> 1 ^ constant : entry >> 1;
            ASSERT_EQ(entry, CVQCRC::mCRCTab[type][i]) << i;
        }
    }
}

TEST(CVQCRC, Kept_TheThirdTypeTakesTheLowBitFirstWithTheConstantAsItStands) {  // id: crc-reflected-1021
    EXPECT_EQ(0x1021u, CVQCRC::mCRCTab[2][0x80]);
    // One byte: the register FFFF meets it in its low byte.
    EXPECT_EQ(0xFFu ^ CVQCRC::mCRCTab[2][0xFF], crcOf(CVQCRC::CRC16_CCITT_REFLECTED, std::string(1, '\0')));
}

TEST(CVQCRC, Kept_TheStartOfTheWideTypeIsTheFinishedZero) {  // id: crc-finished-start
    EXPECT_EQ(0u, CVQCRC(CVQCRC::CRC32).getCRC());
    EXPECT_EQ(0xD202EF8Du, crcOf(CVQCRC::CRC32, std::string(1, '\0'))) << "the register started with all ones";
}

TEST(CVQCRC, AddsBytesInAnyPieces) {
    std::string text;
    for (int i = 0; i < 700; ++i)
        text += static_cast<char>(i * 7 + i / 13);
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
    for (const CVQCRC::eType type : kTypes) {
        SCOPED_TRACE(type);
        const unsigned whole = crcOf(type, text);
        CVQCRC single(type);
        for (const char byte : text)
            single.addByte(static_cast<unsigned char>(byte));
        EXPECT_EQ(whole, single.getCRC());
        for (std::size_t cut = 0; cut <= text.size(); cut += 3) {
            CVQCRC pieces(type);
            pieces.addBytes(bytes, cut);
            pieces.addBytes(bytes + cut, text.size() - cut);
            ASSERT_EQ(whole, pieces.getCRC()) << cut;
        }
    }
}

TEST(CVQCRC, CopiesTypeAndValueAndGoesOnAlone) {
    CVQCRC first(CVQCRC::CRC32);
    first.addByte('1');
    CVQCRC second(first);
    CVQCRC third;
    third = first;
    first.addByte('x');
    for (CVQCRC* copy : {&second, &third}) {
        EXPECT_EQ(32u, copy->getWidth());
        copy->addBytes(reinterpret_cast<const unsigned char*>("23456789"), 8);
        EXPECT_EQ(0xCBF43926u, copy->getCRC());
    }
}

// Misuse and hostile use

TEST(CVQCRC, ReportsANullPointerAndChangesNothing) {
    AssertionLog log;
    for (const CVQCRC::eType type : kTypes) {
        CVQCRC crc(type);
        crc.addByte('a');
        const unsigned before = crc.getCRC();
        crc.addBytes(nullptr, 5);
        EXPECT_THAT(log.takeSites(), ElementsAre("CVQCRC:108"));
        crc.addBytes(nullptr, 0);
        EXPECT_THAT(log.takeSites(), ElementsAre("CVQCRC:108"));
        EXPECT_EQ(before, crc.getCRC());
    }
}

TEST(CVQCRC, AddsNothingForNoBytes) {
    for (const CVQCRC::eType type : kTypes) {
        CVQCRC crc(type);
        crc.addBytes(reinterpret_cast<const unsigned char*>(""), 0);
        EXPECT_EQ(crc.getInitialValue(), crc.getCRC());
    }
}

const unsigned sCrcBeforeMain = crcOf(CVQCRC::CRC32, std::string(500, 'm'));

TEST(CVQCRC, WorksBeforeMain) {
    EXPECT_EQ(crcOf(CVQCRC::CRC32, std::string(500, 'm')), sCrcBeforeMain);
    const std::string bytes(500, 'm');
    EXPECT_EQ(~plainCRC(1, 0xFFFFFFFF, reinterpret_cast<const unsigned char*>(bytes.data()), 500), sCrcBeforeMain);
}

// Each pass that this machine can run

struct CrcPasses {
    const char* name;
    const VQCRC::SPasses* passes;
    std::size_t least;
};

void PrintTo(const CrcPasses& passes, std::ostream* stream) {
    *stream << passes.name;
}

constexpr VQCRC::SPasses kPassesWithTables = VQCRC::kPassesOf<VQCRC::TTablePass>;

std::vector<CrcPasses> allCrcPasses() {
    std::vector<CrcPasses> all{{"WithTables", &kPassesWithTables, 0}};
#if defined(__x86_64__)
    if (__builtin_cpu_supports("pclmul") != 0 && __builtin_cpu_supports("sse4.1") != 0)
        all.push_back({"OfOneBlock", &VQCRC::kPassesPCLMUL, VQCRC::kLeast});
    if (__builtin_cpu_supports("vpclmulqdq") != 0 && __builtin_cpu_supports("avx2") != 0)
        all.push_back({"OfTwoBlocks", &VQCRC::kPassesVPCLMUL256, VQCRC::kLeast});
    if (__builtin_cpu_supports("vpclmulqdq") != 0 && __builtin_cpu_supports("avx512bw") != 0 &&
        __builtin_cpu_supports("avx512vl") != 0)
        all.push_back({"OfFourBlocks", &VQCRC::kPassesVPCLMUL, VQCRC::kLeast});
#endif
    return all;
}

class VQCRCPasses : public testing::TestWithParam<CrcPasses> {
protected:
    void expectSame(const unsigned char* bytes, std::size_t count) {
        for (unsigned type = 0; type < 4; ++type) {
            const unsigned start = static_cast<unsigned>(random()) & (0xFFFFFFFFU >> (32 - kPlain[type].width));
            ASSERT_EQ(plainCRC(type, start, bytes, count), GetParam().passes->add[type](start, bytes, count))
                << "type " << type << ", " << count << " bytes, start " << start;
        }
    }

    std::vector<unsigned char> someBytes(std::size_t count) {
        std::vector<unsigned char> bytes(count);
        for (unsigned char& byte : bytes)
            byte = static_cast<unsigned char>(random());
        return bytes;
    }

    std::mt19937 random{19610101};
};

TEST_P(VQCRCPasses, TakeAllLengthsAroundBlocksVectorsAndStrides) {
    for (std::size_t count = GetParam().least; count <= 1100; ++count) {
        const std::vector<unsigned char> bytes = someBytes(count);  // a block of just this size, for the sanitizer
        expectSame(bytes.data(), count);
    }
}

TEST_P(VQCRCPasses, TakeAllAlignments) {
    const std::vector<unsigned char> bytes = someBytes(700);
    for (std::size_t begin = 0; begin < 64; ++begin) {
        for (const std::size_t count : {16u, 17u, 63u, 64u, 65u, 127u, 255u, 256u, 300u, 511u, 600u})
            expectSame(bytes.data() + begin, count);
    }
}

TEST_P(VQCRCPasses, TellEveryFlippedBit) {
    std::vector<unsigned char> bytes = someBytes(333);
    for (unsigned type = 0; type < 4; ++type) {
        const auto add = GetParam().passes->add[type];
        const unsigned before = add(0, bytes.data(), bytes.size());
        for (std::size_t bit = 0; bit < bytes.size() * 8; ++bit) {
            bytes[bit / 8] ^= static_cast<unsigned char>(1 << bit % 8);
            const unsigned after = add(0, bytes.data(), bytes.size());
            ASSERT_EQ(plainCRC(type, 0, bytes.data(), bytes.size()), after) << bit;
            ASSERT_NE(before, after) << bit;
            bytes[bit / 8] ^= static_cast<unsigned char>(1 << bit % 8);
        }
    }
}

TEST_P(VQCRCPasses, ReadNothingOutsideTheirBytes) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    auto* const pages =
        static_cast<unsigned char*>(mmap(nullptr, 3 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(MAP_FAILED, static_cast<void*>(pages));
    ASSERT_EQ(0, mprotect(pages + page, page, PROT_READ | PROT_WRITE));
    const std::vector<unsigned char> bytes = someBytes(page);
    std::memcpy(pages + page, bytes.data(), page);
    for (std::size_t count = GetParam().least; count <= 600; ++count) {
        expectSame(pages + page, count);
        expectSame(pages + 2 * page - count, count);
    }
    munmap(pages, 3 * page);
}

TEST_P(VQCRCPasses, TakeMuchAtOnce) {
    const std::vector<unsigned char> bytes = someBytes(1000003);
    expectSame(bytes.data(), bytes.size());
}

INSTANTIATE_TEST_SUITE_P(OnThisMachine, VQCRCPasses, testing::ValuesIn(allCrcPasses()),
                         [](const auto& tested) { return tested.param.name; });

}  // namespace
