// retryInterrupted: a call that fails with -1 and errno, made again while what ended it was a signal.
#pragma once

#include <cerrno>
#include <unistd.h>

template <class Call>
auto retryInterrupted(Call call) {
    for (;;) {
        const auto result = call();
        if (result != -1 || errno != EINTR) {
            return result;
        }
    }
}

/// 0, or -1 with a reason that is not EINTR. An attempt that was interrupted may have released the descriptor: it is not
/// the caller's any more then, and that the next attempt does not find it is no failure.
inline int closeDescriptor(int descriptor) {
    bool wasInterrupted = false;
    while (close(descriptor) == -1) {
        if (errno != EINTR) {
            return wasInterrupted && errno == EBADF ? 0 : -1;
        }
        wasInterrupted = true;
    }
    return 0;
}
