#include "support/ChildProcess.h"

#include <gtest/gtest.h>

namespace {

using namespace support;

TEST(interop, CountsAndReckons) {
    const ChildResult r = runProgram(INTEROP);
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_EQ("Wasser  3\nund     2\nWein    1\n"
              "2009-03-07 14:05:09 + 1 d 02:00:01.500000 = 2009-03-08 16:05:10\n"
              "a time-out of 1.2 ms waits for 2 ms\n",
              r.out);
    EXPECT_EQ("", r.err);
}

}  // namespace
