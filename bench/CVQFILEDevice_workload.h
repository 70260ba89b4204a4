// CVQFILEDevice_workload: a file of 1 MiB read and written in pieces. A contender opens in its constructor, closes
// in its destructor, and has read(bytes, size) and write(bytes, size), which tell how many bytes they moved.
#pragma once

#include "DataFile.h"

namespace bench {

constexpr std::size_t kFileSize = 1 << 20;

template <class Reader>
void readPieces(benchmark::State& state) {
    const auto size = static_cast<unsigned>(state.range(0));
    const DataFile file(kFileSize);
    std::vector<std::uint64_t> piece(size / sizeof(std::uint64_t));
    std::uint64_t sum = 0;
    {
        Reader reader(file.path());
        while (reader.read(piece.data(), size) == size)
            sum += sumOf(piece.data(), size);
    }
    check(sum == file.sum(), "the whole file");
    for (auto _ : state) {
        Reader reader(file.path());
        std::size_t bytes = 0;
        while (const unsigned count = reader.read(piece.data(), size))
            bytes += count;
        check(bytes == kFileSize, "as many bytes as the file has");
    }
}

template <class Writer, class Reader>
void writePieces(benchmark::State& state) {
    const auto size = static_cast<unsigned>(state.range(0));
    const DataFile file(kFileSize);
    const std::vector<char> piece(size, 'p');
    const auto writeAll = [&] {
        Writer writer(file.path());
        bool isWritten = true;
        for (std::size_t bytes = 0; bytes < kFileSize; bytes += size)
            isWritten = writer.write(piece.data(), size) == size && isWritten;
        check(isWritten, "all that was written");
    };
    writeAll();
    std::vector<char> back(kFileSize + 1);
    check(Reader(file.path()).read(back.data(), kFileSize + 1) == kFileSize && back[0] == 'p' &&
              back[kFileSize - 1] == 'p',
          "the file that was written");
    for (auto _ : state)
        writeAll();
}

}  // namespace bench
