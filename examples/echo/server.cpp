// The server: it has a channel and replies to each text with the text itself, until a pulse tells it to stop.
#include "echo.h"
#include "options.h"

#include <VQChannelAccess.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <sys/neutrino.h>
#include <unistd.h>

namespace {

constexpr char kProgram[] = "echo_server";
constexpr char kHelp[] =
    R"(Usage: echo_server

Replies to each text with the text, says who sent it, and at the start how to
send one. Ends when a client asks it to.

  -h, --help  this text
)";

int fail(const char* what) {
    std::fprintf(stderr, "%s: %s: %s\n", kProgram, what, std::strerror(errno));
    return 1;
}

/// A receive brings the one or the other.
union UArrival {
    _pulse pulse;
    char text[kMaxText];
};

void reply(int id, int count, const char* text, const _msg_info& from) {
    if (from.srcmsglen > kMaxText) {
        MsgError(id, EMSGSIZE);
        return;
    }
    std::printf("%d: process %d says \"%.*s\"\n", count, static_cast<int>(from.pid), from.msglen, text);
    MsgReply(id, count, text, from.msglen);
}

}  // namespace

int main(int argc, char** argv) {
    readOptions(kProgram, argc, argv, kHelp, nullptr);
    if (optind < argc) {
        refuse(kProgram, CVQString("'") + argv[optind] + "' is one word too many");
    }
    const int channel = ChannelCreate(0);
    if (channel == -1) {
        return fail("no channel");
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    // The client lies beside the server, so both are started by the same path.
    const std::string self = argv[0];
    const std::string client = self.substr(0, self.rfind('/') + 1) + "echo_client";
    std::printf("Talk to me: %s %d %d Hello\n", client.c_str(), static_cast<int>(getpid()), channel);
    for (int count = 0;;) {
        UArrival arrival;
        _msg_info from;
        constexpr int kNoLimit = -1;
        const int id = VQChannelAccess::receiveMessageOrPulse(channel, &arrival, sizeof(arrival), kNoLimit, &from);
        if (id > 0) {
            reply(id, ++count, arrival.text, from);
        } else if (id == 0 && arrival.pulse.code == kStopCode) {
            return 0;
        } else if (id == -1) {
            return fail("cannot receive");
        }
    }
}
