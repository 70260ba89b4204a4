// VQBacktrace: the file's bytes and its name, both entries, the info function, and what the writer survives: no
// memory, no room, no directory, a second request from inside, a fork, a cancelled thread.
#include <VQBacktrace.h>

#include <CVQAsserter.h>
#include <CVQString.h>
#include <VQError.h>
#include <VQMemory.h>

#include "LoggedLines.h"
#include "NeutrinoDoubles.h"
#include "support/ChildProcess.h"
#include "support/Sanitizers.h"
#include "support/SlogCapture.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <malloc.h>
#include <pthread.h>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::Ge;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Le;
using ::testing::StartsWith;

namespace {

std::string hex(bt_addr_t address) {
    char text[32];
    std::snprintf(text, sizeof text, "%0*" PRIXPTR " ", static_cast<int>(2 * sizeof(void*)),
                  std::uintptr_t{address});
    return text;
}

std::string ownInfos(pid_t process, pid_t thread) {
    return "TID: " + std::to_string(thread) + " PID: " + std::to_string(process);
}

/// A file's content for a stack without addresses and without a map.
std::string record(const std::string& message, const std::string& infos) {
    return "\n[QNX backtrace] INFO - " + message + "\n\n" + infos +
           "\n"
           "data below is the actual callstack created with QNX libbacktrace.so\n"
           "usable for analysis with proper project MAP file\n\n";
}

CVQString namedInfos(CVQString& baseName) {
    baseName = "base";
    return "the one";
}

/// A stack of nothing at all: for tests of everything else in the file.
class EmptyStack : public doubles::ScriptedStack {
public:
    EmptyStack() { loadResult = -1; }
};

std::atomic<bool> sInInfoFunction{false};
std::atomic<bool> sLeaveInfoFunction{false};

CVQString waitingInfos(CVQString& baseName) {
    sInInfoFunction = true;
    while (!sLeaveInfoFunction) {
        std::this_thread::yield();
    }
    return namedInfos(baseName);
}

/// Not inlined, so that the address after its call is among the return addresses.
__attribute__((noinline)) void askForBacktrace(const char* directory) {
    VQBacktrace::doBacktraceNoAlloc("message", directory, "ext", true);
    asm volatile("" ::: "memory");  // keeps the call from becoming a jump
}

void waitFor(const std::atomic<bool>& flag) {
    while (!flag) {
        std::this_thread::yield();
    }
}

}  // namespace

class VQBacktraceTest : public ::testing::Test {
protected:
    /// Writes in a child and returns what is in its one file then; "#" in `name` stands for its process id.
    std::string fileOf(const std::function<void()>& body, const std::string& name = "base.ext") {
        mResult = support::runInChild(body);
        EXPECT_TRUE(mResult.exitedWith(0)) << mResult;
        EXPECT_THAT(mFolder.list(), ElementsAre(fileName(name)));
        return support::readFile(mFolder / fileName(name));
    }

    std::string fileName(const std::string& name) const {
        const std::size_t mark = name.find('#');
        return mark == std::string::npos ? name : std::string(name).replace(mark, 1, std::to_string(mResult.pid));
    }

    const char* folder() const { return mFolder.path().c_str(); }

    support::SlogCapture mLog;
    support::TemporaryFolder mFolder;
    support::ChildResult mResult;
};

TEST_F(VQBacktraceTest, WritesMessageInfosAddressesAndMapInThisOrder) {
    const std::string text = fileOf([this] {
        doubles::ScriptedStack stack;
        stack.addresses = {1, 2, 0xABCDEF, 4, 5, 6, 0x89ABCDEF, 8, 9, 10, 11, 12, 13};
        stack.mapText = "first\nsecond\n";
        VQBacktrace::setInfos(&namedInfos);
        VQBacktrace::doBacktrace("message", folder(), "ext", true);
        EXPECT_EQ(stack.unloads, 1);
    });
    EXPECT_EQ(text, "\n[QNX backtrace] INFO - message\n"
                    "\nthe one\n"
                    "data below is the actual callstack created with QNX libbacktrace.so\n"
                    "usable for analysis with proper project MAP file\n\n"
                    "\n" +
                        hex(1) + hex(2) + hex(0xABCDEF) + hex(4) + hex(5) + hex(6) + "\n" + hex(0x89ABCDEF) +
                        hex(8) + hex(9) + hex(10) + hex(11) + hex(12) + "\n" + hex(13) + "\n\nfirst\nsecond\n\n\n");
    EXPECT_EQ(mResult.out, "");
    EXPECT_EQ(mResult.err, "");
    EXPECT_THAT(mLog.texts(), IsEmpty());
}

TEST_F(VQBacktraceTest, Kept_NamesTheTargetsLibraryOnEveryPlatform) {
    // id: backtrace-libbacktrace
    const std::string text = fileOf([this] {
        VQBacktrace::setInfos(&namedInfos);
        VQBacktrace::doBacktrace("message", folder(), "ext", true);
    });
    EXPECT_THAT(text, HasSubstr("\ndata below is the actual callstack created with QNX libbacktrace.so\n"
                                "usable for analysis with proper project MAP file\n\n\n"));
}

TEST_F(VQBacktraceTest, WritesAddressesAsWideAsAPointer) {
    EXPECT_EQ(hex(0xAB).size(), 2 * sizeof(void*) + 1);
    const std::string text = fileOf([this] {
        EmptyStack stack;
        stack.addresses = {UINTPTR_MAX};
        VQBacktrace::setInfos(&namedInfos);
        VQBacktrace::doBacktrace("message", folder(), "ext", true);
    });
    EXPECT_EQ(text, record("message", "the one") + "\n" + std::string(2 * sizeof(void*), 'F') + " ");
}

TEST_F(VQBacktraceTest, WritesAtMostOneHundredAddresses) {
    const std::string text = fileOf([this] {
        EmptyStack stack;
        stack.addresses.assign(150, 0xA);
        VQBacktrace::setInfos(&namedInfos);
        VQBacktrace::doBacktrace("message", folder(), "ext", true);
    });
    std::string expected = record("message", "the one");
    for (int i = 0; i < 100; ++i) {
        expected += (i % 6 == 0 ? "\n" : "") + hex(0xA);
    }
    EXPECT_EQ(text, expected);
}

TEST_F(VQBacktraceTest, PrintsUpTo27MapEntriesIntoTheStackAndUpTo50IntoTheHeap) {
    const struct {
        int line;
        int count;
        int printed;
        std::size_t size;
    } kRows[] = {
        {__LINE__, 0, 0, 4096},       {__LINE__, 1, 1, 4096},   {__LINE__, 27, 27, 4096},
        {__LINE__, 28, 28, 28 * 150}, {__LINE__, 50, 50, 7500}, {__LINE__, 51, 50, 7500},
        {__LINE__, 10000, 50, 7500},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        support::TemporaryFolder folder;
        const auto result = support::runInChild([&] {
            doubles::ScriptedStack stack;
            stack.mapCount = row.count;
            stack.mapText = std::string(20000, 'm');
            VQBacktrace::setInfos(&namedInfos);
            VQBacktrace::doBacktrace("message", folder.path().c_str(), "ext", true);
            EXPECT_EQ(stack.printedCount, row.printed);
            EXPECT_EQ(stack.printedSize, row.size);
            EXPECT_EQ(stack.unloads, 1);
        });
        EXPECT_TRUE(result.exitedWith(0)) << result;
        // A text that fills its room is cut, and terminated.
        EXPECT_EQ(support::readFile(folder / "base.ext"),
                  record("message", "the one") + "\n\n" + std::string(row.size - 1, 'm') + "\n\n");
    }
}

TEST_F(VQBacktraceTest, GoesWithoutWhatThePlatformDoesNotTell) {
    const std::string text = fileOf([this] {
        VQBacktrace::setInfos(&namedInfos);
        doubles::ScriptedStack stack;
        stack.addresses = {1};
        stack.loadResult = -1;
        VQBacktrace::doBacktrace("no map", folder(), "ext", true);
        EXPECT_EQ(stack.unloads, 0);
        stack.loadResult = 0;
        stack.stackResult = -1;
        VQBacktrace::doBacktrace("no stack", folder(), "ext", true);
        stack.initResult = -1;
        VQBacktrace::doBacktrace("nothing", folder(), "ext", true);
    });
    EXPECT_EQ(text, record("no map", "the one") + "\n" + hex(1) + record("no stack", "the one") + "\n\nmap\n\n\n" +
                        record("nothing", "the one"));
}

TEST_F(VQBacktraceTest, TellsWhereTheCallerIs) {
    const std::string text = fileOf([this] { askForBacktrace(folder()); }, "PID#.ext");
    const std::string head = record("message", ownInfos(mResult.pid, mResult.pid));
    ASSERT_THAT(text, StartsWith(head));
    std::istringstream lines(text.substr(head.size()));
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "");
    std::vector<std::size_t> addressesPerLine;
    bool foundCaller = false;
    while (std::getline(lines, line) && !line.empty()) {
        std::size_t digits = 0;
        addressesPerLine.push_back(0);
        for (const char c : line) {
            if (c == ' ') {
                EXPECT_EQ(digits, 2 * sizeof(void*)) << line;
                digits = 0;
                ++addressesPerLine.back();
            } else {
                EXPECT_TRUE((c >= '0' && c <= '9') || (c >= 'A' && c <= 'F')) << line;
                ++digits;
            }
        }
        EXPECT_EQ(digits, 0U) << line;
        std::istringstream addresses(line);
        for (std::uintptr_t address; addresses >> std::hex >> address;) {
            const auto start = reinterpret_cast<std::uintptr_t>(&askForBacktrace);
            foundCaller = foundCaller || (address > start && address < start + 256);
        }
    }
    EXPECT_TRUE(foundCaller) << text;
    ASSERT_GE(addressesPerLine.size(), 1U);
    EXPECT_THAT(addressesPerLine, Each(AllOf(Ge(1U), Le(6U))));
    addressesPerLine.pop_back();
    EXPECT_THAT(addressesPerLine, Each(6U));
    EXPECT_THAT(text, EndsWith("\n\n\n"));
    EXPECT_THAT(text, HasSubstr("libsys_marlix"));
    EXPECT_THAT(text, HasSubstr("test_diag"));
}

TEST_F(VQBacktraceTest, TheBuiltInInfosNameThreadAndProcess) {
    const std::string text = fileOf(
        [this] {
            EmptyStack stack;
            VQBacktrace::doBacktrace("first thread", folder(), "ext", true);
            int other = 0;
            std::thread([this, &other] {
                other = gettid();
                VQBacktrace::doBacktrace("other", folder(), std::to_string(other).c_str(), true);
            }).join();
            const std::string name = "/PID" + std::to_string(getpid()) + '.' + std::to_string(other);
            EXPECT_EQ(support::readFile(folder() + name), record("other", ownInfos(getpid(), other)));
            unlink((folder() + name).c_str());
        },
        "PID#.ext");
    EXPECT_EQ(text, record("first thread", ownInfos(mResult.pid, mResult.pid)));
}

TEST_F(VQBacktraceTest, ANullInfoFunctionBringsTheBuiltInInfosBack) {
    const std::string text = fileOf(
        [this] {
            EmptyStack stack;
            VQBacktrace::setInfos(&namedInfos);
            VQBacktrace::setInfos(nullptr);
            VQBacktrace::doBacktrace("message", folder(), "ext", true);
        },
        "PID#.ext");
    EXPECT_EQ(text, record("message", ownInfos(mResult.pid, mResult.pid)));
}

TEST_F(VQBacktraceTest, AnEmptyBaseNameAndEmptyInfosAreTakenAsTheyAre) {
    const std::string text = fileOf(
        [this] {
            EmptyStack stack;
            VQBacktrace::setInfos([](CVQString&) { return CVQString(); });
            VQBacktrace::doBacktrace("", folder(), "ext", true);
        },
        ".ext");
    EXPECT_EQ(text, record("", ""));
}

TEST_F(VQBacktraceTest, TheStringFreeEntryAsksNoInfoFunction) {
    const std::string text = fileOf(
        [this] {
            EmptyStack stack;
            VQBacktrace::setInfos(&namedInfos);
            VQBacktrace::doBacktraceNoAlloc("message", folder(), "ext", true);
        },
        "PID#.ext");
    EXPECT_EQ(text, record("message", ownInfos(mResult.pid, mResult.pid)));
}

TEST_F(VQBacktraceTest, NullArgumentsOfTheStringFreeEntryAreAssertions) {
    const struct {
        int line;
        unsigned assertion;
        const char* message;
        const char* directory;
        const char* extension;
    } kRows[] = {
        {__LINE__, 509, nullptr, folder(), "ext"},
        {__LINE__, 515, "message", nullptr, "ext"},
        {__LINE__, 521, "message", folder(), nullptr},
        {__LINE__, 509, nullptr, nullptr, nullptr},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        support::TemporaryFolder assertions;
        mLog.clear();
        const auto result = support::runInChild([&] {
            EmptyStack stack;
            setenv("VQ_ASSERTION_BACKTRACE_DIR", assertions.path().c_str(), 1);
            VQBacktrace::doBacktraceNoAlloc(row.message, row.directory, row.extension, true);
            EXPECT_EQ(CVQAsserter::getOccuredAssertions(), 1U);
        });
        EXPECT_TRUE(result.exitedWith(0)) << result;
        const std::string line = std::to_string(row.assertion);
        EXPECT_THAT(
            loggedLines(mLog),
            ElementsAre(
                loggedLine(result.pid, VQSyslog::ERROR, "VQBacktraceQNX:" + line + ": ASSERTION failed"),
                loggedLine(result.pid, VQSyslog::CRITICAL, "ASSERTION \"???\" failed in VQBacktraceQNX " + line)));
        EXPECT_EQ(result.err, "\nVQBacktraceQNX:" + line + ": ASSERTION failed\n");
        EXPECT_EQ(support::readFile(assertions / ("PID" + std::to_string(result.pid) + ".ass")),
                  record("ASSERTION \"???\" failed in VQBacktraceQNX " + line, ownInfos(result.pid, result.pid)));
        EXPECT_THAT(mFolder.list(), IsEmpty());
    }
}

TEST_F(VQBacktraceTest, AppendsRecordAfterRecord) {
    const std::string text = fileOf([this] {
        EmptyStack stack;
        VQBacktrace::setInfos(&namedInfos);
        VQBacktrace::doBacktrace("one", folder(), "ext", true);
        VQBacktrace::doBacktrace("two", folder(), "ext", true);
    });
    EXPECT_EQ(text, record("one", "the one") + record("two", "the one"));
}

TEST_F(VQBacktraceTest, Kept_DoesNotShortenAFileThatItDoesNotAppendTo) {
    // id: backtrace-no-truncate
    const std::string shorter = record("one", "the one");
    const std::string longer = record("one two three", "the one");
    const std::string text = fileOf([this] {
        EmptyStack stack;
        VQBacktrace::setInfos(&namedInfos);
        VQBacktrace::doBacktrace("one two three", folder(), "ext", false);
        VQBacktrace::doBacktrace("one", folder(), "ext", false);
    });
    EXPECT_EQ(text, shorter + longer.substr(shorter.size()));
}

TEST_F(VQBacktraceTest, Kept_TheStringFreeEntryDoesNotShortenAFileEither) {
    // id: backtrace-no-truncate
    const std::string text = fileOf(
        [this] {
            EmptyStack stack;
            VQBacktrace::doBacktraceNoAlloc("one two three", folder(), "ext", false);
            VQBacktrace::doBacktraceNoAlloc("one", folder(), "ext", false);
        },
        "PID#.ext");
    const std::string infos = ownInfos(mResult.pid, mResult.pid);
    const std::string shorter = record("one", infos);
    EXPECT_EQ(text, shorter + record("one two three", infos).substr(shorter.size()));
}

TEST_F(VQBacktraceTest, MakesTheFileForEverybodyAsFarAsTheMaskAllows) {
    fileOf([this] {
        EmptyStack stack;
        umask(0);
        VQBacktrace::setInfos(&namedInfos);
        VQBacktrace::doBacktrace("message", folder(), "ext", true);
    });
    struct stat status {};
    ASSERT_EQ(stat((mFolder / "base.ext").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0666U);
}

TEST_F(VQBacktraceTest, Kept_ReportsAFileThatCannotBeOpenedOnStandardOutputOnly) {
    // id: backtrace-stdout
    const auto result = support::runInChild([this] {
        VQBacktrace::setInfos(&namedInfos);
        VQBacktrace::doBacktrace("message", (mFolder / "missing").c_str(), "ext", true);
        VQBacktrace::doBacktraceNoAlloc("message", (mFolder / "missing").c_str(), "ext", true);
        std::_Exit(0);  // the report does not wait in a buffer
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(result.out, "Cannot open " + (mFolder / "missing/base.ext") + "\nCannot open " +
                              (mFolder / "missing/PID") + std::to_string(result.pid) + ".ext\n");
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(mLog.texts(), IsEmpty());
}

TEST_F(VQBacktraceTest, Kept_CutsAFileNameAt1023Bytes) {
    // id: backtrace-name-1024
    const auto result = support::runInChild(
        [] { VQBacktrace::doBacktraceNoAlloc("message", std::string(2000, 'd').c_str(), "ext", true); });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(result.out, "Cannot open " + std::string(1023, 'd') + "\n");
}

TEST_F(VQBacktraceTest, LeavesErrnoAsItWas) {
    const auto result = support::runInChild([this] {
        const struct {
            int line;
            std::string directory;
        } kRows[] = {{__LINE__, folder()}, {__LINE__, mFolder / "missing"}};
        for (const auto& row : kRows) {
            SCOPED_TRACE(row.line);
            const CVQString directory(row.directory.c_str());
            errno = EXDEV;
            VQBacktrace::doBacktraceNoAlloc("message", row.directory.c_str(), "ext", true);
            EXPECT_EQ(errno, EXDEV);
            VQBacktrace::doBacktrace(directory, directory, directory, true);
            EXPECT_EQ(errno, EXDEV);
        }
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST_F(VQBacktraceTest, LeavesNoDescriptorBehind) {
    const auto result = support::runInChild([this] {
        const int before = open("/dev/null", O_RDONLY);
        close(before);
        VQBacktrace::doBacktraceNoAlloc("message", folder(), "ext", true);
        VQBacktrace::doBacktraceNoAlloc("message", (mFolder / "missing").c_str(), "ext", true);
        EXPECT_EQ(open("/dev/null", O_RDONLY), before);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST_F(VQBacktraceTest, AFullDiskLeavesTheProcessAlone) {
    const auto result = support::runInChild([this] {
        const std::string name = "/PID" + std::to_string(getpid()) + ".ext";
        ASSERT_EQ(symlink("/dev/full", (folder() + name).c_str()), 0);
        VQBacktrace::doBacktrace("message", folder(), "ext", true);
        errno = EXDEV;
        VQBacktrace::doBacktraceNoAlloc("message", folder(), "ext", true);
        EXPECT_EQ(errno, EXDEV);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(result.out, "");
}

TEST_F(VQBacktraceTest, AFileSizeLimitCutsTheFileAndRaisesNoSignal) {
    const std::string text = fileOf([this] {
        EmptyStack stack;
        VQBacktrace::setInfos(&namedInfos);
        rlimit limit;
        ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
        limit.rlim_cur = 100;
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        sigset_t before;
        sigset_t after;
        pthread_sigmask(SIG_BLOCK, nullptr, &before);
        VQBacktrace::doBacktrace(std::string(90, 'm').c_str(), folder(), "ext", true);
        VQBacktrace::doBacktrace("no room at all", folder(), "ext", true);
        pthread_sigmask(SIG_BLOCK, nullptr, &after);
        EXPECT_EQ(sigismember(&before, SIGXFSZ), 0);
        EXPECT_EQ(sigismember(&after, SIGXFSZ), 0);
    });
    EXPECT_EQ(text, record(std::string(90, 'm'), "the one").substr(0, 100));
}

TEST_F(VQBacktraceTest, AFileSizeSignalThatWaitedAlreadyStaysPending) {
    fileOf([this] {
        EmptyStack stack;
        VQBacktrace::setInfos(&namedInfos);
        sigset_t signal;
        sigemptyset(&signal);
        sigaddset(&signal, SIGXFSZ);
        pthread_sigmask(SIG_BLOCK, &signal, nullptr);
        VQBacktrace::doBacktrace("message", folder(), "ext", true);
        sigset_t pending;
        sigpending(&pending);
        EXPECT_EQ(sigismember(&pending, SIGXFSZ), 0);
        raise(SIGXFSZ);
        VQBacktrace::doBacktrace("message", folder(), "ext", true);
        sigpending(&pending);
        EXPECT_EQ(sigismember(&pending, SIGXFSZ), 1);
        pthread_sigmask(SIG_BLOCK, nullptr, &signal);
        EXPECT_EQ(sigismember(&signal, SIGXFSZ), 1);
    });
}

TEST_F(VQBacktraceTest, WritesWithAllStandardDescriptorsClosed) {
    const std::string text = fileOf([this] {
        EmptyStack stack;
        VQBacktrace::setInfos(&namedInfos);
        close(STDIN_FILENO);
        close(STDOUT_FILENO);
        close(STDERR_FILENO);
        VQBacktrace::doBacktrace("one", folder(), "ext", true);
        VQBacktrace::doBacktrace("unwritten", (mFolder / "missing").c_str(), "ext", true);
        VQBacktrace::doBacktrace("two", folder(), "ext", true);
    });
    EXPECT_EQ(text, record("one", "the one") + record("two", "the one"));
}

TEST_F(VQBacktraceTest, AnAssertionOfTheInfoFunctionIsReportedAndDoesNotRecurse) {
    const std::string text = fileOf(
        [this] {
            EmptyStack stack;
            setenv("VQ_ASSERTION_BACKTRACE_DIR", folder(), 1);
            VQBacktrace::setInfos([](CVQString& baseName) {
                doCheapAssert(7, "Infos");
                return namedInfos(baseName);
            });
            doCheapAssert(1, "Unit");
            doCheapAssert(2, "Unit");
            EXPECT_EQ(CVQAsserter::getOccuredAssertions(), 4U);
        },
        "base.ass");
    EXPECT_EQ(text, record("ASSERTION \"???\" failed in Unit 1", "the one") +
                        record("ASSERTION \"???\" failed in Unit 2", "the one"));
    EXPECT_EQ(mResult.err, "\nUnit:1: ASSERTION failed\n\nInfos:7: ASSERTION failed\n"
                           "\nUnit:2: ASSERTION failed\n\nInfos:7: ASSERTION failed\n");
    EXPECT_THAT(loggedLines(mLog),
                ElementsAre(loggedLine(mResult.pid, VQSyslog::ERROR, "Unit:1: ASSERTION failed"),
                            loggedLine(mResult.pid, VQSyslog::CRITICAL, "ASSERTION \"???\" failed in Unit 1"),
                            loggedLine(mResult.pid, VQSyslog::ERROR, "Infos:7: ASSERTION failed"),
                            loggedLine(mResult.pid, VQSyslog::CRITICAL, "ASSERTION \"???\" failed in Infos 7"),
                            loggedLine(mResult.pid, VQSyslog::ERROR, "Unit:2: ASSERTION failed"),
                            loggedLine(mResult.pid, VQSyslog::CRITICAL, "ASSERTION \"???\" failed in Unit 2"),
                            loggedLine(mResult.pid, VQSyslog::ERROR, "Infos:7: ASSERTION failed"),
                            loggedLine(mResult.pid, VQSyslog::CRITICAL, "ASSERTION \"???\" failed in Infos 7")));
}

TEST_F(VQBacktraceTest, ABacktraceAskedForByTheInfoFunctionIsWrittenAtOnceWithoutIt) {
    mResult = support::runInChild([this] {
        EmptyStack stack;
        setenv("VQ_ASSERTION_BACKTRACE_DIR", folder(), 1);
        VQBacktrace::setInfos([](CVQString& baseName) {
            const char* const directory = std::getenv("VQ_ASSERTION_BACKTRACE_DIR");
            VQBacktrace::doBacktrace("inner", directory, "ext", true);
            VQBacktrace::doBacktraceNoAlloc("innermost", directory, "ext", true);
            doCheapAssert(7, "Infos");
            return namedInfos(baseName);
        });
        VQBacktrace::doBacktrace("outer", folder(), "ext", true);
        VQBacktrace::setInfos(&namedInfos);
        VQBacktrace::doBacktrace("later", folder(), "ext", true);
    });
    EXPECT_TRUE(mResult.exitedWith(0)) << mResult;
    const std::string pid = std::to_string(mResult.pid);
    const std::string infos = ownInfos(mResult.pid, mResult.pid);
    EXPECT_EQ(support::readFile(mFolder / "base.ext"), record("outer", "the one") + record("later", "the one"));
    EXPECT_EQ(support::readFile(mFolder / ("PID" + pid + ".ext")),
              record("inner", infos) + record("innermost", infos));
    EXPECT_EQ(support::readFile(mFolder / ("PID" + pid + ".ass")),
              record("ASSERTION \"???\" failed in Infos 7", infos));
}

TEST_F(VQBacktraceTest, AnInfoFunctionWithoutMemoryEndsTheProcessWithBothReportsWritten) {
    mResult = support::runInChild([this] {
        EmptyStack stack;
        setenv("VQ_ASSERTION_BACKTRACE_DIR", folder(), 1);
        VQBacktrace::setInfos([](CVQString& baseName) {
            VQMemory::allocChecked(SIZE_MAX / 2);
            return namedInfos(baseName);
        });
        doCheapAssert(1, "Unit");
    });
    EXPECT_TRUE(mResult.exitedWith(EXIT_FAILURE)) << mResult;
    EXPECT_THAT(mFolder.list(), ElementsAre("PID" + std::to_string(mResult.pid) + ".ass"));
    EXPECT_THAT(support::readFile(mFolder / ("PID" + std::to_string(mResult.pid) + ".ass")),
                StartsWith("\n[QNX backtrace] INFO - failed to allocate "));
}

TEST_F(VQBacktraceTest, AFatalErrorOfTheInfoFunctionEndsTheProcess) {
    mResult = support::runInChild([this] {
        EmptyStack stack;
        setenv("VQ_ASSERTION_BACKTRACE_DIR", folder(), 1);
        // What runs at exit may still report: the lock is held by this very thread.
        std::atexit([] {
            VQBacktrace::doBacktraceNoAlloc("at exit", std::getenv("VQ_ASSERTION_BACKTRACE_DIR"), "ext", true);
        });
        VQBacktrace::setInfos([](CVQString& baseName) {
            doCheapFatalError(7, "Infos");
            return namedInfos(baseName);
        });
        doCheapAssert(1, "Unit");
    });
    EXPECT_TRUE(mResult.exitedWith(EXIT_FAILURE)) << mResult;
    EXPECT_THAT(mFolder.list(), ElementsAre("PID" + std::to_string(mResult.pid) + ".ext"));
}

TEST_F(VQBacktraceTest, AChildForkedWhileAnotherThreadWritesCanWriteToo) {
    mResult = support::runInChild([this] {
        EmptyStack stack;
        VQBacktrace::setInfos(&waitingInfos);
        std::thread writer([this] { VQBacktrace::doBacktrace("parent", folder(), "ext", true); });
        waitFor(sInInfoFunction);
        const auto child = support::runInChild([this] {
            VQBacktrace::doBacktraceNoAlloc("child", folder(), "ext", true);
            VQBacktrace::setInfos(&namedInfos);
            VQBacktrace::doBacktrace("child", folder(), "child", true);
        });
        EXPECT_TRUE(child.exitedWith(0)) << child;
        EXPECT_EQ(support::readFile(mFolder / ("PID" + std::to_string(child.pid) + ".ext")),
                  record("child", ownInfos(child.pid, child.pid)));
        EXPECT_EQ(support::readFile(mFolder / "base.child"), record("child", "the one"));
        sLeaveInfoFunction = true;
        writer.join();
        EXPECT_EQ(support::readFile(mFolder / "base.ext"), record("parent", "the one"));
    });
    EXPECT_TRUE(mResult.exitedWith(0)) << mResult;
}

TEST_F(VQBacktraceTest, AnInfoFunctionMayFork) {
    const std::string text = fileOf([this] {
        EmptyStack stack;
        static pid_t child;
        VQBacktrace::setInfos([](CVQString& baseName) {
            child = fork();
            return namedInfos(baseName);
        });
        VQBacktrace::doBacktrace("message", folder(), "ext", true);
        if (child == 0) {
            VQBacktrace::setInfos(&namedInfos);
            VQBacktrace::doBacktrace("free again", folder(), "ext", true);
            std::_Exit(0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
        VQBacktrace::setInfos(&namedInfos);
        VQBacktrace::doBacktrace("last", folder(), "ext", true);
    });
    const std::string message = record("message", "the one");
    const std::string freeAgain = record("free again", "the one");
    const std::string last = record("last", "the one");
    EXPECT_THAT(text, ::testing::AnyOf(message + message + freeAgain + last, message + freeAgain + message + last));
}

TEST_F(VQBacktraceTest, AThreadThatIsCancelledWhileItWritesFinishesTheFileFirst) {
    const std::string text = fileOf([this] {
        EmptyStack stack;
        VQBacktrace::setInfos(&waitingInfos);
        static bool reachedEnd = false;
        pthread_t thread;
        const auto body = [](void* directory) -> void* {
            VQBacktrace::doBacktraceNoAlloc("one", static_cast<const char*>(directory), "tmp", true);
            VQBacktrace::doBacktrace("one", static_cast<const char*>(directory), "ext", true);
            reachedEnd = true;
            pthread_testcancel();
            return nullptr;
        };
        ASSERT_EQ(pthread_create(&thread, nullptr, body, const_cast<char*>(folder())), 0);
        waitFor(sInInfoFunction);
        pthread_cancel(thread);
        sLeaveInfoFunction = true;
        void* result = nullptr;
        pthread_join(thread, &result);
        EXPECT_EQ(result, PTHREAD_CANCELED);
        EXPECT_TRUE(reachedEnd);
        VQBacktrace::doBacktrace("two", folder(), "ext", true);
        unlink((mFolder / ("PID" + std::to_string(getpid()) + ".tmp")).c_str());
    });
    EXPECT_EQ(text, record("one", "the one") + record("two", "the one"));
}

TEST_F(VQBacktraceTest, RecordsOfManyThreadsFollowEachOtherWhole) {
    constexpr int kThreads = 8;
    constexpr int kRecords = 20;
    const std::string text = fileOf([this] {
        doubles::ScriptedStack stack;
        stack.addresses.assign(100, 0xA);
        stack.mapCount = 50;
        stack.mapText = std::string(7000, 'm');
        VQBacktrace::setInfos(&namedInfos);
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([this] {
                for (int j = 0; j < kRecords; ++j) {
                    VQBacktrace::doBacktrace("message", folder(), "ext", true);
                }
            });
        }
        for (auto& thread : threads) {
            thread.join();
        }
    });
    std::string one = record("message", "the one");
    for (int i = 0; i < 100; ++i) {
        one += (i % 6 == 0 ? "\n" : "") + hex(0xA);
    }
    one += "\n\n" + std::string(7000, 'm') + "\n\n";
    ASSERT_EQ(text.size(), kThreads * kRecords * one.size());
    for (std::size_t at = 0; at < text.size(); at += one.size()) {
        ASSERT_EQ(text.compare(at, one.size(), one), 0) << "record at " << at;
    }
}

TEST_F(VQBacktraceTest, OneThreadWritesAtATime) {
    constexpr int kThreads = 8;
    constexpr int kRecords = 20;
    static std::atomic<int> inside{0};
    static std::atomic<int> most{0};
    const std::string text = fileOf([this] {
        EmptyStack stack;
        VQBacktrace::setInfos([](CVQString& baseName) {
            const int together = ++inside;
            most = std::max(most.load(), together);
            std::this_thread::yield();
            --inside;
            return namedInfos(baseName);
        });
        std::atomic<int> arrived{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([this, &arrived] {
                ++arrived;
                while (arrived < kThreads) {
                    std::this_thread::yield();
                }
                for (int j = 0; j < kRecords; ++j) {
                    VQBacktrace::doBacktrace("message", folder(), "ext", true);
                }
            });
        }
        for (auto& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(most, 1);
    });
    EXPECT_EQ(text.size(), kThreads * kRecords * record("message", "the one").size());
}

TEST_F(VQBacktraceTest, GivesTheHeapBlockOfALongMapBack) {
    if (support::kIsSanitized)
        GTEST_SKIP() << "the sanitizers' heaps tell nothing of what is in use";
    fileOf(
        [this] {
            doubles::ScriptedStack stack;
            stack.mapCount = 28;
            VQBacktrace::doBacktraceNoAlloc("first", folder(), "ext", true);
            EXPECT_EQ(stack.printedSize, 28U * 150U);
            const std::size_t before = mallinfo2().uordblks;
            for (int i = 0; i < 10; ++i) {
                VQBacktrace::doBacktraceNoAlloc("message", folder(), "ext", true);
            }
            EXPECT_EQ(mallinfo2().uordblks, before);
        },
        "PID#.ext");
}

TEST_F(VQBacktraceTest, NeedsNoMemoryForAMapOf27EntriesAndGoesWithoutALongerOne) {
    if (support::kIsSanitized)
        GTEST_SKIP() << "the sanitizers need the address space that this test takes away";
    if (support::isEmulated())
        GTEST_SKIP() << "the emulator does not keep the address-space limit";
    const std::string text = fileOf(
        [this] {
            doubles::ScriptedStack stack;
            stack.addresses = {1};
            VQBacktrace::doBacktraceNoAlloc("warm", folder(), "tmp", true);
            unlink((mFolder / ("PID" + std::to_string(getpid()) + ".tmp")).c_str());
            const rlimit none{1, 1};
            ASSERT_EQ(setrlimit(RLIMIT_AS, &none), 0);
            for (std::size_t size = 1 << 20; size >= 16; size /= 2) {
                void* volatile block = nullptr;  // or the compiler takes every allocation for granted
                do {
                    block = std::malloc(size);
                } while (block != nullptr);
            }
            for (const int count : {27, 28}) {
                stack.mapCount = count;
                VQBacktrace::doBacktraceNoAlloc("message", folder(), "ext", true);
            }
            std::_Exit(stack.printedCount == 27 ? 0 : 1);
        },
        "PID#.ext");
    const std::string withoutMap = record("message", ownInfos(mResult.pid, mResult.pid)) + "\n" + hex(1);
    EXPECT_EQ(text, withoutMap + "\n\nmap\n\n\n" + withoutMap);
}
