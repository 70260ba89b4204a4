// Server: the process that lives through the whole load. It accepts the workers' requests and keeps the accounts of
// them, sends requests to the workers and to itself.
#pragma once

#include "Process.h"

namespace load {

/// The whole of the process. The result is its exit status.
int runServer(const SSelf& self);

}  // namespace load
