// The growable arrays that one would pick instead of TVQVector.
#include "TVQVector_workload.h"

#include <cstring>
#include <string>
#include <vector>

#if BENCH_QT
#include <QString>
#include <QVector>
#endif
#if BENCH_BOOST
#include <boost/container/vector.hpp>
#endif

namespace {

using StandardInts = bench::StandardArray<std::vector<int>>;
using StandardTexts = bench::StandardTexts<std::vector<std::string>>;
MARLIX_BENCH_INTS("std::vector", StandardInts)
MARLIX_BENCH_TEXTS("std::vector of std::string", StandardTexts)

#if BENCH_QT
using QtInts = bench::StandardArray<QVector<int>>;
MARLIX_BENCH_INTS("QVector", QtInts)
using QtTexts = bench::StandardTexts<QVector<QString>>;
MARLIX_BENCH_TEXTS("QVector of QString", QtTexts)
#endif

#if BENCH_BOOST
using BoostInts = bench::StandardArray<boost::container::vector<int>>;
MARLIX_BENCH_INTS("boost::container::vector", BoostInts)
using BoostTexts = bench::StandardTexts<boost::container::vector<std::string>>;
MARLIX_BENCH_TEXTS("boost vector of std::string", BoostTexts)
#endif

// Five thousand elements one place up, and down again.
MARLIX_BENCH("TVQVector_InsertEraseInts", "floor: memmove", bench::kMiddle) {
    std::vector<int> array(bench::kMiddle + 1);
    constexpr std::size_t kMoved = bench::kMiddle / 2;
    for (auto _ : state) {
        std::memmove(&array[kMoved + 1], &array[kMoved], kMoved * sizeof(int));
        benchmark::ClobberMemory();
        std::memmove(&array[kMoved], &array[kMoved + 1], kMoved * sizeof(int));
        benchmark::ClobberMemory();
    }
}

}  // namespace
