// Semaphores, wait conditions and barriers beside those in VQSemaphoreAccess_peers.cpp.
#include "Turns.h"

#include <CVQBarrier.h>
#include <CVQCountingSemaphore.h>
#include <CVQMutex.h>
#include <CVQWaitCondition.h>

namespace {

MARLIX_BENCH("VQSemaphoreAccess_PostWait", "ours", 1) {
    CVQCountingSemaphore semaphore(0, 10);
    semaphore.unlock();
    bench::check(semaphore.lock(0) && !semaphore.lock(0), "one unit");
    for (auto _ : state) {
        semaphore.unlock();
        benchmark::DoNotOptimize(semaphore.lock());
    }
}

struct Semaphore {
    CVQCountingSemaphore semaphore{0, 1};
    void post() { semaphore.unlock(); }
    void wait() { semaphore.lock(); }
};
MARLIX_BENCH_MANUAL("VQSemaphoreAccess_PingPongOneCpu", "ours", 2) {
    bench::pingPong<Semaphore>(state, bench::Place::ONE_CPU);
}
MARLIX_BENCH_MANUAL("VQSemaphoreAccess_PingPongTwoCpus", "ours", 2) {
    bench::pingPong<Semaphore>(state, bench::Place::TWO_CPUS);
}

struct Condition {
    CVQMutex mutex{/*unlocked*/ true, CVQMutex::NON_RECURSIVE};
    CVQWaitCondition condition;
    void lock() { mutex.lock(); }
    void unlock() { mutex.unlock(); }
    void wait() { condition.wait(mutex); }
    void signal() { condition.signal(); }
};
MARLIX_BENCH_MANUAL("CVQWaitCondition_PingPongOneCpu", "ours", 2) {
    bench::conditionPingPong<Condition>(state, bench::Place::ONE_CPU);
}
MARLIX_BENCH_MANUAL("CVQWaitCondition_PingPongTwoCpus", "ours", 2) {
    bench::conditionPingPong<Condition>(state, bench::Place::TWO_CPUS);
}
MARLIX_BENCH("CVQWaitCondition_SignalNobody", "ours", 1) {
    CVQWaitCondition condition;
    for (auto _ : state)
        benchmark::DoNotOptimize(condition.signal());
}

MARLIX_BENCH_MANUAL("CVQBarrier_Round", "ours", 2, 4) {
    bench::barrierRounds<CVQBarrier>(state);
}

}  // namespace
