// The server: it has a channel and replies to each text with the text itself, until a pulse tells it to stop.
#include "echo.h"

#include <VQChannelAccess.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/neutrino.h>
#include <unistd.h>

namespace {

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

int main() {
    const int channel = ChannelCreate(0);
    if (channel == -1) {
        std::fprintf(stderr, "echo_server: no channel: %s\n", std::strerror(errno));
        return 1;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    std::printf("Talk to me: echo_client %d %d Hello\n", static_cast<int>(getpid()), channel);
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
            std::fprintf(stderr, "echo_server: cannot receive: %s\n", std::strerror(errno));
            return 1;
        }
    }
}
