// Concerns: the bytes of samples and blocks; what a reader finds in whole, flipped, cut and foreign bytes; the files of a
// folder; who owns a service's file.
#include "Recordings.h"
#include "shared/CServiceFile.h"
#include "shared/Folder.h"
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <CVQCRC.h>
#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace recordings;
using namespace support;
using testing::ElementsAre;

TEST(SSample, TravelsAsStated) {
    CVQByteStream stream;
    stream << makeSample(0x0102030405060708ULL, -2, "ab", SSample::COUNTER, "%");
    const unsigned char expected[] = {8, 7, 6, 5, 4,   3,   2,    1,    2,    0,    0,    0,    'a',  'b',
                                      1, 0, 0, 0, '%', 'c', 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    EXPECT_EQ(std::string(std::begin(expected), std::end(expected)), toString(stream));
    SSample back;
    ASSERT_TRUE(readSample(stream, back));
    EXPECT_EQ(0x0102030405060708ULL, back.time.getMicroseconds());
    EXPECT_STREQ("ab", back.series.c_str());
    EXPECT_STREQ("%", back.unit.c_str());
    EXPECT_EQ('c', back.kind);
    EXPECT_EQ(-2, back.thousandths);
}

TEST(SSample, IsNoneWhenItIsCutAnywhere) {
    CVQByteStream whole;
    whole << makeSample(1, 2);
    for (unsigned length = 0; length < whole.getLength(); ++length) {
        SCOPED_TRACE(length);
        CVQByteStream cut;
        cut.write(whole.getData(), length);
        SSample sample;
        EXPECT_FALSE(readSample(cut, sample));
    }
}

TEST(SSample, IsNoneWithOtherTextsOrKinds) {
    const std::string longest(SSample::kLongestText, 'n');
    const struct {
        int line;
        std::string name;
        std::string unit;
        char kind;
        bool isGood;
    } rows[] = {
        {__LINE__, longest, "B", 'g', true},
        {__LINE__, longest + "n", "B", 'g', false},
        {__LINE__, "", "B", 'g', false},
        {__LINE__, "a", "", 'g', false},
        {__LINE__, "a b", "B", 'g', false},
        {__LINE__, "a\033[2J", "B", 'g', false},
        {__LINE__, "Grüße", "B", 'g', true},
        {__LINE__, "a", "B", 'x', false},
        {__LINE__, "a\x7f", "B", 'g', false},
        {__LINE__, "a", "\t", 'c', false},
        {__LINE__, std::string("a\0b", 3), "B", 'g', false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        CVQByteStream stream;
        stream << 1ULL << static_cast<unsigned>(row.name.size());
        stream.write(row.name.data(), row.name.size());
        stream << static_cast<unsigned>(row.unit.size());
        stream.write(row.unit.data(), row.unit.size());
        stream.write(&row.kind, 1);
        stream << 1ULL;
        SSample sample;
        EXPECT_EQ(row.isGood, readSample(stream, sample));
    }
}

TEST(SSample, AsksForNoMemoryForALengthThatIsNotThere) {
    CVQByteStream stream;
    stream << 1ULL << 0xFFFFFFF0U;
    SSample sample;
    EXPECT_FALSE(readSample(stream, sample));
}

TEST(SBlock, TravelsAsStated) {
    CVQByteStream body;
    body.write("xyz", 3);
    const std::string bytes = toString(makeBlock(0x0102030405060708ULL, 9, 1, body));
    ASSERT_EQ(SBlock::kHeaderSize + 3U, bytes.size());
    EXPECT_EQ(std::string("SBLK\x08\x07\x06\x05\x04\x03\x02\x01\x09\0\0\0\x01\0\0\0\x03\0\0\0", 24),
              bytes.substr(0, 24));
    CVQCRC crc(CVQCRC::CRC32);
    crc.addBytes(reinterpret_cast<const unsigned char*>("xyz"), 3);
    CVQByteStream crcs;
    crcs << crc.getCRC();
    crc.clearCRC();
    crc.addBytes(reinterpret_cast<const unsigned char*>(bytes.data()), 28);
    crcs << crc.getCRC();
    EXPECT_EQ(toString(crcs) + "xyz", bytes.substr(24));
}

TEST(SBlock, HoldsTheSamplesThatItsHeaderAnnounces) {
    CVQByteStream body;
    body << makeSample(1, 1) << makeSample(2, 2);
    for (const unsigned announced : {1U, 2U, 3U}) {
        SCOPED_TRACE(announced);
        const std::string bytes = toString(makeBlock(kSampler, 1, announced, body));
        CBlockReader reader = readerOf(bytes);
        ASSERT_EQ(CBlockReader::BLOCK, reader.next());
        TVQVector<SSample> samples;
        EXPECT_EQ(announced == 2, readSamples(reader.getBlock(), samples));
    }
}

TEST(CBlockReader, FindsBlocksInTheirOrder) {
    EXPECT_THAT(read(""), ElementsAre());
    EXPECT_THAT(read(blocks(3)), ElementsAre(1, 2, 3));
    const std::string bytes = blocks(2);
    CBlockReader reader = readerOf(bytes);
    EXPECT_EQ(CBlockReader::BLOCK, reader.next());
    EXPECT_EQ(0u, reader.getOffset());
    EXPECT_EQ(kSampler, reader.getBlock().sampler);
    EXPECT_EQ(1u, reader.getBlock().sampleCount);
    EXPECT_EQ(CBlockReader::BLOCK, reader.next());
    EXPECT_EQ(bytes.size() / 2, reader.getOffset());
    EXPECT_EQ(bytes.size() / 2, reader.getLength());
    EXPECT_EQ(CBlockReader::END, reader.next());
    EXPECT_EQ(CBlockReader::END, reader.next());
}

TEST(CBlockReader, FindsTheBlocksAroundEveryByteThatIsFlipped) {
    const std::string whole = blocks(3);
    const std::size_t size = whole.size() / 3;
    for (std::size_t at = 0; at < whole.size(); ++at) {
        for (int bit = 0; bit < 8; ++bit) {
            std::string bytes = whole;
            bytes[at] = static_cast<char>(bytes[at] ^ (1 << bit));
            std::vector<int> expected = {1, 2, 3};
            expected[at / size] = -1;
            EXPECT_EQ(expected, read(bytes)) << "byte " << at << ", bit " << bit;
        }
    }
}

TEST(CBlockReader, FindsTheBlocksBeforeEveryCut) {
    const std::string whole = blocks(3);
    const std::size_t size = whole.size() / 3;
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        std::vector<int> expected;
        for (std::size_t i = 1; i <= length / size; ++i) {
            expected.push_back(static_cast<int>(i));
        }
        if (length % size != 0) {
            expected.push_back(-2);
        }
        EXPECT_EQ(expected, read(whole.substr(0, length))) << length;
    }
}

TEST(CBlockReader, FindsBlocksBehindAnything) {
    const std::string junk = "SBLKSBLKSBSSBLK of no block, and some more of it: SBL";
    EXPECT_THAT(read(junk + blocks(2)), ElementsAre(-1, 1, 2));
    EXPECT_THAT(read(block(1) + junk + block(2)), ElementsAre(1, -1, 2));
    EXPECT_THAT(read(block(1) + junk), ElementsAre(1, -1));
    EXPECT_THAT(read(block(1).substr(1) + block(2)), ElementsAre(-1, 2)) << "a beginning that is missing";
}

TEST(CBlockReader, BelievesNoSizeBeyondTheLargest) {
    CVQByteStream header;
    header << SBlock::kMagic << kSampler << 1U << 1U << 0xFFFFFFFFU << 0U;
    CVQCRC crc(CVQCRC::CRC32);
    crc.addBytes(header.getData(), header.getLength());
    header << crc.getCRC();
    EXPECT_THAT(read(toString(header) + block(7)), ElementsAre(-1, 7));
}

TEST(Folder, ListsTheRecordingsFilesAlone) {
    const TemporaryFolder folder;
    for (const char* name : {"00000010.rec", "00000002.rec", "0000003.rec", "000000004.rec", "00000005.rec.bak",
                             "00000006", "recorder", "+0000007.rec", "00000000.rec"}) {
        folder.write(name, "");
    }
    TVQVector<unsigned> numbers;
    ASSERT_TRUE(Folder::listFiles(folder.path().c_str(), numbers));
    EXPECT_THAT(std::vector<unsigned>(numbers.begin(), numbers.end()), ElementsAre(2, 10));
    EXPECT_FALSE(Folder::listFiles((folder / "missing").c_str(), numbers));
    EXPECT_EQ(ENOENT, errno);
}

TEST(Folder, LoadsWholeFiles) {
    const TemporaryFolder folder;
    CVQRCMemoryBuffer bytes;
    ASSERT_TRUE(Folder::load(folder.write("empty", "").c_str(), bytes));
    EXPECT_EQ(0u, bytes.getSize());
    ASSERT_TRUE(Folder::load(folder.write("file", "abc").c_str(), bytes));
    EXPECT_EQ("abc", std::string(reinterpret_cast<const char*>(bytes.getData()), bytes.getSize()));
    EXPECT_FALSE(Folder::load((folder / "missing").c_str(), bytes));
    EXPECT_EQ(ENOENT, errno);
}

TEST(CServiceFile, IsOwnedByOneProcess) {
    const TemporaryFolder folder;
    const CVQPath path((folder / "service").c_str());
    CServiceFile file;
    ASSERT_TRUE(file.own(path));
    EXPECT_STREQ("", file.read().c_str());
    ASSERT_TRUE(file.write("first line"));
    const ChildResult other = runInChild([&] {
        CServiceFile second;
        EXPECT_FALSE(second.own(path));
        EXPECT_TRUE(errno == EAGAIN || errno == EACCES);
        EXPECT_STREQ("first line", CServiceFile::readLine(path).c_str());
    });
    EXPECT_TRUE(other.exitedWith(0)) << other;
    ASSERT_TRUE(file.write("second"));
    EXPECT_STREQ("second", file.read().c_str());
}

TEST(CServiceFile, IsLeftToTheNextWithItsLine) {
    const TemporaryFolder folder;
    const CVQPath path((folder / "service").c_str());
    const ChildResult killed = runInChild([&] {
        CServiceFile file;
        file.own(path);
        file.write("of the killed");
        raise(SIGKILL);
    });
    EXPECT_TRUE(killed.killedBy(SIGKILL)) << killed;
    CServiceFile file;
    ASSERT_TRUE(file.own(path));
    EXPECT_STREQ("of the killed", file.read().c_str());
    EXPECT_STREQ("", CServiceFile::readLine((folder / "missing").c_str()).c_str());
}

}  // namespace
