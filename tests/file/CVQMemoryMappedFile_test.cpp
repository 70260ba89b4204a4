// Concerns: anonymous and file mappings and their protection; offsets and sizes; failures and their reports; files that
// change or shrink under their mapping; what open and close leave mapped; descriptors.
#include <CVQMemoryMappedFile.h>

#include "CallScript.h"
#include "Descriptors.h"
#include "support/AssertionLog.h"
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <set>
#include <unistd.h>

namespace {

const unsigned kPage = static_cast<unsigned>(sysconf(_SC_PAGESIZE));

class CVQMemoryMappedFileTest : public testing::Test {
protected:
    ~CVQMemoryMappedFileTest() override { EXPECT_EQ(mDescriptors, files::openDescriptors()); }

    /// A file of three pages of "a", "b", "c" and 10 bytes "d".
    CVQPath makeFile() const {
        return CVQPath(mFolder
                           .write("file", std::string(kPage, 'a') + std::string(kPage, 'b') +
                                              std::string(kPage, 'c') + std::string(10, 'd'))
                           .c_str());
    }

    support::AssertionLog mLog;
    const std::set<int> mDescriptors = files::openDescriptors();
    support::TemporaryFolder mFolder;
};

char* bytesOf(const CVQMemoryMappedFile& file) {
    return static_cast<char*>(file.getAddress());
}

TEST_F(CVQMemoryMappedFileTest, WithoutAFileMapsPrivateMemoryOfZeros) {
    for (const bool isLazy : {false, true}) {
        CVQMemoryMappedFile memory;
        EXPECT_EQ(nullptr, memory.getAddress());
        EXPECT_EQ(0U, memory.getSize());
        ASSERT_TRUE(memory.map(0, 3 * kPage + 1, isLazy));
        EXPECT_EQ(3 * kPage + 1, memory.getSize());
        EXPECT_TRUE(
            std::all_of(bytesOf(memory), bytesOf(memory) + memory.getSize(), [](char b) { return b == 0; }));
        bytesOf(memory)[0] = 'p';
        const auto child = support::runInChild([&] { bytesOf(memory)[0] = 'c'; });
        EXPECT_TRUE(child.exitedWith(0)) << child;
        EXPECT_EQ('p', bytesOf(memory)[0]);
        EXPECT_TRUE(memory.unmap());
        EXPECT_EQ(nullptr, memory.getAddress());
        EXPECT_EQ(0U, memory.getSize());
        EXPECT_TRUE(memory.unmap());
    }
}

TEST_F(CVQMemoryMappedFileTest, WithoutAFileTheOffsetMeansNothing) {
    CVQMemoryMappedFile memory;
    EXPECT_TRUE(memory.map(1, kPage, false));
    EXPECT_TRUE(memory.map(~0ULL, kPage, false));
}

TEST_F(CVQMemoryMappedFileTest, MapsAFileFromAPageOn) {
    CVQMemoryMappedFile file(makeFile());
    ASSERT_TRUE(file.isOpen());
    EXPECT_TRUE(files::isClosedOnExec(file.getDescriptor()));
    EXPECT_EQ(O_RDONLY, fcntl(file.getDescriptor(), F_GETFL) & O_ACCMODE);
    for (const bool isLazy : {false, true}) {
        ASSERT_TRUE(file.map(0, 3 * kPage + 10, isLazy));
        EXPECT_EQ('a', bytesOf(file)[0]);
        EXPECT_EQ('d', bytesOf(file)[3 * kPage + 9]);
        EXPECT_EQ(0, bytesOf(file)[3 * kPage + 10]);
        ASSERT_TRUE(file.map(kPage, kPage, isLazy));
        EXPECT_EQ('b', bytesOf(file)[0]);
        EXPECT_EQ('b', bytesOf(file)[kPage - 1]);
    }
}

TEST_F(CVQMemoryMappedFileTest, AFileCannotBeWrittenThroughItsMapping) {
    CVQMemoryMappedFile file(makeFile());
    ASSERT_TRUE(file.map(0, kPage, false));
    const auto result = support::runInChild([&] { *static_cast<volatile char*>(bytesOf(file)) = 1; });
    // A sanitizer's handler turns the signal into an exit.
    EXPECT_TRUE(result.killedBy(SIGSEGV) || (result.exited && result.exitCode != 0)) << result;
}

TEST_F(CVQMemoryMappedFileTest, TheMappingShowsWhatIsWrittenToTheFile) {
    const CVQPath path = makeFile();
    CVQMemoryMappedFile file(path);
    ASSERT_TRUE(file.map(0, kPage, false));
    CVQFileHandle writer(path, O_WRONLY);
    EXPECT_EQ(3, writer.write("new", 3, -1));
    EXPECT_EQ(0, std::memcmp("newa", file.getAddress(), 4));
}

TEST_F(CVQMemoryMappedFileTest, TouchingBehindTheEndOfAFileThatBecameShorterEndsTheProcess) {
    const CVQPath path = makeFile();
    const auto result = support::runInChild([&] {
        signal(SIGBUS, SIG_DFL);
        CVQMemoryMappedFile file(path);
        ASSERT_TRUE(file.map(0, 2 * kPage, false));
        ASSERT_TRUE(CVQFileHandle(path, O_WRONLY).truncate(10));
        EXPECT_EQ('a', bytesOf(file)[9]);
        EXPECT_EQ(0, bytesOf(file)[10]);
        static_cast<void>(*static_cast<volatile char*>(bytesOf(file) + kPage));
    });
    EXPECT_TRUE(result.killedBy(SIGBUS)) << result;
}

TEST_F(CVQMemoryMappedFileTest, OffsetsWithinAPageAndSizesOfZeroFail) {
    CVQMemoryMappedFile file(makeFile());
    for (const unsigned long long offset : {1ULL, 4095ULL, 0x8000000000000001ULL}) {
        ASSERT_TRUE(file.map(0, kPage, false));
        errno = 0;
        EXPECT_FALSE(file.map(offset, kPage, false));
        EXPECT_EQ(EINVAL, errno);
        EXPECT_EQ(nullptr, file.getAddress());
        EXPECT_EQ(0U, file.getSize());
    }
    errno = 0;
    EXPECT_FALSE(file.map(0, 0, false));
    EXPECT_EQ(EINVAL, errno);
    CVQMemoryMappedFile memory;
    EXPECT_FALSE(memory.map(0, 0, true));
    EXPECT_EQ(EINVAL, errno);
}

TEST_F(CVQMemoryMappedFileTest, FilesWithoutMappingsAndMissingFilesFail) {
    CVQMemoryMappedFile folder("/");
    ASSERT_TRUE(folder.isOpen());
    EXPECT_FALSE(folder.map(0, kPage, false));
    EXPECT_EQ(ENODEV, errno);
    CVQMemoryMappedFile none((mFolder / "none").c_str());
    EXPECT_FALSE(none.isOpen());
    EXPECT_TRUE(none.map(0, kPage, false));  // as without a file
    EXPECT_FALSE(none.open((mFolder / "none").c_str()));
    EXPECT_EQ(ENOENT, errno);
}

TEST_F(CVQMemoryMappedFileTest, TheMappingOutlivesTheOpeningOfAnotherFile) {
    CVQMemoryMappedFile file(makeFile());
    ASSERT_TRUE(file.map(0, kPage, false));
    EXPECT_TRUE(file.open(mFolder.write("other", "other").c_str()));
    EXPECT_EQ('a', bytesOf(file)[0]);
    EXPECT_TRUE(file.map(0, 5, false));
    EXPECT_EQ(0, std::memcmp("other", file.getAddress(), 5));
    EXPECT_TRUE(file.close());
    EXPECT_EQ(nullptr, file.getAddress());
    EXPECT_FALSE(file.isOpen());
    EXPECT_TRUE(file.close());
}

TEST_F(CVQMemoryMappedFileTest, AMappingThatCannotBeTakenBackIsReportedAndTheWorkGoesOn) {
    CVQMemoryMappedFile file(makeFile());
    ASSERT_TRUE(file.map(0, kPage, false));
    void* const first = file.getAddress();
    {
        doubles::CallScript script("munmap", [](int) { return ENOMEM; });
        EXPECT_FALSE(file.unmap());
        EXPECT_EQ(ENOMEM, errno);
        EXPECT_EQ(first, file.getAddress());
        EXPECT_EQ(kPage, file.getSize());
        EXPECT_TRUE(file.map(kPage, kPage, false));
        EXPECT_EQ('b', bytesOf(file)[0]);
        EXPECT_TRUE(file.close());
        EXPECT_FALSE(file.isOpen());
    }
    const std::string reason =
        " (operating system error " + std::to_string(ENOMEM) + ", " + std::strerror(ENOMEM) + ")";
    EXPECT_EQ((std::vector<std::string>{"unmapping memory mapping failed - mapping anyway" + reason,
                                        "unmapping memory mapping failed - closing anyway" + reason}),
              mLog.takeSites());
    EXPECT_TRUE(file.unmap());
}

TEST_F(CVQMemoryMappedFileTest, InterruptedCallsAreMadeAgain) {
    CVQMemoryMappedFile file(makeFile());
    {
        doubles::CallScript script("mmap64", [](int nth) { return nth <= 2 ? EINTR : 0; });
        EXPECT_TRUE(file.map(0, kPage, false));
        EXPECT_EQ(3, script.calls());
    }
    doubles::CallScript script("munmap", [](int nth) { return nth <= 2 ? EINTR : 0; });
    EXPECT_TRUE(file.unmap());
    EXPECT_EQ(3, script.calls());
}

TEST_F(CVQMemoryMappedFileTest, WhatThePlatformDoesNotSupportIsNotImplemented) {
    CVQMemoryMappedFile file(makeFile());
    doubles::CallScript script("mmap64", [](int) { return ENOTSUP; });
    EXPECT_FALSE(file.map(0, kPage, false));
    EXPECT_EQ(ENOSYS, errno);
}

}  // namespace
