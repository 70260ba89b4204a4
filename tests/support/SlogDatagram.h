// SlogDatagram: records made by hand, for tests of what receives them.
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <host/SlogRecord.h>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace support {

struct SlogDatagram {
    std::string text;
    unsigned code = 10000;
    unsigned subCode = 0;
    int severity = 2;
    int pid = 12;
    int tid = 34;
    std::uint64_t timeNs = 0;
    host::SlogKind kind = host::SlogKind::TEXT;

    std::string bytes() const {
        host::SlogRecord header{};
        header.magic = host::kSlogMagic;
        header.version = host::kSlogVersion;
        header.kind = kind;
        header.opcode = code | subCode << 20;
        header.severity = severity;
        header.pid = pid;
        header.tid = tid;
        header.timeNs = timeNs;
        header.size = static_cast<std::uint32_t>(text.size());
        return std::string(reinterpret_cast<const char*>(&header), sizeof header) + text;
    }
};

/// Sends a datagram as it is, waiting while the queue of the socket at `path` is full, but not for ever.
inline void sendDatagram(const std::string& path, const std::string& bytes) {
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof address.sun_path);
    std::memcpy(address.sun_path, path.data(), path.size());
    const timeval patience{10, 0};
    setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    const ssize_t sent = sendto(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr*>(&address), sizeof address);
    EXPECT_EQ(static_cast<ssize_t>(bytes.size()), sent) << path << ": " << std::strerror(errno);
    close(descriptor);
}

}  // namespace support
