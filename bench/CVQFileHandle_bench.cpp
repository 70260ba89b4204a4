// CVQFileHandle beside the system calls in CVQFileHandle_peers.cpp.
#include "Bench.h"
#include "CVQFileHandle_workload.h"

#include <CVQFileHandle.h>

namespace {

template <int timeoutMs>
class Handle {
public:
    Handle(const char* path, unsigned flags) : mHandle(path, flags) {
        bench::check(mHandle.isOpen(), "an open file");
    }
    bool read(void* bytes, unsigned size) { return mHandle.read(bytes, size, timeoutMs) == static_cast<int>(size); }
    bool write(const void* bytes, unsigned size) {
        return mHandle.write(bytes, size, timeoutMs) == static_cast<int>(size);
    }
    void rewind() { mHandle.seek(0, CVQFileHandle::SEEK_FROM_START); }
    int descriptor() const { return mHandle.getDescriptor(); }

private:
    CVQFileHandle mHandle;
};

using Unlimited = Handle<-1>;
using Timed = Handle<1000>;

MARLIX_BENCH("CVQFileHandle_Read", "ours", 4096, 1 << 20) {
    bench::readBlocks<Unlimited>(state);
}
MARLIX_BENCH("CVQFileHandle_ReadTimed", "ours", 4096, 1 << 20) {
    bench::readBlocks<Timed>(state);
}
MARLIX_BENCH("CVQFileHandle_Write", "ours", 4096, 1 << 20) {
    bench::writeBlocks<Unlimited>(state);
}
MARLIX_BENCH("CVQFileHandle_WriteTimed", "ours", 4096, 1 << 20) {
    bench::writeBlocks<Timed>(state);
}
MARLIX_BENCH("CVQFileHandle_Pipe", "ours", 4096, 1 << 20) {
    bench::sendBlocks<Unlimited>(state);
}
MARLIX_BENCH("CVQFileHandle_PipeTimed", "ours", 4096, 1 << 20) {
    bench::sendBlocks<Timed>(state);
}

}  // namespace
