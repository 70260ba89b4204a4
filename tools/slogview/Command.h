// Command: the program whose log is shown.
//   Errors   the constructor throws std::runtime_error; a program that cannot be started says so on standard error
//            and ends with 127 (not there) or 126 (not startable), as in a shell.
//   Threads  one thread at a time.
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>

namespace slogview {

class Command {
public:
    /// Starts the program, with NTO_SLOG naming the socket. `arguments` ends with a null pointer.
    Command(char* const* arguments, const std::string& socketPath);

    /// The status to exit with once the program has ended: its own, or 128 and the signal that ended it.
    std::optional<int> exitStatus();
    void send(int signal) const;

private:
    pid_t mProcess = -1;
};

}  // namespace slogview
