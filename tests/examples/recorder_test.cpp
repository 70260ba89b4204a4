// Concerns: the table against numbers counted here; texts of every shape; the log; bad input of every kind; a
// partner that dies; interrupts; the terminal; the heap.
#include "support/ChildProcess.h"
#include "support/SlogCapture.h"
#include "support/TemporaryFolder.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <sstream>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace support;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

using Words = std::vector<std::string>;

constexpr char kInvalid[] = "The character sequence contains a wrong coded UTF-8 sequence !";

/// A text with what the table should say of it.
struct Text {
    std::string bytes;
    unsigned long long records = 0;
    unsigned long long keptBytes = 0;
    unsigned long long invalidLines = 0;

    void add(const std::string& valid, const std::string& rest, const std::string& end) {
        bytes += valid + rest + end;
        ++records;
        keptBytes += valid.size();
        invalidLines += rest.empty() ? 0 : 1;
    }

    unsigned long long recordBytes() const { return records * (4 + 8 + 4) + keptBytes; }
};

struct Row {
    std::string written;
    std::string read;
};

bool operator==(const Row& left, const Row& right) {
    return left.written == right.written && left.read == right.read;
}

std::ostream& operator<<(std::ostream& stream, const Row& row) {
    return stream << '\'' << row.written << "' '" << row.read << '\'';
}

/// The two columns of a row, without the commas.
Row rowOf(const std::string& table, const std::string& name) {
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("  " + name + " ", 0) != 0)
            continue;
        line.erase(std::remove(line.begin(), line.end(), ','), line.end());
        std::istringstream columns(line.substr(2 + name.size()));
        Row row;
        columns >> row.written >> row.read;
        return row;
    }
    ADD_FAILURE() << "no row " << name << " in\n" << table;
    return {};
}

Row both(unsigned long long number) {
    return {std::to_string(number), std::to_string(number)};
}

void expectTable(const Text& text, const ChildResult& r) {
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_EQ("", r.err);
    EXPECT_EQ(both(text.records), rowOf(r.out, "records"));
    EXPECT_EQ(both(text.recordBytes()), rowOf(r.out, "bytes"));
    EXPECT_EQ((Row{std::to_string(text.invalidLines), "0"}), rowOf(r.out, "invalid lines cut"));
    EXPECT_THAT(r.out, HasSubstr("are the same on both sides"));
}

class recorder : public testing::Test {
protected:
    // The switch is given, since a program under an emulator cannot start itself anew.
    ChildResult record(Words arguments, ChildOptions options = {}) const {
        arguments.insert(arguments.begin(), "--memtrace=1");
        return runProgram(RECORDER, arguments, options);
    }

    ChildResult recordText(const std::string& bytes, Words arguments = {}) const {
        arguments.push_back(mFolder.write("text", bytes));
        return record(arguments);
    }

    TemporaryFolder mFolder;
    SlogCapture mLog;
};

/// A recorder that reads from a pipe which the test holds.
class RunningRecorder {
public:
    RunningRecorder(const std::string& fifo, Words command, ChildOptions options = {})
        : mDescriptor((mkfifo(fifo.c_str(), 0600), open(fifo.c_str(), O_RDWR | O_CLOEXEC))),
          mChild((command.push_back(fifo), command), std::move(options)) {}
    ~RunningRecorder() { endInput(); }

    ChildProcess& child() { return mChild; }

    /// Returns when the recorder has taken the text in.
    void give(const std::string& text) {
        ASSERT_EQ(static_cast<ssize_t>(text.size()), write(mDescriptor, text.data(), text.size()));
        int waiting = 1;
        for (int i = 0; i < 10000 && waiting != 0; ++i) {
            usleep(1000);
            ASSERT_EQ(0, ioctl(mDescriptor, FIONREAD, &waiting));
        }
        ASSERT_EQ(0, waiting) << "nobody reads";
    }

    void endInput() {
        if (mDescriptor >= 0)
            close(mDescriptor);
        mDescriptor = -1;
    }

private:
    int mDescriptor;
    ChildProcess mChild;
};

pid_t childOf(pid_t parent) {
    const std::string id = std::to_string(parent);
    return std::atoi(readFile("/proc/" + id + "/task/" + id + "/children").c_str());
}

/// Returns when the process, of one thread, has done what there was to do and waits for more.
bool waitUntilAsleep(pid_t process) {
    const std::string stat = "/proc/" + std::to_string(process) + "/stat";
    for (int i = 0; i < 10000; ++i) {
        usleep(1000);
        const std::string line = readFile(stat);
        const std::size_t name = line.rfind(')');
        if (name != std::string::npos && line.compare(name, 4, ") S ") == 0)
            return true;
    }
    return false;
}

TEST_F(recorder, CountsWhatThisTestCounts) {
    std::mt19937 random(20260101);
    const auto below = [&](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    const Words pieces = {"word ", "\xc3\xa4", "\xe2\x82\xac", "\xf0\x9f\x98\x80", "\t", "0123456789"};
    const Words wrongs = {"\xff", "\x80", "\xc3", "\xe2\x82", "\xc3(", "\xe2\x82(", "\xfe\xfe rest \xc3\xa4"};
    const Words ends = {"\n", "\n", "\n", "\r\n"};
    Text text;
    for (int i = 0; i < 20000; ++i) {
        std::string valid;
        for (unsigned n = below(12); n > 0; --n)
            valid += pieces[below(6)];
        text.add(valid, below(500) == 0 ? wrongs[below(7)] : "", ends[below(4)]);
    }
    text.add("and no end of line", "", "");
    ASSERT_GT(text.invalidLines, 10u);

    expectTable(text, recordText(text.bytes));

    const auto records = mLog.records();
    ASSERT_EQ(text.invalidLines + 2, records.size()) << "one for each invalid line, one of each process at its end";
    for (std::size_t i = 0; i < text.invalidLines; ++i) {
        EXPECT_EQ(2, records[i].severity);
        EXPECT_EQ(10000u, records[i].opcode());
        EXPECT_EQ("pid " + std::to_string(records[i].pid) + ": " + kInvalid, records[i].text);
    }
}

TEST_F(recorder, TheBlockSizeChangesNothing) {
    Text text;
    for (int i = 0; i < 300; ++i)
        text.add(std::string(static_cast<std::size_t>(i), 'x'), "", "\n");
    for (const char* size : {"1", "16", "17", "100", "4096", "67108864"}) {
        SCOPED_TRACE(size);
        expectTable(text, recordText(text.bytes, {"--block", size}));
    }
}

TEST_F(recorder, RecordsTextsOfEveryShape) {
    const struct {
        int line;
        std::string bytes;
        unsigned long long records;
        unsigned long long keptBytes;
    } rows[] = {
        {__LINE__, "", 0, 0},       {__LINE__, "\n", 1, 0},         {__LINE__, "\n\n\n", 3, 0},
        {__LINE__, "no end", 1, 6}, {__LINE__, "a\r\nb\r\n", 2, 2}, {__LINE__, "a\rb", 1, 3},
        {__LINE__, "\r\n", 1, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        Text text;
        text.records = row.records;
        text.keptBytes = row.keptBytes;
        expectTable(text, recordText(row.bytes));
    }
    EXPECT_EQ((Row{"-", "-"}), rowOf(recordText("").out, "MB/s of its own work")) << "nothing done, no speed";
}

TEST_F(recorder, RecordsALineOfAHundredMegabytes) {
    Text text;
    text.add(std::string(100000000, 'x'), "", "\n");
    text.add("after", "", "\n");
    expectTable(text, recordText(text.bytes));
}

TEST_F(recorder, RecordsStandardInput) {
    ChildOptions options;
    options.input = "one\ntwo\n\xff\n";
    const ChildResult r = record({"-"}, options);
    EXPECT_THAT(r.out, StartsWith("Recorded standard input\n"));
    EXPECT_EQ(both(3), rowOf(r.out, "records"));
    EXPECT_EQ((Row{"1", "0"}), rowOf(r.out, "invalid lines cut"));
}

TEST_F(recorder, RecordsWhatComesInPiecesSmallerThanLines) {
    RunningRecorder running(mFolder / "fifo", commandFor(RECORDER, {"--memtrace=1"}));
    for (const char* piece : {"o", "ne\nt", "wo", "\r", "\n", "\xe2", "\x82", "\xac", "\nlast"})
        running.give(piece);
    running.endInput();
    Text text;
    for (const char* line : {"one", "two", "\xe2\x82\xac", "last"})
        text.add(line, "", "\n");
    expectTable(text, running.child().finish());
}

TEST_F(recorder, TakesATextThatTheMachineHas) {
    const ChildResult r = record({});
    if (r.exitCode == 1 && r.err == "recorder: this machine has none of the usual texts; name a file\n")
        GTEST_SKIP() << "and so it is";
    ASSERT_TRUE(r.exitedWith(0)) << r;
    ASSERT_THAT(r.out, StartsWith("Recorded /"));
    const std::string path = r.out.substr(9, r.out.find('\n') - 9);
    const std::string bytes = readFile(path);
    EXPECT_EQ(both(static_cast<unsigned long long>(std::count(bytes.begin(), bytes.end(), '\n'))),
              rowOf(r.out, "records"));
}

TEST_F(recorder, LinesAreCutAtAZeroByteAndThatIsToldApart) {
    Text text;
    for (int i = 0; i < 2000; ++i)
        text.add(std::string(50, 'x'), "", "\n");
    text.bytes += std::string("kept\0lost\n", 10) + "kept too\xff\n";
    text.records += 2;
    text.keptBytes += 4 + 8;
    text.invalidLines = 1;
    const ChildResult r = recordText(text.bytes);
    expectTable(text, r);
    EXPECT_EQ((Row{"1", "0"}), rowOf(r.out, "cut at a zero byte"));
    EXPECT_THAT(recordText("no zeros").out, Not(HasSubstr("zero byte")));
}

TEST_F(recorder, SpoilsLinesWhenAsked) {
    Text text;
    for (int i = 1; i <= 100; ++i)
        text.add(i % 30 == 0 ? "lin" : "line", i % 30 == 0 ? "e" : "", "\n");
    expectTable(text, recordText(text.bytes, {"--spoil", "30"}));
    EXPECT_EQ(3u, text.invalidLines);
    const auto texts = mLog.texts();
    EXPECT_EQ(3, std::count_if(texts.begin(), texts.end(),
                               [](const std::string& line) { return line.find(kInvalid) != std::string::npos; }));
}

TEST_F(recorder, ItsLogIsSeenInTheViewer) {
    Words arguments = commandFor(RECORDER, {"--memtrace=1", mFolder.write("text", "good\nbad \xff\n")});
    arguments.insert(arguments.begin(), {"--color=never", "--"});
    const ChildResult r = runProgram(SLOGVIEW, arguments);
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_EQ(both(2), rowOf(r.out, "records"));
    EXPECT_THAT(r.err,
                ContainsRegex("error     10000 .*  pid [0-9]+: The character sequence contains a wrong coded"));
    EXPECT_THAT(r.err, ContainsRegex("info      10000 .*  pid [0-9]+: recorder: wrote 2 records in 40 bytes\n"));
    EXPECT_THAT(r.err, ContainsRegex("info      10000 .*  pid [0-9]+: recorder: read 2 records in 40 bytes\n"));
    EXPECT_THAT(r.err, testing::EndsWith("slogview: 3 records\n"));
    EXPECT_THAT(mLog.records(), IsEmpty());
}

TEST_F(recorder, RefusesWhatIsNoText) {
    const std::string missing = mFolder / "missing";
    const std::string binary = mFolder.write("binary", std::string("\x7f"
                                                                   "ELF\0\0",
                                                                   6));
    const struct {
        int line;
        std::string path;
        std::string message;
    } rows[] = {
        {__LINE__, missing, missing + ": No such file or directory"},
        {__LINE__, mFolder.path(), mFolder.path() + ": Is a directory"},
        {__LINE__, binary, binary + ": this is no text, it holds binary data"},
        {__LINE__, RECORDER, RECORDER ": this is no text, it holds binary data"},
        {__LINE__, "/proc/self/mem", "/proc/self/mem: Input/output error"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const ChildResult r = record({row.path});
        EXPECT_TRUE(r.exitedWith(1)) << r;
        EXPECT_EQ("recorder: " + row.message + "\n", r.err);
        EXPECT_EQ("", r.out);
    }
}

TEST_F(recorder, RefusesAFileThatItMayNotRead) {
    const std::string path = mFolder.write("text", "x");
    ASSERT_EQ(0, chmod(path.c_str(), 0));
    constexpr uid_t kNobody = 65534;  // root may read everything
    const ChildResult r = runInChild([&] {
        if (geteuid() == 0 && setuid(kNobody) != 0)
            std::_Exit(kCannotStart);
        const Words command = commandFor(RECORDER, {"--memtrace=1", path});
        std::vector<char*> arguments;
        for (const std::string& word : command)
            arguments.push_back(const_cast<char*>(word.c_str()));
        arguments.push_back(nullptr);
        execvp(arguments[0], arguments.data());
        std::_Exit(kCannotStart);
    });
    if (r.exitedWith(kCannotStart))
        GTEST_SKIP() << "nobody may not start the program here";
    EXPECT_TRUE(r.exitedWith(1)) << r;
    EXPECT_EQ("recorder: " + path + ": Permission denied\n", r.err);
}

TEST_F(recorder, RefusesAWrongCommandLine) {
    const struct {
        int line;
        Words arguments;
        std::string message;
    } rows[] = {
        {__LINE__, {"--unknown"}, "recorder: unknown option '--unknown'\n"},
        {__LINE__, {"--blocks=5"}, "recorder: unknown option '--blocks=5'\n"},
        {__LINE__, {"-x"}, "recorder: unknown option '-x'\n"},
        {__LINE__, {"--spoil"}, "recorder: --spoil takes a value\n"},
        {__LINE__, {"one", "two"}, "recorder: one file at a time\n"},
        {__LINE__, {""}, "recorder: a file without a name\n"},
        {__LINE__, {"--block", "0"}, "recorder: --block takes a number from 1 to 67108864, not '0'\n"},
        {__LINE__, {"--block", "67108865"}, "not '67108865'\n"},
        {__LINE__, {"--block", "99999999999999999999"}, "not '99999999999999999999'\n"},
        {__LINE__, {"--spoil", "-1"}, "recorder: --spoil takes a number from 1 to 1000000000, not '-1'\n"},
        {__LINE__, {"--spoil", "5x"}, "not '5x'\n"},
        {__LINE__, {"--spoil", ""}, "not ''\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const ChildResult r = record(row.arguments);
        EXPECT_TRUE(r.exitedWith(2)) << r;
        EXPECT_THAT(r.err, HasSubstr(row.message));
        EXPECT_THAT(r.err, testing::EndsWith("Try 'recorder --help'.\n"));
        EXPECT_EQ("", r.out);
    }
}

TEST_F(recorder, AFileMayBeCalledLikeAnOption) {
    mFolder.write("--spoil", "x\n");
    ChildOptions options;
    options.folder = mFolder.path();
    EXPECT_THAT(record({"--", "--spoil"}, options).out, StartsWith("Recorded --spoil\n"));
}

TEST_F(recorder, HelpIsOnStandardOutput) {
    const ChildResult r = record({"--help"});
    EXPECT_TRUE(r.exitedWith(0));
    EXPECT_THAT(r.out, StartsWith("Usage: recorder"));
    EXPECT_EQ("", r.err);
}

TEST_F(recorder, SaysThatItsPartnerDied) {
    RunningRecorder running(mFolder / "fifo", commandFor(RECORDER, {"--memtrace=1", "--block=1"}));
    running.give("one\n");
    const pid_t partner = childOf(running.child().pid());
    ASSERT_GT(partner, 0);
    ASSERT_EQ(0, kill(partner, SIGKILL));
    running.give("two\nthree\n");
    running.endInput();
    const ChildResult r = running.child().finish();
    EXPECT_TRUE(r.exitedWith(1)) << r;
    EXPECT_EQ("recorder: the reading process died: it was ended by signal 9 (Killed)\n", r.err);
    EXPECT_EQ("", r.out);
}

TEST_F(recorder, ThePartnerSaysThatItWasLeftAlone) {
    Words command = {"sh", "-c", "\"$@\" & echo $!; wait; sleep 0.5", "sh"};
    const Words program = commandFor(RECORDER, {"--memtrace=1", "--block=1"});
    command.insert(command.end(), program.begin(), program.end());
    RunningRecorder running(mFolder / "fifo", command);
    ASSERT_TRUE(running.child().waitForOut("\n"));
    running.give("one\ntwo\n");
    const pid_t writer = std::atoi(running.child().out().c_str());
    ASSERT_TRUE(waitUntilAsleep(writer));
    ASSERT_EQ(0, kill(writer, SIGKILL));
    EXPECT_TRUE(running.child().waitForErr("recorder: the writing process died; "
                                           "the records ended without their end mark, after number 1\n"))
        << running.child().finish();
}

TEST_F(recorder, AnInterruptEndsItWithWhatIsThere) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread sanitizer puts handlers off, beyond a pselect that it does not know";
#endif
    for (const int signal : {SIGINT, SIGTERM}) {
        SCOPED_TRACE(signal);
        RunningRecorder running(mFolder / ("fifo" + std::to_string(signal)),
                                commandFor(RECORDER, {"--memtrace=1"}));
        running.give("one\ntwo\nhalf a li");
        kill(-running.child().pid(), signal);  // as a terminal does it: to both processes
        const ChildResult r = running.child().finish();
        EXPECT_TRUE(r.exitedWith(130)) << r;
        EXPECT_EQ("", r.err);
        EXPECT_EQ(both(2), rowOf(r.out, "records"));
        EXPECT_THAT(r.out, HasSubstr("\nInterrupted. Records,"));
    }
}

TEST_F(recorder, ShowsItsProgressOnATerminalOnly) {
    for (const Output output : {Output::Terminal, Output::Pipe}) {
        ChildOptions options;
        options.output = output;
        RunningRecorder running(mFolder / (output == Output::Pipe ? "fifo1" : "fifo2"),
                                commandFor(RECORDER, {"--memtrace=1"}), options);
        for (int i = 0; i < 4; ++i) {
            std::string lines;
            for (int line = 0; line < 256; ++line)
                lines += "line\n";
            running.give(lines);
            usleep(150000);
        }
        running.endInput();
        const ChildResult r = running.child().finish();
        EXPECT_EQ(both(1024), rowOf(r.out, "records"));
        if (output == Output::Pipe) {
            EXPECT_EQ("", r.err);
            EXPECT_THAT(r.out, Not(HasSubstr("\r")));
        } else {
            EXPECT_THAT(r.out, HasSubstr("\r\033[K5.0 KiB, 1,024 lines\r\033[KRecorded ")) << r;
        }
    }
}

TEST_F(recorder, SamplesTheHeapWhereItIsTraced) {
    Text text;
    for (int i = 0; i < 10000; ++i)
        text.add(std::string(50, 'x'), "", "\n");
    const std::string traced = recordText(text.bytes, {"--block=262144"}).out;
    std::istringstream row(traced.substr(traced.find("peak heap") + 9));
    for (const char* side : {"written", "read back"}) {
        SCOPED_TRACE(side);
        double size = 0;
        std::string unit;
        row >> size >> unit;
        EXPECT_EQ("KiB", unit) << traced;
        EXPECT_GE(size, 256) << "each side holds a block";
        EXPECT_LT(size, 1024) << "and little else";
    }
    const std::string path = mFolder / "text";
    EXPECT_THAT(runProgram(RECORDER, {"--memtrace=0", path}).out, HasSubstr("not traced      not traced"));
}

TEST_F(recorder, StartsItselfAnewToTraceTheHeap) {
    if (isEmulated())
        GTEST_SKIP() << "a program under the emulator cannot start itself";
    const ChildResult r = runProgram(RECORDER, {mFolder.write("text", "x\n")});
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_THAT(r.out, ContainsRegex("peak heap +[0-9.]+ [KM]?i?B +[0-9.]+ [KM]?i?B\n"));
}

TEST_F(recorder, SaysThatItsTableCannotBeWritten) {
    Words command = {"sh", "-c", "\"$@\" > /dev/full", "sh"};
    const Words program = commandFor(RECORDER, {"--memtrace=1", mFolder.write("text", "x\n")});
    command.insert(command.end(), program.begin(), program.end());
    const ChildResult r = ChildProcess(command).finish();
    EXPECT_TRUE(r.exitedWith(1)) << r;
    EXPECT_EQ("recorder: cannot write the table\n", r.err);
}

}  // namespace
