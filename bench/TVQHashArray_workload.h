// TVQHashArray_workload: the names that every table gets, and the order in which they are looked up.
#pragma once

#include "Bench.h"
#include "MadeOnce.h"
#include "TVQMap_workload.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace bench {

/// The names as keys, twice: as they are inserted and, in another order and as texts of their own, as they are sought.
template <class Key>
struct NameKeys {
    explicit NameKeys(std::size_t count) {
        std::vector<std::string> texts = names(count);
        for (const std::string& text : texts)
            inserted.emplace_back(text.c_str());
        WordOrder order;
        for (std::size_t i = count; i > 1; --i)
            std::swap(texts[i - 1], texts[order.next(i)]);
        for (const std::string& text : texts)
            sought.emplace_back(text.c_str());
    }

    std::vector<Key> inserted;
    std::vector<Key> sought;
};

/// Kind as in TVQMap_workload.h.
template <class Kind>
struct NameTable {
    explicit NameTable(std::size_t count) {
        const auto& keys = madeOnce<NameKeys<typename Kind::Key>>(count);
        for (std::size_t i = 0; i < count; ++i)
            Kind::insert(map, keys.inserted[i], static_cast<int>(i));
        check(*Kind::find(map, keys.inserted[count / 2]) == static_cast<int>(count / 2), "the value of a key");
        check(Kind::find(map, typename Kind::Key("no such name")) == nullptr, "a key that is not there");
    }

    typename Kind::Map map;
};

/// One iteration is one look-up.
template <class Kind>
void findNames(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    const auto& map = madeOnce<NameTable<Kind>>(count).map;
    const auto& sought = madeOnce<NameKeys<typename Kind::Key>>(count).sought;
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(Kind::find(map, sought[next]));
        next = next + 1 == sought.size() ? 0 : next + 1;
    }
}

/// One iteration is the whole table, from an empty one, its growth included; ending it is not measured.
template <class Kind>
void insertNames(benchmark::State& state) {
    const auto& keys = madeOnce<NameKeys<typename Kind::Key>>(static_cast<std::size_t>(state.range(0))).inserted;
    std::optional<typename Kind::Map> map;
    for (auto _ : state) {
        state.PauseTiming();
        map.emplace();
        state.ResumeTiming();
        int value = 0;
        for (const auto& key : keys)
            Kind::insert(*map, key, value++);
        benchmark::DoNotOptimize(*map);
    }
    check(*Kind::find(*map, keys.back()) == static_cast<int>(keys.size()) - 1, "the last value");
}

}  // namespace bench

#define MARLIX_BENCH_NAMES(contender, Kind)                                                                        \
    MARLIX_BENCH("TVQHashArray_Find", contender, 1000, 1000000) {                                                  \
        bench::findNames<Kind>(state);                                                                             \
    }                                                                                                              \
    MARLIX_BENCH("TVQHashArray_Insert", contender, 1000, 1000000) {                                                \
        bench::insertNames<Kind>(state);                                                                           \
    }
