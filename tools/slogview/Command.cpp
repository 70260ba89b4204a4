#include "Command.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace slogview {
namespace {

[[noreturn]] void run(char* const* arguments, const std::string& socketPath) {
    // What the viewer does with signals is its own affair.
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    setenv("NTO_SLOG", socketPath.c_str(), 1);
    execvp(arguments[0], arguments);
    const int error = errno;
    std::fprintf(stderr, "slogview: cannot start %s: %s\n", arguments[0], std::strerror(error));
    _exit(error == ENOENT ? 127 : 126);
}

}  // namespace

Command::Command(char* const* arguments, const std::string& socketPath) {
    std::fflush(nullptr);
    mProcess = fork();
    if (mProcess < 0)
        throw std::runtime_error(std::string("cannot start ") + arguments[0] + ": " + std::strerror(errno));
    if (mProcess == 0)
        run(arguments, socketPath);
}

std::optional<int> Command::exitStatus() {
    int status = 0;
    if (waitpid(mProcess, &status, WNOHANG) != mProcess)
        return std::nullopt;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void Command::send(int signal) const {
    kill(mProcess, signal);
}

}  // namespace slogview
