// Concerns: the three results of create, the kept one too; each step's failure; sizes; names; conversion to bool;
// races of processes; killed users; descriptors.
#include <CVQShMem.h>

#include <VQSharedMemoryAccess.h>

#include "Race.h"
#include "SharedName.h"
#include "file/Descriptors.h"
#include "support/AssertionLog.h"
#include "support/ChildProcess.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <vector>

namespace {

using shmtest::SharedName;
using Sites = std::vector<std::string>;

constexpr unsigned kReadWrite = VQSharedMemoryAccess::MAPPING_READ_WRITE;

class CVQShMemTest : public testing::Test {
protected:
    ~CVQShMemTest() override { EXPECT_EQ(mDescriptors, files::openDescriptors()); }

    SharedName mName;
    support::AssertionLog mLog;
    const std::set<int> mDescriptors = files::openDescriptors();
};

TEST_F(CVQShMemTest, CreateMakesTheObjectWithItsSizeThenOpensIt) {
    CVQShMem first(mName, 5000);
    EXPECT_EQ(0, first.create(false));
    EXPECT_EQ(5000, mName.objectSize());
    CVQShMem second(mName, 100);
    EXPECT_EQ(1, second.create(false));
    EXPECT_EQ(5000, mName.objectSize());
    EXPECT_EQ(1, second.create(true));
    EXPECT_EQ(100, mName.objectSize());
}

TEST_F(CVQShMemTest, CreateFailsForAnyReasonButAnExistingObject) {
    for (const std::string& name : shmtest::kBadNames) {
        if (!name.empty()) {
            EXPECT_EQ(2, CVQShMem(name.c_str(), 10).create(true)) << name.substr(0, 20);
        }
    }
}

TEST_F(CVQShMemTest, SizesAndNamesThatAreNoneAreReported) {
    {
        CVQShMem empty(mName, 0);
        EXPECT_EQ(Sites({"CVQShMem:31"}), mLog.takeSites());
        EXPECT_EQ(0, empty.create(true));
        EXPECT_FALSE(empty.map(kReadWrite));
    }
    for (const char* const name : {static_cast<const char*>(nullptr), ""}) {
        CVQShMem nameless(name, 10);
        EXPECT_EQ(Sites({"CVQShMem:37"}), mLog.takeSites());
        EXPECT_EQ(nullptr, nameless.getName());
        EXPECT_EQ(10U, nameless.getSize());
        EXPECT_EQ(2, nameless.create(true));
        EXPECT_FALSE(nameless.attach());
        EXPECT_FALSE(nameless.map(kReadWrite));
        EXPECT_FALSE(nameless.unlink());
    }
    CVQShMem neither(nullptr, 0);
    EXPECT_EQ(Sites({"CVQShMem:31", "CVQShMem:37"}), mLog.takeSites());
}

TEST_F(CVQShMemTest, AttachOpensOnlyWhatIsThere) {
    CVQShMem memory(mName, 100);
    EXPECT_FALSE(memory.attach());
    EXPECT_FALSE(mName.exists());
    mName.make(100);
    EXPECT_TRUE(memory.attach());
    EXPECT_TRUE(memory.attach());
    EXPECT_TRUE(memory.map(kReadWrite));
}

TEST_F(CVQShMemTest, MapKeepsTheDescriptorOnFailureAndClosesItOnSuccess) {
    CVQShMem memory(mName, 100);
    EXPECT_FALSE(memory.map(kReadWrite));
    ASSERT_EQ(0, memory.create(true));
    EXPECT_EQ(mDescriptors.size() + 1, files::openDescriptors().size());
    EXPECT_FALSE(memory.map(0xFF));
    EXPECT_EQ(mDescriptors.size() + 1, files::openDescriptors().size());
    EXPECT_EQ(nullptr, memory.getAddress());
    EXPECT_TRUE(memory.map(kReadWrite));
    EXPECT_EQ(mDescriptors, files::openDescriptors());
    EXPECT_FALSE(memory.map(kReadWrite));  // the old mapping is gone, and nothing is open for a new one
    EXPECT_EQ(nullptr, memory.getAddress());
}

TEST_F(CVQShMemTest, IsTrueWhileMapped) {
    CVQShMem memory(mName, 100);
    EXPECT_FALSE(memory);
    ASSERT_EQ(0, memory.create(true));
    EXPECT_FALSE(memory);
    ASSERT_TRUE(memory.map(kReadWrite));
    EXPECT_TRUE(memory);
    memory.unmap();
    EXPECT_FALSE(memory);
    memory.unmap();
}

TEST_F(CVQShMemTest, MappingsOfOneNameShareTheirMemory) {
    CVQShMem one(mName, 100);
    CVQShMem other(mName, 100);
    ASSERT_EQ(0, one.create(true));
    ASSERT_TRUE(one.map(kReadWrite));
    ASSERT_TRUE(other.attach());
    ASSERT_TRUE(other.map(VQSharedMemoryAccess::MAPPING_READ));
    std::strcpy(static_cast<char*>(one.getAddress()), "shared");
    EXPECT_STREQ("shared", static_cast<char*>(other.getAddress()));
    EXPECT_TRUE(one.unlink());
    EXPECT_FALSE(mName.exists());
    EXPECT_STREQ("shared", static_cast<char*>(other.getAddress()));
    EXPECT_FALSE(one.unlink());
}

TEST_F(CVQShMemTest, KeepsItsOwnCopyOfTheName) {
    std::string text = mName.text();
    const CVQShMem memory(text.c_str(), 1);
    text.assign(text.size(), 'x');
    EXPECT_EQ(mName.text(), memory.getName());
}

TEST_F(CVQShMemTest, LeavesTheObjectBehindWhenItsUserIsKilled) {
    support::ChildProcess user([&] {
        CVQShMem memory(mName, 100);
        memory.create(true);
        memory.map(kReadWrite);
        raise(SIGKILL);
    });
    EXPECT_TRUE(user.finish().killedBy(SIGKILL));
    EXPECT_EQ(100, mName.objectSize());
}

TEST_F(CVQShMemTest, Kept_OnlyDescriptorZeroIsAFailureOfTheSecondStep) {
    mName.make(10, 0600);
    // 0 is a good descriptor, and counts as the failure.
    const auto atZero = support::runInChild([&] {
        close(STDIN_FILENO);
        CVQShMem memory(mName, 10);
        EXPECT_EQ(2, memory.create(false));
        EXPECT_TRUE(memory.map(kReadWrite));
    });
    EXPECT_TRUE(atZero.exitedWith(0)) << atZero;
    // -1 is none, and counts as opened: the size cannot be set.
    const auto atNone = support::runInChild([&] {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit small = {100, 100};
        setrlimit(RLIMIT_FSIZE, &small);
        CVQShMem memory(mName, 200);
        EXPECT_EQ(1, memory.create(true));
        EXPECT_FALSE(memory.map(kReadWrite));
    });
    if (!support::isEmulated()) {
        EXPECT_TRUE(atNone.exitedWith(0)) << atNone;
    }
}

TEST_F(CVQShMemTest, OfManyProcessesOneCreates) {
    constexpr int kProcesses = 12;
    for (int round = 0; round < 10; ++round) {
        const auto results = shmtest::race(kProcesses, [&] {
            CVQShMem memory(mName, 64);
            const int result = memory.create(true);
            if (!memory.map(kReadWrite)) {
                return 91;
            }
            ++static_cast<std::atomic<int>*>(memory.getAddress())[0];
            return result;
        });
        EXPECT_EQ(1, std::count(results.begin(), results.end(), 0));
        EXPECT_EQ(kProcesses - 1, std::count(results.begin(), results.end(), 1));
        CVQShMem memory(mName, 64);
        ASSERT_TRUE(memory.attach());
        ASSERT_TRUE(memory.map(kReadWrite));
        EXPECT_EQ(kProcesses, *static_cast<int*>(memory.getAddress()));
        EXPECT_TRUE(memory.unlink());
    }
}

}  // namespace
