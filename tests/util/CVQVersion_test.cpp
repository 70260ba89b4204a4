// CVQVersion: three components and the shared invalid version.
#include <CVQVersion.h>

#include <gtest/gtest.h>

#include <type_traits>

static_assert(sizeof(CVQVersion) == 6 && std::is_trivially_copyable_v<CVQVersion> &&
              std::is_trivially_destructible_v<CVQVersion>);

TEST(CVQVersion, KeepsItsThreeComponents) {
    const CVQVersion version(1, 2, 65'535);
    const CVQVersion copy(version);
    EXPECT_EQ(copy.getMajor(), 1);
    EXPECT_EQ(copy.getMinor(), 2);
    EXPECT_EQ(copy.getRevision(), 65'535);
}

TEST(CVQVersion, TheInvalidVersionIsOneObjectOfZeros) {
    EXPECT_EQ(&CVQVersion::invalidVersion(), &CVQVersion::invalid);
    EXPECT_EQ(&CVQVersion::invalidVersion(), &CVQVersion::invalidVersion());
    EXPECT_EQ(CVQVersion::invalid.getMajor(), 0);
    EXPECT_EQ(CVQVersion::invalid.getMinor(), 0);
    EXPECT_EQ(CVQVersion::invalid.getRevision(), 0);
}
