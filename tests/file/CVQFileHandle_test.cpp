// Concerns: open and close, what they leave open, interruptions of both, refusals.
#include <CVQFileHandle.h>

#include "CallScript.h"
#include "Descriptors.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace {

TEST(CVQFileHandle, OpensAndClosesAFile) {
    const support::TemporaryFolder folder;
    const CVQPath path(folder.write("file", "text").c_str());
    const std::set<int> before = files::openDescriptors();
    {
        CVQFileHandle handle;
        EXPECT_FALSE(handle.isOpen());
        EXPECT_EQ(-1, handle.getDescriptor());
        EXPECT_TRUE(handle.open(path, O_RDONLY));
        EXPECT_TRUE(handle.isOpen());
        char first = '\0';
        EXPECT_EQ(1, read(handle.getDescriptor(), &first, 1));
        EXPECT_EQ('t', first);
        EXPECT_TRUE(handle.open(path, O_RDONLY | O_CLOEXEC));  // closes the first
        EXPECT_EQ(before.size() + 1, files::openDescriptors().size());
        EXPECT_TRUE(files::isClosedOnExec(handle.getDescriptor()));
        EXPECT_TRUE(handle.close());
        EXPECT_FALSE(handle.isOpen());
        EXPECT_TRUE(handle.close());
        EXPECT_EQ(before, files::openDescriptors());
        EXPECT_TRUE(CVQFileHandle(path, O_RDONLY).isOpen());
        handle.open(path, O_RDONLY);
    }
    EXPECT_EQ(before, files::openDescriptors());
}

TEST(CVQFileHandle, AFileThatIsCreatedMayBeUsedByAllTheUmaskAllows) {
    const support::TemporaryFolder folder;
    const mode_t before = umask(022);
    CVQFileHandle handle((folder / "file").c_str(), O_WRONLY | O_CREAT);
    umask(before);
    struct stat status;
    ASSERT_EQ(0, fstat(handle.getDescriptor(), &status));
    EXPECT_EQ(0755U, status.st_mode & 07777U);
}

TEST(CVQFileHandle, AFailedOpenHasClosedWhatWasOpenAndTellsWhy) {
    const support::TemporaryFolder folder;
    CVQFileHandle handle("/", O_RDONLY);
    EXPECT_TRUE(handle.isOpen());
    EXPECT_FALSE(handle.open((folder / "none").c_str(), O_RDONLY));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_FALSE(handle.isOpen());
    EXPECT_FALSE(handle.open("", O_RDONLY));
    EXPECT_EQ(ENOENT, errno);
}

TEST(CVQFileHandle, OpensAgainAfterInterruptions) {
    doubles::CallScript script("open", [](int nth) { return nth <= 3 ? EINTR : 0; });
    const CVQFileHandle handle("/", O_RDONLY);
    EXPECT_TRUE(handle.isOpen());
    EXPECT_EQ(4, script.calls());
}

TEST(CVQFileHandle, ClosesAgainAfterAnInterruption) {
    const std::set<int> before = files::openDescriptors();
    CVQFileHandle handle("/", O_RDONLY);
    {
        doubles::CallScript script("close", [](int nth) { return nth <= 2 ? EINTR : 0; });
        EXPECT_TRUE(handle.close());
        EXPECT_EQ(3, script.calls());
    }
    EXPECT_FALSE(handle.isOpen());
    EXPECT_EQ(before, files::openDescriptors());
}

TEST(CVQFileHandle, AnInterruptedCloseMayHaveReleasedTheDescriptor) {
    CVQFileHandle handle("/", O_RDONLY);
    doubles::CallScript script("close", [](int nth) { return nth == 1 ? EINTR : 0; });
    script.actsAnyway = true;
    EXPECT_TRUE(handle.close());
    EXPECT_EQ(2, script.calls());
    EXPECT_FALSE(handle.isOpen());
}

TEST(CVQFileHandle, Kept_ACloseThatFailsKeepsTheDescriptorAndReturnsTrue) {
    CVQFileHandle handle("/", O_RDONLY);
    const int descriptor = handle.getDescriptor();
    for (const int error : {EIO, EBADF}) {
        doubles::CallScript script("close", [error](int) { return error; });
        EXPECT_TRUE(handle.close());
        EXPECT_EQ(error, errno);
        EXPECT_EQ(1, script.calls());
        EXPECT_EQ(descriptor, handle.getDescriptor());
    }
    EXPECT_TRUE(handle.close());
    EXPECT_FALSE(handle.isOpen());
}

}  // namespace
