// Concerns: every row of the mode table; transfers and their special sizes; errors and interruptions; sync and close when
// the file system is full; descriptors.
#include <CVQFILEDevice.h>

#include "Descriptors.h"
#include "support/AssertionLog.h"
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <set>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

using Sites = std::vector<std::string>;

class CVQFILEDeviceTest : public testing::Test {
protected:
    ~CVQFILEDeviceTest() override { EXPECT_EQ(mDescriptors, files::openDescriptors()); }

    support::AssertionLog mLog;
    const std::set<int> mDescriptors = files::openDescriptors();
    support::TemporaryFolder mFolder;
};

TEST_F(CVQFILEDeviceTest, FlagsSelectTheMode) {
    const struct {
        int line;
        int flags;
        bool opens, creates, reads, writes;
        const char* content;  // of a file "old" after one byte "N" was written
    } kRows[] = {
        {__LINE__, 0, true, false, true, false, "old"},
        {__LINE__, O_WRONLY, true, false, true, true, "Nld"},
        {__LINE__, O_RDWR, true, false, true, true, "Nld"},
        {__LINE__, O_EXCL, true, false, true, true, "Nld"},
        {__LINE__, O_APPEND | O_WRONLY, true, true, false, true, "oldN"},
        {__LINE__, O_APPEND | O_CREAT | O_WRONLY, true, true, false, true, "oldN"},
        {__LINE__, O_APPEND | O_RDWR, true, true, true, true, "oldN"},
        {__LINE__, O_APPEND, false, false, false, false, "old"},
        {__LINE__, O_APPEND | O_CREAT, false, false, false, false, "old"},
        {__LINE__, O_TRUNC | O_WRONLY, true, true, false, true, "N"},
        {__LINE__, O_TRUNC | O_RDWR, true, true, true, true, "N"},
        {__LINE__, O_TRUNC, false, false, false, false, "old"},
        {__LINE__, O_TRUNC | O_APPEND | O_WRONLY, true, true, false, true, "N"},
        {__LINE__, O_CREAT | O_WRONLY, true, true, false, true, "N"},
        {__LINE__, O_CREAT | O_RDWR, true, true, true, true, "N"},
        {__LINE__, O_CREAT, false, false, false, false, "old"},
        {__LINE__, O_CREAT | O_TRUNC | O_RDWR, true, true, true, true, "N"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        const std::string path = mFolder.write("file", "old");
        const unsigned flags = static_cast<unsigned>(row.flags);
        char byte;
        {
            CVQFILEDevice device;
            EXPECT_EQ(row.opens, device.open(path.c_str(), flags));
            if (row.opens) {
                EXPECT_EQ(row.writes ? 1 : -1, device.write("N", 1, 0));
            }
        }
        EXPECT_EQ(row.content, support::readFile(path));
        if (row.opens) {
            CVQFILEDevice device;
            ASSERT_TRUE(device.open(path.c_str(), flags));
            EXPECT_EQ(row.reads, device.read(&byte, 1, 0) != -1);
        }
        CVQFILEDevice device;
        EXPECT_EQ(row.creates, device.open((mFolder / "new").c_str(), flags));
        unlink((mFolder / "new").c_str());
    }
}

TEST_F(CVQFILEDeviceTest, Kept_WriteOnlyAloneOpensForReadingToo) {
    CVQFILEDevice device;
    ASSERT_TRUE(device.open(mFolder.write("file", "text").c_str(), O_WRONLY));
    char byte = '\0';
    EXPECT_EQ(1, device.read(&byte, 1, 0));
    EXPECT_EQ('t', byte);
}

TEST_F(CVQFILEDeviceTest, ReadsToTheEndOfTheFile) {
    CVQFILEDevice device;
    ASSERT_TRUE(device.open(mFolder.write("file", "0123456789").c_str(), 0));
    char bytes[8] = {};
    EXPECT_EQ(8, device.read(bytes, 8, 0));
    EXPECT_EQ(2, device.read(bytes, 8, 0));
    EXPECT_EQ(0, std::memcmp("89234567", bytes, 8));
    EXPECT_EQ(0, device.read(bytes, 8, 0));
}

TEST_F(CVQFILEDeviceTest, Kept_ATransferOfNoBytesIsNoneOnlyForNull) {
    CVQFILEDevice device;
    ASSERT_TRUE(device.open(mFolder.write("file", "text").c_str(), O_RDWR));
    char byte = 'x';
    EXPECT_EQ(0, device.read(nullptr, 0, 0));
    EXPECT_EQ(0, device.write(nullptr, 0, 0));
    EXPECT_EQ(-1, device.read(&byte, 0, 0));
    EXPECT_EQ(-1, device.write(&byte, 0, 0));
    errno = 0;
    EXPECT_EQ(-1, device.read(nullptr, 1, 0));
    EXPECT_EQ(EINVAL, errno);
    errno = 0;
    EXPECT_EQ(-1, device.write(nullptr, 1, 0));
    EXPECT_EQ(EINVAL, errno);
}

TEST_F(CVQFILEDeviceTest, WithoutAnOpenFileOperationsAreReported) {
    CVQFILEDevice device;
    char byte = 'x';
    EXPECT_EQ(-1, device.read(&byte, 1, 0));
    EXPECT_EQ(-1, device.write(&byte, 1, 0));
    EXPECT_FALSE(device.sync());
    EXPECT_TRUE(device.close());
    EXPECT_EQ((Sites{"CVQFILEDevice:156", "CVQFILEDevice:108", "CVQFILEDevice:93"}), mLog.takeSites());
    EXPECT_FALSE(device.open((mFolder / "none").c_str(), 0));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(-1, device.read(nullptr, 0, 0));
    EXPECT_EQ((Sites{"CVQFILEDevice:156"}), mLog.takeSites());
}

TEST_F(CVQFILEDeviceTest, SyncHandsOverWhatIsBuffered) {
    const std::string path = mFolder / "file";
    CVQFILEDevice device;
    ASSERT_TRUE(device.open(path.c_str(), O_CREAT | O_WRONLY));
    EXPECT_EQ(4, device.write("text", 4, 0));
    EXPECT_EQ("", support::readFile(path));
    EXPECT_TRUE(device.sync());
    EXPECT_EQ("text", support::readFile(path));
    EXPECT_TRUE(device.close());
    EXPECT_TRUE(device.close());
}

TEST_F(CVQFILEDeviceTest, OpeningClosesWhatIsOpen) {
    const std::string path = mFolder / "file";
    CVQFILEDevice device;
    ASSERT_TRUE(device.open(path.c_str(), O_CREAT | O_WRONLY));
    EXPECT_EQ(4, device.write("text", 4, 0));
    ASSERT_TRUE(device.open(path.c_str(), 0));
    EXPECT_EQ(mDescriptors.size() + 1, files::openDescriptors().size());
    for (const int descriptor : files::openDescriptors()) {
        EXPECT_TRUE(mDescriptors.count(descriptor) != 0 || files::isClosedOnExec(descriptor));
    }
    char bytes[5] = {};
    EXPECT_EQ(4, device.read(bytes, 4, 0));
    EXPECT_STREQ("text", bytes);
}

TEST_F(CVQFILEDeviceTest, WhatCannotBeWrittenKeepsTheFileOpen) {
    for (const bool opensAgain : {false, true}) {
        CVQFILEDevice device;
        ASSERT_TRUE(device.open("/dev/full", O_WRONLY));
        EXPECT_EQ(1, device.write("x", 1, 0));
        EXPECT_FALSE(device.close());
        EXPECT_EQ(ENOSPC, errno);
        EXPECT_EQ(mDescriptors.size() + 1, files::openDescriptors().size());
        EXPECT_EQ(-1, device.write("x", 1, 0));
        if (opensAgain) {
            EXPECT_TRUE(device.open("/dev/null", 0));
            EXPECT_EQ(mDescriptors.size() + 1, files::openDescriptors().size());
        }
    }
}

TEST_F(CVQFILEDeviceTest, SyncTellsThatTheFileSystemIsFull) {
    CVQFILEDevice device;
    ASSERT_TRUE(device.open("/dev/full", O_WRONLY));
    EXPECT_EQ(1, device.write("x", 1, 0));
    EXPECT_FALSE(device.sync());
    EXPECT_EQ(ENOSPC, errno);
}

TEST_F(CVQFILEDeviceTest, AWriteIsAnErrorFromTheMomentThatTheStreamHasOne) {
    const std::string bytes(10000, 'x');
    for (const unsigned size : {1U, 100U, 4096U, 5000U, 10000U}) {
        CVQFILEDevice device;
        ASSERT_TRUE(device.open("/dev/full", O_CREAT | O_WRONLY));
        std::FILE* const twin = std::fopen("/dev/full", "wb");
        ASSERT_NE(nullptr, twin);
        unsigned failed = 0;
        for (unsigned done = 0; failed < 3; done += size) {
            ASSERT_LT(done, 1U << 20) << size;
            const auto count = static_cast<int>(std::fwrite(bytes.data(), 1, size, twin));
            const bool hasFailed = std::ferror(twin) != 0;
            EXPECT_EQ(hasFailed ? -1 : count, device.write(bytes.data(), size, 0)) << size << " at " << done;
            failed += hasFailed ? 1 : 0;
        }
        std::fclose(twin);
    }
}

TEST_F(CVQFILEDeviceTest, ABufferedReadBehindAFailedOneIsAnErrorToo) {
    CVQFILEDevice device;
    const std::string path = mFolder.write("file", "text");
    ASSERT_TRUE(device.open(path.c_str(), O_APPEND | O_WRONLY));
    char bytes[4];
    EXPECT_EQ(-1, device.read(bytes, 4, 0));
    EXPECT_EQ(EBADF, errno);
    EXPECT_EQ(-1, device.write("more", 4, 0));
    ASSERT_TRUE(device.open(path.c_str(), 0));  // a new stream has no error
    EXPECT_EQ(4, device.read(bytes, 4, 0));
}

TEST_F(CVQFILEDeviceTest, AFolderCannotBeRead) {
    CVQFILEDevice device;
    ASSERT_TRUE(device.open("/", 0));
    char byte;
    EXPECT_EQ(-1, device.read(&byte, 1, 0));
    EXPECT_EQ(EISDIR, errno);
}

TEST_F(CVQFILEDeviceTest, Kept_AnInterruptedTransferBeginsAgainAndIsAnError) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    const std::string path = "/proc/self/fd/" + std::to_string(ends[0]);
    CVQFILEDevice device;
    ASSERT_TRUE(device.open(path.c_str(), 0));
    static int sEnd;
    sEnd = ends[1];
    struct sigaction action = {};
    action.sa_handler = [](int) { static_cast<void>(write(sEnd, "ab", 2) != 2); };
    struct sigaction before;
    sigaction(SIGALRM, &action, &before);
    const itimerval soon = {{0, 0}, {0, 20000}};
    setitimer(ITIMER_REAL, &soon, nullptr);
    char bytes[3] = {};
    EXPECT_EQ(-1, device.read(bytes, 2, 0));
    EXPECT_STREQ("ab", bytes);
    sigaction(SIGALRM, &before, nullptr);
    close(ends[0]);
    close(ends[1]);
}

}  // namespace
