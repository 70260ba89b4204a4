// CVQCriticalSection beside the locks in CVQCriticalSection_peers.cpp.
#include "Locks.h"

#include <CVQCriticalSection.h>

namespace {

MARLIX_BENCH_ALONE("CVQCriticalSection_LockUnlockAlone", "ours", 1) {
    bench::uncontended<CVQCriticalSection>(state);
}
MARLIX_BENCH("CVQCriticalSection_LockUnlock", "ours", 1) {
    bench::uncontended<CVQCriticalSection>(state);
}
MARLIX_BENCH_MANUAL("CVQCriticalSection_Contended", "ours", 2) {
    bench::contended<CVQCriticalSection>(state, 0);
}
MARLIX_BENCH_MANUAL("CVQCriticalSection_ContendedNowAndThen", "ours", 2) {
    bench::contended<CVQCriticalSection>(state, 4);
}

}  // namespace
