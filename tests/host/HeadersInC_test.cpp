// Concerns: every header compiles as C, and its calls have the linkage that C expects.
#include "support/SlogCapture.h"

#include <gtest/gtest.h>

extern "C" int headersInC(void);

namespace {

TEST(HeadersInC, CompileLinkAndWork) {
    support::SlogCapture log;
    EXPECT_EQ(0, headersInC());
    const auto records = log.records();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ("from C", records[0].text);
    EXPECT_EQ(10000u, records[0].code);
    EXPECT_EQ(1u, records[0].subCode);
}

}  // namespace
