// VQSyslog: the line's bytes, its limit, the opcode, and what becomes of a line that cannot be logged.
#include <VQSyslog.h>

#include "LoggedLines.h"
#include "NeutrinoDoubles.h"
#include "support/ChildProcess.h"
#include "support/ScopedEnvironment.h"
#include "support/SlogCapture.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

std::string prefix() {
    return "pid " + std::to_string(getpid()) + ": ";
}

VQ_PRINTF(4, 5) void callLongForm(int code, int subCode, VQSyslog::Severity severity, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    VQSyslog::vlogMsg(code, subCode, severity, format, arguments);
    va_end(arguments);
}

VQ_PRINTF(3, 4) void callShortForm(int subCode, VQSyslog::Severity severity, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    VQSyslog::vlogMsg(subCode, severity, format, arguments);
    va_end(arguments);
}

}  // namespace

TEST(VQSyslog, CutsTheWholeLineAt1024Bytes) {
    support::SlogCapture log;
    const std::size_t room = 1024 - prefix().size();
    const struct {
        int line;
        std::size_t length;
        std::size_t kept;
    } kRows[] = {
        {__LINE__, room - 1, room - 1}, {__LINE__, room, room},   {__LINE__, room + 1, room},
        {__LINE__, 1024, room},         {__LINE__, 100000, room},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        log.clear();
        VQSyslog::logMsg(0, VQSyslog::ERROR, "%s", std::string(row.length, 'x').c_str());
        EXPECT_THAT(log.texts(), ElementsAre(prefix() + std::string(row.kept, 'x')));
    }
}

TEST(VQSyslog, LosesLinesInSilenceWithoutALogger) {
    support::TemporaryFolder folder;
    support::ScopedEnvironment noLogger("NTO_SLOG", folder / "nobody");
    const auto result = support::runInChild([] { VQSyslog::logMsg(0, VQSyslog::CRITICAL, "lost"); });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "");
}

TEST(VQSyslog, Kept_ReportsEachRefusedLineOnStandardErrorWithAnotherPrefix) {
    // id: syslog-two-prefixes
    support::TemporaryFolder folder;
    support::ScopedEnvironment noSocket("NTO_SLOG", folder.write("file", "") + "/socket");
    const auto result = support::runInChild([] {
        VQSyslog::logMsg(0, VQSyslog::CRITICAL, "one");
        VQSyslog::logMsg(0, VQSyslog::INFO, "two");
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(result.err, unwritable(result.pid, ENOTDIR) + unwritable(result.pid, ENOTDIR));
    EXPECT_EQ(result.out, "");
}

TEST(VQSyslog, PutsCodeAndSubCodeIntoTheOpcode) {
    support::SlogCapture log;
    VQSyslog::logMsg(1, 2, VQSyslog::ERROR, "a");
    VQSyslog::logMsg(0xFFFFF, 0xFFF, VQSyslog::ERROR, "b");
    VQSyslog::logMsg(3, VQSyslog::ERROR, "c");
    VQSyslog::logMsg(0, VQSyslog::ERROR, "d");
    EXPECT_THAT(loggedLines(log),
                ElementsAre(wholeLine(0x200001, 2, prefix() + "a"), wholeLine(0xFFFFFFFF, 2, prefix() + "b"),
                            wholeLine(0x302710, 2, prefix() + "c"), wholeLine(10000, 2, prefix() + "d")));
}

TEST(VQSyslog, ShiftsWhateverSubCodeItIsGiven) {
    support::SlogCapture log;
    VQSyslog::logMsg(0, -1, VQSyslog::ERROR, "a");
    VQSyslog::logMsg(-1, 0, VQSyslog::ERROR, "b");
    VQSyslog::logMsg(1, INT_MIN, VQSyslog::ERROR, "c");
    EXPECT_THAT(loggedLines(log),
                ElementsAre(wholeLine(0xFFF00000, 2, prefix() + "a"), wholeLine(0xFFFFFFFF, 2, prefix() + "b"),
                            wholeLine(1, 2, prefix() + "c")));
}

TEST(VQSyslog, PassesTheSeveritiesOnUnchanged) {
    support::SlogCapture log;
    VQSyslog::logMsg(0, VQSyslog::SHUTDOWN, "s");
    VQSyslog::logMsg(0, VQSyslog::CRITICAL, "s");
    VQSyslog::logMsg(0, VQSyslog::ERROR, "s");
    VQSyslog::logMsg(0, VQSyslog::WARNING, "s");
    VQSyslog::logMsg(0, VQSyslog::NOTICE, "s");
    VQSyslog::logMsg(0, VQSyslog::INFO, "s");
    VQSyslog::logMsg(0, VQSyslog::DEBUG1, "s");
    VQSyslog::logMsg(0, VQSyslog::DEBUG2, "s");
    std::vector<int> severities;
    for (const auto& record : log.records()) {
        severities.push_back(record.severity);
    }
    EXPECT_THAT(severities, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
}

TEST(VQSyslog, FormatsInAllFourForms) {
    support::SlogCapture log;
    VQSyslog::logMsg(7, 1, VQSyslog::NOTICE, "%s=%d", "a", -1);
    VQSyslog::logMsg(1, VQSyslog::NOTICE, "%s=%d", "b", -2);
    callLongForm(7, 1, VQSyslog::NOTICE, "%s=%d", "c", -3);
    callShortForm(1, VQSyslog::NOTICE, "%s=%d", "d", -4);
    EXPECT_THAT(loggedLines(log),
                ElementsAre(wholeLine(0x100007, 4, prefix() + "a=-1"), wholeLine(0x102710, 4, prefix() + "b=-2"),
                            wholeLine(0x100007, 4, prefix() + "c=-3"), wholeLine(0x102710, 4, prefix() + "d=-4")));
}

TEST(VQSyslog, LogsPercentSignsOfAMessageAsTheyAre) {
    support::SlogCapture log;
    VQSyslog::logMsg(0, VQSyslog::ERROR, "%s", "100% %s %n");
    EXPECT_THAT(log.texts(), ElementsAre(prefix() + "100% %s %n"));
}

TEST(VQSyslog, LogsAnEmptyMessageAsThePrefixAlone) {
    support::SlogCapture log;
    VQSyslog::logMsg(0, VQSyslog::ERROR, "%s", "");
    EXPECT_THAT(log.texts(), ElementsAre(prefix()));
}

TEST(VQSyslog, IgnoresANullFormat) {
    support::SlogCapture log;
    const auto result = support::runInChild([] {
        const char* const none = nullptr;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
        VQSyslog::logMsg(0, 0, VQSyslog::ERROR, none);
        VQSyslog::logMsg(0, VQSyslog::ERROR, none);
        callLongForm(0, 0, VQSyslog::ERROR, none);
        callShortForm(0, VQSyslog::ERROR, none);
#pragma GCC diagnostic pop
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST(VQSyslog, ReportsAMessageThatCannotBeFormattedAndDoesNotLogIt) {
    support::SlogCapture log;
    const auto result = support::runInChild([] {
        // No character of the C locale.
        VQSyslog::logMsg(0, VQSyslog::ERROR, "before %lc", static_cast<wint_t>(0x20AC));
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(result.err, unwritable(result.pid, EILSEQ));
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST(VQSyslog, LeavesErrnoAsItWas) {
    support::SlogCapture log;
    errno = EXDEV;
    VQSyslog::logMsg(0, VQSyslog::ERROR, "logged");
    EXPECT_EQ(errno, EXDEV);

    support::TemporaryFolder folder;
    const std::string nobody = folder / "nobody";
    const std::string noSocket = folder.write("file", "") + "/socket";
    const auto result = support::runInChild([&] {
        errno = EXDEV;
        VQSyslog::logMsg(0, VQSyslog::ERROR, "%lc", static_cast<wint_t>(0x20AC));
        EXPECT_EQ(errno, EXDEV);
        setenv("NTO_SLOG", nobody.c_str(), 1);
        errno = EXDEV;
        VQSyslog::logMsg(0, VQSyslog::ERROR, "no logger");
        EXPECT_EQ(errno, EXDEV);
        setenv("NTO_SLOG", noSocket.c_str(), 1);
        errno = EXDEV;
        VQSyslog::logMsg(0, VQSyslog::ERROR, "refused");
        EXPECT_EQ(errno, EXDEV);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(VQSyslog, FindsALoggerThatCameBack) {
    support::TemporaryFolder folder;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = folder / "log";
    std::strcpy(address.sun_path, path.c_str());
    const auto startLogger = [&address] {
        const int logger = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        EXPECT_EQ(bind(logger, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        return logger;
    };
    const auto received = [](int logger) {
        char datagram[4096];
        int count = 0;
        while (recv(logger, datagram, sizeof datagram, 0) > 0) {
            ++count;
        }
        return count;
    };
    const auto result = support::runInChild([&] {
        setenv("NTO_SLOG", path.c_str(), 1);
        VQSyslog::logMsg(0, VQSyslog::ERROR, "lost");
        int logger = startLogger();
        VQSyslog::logMsg(0, VQSyslog::ERROR, "first");
        EXPECT_EQ(received(logger), 1);
        close(logger);
        VQSyslog::logMsg(0, VQSyslog::ERROR, "lost: nobody listens");
        unlink(path.c_str());
        VQSyslog::logMsg(0, VQSyslog::ERROR, "lost: nothing there");
        logger = startLogger();
        VQSyslog::logMsg(0, VQSyslog::ERROR, "second");
        VQSyslog::logMsg(0, VQSyslog::ERROR, "third");
        EXPECT_EQ(received(logger), 2);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(result.err, "");
}

TEST(VQSyslog, ReportsALoggerThatDoesNotKeepUp) {
    support::TemporaryFolder folder;
    const auto result = support::runInChild([&folder] {
        const std::string path = folder / "log";
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, path.c_str());
        const auto* const name = reinterpret_cast<const sockaddr*>(&address);
        const int logger = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        ASSERT_EQ(bind(logger, name, sizeof address), 0);
        const int filler = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        while (sendto(filler, "", 0, 0, name, sizeof address) == 0) {
        }
        setenv("NTO_SLOG", path.c_str(), 1);
        VQSyslog::logMsg(0, VQSyslog::ERROR, "lost");
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(result.err, unwritable(result.pid, EAGAIN));
}

TEST(VQSyslog, ReportsThatNoDescriptorIsLeft) {
    support::SlogCapture log;
    const auto result = support::runInChild([] {
        const rlimit none{0, 0};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
        VQSyslog::logMsg(0, VQSyslog::ERROR, "lost");
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(result.err, unwritable(result.pid, EMFILE));
}

TEST(VQSyslog, HandsALineOverOnceAndReportsWhateverTheLoggerAnswersButThatThereIsNone) {
    for (const int error : {EINTR, EACCES, EBUSY, ENOENT}) {
        const auto result = support::runInChild([error] {
            doubles::RefusingLogger logger;
            logger.error = error;
            VQSyslog::logMsg(0, VQSyslog::ERROR, "refused");
            EXPECT_EQ(logger.lines, 1);
        });
        EXPECT_TRUE(result.exitedWith(0)) << result;
        EXPECT_EQ(result.err, error == ENOENT ? "" : unwritable(result.pid, error));
    }
}

TEST(VQSyslog, SaysUnknownWhereThePlatformHasNoTextForTheRefusal) {
    const auto result = support::runInChild([] {
        const doubles::NoErrorTexts noTexts;
        doubles::RefusingLogger logger;
        VQSyslog::logMsg(0, VQSyslog::ERROR, "refused");
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(result.err, "pid: " + std::to_string(result.pid) + ": cannot write to syslog: unknown\n");
}

TEST(VQSyslog, SurvivesAClosedStandardError) {
    support::TemporaryFolder folder;
    const auto result = support::runInChild([&folder] {
        setenv("NTO_SLOG", (folder.write("file", "") + "/socket").c_str(), 1);
        close(STDERR_FILENO);
        errno = EXDEV;
        VQSyslog::logMsg(0, VQSyslog::ERROR, "refused");
        EXPECT_EQ(errno, EXDEV);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(result.err, "");
}

TEST(VQSyslog, LogsFromAForkedChildUnderItsOwnProcessId) {
    support::SlogCapture log;
    VQSyslog::logMsg(0, VQSyslog::INFO, "parent");
    const auto result = support::runInChild([] { VQSyslog::logMsg(0, VQSyslog::INFO, "child"); });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_THAT(loggedLines(log), ElementsAre(loggedLine(getpid(), VQSyslog::INFO, "parent"),
                                              loggedLine(result.pid, VQSyslog::INFO, "child")));
}

TEST(VQSyslog, LogsWholeLinesFromManyThreads) {
    constexpr int kThreads = 8;
    constexpr int kLines = 50;
    support::SlogCapture log;
    const auto result = support::runInChild([] {
        std::vector<std::thread> threads;
        for (int thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([thread] {
                for (int i = 0; i < kLines; ++i) {
                    VQSyslog::logMsg(0, VQSyslog::INFO, "%d %s", thread,
                                     std::string(300, char('a' + thread)).c_str());
                    std::this_thread::yield();
                }
            });
        }
        for (auto& thread : threads) {
            thread.join();
        }
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;

    std::vector<int> perThread(kThreads);
    const std::string start = "pid " + std::to_string(result.pid) + ": ";
    int refused = 0;
    for (std::size_t at = 0; (at = result.err.find("pid: ", at)) != std::string::npos; ++at) {
        ++refused;  // a logger that does not keep up is told of, line by line
    }
    int logged = 0;
    for (const std::string& text : log.texts()) {
        const int thread = text[start.size()] - '0';
        ASSERT_TRUE(thread >= 0 && thread < kThreads) << text;
        ASSERT_EQ(text, start + std::to_string(thread) + ' ' + std::string(300, char('a' + thread)));
        ++logged;
    }
    EXPECT_EQ(logged + refused, kThreads * kLines);
}

TEST(VQSyslog, NeedsNoMoreThanTheSmallestStack) {
    support::SlogCapture log;
    const auto result = support::runInChild([] {
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        ASSERT_EQ(pthread_attr_setstacksize(&attributes, 32768), 0);
        pthread_t thread;
        const auto body = [](void*) -> void* {
            VQSyslog::logMsg(0, VQSyslog::INFO, "%s", std::string(2000, 'x').c_str());
            return nullptr;
        };
        ASSERT_EQ(pthread_create(&thread, &attributes, body, nullptr), 0);
        pthread_join(thread, nullptr);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(log.texts().size(), 1U);
}
