// Concerns: what both forms of map return and log, step by step; races of processes; names; sizes; read-only mappings;
// unmap and unlink and their reports; killed users; descriptors.
#include <CVQSharedMemory.h>

#include "Race.h"
#include "SharedName.h"
#include "file/Descriptors.h"
#include "support/AssertionLog.h"
#include "support/ChildProcess.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <vector>

namespace {

using shmtest::SharedName;
using Texts = std::vector<std::string>;

class CVQSharedMemoryTest : public testing::Test {
protected:
    ~CVQSharedMemoryTest() override { EXPECT_EQ(mDescriptors, files::openDescriptors()); }

    std::string noObject(const char* reason) const {
        return "Unable to create file mapping handle named " + mName.text() + ": " + reason;
    }

    SharedName mName;
    support::AssertionLog mLog;
    const std::set<int> mDescriptors = files::openDescriptors();
};

char* bytesOf(const CVQSharedMemory& memory) {
    return static_cast<char*>(memory.getAddress());
}

bool isAllZero(const char* bytes, unsigned size) {
    return std::all_of(bytes, bytes + size, [](char byte) { return byte == 0; });
}

/// Limits the calling process's files to one page, as if the file system were full.
void fillFileSystem() {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit small = {kPage, kPage};
    setrlimit(RLIMIT_FSIZE, &small);
}

TEST_F(CVQSharedMemoryTest, RecreatingUnlinksWhatIsThereAndMakesAnObjectOfZeros) {
    CVQSharedMemory old(mName, 100);
    EXPECT_TRUE(old.map(false, false, true));
    std::strcpy(bytesOf(old), "old");
    CVQSharedMemory fresh(mName, 200);
    EXPECT_TRUE(fresh.map(true, false, true));
    EXPECT_EQ(200, mName.objectSize());
    EXPECT_TRUE(isAllZero(bytesOf(fresh), 200));
    EXPECT_STREQ("old", bytesOf(old));
    EXPECT_EQ(mDescriptors, files::openDescriptors());
}

TEST_F(CVQSharedMemoryTest, RecreatingWhatIsNotThereMakesIt) {
    CVQSharedMemory memory(mName, 100);
    EXPECT_TRUE(memory.map(true, false, false));
    EXPECT_NE(nullptr, memory.getAddress());
}

TEST_F(CVQSharedMemoryTest, TheFirstMapMakesTheObjectTheSecondOpensIt) {
    CVQSharedMemory first(mName, 100);
    CVQSharedMemory second(mName, 100);
    EXPECT_TRUE(first.map(false, false, true));
    std::strcpy(bytesOf(first), "kept");
    EXPECT_FALSE(second.map(false, false, true));
    ASSERT_NE(nullptr, second.getAddress());
    EXPECT_STREQ("kept", bytesOf(second));
    EXPECT_NE(first.getAddress(), second.getAddress());
}

TEST_F(CVQSharedMemoryTest, AnObjectThatIsThereKeepsItsSize) {
    mName.make(50);
    CVQSharedMemory memory(mName, 3 * kPage);
    EXPECT_FALSE(memory.map(false, false, true));
    EXPECT_EQ(3 * kPage, memory.getSize());
    EXPECT_EQ(50, mName.objectSize());
    bytesOf(memory)[kPage - 1] = 1;
    CVQSharedMemory other(mName, 3 * kPage);
    EXPECT_FALSE(other.map2(false, true, false));
    EXPECT_EQ(50, mName.objectSize());
}

TEST_F(CVQSharedMemoryTest, TouchingWhatASmallerObjectDoesNotHaveEndsTheProcess) {
    mName.make(50);
    const auto result = support::runInChild([&] {
        signal(SIGBUS, SIG_DFL);
        CVQSharedMemory memory(mName, 3 * kPage);
        memory.map(false, false, false);
        *static_cast<volatile char*>(bytesOf(memory) + kPage) = 1;
    });
    EXPECT_TRUE(result.killedBy(SIGBUS)) << result;
}

TEST_F(CVQSharedMemoryTest, ZeroFillingANewObjectTakesNoMemoryForIt) {
    constexpr unsigned kSize = 1U << 28;
    CVQSharedMemory memory(mName, kSize);
    EXPECT_TRUE(memory.map(false, false, true));
    ASSERT_NE(nullptr, memory.getAddress());
    EXPECT_EQ(0, mName.status().st_blocks);
    const char* const bytes = static_cast<char*>(memory.getAddress());
    EXPECT_EQ(0, bytes[0]);
    EXPECT_EQ(0, bytes[kSize - 1]);
}

TEST_F(CVQSharedMemoryTest, MapOfAMappedObjectDoesNothing) {
    CVQSharedMemory memory(mName, 100);
    EXPECT_TRUE(memory.map(false, false, true));
    void* const address = memory.getAddress();
    EXPECT_FALSE(memory.map(true, false, true));
    EXPECT_FALSE(memory.map2(false, true, false));
    EXPECT_EQ(address, memory.getAddress());
    EXPECT_TRUE(mName.exists());
}

TEST_F(CVQSharedMemoryTest, Map2MakesTheObjectOnce) {
    CVQSharedMemory first(mName, 100);
    CVQSharedMemory second(mName, 100);
    EXPECT_TRUE(first.map2(false, false, true));
    EXPECT_EQ(100, mName.objectSize());
    EXPECT_TRUE(isAllZero(bytesOf(first), 100));
    EXPECT_FALSE(second.map2(true, true, false));
    std::strcpy(bytesOf(first), "shared");
    EXPECT_STREQ("shared", bytesOf(second));
}

TEST_F(CVQSharedMemoryTest, AReadOnlyMappingOfANewObjectIsZeroAndCannotBeWritten) {
    const auto form = [&](bool isSecond) {
        CVQSharedMemory memory(mName, 2 * kPage);
        EXPECT_TRUE(isSecond ? memory.map2(true, true, false) : memory.map(true, true, true));
        ASSERT_NE(nullptr, memory.getAddress());
        EXPECT_TRUE(isAllZero(bytesOf(memory), 2 * kPage));
        const auto result = support::runInChild([&] { *static_cast<volatile char*>(memory.getAddress()) = 1; });
        // A sanitizer's handler turns the signal into an exit.
        EXPECT_TRUE(result.killedBy(SIGSEGV) || (result.exited && result.exitCode != 0)) << result;
        memory.unlink();
    };
    form(false);
    form(true);
}

TEST_F(CVQSharedMemoryTest, Kept_TheResultOfMapIsAboutTheObjectAndNotAboutTheMapping) {
    CVQSharedMemory memory(mName, 0);
    EXPECT_EQ(Texts({"CVQSharedMemory:37"}), mLog.takeSites());
    EXPECT_TRUE(memory.map(false, false, true));
    EXPECT_EQ(Texts({"Unable to map file " + mName.text() + " to memory: Invalid argument"}), mLog.takeSites());
    EXPECT_EQ(nullptr, memory.getAddress());
    EXPECT_FALSE(memory.map2(false, true, false));
    EXPECT_EQ(Texts({"Unable to map file " + mName.text() + " to memory: errno=" + std::to_string(EINVAL)}),
              mLog.takeSites());
    EXPECT_EQ(nullptr, memory.getAddress());
}

TEST_F(CVQSharedMemoryTest, WithoutANameEachOperationIsReported) {
    CVQSharedMemory memory(nullptr, 10);
    EXPECT_EQ(Texts({"CVQSharedMemory:43"}), mLog.takeSites());
    EXPECT_EQ(nullptr, memory.getName());
    EXPECT_FALSE(memory.map(true, false, true));
    EXPECT_EQ(Texts({"CVQSharedMemoryQNX:41"}), mLog.takeSites());
    EXPECT_FALSE(memory.map2(false, true, true));
    EXPECT_EQ(Texts({"CVQSharedMemoryQNX:140"}), mLog.takeSites());
    memory.unlink();
    EXPECT_EQ(Texts({"CVQSharedMemoryQNX:208"}), mLog.takeSites());
    memory.unmap();
    EXPECT_EQ(Texts(), mLog.takeSites());
    CVQSharedMemory neither(nullptr, 0);
    EXPECT_EQ(Texts({"CVQSharedMemory:37", "CVQSharedMemory:43"}), mLog.takeSites());
}

TEST_F(CVQSharedMemoryTest, ANameThatCannotBeOpenedIsReportedWithItsReason) {
    const auto prefix = [](const std::string& name) {
        // Lines are cut at 1024 bytes.
        return name.size() < 900 ? "Unable to create file mapping handle named " + name + ": " : "Unable to create";
    };
    for (const std::string& name : shmtest::kBadNames) {
        CVQSharedMemory memory(name.c_str(), 10);
        for (const bool recreate : {false, true}) {
            EXPECT_FALSE(memory.map(recreate, false, true));
            const int error = errno;
            const Texts texts = mLog.takeSites();
            ASSERT_EQ(1U, texts.size());
            EXPECT_EQ(0U, texts[0].find(prefix(name))) << texts[0].substr(0, 200);
            if (name.size() < 900) {
                EXPECT_EQ(prefix(name) + std::strerror(error), texts[0]);
            }
        }
        EXPECT_FALSE(memory.map2(false, true, false));
        const int error = errno;
        const Texts texts = mLog.takeSites();
        ASSERT_EQ(1U, texts.size());
        if (name.size() < 900) {
            EXPECT_EQ(prefix(name) + "errno=" + std::to_string(error), texts[0]);
        }
        EXPECT_EQ(nullptr, memory.getAddress());
    }
}

TEST_F(CVQSharedMemoryTest, ASizeThatCannotBeHadIsReportedAndTheObjectCountsAsMade) {
    const auto result = support::runInChild([&] {
        fillFileSystem();
        CVQSharedMemory memory(mName, kPage + 1);
        EXPECT_TRUE(memory.map(false, false, true));
        EXPECT_EQ(EFBIG, errno);
        EXPECT_EQ(nullptr, memory.getAddress());
        EXPECT_EQ(mDescriptors, files::openDescriptors());
        memory.unlink();
        EXPECT_TRUE(memory.map2(false, true, false));
        EXPECT_EQ(nullptr, memory.getAddress());
        EXPECT_EQ(mDescriptors, files::openDescriptors());
    });
    const Texts texts = mLog.takeSites();
    if (support::isEmulated() && !result.exitedWith(0)) {
        GTEST_SKIP() << "the emulator does not pass the limit on";
    }
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(Texts({"CVQSharedMemoryQNX:77", noObject("File too large"), "CVQSharedMemoryQNX:169"}), texts);
}

TEST_F(CVQSharedMemoryTest, AnObjectOfSomebodyElseIsNeitherOpenedNorUnlinked) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become somebody else";
    }
    mName.make(100, 0600);
    const auto result = support::runInChild([&] {
        ASSERT_EQ(0, setresuid(65534, 65534, 65534));
        CVQSharedMemory memory(mName, 100);
        EXPECT_FALSE(memory.map(false, false, true));
        EXPECT_EQ(EACCES, errno);
        EXPECT_FALSE(memory.map2(false, true, false));
        EXPECT_EQ(EACCES, errno);
        EXPECT_EQ(nullptr, memory.getAddress());
        memory.unlink();
        EXPECT_FALSE(memory.map(true, false, true));
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_NE(std::string::npos, result.err.find("\nCVQSharedMemoryQNX:216: ASSERTION failed\n")) << result;
    EXPECT_TRUE(mName.exists());
}

TEST_F(CVQSharedMemoryTest, WithoutDescriptorsNothingIsMadeAndTheReasonIsReported) {
    const auto result = support::runInChild([&] {
        const int log = open("/dev/null", O_RDWR);  // what the log line needs for itself
        const rlimit few = {static_cast<rlim_t>(log), static_cast<rlim_t>(log)};
        ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
        CVQSharedMemory memory(mName, 100);
        EXPECT_FALSE(memory.map(false, false, true));
        EXPECT_EQ(EMFILE, errno);
        EXPECT_FALSE(memory.map2(false, true, false));
        EXPECT_EQ(EMFILE, errno);
        EXPECT_EQ(nullptr, memory.getAddress());
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_FALSE(mName.exists());
    mLog.takeSites();
}

TEST_F(CVQSharedMemoryTest, UnmapAndMapAgain) {
    CVQSharedMemory memory(mName, 100);
    EXPECT_TRUE(memory.map(false, false, true));
    std::strcpy(bytesOf(memory), "kept");
    memory.unmap();
    EXPECT_EQ(nullptr, memory.getAddress());
    memory.unmap();
    EXPECT_FALSE(memory.map2(false, true, false));
    EXPECT_STREQ("kept", bytesOf(memory));
}

TEST_F(CVQSharedMemoryTest, UnlinkOfAMissingNameIsNoFailure) {
    CVQSharedMemory memory(mName, 100);
    memory.unlink();
    EXPECT_TRUE(memory.map2(false, true, false));
    memory.unlink();
    EXPECT_FALSE(mName.exists());
    bytesOf(memory)[0] = 1;
}

TEST_F(CVQSharedMemoryTest, LinesAreErrorsOfSubCodeZero) {
    support::SlogCapture log;
    CVQSharedMemory("/marlix/test", 10).map(false, false, true);
    CVQSharedMemory("/marlix/test", 10).map2(false, true, false);
    const auto records = log.records();
    ASSERT_EQ(2U, records.size());
    for (const auto& record : records) {
        EXPECT_EQ(10000U, record.code);
        EXPECT_EQ(0U, record.subCode);
        EXPECT_EQ(2, record.severity);
    }
}

TEST_F(CVQSharedMemoryTest, LeavesTheObjectBehindWhenItsUserIsKilled) {
    support::ChildProcess user([&] {
        CVQSharedMemory memory(mName, 100);
        memory.map2(false, true, false);
        raise(SIGKILL);
    });
    EXPECT_TRUE(user.finish().killedBy(SIGKILL));
    EXPECT_EQ(100, mName.objectSize());
}

TEST_F(CVQSharedMemoryTest, OfManyProcessesMap2TellsOneThatItMadeTheObject) {
    for (int round = 0; round < 15; ++round) {
        const auto codes = shmtest::race(10, [&] {
            CVQSharedMemory memory(mName, 64);
            const bool isCreated = memory.map2(false, true, false);
            return memory.getAddress() == nullptr ? 91 : (isCreated ? 1 : 0);
        });
        EXPECT_EQ(1, std::count(codes.begin(), codes.end(), 1));
        EXPECT_EQ(9, std::count(codes.begin(), codes.end(), 0));
        EXPECT_EQ(64, mName.objectSize());
        shm_unlink(mName);
    }
}

TEST_F(CVQSharedMemoryTest, OpeningWhileOthersUnlinkGivesAnObjectOrAReport) {
    const auto codes = shmtest::race(6, [&] {
        for (int i = 0; i < 200; ++i) {
            CVQSharedMemory memory(mName, 64);
            memory.map2(false, true, false);
            memory.unlink();
        }
        return 0;
    });
    EXPECT_EQ(std::vector<int>(6, 0), codes);
    for (const std::string& text : mLog.takeSites()) {
        // Made by another between the two attempts, and unlinked before the third.
        EXPECT_EQ(noObject(("errno=" + std::to_string(ENOENT)).c_str()), text);
    }
}

}  // namespace
