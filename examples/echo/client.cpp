// A client: it connects to the server's channel, sends each text of its command line, and shows what came back.
#include "echo.h"
#include "options.h"

#include <VQChannelAccess.h>
#include <VQOperatingSystem.h>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <sys/neutrino.h>

namespace {

constexpr char kProgram[] = "echo_client";
constexpr char kHelp[] =
    R"(Usage: echo_client PROCESS CHANNEL TEXT...
       echo_client PROCESS CHANNEL [TEXT...] --stop

Sends each TEXT to the server that has this process and channel, and shows
what came back. The server says both when it starts.

  --stop      tells the server to end, after the texts
  --          what follows is no option, even when it begins with a dash
  -h, --help  this text

Exit status: 0 when the server replied to all, 1 when it did not, 2 for a
wrong command line.
)";
constexpr int kPatienceMs = 2000;

bool fail(const char* what) {
    std::fprintf(stderr, "%s: %s: %s\n", kProgram, what, std::strerror(errno));
    return false;
}

bool say(int server, char* text) {
    char back[kMaxText];
    const iovec sent = {text, std::strlen(text)};
    const iovec room = {back, sizeof(back)};
    const unsigned long long begin = VQOperatingSystem::getClockValue(CLOCK_MONOTONIC);
    const int number = VQChannelAccess::sendv(server, &sent, 1, &room, 1, kPatienceMs);
    if (number == -1) {
        return fail("no reply");
    }
    const double micros = static_cast<double>(VQOperatingSystem::getClockValue(CLOCK_MONOTONIC) - begin) / 1000;
    std::printf("%d: \"%.*s\" after %.1f us\n", number, static_cast<int>(sent.iov_len), back, micros);
    return true;
}

bool stop(int server) {
    constexpr int kPriority = 10;
    return MsgSendPulse(server, kPriority, kStopCode, 0) == 0 || fail("cannot stop the server");
}

int readNumber(const char* word, const char* ofWhat) {
    int number = 0;
    const char* const end = word + std::strlen(word);
    const auto [rest, error] = std::from_chars(word, end, number);
    if (error != std::errc() || rest != end || number <= 0) {
        refuse(kProgram, CVQString("'") + word + "' is no number of a " + ofWhat);
    }
    return number;
}

}  // namespace

int main(int argc, char** argv) {
    const bool isStopping = readOptions(kProgram, argc, argv, kHelp, "stop");
    if (argc - optind < (isStopping ? 2 : 3)) {
        refuse(kProgram, "which process, which channel, what text?");
    }
    const int process = readNumber(argv[optind], "process");
    const int channel = readNumber(argv[optind + 1], "channel");
    int server;
    if (!VQChannelAccess::attach(server, channel, process, /*this node*/ 0)) {
        fail("no server");
        return 1;
    }
    for (int i = optind + 2; i < argc; ++i) {
        if (!say(server, argv[i])) {
            return 1;
        }
    }
    return !isStopping || stop(server) ? 0 : 1;
}
