// Concerns: both mode tables, every entry and what lies behind them; sizes; names; errors and errno; descriptors:
// none is lost, none is inherited by another program.
#include <VQSharedMemoryAccess.h>

#include "SharedName.h"
#include "file/Descriptors.h"
#include "support/AssertionLog.h"
#include "support/ChildProcess.h"

#include <climits>
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/resource.h>

namespace {

namespace Access = VQSharedMemoryAccess;
using namespace VQSharedMemoryAccess;
using shmtest::SharedName;

class VQSharedMemoryAccessTest : public testing::Test {
protected:
    ~VQSharedMemoryAccessTest() override { EXPECT_EQ(mDescriptors, files::openDescriptors()); }

    SharedName mName;
    support::AssertionLog mLog;
    const std::set<int> mDescriptors = files::openDescriptors();
};

/// errno of a failed opening; 0 when it did not fail.
int errorOfOpen(const char* name, unsigned size, unsigned mode) {
    errno = 0;
    const int descriptor = Access::open(name, size, mode);
    if (descriptor == -1) {
        return errno;
    }
    EXPECT_TRUE(Access::close(descriptor));
    return 0;
}

TEST_F(VQSharedMemoryAccessTest, MapOfNoDescriptorIsInvalid) {
    errno = 0;
    EXPECT_EQ(nullptr, Access::map(-1, kPage, 0, MAPPING_READ_WRITE));
    EXPECT_EQ(EINVAL, errno);
}

TEST_F(VQSharedMemoryAccessTest, OpenModesSelectCreationAndExclusion) {
    EXPECT_EQ(ENOENT, errorOfOpen(mName, kPage, OPEN_EXISTING));
    EXPECT_EQ(0, errorOfOpen(mName, kPage, OPEN_CREATE));
    EXPECT_EQ(0, mName.objectSize());
    EXPECT_EQ(0, errorOfOpen(mName, kPage, OPEN_CREATE));
    EXPECT_EQ(0, errorOfOpen(mName, kPage, OPEN_EXISTING));
    EXPECT_EQ(EEXIST, errorOfOpen(mName, kPage, OPEN_CREATE_EXCLUSIVE));
    EXPECT_TRUE(Access::unlink(mName));
    EXPECT_EQ(0, errorOfOpen(mName, kPage, OPEN_CREATE_EXCLUSIVE));
    EXPECT_EQ(kPage, mName.objectSize());
}

TEST_F(VQSharedMemoryAccessTest, TheSizeIsSetWithItsBitOrWithExclusion) {
    const struct {
        int line;
        unsigned mode;
        long long size;
    } kRows[] = {
        {__LINE__, OPEN_EXISTING, 100},
        {__LINE__, OPEN_CREATE, 100},
        {__LINE__, OPEN_EXISTING | OPEN_SET_SIZE, 700},
        {__LINE__, OPEN_CREATE | OPEN_SET_SIZE, 700},
        {__LINE__, OPEN_EXCLUSIVE, 700},
        {__LINE__, OPEN_EXISTING | 0x200, 100},  // other bits mean nothing
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        mName.make(100);
        EXPECT_EQ(0, errorOfOpen(mName, 700, row.mode));
        EXPECT_EQ(row.size, mName.objectSize());
    }
}

TEST_F(VQSharedMemoryAccessTest, ModesBehindTheTablesAreInvalid) {
    EXPECT_EQ(EINVAL, errorOfOpen(mName, kPage, 4));
    EXPECT_EQ(EINVAL, errorOfOpen(mName, kPage, 0xFF));
    EXPECT_EQ(EINVAL, errorOfOpen(mName, kPage, 0x104));
    EXPECT_FALSE(mName.exists());
    const int descriptor = Access::open(mName, kPage, OPEN_CREATE_EXCLUSIVE);
    for (const unsigned mode : {3U, 0xFFU, 0x103U}) {
        errno = 0;
        EXPECT_EQ(nullptr, Access::map(descriptor, kPage, 0, mode));
        EXPECT_EQ(EINVAL, errno);
    }
    EXPECT_TRUE(Access::close(descriptor));
}

TEST_F(VQSharedMemoryAccessTest, MapModesSelectTheProtection) {
    const int descriptor = Access::open(mName, kPage, OPEN_CREATE_EXCLUSIVE);
    for (const unsigned added : {0U, unsigned{MAPPING_INITIALISED}, unsigned{MAPPING_LAZY}, 0x300U}) {
        const auto result = support::runInChild([&] {
            auto* const both = static_cast<char*>(Access::map(descriptor, kPage, 0, MAPPING_READ_WRITE | added));
            auto* const written =
                static_cast<volatile char*>(Access::map(descriptor, kPage, 0, MAPPING_WRITE | added));
            const auto* const read =
                static_cast<const char*>(Access::map(descriptor, kPage, 0, MAPPING_READ | added));
            ASSERT_TRUE(both != nullptr && written != nullptr && read != nullptr);
            both[1] = 'b';
            written[2] = 'w';
            EXPECT_EQ('b', read[1]);
            EXPECT_EQ('w', read[2]);
            *const_cast<volatile char*>(read) = 'x';
        });
        // A sanitizer's handler turns the signal into an exit.
        EXPECT_TRUE(result.killedBy(SIGSEGV) || (result.exited && result.exitCode != 0)) << result;
    }
    EXPECT_TRUE(Access::close(descriptor));
}

TEST_F(VQSharedMemoryAccessTest, MapsAtAnOffsetOfWholePages) {
    const int descriptor = Access::open(mName, 2 * kPage, OPEN_CREATE_EXCLUSIVE);
    auto* const whole = static_cast<char*>(Access::map(descriptor, 2 * kPage, 0, MAPPING_READ_WRITE));
    auto* const second = static_cast<char*>(Access::map(descriptor, kPage, kPage, MAPPING_READ));
    ASSERT_TRUE(whole != nullptr && second != nullptr);
    std::strcpy(whole + kPage, "second");
    EXPECT_STREQ("second", second);
    errno = 0;
    EXPECT_EQ(nullptr, Access::map(descriptor, kPage, 1, MAPPING_READ));
    EXPECT_EQ(EINVAL, errno);
    errno = 0;
    EXPECT_EQ(nullptr, Access::map(descriptor, 0, 0, MAPPING_READ));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_TRUE(Access::unmap(whole, 2 * kPage));
    EXPECT_TRUE(Access::unmap(second, kPage));
    EXPECT_TRUE(Access::close(descriptor));
}

TEST_F(VQSharedMemoryAccessTest, FailuresOfUnmapAndCloseAreFalse) {
    int onStack = 0;
    EXPECT_FALSE(Access::unmap(reinterpret_cast<char*>(&onStack) + 1, kPage));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_FALSE(Access::close(-1));
    EXPECT_EQ(EBADF, errno);
}

TEST_F(VQSharedMemoryAccessTest, Kept_UnlinkOfAMissingNameFails) {
    errno = 0;
    EXPECT_FALSE(Access::unlink(mName));
    EXPECT_EQ(ENOENT, errno);
    mName.make(1);
    EXPECT_TRUE(Access::unlink(mName));
    EXPECT_FALSE(mName.exists());
}

TEST_F(VQSharedMemoryAccessTest, BadNamesFailAndLeaveNothing) {
    for (const std::string& name : shmtest::kBadNames) {
        SCOPED_TRACE(name.substr(0, 20));
        EXPECT_NE(0, errorOfOpen(name.c_str(), kPage, OPEN_CREATE_EXCLUSIVE));
        EXPECT_FALSE(Access::unlink(name.c_str()));
    }
    EXPECT_EQ(EINVAL, errorOfOpen(nullptr, kPage, OPEN_CREATE));
    errno = 0;
    EXPECT_FALSE(Access::unlink(nullptr));
    EXPECT_EQ(EINVAL, errno);
}

TEST_F(VQSharedMemoryAccessTest, ANameWithoutASlashIsThePlatformsAffair) {
    const std::string bare = mName.text().substr(1);
    const int error = errorOfOpen(bare.c_str(), kPage, OPEN_CREATE_EXCLUSIVE);
    EXPECT_EQ(error == 0, Access::unlink(bare.c_str()));
}

TEST_F(VQSharedMemoryAccessTest, ASizeThatCannotBeHadFailsWithItsReasonAndClosesTheDescriptor) {
    const auto result = support::runInChild([&] {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit small = {kPage, kPage};
        ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &small));
        const auto before = files::openDescriptors();
        EXPECT_EQ(EFBIG, errorOfOpen(mName, kPage + 1, OPEN_CREATE_EXCLUSIVE));
        EXPECT_EQ(before, files::openDescriptors());
    });
    if (support::isEmulated() && !result.exitedWith(0)) {
        GTEST_SKIP() << "the emulator does not pass the limit on";
    }
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST_F(VQSharedMemoryAccessTest, ADescriptorIsClosedOnExec) {
    const int descriptor = Access::open(mName, kPage, OPEN_CREATE);
    EXPECT_EQ(FD_CLOEXEC, fcntl(descriptor, F_GETFD) & FD_CLOEXEC);
    EXPECT_TRUE(Access::close(descriptor));
}

TEST_F(VQSharedMemoryAccessTest, WithoutDescriptorsOpeningFails) {
    const auto result = support::runInChild([&] {
        const rlimit few = {3, 3};
        ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
        EXPECT_EQ(EMFILE, errorOfOpen(mName, kPage, OPEN_CREATE));
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST_F(VQSharedMemoryAccessTest, ErrnoIsPutBackAtTheEndOfAScope) {
    errno = ENOENT;
    {
        const SVQErrnoSafe safe;
        errno = EIO;
    }
    EXPECT_EQ(ENOENT, errno);
}

}  // namespace
