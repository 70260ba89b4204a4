// What one would use instead of CVQFILEDevice: the stream that is inside.
#include "Bench.h"
#include "CVQFILEDevice_workload.h"

#include <cstdio>

namespace {

class Stream {
public:
    Stream(const char* path, const char* mode) : mStream(std::fopen(path, mode)) {
        bench::check(mStream != nullptr, "an open file");
    }
    ~Stream() { std::fclose(mStream); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    unsigned read(void* bytes, unsigned size) { return static_cast<unsigned>(std::fread(bytes, 1, size, mStream)); }
    unsigned write(const void* bytes, unsigned size) {
        return static_cast<unsigned>(std::fwrite(bytes, 1, size, mStream));
    }

private:
    std::FILE* const mStream;
};

struct Reader : Stream {
    explicit Reader(const char* path) : Stream(path, "rbe") {}
};
struct Writer : Stream {
    explicit Writer(const char* path) : Stream(path, "wbe") {}
};

MARLIX_BENCH("CVQFILEDevice_Read", "fread", 16, 256, 4096) {
    bench::readPieces<Reader>(state);
}
MARLIX_BENCH("CVQFILEDevice_Write", "fwrite", 16, 256, 4096) {
    bench::writePieces<Writer, Reader>(state);
}

}  // namespace
