// Supervisor: starts the processes, kills workers at random and starts them again, watches, and accounts for all.
#pragma once

#include "Board.h"

#include <string>

namespace load {

struct SOptions {
    unsigned seconds = 120;
    unsigned seed = 1;
    EFault fault = NO_FAULT;
};

const char* faultName(EFault fault);

/// The whole load: 0 when nothing went wrong.
int runLoad(const SOptions& options);

/// Makes each fault on purpose: 0 when the load found them all.
int runSelfTest();

/// What a process that `runLoad` started has to do.
int runProcess(int id, int process, unsigned generation);

}  // namespace load
