#include <host/KernelIO.h>

#include <devctl.h>
#include <sys/neutrino.h>

#include "Errno.h"
#include "Interrupter.h"
#include "ThreadState.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/uio.h>
#include <unistd.h>

namespace host {
namespace {

constexpr unsigned kTransferStates = _NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY;

struct Reading {
    static constexpr short kEvent = POLLIN;
    static constexpr bool kIsDoneByAnyBytes = true;

    static ssize_t attempt(int descriptor, char* bytes, size_t size) {
        const iovec part = {bytes, size};
        return preadv2(descriptor, &part, 1, -1, RWF_NOWAIT);
    }
    static ssize_t call(int descriptor, char* bytes, size_t size) { return ::read(descriptor, bytes, size); }
};

struct Writing {
    static constexpr short kEvent = POLLOUT;
    static constexpr bool kIsDoneByAnyBytes = false;

    static ssize_t attempt(int descriptor, char* bytes, size_t size) {
        const iovec part = {bytes, size};
        return pwritev2(descriptor, &part, 1, -1, RWF_NOWAIT);
    }
    static ssize_t call(int descriptor, char* bytes, size_t size) { return ::write(descriptor, bytes, size); }
};

/// What is stored: its calls take as long as they take, and a short count means the end. To write back nothing is
/// the shortest request that storage alone does not refuse.
bool isStorage(int descriptor) {
    return sync_file_range(descriptor, 0, 0, 0) == 0;
}

bool isNonBlocking(int descriptor) {
    const int flags = fcntl(descriptor, F_GETFL);
    return flags == -1 || (flags & O_NONBLOCK) != 0;
}

/// 1 when a transfer may be tried again, 0 when the deadline has passed, -1 and errno.
int waitUntilReady(int descriptor, short event, Deadline deadline) {
    const uint64_t now = nowNs(CLOCK_MONOTONIC);
    const uint64_t rest = deadline.ns > now ? deadline.ns - now : 0;
    const uint64_t seconds = rest / kNsPerSecond;
    const timespec limit = {static_cast<time_t>(seconds < LONG_MAX ? seconds : LONG_MAX),
                            static_cast<long>(rest % kNsPerSecond)};
    pollfd waited = {descriptor, event, 0};
    return ppoll(&waited, 1, &limit, nullptr);
}

template <class Direction>
ssize_t transferUntil(Deadline deadline, int descriptor, char* bytes, size_t size) {
    size_t done = 0;
    const auto orDone = [&](ssize_t last) { return done != 0 ? static_cast<ssize_t>(done) : last; };
    const auto callForRest = [&] { return Direction::call(descriptor, bytes + done, size - done); };
    const auto addLast = [&](ssize_t last) { return last > 0 ? static_cast<ssize_t>(done) + last : orDone(last); };

    for (bool wasReady = false;;) {
        const ssize_t count = Direction::attempt(descriptor, bytes + done, size - done);
        if (count >= 0) {
            done += static_cast<size_t>(count);
            if (done == size || count == 0 || Direction::kIsDoneByAnyBytes)
                return static_cast<ssize_t>(done);
            wasReady = false;
            continue;
        }
        const int error = errno;
        if (error != EAGAIN && error != EOPNOTSUPP && error != ENOSYS)
            return orDone(-1);
        // Ready and still not to be had: another reader was quicker, or there is room, but not for a whole message.
        // Asking again and again would keep the processor busy until the deadline.
        if (error != EAGAIN || wasReady)
            return addLast(callUntil(deadline, callForRest));
        if (isNonBlocking(descriptor))
            return addLast(callForRest());
        const int ready = waitUntilReady(descriptor, Direction::kEvent, deadline);
        if (ready == 0)
            errno = ETIMEDOUT;
        if (ready <= 0)
            return orDone(-1);
        wasReady = true;
    }
}

template <class Direction>
ssize_t transfer(int descriptor, void* bytes, size_t size) {
    const Deadline deadline = takeTimeout(kTransferStates);
    if (deadline.isNever() || size == 0)
        return Direction::call(descriptor, static_cast<char*>(bytes), size);
    ErrnoKeeper keeper;
    const ssize_t result = isStorage(descriptor)
                               ? Direction::call(descriptor, static_cast<char*>(bytes), size)
                               : transferUntil<Direction>(deadline, descriptor, static_cast<char*>(bytes), size);
    if (result == -1)
        keeper.report(errno);
    return result;
}

}  // namespace
}  // namespace host

using namespace host;

ssize_t KernelIO::read(int descriptor, void* buffer, size_t size) {
    return transfer<Reading>(descriptor, buffer, size);
}

ssize_t KernelIO::write(int descriptor, const void* data, size_t size) {
    return transfer<Writing>(descriptor, const_cast<void*>(data), size);
}

int devctl(int descriptor, int command, void* data, size_t, int* info) {
    const Deadline deadline = takeTimeout(kTransferStates);
    const ErrnoKeeper keeper;
    const auto call = [&] { return ioctl(descriptor, static_cast<unsigned>(command), data); };
    const int result = deadline.isNever() ? call() : callUntil(deadline, call);
    if (result == -1)
        return errno;
    if (info != nullptr)
        *info = result;
    return EOK;
}
