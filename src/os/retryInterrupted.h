// retryInterrupted: a call that fails with -1 and errno, made again while what ended it was a signal.
#pragma once

#include <cerrno>

template <class Call>
auto retryInterrupted(Call call) {
    for (;;) {
        const auto result = call();
        if (result != -1 || errno != EINTR) {
            return result;
        }
    }
}
