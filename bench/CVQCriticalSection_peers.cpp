// The plain, non-recursive locks that one would pick instead of CVQCriticalSection.
#include "Locks.h"

#include <mutex>

#if BENCH_QT
#include <QMutex>
#endif
#if BENCH_POCO
#include <Poco/Mutex.h>
#endif
#if BENCH_ABSEIL
#include <absl/synchronization/mutex.h>
#endif
#if BENCH_GLIB
#include <glib.h>
#endif

namespace {

struct GlibcMutex {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    void lock() { pthread_mutex_lock(&mutex); }
    void unlock() { pthread_mutex_unlock(&mutex); }
};

#define LOCK_BENCHES(contender, Lock)                                                                              \
    MARLIX_BENCH_ALONE("CVQCriticalSection_LockUnlockAlone", contender, 1) {                                       \
        bench::uncontended<Lock>(state);                                                                           \
    }                                                                                                              \
    MARLIX_BENCH("CVQCriticalSection_LockUnlock", contender, 1) {                                                  \
        bench::uncontended<Lock>(state);                                                                           \
    }                                                                                                              \
    MARLIX_BENCH_MANUAL("CVQCriticalSection_Contended", contender, 2) {                                            \
        bench::contended<Lock>(state, 0);                                                                          \
    }                                                                                                              \
    MARLIX_BENCH_MANUAL("CVQCriticalSection_ContendedNowAndThen", contender, 2) {                                  \
        bench::contended<Lock>(state, 4);                                                                          \
    }

LOCK_BENCHES("glibc default mutex", GlibcMutex)
LOCK_BENCHES("std::mutex", std::mutex)
#if BENCH_QT
LOCK_BENCHES("QMutex", QMutex)
#endif
#if BENCH_POCO
LOCK_BENCHES("Poco::FastMutex", Poco::FastMutex)
#endif
#if BENCH_ABSEIL
struct AbseilMutex {
    absl::Mutex mutex;
    void lock() { mutex.Lock(); }
    void unlock() { mutex.Unlock(); }
};
LOCK_BENCHES("absl::Mutex", AbseilMutex)
#endif
#if BENCH_GLIB
struct GLibMutex {
    GMutex mutex;
    GLibMutex() { g_mutex_init(&mutex); }
    ~GLibMutex() { g_mutex_clear(&mutex); }
    void lock() { g_mutex_lock(&mutex); }
    void unlock() { g_mutex_unlock(&mutex); }
};
LOCK_BENCHES("GMutex", GLibMutex)
#endif

MARLIX_BENCH("CVQCriticalSection_LockUnlock", "floor: compare-exchange and exchange", 1) {
    std::atomic<unsigned> owner{0};
    for (auto _ : state) {
        unsigned free = 0;
        benchmark::DoNotOptimize(owner.compare_exchange_strong(free, 1, std::memory_order_acquire));
        benchmark::DoNotOptimize(owner.exchange(0, std::memory_order_release));
    }
}

MARLIX_BENCH("CVQCriticalSection_Contended", "floor: the work alone, unlocked", 2) {
    bench::workAlone(state);
}

}  // namespace
