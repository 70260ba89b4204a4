// Concerns: a journal that is cut, damaged, full or turned over; blocks that come again; what a hostile sampler can send;
// kill -9 of sampler and recorder at any moment, with counts that add up; what is left behind; the command lines.
#include "Recordings.h"
#include "recorder/CJournal.h"
#include "shared/CServiceFile.h"
#include "shared/Message.h"
#include "support/ChildProcess.h"
#include "support/SlogCapture.h"
#include "support/TemporaryFolder.h"
#include "viewer/CHistory.h"

#include <CVQReferencedSharedMemory.h>
#include <TVQRefCountPointer.h>
#include <VQChannelAccess.h>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <sys/neutrino.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace recordings;
using namespace support;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class CJournalTest : public testing::Test {
protected:
    static CJournal::EResult append(CJournal& journal, const std::string& bytes) {
        CBlockReader reader = readerOf(bytes);
        EXPECT_EQ(CBlockReader::BLOCK, reader.next());
        return journal.append(reader.getBlock(), reinterpret_cast<const unsigned char*>(bytes.data()));
    }
    std::unique_ptr<CJournal> open(unsigned fileSize = 1 << 20, unsigned files = 16) const {
        CJournal::SLimits limits;
        limits.fileSize = fileSize;
        limits.files = files;
        auto journal = std::make_unique<CJournal>(mFolder.path().c_str(), limits);
        EXPECT_TRUE(journal->open());
        return journal;
    }
    std::string file(unsigned number) const {
        return readFile(mFolder / ("0000000" + std::to_string(number) + ".rec"));
    }

    TemporaryFolder mFolder;
    SlogCapture mLog;
};

TEST_F(CJournalTest, AppendsBlocksAsTheyCame) {
    const auto journal = open();
    for (unsigned i = 1; i <= 3; ++i) {
        EXPECT_EQ(CJournal::RECORDED, append(*journal, block(i)));
        EXPECT_EQ(blocks(i), file(1));
    }
}

TEST_F(CJournalTest, KnowsWhatComesAgain) {
    const auto journal = open();
    append(*journal, block(1));
    append(*journal, block(2));
    EXPECT_EQ(CJournal::KNOWN, append(*journal, block(2)));
    EXPECT_EQ(CJournal::KNOWN, append(*journal, block(1)));
    EXPECT_EQ(CJournal::RECORDED, append(*journal, block(1, kSampler + 1))) << "another sampler's";
    EXPECT_EQ(CJournal::RECORDED, append(*journal, block(5))) << "some were lost before they came";
    EXPECT_EQ(blocks(2) + block(1, kSampler + 1) + block(5), file(1));
}

TEST_F(CJournalTest, KnowsItAfterARestartToo) {
    append(*open(), block(1));
    append(*open(), block(2));
    const auto journal = open();
    EXPECT_EQ(CJournal::KNOWN, append(*journal, block(2)));
    EXPECT_EQ(CJournal::RECORDED, append(*journal, block(3)));
    EXPECT_EQ(blocks(3), file(1));
}

TEST_F(CJournalTest, TakesOffWhatAKillLeftOfABlock) {
    const std::string whole = blocks(2);
    const std::size_t size = whole.size() / 2;
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        SCOPED_TRACE(length);
        mFolder.write("00000001.rec", whole.substr(0, length));
        const auto journal = open();
        for (unsigned i = 1; i <= 3; ++i) {
            EXPECT_EQ(i <= length / size ? CJournal::KNOWN : CJournal::RECORDED, append(*journal, block(i)));
        }
        EXPECT_EQ(blocks(3), file(1));
    }
    EXPECT_THAT(mLog.texts(), testing::SizeIs(whole.size() + 1 - 3));
    EXPECT_THAT(mLog.texts(), Each(HasSubstr(" bytes of a block that was cut short were taken off file 1")));
}

TEST_F(CJournalTest, LeavesDamageAloneAndGoesOnInANewFile) {
    const std::string whole = blocks(3);
    for (std::size_t at = 0; at < whole.size(); ++at) {
        SCOPED_TRACE(at);
        std::string damaged = whole;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x10);
        mFolder.write("00000001.rec", damaged);
        unlink((mFolder / "00000002.rec").c_str());
        const auto journal = open();
        const bool isLast = at >= whole.size() / 3 * 2;
        EXPECT_EQ(isLast ? CJournal::RECORDED : CJournal::KNOWN, append(*journal, block(3)));
        EXPECT_EQ(CJournal::RECORDED, append(*journal, block(4)));
        EXPECT_EQ(damaged, file(1));
        EXPECT_EQ((isLast ? block(3) : "") + block(4), file(2));
    }
}

TEST_F(CJournalTest, TurnsFilesOverAndKeepsTheNewest) {
    const auto journal = open(static_cast<unsigned>(2 * block(1).size()), 3);
    for (unsigned i = 1; i <= 9; ++i) {
        EXPECT_EQ(CJournal::RECORDED, append(*journal, block(i)));
    }
    EXPECT_THAT(mFolder.list(), ElementsAre("00000003.rec", "00000004.rec", "00000005.rec"));
    EXPECT_EQ(block(5) + block(6), file(3));
    EXPECT_EQ(block(9), file(5));
    EXPECT_EQ(CJournal::KNOWN, append(*open(1, 3), block(9)));
}

TEST_F(CJournalTest, ForgetsASamplerWithTheLastOfItsFiles) {
    const auto journal = open(1, 2);
    append(*journal, block(1));
    append(*journal, block(1, kSampler + 1));
    EXPECT_EQ(CJournal::KNOWN, append(*journal, block(1)));
    append(*journal, block(2, kSampler + 1));
    EXPECT_EQ(CJournal::RECORDED, append(*journal, block(1))) << "nothing of it is there any more";
    EXPECT_EQ(CJournal::KNOWN, append(*journal, block(1)));
}

TEST_F(CJournalTest, HasAllOfABlockOrNothingWhenThereIsNoSpace) {
    const ChildResult r = runInChild([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        const auto journal = open();
        ASSERT_EQ(CJournal::RECORDED, append(*journal, block(1)));
        const rlimit little = {block(1).size() + 10, RLIM_INFINITY};
        ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &little));
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(CJournal::FAILED, append(*journal, block(2)));
            EXPECT_EQ(EFBIG, errno);
            EXPECT_EQ(block(1), file(1));
        }
        const rlimit all = {RLIM_INFINITY, RLIM_INFINITY};
        ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &all));
        EXPECT_EQ(CJournal::RECORDED, append(*journal, block(2)));
        EXPECT_EQ(blocks(2), file(1));
    });
    EXPECT_TRUE(r.exitedWith(0)) << r;
}

TEST_F(CJournalTest, NeedsAFolderThatItCanRead) {
    CJournal journal((mFolder / "missing").c_str(), {});
    EXPECT_FALSE(journal.open());
    EXPECT_EQ(ENOENT, errno);
}

/// Processes that record into a folder of the test's own.
class recorder : public testing::Test {
protected:
    recorder() {
        mFolder.write("data", "value 42\n");
        mFolder.write("conf", "[devices]\n/dev/live/x 1 " + (mFolder / "data") +
                                  "\n[series]\nx.value /dev/live/x value 1 gauge 1 B\n");
    }

    ~recorder() override { removeSegment(folder()); }

    std::string folder() const { return mFolder / "rec"; }
    std::unique_ptr<ChildProcess> startRecorder(std::vector<std::string> options = {}) const {
        options.push_back(folder());
        auto child = std::make_unique<ChildProcess>(commandFor(RECORDER, options), patient());
        EXPECT_TRUE(child->waitForOut("recording into " + folder() + "\n")) << child->err();
        return child;
    }
    std::unique_ptr<ChildProcess> startSampler(std::vector<std::string> options) const {
        options.insert(options.end(), {mFolder / "conf", folder()});
        return std::make_unique<ChildProcess>(commandFor(SAMPLER, options), patient());
    }
    static ChildOptions patient() {
        ChildOptions options;
        options.deadline = std::chrono::seconds(110);
        return options;
    }
    static ChildResult stop(ChildProcess& child) {
        child.send(SIGTERM);
        return child.finish();
    }
    CHistory load() const {
        CHistory history;
        CVQString problem;
        EXPECT_TRUE(history.load(folder().c_str(), problem)) << problem.c_str();
        return history;
    }

    TemporaryFolder mFolder;
    SlogCapture mLog;
};

/// Blocks of two samples, as many as can be made.
const std::vector<std::string> kManyBlocks = {"--block=256", "--age=3", "--deadline=10000", "--waiting=65536",
                                              "--tell"};

/// The highest number in a sampler's lines of accepted blocks.
unsigned lastAccepted(const std::string& out) {
    unsigned last = 0;
    const std::size_t line = out.rfind("block ");
    return line != std::string::npos && std::sscanf(out.c_str() + line, "block %u accepted", &last) == 1 ? last : 0;
}

int milliseconds(std::mt19937& random, int longest) {
    return static_cast<int>(random() % static_cast<unsigned>(longest));
}

/// Recorded blocks by sampler, in the order of the samplers' starts.
std::vector<std::vector<unsigned>> blocksBySampler(const std::string& folder) {
    std::vector<std::vector<unsigned>> all;
    std::vector<unsigned long long> samplers;
    for (unsigned number = 1;; ++number) {
        char name[32];
        std::snprintf(name, sizeof(name), "/%08u.rec", number);
        if (access((folder + name).c_str(), R_OK) != 0) {
            return all;
        }
        const std::string bytes = readFile(folder + name);
        CBlockReader reader = readerOf(bytes);
        while (reader.next() == CBlockReader::BLOCK) {
            if (samplers.empty() || samplers.back() != reader.getBlock().sampler) {
                samplers.push_back(reader.getBlock().sampler);
                all.emplace_back();
            }
            all.back().push_back(reader.getBlock().sequence);
        }
        EXPECT_EQ(CBlockReader::END, reader.next());
    }
}

TEST_F(recorder, RecordsAllThatASamplerTakes) {
    const auto recording = startRecorder({"--sync"});
    const ChildResult sampling = startSampler({"--seconds=1", "--age=50"})->finish();
    ASSERT_TRUE(sampling.exitedWith(0)) << sampling;
    const ChildResult ended = stop(*recording);
    EXPECT_TRUE(ended.exitedWith(0)) << ended;
    unsigned taken = 0;
    unsigned accepted = 0;
    unsigned blockCount = 0;
    ASSERT_EQ(3, std::sscanf(sampling.out.c_str(), "%u samples taken, %u accepted in %u blocks", &taken, &accepted,
                             &blockCount));
    const CHistory history = load();
    EXPECT_EQ(taken, history.getSampleCount());
    EXPECT_EQ(taken, accepted);
    EXPECT_EQ(blockCount, history.getBlockCount());
    EXPECT_GT(taken, 10u);
    EXPECT_EQ(0u, history.getMissingCount());
    EXPECT_EQ(0u, history.getDoubledCount());
    ASSERT_EQ(1, history.getSeries().size());
    EXPECT_EQ(42, history.getSeries()[0].smallest);
    EXPECT_EQ(42, history.getSeries()[0].largest);
    EXPECT_THAT(ended.out, HasSubstr(std::to_string(blockCount) + " blocks recorded, 0 came again, 0 refused\n"));
    EXPECT_THAT(mLog.texts(), Not(testing::Contains(HasSubstr("ASSERTION"))));
}

TEST_F(recorder, RecordsWhatTheDemoNames) {
    const auto recording = startRecorder();
    const std::string demo = SOURCE_DIR "/examples/recorder/demo.conf";
    const ChildResult sampling = runProgram(SAMPLER, {"--seconds=1", demo, folder()});
    EXPECT_TRUE(sampling.exitedWith(0)) << sampling;
    EXPECT_TRUE(stop(*recording).exitedWith(0));
    const CHistory history = load();
    std::vector<std::string> names;
    for (const SSeriesHistory& series : history.getSeries()) {
        names.emplace_back(series.name.c_str());
        EXPECT_GT(series.samples, 1u) << names.back();
    }
    EXPECT_THAT(names, ElementsAre("cpu.system", "cpu.user", "kernel.forks", "kernel.interrupts", "kernel.switches",
                                   "load.average", "memory.available", "memory.cached", "network.received",
                                   "network.sent", "sampler.memory"));
}

TEST(RecorderReadme, ShowsTheProgramsThatAreBuilt) {
    const std::string readme = readFile(SOURCE_DIR "/README.md");
    for (const char* program : {"build/release/bin/recorder ",
                                "build/release/bin/sampler --seconds=5 "
                                "examples/recorder/demo.conf ",
                                "build/release/bin/viewer --html="}) {
        EXPECT_THAT(readme, HasSubstr(program));
    }
}

TEST_F(recorder, HasEachAcceptedBlockOnceWhateverSamplerIsKilled) {
    const int rounds = isEmulated() ? 5 : 15;
    std::mt19937 random(7);
    const auto recording = startRecorder();
    std::vector<unsigned> accepted;
    for (int round = 0; round < rounds; ++round) {
        const auto sampling = startSampler(kManyBlocks);
        EXPECT_TRUE(sampling->waitForOut("block 2 accepted")) << sampling->finish();
        usleep(static_cast<useconds_t>(1000 * milliseconds(random, 50) + milliseconds(random, 1000)));
        sampling->send(SIGKILL);
        accepted.push_back(lastAccepted(sampling->finish().out));
    }
    const ChildResult ended = stop(*recording);
    EXPECT_TRUE(ended.exitedWith(0)) << ended;
    const auto recorded = blocksBySampler(folder());
    ASSERT_EQ(accepted.size(), recorded.size());
    for (std::size_t i = 0; i < accepted.size(); ++i) {
        SCOPED_TRACE(i);
        // What was accepted, and perhaps one block more: its sampler did not live to hear, or tell, of it.
        EXPECT_GE(recorded[i].size(), accepted[i]);
        EXPECT_LE(recorded[i].size(), accepted[i] + 1);
        for (unsigned n = 0; n < recorded[i].size(); ++n) {
            EXPECT_EQ(n + 1, recorded[i][n]);
        }
    }
}

TEST_F(recorder, HasEachBlockOnceHoweverOftenItIsKilled) {
    const int rounds = isEmulated() ? 4 : 12;
    std::mt19937 random(11);
    auto recording = startRecorder({"--file-size=20000", "--files=1000"});
    const auto sampling = startSampler(kManyBlocks);
    for (int round = 0; round < rounds; ++round) {
        const unsigned before = lastAccepted(sampling->out());
        EXPECT_TRUE(sampling->waitForOut("block " + std::to_string(before + 3) + " accepted")) << sampling->err();
        usleep(static_cast<useconds_t>(1000 * milliseconds(random, 40) + milliseconds(random, 1000)));
        recording->send(SIGKILL);
        recording->finish();
        recording = startRecorder({"--file-size=20000", "--files=1000"});
    }
    const ChildResult sampled = stop(*sampling);
    EXPECT_TRUE(sampled.exitedWith(0)) << sampled.err;
    EXPECT_TRUE(stop(*recording).exitedWith(0));
    const CHistory history = load();
    EXPECT_EQ(0, history.getDamages().size());
    EXPECT_EQ(0u, history.getMissingCount());
    EXPECT_EQ(0u, history.getDoubledCount());
    EXPECT_EQ(lastAccepted(sampled.out), history.getBlockCount());
    EXPECT_THAT(sampled.out, HasSubstr(std::to_string(history.getSampleCount()) + " samples taken, " +
                                       std::to_string(history.getSampleCount()) + " accepted in "));
}

TEST_F(recorder, HasEachAcceptedBlockOnceWhenBothAreKilled) {
    const int rounds = isEmulated() ? 4 : 10;
    std::mt19937 random(13);
    std::vector<unsigned> accepted;
    for (int round = 0; round < rounds; ++round) {
        const auto recording = startRecorder();
        const auto sampling = startSampler(kManyBlocks);
        EXPECT_TRUE(sampling->waitForOut("block 1 accepted")) << sampling->err();
        usleep(static_cast<useconds_t>(milliseconds(random, 20000)));
        (round % 2 == 0 ? *recording : *sampling).send(SIGKILL);
        usleep(static_cast<useconds_t>(milliseconds(random, 2000)));
        (round % 2 == 0 ? *sampling : *recording).send(SIGKILL);
        accepted.push_back(lastAccepted(sampling->finish().out));
        recording->finish();
    }
    EXPECT_TRUE(stop(*startRecorder()).exitedWith(0));  // takes off what may be cut short
    const auto recorded = blocksBySampler(folder());
    ASSERT_EQ(accepted.size(), recorded.size());
    for (std::size_t i = 0; i < accepted.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_GE(recorded[i].size(), accepted[i]);
        EXPECT_LE(recorded[i].size(), accepted[i] + 1);
    }
    EXPECT_EQ(0u, load().getDoubledCount());
    EXPECT_EQ(0u, load().getMissingCount());
}

TEST_F(recorder, LeavesNoSharedMemoryOnceASamplerEndsInOrder) {
    const auto recording = startRecorder();
    const auto killed = startSampler(kManyBlocks);
    ASSERT_TRUE(killed->waitForOut("block 1 accepted"));
    killed->send(SIGKILL);
    killed->finish();
    const std::string name = CServiceFile::readLine((folder() + "/sampler").c_str()).c_str();
    ASSERT_THAT(name, StartsWith("/sampler-"));
    EXPECT_EQ(0, access(("/dev/shm" + name).c_str(), F_OK)) << "a kill leaves it";

    const auto next = startSampler(kManyBlocks);
    ASSERT_TRUE(next->waitForOut("block 1 accepted"));
    EXPECT_NE(0, access(("/dev/shm" + name).c_str(), F_OK));
    const std::string nextName = CServiceFile::readLine((folder() + "/sampler").c_str()).c_str();
    EXPECT_TRUE(stop(*next).exitedWith(0));
    EXPECT_NE(0, access(("/dev/shm" + nextName).c_str(), F_OK));
    EXPECT_STREQ("", CServiceFile::readLine((folder() + "/sampler").c_str()).c_str());
}

/// What a program may send that is no sampler.
class HostileSampler {
public:
    HostileSampler(const std::string& folder, unsigned size) {
        int process = 0;
        int channel = 0;
        EXPECT_EQ(2, std::sscanf(readFile(folder + "/recorder").c_str(), "%d %d", &process, &channel));
        EXPECT_TRUE(VQChannelAccess::attach(mConnection, channel, process, 0));
        const std::string name = "/marlix-test-" + std::to_string(getpid()) + "-recorder";
        mSegment = CVQReferencedSharedMemory::create(name.c_str(), size);
        EXPECT_FALSE(mSegment.isNull());
    }
    HostileSampler(const HostileSampler&) = delete;
    HostileSampler& operator=(const HostileSampler&) = delete;
    ~HostileSampler() { ConnectDetach(mConnection); }

    /// The status, or the error below 0.
    int send(const std::string& message) const {
        std::string bytes = message;
        const iovec part = {bytes.data(), bytes.size()};
        const int status = VQChannelAccess::sendv(mConnection, &part, 1, nullptr, 0, 10000);
        return status == -1 ? -errno : status;
    }
    int sendBlock(const std::string& block, unsigned size) const {
        std::memcpy(mSegment->getDataPtr(), block.data(), block.size());
        CVQByteStream message;
        message << mSegment << size;
        return send(toString(message));
    }
    int sendBlock(const std::string& block) const { return sendBlock(block, static_cast<unsigned>(block.size())); }

private:
    int mConnection = -1;
    TVQRefCountPointer<CVQReferencedSharedMemory> mSegment;
};

TEST_F(recorder, RecognisesABlockWhoseReplyWasLost) {
    const auto recording = startRecorder();
    const HostileSampler sampler(folder(), 4096);
    EXPECT_EQ(Message::RECORDED, sampler.sendBlock(block(1)));
    EXPECT_EQ(Message::KNOWN, sampler.sendBlock(block(1)));
    EXPECT_EQ(Message::RECORDED, sampler.sendBlock(block(2)));
    EXPECT_THAT(stop(*recording).out, HasSubstr("2 blocks recorded, 1 came again, 0 refused\n"));
    EXPECT_EQ(blocks(2), readFile(folder() + "/00000001.rec"));
}

TEST_F(recorder, RefusesWhatIsNoBlockAndGoesOn) {
    const auto recording = startRecorder();
    const HostileSampler sampler(folder(), 4096);
    const std::string good = block(1);
    for (std::size_t at = 0; at < good.size(); ++at) {
        std::string bad = good;
        bad[at] = static_cast<char>(bad[at] ^ 4);
        ASSERT_EQ(-EBADMSG, sampler.sendBlock(bad)) << at;
    }
    const unsigned size = static_cast<unsigned>(good.size());
    EXPECT_EQ(-EBADMSG, sampler.sendBlock(good, 0));
    EXPECT_EQ(-EBADMSG, sampler.sendBlock(good, size - 1));
    EXPECT_EQ(-EBADMSG, sampler.sendBlock(good, size + 1));
    EXPECT_EQ(-EBADMSG, sampler.sendBlock(good, 4097)) << "more than the segment";
    EXPECT_EQ(-EBADMSG, sampler.sendBlock(good, 0xFFFFFFFF));
    EXPECT_EQ(-EBADMSG, sampler.send(""));
    EXPECT_EQ(-EBADMSG, sampler.send("short"));
    EXPECT_EQ(-EBADMSG, sampler.send(std::string(512, '\xff')));
    EXPECT_EQ(-EBADMSG, sampler.send(std::string(100000, '\0')));
    EXPECT_EQ(-EBADMSG, sampler.send(std::string("\x08\0\0\0/missing\0\x10\0\0\x20\0\0\0", 20)));
    EXPECT_EQ(Message::RECORDED, sampler.sendBlock(good));
    EXPECT_EQ(good, readFile(folder() + "/00000001.rec"));
    const ChildResult r = stop(*recording);
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_THAT(r.out,
                HasSubstr("1 blocks recorded, 0 came again, " + std::to_string(good.size() + 10) + " refused\n"));
}

TEST_F(recorder, TellsOfDamageAndGoesOnInANewFile) {
    std::string damaged = blocks(2);
    damaged[0] = 'X';
    EXPECT_TRUE(stop(*startRecorder()).exitedWith(0));  // makes the folder
    mFolder.write("rec/00000001.rec", damaged);
    const auto recording = startRecorder();
    EXPECT_EQ(Message::KNOWN, HostileSampler(folder(), 4096).sendBlock(block(2)));
    EXPECT_EQ(Message::RECORDED, HostileSampler(folder(), 4096).sendBlock(block(3)));
    const ChildResult r = stop(*recording);
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_EQ("recorder: " + folder() + ": file 1 is damaged at byte 0; it stays as it is\n", r.err);
    EXPECT_THAT(mLog.texts(),
                testing::Contains(HasSubstr("recorder: file 1 is damaged at byte 0; it stays as it is")));
    EXPECT_EQ(damaged, readFile(folder() + "/00000001.rec"));
    EXPECT_EQ(block(3), readFile(folder() + "/00000002.rec"));
}

TEST_F(recorder, IsTheOnlyOneOfItsFolder) {
    const auto first = startRecorder();
    const ChildResult second = runProgram(RECORDER, {folder()});
    EXPECT_TRUE(second.exitedWith(1)) << second;
    EXPECT_EQ("recorder: " + folder() + ": another recorder records into this folder\n", second.err);
}

TEST_F(recorder, SaysWhereItCannotRecord) {
    const std::string file = mFolder.write("file", "");
    const ChildResult r = runProgram(RECORDER, {file});
    EXPECT_TRUE(r.exitedWith(1)) << r;
    EXPECT_EQ("recorder: " + file + ": Not a directory\n", r.err);
    const ChildResult deep = runProgram(RECORDER, {file + "/deep"});
    EXPECT_TRUE(deep.exitedWith(1)) << deep;
    EXPECT_EQ("recorder: " + file + "/deep: Not a directory\n", deep.err);
}

TEST_F(recorder, AndItsCompanionsRefuseOptionFilesThatGiveNone) {
    const std::string missing = mFolder / "missing";
    const std::string noSection = mFolder.write("nosection", "--tell\n");
    const std::string noLine = mFolder.write("noline", "[COMMANDLINE]\n# --tell\n[other]\n--tell\n");
    const struct {
        int line;
        std::string file;
        std::string message;
    } rows[] = {
        {__LINE__, missing, "cannot read the option file " + missing + ": No such file or directory"},
        {__LINE__, mFolder.path(), "cannot read the option file " + mFolder.path() + ": Is a directory"},
        {__LINE__, noSection, "the option file " + noSection + " has no line in a section [COMMANDLINE]"},
        {__LINE__, noLine, "the option file " + noLine + " has no line in a section [COMMANDLINE]"},
    };
    for (const auto& [name, program] :
         {std::pair("recorder", RECORDER), {"sampler", SAMPLER}, {"viewer", VIEWER}}) {
        for (const auto& row : rows) {
            SCOPED_TRACE(std::string(name) + ", line " + std::to_string(row.line));
            const ChildResult r = runProgram(program, {"@" + row.file, mFolder / "conf", folder()});
            EXPECT_TRUE(r.exitedWith(2)) << r;
            EXPECT_EQ(name + (": " + row.message) + "\nTry '" + name + " --help'.\n", r.err);
            EXPECT_EQ("", r.out);
        }
    }
}

TEST_F(recorder, TakesOptionsFromAPipe) {
    ChildOptions options;
    options.input = "[COMMANDLINE]\n--files=0\n";
    const ChildResult r = runProgram(RECORDER, {"@/dev/stdin", folder()}, options);
    EXPECT_TRUE(r.exitedWith(2)) << r;
    EXPECT_THAT(r.err, HasSubstr("--files takes a number from 1 to 10000, not '0'"));
}

TEST_F(recorder, RefusesAWrongCommandLineAndHelps) {
    const struct {
        int line;
        std::vector<std::string> arguments;
        std::string message;
    } rows[] = {
        {__LINE__, {}, "recorder: too few operands\n"},
        {__LINE__, {"one", "two"}, "recorder: 'two' is one operand too many\n"},
        {__LINE__, {"--spoil=1"}, "recorder: unknown option '--spoil=1'\n"},
        {__LINE__, {"--sync=1"}, "recorder: --sync takes no value\n"},
        {__LINE__, {"--files"}, "recorder: --files takes a value: --files=...\n"},
        {__LINE__, {"--files=0", "x"}, "recorder: --files takes a number from 1 to 10000, not '0'\n"},
        {__LINE__, {"--file-size=268435457", "x"}, "not '268435457'\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const ChildResult r = runProgram(RECORDER, row.arguments);
        EXPECT_TRUE(r.exitedWith(2)) << r;
        EXPECT_THAT(r.err, HasSubstr(row.message));
        EXPECT_THAT(r.err, testing::EndsWith("Try 'recorder --help'.\n"));
    }
    const ChildResult help = runProgram(RECORDER, {"-h"});
    EXPECT_TRUE(help.exitedWith(0));
    EXPECT_THAT(help.out, StartsWith("Usage: recorder [option...] FOLDER\n"));
    EXPECT_EQ("", help.err);
}

}  // namespace
