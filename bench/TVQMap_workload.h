// TVQMap_workload: the keys that every map gets, and the order in which they are looked up.
#pragma once

#include "Bench.h"
#include "Texts.h"

#include <algorithm>
#include <string>
#include <vector>

namespace bench {

/// `count` different names as a configuration has them, of 15 to 30 bytes, sorted: so every map is filled quickly.
inline std::vector<std::string> names(std::size_t count) {
    static const char* const kParts[] = {"display", "sound", "network", "recorder", "update", "channel", "sensor"};
    WordOrder order;
    std::vector<std::string> result;
    for (std::size_t i = 0; i < count; ++i)
        result.push_back(std::string(kParts[order.next(7)]) + '.' + kParts[order.next(7)] + '.' +
                         std::to_string(i));
    std::sort(result.begin(), result.end());
    return result;
}

/// Fills a map and looks keys up, as texts of their own and in an order too long for a branch predictor to learn. One
/// iteration is one look-up. Kind: `Map`, `Key`, insert(map, key, value), find(map, key) -> const int* or null.
template <class Kind>
void findAll(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    const std::vector<std::string> texts = names(count);
    typename Kind::Map map;
    std::vector<typename Kind::Key> sought;
    for (std::size_t i = 0; i < count; ++i) {
        Kind::insert(map, typename Kind::Key(texts[i].c_str()), static_cast<int>(i));
        sought.emplace_back(texts[i].c_str());
    }
    check(Kind::find(map, typename Kind::Key("no such name")) == nullptr, "a key that is not there");
    for (std::size_t i = 0; i < count; ++i)
        check(*Kind::find(map, sought[i]) == static_cast<int>(i), "a value");
    std::vector<unsigned> turns(1U << 16);
    WordOrder order;
    for (unsigned& turn : turns)
        turn = static_cast<unsigned>(order.next(count));
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(*Kind::find(map, sought[turns[next]]));
        next = (next + 1) % turns.size();
    }
}

/// The members of the standard's maps.
template <class MapType>
struct StandardMap {
    using Map = MapType;
    using Key = typename Map::key_type;
    static void insert(Map& map, const Key& key, int value) { map.emplace(key, value); }
    static const int* find(const Map& map, const Key& key) {
        const auto found = map.find(key);
        return found == map.end() ? nullptr : &found->second;
    }
};

}  // namespace bench

#define MARLIX_BENCH_FIND(contender, Kind)                                                                         \
    MARLIX_BENCH("TVQMap_Find", contender, 10, 1000, 100000) {                                                     \
        bench::findAll<Kind>(state);                                                                               \
    }
