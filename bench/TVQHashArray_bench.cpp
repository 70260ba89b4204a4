// TVQHashArray beside the tables in TVQHashArray_peers.cpp: texts to numbers.
#include "TVQHashArray_workload.h"

#include <CVQString.h>
#include <TVQHashArray.h>

namespace {

struct OurTable {
    using Map = TVQHashArray<CVQString, int>;
    using Key = CVQString;
    static void insert(Map& map, const Key& key, int value) { map.insert(key, value); }
    static const int* find(const Map& map, const Key& key) { return map.find(key); }
};
MARLIX_BENCH_NAMES("ours", OurTable)

}  // namespace
