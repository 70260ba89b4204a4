// Concerns: what each of the buffering streams hands to its target, call by call: at flushes, at the threshold, at
// the end; what it returns; refusals of the target; misuse; the stream that takes nothing.
#include "stream/Streams.h"
#include "support/AssertionLog.h"

#include <CVQBufferedOStream.h>
#include <CVQBufferedOutputStream.h>
#include <CVQNullStream.h>
#include <CVQString.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <typeinfo>

namespace {

using support::AssertionLog;
using testing::ElementsAre;
using testing::IsEmpty;

/// Tells of flushes and waits as well.
class Target : public Sink {
public:
    using Sink::Sink;
    void flush() override { calls.push_back("flush"); }
    bool waitToWrite(int timeout) override {
        calls.push_back("wait " + std::to_string(timeout));
        return timeout > 5;
    }

    std::vector<std::string> takeCalls() {
        std::vector<std::string> taken;
        taken.swap(calls);
        return taken;
    }
    Bytes takeBytes() {
        Bytes taken;
        taken.swap(bytes);
        return taken;
    }
};

// CVQBufferedOStream

TEST(CVQBufferedOStream, Kept_WritesABlockOfLengthZeroWhenItReceivedNothing) {  // id: bufferedstream-empty-block
    Target target;
    { CVQBufferedOStream stream(target, 16); }
    EXPECT_THAT(target.takeBytes(), ElementsAre(0, 0, 0, 0));
    EXPECT_THAT(target.takeCalls(), ElementsAre("4", "flush"));
}

TEST(CVQBufferedOStream, WritesOneBlockForEachFlush) {
    Target target;
    {
        CVQBufferedOStream stream(target, 0);
        EXPECT_EQ(3u, stream.write("abc", 3));
        EXPECT_EQ(2u, stream.write("de", 2));
        EXPECT_THAT(target.takeCalls(), IsEmpty());
        stream.flush();
        EXPECT_THAT(target.takeBytes(), ElementsAre(5, 0, 0, 0, 'a', 'b', 'c', 'd', 'e'));
        EXPECT_THAT(target.takeCalls(), ElementsAre("4", "5", "flush"));
        stream << 7U;
        stream.flush();
        EXPECT_THAT(target.takeBytes(), ElementsAre(4, 0, 0, 0, 7, 0, 0, 0));
        stream.write("z", 1);
    }
    EXPECT_THAT(target.takeBytes(), ElementsAre(1, 0, 0, 0, 'z')) << "the destructor flushes";
}

TEST(CVQBufferedOStream, PassesOnWhatIsAskedOfTheTarget) {
    Target target;
    CVQBufferedOStream stream(target, 8);
    EXPECT_TRUE(stream.waitToWrite(7));
    EXPECT_FALSE(stream.waitToWrite(-1));
    stream.align(4);
    EXPECT_THAT(target.takeCalls(), ElementsAre("wait 7", "wait -1"));
    stream.writeSkip(600);
    EXPECT_THAT(target.takeCalls(), IsEmpty());
    stream.flush();
    EXPECT_THAT(target.takeCalls(), ElementsAre("4", "600", "flush"));
}

TEST(CVQBufferedOStream, OffersNothingAgain) {
    Target target(2);
    CVQBufferedOStream stream(target, 8);
    stream.write("abcdef", 6);
    stream.flush();
    EXPECT_THAT(target.takeBytes(), ElementsAre(6, 0, 'a', 'b'));
    stream.flush();
    EXPECT_THAT(target.takeBytes(), ElementsAre(0, 0));
}

TEST(CVQBufferedOStream, IsFlushedThroughItsInterface) {
    Target target;
    std::unique_ptr<IVQOStream> stream = std::make_unique<CVQBufferedOStream>(target, 8u);
    const IVQOStream& object = *stream;
    EXPECT_EQ(typeid(CVQBufferedOStream), typeid(object));
    *stream << CVQString("text");
    stream.reset();
    EXPECT_THAT(target.takeBytes(), ElementsAre(8, 0, 0, 0, 4, 0, 0, 0, 't', 'e', 'x', 't'));
}

TEST(CVQBufferedOStream, CarriesMoreThanItsCapacity) {
    Target target;
    CVQBufferedOStream stream(target, 4);
    const std::string text(1000, 'x');
    EXPECT_EQ(1000u, stream.write(text.data(), text.size()));
    stream.flush();
    EXPECT_THAT(target.takeCalls(), ElementsAre("4", "1000", "flush"));
}

TEST(CVQBufferedOStream, ReportsANullSourceAsItsByteStreamDoes) {
    AssertionLog log;
    Target target;
    CVQBufferedOStream stream(target, 4);
    EXPECT_EQ(0u, stream.write(nullptr, 3));
    EXPECT_THAT(log.takeSites(), ElementsAre("CVQByteStream:134"));
}

// CVQBufferedOutputStream

TEST(CVQBufferedOutputStream, CollectsBelowItsThresholdAndPassesALargeWriteOnAtOnce) {
    Target target;
    CVQBufferedOutputStream stream(target, 8, /*useThreshold*/ true);
    EXPECT_EQ(3u, stream.write("abc", 3));
    EXPECT_EQ(3u, stream.write("def", 3));
    EXPECT_THAT(target.takeCalls(), IsEmpty());
    stream.flush();
    EXPECT_EQ(bytesOf("abcdef"), target.takeBytes());
    EXPECT_THAT(target.takeCalls(), ElementsAre("6", "flush"));
    stream.write("gh", 2);
    EXPECT_EQ(10u, stream.write("0123456789", 10));
    EXPECT_EQ(bytesOf("gh0123456789"), target.takeBytes());
    EXPECT_THAT(target.takeCalls(), ElementsAre("2", "flush", "10"));
}

TEST(CVQBufferedOutputStream, PassesOnWhatIsPendingOnceItReachesTheThreshold) {
    Target target;
    CVQBufferedOutputStream stream(target, 8, /*useThreshold*/ true);
    stream.write("abcde", 5);
    EXPECT_EQ(3u, stream.write("fgh", 3));
    EXPECT_EQ(bytesOf("abcdefgh"), target.takeBytes());
    EXPECT_THAT(target.takeCalls(), ElementsAre("8")) << "and does not flush the target";
    stream.write("abcde", 5);
    stream.write("fghij", 5);
    EXPECT_THAT(target.takeCalls(), ElementsAre("10"));
    stream.write("12345678", 8);
    EXPECT_THAT(target.takeCalls(), ElementsAre("flush", "8"))
        << "a write of just the threshold goes straight there";
}

TEST(CVQBufferedOutputStream, CollectsEverythingWithoutAThreshold) {
    Target target;
    {
        CVQBufferedOutputStream stream(target, 8, /*useThreshold*/ false);
        for (int i = 0; i < 10; ++i)
            EXPECT_EQ(10u, stream.write("0123456789", 10));
        EXPECT_THAT(target.takeCalls(), IsEmpty());
        stream.flush();
        EXPECT_THAT(target.takeCalls(), ElementsAre("100", "flush"));
        stream.flush();
        EXPECT_THAT(target.takeCalls(), ElementsAre("flush")) << "nothing was pending";
        stream.write("end", 3);
    }
    EXPECT_THAT(target.takeCalls(), ElementsAre("3", "flush")) << "the destructor flushes";
}

TEST(CVQBufferedOutputStream, ReturnsWhatTheTargetTookOfAWriteThatWentStraightThere) {
    Target target(2);
    CVQBufferedOutputStream stream(target, 4, /*useThreshold*/ true);
    EXPECT_EQ(2u, stream.write("abcdef", 6));
    EXPECT_EQ(3u, stream.write("ghi", 3));
    EXPECT_EQ(3u, stream.write("jkl", 3));
    EXPECT_EQ(bytesOf("abgh"), target.takeBytes()) << "what was not taken is not offered again";
    stream.flush();
    EXPECT_THAT(target.takeBytes(), IsEmpty());
}

TEST(CVQBufferedOutputStream, PassesOnWhatIsAskedOfTheTarget) {
    Target target;
    CVQBufferedOutputStream stream(target, 600, /*useThreshold*/ true);
    EXPECT_TRUE(stream.waitToWrite(6));
    EXPECT_FALSE(stream.waitToWrite(5));
    stream.align(4);
    EXPECT_THAT(target.takeCalls(), ElementsAre("wait 6", "wait 5"));
    stream.writeSkip(700);
    EXPECT_THAT(target.takeCalls(), ElementsAre("700"));
    EXPECT_EQ(Bytes(700, 0), target.takeBytes());
}

TEST(CVQBufferedOutputStream, ReportsAThresholdOfZeroAndGoesOnWithoutOne) {
    AssertionLog log;
    Target target;
    CVQBufferedOutputStream stream(target, 0, /*useThreshold*/ true);
    EXPECT_THAT(log.takeSites(), ElementsAre("CVQBufferedOutputStream:30"));
    EXPECT_EQ(6u, stream.write("abcdef", 6));
    EXPECT_THAT(target.takeCalls(), IsEmpty());
    const CVQBufferedOutputStream none(target, 0, /*useThreshold*/ false);
    EXPECT_THAT(log.takeSites(), IsEmpty());
}

TEST(CVQBufferedOutputStream, WritesNothingForNothing) {
    Target target;
    CVQBufferedOutputStream stream(target, 1, /*useThreshold*/ true);
    EXPECT_EQ(0u, stream.write("", 0));
    EXPECT_THAT(target.takeCalls(), IsEmpty());
    EXPECT_EQ(1u, stream.write("x", 1));
    EXPECT_THAT(target.takeCalls(), ElementsAre("flush", "1"));
}

TEST(CVQBufferedOutputStream, IsDestroyedThroughItsInterface) {
    Target target;
    std::unique_ptr<IVQOStream> stream = std::make_unique<CVQBufferedOutputStream>(target, 8u, true);
    const IVQOStream& object = *stream;
    EXPECT_EQ(typeid(CVQBufferedOutputStream), typeid(object));
    *stream << 7U;
    stream.reset();
    EXPECT_THAT(target.takeBytes(), ElementsAre(7, 0, 0, 0));
}

// CVQNullStream

TEST(CVQNullStream, TakesAndYieldsNothing) {
    CVQNullStream null;
    IVQIOStream& stream = null;
    char bytes[] = "abc";
    EXPECT_EQ(0u, stream.write(bytes, 3));
    EXPECT_EQ(0u, stream.read(bytes, 3));
    EXPECT_STREQ("abc", bytes);
    EXPECT_FALSE(stream.waitToRead(-1));
    EXPECT_FALSE(stream.waitToWrite(-1));
    stream.ready();
    stream.flush();
    stream.readSkip(0x7FFFFFFF);
    stream.writeSkip(0x7FFFFFFF);
    stream << 7U << CVQString("text");
    unsigned number = 9;
    CVQString text("old");
    stream >> number >> text;
    EXPECT_EQ(9u, number);
    EXPECT_EQ(CVQString(), text);
    EXPECT_NE(nullptr, dynamic_cast<CVQNullStream*>(&stream));
}

}  // namespace
