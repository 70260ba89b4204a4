// Interrupt: lets Ctrl-C (or SIGTERM) end the recording instead of the process.
//   Threads  one thread at a time; the process has only one.
#pragma once

namespace Interrupt {

/// From now on the first signal is noted, while the process waits for input. A second one ends the process.
void listen();
/// For a process that ends with its partner and not before: both signals are ignored from now on.
void ignore();
bool hasCome();
/// Waits until there is something to read, or an end or error to learn of. False when the signal has come.
bool waitForInput(int descriptor);

}  // namespace Interrupt
