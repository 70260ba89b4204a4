// Sanitizers: what a test cannot do under one.
#pragma once

#if defined(__SANITIZE_THREAD__)
#define SUPPORT_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define SUPPORT_THREAD_SANITIZER 1
#endif
#endif
#ifndef SUPPORT_THREAD_SANITIZER
#define SUPPORT_THREAD_SANITIZER 0
#endif

/// The thread sanitizer waits for ever for the end of a thread that did not end by its own return.
#define NEEDS_THREADS_THAT_VANISH()                                                                                \
    do {                                                                                                           \
        if (SUPPORT_THREAD_SANITIZER)                                                                              \
            GTEST_SKIP() << "the sanitizer loses track of threads that vanish";                                    \
    } while (false)
