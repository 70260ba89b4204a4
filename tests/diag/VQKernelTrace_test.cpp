// VQKernelTrace: what reaches the kernel, what does not, and which refusals count as success.
#include <VQKernelTrace.h>

#include "NeutrinoDoubles.h"

#include <sys/trace.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>

TEST(VQKernelTrace, PassesASimpleEventToTheKernel) {
    doubles::TraceRecorder kernel;
    EXPECT_TRUE(VQKernelTrace::addSimpleUserEvent(3, -7, INT_MAX));
    ASSERT_EQ(kernel.calls.size(), 1U);
    EXPECT_EQ(kernel.calls[0].command, 0x4000001e);
    EXPECT_EQ(kernel.calls[0].event, 3);
    EXPECT_EQ(kernel.calls[0].value1, -7);
    EXPECT_EQ(kernel.calls[0].value2, INT_MAX);
}

TEST(VQKernelTrace, PassesAComplexEventToTheKernel) {
    doubles::TraceRecorder kernel;
    char data[5] = {};
    EXPECT_TRUE(VQKernelTrace::addComplexUserEvent(3, data, 5));
    EXPECT_TRUE(VQKernelTrace::addComplexUserEvent(4, data, UINT_MAX));
    ASSERT_EQ(kernel.calls.size(), 2U);
    EXPECT_EQ(kernel.calls[0].command, 0x4000001f);
    EXPECT_EQ(kernel.calls[0].event, 3);
    EXPECT_EQ(kernel.calls[0].data, data);
    EXPECT_EQ(kernel.calls[0].length, 5U);
    EXPECT_EQ(kernel.calls[1].length, UINT_MAX);
}

TEST(VQKernelTrace, PassesAStringEventToTheKernel) {
    doubles::TraceRecorder kernel;
    const char text[] = "text";
    EXPECT_TRUE(VQKernelTrace::addStringUserEvent(3, text));
    EXPECT_TRUE(VQKernelTrace::addStringUserEvent(4, ""));
    ASSERT_EQ(kernel.calls.size(), 2U);
    EXPECT_EQ(kernel.calls[0].command, 0x30000020);
    EXPECT_EQ(kernel.calls[0].event, 3);
    EXPECT_EQ(kernel.calls[0].text, text);
}

TEST(VQKernelTrace, DoesNotAskTheKernelForAnEventWithoutContent) {
    doubles::TraceRecorder kernel;
    char data[1] = {};
    EXPECT_FALSE(VQKernelTrace::addComplexUserEvent(3, nullptr, 1));
    EXPECT_FALSE(VQKernelTrace::addComplexUserEvent(3, data, 0));
    EXPECT_FALSE(VQKernelTrace::addComplexUserEvent(3, nullptr, 0));
    EXPECT_FALSE(VQKernelTrace::addStringUserEvent(3, nullptr));
    EXPECT_TRUE(kernel.calls.empty());
}

TEST(VQKernelTrace, Kept_CountsAKernelWithoutInstrumentationAsSuccess) {
    // id: trace-enotsup
    doubles::TraceRecorder kernel;
    char data[1] = {};
    kernel.result = -1;
    kernel.error = ENOTSUP;
    errno = EXDEV;
    EXPECT_TRUE(VQKernelTrace::addSimpleUserEvent(3, 1, 2));
    EXPECT_TRUE(VQKernelTrace::addComplexUserEvent(3, data, 1));
    EXPECT_TRUE(VQKernelTrace::addStringUserEvent(3, "text"));
    EXPECT_EQ(kernel.calls.size(), 3U);
    EXPECT_EQ(errno, EXDEV);
}

TEST(VQKernelTrace, FailsWithTheKernelsReasonOtherwise) {
    doubles::TraceRecorder kernel;
    char data[1] = {};
    kernel.result = -1;
    for (const int error : {EFAULT, EPERM, ENOMEM, ECANCELED}) {
        kernel.error = error;
        errno = 0;
        EXPECT_FALSE(VQKernelTrace::addSimpleUserEvent(3, 1, 2));
        EXPECT_EQ(errno, error);
        EXPECT_FALSE(VQKernelTrace::addComplexUserEvent(3, data, 1));
        EXPECT_FALSE(VQKernelTrace::addStringUserEvent(3, "text"));
        EXPECT_EQ(errno, error);
    }
}

TEST(VQKernelTrace, DoesNotTakeAnOldErrorForTheKernelsAnswer) {
    doubles::TraceRecorder kernel;
    kernel.calls.reserve(1);  // an allocation would clear errno
    errno = EFAULT;
    EXPECT_TRUE(VQKernelTrace::addSimpleUserEvent(3, 1, 2));
    EXPECT_EQ(errno, EFAULT);
}

TEST(VQKernelTrace, SucceedsOnThisMachine) {
    // With a tracer the event is written, without one the kernel has no instrumentation: true either way.
    char data[] = {1, 2, 3};
    EXPECT_TRUE(VQKernelTrace::addSimpleUserEvent(3, 1, 2));
    EXPECT_TRUE(VQKernelTrace::addComplexUserEvent(3, data, sizeof data));
    EXPECT_TRUE(VQKernelTrace::addStringUserEvent(3, "text"));
}
