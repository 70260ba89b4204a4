// CVQAsserter, doAssert, doFatalError: the counters, every line that is written and where, what the environment
// changes, and assertions at awkward times: before main, during exit, in forked children, from many threads.
#include <CVQAsserter.h>

#include <CVQString.h>
#include <VQBacktrace.h>
#include <VQError.h>

#include "LoggedLines.h"
#include "NeutrinoDoubles.h"
#include "support/ChildProcess.h"
#include "support/Sanitizers.h"
#include "support/ScopedEnvironment.h"
#include "support/SlogCapture.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <dlfcn.h>
#include <mutex>
#include <pthread.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

std::size_t countOf(const std::string& part, const std::string& text) {
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) {
        ++count;
    }
    return count;
}

}  // namespace

class CVQAsserterTest : public ::testing::Test {
protected:
    using Environment = std::vector<std::pair<std::string, std::optional<std::string>>>;

    /// Runs `body` in a child whose environment is a plain one, but for `changes`; backtraces go to the folder.
    support::ChildResult run(const std::function<void()>& body, const Environment& changes = {}) {
        support::ChildOptions options;
        options.environment = {{"VQ_ENABLE_ABORT_ON_ASSERTION", std::nullopt},
                               {"VQ_ENABLE_ABORT_ON_FATAL_ERROR", std::nullopt},
                               {"VQ_ASSERTION_BACKTRACE_MAX", std::nullopt},
                               {"VQ_ASSERTION_BACKTRACE_DIR", mFolder.path()}};
        options.environment.insert(options.environment.end(), changes.begin(), changes.end());
        return support::runInChild(body, options);
    }

    /// The backtrace file of a child, empty where there is none.
    std::string fileOf(const support::ChildResult& child) {
        const std::string name = "PID" + std::to_string(child.pid) + ".ass";
        const auto names = mFolder.list();
        return std::find(names.begin(), names.end(), name) != names.end() ? support::readFile(mFolder / name) : "";
    }

    std::size_t recordsOf(const support::ChildResult& child) {
        return countOf("\n[QNX backtrace] INFO - ", fileOf(child));
    }

    support::SlogCapture mLog;
    support::TemporaryFolder mFolder;
};

TEST_F(CVQAsserterTest, ExpectedAssertionsAreSilentAndCounted) {
    const auto result = run([] {
        CVQAsserter::setExpectedAssertions(2);
        CVQAsserter::setOccuredAssertions(0);
        errno = EXDEV;
        doCheapAssert(1, "Unit");
        doCheapAssert(2, "Unit");
        EXPECT_EQ(CVQAsserter::getOccuredAssertions(), 2U);
        doCheapAssert(3, "Unit");
        EXPECT_EQ(CVQAsserter::getOccuredAssertions(), 3U);
        EXPECT_EQ(CVQAsserter::getExpectedAssertions(), 2U);
        EXPECT_EQ(errno, EXDEV);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_THAT(loggedLines(mLog),
                ElementsAre(loggedLine(result.pid, VQSyslog::ERROR, "Unit:3: ASSERTION failed"),
                            loggedLine(result.pid, VQSyslog::CRITICAL, "ASSERTION \"???\" failed in Unit 3")));
    EXPECT_EQ(result.err, "\nUnit:3: ASSERTION failed\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(recordsOf(result), 1U);
}

TEST_F(CVQAsserterTest, WithNoneExpectedEveryAssertionIsReportedAndCounted) {
    const auto result = run([] {
        CVQAsserter::setExpectedAssertions(1);
        CVQAsserter::setExpectedAssertions(0);
        doCheapAssert(1, "Unit");
        doCheapAssert(2, "Unit");
        doCheapAssert(3, "Unit");
        EXPECT_EQ(CVQAsserter::getOccuredAssertions(), 3U);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(mLog.records().size(), 6U);
    EXPECT_EQ(result.err, "\nUnit:1: ASSERTION failed\n\nUnit:2: ASSERTION failed\n\nUnit:3: ASSERTION failed\n");
    EXPECT_EQ(recordsOf(result), 3U);
}

TEST_F(CVQAsserterTest, TheBacktraceLimitStopsFilesButNotReports) {
    const struct {
        int line;
        std::optional<std::string> limit;
        std::size_t records;
    } kRows[] = {
        {__LINE__, "2", 2},     {__LINE__, "1", 1},   {__LINE__, "4", 4},   {__LINE__, "5", 4},
        {__LINE__, "0", 4},     {__LINE__, "abc", 4}, {__LINE__, "", 4},    {__LINE__, std::nullopt, 4},
        {__LINE__, " 3 of", 3}, {__LINE__, "+1", 1},  {__LINE__, "0x2", 4}, {__LINE__, "2147483647", 4},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        mLog.clear();
        const auto result = run(
            [] {
                for (unsigned i = 1; i <= 4; ++i) {
                    doCheapAssert(i, "Unit");
                }
            },
            {{"VQ_ASSERTION_BACKTRACE_MAX", row.limit}});
        EXPECT_TRUE(result.exitedWith(0)) << result;
        EXPECT_EQ(recordsOf(result), row.records);
        EXPECT_EQ(mLog.records().size(), 8U);
        EXPECT_EQ(countOf(": ASSERTION failed\n", result.err), 4U);
    }
}

TEST_F(CVQAsserterTest, Kept_ANegativeBacktraceLimitAllowsNoFile) {
    // id: assert-negative-limit
    const auto result = run([] { doCheapAssert(1, "Unit"); }, {{"VQ_ASSERTION_BACKTRACE_MAX", "-1"}});
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_THAT(mFolder.list(), IsEmpty());
    EXPECT_EQ(mLog.records().size(), 2U);
}

TEST_F(CVQAsserterTest, AbortsAfterAllThreeLinesAndWithoutAFileWhenAskedTo) {
    for (const char* const value : {"", "0", "yes"}) {
        mLog.clear();
        const auto result = run([] { doAssert(7, "Unit", "a < b"); }, {{"VQ_ENABLE_ABORT_ON_ASSERTION", value}});
        EXPECT_TRUE(result.killedBy(SIGABRT)) << result;
        EXPECT_THAT(
            loggedLines(mLog),
            ElementsAre(loggedLine(result.pid, VQSyslog::ERROR, "Unit:7: ASSERTION \"a < b\" failed"),
                        loggedLine(result.pid, VQSyslog::CRITICAL, "ASSERTION \"a < b\" failed in Unit 7")));
        EXPECT_EQ(result.err, "\nUnit:7: ASSERTION \"a < b\" failed\n");
        EXPECT_THAT(mFolder.list(), IsEmpty());
    }
}

TEST_F(CVQAsserterTest, LooksForTheAbortVariableOnEveryAssertion) {
    const auto result = run([] {
        doCheapAssert(1, "Unit");
        setenv("VQ_ENABLE_ABORT_ON_ASSERTION", "", 1);
        doCheapAssert(2, "Unit");
        std::_Exit(1);
    });
    EXPECT_TRUE(result.killedBy(SIGABRT)) << result;
    EXPECT_EQ(mLog.records().size(), 4U);
    EXPECT_EQ(recordsOf(result), 1U);
}

TEST_F(CVQAsserterTest, WritesTheFirstLogLineThenStandardErrorThenTheOtherLogLines) {
    // A log line that is refused shows its place on standard error.
    const Environment refusingLog = {{"NTO_SLOG", mFolder.write("file", "") + "/socket"}};
    const struct {
        const char* text;
        std::string shown;
    } kRows[] = {{nullptr, ""}, {"a < b", " \"a < b\""}};
    for (const auto& row : kRows) {
        const auto assertion = run([&row] { doAssert(7, "Unit", row.text); }, refusingLog);
        const std::string refused = unwritable(assertion.pid, ENOTDIR);
        EXPECT_EQ(assertion.err, refused + "\nUnit:7: ASSERTION" + row.shown + " failed\n" + refused);
        const auto fatal = run([&row] { CVQAsserter::logFatalError(7, "Unit", row.text); }, refusingLog);
        EXPECT_EQ(fatal.err, unwritable(fatal.pid, ENOTDIR) + "\nUnit:7: FATAL ERROR" + row.shown + " occured\n");
    }
}

TEST_F(CVQAsserterTest, ExpectedAssertionsDoNotAbort) {
    const auto result = run(
        [] {
            CVQAsserter::setExpectedAssertions(1);
            doCheapAssert(7, "Unit");
        },
        {{"VQ_ENABLE_ABORT_ON_ASSERTION", "1"}});
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST_F(CVQAsserterTest, AFatalErrorExitsThroughTheErrorHandler) {
    const auto result = run([] { doCheapFatalError(7, "Unit"); });
    EXPECT_TRUE(result.exitedWith(EXIT_FAILURE)) << result;
    EXPECT_THAT(
        loggedLines(mLog),
        ElementsAre(loggedLine(result.pid, VQSyslog::ERROR, "Unit:7: FATAL ERROR occured"),
                    loggedLine(result.pid, VQSyslog::CRITICAL, "Unit:7: FATAL ERROR occured"),
                    loggedLine(result.pid, VQSyslog::INFO, "terminating process using exit(EXIT_FAILURE)")));
    EXPECT_EQ(result.err, "\nUnit:7: FATAL ERROR occured\n");
    EXPECT_THAT(mFolder.list(), IsEmpty());
}

TEST_F(CVQAsserterTest, Kept_FatalErrorTextsSayOccured) {
    // id: fatal-occured-text
    const auto result = run([] { doFatalError(7, "Unit", "no way"); });
    EXPECT_TRUE(result.exitedWith(EXIT_FAILURE)) << result;
    EXPECT_THAT(
        loggedLines(mLog),
        ElementsAre(loggedLine(result.pid, VQSyslog::ERROR, "Unit:7: FATAL ERROR \"no way\" occured"),
                    loggedLine(result.pid, VQSyslog::CRITICAL, "Unit:7: FATAL ERROR \"no way\" occured"),
                    loggedLine(result.pid, VQSyslog::INFO, "terminating process using exit(EXIT_FAILURE)")));
    EXPECT_EQ(result.err, "\nUnit:7: FATAL ERROR \"no way\" occured\n");
}

TEST_F(CVQAsserterTest, Kept_AnAbortingFatalErrorAlwaysQuotesAText) {
    // id: fatal-abort-quotes
    const Environment abortEnabled = {{"VQ_ENABLE_ABORT_ON_FATAL_ERROR", ""}};
    const auto cheap = run([] { doCheapFatalError(7, "Unit"); }, abortEnabled);
    const auto full = run([] { doFatalError(8, "Unit", "no way"); }, abortEnabled);
    EXPECT_TRUE(cheap.killedBy(SIGABRT)) << cheap;
    EXPECT_TRUE(full.killedBy(SIGABRT)) << full;
    EXPECT_THAT(loggedLines(mLog),
                ElementsAre(loggedLine(cheap.pid, VQSyslog::ERROR, "Unit:7: FATAL ERROR occured"),
                            loggedLine(cheap.pid, VQSyslog::CRITICAL, "Unit:7: FATAL ERROR \"???\" occured"),
                            loggedLine(full.pid, VQSyslog::ERROR, "Unit:8: FATAL ERROR \"no way\" occured"),
                            loggedLine(full.pid, VQSyslog::CRITICAL, "Unit:8: FATAL ERROR \"no way\" occured")));
    EXPECT_EQ(cheap.err, "\nUnit:7: FATAL ERROR occured\n");
    EXPECT_EQ(full.err, "\nUnit:8: FATAL ERROR \"no way\" occured\n");
}

TEST_F(CVQAsserterTest, Kept_TheCriticalFatalLinePrintsTheLineSigned) {
    // id: fatal-line-formats
    const auto exiting = run([] { doCheapFatalError(-1, "Unit"); });
    const auto aborting = run([] { doCheapFatalError(INT_MIN, "Unit"); }, {{"VQ_ENABLE_ABORT_ON_FATAL_ERROR", ""}});
    EXPECT_THAT(
        loggedLines(mLog),
        ElementsAre(loggedLine(exiting.pid, VQSyslog::ERROR, "Unit:4294967295: FATAL ERROR occured"),
                    loggedLine(exiting.pid, VQSyslog::CRITICAL, "Unit:-1: FATAL ERROR occured"),
                    loggedLine(exiting.pid, VQSyslog::INFO, "terminating process using exit(EXIT_FAILURE)"),
                    loggedLine(aborting.pid, VQSyslog::ERROR, "Unit:2147483648: FATAL ERROR occured"),
                    loggedLine(aborting.pid, VQSyslog::CRITICAL, "Unit:-2147483648: FATAL ERROR \"???\" occured")));
}

TEST_F(CVQAsserterTest, AFatalErrorRunsTheInstalledHandlerUnlessItAborts) {
    const auto body = [] {
        VQError::setErrorHandler([](void*) { std::_Exit(7); }, nullptr);
        doCheapFatalError(7, "Unit");
    };
    const auto handled = run(body);
    EXPECT_TRUE(handled.exitedWith(7)) << handled;
    const auto aborted = run(body, {{"VQ_ENABLE_ABORT_ON_FATAL_ERROR", "1"}});
    EXPECT_TRUE(aborted.killedBy(SIGABRT)) << aborted;
}

TEST_F(CVQAsserterTest, AFatalErrorIsNotCountedAsAnAssertion) {
    const auto result = run([] {
        CVQAsserter::setExpectedAssertions(5);
        VQError::setErrorHandler([](void*) { std::_Exit(CVQAsserter::getOccuredAssertions() == 0 ? 0 : 1); },
                                 nullptr);
        doCheapFatalError(7, "Unit");
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(mLog.records().size(), 2U);
}

TEST_F(CVQAsserterTest, Kept_AnAssertionIsLoggedInTwoForms) {
    // id: assert-two-forms
    const auto result = run([] {
        doAssert(7, "Unit", "a < b");
        doAssert(UINT_MAX, "Unit", nullptr);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_THAT(
        loggedLines(mLog),
        ElementsAre(loggedLine(result.pid, VQSyslog::ERROR, "Unit:7: ASSERTION \"a < b\" failed"),
                    loggedLine(result.pid, VQSyslog::CRITICAL, "ASSERTION \"a < b\" failed in Unit 7"),
                    loggedLine(result.pid, VQSyslog::ERROR, "Unit:4294967295: ASSERTION failed"),
                    loggedLine(result.pid, VQSyslog::CRITICAL, "ASSERTION \"???\" failed in Unit 4294967295")));
    EXPECT_EQ(result.err, "\nUnit:7: ASSERTION \"a < b\" failed\n\nUnit:4294967295: ASSERTION failed\n");
}

TEST_F(CVQAsserterTest, AppendsTheBacktraceUnderTheCriticalLinesText) {
    const auto result = run([] {
        doubles::ScriptedStack stack;
        stack.loadResult = -1;
        doAssert(7, "Unit", "a < b");
        doAssert(8, "Unit", nullptr);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    const std::string pid = std::to_string(result.pid);
    const std::string infos = "\n\nTID: " + pid + " PID: " + pid +
                              "\n"
                              "data below is the actual callstack created with QNX libbacktrace.so\n"
                              "usable for analysis with proper project MAP file\n\n";
    EXPECT_EQ(fileOf(result), "\n[QNX backtrace] INFO - ASSERTION \"a < b\" failed in Unit 7" + infos +
                                  "\n[QNX backtrace] INFO - ASSERTION \"???\" failed in Unit 8" + infos);
}

TEST_F(CVQAsserterTest, TheMessageInTheFileIsCutAt256Bytes) {
    const auto result = run([] { doAssert(7, "Unit", std::string(3000, 'x').c_str()); });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    const std::string start = "ASSERTION \"";
    EXPECT_THAT(fileOf(result), HasSubstr("INFO - " + start + std::string(256 - start.size(), 'x') + "\n\nTID"));
    // Standard error has it whole, the log as far as a line goes.
    EXPECT_EQ(result.err, "\nUnit:7: ASSERTION \"" + std::string(3000, 'x') + "\" failed\n");
    for (const std::string& text : mLog.texts()) {
        EXPECT_EQ(text.size(), 1024U);
    }
}

TEST_F(CVQAsserterTest, ATextThatIsNotUtf8IsReportedWholeAndCutInTheFile) {
    const auto result = run([] { doAssert(7, "Unit", "a\xFFz"); });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(result.err, "\nUnit:7: ASSERTION \"a\xFFz\" failed\n");
    EXPECT_THAT(fileOf(result), HasSubstr("INFO - ASSERTION \"a\n\nTID"));
    EXPECT_THAT(loggedLines(mLog),
                ElementsAre(loggedLine(result.pid, VQSyslog::ERROR, "Unit:7: ASSERTION \"a\xFFz\" failed"),
                            loggedLine(result.pid, VQSyslog::CRITICAL, "ASSERTION \"a\xFFz\" failed in Unit 7"),
                            loggedLine(result.pid, VQSyslog::ERROR,
                                       "The character sequence contains a wrong coded UTF-8 sequence !")));
}

TEST_F(CVQAsserterTest, PercentSignsOfATextAreNoFormat) {
    const auto result = run([] { doAssert(7, "Un%nit", "100% %s"); });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(result.err, "\nUn%nit:7: ASSERTION \"100% %s\" failed\n");
    EXPECT_THAT(fileOf(result), HasSubstr("INFO - ASSERTION \"100% %s\" failed in Un%nit 7\n"));
}

TEST_F(CVQAsserterTest, ANullFileIsPrintedAsThePlatformPrintsIt) {
    const auto result = run([] { doCheapAssert(7, nullptr); });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(result.err, "\n(null):7: ASSERTION failed\n");
}

TEST_F(CVQAsserterTest, ReadsTheDirectoryEachTimeAndTheLimitOnce) {
    support::TemporaryFolder other;
    const auto result = run(
        [&other] {
            doCheapAssert(1, "Unit");
            setenv("VQ_ASSERTION_BACKTRACE_DIR", other.path().c_str(), 1);
            setenv("VQ_ASSERTION_BACKTRACE_MAX", "100", 1);
            EXPECT_EQ(VQPrivate::getMaxNumOfBacktraces(), 100U);
            doCheapAssert(2, "Unit");
            doCheapAssert(3, "Unit");
        },
        {{"VQ_ASSERTION_BACKTRACE_MAX", "2"}});
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(recordsOf(result), 1U);
    EXPECT_EQ(other.list().size(), 1U);
    const std::string second = support::readFile(other / ("PID" + std::to_string(result.pid) + ".ass"));
    EXPECT_THAT(second, AllOf(HasSubstr("failed in Unit 2\n"), Not(HasSubstr("failed in Unit 3\n"))));
}

TEST_F(CVQAsserterTest, TheLimitIsReadWhenItIsFirstNeeded) {
    const auto result = run([] {
        CVQAsserter::setExpectedAssertions(1);
        doCheapAssert(1, "Unit");
        setenv("VQ_ASSERTION_BACKTRACE_MAX", "1", 1);
        doCheapAssert(2, "Unit");
        doCheapAssert(3, "Unit");
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(recordsOf(result), 1U);
}

TEST_F(CVQAsserterTest, TellsTheConfiguredNumberOfBacktraces) {
    const struct {
        int line;
        std::optional<std::string> value;
        unsigned expected;
    } kRows[] = {
        {__LINE__, std::nullopt, 0}, {__LINE__, "", 0},          {__LINE__, "0", 0},         {__LINE__, "17", 17},
        {__LINE__, "x1", 0},         {__LINE__, " \t12abc", 12}, {__LINE__, "-1", UINT_MAX},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        support::ScopedEnvironment value("VQ_ASSERTION_BACKTRACE_MAX", row.value);
        EXPECT_EQ(VQPrivate::getMaxNumOfBacktraces(), row.expected);
    }
}

TEST_F(CVQAsserterTest, TheDefaultDirectoryIsDevShmem) {
    if (access("/dev/shmem", F_OK) == 0)
        GTEST_SKIP() << "this machine has the directory";
    const auto result = run([] { doCheapAssert(1, "Unit"); }, {{"VQ_ASSERTION_BACKTRACE_DIR", std::nullopt}});
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(result.out, "Cannot open /dev/shmem/PID" + std::to_string(result.pid) + ".ass\n");
}

TEST_F(CVQAsserterTest, AFileThatCannotBeOpenedCountsAgainstTheLimitAndStopsNothing) {
    const auto result = run(
        [this] {
            setenv("VQ_ASSERTION_BACKTRACE_DIR", (mFolder / "missing").c_str(), 1);
            doCheapAssert(1, "Unit");
            doCheapAssert(2, "Unit");
        },
        {{"VQ_ASSERTION_BACKTRACE_MAX", "1"}});
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(result.out, "Cannot open " + (mFolder / "missing/PID") + std::to_string(result.pid) + ".ass\n");
    EXPECT_EQ(mLog.records().size(), 4U);
}

TEST_F(CVQAsserterTest, Kept_TheAccessorsAreSpeltWithASingleR) {
    // id: assert-occured-name
    const auto result = run([] {
        CVQAsserter::setOccuredAssertions(7);
        EXPECT_EQ(CVQAsserter::getOccuredAssertions(), 7U);
        CVQAsserter::setExpectedAssertions(8);
        EXPECT_EQ(CVQAsserter::getExpectedAssertions(), 8U);
        doCheapAssert(1, "Unit");
        EXPECT_EQ(CVQAsserter::getOccuredAssertions(), 8U);
        doCheapAssert(2, "Unit");
        EXPECT_EQ(CVQAsserter::getOccuredAssertions(), 9U);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(result.err, "\nUnit:2: ASSERTION failed\n");
}

TEST_F(CVQAsserterTest, CountsAreComparedUnsignedAndWrap) {
    const auto result = run([] {
        CVQAsserter::setExpectedAssertions(UINT_MAX);
        CVQAsserter::setOccuredAssertions(UINT_MAX - 1);
        doCheapAssert(1, "Unit");  // silent
        doCheapAssert(2, "Unit");
        EXPECT_EQ(CVQAsserter::getOccuredAssertions(), 0U);
        doCheapAssert(3, "Unit");  // silent
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(result.err, "\nUnit:2: ASSERTION failed\n");
}

TEST_F(CVQAsserterTest, LogAssertionTellsWhetherToGoOnAndWritesTheFirstLinesOnly) {
    const auto result = run(
        [] {
            CVQAsserter::setExpectedAssertions(1);
            errno = EXDEV;
            EXPECT_FALSE(CVQAsserter::logAssertion(1, "Unit", "text"));
            EXPECT_TRUE(CVQAsserter::logAssertion(2, "Unit", "text"));
            EXPECT_TRUE(CVQAsserter::logAssertion(3, "Unit", nullptr));
            EXPECT_EQ(errno, EXDEV);
            EXPECT_EQ(CVQAsserter::getOccuredAssertions(), 3U);
        },
        {{"VQ_ENABLE_ABORT_ON_ASSERTION", "1"}});
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_THAT(loggedLines(mLog),
                ElementsAre(loggedLine(result.pid, VQSyslog::ERROR, "Unit:2: ASSERTION \"text\" failed"),
                            loggedLine(result.pid, VQSyslog::ERROR, "Unit:3: ASSERTION failed")));
    EXPECT_EQ(result.err, "\nUnit:2: ASSERTION \"text\" failed\n\nUnit:3: ASSERTION failed\n");
    EXPECT_THAT(mFolder.list(), IsEmpty());
}

TEST_F(CVQAsserterTest, LogFatalErrorWritesTheFirstLinesAndReturns) {
    const auto result = run(
        [] {
            errno = EXDEV;
            CVQAsserter::logFatalError(2, "Unit", "text");
            CVQAsserter::logFatalError(UINT_MAX, "Unit", nullptr);
            EXPECT_EQ(errno, EXDEV);
        },
        {{"VQ_ENABLE_ABORT_ON_FATAL_ERROR", "1"}});
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_THAT(loggedLines(mLog),
                ElementsAre(loggedLine(result.pid, VQSyslog::ERROR, "Unit:2: FATAL ERROR \"text\" occured"),
                            loggedLine(result.pid, VQSyslog::ERROR, "Unit:4294967295: FATAL ERROR occured")));
    EXPECT_EQ(result.err, "\nUnit:2: FATAL ERROR \"text\" occured\n\nUnit:4294967295: FATAL ERROR occured\n");
}

TEST_F(CVQAsserterTest, LeavesErrnoAsItWas) {
    const auto result = run([this] {
        for (const std::string& directory : {mFolder.path(), std::string("/nowhere")}) {
            setenv("VQ_ASSERTION_BACKTRACE_DIR", directory.c_str(), 1);
            errno = EXDEV;
            doCheapAssert(1, "Unit");
            EXPECT_EQ(errno, EXDEV);
            doAssert(2, "Unit", "text");
            EXPECT_EQ(errno, EXDEV);
        }
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST_F(CVQAsserterTest, TheEntryPointsHavePlainNames) {
    for (const char* const name : {"doAssert", "doCheapAssert", "doFatalError", "doCheapFatalError"}) {
        EXPECT_NE(dlsym(RTLD_DEFAULT, name), nullptr) << name;
    }
}

TEST_F(CVQAsserterTest, SurvivesClosedStandardStreamsAndAMissingLogger) {
    const auto result = run([this] {
        setenv("NTO_SLOG", (mFolder / "nobody").c_str(), 1);
        close(STDIN_FILENO);
        close(STDOUT_FILENO);
        close(STDERR_FILENO);
        doAssert(7, "Unit", "a < b");
        errno = EXDEV;
        doAssert(8, "Unit", "a < b");
        EXPECT_EQ(errno, EXDEV);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(recordsOf(result), 2U);
}

TEST_F(CVQAsserterTest, CountsAndReportsEveryAssertionOfManyThreads) {
    constexpr unsigned kThreads = 8;
    constexpr unsigned kAssertions = 20;
    const auto result = run([] {
        std::vector<std::thread> threads;
        for (unsigned i = 0; i < kThreads; ++i) {
            threads.emplace_back([i] {
                for (unsigned j = 0; j < kAssertions; ++j) {
                    doAssert(i * 100 + j, "Unit", "text");
                }
            });
        }
        for (auto& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(CVQAsserter::getOccuredAssertions(), kThreads * kAssertions);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(recordsOf(result), kThreads * kAssertions);
    for (unsigned i = 0; i < kThreads; ++i) {
        for (unsigned j = 0; j < kAssertions; ++j) {
            const std::string line = std::to_string(i * 100 + j);
            EXPECT_EQ(countOf("\nUnit:" + line + ": ASSERTION \"text\" failed\n", result.err), 1U) << line;
        }
    }
    EXPECT_EQ(mLog.records().size(), 2 * kThreads * kAssertions);
}

TEST_F(CVQAsserterTest, TheLimitHoldsForThreadsUpToTheOnesThatWriteAtOnce) {
    constexpr unsigned kThreads = 4;
    const auto result = run(
        [] {
            std::vector<std::thread> threads;
            for (unsigned i = 0; i < kThreads; ++i) {
                threads.emplace_back([] {
                    for (unsigned j = 0; j < 20; ++j) {
                        doCheapAssert(j, "Unit");
                    }
                });
            }
            for (auto& thread : threads) {
                thread.join();
            }
        },
        {{"VQ_ASSERTION_BACKTRACE_MAX", "10"}});
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_GE(recordsOf(result), 10U);
    EXPECT_LT(recordsOf(result), 10U + kThreads);
}

TEST_F(CVQAsserterTest, AForkedChildWritesAFileOfItsOwn) {
    const auto result = run([this] {
        doCheapAssert(1, "Unit");
        const auto child = support::runInChild([] {
            doCheapAssert(2, "Unit");
            EXPECT_EQ(CVQAsserter::getOccuredAssertions(), 2U);
        });
        EXPECT_TRUE(child.exitedWith(0)) << child;
        EXPECT_THAT(fileOf(child), HasSubstr("failed in Unit 2\n"));
        EXPECT_EQ(CVQAsserter::getOccuredAssertions(), 1U);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_THAT(fileOf(result), HasSubstr("failed in Unit 1\n"));
    EXPECT_EQ(recordsOf(result), 1U);
}

TEST_F(CVQAsserterTest, ChildrenForkedWhileOtherThreadsAssertCanAssertToo) {
    const auto result = run([this] {
        std::atomic<bool> stop{false};
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i) {
            threads.emplace_back([&stop] {
                while (!stop) {
                    doCheapAssert(1, "Parent");
                }
            });
        }
        for (int i = 0; i < 40; ++i) {
            support::ChildOptions options;
            options.deadline = std::chrono::seconds(10);
            const auto child = support::runInChild([] { doCheapAssert(2, "Child"); }, options);
            EXPECT_TRUE(child.exitedWith(0)) << child;
            EXPECT_EQ(recordsOf(child), 1U);
        }
        stop = true;
        for (auto& thread : threads) {
            thread.join();
        }
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST_F(CVQAsserterTest, EveryOneOfManyThreadsThatReportAtOnceWritesItsBacktrace) {
    // The first one waits in the info function until all have begun, the others for the first.
    constexpr unsigned kThreads = 80;
    static std::atomic<unsigned> started{0};
    const auto result = run([] {
        VQBacktrace::setInfos([](CVQString& baseName) {
            while (started < kThreads) {
                std::this_thread::yield();
            }
            static std::once_flag sFirst;
            std::call_once(sFirst, [] { std::this_thread::sleep_for(std::chrono::milliseconds(50)); });
            baseName = "base";
            return CVQString("infos");
        });
        std::vector<std::thread> threads;
        for (unsigned i = 0; i < kThreads; ++i) {
            threads.emplace_back([i] {
                CVQAsserter::logAssertion(i, "Started", nullptr);
                ++started;
                doCheapAssert(i, "Unit");
            });
        }
        for (auto& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(CVQAsserter::getOccuredAssertions(), 2 * kThreads);
        VQBacktrace::setInfos(nullptr);
        doCheapAssert(1000, "Unit");
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(countOf("\n[QNX backtrace] INFO - ", support::readFile(mFolder / "base.ass")), kThreads);
    EXPECT_THAT(fileOf(result), HasSubstr("failed in Unit 1000\n"));
    EXPECT_EQ(countOf("\nUnit:", result.err), kThreads + 1);
}

TEST_F(CVQAsserterTest, AChildForkedByTheInfoFunctionReportsOnItsOwn) {
    static pid_t child;
    const auto result = run([] {
        child = -1;
        VQBacktrace::setInfos([](CVQString& baseName) {
            if (child == -1) {
                child = fork();
                if (child == 0) {
                    doCheapAssert(2, "Child");
                    std::_Exit(0);
                }
                int status = 0;
                waitpid(child, &status, 0);
                EXPECT_EQ(status, 0);
            }
            baseName = "base";
            return CVQString("infos");
        });
        doCheapAssert(1, "Parent");
        doCheapAssert(3, "Parent");
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    const std::string text = support::readFile(mFolder / "base.ass");
    EXPECT_THAT(text, HasSubstr("failed in Child 2\n"));
    EXPECT_THAT(text, HasSubstr("failed in Parent 1\n"));
    EXPECT_THAT(text, HasSubstr("failed in Parent 3\n"));
}

TEST_F(CVQAsserterTest, FitsTheDefaultStackOfAThread) {
    if (support::kIsSanitized)
        GTEST_SKIP() << "the sanitizers make frames larger";
    const auto result = run([] {
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        ASSERT_EQ(pthread_attr_setstacksize(&attributes, 32768), 0);
        pthread_t thread;
        const auto body = [](void*) -> void* {
            doAssert(7, "Unit", "a < b");
            return nullptr;
        };
        ASSERT_EQ(pthread_create(&thread, &attributes, body, nullptr), 0);
        pthread_join(thread, nullptr);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(recordsOf(result), 1U);
}

namespace {

const std::vector<std::string> kWholeLife = {"Preinit 1", "StaticConstructor 2", "Main 3",
                                             "AtExit 4",  "StaticDestructor 5",  "Destructor 6"};

}  // namespace

TEST_F(CVQAsserterTest, ReportsFromTheFirstInstructionOfAProcessToItsLast) {
    support::ScopedEnvironment folder("VQ_ASSERTION_BACKTRACE_DIR", mFolder.path());
    const auto result = support::runProgram(MARLIX_ASSERTING_PROGRAM);
    EXPECT_TRUE(result.exitedWith(0)) << result;
    std::string expectedErr;
    std::vector<std::string> expectedTexts;
    std::vector<std::string> texts = mLog.texts();
    ASSERT_FALSE(texts.empty()) << result;
    const std::string prefix = texts[0].substr(0, texts[0].find(": ") + 2);
    std::size_t records = 0;
    for (const std::string& place : kWholeLife) {
        if (place[0] == 'P' && result.err.find("Preinit") == std::string::npos)
            continue;  // built without that part
        const std::string unit = place.substr(0, place.size() - 2);
        const std::string line = place.substr(place.size() - 1);
        expectedErr += "\n" + unit + ":" + line + ": ASSERTION failed\n";
        expectedTexts.push_back(prefix + unit + ":" + line + ": ASSERTION failed");
        expectedTexts.push_back(prefix + "ASSERTION \"???\" failed in " + place);
        ++records;
    }
    EXPECT_EQ(result.err, expectedErr);
    EXPECT_EQ(texts, expectedTexts);
    ASSERT_EQ(mFolder.list().size(), 1U);
    const std::string file = support::readFile(mFolder / mFolder.list()[0]);
    EXPECT_EQ(countOf("\n[QNX backtrace] INFO - ", file), records);
}

TEST_F(CVQAsserterTest, AFatalErrorInAStaticDestructorAbortsAnExitingProcess) {
    support::ScopedEnvironment folder("VQ_ASSERTION_BACKTRACE_DIR", mFolder.path());
    const auto result = support::runProgram(MARLIX_ASSERTING_PROGRAM, {"fatal"});
    EXPECT_TRUE(result.killedBy(SIGABRT)) << result;
    EXPECT_THAT(result.err, HasSubstr("\nMain:3: FATAL ERROR occured\n"));
    EXPECT_THAT(result.err, ::testing::EndsWith("\nStaticDestructor:5: FATAL ERROR occured\n"));
    std::vector<std::string> texts = mLog.texts();
    ASSERT_GE(texts.size(), 4U);
    EXPECT_THAT(texts.back(), HasSubstr("terminating process using abort()"));
}
