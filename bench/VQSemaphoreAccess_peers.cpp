// What one would pick instead of semaphores, wait conditions and barriers of the library.
#include "Turns.h"

#include <pthread.h>
#include <semaphore.h>

#if BENCH_QT
#include <QSemaphore>
#endif

namespace {

// Bounded and with a count that others may look at, as ours is: the C library's semaphore has neither.
MARLIX_BENCH("VQSemaphoreAccess_PostWait", "sem_t and a mutex", 1) {
    sem_t semaphore;
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    sem_init(&semaphore, 0, 0);
    for (auto _ : state) {
        pthread_mutex_lock(&mutex);
        sem_post(&semaphore);
        pthread_mutex_unlock(&mutex);
        benchmark::DoNotOptimize(sem_wait(&semaphore));
    }
    sem_destroy(&semaphore);
}
MARLIX_BENCH("VQSemaphoreAccess_PostWait", "floor: sem_t", 1) {
    sem_t semaphore;
    sem_init(&semaphore, 0, 0);
    for (auto _ : state) {
        sem_post(&semaphore);
        benchmark::DoNotOptimize(sem_wait(&semaphore));
    }
    sem_destroy(&semaphore);
}

struct Semaphore {
    sem_t semaphore;
    Semaphore() { sem_init(&semaphore, 0, 0); }
    ~Semaphore() { sem_destroy(&semaphore); }
    void post() { sem_post(&semaphore); }
    void wait() { sem_wait(&semaphore); }
};
MARLIX_BENCH_MANUAL("VQSemaphoreAccess_PingPongOneCpu", "sem_t", 2) {
    bench::pingPong<Semaphore>(state, bench::Place::ONE_CPU);
}
MARLIX_BENCH_MANUAL("VQSemaphoreAccess_PingPongTwoCpus", "sem_t", 2) {
    bench::pingPong<Semaphore>(state, bench::Place::TWO_CPUS);
}

struct Condition {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    void lock() { pthread_mutex_lock(&mutex); }
    void unlock() { pthread_mutex_unlock(&mutex); }
    void wait() { pthread_cond_wait(&condition, &mutex); }
    void signal() { pthread_cond_signal(&condition); }
};
MARLIX_BENCH_MANUAL("CVQWaitCondition_PingPongOneCpu", "glibc condition", 2) {
    bench::conditionPingPong<Condition>(state, bench::Place::ONE_CPU);
}
MARLIX_BENCH_MANUAL("CVQWaitCondition_PingPongTwoCpus", "glibc condition", 2) {
    bench::conditionPingPong<Condition>(state, bench::Place::TWO_CPUS);
}
MARLIX_BENCH("CVQWaitCondition_SignalNobody", "glibc condition", 1) {
    Condition condition;
    for (auto _ : state)
        benchmark::DoNotOptimize(pthread_cond_signal(&condition.condition));
}

struct Barrier {
    pthread_barrier_t barrier;
    explicit Barrier(unsigned threads) { pthread_barrier_init(&barrier, nullptr, threads); }
    ~Barrier() { pthread_barrier_destroy(&barrier); }
    void wait() { pthread_barrier_wait(&barrier); }
};
MARLIX_BENCH_MANUAL("CVQBarrier_Round", "pthread_barrier", 2, 4) {
    bench::barrierRounds<Barrier>(state);
}

#if BENCH_QT
struct QtSemaphore {
    QSemaphore semaphore;
    void post() { semaphore.release(); }
    void wait() { semaphore.acquire(); }
};
MARLIX_BENCH("VQSemaphoreAccess_PostWait", "QSemaphore", 1) {
    QtSemaphore semaphore;
    for (auto _ : state) {
        semaphore.post();
        semaphore.wait();
    }
}
MARLIX_BENCH_MANUAL("VQSemaphoreAccess_PingPongOneCpu", "QSemaphore", 2) {
    bench::pingPong<QtSemaphore>(state, bench::Place::ONE_CPU);
}
MARLIX_BENCH_MANUAL("VQSemaphoreAccess_PingPongTwoCpus", "QSemaphore", 2) {
    bench::pingPong<QtSemaphore>(state, bench::Place::TWO_CPUS);
}
#endif

}  // namespace
