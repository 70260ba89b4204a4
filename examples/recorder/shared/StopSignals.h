// StopSignals: SIGINT and SIGTERM, which ask a service to end, as something to wait for.
#pragma once

namespace StopSignals {

/// Call it first in `main`: threads inherit it.
void block();
/// True when one has come; false after `timeoutMs`. Negative: without limit.
bool wait(int timeoutMs);

}  // namespace StopSignals
