// Concerns: command values; without a tracer; the line of each event; long and missing arguments; errno.
#include "PrivateMounts.h"

#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <sys/trace.h>

namespace {

constexpr char kFolder[] = "/sys/kernel/tracing";
constexpr char kMarker[] = "/sys/kernel/tracing/trace_marker";

void withoutTracer(const std::function<void()>& body) {
    const auto result = support::runInChild([&body] {
        if (!mountEmptyOver(kFolder))
            _exit(kNoMounts);
        mountEmptyOver("/sys/kernel/debug");
        body();
    });
    if (result.exitedWith(kNoMounts))
        GTEST_SKIP() << "no privilege to have a " << kFolder << " of one's own";
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

/// Runs with a plain file in the place of the tracer's; `traced` is what the call before wrote.
void withTracer(const std::function<void(const std::function<std::string()>& traced)>& body) {
    withoutTracer([&body] {
        close(open(kMarker, O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
        body([] {
            const std::string line = support::readFile(kMarker);
            EXPECT_EQ(0, truncate(kMarker, 0));
            return line;
        });
    });
}

TEST(TraceEvent, CommandsHaveTheNumbersOfThePlatform) {
    EXPECT_EQ(0x4000001e, _NTO_TRACE_INSERTSUSEREVENT);
    EXPECT_EQ(0x4000001f, _NTO_TRACE_INSERTCUSEREVENT);
    EXPECT_EQ(0x30000020, _NTO_TRACE_INSERTUSRSTREVENT);
}

TEST(TraceEvent, IsNotSupportedWithoutATracer) {
    withoutTracer([] {
        char data[4] = {};
        errno = 0;
        EXPECT_EQ(-1, TraceEvent(_NTO_TRACE_INSERTSUSEREVENT, 1, 2, 3));
        EXPECT_EQ(ENOTSUP, errno);
        errno = 0;
        EXPECT_EQ(-1, TraceEvent(_NTO_TRACE_INSERTCUSEREVENT, 1, data, 4u));
        EXPECT_EQ(ENOTSUP, errno);
        errno = 0;
        EXPECT_EQ(-1, TraceEvent(_NTO_TRACE_INSERTUSRSTREVENT, 1, "text"));
        EXPECT_EQ(ENOTSUP, errno);
    });
}

TEST(TraceEvent, OfOtherKindsAreNotSupported) {
    withTracer([](const auto& traced) {
        for (const int command : {0, 1, 0x4000001d, -1}) {
            errno = 0;
            EXPECT_EQ(-1, TraceEvent(command, 1, 2, 3));
            EXPECT_EQ(ENOTSUP, errno);
        }
        EXPECT_EQ("", traced());
    });
}

TEST(TraceEvent, WritesASimpleEvent) {
    withTracer([](const auto& traced) {
        EXPECT_EQ(0, TraceEvent(_NTO_TRACE_INSERTSUSEREVENT, 42, -1, INT32_MAX));
        EXPECT_EQ("nto event=42 value1=-1 value2=2147483647\n", traced());
    });
}

TEST(TraceEvent, WritesAComplexEvent) {
    withTracer([](const auto& traced) {
        unsigned char data[401] = {0x00, 0x1F, 0xFF};
        EXPECT_EQ(0, TraceEvent(_NTO_TRACE_INSERTCUSEREVENT, 7, data, 3u));
        EXPECT_EQ("nto event=7 data=001fff\n", traced());
        EXPECT_EQ(0, TraceEvent(_NTO_TRACE_INSERTCUSEREVENT, 7, data, 400u));
        const std::string all = "nto event=7 data=001fff" + std::string(2 * 397, '0') + "\n";
        EXPECT_EQ(all, traced());
        EXPECT_EQ(0, TraceEvent(_NTO_TRACE_INSERTCUSEREVENT, 7, data, 401u));
        EXPECT_EQ(all, traced());
        EXPECT_EQ(0, TraceEvent(_NTO_TRACE_INSERTCUSEREVENT, 7, nullptr, 0u));
        EXPECT_EQ("nto event=7 data=\n", traced());
    });
}

TEST(TraceEvent, WritesAStringEvent) {
    withTracer([](const auto& traced) {
        EXPECT_EQ(0, TraceEvent(_NTO_TRACE_INSERTUSRSTREVENT, -5, "a text"));
        EXPECT_EQ("nto event=-5 text=a text\n", traced());
        EXPECT_EQ(0, TraceEvent(_NTO_TRACE_INSERTUSRSTREVENT, -5, "two\nlines\n"));
        EXPECT_EQ("nto event=-5 text=two lines \n", traced());
        EXPECT_EQ(0, TraceEvent(_NTO_TRACE_INSERTUSRSTREVENT, -5, ""));
        EXPECT_EQ("nto event=-5 text=\n", traced());
        const std::string longer(2000, 'x');
        EXPECT_EQ(0, TraceEvent(_NTO_TRACE_INSERTUSRSTREVENT, -5, longer.c_str()));
        EXPECT_EQ("nto event=-5 text=" + longer.substr(0, 900) + "\n", traced());
    });
}

TEST(TraceEvent, OfMissingDataIsAFault) {
    withTracer([](const auto& traced) {
        const char* const noText = nullptr;
        EXPECT_EQ(-1, TraceEvent(_NTO_TRACE_INSERTUSRSTREVENT, 1, noText));
        EXPECT_EQ(EFAULT, errno);
        errno = 0;
        const void* const noData = nullptr;
        EXPECT_EQ(-1, TraceEvent(_NTO_TRACE_INSERTCUSEREVENT, 1, noData, 1u));
        EXPECT_EQ(EFAULT, errno);
        EXPECT_EQ("", traced());
    });
}

TEST(TraceEvent, KeepsErrnoWhenItSucceeds) {
    withTracer([](const auto&) {
        errno = 4711;
        EXPECT_EQ(0, TraceEvent(_NTO_TRACE_INSERTSUSEREVENT, 1, 2, 3));
        EXPECT_EQ(4711, errno);
    });
}

}  // namespace
