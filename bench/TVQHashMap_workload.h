// TVQHashMap_workload: the 32-bit keys that every table gets, and the order in which they are looked up.
#pragma once

#include "Bench.h"
#include "Keys.h"
#include "MadeOnce.h"
#include "Texts.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <vector>

namespace bench {

/// `count` different random keys, none 0, in no order.
inline std::vector<unsigned> randomKeys(std::size_t count) {
    std::vector<unsigned> keys;
    for (unsigned number = 1; keys.size() < count; ++number)
        keys.push_back(mixed(number));
    return keys;
}

/// `count` of `keys` and at least 100,000, in random order with repetitions: more than a branch predictor learns.
inline std::vector<unsigned> soughtKeys(const std::vector<unsigned>& keys) {
    WordOrder order;
    std::vector<unsigned> sought;
    for (std::size_t i = 0; i < std::max<std::size_t>(keys.size(), 100000); ++i)
        sought.push_back(keys[order.next(keys.size())]);
    return sought;
}

/// What the look-ups of one kind of table work on, made once a process: it takes far longer than they do.
/// Kind: `Map`, and find(map, key) -> pointer to a value or null.
template <class Kind>
struct KeyTable {
    explicit KeyTable(std::size_t count) {
        const std::vector<unsigned> keys = randomKeys(2 * count);
        const auto middle = keys.begin() + static_cast<std::ptrdiff_t>(count);
        for (auto key = keys.begin(); key != middle; ++key)
            map[*key] = &map;
        present = soughtKeys({keys.begin(), middle});
        absent = soughtKeys({middle, keys.end()});
        for (const unsigned key : present)
            check(Kind::find(map, key) != nullptr && *Kind::find(map, key) == &map, "the value of a key");
        for (const unsigned key : absent)
            check(Kind::find(map, key) == nullptr, "a key that is not there");
    }

    typename Kind::Map map;
    std::vector<unsigned> present;
    std::vector<unsigned> absent;
};

/// One iteration is one look-up.
template <class Kind>
void findKeys(benchmark::State& state, std::vector<unsigned> KeyTable<Kind>::*keys) {
    const auto& table = madeOnce<KeyTable<Kind>>(static_cast<std::size_t>(state.range(0)));
    const std::vector<unsigned>& sought = table.*keys;
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(Kind::find(table.map, sought[next]));
        next = next + 1 == sought.size() ? 0 : next + 1;
    }
}

/// One iteration is the whole table, from an empty one, its growth included; ending it is not measured.
template <class Kind>
void insertKeys(benchmark::State& state) {
    const std::vector<unsigned> keys = randomKeys(static_cast<std::size_t>(state.range(0)));
    std::optional<typename Kind::Map> map;
    for (auto _ : state) {
        state.PauseTiming();
        map.emplace();
        state.ResumeTiming();
        for (const unsigned key : keys)
            (*map)[key] = &map;
        benchmark::DoNotOptimize(*map);
    }
    check(map->size() == keys.size(), "the number of entries");
}

/// The members of the standard's maps.
template <class MapType>
struct StandardTable {
    using Map = MapType;
    static void* const* find(const Map& map, unsigned key) {
        const auto found = map.find(key);
        return found == map.end() ? nullptr : &found->second;
    }
};

}  // namespace bench

#define MARLIX_BENCH_TABLE(contender, Kind)                                                                        \
    MARLIX_BENCH("TVQHashMap_Find", contender, 1000, 1000000) {                                                    \
        bench::findKeys<Kind>(state, &bench::KeyTable<Kind>::present);                                             \
    }                                                                                                              \
    MARLIX_BENCH("TVQHashMap_FindAbsent", contender, 1000, 1000000) {                                              \
        bench::findKeys<Kind>(state, &bench::KeyTable<Kind>::absent);                                              \
    }                                                                                                              \
    MARLIX_BENCH("TVQHashMap_Insert", contender, 1000, 1000000) {                                                  \
        bench::insertKeys<Kind>(state);                                                                            \
    }
