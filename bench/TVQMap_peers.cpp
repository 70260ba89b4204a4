// The maps that one would pick instead of TVQMap.
#include "TVQMap_workload.h"

#include <map>
#include <string>

#if BENCH_QT
#include <QMap>
#include <QString>
#endif
#if BENCH_BOOST
#include <boost/container/flat_map.hpp>
#endif
#if BENCH_ABSEIL
#include <absl/container/btree_map.h>
#endif

namespace {

using StandardMap = bench::StandardMap<std::map<std::string, int>>;
MARLIX_BENCH_FIND("std::map", StandardMap)

#if BENCH_BOOST
using FlatMap = bench::StandardMap<boost::container::flat_map<std::string, int>>;
MARLIX_BENCH_FIND("boost::container::flat_map", FlatMap)
#endif

#if BENCH_ABSEIL
using BtreeMap = bench::StandardMap<absl::btree_map<std::string, int>>;
MARLIX_BENCH_FIND("absl::btree_map", BtreeMap)
#endif

#if BENCH_QT
struct QtMap {
    using Map = QMap<QString, int>;
    using Key = QString;
    static void insert(Map& map, const Key& key, int value) { map.insert(key, value); }
    static const int* find(const Map& map, const Key& key) {
        const auto found = map.constFind(key);
        return found == map.constEnd() ? nullptr : &found.value();
    }
};
MARLIX_BENCH_FIND("QMap of QString", QtMap)
#endif

}  // namespace
