#include "LogSocket.h"

#include "host/include/host/SlogRecord.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace slogview {
namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        throw std::runtime_error("the path of a socket has at most " + std::to_string(sizeof address.sun_path - 1) +
                                 " bytes, not " + std::to_string(path.size()) + ": " + path);
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
}

int makeSocket() {
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor < 0)
        fail("cannot make a socket");
    return descriptor;
}

// Looking at the path, removing it and binding to it are three steps; the folder's lock lets one viewer at a time
// through, so that no two take over the same path.
class FolderLock {
public:
    explicit FolderLock(const std::string& path) {
        const std::size_t slash = path.rfind('/');
        const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
        mDescriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (mDescriptor >= 0)
            flock(mDescriptor, LOCK_EX);
    }
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;
    ~FolderLock() {
        if (mDescriptor >= 0)
            close(mDescriptor);
    }

private:
    int mDescriptor;
};

bool isRead(const std::string& path) {
    const int probe = makeSocket();
    const sockaddr_un address = addressOf(path);
    const int result = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    const int error = errno;
    close(probe);
    if (result != 0 && error != ECONNREFUSED && error != EPROTOTYPE) {
        errno = error;
        fail("cannot tell who uses " + path);
    }
    return result == 0 || error == EPROTOTYPE;
}

void removeStale(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0)
        return;
    if (!S_ISSOCK(status.st_mode))
        throw std::runtime_error(path + " is in the way: it is no socket");
    if (isRead(path))
        throw std::runtime_error(path + " is in use: somebody reads from it");
    if (unlink(path.c_str()) != 0)
        fail("cannot remove " + path + ", which a viewer left behind");
}

}  // namespace

LogSocket::LogSocket(const std::string& path)
    : mPath(path), mDescriptor(makeSocket()), mBuffer(host::kSlogDatagramMax + 1, '\0') {
    try {
        bindToPath();
    } catch (...) {
        close(mDescriptor);
        throw;
    }
}

LogSocket::~LogSocket() {
    // Before the socket is closed: a closed one is there for the next viewer to take over.
    struct stat status {};
    if (lstat(mPath.c_str(), &status) == 0 && status.st_dev == mDevice && status.st_ino == mInode)
        unlink(mPath.c_str());
    close(mDescriptor);
}

void LogSocket::bindToPath() {
    const sockaddr_un address = addressOf(mPath);
    const FolderLock lock(mPath);
    removeStale(mPath);
    // What programs log is for their user's eyes.
    const mode_t before = umask(0177);
    const int result = bind(mDescriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    umask(before);
    struct stat status {};
    if (result != 0 || lstat(mPath.c_str(), &status) != 0)
        fail("cannot make " + mPath);
    mDevice = status.st_dev;
    mInode = status.st_ino;
}

bool LogSocket::receive(std::string_view& datagram) {
    ssize_t length;
    do
        length = recv(mDescriptor, mBuffer.data(), mBuffer.size(), 0);
    while (length < 0 && errno == EINTR);
    if (length < 0)
        return false;
    datagram = std::string_view(mBuffer).substr(0, static_cast<std::size_t>(length));
    return true;
}

}  // namespace slogview
