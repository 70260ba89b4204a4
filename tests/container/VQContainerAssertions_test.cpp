// Concerns: the message of each code and of none; the file text of each front end; each check on both sides of each of
// its limits.
#include "container/Reports.h"

#include <VQContainerAssertions.h>

#include <climits>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using VQContainerAssertions::ErrorCode;

TEST(VQContainerAssertions, EachCodeReportsItsMessage) {
    Reports reports;
    for (const int code : {1, 2, 3})
        VQContainerAssertions::reportAssertion(ErrorCode(code), "TVQAnything", 17);
    EXPECT_THAT(reports.take(), ElementsAre(assertion("TVQAnything", 17, "Invalid parameter"),
                                            assertion("TVQAnything", 17, "Invalid iterator position"),
                                            assertion("TVQAnything", 17, "Invalid internal state")));
}

// id: container-our-of-range
TEST(VQContainerAssertions, Kept_CodeZeroSaysOurOfRange) {
    Reports reports;
    VQContainerAssertions::reportAssertion(VQContainerAssertions::INDEX_OUT_OF_RANGE, "TVQAnything", 17);
    EXPECT_EQ(0, VQContainerAssertions::INDEX_OUT_OF_RANGE);
    EXPECT_THAT(reports.take(), ElementsAre(assertion("TVQAnything", 17, "Index our of range")));
}

TEST(VQContainerAssertions, WithoutAFileTheReportSaysSo) {
    Reports reports;
    VQContainerAssertions::reportAssertion(VQContainerAssertions::INVALID_PARAMETER);
    EXPECT_THAT(reports.take(), ElementsAre(assertion("<unknown file>", 0, "Invalid parameter")));
}

TEST(VQContainerAssertions, ACodeThatIsNoneIsAnInvalidState) {
    Reports reports;
    for (const int code : {-1, 4})
        VQContainerAssertions::reportAssertion(ErrorCode(code), "TVQAnything", 1);
    EXPECT_THAT(reports.take(), ElementsAre(assertion("TVQAnything", 1, "Invalid internal state"),
                                            assertion("TVQAnything", 1, "Invalid internal state")));
}

TEST(VQContainerAssertions, EachFrontEndNamesItsTemplateAndReturnsFalse) {
    Reports reports;
    const ErrorCode code = VQContainerAssertions::INVALID_ITERATOR_POSITION;
    EXPECT_FALSE(VQVectorAssertions::doAssert(code, 1));
    EXPECT_FALSE(VQPtrVectorAssertions::doAssert(code, 2));
    EXPECT_FALSE(VQQueueAssertions::doAssert(code, 3));
    EXPECT_FALSE(VQConstRefCountedVectorAssertions::doAssert(code, 4));
    EXPECT_FALSE(VQListAssertions::doAssert(code, 5));
    EXPECT_THAT(reports.take(), ElementsAre(assertion("TVQVector", 1, "Invalid iterator position"),
                                            assertion("TVQPtrVector", 2, "Invalid iterator position"),
                                            assertion("TVQQueue", 3, "Invalid iterator position"),
                                            assertion("TVQConstRefCountedVector", 4, "Invalid iterator position"),
                                            assertion("TVQList", 5, "Invalid iterator position")));
}

// id: vector-get-parameter
TEST(VQVectorAssertions, Kept_AnIndexOutOfRangeIsAnInvalidParameter) {
    Reports reports;
    EXPECT_TRUE(VQVectorAssertions::checkGet(0, 1, 9));
    EXPECT_TRUE(VQVectorAssertions::checkGet(INT_MAX - 1, INT_MAX, 9));
    EXPECT_THAT(reports.take(), IsEmpty());
    for (const int index : {-1, INT_MIN, 3, INT_MAX})
        EXPECT_FALSE(VQVectorAssertions::checkGet(index, 3, 9));
    EXPECT_FALSE(VQVectorAssertions::checkGet(0, 0, 9));
    EXPECT_EQ(std::vector<std::string>(5, assertion("TVQVector", 9, "Invalid parameter")), reports.take());
}

TEST(VQVectorAssertions, ANegativeNewSizeIsAnInvalidParameter) {
    Reports reports;
    EXPECT_TRUE(VQVectorAssertions::checkResize(0, 9));
    EXPECT_TRUE(VQVectorAssertions::checkResize(INT_MAX, 9));
    EXPECT_THAT(reports.take(), IsEmpty());
    EXPECT_FALSE(VQVectorAssertions::checkResize(-1, 9));
    EXPECT_THAT(reports.take(), ElementsAre(assertion("TVQVector", 9, "Invalid parameter")));
}

// id: vector-erase-spelling
TEST(VQVectorAssertions, Kept_OnlyErasingSpellsOutOfRangeRight) {
    Reports reports;
    EXPECT_TRUE(VQVectorAssertions::checkErase(0, 0, 1, 9));
    EXPECT_TRUE(VQVectorAssertions::checkErase(0, 4, 5, 9));
    EXPECT_THAT(reports.take(), IsEmpty());
    EXPECT_FALSE(VQVectorAssertions::checkErase(-1, 0, 5, 9));
    EXPECT_FALSE(VQVectorAssertions::checkErase(0, 5, 5, 9));
    EXPECT_FALSE(VQVectorAssertions::checkErase(0, 0, 0, 9));
    EXPECT_FALSE(VQVectorAssertions::checkErase(6, 5, 5, 9));
    EXPECT_EQ(std::vector<std::string>(4, assertion("TVQVector", 9, "Index out of range")), reports.take());
    EXPECT_FALSE(VQVectorAssertions::checkErase(2, 1, 5, 9));
    EXPECT_FALSE(VQVectorAssertions::checkErase(5, 4, 5, 9));
    EXPECT_FALSE(VQVectorAssertions::checkErase(0, -1, 5, 9));
    EXPECT_EQ(std::vector<std::string>(3, assertion("TVQVector", 9, "Invalid parameter")), reports.take());
}

TEST(VQVectorAssertions, AnInsertionNeedsAPositionAndItems) {
    Reports reports;
    const int item = 0;
    EXPECT_TRUE(VQVectorAssertions::checkInsert(0, &item, 0, 9));
    EXPECT_TRUE(VQVectorAssertions::checkInsert(5, &item, 5, 9));
    EXPECT_THAT(reports.take(), IsEmpty());
    EXPECT_FALSE(VQVectorAssertions::checkInsert(6, &item, 5, 9));
    EXPECT_FALSE(VQVectorAssertions::checkInsert(-1, nullptr, 5, 9));
    EXPECT_EQ(std::vector<std::string>(2, assertion("TVQVector", 9, "Index our of range")), reports.take());
    EXPECT_FALSE(VQVectorAssertions::checkInsert(5, nullptr, 5, 9));
    EXPECT_THAT(reports.take(), ElementsAre(assertion("TVQVector", 9, "Invalid parameter")));
}

TEST(VQListAssertions, ANullNodeIsAnInvalidIteratorPosition) {
    Reports reports;
    int node = 0;
    EXPECT_TRUE(VQListAssertions::checkNode(reinterpret_cast<const CVQListNodeBase*>(&node), 9));
    EXPECT_THAT(reports.take(), IsEmpty());
    EXPECT_FALSE(VQListAssertions::checkNode(nullptr, 9));
    EXPECT_THAT(reports.take(), ElementsAre(assertion("TVQList", 9, "Invalid iterator position")));
}

}  // namespace
