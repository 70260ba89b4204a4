// Concerns: numbers in texts; what a configuration may not say; the device server; blocks and their queue; the
// program's command line; a recorder that does not answer.
#include "Recordings.h"
#include "sampler/CBlockBuilder.h"
#include "sampler/CFileDeviceServer.h"
#include "sampler/CSamplerConfig.h"
#include "sampler/Fields.h"
#include "shared/Message.h"
#include "support/ChildProcess.h"
#include "support/SlogCapture.h"
#include "support/TemporaryFolder.h"

#include <CVQReferencedSharedMemory.h>
#include <TVQRefCountPointer.h>
#include <VQChannelAccess.h>
#include <VQOperatingSystem.h>
#include <csignal>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/neutrino.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace recordings;
using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string configFor(const std::string& file) {
    return "[devices]\n/dev/live/x 10 " + file + "\n[series]\nx.value /dev/live/x value 1 gauge 1 B\n";
}

TEST(Fields, AreSummedAsStated) {
    constexpr char kText[] = "cpu  10 20 30\ncpu0 1 2\n\nMem:\t7 kB\n  lo:5 x\n0.45 0.5 rest\nneg -3 -0.25 - -x\n"
                             "big 9223372036854775 9223372036854776\nodd 1.2345 1. .5 1.2.3 5x\ncpu 1";
    const struct {
        int line;
        const char* row;
        unsigned field;
        bool isFound;
        long long thousandths;
    } rows[] = {
        {__LINE__, "cpu", 1, true, 11000},
        {__LINE__, "cpu", 2, true, 20000},
        {__LINE__, "cpu", 4, false, 0},
        {__LINE__, "cpu0", 2, true, 2000},
        {__LINE__, "cp", 1, false, 0},
        {__LINE__, "Mem", 1, true, 7000},
        {__LINE__, "Mem", 2, false, 0},
        {__LINE__, "lo", 1, true, 5000},
        {__LINE__, "*", 0, true, 450},
        {__LINE__, "*", 3, true, 30000},
        {__LINE__, "neg", 1, true, -3000},
        {__LINE__, "neg", 2, true, -250},
        {__LINE__, "neg", 3, false, 0},
        {__LINE__, "neg", 4, false, 0},
        {__LINE__, "big", 1, true, 9223372036854775000},
        {__LINE__, "big", 2, false, 0},
        {__LINE__, "odd", 1, true, 1234},
        {__LINE__, "odd", 2, true, 1000},
        {__LINE__, "odd", 3, false, 0},
        {__LINE__, "odd", 4, false, 0},
        {__LINE__, "odd", 5, false, 0},
        {__LINE__, "", 0, false, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        long long sum = -1;
        EXPECT_EQ(row.isFound, sumField(kText, row.row, row.field, sum));
        if (row.isFound) {
            EXPECT_EQ(row.thousandths, sum);
        }
    }
    long long sum = 0;
    EXPECT_FALSE(sumField("", "*", 0, sum));
    EXPECT_FALSE(sumField("a 9223372036854775\na 1", "a", 1, sum)) << "the sum is too large";
}

TEST(CSamplerConfig, HoldsWhatTheFileSays) {
    const TemporaryFolder folder;
    const std::string path =
        folder.write("conf", "# a comment\n[devices]\n/d/one 10 /f/one # another\n/d/two\t4000 /f/two\n"
                             "[unknown]\nskipped\n[series]\na.b /d/two * 0 counter 1000000 s\n");
    CSamplerConfig config;
    ASSERT_TRUE(config.load(path.c_str())) << config.getProblem().c_str();
    ASSERT_EQ(2, config.getDevices().size());
    EXPECT_STREQ("/d/two", config.getDevices()[1].path.c_str());
    EXPECT_EQ(4000u, config.getDevices()[1].periodMs);
    EXPECT_STREQ("/f/two", config.getDevices()[1].file.c_str());
    ASSERT_EQ(1, config.getSeries().size());
    const SSeries& series = config.getSeries()[0];
    EXPECT_STREQ("a.b", series.name.c_str());
    EXPECT_STREQ("/d/two", series.device.c_str());
    EXPECT_STREQ("*", series.row.c_str());
    EXPECT_EQ(0u, series.field);
    EXPECT_EQ('c', series.kind);
    EXPECT_EQ(1000000u, series.scale);
    EXPECT_STREQ("s", series.unit.c_str());
}

TEST(CSamplerConfig, SaysWhatIsWrong) {
    const std::string device = "[devices]\n/d 10 /f\n";
    const std::string series = device + "[series]\n";
    const std::string longName(65, 'n');
    const struct {
        int line;
        std::string text;
        std::string problem;
    } rows[] = {
        {__LINE__, "", "it names no series"},
        {__LINE__, device, "it names no series"},
        {__LINE__, "[devices]\n/d 10", "a device has a path, a period and a file: /d 10"},
        {__LINE__, "[devices]\n/d 10 /f g", "a device has a path, a period and a file: /d 10 /f g"},
        {__LINE__, device + "/d 20 /g", "a device of this path was named before: /d 20 /g"},
        {__LINE__, "[devices]\n/d 0 /f", "a period is a number of milliseconds from 1 to 4000: /d 0 /f"},
        {__LINE__, "[devices]\n/d 4001 /f", "a period is a number of milliseconds from 1 to 4000: /d 4001 /f"},
        {__LINE__, "[devices]\n/d 5s /f", "a period is a number of milliseconds from 1 to 4000: /d 5s /f"},
        {__LINE__, "[devices]\n/d -5 /f", "a period is a number of milliseconds from 1 to 4000: /d -5 /f"},
        {__LINE__, "[devices]\n/d 99999999999999999999 /f", "a period is a number of milliseconds from 1 to 4000"},
        {__LINE__, series + "a /d r 1 gauge 1",
         "a series has a name, a device, a row, a field, a kind, a scale and a unit: a /d r 1 gauge 1"},
        {__LINE__, series + longName + " /d r 1 gauge 1 B", "names and units have at most 64 bytes, all visible: "},
        {__LINE__, series + "a /d r 1 gauge 1 B\na /d r 2 gauge 1 B",
         "a series of this name was named before: a /d r 2 gauge 1 B"},
        {__LINE__, series + "a /e r 1 gauge 1 B", "there is no such device above: a /e r 1 gauge 1 B"},
        {__LINE__, series + "a /d r x gauge 1 B", "a field is a number from 0 to 1000: a /d r x gauge 1 B"},
        {__LINE__, series + "a /d r 1001 gauge 1 B", "a field is a number from 0 to 1000"},
        {__LINE__, series + "a /d r 1 Gauge 1 B", "a kind is gauge or counter: a /d r 1 Gauge 1 B"},
        {__LINE__, series + "a /d r 1 gauge 0 B", "a scale is a number from 1 to 1000000"},
        {__LINE__, series + "a /d r 1 gauge 1000001 B", "a scale is a number from 1 to 1000000"},
    };
    const TemporaryFolder folder;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        CSamplerConfig config;
        EXPECT_FALSE(config.load(folder.write("conf", row.text).c_str()));
        EXPECT_THAT(config.getProblem().c_str(), StartsWith(row.problem));
    }
    CSamplerConfig config;
    EXPECT_FALSE(config.load((folder / "missing").c_str()));
    EXPECT_STREQ("No such file or directory", config.getProblem().c_str());
}

TEST(CFileDeviceServer, ServesTheFileAnewForEachOpening) {
    const TemporaryFolder folder;
    const std::string path = folder.write("file", "first");
    const CFileDeviceServer server("/dev/live/test", path.c_str());
    CVQIODevice device;
    char text[16] = {};
    ASSERT_TRUE(device.open("/dev/live/test", CVQIODevice::ACCESS_READ));
    EXPECT_EQ(5, device.read(text, sizeof(text), 100));
    EXPECT_STREQ("first", text);
    EXPECT_EQ(0, device.read(text, sizeof(text), 100));
    EXPECT_EQ(CVQIODevice::STATE_SUCCESS, device.getLastError());
    EXPECT_EQ(-1, device.write("x", 1, 100));
    EXPECT_EQ(CVQIODevice::STATE_FAILED, device.getLastError());
    EXPECT_TRUE(device.close());
    folder.write("file", "again");
    ASSERT_TRUE(device.open("/dev/live/test", CVQIODevice::ACCESS_READ));
    EXPECT_EQ(5, device.read(text, sizeof(text), 100));
    EXPECT_STREQ("again", text);
    EXPECT_TRUE(device.close());
    EXPECT_FALSE(device.open("/dev/live/test", CVQIODevice::ACCESS_WRITE));
    unlink(path.c_str());
    EXPECT_FALSE(device.open("/dev/live/test", CVQIODevice::ACCESS_READ));
    EXPECT_EQ(ENOENT, VQOperatingSystem::getLastError());
}

TEST(CFileDeviceServer, IsGoneWithItsObject) {
    const TemporaryFolder folder;
    const std::string path = folder.write("file", "x");
    { const CFileDeviceServer server("/dev/live/test", path.c_str()); }
    CVQIODevice device;
    EXPECT_FALSE(device.open("/dev/live/test", CVQIODevice::ACCESS_READ));
}

TEST(CBlockBuilder, FillsBlocksAndNeverBeyondTheirSize) {
    CBlockQueue queue(100);
    CBlockBuilder builder(kSampler, 512, queue);
    const std::string longest(SSample::kLongestText, 'n');
    for (int i = 0; i < 50; ++i) {
        builder.add(makeSample(1, i, i % 3 == 0 ? longest.c_str() : "a"));
    }
    builder.finish();
    builder.finish();
    std::string all;
    unsigned count = 0;
    queue.close(1000);
    for (SFinishedBlock each; queue.waitForFront(each); queue.pop()) {
        EXPECT_LE(each.bytes.getLength(), 512u);
        count += each.sampleCount;
        all += toString(each.bytes);
    }
    EXPECT_EQ(50u, count);
    EXPECT_EQ(50u, builder.getSampleCount());
    const std::vector<int> found = read(all);
    for (std::size_t i = 0; i < found.size(); ++i) {
        EXPECT_EQ(static_cast<int>(i) + 1, found[i]);
    }
    EXPECT_GT(found.size(), 5u);
}

TEST(CBlockBuilder, GoesOnAsAnotherSamplerWhenItsNumbersAreUsedUp) {
    CBlockQueue queue(10);
    CBlockBuilder builder(kSampler, 256, queue, 0xFFFFFFFE);
    std::string all;
    for (int i = 0; i < 3; ++i) {
        builder.add(makeSample(1, i));
        builder.finish();
        SFinishedBlock each;
        ASSERT_TRUE(queue.waitForFront(each));
        all += toString(each.bytes);
        queue.pop();
    }
    EXPECT_THAT(read(all), ElementsAre(-1, 1, 2)) << "the largest number, as an int, then from 1 on";
    EXPECT_EQ(kSampler + 1, builder.getSampler());
}

TEST(CBlockBuilder, CountsAndLogsWhatTheQueueHasNoRoomFor) {
    SlogCapture log;
    CBlockQueue queue(1);
    CBlockBuilder builder(kSampler, 256, queue);
    for (int i = 0; i < 3; ++i) {
        builder.add(makeSample(1, i));
        builder.finish();
    }
    EXPECT_EQ(2u, builder.getLostCount());
    EXPECT_THAT(log.texts(), ElementsAre(HasSubstr("sampler: no room for block 2; its 1 samples are lost"),
                                         HasSubstr("sampler: no room for block 3; its 1 samples are lost")));
}

TEST(CBlockQueue, EndsWhenItIsClosedAndEmptyOrOutOfTime) {
    CBlockQueue queue(10);
    queue.push({{}, 1, 1});
    queue.push({{}, 2, 1});
    queue.close(30000);
    SFinishedBlock front;
    ASSERT_TRUE(queue.waitForFront(front));
    EXPECT_EQ(1u, front.sequence);
    queue.pop();
    ASSERT_TRUE(queue.waitForFront(front));
    EXPECT_EQ(2u, front.sequence);
    EXPECT_EQ(1u, queue.getLength());
    queue.close(0);
    EXPECT_FALSE(queue.waitForFront(front)) << "out of time";
    EXPECT_EQ(1u, queue.getLength());
}

TEST(CBlockQueue, WakesWhoWaits) {
    CBlockQueue queue(10);
    std::vector<unsigned> taken;
    std::thread taker([&] {
        for (SFinishedBlock front; queue.waitForFront(front); queue.pop()) {
            taken.push_back(front.sequence);
        }
    });
    for (unsigned i = 1; i <= 5; ++i) {
        EXPECT_TRUE(queue.push({{}, i, 1}));
        std::this_thread::yield();
    }
    queue.close(30000);
    taker.join();
    EXPECT_THAT(taken, ElementsAre(1, 2, 3, 4, 5));
}

/// A channel that a sampler takes for its recorder's.
class FakeRecorder {
public:
    explicit FakeRecorder(const TemporaryFolder& folder) : mChannel(ChannelCreate(0)) {
        folder.write("recorder", std::to_string(getpid()) + " " + std::to_string(mChannel) + "\n");
    }
    FakeRecorder(const FakeRecorder&) = delete;
    FakeRecorder& operator=(const FakeRecorder&) = delete;
    ~FakeRecorder() { ChannelDestroy(mChannel); }

    /// The block that a message leads to; empty after ten seconds without.
    std::string receive(int& id) const {
        char message[Message::kLongest];
        _msg_info info;
        id = VQChannelAccess::receive(mChannel, message, sizeof(message), 10000, &info);
        if (id <= 0) {
            return "";
        }
        CVQByteStream stream;
        stream.write(message, static_cast<unsigned>(info.msglen));
        TVQRefCountPointer<CVQReferencedSharedMemory> segment;
        unsigned size = 0;
        stream >> segment >> size;
        return segment.isNull() ? "" : std::string(static_cast<const char*>(segment->getDataPtr()), size);
    }

private:
    int mChannel;
};

class sampler : public testing::Test {
protected:
    ~sampler() override { removeSegment(mFolder.path()); }

    std::vector<std::string> command(std::vector<std::string> options) const {
        options.push_back(mFolder.write("conf", configFor(mFolder.write("data", "value 42\n"))));
        options.push_back(mFolder.path());
        return commandFor(SAMPLER, options);
    }
    ChildResult run(const std::vector<std::string>& arguments) const { return runProgram(SAMPLER, arguments); }

    TemporaryFolder mFolder;
    SlogCapture mLog;
};

TEST_F(sampler, SendsABlockAgainUntilItIsAccepted) {
    const FakeRecorder recorder(mFolder);
    ChildProcess child(command({"--block=256", "--age=10", "--deadline=100", "--tell"}));
    int id = 0;
    const std::string first = recorder.receive(id);
    ASSERT_THAT(read(first), ElementsAre(1));
    // No answer: the deadline passes.
    EXPECT_EQ(first, recorder.receive(id));
    MsgError(id, ENOSPC);
    EXPECT_EQ("", child.out());
    std::string next;
    for (next = recorder.receive(id); next == first; next = recorder.receive(id)) {
        MsgReply(id, Message::KNOWN, nullptr, 0);  // may be late as well
    }
    EXPECT_THAT(read(next), ElementsAre(2));
    EXPECT_TRUE(child.waitForOut("block 1 accepted, "));
    child.send(SIGKILL);
    child.finish();
    const std::vector<std::string> texts = mLog.texts();
    ASSERT_GE(texts.size(), 2u);
    EXPECT_THAT(texts[0],
                HasSubstr("sampler: the recorder does not take blocks (Connection timed out); they wait"));
    EXPECT_THAT(texts[1], HasSubstr("sampler: the recorder takes blocks again"));
}

TEST_F(sampler, EndsWithWhatWasNotAcceptedWhenNobodyListens) {
    ChildProcess child(command({"--age=10", "--deadline=100"}));
    while (mLog.texts().empty()) {
        usleep(10000);
    }
    child.send(SIGTERM);
    const ChildResult r = child.finish();
    EXPECT_TRUE(r.exitedWith(1)) << r;
    EXPECT_THAT(r.out, HasSubstr(" samples taken, 0 accepted in 0 blocks\n"));
    EXPECT_THAT(r.err, testing::ContainsRegex("^sampler: [0-9]+ samples were not accepted\n$"));
    EXPECT_THAT(mLog.texts(), ElementsAre(HasSubstr("the recorder does not take blocks (No such process)")));
}

TEST_F(sampler, IsTheOnlyOneOfItsFolder) {
    const FakeRecorder recorder(mFolder);
    ChildProcess first(command({"--age=10"}));
    int id = 0;
    ASSERT_NE("", recorder.receive(id));
    const ChildResult second = run({mFolder / "conf", mFolder.path()});
    EXPECT_TRUE(second.exitedWith(1)) << second;
    EXPECT_EQ("sampler: " + mFolder.path() + ": another sampler records into this folder\n", second.err);
}

TEST_F(sampler, SaysWhatItCannotRead) {
    const std::string conf = mFolder.write("conf", configFor(mFolder / "missing"));
    const ChildResult missing = run({conf, mFolder.path()});
    EXPECT_TRUE(missing.exitedWith(1)) << missing;
    EXPECT_EQ("sampler: /dev/live/x (" + (mFolder / "missing") + "): No such file or directory\n", missing.err);

    mFolder.write("missing", "values 1\n");
    const ChildResult other = run({conf, mFolder.path()});
    EXPECT_TRUE(other.exitedWith(1)) << other;
    EXPECT_EQ("sampler: series x.value: " + (mFolder / "missing") +
                  " has no number in field 1 of a row \"value\"\n",
              other.err);

    const ChildResult config = run({mFolder / "none", mFolder.path()});
    EXPECT_TRUE(config.exitedWith(1)) << config;
    EXPECT_EQ("sampler: " + (mFolder / "none") + ": No such file or directory\n", config.err);

    const ChildResult directory = run({mFolder.path(), mFolder.path()});
    EXPECT_TRUE(directory.exitedWith(1)) << directory;
    EXPECT_EQ("sampler: " + mFolder.path() + ": Is a directory\n", directory.err);

    const ChildResult folder =
        run({mFolder.write("conf", configFor(mFolder.write("data", "value 1"))), mFolder / "data"});
    EXPECT_TRUE(folder.exitedWith(1)) << folder;
    EXPECT_THAT(folder.err, HasSubstr("sampler: " + (mFolder / "data") + ": Not a directory\n"));
}

TEST_F(sampler, LogsOnceThatItsDeviceIsGoneAndGoesOnWhenItIsBack) {
    const FakeRecorder recorder(mFolder);
    ChildProcess child(command({"--age=10", "--block=256"}));
    int id = 0;
    ASSERT_NE("", recorder.receive(id));
    MsgReply(id, Message::RECORDED, nullptr, 0);
    unlink((mFolder / "data").c_str());
    while (mLog.texts().empty()) {
        if (recorder.receive(id).empty()) {
            break;
        }
        MsgReply(id, Message::RECORDED, nullptr, 0);
    }
    mFolder.write("data", "value 43\n");
    std::string last;
    do {
        last = recorder.receive(id);
        ASSERT_NE("", last);
        MsgReply(id, Message::RECORDED, nullptr, 0);
    } while (last.find(std::string("\xf8\xa7\0\0", 4)) == std::string::npos);  // 43000
    EXPECT_THAT(mLog.texts(), testing::Contains(HasSubstr("sampler: /dev/live/x (" + (mFolder / "data") +
                                                          "): No such file or directory")));
}

TEST_F(sampler, RefusesAWrongCommandLine) {
    const struct {
        int line;
        std::vector<std::string> arguments;
        std::string message;
    } rows[] = {
        {__LINE__, {}, "sampler: too few operands\n"},
        {__LINE__, {"one"}, "sampler: too few operands\n"},
        {__LINE__, {"one", "two", "three"}, "sampler: 'three' is one operand too many\n"},
        {__LINE__, {"--unknown"}, "sampler: unknown option '--unknown'\n"},
        {__LINE__, {"--second=1"}, "sampler: unknown option '--second=1'\n"},
        {__LINE__, {"--seconds"}, "sampler: --seconds takes a value: --seconds=...\n"},
        {__LINE__, {"--tell=1"}, "sampler: --tell takes no value\n"},
        {__LINE__, {"--block=255", "a", "b"}, "sampler: --block takes a number from 256 to 1048576, not '255'\n"},
        {__LINE__, {"--block=1048577", "a", "b"}, "not '1048577'\n"},
        {__LINE__, {"--seconds=0", "a", "b"}, "sampler: --seconds takes a number from 1 to 1000000, not '0'\n"},
        {__LINE__, {"--age=", "a", "b"}, "not ''\n"},
        {__LINE__, {"--age=1x", "a", "b"}, "not '1x'\n"},
        {__LINE__, {"--waiting=-1", "a", "b"}, "not '-1'\n"},
        {__LINE__, {"--deadline=99999999999999999999", "a", "b"}, "not '99999999999999999999'\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const ChildResult r = run(row.arguments);
        EXPECT_TRUE(r.exitedWith(2)) << r;
        EXPECT_THAT(r.err, HasSubstr(row.message));
        EXPECT_THAT(r.err, testing::EndsWith("Try 'sampler --help'.\n"));
        EXPECT_EQ("", r.out);
    }
}

TEST_F(sampler, CanBeEndedWhileItWaitsForItsConfiguration) {
    const std::string pipe = mFolder / "pipe";
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    ChildProcess child(commandFor(SAMPLER, {pipe, mFolder / "out"}));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    child.send(SIGTERM);
    const ChildResult& r = child.finish();
    EXPECT_TRUE(r.killedBy(SIGTERM)) << r;
}

TEST_F(sampler, TakesOptionsFromFiles) {
    const std::string options = mFolder.write("options", "[COMMANDLINE]\n--block=1\n" + (mFolder / "conf") + "\n");
    const ChildResult r = run({"@" + options, mFolder.path()});
    EXPECT_TRUE(r.exitedWith(2)) << r;
    EXPECT_THAT(r.err, HasSubstr("--block takes a number from 256 to 1048576, not '1'"));
}

TEST_F(sampler, ShowsHelpAndProgress) {
    const ChildResult help = run({"--help"});
    EXPECT_TRUE(help.exitedWith(0));
    EXPECT_THAT(help.out, StartsWith("Usage: sampler [option...] CONFIG FOLDER\n"));
    EXPECT_EQ("", help.err);

    ChildOptions onTerminal;
    onTerminal.output = Output::Terminal;
    ChildProcess child(command({"--seconds=60"}), onTerminal);
    EXPECT_TRUE(child.waitForOut(" of 60 s   ")) << child.out();
    EXPECT_TRUE(child.waitForOut(" blocks accepted, ")) << child.out();
    child.send(SIGKILL);
    EXPECT_THAT(child.finish().out, HasSubstr("░"));
}

}  // namespace
