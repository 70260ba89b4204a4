// CVQMutex and VQMutexAccess::lock beside the locks in CVQMutex_peers.cpp.
#include "Locks.h"

#include <CVQMutex.h>
#include <VQMutexAccess.h>

namespace {

void lockFor(benchmark::State& state, int timeoutMs) {
    CVQMutex mutex(/*unlocked*/ true, CVQMutex::RECURSIVE);
    bench::check(VQMutexAccess::lock(mutex, timeoutMs), "lock");
    mutex.unlock();
    for (auto _ : state) {
        benchmark::DoNotOptimize(VQMutexAccess::lock(mutex, timeoutMs));
        benchmark::ClobberMemory();
        mutex.unlock();
    }
}
MARLIX_BENCH("CVQMutex_LockUnlockRecursive", "ours", 1) {
    lockFor(state, -1);
}
MARLIX_BENCH("CVQMutex_LockWithTimeout", "ours", 1) {
    lockFor(state, 1000);
}
MARLIX_BENCH("CVQMutex_TryLock", "ours", 1) {
    lockFor(state, 0);
}

}  // namespace
