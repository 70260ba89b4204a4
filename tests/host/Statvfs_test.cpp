// Concerns: the fields are the C library's; the type's name from the mount table, from the magic number, from neither;
// errno and descriptors.
#include "PrivateMounts.h"

#include "support/ChildProcess.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/statvfs.h>

namespace {

void withoutMountTable(const std::function<void()>& body) {
    const auto result = support::runInChild([&body] {
        if (!mountEmptyOver("/proc"))
            _exit(kNoMounts);
        body();
    });
    if (result.exitedWith(kNoMounts))
        GTEST_SKIP() << "no privilege to have a /proc of one's own";
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(Statvfs, HasTheFieldsOfTheCLibrary) {
    struct statvfs64 expected;
    struct statvfs status;
    ASSERT_EQ(0, statvfs64("/proc", &expected));
    std::memset(&status, 0xFF, sizeof status);
    errno = ENOENT;
    ASSERT_EQ(0, statvfs("/proc", &status));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(expected.f_bsize, status.f_bsize);
    EXPECT_EQ(expected.f_frsize, status.f_frsize);
    EXPECT_EQ(expected.f_blocks, status.f_blocks);
    EXPECT_EQ(expected.f_bfree, status.f_bfree);
    EXPECT_EQ(expected.f_bavail, status.f_bavail);
    EXPECT_EQ(expected.f_files, status.f_files);
    EXPECT_EQ(expected.f_ffree, status.f_ffree);
    EXPECT_EQ(expected.f_favail, status.f_favail);
    EXPECT_EQ(expected.f_fsid, status.f_fsid);
    EXPECT_EQ(expected.f_flag, status.f_flag);
    EXPECT_EQ(expected.f_namemax, status.f_namemax);
    EXPECT_STREQ("proc", status.f_basetype);
}

TEST(Statvfs, FailsAsTheCLibraryDoes) {
    struct statvfs status;
    EXPECT_EQ(-1, statvfs("/none", &status));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(-1, statvfs("/proc/version/none", &status));
    EXPECT_EQ(ENOTDIR, errno);
}

// Without the mount table the answer may be another one.
TEST(Statvfs, NeedsADescriptor) {
    const auto result = support::runInChild([] {
        rlimit before;
        getrlimit(RLIMIT_NOFILE, &before);
        const rlimit none = {0, before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
        struct statvfs status;
        errno = 0;
        EXPECT_EQ(-1, statvfs("/proc", &status));
        EXPECT_EQ(EMFILE, errno);
        setrlimit(RLIMIT_NOFILE, &before);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(Statvfs, TellsOfALargeFileSystemWhatItsFieldsCanHold) {
    const auto result = support::runInChild([] {
        if (!mountEmptyOver("/mnt", "size=32t"))
            _exit(kNoMounts);
        struct statvfs64 expected;
        struct statvfs status;
        ASSERT_EQ(0, statvfs64("/mnt", &expected));
        ASSERT_EQ(0, statvfs("/mnt", &status));
        EXPECT_EQ(uint64_t{32} << 40, expected.f_blocks * expected.f_bsize);
        EXPECT_EQ(std::min<uint64_t>(expected.f_blocks, std::numeric_limits<fsblkcnt_t>::max()), status.f_blocks);
        EXPECT_STREQ("tmpfs", status.f_basetype);
        ASSERT_TRUE(mountEmptyOver("/proc"));  // where the mount table is
        EXPECT_EQ(0, statvfs("/mnt", &status));
        EXPECT_STREQ("tmpfs", status.f_basetype);
    });
    if (result.exitedWith(kNoMounts))
        GTEST_SKIP() << "no privilege to mount anything";
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(Statvfs, KnowsUsualTypesWithoutAMountTable) {
    withoutMountTable([] {
        struct statvfs status;
        EXPECT_EQ(0, statvfs("/proc", &status));
        EXPECT_STREQ("tmpfs", status.f_basetype);
    });
}

TEST(Statvfs, KnowsUsualTypesThatTheMountTableLacks) {
    const int memory = memfd_create("memory", MFD_CLOEXEC);  // of a mount that the kernel keeps to itself
    ASSERT_NE(-1, memory);
    struct statvfs status;
    EXPECT_EQ(0, statvfs(("/proc/self/fd/" + std::to_string(memory)).c_str(), &status));
    EXPECT_STREQ("tmpfs", status.f_basetype);
    close(memory);
}

TEST(Statvfs, AnUnknownTypeIsNotSupportedAndSaysSo) {
    const auto result = support::runInChild([] {
        if (!mountEmptyOver("/proc") || mount("none", "/proc", "sysfs", 0, nullptr) != 0)
            _exit(kNoMounts);
        struct statvfs status;
        EXPECT_EQ(-1, statvfs("/proc", &status));
        EXPECT_EQ(ENOTSUP, errno);
    });
    if (result.exitedWith(kNoMounts))
        GTEST_SKIP() << "no privilege to have a /proc of one's own";
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ("neutrino host: statvfs of a file system of unknown type is not supported on Linux\n", result.err);
}

}  // namespace
