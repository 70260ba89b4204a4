// CVQFILEDevice beside the C library's streams in CVQFILEDevice_peers.cpp.
#include "Bench.h"
#include "CVQFILEDevice_workload.h"

#include <CVQFILEDevice.h>

#include <fcntl.h>

namespace {

template <unsigned flags>
class Device {
public:
    explicit Device(const char* path) { bench::check(mDevice.open(path, flags), "an open file"); }
    unsigned read(void* bytes, unsigned size) { return static_cast<unsigned>(mDevice.read(bytes, size, -1)); }
    unsigned write(const void* bytes, unsigned size) {
        return static_cast<unsigned>(mDevice.write(bytes, size, -1));
    }

private:
    CVQFILEDevice mDevice;
};

using Reader = Device<O_RDONLY>;
using Writer = Device<O_CREAT | O_TRUNC | O_WRONLY>;

MARLIX_BENCH("CVQFILEDevice_Read", "ours", 16, 256, 4096) {
    bench::readPieces<Reader>(state);
}
MARLIX_BENCH("CVQFILEDevice_Write", "ours", 16, 256, 4096) {
    bench::writePieces<Writer, Reader>(state);
}

}  // namespace
