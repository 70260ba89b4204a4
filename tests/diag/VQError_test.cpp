// VQError: the texts of reports, how each fatal form ends the process, and the exchangeable error handler.
#include <VQError.h>

#include "LoggedLines.h"
#include "NeutrinoDoubles.h"
#include "support/ChildProcess.h"
#include "support/SlogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <unistd.h>

using ::testing::ElementsAre;

namespace {

std::string osText(int error) {
    return "(operating system error " + std::to_string(error) + ", " + std::strerror(error) + ")";
}

void logAndReturn(void* data) {
    VQSyslog::logMsg(0, VQSyslog::DEBUG1, "handler %s", static_cast<const char*>(data));
}

void leaveWithSeven(void* data) {
    EXPECT_EQ(data, nullptr);
    std::_Exit(7);
}

char kData[] = "data";

}  // namespace

TEST(VQError, CriticalErrorAbortsWhenTheHandlerReturns) {
    support::SlogCapture log;
    const auto result = support::runInChild([] {
        VQError::setErrorHandler(&logAndReturn, kData);
        VQError::criticalError(0, "cannot go on: %d %s", 5, "because");
    });
    EXPECT_TRUE(result.killedBy(SIGABRT)) << result;
    EXPECT_THAT(loggedLines(log), ElementsAre(loggedLine(result.pid, VQSyslog::CRITICAL, "cannot go on: 5 because"),
                                              loggedLine(result.pid, VQSyslog::DEBUG1, "handler data")));
    EXPECT_EQ(result.err, "");
}

TEST(VQError, ANullHandlerRestoresTheExitHandlerWithNullData) {
    support::SlogCapture log;
    const auto result = support::runInChild([] {
        VQError::setErrorHandler(&logAndReturn, kData);
        VQError::setErrorHandler(nullptr, kData);
        VQError::criticalError(0, "%s", "end");
    });
    EXPECT_TRUE(result.exitedWith(EXIT_FAILURE)) << result;
    EXPECT_THAT(loggedLines(log), ElementsAre(loggedLine(result.pid, VQSyslog::CRITICAL, "end"),
                                              loggedLine(result.pid, VQSyslog::INFO,
                                                         "terminating process using exit(EXIT_FAILURE)")));
}

TEST(VQError, ReportsAnUnknownErrorNumberWithThePlatformsText) {
    support::SlogCapture log;
    VQError::reportOSError(0, VQSyslog::ERROR, 9999, "text");
    EXPECT_THAT(loggedLines(log), ElementsAre(loggedLine(getpid(), VQSyslog::ERROR, "text " + osText(9999))));
}

TEST(VQError, ReportsAnErrorNumberAndReturns) {
    support::SlogCapture log;
    VQError::reportOSError(3, VQSyslog::WARNING, ENOENT, "Failed to open");
    EXPECT_THAT(loggedLines(log),
                ElementsAre(wholeLine(0x302710, VQSyslog::WARNING,
                                      "pid " + std::to_string(getpid()) + ": Failed to open " + osText(ENOENT))));
}

TEST(VQError, ReportsTheLastErrorWhereNoneIsGiven) {
    support::SlogCapture log;
    errno = EACCES;
    VQError::reportOSError(0, VQSyslog::ERROR, "Failed to open");
    EXPECT_EQ(errno, EACCES);
    EXPECT_THAT(loggedLines(log),
                ElementsAre(loggedLine(getpid(), VQSyslog::ERROR, "Failed to open " + osText(EACCES))));
}

TEST(VQError, EveryFormPutsItsSubCodeIntoTheOpcode) {
    support::SlogCapture log;
    VQError::reportOSError(1, VQSyslog::ERROR, EACCES, "one");
    errno = ENOENT;
    VQError::reportOSError(2, VQSyslog::ERROR, "two");
    const auto three = support::runInChild([] { VQError::fatalOSError(3, EBADF, "three"); });
    const auto four = support::runInChild([] {
        errno = EPERM;
        VQError::fatalOSError(4, "four");
    });
    const auto five = support::runInChild([] { VQError::fatalError(5, "five"); });
    const auto six = support::runInChild([] {
        VQError::setErrorHandler(&logAndReturn, kData);
        VQError::criticalError(6, "%s", "six");
    });
    const auto line = [](unsigned subCode, VQSyslog::Severity severity, pid_t pid, const std::string& message) {
        return wholeLine(subCode << 20 | 10000, severity, "pid " + std::to_string(pid) + ": " + message);
    };
    const std::string aborting = " - aborting process";
    EXPECT_THAT(loggedLines(log),
                ElementsAre(line(1, VQSyslog::ERROR, getpid(), "one " + osText(EACCES)),
                            line(2, VQSyslog::ERROR, getpid(), "two " + osText(ENOENT)),
                            line(3, VQSyslog::CRITICAL, three.pid, "three " + osText(EBADF) + aborting),
                            line(4, VQSyslog::CRITICAL, four.pid, "four " + osText(EPERM) + aborting),
                            line(5, VQSyslog::CRITICAL, five.pid, "five" + aborting),
                            line(6, VQSyslog::CRITICAL, six.pid, "six"),
                            loggedLine(six.pid, VQSyslog::DEBUG1, "handler data")));
}

TEST(VQError, SaysUnknownWhereThePlatformHasNoText) {
    support::SlogCapture log;
    {
        const doubles::NoErrorTexts noTexts;
        VQError::reportOSError(0, VQSyslog::ERROR, EACCES, "text");
    }
    const auto result = support::runInChild([] {
        const doubles::NoErrorTexts noTexts;
        VQError::fatalOSError(0, EACCES, "text");
    });
    const std::string reason = "text (operating system error " + std::to_string(EACCES) + ", unknown)";
    EXPECT_THAT(loggedLines(log),
                ElementsAre(loggedLine(getpid(), VQSyslog::ERROR, reason),
                            loggedLine(result.pid, VQSyslog::CRITICAL, reason + " - aborting process")));
}

TEST(VQError, FatalOSErrorLogsTheReasonAndAborts) {
    support::SlogCapture log;
    const auto given = support::runInChild([] { VQError::fatalOSError(0, EBADF, "Failed to read"); });
    const auto last = support::runInChild([] {
        errno = EPERM;
        VQError::fatalOSError(1, "Failed to write");
    });
    EXPECT_TRUE(given.killedBy(SIGABRT)) << given;
    EXPECT_TRUE(last.killedBy(SIGABRT)) << last;
    EXPECT_THAT(loggedLines(log), ElementsAre(loggedLine(given.pid, VQSyslog::CRITICAL,
                                                         "Failed to read " + osText(EBADF) + " - aborting process"),
                                              wholeLine(0x102710, VQSyslog::CRITICAL,
                                                        "pid " + std::to_string(last.pid) + ": Failed to write " +
                                                            osText(EPERM) + " - aborting process")));
}

TEST(VQError, FatalErrorLogsItsTextAndAborts) {
    support::SlogCapture log;
    const auto result = support::runInChild([] { VQError::fatalError(0, "100% wrong"); });
    EXPECT_TRUE(result.killedBy(SIGABRT)) << result;
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(loggedLines(log),
                ElementsAre(loggedLine(result.pid, VQSyslog::CRITICAL, "100% wrong - aborting process")));
}

TEST(VQError, Kept_FatalErrorsDoNotConsultTheErrorHandler) {
    // id: fatal-without-handler
    const auto plain = support::runInChild([] {
        VQError::setErrorHandler(&leaveWithSeven, nullptr);
        VQError::fatalError(0, "text");
    });
    const auto withReason = support::runInChild([] {
        VQError::setErrorHandler(&leaveWithSeven, nullptr);
        VQError::fatalOSError(0, "text");
    });
    EXPECT_TRUE(plain.killedBy(SIGABRT)) << plain;
    EXPECT_TRUE(withReason.killedBy(SIGABRT)) << withReason;
}

TEST(VQError, CriticalErrorCallsTheInstalledHandlerWithItsData) {
    const auto result = support::runInChild([] {
        VQError::setErrorHandler([](void* data) { std::_Exit(std::strcmp(static_cast<char*>(data), kData)); },
                                 kData);
        VQError::criticalError(0, "%s", "end");
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(VQError, CriticalErrorHandsErrnoToTheHandlerAsItWas) {
    const auto result = support::runInChild([] {
        VQError::setErrorHandler([](void*) { std::_Exit(errno == EXDEV ? 0 : 1); }, nullptr);
        errno = EXDEV;
        VQError::criticalError(0, "%s", "end");
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(VQError, TheExitHandlerRunsTheProcessesExitHandlers) {
    support::SlogCapture log;
    const auto result = support::runInChild([] {
        std::atexit([] { VQSyslog::logMsg(0, VQSyslog::INFO, "at exit"); });
        VQError::exitHandlerFunc(kData);
    });
    EXPECT_TRUE(result.exitedWith(EXIT_FAILURE)) << result;
    EXPECT_THAT(loggedLines(log),
                ElementsAre(loggedLine(result.pid, VQSyslog::INFO, "terminating process using exit(EXIT_FAILURE)"),
                            loggedLine(result.pid, VQSyslog::INFO, "at exit")));
}

TEST(VQError, ACriticalErrorWhileExitingAborts) {
    support::SlogCapture log;
    const auto result = support::runInChild([] {
        std::atexit([] { VQError::criticalError(0, "%s", "second"); });
        VQError::criticalError(0, "%s", "first");
    });
    EXPECT_TRUE(result.killedBy(SIGABRT)) << result;
    EXPECT_THAT(loggedLines(log),
                ElementsAre(loggedLine(result.pid, VQSyslog::CRITICAL, "first"),
                            loggedLine(result.pid, VQSyslog::INFO, "terminating process using exit(EXIT_FAILURE)"),
                            loggedLine(result.pid, VQSyslog::CRITICAL, "second"),
                            loggedLine(result.pid, VQSyslog::INFO, "terminating process using abort()")));
}

TEST(VQError, ExitIsNotEnteredTwiceEvenWhenTheExitHandlerIsBroughtBack) {
    support::SlogCapture log;
    const auto result = support::runInChild([] {
        std::atexit([] {
            VQError::setErrorHandler(nullptr, nullptr);
            VQError::criticalError(0, "%s", "second");
        });
        VQError::criticalError(0, "%s", "first");
    });
    EXPECT_TRUE(result.killedBy(SIGABRT)) << result;
    EXPECT_THAT(loggedLines(log),
                ElementsAre(loggedLine(result.pid, VQSyslog::CRITICAL, "first"),
                            loggedLine(result.pid, VQSyslog::INFO, "terminating process using exit(EXIT_FAILURE)"),
                            loggedLine(result.pid, VQSyslog::CRITICAL, "second"),
                            loggedLine(result.pid, VQSyslog::INFO, "terminating process using abort()")));
}

TEST(VQError, TheAbortHandlerSaysSoAndAborts) {
    support::SlogCapture log;
    const auto result = support::runInChild([] { VQError::abortHandlerFunc(kData); });
    EXPECT_TRUE(result.killedBy(SIGABRT)) << result;
    EXPECT_THAT(loggedLines(log),
                ElementsAre(loggedLine(result.pid, VQSyslog::INFO, "terminating process using abort()")));
}

TEST(VQError, AHandlerOnceInstalledServesForkedChildren) {
    const auto result = support::runInChild([] {
        VQError::setErrorHandler(&leaveWithSeven, nullptr);
        const auto child = support::runInChild([] { VQError::criticalError(0, "%s", "end"); });
        EXPECT_TRUE(child.exitedWith(7)) << child;
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(VQError, EndsTheProcessWhenManyThreadsFailAtOnce) {
    support::SlogCapture log;
    const auto result = support::runInChild([] {
        std::atomic<bool> go{false};
        for (int i = 0; i < 8; ++i) {
            std::thread([&go] {
                while (!go) {
                    std::this_thread::yield();
                }
                VQError::criticalError(0, "%s", "end");
            }).detach();
        }
        go = true;
        for (;;) {
            pause();
        }
    });
    // The first thread exits; one that comes while it does so aborts. Nothing else may happen.
    EXPECT_TRUE(result.exitedWith(EXIT_FAILURE) || result.killedBy(SIGABRT)) << result;
    int exits = 0;
    for (const std::string& text : log.texts()) {
        exits += text.find("exit(EXIT_FAILURE)") != std::string::npos ? 1 : 0;
    }
    EXPECT_LE(exits, 1);
}

TEST(VQError, LogsWhatItCanOfAnOverlongText) {
    support::SlogCapture log;
    VQError::reportOSError(0, VQSyslog::ERROR, ENOENT, std::string(5000, 'x').c_str());
    const std::string prefix = "pid " + std::to_string(getpid()) + ": ";
    EXPECT_THAT(log.texts(), ElementsAre(prefix + std::string(1024 - prefix.size(), 'x')));
}
