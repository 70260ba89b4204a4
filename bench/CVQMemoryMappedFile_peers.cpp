// What one would use instead of CVQMemoryMappedFile.
#include "Bench.h"
#include "DataFile.h"

#include <fcntl.h>
#include <sys/mman.h>

#if BENCH_BOOST
#include <boost/interprocess/file_mapping.hpp>
#include <boost/interprocess/mapped_region.hpp>
#endif

namespace {

template <class Sum>
void sumUp(benchmark::State& state, Sum sum) {
    const bench::DataFile data(static_cast<std::size_t>(state.range(0)));
    bench::check(sum(data) == data.sum(), "the sum");
    for (auto _ : state)
        benchmark::DoNotOptimize(sum(data));
}

MARLIX_BENCH("CVQMemoryMappedFile_Sum", "mmap", 64 << 20) {
    sumUp(state, [](const bench::DataFile& data) {
        const int descriptor = open(data.path(), O_RDONLY | O_CLOEXEC);
        void* const address = mmap(nullptr, data.size(), PROT_READ, MAP_SHARED, descriptor, 0);
        bench::check(address != MAP_FAILED, "a mapped file");
        const std::uint64_t sum = bench::sumOf(address, data.size());
        munmap(address, data.size());
        close(descriptor);
        return sum;
    });
}

#if BENCH_BOOST
MARLIX_BENCH("CVQMemoryMappedFile_Sum", "boost::interprocess", 64 << 20) {
    namespace ipc = boost::interprocess;
    sumUp(state, [](const bench::DataFile& data) {
        const ipc::file_mapping file(data.path(), ipc::read_only);
        const ipc::mapped_region region(file, ipc::read_only);
        return bench::sumOf(region.get_address(), region.get_size());
    });
}
#endif

}  // namespace
