// LogSocket: the datagram socket that NTO_SLOG names, owned for a while.
//   Purpose  a path that a viewer left behind is taken over; one that a viewer is reading from is not.
//   Errors   throws std::runtime_error with a message for the user.
//   Threads  one thread at a time.
#pragma once

#include <string>
#include <string_view>
#include <sys/types.h>

namespace slogview {

class LogSocket {
public:
    explicit LogSocket(const std::string& path);
    LogSocket(const LogSocket&) = delete;
    LogSocket& operator=(const LogSocket&) = delete;
    /// Removes the path, unless it is no longer this socket's.
    ~LogSocket();

    int descriptor() const { return mDescriptor; }
    const std::string& path() const { return mPath; }

    /// Takes the next datagram without waiting; false when there is none. Its bytes are valid until the next call;
    /// of one longer than any record, only as many come as show that it is.
    bool receive(std::string_view& datagram);

private:
    void bindToPath();

    std::string mPath;
    int mDescriptor = -1;
    dev_t mDevice = 0;
    ino_t mInode = 0;
    std::string mBuffer;
};

}  // namespace slogview
