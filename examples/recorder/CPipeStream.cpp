#include "CPipeStream.h"

#include <cerrno>
#include <poll.h>
#include <unistd.h>

namespace {

bool waitFor(int descriptor, short event, int timeoutMs) {
    pollfd watched{descriptor, event, 0};
    return descriptor >= 0 && poll(&watched, 1, timeoutMs) == 1;
}

}  // namespace

bool CPipeOStream::waitToWrite(int timeoutMs) {
    return waitFor(mDescriptor, POLLOUT, timeoutMs);
}

unsigned int CPipeOStream::doWrite(const void* source, unsigned int count) {
    const CStopwatch::CScope waiting(mWaiting);
    const char* const bytes = static_cast<const char*>(source);
    unsigned int written = 0;
    while (written < count && !isBroken()) {
        const ssize_t taken = ::write(mDescriptor, bytes + written, count - written);
        if (taken >= 0)
            written += static_cast<unsigned int>(taken);
        else if (errno != EINTR)
            close();
    }
    return written;
}

void CPipeOStream::close() {
    if (!isBroken())
        ::close(mDescriptor);
    mDescriptor = -1;
}

bool CPipeIStream::waitToRead(int timeoutMs) {
    return waitFor(mDescriptor, POLLIN, timeoutMs);
}

unsigned int CPipeIStream::doRead(void* destination, unsigned int count) const {
    const CStopwatch::CScope waiting(mWaiting);
    char* const bytes = static_cast<char*>(destination);
    unsigned int delivered = 0;
    while (delivered < count && !isBroken()) {
        const ssize_t got = ::read(mDescriptor, bytes + delivered, count - delivered);
        if (got > 0)
            delivered += static_cast<unsigned int>(got);
        else if (got == 0 || errno != EINTR)
            close();
    }
    return delivered;
}

void CPipeIStream::close() const {
    if (!isBroken())
        ::close(mDescriptor);
    mDescriptor = -1;
}
