// CVQFileHandle_workload: blocks read from a file, written to it, and sent through a pipe. A contender is an open
// descriptor with read(bytes, size), write(bytes, size) and rewind().
#pragma once

#include "DataFile.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace bench {

constexpr unsigned kBlocks = 16;  // between two rewinds, so that those hardly count

/// A pipe with a name, removed at the end.
class Fifo {
public:
    Fifo() { check(mkdtemp(mFolder.data()) != nullptr && mkfifo(path().c_str(), 0600) == 0, "a pipe with a name"); }
    ~Fifo() {
        unlink(path().c_str());
        rmdir(mFolder.c_str());
    }
    Fifo(const Fifo&) = delete;
    Fifo& operator=(const Fifo&) = delete;

    std::string path() const { return mFolder + "/fifo"; }

private:
    std::string mFolder = "/tmp/marlix-bench-XXXXXX";
};

template <class Contender>
void readBlocks(benchmark::State& state) {
    const auto size = static_cast<unsigned>(state.range(0));
    const DataFile file(std::size_t{kBlocks} * size);
    Contender contender(file.path(), O_RDONLY);
    std::vector<char> block(size);
    std::uint64_t sum = 0;
    for (unsigned i = 0; i < kBlocks; ++i) {
        check(contender.read(block.data(), size), "a block");
        sum += sumOf(block.data(), size);
    }
    check(sum == file.sum() && !contender.read(block.data(), size), "the whole file");
    unsigned left = 0;
    for (auto _ : state) {
        if (left == 0) {
            contender.rewind();
            left = kBlocks;
        }
        benchmark::DoNotOptimize(contender.read(block.data(), size));
        --left;
    }
}

template <class Contender>
void writeBlocks(benchmark::State& state) {
    const auto size = static_cast<unsigned>(state.range(0));
    const DataFile file(std::size_t{kBlocks} * size);
    Contender contender(file.path(), O_RDWR);
    std::vector<char> block(size, 'b');
    std::vector<char> back(size);
    check(contender.write(block.data(), size), "a block that is written");
    contender.rewind();
    check(contender.read(back.data(), size) && back == block, "and read back");
    unsigned left = 0;
    for (auto _ : state) {
        if (left == 0) {
            contender.rewind();
            left = kBlocks;
        }
        benchmark::DoNotOptimize(contender.write(block.data(), size));
        --left;
    }
}

/// A block goes into a pipe that has room for it, and comes out.
template <class Contender>
void sendBlocks(benchmark::State& state) {
    const auto size = static_cast<unsigned>(state.range(0));
    const Fifo fifo;
    Contender contender(fifo.path().c_str(), O_RDWR);
    check(fcntl(contender.descriptor(), F_SETPIPE_SZ, 1 << 20) >= static_cast<int>(size), "room for a block");
    const std::vector<char> block(size, 'b');
    std::vector<char> back(size);
    check(contender.write(block.data(), size) && contender.read(back.data(), size) && back == block,
          "a block there and back");
    for (auto _ : state) {
        benchmark::DoNotOptimize(contender.write(block.data(), size));
        benchmark::DoNotOptimize(contender.read(back.data(), size));
    }
}

}  // namespace bench
