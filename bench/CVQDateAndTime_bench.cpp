// CVQDateAndTime beside the calendars in CVQDateAndTime_peers.cpp.
#include "Bench.h"
#include "CVQDateAndTime_workload.h"

#include <CVQDateAndTime.h>
#include <CVQString.h>

#include <cstring>

namespace {

using bench::Day;

CVQDateAndTime::SVQDate toDate(const Day& day) {
    return CVQDateAndTime::SVQDate(static_cast<unsigned short>(day.year), static_cast<unsigned char>(day.month),
                                   static_cast<unsigned char>(day.day));
}

Day daysOn(const Day& day) {
    CVQDateAndTime::SVQDate date;
    CVQDateAndTime::getDateFromDays(CVQDateAndTime::getDaysFromDate(toDate(day)) + bench::kDaysOn, date);
    return {date.year, date.month, date.day};
}

CVQString format(const Day& day) {
    return CVQDateAndTime(toDate(day), CVQDateAndTime::SVQTime(14, 5, 9, 0), 0).toString();
}

MARLIX_BENCH("CVQDateAndTime_DaysOn", "ours", 1) {
    bench::check(bench::isExampleResult(daysOn(bench::kExample)), "30 days on");
    bench::convertDays(state, daysOn);
}

MARLIX_BENCH("CVQDateAndTime_ToString", "ours", 1) {
    bench::check(std::strcmp(format(bench::kExample).c_str(), "2000-02-15 14:05:09") == 0, "the text");
    bench::convertDays(state, format);
}

}  // namespace
