// TVQHashMap beside the tables in TVQHashMap_peers.cpp: 32-bit keys to pointers.
#include "TVQHashMap_workload.h"

#include <TVQHashMap.h>

namespace {

struct OurTable {
    using Map = TVQHashMap<void*>;
    static void* const* find(const Map& map, unsigned key) { return map.find(key); }
};
MARLIX_BENCH_TABLE("ours", OurTable)

}  // namespace
