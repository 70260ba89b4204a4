// Concerns: the bytes of both forms; reading them back; sources that deliver less, nothing, garbage or a length
// that no string may have; zero bytes; what happens to the target and its copies.
#include "MemoryStream.h"
#include "StringInternals.h"

#include <CVQByteStream.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace strings;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(CVQString, WritesItsLengthAndItsBytes) {
    MemoryStream stream;
    static_cast<IVQOStream&>(stream) << CVQString("a\xC3\xA4");
    EXPECT_EQ(std::string("\3\0\0\0a\xC3\xA4", 7), stream.bytes);
    EXPECT_THAT(stream.calls, ElementsAre(4, 3));
}

TEST(CVQString, WritesAnEmptyTextAsItsLengthAlone) {
    MemoryStream stream;
    static_cast<IVQOStream&>(stream) << CVQString();
    EXPECT_EQ(std::string(4, '\0'), stream.bytes);
    EXPECT_THAT(stream.calls, ElementsAre(4));
}

TEST(CVQString, WritesItsTerminatorIntoMessages) {
    MemoryStream stream;
    EXPECT_EQ(&stream, &CVQString::toQRVStream(stream, "ab"));
    EXPECT_EQ(std::string("\2\0\0\0ab\0", 7), stream.bytes);
    CVQString::toQRVStream(stream, CVQString());
    EXPECT_EQ(std::string("\2\0\0\0ab\0\0"
                          "\0\0\0\0\0",
                          13),
              stream.bytes);  // aligned to 4 in between
}

TEST(CVQString, AlignsItsLengthInMessages) {
    MemoryStream stream("x");
    CVQString::toQRVStream(stream, "ab");
    EXPECT_EQ(std::string("x\0\0\0\2\0\0\0ab\0", 11), stream.bytes);
    MemoryStream empty("x");
    CVQString::toQRVStream(empty, CVQString());
    EXPECT_EQ(std::string("x\0\0\0\0\0\0\0\0", 9), empty.bytes);
    for (const MemoryStream* const source : {&stream, &empty}) {
        source->position = 1;
        source->calls.clear();
        CVQString text("old");
        CVQString::fromQRVStream(*source, text);
        EXPECT_EQ(source == &stream ? "ab" : "", bytesOf(text));
        EXPECT_EQ(source->bytes.size(), source->position);  // 4 + 4, then the text and its terminator
    }
    MemoryStream plain("x");
    static_cast<IVQOStream&>(plain) << CVQString("ab");
    EXPECT_EQ(std::string("x\2\0\0\0ab", 7), plain.bytes);
    CVQString text;
    plain.position = 1;
    static_cast<const IVQIStream&>(plain) >> text;
    EXPECT_EQ("ab", bytesOf(text));
}

TEST(CVQString, ReadsBackWhatItWrote) {
    for (const char* const source : {"", "a", "\xC3\xA4\xE2\x82\xAC", "a longer text"}) {
        const CVQString text(source);
        MemoryStream stream;
        static_cast<IVQOStream&>(stream) << text << text;
        CVQString::toQRVStream(stream, text);
        CVQString first("old"), second, third;
        static_cast<const IVQIStream&>(stream) >> first >> second;
        CVQString::fromQRVStream(stream, third);
        EXPECT_EQ(text, first);
        EXPECT_EQ(text, second);
        EXPECT_EQ(text, third);
        EXPECT_EQ(text.getByteLength(), second.getCapacity());
        EXPECT_EQ(stream.bytes.size(), stream.position);
    }
}

TEST(CVQString, ReadsItsTextInOneCall) {
    const MemoryStream plain(lengthOf(3) + "abc"), message(lengthOf(3) + std::string("abc\0", 4));
    CVQString text;
    plain >> text;
    EXPECT_THAT(plain.calls, ElementsAre(4, 3));
    CVQString::fromQRVStream(message, text);
    EXPECT_THAT(message.calls, ElementsAre(4, 4));
}

TEST(CVQString, TruncatesItsTargetForLengthZero) {
    const MemoryStream stream(lengthOf(0) + lengthOf(0) + std::string("\0", 1) + "x");
    CVQString text("owned");
    stream >> text;
    EXPECT_TRUE(text.isEmpty());
    EXPECT_EQ(5u, text.getCapacity());
    text = "again";
    const CVQString copy(text);
    CVQString::fromQRVStream(stream, text);
    EXPECT_TRUE(text.isEmpty());
    EXPECT_EQ("again", bytesOf(copy));
    EXPECT_EQ(9u, stream.position);  // with the terminator
}

TEST(CVQString, ReplacesItsTargetAndLeavesCopiesAlone) {
    const MemoryStream stream(lengthOf(3) + "new");
    CVQString text("a longer old text");
    const CVQString copy(text);
    stream >> text;
    EXPECT_EQ("new", bytesOf(text));
    EXPECT_EQ(3u, text.getCapacity());
    EXPECT_EQ("a longer old text", bytesOf(copy));
    EXPECT_EQ(1u, ownersOf(copy));
}

TEST(CVQString, CutsOffAndLogsInvalidBytesThatItReads) {
    Reports reports;
    const MemoryStream stream(lengthOf(4) + "ab\xC3"
                                            "d");
    CVQString text;
    stream >> text;
    EXPECT_EQ("ab", bytesOf(text));
    EXPECT_EQ(2u, text.getCharacterCount());
    EXPECT_EQ(4u, text.getCapacity());
    EXPECT_STREQ("ab", text.c_str());
    EXPECT_EQ(Reports::invalidText(), reports.lines());
}

TEST(CVQString, TakesZeroBytesOfAStreamForCharacters) {
    const MemoryStream stream(lengthOf(5) + std::string("a\0b\0\0", 5));
    CVQString text;
    stream >> text;
    EXPECT_EQ(std::string("a\0b\0\0", 5), bytesOf(text));
    EXPECT_EQ(5u, text.getCharacterCount());
    MemoryStream back;
    static_cast<IVQOStream&>(back) << text;
    EXPECT_EQ(stream.bytes, back.bytes);
}

TEST(CVQString, IsEmptyAfterATextThatIsCutShortAnywhere) {
    Reports reports;
    const std::string whole = lengthOf(5) + "abcde";
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const MemoryStream stream(whole.substr(0, size));
        CVQString text("old"), message("old");
        stream >> text;
        EXPECT_TRUE(text.isEmpty()) << size;
        const MemoryStream again(whole.substr(0, size));
        CVQString::fromQRVStream(again, message);
        EXPECT_TRUE(message.isEmpty()) << size;
    }
    EXPECT_THAT(reports.lines(), IsEmpty());
}

TEST(CVQString, ReadsAMessageWhoseTerminatorIsMissingOrIsNone) {
    const MemoryStream missing(lengthOf(2) + "ab"), other(lengthOf(2) + "abc");
    CVQString text;
    CVQString::fromQRVStream(missing, text);
    EXPECT_EQ("ab", bytesOf(text));
    CVQString::fromQRVStream(other, text);
    EXPECT_EQ("ab", bytesOf(text));
    EXPECT_STREQ("ab", text.c_str());
}

TEST(CVQString, IsEmptyAfterReadingFromAnExhaustedStream) {
    const MemoryStream stream;
    CVQString text("old"), message("old");
    stream >> text;
    CVQString::fromQRVStream(stream, message);
    EXPECT_TRUE(text.isEmpty());
    EXPECT_TRUE(message.isEmpty());
}

TEST(CVQString, RefusesALengthThatNoStringMayHave) {
    for (const unsigned length : {0xFFFFFFECu, 0xFFFFFFFFu}) {
        Reports reports;
        const MemoryStream stream(lengthOf(length) + "abc");
        CVQString text("old"), message("old");
        stream >> text;
        EXPECT_TRUE(text.isEmpty());
        EXPECT_EQ(4u, stream.position);  // and nothing more is read
        const MemoryStream again(lengthOf(length) + "abc");
        CVQString::fromQRVStream(again, message);
        EXPECT_TRUE(message.isEmpty());
        const std::string shown = std::to_string(static_cast<int>(length));
        EXPECT_EQ(Reports::assertion(202, "CVQString::ctor: Capacity " + shown + " not valid!", 2),
                  reports.lines());
    }
}

TEST(CVQString, MistrustsASourceThatClaimsMoreThanItWasAskedFor) {
    class Boaster : public MemoryStream {
    public:
        using MemoryStream::MemoryStream;

    protected:
        unsigned doRead(void* destination, unsigned count) const override {
            return MemoryStream::doRead(destination, count) + (count == 4 ? 0 : 1000);
        }
    };
    const Boaster stream(lengthOf(3) + "abcdef");
    CVQString text;
    stream >> text;
    EXPECT_EQ("abc", bytesOf(text));
}

TEST(CVQString, TravelsThroughAByteStream) {
    CVQByteStream stream;
    stream << CVQString("a\xC3\xA4") << CVQString();
    CVQString::toQRVStream(stream, "message");
    CVQString one, two("old"), three, none("old");
    stream >> one >> two;
    CVQString::fromQRVStream(stream, three);
    EXPECT_EQ(CVQString("a\xC3\xA4"), one);
    EXPECT_TRUE(two.isEmpty());
    EXPECT_EQ(CVQString("message"), three);
    EXPECT_FALSE(stream.isEndOfData());
    stream >> none;
    EXPECT_TRUE(none.isEmpty());
    EXPECT_TRUE(stream.isEndOfData());
}

TEST(CVQString, IsEmptyAfterAShortReadFromAByteStream) {
    CVQByteStream stream;
    stream << 10u;
    stream.write("abc", 3);
    CVQString text("old");
    stream >> text;  // the stream fills up with zero bytes, which are no part of the text
    EXPECT_TRUE(text.isEmpty());
    EXPECT_EQ(0u, text.getCharacterCount());
    EXPECT_TRUE(stream.isEndOfData());
}

}  // namespace
