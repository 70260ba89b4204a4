// The locks with a time-out that one would pick instead of CVQMutex and VQMutexAccess::lock.
#include "Locks.h"

#include <chrono>
#include <ctime>
#include <mutex>

#if BENCH_QT
#include <QMutex>
#endif
#if BENCH_POCO
#include <Poco/Mutex.h>
#endif

namespace {

struct GlibcRecursiveMutex {
    pthread_mutex_t mutex;
    GlibcRecursiveMutex() {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
        pthread_mutex_init(&mutex, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }
    ~GlibcRecursiveMutex() { pthread_mutex_destroy(&mutex); }
};

MARLIX_BENCH("CVQMutex_LockUnlockRecursive", "glibc recursive mutex", 1) {
    GlibcRecursiveMutex lock;
    for (auto _ : state) {
        pthread_mutex_lock(&lock.mutex);
        benchmark::ClobberMemory();
        pthread_mutex_unlock(&lock.mutex);
    }
}

// A time-out of one second as a caller has to write it: the deadline is computed first.
MARLIX_BENCH("CVQMutex_LockWithTimeout", "glibc clocklock, CLOCK_MONOTONIC", 1) {
    GlibcRecursiveMutex lock;
    for (auto _ : state) {
        timespec deadline;
        clock_gettime(CLOCK_MONOTONIC, &deadline);
        ++deadline.tv_sec;
        pthread_mutex_clocklock(&lock.mutex, CLOCK_MONOTONIC, &deadline);
        benchmark::ClobberMemory();
        pthread_mutex_unlock(&lock.mutex);
    }
}

MARLIX_BENCH("CVQMutex_LockWithTimeout", "floor: clock_gettime alone", 1) {
    timespec now;
    for (auto _ : state) {
        clock_gettime(CLOCK_MONOTONIC, &now);
        benchmark::DoNotOptimize(now);
    }
}

MARLIX_BENCH("CVQMutex_TryLock", "glibc recursive mutex", 1) {
    GlibcRecursiveMutex lock;
    for (auto _ : state) {
        benchmark::DoNotOptimize(pthread_mutex_trylock(&lock.mutex));
        pthread_mutex_unlock(&lock.mutex);
    }
}

MARLIX_BENCH("CVQMutex_LockUnlockRecursive", "std::recursive_mutex", 1) {
    bench::uncontended<std::recursive_mutex>(state);
}

template <class Lock>
void lockFor(benchmark::State& state) {
    Lock lock;
    for (auto _ : state) {
        benchmark::DoNotOptimize(lock.try_lock_for(std::chrono::seconds(1)));
        lock.unlock();
    }
}
MARLIX_BENCH("CVQMutex_LockWithTimeout", "std::recursive_timed_mutex", 1) {
    lockFor<std::recursive_timed_mutex>(state);
}

#if BENCH_QT
MARLIX_BENCH("CVQMutex_LockUnlockRecursive", "QRecursiveMutex", 1) {
    bench::uncontended<QRecursiveMutex>(state);
}
MARLIX_BENCH("CVQMutex_LockWithTimeout", "QRecursiveMutex", 1) {
    QRecursiveMutex lock;
    for (auto _ : state) {
        benchmark::DoNotOptimize(lock.tryLock(1000));
        lock.unlock();
    }
}
MARLIX_BENCH("CVQMutex_TryLock", "QRecursiveMutex", 1) {
    QRecursiveMutex lock;
    for (auto _ : state) {
        benchmark::DoNotOptimize(lock.tryLock(0));
        lock.unlock();
    }
}
#endif

#if BENCH_POCO
MARLIX_BENCH("CVQMutex_LockUnlockRecursive", "Poco::Mutex", 1) {
    bench::uncontended<Poco::Mutex>(state);
}
MARLIX_BENCH("CVQMutex_LockWithTimeout", "Poco::Mutex", 1) {
    Poco::Mutex lock;
    for (auto _ : state) {
        benchmark::DoNotOptimize(lock.tryLock(1000));
        lock.unlock();
    }
}
#endif

}  // namespace
