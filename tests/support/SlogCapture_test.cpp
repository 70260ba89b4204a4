// Concerns: every field; order; many at once; children's records; what is no record; the variable; leaving no trace.
#include "support/ChildProcess.h"
#include "support/SlogCapture.h"
#include "support/SlogDatagram.h"

#include <cerrno>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/slog.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

void sendBytes(const std::string& bytes) {
    sendDatagram(std::getenv("NTO_SLOG"), bytes);
}

std::string recordOf(const std::string& text) {
    return SlogDatagram{text}.bytes();
}

TEST(SlogCapture, IsEmptyAtFirst) {
    SlogCapture log;
    EXPECT_THAT(log.records(), IsEmpty());
    EXPECT_EQ(0u, log.malformed());
}

TEST(SlogCapture, KeepsEveryFieldOfARecord) {
    SlogCapture log;
    SlogDatagram sent{"a text"};
    sent.code = 10001;
    sent.subCode = 4095;
    sent.severity = 7;
    sendBytes(sent.bytes());
    const auto records = log.records();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ(10001u, records[0].code);
    EXPECT_EQ(4095u, records[0].subCode);
    EXPECT_EQ(0xFFF02711u, records[0].opcode());
    EXPECT_EQ(7, records[0].severity);
    EXPECT_EQ(12, records[0].pid);
    EXPECT_EQ(34, records[0].tid);
    EXPECT_EQ("a text", records[0].text);
}

TEST(SlogCapture, KeepsTheOrderOfMoreRecordsThanTheKernelQueues) {
    SlogCapture log;
    std::vector<std::string> sent;
    for (int i = 0; i < 2000; ++i) {
        sent.push_back(std::to_string(i));
        sendBytes(recordOf(sent.back()));
    }
    EXPECT_EQ(sent, log.texts());
}

TEST(SlogCapture, LosesNothingOfABurstOfTheLogger) {
    SlogCapture log;
    std::vector<std::string> sent;
    for (int i = 0; i < 2000; ++i) {
        sent.push_back(std::to_string(i));
        EXPECT_NE(-1, slogf(10000, _SLOG_INFO, "%d", i)) << std::strerror(errno);
    }
    EXPECT_EQ(sent, log.texts());
}

TEST(SlogCapture, TextsKeepZeroBytesAndMayBeEmptyOrOfFullLength) {
    SlogCapture log;
    const std::string zero("a\0b", 3);
    const std::string full(host::kSlogTextMax, 'x');
    for (const std::string& text : {zero, std::string(), full})
        sendBytes(recordOf(text));
    EXPECT_THAT(log.texts(), ElementsAre(zero, "", full));
}

TEST(SlogCapture, HasWhatChildrenSent) {
    SlogCapture log;
    sendBytes(recordOf("parent"));
    runInChild([] { sendBytes(recordOf("child")); });
    sendBytes(recordOf("parent again"));
    EXPECT_THAT(log.texts(), ElementsAre("parent", "child", "parent again"));
}

TEST(SlogCapture, CountsWhatIsNoRecordAndGoesOn) {
    SlogCapture log;
    const std::string good = recordOf("good");
    sendBytes("");
    sendBytes("short");
    sendBytes(good.substr(0, sizeof(host::SlogRecord) - 1));
    sendBytes(good + "more than it says");
    sendBytes(recordOf(std::string(host::kSlogTextMax + 1, 'x')));
    sendBytes(std::string(100000, 'x'));
    sendBytes(good);
    EXPECT_THAT(log.texts(), ElementsAre("good"));
    EXPECT_EQ(6u, log.malformed());
}

TEST(SlogCapture, ForgetsOnlyWhatCameBefore) {
    SlogCapture log;
    sendBytes(recordOf("before"));
    sendBytes("no record");
    log.clear();
    EXPECT_THAT(log.texts(), IsEmpty());
    EXPECT_EQ(0u, log.malformed());
    sendBytes(recordOf("after"));
    EXPECT_THAT(log.texts(), ElementsAre("after"));
}

TEST(SlogCapture, PutsTheVariableBackAndRemovesItsSocket) {
    const ScopedEnvironment before("NTO_SLOG", "/nowhere");
    std::string path;
    {
        const SlogCapture log;
        path = log.socketPath();
        EXPECT_EQ(path, std::getenv("NTO_SLOG"));
        struct stat status {};
        EXPECT_EQ(0, stat(path.c_str(), &status));
    }
    EXPECT_STREQ("/nowhere", std::getenv("NTO_SLOG"));
    struct stat status {};
    EXPECT_EQ(-1, stat(path.c_str(), &status));
}

TEST(SlogCapture, TwoDoNotMix) {
    SlogCapture outer;
    sendBytes(recordOf("one"));
    {
        SlogCapture inner;
        sendBytes(recordOf("two"));
        EXPECT_THAT(inner.texts(), ElementsAre("two"));
    }
    sendBytes(recordOf("three"));
    EXPECT_THAT(outer.texts(), ElementsAre("one", "three"));
}

TEST(SlogCapture, IsNobodysChild) {
    const SlogCapture log;
    EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG));
    EXPECT_EQ(ECHILD, errno);
}

TEST(SlogCapture, ItsReaderHoldsNoDescriptorOfTheTest) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    const SlogCapture log;
    close(ends[1]);
    char byte;
    EXPECT_EQ(0, read(ends[0], &byte, 1)) << "the pipe's other end is still open somewhere";
    close(ends[0]);
}

TEST(SlogCapture, MayBeAskedInAChild) {
    const ChildResult r = runInChild([] {
        SlogCapture log;
        sendBytes(recordOf("here"));
        EXPECT_THAT(log.texts(), ElementsAre("here"));
    });
    EXPECT_TRUE(r.exitedWith(0)) << r;
}

}  // namespace
