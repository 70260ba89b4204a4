// What a process that runs out of memory leaves behind: log lines, backtrace file and the way it ends; with a request
// that cannot be met and with a heap that is really empty; and when the report itself runs out of memory.
#include <VQMemory.h>

#include <VQError.h>

#include "LoggedLines.h"
#include "MemoryTesting.h"
#include "support/ChildProcess.h"
#include "support/SlogCapture.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace memorytest;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr char kExitNote[] = "terminating process using exit(EXIT_FAILURE)";
constexpr char kAbortNote[] = "terminating process using abort()";

std::string text(const std::string& attempt, std::size_t size) {
    return "failed to " + attempt + ' ' + std::to_string(size) + " bytes (err: " + std::to_string(ENOMEM) + ')';
}

std::size_t countOf(const std::string& part, const std::string& whole) {
    std::size_t count = 0;
    for (std::size_t at = 0; (at = whole.find(part, at)) != std::string::npos; at += part.size()) {
        ++count;
    }
    return count;
}

class VQMemoryExhaustion : public testing::Test {
protected:
    support::ChildResult run(const std::function<void()>& body, bool aborting = false) {
        support::ChildOptions options;
        options.environment = {{"VQ_ASSERTION_BACKTRACE_DIR", mFolder.path()},
                               {"VQ_ENABLE_ABORT_ON_FAILED_MEMORY_ALLOCATION", std::nullopt}};
        if (aborting) {
            options.environment[1].second = "";
        }
        return support::runInChild(body, options);
    }

    std::string backtraceName(pid_t pid) const { return "PID" + std::to_string(pid) + ".ass"; }
    std::string backtrace(pid_t pid) const { return support::readFile(mFolder / backtraceName(pid)); }

    support::TemporaryFolder mFolder;
    support::SlogCapture mLog;
};

}  // namespace

TEST_F(VQMemoryExhaustion, ACheckedFormLogsWritesABacktraceAndExitsWithOne) {
    const support::ChildResult r = run([] { VQMemory::allocChecked(vUnavailable); });
    EXPECT_TRUE(r.exitedWith(1)) << r;
    EXPECT_THAT(loggedLines(mLog),
                ElementsAre(loggedLine(r.pid, VQSyslog::CRITICAL, text("allocate", SIZE_MAX / 2)),
                            loggedLine(r.pid, VQSyslog::INFO, kExitNote)));
    EXPECT_THAT(mFolder.list(), ElementsAre(backtraceName(r.pid)));
    const std::string pid = std::to_string(r.pid);
    EXPECT_THAT(backtrace(r.pid), StartsWith("\n[QNX backtrace] INFO - " + text("allocate", SIZE_MAX / 2) +
                                             "\n\nTID: " + pid + " PID: " + pid + "\n"));
}

TEST_F(VQMemoryExhaustion, EveryCheckedFormEndsTheProcess) {
    const struct {
        const char* attempt;
        void (*request)();
        bool isOperator;
    } kForms[] = {
        {"allocate", [] { allocateCheckedMemory(vUnavailable); }, false},
        {"reallocate", [] { VQMemory::reallocChecked(VQMemory::alloc(10), vUnavailable); }, false},
        {"reallocate", [] { reallocateCheckedMemory(nullptr, vUnavailable); }, false},
        {"allocate", [] { operator delete(operator new(vUnavailable)); }, true},
        {"allocate", [] { operator delete[](operator new[](vUnavailable)); }, true},
        {"allocate",
         [] { operator delete (operator new (vUnavailable, std::align_val_t{64}), std::align_val_t{64}); }, true},
        {"allocate",
         [] { operator delete[](operator new[](vUnavailable, std::align_val_t{64}), std::align_val_t{64}); }, true},
    };
    for (const auto& form : kForms) {
        if (form.isOperator && !kOwnsOperators) {
            continue;  // a sanitizer's own operators stand before those of a shared library
        }
        mLog.clear();
        const support::ChildResult r = run(form.request);
        EXPECT_TRUE(r.exitedWith(1)) << r;
        EXPECT_THAT(loggedLines(mLog),
                    ElementsAre(loggedLine(r.pid, VQSyslog::CRITICAL, text(form.attempt, SIZE_MAX / 2)),
                                loggedLine(r.pid, VQSyslog::INFO, kExitNote)));
        EXPECT_THAT(backtrace(r.pid), StartsWith("\n[QNX backtrace] INFO - " + text(form.attempt, SIZE_MAX / 2)));
    }
}

TEST_F(VQMemoryExhaustion, AnExceptionIsNeverThrown) {
    if (!kOwnsOperators) {
        GTEST_SKIP() << "a sanitizer's own operators stand before those of a shared library";
    }
    const support::ChildResult r = run([] {
        try {
            std::vector<char> tooLarge(vUnavailable - 1);
            look(tooLarge.data());
        } catch (...) {
            std::_Exit(55);
        }
    });
    EXPECT_TRUE(r.exitedWith(1)) << r;
}

TEST_F(VQMemoryExhaustion, TheAbortVariableMakesItLogOnceAndAbort) {
    const support::ChildResult r = run([] { VQMemory::reallocChecked(nullptr, vUnavailable); }, /*aborting*/ true);
    EXPECT_TRUE(r.killedBy(SIGABRT)) << r;
    EXPECT_THAT(loggedLines(mLog),
                ElementsAre(loggedLine(r.pid, VQSyslog::CRITICAL, text("reallocate", SIZE_MAX / 2))));
    EXPECT_THAT(mFolder.list(), ElementsAre(backtraceName(r.pid)));
}

TEST_F(VQMemoryExhaustion, TheSizeIsPrintedWhole) {
    const support::ChildResult r = run([] { VQMemory::allocChecked(vUnavailable * 2); });
    EXPECT_TRUE(r.exitedWith(1)) << r;
    EXPECT_EQ(loggedLine(r.pid, VQSyslog::CRITICAL, text("allocate", SIZE_MAX - 1)), loggedLines(mLog).front());
}

TEST_F(VQMemoryExhaustion, TheErrorHandlerOfTheProcessIsCalled) {
    static int data;
    const support::ChildResult r = run([] {
        VQError::setErrorHandler([](void* given) { std::_Exit(given == &data ? 77 : 78); }, &data);
        VQMemory::allocChecked(vUnavailable);
    });
    EXPECT_TRUE(r.exitedWith(77)) << r;
    EXPECT_THAT(loggedLines(mLog),
                ElementsAre(loggedLine(r.pid, VQSyslog::CRITICAL, text("allocate", SIZE_MAX / 2))));
}

TEST_F(VQMemoryExhaustion, AProcessThatRunsOutAgainWhileItExitsAborts) {
    const support::ChildResult r = run([] {
        std::atexit([] { VQMemory::reallocChecked(nullptr, vUnavailable); });
        VQMemory::allocChecked(vUnavailable);
    });
    EXPECT_TRUE(r.killedBy(SIGABRT)) << r;
    EXPECT_THAT(loggedLines(mLog),
                ElementsAre(loggedLine(r.pid, VQSyslog::CRITICAL, text("allocate", SIZE_MAX / 2)),
                            loggedLine(r.pid, VQSyslog::INFO, kExitNote),
                            loggedLine(r.pid, VQSyslog::CRITICAL, text("reallocate", SIZE_MAX / 2)),
                            loggedLine(r.pid, VQSyslog::INFO, kAbortNote)));
    EXPECT_EQ(2u, countOf("[QNX backtrace] INFO - ", backtrace(r.pid)));
}

TEST_F(VQMemoryExhaustion, AnErrorHandlerThatRunsOutItselfDoesNotGoOnForEver) {
    const support::ChildResult r = run([] {
        VQError::setErrorHandler([](void*) { VQMemory::allocChecked(vUnavailable); }, nullptr);
        VQMemory::allocChecked(vUnavailable);
    });
    EXPECT_TRUE(r.killedBy(SIGABRT)) << r;
    const std::string line = loggedLine(r.pid, VQSyslog::CRITICAL, text("allocate", SIZE_MAX / 2));
    EXPECT_THAT(loggedLines(mLog), ElementsAre(line, line, line));
    EXPECT_EQ(2u, countOf("[QNX backtrace] INFO - ", backtrace(r.pid)));
}

TEST_F(VQMemoryExhaustion, AnyThreadMayBeTheOne) {
    const support::ChildResult r = run([] { std::thread([] { VQMemory::allocChecked(vUnavailable); }).join(); });
    EXPECT_TRUE(r.exitedWith(1)) << r;
    ASSERT_EQ(2u, mLog.records().size());
    EXPECT_NE(r.pid, mLog.records().front().tid);
    EXPECT_THAT(backtrace(r.pid), StartsWith("\n[QNX backtrace] INFO - " + text("allocate", SIZE_MAX / 2) +
                                             "\n\nTID: " + std::to_string(mLog.records().front().tid)));
}

TEST_F(VQMemoryExhaustion, AHeapThatIsReallyEmptyIsReportedTheSameWay) {
    if (kIsSanitized || support::isEmulated()) {
        GTEST_SKIP() << "a sanitizer or an emulator needs the address space itself";
    }
    for (const bool aborting : {false, true}) {
        mLog.clear();
        const support::ChildResult r = run(
            [] {
                emptyHeap();
                VQMemory::allocChecked(64);
            },
            aborting);
        EXPECT_TRUE(aborting ? r.killedBy(SIGABRT) : r.exitedWith(1)) << r;
        std::vector<std::string> lines = {loggedLine(r.pid, VQSyslog::CRITICAL, text("allocate", 64))};
        if (!aborting) {
            lines.push_back(loggedLine(r.pid, VQSyslog::INFO, kExitNote));
        }
        EXPECT_EQ(lines, loggedLines(mLog));
        EXPECT_THAT(backtrace(r.pid), StartsWith("\n[QNX backtrace] INFO - " + text("allocate", 64) + "\n"));
    }
}

TEST_F(VQMemoryExhaustion, WithoutADirectoryTheFileGoesToTheDefaultOne) {
    support::ChildOptions options;
    options.environment = {{"VQ_ASSERTION_BACKTRACE_DIR", std::nullopt}};
    const support::ChildResult r = support::runInChild([] { VQMemory::allocChecked(vUnavailable); }, options);
    EXPECT_TRUE(r.exitedWith(1)) << r;
    const std::string name = "/dev/shmem/" + backtraceName(r.pid);
    if (access("/dev/shmem", W_OK) == 0) {
        EXPECT_THAT(support::readFile(name), StartsWith("\n[QNX backtrace] INFO - "));
        unlink(name.c_str());
    } else {
        EXPECT_EQ("Cannot open " + name + "\n", r.out);
    }
}
