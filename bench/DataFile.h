// DataFile: the file that readers, writers and mappings get. In memory where the system has a file system there, so
// that what is measured is the way to the bytes, and not a disk.
#pragma once

#include "Bench.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <unistd.h>
#include <vector>

namespace bench {

/// `size` bytes, of which each 64-bit word says where it is; removed at the end.
class DataFile {
public:
    explicit DataFile(std::size_t size) : mSize(size) {
        const int descriptor = mkstemp(mPath.data());
        check(descriptor >= 0, "a temporary file");
        std::vector<std::uint64_t> words(size / sizeof(std::uint64_t));
        for (std::size_t i = 0; i < words.size(); ++i)
            words[i] = i;
        check(write(descriptor, words.data(), size) == static_cast<ssize_t>(size), "a written file");
        close(descriptor);
    }
    ~DataFile() { unlink(path()); }
    DataFile(const DataFile&) = delete;
    DataFile& operator=(const DataFile&) = delete;

    const char* path() const { return mPath.c_str(); }
    std::size_t size() const { return mSize; }
    /// What its words add up to.
    std::uint64_t sum() const {
        const std::uint64_t words = mSize / sizeof(std::uint64_t);
        return words * (words - 1) / 2;
    }

private:
    const std::size_t mSize;
    std::string mPath = std::string(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") + "/marlix-bench-XXXXXX";
};

inline std::uint64_t sumOf(const void* bytes, std::size_t size) {
    const auto* const words = static_cast<const std::uint64_t*>(bytes);
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < size / sizeof *words; ++i)
        sum += words[i];
    return sum;
}

}  // namespace bench
