// Concerns: what a record looks like; hostile texts and datagrams; filters; end conditions; the socket's life
// (default, stale, live, in the way, signals); colour; running a program (variable, streams, status, signals).
#include "support/ChildProcess.h"
#include "support/SlogDatagram.h"
#include "support/TemporaryFolder.h"

#include <algorithm>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace support;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

using Words = std::vector<std::string>;

// Some time at the sixth of a second, UTC.
constexpr std::uint64_t kNoonNs = 1000000000ull * (20000ull * 86400 + 12 * 3600 + 34 * 60 + 56) + 166999999;
constexpr char kNoon[] = "12:34:56.166";

bool exists(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0;
}

void leaveStaleSocket(const std::string& path) {
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::copy(path.begin(), path.end(), address.sun_path);
    ASSERT_EQ(0, bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    close(descriptor);
}

class slogview : public testing::Test {
protected:
    ChildOptions options() const {
        ChildOptions options = mOptions;
        options.environment.insert(options.environment.begin(), {{"TZ", "UTC"},
                                                                 {"NO_COLOR", std::nullopt},
                                                                 {"NTO_SLOG", std::nullopt},
                                                                 {"XDG_RUNTIME_DIR", mFolder.path()}});
        return options;
    }

    ChildResult run(const Words& arguments) const { return runProgram(SLOGVIEW, arguments, options()); }

    /// A viewer that owns mSocket when this returns.
    std::unique_ptr<ChildProcess> start(Words arguments) const {
        arguments.insert(arguments.begin(), {"--socket", mSocket});
        auto viewer = std::make_unique<ChildProcess>(commandFor(SLOGVIEW, arguments), options());
        EXPECT_TRUE(mOptions.output == Output::Pipe ? viewer->waitForErr("listening")
                                                    : viewer->waitForOut("listening"))
            << viewer->finish();
        return viewer;
    }

    /// What is shown of these datagrams. The last one ends the viewer.
    ChildResult show(const std::vector<SlogDatagram>& records, Words arguments = {}) const {
        arguments.insert(arguments.end(), {"--count", std::to_string(records.size())});
        const auto viewer = start(arguments);
        // Sent by another process, so that this one can take in what the viewer writes.
        ChildProcess sender([&] {
            for (const SlogDatagram& record : records)
                sendDatagram(mSocket, record.bytes());
        });
        return viewer->finish();
    }

    /// The texts shown of some records of different kinds, through filters.
    Words filtered(const Words& arguments) const {
        const auto viewer = start(arguments);
        for (int i = 0; i < 8; ++i) {
            SlogDatagram record;
            record.text = std::string(i % 2 ? "odd" : "even") + " record " + std::to_string(i);
            record.severity = i;
            record.pid = 100 + i / 2;
            record.code = i < 4 ? 10000 : 10001;
            record.subCode = static_cast<unsigned>(i % 4);
            sendDatagram(mSocket, record.bytes());
        }
        viewer->send(SIGTERM);
        const std::string out = viewer->finish().out;
        Words texts;
        for (std::size_t at = 0; (at = out.find(" record ", at)) != std::string::npos; ++at)
            texts.push_back(out.substr(at + 8, 1));
        return texts;
    }

    TemporaryFolder mFolder;
    std::string mSocket = mFolder / "socket";
    ChildOptions mOptions;
};

TEST_F(slogview, ShowsEveryFieldOfARecord) {
    SlogDatagram record{"pid 4711: something happened"};
    record.subCode = 17;
    record.pid = 4711;
    record.tid = 4712;
    record.timeNs = kNoonNs;
    const ChildResult r = show({record});
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_EQ(std::string(kNoon) + "  error     10000/17       4711     4712  pid 4711: something happened\n",
              r.out);
    EXPECT_EQ("slogview: listening; start programs with NTO_SLOG=" + mSocket + "\nslogview: 1 record\n", r.err);
}

TEST_F(slogview, NamesEverySeverityAndMarksUnknownOnes) {
    std::vector<SlogDatagram> records;
    for (const int severity : {0, 1, 2, 3, 4, 5, 6, 7, 8, -1}) {
        SlogDatagram record{"x"};
        record.severity = severity;
        record.timeNs = kNoonNs;
        records.push_back(record);
    }
    std::string expected;
    for (const char* name : {"shutdown", "critical", "error   ", "warning ", "notice  ", "info    ", "debug1  ",
                             "debug2  ", "?8      ", "?-1     "})
        expected += std::string(kNoon) + "  " + name + "  10000            12       34  x\n";
    EXPECT_EQ(expected, show(records).out);
}

TEST_F(slogview, KeepsItsColumnsUnderTheLargestValues) {
    SlogDatagram record{"x"};
    record.code = 0xFFFFF;
    record.subCode = 0xFFF;
    record.severity = -2147483647 - 1;
    record.pid = -2147483647 - 1;
    record.tid = 2147483647;
    record.timeNs = ~0ull;
    EXPECT_THAT(show({record}).out, HasSubstr("  ?-2147483648 1048575/4095 -21474836482147483647  x\n"));
}

TEST_F(slogview, TextsCannotSteerTheTerminal) {
    const struct {
        int line;
        std::string text;
        std::string shown;
    } rows[] = {
        {__LINE__, "plain", "plain"},
        {__LINE__, "", ""},
        {__LINE__, "two\nlines\r\tand a tab", "two\\nlines\\r\\tand a tab"},
        {__LINE__, "\x1b[2J\x07\x7f", "\\x1b[2J\\x07\\x7f"},
        {__LINE__, std::string("a\0b", 3), "a\\x00b"},
        {__LINE__, "\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80", "\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80"},
        {__LINE__, "\xc2\x9b", "\\u009b"},                       // a control sequence in one character
        {__LINE__, "\xe2\x80\xae", "\\u202e"},                   // turns the line round
        {__LINE__, "\xe2\x80\xa8", "\\u2028"},                   // ends a line in some terminals
        {__LINE__, "\xff\xc3", "\\xff\\xc3"},                    // no text at all, and a beginning
        {__LINE__, "\xc0\x9b", "\\xc0\\x9b"},                    // escape, in a longer form
        {__LINE__, "\xed\xa0\x80", "\\xed\\xa0\\x80"},           // half a pair
        {__LINE__, "\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},  // above the last code point
    };
    std::vector<SlogDatagram> records;
    for (const auto& row : rows)
        records.push_back({row.text});
    const std::string out = show(records).out;
    std::size_t begin = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const std::size_t end = out.find('\n', begin);
        ASSERT_NE(std::string::npos, end);
        const std::string line = out.substr(begin, end - begin);
        EXPECT_EQ(row.shown, line.substr(line.find("34  ") + 4));
        begin = end + 1;
    }
    EXPECT_EQ(out.size(), begin);
}

TEST_F(slogview, ShowsIntegersAndRawData) {
    const std::int32_t values[] = {0, -5, 2147483647};
    SlogDatagram integers{std::string(reinterpret_cast<const char*>(values), sizeof values)};
    integers.kind = host::SlogKind::INTS;
    SlogDatagram bytes{std::string("\x00\xff\x1b", 3)};
    bytes.kind = host::SlogKind::BYTES;
    const std::string out = show({integers, bytes}).out;
    EXPECT_THAT(out, HasSubstr("34  0 -5 2147483647\n"));
    EXPECT_THAT(out, HasSubstr("34  00 ff 1b\n"));
}

TEST_F(slogview, CountsDatagramsThatAreNoRecordsAndGoesOn) {
    const std::string good = SlogDatagram{"good"}.bytes();
    std::string foreign = good;
    foreign[0] ^= 1;
    std::string newer = good;
    newer[4] = 2;
    std::string unknownKind = good;
    unknownKind[6] = 9;
    const auto viewer = start({"--count", "1"});
    for (const std::string& datagram :
         {std::string("three"), std::string(), good.substr(0, 39), good + "x", good.substr(0, good.size() - 1),
          foreign, newer, unknownKind, SlogDatagram{std::string(2048, 'x')}.bytes(), std::string(150000, 'x')})
        sendDatagram(mSocket, datagram);
    sendDatagram(mSocket, good);
    const ChildResult r = viewer->finish();
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_THAT(r.out, HasSubstr("  good\n"));
    EXPECT_EQ(1, std::count(r.out.begin(), r.out.end(), '\n'));
    EXPECT_THAT(r.err, HasSubstr("slogview: a datagram of 5 bytes that is no log record was dropped\n"));
    EXPECT_THAT(r.err, HasSubstr("slogview: 1 record, 10 datagrams dropped\n"));
}

TEST_F(slogview, ShowsEveryRecordOfABurstInOrder) {
    std::vector<SlogDatagram> records;
    std::string expected;
    for (int i = 0; i < 3000; ++i) {
        records.push_back({std::to_string(i) + " " + std::string(200, 'x')});
        records.back().timeNs = kNoonNs;
        expected += std::string(kNoon) + "  error     10000            12       34  " + records.back().text + "\n";
    }
    EXPECT_EQ(expected, show(records).out);
}

TEST_F(slogview, FiltersBySeverity) {
    EXPECT_EQ((Words{"0", "1", "2", "3"}), filtered({"--severity", "warning"}));
    EXPECT_EQ((Words{"0", "1", "2", "3"}), filtered({"--severity=w"}));
    EXPECT_EQ((Words{"0"}), filtered({"--severity", "0"}));
    EXPECT_EQ((Words{"0", "1", "2", "3", "4", "5", "6", "7"}), filtered({"--severity", "debug2"}));
}

TEST_F(slogview, FiltersByProcessCodeAndText) {
    EXPECT_EQ((Words{"2", "3", "6", "7"}), filtered({"--pid", "101", "--pid=103"}));
    EXPECT_EQ((Words{"4", "5", "6", "7"}), filtered({"--code", "10001"}));
    EXPECT_EQ((Words{"6"}), filtered({"--code", "10001/2"}));
    EXPECT_EQ((Words{"1", "3", "5", "7"}), filtered({"--text", "odd"}));
    EXPECT_EQ((Words{"5"}), filtered({"--text", "odd", "--text", "5"}));
    EXPECT_EQ((Words{}), filtered({"--text", "ODD"}));
}

TEST_F(slogview, AllFiltersMustPass) {
    EXPECT_EQ((Words{"1"}), filtered({"--severity", "2", "--text", "odd", "--code", "10000"}));
}

TEST_F(slogview, SaysHowManyTheFiltersHid) {
    const auto viewer = start({"--text", "wanted", "--count", "2"});
    for (const char* text : {"other", "wanted", "other", "other", "wanted"})
        sendDatagram(mSocket, SlogDatagram{text}.bytes());
    EXPECT_THAT(viewer->finish().err, HasSubstr("slogview: 2 records, 3 hidden by the filters\n"));
}

TEST_F(slogview, EndsAfterATime) {
    const ChildResult r = run({"--socket", mSocket, "--for", "0.05"});
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_THAT(r.err, HasSubstr("slogview: 0 records\n"));
    EXPECT_FALSE(exists(mSocket));
}

TEST_F(slogview, QuietLeavesRecordsOnly) {
    const ChildResult r = run({"--quiet", "--socket", mSocket, "--for", "0.05"});
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_EQ("", r.out + r.err);
}

TEST_F(slogview, EverySignalThatEndsItRemovesTheSocket) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        SCOPED_TRACE(signal);
        const auto viewer = start({});
        EXPECT_TRUE(exists(mSocket));
        viewer->send(signal);
        const ChildResult r = viewer->finish();
        EXPECT_TRUE(r.exitedWith(0)) << r;
        EXPECT_FALSE(exists(mSocket));
    }
}

TEST_F(slogview, ShowsWhatWasSentBeforeTheSignal) {
    const auto viewer = start({});
    sendDatagram(mSocket, SlogDatagram{"last words"}.bytes());
    viewer->send(SIGTERM);
    EXPECT_THAT(viewer->finish().out, HasSubstr("last words"));
}

TEST_F(slogview, EndsWhenNobodyReadsItsOutput) {
    Words command = commandFor(SLOGVIEW, {"--socket", mSocket});
    command.insert(command.begin(), {"sh", "-c", "\"$@\" | head -n 1", "sh"});
    ChildProcess pipeline(command, options());
    ASSERT_TRUE(pipeline.waitForErr("listening"));
    sendDatagram(mSocket, SlogDatagram{"one"}.bytes());
    ASSERT_TRUE(pipeline.waitForOut("one"));
    // Until the viewer notices: it ends at the first record that nobody takes.
    for (int i = 0; i < 1000 && exists(mSocket); ++i) {
        runInChild([this] { sendDatagram(mSocket, SlogDatagram{"two"}.bytes()); });
        usleep(1000);
    }
    const ChildResult r = pipeline.finish();
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_FALSE(exists(mSocket));
    EXPECT_THAT(r.out, Not(HasSubstr("two")));
}

TEST_F(slogview, TheSocketIsForItsUserOnly) {
    const auto viewer = start({});
    struct stat status {};
    ASSERT_EQ(0, stat(mSocket.c_str(), &status));
    EXPECT_EQ(0600u, status.st_mode & 0777u);
}

TEST_F(slogview, TakesOverASocketLeftBehind) {
    leaveStaleSocket(mSocket);
    EXPECT_TRUE(show({{"x"}}).exitedWith(0));
    EXPECT_FALSE(exists(mSocket));
}

TEST_F(slogview, LeavesALiveSocketToItsOwner) {
    const auto owner = start({"--count", "1"});
    const ChildResult second = run({"--socket", mSocket});
    EXPECT_TRUE(second.exitedWith(1)) << second;
    EXPECT_EQ("slogview: " + mSocket + " is in use: somebody reads from it\n", second.err);
    sendDatagram(mSocket, SlogDatagram{"still here"}.bytes());
    EXPECT_THAT(owner->finish().out, HasSubstr("still here"));
}

TEST_F(slogview, OfManyThatTakeOverOneSocketOneWins) {
    leaveStaleSocket(mSocket);
    std::vector<std::unique_ptr<ChildProcess>> viewers;
    for (int i = 0; i < 6; ++i)
        viewers.push_back(
            std::make_unique<ChildProcess>(commandFor(SLOGVIEW, {"--socket", mSocket, "--for", "20"}), options()));
    int winners = 0;
    for (const auto& viewer : viewers)
        winners += viewer->waitForErr("listening") ? 1 : 0;  // the others end
    EXPECT_EQ(1, winners);
}

TEST_F(slogview, TouchesNothingThatIsNoSocket) {
    mFolder.write("socket", "precious");
    const ChildResult r = run({"--socket", mSocket});
    EXPECT_TRUE(r.exitedWith(1)) << r;
    EXPECT_EQ("slogview: " + mSocket + " is in the way: it is no socket\n", r.err);
    EXPECT_EQ("precious", readFile(mSocket));
}

TEST_F(slogview, LeavesAPathAloneThatIsNoLongerItsOwn) {
    const auto viewer = start({});
    ASSERT_EQ(0, unlink(mSocket.c_str()));
    mFolder.write("socket", "somebody else's");
    viewer->send(SIGTERM);
    EXPECT_TRUE(viewer->finish().exitedWith(0));
    EXPECT_EQ("somebody else's", readFile(mSocket));
}

TEST_F(slogview, SaysWhyASocketCannotBe) {
    const std::string longPath = mFolder / std::string(120, 'x');
    EXPECT_EQ("slogview: the path of a socket has at most 107 bytes, not " + std::to_string(longPath.size()) +
                  ": " + longPath + "\n",
              run({"--socket", longPath}).err);
    EXPECT_EQ("slogview: cannot make " + (mFolder / "missing/socket") + ": No such file or directory\n",
              run({"--socket", mFolder / "missing/socket"}).err);
}

TEST_F(slogview, TheDefaultSocketIsTheVariablesElseTheUsersOwn) {
    EXPECT_THAT(run({"--for", "0.01"}).err, HasSubstr("NTO_SLOG=" + (mFolder / "slog") + "\n"));
    mOptions.environment = {{"NTO_SLOG", mSocket}};
    EXPECT_THAT(run({"--for", "0.01"}).err, HasSubstr("NTO_SLOG=" + mSocket + "\n"));
    mOptions.environment = {{"XDG_RUNTIME_DIR", mFolder / "missing"}};
    EXPECT_THAT(run({"--for", "0.01"}).err, HasSubstr("/tmp/slog-" + std::to_string(getuid())));
}

TEST_F(slogview, IsColouredOnATerminalOnly) {
    SlogDatagram record{"x"};
    EXPECT_THAT(show({record}).out, Not(HasSubstr("\033")));
    EXPECT_THAT(show({record}, {"--color=always"}).out, HasSubstr("\033[31merror\033[m     10000"));
    mOptions.output = Output::Terminal;
    EXPECT_THAT(show({record}).out, HasSubstr("\033[31merror\033[m     10000"));
    EXPECT_THAT(show({record}, {"--color=never"}).out, Not(HasSubstr("\033")));
    mOptions.environment = {{"NO_COLOR", "1"}};
    EXPECT_THAT(show({record}).out, Not(HasSubstr("\033")));
    EXPECT_THAT(show({record}, {"--color=always"}).out, HasSubstr("\033[31merror"));
    mOptions.environment = {{"NO_COLOR", ""}};
    EXPECT_THAT(show({record}).out, HasSubstr("\033[31merror")) << "an empty NO_COLOR does not count";
}

TEST_F(slogview, HeadsItsColumnsOnATerminal) {
    mOptions.output = Output::Terminal;
    SlogDatagram record{"text"};
    record.timeNs = kNoonNs;
    EXPECT_THAT(show({record, record}, {"--color=never"}).out,
                HasSubstr("time          severity  code        process   thread  text\n"
                          "12:34:56.166  error     10000            12       34  text\n"
                          "12:34:56.166  error     10000            12       34  text\n"));
}

TEST_F(slogview, ShowsTheLogOfAProgram) {
    Words arguments = commandFor(LOG_SOME, {"0", "first", "--count"});
    arguments.insert(arguments.begin(), "--");
    const ChildResult r = run(arguments);
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_EQ("logged\n", r.out) << "standard output is the program's";
    EXPECT_THAT(r.err, testing::ContainsRegex("notice    10000 .*  pid [0-9]+: first\n"));
    EXPECT_THAT(r.err, testing::ContainsRegex("notice    10000 .*  pid [0-9]+: --count\n"));
    EXPECT_THAT(r.err, testing::EndsWith("slogview: 2 records\n"));
    EXPECT_TRUE(mFolder.list().empty()) << "its own socket is gone";
}

TEST_F(slogview, ShowsAllThatAProgramLoggedBeforeItsEnd) {
    Words texts = {"0"};
    for (int i = 0; i < 300; ++i)
        texts.push_back("text-" + std::to_string(i) + ".");
    const ChildResult r = run(commandFor(LOG_SOME, texts));
    EXPECT_THAT(r.err, testing::EndsWith("slogview: 300 records\n"));
    for (std::size_t i = 1; i < texts.size(); ++i)
        EXPECT_THAT(r.err, HasSubstr(texts[i]));
}

TEST_F(slogview, PassesOnTheStatusOfItsProgram) {
    EXPECT_TRUE(run(commandFor(LOG_SOME, {"41"})).exitedWith(41));
    EXPECT_TRUE(run({"sh", "-c", "kill -TERM $$"}).exitedWith(128 + SIGTERM));
    EXPECT_TRUE(run({"sh", "-c", "kill -PIPE $$"}).exitedWith(128 + SIGPIPE)) << "signals are as they were";
    EXPECT_TRUE(run({"sh", "-c", "kill -INT $$"}).exitedWith(128 + SIGINT));
}

TEST_F(slogview, SaysWhenItsProgramCannotBeStarted) {
    const ChildResult missing = run({"--", mFolder / "missing"});
    EXPECT_TRUE(missing.exitedWith(127)) << missing;
    EXPECT_THAT(missing.err, StartsWith("slogview: cannot start " + (mFolder / "missing") + ": No such file"));
    const ChildResult folder = run({"--", mFolder.path()});
    EXPECT_TRUE(folder.exitedWith(126)) << folder;
    EXPECT_THAT(folder.err, StartsWith("slogview: cannot start " + mFolder.path() + ": Permission denied"));
}

TEST_F(slogview, AProgramDoesNotDisturbAViewerThatRuns) {
    mOptions.environment = {{"NTO_SLOG", mSocket}};
    const auto viewer = start({});
    const ChildResult r = run(commandFor(LOG_SOME, {"0", "mine"}));
    EXPECT_THAT(r.err, HasSubstr("mine"));
    viewer->send(SIGTERM);
    EXPECT_EQ("", viewer->finish().out);
}

TEST_F(slogview, PassesSignalsOnAndEndsWithItsProgram) {
    ChildProcess viewer(
        commandFor(SLOGVIEW,
                   {"sh", "-c", "trap 'echo trapped; exit 7' TERM; echo ready; while :; do sleep 0.01; done"}),
        options());
    ASSERT_TRUE(viewer.waitForOut("ready"));
    viewer.send(SIGTERM);
    const ChildResult r = viewer.finish();
    EXPECT_TRUE(r.exitedWith(7)) << r;
    EXPECT_EQ("ready\ntrapped\n", r.out);
}

TEST_F(slogview, ARecordDoesNotLandInTheMiddleOfAProgressBar) {
    mOptions.output = Output::Terminal;
    const ChildResult r = run(commandFor(LOG_SOME, {"0", "text"}));
    EXPECT_THAT(r.out, HasSubstr("\r\033[K")) << r;
}

TEST_F(slogview, HelpIsOnStandardOutput) {
    const ChildResult r = run({"--help"});
    EXPECT_TRUE(r.exitedWith(0));
    EXPECT_THAT(r.out, StartsWith("Usage: slogview"));
    EXPECT_EQ("", r.err);
}

TEST_F(slogview, RefusesAWrongCommandLine) {
    const struct {
        int line;
        Words arguments;
        std::string message;
    } rows[] = {
        {__LINE__, {"--unknown"}, "unrecognized option '--unknown'"},
        {__LINE__, {"--severity", "bad"}, "no severity is called 'bad'"},
        {__LINE__, {"--severity", ""}, "no severity is called ''"},
        {__LINE__, {"--severity", "8"}, "no severity is called '8'"},
        {__LINE__, {"--severity", "debug"}, "no severity is called 'debug'"},
        {__LINE__, {"--pid", "0"}, "--pid takes a number from 1 to 1073741824, not '0'"},
        {__LINE__, {"--pid", "12x"}, "not '12x'"},
        {__LINE__, {"--code", "1048576"}, "--code takes CODE or CODE/SUB, not '1048576'"},
        {__LINE__, {"--code", "1/4096"}, "not '1/4096'"},
        {__LINE__, {"--code", "1/"}, "not '1/'"},
        {__LINE__, {"--count", "-1"}, "not '-1'"},
        {__LINE__, {"--count", "99999999999999999999"}, "not '99999999999999999999'"},
        {__LINE__, {"--for", "nan"}, "--for takes a number of seconds above 0, not 'nan'"},
        {__LINE__, {"--for", "inf"}, "not 'inf'"},
        {__LINE__, {"--for", "0"}, "not '0'"},
        {__LINE__, {"--color", "red"}, "--color takes auto, always or never, not 'red'"},
        {__LINE__, {"--socket", ""}, "--socket takes a path"},
        {__LINE__, {"--count", "1", "program"}, "do not go with a program"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const ChildResult r = run(row.arguments);
        EXPECT_TRUE(r.exitedWith(2)) << r;
        EXPECT_THAT(r.err, HasSubstr(row.message));
        EXPECT_THAT(r.err, testing::EndsWith("Try 'slogview --help'.\n"));
        EXPECT_EQ("", r.out);
    }
}

}  // namespace
