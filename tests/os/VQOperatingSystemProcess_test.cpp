// VQOperatingSystem: signal masks, child processes. CVQThreadSafeRefCounter, TVQRefCountPointer.
#include <VQOperatingSystem.h>

#include <CVQThreadSafeRefCounter.h>
#include <TVQRefCountPointer.h>
#include <TVQVector.h>

#include "support/AssertionLog.h"
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace VQOperatingSystem;

namespace {

std::vector<int> maskOf() {
    int previous[64];
    const int count = setSignalMask(nullptr, 0, previous, VQOSTypes::SIGNAL_MASK_ADD);
    return std::vector<int>(previous, previous + (count < 0 ? 0 : count));
}

/// A folder with the program "tool", which writes its arguments to "out", one a line; the present one meanwhile.
class CToolFolder {
public:
    CToolFolder() {
        char path[4096];
        mBefore = getcwd(path, sizeof path);
        EXPECT_EQ(0, chdir(mFolder.path().c_str()));
        std::ofstream("tool") << "#!/bin/sh\nprintf '%s\\n' \"$@\" > out\necho \"$0\" > name\n";
        EXPECT_EQ(0, chmod("tool", 0755));
    }
    ~CToolFolder() { EXPECT_EQ(0, chdir(mBefore.c_str())); }
    CToolFolder(const CToolFolder&) = delete;
    CToolFolder& operator=(const CToolFolder&) = delete;

    static std::vector<std::string> linesOf(const char* file) {
        std::ifstream stream(file);
        std::vector<std::string> lines;
        for (std::string line; std::getline(stream, line);) {
            lines.push_back(line);
        }
        return lines;
    }
    static std::vector<std::string> argumentsAfter(const char* arguments) {
        const int pid = spawnProcess("tool", arguments);
        EXPECT_GT(pid, 0);
        EXPECT_EQ(0, joinProcess(pid));
        return linesOf("out");
    }

private:
    support::TemporaryFolder mFolder;
    std::string mBefore;
};

template <class Body>
int forked(Body body) {
    const int pid = fork();
    if (pid == 0) {
        body();
        _exit(0);
    }
    return pid;
}

using Strings = std::vector<std::string>;

}  // namespace

TEST(VQOperatingSystemSignals, AddsRemovesAndReplaces) {
    std::thread([] {
        const int both[] = {SIGUSR2, SIGUSR1};
        const int one[] = {SIGUSR1};
        EXPECT_EQ(0, setSignalMask(both, 2, nullptr, VQOSTypes::SIGNAL_MASK_REPLACE));
        EXPECT_EQ((std::vector<int>{SIGUSR1, SIGUSR2}), maskOf());
        EXPECT_EQ(0, setSignalMask(one, 1, nullptr, VQOSTypes::SIGNAL_MASK_REMOVE));
        EXPECT_EQ(std::vector<int>{SIGUSR2}, maskOf());
        int previous[64];
        EXPECT_EQ(1, setSignalMask(one, 1, previous, VQOSTypes::SIGNAL_MASK_ADD));
        EXPECT_EQ(SIGUSR2, previous[0]);
        EXPECT_EQ(2, setSignalMask(one, 1, previous, VQOSTypes::SIGNAL_MASK_REPLACE));
        EXPECT_EQ(SIGUSR1, previous[0]);
        EXPECT_EQ(SIGUSR2, previous[1]);
        EXPECT_EQ(std::vector<int>{SIGUSR1}, maskOf());
        EXPECT_EQ(1, setSignalMask(nullptr, 0, previous, VQOSTypes::SIGNAL_MASK_REPLACE));
        EXPECT_TRUE(maskOf().empty());
    }).join();
}

TEST(VQOperatingSystemSignals, RealTimeSignalsAreAmongThem) {
    std::thread([] {
        const int last = support::isEmulated() ? 62 : 64;  // the emulator keeps two for itself
        const int signals[] = {last, 34, 1};
        EXPECT_EQ(0, setSignalMask(signals, 3, nullptr, VQOSTypes::SIGNAL_MASK_REPLACE));
        EXPECT_EQ((std::vector<int>{1, 34, last}), maskOf());
    }).join();
}

TEST(VQOperatingSystemSignals, ARefusedSignalOrModeChangesNothing) {
    std::thread([] {
        int previous[64] = {-5};
        for (const int bad : {0, -1, 65, 1000}) {
            const int signals[] = {SIGUSR1, bad};
            EXPECT_EQ(-1, setSignalMask(signals, 2, previous, VQOSTypes::SIGNAL_MASK_ADD)) << bad;
        }
        const int signals[] = {SIGUSR1};
        EXPECT_EQ(-1, setSignalMask(signals, 1, previous, static_cast<VQOSTypes::SignalMaskMode>(3)));
        EXPECT_EQ(-1, setSignalMask(nullptr, 1, previous, VQOSTypes::SIGNAL_MASK_ADD));
        EXPECT_EQ(EFAULT, getLastError());
        EXPECT_EQ(-5, previous[0]);
        EXPECT_TRUE(maskOf().empty());
    }).join();
}

TEST(VQOperatingSystemProcesses, Kept_StartsAProgramOfTheCurrentDirectory) {  // process-current-directory
    CToolFolder folder;
    EXPECT_EQ((Strings{"-a", "-b"}), CToolFolder::argumentsAfter("  -a   -b "));
    EXPECT_EQ(Strings{"./tool"}, CToolFolder::linesOf("name"));
    EXPECT_EQ(Strings{""}, CToolFolder::argumentsAfter(""));
    EXPECT_EQ(Strings{""}, CToolFolder::argumentsAfter("   "));
    EXPECT_EQ(Strings{""}, CToolFolder::argumentsAfter(nullptr));
    EXPECT_EQ((Strings{"a\tb", "'c", "d'"}), CToolFolder::argumentsAfter("a\tb 'c d'"));
    if (!support::isEmulated()) {  // which starts a process, and that ends with 127
        EXPECT_EQ(-1, spawnProcess("sh", ""));
        EXPECT_EQ(ENOENT, getLastError());
    }
}

TEST(VQOperatingSystemProcesses, TheBareNameIsArgumentZero) {
    support::TemporaryFolder folder;
    char before[4096];
    ASSERT_NE(nullptr, getcwd(before, sizeof before));
    ASSERT_EQ(0, chdir(folder.path().c_str()));
    ASSERT_EQ(0, symlink("/bin/sh", "tool"));
    const int pid = spawnProcess("tool", "-c echo${IFS}$0>zero");
    EXPECT_EQ(0, joinProcess(pid));
    EXPECT_EQ(Strings{"tool"}, CToolFolder::linesOf("zero"));
    ASSERT_EQ(0, chdir(before));
}

TEST(VQOperatingSystemProcesses, AFifteenthArgumentIsDropped) {
    CToolFolder folder;
    std::string text;
    Strings expected;
    for (int i = 1; i <= 16; ++i) {
        text += " a" + std::to_string(i);
        if (i <= 14) {
            expected.push_back("a" + std::to_string(i));
        }
        if (i >= 13) {
            EXPECT_EQ(expected, CToolFolder::argumentsAfter(text.c_str()));
        }
    }
}

TEST(VQOperatingSystemProcesses, StartsNothingWithoutAName) {
    EXPECT_EQ(-1, spawnProcess(nullptr, "-a"));
}

TEST(VQOperatingSystemProcesses, ArgumentsThatDoNotFitOnTheStackAreAnAssertion) {
    support::AssertionLog log;
    const std::string arguments(std::size_t{1} << 28, 'x');
    EXPECT_EQ(-1, spawnProcess("tool", arguments.c_str()));
    EXPECT_EQ(std::vector<std::string>{"VQOperatingSystemQNX:223"}, log.takeSites());
    EXPECT_EQ(-1, spawnProcess(arguments.c_str(), ""));
    EXPECT_TRUE(log.takeSites().empty());
}

TEST(VQOperatingSystemProcesses, Kept_AnExitCodeIsASignedByte) {  // process-exit-signed
    const struct {
        int line, code, found;
    } kRows[] = {
        {__LINE__, 0, 0}, {__LINE__, 1, 1}, {__LINE__, 127, 127}, {__LINE__, 128, -128}, {__LINE__, 255, -1},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(row.found, joinProcess(forked([&] { _exit(row.code); })));
    }
}

TEST(VQOperatingSystemProcesses, DeathByASignalIsItsNumber) {
    EXPECT_EQ(SIGKILL, joinProcess(forked([] { raise(SIGKILL); })));
    EXPECT_EQ(SIGTERM, joinProcess(forked([] {
                  signal(SIGTERM, SIG_DFL);
                  raise(SIGTERM);
              })));
}

TEST(VQOperatingSystemProcesses, JoiningNobodyFails) {
    EXPECT_EQ(-1, joinProcess(-1));
    EXPECT_EQ(-1, joinProcess(getpid()));
    EXPECT_EQ(ECHILD, getLastError());
}

TEST(VQOperatingSystemProcesses, Kept_WaitingForAllSaysMinusOne) {  // process-wait-minus-one
    support::AssertionLog log;
    TVQVector<int> pids;
    EXPECT_EQ(0, waitForProcesses(pids));
    const int first = forked([] { _exit(255); });
    pids.push_back(first);
    EXPECT_EQ(-1, waitForProcesses(pids));
    EXPECT_TRUE(pids.isEmpty());
    EXPECT_EQ(Strings{"process " + std::to_string(first) + " has terminated with exit code 255"}, log.takeSites());
    const int killed = forked([] { raise(SIGKILL); });
    pids.push_back(killed);
    EXPECT_EQ(-1, waitForProcesses(pids));
    EXPECT_EQ(Strings{"process " + std::to_string(killed) + " has terminated with exit code -1"}, log.takeSites());
}

TEST(VQOperatingSystemProcesses, WaitsForAllThatAreListedAndLogsTheOthersToo) {
    support::SlogCapture log;
    TVQVector<int> pids;
    const int unlisted = forked([] {});
    for (int i = 0; i < 3; ++i) {
        pids.push_back(forked([i] {
            usleep(20000);
            _exit(i);
        }));
    }
    EXPECT_EQ(-1, waitForProcesses(pids));
    EXPECT_TRUE(pids.isEmpty());
    const std::vector<support::LoggedRecord> records = log.records();
    ASSERT_EQ(4u, records.size());
    for (const support::LoggedRecord& record : records) {
        EXPECT_EQ(5, record.severity);
        EXPECT_EQ(10000u, record.code);
        EXPECT_EQ(0u, record.subCode);
    }
    EXPECT_NE(std::string::npos, records[0].text.find("process " + std::to_string(unlisted) + " has"));
}

TEST(VQOperatingSystemProcesses, WaitingEndsWhenThereAreNoChildren) {
    TVQVector<int> pids;
    pids.push_back(getpid());
    pids.push_back(1);
    EXPECT_EQ(-1, waitForProcesses(pids));
    EXPECT_TRUE(pids.isEmpty());
    EXPECT_EQ(ECHILD, getLastError());
}

TEST(VQOperatingSystemProcesses, AChildThatIsListedTwiceEndsOnce) {
    const int other = forked([] { pause(); });
    TVQVector<int> pids;
    const int listed = forked([] {});
    pids.push_back(listed);
    pids.push_back(listed);
    EXPECT_EQ(-1, waitForProcesses(pids));
    EXPECT_TRUE(pids.isEmpty());
    kill(other, SIGKILL);
    EXPECT_EQ(SIGKILL, joinProcess(other));
}

TEST(VQOperatingSystemProcesses, CaughtSignalsDoNotEndAWait) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    const int parent = getpid();
    const auto bother = [parent] {
        for (int i = 0; i < 10; ++i) {
            usleep(2000);
            kill(parent, SIGUSR1);
        }
        _exit(9);
    };
    EXPECT_EQ(9, joinProcess(forked(bother)));
    TVQVector<int> pids;
    pids.push_back(forked(bother));
    EXPECT_EQ(-1, waitForProcesses(pids));
}

TEST(VQOperatingSystemProcesses, AChildThatIsStoppedHasNotEnded) {
    const auto stops = [] {
        raise(SIGSTOP);
        _exit(7);
    };
    const auto wakeUp = [](int pid) {
        siginfo_t info;
        EXPECT_EQ(0, waitid(P_PID, static_cast<id_t>(pid), &info, WSTOPPED | WNOWAIT));
        return std::thread([pid] {
            usleep(20000);
            kill(pid, SIGCONT);
        });
    };
    const int joined = forked(stops);
    std::thread waker = wakeUp(joined);
    EXPECT_EQ(7, joinProcess(joined));
    waker.join();
    support::AssertionLog log;
    const int waited = forked(stops);
    waker = wakeUp(waited);
    TVQVector<int> pids;
    pids.push_back(waited);
    EXPECT_EQ(-1, waitForProcesses(pids));
    waker.join();
    EXPECT_EQ(Strings{"process " + std::to_string(waited) + " has terminated with exit code 7"}, log.takeSites());
}

TEST(VQOperatingSystemProcesses, WaitsForNoDebugger) {
    waitAttachDebugger();
}

namespace {

class CCounted : public CVQThreadSafeRefCounter {
public:
    explicit CCounted(int& removed) : mRemoved(removed) {}

private:
    void lastReferenceRemoved() override {
        ++mRemoved;
        delete this;
    }
    int& mRemoved;
};

}  // namespace

TEST(CVQThreadSafeRefCounter, HasItsCountBehindItsTable) {
    int removed = 0;
    auto* const counted = new CCounted(removed);
    counted->addReference();
    std::uint32_t count;
    std::memcpy(&count, reinterpret_cast<const char*>(counted) + sizeof(void*), sizeof count);
    EXPECT_EQ(1u, count);
    EXPECT_EQ(2 * sizeof(void*), sizeof(CVQThreadSafeRefCounter));
    counted->removeReference();
}

TEST(CVQThreadSafeRefCounter, TellsOnceThatTheLastReferenceIsGone) {
    int removed = 0;
    auto* const counted = new CCounted(removed);
    EXPECT_EQ(0u, counted->getReferenceCount());
    counted->addReference();
    counted->addReference();
    EXPECT_EQ(2u, counted->getReferenceCount());
    counted->removeReference();
    EXPECT_EQ(0, removed);
    counted->removeReference();
    EXPECT_EQ(1, removed);
}

TEST(CVQThreadSafeRefCounter, CountsTheReferencesOfAllThreads) {
    int removed = 0;
    {
        const TVQRefCountPointer<CCounted> first(new CCounted(removed));
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([first] {
                for (int i = 0; i < 20000; ++i) {
                    const TVQRefCountPointer<CCounted> copy(first);
                    ASSERT_GE(copy->getReferenceCount(), 2u);
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(0, removed);
    }
    EXPECT_EQ(1, removed);
}

TEST(TVQRefCountPointer, HoldsOneReference) {
    int removed = 0;
    TVQRefCountPointer<CCounted> empty;
    EXPECT_TRUE(empty.isNull());
    EXPECT_FALSE(empty);
    EXPECT_EQ(nullptr, empty.get());
    auto* const counted = new CCounted(removed);
    TVQRefCountPointer<CCounted> pointer(counted);
    EXPECT_EQ(1u, counted->getReferenceCount());
    EXPECT_EQ(counted, pointer.get());
    EXPECT_EQ(counted, &*pointer);
    TVQRefCountPointer<CCounted> copy(pointer);
    EXPECT_EQ(2u, counted->getReferenceCount());
    EXPECT_TRUE(copy == pointer);
    copy = counted;  // the same: nothing happens
    EXPECT_EQ(2u, counted->getReferenceCount());
    TVQRefCountPointer<CCounted> moved(std::move(copy));
    EXPECT_EQ(2u, counted->getReferenceCount());
    empty = moved;
    EXPECT_EQ(3u, counted->getReferenceCount());
    empty = nullptr;
    moved = TVQRefCountPointer<CCounted>();
    EXPECT_EQ(1u, counted->getReferenceCount());
    int others = 0;
    pointer = new CCounted(others);
    EXPECT_EQ(1, removed);
    EXPECT_EQ(1u, pointer->getReferenceCount());
    pointer = nullptr;
    EXPECT_EQ(1, others);
}
