// Concerns: repeated calls, what errno is before and after, other predicates; the directory functions on real
// directories, on interrupted ones, with null places and on names without room.
#include <TVQErrnoSafeFunction.h>

#include "CallScript.h"
#include "Descriptors.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

namespace {

int sAttempts = 0;
int sErrnoBefore = -1;

/// Interrupted as often as it is told to, then its result.
int interruptedCall(int times, int result) {
    sErrnoBefore = errno;
    if (sAttempts++ < times) {
        errno = EINTR;
        return -1;
    }
    return result;
}

const char* interruptedPointer(int times) {
    if (sAttempts++ < times) {
        errno = EINTR;
        return nullptr;
    }
    return "there";
}

struct CIsNull {
    bool operator()(const char* result) const { return result == nullptr; }
};

TEST(TVQErrnoSafeFunction, CallsAgainUntilItWasNotInterrupted) {
    const TVQErrnoSafeFunction safe(&interruptedCall);
    for (const int times : {0, 1, 100}) {
        sAttempts = 0;
        EXPECT_EQ(7, safe(times, 7));
        EXPECT_EQ(times + 1, sAttempts);
        EXPECT_EQ(0, errno);
    }
}

TEST(TVQErrnoSafeFunction, OtherFailuresAreResults) {
    const auto fail = [](int error) {
        ++sAttempts;
        errno = error;
        return -1;
    };
    const TVQErrnoSafeFunction safe(+fail);
    for (const int error : {0, ENOENT, EAGAIN}) {
        sAttempts = 0;
        EXPECT_EQ(-1, safe(error));
        EXPECT_EQ(1, sAttempts);
        EXPECT_EQ(error, errno);
    }
}

TEST(TVQErrnoSafeFunction, Kept_ErrnoIsClearedBeforeEachAttempt) {
    errno = ENOENT;
    sAttempts = 0;
    TVQErrnoSafeFunction<int (*)(int, int)> safe(&interruptedCall);
    safe(1, 0);
    EXPECT_EQ(0, sErrnoBefore);
    EXPECT_EQ(0, errno);
}

TEST(TVQErrnoSafeFunction, ASuccessThatLeavesTheInterruptionsNumberIsASuccess) {
    const auto succeed = [] {
        ++sAttempts;
        errno = EINTR;
        return 0;
    };
    sAttempts = 0;
    EXPECT_EQ(0, TVQErrnoSafeFunction(+succeed)());
    EXPECT_EQ(1, sAttempts);
}

TEST(TVQErrnoSafeFunction, ThePredicateSaysWhatAFailureIs) {
    sAttempts = 0;
    EXPECT_STREQ("there", (TVQErrnoSafeFunction<const char* (*)(int), CIsNull>(&interruptedPointer)(3)));
    EXPECT_EQ(4, sAttempts);
    EXPECT_TRUE(CVQLtNullComp()(-1));
    EXPECT_TRUE(CVQLtNullComp()(-1LL));
    EXPECT_FALSE(CVQLtNullComp()(0));
    EXPECT_FALSE(CVQLtNullComp()(1));
}

struct SRoomyEntry {
    dirent64 entry;
    char room[256];  // on the target the name begins behind the structure
};

/// Reads a whole directory with one of the two readers.
template <class Entry>
std::set<std::string> namesIn(const std::string& path, int (*read)(DIR*, Entry*, Entry**)) {
    std::set<std::string> names;
    DIR* const directory = marlix_qnx_safe_opendir(path.c_str());
    if (directory == nullptr)
        return names;
    union {
        Entry entry;
        char room[sizeof(Entry) + 256];
    } place;
    Entry* found = nullptr;
    for (;;) {
        errno = ENOENT;
        EXPECT_EQ(0, read(directory, &place.entry, &found));
        if (found == nullptr)
            break;
        EXPECT_EQ(&place.entry, found);
        EXPECT_NE(0U, static_cast<unsigned>(found->d_ino != 0));
        names.insert(found->d_name);
    }
    EXPECT_EQ(0, marlix_qnx_safe_closedir(directory));
    return names;
}

/// The C library's own readdir refuses a directory whose offsets have no room in its entries: an emulated 32-bit
/// process on a disk of a 64-bit machine may meet one.
bool hasRoomForOffsets(const std::string& path) {
    DIR* const directory = opendir(path.c_str());
    errno = 0;
    const bool refused = readdir(directory) == nullptr && errno == EOVERFLOW;
    closedir(directory);
    EXPECT_TRUE(!refused || sizeof(void*) == 4);
    return !refused;
}

TEST(TVQErrnoSafeFunction, ReadsAWholeDirectory) {
    const support::TemporaryFolder folder;
    std::set<std::string> expected = {".", ".."};
    for (int i = 0; i < 100; ++i) {
        const std::string name = std::to_string(i) + std::string(static_cast<std::size_t>(i) * 2, 'x');
        folder.write(name, "");
        expected.insert(name);
    }
    folder.write(std::string(255, 'y'), "");
    expected.insert(std::string(255, 'y'));
    const std::set<int> before = files::openDescriptors();
    EXPECT_EQ(expected, namesIn(folder.path(), &marlix_qnx_safe_readdir64_r));
    if (hasRoomForOffsets(folder.path())) {
        EXPECT_EQ(expected, namesIn(folder.path(), &marlix_qnx_safe_readdir_r));
    }
    EXPECT_EQ(before, files::openDescriptors());
}

TEST(TVQErrnoSafeFunction, ReadsOnAfterInterruptions) {
    const support::TemporaryFolder folder;
    folder.write("a", "");
    const std::set<std::string> expected = {".", "..", "a"};
    const auto everySecond = [](int nth) { return nth % 2 == 1 ? EINTR : 0; };
    {
        doubles::CallScript script("readdir64", everySecond);
        EXPECT_EQ(expected, namesIn(folder.path(), &marlix_qnx_safe_readdir64_r));
        EXPECT_EQ(8, script.calls());
    }
    if (hasRoomForOffsets(folder.path())) {
        doubles::CallScript script("readdir", everySecond);
        EXPECT_EQ(expected, namesIn(folder.path(), &marlix_qnx_safe_readdir_r));
        EXPECT_EQ(8, script.calls());
    }
    doubles::CallScript script("opendir", [](int nth) { return nth <= 3 ? EINTR : 0; });
    EXPECT_EQ(expected, namesIn(folder.path(), &marlix_qnx_safe_readdir64_r));
    EXPECT_EQ(4, script.calls());
}

TEST(TVQErrnoSafeFunction, AReadThatFailsReturnsItsErrorAndANullResult) {
    DIR* const directory = marlix_qnx_safe_opendir("/");
    ASSERT_NE(nullptr, directory);
    {
        doubles::CallScript script("readdir64", [](int) { return EIO; });
        SRoomyEntry place;
        dirent64* found = &place.entry;
        EXPECT_EQ(EIO, marlix_qnx_safe_readdir64_r(directory, &place.entry, &found));
        EXPECT_EQ(nullptr, found);
    }
    EXPECT_EQ(0, marlix_qnx_safe_closedir(directory));
}

TEST(TVQErrnoSafeFunction, WithoutAPlaceNothingIsReadAndErrnoIsReturned) {
    DIR* const directory = marlix_qnx_safe_opendir("/");
    ASSERT_NE(nullptr, directory);
    {
        doubles::CallScript script("readdir64", [](int) { return 0; });
        SRoomyEntry place;
        dirent64* found = nullptr;
        for (const int error : {0, ENOENT}) {
            errno = error;
            EXPECT_EQ(error, marlix_qnx_safe_readdir64_r(directory, nullptr, &found));
            EXPECT_EQ(error, marlix_qnx_safe_readdir64_r(directory, &place.entry, nullptr));
            EXPECT_EQ(error, errno);
        }
        EXPECT_EQ(0, script.calls());
    }
    EXPECT_EQ(0, marlix_qnx_safe_closedir(directory));
}

TEST(TVQErrnoSafeFunction, OpendirTellsWhyItFails) {
    const support::TemporaryFolder folder;
    EXPECT_EQ(nullptr, marlix_qnx_safe_opendir((folder / "none").c_str()));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(nullptr, marlix_qnx_safe_opendir(folder.write("file", "").c_str()));
    EXPECT_EQ(ENOTDIR, errno);
}

TEST(TVQErrnoSafeFunction, AnInterruptedClosedirIsDoneAndNotRepeated) {
    const std::set<int> before = files::openDescriptors();
    DIR* const directory = marlix_qnx_safe_opendir("/");
    ASSERT_NE(nullptr, directory);
    {
        doubles::CallScript script("closedir", [](int) { return EINTR; });
        script.actsAnyway = true;
        EXPECT_EQ(0, marlix_qnx_safe_closedir(directory));
        EXPECT_EQ(0, errno);
        EXPECT_EQ(1, script.calls());
    }
    EXPECT_EQ(before, files::openDescriptors());
}

}  // namespace
