#include "support/ChildProcess.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <system_error>
#include <termios.h>
#include <unistd.h>

namespace support {
namespace {

using std::chrono::milliseconds;

// How often a child is looked at that has closed its pipes, or whose pipes somebody else holds open.
constexpr milliseconds kLook{2};

// Takes plain words: making a string allocates, which clears errno.
[[noreturn]] void fail(const char* what) {
    const int error = errno;
    throw std::system_error(error, std::generic_category(), what);
}

struct Pipe {
    int read = -1;
    int write = -1;
};

Pipe makePipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        fail("pipe2");
    return {ends[0], ends[1]};
}

Pipe makeTerminal() {
    Pipe terminal;
    terminal.read = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal.read < 0 || grantpt(terminal.read) != 0 || unlockpt(terminal.read) != 0)
        fail("posix_openpt");
    terminal.write = open(ptsname(terminal.read), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal.write < 0)
        fail("ptsname");
    termios mode{};
    tcgetattr(terminal.write, &mode);
    mode.c_oflag &= ~static_cast<tcflag_t>(OPOST);  // the bytes as written, without carriage returns added
    tcsetattr(terminal.write, TCSANOW, &mode);
    const winsize size{30, 100, 0, 0};
    ioctl(terminal.write, TIOCSWINSZ, &size);
    return terminal;
}

void closeAndForget(int& descriptor) {
    if (descriptor >= 0)
        close(descriptor);
    descriptor = -1;
}

// A child that does not read its input must not end the test.
class ScopedIgnoredPipeSignal {
public:
    ScopedIgnoredPipeSignal() {
        struct sigaction ignore {};
        ignore.sa_handler = SIG_IGN;
        sigaction(SIGPIPE, &ignore, &mBefore);
    }
    ScopedIgnoredPipeSignal(const ScopedIgnoredPipeSignal&) = delete;
    ScopedIgnoredPipeSignal& operator=(const ScopedIgnoredPipeSignal&) = delete;
    ~ScopedIgnoredPipeSignal() { sigaction(SIGPIPE, &mBefore, nullptr); }

private:
    struct sigaction mBefore {};
};

// The emulator tells of a guest that ends by a signal; the guest itself wrote nothing of it.
void dropLastWordsOfEmulator(std::string& err) {
    const std::size_t start = err.rfind("qemu: uncaught target signal ");
    if (start != std::string::npos && err.find('\n', start) == err.size() - 1)
        err.resize(start);
}

void applyInChild(const ChildOptions& options) {
    const rlimit noCoreFile{0, 0};
    setrlimit(RLIMIT_CORE, &noCoreFile);
    for (const auto& [name, value] : options.environment) {
        if (value)
            setenv(name.c_str(), value->c_str(), 1);
        else
            unsetenv(name.c_str());
    }
    if (!options.folder.empty() && chdir(options.folder.c_str()) != 0) {
        std::fprintf(stderr, "cannot enter %s: %s\n", options.folder.c_str(), std::strerror(errno));
        std::_Exit(kCannotStart);
    }
}

int failedParts() {
    const auto* test = testing::UnitTest::GetInstance()->current_test_info();
    int failed = 0;
    for (int i = 0; test && i < test->result()->total_part_count(); ++i)
        failed += test->result()->GetTestPartResult(i).failed() ? 1 : 0;
    return failed;
}

// noexcept: an exception that leaves the body ends the child there, it does not unwind into the parent's test.
[[noreturn]] void runBody(const std::function<void()>& body) noexcept {
    const int failedBefore = failedParts();
    body();
    std::fflush(nullptr);
    std::_Exit(failedParts() > failedBefore ? kExpectationFailed : 0);
}

[[noreturn]] void runCommand(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    for (const auto& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    std::fprintf(stderr, "cannot start %s: %s\n", arguments[0], std::strerror(errno));
    std::_Exit(kCannotStart);
}

}  // namespace

ChildProcess::ChildProcess(const std::function<void()>& body, ChildOptions options) : mOptions(std::move(options)) {
    start([&] { runBody(body); });
}

ChildProcess::ChildProcess(const std::vector<std::string>& command, ChildOptions options)
    : mOptions(std::move(options)) {
    start([&] { runCommand(command); });
}

ChildProcess::~ChildProcess() {
    if (!mEnded) {
        killGroup();
        reap(/*block*/ true);
    }
    closeAndForget(mIn);
    closeAndForget(mOut);
    closeAndForget(mErr);
}

void ChildProcess::start(const std::function<void()>& childMain) {
    Pipe in = makePipe();
    Pipe out = mOptions.output == Output::Terminal ? makeTerminal() : makePipe();
    Pipe err = mOptions.output == Output::Terminal ? Pipe{} : makePipe();
    const int childErr = err.write >= 0 ? err.write : out.write;

    // What waits in the parent's buffers would otherwise come out a second time when the child exits.
    std::fflush(nullptr);
    // Under the thread sanitizer a signal is lost that comes in the first call of a thread that may block, where it
    // makes room to note signals; the child has that room from here.
    poll(nullptr, 0, 0);
    const pid_t pid = fork();
    if (pid < 0)
        fail("fork");
    if (pid == 0) {
        setpgid(0, 0);
        dup2(in.read, STDIN_FILENO);
        dup2(out.write, STDOUT_FILENO);
        dup2(childErr, STDERR_FILENO);
        for (int* end : {&in.read, &in.write, &out.read, &out.write, &err.read, &err.write})
            closeAndForget(*end);
        applyInChild(mOptions);
        childMain();
    }
    setpgid(pid, pid);  // in both processes: whichever runs first
    closeAndForget(in.read);
    closeAndForget(out.write);
    closeAndForget(err.write);
    mIn = in.write;
    mOut = out.read;
    mErr = err.read;
    for (const int end : {mIn, mOut, mErr})
        if (end >= 0)
            fcntl(end, F_SETFL, O_NONBLOCK);
    mResult.pid = pid;
    mDeadline = Clock::now() + mOptions.deadline;
}

// Moves bytes both ways until `done` or the end of the child, whichever comes first.
template <class Done>
void ChildProcess::pump(Done done) {
    const ScopedIgnoredPipeSignal ignored;
    while (!done() && !mEnded) {
        if (Clock::now() >= mDeadline) {
            mResult.timedOut = true;
            killGroup();
            reap(/*block*/ true);
        } else {
            if (mIn >= 0 && mInputSent == mOptions.input.size())
                closeAndForget(mIn);
            pollfd watched[] = {{mIn, POLLOUT, 0}, {mOut, POLLIN, 0}, {mErr, POLLIN, 0}};
            poll(watched, 3, static_cast<int>(kLook.count()));
            if (watched[0].revents != 0)
                feedInput();
            reap(/*block*/ false);
        }
        // After the look at the child: what it had written before its end is in the pipes now.
        drain(mOut, mResult.out);
        drain(mErr, mResult.err);
    }
    if (mEnded)
        killGroup();
}

void ChildProcess::feedInput() {
    const ssize_t sent = write(mIn, mOptions.input.data() + mInputSent, mOptions.input.size() - mInputSent);
    if (sent > 0)
        mInputSent += static_cast<std::size_t>(sent);
    else if (errno != EAGAIN && errno != EINTR)
        closeAndForget(mIn);  // the child reads no more
}

void ChildProcess::drain(int& descriptor, std::string& sink) {
    char block[65536];
    while (descriptor >= 0) {
        const ssize_t got = read(descriptor, block, sizeof block);
        if (got > 0)
            sink.append(block, static_cast<std::size_t>(got));
        else if (got < 0 && errno == EAGAIN)
            return;
        else if (got == 0 || errno != EINTR)
            closeAndForget(descriptor);  // a terminal's end is EIO
    }
}

bool ChildProcess::reap(bool block) {
    int status = 0;
    pid_t ended;
    do
        ended = waitpid(mResult.pid, &status, block ? 0 : WNOHANG);
    while (ended < 0 && errno == EINTR);
    if (ended != mResult.pid)
        return false;
    mEnded = true;
    mResult.exited = WIFEXITED(status);
    mResult.exitCode = mResult.exited ? WEXITSTATUS(status) : -1;
    mResult.signalled = WIFSIGNALED(status);
    mResult.signal = mResult.signalled ? WTERMSIG(status) : 0;
    return true;
}

void ChildProcess::killGroup() const {
    kill(-mResult.pid, SIGKILL);
}

bool ChildProcess::waitForOut(const std::string& text) {
    pump([&] { return mResult.out.find(text) != std::string::npos; });
    return mResult.out.find(text) != std::string::npos;
}

bool ChildProcess::waitForErr(const std::string& text) {
    pump([&] { return mResult.err.find(text) != std::string::npos; });
    return mResult.err.find(text) != std::string::npos;
}

void ChildProcess::send(int signal) const {
    if (!mEnded)
        kill(mResult.pid, signal);
}

ChildResult ChildProcess::finish() {
    pump([] { return false; });
    if (isEmulated() && mResult.signalled)
        dropLastWordsOfEmulator(mResult.err);
    return mResult;
}

std::ostream& operator<<(std::ostream& stream, const ChildResult& result) {
    if (result.timedOut)
        stream << "killed at its deadline";
    else if (result.exited)
        stream << "exited with " << result.exitCode;
    else if (result.signalled)
        stream << "killed by signal " << result.signal << " (" << strsignal(result.signal) << ')';
    return stream << "\n--- out:\n" << result.out << "\n--- err:\n" << result.err << "\n---";
}

ChildResult runInChild(const std::function<void()>& body, ChildOptions options) {
    return ChildProcess(body, std::move(options)).finish();
}

ChildResult runProgram(const std::string& path, const std::vector<std::string>& arguments, ChildOptions options) {
    return ChildProcess(commandFor(path, arguments), std::move(options)).finish();
}

std::vector<std::string> commandFor(const std::string& path, const std::vector<std::string>& arguments) {
    std::vector<std::string> command;
    const std::string emulator = MARLIX_TEST_EMULATOR;
    for (std::size_t begin = 0; begin < emulator.size();) {
        const std::size_t end = std::min(emulator.find('|', begin), emulator.size());
        command.push_back(emulator.substr(begin, end - begin));
        begin = end + 1;
    }
    command.push_back(path);
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

bool isEmulated() {
    return MARLIX_TEST_EMULATOR[0] != '\0';
}

}  // namespace support
