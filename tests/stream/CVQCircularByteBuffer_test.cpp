// Concerns: reads and writes around the physical end, their flags; each pointer rule in every position of a small
// buffer; copies that share bytes, and their reports; texts and dumps to the character; both stream forms, whole
// and cut off; search for strings; every way to be invalid, in the log and on standard output; hostile streams,
// sizes and arguments.
#include "stream/CircularModel.h"
#include "stream/Streams.h"
#include "support/AssertionLog.h"
#include "support/ChildProcess.h"
#include "support/Sanitizers.h"

#include <CVQByteStream.h>
#include <CVQCircularByteBuffer.h>
#include <CVQString.h>

#include <climits>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <random>
#include <string>
#include <sys/resource.h>

namespace {

using support::AssertionLog;
using support::SlogCapture;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kCopySite = "CVQRCMemoryBuffer:264";

unsigned write(CVQCircularByteBuffer& buffer, const std::string& text) {
    return buffer.write(text.data(), text.size());
}

std::string read(CVQCircularByteBuffer& buffer, std::size_t count) {
    std::string text(count, '#');
    text.resize(buffer.read(text.data(), count));
    return text;
}

Bytes formOf(const CVQCircularByteBuffer& buffer) {
    Sink sink;
    sink << buffer;
    return sink.bytes;
}

/// The content of a valid buffer, without moving anything.
std::string contentOf(const CVQCircularByteBuffer& buffer) {
    const Bytes form = formOf(buffer);
    return std::string(form.begin() + 4, form.end());
}

std::string invalidLine(const std::string& operation, const std::string& text) {
    const std::string head = "[CVQCircularByteBuffer::" + operation + ":";
    const std::size_t at = text.find(head);
    if (at == std::string::npos)
        return text;
    const std::size_t number = text.find_first_not_of("0123456789", at + head.size());
    return text.substr(number);
}

// The edge cases

TEST(CVQCircularByteBuffer, RefusesEveryWriteAfterOneOverflowUntilItIsReset) {
    CVQCircularByteBuffer buffer(4);
    EXPECT_EQ(4u, write(buffer, "abcd"));
    EXPECT_EQ(0u, buffer.getFlags());
    EXPECT_EQ(0u, write(buffer, "e"));
    EXPECT_EQ(CVQCircularByteBuffer::WRITE_OVERFLOW, buffer.getFlags());
    EXPECT_EQ("ab", read(buffer, 2));
    EXPECT_EQ(0u, write(buffer, "e"));
    buffer.reset();
    EXPECT_EQ(1u, write(buffer, "e"));
    EXPECT_EQ("e", contentOf(buffer));
}

TEST(CVQCircularByteBuffer, Kept_AReadOfNoBytesFromAnEmptyBufferIsAnUnderflow) {  // id: circular-empty-read
    CVQCircularByteBuffer buffer(4);
    EXPECT_EQ("", read(buffer, 0));
    EXPECT_EQ(CVQCircularByteBuffer::READ_UNDERFLOW, buffer.getFlags());
    write(buffer, "ab");
    EXPECT_EQ("", read(buffer, 1)) << "refused until the reset";
    CVQCircularByteBuffer filled(4);
    write(filled, "ab");
    EXPECT_EQ("", read(filled, 0));
    EXPECT_EQ(0u, filled.getFlags());
}

TEST(CVQCircularByteBuffer, WrapsAndIsWrittenToAStreamInOrderByTwoWrites) {
    CVQCircularByteBuffer buffer(4);
    EXPECT_EQ(3u, write(buffer, "abc"));
    EXPECT_EQ("abc", read(buffer, 3));
    EXPECT_EQ(3u, write(buffer, "def"));
    EXPECT_EQ(3u, buffer.size());
    Sink sink;
    sink << buffer;
    EXPECT_THAT(sink.bytes, ElementsAre(3, 0, 0, 0, 'd', 'e', 'f'));
    EXPECT_THAT(sink.calls, ElementsAre("4", "2", "1"));
}

TEST(CVQCircularByteBuffer, Kept_ASerializedStringWithoutRoomForItsLengthCountsAsWhole) {
    // id: circular-serialize-wraps
    CVQCircularByteBuffer buffer(6);
    write(buffer, "1234");
    EXPECT_EQ(2u, buffer.getFreeSize());
    EXPECT_EQ(5u, buffer.serializeString("hello"));
    EXPECT_EQ(6u, buffer.size());
    EXPECT_EQ(CVQCircularByteBuffer::WRITE_OVERFLOW, buffer.getFlags());
    EXPECT_EQ(std::string("1234\5\0", 6), contentOf(buffer));
}

TEST(CVQCircularByteBuffer, Kept_TwoInvalidBuffersAreEqual) {  // id: circular-equal-invalid
    SlogCapture log;
    CVQCircularByteBuffer first(4), second(8), empty(4);
    Source allOnes({0xFF, 0xFF, 0xFF, 0xFF}), again({0xFF, 0xFF, 0xFF, 0xFF});
    allOnes >> first;
    again >> second;
    EXPECT_TRUE(first == second);
    EXPECT_FALSE(first != second);
    EXPECT_TRUE(first == first);
    EXPECT_FALSE(first == empty);
    EXPECT_TRUE(empty == first) << "of which the size is 0";
}

// Each stated behaviour

TEST(CVQCircularByteBuffer, StartsEmptyWithItsCapacityFree) {
    const CVQCircularByteBuffer buffer(10);
    EXPECT_EQ(10u, buffer.getCapacity());
    EXPECT_EQ(10u, buffer.getFreeSize());
    EXPECT_EQ(0u, buffer.size());
    EXPECT_EQ(0u, buffer.getFlags());
    EXPECT_FALSE(buffer.isInvalid());
    EXPECT_EQ(11, buffer.getPhysEnd() - buffer.getPhysBegin());
    EXPECT_EQ(buffer.getPhysBegin(), buffer.getLogicBegin());
    EXPECT_EQ(buffer.getPhysBegin(), buffer.getLogicEnd());
}

TEST(CVQCircularByteBuffer, IsAStreamInBothDirections) {
    CVQCircularByteBuffer buffer(100);
    IVQIOStream& stream = buffer;
    stream << 7U << CVQString("text") << 8ULL;
    unsigned number = 0;
    CVQString text;
    unsigned long long wide = 0;
    stream >> number >> text >> wide;
    EXPECT_EQ(7u, number);
    EXPECT_EQ(CVQString("text"), text);
    EXPECT_EQ(8u, wide);
    EXPECT_TRUE(stream.waitToRead(0));
    EXPECT_TRUE(stream.waitToWrite(0));
    stream.ready();
    stream.flush();
    EXPECT_EQ(0u, buffer.size());
    EXPECT_EQ(0u, buffer.getFlags());
    EXPECT_NE(nullptr, dynamic_cast<CVQCircularByteBuffer*>(&stream));
}

TEST(CVQCircularByteBuffer, AWrappedWriteThatFillsItExactlyIsNoOverflow) {
    CVQCircularByteBuffer buffer(4);
    write(buffer, "abcd");
    read(buffer, 3);
    EXPECT_EQ(3u, write(buffer, "efg"));
    EXPECT_EQ(0u, buffer.getFlags());
    EXPECT_EQ(0u, buffer.getFreeSize());
    EXPECT_EQ("defg", contentOf(buffer));
    EXPECT_EQ(0u, write(buffer, "h"));
    EXPECT_EQ(2u, buffer.getFlags());
    EXPECT_EQ("defg", read(buffer, 4));
    EXPECT_EQ(2u, buffer.getFlags());
}

TEST(CVQCircularByteBuffer, TakesAndDeliversWhatItCanAndSetsTheFlag) {
    CVQCircularByteBuffer buffer(4);
    EXPECT_EQ(4u, write(buffer, "abcdef"));
    EXPECT_EQ(2u, buffer.getFlags());
    EXPECT_EQ("abcd", read(buffer, 6));
    EXPECT_EQ(3u, buffer.getFlags());
}

TEST(CVQCircularByteBuffer, FollowsTheRulesFromEveryPositionByEveryDistance) {
    for (const int capacity : {1, 2, 5}) {
        PlacedBuffer buffer(static_cast<std::size_t>(capacity));
        CircularModel model(static_cast<std::size_t>(capacity));
        const int extent = capacity + 1;
        for (int begin = 0; begin <= extent; ++begin) {
            for (int end = 0; end <= extent; ++end) {
                const auto place = [&] {
                    buffer.place(begin, end);
                    model.place(begin, end);
                };
                const auto expectSame = [&](int count) {
                    ASSERT_EQ(model.begin(), buffer.m_logicBegin - buffer.m_physBegin)
                        << begin << ' ' << end << ' ' << count;
                    ASSERT_EQ(model.end(), buffer.m_logicEnd - buffer.m_physBegin)
                        << begin << ' ' << end << ' ' << count;
                    ASSERT_EQ(model.flags(), buffer.getFlags()) << begin << ' ' << end << ' ' << count;
                    ASSERT_EQ(model.size(), buffer.size());
                    ASSERT_EQ(Bytes(buffer.m_physBegin, buffer.m_physEnd), model.storage());
                    ASSERT_EQ(model.output(), formOf(buffer));
                };
                for (const int far : {-INT_MAX - 1, -INT_MAX, INT_MAX, 3 * extent, -3 * extent}) {
                    place();
                    ASSERT_EQ(model.moveBegin(far), buffer.moveRelativeBegin(far));
                    expectSame(far);
                    place();
                    ASSERT_EQ(model.moveEnd(far), buffer.moveRelativeEnd(far));
                    expectSame(far);
                }
                for (int count = -2 * extent - 1; count <= 2 * extent + 1; ++count) {
                    place();
                    ASSERT_EQ(model.moveBegin(count), buffer.moveRelativeBegin(count)) << begin << ' ' << end;
                    expectSame(count);
                    place();
                    ASSERT_EQ(model.moveEnd(count), buffer.moveRelativeEnd(count)) << begin << ' ' << end;
                    expectSame(count);
                    if (count < 0)
                        continue;
                    const auto size = static_cast<std::size_t>(count);
                    place();
                    ASSERT_EQ(model.setSize(size), buffer.setSize(size)) << begin << ' ' << end;
                    expectSame(count);
                    place();
                    const Bytes bytes(size, static_cast<unsigned char>(begin * 16 + end));
                    ASSERT_EQ(model.write(bytes), buffer.write(bytes.data(), size));
                    expectSame(count);
                    place();
                    Bytes target(size);
                    const Bytes expected = model.read(size);
                    target.resize(buffer.read(target.data(), size));
                    ASSERT_EQ(expected, target) << begin << ' ' << end;
                    expectSame(count);
                }
            }
        }
    }
}

TEST(CVQCircularByteBuffer, AgreesWithItsModelAfterRandomOperations) {
    std::mt19937 random{7};
    for (const std::size_t capacity : {0u, 1u, 4u, 33u}) {
        CircularOperations operations(capacity, [&](std::size_t limit) { return random() % limit; });
        for (int i = 0; i < 20000; ++i)
            ASSERT_EQ("", operations.step()) << i;
    }
}

TEST(CVQCircularByteBuffer, MovesTheBeginToDropAndToGiveBackBytes) {
    CVQCircularByteBuffer buffer(6);
    write(buffer, "abcdef");
    EXPECT_TRUE(buffer.moveRelativeBegin(4));
    EXPECT_EQ("ef", contentOf(buffer));
    EXPECT_TRUE(buffer.moveRelativeBegin(-3));
    EXPECT_EQ("bcdef", contentOf(buffer));
    EXPECT_FALSE(buffer.moveRelativeBegin(6));
    EXPECT_EQ(1u, buffer.getFlags());
    EXPECT_FALSE(buffer.moveRelativeBegin(1)) << "refused while the flag is set";
    EXPECT_EQ("bcdef", contentOf(buffer));
}

TEST(CVQCircularByteBuffer, MovesTheEndToCutAndToUncoverBytes) {
    CVQCircularByteBuffer buffer(6);
    write(buffer, "abcdef");
    EXPECT_TRUE(buffer.moveRelativeEnd(-4));
    EXPECT_EQ("ab", contentOf(buffer));
    EXPECT_TRUE(buffer.moveRelativeEnd(2));
    EXPECT_EQ("abcd", contentOf(buffer));
    EXPECT_FALSE(buffer.moveRelativeEnd(-5));
    EXPECT_EQ(2u, buffer.getFlags());
    EXPECT_FALSE(buffer.moveRelativeEnd(0)) << "refused while the flag is set";
}

TEST(CVQCircularByteBuffer, Kept_MovingTheBeginOfAnEmptyBufferForwardUncoversOldBytes) {
    // id: circular-begin-unchecked
    CVQCircularByteBuffer buffer(4);
    write(buffer, "abcd");
    read(buffer, 4);
    EXPECT_EQ(0u, buffer.size());
    EXPECT_TRUE(buffer.moveRelativeBegin(1));
    EXPECT_EQ(4u, buffer.size());
    EXPECT_EQ("abcd", contentOf(buffer));
    EXPECT_EQ(0u, buffer.getFlags());
}

TEST(CVQCircularByteBuffer, Kept_AWrappedEndCannotBeMovedBackOverThePhysicalBegin) {  // id: circular-end-asymmetry
    PlacedBuffer buffer(4);
    buffer.place(3, 1);
    EXPECT_TRUE(buffer.moveRelativeEnd(-1));
    buffer.place(3, 1);
    EXPECT_FALSE(buffer.moveRelativeEnd(-2)) << "though the bytes are there";
    EXPECT_EQ(2u, buffer.getFlags());
    buffer.place(3, 0);
    EXPECT_TRUE(buffer.moveRelativeEnd(1));
    EXPECT_FALSE(buffer.moveRelativeEnd(1)) << "nor forward so that it is full";
    buffer.place(3, 1);
    EXPECT_EQ(1u, buffer.write("x", 1)) << "a write may fill it";
}

TEST(CVQCircularByteBuffer, Kept_ASetSizeThatFailsLeavesTheOverflowAsTheOnlyFlag) {  // id: circular-setsize-flags
    CVQCircularByteBuffer buffer(4);
    write(buffer, "ab");
    read(buffer, 3);
    EXPECT_EQ(1u, buffer.getFlags());
    buffer.reset();
    write(buffer, "ab");
    read(buffer, 1);
    EXPECT_FALSE(buffer.setSize(3));
    EXPECT_EQ(2u, buffer.getFlags());
    CVQCircularByteBuffer flagged(4);
    write(flagged, "ab");
    EXPECT_FALSE(flagged.moveRelativeBegin(3));
    EXPECT_EQ(1u, flagged.getFlags());
    EXPECT_FALSE(flagged.setSize(3));
    EXPECT_EQ(2u, flagged.getFlags()) << "the underflow is forgotten";
    EXPECT_TRUE(flagged.setSize(1));
    EXPECT_EQ("a", contentOf(flagged));
}

TEST(CVQCircularByteBuffer, Kept_SetSizeOfAnEmptyBufferUncoversUpToOneByteMoreThanItsCapacity) {
    // id: circular-setsize-grows
    CVQCircularByteBuffer buffer(4);
    EXPECT_TRUE(buffer.setSize(5));
    EXPECT_EQ(5u, buffer.size());
    EXPECT_EQ(0u, buffer.getFreeSize());
    EXPECT_EQ(std::string(5, '\0'), contentOf(buffer)) << "nothing off the heap";
    EXPECT_EQ(0u, write(buffer, "x"));
    EXPECT_EQ(2u, buffer.getFlags());
    EXPECT_EQ(std::string(5, '\0'), read(buffer, 5));
    buffer.reset();
    EXPECT_FALSE(buffer.setSize(6));
    EXPECT_FALSE(buffer.setSize(~std::size_t{0}));
}

TEST(CVQCircularByteBuffer, Kept_CopiesShareBytesAndHavePositionsOfTheirOwn) {  // id: circular-copy-shares
    AssertionLog log;
    CVQCircularByteBuffer buffer(6);
    write(buffer, "abcd");
    EXPECT_EQ("a", read(buffer, 1));
    EXPECT_EQ("bcd", read(buffer, 4));
    EXPECT_EQ(1u, buffer.getFlags());
    write(buffer, "efg");
    CVQCircularByteBuffer copy(buffer);
    EXPECT_THAT(log.takeSites(), ElementsAre(kCopySite));
    EXPECT_EQ(0u, copy.getFlags());
    EXPECT_EQ(buffer.getPhysBegin(), copy.getPhysBegin());
    EXPECT_EQ("efg", read(copy, 3));
    EXPECT_EQ(3u, buffer.size());
    EXPECT_EQ(1u, write(copy, "H"));
    EXPECT_EQ('H', *(buffer.getPhysBegin() + 0));

    CVQCircularByteBuffer assigned(1);
    assigned = buffer;
    EXPECT_THAT(log.takeSites(), ElementsAre(kCopySite));
    EXPECT_EQ(6u, assigned.getCapacity());
    EXPECT_EQ("efg", contentOf(assigned));
    EXPECT_EQ(0u, assigned.getFlags());

    CVQCircularByteBuffer& itself = assigned;
    assigned = itself;
    EXPECT_EQ("efg", contentOf(assigned));
    EXPECT_THAT(log.takeSites(), IsEmpty());
}

TEST(CVQCircularByteBuffer, ACopyOutlivesItsOriginal) {
    AssertionLog log;
    auto* const buffer = new CVQCircularByteBuffer(6);
    write(*buffer, "abc");
    CVQCircularByteBuffer copy(*buffer);
    delete buffer;
    EXPECT_EQ("abc", read(copy, 3));
    EXPECT_THAT(log.takeSites(), ElementsAre(kCopySite));
}

TEST(CVQCircularByteBuffer, ComparesContentWhereverItLies) {
    for (long long begin = 0; begin <= 5; ++begin) {
        for (long long other = 0; other <= 5; ++other) {
            PlacedBuffer first(5), second(5);
            first.place(begin, begin);
            second.place(other, other);
            write(first, "abcd");
            write(second, "abcd");
            EXPECT_TRUE(first == second) << begin << ' ' << other;
            first.moveRelativeEnd(-1);
            second.moveRelativeEnd(-1);
            for (const char last : {'d', 'e'}) {
                PlacedBuffer changed(5);
                changed.place(other, other);
                write(changed, std::string("ab") + last + "d");
                PlacedBuffer whole(5);
                whole.place(begin, begin);
                write(whole, "abdd");
                EXPECT_EQ(last == 'd', whole == changed) << begin << ' ' << other;
            }
        }
    }
    CVQCircularByteBuffer shorter(5), longer(9);
    write(shorter, "ab");
    write(longer, "abc");
    EXPECT_TRUE(shorter != longer);
    longer.setSize(2);
    EXPECT_TRUE(shorter == longer) << "whatever the capacity";
}

TEST(CVQCircularByteBuffer, MakesTextsFromTheBytesBetweenTwoPositions) {
    PlacedBuffer buffer(7);
    buffer.place(5, 5);
    write(buffer, "abcdef");
    const unsigned char* const begin = buffer.getLogicBegin();
    const unsigned char* const end = buffer.getLogicEnd();
    EXPECT_EQ("abcdef", textOf(buffer.toString(begin, end)));
    EXPECT_EQ("abc", textOf(buffer.toString(begin, buffer.getPhysEnd())));
    EXPECT_EQ("ef", textOf(buffer.toString(buffer.getPhysBegin() + 1, end)));
    EXPECT_EQ("", textOf(buffer.toString(begin, begin)));
    EXPECT_EQ("", textOf(buffer.toString(nullptr, end)));
    EXPECT_EQ("", textOf(buffer.toString(begin, nullptr)));
    EXPECT_EQ("", textOf(buffer.toString(buffer.getPhysBegin() - 1, end)));
    EXPECT_EQ("", textOf(buffer.toString(begin, buffer.getPhysEnd() + 1)));
    EXPECT_EQ("", textOf(CVQCircularByteBuffer::EMPTY_STRING));
    EXPECT_EQ(6u, buffer.size());
}

TEST(CVQCircularByteBuffer, DumpsALineOf76Characters) {
    AssertionLog log;
    CVQCircularByteBuffer buffer(40);
    write(buffer, std::string("\0\x1F ~\x7F\x80\xFF", 7) + "0123456789abcdef");
    EXPECT_EQ("0:        00 1F 20 7E 7F 80 FF 30 31 32 33 34 35 36 37 38   .. ~\x7F..012345678",
              textOf(buffer.dumpLine(0)));
    EXPECT_EQ("10:       39 61 62 63 64 65 66 " + std::string(9 * 3 + 2, ' ') + "9abcdef" + std::string(9, ' '),
              textOf(buffer.dumpLine(16)));
    EXPECT_EQ(76u, buffer.dumpLine(16).getByteLength());
    EXPECT_EQ("17:      " + std::string(67, ' '), textOf(buffer.dumpLine(23)));
    EXPECT_THAT(log.takeSites(), ElementsAre(kCopySite, kCopySite, kCopySite, kCopySite)) << "one for each copy";
    EXPECT_EQ("", textOf(buffer.dumpLine(24)));
    EXPECT_EQ("", textOf(buffer.dumpLine(0xFFFFFFFF)));
    EXPECT_THAT(log.takeSites(), ElementsAre(kCopySite, kCopySite));
    EXPECT_EQ(23u, buffer.size());
    EXPECT_EQ(0u, buffer.getFlags());
}

TEST(CVQCircularByteBuffer, DumpsALineWhereverItsBeginningCanBeMoved) {
    AssertionLog log;
    PlacedBuffer buffer(4);
    write(buffer, "abcd");
    EXPECT_EQ("abcd", read(buffer, 4));
    EXPECT_EQ("0:       " + std::string(67, ' '), textOf(buffer.dumpLine(0)));
    EXPECT_EQ("1:        61 62 63 64 " + std::string(12 * 3 + 2, ' ') + "abcd" + std::string(12, ' '),
              textOf(buffer.dumpLine(1)))
        << "uncovered as by moveRelativeBegin";
    EXPECT_EQ("", textOf(buffer.dumpLine(6)));
    buffer.place(3, 1);
    EXPECT_EQ("2:        61 " + std::string(15 * 3 + 2, ' ') + "a" + std::string(15, ' '),
              textOf(buffer.dumpLine(2)));
    EXPECT_EQ("3:       " + std::string(67, ' '), textOf(buffer.dumpLine(3)));
    EXPECT_EQ("", textOf(buffer.dumpLine(4)));
    log.takeSites();
}

TEST(CVQCircularByteBuffer, MakesNoTextWithoutMemoryToGatherIt) {
    if (support::kIsSanitized || support::isEmulated())
        GTEST_SKIP() << "the address space cannot be limited here";
    const support::ChildResult result = support::runInChild([] {
        constexpr int kCapacity = 64 << 20;
        PlacedBuffer buffer(kCapacity);
        buffer.place(kCapacity, kCapacity - 1);
        rlimit limit{};
        EXPECT_EQ(0, getrlimit(RLIMIT_AS, &limit));
        limit.rlim_cur = 32 << 20;  // less than there is already: nothing more can be had
        EXPECT_EQ(0, setrlimit(RLIMIT_AS, &limit));
        EXPECT_EQ("", textOf(buffer.toString(buffer.getLogicBegin(), buffer.getLogicEnd())));
        EXPECT_EQ(static_cast<unsigned>(kCapacity), buffer.size());
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(CVQCircularByteBuffer, DumpsSizesPointersAndAllLines) {
    AssertionLog log;
    PlacedBuffer buffer(30);
    buffer.place(25, 25);
    write(buffer, "0123456789ABCDEFGHIJ");
    char header[512];
    std::snprintf(header, sizeof header,
                  "CVQCircularByteBuffer: size = 20, free size = 10\nphys  begin = 0x%p, phys  end = 0x%p\n"
                  "logic begin = 0x%p, logic end = 0x%p\nlogic rel begin = 25, logic rel end = 14\n",
                  static_cast<const void*>(buffer.getPhysBegin()), static_cast<const void*>(buffer.getPhysEnd()),
                  static_cast<const void*>(buffer.getLogicBegin()), static_cast<const void*>(buffer.getLogicEnd()));
    EXPECT_EQ(std::string(header) +
                  "0:        30 31 32 33 34 35 36 37 38 39 41 42 43 44 45 46   0123456789ABCDEF\n"
                  "10:       47 48 49 4A " +
                  std::string(12 * 3 + 2, ' ') + "GHIJ" + std::string(12, ' ') + "\n",
              textOf(buffer.dumpString()));
    EXPECT_THAT(log.takeSites(), ElementsAre(kCopySite, kCopySite));
    buffer.reset();
    EXPECT_THAT(textOf(buffer.dumpString()), HasSubstr("size = 0, free size = 30\n"));
    EXPECT_THAT(log.takeSites(), IsEmpty());
}

TEST(CVQCircularByteBuffer, Kept_ASerializedStringThatIsCutCarriesItsFullLength) {  // id: circular-full-length
    CVQCircularByteBuffer buffer(8);
    EXPECT_EQ(4u, buffer.serializeString("truncated"));
    EXPECT_EQ(std::string("\x09\0\0\0trun", 8), contentOf(buffer));
    EXPECT_EQ(0u, buffer.getFlags());
    CVQCircularByteBuffer roomy(20);
    EXPECT_EQ(9u, roomy.serializeString("truncated"));
    CVQString text;
    roomy >> text;
    EXPECT_EQ(CVQString("truncated"), text);
    EXPECT_EQ(0u, roomy.serializeString(""));
    EXPECT_EQ(4u, roomy.size());
}

TEST(CVQCircularByteBuffer, KnowsTheStringItBeginsWith) {
    AssertionLog log;
    PlacedBuffer buffer(30);
    buffer.place(28, 28);
    buffer.serializeString("needle");
    write(buffer, "rest");
    EXPECT_TRUE(buffer.beginsWith("needle"));
    EXPECT_THAT(log.takeSites(), ElementsAre(kCopySite));
    EXPECT_FALSE(buffer.beginsWith("needlf"));
    EXPECT_FALSE(buffer.beginsWith("needl"));
    EXPECT_FALSE(buffer.beginsWith(""));
    EXPECT_EQ(3u, log.takeSites().size());
    EXPECT_FALSE(buffer.beginsWith("longer than all that is there"));
    EXPECT_THAT(log.takeSites(), IsEmpty()) << "no copy is needed";
    EXPECT_EQ(14u, buffer.size());
    EXPECT_EQ(0u, buffer.getFlags());
    buffer.setSize(9);
    EXPECT_FALSE(buffer.beginsWith("needle")) << "cut off";
    log.takeSites();
    CVQCircularByteBuffer empty(4);
    EXPECT_FALSE(empty.beginsWith(""));
    empty.serializeString("");
    EXPECT_TRUE(empty.beginsWith(""));
    log.takeSites();
}

TEST(CVQCircularByteBuffer, GoesToTheNextStringAndDropsWhatLiesBefore) {
    AssertionLog log;
    CVQCircularByteBuffer buffer(60);
    write(buffer, "noise");
    buffer.serializeString("one");
    buffer.serializeString("two");
    EXPECT_TRUE(buffer.goNextString("two"));
    EXPECT_EQ(std::string("\3\0\0\0two", 7), contentOf(buffer));
    EXPECT_FALSE(buffer.goNextString("three"));
    EXPECT_EQ(4u, buffer.size()) << "fewer bytes than the string has are left alone";
    EXPECT_EQ(0u, buffer.getFlags());
    log.takeSites();
    EXPECT_FALSE(buffer.goNextString("longer"));
    EXPECT_EQ(4u, buffer.size());
    EXPECT_THAT(log.takeSites(), IsEmpty());
}

TEST(CVQCircularByteBuffer, LooksForAnEmptyStringUpToItsEndAndNoFurther) {
    AssertionLog log;
    CVQCircularByteBuffer buffer(20);
    write(buffer, std::string("\1\2\3\0\0\0\0xy", 9));
    EXPECT_TRUE(buffer.goNextString(""));
    EXPECT_EQ(6u, buffer.size());
    buffer.moveRelativeBegin(4);
    EXPECT_FALSE(buffer.goNextString(""));
    EXPECT_EQ(0u, buffer.size());
    EXPECT_EQ(0u, buffer.getFlags());
    log.takeSites();
}

TEST(CVQCircularByteBuffer, AsksForNoMemoryForAStringThatCannotBeThere) {
    AssertionLog log;
    CVQCircularByteBuffer buffer(40);
    write(buffer, std::string("\xFE\xFF\xFF\x7F\xFF\xFF\xFF\xFF", 8) + std::string("\2\0\0\0ok", 6));
    EXPECT_TRUE(buffer.goNextString("ok"));
    EXPECT_EQ(6u, buffer.size());
    log.takeSites();
}

// The stream form

TEST(CVQCircularByteBuffer, StopsAfterAFirstPieceThatWasNotTakenWhole) {
    PlacedBuffer buffer(5);
    buffer.place(4, 4);
    write(buffer, "abcd");
    Sink sink(1);
    sink << buffer;
    EXPECT_THAT(sink.calls, ElementsAre("4", "2"));
    Sink whole;
    whole << buffer;
    EXPECT_THAT(whole.calls, ElementsAre("4", "2", "2"));
}

TEST(CVQCircularByteBuffer, WritesOnePieceWhenNotWrappedAndTwoWhenWrappedHoweverShort) {
    const struct {
        int line;
        int begin;
        int end;
        std::vector<std::string> calls;
    } kRows[] = {
        {__LINE__, 0, 0, {"4", "0"}},      {__LINE__, 3, 3, {"4", "0"}},      {__LINE__, 1, 4, {"4", "3"}},
        {__LINE__, 4, 0, {"4", "2", "0"}}, {__LINE__, 6, 2, {"4", "0", "2"}}, {__LINE__, 6, 0, {"4", "0", "0"}},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        PlacedBuffer buffer(5);
        buffer.place(row.begin, row.end);
        Sink sink;
        sink << buffer;
        EXPECT_EQ(row.calls, sink.calls);
    }
}

TEST(CVQCircularByteBuffer, WritesNothingButTheCountWhenEmptyAndAllOnesWhenInvalid) {
    PlacedBuffer buffer(5);
    Sink empty;
    empty << buffer;
    EXPECT_THAT(empty.bytes, ElementsAre(0, 0, 0, 0));
    buffer.m_logicEnd = nullptr;
    Sink invalid;
    invalid << buffer;
    EXPECT_THAT(invalid.bytes, ElementsAre(0xFF, 0xFF, 0xFF, 0xFF));
    EXPECT_THAT(invalid.calls, ElementsAre("4"));
}

TEST(CVQCircularByteBuffer, ReadsEveryFormAsItsModelCutOffAnywhere) {
    for (const std::size_t capacity : {0u, 1u, 5u, 9u}) {
        for (unsigned count = 0; count <= 12; ++count) {
            Bytes form{static_cast<unsigned char>(count), 0, 0, 0};
            for (unsigned i = 0; i < count + 3; ++i)
                form.push_back(static_cast<unsigned char>('a' + i));
            for (std::size_t length = 0; length <= form.size(); ++length) {
                CircularOperations pair(capacity, nullptr);
                write(pair.buffer(), "old");
                pair.model().write(bytesOf("old"));
                Source source(Bytes(form.begin(), form.begin() + static_cast<std::ptrdiff_t>(length)));
                IVQIStream& stream = source;
                EXPECT_EQ(&stream, &(stream >> pair.buffer()));
                ASSERT_EQ(pair.model().input(source.bytes), source.position) << capacity << count << length;
                ASSERT_EQ("", pair.compare()) << capacity << ' ' << count << ' ' << length;
            }
        }
    }
}

TEST(CVQCircularByteBuffer, TakesTheCountOfAllOnesForAnInvalidBuffer) {
    CVQCircularByteBuffer buffer(5);
    write(buffer, "abcdefg");
    Source source({0xFF, 0xFF, 0xFF, 0xFF, 1, 2});
    source >> buffer;
    EXPECT_EQ(4u, buffer.getFlags());
    EXPECT_TRUE(buffer.isInvalid());
    EXPECT_EQ(4u, source.position);
    buffer.reset();
    EXPECT_FALSE(buffer.isInvalid());
    EXPECT_EQ(2u, write(buffer, "ok"));
}

TEST(CVQCircularByteBuffer, DiscardsTheExcessInPiecesUpToTheFirstShortRead) {
    CVQCircularByteBuffer buffer(100);
    Bytes form{0x88, 0x13, 0, 0};  // 5000
    form.resize(4 + 5000, 'x');
    Source source(form);
    source >> buffer;
    EXPECT_THAT(source.calls, ElementsAre("4", "100", "1024", "1024", "1024", "1024", "804"));
    EXPECT_EQ(100u, buffer.size());
    EXPECT_EQ(2u, buffer.getFlags());

    form.resize(4 + 2000);
    Source shorter(form);
    shorter >> buffer;
    EXPECT_THAT(shorter.calls, ElementsAre("4", "100", "1024", "1024"));
    form.resize(4 + 60);
    Source shortest(form);
    shortest >> buffer;
    EXPECT_THAT(shortest.calls, ElementsAre("4", "100"));
    EXPECT_EQ(60u, buffer.size());
    EXPECT_EQ(0u, buffer.getFlags());
}

// Invalid buffers

TEST(CVQCircularByteBuffer, LogsEveryCallOfAnInvalidBuffer) {
    const support::ChildResult result = support::runInChild([] {
        SlogCapture log;
        PlacedBuffer buffer(4);
        buffer.mFlags = CVQCircularByteBuffer::INVALID;
        const auto expectLine = [&](const char* operation) {
            const auto records = log.records();
            ASSERT_EQ(1u, records.size()) << operation;
            EXPECT_EQ("] invalid buffer", invalidLine(operation, records[0].text)) << operation;
            EXPECT_EQ(2, records[0].severity);
            EXPECT_EQ(10000u, records[0].code);
            EXPECT_EQ(0u, records[0].subCode);
            log.clear();
        };
        EXPECT_EQ(0u, buffer.write("x", 1));
        expectLine("write");
        char byte = 0;
        EXPECT_EQ(0u, buffer.read(&byte, 1));
        expectLine("read");
        EXPECT_FALSE(buffer.moveRelativeBegin(0));
        expectLine("moveRelativeBegin");
        EXPECT_FALSE(buffer.moveRelativeEnd(0));
        expectLine("moveRelativeEnd");
        EXPECT_FALSE(buffer.setSize(0));
        expectLine("setSize");
        EXPECT_EQ(0u, buffer.size());
        expectLine("size");
        EXPECT_EQ(0u, buffer.getFreeSize());
        expectLine("size");
        const CVQCircularByteBuffer other(4);
        EXPECT_FALSE(buffer == other);
        expectLine("operator ==");
        EXPECT_EQ(0u, buffer.getCapacity());
        EXPECT_EQ("", textOf(buffer.toString(buffer.getPhysBegin(), buffer.getPhysEnd())));
        EXPECT_THAT(log.texts(), IsEmpty());
        EXPECT_EQ(4u, buffer.getFlags());
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(CVQCircularByteBuffer, Kept_TheFreeSizeOfAnInvalidBufferIsLoggedInTheNameOfTheSize) {
    // id: circular-freesize-message
    SlogCapture log;
    PlacedBuffer buffer(4);
    buffer.mFlags = CVQCircularByteBuffer::INVALID;
    EXPECT_EQ(0u, buffer.getFreeSize());
    ASSERT_EQ(1u, log.records().size());
    EXPECT_THAT(log.records()[0].text, HasSubstr("[CVQCircularByteBuffer::size:"));
}

TEST(CVQCircularByteBuffer, HasNothingToFindInsertOrDumpWhenItIsInvalid) {
    const support::ChildResult result = support::runInChild([] {
        SlogCapture log;
        PlacedBuffer buffer(40);
        write(buffer, std::string("\2\0\0\0okmore", 10));
        buffer.mFlags = CVQCircularByteBuffer::INVALID;
        const auto expectOperations = [&](const std::vector<std::string>& operations) {
            std::vector<std::string> logged;
            for (const std::string& text : log.texts()) {
                const std::size_t begin = text.find("::") + 2;
                EXPECT_EQ("] invalid buffer", invalidLine(text.substr(begin, text.rfind(':') - begin), text));
                logged.push_back(text.substr(begin, text.rfind(':') - begin));
            }
            EXPECT_EQ(operations, logged);
            log.clear();
        };
        EXPECT_FALSE(buffer.beginsWith("ok"));
        expectOperations({"size"});
        EXPECT_FALSE(buffer.goNextString("ok"));
        expectOperations({"size"});
        EXPECT_EQ(2u, buffer.serializeString("ok")) << "no room for the length, so none is looked for";
        expectOperations({"size", "write", "write"});
        EXPECT_THAT(textOf(buffer.dumpString()), HasSubstr("size = 0, free size = 0\n"));
        EXPECT_THAT(textOf(buffer.dumpString()), HasSubstr("logic rel begin = 0, logic rel end = 10\n"));
        expectOperations({"size", "size", "size", "size"});
        EXPECT_EQ(10, buffer.m_logicEnd - buffer.m_physBegin);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(CVQCircularByteBuffer, CopiesBrokenPointersAsBrokenOnes) {
    void (*const kBends[])(PlacedBuffer & buffer) = {
        [](PlacedBuffer& b) { b.m_physBegin = nullptr; },
        [](PlacedBuffer& b) { b.m_physEnd = nullptr; },
        [](PlacedBuffer& b) { b.m_logicBegin = nullptr; },
        [](PlacedBuffer& b) { b.m_logicEnd = nullptr; },
        [](PlacedBuffer& b) { b.m_physBegin = b.m_logicEnd + 1; },
        [](PlacedBuffer& b) { b.m_physEnd = b.m_physBegin; },
        [](PlacedBuffer& b) { b.m_logicBegin = b.m_physEnd + 1; },
        [](PlacedBuffer& b) { b.m_logicEnd = b.m_physBegin - 1; },
    };
    for (std::size_t i = 0; i < std::size(kBends); ++i) {
        SCOPED_TRACE(i);
        const support::ChildResult result = support::runInChild([&] {
            SlogCapture log;
            PlacedBuffer buffer(8);
            write(buffer, "abcdef");
            kBends[i](buffer);
            const CVQCircularByteBuffer copy(buffer);
            EXPECT_TRUE(copy.isInvalid());
            CVQCircularByteBuffer assigned(4);
            assigned = buffer;
            EXPECT_TRUE(assigned.isInvalid());
            EXPECT_EQ("", textOf(buffer.dumpLine(0)));
            EXPECT_FALSE(buffer.beginsWith(""));
        });
        EXPECT_TRUE(result.exitedWith(0)) << result;
    }
}

TEST(CVQCircularByteBuffer, Kept_ExplainsABrokenBufferInTheLogAndOnStandardOutput) {  // id: circular-explain-twice
    const char* const kTexts[] = {
        "m_physBegin is null",       "m_physEnd is null",           "m_logicBegin is null",
        "m_logicEnd is null",        "m_logicBegin <  m_physBegin", "m_logicBegin >=  m_physEnd",
        "m_logicEnd <  m_physBegin", "m_logicEnd >  m_physEnd",     "m_physBegin == m_physEnd"};
    const std::string kWho = "[CVQCircularByteBuffer::explainError] ";
    const struct {
        int line;
        void (*bend)(PlacedBuffer& buffer);
        bool isInvalid;
        std::vector<int> logged;
        std::vector<int> printed;
    } kRows[] = {
        {__LINE__, [](PlacedBuffer&) {}, false, {}, {}},
        {__LINE__, [](PlacedBuffer& b) { b.m_physBegin = nullptr; }, true, {0}, {0}},
        {__LINE__, [](PlacedBuffer& b) { b.m_physEnd = nullptr; }, true, {1, 5, 7}, {1, 5, 7}},
        {__LINE__, [](PlacedBuffer& b) { b.m_logicBegin = nullptr; }, true, {2, 4}, {2, 4}},
        {__LINE__, [](PlacedBuffer& b) { b.m_logicEnd = nullptr; }, true, {3, 6}, {3, 6}},
        {__LINE__, [](PlacedBuffer& b) { b.m_logicBegin = b.m_physBegin - 1; }, true, {4}, {4}},
        {__LINE__, [](PlacedBuffer& b) { b.m_logicBegin = b.m_physEnd; }, false, {5}, {}},
        {__LINE__, [](PlacedBuffer& b) { b.m_logicBegin = b.m_physEnd + 1; }, true, {5}, {5}},
        {__LINE__, [](PlacedBuffer& b) { b.m_logicEnd = b.m_physBegin - 1; }, true, {6}, {6}},
        {__LINE__, [](PlacedBuffer& b) { b.m_logicEnd = b.m_physEnd; }, false, {}, {}},
        {__LINE__, [](PlacedBuffer& b) { b.m_logicEnd = b.m_physEnd + 1; }, true, {7}, {7}},
        {__LINE__, [](PlacedBuffer& b) { b.m_physEnd = b.m_physBegin; }, true, {5, 8}, {8}},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        const support::ChildResult result = support::runInChild([&] {
            SlogCapture log;
            PlacedBuffer buffer(4);
            row.bend(buffer);
            EXPECT_EQ(row.isInvalid, buffer.isInvalid());
            EXPECT_EQ(row.isInvalid ? 4u : 0u, buffer.getFlags());
            buffer.explainError();
            std::fflush(stdout);
            std::vector<std::string> expected;
            for (const int which : row.logged)
                expected.push_back("pid " + std::to_string(getpid()) + ": " + kWho + kTexts[which]);
            EXPECT_EQ(expected, log.texts());
        });
        EXPECT_TRUE(result.exitedWith(0)) << result;
        std::string printed = kWho + "error occured:\n";
        for (const int which : row.printed)
            printed += kWho + kTexts[which] + "\n";
        EXPECT_EQ(printed, result.out);
    }
}

TEST(CVQCircularByteBuffer, ExplainsItselfWhenItIsWrittenToOrReadFromBroken) {
    for (const bool writes : {true, false}) {
        const support::ChildResult result = support::runInChild([&] {
            SlogCapture log;
            PlacedBuffer buffer(4);
            buffer.m_logicEnd = nullptr;
            char byte = 'x';
            EXPECT_EQ(0u, writes ? buffer.write(&byte, 1) : buffer.read(&byte, 1));
            std::fflush(stdout);
            const auto texts = log.texts();
            ASSERT_EQ(3u, texts.size());
            EXPECT_EQ("] invalid buffer", invalidLine(writes ? "write" : "read", texts[0]));
            EXPECT_THAT(texts[1], HasSubstr("m_logicEnd is null"));
            EXPECT_THAT(texts[2], HasSubstr("m_logicEnd <  m_physBegin"));
        });
        EXPECT_TRUE(result.exitedWith(0)) << result;
        EXPECT_THAT(result.out, HasSubstr("error occured:\n"));
    }
}

TEST(CVQCircularByteBuffer, IsInvalidWhenNoStorageCanHaveItsCapacity) {
    SlogCapture log;
    const std::size_t kCapacities[] = {CVQRCMemoryBuffer::kMaxSize, 0xFFFFFFFFU, ~std::size_t{0}};
    for (const std::size_t capacity : kCapacities) {
        SCOPED_TRACE(capacity);
        CVQCircularByteBuffer buffer(capacity);
        EXPECT_TRUE(buffer.isInvalid());
        EXPECT_EQ(0u, buffer.getCapacity());
        EXPECT_EQ(0u, buffer.size());
        buffer.reset();
        EXPECT_TRUE(buffer.isInvalid());
        Source source({3, 0, 0, 0, 'a', 'b', 'c', 'd'});
        source >> buffer;
        EXPECT_EQ(7u, source.position) << "the value is taken off the stream all the same";
        EXPECT_TRUE(buffer.isInvalid());
        CVQCircularByteBuffer copy(buffer);
        EXPECT_TRUE(copy.isInvalid());
        EXPECT_EQ("", textOf(copy.dumpLine(0)));
        EXPECT_THAT(textOf(copy.dumpString()), HasSubstr("size = 0, free size = 0\n"));
    }
}

TEST(CVQCircularByteBuffer, HoldsNothingWithCapacityZero) {
    CVQCircularByteBuffer buffer(0);
    EXPECT_FALSE(buffer.isInvalid());
    EXPECT_EQ(0u, write(buffer, "a"));
    EXPECT_EQ(2u, buffer.getFlags());
    EXPECT_EQ("", read(buffer, 1));
    EXPECT_EQ(3u, buffer.getFlags());
    EXPECT_EQ(0u, buffer.getFreeSize());
}

// Hostile use

TEST(CVQCircularByteBuffer, MovesNothingForNullPointers) {
    CVQCircularByteBuffer buffer(4);
    EXPECT_EQ(0u, buffer.write(nullptr, 3));
    EXPECT_EQ(0u, buffer.write(nullptr, 0));
    EXPECT_EQ(0u, buffer.getFlags());
    write(buffer, "ab");
    EXPECT_EQ(0u, buffer.read(nullptr, 2));
    EXPECT_EQ("ab", contentOf(buffer));
    EXPECT_EQ(0u, buffer.getFlags());
}

TEST(CVQCircularByteBuffer, SurvivesASourceThatClaimsMoreThanItWasAskedFor) {
    class Liar : public Source {
    public:
        using Source::Source;

    protected:
        unsigned doRead(void* destination, unsigned count) const override {
            const unsigned delivered = Source::doRead(destination, count);
            return calls.size() == 1 ? delivered : 0xFFFFFFFFU;
        }
    };
    CVQCircularByteBuffer buffer(4);
    Liar liar({200, 0, 0, 0, 'a', 'b', 'c', 'd', 'e'});
    liar >> buffer;
    EXPECT_EQ(4u, buffer.size());
    EXPECT_FALSE(buffer.isInvalid());
}

TEST(CVQCircularByteBuffer, CanBeWrittenIntoItselfAndItsCopies) {
    AssertionLog log;
    PlacedBuffer buffer(16);
    buffer.place(12, 12);
    write(buffer, "abcde");
    static_cast<IVQOStream&>(buffer) << buffer;
    EXPECT_EQ(std::string("abcde\5\0\0\0abcde", 14), contentOf(buffer));
    EXPECT_EQ(0u, buffer.getFlags());

    buffer.reset();
    write(buffer, "abcdef");
    CVQCircularByteBuffer copy(buffer);
    copy.reset();
    static_cast<IVQOStream&>(copy) << buffer;
    EXPECT_EQ(10u, copy.size()) << "over the bytes that it reads: which ones arrive is open, but not where";
    static_cast<IVQIStream&>(buffer) >> buffer;
    EXPECT_EQ(0u, buffer.size());
    log.takeSites();
}

}  // namespace
