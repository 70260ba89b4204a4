// Concerns: made empty, removed whole, files to the byte, a child's exit leaves it alone.
#include "support/ChildProcess.h"
#include "support/ScopedEnvironment.h"
#include "support/TemporaryFolder.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <system_error>

namespace {

using namespace support;

bool exists(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0;
}

TEST(TemporaryFolder, IsEmptyAndOnesOwn) {
    const TemporaryFolder one;
    const TemporaryFolder other;
    EXPECT_NE(one.path(), other.path());
    EXPECT_TRUE(one.list().empty());
    struct stat status {};
    ASSERT_EQ(0, stat(one.path().c_str(), &status));
    EXPECT_EQ(0700u, status.st_mode & 0777u);
}

TEST(TemporaryFolder, IsRemovedWithAllItHolds) {
    std::string path;
    {
        const TemporaryFolder folder;
        path = folder.path();
        folder.write("file", "x");
        mkdir((folder / "inner").c_str(), 0700);
        folder.write("inner/file", "y");
    }
    EXPECT_FALSE(exists(path));
}

TEST(TemporaryFolder, FilesKeepEveryByte) {
    const TemporaryFolder folder;
    std::string bytes;
    for (int i = 0; i < 100000; ++i)
        bytes.push_back(static_cast<char>(i));
    EXPECT_EQ(bytes, readFile(folder.write("all", bytes)));
    EXPECT_EQ("", readFile(folder.write("none", "")));
    EXPECT_THAT(folder.list(), testing::ElementsAre("all", "none"));
}

TEST(TemporaryFolder, FollowsTMPDIR) {
    const TemporaryFolder outer;
    const ScopedEnvironment moved("TMPDIR", outer.path());
    const TemporaryFolder inner;
    EXPECT_EQ(0u, inner.path().rfind(outer.path() + '/', 0));
}

TEST(TemporaryFolder, OutlivesAChildThatExits) {
    const TemporaryFolder* folder = new TemporaryFolder;
    const std::string path = folder->path();
    EXPECT_TRUE(runInChild([folder] { delete folder; }).exitedWith(0));
    EXPECT_TRUE(exists(path));
    delete folder;
    EXPECT_FALSE(exists(path));
}

TEST(TemporaryFolder, WhatCannotBeReadOrWrittenThrows) {
    const TemporaryFolder folder;
    EXPECT_THROW(readFile(folder / "missing"), std::system_error);
    EXPECT_THROW(folder.write("missing/file", "x"), std::system_error);
    const ScopedEnvironment moved("TMPDIR", folder / "missing");
    try {
        const TemporaryFolder impossible;
        FAIL();
    } catch (const std::system_error& error) {
        EXPECT_EQ(ENOENT, error.code().value());
    }
}

}  // namespace
