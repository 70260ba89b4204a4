// A client: it connects to the server's channel, sends each text of its command line, and shows what came back.
#include "echo.h"

#include <VQChannelAccess.h>
#include <VQOperatingSystem.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/neutrino.h>

namespace {

constexpr int kPatienceMs = 2000;

bool fail(const char* what) {
    std::fprintf(stderr, "echo_client: %s: %s\n", what, std::strerror(errno));
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

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr, "usage: echo_client PROCESS CHANNEL TEXT... | echo_client PROCESS CHANNEL --stop\n");
        return 2;
    }
    int server;
    if (!VQChannelAccess::attach(server, std::atoi(argv[2]), std::atoi(argv[1]), /*this node*/ 0)) {
        fail("no server");
        return 1;
    }
    for (int i = 3; i < argc; ++i) {
        const bool isStop = std::strcmp(argv[i], "--stop") == 0;
        if (!(isStop ? stop(server) : say(server, argv[i]))) {
            return 1;
        }
    }
}
