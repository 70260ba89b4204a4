// The tables that one would pick instead of TVQHashArray.
#include "TVQHashArray_workload.h"

#include <string>
#include <unordered_map>

#if BENCH_ABSEIL
#include <absl/container/flat_hash_map.h>
#endif
#if BENCH_QT
#include <QHash>
#include <QString>
#endif

namespace {

using UnorderedMap = bench::StandardMap<std::unordered_map<std::string, int>>;
MARLIX_BENCH_NAMES("std::unordered_map", UnorderedMap)

#if BENCH_ABSEIL
using FlatHashMap = bench::StandardMap<absl::flat_hash_map<std::string, int>>;
MARLIX_BENCH_NAMES("absl::flat_hash_map", FlatHashMap)
#endif

#if BENCH_QT
struct QtHash {
    using Map = QHash<QString, int>;
    using Key = QString;
    static void insert(Map& map, const Key& key, int value) { map.insert(key, value); }
    static const int* find(const Map& map, const Key& key) {
        const auto found = map.constFind(key);
        return found == map.constEnd() ? nullptr : &found.value();
    }
};
MARLIX_BENCH_NAMES("QHash of QString", QtHash)
#endif

}  // namespace
