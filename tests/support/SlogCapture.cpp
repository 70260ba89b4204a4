#include "support/SlogCapture.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <host/SlogRecord.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace support {
namespace {

constexpr char kMarker[] = "marlix: everything before this has been received";
constexpr int kStuckMs = 20000;

// Takes plain words: making a string allocates, which clears errno.
[[noreturn]] void fail(const char* what) {
    const int error = errno;
    throw std::system_error(error, std::generic_category(), what);
}

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        throw std::runtime_error("too long for a socket: " + path);
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
}

int makeSocket() {
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0)
        fail("socket");
    return descriptor;
}

int bindSocket(const std::string& path) {
    const int descriptor = makeSocket();
    const sockaddr_un address = addressOf(path);
    if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        fail("cannot bind the log's socket");
    return descriptor;
}

// The reader outlives what the test opened before: it must hold no pipe's end of anybody's.
void closeAllBut(int first, int second, int third, int fourth) {
    DIR* folder = opendir("/proc/self/fd");
    while (const dirent* entry = folder ? readdir(folder) : nullptr) {
        const int descriptor = std::atoi(entry->d_name);
        if (entry->d_name[0] != '.' && descriptor != dirfd(folder) && descriptor != first && descriptor != second &&
            descriptor != third && descriptor != fourth)
            close(descriptor);
    }
    if (folder)
        closedir(folder);
}

void writeWhole(int descriptor, const void* bytes, std::size_t count) {
    if (write(descriptor, bytes, count) != static_cast<ssize_t>(count))
        _exit(1);
}

[[noreturn]] void readForEver(int socket, int spill, int acknowledge, int lifeline) {
    closeAllBut(socket, spill, acknowledge, lifeline);
    for (;;) {
        pollfd watched[] = {{socket, POLLIN, 0}, {lifeline, POLLIN, 0}};
        poll(watched, 2, -1);
        if (watched[0].revents == 0 && watched[1].revents != 0)
            _exit(0);
        unsigned char datagram[host::kSlogDatagramMax + 1];  // one more, so that a longer one shows
        const ssize_t got = recv(socket, datagram, sizeof datagram, MSG_DONTWAIT);
        if (got < 0)
            continue;
        if (got == sizeof kMarker && std::memcmp(datagram, kMarker, sizeof kMarker) == 0) {
            writeWhole(acknowledge, "", 1);
            continue;
        }
        const std::uint32_t size = static_cast<std::uint32_t>(got);
        writeWhole(spill, &size, sizeof size);
        writeWhole(spill, datagram, size);
    }
}

}  // namespace

SlogCapture::SlogCapture() : mSocketPath(mFolder / "log"), mVariable("NTO_SLOG", mSocketPath) {
    const int socket = bindSocket(mSocketPath);
    int acknowledge[2];
    int lifeline[2];
    mSpill = open((mFolder / "received").c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (mSpill < 0 || pipe2(acknowledge, O_CLOEXEC) != 0 || pipe2(lifeline, O_CLOEXEC) != 0)
        fail("log capture");
    mAcknowledged = acknowledge[0];
    mLifeline = lifeline[1];
    startReader(socket, acknowledge[1], lifeline[0]);
    close(socket);
    close(acknowledge[1]);
    close(lifeline[0]);
}

SlogCapture::~SlogCapture() {
    close(mSpill);
    close(mAcknowledged);
    close(mLifeline);
}

// By way of a process that ends at once, so that the reader belongs to init.
void SlogCapture::startReader(int socket, int acknowledge, int lifeline) {
    const pid_t between = fork();
    if (between < 0)
        fail("fork");
    if (between == 0) {
        if (fork() == 0)
            readForEver(socket, mSpill, acknowledge, lifeline);
        _exit(0);
    }
    while (waitpid(between, nullptr, 0) < 0 && errno == EINTR) {
    }
}

// Returns when all that was sent before has been received: datagrams keep their order.
void SlogCapture::synchronise() const {
    const int descriptor = makeSocket();
    const sockaddr_un address = addressOf(mSocketPath);
    ssize_t sent;
    do
        sent = sendto(descriptor, kMarker, sizeof kMarker, MSG_NOSIGNAL,
                      reinterpret_cast<const sockaddr*>(&address), sizeof address);
    while (sent < 0 && errno == EINTR);
    close(descriptor);
    if (sent < 0)
        fail("the log's reader is gone");

    pollfd watched{mAcknowledged, POLLIN, 0};
    int ready;
    do
        ready = poll(&watched, 1, kStuckMs);
    while (ready < 0 && errno == EINTR);
    char byte;
    if (ready != 1 || read(mAcknowledged, &byte, 1) != 1)
        throw std::runtime_error("the log's reader does not answer");
}

void SlogCapture::collect() {
    synchronise();
    std::uint32_t size = 0;
    while (pread(mSpill, &size, sizeof size, mCollected) == sizeof size) {
        std::string datagram(size, '\0');
        if (pread(mSpill, datagram.data(), size, mCollected + static_cast<off_t>(sizeof size)) !=
            static_cast<ssize_t>(size))
            throw std::runtime_error("the log's file is cut");
        mCollected += static_cast<off_t>(sizeof size + size);

        host::SlogRecord header{};
        std::memcpy(&header, datagram.data(), std::min(datagram.size(), sizeof header));
        if (!host::isWholeSlogRecord(header, datagram.size())) {
            ++mMalformed;
            continue;
        }
        LoggedRecord record;
        record.code = host::slogMajor(header);
        record.subCode = host::slogMinor(header);
        record.severity = header.severity;
        record.pid = header.pid;
        record.tid = header.tid;
        record.text = datagram.substr(sizeof header);
        mRecords.push_back(std::move(record));
    }
}

std::vector<LoggedRecord> SlogCapture::records() {
    collect();
    return mRecords;
}

std::vector<std::string> SlogCapture::texts() {
    collect();
    std::vector<std::string> all;
    for (const LoggedRecord& record : mRecords)
        all.push_back(record.text);
    return all;
}

std::size_t SlogCapture::malformed() {
    collect();
    return mMalformed;
}

void SlogCapture::clear() {
    collect();
    mRecords.clear();
    mMalformed = 0;
}

std::ostream& operator<<(std::ostream& stream, const LoggedRecord& record) {
    return stream << "code " << record.code << '/' << record.subCode << " severity " << record.severity << " pid "
                  << record.pid << " tid " << record.tid << ": " << record.text;
}

}  // namespace support
