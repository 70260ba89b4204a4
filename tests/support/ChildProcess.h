// ChildProcess: runs a piece of a test, or a whole program, in a process of its own and tells how it ended.
//   Purpose  whatever ends a process (abort, exit, a signal, a hang) or must start afresh (environment, statics).
//   Shape    the child leads a process group of its own; its output and errors are drained while it runs, so that
//            no amount of either can block it. Processes that it leaves behind in its group are killed.
//   Errors   a child that outlives its deadline is killed and has `timedOut` set; it never hangs the test.
//   Threads  start children from a test's only thread: a forked child has no other.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace support {

/// The exit status of a callable in which a gtest expectation failed; `out` then holds gtest's words.
constexpr int kExpectationFailed = 99;
/// The exit status when the program could not be started; `err` then says why.
constexpr int kCannotStart = 127;

struct ChildResult {
    bool exited = false;  // ended by exit; exitCode is valid
    int exitCode = -1;
    bool signalled = false;  // ended by a signal; signal is valid
    int signal = 0;
    bool timedOut = false;  // killed because its deadline had passed
    pid_t pid = -1;
    std::string out;
    std::string err;

    bool exitedWith(int code) const { return exited && exitCode == code; }
    bool killedBy(int number) const { return signalled && signal == number && !timedOut; }
};

/// How it ended, with what it wrote: for failed expectations.
std::ostream& operator<<(std::ostream& stream, const ChildResult& result);

enum class Output { Pipe, Terminal };

struct ChildOptions {
    /// Changes to the inherited environment; no value removes the variable.
    std::vector<std::pair<std::string, std::optional<std::string>>> environment;
    /// Standard input, then its end. It is a pipe, as behind `|`.
    std::string input;
    std::chrono::milliseconds deadline = std::chrono::seconds(30);
    /// Where the child's standard output and error go. A terminal of 100 columns has both arrive in `out`.
    Output output = Output::Pipe;
    /// Working directory; empty: the test's own.
    std::string folder;
};

class ChildProcess {
public:
    /// Runs `body` in a forked child. When it returns, the child ends by `_Exit` with 0, or with
    /// `kExpectationFailed`; a body that calls `exit` has the process's handlers and destructors run.
    explicit ChildProcess(const std::function<void()>& body, ChildOptions options = {});

    /// Runs a program, found by its path. `command[0]` is that path.
    explicit ChildProcess(const std::vector<std::string>& command, ChildOptions options = {});

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// Kills what still runs.
    ~ChildProcess();

    pid_t pid() const { return mResult.pid; }
    /// What has been read so far.
    const std::string& out() const { return mResult.out; }
    const std::string& err() const { return mResult.err; }

    /// Reads on until standard output (or error) holds `text`. False at the child's end or its deadline.
    bool waitForOut(const std::string& text);
    bool waitForErr(const std::string& text);

    /// Sends a signal to the child alone.
    void send(int signal) const;

    /// Waits for the end and returns how it was.
    ChildResult finish();

private:
    using Clock = std::chrono::steady_clock;

    void start(const std::function<void()>& childMain);
    template <class Done>
    void pump(Done done);
    void feedInput();
    void drain(int& descriptor, std::string& sink);
    bool reap(bool block);
    void killGroup() const;

    ChildOptions mOptions;
    Clock::time_point mDeadline;
    ChildResult mResult;
    std::size_t mInputSent = 0;
    int mIn = -1;
    int mOut = -1;
    int mErr = -1;
    bool mEnded = false;
};

ChildResult runInChild(const std::function<void()>& body, ChildOptions options = {});

/// Runs a program that this build made, under the emulator when the build is for another processor.
ChildResult runProgram(const std::string& path, const std::vector<std::string>& arguments = {},
                       ChildOptions options = {});

/// The command line that starts a program of this build here: emulator, path, arguments.
std::vector<std::string> commandFor(const std::string& path, const std::vector<std::string>& arguments = {});

/// True when this build's programs run under an emulator.
bool isEmulated();

}  // namespace support
