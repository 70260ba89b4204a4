// Sanitizers: what a test cannot do under one, or only less often.
#pragma once

#include "support/ChildProcess.h"

namespace support {

#if defined(__SANITIZE_THREAD__)
constexpr bool kIsThreadSanitized = true;
#else
constexpr bool kIsThreadSanitized = false;
#endif

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kIsSanitized = true;
#else
constexpr bool kIsSanitized = kIsThreadSanitized;
#endif

/// How many rounds of a random test: a fifth where each takes ten times as long, under a sanitizer or an emulator.
template <class Number>
Number roundsHere(Number all) {
    return kIsSanitized || isEmulated() ? all / 5 : all;
}

}  // namespace support

/// The thread sanitizer waits for ever for the end of a thread that did not end by its own return, and the address
/// sanitizer keeps what it knows of it for the next.
#define NEEDS_THREADS_THAT_VANISH()                                                                                \
    do {                                                                                                           \
        if (support::kIsSanitized)                                                                                 \
            GTEST_SKIP() << "the sanitizer loses track of threads that vanish";                                    \
    } while (false)

/// Nor does the thread sanitizer start threads in a forked child; neither does the emulator.
#define NEEDS_THREADS_AFTER_FORK()                                                                                 \
    do {                                                                                                           \
        if (support::kIsSanitized || support::isEmulated())                                                        \
            GTEST_SKIP() << "no threads can be started in a forked child here";                                    \
    } while (false)
