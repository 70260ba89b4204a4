// slogview: shows the system log of programs on a Linux host, live. `slogview --help` says how.
//
// It is not linked with the library whose reports it shows, so that it stands when the library does not.
#include "Command.h"
#include "LogEntry.h"
#include "LogSocket.h"
#include "Options.h"
#include "Screen.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <limits>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

using namespace slogview;
using Clock = std::chrono::steady_clock;

constexpr int kTurn = 1024;  // records between two looks at signals and time; the kernel queues fewer
constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

std::string defaultSocketPath(bool isPrivate) {
    const char* named = std::getenv("NTO_SLOG");
    if (!isPrivate && named != nullptr && *named != '\0')
        return named;
    const char* folder = std::getenv("XDG_RUNTIME_DIR");
    const bool isGranted = folder != nullptr && *folder != '\0' && access(folder, W_OK | X_OK) == 0;
    std::string path = isGranted ? std::string(folder) + "/slog" : "/tmp/slog-" + std::to_string(getuid());
    if (isPrivate)
        path += '.' + std::to_string(getpid());
    return path;
}

/// Turns the signals that end the viewer, and a child's end, into something to poll for.
int openSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGCHLD);
    for (const int signal : kEndingSignals)
        sigaddset(&signals, signal);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGPIPE, SIG_IGN);
    const int descriptor = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    if (descriptor < 0)
        throw std::runtime_error("cannot wait for signals");
    return descriptor;
}

class Viewer {
public:
    explicit Viewer(Options& options)
        : mOptions(options), mSignals(openSignals()),
          mSocket(options.socketPath.empty() ? defaultSocketPath(options.hasCommand()) : options.socketPath),
          mScreen(options.hasCommand() ? STDERR_FILENO : STDOUT_FILENO, options.color, options.hasCommand()) {}

    int run() {
        if (mOptions.hasCommand())
            mCommand.emplace(mOptions.command.data(), mSocket.path());
        else
            say("listening; start programs with NTO_SLOG=" + mSocket.path());
        if (mOptions.duration)
            mEnd = Clock::now() + *mOptions.duration;
        while (!mIsDone) {
            waitForWork();
            // The end is looked at first, so that what was logged before it is read after it.
            const bool ends = isAtEnd();
            showWaitingRecords();
            mIsDone |= ends;
        }
        sayTotals();
        return mStatus;
    }

private:
    void waitForWork() const {
        pollfd watched[] = {{mSocket.descriptor(), POLLIN, 0}, {mSignals, POLLIN, 0}};
        poll(watched, 2, millisecondsLeft());
    }

    int millisecondsLeft() const {
        if (!mEnd)
            return -1;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*mEnd - Clock::now()).count();
        return static_cast<int>(std::clamp<long long>(left, 0, std::numeric_limits<int>::max()));
    }

    bool isAtEnd() {
        bool ends = mEnd && Clock::now() >= *mEnd;
        for (signalfd_siginfo info; read(mSignals, &info, sizeof info) == sizeof info;) {
            if (info.ssi_signo != SIGCHLD)
                ends |= isEndedBy(info);
        }
        if (mCommand) {
            if (const auto status = mCommand->exitStatus()) {
                mStatus = *status;
                ends = true;
            }
        }
        return ends;
    }

    /// With a program, the viewer stays until that has ended. A signal from the terminal reached both; one that was
    /// sent to the viewer is passed on.
    bool isEndedBy(const signalfd_siginfo& info) const {
        if (mCommand && info.ssi_code <= 0)
            mCommand->send(static_cast<int>(info.ssi_signo));
        return !mCommand;
    }

    void showWaitingRecords() {
        std::string_view datagram;
        for (int i = 0; i < kTurn && !mIsDone && mSocket.receive(datagram); ++i) {
            const auto entry = takeApart(datagram);
            if (!entry)
                refuse(datagram);
            else if (mOptions.filter.passes(*entry))
                show(*entry);
            else
                ++mHidden;
        }
        if (!mScreen.flush() && !mCommand)
            mIsDone = true;
    }

    void show(const LogEntry& entry) {
        mScreen.show(entry);
        ++mShown;
        mIsDone = mOptions.count && mShown >= *mOptions.count;
    }

    void refuse(std::string_view datagram) {
        ++mRefused;
        if (mRefused == 1)
            say("a datagram of " + std::to_string(datagram.size()) + " bytes that is no log record was dropped");
    }

    void sayTotals() const {
        std::string totals = std::to_string(mShown) + (mShown == 1 ? " record" : " records");
        if (mHidden != 0)
            totals += ", " + std::to_string(mHidden) + " hidden by the filters";
        if (mRefused != 0)
            totals += ", " + std::to_string(mRefused) + (mRefused == 1 ? " datagram" : " datagrams") + " dropped";
        say(totals);
    }

    void say(const std::string& words) const {
        if (!mOptions.quiet)
            std::fprintf(stderr, "slogview: %s\n", words.c_str());
    }

    Options& mOptions;
    int mSignals;
    LogSocket mSocket;
    Screen mScreen;
    std::optional<Command> mCommand;
    std::optional<Clock::time_point> mEnd;
    unsigned long mShown = 0;
    unsigned long mHidden = 0;
    unsigned long mRefused = 0;
    bool mIsDone = false;
    int mStatus = 0;
};

}  // namespace

int main(int argc, char* argv[]) {
    Options options = parseOptions(argc, argv);
    try {
        return Viewer(options).run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "slogview: %s\n", error.what());
        return 1;
    }
}
