// Concerns: each operation's success, its failure and its reason; interruptions of each; what recursive work does with
// thousands of entries, depth, links, missing permissions, failures on the way and names that do not fit; unique names
// from many processes and threads; descriptors that are left over or that a child would inherit. What needs an
// unprivileged user or another directory runs in a child process.
#include <VQFileOperations.h>

#include "CallScript.h"
#include "Descriptors.h"
#include "PathOf.h"
#include "support/ChildProcess.h"
#include "support/SlogCapture.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <functional>
#include <new>
#include <set>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace VQFileOperations;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

std::string textOf(const CVQPath& path) {
    return path.getString().c_str();
}
bool exists(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}
bool isDirectory(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// What a test does has to leave the descriptors as they were, and log nothing.
class VQFileOperationsTest : public testing::Test {
protected:
    ~VQFileOperationsTest() override {
        EXPECT_EQ(mBefore, files::openDescriptors());
        EXPECT_THAT(mLog.texts(), IsEmpty());
    }

    const support::TemporaryFolder folder;

private:
    support::SlogCapture mLog;
    const std::set<int> mBefore = files::openDescriptors();
};

/// Runs `body` in a child that is nobody special, in `folder`.
support::ChildResult asNobody(const support::TemporaryFolder& folder, const std::function<void()>& body) {
    chmod(folder.path().c_str(), 0755);
    support::ChildOptions options;
    options.folder = folder.path();
    return support::runInChild(
        [&] {
            if (geteuid() == 0) {
                ASSERT_EQ(0, setgid(65534));
                ASSERT_EQ(0, setuid(65534));
            }
            body();
        },
        options);
}

TEST_F(VQFileOperationsTest, MakesRenamesAndRemoves) {
    const CVQPath one = pathOf(folder / "one");
    const CVQPath two = pathOf(folder / "two");
    const mode_t mask = umask(0);
    EXPECT_TRUE(makeDir(one, 0751));
    umask(mask);
    CVQFileStatus status;
    EXPECT_TRUE(getFileStatus(one, status));
    EXPECT_TRUE(S_ISDIR(status.st_mode));
    EXPECT_EQ(0751U, status.st_mode & 07777U);
    EXPECT_FALSE(makeDir(one, 0700));
    EXPECT_EQ(EEXIST, errno);

    EXPECT_TRUE(VQFileOperations::rename(one, two));
    EXPECT_THAT(folder.list(), ElementsAre("two"));
    EXPECT_FALSE(VQFileOperations::rename(one, two));
    EXPECT_EQ(ENOENT, errno);

    folder.write("two/file", "");
    EXPECT_FALSE(VQFileOperations::remove(two));
    EXPECT_EQ(ENOTEMPTY, errno);
    EXPECT_TRUE(VQFileOperations::remove(two / "file"));
    EXPECT_TRUE(VQFileOperations::remove(two));
    EXPECT_FALSE(VQFileOperations::remove(two));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_THAT(folder.list(), IsEmpty());
}

TEST_F(VQFileOperationsTest, LeavesErrnoZeroAfterASuccess) {
    errno = ENOENT;
    EXPECT_TRUE(makeDir(pathOf(folder / "one"), 0700));
    EXPECT_EQ(0, errno);
}

TEST_F(VQFileOperationsTest, SetsPermissions) {
    const CVQPath path = pathOf(folder.write("file", "12345"));
    EXPECT_TRUE(setPermissions(path, 0640));
    CVQFileStatus status;
    EXPECT_TRUE(getFileStatus(path, status));
    EXPECT_EQ(0640U, status.st_mode & 07777U);
    EXPECT_EQ(5, status.st_size);
    EXPECT_FALSE(setPermissions(path / "below", 0640));
    EXPECT_EQ(ENOTDIR, errno);
}

TEST_F(VQFileOperationsTest, AStatusIsZeroUntilItIsFilled) {
    alignas(CVQFileStatus) unsigned char place[sizeof(CVQFileStatus)];
    std::memset(place, 0xFF, sizeof place);
    const CVQFileStatus* const status = new (place) CVQFileStatus;
    EXPECT_EQ(0U, status->st_mode);
    EXPECT_EQ(0U, status->st_ino);
    EXPECT_EQ(0, status->st_size);
    EXPECT_EQ(0, status->st_mtime);
}

TEST_F(VQFileOperationsTest, LinksHaveAStatusOfTheirOwn) {
    const CVQPath file = pathOf(folder.write("file", "12345"));
    const CVQPath link = pathOf(folder / "link");
    EXPECT_TRUE(createSymlink("file", link));
    CVQFileStatus status;
    EXPECT_TRUE(getFileStatus(link, status));
    EXPECT_TRUE(S_ISREG(status.st_mode));
    EXPECT_TRUE(getSymlinkStatus(link, status));
    EXPECT_TRUE(S_ISLNK(status.st_mode));
    char target[16] = {};
    EXPECT_EQ(4, readlink((folder / "link").c_str(), target, sizeof target));
    EXPECT_STREQ("file", target);

    EXPECT_FALSE(createSymlink("file", link));
    EXPECT_EQ(EEXIST, errno);
    EXPECT_TRUE(VQFileOperations::remove(file));
    EXPECT_FALSE(getFileStatus(link, status));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_TRUE(getSymlinkStatus(link, status));
    EXPECT_TRUE(VQFileOperations::remove(link));
    EXPECT_FALSE(getSymlinkStatus(link, status));
    EXPECT_EQ(ENOENT, errno);
}

TEST_F(VQFileOperationsTest, ALinkToItselfLeadsNowhere) {
    const CVQPath link = pathOf(folder / "link");
    EXPECT_TRUE(createSymlink("link", link));
    CVQFileStatus status;
    EXPECT_FALSE(getFileStatus(link, status));
    EXPECT_EQ(ELOOP, errno);
    EXPECT_TRUE(recursiveRemove(link));
}

TEST_F(VQFileOperationsTest, ChangesAndTellsTheCurrentDirectory) {
    const support::ChildResult child = support::runInChild([&] {
        EXPECT_TRUE(changeDir(pathOf(folder.path())));
        EXPECT_EQ(folder.path(), textOf(getCurrentDir()));
        EXPECT_FALSE(changeDir("none"));
        EXPECT_EQ(ENOENT, errno);
        EXPECT_TRUE(changeDir("/"));
        EXPECT_EQ("/", textOf(getCurrentDir()));
    });
    EXPECT_TRUE(child.exitedWith(0)) << child;
}

TEST_F(VQFileOperationsTest, ACurrentDirectoryOf1024BytesIsTheEmptyPath) {
    const support::ChildResult child = support::runInChild([&] {
        ASSERT_TRUE(changeDir(pathOf(folder.path())));
        std::size_t length = folder.path().size();
        while (length < 1023) {
            std::size_t more = std::min<std::size_t>(1023 - length, 201) - 1;
            more -= 1023 - length - 1 - more == 1 ? 1 : 0;  // the last name needs a byte
            const std::string name(more, 'd');
            ASSERT_TRUE(makeDir(pathOf(name), 0700));
            ASSERT_TRUE(changeDir(pathOf(name)));
            length += 1 + more;
        }
        EXPECT_EQ(1023U, textOf(getCurrentDir()).size());
        EXPECT_TRUE(getCurrentDir().isValid());
        ASSERT_TRUE(makeDir("e", 0700));
        ASSERT_TRUE(changeDir("e"));
        EXPECT_FALSE(getCurrentDir().isValid());
        EXPECT_EQ("", textOf(getCurrentDir()));
        EXPECT_EQ(ERANGE, errno);
    });
    EXPECT_TRUE(child.exitedWith(0)) << child;
}

TEST_F(VQFileOperationsTest, ACurrentDirectoryThatIsGoneIsTheEmptyPath) {
    const support::ChildResult child = support::runInChild([&] {
        ASSERT_TRUE(makeDir(pathOf(folder / "gone"), 0700));
        ASSERT_TRUE(changeDir(pathOf(folder / "gone")));
        ASSERT_TRUE(VQFileOperations::remove(pathOf(folder / "gone")));
        EXPECT_EQ("", textOf(getCurrentDir()));
        EXPECT_EQ(ENOENT, errno);
    });
    EXPECT_TRUE(child.exitedWith(0)) << child;
}

TEST_F(VQFileOperationsTest, IsGrantedTellsPermissionsFromOtherReasons) {
    const std::string file = folder.write("file", "");
    chmod(file.c_str(), 0444);
    const std::string none = folder / "none";
    const support::ChildResult child = asNobody(folder, [&] {
        bool otherError = true;
        EXPECT_TRUE(isGranted(pathOf(file), R_OK, &otherError));
        EXPECT_FALSE(otherError);
        otherError = true;
        EXPECT_FALSE(isGranted(pathOf(file), W_OK, &otherError));
        EXPECT_FALSE(otherError);
        EXPECT_EQ(EACCES, errno);
        EXPECT_FALSE(isGranted(pathOf(none), F_OK, &otherError));
        EXPECT_TRUE(otherError);
        EXPECT_EQ(ENOENT, errno);
        EXPECT_TRUE(isGranted(pathOf(file), F_OK, nullptr));
        EXPECT_FALSE(isGranted(pathOf(file), R_OK | X_OK, nullptr));
    });
    EXPECT_TRUE(child.exitedWith(0)) << child;
}

TEST_F(VQFileOperationsTest, WithoutPermissionsOperationsFailWithTheReason) {
    folder.write("file", "");
    mkdir((folder / "closed").c_str(), 0700);
    const support::ChildResult child = asNobody(folder, [&] {
        CVQFileStatus status;
        EXPECT_FALSE(makeDir("dir", 0700));
        EXPECT_EQ(EACCES, errno);
        EXPECT_FALSE(VQFileOperations::remove("file"));
        EXPECT_EQ(EACCES, errno);
        EXPECT_FALSE(VQFileOperations::rename("file", "other"));
        EXPECT_EQ(EACCES, errno);
        EXPECT_FALSE(createSymlink("file", "link"));
        EXPECT_EQ(EACCES, errno);
        EXPECT_FALSE(setPermissions("file", 0777));
        EXPECT_EQ(EPERM, errno);
        EXPECT_FALSE(changeDir("closed"));
        EXPECT_EQ(EACCES, errno);
        EXPECT_FALSE(getFileStatus("closed/file", status));
        EXPECT_EQ(EACCES, errno);
        EXPECT_FALSE(makeDirRecursive(pathOf(folder / "a/b/c"), 0700));
        EXPECT_EQ(EACCES, errno);
        CVQPath pattern = pathOf(folder / "unique*");
        CVQFileHandle handle;
        EXPECT_FALSE(createUniqueFile(pattern, handle));
        EXPECT_EQ(EACCES, errno);
        EXPECT_FALSE(handle.isOpen());
        EXPECT_THAT(textOf(pattern), StartsWith(folder / "unique" + std::to_string(getpid()) + '-'));
        EXPECT_FALSE(recursiveRemove("closed"));
        EXPECT_EQ(EACCES, errno);
    });
    EXPECT_TRUE(child.exitedWith(0)) << child;
    EXPECT_THAT(folder.list(), ElementsAre("closed", "file"));
}

TEST_F(VQFileOperationsTest, MakesMissingDirectoriesOnTheWay) {
    EXPECT_TRUE(makeDirRecursive(pathOf(folder / "a/b/c/d"), 0700));
    EXPECT_TRUE(isDirectory(folder / "a/b/c/d"));
    EXPECT_TRUE(makeDirRecursive(pathOf(folder / "a/b/x//y/"), 0700));
    EXPECT_TRUE(isDirectory(folder / "a/b/x/y"));
    EXPECT_FALSE(makeDirRecursive(pathOf(folder / "a/b/c/d"), 0700));
    EXPECT_EQ(EEXIST, errno);
}

TEST_F(VQFileOperationsTest, MakesRelativePathsFromTheirFirstLevelOn) {
    const support::ChildResult child = support::runInChild([&] {
        ASSERT_TRUE(changeDir(pathOf(folder.path())));
        EXPECT_TRUE(makeDirRecursive("one", 0700));
        EXPECT_FALSE(makeDirRecursive("one", 0700));
        EXPECT_EQ(EEXIST, errno);
        EXPECT_TRUE(makeDirRecursive("one/two", 0700));
        EXPECT_TRUE(makeDirRecursive("x/y/z", 0700));
        EXPECT_FALSE(makeDirRecursive("", 0700));
        EXPECT_EQ(ENOENT, errno);
    });
    EXPECT_TRUE(child.exitedWith(0)) << child;
    EXPECT_TRUE(isDirectory(folder / "one/two"));
    EXPECT_TRUE(isDirectory(folder / "x/y/z"));
}

TEST_F(VQFileOperationsTest, Kept_NothingIsMadeDirectlyBelowAnExistingRoot) {
    doubles::CallScript script("mkdir", [](int) { return 0; });
    const std::string name = "/marlix-not-made-" + std::to_string(getpid());
    EXPECT_TRUE(makeDirRecursive(pathOf(name), 0700));
    EXPECT_TRUE(makeDirRecursive("/", 0700));
    EXPECT_TRUE(makeDirRecursive("//", 0700));
    EXPECT_EQ(0, script.calls());
    EXPECT_FALSE(exists(name));

    EXPECT_FALSE(makeDirRecursive(pathOf(name + "/deeper"), 0700));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(1, script.calls());
    EXPECT_FALSE(exists(name));
}

TEST_F(VQFileOperationsTest, ADriveIsARootThatMayOrMayNotExist) {
    const support::ChildResult child = support::runInChild([&] {
        ASSERT_TRUE(changeDir(pathOf(folder.path())));
        EXPECT_FALSE(makeDirRecursive("C:/a", 0700));  // there is no C:, so the platform is asked
        EXPECT_EQ(ENOENT, errno);
        ASSERT_TRUE(makeDir("C:", 0700));
        EXPECT_TRUE(makeDirRecursive("C:/a", 0700));
        EXPECT_FALSE(exists("C:/a"));
        folder.write("D:", "");
        EXPECT_FALSE(makeDirRecursive("D:/a", 0700));
        EXPECT_EQ(ENOTDIR, errno);
        ASSERT_TRUE(createSymlink("C:", "E:"));
        EXPECT_TRUE(makeDirRecursive("E:/a", 0700));
        EXPECT_FALSE(exists("C:/a"));
        EXPECT_TRUE(makeDirRecursive("F:", 0700));
        EXPECT_TRUE(isDirectory("F:"));
    });
    EXPECT_TRUE(child.exitedWith(0)) << child;
}

TEST_F(VQFileOperationsTest, AFileOnTheWayIsNoDirectory) {
    folder.write("file", "");
    EXPECT_FALSE(makeDirRecursive(pathOf(folder / "file/a"), 0700));
    EXPECT_EQ(ENOTDIR, errno);
    EXPECT_FALSE(makeDirRecursive(pathOf(folder / "file/a/b"), 0700));
    EXPECT_EQ(ENOTDIR, errno);
}

TEST_F(VQFileOperationsTest, MakesAPathOfFullLength) {
    std::string path = folder.path();
    const std::string first = folder / "dddddddd";
    while (path.size() + 18 <= 1023)
        path += "/dddddddd";
    path += '/' + std::string(1022 - path.size(), 'e');
    EXPECT_TRUE(makeDirRecursive(pathOf(path), 0700));
    EXPECT_TRUE(isDirectory(path));
    EXPECT_FALSE(makeDirRecursive(pathOf(path + "/e/e"), 0700)) << "an invalid path has no branch to be made";
    EXPECT_EQ(ENOENT, errno);
    EXPECT_TRUE(recursiveRemove(pathOf(first)));
    EXPECT_THAT(folder.list(), IsEmpty());
}

TEST_F(VQFileOperationsTest, RemovesTenThousandEntries) {
    const std::string tree = folder / "tree";
    const std::string file = folder.write("file", "");
    ASSERT_TRUE(makeDir(pathOf(tree), 0700));
    for (int i = 0; i < 10000; ++i) {
        const std::string name = tree + '/' + std::to_string(i);
        // A second name of one file costs the disk less than a file.
        ASSERT_EQ(0, i % 100 == 0 ? mkdir(name.c_str(), 0700) : link(file.c_str(), name.c_str()));
    }
    EXPECT_TRUE(recursiveRemove(pathOf(tree)));
    EXPECT_EQ(0, errno);
    EXPECT_THAT(folder.list(), ElementsAre("file"));
}

TEST_F(VQFileOperationsTest, RemovesFilesOfAllKindsAndNames) {
    const std::string tree = folder / "tree";
    ASSERT_TRUE(makeDirRecursive(pathOf(tree + "/a/b"), 0700));
    folder.write("tree/a/b/file", "text");
    folder.write("tree/...", "");
    folder.write("tree/.hidden", "");
    folder.write("tree/\xFF%s\n", "");
    ASSERT_EQ(0, mkfifo((tree + "/fifo").c_str(), 0600));
    EXPECT_TRUE(recursiveRemove(pathOf(tree)));
    EXPECT_TRUE(recursiveRemove(pathOf(folder.write("file", ""))));
    EXPECT_THAT(folder.list(), IsEmpty());
    EXPECT_FALSE(recursiveRemove(pathOf(tree)));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_FALSE(recursiveRemove(""));
    EXPECT_EQ(ENOENT, errno);
}

TEST_F(VQFileOperationsTest, RemovesLinksAndNotWhatTheyLeadTo) {
    ASSERT_TRUE(makeDir(pathOf(folder / "kept"), 0700));
    folder.write("kept/file", "");
    ASSERT_TRUE(makeDir(pathOf(folder / "tree"), 0700));
    ASSERT_TRUE(createSymlink("../kept", pathOf(folder / "tree/link")));
    ASSERT_TRUE(createSymlink("kept", pathOf(folder / "link")));
    EXPECT_TRUE(recursiveRemove(pathOf(folder / "tree")));
    EXPECT_TRUE(recursiveRemove(pathOf(folder / "link")));
    EXPECT_THAT(folder.list(), ElementsAre("kept"));
    EXPECT_TRUE(exists(folder / "kept/file"));
}

TEST_F(VQFileOperationsTest, ALinkThatMayNotBeRemovedIsNotFollowedEither) {
    ASSERT_TRUE(makeDir(pathOf(folder / "open"), 0700));
    folder.write("open/file", "");
    ASSERT_TRUE(createSymlink("open", pathOf(folder / "link")));
    chmod((folder / "open").c_str(), 0777);
    const support::ChildResult child = asNobody(folder, [&] {
        EXPECT_FALSE(recursiveRemove("link"));
        EXPECT_EQ(EACCES, errno);
    });
    EXPECT_TRUE(child.exitedWith(0)) << child;
    EXPECT_TRUE(exists(folder / "open/file"));
}

TEST_F(VQFileOperationsTest, Kept_AFileThatMayNotBeRemovedIsNoDirectory) {
    folder.write("file", "");
    const support::ChildResult child = asNobody(folder, [&] {
        EXPECT_FALSE(recursiveRemove("file"));
        EXPECT_EQ(ENOTDIR, errno);
    });
    EXPECT_TRUE(child.exitedWith(0)) << child;
    EXPECT_THAT(folder.list(), ElementsAre("file"));
}

TEST_F(VQFileOperationsTest, TheFirstFailureEndsTheRemovalAndClosesAllDirectories) {
    ASSERT_TRUE(makeDirRecursive(pathOf(folder / "a/b/c"), 0700));
    folder.write("a/b/c/file", "");
    const auto failOn = [&](const char* name, int error, int nth) {
        const std::set<int> before = files::openDescriptors();
        doubles::CallScript script(name, [&](int call) { return call == nth ? error : 0; });
        EXPECT_FALSE(recursiveRemove(pathOf(folder / "a"))) << name;
        EXPECT_EQ(error, errno) << name;
        EXPECT_EQ(nth, script.calls()) << name;
        EXPECT_EQ(before, files::openDescriptors()) << name;
    };
    failOn("opendir", EMFILE, 3);
    failOn("readdir64", EIO, 5);
    EXPECT_TRUE(exists(folder / "a/b/c"));
    failOn("rmdir", EBUSY, 1);
    EXPECT_TRUE(isDirectory(folder / "a/b/c"));
    EXPECT_TRUE(recursiveRemove(pathOf(folder / "a")));
}

TEST_F(VQFileOperationsTest, RunsOutOfDescriptorsWithoutLosingAny) {
    std::string path = folder / "a";
    ASSERT_TRUE(makeDir(pathOf(path), 0700));
    for (int i = 0; i < 50; ++i)
        ASSERT_TRUE(makeDir(pathOf(path += "/d"), 0700));
    const support::ChildResult child = support::runInChild([&] {
        const std::set<int> before = files::openDescriptors();
        const rlimit limit = {40, 40};
        ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
        EXPECT_FALSE(recursiveRemove(pathOf(folder / "a")));
        EXPECT_EQ(EMFILE, errno);
        EXPECT_EQ(before, files::openDescriptors());
    });
    EXPECT_TRUE(child.exitedWith(0)) << child;
    EXPECT_TRUE(isDirectory(path));
    EXPECT_TRUE(recursiveRemove(pathOf(folder / "a")));
}

TEST_F(VQFileOperationsTest, ANameThatDoesNotFitIsAFailureAndNothingElseIsRemoved) {
    const support::ChildResult child = support::runInChild([&] {
        std::string path = folder.path();
        ASSERT_TRUE(changeDir(pathOf(path)));
        while (path.size() + 201 < 1010) {
            const std::string name(200, 'd');
            ASSERT_TRUE(makeDir(pathOf(name), 0700));
            ASSERT_TRUE(changeDir(pathOf(name)));
            path += '/' + name;
        }
        const std::string name(1023 - path.size(), 'f');  // one too many, with its separator
        ASSERT_EQ(0, ::close(::open(name.c_str(), O_CREAT | O_WRONLY, 0600)));
        EXPECT_FALSE(recursiveRemove(pathOf(path)));
        EXPECT_EQ(ENAMETOOLONG, errno);
        EXPECT_TRUE(exists(name));

        ASSERT_TRUE(VQFileOperations::rename(pathOf(name), pathOf(name.substr(1))));
        EXPECT_TRUE(recursiveRemove(pathOf(folder.path() + '/' + std::string(200, 'd'))));
        EXPECT_FALSE(recursiveRemove(pathOf(std::string(1024, 'x'))));
        EXPECT_EQ(ENAMETOOLONG, errno);
    });
    EXPECT_TRUE(child.exitedWith(0)) << child;
    EXPECT_THAT(folder.list(), IsEmpty());
}

TEST_F(VQFileOperationsTest, EntriesThatCannotBeRemovedFromTheirDirectoryAreRemovedByTheirPath) {
    ASSERT_TRUE(makeDirRecursive(pathOf(folder / "a/b"), 0700));
    folder.write("a/b/file", "");
    doubles::CallScript script("unlinkat", [](int) { return ENOTDIR; });
    EXPECT_TRUE(recursiveRemove(pathOf(folder / "a")));
    EXPECT_EQ(2, script.calls());
    EXPECT_THAT(folder.list(), IsEmpty());
}

TEST_F(VQFileOperationsTest, DirectoriesAreClosedOnExecWhileTheyAreRead) {
    ASSERT_TRUE(makeDirRecursive(pathOf(folder / "a/b"), 0700));
    folder.write("a/b/file", "");
    int inherited = 0;
    int seen = 0;
    const std::set<int> before = files::openDescriptors();
    {
        doubles::CallScript script("unlinkat", [&](int) {
            for (const int descriptor : files::openDescriptors()) {
                if (before.count(descriptor) == 0) {
                    ++seen;
                    inherited += files::isClosedOnExec(descriptor) ? 0 : 1;
                }
            }
            return 0;
        });
        EXPECT_TRUE(recursiveRemove(pathOf(folder / "a")));
    }
    EXPECT_EQ(3, seen);  // one for b, two for the file
    EXPECT_EQ(0, inherited);
}

TEST_F(VQFileOperationsTest, AUniqueFileHasProcessThreadTimeAndCountInItsName) {
    CVQPath pattern = pathOf(folder / "a*b*c");
    CVQFileHandle handle;
    const long before = time(nullptr);
    ASSERT_TRUE(createUniqueFile(pattern, handle));
    const long after = time(nullptr);
    const std::string text = textOf(pattern);
    int pid = 0, tid = 0, end = 0;
    unsigned seconds = 0, count = 0;
    EXPECT_EQ(4, std::sscanf(text.c_str() + folder.path().size(), "/a*b%d-%d-%u-%uc%n", &pid, &tid, &seconds,
                             &count, &end));
    EXPECT_EQ(text.size() - folder.path().size(), static_cast<std::size_t>(end));
    EXPECT_EQ(getpid(), pid);
    EXPECT_EQ(gettid(), tid);
    EXPECT_LE(before, long(seconds));
    EXPECT_GE(after, long(seconds));

    EXPECT_EQ(3, ::write(handle.getDescriptor(), "abc", 3));
    char read[3] = {};
    EXPECT_EQ(3, ::pread(handle.getDescriptor(), read, 3, 0));
    EXPECT_EQ("abc", support::readFile(text));
    EXPECT_TRUE(files::isClosedOnExec(handle.getDescriptor()));

    CVQPath next = pathOf(folder / "a*");
    ASSERT_TRUE(createUniqueFile(next, handle));  // closes the first
    unsigned nextCount = 0;
    EXPECT_EQ(1, std::sscanf(textOf(next).c_str() + folder.path().size(), "/a%*d-%*d-%*u-%u", &nextCount));
    EXPECT_EQ(count + 1, nextCount);
}

TEST_F(VQFileOperationsTest, APatternNeedsAStarInItsLeaf) {
    CVQFileHandle handle("/", O_RDONLY);
    const int descriptor = handle.getDescriptor();
    for (const std::string& text :
         {folder / "a", folder / "*/a", std::string(), std::string("/"), folder / ("*" + std::string(1024, 'a'))}) {
        CVQPath pattern = pathOf(text);
        errno = 0;
        EXPECT_FALSE(createUniqueFile(pattern, handle));
        EXPECT_EQ(EINVAL, errno);
        EXPECT_EQ(text, textOf(pattern));
        EXPECT_EQ(descriptor, handle.getDescriptor());
    }
    EXPECT_THAT(folder.list(), IsEmpty());
}

TEST_F(VQFileOperationsTest, ANameThatDoesNotFitIsAnInvalidPattern) {
    CVQFileHandle handle("/", O_RDONLY);
    CVQPath pattern = pathOf(folder.path() + std::string(1015 - folder.path().size(), '/') + "a*");
    const std::string text = textOf(pattern);
    doubles::CallScript script("open", [](int) { return 0; });
    EXPECT_FALSE(createUniqueFile(pattern, handle));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(0, script.calls());
    EXPECT_EQ(text, textOf(pattern));
    EXPECT_FALSE(handle.isOpen());
}

TEST_F(VQFileOperationsTest, ANameThatIsTakenIsTriedWithTheNextCount) {
    std::vector<std::string> tried;
    CVQPath pattern = pathOf(folder / "a*");
    CVQFileHandle handle;
    doubles::CallScript script("open", [&](int nth) {
        tried.push_back(textOf(pattern));
        return nth <= 20 ? EEXIST : 0;
    });
    ASSERT_TRUE(createUniqueFile(pattern, handle));
    EXPECT_EQ(21, script.calls());
    EXPECT_EQ(21U, std::set<std::string>(tried.begin(), tried.end()).size());
    EXPECT_EQ(tried.back(), textOf(pattern));
    EXPECT_TRUE(exists(textOf(pattern)));
}

TEST_F(VQFileOperationsTest, AnyOtherFailureEndsTheAttempts) {
    CVQPath pattern = pathOf(folder / "none/a*");
    CVQFileHandle handle;
    EXPECT_FALSE(createUniqueFile(pattern, handle));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_FALSE(handle.isOpen());
    pattern = pathOf(folder / "a*/");
    EXPECT_FALSE(createUniqueFile(pattern, handle)) << "the separator at the end belongs to the leaf";
    EXPECT_THAT(folder.list(), IsEmpty());
}

TEST_F(VQFileOperationsTest, Kept_ABarePatternNamesAFileInTheRoot) {
    CVQPath pattern("marlix*");
    CVQFileHandle handle;
    doubles::CallScript script("open", [](int) { return EROFS; });
    EXPECT_FALSE(createUniqueFile(pattern, handle));
    EXPECT_THAT(textOf(pattern), StartsWith("/marlix" + std::to_string(getpid()) + '-'));
    pattern = "/marlix*";
    EXPECT_FALSE(createUniqueFile(pattern, handle));
    EXPECT_THAT(textOf(pattern), StartsWith("//marlix" + std::to_string(getpid()) + '-'));
}

TEST_F(VQFileOperationsTest, ManyProcessesAndThreadsGetFilesOfTheirOwn) {
    constexpr int kProcesses = 8;
    constexpr int kThreads = 4;
    constexpr int kFiles = 10;
    int go[2];
    ASSERT_EQ(0, pipe2(go, O_CLOEXEC));
    std::vector<pid_t> children;
    for (int i = 0; i < kProcesses; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            ::close(go[1]);
            char end;
            (void)!::read(go[0], &end, 1);  // all begin together, when the pipe is closed
            bool failed = false;
            std::vector<std::thread> threads;
            for (int t = 0; t < kThreads; ++t) {
                threads.emplace_back([&] {
                    for (int f = 0; f < kFiles; ++f) {
                        CVQPath pattern = pathOf(folder / "*.tmp");
                        CVQFileHandle handle;
                        if (!createUniqueFile(pattern, handle) || ::write(handle.getDescriptor(), "x", 1) != 1)
                            __atomic_store_n(&failed, true, __ATOMIC_RELAXED);
                    }
                });
            }
            for (std::thread& thread : threads)
                thread.join();
            _exit(failed ? 1 : 0);
        }
        children.push_back(child);
    }
    ::close(go[0]);
    ::close(go[1]);
    for (const pid_t child : children) {
        int status = -1;
        EXPECT_EQ(child, waitpid(child, &status, 0));
        EXPECT_EQ(0, status);
    }
    const std::vector<std::string> names = folder.list();
    EXPECT_EQ(std::size_t(kProcesses * kThreads * kFiles), names.size());
    for (const std::string& name : names)
        ASSERT_EQ("x", support::readFile(folder / name));
}

TEST_F(VQFileOperationsTest, NamesTheTypeOfAFileSystem) {
    char type[64];
    std::memset(type, 'X', sizeof type);
    ASSERT_TRUE(getFileSystemType("/proc", type, sizeof type));
    EXPECT_STREQ("proc", type);
    for (std::size_t i = 4; i < sizeof type; ++i)
        ASSERT_EQ('\0', type[i]) << i;
    EXPECT_TRUE(getFileSystemType("/proc", type, 5));
    EXPECT_FALSE(getFileSystemType(pathOf(folder / "none"), type, sizeof type));
    EXPECT_EQ(ENOENT, errno);
}

TEST_F(VQFileOperationsTest, ATypeThatDoesNotFitIsInvalid) {
    char type[] = "XXXXXX";
    EXPECT_FALSE(getFileSystemType("/proc", type, 4));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_STREQ("procXX", type);
    EXPECT_FALSE(getFileSystemType("/proc", type, 1));
    EXPECT_EQ(EINVAL, errno);
    errno = 0;
    EXPECT_FALSE(getFileSystemType("/proc", type, 0));
    EXPECT_EQ(EINVAL, errno);
    errno = 0;
    EXPECT_FALSE(getFileSystemType("/proc", nullptr, 10));
    EXPECT_EQ(EINVAL, errno);
}

TEST_F(VQFileOperationsTest, EveryCallIsMadeAgainAfterInterruptions) {
    const std::string file = folder.write("file", "");
    const CVQPath path = pathOf(file);
    const CVQPath other = pathOf(folder / "other");
    const struct {
        const char* call;
        std::function<bool()> operation;
    } kRows[] = {
        {"chdir", [&] { return changeDir("."); }},
        {"access", [&] { return isGranted(path, F_OK, nullptr); }},
        {"getcwd", [&] { return getCurrentDir().isValid(); }},
        {"chmod", [&] { return setPermissions(path, 0600); }},
        {"symlink", [&] { return createSymlink("file", other); }},
        {"stat64",
         [&] {
             CVQFileStatus status;
             return getFileStatus(other, status);
         }},
        {"lstat64",
         [&] {
             CVQFileStatus status;
             return getSymlinkStatus(other, status);
         }},
        {"rename", [&] { return VQFileOperations::rename(other, pathOf(folder / "renamed")); }},
        {"unlink", [&] { return recursiveRemove(pathOf(folder / "renamed")); }},
        {"mkdir", [&] { return makeDir(other, 0700); }},
        {"unlinkat", [&] { return createSymlink("a", other / "b") && recursiveRemove(other); }},
        {"mkdir", [&] { return makeDir(other, 0700); }},
        {"remove", [&] { return VQFileOperations::remove(other); }},
        {"mkdir", [&] { return makeDirRecursive(other / "a/b", 0700); }},
        {"opendir", [&] { return recursiveRemove(other / "a/b"); }},
        {"readdir64", [&] { return recursiveRemove(other / "a"); }},
        {"rmdir", [&] { return recursiveRemove(other); }},
        {"lstat64", [&] { return makeDir(other, 0700) && recursiveRemove(other); }},
        {"open",
         [&] {
             CVQPath pattern = pathOf(folder / "*");
             CVQFileHandle handle;
             return createUniqueFile(pattern, handle);
         }},
        {"nto_statvfs",
         [&] {
             char type[64];
             return getFileSystemType(path, type, sizeof type);
         }},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.call);
        int expected = 0;  // interruptions of the first call, then of every second one
        doubles::CallScript script(row.call, [&](int nth) {
            const bool interrupts = nth <= 3 || nth % 2 == 0;
            expected += interrupts ? 1 : 0;
            return interrupts ? EINTR : 0;
        });
        EXPECT_TRUE(row.operation());
        EXPECT_LE(3, expected);
        EXPECT_LT(expected, script.calls());
    }
}

TEST_F(VQFileOperationsTest, AFailureAfterInterruptionsHasItsOwnReason) {
    CVQFileStatus status;
    doubles::CallScript script("stat64", [](int nth) { return nth <= 3 ? EINTR : 0; });
    EXPECT_FALSE(getFileStatus(pathOf(folder / "none"), status));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(4, script.calls());
}

TEST_F(VQFileOperationsTest, OperationsSurviveAStormOfSignals) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    const support::ChildResult child = support::runInChild([&] {
        sigaction(SIGALRM, &action, nullptr);  // without SA_RESTART
        const itimerval often = {{0, 200}, {0, 200}};
        setitimer(ITIMER_REAL, &often, nullptr);
        for (int i = 0; i < 40; ++i) {
            const CVQPath tree = pathOf(folder / "storm");
            ASSERT_TRUE(makeDirRecursive(tree / "a/b", 0700));
            CVQPath pattern = tree / "a/*";
            CVQFileHandle handle;
            ASSERT_TRUE(createUniqueFile(pattern, handle));
            ASSERT_TRUE(recursiveRemove(tree));
        }
    });
    EXPECT_TRUE(child.exitedWith(0)) << child;
}

}  // namespace
