// The tables that one would pick instead of TVQHashMap.
#include "TVQHashMap_workload.h"

#include <unordered_map>

#if BENCH_ABSEIL
#include <absl/container/flat_hash_map.h>
#endif
#if BENCH_QT
#include <QHash>
#endif

namespace {

using UnorderedMap = bench::StandardTable<std::unordered_map<unsigned, void*>>;
MARLIX_BENCH_TABLE("std::unordered_map", UnorderedMap)

#if BENCH_ABSEIL
using FlatHashMap = bench::StandardTable<absl::flat_hash_map<unsigned, void*>>;
MARLIX_BENCH_TABLE("absl::flat_hash_map", FlatHashMap)
#endif

#if BENCH_QT
struct QtHash {
    struct Map : QHash<unsigned, void*> {
        std::size_t size() const { return static_cast<std::size_t>(QHash<unsigned, void*>::size()); }
    };
    static void* const* find(const Map& map, unsigned key) {
        const auto found = map.constFind(key);
        return found == map.constEnd() ? nullptr : &found.value();
    }
};
MARLIX_BENCH_TABLE("QHash", QtHash)
#endif

}  // namespace
