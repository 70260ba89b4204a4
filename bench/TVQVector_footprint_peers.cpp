// The memory of the containers that one would pick instead.
#include "Footprint.h"
#include "Keys.h"

#include <cstdio>
#include <deque>
#include <list>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#if BENCH_QT
#include <QHash>
#include <QMap>
#include <QString>
#include <QVector>
#endif
#if BENCH_BOOST
#include <boost/container/flat_map.hpp>
#include <boost/container/vector.hpp>
#endif
#if BENCH_ABSEIL
#include <absl/container/btree_map.h>
#include <absl/container/flat_hash_map.h>
#endif

int main(int /*count*/, char** arguments) {
    footprint::begin(arguments);
    const auto name = [](int number) {
        char text[32];
        std::snprintf(text, sizeof text, "channel/%011d", number);
        return std::string(text);
    };
    const auto push = [](auto& array, int i) { array.push_back(i); };
    const auto pushName = [&](auto& array, int i) { array.push_back(name(i)); };
    const auto insertName = [&](auto& map, int i) { map.emplace_hint(map.end(), name(i), i); };
    footprint::printLine<std::vector<int>>("int: std::vector", push);
    footprint::printLine<std::deque<int>>("int: std::deque", push);
#if BENCH_QT
    footprint::printLine<QVector<int>>("int: QVector", push);
#endif
#if BENCH_BOOST
    footprint::printLine<boost::container::vector<int>>("int: boost::container::vector", push);
#endif
    footprint::printLine<std::vector<std::string>>("text: std::vector of std::string", pushName);
#if BENCH_QT
    footprint::printLine<QVector<QString>>(
        "text: QVector of QString", [&](auto& array, int i) { array.push_back(QString::fromStdString(name(i))); });
#endif
    footprint::printLine<std::map<std::string, int>>("text to int: std::map", insertName);
#if BENCH_BOOST
    footprint::printLine<boost::container::flat_map<std::string, int>>("text to int: boost flat_map", insertName);
#endif
#if BENCH_ABSEIL
    footprint::printLine<absl::btree_map<std::string, int>>("text to int: absl::btree_map", insertName);
#endif
#if BENCH_QT
    footprint::printLine<QMap<QString, int>>("text to int: QMap of QString", [&](auto& map, int i) {
        map.insert(map.cend(), QString::fromStdString(name(i)), i);
    });
#endif

    const auto hashName = [&](auto& table, int i) { table.emplace(name(i), i); };
    const auto hashKey = [](auto& table, int i) { table[bench::mixed(static_cast<unsigned>(i) + 1)] = &table; };
    footprint::printLine<std::unordered_map<std::string, int>>("text to int: std::unordered_map", hashName);
#if BENCH_ABSEIL
    footprint::printLine<absl::flat_hash_map<std::string, int>>("text to int: absl::flat_hash_map", hashName);
#endif
#if BENCH_QT
    footprint::printLine<QHash<QString, int>>("text to int: QHash of QString", [&](auto& table, int i) {
        table.insert(QString::fromStdString(name(i)), i);
    });
#endif
    footprint::printLine<std::unordered_map<unsigned, void*>>("key to pointer: std::unordered_map", hashKey);
#if BENCH_ABSEIL
    footprint::printLine<absl::flat_hash_map<unsigned, void*>>("key to pointer: absl::flat_hash_map", hashKey);
#endif
#if BENCH_QT
    footprint::printLine<QHash<unsigned, void*>>("key to pointer: QHash", hashKey);
#endif
    footprint::printLine<std::list<int>>("int: std::list", push);
}
