// LogSocket: a datagram socket that plays the logger. The benchmark itself takes each line out again, so that the socket
// never fills and no second process disturbs; the cost of that is in every contender's figure and in the floor.
#pragma once

#include "Bench.h"

#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>
#include <unistd.h>

namespace bench {

inline constexpr char kLogFormat[] = "channel %d answered after %u ms";
inline constexpr char kLogText[] = "channel 7 answered after 12 ms";

class LogSocket {
public:
    explicit LogSocket(const std::string& path)
        : mPath(path), mSocket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        mBound = bind(mSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    LogSocket(const LogSocket&) = delete;
    LogSocket& operator=(const LogSocket&) = delete;
    ~LogSocket() {
        close(mSocket);
        if (mBound)
            unlink(mPath.c_str());
    }

    bool isBound() const { return mBound; }

    /// The number of bytes of the oldest line, -1 when there is none.
    ssize_t take() { return recv(mSocket, mLine, sizeof mLine, MSG_DONTWAIT); }

    bool holds(const char* text, ssize_t length) const {
        const std::string line(mLine, length < 0 ? 0 : static_cast<std::size_t>(length));
        return line.find(text) != std::string::npos;
    }

private:
    std::string mPath;
    int mSocket;
    bool mBound = false;
    char mLine[4096];
};

}  // namespace bench
