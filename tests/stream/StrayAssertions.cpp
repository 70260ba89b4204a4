// Fails every test of this program that leaves an assertion behind which no AssertionLog has seen.
#include <CVQAsserter.h>
#include <gtest/gtest.h>

namespace {

class StrayAssertions : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo& /*test*/) override { CVQAsserter::setOccuredAssertions(0); }
    void OnTestEnd(const testing::TestInfo& /*test*/) override {
        EXPECT_EQ(0u, CVQAsserter::getOccuredAssertions()) << "assertions that no AssertionLog was there for";
    }
};

[[maybe_unused]] const bool sAppended = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new StrayAssertions);
    return true;
}();

}  // namespace
