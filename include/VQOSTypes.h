// VQOSTypes: the raw handles of semaphores and triggers, the invalid values of all handles, and how a signal mask
// is changed.
//   Shape    a SEMHANDLE is eight 32-bit words, the same in every process that maps one. A handle that is all zero
//            is invalid: fill a handle with the invalid value first, then create it.
//   Threads  the types are plain data; the functions over them say who may use them.
#pragma once

#include <pthread.h>
#include <semaphore.h>

namespace VQOSTypes {

/// A bounded semaphore. See VQSemaphoreAccess.
struct SEMHANDLE {
    unsigned valid;   // 1 between a successful `create` and `destroy`, else 0
    _sync mutex;      // guards the counters
    _sync condition;  // where takers wait
    unsigned count;   // units that are there
    unsigned maxCount;
    unsigned waiters;  // threads in the condition
};
static_assert(sizeof(SEMHANDLE) == 32 && alignof(SEMHANDLE) == 4, "processes share a semaphore by its layout");

/// A binary event. See VQTriggerAccess.
using TRIGGER_HANDLE = sem_t;

inline constexpr SEMHANDLE sInvalidSemHandle{};
inline constexpr _sync sInvalidCondVarHandle{};
inline constexpr TRIGGER_HANDLE sInvalidTriggerHandle{};

/// The platform's own values.
enum SignalMaskMode {
    SIGNAL_MASK_ADD = 0,
    SIGNAL_MASK_REMOVE = 1,
    SIGNAL_MASK_REPLACE = 2,
};

}  // namespace VQOSTypes
