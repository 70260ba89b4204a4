// What one would write instead of CVQFileHandle: the system calls, and poll before them where there is a time-out.
#include "Bench.h"
#include "CVQFileHandle_workload.h"

#include <poll.h>

namespace {

class Descriptor {
public:
    Descriptor(const char* path, int flags) : mDescriptor(open(path, flags | O_CLOEXEC)) {
        bench::check(mDescriptor >= 0, "an open file");
    }
    ~Descriptor() { close(mDescriptor); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    bool read(void* bytes, unsigned size) { return ::read(mDescriptor, bytes, size) == static_cast<ssize_t>(size); }
    bool write(const void* bytes, unsigned size) {
        return ::write(mDescriptor, bytes, size) == static_cast<ssize_t>(size);
    }
    void rewind() { lseek(mDescriptor, 0, SEEK_SET); }
    int descriptor() const { return mDescriptor; }

private:
    const int mDescriptor;
};

class Polled : public Descriptor {
public:
    using Descriptor::Descriptor;
    bool read(void* bytes, unsigned size) { return isReady(POLLIN) && Descriptor::read(bytes, size); }
    bool write(const void* bytes, unsigned size) { return isReady(POLLOUT) && Descriptor::write(bytes, size); }

private:
    bool isReady(short event) const {
        pollfd waited = {descriptor(), event, 0};
        return poll(&waited, 1, 1000) == 1;
    }
};

MARLIX_BENCH("CVQFileHandle_Read", "read", 4096, 1 << 20) {
    bench::readBlocks<Descriptor>(state);
}
MARLIX_BENCH("CVQFileHandle_ReadTimed", "read", 4096, 1 << 20) {
    bench::readBlocks<Descriptor>(state);
}
MARLIX_BENCH("CVQFileHandle_ReadTimed", "poll, read", 4096, 1 << 20) {
    bench::readBlocks<Polled>(state);
}
MARLIX_BENCH("CVQFileHandle_Write", "write", 4096, 1 << 20) {
    bench::writeBlocks<Descriptor>(state);
}
MARLIX_BENCH("CVQFileHandle_WriteTimed", "write", 4096, 1 << 20) {
    bench::writeBlocks<Descriptor>(state);
}
MARLIX_BENCH("CVQFileHandle_WriteTimed", "poll, write", 4096, 1 << 20) {
    bench::writeBlocks<Polled>(state);
}
MARLIX_BENCH("CVQFileHandle_Pipe", "write, read", 4096, 1 << 20) {
    bench::sendBlocks<Descriptor>(state);
}
MARLIX_BENCH("CVQFileHandle_PipeTimed", "write, read", 4096, 1 << 20) {
    bench::sendBlocks<Descriptor>(state);
}
MARLIX_BENCH("CVQFileHandle_PipeTimed", "poll, write, poll, read", 4096, 1 << 20) {
    bench::sendBlocks<Polled>(state);
}

}  // namespace
