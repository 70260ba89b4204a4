// Concerns: above the standard streams, close-on-exec there too, closed at the end, errno; programs that need none.
#include "Descriptor.h"

#include "file/Descriptors.h"
#include "support/ChildProcess.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <string>

namespace {

bool isOpen(int descriptor) {
    return fcntl(descriptor, F_GETFD) >= 0;
}

TEST(Descriptor, StaysAwayFromTheStandardStreams) {
    const auto result = support::runInChild([] {
        for (const int stream : {0, 1, 2}) {
            close(stream);
            const host::Descriptor descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
            const bool stayedAway = descriptor.get() > 2 && !isOpen(stream);
            const bool closesOnExec = fcntl(descriptor.get(), F_GETFD) == FD_CLOEXEC;
            if (!stayedAway || !closesOnExec)
                _exit(10 + stream);
        }
        _exit(0);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(Descriptor, IsClosedAtTheEndOfItsScope) {
    int number;
    {
        const host::Descriptor descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
        number = descriptor.get();
        ASSERT_TRUE(isOpen(number));
    }
    EXPECT_FALSE(isOpen(number));
}

TEST(Descriptor, KeepsTheReasonWhyThereIsNone) {
    const host::Descriptor descriptor(open("/no such folder/file", O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_FALSE(descriptor.isOpen());
}

// Not for what happens before main either. The standard streams it has from here.
TEST(Descriptor, AProgramThatOnlyUsesLocksAndStringsHasNone) {
    std::string inherited = "0 1 2 ";
    for (const int descriptor : files::openDescriptors())
        if (descriptor > STDERR_FILENO && !files::isClosedOnExec(descriptor))
            inherited += std::to_string(descriptor) + ' ';
    const auto result = support::runProgram(HOST_MESSAGE_PEER, {"locks"});
    EXPECT_TRUE(result.exitedWith(0)) << result;
    if (!support::isEmulated()) {  // the emulator may have some itself
        EXPECT_EQ(inherited, result.out);
    }
}

}  // namespace
