// LogSocket: where a logger would listen.
#pragma once

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

/// A logger's socket that is read only when the test says so.
class LogSocket {
public:
    explicit LogSocket(const std::string& path) : mDescriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        unlink(path.c_str());
        EXPECT_EQ(0, bind(mDescriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)));
    }
    ~LogSocket() { end(); }

    void end() { close(std::exchange(mDescriptor, -1)); }

    /// The next datagram, or nothing.
    std::string receive() {
        char bytes[8192];
        const ssize_t count = recv(mDescriptor, bytes, sizeof(bytes), MSG_DONTWAIT);
        return std::string(bytes, count > 0 ? static_cast<std::size_t>(count) : 0);
    }

private:
    int mDescriptor;
};
