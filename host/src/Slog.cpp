#include <sys/slog.h>

#include "Descriptor.h"
#include "Ending.h"
#include "Errno.h"
#include "Hex.h"
#include "ThreadState.h"

#include <errno.h>
#include <host/SlogRecord.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/neutrino.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <syslog.h>

namespace host {
namespace {

constexpr unsigned kCovered = _NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY;  // on Neutrino a message to the logger
constexpr char kVariable[] = "NTO_SLOG";
constexpr uint64_t kPatienceNs = kNsPerSecond;

struct Message {
    SlogKind kind;
    int opcode;
    int severity;
    void* data;
    size_t size;
    Deadline armed;
};

/// Waits while the logger's queue is full: the kernel lets only about ten datagrams wait in it.
bool sendPatiently(int socket, const msghdr& message, Deadline armed, Unfinished& sending) {
    const Deadline patience = {nowNs(CLOCK_MONOTONIC) + kPatienceNs};
    const uint64_t endNs = armed.ns < patience.ns ? armed.ns : patience.ns;
    do {
        const uint64_t now = nowNs(CLOCK_MONOTONIC);
        if (now >= endNs) {
            errno = endNs == patience.ns ? EAGAIN : ETIMEDOUT;
            return false;
        }
        const uint64_t micros = (endNs - now + 999) / 1000;  // up: never early, and 0 would be without limit
        const timeval rest = {static_cast<time_t>(micros / 1000000), static_cast<suseconds_t>(micros % 1000000)};
        setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &rest, sizeof(rest));
        if (sending.during([&] { return sendmsg(socket, &message, MSG_NOSIGNAL); }) >= 0)
            return true;
    } while (errno == EINTR || errno == EAGAIN);
    return false;
}

/// Sends one datagram. 0 or the error number.
int sendTo(const char* path, iovec* parts, size_t partCount, Deadline armed) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const size_t length = strlen(path);
    if (length >= sizeof(address.sun_path))
        return ENAMETOOLONG;
    memcpy(address.sun_path, path, length);

    msghdr message = {};
    message.msg_name = &address;
    message.msg_namelen = sizeof(address);
    message.msg_iov = parts;
    message.msg_iovlen = partCount;

    // A socket a message: nothing to lose to a fork, to a program that closes all descriptors or to a new logger.
    const ErrnoKeeper keeper;
    int opened = -1;
    Unfinished sending([](void* descriptor) { close(*static_cast<int*>(descriptor)); }, &opened);
    const Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    opened = socket.get();
    if (socket.isOpen() && (sendmsg(socket.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT) >= 0 ||
                            (errno == EAGAIN && sendPatiently(socket.get(), message, armed, sending))))
        return 0;
    return errno == ECONNREFUSED ? ENOENT : errno;  // the socket of a logger that has gone
}

int sendRecord(const char* path, const Message& message) {
    SlogRecord record = {};
    record.magic = kSlogMagic;
    record.version = kSlogVersion;
    record.kind = message.kind;
    record.opcode = static_cast<uint32_t>(message.opcode);
    record.severity = message.severity;
    record.pid = getpid();
    record.tid = static_cast<int32_t>(threadId());
    record.timeNs = nowNs(CLOCK_REALTIME);
    record.size = static_cast<uint32_t>(message.size);
    iovec parts[] = {{&record, sizeof(record)}, {message.data, message.size}};
    return sendTo(path, parts, 2, message.armed);
}

int syslogLevel(int severity) {
    constexpr int kLevels[] = {LOG_EMERG,  LOG_CRIT, LOG_ERR,   LOG_WARNING,
                               LOG_NOTICE, LOG_INFO, LOG_DEBUG, LOG_DEBUG};
    return severity >= _SLOG_SHUTDOWN && severity <= _SLOG_DEBUG2 ? kLevels[severity] : LOG_DEBUG;
}

/// Data in hexadecimal, with a blank after every integer.
size_t hexOf(const Message& message, char* text) {
    if (message.kind == SlogKind::BYTES)
        return static_cast<size_t>(writeHex(text, message.data, message.size) - text);
    char* end = text;
    for (size_t i = 0; i < message.size / sizeof(int); ++i)
        end += sprintf(end, i == 0 ? "%x" : " %x", static_cast<const unsigned*>(message.data)[i]);
    return static_cast<size_t>(end - text);
}

int sendSyslog(const Message& message) {
    char head[64];
    const int headLength = snprintf(head, sizeof(head), "<%d>%.32s[%d]: ", LOG_USER | syslogLevel(message.severity),
                                    program_invocation_short_name, getpid());
    if (message.kind == SlogKind::TEXT) {
        iovec parts[] = {{head, static_cast<size_t>(headLength)}, {message.data, message.size}};
        return sendTo("/dev/log", parts, 2, message.armed);
    }
    char text[2 * kSlogBytesMax];
    iovec parts[] = {{head, static_cast<size_t>(headLength)}, {text, hexOf(message, text)}};
    return sendTo("/dev/log", parts, 2, message.armed);
}

int log(const Message& message) {
    const char* const path = getenv(kVariable);
    return resultOf(path != nullptr && *path != '\0' ? sendRecord(path, message) : sendSyslog(message));
}

}  // namespace
}  // namespace host

using namespace host;

int vslogf(int opcode, int severity, const char* format, va_list arguments) {
    const Deadline armed = takeTimeout(kCovered);
    char text[kSlogTextMax + 1];
    const int saved = errno;
    const int length = vsnprintf(text, sizeof(text), format, arguments);
    if (length < 0)
        return -1;
    errno = saved;
    const size_t size = static_cast<unsigned>(length) < kSlogTextMax ? static_cast<unsigned>(length) : kSlogTextMax;
    return log({SlogKind::TEXT, opcode, severity, text, size, armed});
}

int slogf(int opcode, int severity, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = vslogf(opcode, severity, format, arguments);
    va_end(arguments);
    return result;
}

int slogb(int opcode, int severity, void* data, int size) {
    const Deadline armed = takeTimeout(kCovered);
    if (size < 0 || static_cast<unsigned>(size) > kSlogBytesMax)
        return fail(EINVAL);
    if (data == nullptr && size != 0)
        return fail(EFAULT);
    return log({SlogKind::BYTES, opcode, severity, data, static_cast<size_t>(size), armed});
}

int slogi(int opcode, int severity, int nargs, ...) {
    const Deadline armed = takeTimeout(kCovered);
    if (nargs < 0 || static_cast<unsigned>(nargs) > kSlogIntsMax)
        return fail(EINVAL);
    int values[kSlogIntsMax] = {};
    va_list arguments;
    va_start(arguments, nargs);
    for (int i = 0; i < nargs; ++i)
        values[i] = va_arg(arguments, int);
    va_end(arguments);
    return log({SlogKind::INTS, opcode, severity, values, static_cast<size_t>(nargs) * sizeof(int), armed});
}
