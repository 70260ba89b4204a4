// CVQDateAndTime_workload: the days that every calendar converts.
#pragma once

#include "Bench.h"

#include <random>
#include <vector>

namespace bench {

struct Day {
    int year;
    int month;
    int day;
};

/// 4096 days from 1970 to 2068, where all calendars agree, in no order: a month that follows from the one before
/// would let the processor predict the search for it.
inline std::vector<Day> days() {
    std::mt19937 random(1970);
    std::vector<Day> result;
    for (unsigned i = 0; i < 4096; ++i)
        result.push_back({1970 + int(random() % 99), 1 + int(random() % 12), 1 + int(random() % 28)});
    return result;
}

constexpr unsigned kDaysOn = 30;

/// 2000-02-15 and 30 days on is 2000-03-16.
constexpr Day kExample = {2000, 2, 15};
inline bool isExampleResult(const Day& day) {
    return day.year == 2000 && day.month == 3 && day.day == 16;
}

/// Converts the days one after the other, over and over.
template <class Convert>
void convertDays(benchmark::State& state, Convert convert) {
    const std::vector<Day> all = days();
    std::size_t next = 0;
    for (auto _ : state) {
        auto result = convert(all[next]);
        benchmark::DoNotOptimize(result);
        next = (next + 1) % all.size();
    }
}

}  // namespace bench
