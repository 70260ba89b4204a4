// SharedLocks: semaphores and a barrier, and what is counted with them, in memory that two processes share. They may be
// 32-bit and 64-bit programs.
#pragma once

#include <CVQBarrier.h>
#include <VQSemaphoreAccess.h>

#include <cstdint>

struct SharedLocks {
    static constexpr unsigned kSteps = 20000, kTurns = 1000, kRounds = 1000;

    SharedLocks() {
        VQSemaphoreAccess::create(exclusive, 1, 1, /*shared*/ true);
        VQSemaphoreAccess::create(turns[0], 1, 5, /*shared*/ true);
        VQSemaphoreAccess::create(turns[1], 0, 5, /*shared*/ true);
    }

    VQOSTypes::SEMHANDLE exclusive = VQOSTypes::sInvalidSemHandle;  // for the sum
    VQOSTypes::SEMHANDLE turns[2] = {};                             // whose turn it is
    CVQBarrier barrier{2, true};
    uint32_t sum = 0;                 // each adds `kSteps`
    uint32_t turn = 0;                // each has every second one of 2 * `kTurns`
    uint32_t arrivals[kRounds] = {};  // each arrives once in every round
};

static_assert(sizeof(SharedLocks) == 3 * 32 + 84 + 8 + 4 * SharedLocks::kRounds,
              "the same in programs of both widths");
