// TVQMap beside the maps in TVQMap_peers.cpp, and beside two of them with the same keys.
#include "TVQMap_workload.h"

#include <CVQString.h>
#include <TVQMap.h>

#include <map>

#if __has_include(<boost/container/flat_map.hpp>)
#include <boost/container/flat_map.hpp>
#endif

namespace {

struct OurMap {
    using Map = TVQMap<CVQString, int>;
    using Key = CVQString;
    static void insert(Map& map, const Key& key, int value) { map.insert(key, value); }
    static const int* find(const Map& map, const Key& key) { return map.find(key); }
};
MARLIX_BENCH_FIND("ours", OurMap)

using StandardMap = bench::StandardMap<std::map<CVQString, int>>;
MARLIX_BENCH_FIND("std::map of CVQString", StandardMap)

#if __has_include(<boost/container/flat_map.hpp>)
using FlatMap = bench::StandardMap<boost::container::flat_map<CVQString, int>>;
MARLIX_BENCH_FIND("flat_map of CVQString", FlatMap)
#endif

}  // namespace
